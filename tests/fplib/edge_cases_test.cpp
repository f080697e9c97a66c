// The edges of the floating-point library by hand: operation, operands, controls; expected result and flags.
#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "sve/fplib/fplib.h"

namespace {

using H = unsigned short;
using S = unsigned int;
using D = unsigned long;

// Flags and controls, short enough for tables.
constexpr int I = sve::flag_ioc, Z = sve::flag_dzc, O = sve::flag_ofc, U = sve::flag_ufc, X = sve::flag_ixc,
              F = sve::flag_idc;
constexpr FPSCR fz = sve::fpscr_fz, fz16 = sve::fpscr_fz16, dn = sve::fpscr_dn, ahp = sve::fpscr_ahp;
constexpr FPSCR rp = 1u << 22, rm = 2u << 22, rz = 3u << 22;

// Values.
constexpr S one = 0x3f800000, two = 0x40000000, three = 0x40400000, infinity = 0x7f800000, minus = 0x80000000;
constexpr S quiet = 0x7fc12345, signalling = 0x7f812345, nan = 0x7fc00000, largest = 0x7f7fffff, denormal = 0x00000123;

struct Row {
  const char* what;
  std::function<std::uint64_t(FPSCR&)> run;
  FPSCR fpscr;
  std::uint64_t value;
  int flags;
};

void expect(std::initializer_list<Row> rows) {
  for (const Row& row : rows) {
    FPSCR working = row.fpscr;
    const std::uint64_t value = row.run(working);
    EXPECT_EQ(value, row.value) << std::hex << row.what << " under " << row.fpscr << ": " << value << ", not "
                                << row.value;
    EXPECT_EQ(working & ~row.fpscr, static_cast<FPSCR>(row.flags)) << row.what << " under " << std::hex << row.fpscr;
    EXPECT_EQ(working & row.fpscr, row.fpscr) << row.what << " must not clear what was set";
  }
}

#define ROW(expression, fpscr, value, flags)                                                                  \
  Row {                                                                                                       \
#expression, [=]([[maybe_unused]] FPSCR & s) -> std::uint64_t { return expression; }, fpscr, value, flags \
  }

TEST(FpCore, Rounding) {
  const auto round = [](int sgn, int exp, S mnt, int by, int mode) {
    return [=]([[maybe_unused]] FPSCR& s) -> std::uint64_t {
      int flags = 0;
      const S value = fp32_round_(sgn, exp, mnt, by, mode, &flags);
      s |= static_cast<FPSCR>(flags);
      return value;
    };
  };
  const auto round16 = [](int sgn, int exp, H mnt, int by, int mode) {
    return [=]([[maybe_unused]] FPSCR& s) -> std::uint64_t {
      int flags = 0;
      const H value = fp16_round_(sgn, exp, mnt, by, mode, &flags);
      s |= static_cast<FPSCR>(flags);
      return value;
    };
  };
  const auto round64 = [](int sgn, int exp, D mnt, int by, int mode) {
    return [=]([[maybe_unused]] FPSCR& s) -> std::uint64_t {
      int flags = 0;
      const D value = fp64_round_(sgn, exp, mnt, by, mode, &flags);
      s |= static_cast<FPSCR>(flags);
      return value;
    };
  };
  expect({
      {"exponent 0 is half the smallest normal, exactly", round(0, 0, 0, 0, 0), 0, 0x400000, 0},
      {"a denormal rounds up to the smallest normal", round(0, 0, 0xffffffff, 0, 0), 0, 0x800000, U | X},
      {"overflow towards zero", round(0, 255, 0, 3, 0), 0, largest, O | X},
      {"overflow to nearest", round(1, 300, 0, 0, 0), 0, minus | infinity, O | X},
      {"negative overflow upwards", round(1, 255, 0, 1, 0), 0, 0xff7fffff, O | X},
      {"positive overflow downwards", round(0, 255, 0, 2, 0), 0, largest, O | X},
      {"positive overflow upwards", round(0, 255, 0, 1, 0), 0, infinity, O | X},
      {"rounding up into overflow", round(0, 254, 0xffffffff, 0, 0), 0, infinity, O | X},
      {"a flushed result raises UFC alone", round(1, 0, 1, 0, 4), 0, minus, U},
      {"FZ16 does not flush single precision", round(0, 0, 0, 0, 32), 0, 0x400000, 0},
      {"to odd, inexact", round(0, 127, 1, 5, 0), 0, one | 1, X},
      {"to odd, exact", round(0, 127, 0x400, 5, 0), 0, one | 2, 0},
      {"to odd never rounds up to infinity", round(0, 255, 1, 5, 0), 0, largest, O | X},
      {"ties away truncates here", round(0, 127, 0x100, 4, 0), 0, one, X},
      {"far below the range", round(0, -1000, 0, 0, 0), 0, 0, U | X},
      {"far below the range, upwards", round(0, std::numeric_limits<int>::min(), 0, 1, 0), 0, 1, U | X},
      {"far below the range, to odd", round(0, -1000, 0, 5, 0), 0, 1, U | X},
      {"FZ does not flush half precision", round16(0, 0, 0, 0, 4), 0, 0x200, 0},
      {"FZ16 does", round16(1, 0, 0, 0, 32), 0, 0x8000, U},
      {"half overflow", round16(0, 31, 0, 0, 0), 0, 0x7c00, O | X},
      {"alternative half has an exponent more", round16(0, 31, 0, 0, 16), 0, 0x7c00, 0},
      {"and the largest value below 2^17", round16(0, 31, 0xffc0, 0, 16), 0, 0x7fff, 0},
      {"alternative half overflow is invalid", round16(1, 32, 0, 0, 16), 0, 0xffff, I},
      {"rounding up into it", round16(0, 31, 0xffff, 0, 16), 0, 0x7fff, I},
      {"double ties to even", round64(0, 1023, 0x800, 0, 0), 0, 0x3ff0000000000000, X},
      {"double above half", round64(0, 1023, 0x801, 0, 0), 0, 0x3ff0000000000001, X},
      {"AHP means nothing to double", round64(0, 2047, 0, 0, 16), 0, 0x7ff0000000000000, O | X},
  });
}

TEST(FpCore, ModeWord) {
  EXPECT_EQ(sve::mode_of(0), 0);
  EXPECT_EQ(sve::mode_of(rp), 1);
  EXPECT_EQ(sve::mode_of(rm), 2);
  EXPECT_EQ(sve::mode_of(rz), 3);
  EXPECT_EQ(sve::mode_of(fz), sve::mode_fz);
  EXPECT_EQ(sve::mode_of(dn), sve::mode_dn);
  EXPECT_EQ(sve::mode_of(fz16), sve::mode_fz16);
  EXPECT_EQ(sve::mode_of(ahp), 0) << "AHP does not reach arithmetic";
  EXPECT_EQ(sve::mode_of(0xf8009f9f), 0) << "status bits and trap enables mean nothing";
}

TEST(FpCore, NansAndFlushing) {
  expect({
      ROW(FPAdd<H>(0x0001, 0x0001, s), 0, 0x0002, 0),
      ROW(FPAdd<H>(0x0001, 0x0001, s), fz, 0x0002, 0),
      ROW(FPAdd<H>(0x0001, 0x0001, s), fz16, 0, 0),
      ROW(FPAdd<S>(denormal, denormal, s), fz16, 2 * denormal, 0),
      ROW(FPAdd<S>(denormal, denormal, s), fz, 0, F),
      ROW(FPAdd<S>(quiet, signalling, s), 0, signalling | 0x400000, I),
      ROW(FPAdd<S>(signalling, quiet, s), 0, signalling | 0x400000, I),
      ROW(FPAdd<S>(minus | signalling, 0x7f800001, s), 0, minus | signalling | 0x400000, I),
      ROW(FPAdd<S>(minus | quiet, 0x7fc00001, s), 0, minus | quiet, 0),
      ROW(FPAdd<S>(minus | quiet, one, s), dn, nan, 0),
      ROW(FPAdd<S>(minus | signalling, one, s), dn, nan, I),
      ROW(FPMul<S>(minus | infinity, 0, s), 0, nan, I),
      ROW(FPDiv<S>(minus | infinity, infinity, s), 0, nan, I),
      ROW(FPSqrt<S>(minus | one, s), 0, nan, I),
      ROW(FPMul<S>(denormal, signalling, s), fz, signalling | 0x400000, F | I),
      ROW(FPMulAdd<S>(quiet, denormal, signalling, s), fz, signalling | 0x400000, F | I),
      ROW(FPMul<S>(denormal, infinity, s), fz, nan, F | I),
      ROW(FPNeg<S>(signalling), 0, minus | signalling, 0),
      ROW(FPNeg<H>(0xfe00), 0, 0x7e00, 0),
      ROW(FPNeg<D>(0), 0, 0x8000000000000000, 0),
      ROW(FPAbs<S>(minus | signalling), 0, signalling, 0),
      ROW(FPAbs<D>(0xfff0000000000001), 0, 0x7ff0000000000001, 0),
      ROW(FPAdd<S>(one, one, s), 0x9f00, two, 0),  // trap enables
      ROW(FPAdd<S>(one, signalling, s), 0xf8000000, signalling | 0x400000, I),
  });
}

template <class T>
concept HasAbs = requires(T x) {
  FPAbs<T>(x);
};
template <class T>
concept HasCompare = requires(T x, FPSCR s) {
  FPCompare<T>(x, x, false, s);
};
static_assert(!HasAbs<H> && HasAbs<S> && HasAbs<D>);
static_assert(!HasCompare<H> && HasCompare<S> && HasCompare<D>);

TEST(FpCore, Process) {
  expect({
      ROW(FPProcess16(0x0001, s), 0, 0x0001, 0),
      ROW(FPProcess16(0x8001, s), fz16, 0x8000, 0),
      ROW(FPProcess16(0x7c01, s), 0, 0x7e01, I),
      ROW(FPProcess16(0xfc00, s), dn, 0xfc00, 0),
      ROW(FPProcess32(minus | denormal, s), 0, minus | denormal, 0),
      ROW(FPProcess32(minus | denormal, s), fz, minus, F),
      ROW(FPProcess32(minus, s), fz, minus, 0),
      ROW(FPProcess32(largest, s), 0, largest, 0),
      ROW(FPProcess32(minus | quiet, s), 0, minus | quiet, 0),
      ROW(FPProcess32(quiet, s), dn, nan, 0),
      ROW(FPProcess64(0xfff0000000000001, s), 0, 0xfff8000000000001, I),
      ROW(FPProcess64(1, s), fz, 0, F),
      ROW(FPProcess64(0x3ff5555555555555, s), 0, 0x3ff5555555555555, 0),
  });
}

TEST(FpArithmetic, Edges) {
  const S tiny = 0x00000001;
  expect({
      ROW(FPAdd<S>(0, minus, s), rm, minus, 0),
      ROW(FPAdd<S>(0, minus, s), 0, 0, 0),
      ROW(FPAdd<S>(minus, 0, s), rp, 0, 0),
      ROW(FPAdd<S>(minus, 0, s), rz, 0, 0),
      ROW(FPAdd<S>(minus, minus, s), 0, minus, 0),
      ROW(FPAdd<S>(0, 0, s), rm, 0, 0),
      ROW(FPAdd<S>(largest, minus | largest, s), 0, 0, 0),
      ROW(FPAdd<S>(largest, minus | largest, s), rm, minus, 0),
      ROW(FPAdd<S>(one, minus | one, s), rz, 0, 0),
      ROW(FPAdd<S>(infinity, minus | infinity, s), 0, nan, I),
      ROW(FPSub<S>(infinity, infinity, s), 0, nan, I),
      ROW(FPSub<S>(minus | infinity, minus | infinity, s), 0, nan, I),
      ROW(FPSub<S>(infinity, minus | infinity, s), 0, infinity, 0),
      ROW(FPSub<S>(one, quiet, s), 0, quiet, 0),  // the sign of a NaN is not inverted
      ROW(FPSub<S>(one, minus | infinity, s), 0, infinity, 0),
      ROW(FPSub<S>(0, 0, s), rm, minus, 0),
      ROW(FPSub<H>(0x3c00, 0x3c00, s), rm, 0x8000, 0),
      ROW(FPSub<D>(0x10000000000001, 0x10000000000000, s), 0, 1, 0),
      ROW(FPSub<D>(0x10000000000001, 0x10000000000000, s), fz, 0, U),
      ROW(FPDiv<S>(one, minus | denormal, s), fz, minus | infinity, F | Z),
      ROW(FPDiv<H>(0x3c00, 0x0001, s), fz16, 0x7c00, Z),
      ROW(FPDiv<S>(minus | one, 0, s), 0, minus | infinity, Z),
      ROW(FPDiv<S>(infinity, minus, s), 0, minus | infinity, 0),
      ROW(FPDiv<S>(0, 0, s), 0, nan, I),
      ROW(FPDiv<S>(denormal, 0, s), fz, nan, F | I),
      ROW(FPDiv<S>(0, minus | one, s), 0, minus, 0),
      ROW(FPDiv<S>(one, minus | infinity, s), 0, minus, 0),
      ROW(FPMulX<S>(infinity, minus, s), 0, minus | two, 0),
      ROW(FPMulX<S>(denormal, infinity, s), fz, two, F),
      ROW(FPMulX<H>(0x8000, 0xfc00, s), 0, 0x4000, 0),
      ROW(FPMulX<D>(0, 0x7ff0000000000000, s), 0, 0x4000000000000000, 0),
      ROW(FPMulX<S>(two, three, s), 0, 0x40c00000, 0),
      ROW(FPMul<S>(infinity, minus, s), 0, nan, I),
      ROW(FPSqrt<S>(minus, s), 0, minus, 0),
      ROW(FPSqrt<S>(minus | denormal, s), fz, minus, F),
      ROW(FPSqrt<S>(minus | denormal, s), 0, nan, I),
      ROW(FPSqrt<H>(0x8001, s), fz16, 0x8000, 0),
      ROW(FPSqrt<S>(infinity, s), 0, infinity, 0),
      ROW(FPSqrt<S>(minus | infinity, s), 0, nan, I),
      ROW(FPMulAdd<S>(quiet, 0, infinity, s), 0, nan, I),
      ROW(FPMulAdd<S>(quiet, minus | infinity, 0, s), dn, nan, I),
      ROW(FPMulAdd<S>(signalling, 0, infinity, s), 0, signalling | 0x400000, I),
      ROW(FPMulAdd<S>(quiet, denormal, infinity, s), fz, nan, F | I),
      ROW(FPMulAdd<S>(quiet, denormal, infinity, s), 0, quiet, 0),
      ROW(FPMulAdd<S>(one, 0, infinity, s), 0, nan, I),
      ROW(FPMulAdd<S>(minus | infinity, infinity, one, s), 0, nan, I),
      ROW(FPMulAdd<S>(infinity, infinity, one, s), 0, infinity, 0),
      ROW(FPMulAdd<S>(0x40c00000, minus | two, three, s), 0, 0, 0),
      ROW(FPMulAdd<S>(0x40c00000, minus | two, three, s), rm, minus, 0),
      ROW(FPMulAdd<S>(minus, 0, one, s), 0, 0, 0),
      ROW(FPMulAdd<S>(minus, 0, one, s), rm, minus, 0),
      ROW(FPMulAdd<S>(minus, minus, one, s), 0, minus, 0),
      ROW(FPMulAdd<S>(one, 0, three, s), 0, one, 0),
      // Half: (2^-24 + 2^-24 * (1/2 + ulp)) is just above the middle, which two roundings would lose.
      ROW(FPMulAdd<H>(0x0001, 0x0001, 0x3801, s), 0, 0x0002, U | X),
      ROW(FPMulAdd<H>(0x0001, 0x0001, 0x3800, s), 0, 0x0002, U | X),
      ROW(FPMulAdd<H>(0x0002, 0x0001, 0x3800, s), 0, 0x0002, U | X),
      ROW(FPMulAdd<H>(0x0002, 0x0001, 0x3801, s), 0, 0x0003, U | X),
      ROW(FPMulAdd<S>(0x7fc00000, tiny, tiny, s), 0, nan, 0),
      ROW(FPMulAdd<D>(0x7ff0000000000000, 0x7fefffffffffffff, 0xffefffffffffffff, s), 0, 0x7ff0000000000000, 0),
      ROW(FPMulAdd<D>(0, 0x7fefffffffffffff, 0x4000000000000000, s), 0, 0x7ff0000000000000, O | X),
  });
}

TEST(FpConversion, Edges) {
  const auto half = [](S x, int rounding, FPSCR& s) {
    return FPConvert<S, H>(x, static_cast<FPRounding>(rounding), s);
  };
  const auto round = [](S x, int rounding, bool exact, FPSCR& s) {
    return FPRoundInt<S>(x, static_cast<FPRounding>(rounding), exact, s);
  };
  const auto fixed = [](S x, bool u, FPSCR& s) { return fplibFPToFixed<S, S>(x, 0, u, FPRounding_Zero, s); };
  const auto float16 = [](long x, FPSCR& s) {
    return fplibFixedToFP<H>(static_cast<D>(x), 0, false, FPRounding_TiesEven, s);
  };
  expect({
      ROW(half(0x477ff000, 0, s), 0, 0x7c00, O | X),  // 65520
      ROW(half(0x477ff000, 3, s), 0, 0x7bff, X),      // truncated it is in range
      ROW(half(0x47800000, 3, s), 0, 0x7bff, O | X),  // 65536
      ROW(half(0x47000000, 0, s), ahp, 0x7800, 0),    // 32768
      ROW(half(0x47800000, 0, s), ahp, 0x7c00, 0),    // 65536 is an ordinary value
      ROW(half(0x48000000, 0, s), ahp, 0x7fff, I),    // 131072 is not
      ROW(half(minus | infinity, 0, s), ahp, 0xffff, I),
      ROW(half(minus | quiet, 0, s), ahp, 0x8000, I),
      ROW(half(minus | quiet, 0, s), 0, 0xfe00 | 0x12345 >> 13, 0),
      ROW(half(minus | signalling, 0, s), 0, 0xfe00 | 0x12345 >> 13, I),
      ROW(half(minus | signalling, 0, s), dn, 0x7e00, I),
      ROW(half(denormal, 0, s), 0, 0, U | X),
      ROW(half(denormal, 1, s), 0, 0x0001, U | X),
      ROW(half(minus | denormal, 1, s), 0, 0x8000, U | X),
      ROW(half(minus | denormal, 2, s), 0, 0x8001, U | X),
      ROW(half(minus | denormal, 2, s), fz, 0x8000, F),
      ROW(half(0x33800000, 0, s), fz | fz16, 0x0001, 0),  // 2^-24: a half result is never flushed
      ROW((FPConvert<H, S>(0x0001, FPRounding_TiesEven, s)), 0, 0x33800000, 0),
      ROW((FPConvert<H, S>(0x0001, FPRounding_TiesEven, s)), fz, 0x33800000, 0),
      ROW((FPConvert<H, S>(0x8001, FPRounding_TiesEven, s)), fz16, minus, 0),
      ROW((FPConvert<H, D>(0x8001, FPRounding_TiesEven, s)), fz16, 0x8000000000000000, 0),
      ROW((FPConvert<H, D>(0x03ff, FPRounding_TiesEven, s)), 0, 0x3f0ff80000000000, 0),
      ROW((FPConvert<H, S>(0xfc00, FPRounding_TiesEven, s)), ahp, 0xc7800000, 0),
      ROW((FPConvert<H, S>(0x7fff, FPRounding_TiesEven, s)), ahp | dn, 0x47ffe000, 0),
      ROW((FPConvert<H, S>(0xfd55, FPRounding_TiesEven, s)), 0, 0xffc00000 | 0x155 << 13, I),
      ROW((FPConvert<S, D>(denormal, FPRounding_TiesEven, s)), fz, 0, F),
      ROW((FPConvert<S, D>(1, FPRounding_TiesEven, s)), 0, 0x36a0000000000000, 0),
      ROW((FPConvert<S, D>(minus | signalling, FPRounding_TiesEven, s)), 0, 0xfff8000000000000 | 0x12345ul << 29, I),
      ROW((FPConvert<D, S>(0xfff0000020000001, FPRounding_TiesEven, s)), 0, 0xffc00001, I),
      ROW((FPConvert<D, S>(1, FPRounding_TiesEven, s)), 0, 0, U | X),
      ROW((FPConvert<D, S>(1, FPRounding_TiesEven, s)), fz, 0, F),
      ROW((FPConvert<D, S>(0x3800000000000000, FPRounding_TiesEven, s)), fz, 0, U),
      ROW((FPConvert<D, S>(0x3ff0000010000000, FPRounding_Odd, s)), 0, one | 1, X),
      ROW((FPConvert<D, H>(1, FPRounding_PosInf, s)), 0, 1, U | X),
      ROW((FPConvert<D, S>(0x47efffffffffffff, FPRounding_Zero, s)), 0, largest, X),
      ROW((FPConvert<D, S>(0x47f0000000000000, FPRounding_Zero, s)), 0, largest, O | X),

      ROW(round(1, 1, false, s), 0, one, 0),
      ROW(round(minus | denormal, 2, false, s), 0, minus | one, 0),
      ROW(round(denormal, 1, true, s), 0, one, X),
      ROW(round(minus | denormal, 2, true, s), fz, minus, F),
      ROW(FPRoundInt<H>(0x8001, FPRounding_NegInf, true, s), fz16, 0x8000, 0),
      ROW(FPRoundInt<H>(0x0001, FPRounding_PosInf, false, s), fz, 0x3c00, 0),
      ROW(round(0xbf000000, 0, false, s), 0, minus, 0),  // -0.5
      ROW(round(0xbe99999a, 3, true, s), 0, minus, X),   // -0.3
      ROW(round(0x40200000, 4, false, s), 0, three, 0),  // 2.5
      ROW(round(0x40200000, 0, false, s), rp, two, 0),   // RMode is not read
      ROW(round(0x40200000, 0, true, s), 0, two, X),
      ROW(round(0x3effffff, 4, false, s), 0, 0, 0),          // just below 0.5
      ROW(round(0x4b000001, 0, true, s), 0, 0x4b000001, 0),  // no fraction bits
      ROW(round(minus | infinity, 0, true, s), 0, minus | infinity, 0),
      ROW(round(minus | signalling, 0, true, s), 0, minus | signalling | 0x400000, I),
      ROW(round(minus | quiet, 0, true, s), dn, nan, 0),

      ROW(fixed(quiet, false, s), 0, 0, I),
      ROW(fixed(signalling, true, s), 0, 0, I),
      ROW(fixed(0x4f32d05e, false, s), 0, 0x7fffffff, I),  // 3e9
      ROW(fixed(0x4f32d05e, true, s), 0, 3000000000 / 256 * 256, 0),
      ROW(fixed(0xcf32d05e, false, s), 0, 0x80000000, I),
      ROW(fixed(0xcf000000, false, s), 0, 0x80000000, 0),  // -2^31 is in range
      ROW(fixed(0x4f800000, true, s), 0, 0xffffffff, I),
      ROW(fixed(0xbf666666, true, s), 0, 0, X),  // -0.9
      ROW(fixed(0xbfc00000, true, s), 0, 0, I),  // -1.5
      ROW(fixed(minus | infinity, false, s), 0, 0x80000000, I),
      ROW(fixed(infinity, true, s), 0, 0xffffffff, I),
      ROW(fixed(denormal, false, s), fz, 0, F),
      ROW(fixed(denormal, false, s), 0, 0, X),
      ROW((fplibFPToFixed<D, S>(0xc1e00000001fffff, 0, false, FPRounding_Zero, s)), 0, 0x80000000, X),
      ROW((fplibFPToFixed<D, S>(0xc1e0000000200000, 0, false, FPRounding_Zero, s)), 0, 0x80000000, I),
      ROW((fplibFPToFixed<D, D>(0x43e0000000000000, 0, false, FPRounding_Zero, s)), 0, 0x7fffffffffffffff, I),
      ROW((fplibFPToFixed<D, D>(0xc3e0000000000000, 0, false, FPRounding_Zero, s)), 0, 0x8000000000000000, 0),
      ROW((fplibFPToFixed<D, D>(0x43e0000000000000, 0, true, FPRounding_Zero, s)), 0, 0x8000000000000000, 0),
      ROW((fplibFPToFixed<D, D>(0x43f0000000000000, 0, true, FPRounding_Zero, s)), 0, 0xffffffffffffffff, I),
      ROW((fplibFPToFixed<D, D>(0x3fe0000000000000, 0, true, FPRounding_TiesAway, s)), 0, 1, X),
      ROW((fplibFPToFixed<D, D>(0x3fe0000000000000, 0, true, FPRounding_TiesEven, s)), 0, 0, X),
      ROW((fplibFPToFixed<H, H>(0x7bff, 0, false, FPRounding_Zero, s)), 0, 0x7fff, I),
      ROW((fplibFPToFixed<H, H>(0x7bff, 0, true, FPRounding_Zero, s)), 0, 65504, 0),
      ROW((fplibFPToFixed<H, D>(0x0001, 24, true, FPRounding_Zero, s)), 0, 1, 0),
      ROW((fplibFPToFixed<H, D>(0x0001, 24, true, FPRounding_Zero, s)), fz16, 0, 0),
      ROW((fplibFPToFixed<H, H>(0x3c00, 15, false, FPRounding_Zero, s)), 0, 0x7fff, I),

      ROW(float16(0, s), rm, 0, 0),
      ROW(fplibFixedToFP<S>(0, 0, true, FPRounding_NegInf, s), rm, 0, 0),
      ROW(float16(100000, s), 0, 0x7c00, O | X),
      ROW(float16(-100000, s), ahp, 0xfc00, O | X),
      ROW(float16(1, s), fz16, 0x3c00, 0),
      ROW(fplibFixedToFP<H>(1, 24, false, FPRounding_TiesEven, s), fz | fz16, 1, 0),
      ROW(fplibFixedToFP<S>(~0ul, 0, true, FPRounding_TiesEven, s), 0, 0x5f800000, X),
      ROW(fplibFixedToFP<S>(~0ul, 0, false, FPRounding_TiesEven, s), 0, minus | one, 0),
      ROW(fplibFixedToFP<D>(1ul << 63, 0, false, FPRounding_TiesEven, s), 0, 0xc3e0000000000000, 0),
      ROW(fplibFixedToFP<D>(0x20000000000001, 0, false, FPRounding_PosInf, s), 0, 0x4340000000000001, X),

      ROW(FPScale32(one, 300, s), 0, infinity, O | X),
      ROW(FPScale32(one, -300, s), 0, 0, U | X),
      ROW(FPScale32(one, 100000, s), 0, infinity, O | X),
      ROW(FPScale32(one, std::numeric_limits<int>::min(), s), 0, 0, U | X),
      ROW(FPScale32(minus, 5, s), 0, minus, 0),
      ROW(FPScale32(0, -100000, s), fz, 0, 0),
      ROW(FPScale32(minus | denormal, 300, s), fz, minus, F),
      ROW(FPScale32(1, 149, s), 0, one, 0),
      ROW(FPScale32(minus | infinity, -300, s), 0, minus | infinity, 0),
      ROW(FPScale32(signalling, 1, s), 0, signalling | 0x400000, I),
      ROW(FPScale16(0x0001, 24, s), 0, 0x3c00, 0),
      ROW(FPScale16(0x0001, 24, s), fz16, 0, 0),
      ROW(FPScale16(0x3c00, -32768, s), rp, 0x0001, U | X),
      ROW(FPScale64(1, std::numeric_limits<long>::max(), s), 0, 0x7ff0000000000000, O | X),
      ROW(FPScale64(0x7fefffffffffffff, -2098, s), 0, 0x0000000000000001, U | X),
  });
}

TEST(FpEstimate, Edges) {
  expect({
      ROW(FPRecipEstimate<S>(one, s), 0, 0x3f7f8000, 0),
      ROW(FPRecipEstimate<H>(0x3c00, s), 0, 0x3bfc, 0),
      ROW(FPRecipEstimate<D>(0x3ff0000000000000, s), 0, 0x3feff00000000000, 0),
      ROW(FPRecipEstimate<S>(0x00800000, s), 0, 0x7e7f8000, 0),  // the smallest normal
      ROW(FPRecipEstimate<S>(0x7e800000, s), 0, 0x007fc000, 0),  // 2^126 gives a denormal
      ROW(FPRecipEstimate<S>(0x7f000000, s), 0, 0x003fe000, 0),  // 2^127 one shifted by two
      ROW(FPRecipEstimate<S>(0x7e800000, s), fz, 0, U),
      ROW(FPRecipEstimate<S>(0xff000000, s), fz, minus, U),
      ROW(FPRecipEstimate<S>(minus, s), 0, minus | infinity, Z),
      ROW(FPRecipEstimate<S>(denormal, s), fz, infinity, F | Z),
      ROW(FPRecipEstimate<H>(0x8001, s), fz16, 0xfc00, Z),
      ROW(FPRecipEstimate<S>(denormal, s), 0, infinity, O | X),
      ROW(FPRecipEstimate<S>(denormal, s), rp, infinity, O | X),
      ROW(FPRecipEstimate<S>(denormal, s), rm, largest, O | X),
      ROW(FPRecipEstimate<S>(minus | denormal, s), rm, minus | infinity, O | X),
      ROW(FPRecipEstimate<S>(minus | denormal, s), rp, minus | largest, O | X),
      ROW(FPRecipEstimate<S>(denormal, s), rz, largest, O | X),
      ROW(FPRecipEstimate<S>(0x00200000, s), 0, 0x7f7f8000, 0),  // the first that does not overflow
      ROW(FPRecipEstimate<S>(minus | infinity, s), 0, minus, 0),
      ROW(FPRecipEstimate<S>(signalling, s), 0, signalling | 0x400000, I),

      ROW(FPRSqrtEstimate<S>(minus, s), 0, minus | infinity, Z),
      ROW(FPRSqrtEstimate<S>(minus | denormal, s), fz, minus | infinity, F | Z),
      ROW(FPRSqrtEstimate<H>(0x0001, s), fz16, 0x7c00, Z),
      ROW(FPRSqrtEstimate<S>(minus | one, s), 0, nan, I),
      ROW(FPRSqrtEstimate<S>(minus | infinity, s), 0, nan, I),
      ROW(FPRSqrtEstimate<S>(infinity, s), 0, 0, 0),
      ROW(FPRSqrtEstimate<S>(one, s), 0, 0x3f7f8000, 0),
      ROW(FPRSqrtEstimate<S>(0x40800000, s), 0, 0x3eff8000, 0),        // 4.0, the same entry
      ROW(FPRSqrtEstimate<S>(two, s), 0, 0x3f000000 | 105u << 15, 0),  // entry 128
      ROW(FPRSqrtEstimate<H>(0x3c00, s), 0, 0x3bfc, 0),
      ROW(FPRSqrtEstimate<D>(0x3ff0000000000000, s), 0, 0x3feff00000000000, 0),
      ROW(FPRSqrtEstimate<S>(quiet, s), dn, nan, 0),

      ROW(FPRecipStepFused<S>(infinity, 0, s), 0, two, 0),
      ROW(FPRecipStepFused<S>(minus, infinity, s), 0, two, 0),
      ROW(FPRecipStepFused<H>(0x7c00, 0, s), 0, 0x4000, 0),
      ROW(FPRecipStepFused<D>(0x7ff0000000000000, 0, s), 0, 0x4000000000000000, 0),
      ROW(FPRecipStepFused<S>(infinity, denormal, s), fz, two, F),
      ROW(FPRecipStepFused<S>(infinity, one, s), 0, minus | infinity, 0),
      ROW(FPRecipStepFused<S>(one, one, s), 0, one, 0),
      ROW(FPRecipStepFused<S>(two, one, s), rm, minus, 0),
      ROW(FPRecipStepFused<S>(quiet, one, s), 0, minus | quiet, 0),  // the sign was flipped
      ROW(FPRecipStepFused<S>(one, quiet, s), 0, quiet, 0),
      ROW(FPRSqrtStepFused<S>(0, infinity, s), 0, 0x3fc00000, 0),
      ROW(FPRSqrtStepFused<H>(0, 0xfc00, s), 0, 0x3e00, 0),
      ROW(FPRSqrtStepFused<D>(0, 0x7ff0000000000000, s), 0, 0x3ff8000000000000, 0),
      ROW(FPRSqrtStepFused<S>(one, one, s), 0, one, 0),
      ROW(FPRSqrtStepFused<S>(largest, two, s), 0, minus | largest, X),  // halved before it could overflow
      ROW(FPRSqrtStepFused<S>(minus | signalling, one, s), 0, signalling | 0x400000, I),

      ROW(FPRecpX<S>(two, s), 0, 0x3f800000, 0),
      ROW(FPRecpX<S>(three, s), 0, 0x3f800000, 0),
      ROW(FPRecpX<S>(minus, s), 0, 0xff000000, 0),
      ROW(FPRecpX<S>(denormal, s), 0, 0x7f000000, 0),
      ROW(FPRecpX<S>(denormal, s), fz, 0x7f000000, F),
      ROW(FPRecpX<H>(0x0001, s), fz16, 0x7800, 0),
      ROW(FPRecpX<D>(0, s), 0, 0x7fe0000000000000, 0),
      ROW(FPRecpX<S>(minus | infinity, s), 0, minus, 0),
      ROW(FPRecpX<S>(signalling, s), dn, nan, I),
  });
}

TEST(FpAccelerator, Edges) {
  const auto select = [](S a, S b) { return FPTRISSEL<S>(a, b); };
  expect({
      ROW(FPTRIMADD<S>(0, 0, 0, s), 0, one, 0),
      ROW(FPTRIMADD<S>(1, 0, 0, s), 0, 0xbe2aaaab, 0),
      ROW(FPTRIMADD<S>(1, 0, minus, s), 0, 0xbf000000, 0),          // -0 is negative: cosine
      ROW(FPTRIMADD<S>(1, one, minus | one, s), 0, 0x3f000000, 0),  // -1/2 + 1 * |-1|
      ROW(FPTRIMADD<S>(7, 0, one, s), 0, 0, 0),
      ROW(FPTRIMADD<S>(1, one, minus | quiet, s), 0, quiet, 0),  // the sign is cleared first
      ROW(FPTRIMADD<S>(1, minus | quiet, one, s), 0, minus | quiet, 0),
      ROW(FPTRIMADD<H>(2, 0, 0x8000, s), 0, 0x293a, 0),
      ROW(FPTRIMADD<D>(6, 0, 0, s), 0, 0x3de5d8408868552f, 0),
      ROW(FPTRIMADD<D>(7, 0, 0x8000000000000000, s), 0, 0xbda8f76380fbb401, 0),
      ROW(FPTRISMUL<S>(three, 0, s), 0, 0x41100000, 0),
      ROW(FPTRISMUL<S>(minus | three, 1, s), 0, 0xc1100000, 0),
      ROW(FPTRISMUL<S>(three, 0xfffffffe, s), 0, 0x41100000, 0),
      ROW(FPTRISMUL<S>(minus | quiet, 0, s), 0, minus | quiet, 0),
      ROW(FPTRISMUL<S>(quiet, 1, s), 0, quiet, 0),
      ROW(FPTRISMUL<S>(minus | infinity, 1, s), 0, minus | infinity, 0),
      ROW(FPTRISMUL<S>(minus, 1, s), 0, minus, 0),
      ROW(FPTRISMUL<S>(denormal, 1, s), fz, minus, F),
      ROW(FPTRISMUL<S>(denormal, 1, s), rp, minus | 1, U | X),        // rounded as a positive value
      ROW(FPTRISMUL<S>(largest, 1, s), rp, minus | infinity, O | X),  // here too
      ROW(FPTRISMUL<S>(largest, 1, s), rm, minus | largest, O | X),
      ROW(FPTRISMUL<H>(0x7bff, 1, s), 0, 0xfc00, O | X),
      ROW(select(quiet, 3), 0, minus | one, 0),
      ROW(select(two, 1), 0, one, 0),
      ROW(select(signalling, 2), 0, minus | signalling, 0),
      ROW(select(two, 0xfffffffc), 0, two, 0),
      ROW(FPTRISSEL<H>(0, 3), 0, 0xbc00, 0),
      ROW(FPTRISSEL<D>(0, 1), 0, 0x3ff0000000000000, 0),
      ROW(FPEXPA<H>(0), 0, 0, 0),
      ROW(FPEXPA<S>(0), 0, 0, 0),
      ROW(FPEXPA<D>(0), 0, 0, 0),
      ROW(FPEXPA<H>(0xffff), 0, 0x7c00 | 0x3d4, 0),
      ROW(FPEXPA<H>(15 << 5 | 1), 0, 0x3c16, 0),
      ROW(FPEXPA<S>(0xffffc000 | 127 << 6 | 1), 0, one | 0x164d2, 0),
      ROW(FPEXPA<D>(~0ul << 17 | 1023 << 6 | 1), 0, 0x3ff0000000000000 | 0x2c9a3e778061, 0),
  });
  EXPECT_EQ(UnsignedRecipEstimate(0x7fffffff, 0), 0xffffffffu);
  EXPECT_EQ(UnsignedRecipEstimate(0x80000000, 0), 0xff800000u);
  EXPECT_EQ(UnsignedRecipEstimate(0xffffffff, 1), 0x80000000u);
  EXPECT_EQ(UnsignedRSqrtEstimate(0x3fffffff, 0), 0xffffffffu);
  EXPECT_EQ(UnsignedRSqrtEstimate(0x40000000, 0), 0xff800000u);
  EXPECT_EQ(UnsignedRSqrtEstimate(0x80000000, 0), 0x80000000u | 105u << 23);
  EXPECT_EQ(UnsignedRSqrtEstimate(0xffffffff, 0), 0x80000000u);
}

TEST(FpCompare, Edges) {
  expect({
      ROW(FPCompareEQ<S>(quiet, quiet, s), 0, false, 0),
      ROW(FPCompareEQ<S>(signalling, quiet, s), 0, false, I),
      ROW(FPCompareGE<S>(quiet, one, s), 0, false, I),
      ROW(FPCompareGT<S>(one, quiet, s), 0, false, I),
      ROW(FPCompareGE<S>(0, minus, s), 0, true, 0),
      ROW(FPCompareGT<S>(0, minus, s), 0, false, 0),
      ROW(FPCompareGE<S>(minus, 0, s), 0, true, 0),
      ROW(FPCompareEQ<S>(0, minus, s), 0, true, 0),
      ROW(FPCompareEQ<S>(denormal, 0, s), 0, false, 0),
      ROW(FPCompareEQ<S>(denormal, 0, s), fz, true, F),
      ROW(FPCompareEQ<S>(minus | denormal, denormal + 1, s), fz, true, F),
      ROW(FPCompareGT<S>(denormal, minus | denormal, s), fz, false, F),
      ROW(FPCompareGT<S>(denormal, minus | denormal, s), 0, true, 0),
      ROW(FPCompareEQ<H>(0x0001, 0, s), fz16, true, 0),
      ROW(FPCompareEQ<H>(0x0001, 0, s), fz, false, 0),
      ROW(FPCompareUN<S>(signalling, one, s), 0, true, I),
      ROW(FPCompareUN<S>(one, quiet, s), 0, true, 0),
      ROW(FPCompareUN<S>(denormal, quiet, s), fz, true, F),
      ROW(FPCompareUN<S>(denormal, one, s), fz, false, F),
      ROW(FPCompareUN<S>(infinity, one, s), 0, false, 0),
      ROW(FPCompareGT<S>(minus | one, minus | two, s), 0, true, 0),
      ROW(FPCompareGE<S>(minus | infinity, minus | largest, s), 0, false, 0),
      ROW(static_cast<unsigned>(FPCompare<S>(quiet, one, false, s)), 0, 3, 0),
      ROW(static_cast<unsigned>(FPCompare<S>(quiet, one, true, s)), 0, 3, I),
      ROW(static_cast<unsigned>(FPCompare<S>(signalling, one, false, s)), 0, 3, I),
      ROW(static_cast<unsigned>(FPCompare<D>(0, 1ul << 63, false, s)), 0, 6, 0),
      ROW(static_cast<unsigned>(FPCompare<S>(one, two, false, s)), 0, 8, 0),
      ROW(static_cast<unsigned>(FPCompare<S>(minus | one, minus | two, false, s)), 0, 2, 0),
      ROW(FPMax<S>(quiet, one, s), 0, quiet, 0),
      ROW(FPMaxNum<S>(quiet, one, s), 0, one, 0),
      ROW(FPMinNum<S>(one, minus | quiet, s), 0, one, 0),
      ROW(FPMaxNum<S>(signalling, one, s), 0, signalling | 0x400000, I),
      ROW(FPMaxNum<S>(quiet, signalling, s), 0, signalling | 0x400000, I),
      ROW(FPMaxNum<S>(quiet, minus | infinity, s), 0, minus | infinity, 0),
      ROW(FPMinNum<S>(quiet, infinity, s), 0, infinity, 0),
      ROW(FPMaxNum<S>(quiet, minus | quiet, s), 0, quiet, 0),
      ROW(FPMaxNum<S>(quiet, denormal, s), fz, 0, F),
      ROW(FPMax<S>(one, quiet, s), dn, nan, 0),
      ROW(FPMin<S>(minus, 0, s), 0, minus, 0),
      ROW(FPMin<S>(0, minus, s), 0, minus, 0),
      ROW(FPMax<S>(minus, 0, s), 0, 0, 0),
      ROW(FPMax<S>(0, minus, s), 0, 0, 0),
      ROW(FPMax<S>(denormal, 0, s), fz, 0, F),
      ROW(FPMax<S>(minus | denormal, minus, s), fz, minus, F),
      ROW(FPMin<S>(denormal, one, s), fz, 0, F),
      ROW(FPMin<S>(denormal, one, s), 0, denormal, 0),
      ROW(FPMax<H>(0x0001, 0x8000, s), fz16, 0, 0),
      ROW(FPMin<D>(0xfff0000000000000, 0xffefffffffffffff, s), 0, 0xfff0000000000000, 0),
  });
}

}  // namespace
