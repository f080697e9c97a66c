// Predicate generation, logic, partition, tests and the first-fault register, as instruction functions.
#include <vector>

#include "registers.h"

namespace {

using namespace insn_test;

const char* chars(const byte* bytes) { return reinterpret_cast<const char*>(bytes); }

// ---- Flags ----

template <class T>
void check_ptest() {
  Random random(sizeof(T));
  for (int i = 0; i < 3000; ++i) {
    cpu_state state = random_state(random), expected = state;
    define_flags(expected, state.p[1], state.p[2], sizeof(T));
    sve_ptest<T>(&state, chars(state.p[1]), chars(state.p[2]));
    ASSERT_EQ(difference(expected, state), "") << sizeof(T);
  }
}

TEST(Ptest, EveryInstanceFollowsTheDefinition) {
  check_ptest<signed char>();
  check_ptest<short>();
  check_ptest<int>();
  check_ptest<long>();
  check_ptest<unsigned char>();
  check_ptest<unsigned short>();
  check_ptest<unsigned int>();
  check_ptest<unsigned long>();
  run("ptest", 500, calling(sve_ptest_pp, p(3), p(4)), [&](auto& e, auto& s) { define_flags(e, s.p[3], s.p[4], 1); });
}

std::string ptest_flags(const VectorOf<byte>& mask, const VectorOf<byte>& result, u64 before = 0xf0000000) {
  cpu_state state{};
  state.nzcv = before;
  sve_ptest<short>(&state, chars(mask.data()), chars(result.data()));
  EXPECT_EQ(state.nzcv & ~u64{0xf0000000}, before & ~u64{0xf0000000});
  return flags(state);
}

TEST(Ptest, Edges) {
  const auto none = canonical<u16>([](auto) { return false; }), all = canonical<u16>([](auto) { return true; });
  const auto last = canonical<u16>([](auto i) { return i == sve::lanes<u16> - 1; });
  EXPECT_EQ(ptest_flags(none, all), "-ZC-");
  EXPECT_EQ(ptest_flags(none, all, 0xa5a5a5a5'f5a5a5a5), "-ZC-");
  EXPECT_EQ(ptest_flags(all, none), "-ZC-");
  EXPECT_EQ(ptest_flags(last, last), "N---");
  EXPECT_EQ(ptest_flags(all, all), "N---");
  VectorOf<byte> stray = none;
  stray[vector_bytes - 1] = 1;  // the second byte of the last element: not seen
  EXPECT_EQ(ptest_flags(all, stray), "-ZC-");
  VectorOf<byte> twos;
  twos.fill(2);  // bit 0 alone counts
  EXPECT_EQ(ptest_flags(twos, all), "-ZC-");
  EXPECT_EQ(ptest_flags(all, twos), "-ZC-");
  VectorOf<byte> threes;
  threes.fill(3);
  EXPECT_EQ(ptest_flags(threes, threes), "N---");
}

// ---- Logic ----

struct Logic {
  const char* name;
  sve::insn::pppp* function;
  byte (*op)(byte, byte);
};
const Logic logics[] = {
    {"and", sve_and_pppp, [](byte n, byte m) -> byte { return n & m; }},
    {"bic", sve_bic_pppp, [](byte n, byte m) -> byte { return n & static_cast<byte>(~m); }},
    {"eor", sve_eor_pppp, [](byte n, byte m) -> byte { return n ^ m; }},
    {"orr", sve_orr_pppp, [](byte n, byte m) -> byte { return n | m; }},
    {"nor", sve_nor_pppp, [](byte n, byte m) -> byte { return n == 0 && m == 0; }},
};

TEST(PredicateLogic, CombinesWholeBytesWherePgIsActive) {
  for (const Logic& l : logics) {
    for (const unsigned qualifier : {aarch64_p_reg::zeroing, aarch64_p_reg::merging}) {
      for (const unsigned d : {0u, 1u, 2u, 3u})  // Pd apart, and the same as each source
        run(l.name, 60, calling(l.function, p(d), p(1, qualifier), p(2), p(3)), [&](auto& e, auto& s) {
          for (std::size_t i = 0; i < vector_bytes; ++i)
            e.p[d][i] = s.p[1][i] & 1                         ? l.op(s.p[2][i], s.p[3][i])
                        : qualifier == aarch64_p_reg::zeroing ? 0
                                                              : s.p[d][i];
        });
    }
  }
}

TEST(PredicateLogic, NotInvertsBitZeroAlone) {
  for (const unsigned qualifier : {aarch64_p_reg::zeroing, aarch64_p_reg::merging})
    run("not", 200, calling(sve_not_ppp, p(0), p(1, qualifier), p(2)), [&](auto& e, auto& s) {
      for (std::size_t i = 0; i < vector_bytes; ++i)
        e.p[0][i] = s.p[1][i] & 1 ? ~s.p[2][i] & 1 : qualifier == aarch64_p_reg::zeroing ? 0 : s.p[0][i];
    });
}

// ---- ptrue, pfalse ----

TEST(Ptrue, EqualsTheWrittenTable) {
  for_each_type([]<class T>() {
    for (unsigned pattern = 0; pattern < 64; ++pattern)  // beyond the field's range too
      run("ptrue", 2, calling(sve_ptrue_pi, p(5, size_code<T>), pattern), [&](auto& e, auto&) {
        put(e.p[5], canonical<T>([&](auto i) { return i < pattern_length(pattern, size_code<T>); }));
      });
  });
}

TEST(Ptrue, PfalseClears) {
  run("pfalse", 5, calling(sve_pfalse_p, p(5)), [&](auto& e, auto&) { std::memset(e.p[5], 0, vector_bytes); });
}

// ---- while ----

using wide = __int128;

struct Counter {
  const char* name;
  sve::insn::prr* function;
  bool is_signed, or_equal;
};
const Counter counters[] = {{"whilelt", sve_whilelt_prr, true, false},
                            {"whilelo", sve_whilelo_prr, false, false},
                            {"whilels", sve_whilels_prr, false, true}};

wide scalar(u64 value, bool is_signed, unsigned width_code) {
  if (width_code == element_d) return is_signed ? wide{static_cast<std::int64_t>(value)} : wide{value};
  return is_signed ? wide{static_cast<std::int32_t>(value)} : wide{static_cast<u32>(value)};
}

// Around every limit of both widths and signs, with and without garbage in the upper half.
std::vector<u64> limits() {
  constexpr int b = static_cast<int>(vector_bytes);
  std::vector<u64> v;
  for (const u64 centre : {u64{0}, u64{0x7fffffff}, u64{0xffffffff}, u64{0x100000000}, u64{0x7fffffffffffffff}, ~u64{0},
                           u64{0xdeadbeef'7fffffff}, u64{0x80000000'ffffffff}})
    for (const int d : {-b - 8, -b - 1, -b, -b / 2 - 1, -b / 2, -b / 4, -b / 8 - 1, -b / 8, -b / 8 + 1, -2, -1, 0, 1, 2,
                        b / 8, b / 4, b / 2, b, b + 1})
      v.push_back(centre + static_cast<u64>(static_cast<std::int64_t>(d)));
  return v;
}

template <class T>
void check_while(const Counter& c, unsigned width, u64 n, u64 m) {
  cpu_state state{}, expected;
  std::memset(state.p[4], 0xff, vector_bytes);
  state.nzcv = 0xf0f0f0f0'f0f0f0f0;
  state.x[1] = n;
  state.x[2] = m;
  expected = state;
  const wide first = scalar(n, c.is_signed, width), limit = scalar(m, c.is_signed, width);
  // One answer is not the exact comparison's: a limit that cannot be passed at the scalar's width makes every element
  // true.
  const bool endless = c.or_equal && limit == scalar(~u64{0}, false, width);
  bool running = true;
  const auto result = canonical<T>([&](std::size_t i) {
    const wide at = first + static_cast<wide>(i);
    running = running && (endless || (c.or_equal ? at <= limit : at < limit));
    return running;
  });
  put(expected.p[4], result);
  const auto all = canonical<T>([](auto) { return true; });
  define_flags(expected, all.data(), result.data(), sizeof(T));
  ASSERT_EQ(c.function(&state, p(4, size_code<T>), x(1, width), x(2, width)), 0);
  ASSERT_EQ(difference(expected, state), "")
      << c.name << sizeof(T) << " width " << width << std::hex << " " << n << " " << m;
}

TEST(While, IsExactAtTheLimitsOfBothWidthsAndSigns) {
  const std::vector<u64> values = limits();
  for (const Counter& c : counters)
    for (const unsigned width : {element_s, element_d})
      for (const u64 n : values)
        for (const u64 m : values) {
          check_while<u8>(c, width, n, m);
          check_while<u16>(c, width, n, m);
          check_while<u32>(c, width, n, m);
          check_while<u64>(c, width, n, m);
          if (HasFatalFailure()) return;
        }
}

TEST(While, Register31IsZero) {
  cpu_state state{};
  state.sp = 1000;
  state.x[2] = 3;
  sve_whilelo_prr(&state, p(0, element_b), x(31), x(2));
  const auto three = canonical<u8>([](auto i) { return i < 3; });
  EXPECT_EQ(std::memcmp(state.p[0], three.data(), vector_bytes), 0);
  EXPECT_EQ(flags(state), "N-C-");
  sve_whilelo_prr(&state, p(0, element_b), x(2), x(31));
  EXPECT_EQ(flags(state), "-ZC-");
}

TEST(While, AnyWidthCodeButThreeIs32Bits) {
  cpu_state state{};
  state.x[1] = 0xffffffff00000000;
  state.x[2] = 1;
  for (const unsigned code : {0u, 1u, 2u, 4u}) {
    sve_whilelo_prr(&state, p(0, element_d), x(1, code), x(2, code));
    EXPECT_EQ(flags(state), "N-C-") << code;
  }
}

// ---- Breaks ----

TEST(Break, AAndBFollowTheRunningFlag) {
  for (const bool after : {true, false})
    for (const unsigned qualifier : {aarch64_p_reg::zeroing, aarch64_p_reg::merging})
      for (const unsigned d : {0u, 1u, 2u})
        run("brk", 200, calling(after ? sve_brka_ppp : sve_brkb_ppp, p(d), p(1, qualifier), p(2)),
            [&](auto& e, auto& s) {
              bool running = true;
              for (std::size_t i = 0; i < vector_bytes; ++i) {
                if (!(s.p[1][i] & 1)) {
                  e.p[d][i] = qualifier == aarch64_p_reg::zeroing ? 0 : s.p[d][i];
                  continue;
                }
                const bool before = running;
                running = running && !(s.p[2][i] & 1);
                e.p[d][i] = after ? before : running;
              }
            });
}

int last_active(const byte* predicate) {
  int last = -1;
  for (int i = 0; i < static_cast<int>(vector_bytes); ++i)
    if (predicate[i] & 1) last = i;
  return last;
}

TEST(Break, NKeepsOrClearsAndItsFlagsHaveAnAllTrueMask) {
  for (const bool with_flags : {false, true})
    run("brkn", 600, calling(with_flags ? sve_brkns_ppp : sve_brkn_ppp, p_tied(0, 0), zeroing(1), p(2)),
        [&](auto& e, auto& s) {
          const int last = last_active(s.p[1]);
          if (last < 0 || s.p[2][last] == 0) std::memset(e.p[0], 0, vector_bytes);  // the whole byte counts
          const auto all = canonical<u8>([](auto) { return true; });
          if (with_flags) define_flags(e, all.data(), e.p[0], 1);
        });
  cpu_state state{};
  std::memset(state.p[0], 1, vector_bytes);
  sve_brkns_ppp(&state, p_tied(0, 0), zeroing(1), p(2));  // Pg all false
  EXPECT_EQ(last_active(state.p[0]), -1);
  EXPECT_EQ(flags(state), "-ZC-");
}

TEST(Break, PbStopsBeforeTheBreak) {
  for (const bool with_flags : {false, true})
    for (const unsigned d : {0u, 1u, 2u, 3u})
      run("brkpb", 300, calling(with_flags ? sve_brkpbs_pppp : sve_brkpb_pppp, p(d), zeroing(1), p(2), p(3)),
          [&](auto& e, auto& s) {
            const int at = last_active(s.p[1]);
            bool last = at >= 0 && s.p[2][at] != 0;
            VectorOf<byte> result{};
            for (std::size_t i = 0; i < vector_bytes; ++i) {
              if (!(s.p[1][i] & 1)) continue;
              last = last && !(s.p[3][i] & 1);
              result[i] = last;
            }
            if (with_flags) define_flags(e, s.p[1], result.data(), 1);
            put(e.p[d], result);
          });
}

// ---- Queries ----

TEST(Pnext, FindsTheFirstActiveElementAfterTheLastOne) {
  for_each_type([]<class T>() {
    run("pnext", 800, calling(sve_pnext_pp, p_tied(3, size_code<T>), p(4)), [&](auto& e, auto& s) {
      std::size_t next = 0;
      for (std::size_t i = 0; i < sve::lanes<T>; ++i)
        if (active<T>(s.p[3], i)) next = i + 1;
      while (next < sve::lanes<T> && !active<T>(s.p[4], next)) ++next;
      const auto result = canonical<T>([&](auto i) { return i == next; });
      define_flags(e, s.p[4], result.data(), sizeof(T));
      put(e.p[3], result);
    });
  });
}

TEST(Pnext, Edges) {
  for_each_type([]<class T>() {
    constexpr std::size_t n = sve::lanes<T>;
    cpu_state state{};
    put(state.p[4], canonical<T>([](auto i) { return i == 0 || i == n - 1; }));
    sve_pnext_pp(&state, p_tied(3, size_code<T>), p(4));  // from an all-false start: the first one
    EXPECT_EQ(elements<u8>(state.p[3]), canonical<T>([](auto i) { return i == 0; }));
    EXPECT_EQ(flags(state), "N-C-");
    put(state.p[3], canonical<T>([](auto i) { return i == n - 1; }));
    sve_pnext_pp(&state, p_tied(3, size_code<T>), p(4));  // beyond the last
    EXPECT_EQ(elements<u8>(state.p[3]), VectorOf<byte>{});
    EXPECT_EQ(flags(state), "-ZC-");
  });
}

// ---- First-fault register ----

TEST(FirstFaultRegister, IsCopiedByteForByte) {
  run("setffr", 5, calling(sve_setffr), [&](auto& e, auto&) { std::memset(e.ffr, 1, vector_bytes); });
  run("wrffr", 50, calling(sve_wrffr_p, p(7)), [&](auto& e, auto& s) { std::memcpy(e.ffr, s.p[7], vector_bytes); });
  run("rdffr", 50, calling(sve_rdffr_p, p(7)), [&](auto& e, auto& s) { std::memcpy(e.p[7], s.ffr, vector_bytes); });
  for (const unsigned d : {7u, 8u})
    run("rdffr_pp", 100, calling(sve_rdffr_pp, p(d), zeroing(8)), [&](auto& e, auto& s) {
      for (std::size_t i = 0; i < vector_bytes; ++i) e.p[d][i] = s.ffr[i] & s.p[8][i];
    });
  cpu_state state{};
  sve_setffr(&state);
  sve_rdffr_p(&state, p(0));
  EXPECT_EQ(elements<u8>(state.p[0]), canonical<u8>([](auto) { return true; }));
}

}  // namespace
