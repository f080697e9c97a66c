// The scalar toolkit: integer arithmetic on a 128-bit two's-complement value, into which an element is widened so that
// nothing overflows, and saturation back to a width. The names follow the architecture's pseudocode; the behaviour at
// the edges is this file's own and is stated at each function.
//
// `width` is an element width in bits. `is_unsigned` is 1 for unsigned; any other value means signed.
#pragma once

#include <cstdint>

namespace sve {

using wide = __int128;
using UnsignedWide = unsigned __int128;

/// A saturating result: the value, and 1 if it was saturated.
struct Saturated {
  std::uint64_t value;
  std::uint32_t flag;
  friend constexpr bool operator==(const Saturated&, const Saturated&) = default;
};

/// The low n bits set. The shift count is taken modulo 64, so ones(0) is all ones, as ones(64) is: deliberate,
/// and seen by who links the toolkit alone, as no instruction asks for no bits.
constexpr std::uint64_t ones(int n) { return ~std::uint64_t{0} >> (static_cast<unsigned>(64 - n) % 64); }

/// The low 64 bits.
constexpr std::uint64_t bits(wide x) { return static_cast<std::uint64_t>(x); }

/// The low `width` bits of x, 1 to 64, as a wide value: zero-extended if unsigned, else sign-extended.
constexpr wide Int(std::uint64_t x, int width, int is_unsigned) {
  const int above = 64 - width;
  return is_unsigned == 1 ? static_cast<wide>(x << above >> above)
                          : static_cast<wide>(static_cast<std::int64_t>(x << above) >> above);
}

constexpr wide UInt(std::uint64_t x, int width) { return Int(x, width, 1); }

/// Sign-extension from 8, 16, 32 or 64 bits; any other width gives 0.
constexpr wide SInt(std::uint64_t x, int width) {
  return width == 8 || width == 16 || width == 32 || width == 64 ? Int(x, width, 0) : 0;
}

/// The larger at the width, returned as it was passed. A width other than 8, 16, 32, 64 gives 0.
constexpr std::uint64_t Max(std::uint64_t a, std::uint64_t b, int width, int is_unsigned) {
  if (width != 8 && width != 16 && width != 32 && width != 64) return 0;
  return Int(a, width, is_unsigned) > Int(b, width, is_unsigned) ? a : b;
}
/// The smaller, as Max.
constexpr std::uint64_t Min(std::uint64_t a, std::uint64_t b, int width, int is_unsigned) {
  if (width != 8 && width != 16 && width != 32 && width != 64) return 0;
  return Int(a, width, is_unsigned) < Int(b, width, is_unsigned) ? a : b;
}

/// x shifted left by n modulo 64, whatever the width.
constexpr std::uint64_t ShiftLeft(std::uint64_t x, std::uint64_t n, int) { return x << (n % 64); }

/// Carry-less product of two 64-bit values.
UnsignedWide PolynomialMult(std::uint64_t a, std::uint64_t b);

// 128-bit operations, wrapping at 128 bits.
constexpr wide NegInt(wide x) { return static_cast<wide>(0 - static_cast<UnsignedWide>(x)); }
constexpr wide AbsInt(wide x) { return x < 0 ? NegInt(x) : x; }
constexpr wide AddInt(wide a, wide b) {
  return static_cast<wide>(static_cast<UnsignedWide>(a) + static_cast<UnsignedWide>(b));
}
constexpr wide SubInt(wide a, wide b) {
  return static_cast<wide>(static_cast<UnsignedWide>(a) - static_cast<UnsignedWide>(b));
}

constexpr wide ShiftRightInt(wide x, wide n);

/// Left shift with the amount clamped to 64, so that a caller who keeps 64 bits or fewer sees 0 for any large amount. A
/// negative amount shifts right.
constexpr wide ShiftLeftInt(wide x, wide n) {
  if (n < 0) return ShiftRightInt(x, NegInt(n));
  return static_cast<wide>(static_cast<UnsignedWide>(x) << static_cast<unsigned>(n > 64 ? 64 : n));
}

/// Arithmetic right shift with the amount clamped to 65. An amount of exactly 128 tests the two top bits of x and not
/// one: deliberate, and seen by who links the toolkit alone, as no instruction shifts so far. A negative amount is not
/// clamped: it counts through its low word, modulo the width.
constexpr wide ShiftRightInt(wide x, wide n) {
  if (n == 128) return (static_cast<UnsignedWide>(x) >> 126) == 3 ? -1 : 0;
  if (n > 65) n = 65;
  return x >> (static_cast<unsigned>(static_cast<std::uint64_t>(n)) & 127u);
}

/// Saturates x to `width` bits, 1 to 64. A value in range is cut to the width, not sign-extended.
constexpr Saturated SatQ(wide x, int width, int is_unsigned) {
  const std::uint64_t sign = std::uint64_t{1} << (width - 1);
  if (is_unsigned != 1) {
    const wide max = static_cast<wide>(sign) - 1;
    if (x > max) return {static_cast<std::uint64_t>(max), 1};
    if (x >= Int(sign, width, 0)) return {bits(x) & ones(width), 0};
    return {sign, 1};
  }
  if (x < 0) return {0, 1};
  if ((static_cast<UnsignedWide>(x) >> width) == 0) return {bits(x) & ones(width), 0};
  return {ones(width), 1};
}

/// As SatQ for widths up to 128, but the sign bits of a negative value above the width stay.
Saturated SatQShift(wide x, int width, int is_unsigned);
/// An unsigned limit at n bits with a further test: a value far above the limit goes to 0, not to the maximum.
Saturated SatQUShift(wide x, int n);

/// The sum, saturated at the width. In range it is the low 64 bits of the exact sum: for a negative signed sum the bits
/// above the width are set, and callers store the width alone.
constexpr std::uint64_t SatAdd(std::uint64_t a, std::uint64_t b, int width, int is_unsigned) {
  const wide sum = AddInt(Int(a, width, is_unsigned), Int(b, width, is_unsigned));
  const Saturated result = SatQ(sum, width, is_unsigned);
  return result.flag ? result.value : bits(sum);
}

/// The difference, saturated at the width, with its flag.
constexpr Saturated SatSub(std::uint64_t a, std::uint64_t b, int width, int is_unsigned) {
  return SatQ(SubInt(Int(a, width, is_unsigned), Int(b, width, is_unsigned)), width, is_unsigned);
}

/// The low 64 bits of the exact product. It does not saturate, in spite of its name; that is its behaviour.
std::uint64_t SatMult(std::uint64_t a, std::uint64_t b, int width, int is_unsigned);

/// Saturating left shift.
Saturated ShiftQLeftInt(wide x, wide n, int width, int is_unsigned);
/// Saturating left shift of an element, by the smaller of n and the width.
std::uint64_t SatShiftLeft(std::uint64_t x, std::uint64_t n, int width, int is_unsigned);
/// Left shift of a signed x into an unsigned range.
Saturated SatShiftLeftU(std::uint64_t x, std::uint64_t n, int width);

/// A 256-bit two's-complement integer, least significant limb first.
struct BigInt {
  std::uint64_t limbs[4];
  friend constexpr bool operator==(const BigInt&, const BigInt&) = default;
};
BigInt toBigInt(wide x);
BigInt AddBigInt(const BigInt& a, const BigInt& b);
Saturated SatQBigInt(const BigInt& v, int width, int is_unsigned);
/// Arithmetic right shift, defined for n up to 127.
BigInt ShiftRightBigInt(const BigInt& v, int n);

// Bit operations on the low n bits of an element.

/// Index of the highest set bit among bits n-1 to 0, or -1.
constexpr int HighestBitSet(std::uint64_t x, int n) {
  x &= n < 1 ? 0 : n >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << n) - 1;
  return x == 0 ? -1 : 63 - __builtin_clzll(x);
}
constexpr int CountLeadingZeroBits(std::uint64_t x, int n) { return n - 1 - HighestBitSet(x, n); }
constexpr int CountLeadingSignBits(std::uint64_t x, int n) {
  return CountLeadingZeroBits((x & ~(std::uint64_t{1} << 63)) ^ (x >> 1), n - 1);
}
constexpr int BitCount(std::uint64_t x, int n) {
  return n < 1 ? 0 : __builtin_popcountll(n >= 64 ? x : x & ((std::uint64_t{1} << n) - 1));
}
/// Bit i moves to bit n-1-i; 0 when n is below 1.
constexpr std::uint64_t BitReverse(std::uint64_t x, int n) {
  if (n < 1) return 0;
  x = (x >> 1 & 0x5555555555555555u) | (x & 0x5555555555555555u) << 1;
  x = (x >> 2 & 0x3333333333333333u) | (x & 0x3333333333333333u) << 2;
  x = (x >> 4 & 0x0f0f0f0f0f0f0f0fu) | (x & 0x0f0f0f0f0f0f0f0fu) << 4;
  return __builtin_bswap64(x) >> (n >= 64 ? 0 : 64 - n);
}
/// The n bits of x as containers of g bytes (1, 2 or 4), in reversed order; any other g gives 0.
constexpr std::uint64_t Reverse(std::uint64_t x, int n, int g) {
  if (g != 1 && g != 2 && g != 4) return 0;
  const int containers = n / 8 / g;
  std::uint64_t r = 0;
  for (int i = 0; i < containers; ++i) {
    const std::uint64_t container = x >> (8 * g * (containers - 1 - i)) & ones(8 * g);
    r |= container << (8 * g * i);
  }
  return r;
}

}  // namespace sve
