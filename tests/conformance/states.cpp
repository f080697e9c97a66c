// The state generator.
#include "tests/conformance/states.h"

#include <algorithm>

#include "tests/conformance/memory_accesses.h"
#include "tests/conformance/window.h"

namespace conformance {
namespace {

using sve::u64;

constexpr u64 ones(unsigned n) { return n >= 64 ? ~u64{0} : (u64{1} << n) - 1; }

// ---- Values of one element ----

u64 edge_integer(unsigned bits, RandomSource& random) {
  const u64 sign = u64{1} << (bits - 1);
  switch (random.below(12)) {
    case 0:
      return 0;
    case 1:
      return 1;
    case 2:
      return ones(bits);
    case 3:
      return sign;
    case 4:
      return sign - 1;
    case 5:
      return sign + 1;
    case 6:
      return u64{1} << random.below(bits);
    case 7:
      return ones(random.below(bits + 1));
    case 8:
      return bits - 2 + random.below(5);  // around the element's width: shift amounts
    case 9:
      return (0 - u64{random.below(4)}) & ones(bits);
    case 10:
      return random.below(130);
    default:
      return random.next() & ones(bits);
  }
}

struct Format {
  unsigned exponent_bits, fraction_bits;
  unsigned bits() const { return 1 + exponent_bits + fraction_bits; }
  u64 top() const { return ones(exponent_bits); }
  u64 bias() const { return ones(exponent_bits - 1); }
  u64 make(u64 sign, u64 exponent, u64 fraction) const {
    return sign << (exponent_bits + fraction_bits) | (exponent & top()) << fraction_bits |
           (fraction & ones(fraction_bits));
  }
};

constexpr Format format_of(unsigned bits) {
  return bits == 16 ? Format{5, 10} : bits == 32 ? Format{8, 23} : Format{11, 52};
}

u64 edge_fraction(const Format& f, RandomSource& random) {
  switch (random.below(5)) {
    case 0:
      return random.below(4);
    case 1:
      return ones(f.fraction_bits) - random.below(4);
    case 2:
      return (u64{1} << (f.fraction_bits - 1)) + random.below(3) - 1;
    default:
      return random.next();
  }
}

// Every draw is a statement of its own: the order of draws within an expression is the compiler's choice, and the cases
// must be the same on every machine.
u64 special_float(unsigned bits, RandomSource& random) {
  const Format f = format_of(bits);
  const u64 last = f.top() - 1, quiet = u64{1} << (f.fraction_bits - 1);
  const u64 fraction = edge_fraction(f, random);  // its set bits at the ends, where rounding happens
  const u64 draw = random.next();
  const u64 sign = draw & 1, two = draw >> 1 & 1, four = draw >> 2 & 3, three = (draw >> 8 & 0xff) % 3;
  const u64 any = random.next();
  constexpr unsigned integer_bounds[] = {6, 7, 8, 14, 15, 16, 30, 31, 32, 62, 63, 64};
  switch (random.below(20)) {
    case 0:
    case 1:
      return f.make(sign, 0, 0);
    case 2:
      return f.make(sign, 0, four + 1);
    case 3:
      return f.make(sign, 0, ones(f.fraction_bits) - three);
    case 4:
      return f.make(sign, 0, any);
    case 5:
      return f.make(sign, 1 + two, fraction);
    case 6:
      return f.make(sign, last, ones(f.fraction_bits) - three);
    case 7:
      return f.make(sign, last - two, fraction);
    case 8:
    case 9:
      return f.make(sign, f.top(), 0);
    case 10:
      return f.make(sign, f.top(), quiet | (two ? 0 : any));
    case 11:
      return f.make(sign, f.top(), std::max<u64>(1, any & (quiet - 1)));
    case 12:
      return f.make(sign, f.bias(), three);
    case 13:
      return f.make(sign, f.bias() + two, fraction);
    case 14:
      return f.make(sign, f.bias() - 1 - two, fraction);
    case 15:
      return f.make(sign, f.bias() + random.pick(integer_bounds), fraction);
    case 16:  // integers and halves
      return f.make(sign, f.bias() + random.below(f.fraction_bits + 2), any << (f.fraction_bits - 2));
    case 17:  // half the exponent range: products and roots at the ends
      return f.make(sign, f.bias() / 2 + three, fraction);
    case 18:
      return f.make(sign, f.bias() + f.bias() / 2 + three, fraction);
    default:
      return any & ones(f.bits());
  }
}

u64 moderate_float(unsigned bits, RandomSource& random) {
  const Format f = format_of(bits);
  const u64 draw = random.next();
  return f.make(draw >> 63, f.bias() - 4 + (draw >> 55 & 0xff) % 9, draw);
}

// ---- Vectors ----

void put(std::uint8_t* z, unsigned bits, unsigned i, u64 value) { std::memcpy(z + i * (bits / 8), &value, bits / 8); }
u64 get(const std::uint8_t* z, unsigned bits, unsigned i) {
  u64 value = 0;
  std::memcpy(&value, z + i * (bits / 8), bits / 8);
  return value;
}

template <class Value>
void fill(std::uint8_t* z, unsigned bits, Value value) {
  for (unsigned i = 0; i < sve::vector_bytes * 8 / bits; ++i) put(z, bits, i, value());
}

void fill_vector(const RowInfo& row, RandomSource& random, std::uint8_t* z) {
  constexpr unsigned widths[] = {8, 16, 32, 64};
  unsigned bits =
      row.element_bits >= 8 && row.element_bits <= 64 && random.chance(70) ? row.element_bits : random.pick(widths);
  const bool floats = row.floating_point() ? random.chance(85) : random.chance(5);
  if (floats && bits == 8) bits = 16;
  const auto value = [&] { return floats ? special_float(bits, random) : edge_integer(bits, random); };
  const unsigned style = random.below(20);
  if (style < 8) {
    fill(z, bits, value);
  } else if (style < 10) {
    const u64 same = value();
    fill(z, bits, [&] { return same; });
  } else if (style < 12) {
    const u64 a = value(), b = value();
    fill(z, bits, [&] { return random.next() & 1 ? a : b; });
  } else if (floats && style < 17) {
    fill(z, bits, [&] { return moderate_float(bits, random); });
  } else {
    fill(z, 64, [&] { return random.next(); });
  }
}

/// Makes `z` close to `other`: equal, neighbouring or opposite elements, for compares and cancellation.
void relate(const RowInfo& row, RandomSource& random, const std::uint8_t* other, std::uint8_t* z) {
  const unsigned bits = row.element_bits >= 8 && row.element_bits <= 64 ? row.element_bits : 8;
  for (unsigned i = 0; i < sve::vector_bytes * 8 / bits; ++i) {
    const u64 value = get(other, bits, i);
    switch (random.below(6)) {
      case 0:
      case 1:
        put(z, bits, i, value);
        break;
      case 2:
        put(z, bits, i, value ^ (u64{1} << (bits - 1)));
        break;
      case 3:
        put(z, bits, i, value + 1);
        break;
      case 4:
        put(z, bits, i, value - 1);
        break;
      default:
        break;
    }
  }
}

// ---- Predicates ----

void fill_predicate(const RowInfo& row, RandomSource& random, std::uint8_t* p) {
  const unsigned named = row.element_bits >= 8 && row.element_bits <= 64 ? row.element_bits / 8 : 1;
  const unsigned step = random.chance(80) ? named : 1u << random.below(4);
  const unsigned elements = static_cast<unsigned>(sve::vector_bytes) / step;
  std::memset(p, 0, sve::predicate_bytes);
  const auto each = [&](auto active) {
    for (unsigned e = 0; e < elements; ++e) set_bit(p, e * step, active(e));
  };
  switch (random.below(16)) {
    case 0:  // empty
      break;
    case 1:  // all bits
      std::memset(p, 0xff, sve::predicate_bytes);
      break;
    case 2:  // full
    case 3:
    case 4:
      each([](unsigned) { return true; });
      break;
    case 5: {  // the elements below a bound
      const unsigned bound = random.below(elements + 1);
      each([=](unsigned e) { return e < bound; });
      break;
    }
    case 6: {  // one element, often at an end
      const unsigned one = random.chance(30) ? 0 : random.chance(50) ? elements - 1 : random.below(elements);
      each([=](unsigned e) { return e == one; });
      break;
    }
    case 7:  // sparse
      each([&](unsigned) { return random.below(8) == 0; });
      break;
    case 8: {  // dense
      each([&](unsigned) { return random.below(8) != 0; });
      break;
    }
    case 9:  // alternating
      each([](unsigned e) { return (e & 1) == 0; });
      break;
    case 10:  // stray bits above each element's first, which must not count
      for (unsigned i = 0; i < sve::predicate_bytes; ++i) p[i] = static_cast<std::uint8_t>(random.next());
      break;
    case 11:  // nothing but stray bits
      for (unsigned i = 0; i < sve::vector_bytes; ++i) set_bit(p, i, i % step != 0 && random.chance(50));
      break;
    default:
      each([&](unsigned) { return (random.next() & 1) != 0; });
  }
}

// ---- General registers ----

u64 general_value(RandomSource& random) {
  switch (random.below(6)) {
    case 0:
      return edge_integer(64, random);
    case 1: {  // junk above a word
      const u64 word = edge_integer(32, random);
      return random.next() << 32 | word;
    }
    case 2:
      return edge_integer(32, random);
    case 3:
      return static_cast<u64>(static_cast<std::int64_t>(static_cast<std::int32_t>(edge_integer(32, random))));
    case 4:
      return random.below(256);
    default:
      return random.next();
  }
}

void relate_scalars(const RowInfo& row, std::uint32_t word, RandomSource& random, Machine& state) {
  const Operand* n = row.find(Role::x, 5);
  const Operand* m = row.find(Role::x, 16);
  if (!n || !m || !random.chance(70)) return;
  const unsigned to = m->number(word), from = n->number(word);
  if (to == register_31) return;
  const u64 base = from == register_31 ? 0 : state.x[from];
  state.x[to] = base + random.below(sve::vector_bytes * 5 / 4) - 8;
  if (random.chance(30)) state.x[to] ^= random.next() << 32;  // equal words, different doublewords
}

// ---- Memory ----

/// An address for a span of bytes: inside pages, at their ends and across them.
u64 pick_address(RandomSource& random, unsigned span, unsigned alignment) {
  using namespace window;
  const u64 p1 = address_of_page(1), p2 = address_of_page(2), p3 = address_of_page(3), p4 = address_of_page(4),
            p5 = address_of_page(5);
  const u64 inside_span = random.below(span + 1);
  u64 address;
  switch (random.below(20)) {
    case 0:
      address = p1;
      break;
    case 1:
    case 2:
      address = p3 - span;  // ends where the unreadable page begins
      break;
    case 3:
    case 4:
    case 5:
      address = p2 - inside_span;  // across two readable pages
      break;
    case 6:
    case 7:
      address = p3 - inside_span;  // into an unreadable page
      break;
    case 8:
      address = p1 - inside_span;  // out of one
      break;
    case 9:
      address = p4 - inside_span;
      break;
    case 10:
      address = p5 - span;
      break;
    case 11:
      address = p5 - inside_span;
      break;
    default:
      address = p1 + random.below(static_cast<std::uint32_t>(2 * page - span));
  }
  if (random.chance(50)) address &= ~u64{alignment - 1};
  return address;
}

void place_contiguous(const RowInfo& row, std::uint32_t word, RandomSource& random, Machine& state) {
  const MemoryForm& m = row.memory;
  const MemoryOperands o = operands_of(row, word);
  const bool whole = m.access == AccessKind::fill || m.access == AccessKind::spill;
  const unsigned span = whole                                        ? immediate_unit(m)
                        : m.access == AccessKind::replicate          ? m.memory_bytes
                        : m.access == AccessKind::replicate_quadword ? 16
                                                                     : m.elements() * m.registers * m.memory_bytes;
  const u64 target = pick_address(random, span, m.memory_bytes);
  u64& base = o.base == register_31 ? state.sp : state.x[o.base];
  if (m.address == AddressForm::base_immediate) {
    base = target - static_cast<u64>(static_cast<std::int64_t>(m.imm(word)) * immediate_unit(m));
  } else if (o.index == register_31) {
    base = target;
  } else if (o.base == o.index) {
    base = target / (1 + m.memory_bytes);
  } else {
    const u64 index = random.chance(60) ? random.below(300) - 150 : random.next();
    state.x[o.index] = index;
    base = target - index * m.memory_bytes;
  }
}

void place_elements(const RowInfo& row, std::uint32_t word, RandomSource& random, Machine& state) {
  const MemoryForm& m = row.memory;
  const MemoryOperands o = operands_of(row, word);
  const u64 immediate = static_cast<u64>(m.imm(word)) * m.memory_bytes;
  const unsigned scale = m.address == AddressForm::base_vector_scaled ? m.memory_bytes : 1;
  u64 base = 0;
  if (m.address != AddressForm::vector_immediate) {
    // The middle of the offsets' range lies at random in what a signed or unsigned word, or a doubleword, can reach.
    u64 bias = random.below(2 * window::page);
    if (m.extension == OffsetExtension::zero_32 && random.chance(60)) bias = random.next() & 0xfffeffff;
    if (m.extension == OffsetExtension::sign_32 && random.chance(60))
      bias = static_cast<u64>(static_cast<std::int64_t>(static_cast<std::int32_t>(random.next())) / 2);
    if (m.extension == OffsetExtension::none && random.chance(60)) bias = random.next();
    base = window::address_of_page(0) - bias * scale;
    (o.base == register_31 ? state.sp : state.x[o.base]) = base;
  }
  const bool together = random.chance(15);  // few addresses, so that elements collide
  for (unsigned e = 0; e < m.elements(); ++e) {
    u64 target = pick_address(random, together ? 2 * m.memory_bytes : 24, m.memory_bytes);
    if (together) target = window::address_of_page(2) + random.below(3 * m.memory_bytes);
    u64 offset = (target - base - (m.address == AddressForm::vector_immediate ? immediate : 0)) / scale;
    if (scale > 1) offset = static_cast<u64>(static_cast<std::int64_t>(target - base) / static_cast<int>(scale));
    if (m.element_bytes == 8 && m.extension != OffsetExtension::none)
      offset = (offset & 0xffffffff) | random.next() << 32;  // junk above the word that counts
    put(state.z[o.vector], m.element_bytes * 8u, e, offset);
  }
}

void place_memory(const RowInfo& row, std::uint32_t word, bool faults, RandomSource& random, Machine& state) {
  const MemoryForm& m = row.memory;
  const bool contiguous = m.address == AddressForm::base_immediate || m.address == AddressForm::base_index;
  const bool speculative = m.access == AccessKind::first_fault || m.access == AccessKind::non_fault;
  for (;;) {
    if (contiguous)
      place_contiguous(row, word, random, state);
    else
      place_elements(row, word, random, state);
    if (speculative || faults) return;
    // Without a governing predicate every byte counts; otherwise elements that cannot be touched are made inactive.
    const MemoryOperands o = operands_of(row, word);
    const MemoryPlan plan = plan_accesses(row, word, state);
    bool touchable = true;
    for (unsigned i = 0; i < plan.count; ++i) {
      const MemoryAccess& a = plan.accesses[i];
      if (!a.active || a.readable(m.memory_bytes)) continue;
      if (o.governing == 16)
        touchable = false;
      else
        set_bit(state.p[o.governing], a.predicate_byte, false);
    }
    if (touchable) return;
  }
}

constexpr u64 rounding_mode = u64{3} << 22, flush = u64{1} << 24, default_nan = u64{1} << 25,
              alternative_half = u64{1} << 26, flush_16 = u64{1} << 19;

u64 control_word(unsigned n) {
  return (u64{n} << 22 & rounding_mode) | (n & 4 ? flush : 0) | (n & 8 ? default_nan : 0) | (n & 16 ? flush_16 : 0) |
         (n & 32 ? alternative_half : 0);
}

}  // namespace

void make_background(RandomSource& random, Machine& state) {
  state = {};
  for (u64& x : state.x) x = random.next();
  state.sp = random.next();
  for (auto& z : state.z) fill(z, 64, [&] { return random.next(); });
  for (auto& p : state.p)
    for (auto& byte : p) byte = static_cast<std::uint8_t>(random.next());
}

void make_state(const RowInfo& row, std::uint32_t word, unsigned number, bool faults, RandomSource& random,
                Machine& state) {
  const Operand* first = nullptr;
  for (const Operand& o : row.operands) {
    const std::uint32_t n = o.number(word);
    switch (o.kind) {
      case Role::z:
      case Role::v:
        for (unsigned k = 0; k < row.memory.registers; ++k) fill_vector(row, random, state.z[(n + k) % 32]);
        if (first && random.chance(25)) relate(row, random, state.z[first->number(word)], state.z[n]);
        first = &o;
        break;
      case Role::p:
        fill_predicate(row, random, state.p[n]);
        break;
      case Role::x:
        if (n != register_31) state.x[n] = general_value(random);
        break;
      case Role::x_or_sp:
        (n == register_31 ? state.sp : state.x[n]) = general_value(random);
        break;
      default:
        break;
    }
  }
  relate_scalars(row, word, random, state);
  if (random.chance(60))
    std::memset(state.ffr, 0xff, sizeof state.ffr);
  else
    fill_predicate(row, random, state.ffr);
  state.nzcv = u64{random.below(16)} << 28;
  // Every mode in turn, and with it every other word's plain mode.
  state.fpcr = control_word(row.floating_point() ? number : random.below(64));
  state.fpsr = random.chance(50) ? 0 : random.next() & 0x0800009f;
  if (row.memory.is_memory()) place_memory(row, word, faults, random, state);
}

}  // namespace conformance
