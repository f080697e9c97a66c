// Element counts and counted increments of the vector library, plain and saturating, and the length queries.
#include "sve/lanes/patterns.h"
#include "values.h"

namespace {

using namespace veclib_test;

constexpr u64 multiplier_fields[] = {0, 1, 7, 15};

// Calls body(pattern, field) for every pattern and some multipliers; the field is one less than the multiplier.
template <class Body>
void for_each_amount(Body body) {
  for (u64 pattern = 0; pattern < 32; ++pattern)
    for (const u64 field : multiplier_fields) body(pattern, field);
}

template <class T>
u64 amount(u64 pattern, u64 field, const CpuContext& c) {
  return static_cast<u64>(VecTrueILength(pattern, static_cast<int>(count<T>(c)))) * (field + 1);
}

template <class T>
u64 active_count(const PredV& p, const CpuContext& c) {
  u64 n = 0;
  for (std::size_t e = 0; e < count<T>(c); ++e) n += active<T>(p, e);
  return n;
}

// A saturated scalar of type Scalar fills its register by its signedness.
template <class Scalar>
u64 scalar(u64 x, u64 n, int sign) {
  const Scalar r = clamp<Scalar>(wide{static_cast<Scalar>(x)} + sign * static_cast<wide>(n));
  return static_cast<u64>(static_cast<wide>(r));
}

// Around the limits of both widths.
constexpr auto near_limits = [](Operands& o) {
  constexpr u64 centres[] = {0,       0x7fffffff,         0xffffffff80000000, 0xffffffff,
                             ~u64{0}, 0x7fffffffffffffff, 0x8000000000000000};
  o.x = centres[o.x % 7] + (o.x >> 8) % 4096 - 2048;
};

template <class T>
void check_plain_scalar(sve::routine::count* plain, sve::routine::count_scalar* increment,
                        sve::routine::count_scalar* decrement) {
  for_each_amount([&](u64 pattern, u64 field) {
    run_from_zero("cnt", 1, calling(plain, pattern, field),
                  [&](auto&, auto& c) { return amount<T>(pattern, field, c); });
    run_from_zero("inc", 1, calling(increment, drawn, pattern, field),
                  [&](auto& o, auto& c) { return o.x + amount<T>(pattern, field, c); });
    run_from_zero("dec", 1, calling(decrement, drawn, pattern, field),
                  [&](auto& o, auto& c) { return o.x - amount<T>(pattern, field, c); });
  });
}

TEST(Count, PlainScalars) {
#define CHECK(Type, T) check_plain_scalar<T>(Vec##Type##CountVLSI, Vec##Type##IncrVLSI, Vec##Type##DecrVLSI);
  FOR_UNSIGNED(CHECK)
#undef CHECK
  CpuContext c{0, 0, 0, 14, {}};
  EXPECT_EQ(VecU8CountVLSI(31, 0, &c), 112u);
  EXPECT_EQ(VecU8CountVLSI(31, 15, &c), 1792u);
  EXPECT_EQ(VecU64CountVLSI(31, 0, &c), 14u);
  EXPECT_EQ(VecU16CountVLSI(11, 0, &c), 0u);  // VL64 of 56
  EXPECT_EQ(VecU32IncrVLSI(0, 30, 1, &c), 54u);
}

template <class T>
void check_saturating_scalar(const char* name, sve::routine::count_scalar* four, sve::routine::count_scalar* eight,
                             int sign) {
  using Four = std::conditional_t<std::is_signed_v<T>, s32, u32>;
  using Eight = std::conditional_t<std::is_signed_v<T>, s64, u64>;
  for_each_amount([&](u64 pattern, u64 field) {
    run_from_zero(name, 3, near_limits, calling(four, drawn, pattern, field),
                  [&](auto& o, auto& c) { return scalar<Four>(o.x, amount<T>(pattern, field, c), sign); });
    run_from_zero(name, 3, near_limits, calling(eight, drawn, pattern, field),
                  [&](auto& o, auto& c) { return scalar<Eight>(o.x, amount<T>(pattern, field, c), sign); });
  });
}

TEST(Count, SaturatingScalars) {
#define CHECK(Type, T)                                                                        \
  check_saturating_scalar<T>("qinc " #Type, Vec##Type##QIncrVL4SI, Vec##Type##QIncrVL8SI, 1); \
  check_saturating_scalar<T>("qdec " #Type, Vec##Type##QDecrVL4SI, Vec##Type##QDecrVL8SI, -1);
  FOR_INTEGERS(CHECK)
#undef CHECK
  CpuContext c{0, 0, 0, 14, {}};
  EXPECT_EQ(VecS16QIncrVL4SI(0x7fffffff, 31, 0, &c), 0x7fffffffu);
  EXPECT_EQ(VecS16QIncrVL4SI(0x80000000, 31, 0, &c), 0xffffffff80000038u);  // a negative result fills the high word
  EXPECT_EQ(VecU8QDecrVL8SI(5, 31, 0, &c), 0u);
  EXPECT_EQ(VecU8QDecrVL4SI(0xffffffff'00000071, 31, 0, &c), 1u);  // the high half does not count, and is cleared
  EXPECT_EQ(VecS64QIncrVL8SI(0x7ffffffffffffffe, 31, 0, &c), 0x7fffffffffffffffu);
}

template <class T>
void check_plain_vector(sve::routine::count_vector* increment, sve::routine::count_vector* decrement,
                        sve::routine::count_p_vector* by_predicate, sve::routine::count_p_vector* down_by_predicate) {
  const auto plus = [](const VectorV& a, u64 n, const CpuContext& c) {
    return generated<T>(c, [&](auto e) { return at<T>(a, e) + n; });
  };
  for_each_amount([&](u64 pattern, u64 field) {
    run("inc", 1, calling(increment, pattern, field),
        [&](auto& o, auto& c) { return plus(o.a, amount<T>(pattern, field, c), c); });
    run("dec", 1, calling(decrement, pattern, field),
        [&](auto& o, auto& c) { return plus(o.a, 0 - amount<T>(pattern, field, c), c); });
  });
  run("incp", 60, by_predicate, [&](auto& o, auto& c) { return plus(o.a, active_count<T>(o.p, c), c); });
  run("decp", 60, down_by_predicate, [&](auto& o, auto& c) { return plus(o.a, 0 - active_count<T>(o.p, c), c); });
}

template <class T>
void check_saturating_vector(const char* name, sve::routine::count_vector* by_pattern,
                             sve::routine::count_p_vector* by_predicate, int sign) {
  const auto plus = [&](const VectorV& a, u64 n, const CpuContext& c) {
    return generated<T>(c, [&](auto e) { return clamp<T>(wide{at<T>(a, e)} + sign * static_cast<wide>(n)); });
  };
  for_each_amount([&](u64 pattern, u64 field) {
    run(name, 2, calling(by_pattern, pattern, field),
        [&](auto& o, auto& c) { return plus(o.a, amount<T>(pattern, field, c), c); });
  });
  run(name, 60, by_predicate, [&](auto& o, auto& c) { return plus(o.a, active_count<T>(o.p, c), c); });
}

TEST(Count, Vectors) {
#define CHECK(Type, T) \
  check_plain_vector<T>(Vec##Type##IncrVLVI, Vec##Type##DecrVLVI, Vec##Type##IncrCountPV, Vec##Type##DecrCountPV);
  CHECK(U16, u16)
  CHECK(U32, u32)
  CHECK(U64, u64)
#undef CHECK
#define CHECK(Type, T)                                                                         \
  check_saturating_vector<T>("qinc " #Type, Vec##Type##QIncrVLVI, Vec##Type##QIncrCountPV, 1); \
  check_saturating_vector<T>("qdec " #Type, Vec##Type##QDecrVLVI, Vec##Type##QDecrCountPV, -1);
  CHECK(U16, u16) CHECK(U32, u32) CHECK(U64, u64) CHECK(S16, s16) CHECK(S32, s32) CHECK(S64, s64)
#undef CHECK
}

template <class T>
void check_predicate(sve::routine::count_p* both, sve::routine::count_p_scalar* increment,
                     sve::routine::count_p_scalar* decrement) {
  run_from_zero("cntp", 100, both, [&](auto& o, auto& c) {
    u64 n = 0;
    for (std::size_t e = 0; e < count<T>(c); ++e) n += active<T>(o.p, e) && active<T>(o.q, e);
    return n;
  });
  run_from_zero("incp", 100, increment, [&](auto& o, auto& c) { return o.x + active_count<T>(o.p, c); });
  run_from_zero("decp", 100, decrement, [&](auto& o, auto& c) { return o.x - active_count<T>(o.p, c); });
}

// At length 0 the count is 0 and the saturating call still happens: a 32-bit operand is cut and extended.
template <class T>
void check_saturating_predicate(const char* name, sve::routine::count_p_scalar* four,
                                sve::routine::count_p_scalar* eight, int sign) {
  using Four = std::conditional_t<std::is_signed_v<T>, s32, u32>;
  using Eight = std::conditional_t<std::is_signed_v<T>, s64, u64>;
  run_from_zero(name, 200, near_limits, four,
                [&](auto& o, auto& c) { return scalar<Four>(o.x, active_count<T>(o.p, c), sign); });
  run_from_zero(name, 200, near_limits, eight,
                [&](auto& o, auto& c) { return scalar<Eight>(o.x, active_count<T>(o.p, c), sign); });
}

TEST(CountPredicate, PlainAndSaturating) {
#define CHECK(Type, T) check_predicate<T>(Vec##Type##SCountP, Vec##Type##IncrSCountPS, Vec##Type##DecrSCountPS);
  FOR_UNSIGNED(CHECK)
#undef CHECK
#define CHECK(Type, T)                                                                                    \
  check_saturating_predicate<T>("qincp " #Type, Vec##Type##QIncrSCount4PS, Vec##Type##QIncrSCount8PS, 1); \
  check_saturating_predicate<T>("qdecp " #Type, Vec##Type##QDecrSCount4PS, Vec##Type##QDecrSCount8PS, -1);
  FOR_INTEGERS(CHECK)
#undef CHECK
  CpuContext c{0, 0, 0, 14, {}};
  EXPECT_EQ(VecU8DecrSCountPS(PredV{}, 77, &c), 77u);
}

TEST(Length, ReadsTheWordWhole) {
  for (s64 imm = -32; imm < 32; ++imm) {
    const auto i = static_cast<u64>(imm);
    run_from_zero("rdvl", 1, calling(VecS64VLX, imm), [&](auto&, auto& c) { return i * 8 * c.vl_word; });
    run_from_zero("addvl", 1, calling(VecS64AddVLX, drawn, imm),
                  [&](auto& o, auto& c) { return o.x + i * 8 * c.vl_word; });
    run_from_zero("addpl", 1, calling(VecS64AddPLX, drawn, imm), [&](auto& o, auto& c) { return o.x + i * c.vl_word; });
  }
  // Bits above the length's 26: masked out where elements are counted, not in the length queries.
  CpuContext c{0, 0, 0, 0x4000000 | 14, {}};
  EXPECT_EQ(VecU8CountVLSI(31, 0, &c), 112u);
  EXPECT_EQ(VecS64VLX(1, &c), 8 * u64{0x400000e});
  EXPECT_EQ(VecS64AddVLX(1, 1, &c), 8 * u64{0x400000e} + 1);
  EXPECT_EQ(VecS64AddPLX(1, 1, &c), u64{0x400000e} + 1);
}

}  // namespace
