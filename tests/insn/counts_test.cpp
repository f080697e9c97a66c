// Element counts and counted increments as instruction functions.
#include "registers.h"

namespace {

using namespace insn_test;

using sve::insn::rii;
using sve::insn::zii;
struct Counted {
  rii *increment, *decrement, *count_all;
  zii *increment_vector, *decrement_vector;
};
const Counted by_size[] = {
    {sve_incb_rii, sve_decb_rii, sve_cntb_rii, nullptr, nullptr},
    {sve_inch_rii, sve_dech_rii, sve_cnth_rii, sve_inch_zii, sve_dech_zii},
    {sve_incw_rii, sve_decw_rii, sve_cntw_rii, sve_incw_zii, sve_decw_zii},
    {sve_incd_rii, sve_decd_rii, sve_cntd_rii, sve_incd_zii, sve_decd_zii},
};

template <class Body>
void for_each_pattern(Body body) {
  // Beyond the field's range too, where no pattern is.
  for (unsigned pattern = 0; pattern < 64; ++pattern)
    for (unsigned multiplier = 1; multiplier <= 16; ++multiplier) body(pattern, multiplier);
}

TEST(CountedScalar, EveryPatternAndMultiplier) {
  for (unsigned size = 0; size < 4; ++size)
    for_each_pattern([&](unsigned pattern, unsigned multiplier) {
      const u64 n = u64{pattern_length(pattern, size)} * multiplier;
      const Counted& f = by_size[size];
      for (const unsigned d : {7u, 31u}) {
        run("inc", 1, calling(f.increment, x_tied(d), pattern, multiplier), [&](auto& e, auto&) {
          if (d != 31) e.x[d] += n;
        });
        run("dec", 1, calling(f.decrement, x_tied(d), pattern, multiplier), [&](auto& e, auto&) {
          if (d != 31) e.x[d] -= n;
        });
        // No row reaches these, and they ignore the pattern.
        run("cnt", 1, calling(f.count_all, x(d), pattern, multiplier), [&](auto& e, auto&) {
          if (d != 31) e.x[d] = u64{multiplier} * (static_cast<unsigned>(vector_bytes >> size));
        });
      }
    });
}

template <class T>
void check_vectors() {
  for_each_pattern([](unsigned pattern, unsigned multiplier) {
    const u32 n = pattern_length(pattern, size_code<T>) * multiplier;
    const auto plus = [](byte* bytes, u64 amount) {
      auto v = elements<T>(bytes);
      for (T& a : v) a = static_cast<T>(a + amount);
      put(bytes, v);
    };
    run("inc", 1, calling(by_size[size_code<T>].increment_vector, z_tied(9, size_code<T>), pattern, multiplier),
        [&](auto& e, auto&) { plus(e.z[9], n); });
    run("dec", 1, calling(by_size[size_code<T>].decrement_vector, z_tied(9, size_code<T>), pattern, multiplier),
        [&](auto& e, auto&) { plus(e.z[9], 0 - u64{n}); });
  });
}

TEST(CountedVector, EveryPatternAndMultiplier) {
  check_vectors<u16>();
  check_vectors<u32>();
  check_vectors<u64>();
}

u64 saturated(u64 x, u64 n, bool wide) {
  if (!wide) x = static_cast<u32>(x);
  return n < x ? x - n : 0;
}

TEST(Uqdec, SaturatesAtZeroAtItsScalarWidth) {
  for_each_pattern([](unsigned pattern, unsigned multiplier) {
    for (const unsigned d : {7u, 31u})
      for (const unsigned width : {element_s, element_d}) {
        const auto check = [&](const char* name, rii* f, unsigned size, bool wide) {
          const u64 n = u64{pattern_length(pattern, size)} * multiplier;
          for (const u64 value : {u64{0}, u64{5}, n - 1, n, n + 1, 0xffffffff'00000000 | n, ~u64{0}})
            run(
                name, 1, [=](cpu_state& s) { s.x[7] = value; }, calling(f, x_tied(d, width), pattern, multiplier),
                [&](auto& e, auto&) {
                  if (d != 31) e.x[7] = saturated(value, n, wide);
                });
        };
        check("uqdecb", sve_uqdecb_rii, element_b, width == element_d);
        check("uqdecw", sve_uqdecw_rii, element_s, width == element_d);
        // It looks at `size`, which a tied operand leaves at 4: the 32-bit form, whatever the width.
        check("uqdecd", sve_uqdecd_rii, element_d, false);
      }
  });
  cpu_state state{};
  state.x[1] = 0xffffffff'00000002 + sve::vector_granules;
  sve_uqdecd_rii(&state, x(1, element_d), 31, 1);  // an operand that says 3 in `size` takes the 64-bit form
  EXPECT_EQ(state.x[1], 0xffffffff'00000002u);
  state.x[1] = 5;
  sve_uqdecb_rii(&state, x_tied(1, element_d), 31, 1);
  EXPECT_EQ(state.x[1], 0u);
}

TEST(CountPredicate, IncpAndCntp) {
  for_each_type([]<class T>() {
    for (const unsigned d : {7u, 31u}) {
      run("incp", 200, calling(sve_incp_rp, x_tied(d), p(3, size_code<T>)), [&](auto& e, auto& s) {
        for (std::size_t i = 0; d != 31 && i < sve::lanes<T>; ++i) e.x[d] += active<T>(s.p[3], i);
      });
      run("cntp", 200, calling(sve_cntp_rpp, x(d), p(4), p(3, size_code<T>)), [&](auto& e, auto& s) {
        if (d == 31) return;
        e.x[d] = 0;
        for (std::size_t i = 0; i < sve::lanes<T>; ++i) e.x[d] += active<T>(s.p[3], i) && active<T>(s.p[4], i);
      });
    }
  });
}

TEST(Length, AddvlAddplRdvl) {
  for (int imm = -32; imm < 32; ++imm) {
    const auto times = [&](std::size_t unit) { return static_cast<u64>(static_cast<std::int64_t>(imm)) * unit; };
    for (const unsigned d : {7u, 31u})
      for (const unsigned n : {8u, 31u}) {  // 31 is the stack pointer, read and written
        const auto expect = [&](cpu_state& e, const cpu_state& s, u64 amount) {
          (d == 31 ? e.sp : e.x[d]) = (n == 31 ? s.sp : s.x[n]) + amount;
        };
        run("addvl", 2, calling(sve_addvl_rri, xsp(d), xsp(n), imm),
            [&](auto& e, auto& s) { expect(e, s, times(vector_bytes)); });
        run("addpl", 2, calling(sve_addpl_rri, xsp(d), xsp(n), imm),
            [&](auto& e, auto& s) { expect(e, s, times(sve::predicate_bytes)); });
      }
    for (const unsigned d : {7u, 31u})
      run("rdvl", 1, calling(sve_rdvl_ri, x(d), imm), [&](auto& e, auto&) {
        if (d != 31) e.x[d] = times(vector_bytes);
      });
  }
  cpu_state state{};
  sve_rdvl_ri(&state, x(1), -1);
  EXPECT_EQ(state.x[1], 0 - u64{vector_bytes});
}

}  // namespace
