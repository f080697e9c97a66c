// The constant tables from their definitions, and the iterations of division and square root against the exact quotient
// and root.
#include "sve/fplib/tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "operands.h"
#include "reference.h"

namespace {

using operands::Failures;
using operands::hex;
using operands::Random;

// A natural number of any size, least word first.
using Natural = std::vector<std::uint64_t>;

Natural times(Natural number, std::uint64_t factor) {
  sve::Uint128 carry = 0;
  for (std::uint64_t& word : number) {
    carry += static_cast<sve::Uint128>(word) * factor;
    word = static_cast<std::uint64_t>(carry);
    carry >>= 64;
  }
  if (carry != 0) number.push_back(static_cast<std::uint64_t>(carry));
  return number;
}

// Compares base^exponent with 2^power: the power of two has one bit, so a bit length and that bit decide.
int compare_power(std::uint64_t base, int exponent, int power) {
  Natural x = {1};
  for (int i = 0; i < exponent; ++i) x = times(x, base);
  const int bits = static_cast<int>(64 * (x.size() - 1)) + std::bit_width(x.back());
  if (bits != power + 1) return bits < power + 1 ? -1 : 1;
  const bool one_bit = std::has_single_bit(x.back()) &&
                       std::all_of(x.begin(), x.end() - 1, [](std::uint64_t word) { return word == 0; });
  return one_bit ? 0 : 1;
}

TEST(Natural, ComparesPowers) {
  EXPECT_EQ(compare_power(2, 64, 64), 0);
  EXPECT_EQ(compare_power(0xffffffffffffffff, 3, 192), -1);
  EXPECT_EQ(compare_power(1ul << 63 | 1, 2, 126), 1);
  EXPECT_EQ(compare_power(3, 40, 63), 1);  // 3^40 is just above 2^63.39
  EXPECT_EQ(compare_power(3, 40, 64), -1);
}

// Entry i is nearest to (2^(i/n) - 1) * 2^m exactly when 2^m + entry - 1/2 < 2^(i/n + m) < 2^m + entry + 1/2; both
// sides are doubled and raised to the power n, where all is integral.
template <class T>
void expect_exponentials(int n) {
  const int m = sve::Format<T>::fraction_bits;
  for (int i = 0; i < n; ++i) {
    const std::uint64_t doubled = (std::uint64_t{1} << (m + 1)) + 2 * std::uint64_t{sve::exponential_fractions<T>[i]};
    EXPECT_EQ(compare_power(doubled - 1, n, i + (m + 1) * n), -1) << i;
    EXPECT_EQ(compare_power(doubled + 1, n, i + (m + 1) * n), 1) << i;
    EXPECT_EQ(FPEXPA<T>(static_cast<T>(i)), sve::exponential_fractions<T>[i]);
    const T bias = static_cast<T>(sve::Format<T>::bias * n);
    EXPECT_EQ(FPEXPA<T>(static_cast<T>(bias + i)),
              static_cast<T>(T{sve::Format<T>::bias} << m | sve::exponential_fractions<T>[i]));
  }
}

TEST(Tables, ExponentialFractions) {
  expect_exponentials<unsigned short>(32);
  expect_exponentials<unsigned int>(64);
  expect_exponentials<unsigned long>(64);
  EXPECT_EQ(sve::exponential_fractions<unsigned short>[1], 0x16);
  EXPECT_EQ(sve::exponential_fractions<unsigned short>[31], 0x3d4);
  EXPECT_EQ(sve::exponential_fractions<unsigned int>[1], 0x164d2u);
  EXPECT_EQ(sve::exponential_fractions<unsigned int>[63], 0x7d3e0cu);
  EXPECT_EQ(sve::exponential_fractions<unsigned long>[1], 0x2c9a3e778061ul);
  EXPECT_EQ(sve::exponential_fractions<unsigned long>[63], 0xfa7c1819e90d8ul);
}

TEST(Tables, ReciprocalSquareRoots) {
  for (int i = 0; i < 256; ++i) {
    const long double x = i < 128 ? (i + 128.5L) / 512 : (i + 0.5L) / 256;
    const long double y = 256 / std::sqrt(x) + 0.5L;
    EXPECT_EQ(sve::recip_sqrt_estimate_table[static_cast<std::size_t>(i)], static_cast<int>(y) - 256) << i;
    EXPECT_GT(y - std::floor(y), 1e-6L) << "too near a boundary for this precision";
    EXPECT_EQ(static_cast<int>(recip_sqrt_estimate(static_cast<double>(x)) * 256), static_cast<int>(y)) << i;
  }
  EXPECT_EQ(sve::recip_sqrt_estimate_table[0], 255);
  EXPECT_EQ(sve::recip_sqrt_estimate_table[127], 106);
  EXPECT_EQ(sve::recip_sqrt_estimate_table[128], 105);
  EXPECT_EQ(sve::recip_sqrt_estimate_table[255], 0);
}

// The scalar helpers and the operations on elements are the same estimates.
TEST(Tables, ScalarEstimatesAgreeWithTheOperations) {
  for (unsigned i = 0; i < 512; ++i) {
    const unsigned long element = 0x3fe0000000000000 | static_cast<unsigned long>(i) << 43;  // [1/2, 1)
    const double a = std::bit_cast<double>(element);
    FPSCR fpscr = 0;
    EXPECT_EQ(std::bit_cast<double>(FPRecipEstimate(element, fpscr)), recip_estimate(a));
    EXPECT_EQ(std::bit_cast<double>(FPRSqrtEstimate(element, fpscr)), recip_sqrt_estimate(a));
    EXPECT_EQ(std::bit_cast<double>(FPRSqrtEstimate(element - 0x10000000000000, fpscr)), recip_sqrt_estimate(a / 2));
    const unsigned long fixed = 0x80000000ul | static_cast<unsigned long>(i) << 22;
    EXPECT_EQ(UnsignedRecipEstimate(fixed, 0), static_cast<unsigned long>(recip_estimate(a) * 0x80000000l));
    EXPECT_EQ(UnsignedRSqrtEstimate(fixed, 0), static_cast<unsigned long>(recip_sqrt_estimate(a) * 0x80000000l));
    EXPECT_EQ(UnsignedRSqrtEstimate(fixed >> 1, 0),
              static_cast<unsigned long>(recip_sqrt_estimate(a / 2) * 0x80000000l));
  }
}

TEST(Tables, Coefficients) {
  const auto value = [](unsigned long bits) { return std::bit_cast<double>(bits); };
  // The leading terms of both polynomials are those of the series, to the precision of a minimax fit.
  const auto& table = sve::trigonometric_coefficients<unsigned long>;
  double sine = 1, cosine = 1;
  for (int i = 0; i < 7; ++i) {
    EXPECT_NEAR(value(table[i]) / sine, 1, i < 5 ? 1e-3 : 2e-2) << i;
    EXPECT_NEAR(value(table[8 + i]) / cosine, 1, i < 6 ? 1e-3 : 2e-2) << i;
    sine /= -(2 * i + 2) * (2 * i + 3);
    cosine /= -(2 * i + 1) * (2 * i + 2);
  }
  // Single and half precision keep the same values, fitted for fewer terms.
  for (int i = 0; i < 16; ++i) {
    const auto narrow = sve::trigonometric_coefficients<unsigned int>[i];
    if (narrow != 0) {
      EXPECT_NEAR(std::bit_cast<float>(narrow) / value(table[i]), 1, 2e-2) << i;
    }
    FPSCR fpscr = 0;
    const auto half = sve::trigonometric_coefficients<unsigned short>[i];
    if (half != 0) {
      const auto wide = FPConvert<unsigned short, unsigned long>(half, FPRounding_TiesEven, fpscr);
      EXPECT_NEAR(value(wide) / value(table[i]), 1, 3e-2) << i;
    }
  }
}

template <class T>
void expect_root(Failures& failures, T a, FPSCR fpscr) {
  FPSCR working = fpscr;
  const T root = FPSqrt(a, working);
  const auto exact = reference::sqrt(a, fpscr);
  if (root != exact.value || working != (fpscr | static_cast<FPSCR>(exact.flags)))
    failures.add("the root of " + hex(a) + " under " + hex(fpscr));
}

template <class T>
void expect_quotient(Failures& failures, T a, T b, FPSCR fpscr) {
  FPSCR working = fpscr;
  const T quotient = FPDiv(a, b, working);
  const auto exact = reference::div(a, b, fpscr);
  if (quotient != exact.value || working != (fpscr | static_cast<FPSCR>(exact.flags)))
    failures.add(hex(a) + " / " + hex(b) + " under " + hex(fpscr));
}

// A root's correction is right only if the iteration never comes out above the root. Both parities of the exponent and
// every fraction are all the iteration sees; downwards shows the floor, upwards whether it was exact.
TEST(Iteration, EveryRootOfSinglePrecision) {
  Failures failures;
  std::uint64_t count = 0;
  const unsigned step = operands::cases(0) != 0 ? 1 : 16;
  const unsigned first = step == 1 ? 0 : static_cast<unsigned>(Random(5).below(step));
  for (unsigned fraction = first; fraction < 1u << 24 && !failures.enough(); fraction += step, count += 2) {
    expect_root(failures, 0x3f000000 + fraction, 3u << 22);
    expect_root(failures, 0x3f000000 + fraction, 1u << 22);
  }
  operands::report("roots of single precision", count);
}

TEST(Iteration, EveryRootOfHalfPrecision) {
  Failures failures;
  for (unsigned a = 0; a < 0x10000; ++a) {
    for (FPSCR mode = 0; mode < 4; ++mode) expect_root(failures, static_cast<unsigned short>(a), mode << 22);
  }
}

TEST(Iteration, EveryQuotientOfHalfFractions) {
  Failures failures;
  const unsigned step = operands::cases(0) != 0 ? 1 : 7;
  for (unsigned a = 0; a < 1024 && !failures.enough(); ++a)
    for (unsigned b = a % step; b < 1024; b += step) {
      const auto x = static_cast<unsigned short>(0x3c00 | a), y = static_cast<unsigned short>(0x3c00 | b);
      expect_quotient(failures, x, y, 3u << 22);
      expect_quotient(failures, x, y, 1u << 22);
    }
}

// The hardest cases of the last bit: quotients and roots that are exact, and their neighbours by one unit.
TEST(Iteration, ExactAndNearlyExactDoubles) {
  Failures failures;
  Random random(9);
  std::uint64_t count = 0;
  const std::uint64_t wanted = operands::cases(400000) / 12;
  for (; count < wanted && !failures.enough(); ++count) {
    // A quotient of few bits by a divisor of any number of bits fits when their product does.
    const int bits = 1 + static_cast<int>(random.below(52));
    const std::uint64_t b = random() >> (11 + random.below(static_cast<std::uint64_t>(bits))) | 1;
    const std::uint64_t q = random() >> (64 - bits) | 1;
    FPSCR scratch = 0;
    const auto divisor = fplibFixedToFP<unsigned long>(b, 0, true, FPRounding_TiesEven, scratch);
    const auto quotient = fplibFixedToFP<unsigned long>(q, 0, true, FPRounding_TiesEven, scratch);
    const auto product = FPMul(divisor, quotient, scratch);
    const auto square = FPMul(quotient, quotient, scratch);
    const auto wide_square = FPMul(divisor, divisor, scratch);
    for (const unsigned long ulp : {0ul, 1ul, ~0ul}) {
      const FPSCR mode = static_cast<FPSCR>(random.below(4)) << 22;
      expect_quotient(failures, product + ulp, divisor, mode);
      expect_quotient(failures, product + ulp, quotient, mode);
      expect_root(failures, square + ulp, mode);
      expect_root(failures, wide_square + ulp, mode);
    }
  }
  operands::report("exact and nearly exact quotients and roots", 12 * count);
}

// The fractions at which the reciprocal and the seed of the root change: both ends of every interval of the first
// estimate that the leading bits give, or a stride through them.
TEST(Iteration, EndsOfIntervals) {
  Failures failures;
  Random random(10);
  std::uint64_t count = 0;
  for (unsigned long high = 0; high < 1u << 14 && !failures.enough(); ++high)
    for (const unsigned long low : {0ul, 1ul, 0x3fffffffful, 0x3ffffffffful, 0x200000000ul}) {
      const unsigned long fraction = (high << 38 | low) & 0xfffffffffffff;
      const FPSCR mode = static_cast<FPSCR>(random.below(4)) << 22;
      const unsigned long other = random() & 0xfffffffffffff;
      expect_quotient(failures, 0x3ff0000000000000 | other, 0x3ff0000000000000 | fraction, mode);
      expect_quotient(failures, 0x3ffffffffffffffful, 0x3ff0000000000000 | fraction, mode);
      expect_root(failures, 0x3ff0000000000000 | fraction, mode);
      expect_root(failures, 0x3fe0000000000000 | fraction, mode);
      count += 4;
    }
  operands::report("ends of intervals", count);
}

}  // namespace
