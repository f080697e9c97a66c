// Conversions between the formats and to and from integers, rounding to integral values, and scaling by powers of two.
#pragma once

#include "sve/fplib/core.h"

namespace sve {

/// Conversion of any value to another format, under the whole `FPSCR`.
template <class From, class To>
Outcome<To> convert_any(From op, int rounding, FPSCR fpscr);

template <class From, class To>
[[gnu::always_inline]] inline Outcome<To> convert(From op, int rounding, FPSCR fpscr) {
  using F = Format<From>;
  using G = Format<To>;
  constexpr int rebias = G::bias - F::bias;
  if (!is_normal(op)) [[unlikely]]
    return convert_any<From, To>(op, rounding, fpscr);
  if constexpr (sizeof(From) < sizeof(To)) {  // exact
    const std::uint64_t magnitude = magnitude_of(op);
    return {with_sign(sign_of(op), static_cast<To>((magnitude << (G::fraction_bits - F::fraction_bits)) +
                                                   (static_cast<std::uint64_t>(rebias) << G::fraction_bits))),
            0};
  } else {
    const Unpacked<From> u = unpack_normal(op);
    // Only here AHP reaches the rounding routine. FZ16 does not: a half result is never flushed.
    const int mode = static_cast<int>((fpscr >> 22) & 15) | (sizeof(To) == 2 && (fpscr & fpscr_ahp) ? mode_ahp : 0);
    return round_normalised<To>(u.sgn, u.exp + rebias, u.mnt << (significand_top - F::fraction_bits), rounding, mode);
  }
}

/// An integral magnitude after its fraction was cut, and what was cut: 0 nothing, 1 below half, 2 half, 3 above half.
struct Cut {
  std::uint64_t integer;
  int error;
};

/// Cuts the low `count` bits, any number of them, off `x`.
constexpr Cut cut_fraction(std::uint64_t x, int count) {
  if (count <= 0) return {x, 0};
  if (count > 65) return {0, x != 0};
  const std::uint64_t integer = count < 64 ? x >> count : 0;
  const std::uint64_t half = count < 65 ? (x >> (count - 1)) & 1 : 0;
  const std::uint64_t rest = count < 65 ? x & ((std::uint64_t{1} << (count - 1)) - 1) : x;
  return {integer, static_cast<int>(2 * half + (rest != 0))};
}

/// Rounds to an integer by an `FPRounding` other than to odd.
constexpr std::uint64_t round_integer(Cut cut, unsigned sgn, int rounding) {
  switch (rounding) {
    case FPRounding_TiesEven:
      return cut.integer + (cut.error == 3 || (cut.error == 2 && (cut.integer & 1)));
    case FPRounding_PosInf:
      return cut.integer + (cut.error != 0 && !sgn);
    case FPRounding_NegInf:
      return cut.integer + (cut.error != 0 && sgn);
    case FPRounding_TiesAway:
      return cut.integer + (cut.error >= 2);
    default:
      return cut.integer;
  }
}

/// The integer of a width that is nearest to values beyond its range.
constexpr unsigned long saturation(unsigned sgn, bool u, int width) {
  if (u) return (~0ul >> (64 - width)) & (static_cast<unsigned long>(sgn) - 1);
  return (1ul << (width - 1)) - 1 + sgn;
}

/// Conversion of any value to an integer.
template <class From, class To>
Outcome<To> to_fixed_any(From op, int fbits, bool u, int rounding, int mode);

template <class From, class To>
[[gnu::always_inline]] inline Outcome<To> to_fixed(From op, int fbits, bool u, int rounding, int mode) {
  using F = Format<From>;
  constexpr int width = 8 * sizeof(To);
  const Unpacked<From> v = unpack_normal(op);
  const int exp = v.exp - F::bias + fbits;
  // Whether a value of exactly as many bits as the result is in range, the general form decides.
  if (!is_normal(op) || rounding != FPRounding_Zero || exp == width - 1) [[unlikely]]
    return to_fixed_any<From, To>(op, fbits, u, rounding, mode);
  const std::uint64_t significand = v.mnt << (significand_top - F::fraction_bits);
  const int count = exp > significand_top ? 0 : exp < 0 ? significand_top + 1 : significand_top - exp;
  const std::uint64_t x = significand >> count;
  const bool out_of_range = (exp >= width) | (u & (v.sgn != 0) & (x != 0));
  const std::uint64_t in_range = (x ^ -static_cast<std::uint64_t>(v.sgn)) + v.sgn;
  return {static_cast<To>(out_of_range ? saturation(v.sgn, u, width) : in_range),
          out_of_range                            ? flag_ioc
          : std::countr_zero(significand) < count ? flag_ixc
                                                  : 0};
}

}  // namespace sve

