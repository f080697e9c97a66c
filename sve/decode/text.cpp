// Assembler text out of a row's description: operands as they are written, then the aliases that are preferred.
#include "sve/decode/text.h"

#include <bit>

#include "sve/decode/table.h"

namespace sve::decode {
namespace {

class Writer {
 public:
  explicit Writer(char (&buffer)[max_text]) : begin_(buffer), at_(buffer), end_(buffer + max_text - 1) {}
  Writer& operator<<(char c) {
    if (at_ < end_) *at_++ = c;
    return *this;
  }
  Writer& operator<<(std::string_view text) {
    for (const char c : text) *this << c;
    return *this;
  }
  Writer& operator<<(std::int64_t n) {
    if (n < 0) *this << '-';
    return digits(n < 0 ? std::uint64_t{0} - static_cast<std::uint64_t>(n) : static_cast<std::uint64_t>(n), 10);
  }
  Writer& digits(std::uint64_t n, unsigned base) {
    char text[20];
    std::size_t count = 0;
    do text[count++] = "0123456789abcdef"[n % base];
    while (n /= base);
    while (count) *this << text[--count];
    return *this;
  }
  std::string_view finish() {
    *at_ = 0;
    return {begin_, static_cast<std::size_t>(at_ - begin_)};
  }

 private:
  char *begin_, *at_, *end_;
};

constexpr char size_letter(unsigned code) { return "bhsdq"[code]; }

constexpr std::string_view pattern_names[32] = {"pow2", "vl1",  "vl2",  "vl3",  "vl4",   "vl5",   "vl6",  "vl7",
                                                "vl8",  "vl16", "vl32", "vl64", "vl128", "vl256", "",     "",
                                                "",     "",     "",     "",     "",      "",      "",     "",
                                                "",     "",     "",     "",     "",      "mul4",  "mul3", "all"};
constexpr std::string_view prefetch_names[16] = {
    "pldl1keep", "pldl1strm", "pldl2keep", "pldl2strm", "pldl3keep", "pldl3strm", "", "",
    "pstl1keep", "pstl1strm", "pstl2keep", "pstl2strm", "pstl3keep", "pstl3strm", "", ""};
constexpr std::int64_t pattern_all = 31;

/// The smallest size code at which a 64-bit mask repeats.
unsigned repeating_size(std::uint64_t mask) {
  unsigned code = element_d;
  while (code > element_b && mask == std::rotl(mask, 4 << code)) --code;
  return code;
}
std::uint64_t element_of(std::uint64_t value, unsigned code) {
  return code == element_d ? value : value & ((std::uint64_t{1} << (8u << code)) - 1);
}

constexpr std::uint64_t constant_unit = 10'000'000;

/// The magnitude, in units of 10 to the -7, of a constant of the 8-bit format by its bits at a size: 16 to 31
/// sixteenths times a power of two from -3 to 4, or 0.
std::uint64_t constant_of(std::uint64_t bits, unsigned code) {
  if (bits == 0) return 0;
  const unsigned fraction_bits = code == element_h ? 10 : code == element_s ? 23 : 52;
  const unsigned exponent_bits = (8u << code) - 1 - fraction_bits;
  const std::uint64_t exponent = bits >> fraction_bits & ((1u << exponent_bits) - 1);
  const std::uint64_t sixteenths = 16 | (bits >> (fraction_bits - 4) & 15);
  return (sixteenths << (exponent + 3 - ((1u << (exponent_bits - 1)) - 1))) * (constant_unit / 128);
}

void write_constant(Writer& out, std::uint64_t bits, unsigned code) {
  if (bits >> ((8u << code) - 1) & 1) out << '-';
  std::uint64_t rest = constant_of(bits, code), unit = constant_unit;
  int power = 0;
  for (; rest >= unit * 10; unit *= 10) ++power;
  for (; rest < unit; unit /= 10) --power;
  out << static_cast<char>('0' + rest / unit) << '.';
  for (int place = 0; place < 18; ++place) {
    rest = rest % unit * 10;
    out << static_cast<char>('0' + rest / unit);
  }
  out << 'e' << (power < 0 ? '-' : '+') << '0' << static_cast<char>('0' + (power < 0 ? -power : power));
}

// A word's operands on their way to the page. An alias renames the instruction and leaves operands out.
struct Line {
  const Row& of;
  std::uint32_t word;
  std::string_view mnemonic;
  bool left_out[max_operands] = {};
  Predication inactive = Predication::none;  ///< of the governing predicate, if an alias changes it
  bool first_element = false;                ///< the indexed register is written as a scalar

