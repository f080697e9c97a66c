// Division and square root on raw bits, in line for normal operands.
//
// Both compute by iterations of fixed shape, in integers with the host's integer division, and settle the last bit by
// an exact product. No branch depends on values as long as operands are normal.
#pragma once

#include "sve/fplib/core.h"

namespace sve {

/// a / b for all operands.
template <class T>
Outcome<T> divide_any(T a, T b, int mode);

/// The square root of any a.
template <class T>
Outcome<T> square_root_any(T a, int mode);

/// Rounds a quotient or root, bit 0 of which may be sticky. `shift` brings its leading one to the top of a significand,
/// and `exp` counts for bit `top`.
template <class T>
[[gnu::always_inline]] inline Outcome<T> round_at(unsigned sgn, int exp, std::uint64_t x, int top, int shift,
                                                  int mode) {
  return round_normalised<T>(sgn, exp - shift + (significand_top - top), x << shift, mode & mode_rounding, mode);
}
template <class T>
[[gnu::always_inline]] inline Outcome<T> round_at(unsigned sgn, int exp, std::uint64_t x, int top, int mode) {
  return round_at<T>(sgn, exp, x, top, std::countl_zero(x) - (63 - significand_top), mode);
}

/// The upper half of a product.
[[gnu::always_inline]] inline std::uint64_t multiply_high(std::uint64_t a, std::uint64_t b) {
  return static_cast<std::uint64_t>(static_cast<Uint128>(a) * b >> 64);
}

// Significands with the leading one at the top of the format's word. The exponent of the result counts for its top bit.

[[gnu::always_inline]] inline Outcome<unsigned short> divide_finite(Unpacked<unsigned short> a,
                                                                    Unpacked<unsigned short> b, unsigned sgn,
                                                                    int mode) {
  const unsigned dividend = static_cast<unsigned>(a.mnt) << 20;
  const unsigned divisor = static_cast<unsigned>(b.mnt);
  const unsigned q = dividend / divisor;
  return round_at<unsigned short>(sgn, a.exp - b.exp + 26, q | (q * divisor != dividend), 31, mode);
}

[[gnu::always_inline]] inline Outcome<unsigned int> divide_finite(Unpacked<unsigned int> a, Unpacked<unsigned int> b,
                                                                  unsigned sgn, int mode) {
  const std::uint64_t dividend = a.mnt << 26;
  const std::uint64_t q = dividend / b.mnt;
  return round_at<unsigned int>(sgn, a.exp - b.exp + 164, q | (q * b.mnt != dividend), 63, mode);
}

// Newton-Raphson on the reciprocal, since a 128-by-64 division is not used. The seed, from the upper 33 bits of the
// divisor, is off by less than 2^-31 of itself. One step squares that and is cut off twice, each time by less than
// 2^-62: in all the reciprocal is too small by less than 2^-60. So the quotient, of at most 56 bits, is estimated below
// the true one by less than 2^-4, and less than one by its own cutting: it or the next is right, and the exact product
// decides. Factors are shifted so that what is wanted of a product is its upper half.
[[gnu::always_inline]] inline Outcome<unsigned long> divide_finite(Unpacked<unsigned long> x, Unpacked<unsigned long> y,
                                                                   unsigned sgn, int mode) {
  const std::uint64_t b = y.mnt << 11;
  const std::uint64_t r = ~std::uint64_t{0} / (y.mnt >> 20);
  const std::uint64_t e = static_cast<std::uint64_t>(-(static_cast<Uint128>(b) * (r << 32)) >> 64);  // 2^64 - b*r/2^32
  const std::uint64_t reciprocal = multiply_high(e, r << 31);                                        // of 62 bits
  const std::uint64_t q = multiply_high(reciprocal, x.mnt << 5);
  // What the next quotient leaves; its top bit is set if it is too much, which is as good as random.
  const Uint128 rest = (static_cast<Uint128>(x.mnt) << 64) - static_cast<Uint128>(b >> 2) * (q + 1);
  const std::uint64_t quotient = q + 1 - static_cast<std::uint64_t>(rest >> 127);
  const int shift = x.mnt < y.mnt ? 7 : 6;
  return round_at<unsigned long>(sgn, x.exp - y.exp + 1031, (quotient << 1) | (rest != 0), 64, shift, mode);
}

// Square roots: a linear seed, Newton steps, and the last bit decided by squaring. The radicand has its leading one in
// one of the two top bits. The line 3a/8 + 5/16 is within 15 percent of the root of a/2, and a step makes an error e
// into e*e/2: 2^-6, 2^-14 and 2^-29 of the root. What a step is cut off by is subtracted with a margin, so that the
// estimate is never above the root.

// The line is used for the root of a itself here, which it is 19 to 32 percent below: three steps leave 7 percent, 2^-8
// and 2^-18. The estimate is below the root, of 13 bits, by 0.4 to 1.5, as all radicands show: it or the next is right.
[[gnu::always_inline]] inline Outcome<unsigned short> root_finite(Unpacked<unsigned short> u, int mode) {
  unsigned a = static_cast<unsigned>(u.mnt) << 5;
  int exp = u.exp - 5;
  const int even = ~exp & 1;
  a >>= even;
  exp += even;
  const unsigned seed = (a >> 3) + (a >> 2) + 0x5000;
  const unsigned n = a << 16;
  unsigned x = (n / seed + seed) >> 1;
  x = (n / x + x) >> 1;
  const std::uint64_t wide = static_cast<std::uint64_t>(x) << 16;
  x = (static_cast<unsigned>(((static_cast<std::uint64_t>(a) << 48) / wide + wide) >> 17) - 4) >> 3;
  const unsigned square = (x + 1) * (x + 1), target = a << 10;
  x += square <= target;
  return round_at<unsigned short>(0, (exp + 25) >> 1, (static_cast<std::uint64_t>(x) << 1) | (square != target), 16,
                                  mode);
}

// Three steps; the last, less its margin of 32, is below the root, of 26 bits, by 0.4 to 1.5.
[[gnu::always_inline]] inline Outcome<unsigned int> root_finite(Unpacked<unsigned int> u, int mode) {
  unsigned a = static_cast<unsigned>(u.mnt) << 8;
  int exp = u.exp - 8;
  const int even = ~exp & 1;
  a >>= even;
  exp += even;
  const unsigned seed = (a >> 3) + (a >> 2) + 0x50000000;
  unsigned x = a / (seed >> 15) + (seed >> 16);
  const unsigned wide = (((x >> 1) & 0xffff) + a / x) << 15;
  x = ((wide >> 1) - 32 + static_cast<unsigned>(((static_cast<std::uint64_t>(a) << 32) / wide) >> 2)) >> 6;
  const std::uint64_t next = std::uint64_t{x} + 1;
  const std::uint64_t square = next * next, target = static_cast<std::uint64_t>(a) << 19;
  const std::uint64_t root = std::uint64_t{x} + (square <= target);
  return round_at<unsigned int>(0, (exp + 147) >> 1, (root << 1) | (square != target), 32, mode);
}

// The parity of the exponent is the opposite of the other widths: the mantissa stands elsewhere relative to it. Three
// steps give 29 bits, whose reciprocal by one division and one step serves the fourth. It is off by less than 16 units
// of which the root's last bit has 512, so that the nearest root, which 256 and the upper bits make of it, is right or
// one too much.
[[gnu::always_inline]] inline Outcome<unsigned long> root_finite(Unpacked<unsigned long> u, int mode) {
  std::uint64_t a = u.mnt << 11;
  int exp = u.exp - 11;
  const int odd = exp & 1;
  a >>= odd;
  exp += odd;
  const unsigned seed = static_cast<unsigned>((a >> 34) + (a >> 35)) + 0x50000000;
  const unsigned high = static_cast<unsigned>(a >> 32);
  const unsigned first = high / (seed >> 15) + (seed >> 16);
  const unsigned second = (high / first + (first >> 1)) << 15;
  const unsigned x = static_cast<unsigned>((a / second) >> 2) + (second >> 1);
  const std::uint64_t r = (std::uint64_t{1} << 62) / x;
  const std::uint64_t d = -(x * r) * 2;
  const std::uint64_t reciprocal = multiply_high(d, r << 31);
  const std::uint64_t y = (static_cast<std::uint64_t>(x) << 31) + multiply_high(a, reciprocal << 2);
  const std::uint64_t next = ((y - 256) >> 9) + 1;
  // What this root leaves, in units of which both sides fill two words.
  const Uint128 rest = (static_cast<Uint128>(a >> 1) << 64) - static_cast<Uint128>(next << 9) * (next << 9);
  const std::uint64_t root = next - static_cast<std::uint64_t>(rest >> 127);
  const int shift = a >> 63 ? 7 : 8;
  return round_at<unsigned long>(0, (exp + 1053) >> 1, (root << 1) | (rest != 0), 64, shift, mode);
}

template <class T>
[[gnu::always_inline]] inline Outcome<T> divide(T a, T b, int mode) {
  if (!(is_normal(a) & is_normal(b))) [[unlikely]]
    return divide_any(a, b, mode);
  return divide_finite(unpack_normal(a), unpack_normal(b), sign_of<T>(a ^ b), mode);
}

template <class T>
[[gnu::always_inline]] inline Outcome<T> square_root(T a, int mode) {
  if (!is_normal(a) | (sign_of(a) != 0)) [[unlikely]]
    return square_root_any(a, mode);
  return root_finite(unpack_normal(a), mode);
}

}  // namespace sve

/// a / b. A finite value other than zero over zero raises DZC.
template <class T>
[[gnu::always_inline]] inline T FPDiv(T a, T b, FPSCR& fpscr) {
  return sve::settle(sve::divide(a, b, sve::mode_of(fpscr)), fpscr);
}

/// The square root of a. Values below zero are invalid; -0 is its own root.
template <class T>
[[gnu::always_inline]] inline T FPSqrt(T a, FPSCR& fpscr) {
  return sve::settle(sve::square_root(a, sve::mode_of(fpscr)), fpscr);
}

#define SVE_FPLIB_DECLARE(T)                                  \
  extern template sve::Outcome<T> sve::divide_any(T, T, int); \
  extern template sve::Outcome<T> sve::square_root_any(T, int);
SVE_FPLIB_FORMATS(SVE_FPLIB_DECLARE)
#undef SVE_FPLIB_DECLARE
