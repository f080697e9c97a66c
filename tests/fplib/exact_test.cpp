// Every operation against the slow exact reference: boundary grids crossed, and seeded random operands under random
// control words. Results and flags are compared to the last bit.
#include <gtest/gtest.h>

#include "checks.h"

namespace {

using checks::check_compares;
using checks::check_from_fixed;
using checks::check_muladd;
using checks::check_one_operand;
using checks::check_scale;
using checks::check_two_operands;
using operands::Failures;
using operands::hex;
using operands::Random;

unsigned widths_run = 0;

template <class T>
class ExactTest : public testing::Test {
 protected:
  ExactTest() { widths_run |= sizeof(T); }
};
using Types = testing::Types<unsigned short, unsigned int, unsigned long>;
TYPED_TEST_SUITE(ExactTest, Types);

constexpr FPSCR fz_both = sve::fpscr_fz | sve::fpscr_fz16;

TYPED_TEST(ExactTest, GridOfTwoOperands) {
  using T = TypeParam;
  Failures failures;
  std::uint64_t count = 0;
  const auto values = operands::grid<T>();
  // Every rounding mode with and without flushing, spread over the pairs so that neighbours differ in their controls.
  Random random(1);
  for (const T a : values)
    for (const T b : values) {
      const FPSCR mode = static_cast<FPSCR>(random.below(4)) << 22;
      const FPSCR other = ((mode >> 22) + 1 + static_cast<FPSCR>(random.below(3))) % 4 << 22;
      for (const FPSCR fpscr : {mode, other | fz_both}) {
        count += check_two_operands(failures, a, b, fpscr);
        count += check_compares(failures, a, b, fpscr | (random() & sve::fpscr_dn));
      }
      if (failures.enough()) return;
    }
  operands::report("grid of two operands", count);
}

TYPED_TEST(ExactTest, GridOfThreeOperands) {
  using T = TypeParam;
  Failures failures;
  std::uint64_t count = 0;
  const auto values = operands::grid<T>(true);
  for (const T a : values)
    for (const T b : values)
      for (const T c : values) {
        for (FPSCR mode = 0; mode < 4; ++mode)
          for (const FPSCR fz : {FPSCR{0}, fz_both, sve::fpscr_dn})
            count += check_muladd(failures, a, b, c, mode << 22 | fz);
        if (failures.enough()) return;
      }
  operands::report("grid of three operands", count);
}

TYPED_TEST(ExactTest, GridOfOneOperand) {
  using T = TypeParam;
  Failures failures;
  std::uint64_t count = 0;
  for (const T a : operands::grid<T>())
    for (FPSCR mode = 0; mode < 4; ++mode) {
      for (const FPSCR controls : {FPSCR{0}, fz_both, sve::fpscr_fz, sve::fpscr_dn, sve::fpscr_ahp,
                                   sve::fpscr_ahp | fz_both | sve::fpscr_dn}) {
        const FPSCR fpscr = mode << 22 | controls;
        for (const int fbits : {0, 1, 16, 64}) count += check_one_operand(failures, a, fpscr, fbits);
        for (const long by : {0l, 1l, -1l, 24l, -24l, 60l, -61l, 300l, -301l, 3000l, -3001l, 100000l, -100000l})
          count += check_scale(failures, a, by, fpscr);
        if (failures.enough()) return;
      }
    }
  for (int bit = 0; bit < 64; ++bit) {
    for (const std::uint64_t low : {0ul, 1ul, ~0ul, 1ul << 63})
      for (const FPSCR fpscr : {FPSCR{0}, fz_both | sve::fpscr_ahp})
        for (const int fbits : {0, 1, 16, 32, 64})
          count += check_from_fixed<T>(failures, (1ul << bit) + low, fpscr, fbits);
    if (failures.enough()) return;
  }
  operands::report("grid of one operand", count);
}

TYPED_TEST(ExactTest, RandomOperands) {
  using T = TypeParam;
  Failures failures;
  Random random(sizeof(T));
  std::uint64_t count = 0;
  const std::uint64_t wanted = operands::cases(2000000);
  T a = 1;
  while (count < wanted && !failures.enough()) {
    a = operands::random_value<T>(random, a);
    const T b = operands::random_value<T>(random, a);
    // The addend of a fused operation is often near the product.
    FPSCR scratch = 0;
    const T product = FPMul(a, b, scratch);
    const T c = operands::random_value<T>(random, random() & 1 ? product : b);
    const FPSCR fpscr = operands::random_controls(random);
    const int fbits = random() & 3 ? 0 : static_cast<int>(random.below(65));
    count += check_two_operands(failures, a, b, fpscr) + check_compares(failures, a, b, fpscr);
    for (int i = 0; i < 4; ++i)
      count += check_muladd(failures, static_cast<T>(i ? operands::random_value<T>(random, product) : c), a, b, fpscr);
    switch (random.below(4)) {
      case 0:
        count += check_one_operand(failures, a, fpscr, fbits);
        break;
      case 1:
        count += check_from_fixed<T>(failures, random() >> random.below(64), fpscr, fbits);
        break;
      case 2:
        count += check_scale(failures, a, static_cast<long>(random() >> random.below(64)), fpscr);
        break;
      default:
        break;
    }
  }
  operands::report("random operands against the exact reference", count);
}

// The fused kernels take a mode word and any scale; the scale moves the rounding of results at both ends of the range.
TYPED_TEST(ExactTest, ScaledFusedKernels) {
  using T = TypeParam;
  Failures failures;
  Random random(77);
  const auto kernel = [](T a, T b, T c, int scale, int mode, int* flags) {
    if constexpr (sizeof(T) == 2) return fp16_muladd(a, b, c, scale, mode, flags);
    if constexpr (sizeof(T) == 4) return fp32_muladd(a, b, c, scale, mode, flags);
    if constexpr (sizeof(T) == 8) return fp64_muladd(a, b, c, scale, mode, flags);
  };
  std::uint64_t count = 0;
  T a = 1;
  for (; count < 100000 && !failures.enough(); ++count) {
    a = operands::random_value<T>(random, a);
    const T b = operands::random_value<T>(random, a), c = operands::random_value<T>(random, b);
    const FPSCR fpscr = operands::random_controls(random) & operands::control_bits;
    // A result that is below the range before scaling is no more than a sticky bit, so it is only scaled down.
    const int scale = -static_cast<int>(random.below(40));
    const auto expected = reference::muladd(a, b, c, fpscr, scale);
    int flags = sve::flag_dzc;
    const T value = kernel(a, b, c, scale, sve::mode_of(fpscr), &flags);
    if (value != expected.value || flags != (expected.flags | sve::flag_dzc)) {
      failures.add(hex(a) + " + " + hex(b) + " * " + hex(c) + " scaled by " + std::to_string(scale) + " gives " +
                   hex(value) + ", not " + hex(expected.value));
    }
  }
  operands::report("scaled fused kernels", count);
}

TEST(ExactTestGuard, RanForEveryFormat) { EXPECT_EQ(widths_run, 2u | 4u | 8u); }

}  // namespace
