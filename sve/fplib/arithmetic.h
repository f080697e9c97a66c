// Add, subtract, multiply and fused multiply-add on raw bits.
//
// They are in line for normal operands and normal results, without branches that depend on values in that range, so
// that a vector loop keeps the mode word and the flags in registers. Zeros, denormals, infinities and NaNs take the
// `*_any` functions, which are the whole operation.
#pragma once

#include <algorithm>
#include <type_traits>

#include "sve/fplib/core.h"

namespace sve {

/// a + b, or a - b, for all operands.
template <class T, bool Subtract>
Outcome<T> add_any(T a, T b, int mode);

/// a * b for all operands. Infinity times zero is invalid, or 2.0 in the extended form.
template <class T, bool Extended>
Outcome<T> multiply_any(T a, T b, int mode);

/// (a + b * c) * 2^scale for all operands, rounded once.
template <class T>
Outcome<T> multiply_add_any(T a, T b, T c, int scale, int mode);

/// Exchanges two words without a branch: on real data the condition is as good as random.
template <class Word>
constexpr void exchange_if(bool condition, Word& a, Word& b) {
  const Word difference = static_cast<Word>((a ^ b) & -static_cast<Word>(condition));
  a ^= difference;
  b ^= difference;
}

/// Adds, or subtracts, the magnitudes of two finite values of which the first is not smaller. The sign is the first's.
template <class T>
[[gnu::always_inline]] inline Outcome<T> add_ordered(Unpacked<T> larger, Unpacked<T> smaller, int mode) {
  using F = Format<T>;
  // One free bit above the hidden bit for the carry; below it are more than enough guard bits for a sticky one.
  constexpr int top = significand_top - 1;
  constexpr int lift = top - F::fraction_bits;
  const int distance = larger.exp - smaller.exp;
  const std::uint64_t x = larger.mnt << lift;
  const std::uint64_t y = shift_right_sticky(smaller.mnt << lift, distance < 63 ? distance : 63);
  const std::uint64_t differ = larger.sgn ^ smaller.sgn;
  const std::uint64_t sum = x + (y ^ -differ) + differ;
  if (sum == 0) [[unlikely]]
    return exact_zero<T>(mode);
  const int shift = std::countl_zero(sum) - (63 - significand_top);
  return round_normalised<T>(larger.sgn, larger.exp + (significand_top - top) - shift, sum << shift,
                             mode & mode_rounding, mode);
}

template <class T, bool Subtract>
[[gnu::always_inline]] inline Outcome<T> add(T a, T b, int mode) {
  if (!(is_normal(a) & is_normal(b))) [[unlikely]]
    return add_any<T, Subtract>(a, b, mode);
  if (Subtract) b = FPNeg(b);
  exchange_if(magnitude_of(a) < magnitude_of(b), a, b);
  return add_ordered(unpack_normal(a), unpack_normal(b), mode);
}

/// Multiplies finite values whose mantissas both have their leading one at the hidden bit.
template <class T>
[[gnu::always_inline]] inline Outcome<T> multiply_finite(Unpacked<T> a, Unpacked<T> b, int mode) {
  using F = Format<T>;
  std::uint64_t product;  // leading one at significand_top or one below
  if constexpr (sizeof(T) == 8) {
    const Uint128 wide = static_cast<Uint128>(a.mnt << 10) * (b.mnt << 11);
    product = static_cast<std::uint64_t>(wide >> 64) | (static_cast<std::uint64_t>(wide) != 0);
  } else {
    product = a.mnt * b.mnt << (significand_top - 1 - 2 * F::fraction_bits);
  }
  const int shift = product >> significand_top ? 0 : 1;
  return round_normalised<T>(a.sgn ^ b.sgn, a.exp + b.exp - F::bias + 1 - shift, product << shift, mode & mode_rounding,
                             mode);
}

template <class T, bool Extended>
[[gnu::always_inline]] inline Outcome<T> multiply(T a, T b, int mode) {
  if (!(is_normal(a) & is_normal(b))) [[unlikely]]
    return multiply_any<T, Extended>(a, b, mode);
  return multiply_finite(unpack_normal(a), unpack_normal(b), mode);
}

/// How the fused operation holds its two terms in words of type `Word`, on one exponent scale: that of a leading one at
/// `top`. A product of significands stands as high as it may: its top bit is below `top`, which takes the sum's carry,
/// so that the word's own is the sum's sign; where the word has room for more, the factor that is shifted stays in 64
/// bits. An addend's leading one stands at the place of a product's higher one. A term that is shifted out of the word
/// leaves a sticky one. It is at least three bits below the last of the larger term; where more than one leading bit
/// cancels, nothing has been shifted out. So one rounding is correct.
template <class T, class Word>
struct FusedLayout {
  static constexpr int significand_bits = Format<T>::fraction_bits + 1;
  static constexpr int top = 8 * sizeof(Word) - 2;
  static constexpr int product_shift = std::min(top - 2 * significand_bits, 64 - significand_bits);
  static constexpr int addend_shift = product_shift + significand_bits;
  static constexpr int addend_exponent = top - addend_shift - Format<T>::fraction_bits;
  static constexpr int product_exponent = top - Format<T>::bias - product_shift - 2 * Format<T>::fraction_bits;
  static_assert(product_shift >= 3);
};

/// The word of a term where one element is computed at a time.
template <class T>
using TermWord = std::conditional_t<sizeof(T) == 8, Uint128, std::uint64_t>;

/// One term of a sum: (-1)^sgn * magnitude * 2^exp on the scale of its layout.
template <class T>
struct Term {
  unsigned sgn;
  int exp;
  TermWord<T> magnitude;
  using Layout = FusedLayout<T, TermWord<T>>;
};

template <class T>
[[gnu::always_inline]] inline Term<T> addend_term(Unpacked<T> a) {
  using L = typename Term<T>::Layout;
  return {a.sgn, a.exp + L::addend_exponent, static_cast<TermWord<T>>(a.mnt) << L::addend_shift};
}

template <class T>
[[gnu::always_inline]] inline Term<T> product_term(Unpacked<T> b, Unpacked<T> c) {
  using L = typename Term<T>::Layout;
  return {b.sgn ^ c.sgn, b.exp + c.exp + L::product_exponent,
          static_cast<TermWord<T>>(b.mnt) * (c.mnt << L::product_shift)};
}

[[gnu::always_inline]] inline std::uint64_t align_term(std::uint64_t x, int distance) {
  return shift_right_sticky(x, distance < 63 ? distance : 63);
}

[[gnu::always_inline]] inline Uint128 align_term(Uint128 x, int distance) {
  distance = distance < 127 ? distance : 127;
  const std::uint64_t low = static_cast<std::uint64_t>(x), high = static_cast<std::uint64_t>(x >> 64);
  const int zeros = low != 0 ? std::countr_zero(low) : 64 + std::countr_zero(high);
  return (x >> distance) | static_cast<std::uint64_t>(zeros < distance);
}

/// Adds two terms, of which at most one is zero, and rounds their sum times 2^scale.
template <class T>
[[gnu::always_inline]] inline Outcome<T> add_terms(Term<T> x, Term<T> y, int scale, int mode) {
  using Word = TermWord<T>;
  const int distance = x.exp - y.exp;
  const bool swap = distance < 0;
  exchange_if(swap, x.magnitude, y.magnitude);
  const Word aligned = align_term(y.magnitude, swap ? -distance : distance);
  // Terms leave the word's top bit free, so it tells whether a difference is below zero.
  const unsigned differ = x.sgn ^ y.sgn;
  Word sum = x.magnitude + ((aligned ^ -static_cast<Word>(differ)) + differ);
  const unsigned negative = static_cast<unsigned>(sum >> (8 * sizeof(Word) - 1));
  sum = (sum ^ -static_cast<Word>(negative)) + negative;
  const unsigned sgn = x.sgn ^ negative ^ (differ & static_cast<unsigned>(swap));
  if (sum == 0) [[unlikely]]
    return exact_zero<T>(mode);
  int exp = (swap ? y.exp : x.exp) + scale;
  std::uint64_t significand;
  if constexpr (sizeof(Word) == 8) {
    const int shift = std::countl_zero(sum) - (63 - significand_top);
    significand = sum << shift;
    exp -= shift;
  } else {
    if (static_cast<std::uint64_t>(sum >> 64) == 0) [[unlikely]] {  // nearly all cancelled
      sum <<= 63;
      exp -= 63;
    }
    const std::uint64_t high = static_cast<std::uint64_t>(sum >> 64), low = static_cast<std::uint64_t>(sum);
    const int shift = std::countl_zero(high) - (63 - significand_top);
    significand = (high << shift) | (low >> 1 >> (63 - shift)) | static_cast<std::uint64_t>(low << shift != 0);
    exp -= shift;
  }
  return round_normalised<T>(sgn, exp, significand, mode & mode_rounding, mode);
}

template <class T>
[[gnu::always_inline]] inline Outcome<T> multiply_add(T a, T b, T c, int mode) {
  // An addend of zero, the usual start of an accumulation, needs no more than no hidden bit.
  const bool addend_zero = magnitude_of(a) == 0;
  if (!((is_normal(a) | addend_zero) & is_normal(b) & is_normal(c))) [[unlikely]]
    return multiply_add_any(a, b, c, 0, mode);
  Unpacked<T> addend = unpack_normal(a);
  if (addend_zero) addend.mnt = 0;
  return add_terms(addend_term(addend), product_term(unpack_normal(b), unpack_normal(c)), 0, mode);
}

}  // namespace sve

