// Half precision exhaustively: every value through every operation of one operand; pairs of values against the host's
// double arithmetic, in which sums and products of halves are exact and quotients decide every rounding to half.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "checks.h"

namespace {

using operands::Failures;
using operands::hex;
using operands::Random;
using Half = unsigned short;
using Result = reference::Result<Half>;

const bool nightly = operands::cases(0) != 0;

// Every rounding with and without flushing; the other controls vary from value to value, or nightly all of them count.
TEST(EveryHalf, OneOperand) {
  Failures failures;
  Random random(30);
  std::uint64_t count = 0;
  constexpr FPSCR others = sve::fpscr_fz | sve::fpscr_dn | sve::fpscr_ahp;
  for (FPSCR word = 0; word < (nightly ? 64 : 8); ++word) {
    const FPSCR counted = (word & 3) << 22 | (word >> 2 & 1) << 19 | (word >> 3) << 24;
    for (unsigned a = 0; a < 0x10000 && !failures.enough(); ++a) {
      const FPSCR fpscr = nightly ? counted : counted | (random() & others);
      count += checks::check_one_operand(failures, static_cast<Half>(a), fpscr, 0);
    }
  }
  operands::report("every half value", count);
}

TEST(EveryHalf, ExponentsSquaresAndSigns) {
  Failures failures;
  for (const FPSCR fpscr :
       {FPSCR{0}, sve::fpscr_fz16, sve::fpscr_dn, sve::fpscr_fz | sve::fpscr_ahp, 1u << 22, 2u << 22, 3u << 22}) {
    for (unsigned bits = 0; bits < 0x10000 && !failures.enough(); ++bits) {
      const Half a = static_cast<Half>(bits);
      const unsigned field = bits >> 10 & 31, fraction = bits & 0x3ff;
      const Half sign = a & 0x8000;
      const bool nan = field == 31 && fraction != 0;
      const Half quiet = fpscr & sve::fpscr_dn ? 0x7e00 : static_cast<Half>(a | 0x200);
      const int signals = nan && !(a & 0x200) ? sve::flag_ioc : 0;
      Result inverted = {static_cast<Half>(sign | (field == 0 ? 30 << 10 : (31 - field) << 10)), 0};
      if (nan) inverted = {quiet, signals};
      checks::check(failures, "FPRecpX", inverted, fpscr, FPRecpX<Half>, a);
      for (const Half op2 : {Half{0}, Half{1}, Half{0xfffe}, Half{0x7e01}}) {
        Result square = reference::mul<Half>(a & 0x7fff, a & 0x7fff, fpscr);
        if (!nan) square.value |= static_cast<Half>(op2 << 15);
        if (nan) square = {quiet, signals};
        checks::check(failures, "FPTRISMUL", square, fpscr, FPTRISMUL<Half>, a, op2);
      }
      const bool flushed = field == 0 && (fpscr & sve::fpscr_fz16);
      const Result canonical = nan ? Result{quiet, signals} : Result{flushed ? sign : a, 0};
      checks::check(failures, "FPProcess16", canonical, fpscr, FPProcess16, a);
      for (short by : {-61, -24, -1, 0, 1, 10, 61}) checks::check_scale(failures, a, by, fpscr);
    }
  }
}

// The values of all halves as doubles, made from their fields.
const std::unique_ptr<double[]> values = [] {
  auto table = std::make_unique<double[]>(0x10000);
  for (unsigned bits = 0; bits < 0x10000; ++bits) {
    const int field = bits >> 10 & 31, fraction = bits & 0x3ff;
    const double magnitude = field ? std::ldexp(1024 + fraction, field - 25) : std::ldexp(fraction, -24);
    table[bits] = bits & 0x8000 ? -magnitude : magnitude;
  }
  return table;
}();

// Rounds a double that is not zero to half. The host rounds to nearest even all the while.
Result round_double(double x, int rounding, bool flush) {
  const bool negative = x < 0;
  const Half sign = negative ? 0x8000 : 0;
  const double magnitude = std::fabs(x);
  const bool tiny = magnitude < 0x1p-14;
  if (flush && tiny) return {sign, sve::flag_ufc};
  const int exponent = tiny ? -14 : static_cast<int>(std::bit_cast<std::uint64_t>(magnitude) >> 52) - 1023;
  // The magnitude in units of the last place.
  const double scaled = magnitude * std::bit_cast<double>(static_cast<std::uint64_t>(1023 + 10 - exponent) << 52);
  const bool up = rounding == (negative ? FPRounding_NegInf : FPRounding_PosInf);
  const double rounded = rounding == FPRounding_TiesEven ? std::nearbyint(scaled)
                         : up                            ? std::ceil(scaled)
                                                         : std::floor(scaled);
  const auto units = static_cast<unsigned>(rounded);
  const unsigned bits = (static_cast<unsigned>(exponent + 14) << 10) + units;
  if (bits >= 0x7c00) {
    const bool infinite = rounding == FPRounding_TiesEven || up;
    return {static_cast<Half>(sign | (infinite ? 0x7c00 : 0x7bff)), sve::flag_ofc | sve::flag_ixc};
  }
  const bool inexact = rounded != scaled;
  return {static_cast<Half>(sign | bits), (inexact ? sve::flag_ixc : 0) | (inexact && tiny ? sve::flag_ufc : 0)};
}

bool agrees(Result expected, Half value, FPSCR before, FPSCR after) {
  return value == expected.value && after == (before | static_cast<FPSCR>(expected.flags));
}

template <class Operation>
bool expect_result(Result expected, Half a, Half b, FPSCR fpscr, Operation operation) {
  FPSCR working = fpscr;
  const Half value = operation(a, b, working);
  return agrees(expected, value, fpscr, working);
}

// A pair that the doubles decide: finite, not zero, and not to be flushed. All others go to the exact reference.
bool plain(Half a, FPSCR fpscr) {
  const unsigned magnitude = a & 0x7fff;
  return magnitude != 0 && magnitude < 0x7c00 && !(magnitude < 0x400 && (fpscr & sve::fpscr_fz16));
}

std::uint64_t check_pair(Failures& failures, Half a, Half b, FPSCR fpscr) {
  if (!plain(a, fpscr) || !plain(b, fpscr))
    return checks::check_two_operands(failures, a, b, fpscr) + checks::check_compares(failures, a, b, fpscr);
  const double x = values[a], y = values[b];
  const int rounding = static_cast<int>(fpscr >> 22 & 3);
  const bool flush = fpscr & sve::fpscr_fz16;
  const auto rounded = [&](double exact) {
    if (exact == 0) return Result{static_cast<Half>(rounding == FPRounding_NegInf ? 0x8000 : 0), 0};
    return round_double(exact, rounding, flush);
  };
  bool good = expect_result(rounded(x + y), a, b, fpscr, FPAdd<Half>);
  good &= expect_result(rounded(x - y), a, b, fpscr, FPSub<Half>);
  good &= expect_result(rounded(x * y), a, b, fpscr, FPMul<Half>);
  good &= expect_result(rounded(x / y), a, b, fpscr, FPDiv<Half>);
  good &= expect_result({x > y ? a : b, 0}, a, b, fpscr, FPMax<Half>);
  good &= expect_result({x < y ? a : b, 0}, a, b, fpscr, FPMin<Half>);
  FPSCR working = fpscr;
  good &= FPCompareEQ(a, b, working) == (x == y);
  good &= FPCompareGE(a, b, working) == (x >= y);
  good &= FPCompareGT(a, b, working) == (x > y);
  good &= !FPCompareUN(a, b, working) && working == fpscr;
  if (!good) failures.add(hex(a) + " and " + hex(b) + " under " + hex(fpscr));
  return 10;
}

FPSCR pair_controls(std::uint64_t bits) {
  return static_cast<FPSCR>(bits & 3) << 22 | ((bits >> 2 & 7) == 0 ? sve::fpscr_fz16 : 0) |
         ((bits >> 5 & 7) == 0 ? sve::fpscr_dn : 0);
}

TEST(HalfPairs, Random) {
  Failures failures;
  Random random(31);
  std::uint64_t count = 0;
  const std::uint64_t wanted = operands::cases(10000000);
  while (count < wanted && !failures.enough()) {
    const std::uint64_t bits = random();
    count += check_pair(failures, static_cast<Half>(bits), static_cast<Half>(bits >> 16), pair_controls(bits >> 32));
  }
  operands::report("random half pairs", count);
}

// All 2^32 pairs, each under one control word that changes from pair to pair with the seed: for the nightly run, since
// it takes minutes.
TEST(HalfPairs, DISABLED_All) {
  Failures failures;
  Random random(32);
  std::uint64_t count = 0;
  for (unsigned a = 0; a < 0x10000 && !failures.enough(); ++a)
    for (unsigned b = 0; b < 0x10000; ++b) {
      count += check_pair(failures, static_cast<Half>(a), static_cast<Half>(b), pair_controls(random()));
    }
  operands::report("all half pairs", count);
}

}  // namespace
