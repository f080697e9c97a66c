// Element-wise integer routines of the vector library: arithmetic, logic, shifts, bit operations, reductions, dot
// products and addresses. Expectations are computed on 128-bit values and cut to the element.
#include <gtest/gtest-spi.h>

#include <limits>

#include "values.h"

namespace {

using namespace veclib_test;

template <class T>
inline constexpr int width = 8 * sizeof(T);

// Elements as 128-bit values of their signedness, so that nothing overflows; products of those wrap as unsigned.
wide multiply(wide a, wide b) {
  return static_cast<wide>(static_cast<unsigned __int128>(a) * static_cast<unsigned __int128>(b));
}

template <class T, class Op>
void merging(const char* name, sve::routine::vvm* routine, Op op) {
  run(name, 60, routine, elements<T>([&](auto& o, auto e) {
        return active<T>(o.p, e) ? op(wide{at<T>(o.a, e)}, wide{at<T>(o.b, e)}) : wide{at<T>(o.a, e)};
      }));
}
// Old destination, predicate, source.
template <class T, class Op>
void unary(const char* name, sve::routine::vvm* routine, Op op) {
  merging<T>(name, routine, [&](wide, wide b) { return op(b); });
}
template <class T, class Op>
void ternary(const char* name, sve::routine::vvvm* routine, Op op) {
  run(name, 60, routine, elements<T>([&](auto& o, auto e) {
        return active<T>(o.p, e) ? op(wide{at<T>(o.a, e)}, wide{at<T>(o.b, e)}, wide{at<T>(o.c, e)})
                                 : wide{at<T>(o.a, e)};
      }));
}
template <class T, class Op>
void plain(const char* name, sve::routine::vvx* routine, Op op) {
  run(name, 30, routine, elements<T>([&](auto& o, auto e) { return op(wide{at<T>(o.a, e)}, wide{at<T>(o.b, e)}); }));
}
template <class T, class Routine, class Op>
void immediate(const char* name, Routine* routine, std::initializer_list<s64> values, Op op) {
  for (const s64 imm : values)
    run(name, 5, calling(routine, imm),
        elements<T>([&](auto& o, auto e) { return op(wide{at<T>(o.a, e)}, wide{imm}); }));
}

constexpr auto add = [](wide a, wide b) { return a + b; };
constexpr auto sub = [](wide a, wide b) { return a - b; };
constexpr auto subr = [](wide a, wide b) { return b - a; };
constexpr auto larger = [](wide a, wide b) { return a > b ? a : b; };
constexpr auto smaller = [](wide a, wide b) { return a < b ? a : b; };
constexpr auto absolute = [](wide a) { return a < 0 ? -a : a; };
constexpr auto quotient = [](wide a, wide b) { return b == 0 ? 0 : a / b; };

TEST(Arithmetic, Merging) {
#define CHECK(Type, T)                                                               \
  merging<T>("add " #Type, Vec##Type##AddVVM, add);                                  \
  merging<T>("sub " #Type, Vec##Type##SubVVM, sub);                                  \
  merging<T>("subr " #Type, Vec##Type##SubRVVM, subr);                               \
  unary<T>("not " #Type, Vec##Type##InvVM, [](wide a) { return ~a; });               \
  unary<T>("cnot " #Type, Vec##Type##NotVM, [](wide a) { return wide{a == 0}; });    \
  merging<T>("and " #Type, Vec##Type##AndVVM, [](wide a, wide b) { return a & b; }); \
  merging<T>("or " #Type, Vec##Type##OrVVM, [](wide a, wide b) { return a | b; });   \
  merging<T>("xor " #Type, Vec##Type##XorVVM, [](wide a, wide b) { return a ^ b; }); \
  merging<T>("bic " #Type, Vec##Type##BicVVM, [](wide a, wide b) { return a & ~b; });
  FOR_UNSIGNED(CHECK)
#undef CHECK
#define CHECK(Type, T)                                                                                      \
  merging<T>("mul " #Type, Vec##Type##MulVVM, multiply);                                                    \
  unary<T>("neg " #Type, Vec##Type##NegVM, [](wide a) { return -a; });                                      \
  unary<T>("abs " #Type, Vec##Type##AbsVM, absolute);                                                       \
  ternary<T>("mla " #Type, Vec##Type##MLAVVVM, [](wide a, wide b, wide c) { return a + multiply(b, c); });  \
  ternary<T>("mls " #Type, Vec##Type##MLSVVVM, [](wide a, wide b, wide c) { return a - multiply(b, c); });  \
  ternary<T>("mad " #Type, Vec##Type##MADDVVVM, [](wide a, wide b, wide c) { return c + multiply(a, b); }); \
  ternary<T>("msb " #Type, Vec##Type##MSUBVVVM, [](wide a, wide b, wide c) { return c - multiply(a, b); });
  FOR_SIGNED(CHECK)
#undef CHECK
#define CHECK(Type, T)                                                                                      \
  merging<T>("mulh " #Type, Vec##Type##MulHVVM, [](wide a, wide b) { return multiply(a, b) >> width<T>; }); \
  merging<T>("max " #Type, Vec##Type##MaxVVM, larger);                                                      \
  merging<T>("min " #Type, Vec##Type##MinVVM, smaller);                                                     \
  merging<T>("abd " #Type, Vec##Type##AbdVVM, [](wide a, wide b) { return absolute(a - b); });
  FOR_INTEGERS(CHECK)
#undef CHECK
#define CHECK(Type, T)                                   \
  merging<T>("div " #Type, Vec##Type##DivVVM, quotient); \
  merging<T>("divr " #Type, Vec##Type##DivRVVM, [](wide a, wide b) { return quotient(b, a); });
  CHECK(U32, u32) CHECK(U64, u64) CHECK(S32, s32) CHECK(S64, s64)
#undef CHECK
}

TEST(Arithmetic, UnpredicatedAndImmediate) {
#define CHECK(Type, T)                                                          \
  plain<T>("add " #Type, Vec##Type##AddVVX, add);                               \
  plain<T>("sub " #Type, Vec##Type##SubVVX, sub);                               \
  immediate<T>("add i " #Type, Vec##Type##AddVIX, {0, 1, 255, 0xff00}, add);    \
  immediate<T>("sub i " #Type, Vec##Type##SubVIX, {0, 1, 255, 0xff00}, sub);    \
  immediate<T>("subr i " #Type, Vec##Type##SubRVIX, {0, 1, 255, 0xff00}, subr); \
  immediate<T>("max i " #Type, Vec##Type##MaxVIX, {0, 1, 127, 255}, larger);    \
  immediate<T>("min i " #Type, Vec##Type##MinVIX, {0, 1, 127, 255}, smaller);
  FOR_UNSIGNED(CHECK)
#undef CHECK
#define CHECK(Type, T)                                                              \
  immediate<T>("mul i " #Type, Vec##Type##MulVIX, {0, 1, -1, 127, -128}, multiply); \
  immediate<T>("max i " #Type, Vec##Type##MaxVIX, {0, 1, -1, 127, -128}, larger);   \
  immediate<T>("min i " #Type, Vec##Type##MinVIX, {0, 1, -1, 127, -128}, smaller);
  FOR_SIGNED(CHECK)
#undef CHECK
  plain<u64>("and", VecU64AndVVX, [](wide a, wide b) { return a & b; });
  plain<u64>("or", VecU64OrVVX, [](wide a, wide b) { return a | b; });
  plain<u64>("xor", VecU64XorVVX, [](wide a, wide b) { return a ^ b; });
  plain<u64>("bic", VecU64BicVVX, [](wide a, wide b) { return a & ~b; });
  immediate<u64>("and i", VecU64AndVIX, {0, -1, 0x00ff00ff12345678}, [](wide a, wide b) { return a & b; });
  immediate<u64>("or i", VecU64OrVIX, {0, -1, 0x00ff00ff12345678}, [](wide a, wide b) { return a | b; });
  immediate<u64>("xor i", VecU64XorVIX, {0, -1, 0x00ff00ff12345678}, [](wide a, wide b) { return a ^ b; });
}

// The first element of a routine's result on vectors of one value each.
template <class T, class Call>
T first(T a, T b, Call call) {
  CpuContext c{0, 0, 0, 14, {}};
  const auto all = [&](T x) { return generated<T>(c, [x](auto) { return x; }); };
  const PredV p = bits_of([](auto) { return true; });
  return at<T>(call(all(a), p, all(b), &c), 0);
}

TEST(Arithmetic, Edges) {
  EXPECT_EQ((first<s8>(0, -128, VecS8AbsVM)), -128);
  EXPECT_EQ((first<s64>(0, std::numeric_limits<s64>::min(), VecS64AbsVM)), std::numeric_limits<s64>::min());
  EXPECT_EQ(static_cast<u8>(first<s8>(-128, 127, VecS8AbdVVM)), 255);
  EXPECT_EQ((first<u16>(7, 0, VecU16NotVM)), 1);
  EXPECT_EQ((first<u16>(7, 0xff00, VecU16NotVM)), 0);
  EXPECT_EQ((first<u16>(7, 0xff00, VecU16InvVM)), 0xff);
  EXPECT_EQ((first<s32>(std::numeric_limits<s32>::min(), -1, VecS32DivVVM)), std::numeric_limits<s32>::min());
  EXPECT_EQ((first<s64>(std::numeric_limits<s64>::min(), -1, VecS64DivVVM)), std::numeric_limits<s64>::min());
  EXPECT_EQ((first<s64>(5, 0, VecS64DivVVM)), 0);
  EXPECT_EQ((first<u64>(0, 5, VecU64DivRVVM)), 0u);
  EXPECT_EQ((first<u64>(~u64{0}, ~u64{0}, VecU64MulHVVM)), ~u64{0} - 1);
}

// ---- Shifts ----

// As a wide value an element shifts exactly; amounts above the width all give the same.
constexpr auto left = [](wide a, u64 n) {
  return n > 64 ? wide{0} : static_cast<wide>(static_cast<unsigned __int128>(a) << n);
};
constexpr auto right = [](wide a, u64 n) { return a >> (n > 100 ? 100 : n); };
template <class T>
u64 amount(wide n) {
  return static_cast<std::make_unsigned_t<T>>(n);
}

// Every 64-bit element of the second operand is an amount for those that it covers.
template <class T, class Op>
void wide_shift(const char* name, sve::routine::vvm* predicated, sve::routine::vvx* unpredicated, Op op) {
  const auto amounts = [](Operands& o) {
    for (std::size_t u = 0; u < 32; u += 2) sve::store<u64>(o.b.bytes, u, at<u64>(o.b, u) % 70);
  };
  const auto shifted = [=](auto& o, std::size_t e) { return op(wide{at<T>(o.a, e)}, at<u64>(o.b, e * sizeof(T) / 8)); };
  run(name, 60, amounts, predicated,
      elements<T>([&](auto& o, auto e) { return active<T>(o.p, e) ? shifted(o, e) : wide{at<T>(o.a, e)}; }));
  run(name, 60, amounts, unpredicated, elements<T>(shifted));
}

template <class T, class Plain, class Op>
void shift_immediate(const char* name, sve::routine::vim* predicated, Plain* unpredicated, int low, Op op) {
  for (int imm = low; imm < low + width<T>; ++imm) {
    const u64 n = static_cast<u64>(imm);
    run(name, 3, calling(predicated, n), elements<T>([&](auto& o, auto e) {
          return active<T>(o.p, e) ? op(wide{at<T>(o.a, e)}, n) : wide{at<T>(o.a, e)};
        }));
    if (unpredicated)
      run(name, 2, calling(unpredicated, n), elements<T>([&](auto& o, auto e) { return op(wide{at<T>(o.a, e)}, n); }));
  }
}

TEST(Shift, ByVectorAndReversed) {
#define CHECK(Type, T)                                                                               \
  merging<T>("lsl " #Type, Vec##Type##ShlVVM, [](wide a, wide b) { return left(a, amount<T>(b)); }); \
  merging<T>("lslr " #Type, Vec##Type##ShlRVVM, [](wide a, wide b) { return left(b, amount<T>(a)); });
  FOR_UNSIGNED(CHECK)
#undef CHECK
#define CHECK(Type, T)                                                                                \
  merging<T>("shr " #Type, Vec##Type##ShrVVM, [](wide a, wide b) { return right(a, amount<T>(b)); }); \
  merging<T>("shrr " #Type, Vec##Type##ShrRVVM, [](wide a, wide b) { return right(b, amount<T>(a)); });
  FOR_INTEGERS(CHECK)
#undef CHECK
}

TEST(Shift, ByWideElements) {
#define CHECK(Type, T) wide_shift<T>("lsl w " #Type, Vec##Type##ShlVWM, Vec##Type##ShlVWX, left);
  CHECK(U8, u8)
  CHECK(U16, u16)
  CHECK(U32, u32)
#undef CHECK
#define CHECK(Type, T) wide_shift<T>("shr w " #Type, Vec##Type##ShrVWM, Vec##Type##ShrVWX, right);
  CHECK(U8, u8) CHECK(U16, u16) CHECK(U32, u32) CHECK(S8, s8) CHECK(S16, s16) CHECK(S32, s32)
#undef CHECK
}

constexpr auto divided = [](wide a, u64 n) { return a / static_cast<wide>(static_cast<unsigned __int128>(1) << n); };

TEST(Shift, ByEveryImmediate) {
  sve::routine::vix* const none = nullptr;
#define CHECK(Type, T) shift_immediate<T>("lsl i " #Type, Vec##Type##ShlVIM, Vec##Type##ShlVIX, 0, left);
  FOR_UNSIGNED(CHECK)
#undef CHECK
#define CHECK(Type, T) shift_immediate<T>("shr i " #Type, Vec##Type##ShrVIM, Vec##Type##ShrVIX, 1, right);
  FOR_INTEGERS(CHECK)
#undef CHECK
#define CHECK(Type, T) shift_immediate<T>("asrd " #Type, Vec##Type##ShrDVIM, none, 1, divided);
  FOR_SIGNED(CHECK)
#undef CHECK
  const auto asrd = [](s8 a, u64 n) {
    return first<s8>(a, 0, [n](const VectorV& v, const PredV& p, const VectorV&, CpuContext* c) {
      return VecS8ShrDVIM(v, p, n, c);
    });
  };
  EXPECT_EQ(asrd(-1, 1), 0);
  EXPECT_EQ(asrd(-3, 1), -1);
  for (const s8 a : {s8{-128}, s8{-1}, s8{0}, s8{127}}) EXPECT_EQ(asrd(a, 8), 0);
}

// No encoding has such an amount; it shifts everything out.
TEST(Shift, ByImmediatesBeyondTheWidth) {
  sve::routine::vix* const none = nullptr;
  const auto nothing = [](wide, u64) { return wide{0}; };
  for (const int low : {64, 65, 127, 128, 129, 1 << 20}) {
#define CHECK(Type, T) shift_immediate<T>("asrd far " #Type, Vec##Type##ShrDVIM, none, low, nothing);
    FOR_SIGNED(CHECK)
#undef CHECK
#define CHECK(Type, T) shift_immediate<T>("lsl far " #Type, Vec##Type##ShlVIM, Vec##Type##ShlVIX, low, nothing);
    FOR_UNSIGNED(CHECK)
#undef CHECK
#define CHECK(Type, T)                                                            \
  shift_immediate<T>("shr far " #Type, Vec##Type##ShrVIM, Vec##Type##ShrVIX, low, \
                     [](wide a, u64) { return wide{a < 0 ? -1 : 0}; });
    FOR_INTEGERS(CHECK)
#undef CHECK
  }
  const u64 wraps = u64{1} << 32;
  EXPECT_EQ(first<u8>(u8{3}, 0,
                      [&](const VectorV& v, const PredV& p, const VectorV&, CpuContext* c) {
                        return VecU8ShlVIM(v, p, wraps, c);
                      }),
            0);
}

TEST(Bits, CountsAndReversal) {
#define CHECK(Type, T)                                                                          \
  unary<T>("clz " #Type, Vec##Type##ClzVM, [](wide a) {                                         \
    int n = 0;                                                                                  \
    while (n < width<T> && !(a >> (width<T> - 1 - n) & 1)) ++n;                                 \
    return n;                                                                                   \
  });                                                                                           \
  unary<T>("cls " #Type, Vec##Type##ClsVM, [](wide a) {                                         \
    int n = 0;                                                                                  \
    while (n < width<T> - 1 && ((a >> (width<T> - 1) ^ a >> (width<T> - 2 - n)) & 1) == 0) ++n; \
    return n;                                                                                   \
  });                                                                                           \
  unary<T>("cnt " #Type, Vec##Type##CntVM, [](wide a) {                                         \
    int n = 0;                                                                                  \
    for (int i = 0; i < width<T>; ++i) n += static_cast<int>(a >> i & 1);                       \
    return n;                                                                                   \
  });                                                                                           \
  unary<T>("rbit " #Type, Vec##Type##RBitVM, [](wide a) {                                       \
    wide r = 0;                                                                                 \
    for (int i = 0; i < width<T>; ++i) r = r * 2 + (a >> i & 1);                                \
    return r;                                                                                   \
  });
  FOR_UNSIGNED(CHECK)
#undef CHECK
}

// ---- Reductions: at length 0, and with no active element, the start value ----

template <class T, class Step>
void reduce(const char* name, sve::routine::pv_scalar* routine, wide start, Step step, u64 (*finish)(wide)) {
  run_from_zero(name, 200, routine, [&](auto& o, auto& c) {
    wide r = start;
    for (std::size_t e = 0; e < count<T>(c); ++e)
      if (active<T>(o.p, e)) r = step(r, wide{at<T>(o.a, e)});
    return finish(r);
  });
}

constexpr auto whole = [](wide r) { return static_cast<u64>(r); };
// The extrema of signed elements come back sign-extended to 32 bits, or whole at 64.
template <class T>
u64 extremum(wide r) {
  return std::is_signed_v<T> && sizeof(T) < 8 ? static_cast<u32>(r) : static_cast<u64>(r);
}

TEST(Reduce, EveryOperation) {
#define CHECK(Type, T) reduce<T>("add " #Type, Vec##Type##AddReduceV, 0, add, whole);
  FOR_UNSIGNED(CHECK)
  CHECK(S8, s8)
  CHECK(S16, s16)
  CHECK(S32, s32)
#undef CHECK
#define CHECK(Type, T)                                                                                \
  reduce<T>("max " #Type, Vec##Type##MaxReduceV, std::numeric_limits<T>::min(), larger, extremum<T>); \
  reduce<T>("min " #Type, Vec##Type##MinReduceV, std::numeric_limits<T>::max(), smaller, extremum<T>);
  FOR_INTEGERS(CHECK)
#undef CHECK
#define CHECK(Type, T)                                                                                          \
  reduce<T>(                                                                                                    \
      "and " #Type, Vec##Type##AndReduceV, std::numeric_limits<T>::max(), [](wide a, wide b) { return a & b; }, \
      whole);                                                                                                   \
  reduce<T>(                                                                                                    \
      "or " #Type, Vec##Type##OrReduceV, 0, [](wide a, wide b) { return a | b; }, whole);                       \
  reduce<T>(                                                                                                    \
      "xor " #Type, Vec##Type##XorReduceV, 0, [](wide a, wide b) { return a ^ b; }, whole);
  FOR_UNSIGNED(CHECK)
#undef CHECK
  CpuContext c{0, 0, 0, 14, {}};
  VectorV minus_one;
  std::memset(minus_one.bytes, 0xff, sizeof minus_one.bytes);
  EXPECT_EQ(VecS32AddReduceV(bits_of([](auto) { return true; }), minus_one, &c), static_cast<u64>(-28));
}

// ---- Dot products ----

template <class T, class Narrow>
void dot(const char* name, sve::routine::vvvx* routine, sve::routine::vvvix* indexed) {
  const auto expect = [](const Operands& o, const CpuContext& c, auto lane_of) {
    return generated<T>(c, [&](auto e) {
      wide sum = at<T>(o.c, e);
      for (std::size_t k = 0; k < 4; ++k) sum += wide{at<Narrow>(o.a, 4 * e + k)} * at<Narrow>(o.b, 4 * lane_of(e) + k);
      return sum;
    });
  };
  run(name, 60, routine, [&](auto& o, auto& c) { return expect(o, c, [](auto e) { return e; }); });
  constexpr std::size_t lanes = 16 / sizeof(T);  // of a 128-bit segment
  for (u64 index = 0; index < lanes; ++index)
    run(name, 60, calling(indexed, index),
        [&](auto& o, auto& c) { return expect(o, c, [&](auto e) { return e / lanes * lanes + index; }); });
}

TEST(Dot, PlainAndIndexed) {
  dot<s32, s8>("sdot s", VecS32DotVVVX, VecS32DotVVVIX);
  dot<s64, s16>("sdot d", VecS64DotVVVX, VecS64DotVVVIX);
  dot<u32, u8>("udot s", VecU32DotVVVX, VecU32DotVVVIX);
  dot<u64, u16>("udot d", VecU64DotVVVX, VecU64DotVVVIX);
  CpuContext c{0, 0, 0, 14, {}};
  VectorV minus_one, zero{};
  std::memset(minus_one.bytes, 0xff, sizeof minus_one.bytes);
  EXPECT_EQ(at<s32>(VecS32DotVVVX(minus_one, minus_one, zero, &c), 27), 4);
}

// ---- Addresses ----

TEST(Address, BasePlusScaledOffset) {
#define CHECK(Scale)                                                                           \
  plain<u32>("s " #Scale, VecU32LEA##Scale##VV, [](wide a, wide b) { return a + b * Scale; }); \
  plain<u64>("d " #Scale, VecU64LEA##Scale##VV, [](wide a, wide b) { return a + b * Scale; }); \
  plain<u64>("sxtw " #Scale, VecU64LEA##Scale##XVV,                                            \
             [](wide a, wide b) { return a + wide{static_cast<s32>(b)} * Scale; });            \
  plain<u64>("uxtw " #Scale, VecU64LEA##Scale##YVV,                                            \
             [](wide a, wide b) { return a + wide{static_cast<u32>(b)} * Scale; });
  CHECK(1) CHECK(2) CHECK(4) CHECK(8)
#undef CHECK
}

// A wrong result is shown with its operands: those that the routine reads.
void expect_a_wrong_sum() {
  run("wrong sum", 1, VecU16AddVVX,
      elements<u16>([&](auto& o, auto e) { return at<u16>(o.a, e) + at<u16>(o.b, e) + (e == 2); }));
}

TEST(Failures, TellOperandsAndResultsByElement) {
  EXPECT_FATAL_FAILURE(expect_a_wrong_sum(),
                       "elements of 2 bytes\n element         a         b  expected       got\n       2  ");
}

}  // namespace