/// a + b. Infinities of different signs are invalid.
template <class T>
[[gnu::always_inline]] inline T FPAdd(T a, T b, FPSCR& fpscr) {
  return sve::settle(sve::add<T, false>(a, b, sve::mode_of(fpscr)), fpscr);
}

/// a - b. A NaN `b` keeps its own sign.
template <class T>
[[gnu::always_inline]] inline T FPSub(T a, T b, FPSCR& fpscr) {
  return sve::settle(sve::add<T, true>(a, b, sve::mode_of(fpscr)), fpscr);
}

/// a * b. Infinity times zero is invalid.
template <class T>
[[gnu::always_inline]] inline T FPMul(T a, T b, FPSCR& fpscr) {
  return sve::settle(sve::multiply<T, false>(a, b, sve::mode_of(fpscr)), fpscr);
}

/// a * b, but infinity times zero is 2.0 with the product's sign and raises nothing.
template <class T>
[[gnu::always_inline]] inline T FPMulX(T a, T b, FPSCR& fpscr) {
  return sve::settle(sve::multiply<T, true>(a, b, sve::mode_of(fpscr)), fpscr);
}

/// a + b * c, rounded once. The addend comes first. Nothing is negated: callers flip operands with `FPNeg`.
template <class T>
[[gnu::always_inline]] inline T FPMulAdd(T a, T b, T c, FPSCR& fpscr) {
  return sve::settle(sve::multiply_add(a, b, c, sve::mode_of(fpscr)), fpscr);
}

/// (a + b * c) * 2^scale, rounded once, with the mode word as argument. Flags are added to `*flags`. A result too small
/// for its format's term width is already a sticky bit when the scale is applied.
unsigned short fp16_muladd(unsigned short a, unsigned short b, unsigned short c, int scale, int mode, int* flags);
unsigned int fp32_muladd(unsigned int a, unsigned int b, unsigned int c, int scale, int mode, int* flags);
unsigned long fp64_muladd(unsigned long a, unsigned long b, unsigned long c, int scale, int mode, int* flags);

#define SVE_FPLIB_DECLARE(T)                                              \
  extern template sve::Outcome<T> sve::add_any<T, false>(T, T, int);      \
  extern template sve::Outcome<T> sve::add_any<T, true>(T, T, int);       \
  extern template sve::Outcome<T> sve::multiply_any<T, false>(T, T, int); \
  extern template sve::Outcome<T> sve::multiply_any<T, true>(T, T, int);  \
  extern template sve::Outcome<T> sve::multiply_add_any(T, T, T, int, int);
SVE_FPLIB_FORMATS(SVE_FPLIB_DECLARE)
#undef SVE_FPLIB_DECLARE
