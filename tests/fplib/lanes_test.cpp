// The operations on vectors of lanes against the same operations on one element: a lane that is done has the value and
// the flags of the element, under every control word that rounds to nearest; a lane may be pending only for a reason.
#include <gtest/gtest.h>

#include <array>

#include "operands.h"

namespace {

using operands::Failures;
using operands::hex;
using operands::Random;
using sve::Lanes;
using sve::LaneStatus;
using sve::magnitude_of;

unsigned widths_run = 0;

template <class T>
class LanesTest : public testing::Test {
 protected:
  LanesTest() { widths_run |= sizeof(T); }
};
using Types = testing::Types<unsigned short, unsigned int, unsigned long>;
TYPED_TEST_SUITE(LanesTest, Types);

struct Tally {
  std::uint64_t done = 0, pending = 0;
};

template <class T>
using Block = std::array<T, Lanes<T>::count>;

constexpr auto controls_of = [](Random& random) { return operands::random_controls(random) & ~(3u << 22); };

// Runs `operation` on a block of lanes and on each element, and compares the lanes that are done.
template <class T, class Operation, class... Blocks>
void check(Failures& failures, Tally& tally, const char* name, FPSCR fpscr, Operation operation,
           const Blocks&... blocks) {
  LaneStatus<T> status;
  Block<T> results;
  operation(Lanes<T>::load(blocks.data())..., status).store(results.data());
  for (std::size_t i = 0; i < results.size(); ++i) {
    if (status.pending[i]) {
      ++tally.pending;
      continue;
    }
    ++tally.done;
    FPSCR working = fpscr;
    const T expected = operation(blocks[i]..., working);
    const int flags = status.inexact[i] ? sve::flag_ixc : 0;
    if (results[i] == expected && operands::flags_equal(fpscr, working, flags)) continue;
    std::string text = std::string(name) + "(";
    ((text += hex(blocks[i]) + " "), ...);
    failures.add(text + ") under " + hex(fpscr) + " gives " + hex(results[i]) + (flags ? " inexact" : " exact") +
                 ", not " + hex(expected) + " and " + hex(working & ~fpscr));
    if (failures.enough()) return;
  }
}

// The same for a compare.
template <class T, class Compare>
void check_truth(Failures& failures, Tally& tally, const char* name, FPSCR fpscr, Compare compare, const Block<T>& as,
                 const Block<T>& bs) {
  LaneStatus<T> status;
  const auto truth = compare(Lanes<T>::load(as.data()), Lanes<T>::load(bs.data()), status);
  for (std::size_t i = 0; i < as.size(); ++i) {
    if (status.pending[i]) {
      ++tally.pending;
      continue;
    }
    ++tally.done;
    FPSCR working = fpscr;
    const bool expected = compare(as[i], bs[i], working);
    if ((truth.bits[i] != 0) == expected && working == fpscr) continue;
    failures.add(std::string(name) + "(" + hex(as[i]) + " " + hex(bs[i]) + ") under " + hex(fpscr) + " is not " +
                 (expected ? "true" : "false") + " or raises " + hex(working & ~fpscr));
    if (failures.enough()) return;
  }
}

#define COMPARE_LANES(call) [](auto a, auto b, auto& s) { return call; }
#define ON_LANES(call) [&](auto a, auto b, auto c, auto& s) { return (void)a, (void)b, (void)c, call; }

template <class T>
void check_all(Failures& failures, Tally& tally, FPSCR fpscr, const Block<T>& as, const Block<T>& bs,
               const Block<T>& cs, unsigned long index) {
  check<T>(failures, tally, "FPAdd", fpscr, ON_LANES(FPAdd(a, b, s)), as, bs, cs);
  check<T>(failures, tally, "FPSub", fpscr, ON_LANES(FPSub(a, b, s)), as, bs, cs);
  check<T>(failures, tally, "FPMul", fpscr, ON_LANES(FPMul(a, b, s)), as, bs, cs);
  check<T>(failures, tally, "FPMulX", fpscr, ON_LANES(FPMulX(a, b, s)), as, bs, cs);
  check<T>(failures, tally, "FPMulAdd", fpscr, ON_LANES(FPMulAdd(a, b, c, s)), as, bs, cs);
  check<T>(failures, tally, "FPMulAdd, negated", fpscr, ON_LANES(FPMulAdd(FPNeg(a), b, FPNeg(c), s)), as, bs, cs);
  check<T>(failures, tally, "FPRecipStepFused", fpscr, ON_LANES(FPRecipStepFused(a, b, s)), as, bs, cs);
  check<T>(failures, tally, "FPRSqrtStepFused", fpscr, ON_LANES(FPRSqrtStepFused(a, b, s)), as, bs, cs);
  check<T>(failures, tally, "FPRecpX", fpscr, ON_LANES(FPRecpX(a, s)), as, bs, cs);
  check<T>(failures, tally, "FPTRISMUL", fpscr, ON_LANES(FPTRISMUL(a, b, s)), as, bs, cs);
  check<T>(failures, tally, "FPTRIMADD", fpscr, ON_LANES(FPTRIMADD(index, a, b, s)), as, bs, cs);
  check_truth<T>(failures, tally, "FPCompareEQ", fpscr, COMPARE_LANES(FPCompareEQ(a, b, s)), as, bs);
  check_truth<T>(failures, tally, "not FPCompareEQ", fpscr, COMPARE_LANES(!FPCompareEQ(a, b, s)), as, bs);
  check_truth<T>(failures, tally, "FPCompareGE", fpscr, COMPARE_LANES(FPCompareGE(a, b, s)), as, bs);
  check_truth<T>(failures, tally, "FPCompareGT", fpscr, COMPARE_LANES(FPCompareGT(a, b, s)), as, bs);
  check_truth<T>(failures, tally, "FPCompareUN", fpscr, COMPARE_LANES(FPCompareUN(a, b, s)), as, bs);
  check_truth<T>(failures, tally, "FPCompareGT of magnitudes", fpscr,
                 COMPARE_LANES(FPCompareGT(magnitude_of(a), magnitude_of(b), s)), as, bs);
  check<T>(failures, tally, "magnitude of FPSub", fpscr, ON_LANES(magnitude_of(FPSub(a, b, s))), as, bs, cs);
}

TYPED_TEST(LanesTest, GridOfTwoOperands) {
  using T = TypeParam;
  Failures failures;
  Tally tally;
  Random random(21);
  const auto values = operands::grid<T>();
  for (const T a : values)
    for (std::size_t first = 0; first < values.size() && !failures.enough(); first += Lanes<T>::count) {
      Block<T> as, bs, cs;
      for (std::size_t i = 0; i < as.size(); ++i) {
        as[i] = a;
        bs[i] = values[(first + i) % values.size()];
        cs[i] = values[random.below(values.size())];
      }
      check_all<T>(failures, tally, controls_of(random), as, bs, cs, random.below(8));
    }
  EXPECT_GT(tally.done, tally.pending / 4);
  operands::report("lanes, grid of two", tally.done);
}

TYPED_TEST(LanesTest, GridOfThreeOperands) {
  using T = TypeParam;
  Failures failures;
  Tally tally;
  Random random(22);
  const auto values = operands::grid<T>(true);
  for (const T a : values)
    for (const T b : values)
      for (std::size_t first = 0; first < values.size() && !failures.enough(); first += Lanes<T>::count) {
        Block<T> as, bs, cs;
        for (std::size_t i = 0; i < as.size(); ++i) {
          as[i] = a;
          bs[i] = b;
          cs[i] = values[(first + i) % values.size()];
        }
        check_all<T>(failures, tally, controls_of(random), as, bs, cs, random.below(8));
      }
  EXPECT_GT(tally.done, 0u);
}

TYPED_TEST(LanesTest, RandomOperands) {
  using T = TypeParam;
  Failures failures;
  Tally tally;
  Random random(23 + sizeof(T));
  const std::uint64_t blocks = operands::cases(20'000'000) / 18 / Lanes<T>::count;
  for (std::uint64_t n = 0; n < blocks && !failures.enough(); ++n) {
    Block<T> as, bs, cs;
    for (std::size_t i = 0; i < as.size(); ++i) {
      as[i] = operands::random_value<T>(random, static_cast<T>(random()));
      bs[i] = operands::random_value<T>(random, as[i]);
      cs[i] = operands::random_value<T>(random, bs[i]);
      // A third of the addends nearly cancel their product, or cancel it exactly.
      FPSCR ignored = 0;
      if (random.below(3) == 0) as[i] = static_cast<T>(FPNeg(FPMul(bs[i], cs[i], ignored)) ^ random.below(3));
    }
    check_all<T>(failures, tally, controls_of(random), as, bs, cs, random.below(8));
  }
  EXPECT_GT(tally.done, tally.pending);
  operands::report("lanes, random", tally.done);
}

// Numbers of ordinary size, and zeros among them, must not fall back to single elements.
TYPED_TEST(LanesTest, OrdinaryNumbersAreDone) {
  using T = TypeParam;
  using F = sve::Format<T>;
  Failures failures;
  Tally tally;
  Random random(24);
  const auto ordinary = [&] {
    if (random.below(8) == 0) return static_cast<T>(random() & F::sign);
    const T exponent = static_cast<T>(F::bias - 2 + random.below(5));
    return static_cast<T>((random() & (F::sign | F::fraction_mask)) | (exponent << F::fraction_bits));
  };
  for (int n = 0; n < 2000 && !failures.enough(); ++n) {
    Block<T> a, b, c;
    for (std::size_t i = 0; i < a.size(); ++i) a[i] = ordinary(), b[i] = ordinary(), c[i] = ordinary();
    check_all<T>(failures, tally, 0, a, b, c, 0);
  }
  // Left are exact and deep cancellations in double precision, and sums of half precision that become denormal.
  EXPECT_LT(tally.pending * 20, tally.done) << tally.pending << " of " << tally.pending + tally.done;
}

TYPED_TEST(LanesTest, NaNsInfinitiesAndDenormalsArePending) {
  using T = TypeParam;
  using F = sve::Format<T>;
  const T one = static_cast<T>(T{F::bias} << F::fraction_bits);
  for (const T special : {F::infinity, FPNeg(F::infinity), F::default_nan, static_cast<T>(F::infinity | 1), T{1},
                          F::fraction_mask, FPNeg(T{1})})
    for (std::size_t lane = 0; lane < Lanes<T>::count; ++lane)
      for (int operand = 0; operand < 3; ++operand) {
        Block<T> x[3];
        for (auto& block : x) block.fill(one);
        x[operand][lane] = special;
        LaneStatus<T> status;
        FPMulAdd(Lanes<T>::load(x[0].data()), Lanes<T>::load(x[1].data()), Lanes<T>::load(x[2].data()), status);
        for (std::size_t i = 0; i < Lanes<T>::count; ++i)
          EXPECT_EQ(status.pending[i] != 0, i == lane) << hex(special) << " as operand " << operand;
      }
}

// Infinities are ordinary to a compare; NaNs and denormals are not.
TYPED_TEST(LanesTest, ComparesLeaveNaNsAndDenormals) {
  using T = TypeParam;
  using F = sve::Format<T>;
  const T one = static_cast<T>(T{F::bias} << F::fraction_bits);
  const auto pending = [&](T a, T b) {
    LaneStatus<T> status;
    static_cast<void>(FPCompareGE(Lanes<T>(a), Lanes<T>(b), status));
    return status.pending[0] != 0;
  };
  for (const T special : {F::default_nan, static_cast<T>(F::infinity | 1), T{1}, F::fraction_mask, FPNeg(T{1})}) {
    EXPECT_TRUE(pending(special, one)) << hex(special);
    EXPECT_TRUE(pending(one, special)) << hex(special);
  }
  for (const T ordinary : {F::infinity, FPNeg(F::infinity), T{0}, F::sign, F::hidden, F::largest_normal})
    EXPECT_FALSE(pending(ordinary, one)) << hex(ordinary);
}

TYPED_TEST(LanesTest, SignsAreInvertedInEveryLane) {
  using T = TypeParam;
  using F = sve::Format<T>;
  Block<T> x, negated;
  for (std::size_t i = 0; i < x.size(); ++i) x[i] = static_cast<T>(F::infinity - i * 3 + (i % 2 ? F::sign : 0));
  FPNeg(Lanes<T>::load(x.data())).store(negated.data());
  for (std::size_t i = 0; i < x.size(); ++i) EXPECT_EQ(negated[i], FPNeg(x[i]));
}

TEST(LanesGuard, EveryWidthRan) { EXPECT_EQ(widths_run, 14u); }

}  // namespace
