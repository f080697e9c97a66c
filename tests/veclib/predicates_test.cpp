// Flags, queries, generation, logic and partition of predicates in the vector library, and the pattern lengths.
#include "sve/insn/predicates.h"

#include <vector>

#include "sve/lanes/patterns.h"
#include "values.h"

namespace {

using namespace veclib_test;

// ---- Pattern lengths ----

int restated_length(unsigned pattern, int n) {
  if (pattern == 0)
    for (int power = 256;; power /= 2)
      if (power <= n || power == 1) return power;  // also for a count of 0
  if (pattern >= 1 && pattern <= 8) return n >= static_cast<int>(pattern) ? static_cast<int>(pattern) : 0;
  const int vl[] = {16, 32, 64, 128, 256};
  if (pattern >= 9 && pattern <= 13) return n >= vl[pattern - 9] ? vl[pattern - 9] : 0;
  if (pattern == 29) return n - n % 4;
  if (pattern == 30) return n - n % 3;
  if (pattern == 31) return n - n % 2;
  return 0;
}

TEST(VecTrueILength, EveryPatternAndCount) {
  for (unsigned pattern = 0; pattern < 32; ++pattern)
    for (int n = 0; n <= 256; ++n)
      ASSERT_EQ(VecTrueILength(pattern, n), restated_length(pattern, n)) << pattern << " of " << n;
  EXPECT_EQ(VecTrueILength(0, 0), 1);
  EXPECT_EQ(VecTrueILength(31, 7), 6);
  EXPECT_EQ(VecTrueILength(13, 112), 0);
}

// ---- Flag writers ----

using Writer = void(const PredV&, const PredV&, int, CpuContext*);

template <class Define>
void check_writer(Writer* write, Define define_context) {
  Random random(1);
  for (const u32 granules : lengths_and_zero)
    for (const int bytes : {1, 2, 4, 8})
      for (int i = 0; i < 400; ++i) {
        const PredV mask = random_predicate(random), result = random_predicate(random);
        CpuContext context = random_context(granules, random), expected = context;
        define_context(expected, define(mask, result, static_cast<std::size_t>(bytes), context));
        write(mask, result, 8 * bytes, &context);
        ASSERT_EQ(difference(expected, context), "") << granules << " " << bytes << " " << i;
      }
}

TEST(FlagWriters, FollowTheirDefinitions) {
  const auto put = [](CpuContext& c, u32 flag, bool value) { c.nzcv = value ? c.nzcv | flag : c.nzcv & ~flag; };
  const auto nzc = [put](CpuContext& c, const Answer& a) {
    put(c, n_bit, a.any && a.n);
    put(c, z_bit, !a.any);
    put(c, c_bit, !a.any || a.c);
  };
  check_writer(PredSetNZC, nzc);
  check_writer(PredSetNZCV, [&](CpuContext& c, const Answer& a) {
    nzc(c, a);
    put(c, v_bit, false);
  });
  check_writer(PredSetNCV, [&](CpuContext& c, const Answer& a) {
    put(c, n_bit, a.any && a.n);
    put(c, c_bit, !a.any || a.c);
    put(c, v_bit, false);
  });
  check_writer(PredSetNC, [&](CpuContext& c, const Answer& a) {
    if (!a.any_active) return;  // nothing is written
    put(c, n_bit, a.n);
    put(c, c_bit, a.c);
  });
}

TEST(FlagWriters, Edges) {
  const auto after = [](Writer* write, const PredV& mask, const PredV& result, u32 before) {
    CpuContext c{before, 0, 0, 14, {}};
    write(mask, result, 16, &c);
    return flags(c);
  };
  const PredV none{}, all = bits_of([](auto i) { return i % 2 == 0; }), last = bits_of([](auto i) { return i == 110; });
  EXPECT_EQ(after(PredSetNZCV, none, all, 0x90000000), "-ZC-");
  EXPECT_EQ(after(PredSetNZCV, all, none, 0x90000000), "-ZC-");
  EXPECT_EQ(after(PredSetNZCV, last, last, 0x70000000), "N---");
  EXPECT_EQ(after(PredSetNC, none, all, 0x50000000), "-Z-V");
  EXPECT_EQ(after(PredSetNC, none, all, 0xa0000000), "N-C-");
  EXPECT_EQ(after(PredSetNCV, none, all, 0xd0000000), "-ZC-");
  EXPECT_EQ(after(PredSetNCV, none, all, 0x90000000), "--C-");
  const PredV stray = bits_of([](auto i) { return i == 111; });  // the second bit of the last element
  EXPECT_EQ(after(PredSetNZCV, all, stray, 0), "----");
}

// The instruction functions' flag writer and the library's: equal on canonical predicates, different on stray bits.
TEST(FlagWriters, TheTwoModelsDifferOnStrayBitsAlone) {
  Random random(3);
  const auto both = [](auto element, const PredV& mask, const PredV& result) {
    using T = decltype(element);
    char m[sve::vector_bytes], r[sve::vector_bytes];
    for (std::size_t i = 0; i < sve::vector_bytes; ++i) m[i] = bit(mask, i), r[i] = bit(result, i);
    cpu_state state{};
    sve_ptest<T>(&state, m, r);
    CpuContext c{0, 0, 0, sve::vector_granules, {}};
    PredSetNZCV(mask, result, 8 * sizeof(T), &c);
    return std::pair{state.nzcv, u64{c.nzcv}};
  };
  const auto check = [&](auto element) {
    using T = decltype(element);
    int differ = 0;
    const CpuContext c{0, 0, 0, sve::vector_granules, {}};
    for (int i = 0; i < 400; ++i) {
      const PredV mask = random_predicate(random), result = random_predicate(random);
      const auto [a, b] = both(element, mask, canonical<T>(c, [&](auto e) { return active<T>(result, e); }));
      ASSERT_EQ(a, b) << sizeof(T);
      const auto [x, y] = both(element, mask, result);
      differ += x != y;
    }
    EXPECT_EQ(differ > 0, sizeof(T) > 1);
  };
  check(u8{});
  check(u16{});
  check(u32{});
  check(u64{});
  const PredV all = bits_of([](auto) { return true; }),
              stray = bits_of([](auto i) { return i == sve::vector_bytes - 1; });
  const auto [function, library] = both(u16{}, all, stray);
  EXPECT_EQ(function, z_bit | c_bit);
  EXPECT_EQ(library, 0u);
}

TEST(Find, FirstAndLastActive) {
  Random random(4);
  for (const u32 granules : lengths_and_zero)
    for (const int bytes : {1, 2, 4, 8})
      for (int i = 0; i < 200; ++i) {
        CpuContext c{0, 0, 0, granules, {}};
        const PredV p = random_predicate(random);
        int first = -1, last = -1;
        for (int e = 0; e < static_cast<int>(granules) * 8 / bytes; ++e)
          if (bit(p, static_cast<std::size_t>(e * bytes))) last = e, first = first < 0 ? e : first;
        ASSERT_EQ(FindFirstActive(p, 8 * bytes, &c), first);
        ASSERT_EQ(FindLastActive(p, 8 * bytes, &c), last);
      }
}

// ---- Logic ----

struct Logic {
  const char* name;
  sve::routine::pppp *plain, *flagged;
  bool (*op)(bool, bool);
};
const Logic logics[] = {
    {"and", VecPAndPPZ, VecPAndFlgPPZ, [](bool n, bool m) { return n && m; }},
    {"bic", VecPBicPPZ, VecPBicFlgPPZ, [](bool n, bool m) { return n && !m; }},
    {"xor", VecPXorPPZ, VecPXorFlgPPZ, [](bool n, bool m) { return n != m; }},
    {"or", VecPOrPPZ, VecPOrFlgPPZ, [](bool n, bool m) { return n || m; }},
    {"orn", VecPOrNPPZ, VecPOrNFlgPPZ, [](bool n, bool m) { return n || !m; }},
    {"nand", VecPNandPPZ, VecPNandFlgPPZ, [](bool n, bool m) { return !(n && m); }},
    {"nor", VecPNorPPZ, VecPNorFlgPPZ, [](bool n, bool m) { return !(n || m); }},
};

TEST(Logic, BitsAndFlagsAlsoAtLengthZero) {
  for (const Logic& l : logics) {
    const auto result = [&](const Operands& o) {
      return bits_of([&](auto i) { return bit(o.p, i) && l.op(bit(o.q, i), bit(o.r, i)); });
    };
    run_from_zero(l.name, 60, l.plain, [&](auto& o, auto&) { return result(o); });
    run_from_zero(l.name, 60, l.flagged, [&](auto& o, auto& c) {
      define_flags(c, o.p, result(o), 1);
      return result(o);
    });
  }
  run_from_zero("sel", 60, VecPSelPP,
                [&](auto& o, auto&) { return bits_of([&](auto i) { return bit(bit(o.p, i) ? o.q : o.r, i); }); });
}

// ---- Generation ----

template <class T>
void check_true(sve::routine::pattern_p* plain, sve::routine::pattern_p* flagged) {
  for (unsigned pattern = 0; pattern < 32; ++pattern) {
    const auto result = [&](const CpuContext& c) {
      const int n = restated_length(pattern, static_cast<int>(count<T>(c)));
      return canonical<T>(c, [&](auto e) { return static_cast<int>(e) < n; });
    };
    run_from_zero("ptrue", 2, calling(plain, pattern), [&](auto&, auto& c) { return result(c); });
    run_from_zero("ptrues", 2, calling(flagged, pattern), [&](auto&, auto& c) {
      const PredV r = result(c);
      define_flags(c, r, r, sizeof(T));  // its own mask
      return r;
    });
  }
}

TEST(Generate, TrueByPattern) {
#define CHECK(Type, T) check_true<T>(Vec##Type##TrueI, Vec##Type##TrueFlgI);
  FOR_PREDICATES(CHECK)
#undef CHECK
  run_from_zero("pfalse", 3, VecPFalse, [&](auto&, auto&) { return PredV{}; });
}

std::vector<u64> limits() {
  std::vector<u64> v;
  for (const u64 centre :
       {u64{0}, u64{0x7fffffff}, u64{0xffffffff}, u64{0x7fffffffffffffff}, ~u64{0}, u64{0xdeadbeef'7fffffff}})
    for (const int d : {-256, -112, -57, -14, -3, -1, 0, 1, 2, 14, 112, 255})
      v.push_back(centre + static_cast<u64>(static_cast<s64>(d)));
  return v;
}

template <class T, class Scalar, class Routine>
void check_while(const char* name, Routine* routine, bool or_equal) {
  using Operand = std::conditional_t<std::is_signed_v<Scalar>, s64, u64>;
  static const std::vector<u64> values = limits();
  CpuContext c{0xffffffff, 0, 0, 0, {}};
  for (const u32 granules : lengths_and_zero)
    for (const u64 n : values)
      for (const u64 m : values) {
        c.vl_word = granules;
        CpuContext expected = c;
        const wide first = static_cast<Scalar>(n), limit = static_cast<Scalar>(m);
        const bool endless = or_equal && limit == std::numeric_limits<Scalar>::max();  // cannot be passed
        bool running = true;
        const PredV result = canonical<T>(c, [&](std::size_t e) {
          const wide i = first + static_cast<wide>(e);
          return running = running && (endless || (or_equal ? i <= limit : i < limit));
        });
        define_flags(expected, bits_of([](auto) { return true; }), result, sizeof(T));
        CpuContext actual = c;
        const PredV r = routine(static_cast<Operand>(n), static_cast<Operand>(m), &actual);
        ASSERT_EQ(difference(result, r, c) + difference(expected, actual), "")
            << name << sizeof(T) << std::hex << " " << n << " " << m;
      }
}

TEST(Generate, WhileIsExactAtTheLimitsOfBothWidths) {
#define CHECK(Type, T)                                                 \
  {                                                                    \
    using four = std::conditional_t<std::is_signed_v<T>, s32, u32>;    \
    using eight = std::conditional_t<std::is_signed_v<T>, s64, u64>;   \
    check_while<T, four>("lt4 " #Type, Vec##Type##While4LTSS, false);  \
    check_while<T, eight>("lt8 " #Type, Vec##Type##While8LTSS, false); \
    check_while<T, four>("le4 " #Type, Vec##Type##While4LESS, true);   \
    check_while<T, eight>("le8 " #Type, Vec##Type##While8LESS, true);  \
  }
  FOR_INTEGERS(CHECK)
#undef CHECK
  CpuContext c{0, 0, 0, 14, {}};
  constexpr s64 max = std::numeric_limits<s64>::max();
  EXPECT_EQ(difference(bits_of([](auto) { return true; }), VecS8While8LESS(-5, max, &c), c), "");
  EXPECT_EQ(flags(c), "N---");
  EXPECT_EQ(difference(bits_of([](auto i) { return i == 0; }), VecS8While8LTSS(max - 1, max, &c), c), "");
}

TEST(Terminate, WritesNAndVAlone) {
  struct {
    sve::routine::terminate* routine;
    bool narrow, equal;
  } const routines[] = {{VecU32CTermEQ, true, true},
                        {VecU32CTermNE, true, false},
                        {VecU64CTermEQ, false, true},
                        {VecU64CTermNE, false, false}};
  for (const auto& r : routines)
    for (const auto& [a, b] : {std::pair<u64, u64>{5, 5}, {5, 6}, {0x1'00000005, 5}, {0, ~u64{0}}})
      for (u32 before = 0; before < 16; ++before) {
        CpuContext c{before << 28 | 0x0badcafe, 0, 0, 14, {}}, expected = c;
        const bool same = r.narrow ? static_cast<u32>(a) == static_cast<u32>(b) : a == b, ends = same == r.equal;
        const bool carry = before & 2;
        set_flags(expected, ends, before & 4, carry, !ends && !carry);
        r.routine(a, b, &c);
        EXPECT_EQ(difference(expected, c), "");
      }
}

// ---- Partition ----

PredV brk(const PredV& g, const PredV& n, bool after, bool running = true) {
  return bits_of([&](auto i) {
    if (!bit(g, i)) return false;
    const bool before = running;
    running = running && !bit(n, i);
    return after ? before : running;
  });
}

bool last_true(const PredV& g, const PredV& n, const CpuContext& c) {
  bool last = false;
  for (std::size_t i = 0; i < count<u8>(c); ++i)
    if (bit(g, i)) last = bit(n, i);
  return last;
}

TEST(Break, AAndB) {
  struct {
    const char* name;
    sve::routine::ppp *zeroing, *flagged;
    sve::routine::pppp* merging;
    bool after;
  } const breaks[] = {{"brka", VecPBreakAPZ, VecPBreakAFlgPZ, VecPBreakAPM, true},
                      {"brkb", VecPBreakBPZ, VecPBreakBFlgPZ, VecPBreakBPM, false}};
  for (const auto& b : breaks) {
    run_from_zero(b.name, 200, b.zeroing, [&](auto& o, auto&) { return brk(o.p, o.q, b.after); });
    run_from_zero(b.name, 200, b.flagged, [&](auto& o, auto& c) {
      const PredV r = brk(o.p, o.q, b.after);
      define_flags(c, o.p, r, 1);
      return r;
    });
    run_from_zero(b.name, 200, b.merging, [&](auto& o, auto&) {
      const PredV r = brk(o.q, o.r, b.after);
      return bits_of([&](auto i) { return bit(bit(o.q, i) ? r : o.p, i); });
    });
  }
}

TEST(Break, Next) {
  const auto result = [](const Operands& o, const CpuContext& c) { return last_true(o.p, o.q, c) ? o.r : PredV{}; };
  run_from_zero("brkn", 300, VecPBreakNextPZ, [&](auto& o, auto& c) { return result(o, c); });
  run_from_zero("brkns", 300, VecPBreakNextFlgPZ, [&](auto& o, auto& c) {
    const PredV r = result(o, c);
    define_flags(c, bits_of([](auto) { return true; }), r, 1);  // an all-true mask, not the governing one
    return r;
  });
}

TEST(Break, Previous) {
  struct {
    const char* name;
    sve::routine::pppp *plain, *flagged;
    bool after;
  } const breaks[] = {{"brkpa", VecPBreakPrevAPZ, VecPBreakPrevAFlgPZ, true},
                      {"brkpb", VecPBreakPrevBPZ, VecPBreakPrevBFlgPZ, false}};
  for (const auto& b : breaks) {
    const auto result = [&](const Operands& o, const CpuContext& c) {
      return brk(o.p, o.r, b.after, last_true(o.p, o.q, c));
    };
    run_from_zero(b.name, 300, b.plain, [&](auto& o, auto& c) { return result(o, c); });
    run_from_zero(b.name, 300, b.flagged, [&](auto& o, auto& c) {
      const PredV r = result(o, c);
      define_flags(c, o.p, r, 1);
      return r;
    });
  }
}

// ---- Queries ----

TEST(Query, FirstActiveAlsoAtLengthZero) {
  run_from_zero("pfirst", 300, VecPSetFirstActiveP, [&](auto& o, auto& c) {
    bool found = false;
    const PredV r = bits_of([&](auto i) {
      if (found || !bit(o.p, i)) return bit(o.q, i);
      return found = true;
    });
    define_flags(c, o.p, r, 1);
    return r;
  });
}

template <class T>
void check_next(sve::routine::ppp* routine) {
  run_from_zero("pnext", 400, routine, [&](auto& o, auto& c) {
    std::size_t next = 0;
    for (std::size_t e = 0; e < count<T>(c); ++e)
      if (active<T>(o.q, e)) next = e + 1;
    while (next < count<T>(c) && !active<T>(o.p, next)) ++next;
    const PredV r = canonical<T>(c, [&](auto e) { return e == next; });
    define_flags(c, o.p, r, sizeof(T));
    return r;
  });
}

TEST(Query, NextActiveAndTest) {
#define CHECK(Type, T) check_next<T>(Vec##Type##GenNextP);
  FOR_PREDICATES(CHECK)
#undef CHECK
  run_from_zero("ptest", 200, VecPTestPZ, [&](auto& o, auto& c) { return define_flags(c, o.p, o.q, 1), PredV{}; });
}

// ---- First-fault register ----

TEST(FirstFaultRegister, OfTheContext) {
  const auto and_ffr = [](const Operands& o, const CpuContext& c) {
    return bits_of([&](auto i) { return bit(o.p, i) && bit(c.ffr, i); });
  };
  run_from_zero("actual", 60, VecPActualP, [&](auto& o, auto& c) { return and_ffr(o, c); });
  run_from_zero("actual flags", 60, VecPActualFlgP, [&](auto& o, auto& c) {
    const PredV r = and_ffr(o, c);
    define_flags(c, o.p, r, 1);
    return r;
  });
  run_from_zero("read", 20, VecPReadFFSRP, [&](auto&, auto& c) { return c.ffr; });
  run_from_zero("clear", 20, VecPClearFFSR,
                [&](auto&, auto& c) { return c.ffr = bits_of([](auto) { return true; }), PredV{}; });
  run_from_zero("write", 20, VecPWriteFFSRP, [&](auto& o, auto& c) { return c.ffr = o.p, PredV{}; });
}

}  // namespace
