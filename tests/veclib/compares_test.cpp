// Integer compares of the vector library: vectors, immediates, and the wide forms.
#include "values.h"

namespace {

using namespace veclib_test;

using Relation = bool (*)(wide, wide);
constexpr Relation eq = [](wide a, wide b) { return a == b; }, ne = [](wide a, wide b) { return a != b; },
                   ge = [](wide a, wide b) { return a >= b; }, gt = [](wide a, wide b) { return a > b; },
                   le = [](wide a, wide b) { return a <= b; }, lt = [](wide a, wide b) { return a < b; };

// A canonical predicate and the flags from it.
template <class T, class Test>
PredV expected(const Operands& o, CpuContext& c, Test test) {
  const PredV r = canonical<T>(c, [&](auto e) { return active<T>(o.p, e) && test(e); });
  define_flags(c, o.p, r, sizeof(T));
  return r;
}

template <class T>
void check_vectors(const char* name, sve::routine::cmp_vv* routine, Relation test) {
  const auto some_equal = [](Operands& o) {
    for (std::size_t e = 0; e < 256 / sizeof(T); e += 3) sve::store<T>(o.b.bytes, e, at<T>(o.a, e));
  };
  run_from_zero(name, 80, some_equal, routine, [&](auto& o, auto& c) {
    return expected<T>(o, c, [&](auto e) { return test(at<T>(o.a, e), at<T>(o.b, e)); });
  });
}

template <class T, class Routine>
void check_immediates(const char* name, Routine* routine, Relation test) {
  constexpr bool is_signed = std::is_signed_v<T>;
  for (int imm = is_signed ? -16 : 0; imm < (is_signed ? 16 : 128); ++imm) {
    const auto some_near = [&](Operands& o) {
      for (std::size_t e = 0; e < 256 / sizeof(T); e += 3)
        sve::store<T>(o.a.bytes, e, static_cast<T>(imm + static_cast<int>(e % 9) / 3 - 1));
    };
    run_from_zero(name, 2, some_near, calling(routine, imm), [&](auto& o, auto& c) {
      return expected<T>(o, c, [&](auto e) { return test(at<T>(o.a, e), imm); });
    });
  }
}

// Both operands at 64 bits in the routine's signedness; the second is the 64-bit element that covers the first.
template <class T>
void check_wide(const char* name, sve::routine::cmp_vv* routine, Relation test) {
  using Wide = std::conditional_t<std::is_signed_v<T>, s64, u64>;
  const auto some_equal = [](Operands& o) {
    for (std::size_t e = 0; e < 32; e += 2)
      sve::store<Wide>(o.b.bytes, e, at<T>(o.a, e * 8 / sizeof(T) + e % 8 / sizeof(T)));
  };
  run_from_zero(name, 80, some_equal, routine, [&](auto& o, auto& c) {
    return expected<T>(o, c, [&](auto e) { return test(at<T>(o.a, e), at<Wide>(o.b, e * sizeof(T) / 8)); });
  });
}

TEST(Compare, Vectors) {
#define SIGNED_CHECK(Type, T)                                \
  check_vectors<T>("eq " #Type, Vec##Type##CmpFlgEQVVZ, eq); \
  check_vectors<T>("ne " #Type, Vec##Type##CmpFlgNEVVZ, ne);
#define CHECK(Type, T)                                       \
  check_vectors<T>("ge " #Type, Vec##Type##CmpFlgGEVVZ, ge); \
  check_vectors<T>("gt " #Type, Vec##Type##CmpFlgGTVVZ, gt);
  FOR_SIGNED(SIGNED_CHECK)
  FOR_INTEGERS(CHECK)
#undef CHECK
#undef SIGNED_CHECK
}

TEST(Compare, Immediates) {
#define SIGNED_CHECK(Type, T)                                   \
  check_immediates<T>("eq " #Type, Vec##Type##CmpFlgEQVIZ, eq); \
  check_immediates<T>("ne " #Type, Vec##Type##CmpFlgNEVIZ, ne);
#define CHECK(Type, T)                                          \
  check_immediates<T>("ge " #Type, Vec##Type##CmpFlgGEVIZ, ge); \
  check_immediates<T>("gt " #Type, Vec##Type##CmpFlgGTVIZ, gt); \
  check_immediates<T>("le " #Type, Vec##Type##CmpFlgLEVIZ, le); \
  check_immediates<T>("lt " #Type, Vec##Type##CmpFlgLTVIZ, lt);
  FOR_SIGNED(SIGNED_CHECK)
  FOR_INTEGERS(CHECK)
#undef CHECK
#undef SIGNED_CHECK
}

TEST(Compare, Wide) {
#define SIGNED_CHECK(Type, T)                             \
  check_wide<T>("eq " #Type, Vec##Type##CmpFlgEQVWZ, eq); \
  check_wide<T>("ne " #Type, Vec##Type##CmpFlgNEVWZ, ne);
#define CHECK(Type, T)                                    \
  check_wide<T>("ge " #Type, Vec##Type##CmpFlgGEVWZ, ge); \
  check_wide<T>("gt " #Type, Vec##Type##CmpFlgGTVWZ, gt); \
  check_wide<T>("le " #Type, Vec##Type##CmpFlgLEVWZ, le); \
  check_wide<T>("lt " #Type, Vec##Type##CmpFlgLTVWZ, lt);
  SIGNED_CHECK(S8, s8)
  SIGNED_CHECK(S16, s16)
  SIGNED_CHECK(S32, s32) CHECK(S8, s8) CHECK(S16, s16) CHECK(S32, s32) CHECK(U8, u8) CHECK(U16, u16) CHECK(U32, u32)
#undef CHECK
#undef SIGNED_CHECK
}

TEST(Compare, WideEqualityExtendsBySign) {
  CpuContext c{0, 0, 0, 2, {}};
  const PredV all = bits_of([](auto) { return true; });
  VectorV a{}, b{};
  std::memset(a.bytes, 0xff, 16);
  sve::store<s64>(b.bytes, 0, -1);
  sve::store<s64>(b.bytes, 1, 255);
  EXPECT_EQ(difference(bits_of([](auto i) { return i < 8; }), VecS8CmpFlgEQVWZ(all, a, b, &c), c), "");
  EXPECT_EQ(flags(c), "N-C-");
}

}  // namespace