/// Converts between two different formats. `rounding` counts only where the result is narrower. DN, FZ and AHP of the
/// `FPSCR` are in force; FZ16 flushes a half source, silently, but never a half result.
template <class From, class To>
[[gnu::always_inline]] inline To FPConvert(From op, FPRounding rounding, FPSCR& fpscr) {
  return sve::settle(sve::convert<From, To>(op, rounding, fpscr), fpscr);
}

/// Rounds to an integral value in the same format. Inexact results raise IXC only if `exact` is set. RMode is not read.
template <class T>
T FPRoundInt(T op, FPRounding rounding, bool exact, FPSCR& fpscr);

/// Converts to an integer of the width of `To` with `fbits` fraction bits, unsigned if `u`. Values out of range give
/// the nearest integer there is, a NaN gives 0; both raise IOC, and not IXC.
template <class From, class To>
[[gnu::always_inline]] inline To fplibFPToFixed(From op, int fbits, bool u, FPRounding rounding, FPSCR& fpscr) {
  return sve::settle(sve::to_fixed<From, To>(op, fbits, u, rounding, sve::mode_of(fpscr)), fpscr);
}

/// The core of `fplibFPToFixed`, at 64 bits: `exp` is biased by 1023 and `mnt` holds the hidden bit at bit 52. IOC and
/// IXC replace what was in `*flags`.
unsigned long FPToFixed_64(int sgn, int exp, unsigned long mnt, bool u, FPRounding rounding, int* flags);

/// Converts a 64-bit integer with `fbits` fraction bits, unsigned if `u`; the caller extends narrower ones. A half
/// result is never flushed and never in the alternative format.
template <class T>
[[gnu::always_inline]] inline T fplibFixedToFP(unsigned long op, int fbits, bool u, FPRounding rounding, FPSCR& fpscr) {
  using F = sve::Format<T>;
  if (op == 0) return 0;
  const unsigned sgn = !u && op >> 63;
  const unsigned long magnitude = sgn ? -op : op;
  const int zeros = std::countl_zero(magnitude);
  // The top bit of the magnitude stands one higher than a significand's; it is moved down, and a lost one stays.
  const std::uint64_t significand = sve::shift_right_sticky(magnitude << zeros, 63 - sve::significand_top);
  const int mode = sizeof(T) == 2 ? static_cast<int>((fpscr >> 22) & 12) : sve::mode_of(fpscr);
  return sve::settle(sve::round_normalised<T>(sgn, F::bias + 63 - fbits - zeros, significand, rounding, mode), fpscr);
}

/// a * 2^scale, rounded by RMode.
unsigned short FPScale16(unsigned short a, short scale, FPSCR& fpscr);
unsigned int FPScale32(unsigned int a, int scale, FPSCR& fpscr);
unsigned long FPScale64(unsigned long a, long scale, FPSCR& fpscr);

#define SVE_FPLIB_CONVERT_PAIRS(DO) \
  DO(unsigned int, unsigned short)  \
  DO(unsigned long, unsigned short) \
  DO(unsigned long, unsigned int)   \
  DO(unsigned short, unsigned int)  \
  DO(unsigned short, unsigned long) \
  DO(unsigned int, unsigned long)
#define SVE_FPLIB_FIXED_PAIRS(DO)    \
  DO(unsigned short, unsigned short) \
  DO(unsigned short, unsigned int)   \
  DO(unsigned int, unsigned int)     \
  DO(unsigned long, unsigned int)    \
  DO(unsigned short, unsigned long)  \
  DO(unsigned int, unsigned long)    \
  DO(unsigned long, unsigned long)

#define SVE_FPLIB_DECLARE(From, To) extern template sve::Outcome<To> sve::convert_any<From, To>(From, int, FPSCR);
SVE_FPLIB_CONVERT_PAIRS(SVE_FPLIB_DECLARE)
#undef SVE_FPLIB_DECLARE
#define SVE_FPLIB_DECLARE(From, To) \
  extern template sve::Outcome<To> sve::to_fixed_any<From, To>(From, int, bool, int, int);
SVE_FPLIB_FIXED_PAIRS(SVE_FPLIB_DECLARE)
#undef SVE_FPLIB_DECLARE
extern template unsigned short FPRoundInt(unsigned short, FPRounding, bool, FPSCR&);
extern template unsigned int FPRoundInt(unsigned int, FPRounding, bool, FPSCR&);
extern template unsigned long FPRoundInt(unsigned long, FPRounding, bool, FPSCR&);