  const Operand& at(std::size_t i) const { return of.operands()[i]; }
  std::uint32_t number(std::size_t i) const { return at(i).number(word); }
  bool same(std::size_t i, std::size_t j) const { return number(i) == number(j); }
  std::int64_t value(std::size_t i) const { return at(i).value(word); }
};

/// Whether `dup` can not make a mask from an 8-bit immediate, so that `dupm` is preferred to be written as `mov`.
bool is_move_mask(std::uint64_t mask) {
  const unsigned code = repeating_size(mask);
  if (code == element_b) return false;
  const unsigned unused = 64 - (8u << code);
  std::int64_t value = static_cast<std::int64_t>(mask << unused) >> unused;
  if (value % 256 == 0) value /= 256;
  return value < -128 || value > 127;
}

void prefer_alias(Line& l) {
  const std::string_view m = l.mnemonic;
  const std::size_t count = l.of.operands().size();
  const bool predicates = count == 4 && l.at(2).kind == OperandKind::p;
  if (m == "cpy" || m == "dup") {
    l.mnemonic = "mov";
    l.first_element = count == 3 && l.at(2).spelled == Spelling::index && l.value(2) == 0;
  } else if (m == "dupm") {
    if (is_move_mask(static_cast<std::uint64_t>(l.value(1)))) l.mnemonic = "mov";
  } else if (m == "fcpy" || m == "fdup") {
    l.mnemonic = "fmov";
  } else if (m == "sel") {
    if (!l.same(0, 3)) return;
    l.mnemonic = "mov";
    l.left_out[3] = true;
    l.inactive = Predication::merging;
  } else if (m == "orr" && count == 3 && l.at(2).is_register() && l.at(1).kind == OperandKind::z) {
    if (!l.same(1, 2)) return;
    l.mnemonic = "mov";
    l.left_out[2] = true;
  } else if (predicates && (m == "orr" || m == "orrs")) {
    if (!l.same(1, 2) || !l.same(2, 3)) return;
    l.mnemonic = m == "orr" ? "mov" : "movs";
    l.left_out[1] = l.left_out[3] = true;
  } else if (predicates && (m == "and" || m == "ands")) {
    if (!l.same(2, 3)) return;
    l.mnemonic = m == "and" ? "mov" : "movs";
    l.left_out[3] = true;
  } else if (predicates && (m == "eor" || m == "eors")) {
    if (!l.same(1, 3)) return;
    l.mnemonic = m == "eor" ? "not" : "nots";
    l.left_out[3] = true;
  }
}

void write_general(Writer& out, const Operand& o, unsigned size, std::uint32_t n) {
  const char letter = size == element_d ? 'x' : 'w';
  if (n != 31)
    out << letter << std::int64_t{n};
  else if (o.kind == OperandKind::x)
    out << letter << "zr";
  else
    out << (size == element_d ? "sp" : "wsp");
}

void write_register(Writer& out, const Line& l, const Operand& o, unsigned size) {
  const std::uint32_t n = o.number(l.word);
  const auto sized = [&](char letter, std::uint32_t number) {
    out << letter << std::int64_t{number};
    if (size != Operand::no_size) out << '.' << size_letter(size);
  };
  switch (o.kind) {
    case OperandKind::z:
      if (o.registers) out << '{';
      sized('z', n);
      // Two registers, or ones that go round from z31 to z0, are written out.
      for (unsigned k = 1; k < o.registers; ++k) {
        const bool in_full = o.registers == 2 || n + o.registers > 32;
        if (!in_full) k = o.registers - 1u;
        out << (in_full ? ", " : "-");
        sized('z', (n + k) % 32);
      }
      if (o.registers) out << '}';
      break;
    case OperandKind::p: {
      sized('p', n);
      const Predication inactive =
          o.role == OperandRole::governing && l.inactive != Predication::none ? l.inactive : o.inactive;
      if (inactive != Predication::none) out << '/' << (inactive == Predication::merging ? 'm' : 'z');
      break;
    }
    case OperandKind::v:
      out << size_letter(size) << std::int64_t{n};
      break;
    default:
      write_general(out, o, size, n);
  }
}

void write_immediate(Writer& out, const Line& l, const Operand& o) {
  const std::int64_t value = o.value(l.word);
  const auto named = [&](std::string_view name) {
    if (name.empty())
      out << '#' << value;
    else
      out << name;
  };
  switch (o.kind) {
    case OperandKind::pattern:
      named(pattern_names[value]);
      return;
    case OperandKind::prefetch:
      named(prefetch_names[value]);
      return;
    case OperandKind::multiplier:
      out << "mul #" << value;
      return;
    default:
      break;
  }
  switch (o.spelled) {
    case Spelling::logical:
      out << "#0x";
      out.digits(element_of(static_cast<std::uint64_t>(value), repeating_size(static_cast<std::uint64_t>(value))), 16);
      return;
    case Spelling::floating:
      out << '#';
      write_constant(out, static_cast<std::uint64_t>(value), l.of.form->element_size);
      return;
    case Spelling::choice: {
      const std::uint64_t tenths =
          constant_of(static_cast<std::uint64_t>(value), l.of.form->element_size) / (constant_unit / 10);
      out << '#' << static_cast<char>('0' + tenths / 10) << '.' << static_cast<char>('0' + tenths % 10);
      return;
    }
    case Spelling::shifted:
      out << '#' << value;
      if (value == 0 && (l.word & 1u << 13)) out << ", lsl #8";
      return;
    default:
      out << '#' << value;
  }
}

/// [base], [base, #imm], [base, #imm, mul vl], [base, offset], [base, offset, extension #shift]
void write_address(Writer& out, const Line& l, const Operand& base, const Operand* offset) {
  const InstructionFunction& f = *l.of.function;
  out << '[';
  write_register(out, l, base, base.size);
  if (offset && offset->is_register()) {
    out << ", ";
    write_register(out, l, *offset, offset->size);
    const unsigned shift =
        offset->shift == Operand::by_access ? static_cast<unsigned>(std::countr_zero(f.memory_bytes)) : offset->shift;
    constexpr std::string_view names[] = {"lsl", "lsl", "sxtw", "uxtw"};
    if (shift != 0 || offset->extends == Extension::sxtw || offset->extends == Extension::uxtw)
      out << ", " << names[static_cast<unsigned>(offset->extends)];
    if (shift != 0) out << " #" << std::int64_t{shift};
  } else if (offset) {
    const bool vector_multiple = offset->spelled == Spelling::vector_multiple;
    const std::int64_t unit = vector_multiple ? f.registers : static_cast<std::int64_t>(l.of.offset_unit());
    const std::int64_t value = offset->value(l.word) * unit;
    if (value != 0) {
      out << ", #" << value;
      if (vector_multiple) out << ", mul vl";
    }
  }
  out << ']';
}

}  // namespace

std::string_view text_of(std::uint32_t word, char (&buffer)[max_text]) {
  Writer out(buffer);
  const Row* found = find_row(word);
  if (!found) return out.finish();
  Line l{*found, word, found->mnemonic()};
  prefer_alias(l);
  out << l.mnemonic;
  bool first = true;
  const auto separate = [&] {
    out << (first ? " " : ", ");
    first = false;
  };
  const std::span<const Operand> operands = found->operands();
  // A pattern of all elements, taken once, goes without saying.
  std::size_t count = operands.size();
  if (count && operands[count - 1].kind == OperandKind::multiplier && l.value(count - 1) == 1) --count;
  if (count && operands[count - 1].kind == OperandKind::pattern && l.value(count - 1) == pattern_all) --count;
  // A logical immediate has a size of its own, which its vectors take.
  unsigned size = Operand::no_size;
  for (const Operand& o : operands)
    if (o.spelled == Spelling::logical) size = repeating_size(static_cast<std::uint64_t>(o.value(word)));
  for (std::size_t i = 0; i < count; ++i) {
    const Operand& o = operands[i];
    const auto written_size = [&](unsigned own) { return size == Operand::no_size ? own : size; };
    if (l.left_out[i]) continue;
    if (o.role == OperandRole::offset) continue;
    if (o.spelled == Spelling::index) {
      if (!l.first_element) out << '[' << o.value(word) << ']';
      continue;
    }
    separate();
    if (o.role == OperandRole::base) {
      const Operand* offset = i + 1 < count && operands[i + 1].role == OperandRole::offset ? &operands[i + 1] : nullptr;
      write_address(out, l, o, offset);
      continue;
    }
    if (!o.is_register()) {
      write_immediate(out, l, o);
      continue;
    }
    if (l.first_element && i == 1)
      out << size_letter(o.size) << std::int64_t{o.number(word)};
    else
      write_register(out, l, o, written_size(o.size));
    // The other mention of the destination, behind the governing predicate where there is one.
    const Operand* before = i == 1 && o.role == OperandRole::governing ? &operands[0] : i == 0 ? &o : nullptr;
    const bool waits = i == 0 && count > 1 && operands[1].role == OperandRole::governing;
    if (before && before->repeated == Repetition::next && !waits) {
      separate();
      write_register(out, l, *before, written_size(before->repeated_size));
    }
  }
  // A compare of numbers with nothing else compares with zero.
  if (found->function->floating_point && count == 3 && operands[0].kind == OperandKind::p) out << ", #0.0";
  if (count && operands[0].repeated == Repetition::last) {
    separate();
    write_register(out, l, operands[0], operands[0].repeated_size);
  }
  return out.finish();
}

}  // namespace sve::decode
