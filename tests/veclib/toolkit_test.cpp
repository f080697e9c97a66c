// The scalar toolkit, with all its stated oddities.
#include "sve/veclib/toolkit.h"

#include "values.h"

namespace {

using namespace sve;
using test::edge_words;
using veclib_test::Random;
using veclib_test::random_word;

constexpr std::uint64_t all_ones = ~std::uint64_t{0};
constexpr std::int64_t smallest64 = std::numeric_limits<std::int64_t>::min();
constexpr wide wide_of(std::uint64_t high, std::uint64_t low) {
  return static_cast<wide>(UnsignedWide{high} << 64 | low);
}
constexpr wide power(int n) { return static_cast<wide>(UnsignedWide{1} << n); }
constexpr int widths[] = {8, 16, 32, 64};

// Random 128-bit values: near a power of two, of either sign, or any.
wide random_wide(Random& random) {
  const auto any = static_cast<wide>(UnsignedWide{random()} << 64 | random());
  switch (random() % 4) {
    case 0:
      return any;
    case 1:
      return any >> (random() % 128);
    case 2:
      return static_cast<wide>(static_cast<UnsignedWide>(power(static_cast<int>(random() % 128))) + random() % 5 - 2);
    default:
      return static_cast<wide>(0 - static_cast<UnsignedWide>(power(static_cast<int>(random() % 128))) - random() % 5 +
                               2);
  }
}

template <class Body>
void repeat(Body body) {
  Random random(5);
  for (int i = 0; i < 20000 && !testing::Test::HasFatalFailure(); ++i) body(random);
}

TEST(Toolkit, OnesAndBits) {
  EXPECT_EQ(ones(0), all_ones);  // deliberately
  EXPECT_EQ(ones(64), all_ones);
  for (int n = 1; n < 64; ++n) EXPECT_EQ(ones(n), (std::uint64_t{1} << n) - 1);
  EXPECT_EQ(bits(-1), all_ones);
  EXPECT_EQ(bits(wide_of(5, 7)), 7u);
}

TEST(Toolkit, Widening) {
  for (int w = 1; w <= 64; ++w)
    for (const std::uint64_t x : edge_words) {
      const wide low = static_cast<wide>(x & ones(w));
      EXPECT_EQ(Int(x, w, 1), low);
      EXPECT_EQ(UInt(x, w), low);
      for (const int is_signed : {0, 2, -1}) EXPECT_EQ(Int(x, w, is_signed), x >> (w - 1) & 1 ? low - power(w) : low);
      EXPECT_EQ(SInt(x, w), w == 8 || w == 16 || w == 32 || w == 64 ? Int(x, w, 0) : 0);
    }
}

TEST(Toolkit, ExtremaReturnTheirOperandAsPassed) {
  repeat([](Random& random) {
    const std::uint64_t a = random_word(random), b = random_word(random);
    for (const int w : widths)
      for (const int u : {0, 1}) {
        const wide x = Int(a, w, u), y = Int(b, w, u);
        if (x == y) continue;
        ASSERT_EQ(Max(a, b, w, u), x > y ? a : b);
        ASSERT_EQ(Min(a, b, w, u), x < y ? a : b);
      }
  });
  EXPECT_EQ(Max(5, all_ones, 8, 1), all_ones);
  EXPECT_EQ(Min(5, all_ones, 8, 0), all_ones);
  for (const int w : {0, 1, 7, 24, 63, 128}) {
    EXPECT_EQ(Max(5, 6, w, 1), 0u);
    EXPECT_EQ(Min(5, 6, w, 0), 0u);
  }
}

TEST(Toolkit, SmallFunctions) {
  EXPECT_EQ(ShiftLeft(0xff, 4, 8), 0xff0u);  // the width is ignored
  EXPECT_EQ(ShiftLeft(1, 64, 64), 1u);       // the amount counts modulo 64
  EXPECT_EQ(ShiftLeft(1, 130, 8), 4u);
  EXPECT_TRUE(PolynomialMult(3, 3) == 5);
  EXPECT_TRUE(PolynomialMult(all_ones, 2) == UnsignedWide{all_ones} << 1);
  repeat([](Random& random) {
    const std::uint64_t a = random_word(random), b = random_word(random), c = random_word(random);
    ASSERT_TRUE(PolynomialMult(a, b) == PolynomialMult(b, a));
    ASSERT_TRUE(PolynomialMult(a, b ^ c) == (PolynomialMult(a, b) ^ PolynomialMult(a, c)));
    ASSERT_TRUE(PolynomialMult(a, std::uint64_t{1} << (c % 64)) == UnsignedWide{a} << (c % 64));
  });
}

TEST(Toolkit, WideOperationsWrap) {
  const wide low = wide_of(0x8000000000000000, 0), high = wide_of(0x7fffffffffffffff, all_ones);
  EXPECT_EQ(NegInt(low), low);
  EXPECT_EQ(AbsInt(low), low);
  EXPECT_EQ(AbsInt(-5), 5);
  EXPECT_EQ(AbsInt(5), 5);
  EXPECT_EQ(NegInt(5), -5);
  EXPECT_EQ(AddInt(high, 1), low);
  EXPECT_EQ(SubInt(low, 1), high);
}

TEST(Toolkit, ShiftLeftInt) {
  EXPECT_EQ(ShiftLeftInt(1, 200), power(64));
  EXPECT_EQ(ShiftLeftInt(1, wide_of(1, 0)), power(64));
  EXPECT_EQ(ShiftLeftInt(1, 65), power(64));
  EXPECT_EQ(ShiftLeftInt(-16, -2), -4);
  for (int n = 0; n <= 64; ++n) EXPECT_EQ(ShiftLeftInt(-3, n), -3 * power(n));
}

TEST(Toolkit, ShiftRightInt) {
  // Exactly 128 tests the two top bits of the value, not one.
  EXPECT_EQ(ShiftRightInt(-1, 128), -1);
  EXPECT_EQ(ShiftRightInt(wide_of(0xc000000000000000, 0), 128), -1);
  EXPECT_EQ(ShiftRightInt(wide_of(0x8000000000000000, 0), 128), 0);
  EXPECT_EQ(ShiftRightInt(wide_of(0xbfffffffffffffff, all_ones), 128), 0);
  EXPECT_EQ(ShiftRightInt(wide_of(0x4000000000000000, 0), 128), 0);
  // Any other amount above 65 is 65.
  const wide x = wide_of(0x9234567890abcdef, 0x1234);
  for (const wide n : {wide{65}, wide{66}, wide{127}, wide{129}, wide_of(0x7fffffffffffffff, 0)})
    EXPECT_EQ(ShiftRightInt(x, n), x >> 65);
  for (int n = 0; n <= 65; ++n) EXPECT_EQ(ShiftRightInt(x, n), x >> n);
  // A negative amount is not clamped; it counts through its low word.
  EXPECT_EQ(ShiftRightInt(x, wide_of(all_ones, 3)), x >> 3);
  EXPECT_EQ(ShiftRightInt(x, wide_of(0x8000000000000000, 100)), x >> 100);
}

// Elements shifted through the wide value: the three rules of the vector shifts, at any amount.
TEST(Toolkit, ShiftsOfElementsAreExactAtAnyAmount) {
  repeat([](Random& random) {
    const std::uint64_t x = random_word(random), n = random() % 2 ? random() % 140 : random_word(random);
    for (const int w : widths) {
      const auto low = [w](wide v) { return bits(v) & ones(w); };
      ASSERT_EQ(low(ShiftLeftInt(UInt(x, w), n)), n >= static_cast<unsigned>(w) ? 0 : x << n & ones(w));
      if (n == 128) continue;  // has its own rule, which gives the same for a widened element
      ASSERT_EQ(low(ShiftRightInt(UInt(x, w), n)), n >= static_cast<unsigned>(w) ? 0 : (x & ones(w)) >> n);
      ASSERT_EQ(low(ShiftRightInt(SInt(x, w), n)), low(SInt(x, w) >> (n > 100 ? 100 : n)));
    }
  });
  for (const int w : widths)
    for (const std::uint64_t x : edge_words) {
      EXPECT_EQ(bits(ShiftRightInt(SInt(x, w), 128)), x >> (w - 1) & 1 ? all_ones : 0);
      EXPECT_EQ(bits(ShiftRightInt(UInt(x, w), 128)), 0u);
    }
}

// ---- Saturation ----

TEST(Saturation, SatQ) {
  EXPECT_EQ(SatQ(128, 8, 0), (Saturated{127, 1}));
  EXPECT_EQ(SatQ(-129, 8, 0), (Saturated{0x80, 1}));
  EXPECT_EQ(SatQ(-128, 8, 0), (Saturated{0x80, 0}));
  EXPECT_EQ(SatQ(-1, 8, 1), (Saturated{0, 1}));
  EXPECT_EQ(SatQ(256, 8, 1), (Saturated{255, 1}));
  repeat([](Random& random) {
    const wide x = random_wide(random);
    const int w = 1 + static_cast<int>(random() % 64);
    const wide low = -power(w - 1), high = power(w - 1) - 1;
    const Saturated expected = x > high  ? Saturated{static_cast<std::uint64_t>(high), 1}
                               : x < low ? Saturated{std::uint64_t{1} << (w - 1), 1}
                                         : Saturated{bits(x) & ones(w), 0};  // cut to the width
    ASSERT_EQ(SatQ(x, w, 0), expected) << w;
    const Saturated unsigned_expected = x < 0              ? Saturated{0, 1}
                                        : x > power(w) - 1 ? Saturated{ones(w), 1}
                                                           : Saturated{bits(x), 0};
    ASSERT_EQ(SatQ(x, w, 1), unsigned_expected) << w;
  });
}

TEST(Saturation, AddAndSubtract) {
  constexpr std::uint64_t largest = 0x7fffffffffffffff;
  EXPECT_EQ(SatAdd(largest, 1, 64, 0), largest);
  EXPECT_EQ(SatAdd(all_ones, 1, 64, 1), all_ones);
  EXPECT_EQ(SatSub(3, 5, 8, 1), (Saturated{0, 1}));
  EXPECT_EQ(SatAdd(0xff, 0xff, 8, 0), all_ones - 1);    // -2: in range the sum keeps the bits above the width
  EXPECT_EQ(SatSub(0, 2, 8, 0), (Saturated{0xfe, 0}));  // the difference is cut
  repeat([](Random& random) {
    const std::uint64_t a = random_word(random), b = random_word(random);
    for (const int w : widths)
      for (const int u : {0, 1}) {
        const wide sum = Int(a, w, u) + Int(b, w, u);
        const Saturated s = SatQ(sum, w, u);
        ASSERT_EQ(SatAdd(a, b, w, u), s.flag ? s.value : bits(sum));
        ASSERT_EQ(SatSub(a, b, w, u), SatQ(Int(a, w, u) - Int(b, w, u), w, u));
      }
  });
}

TEST(Saturation, MultiplyDoesNotSaturate) {
  EXPECT_EQ(SatMult(100, 100, 8, 0), 10000u);
  EXPECT_EQ(SatMult(0x80, 0x80, 8, 0), 16384u);
  EXPECT_EQ(SatMult(0x80, 2, 8, 0), static_cast<std::uint64_t>(-256));
  EXPECT_EQ(SatMult(0xff, 0xff, 8, 1), 65025u);
  EXPECT_EQ(SatMult(all_ones, all_ones, 64, 1), 1u);
}

TEST(Saturation, SatQShiftKeepsTheSignAboveTheWidth) {
  EXPECT_EQ(SatQShift(-1, 8, 0), (Saturated{all_ones, 0}));
  EXPECT_EQ(SatQShift(-129, 8, 0), (Saturated{static_cast<std::uint64_t>(-128), 1}));
  EXPECT_EQ(SatQShift(128, 8, 0), (Saturated{127, 1}));
  EXPECT_EQ(SatQShift(-1, 8, 1), (Saturated{0, 1}));
  EXPECT_EQ(SatQShift(256, 8, 1), (Saturated{255, 1}));
  EXPECT_EQ(SatQShift(255, 8, 1), (Saturated{255, 0}));
  EXPECT_EQ(SatQShift(power(100), 64, 0), (Saturated{0x7fffffffffffffff, 1}));
  EXPECT_EQ(SatQShift(wide_of(smallest64, 5), 128, 0), (Saturated{5, 0}));  // widths up to 128
  EXPECT_EQ(SatQShift(power(100) + 5, 128, 1), (Saturated{5, 0}));
}

TEST(Saturation, SatQUShiftGivesZeroFarAboveTheLimit) {
  EXPECT_EQ(SatQUShift(200, 8), (Saturated{200, 0}));
  EXPECT_EQ(SatQUShift(256, 8), (Saturated{255, 1}));
  EXPECT_EQ(SatQUShift(65535, 8), (Saturated{255, 1}));
  EXPECT_EQ(SatQUShift(65536, 8), (Saturated{0, 1}));  // beyond 2n bits
  EXPECT_EQ(SatQUShift(-1, 8), (Saturated{0, 1}));
  EXPECT_EQ(SatQUShift(power(64) + 7, 8), (Saturated{7, 0}));  // the high word is not looked at
}

TEST(Saturation, ShiftQLeftInt) {
  EXPECT_EQ(ShiftQLeftInt(-16, -2, 8, 0), (Saturated{static_cast<std::uint64_t>(-4), 0}));
  for (const int n : {8, 9, 200}) {
    EXPECT_EQ(ShiftQLeftInt(0, n, 8, 0), (Saturated{0, 0}));
    EXPECT_EQ(ShiftQLeftInt(0, n, 8, 1), (Saturated{0, 0}));
    EXPECT_EQ(ShiftQLeftInt(3, n, 8, 1), (Saturated{255, 1}));
    EXPECT_EQ(ShiftQLeftInt(3, n, 8, 0), (Saturated{127, 1}));
    EXPECT_EQ(ShiftQLeftInt(-3, n, 8, 0), (Saturated{static_cast<std::uint64_t>(-128), 1}));
  }
  // At its width already nothing is shifted: what 128 bits would lose saturates too.
  EXPECT_EQ(ShiftQLeftInt(power(121), 8, 8, 0), (Saturated{127, 1}));
  EXPECT_EQ(ShiftQLeftInt(power(121), 8, 8, 1), (Saturated{255, 1}));
  EXPECT_EQ(ShiftQLeftInt(-power(121), 8, 8, 0), (Saturated{static_cast<std::uint64_t>(-128), 1}));
  EXPECT_EQ(ShiftQLeftInt(3, 5, 8, 0), (Saturated{96, 0}));
  EXPECT_EQ(ShiftQLeftInt(3, 6, 8, 0), (Saturated{127, 1}));
  EXPECT_EQ(ShiftQLeftInt(-1, 7, 8, 0), (Saturated{static_cast<std::uint64_t>(-128), 0}));
  EXPECT_EQ(ShiftQLeftInt(3, 6, 8, 1), (Saturated{192, 0}));
  EXPECT_EQ(ShiftQLeftInt(1, 100, 128, 0), (Saturated{0, 0}));  // 2 to the 100, of which the low word is returned
}

TEST(Saturation, SatShiftLeft) {
  EXPECT_EQ(SatShiftLeft(3, 5, 8, 0), 96u);
  EXPECT_EQ(SatShiftLeft(3, 6, 8, 0), 127u);
  EXPECT_EQ(SatShiftLeft(0xff, 7, 8, 0), static_cast<std::uint64_t>(-128));  // in range: not cut to the width
  // The bits of x above W-1 are looked at as passed.
  EXPECT_EQ(SatShiftLeft(0x80, 1, 8, 0), 0x80u);
  EXPECT_EQ(SatShiftLeft(0x103, 6, 8, 0), 0x80u);
  EXPECT_EQ(SatShiftLeft(3, 7, 8, 1), 255u);
  EXPECT_EQ(SatShiftLeft(1, 100, 8, 1), 255u);  // the amount is the smaller of it and the width
  EXPECT_EQ(SatShiftLeft(0, 100, 8, 1), 0u);
  EXPECT_EQ(SatShiftLeft(3, 63, 64, 1), all_ones);
  EXPECT_EQ(SatShiftLeft(3, 62, 64, 0), 0x7fffffffffffffffu);
  EXPECT_EQ(SatShiftLeft(static_cast<std::uint64_t>(-3), 62, 64, 0), 0x8000000000000000u);
}

TEST(Saturation, SatShiftLeftByANegativeAmount) {
  // It stands, and 128 bits take it modulo 128: by -1 is by 127.
  EXPECT_EQ(SatShiftLeft(1, 0xff, 8, 0), 127u);
  EXPECT_EQ(SatShiftLeft(2, 0xff, 8, 0), 0u);
  EXPECT_EQ(SatShiftLeft(0x81, 0xff, 8, 0), 0x80u);
  EXPECT_EQ(SatShiftLeft(3, 0x80, 8, 0), 3u) << "by -128: not at all";
  EXPECT_EQ(SatShiftLeft(1, 0xff, 8, 1), 255u) << "as unsigned it is large";
}

TEST(Saturation, ShiftsOfWidthsAbove64) {
  const std::uint64_t negative = static_cast<std::uint64_t>(-3);  // at these widths all of x is magnitude
  EXPECT_EQ(SatShiftLeft(negative, 1, 65, 1), static_cast<std::uint64_t>(-6));
  EXPECT_EQ(SatShiftLeft(negative, 2, 65, 1), all_ones);
  EXPECT_EQ(SatShiftLeft(negative, 0, 65, 1), negative);
  EXPECT_EQ(SatShiftLeft(3, 2, 100, 0), 12u);
  EXPECT_EQ(SatShiftLeft(3, 90, 100, 0), 0u) << "in range, and above the low word";
  EXPECT_EQ(SatShiftLeft(3, 99, 100, 0), all_ones) << "the base value 0, less 1";
  EXPECT_EQ(SatShiftLeft(1, 500, 100, 0), all_ones);
  EXPECT_EQ(SatShiftLeftU(3, 2, 100), (Saturated{12, 0}));
  EXPECT_EQ(SatShiftLeftU(3, 99, 100).flag, 1u);
  EXPECT_EQ(SatShiftLeftU(negative, 1, 65).flag, 0u);
  EXPECT_EQ(SatShiftLeftU(negative, 2, 65).flag, 1u);
}

TEST(Saturation, SatShiftLeftU) {
  EXPECT_EQ(SatShiftLeftU(3, 6, 8), (Saturated{192, 0}));
  EXPECT_EQ(SatShiftLeftU(3, 7, 8), (Saturated{255, 1}));
  EXPECT_EQ(SatShiftLeftU(0x80, 0, 8), (Saturated{0, 1}));   // negative
  EXPECT_EQ(SatShiftLeftU(0x103, 7, 8), (Saturated{0, 1}));  // positive at the width, but a bit above is set
  EXPECT_EQ(SatShiftLeftU(1, 200, 8), (Saturated{255, 1}));
  EXPECT_EQ(SatShiftLeftU(0, 200, 8), (Saturated{0, 0}));
}

// ---- BigInt ----

TEST(BigIntTest, ConvertsAddsAndWraps) {
  EXPECT_EQ(toBigInt(5), (BigInt{{5, 0, 0, 0}}));
  EXPECT_EQ(toBigInt(-5), (BigInt{{static_cast<std::uint64_t>(-5), all_ones, all_ones, all_ones}}));
  EXPECT_EQ(toBigInt(power(100)), (BigInt{{0, std::uint64_t{1} << 36, 0, 0}}));
  const BigInt top{{all_ones, all_ones, all_ones, all_ones}};
  EXPECT_EQ(AddBigInt(top, toBigInt(1)), toBigInt(0));
  EXPECT_EQ(AddBigInt({{all_ones, all_ones, 0, 0}}, toBigInt(1)), (BigInt{{0, 0, 1, 0}}));
  EXPECT_EQ(AddBigInt({{0, 0, all_ones, 0}}, {{0, 0, 1, 0}}), (BigInt{{0, 0, 0, 1}}));
  repeat([](Random& random) {
    const wide a = random_wide(random) >> 1, b = random_wide(random) >> 1;  // so that the sum fits
    ASSERT_EQ(AddBigInt(toBigInt(a), toBigInt(b)), toBigInt(a + b));
  });
}

TEST(BigIntTest, SaturatesAsSatQ) {
  repeat([](Random& random) {
    const wide x = random_wide(random);
    const int w = 1 + static_cast<int>(random() % 64);
    ASSERT_EQ(SatQBigInt(toBigInt(x), w, 1), SatQ(x, w, 1)) << w;
    if (w == 1) return;  // no limit has a width of 0
    ASSERT_EQ(SatQBigInt(toBigInt(x), w, 0), SatQ(x, w, 0)) << w;
  });
  EXPECT_EQ(SatQBigInt({{5, 0, 1, 0}}, 64, 1), (Saturated{all_ones, 1}));
  EXPECT_EQ(SatQBigInt({{5, 0, 1, 0}}, 8, 0), (Saturated{127, 1}));
  EXPECT_EQ(SatQBigInt({{5, 0, 0, 0x8000000000000000}}, 8, 0), (Saturated{0x80, 1}));
  EXPECT_EQ(SatQBigInt({{all_ones, all_ones, 0, all_ones}}, 8, 0), (Saturated{0x80, 1}));
  EXPECT_EQ(SatQBigInt({{5, 0, 0, 0x8000000000000000}}, 8, 1), (Saturated{0, 1}));
}

TEST(BigIntTest, OneBitIsItsSign) {
  // The limit has no bits, and of no bits there are 64 ones.
  EXPECT_EQ(SatQBigInt(toBigInt(0), 1, 0), (Saturated{0, 0}));
  EXPECT_EQ(SatQBigInt(toBigInt(1), 1, 0), (Saturated{all_ones, 1}));
  EXPECT_EQ(SatQBigInt(toBigInt(-1), 1, 0), (Saturated{1, 0}));
  EXPECT_EQ(SatQBigInt(toBigInt(-2), 1, 0), (Saturated{1, 1}));
  EXPECT_EQ(SatQBigInt(toBigInt(1), 1, 1), (Saturated{1, 0}));
}

TEST(BigIntTest, ShiftsRightUpTo127) {
  repeat([](Random& random) {
    const wide x = random_wide(random);
    const int n = static_cast<int>(random() % 128);
    ASSERT_EQ(ShiftRightBigInt(toBigInt(x), n), toBigInt(x >> n)) << n;
  });
  const BigInt v{{1, 2, 4, 0x8000000000000000}};
  EXPECT_EQ(ShiftRightBigInt(v, 0), v);
  EXPECT_EQ(ShiftRightBigInt(v, 1), (BigInt{{0, 1, 2, 0xc000000000000000}}));
  EXPECT_EQ(ShiftRightBigInt(v, 64), (BigInt{{2, 4, 0x8000000000000000, all_ones}}));
  EXPECT_EQ(ShiftRightBigInt(v, 65), (BigInt{{1, 2, 0xc000000000000000, all_ones}}));
}

// ---- Bit operations ----

TEST(Bits, CountsAndReversals) {
  repeat([](Random& random) {
    const std::uint64_t x = random_word(random);
    for (const int n : {1, 7, 8, 16, 31, 32, 63, 64}) {
      int highest = -1, count = 0, leading_signs = 0;
      std::uint64_t reversed = 0;
      for (int i = 0; i < n; ++i) {
        if (x >> i & 1) highest = i, ++count;
        reversed |= (x >> i & 1) << (n - 1 - i);
      }
      while (leading_signs < n - 1 && (x >> (n - 1) & 1) == (x >> (n - 2 - leading_signs) & 1)) ++leading_signs;
      ASSERT_EQ(HighestBitSet(x, n), highest);
      ASSERT_EQ(CountLeadingZeroBits(x, n), n - 1 - highest);
      ASSERT_EQ(CountLeadingSignBits(x, n), leading_signs) << x << " " << n;
      ASSERT_EQ(BitCount(x, n), count);
      ASSERT_EQ(BitReverse(x, n), reversed);
    }
  });
  for (const int w : widths) {
    EXPECT_EQ(CountLeadingZeroBits(0, w), w);
    EXPECT_EQ(CountLeadingSignBits(0, w), w - 1);
    EXPECT_EQ(CountLeadingSignBits(ones(w), w), w - 1);
    EXPECT_EQ(BitCount(ones(w), w), w);
  }
  for (const int n : {0, -1}) {
    EXPECT_EQ(BitCount(all_ones, n), 0);
    EXPECT_EQ(BitReverse(all_ones, n), 0u);
    EXPECT_EQ(HighestBitSet(all_ones, n), -1);
  }
}

TEST(Bits, Reverse) {
  EXPECT_EQ(Reverse(0x1122334455667788, 64, 4), 0x5566778811223344u);
  EXPECT_EQ(Reverse(0x1122334455667788, 64, 2), 0x7788556633441122u);
  EXPECT_EQ(Reverse(0x1122334455667788, 64, 1), 0x8877665544332211u);
  EXPECT_EQ(Reverse(0x1122, 16, 1), 0x2211u);
  EXPECT_EQ(Reverse(0x11223344, 32, 2), 0x33441122u);
  for (const int g : {0, 3, 5, 8}) EXPECT_EQ(Reverse(all_ones, 64, g), 0u);
  EXPECT_EQ(Reverse(all_ones, 8, 2), 0u);  // no container
}

}  // namespace
