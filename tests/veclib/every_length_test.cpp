// The floating-point and the memory routines at every length. An element's outcome depends on its own operands alone,
// so what a routine does at one length is what it does at 14 granules, window by window.
#include <sys/mman.h>
#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

#include <cfenv>
#include <utility>
#include <vector>

#include "sve/fplib/fplib.h"
#include "sve/lanes/repeat.h"
#include "sve/processor/vectors.h"
#include "tests/fplib/operands.h"
#include "values.h"

namespace {

using namespace veclib_test;

constexpr u32 model_length = 14;

struct Arguments {
  VectorV v[4];
  PredV p;
  u64 base = 0;  // the first scalar, and the second
  u64 other = 0;
};

// What a call left: its result or results, its status, and whatever it stored.
struct Left {
  VectorV v[4] = {};
  PredV p{};
  u64 scalar = 0;
  u32 fpsr = 0;
};

template <class A>
A next(const Arguments& from, Left& to, unsigned& vectors, unsigned& scalars, unsigned& results, CpuContext* c) {
  if constexpr (std::is_same_v<A, const VectorV&>)
    return from.v[vectors++];
  else if constexpr (std::is_same_v<A, VectorV&>)
    return to.v[results++];
  else if constexpr (std::is_same_v<A, const PredV&>)
    return from.p;
  else if constexpr (std::is_same_v<A, CpuContext*>)
    return c;
  else
    return static_cast<A>(scalars++ == 0 ? from.base : from.other);
}

template <class R, class... A>
Left call(R (*routine)(A...), const Arguments& from, u32 granules, u32 fpcr = 0, u32 fpsr = 0) {
  Left to;
  CpuContext c{0, fpsr, fpcr, granules, bits_of([](auto) { return true; })};
  unsigned vectors = 0, scalars = 0, results = 0;
  // Braces keep the order.
  std::tuple<A...> a{next<A>(from, to, vectors, scalars, results, &c)...};
  if constexpr (std::is_void_v<R>)
    std::apply(routine, a);
  else if constexpr (std::is_same_v<R, VectorV>)
    to.v[0] = std::apply(routine, a);
  else if constexpr (std::is_same_v<R, PredV>)
    to.p = std::apply(routine, a);
  else
    to.scalar = std::apply(routine, a);
  to.fpsr = c.fpsr;
  return to;
}

bool has(std::string_view text, std::string_view part) { return text.find(part) != text.npos; }

// Granules `from` to `from + n - 1` at the bottom; above them nothing is active, and vectors repeat the first segment,
// so that unpredicated operations meet nothing new.
Arguments window(const Arguments& whole, u32 from, u32 n) {
  Arguments a = whole;
  for (VectorV& v : a.v) {
    std::memmove(v.bytes, v.bytes + 8 * from, 8 * n);
    const u32 segment = n >= 2 ? 16 : 8;
    for (u32 i = 8 * n; n != 0 && i + segment <= 256; i += segment) std::memcpy(v.bytes + i, v.bytes, segment);
  }
  a.p = PredV{};
  for (u32 i = 0; i < 8 * n; ++i) a.p.words[i / 64] |= u64{bit(whole.p, i + 8 * from)} << (i % 64);
  return a;
}

// Calls `body(first granule, granules)` for each window of a length.
template <class Body>
void for_each_window(u32 length, Body body) {
  for (u32 from = 0; from < length; from += model_length) body(from, std::min(model_length, length - from));
}

struct RoutineName {
  std::string_view type, op;
  std::string text() const { return "Vec" + std::string(type) + std::string(op); }
  unsigned element_bytes() const { return static_cast<unsigned>(std::stoi(std::string(type.substr(1)))) / 8; }
};

void expect_window(const RoutineName& name, const Left& whole, const Left& part, u32 from, u32 n, u32 length) {
  for (unsigned k = 0; k < 4; ++k)
    ASSERT_EQ(std::memcmp(whole.v[k].bytes + 8 * from, part.v[k].bytes, 8 * n), 0)
        << name.text() << " at length " << length << " from granule " << from;
  for (u32 i = 0; i < 8 * n; ++i)
    ASSERT_EQ(bit(whole.p, 8 * from + i), bit(part.p, i)) << name.text() << " at length " << length << " bit " << i;
}

// ---- Floating point ----

bool is_floating_point(const RoutineName& n) {
  return n.type[0] == 'F' || n.type[0] == 'D' || n.type[0] == 'H' || has(n.op, "From");
}

int element_wise = 0, reductions = 0;

template <class R, class... A>
void check_floating_point(const RoutineName& name, R (*routine)(A...)) {
  if (!is_floating_point(name) || has(name.op, "Insert") || has(name.op, "CondX") || has(name.op, "Last")) return;
  Random random(std::hash<std::string>{}(name.text()));
  constexpr bool scalar_result = std::is_same_v<R, u64>;
  ++(scalar_result ? reductions : element_wise);
  const bool pairs = has(name.op, "VIX") || (has(name.op, "FC") && name.type == "D64");
  for (const u32 length : lengths_and_zero) {
    if (length == 1 && pairs && has(name.op, "VV")) continue;  // half a pair, or of a segment
    for (int round = 0; round < 24; ++round) {
      Arguments whole;
      for (VectorV& v : whole.v) v = random_vector(random);
      if (scalar_result)  // sums that do not depend on their pads
        for (VectorV& v : whole.v)
          for (std::size_t i = 0; i < 256; i += name.element_bytes()) {
            const u64 one = name.type == "F16" ? 0x3c00 : name.type == "F32" ? 0x3f800000 : 0x3ff0000000000000;
            const u64 x = one + random() % 1000;
            std::memcpy(v.bytes + i, &x, name.element_bytes());
          }
      whole.p = random_predicate(random);
      whole.base = random() & 1;
      whole.other = random() & 1;
      if (length == 1)
        for (VectorV& v : whole.v) std::memcpy(v.bytes + 8, v.bytes, 8);
      const u32 fpcr = static_cast<u32>(random() % 4) << 22;
      const Left at_length = call(routine, whole, length, fpcr);
      if constexpr (scalar_result) {
        // The same elements at the greatest length, and there the elements above are inactive.
        const Left greatest = call(routine, window(whole, 0, length), 32, fpcr);
        ASSERT_EQ(at_length.scalar, greatest.scalar) << name.text() << " at length " << length;
        ASSERT_EQ(at_length.fpsr, greatest.fpsr) << name.text() << " at length " << length;
        continue;
      }
      u32 fpsr = 0;
      for_each_window(length, [&](u32 from, u32 n) {
        const Left part = call(routine, window(whole, from, n), model_length, fpcr);
        fpsr |= part.fpsr;
        expect_window(name, at_length, part, from, n, length);
      });
      ASSERT_EQ(at_length.fpsr, fpsr) << name.text() << " at length " << length;
    }
  }
}

// ---- The host's processor against the library ----

VectorV random_numbers(operands::Random& random) {
  VectorV v;
  const bool one_value = random.below(2);  // so that no other element hides what it raises
  const auto fill = [&]<class T>(T near) {
    const T value = operands::random_value(random, near);
    for (std::size_t i = 0; i < 256 / sizeof(T); ++i)
      sve::store<T>(v.bytes, i, one_value ? value : operands::random_value(random, near));
  };
  const u64 near = random();
  switch (random.below(3)) {
    case 0:
      fill(static_cast<unsigned short>(near));
      break;
    case 1:
      fill(static_cast<unsigned>(near));
      break;
    default:
      fill(static_cast<unsigned long>(near));
  }
  return v;
}

int compared = 0;

template <class R, class... A>
void compare_engines(const RoutineName& name, R (*routine)(A...)) {
  if (!is_floating_point(name)) return;
  ++compared;
  operands::Random random(std::hash<std::string>{}(name.text()));
  const u64 rounds = operands::cases(1000);
  for (u64 round = 0; round < rounds; ++round) {
    const u32 length = lengths[round % std::size(lengths)];
    if (length == 1 && has(name.op, "VIX")) continue;  // half a segment
    Arguments a;
    for (VectorV& v : a.v) v = random_numbers(random);
    a.p = random_predicate(random);
    a.base = random();
    a.other = random();
    if (has(name.op, "VI") || has(name.op, "FC")) a.base &= has(name.op, "FC") ? 3 : 1, a.other &= 1;
    const u32 fpcr = operands::random_controls(random), fpsr = random.below(2) ? 0x10 : 0;  // inexact before, or not
    std::fesetround(FE_UPWARD);
    std::feclearexcept(FE_ALL_EXCEPT);
    std::feraiseexcept(FE_DIVBYZERO);
#if defined(__x86_64__)
    constexpr unsigned flushes = 0x8040, traps_masked = 0x1f80, flags = 0x3f;
    const unsigned usual = _mm_getcsr(), hostile = (usual | flushes) & ~traps_masked;
    _mm_setcsr(hostile);
#endif
    const Left by_processor = call(routine, a, length, fpcr, fpsr);
#if defined(__x86_64__)
    const unsigned after = _mm_getcsr();
    _mm_setcsr(usual);
    ASSERT_EQ(after & ~flags, hostile & ~flags) << name.text() << " changes the caller's modes";
#endif
    const int mode = std::fegetround(), status = std::fetestexcept(FE_ALL_EXCEPT);
    std::fesetround(FE_TONEAREST);
    ASSERT_EQ(mode, FE_UPWARD) << name.text() << " changes the caller's rounding";
    // Where the host's flags are the library's working copy, the calling convention gives them to it.
    if (sve::processor::settles_all) {
      ASSERT_EQ(status, FE_DIVBYZERO) << name.text() << " changes the caller's status";
    }
    const unsigned widths = std::exchange(sve::processor::widths, 0u);
    const Left by_library = call(routine, a, length, fpcr, fpsr);
    sve::processor::widths = widths;
    const std::string where = name.text() + ", round " + std::to_string(round) + ", length " + std::to_string(length) +
                              ", fpcr " + operands::hex(fpcr);
    const u32 bytes = has(name.op, "FC") ? 8 * length / (2 * name.element_bytes()) * (2 * name.element_bytes())
                                         : 8 * length;  // an element without a partner has no result
    for (u32 i = 0; i < bytes; i += name.element_bytes())
      ASSERT_EQ(std::memcmp(by_processor.v[0].bytes + i, by_library.v[0].bytes + i, name.element_bytes()), 0)
          << where << ", element " << i / name.element_bytes();
    ASSERT_EQ(std::memcmp(&by_processor.p, &by_library.p, sizeof(PredV)), 0) << where;
    ASSERT_EQ(by_processor.scalar, by_library.scalar) << where;
    ASSERT_EQ(by_processor.fpsr, by_library.fpsr) << where;
  }
}

// ---- Memory ----

// Below 4 GB, where vectors of 32-bit addresses reach it.
struct LowMemory {
  static constexpr std::size_t size = 4096;
  LowMemory() {
    void* const hint = reinterpret_cast<void*>(0x5b000000);
    at = static_cast<byte*>(mmap(hint, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (at != hint) std::abort();
  }
  ~LowMemory() { munmap(at, size); }
  u64 address() const { return reinterpret_cast<u64>(at); }
  byte* at;
};

int loads = 0, stores = 0;

template <class R, class... A>
void check_memory(const RoutineName& name, R (*routine)(A...), const LowMemory& memory) {
  const bool stored = has(name.op, "Store") || has(name.op, "Spill");
  if (!stored && !has(name.op, "Load") && !has(name.op, "Fill")) return;
  if (name.type == "P" || has(name.op, "QS")) return;  // of their own shape; see below
  ++(stored ? stores : loads);
  const bool gathers = has(name.op, "V") || has(name.op, "XV") || has(name.op, "YV");
  const bool addresses = has(name.op, "VIZ");
  const bool whole_register = has(name.op, "Fill") || has(name.op, "Spill");
  const unsigned registers = name.op[0] == 'E' ? static_cast<unsigned>(name.op[1] - '0') : 1;
  const unsigned digit = whole_register ? 1 : static_cast<unsigned>(name.op[name.op.find_last_of("1248")] - '0');
  const unsigned element = name.element_bytes();
  const unsigned per_granule = has(name.op, "Dup") || gathers ? 0
                               : whole_register               ? 8
                                                              : 8 / element * digit * registers;
  Random random(std::hash<std::string>{}(name.text()));
  for (const u32 length : lengths_and_zero)
    for (int round = 0; round < 6; ++round) {
      Arguments whole;
      for (VectorV& v : whole.v) v = random_vector(random);
      whole.p = random_predicate(random);
      whole.base = memory.address() + 1024 + random() % 64;
      whole.other = 0;
      if (gathers) {
        const u64 from = addresses ? memory.address() : 0;
        for (std::size_t i = 0; i < 256; i += element) {
          const u64 x = from + random() % 256;
          std::memcpy(whole.v[0].bytes + i, &x, element);
        }
        if (addresses) whole.base = 0;
      }
      std::vector<byte> start(LowMemory::size);
      for (byte& b : start) b = static_cast<byte>(random());
      std::memcpy(memory.at, start.data(), start.size());
      const Left at_length = call(routine, whole, length);
      const std::vector<byte> after(memory.at, memory.at + LowMemory::size);
      std::memcpy(memory.at, start.data(), start.size());
      for_each_window(length, [&](u32 from, u32 n) {
        // Whole registers have no predicate that could shorten them.
        Arguments a = window(whole, from, n);
        if (!addresses) a.base += per_granule * from;
        const Left part = call(routine, a, whole_register ? n : model_length);
        if (!stored) expect_window(name, at_length, part, from, n, length);
      });
      ASSERT_EQ(std::memcmp(memory.at, after.data(), after.size()), 0) << name.text() << " at length " << length;
    }
}

#define CHECK(shape, type, op) \
  SVE_CHECK(RoutineName{#type SVE_COMMA #op}, static_cast<sve::routine::shape*>(Vec##type##op));
#define SVE_COMMA ,
#define SVE_ROUTINES(shape, types, ...) SVE_FOR_EACH_PAIR(CHECK, shape, types, __VA_ARGS__)

TEST(EveryLength, FloatingPoint) {
#define SVE_CHECK(...) check_floating_point(__VA_ARGS__)
#include "sve/veclib/routines.inc"
#undef SVE_CHECK
  EXPECT_GT(element_wise, 230);
  EXPECT_EQ(reductions, 18);
}

TEST(EveryLength, TheProcessorGivesWhatTheLibraryGives) {
  if (!sve::processor::exists) GTEST_SKIP() << "the library alone computes on this host";
  ASSERT_EQ(sve::processor::widths, (sve::processor::settles_all ? 2u : 0u) | 4u | 8u)
      << "as the tests' processors have";
#define SVE_CHECK(...) compare_engines(__VA_ARGS__)
#include "sve/veclib/routines.inc"
#undef SVE_CHECK
  EXPECT_GT(compared, 250);
}

TEST(EveryLength, Memory) {
  const LowMemory memory;
#define SVE_CHECK(name, routine) check_memory(name, routine, memory)
#include "sve/veclib/routines.inc"
#undef SVE_CHECK
  EXPECT_EQ(loads, 241);
  EXPECT_EQ(stores, 91);
}

TEST(EveryLength, PredicatesInMemory) {
  Random random(9);
  byte memory[64];
  for (const u32 length : lengths_and_zero) {
    CpuContext c{0, 0, 0, length, {}};
    const PredV p = random_predicate(random);
    std::memset(memory, 0xee, sizeof memory);
    VecPSpillSI(reinterpret_cast<u64>(memory) + 16, 0, p, &c);
    for (u32 i = 0; i < 8 * length; ++i) ASSERT_EQ(memory[16 + i / 8] >> (i % 8) & 1, bit(p, i)) << length;
    ASSERT_EQ(memory[15], 0xee);
    ASSERT_EQ(memory[16 + length], 0xee);
    const PredV back = VecPFillSI(reinterpret_cast<u64>(memory) + 16, 0, &c);
    for (u32 i = 0; i < 256; ++i) ASSERT_EQ(bit(back, i), i < 8 * length && bit(p, i)) << length;
  }
}

}  // namespace
