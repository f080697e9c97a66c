// The parts of the scalar toolkit that no fast path uses.
#include "sve/veclib/toolkit.h"

namespace sve {

namespace {

// 2 to the n, minus 1, in 128 bits, for n up to 128.
constexpr UnsignedWide low_mask(int n) { return n >= 128 ? ~UnsignedWide{0} : n <= 0 ? 0 : (UnsignedWide{1} << n) - 1; }

// The low word of the smallest value at the width: the negation of 2 to the width - 1, taken at 64 bits.
constexpr std::uint64_t smallest(int width) { return 0 - static_cast<std::uint64_t>(low_mask(width - 1) + 1); }

// As Int, for widths above 64 too: then the bits that x does not have are clear.
constexpr wide widened(std::uint64_t x, int width, int is_unsigned) {
  return width > 64 ? static_cast<wide>(x) : Int(x, width, is_unsigned);
}

// Whether no bit of x is set from bit n upward.
constexpr bool is_clear_from(std::uint64_t x, int n) { return n >= 64 || x >> n == 0; }

constexpr UnsignedWide shift_left(wide x, int n) { return n > 127 ? 0 : static_cast<UnsignedWide>(x) << n; }

}  // namespace

UnsignedWide PolynomialMult(std::uint64_t a, std::uint64_t b) {
  UnsignedWide product = 0;
  for (int i = 0; i < 64; ++i)
    if (b >> i & 1) product ^= UnsignedWide{a} << i;
  return product;
}

Saturated SatQShift(wide x, int width, int is_unsigned) {
  if (is_unsigned != 1) {
    const wide max = static_cast<wide>(low_mask(width - 1));
    if (x > max) return {bits(max), 1};
    if (x >= -max - 1) return {bits(x), 0};
    return {smallest(width), 1};
  }
  if (x < 0) return {0, 1};
  if (static_cast<UnsignedWide>(x) <= low_mask(width)) return {bits(x), 0};
  return {ones(width), 1};
}

Saturated SatQUShift(wide x, int n) {
  // The test looks at the low 64 bits alone, and the shift is by twice the width, so that what is far above the limit
  // becomes 0: required as they stand for who links the toolkit. No instruction saturates so.
  if (bits(x) <= static_cast<std::uint64_t>(low_mask(n))) return {bits(x), 0};
  return (x >> (2 * n > 127 ? 127 : 2 * n)) == 0 ? Saturated{ones(n), 1} : Saturated{0, 1};
}

std::uint64_t SatMult(std::uint64_t a, std::uint64_t b, int width, int is_unsigned) {
  return bits(static_cast<wide>(static_cast<UnsignedWide>(Int(a, width, is_unsigned)) *
                                static_cast<UnsignedWide>(Int(b, width, is_unsigned))));
}

Saturated ShiftQLeftInt(wide x, wide n, int width, int is_unsigned) {
  if (n < 0) return {bits(ShiftRightInt(x, NegInt(n))), 0};
  if (n >= width) {
    if (x == 0) return {0, 0};
    if (is_unsigned == 1) return {ones(width), 1};
    return {x < 0 ? smallest(width) : static_cast<std::uint64_t>(low_mask(width - 1)), 1};
  }
  return SatQShift(static_cast<wide>(shift_left(x, static_cast<int>(n))), width, is_unsigned);
}

std::uint64_t SatShiftLeft(std::uint64_t x, std::uint64_t n, int width, int is_unsigned) {
  const wide amount = widened(n, width, is_unsigned), value = widened(x, width, is_unsigned);
  // A negative amount stands; of it only the low 32 bits go on, and of these the shift takes the low seven.
  const auto shift = static_cast<unsigned>(amount < width ? amount : width);
  const wide shifted = static_cast<wide>(static_cast<UnsignedWide>(value) << (shift & 127u));
  // The test of SatQ, for widths above 64 too.
  const wide max = static_cast<wide>(low_mask(is_unsigned == 1 ? width : width - 1));
  const wide min = is_unsigned == 1 ? 0 : -max - 1;
  if (width >= 128 ? is_unsigned != 1 || shifted >= 0 : shifted >= min && shifted <= max) return bits(shifted);
  if (is_unsigned == 1) return width >= 64 ? ~std::uint64_t{0} : ones(width);
  const std::uint64_t base = width > 64 ? 0 : std::uint64_t{1} << (width - 1);
  return is_clear_from(x, width - 1) ? base - 1 : base;
}

Saturated SatShiftLeftU(std::uint64_t x, std::uint64_t n, int width) {
  const wide amount = widened(n, width, 1), value = widened(x, width, 0);
  const int shift = static_cast<int>(amount < width ? amount : width);
  const UnsignedWide shifted = shift_left(value, shift);
  if (shifted <= low_mask(width)) return {static_cast<std::uint64_t>(shifted), 0};
  return is_clear_from(x, width - 1) ? Saturated{ones(width), 1} : Saturated{0, 1};
}

BigInt toBigInt(wide x) {
  const std::uint64_t sign = x < 0 ? ~std::uint64_t{0} : 0;
  return {{bits(x), static_cast<std::uint64_t>(static_cast<UnsignedWide>(x) >> 64), sign, sign}};
}

BigInt AddBigInt(const BigInt& a, const BigInt& b) {
  BigInt sum;
  UnsignedWide carry = 0;
  for (int i = 0; i < 4; ++i) {
    carry += UnsignedWide{a.limbs[i]} + b.limbs[i];
    sum.limbs[i] = static_cast<std::uint64_t>(carry);
    carry >>= 64;
  }
  return sum;
}

Saturated SatQBigInt(const BigInt& v, int width, int is_unsigned) {
  const std::uint64_t* l = v.limbs;
  const bool negative = l[3] >> 63;
  const auto fits = [&](int n) {  // no bits at n or above
    return l[1] == 0 && l[2] == 0 && l[3] == 0 && (n >= 64 || l[0] >> n == 0);
  };
  if (is_unsigned == 1) {
    if (negative) return {0, 1};
    return fits(width) ? Saturated{l[0], 0} : Saturated{ones(width), 1};
  }
  if (!negative) return fits(width - 1) ? Saturated{l[0] & ones(width), 0} : Saturated{ones(width - 1), 1};
  const std::uint64_t sign = std::uint64_t{1} << (width - 1);
  const bool in_range = (l[1] & l[2] & l[3]) == ~std::uint64_t{0} && (l[0] | (sign - 1)) == ~std::uint64_t{0};
  return in_range ? Saturated{l[0] & ones(width), 0} : Saturated{sign, 1};
}

BigInt ShiftRightBigInt(const BigInt& v, int n) {
  if (n == 0) return v;
  const std::uint64_t sign = v.limbs[3] >> 63 ? ~std::uint64_t{0} : 0;
  const int places = n / 64, within = n % 64;  // places is 0 or 1
  const auto limb = [&](int i) { return i < 4 ? v.limbs[i] : sign; };
  BigInt r;
  for (int i = 0; i < 4; ++i)
    r.limbs[i] = within == 0 ? limb(i + places) : limb(i + places) >> within | limb(i + places + 1) << (64 - within);
  return r;
}

}  // namespace sve
