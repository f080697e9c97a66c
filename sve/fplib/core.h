// What all floating-point operations share: formats, unpacking, choice of NaN, rounding and packing.
//
// Every operation works on raw bits with integer instructions only. Inner functions take the mode word and return the
// result together with its flags, so that nothing they touch has to live in memory; the public operations turn an
// `FPSCR&` into the one and the other.
#pragma once

#include <bit>
#include <cstdint>

#include "sve/fplib/control.h"

namespace sve {

__extension__ using Uint128 = unsigned __int128;

/// A result and the flags (`flag_*`) that it raised.
template <class T>
struct Outcome {
  T value;
  int flags;
};
/// The same with flags that were raised before: mostly by unpacking.
template <class T>
constexpr Outcome<T> with_flags(Outcome<T> outcome, int flags) {
  return {outcome.value, outcome.flags | flags};
}

/// The three formats by the type that holds their bits; no other type has a format.
#define SVE_FPLIB_FORMATS(DO) DO(unsigned short) DO(unsigned int) DO(unsigned long)
template <class T>
struct Format;

template <class T, int ExponentBits, int FlushMode, bool ReportsFlush>
struct FormatOf {
  static constexpr int width = 8 * sizeof(T);
  static constexpr int exponent_bits = ExponentBits;
  static constexpr int fraction_bits = width - 1 - exponent_bits;
  static constexpr int exponent_max = (1 << exponent_bits) - 1;  ///< field of infinities and NaNs
  static constexpr int bias = exponent_max >> 1;
  static constexpr T hidden = static_cast<T>(T{1} << fraction_bits);
  static constexpr T fraction_mask = hidden - 1;
  static constexpr T sign = static_cast<T>(T{1} << (width - 1));
  static constexpr T magnitude_mask = static_cast<T>(~sign);
  static constexpr T infinity = static_cast<T>(T{exponent_max} << fraction_bits);
  static constexpr T quiet = static_cast<T>(hidden >> 1);
  static constexpr T default_nan = infinity | quiet;
  static constexpr T largest_normal = infinity - 1;
  static constexpr int flush_mode = FlushMode;                          ///< mode bit that flushes denormals
  static constexpr int input_flush_flag = ReportsFlush ? flag_idc : 0;  ///< raised when an input is flushed
};

template <>
struct Format<unsigned short> : FormatOf<unsigned short, 5, mode_fz16, false> {};
template <>
struct Format<unsigned int> : FormatOf<unsigned int, 8, mode_fz, true> {};
template <>
struct Format<unsigned long> : FormatOf<unsigned long, 11, mode_fz, true> {};

template <class T>
constexpr T with_sign(unsigned sgn, T magnitude) {
  return static_cast<T>(static_cast<T>(T{1} << (Format<T>::width - 1)) * sgn | magnitude);
}

template <class T>
constexpr unsigned sign_of(T x) {
  return static_cast<unsigned>(x >> (Format<T>::width - 1));
}

template <class T>
constexpr T magnitude_of(T x) {
  return x & Format<T>::magnitude_mask;
}

template <class T>
constexpr bool is_nan(T x) {
  return magnitude_of(x) > Format<T>::infinity;
}

template <class T>
constexpr bool is_signalling_nan(T x) {
  return is_nan(x) && !(x & Format<T>::quiet);
}

template <class T>
constexpr bool is_quiet_nan(T x) {
  return magnitude_of(x) >= Format<T>::default_nan;
}

/// True for finite values that have a hidden bit. One subtraction-free test: the addition carries the largest exponent
/// field into the sign, where the mask drops it.
template <class T>
constexpr bool is_normal(T x) {
  return magnitude_of(static_cast<T>(x + Format<T>::hidden)) >= static_cast<T>(Format<T>::hidden << 1);
}

/// A value taken apart: exponent biased and never 0; mantissa with the hidden bit of normal values, infinities and
/// NaNs.
template <class T>
struct Unpacked {
  unsigned sgn;
  int exp;
  std::uint64_t mnt;

  constexpr bool nan() const { return exp == Format<T>::exponent_max && mnt != Format<T>::hidden; }
  constexpr bool infinite() const { return exp == Format<T>::exponent_max && mnt == Format<T>::hidden; }
  constexpr bool zero() const { return mnt == 0; }
};

/// Takes apart a value that is known to be normal.
template <class T>
constexpr Unpacked<T> unpack_normal(T x) {
  using F = Format<T>;
  return {sign_of(x), static_cast<int>(magnitude_of(x) >> F::fraction_bits),
          static_cast<std::uint64_t>((x & F::fraction_mask) | F::hidden)};
}

/// Takes any value apart. A denormal has the scale of exponent 1, and becomes a zero under the format's flush control.
template <class T>
constexpr Unpacked<T> fp_unpack(T x, int mode, int& flags) {
  using F = Format<T>;
  Unpacked<T> u = {sign_of(x), static_cast<int>(magnitude_of(x) >> F::fraction_bits),
                   static_cast<std::uint64_t>(x & F::fraction_mask)};
  if (u.exp != 0) {
    u.mnt |= F::hidden;
    return u;
  }
  u.exp = 1;
  if (u.mnt != 0 && (mode & F::flush_mode)) {
    u.mnt = 0;
    flags |= F::input_flush_flag;
  }
  return u;
}

/// Shifts a mantissa that is not zero until its top bit is the hidden bit, and lowers the exponent by as much.
template <class T>
constexpr void fp_normalise(Unpacked<T>& u) {
  const int shift = std::countl_zero(u.mnt) - (63 - Format<T>::fraction_bits);
  u.mnt <<= shift;
  u.exp -= shift;
}

/// The result that the NaN `x` gives: quieted, or the default NaN under DN.
template <class T>
constexpr Outcome<T> fp_process_NaN(T x, int mode) {
  using F = Format<T>;
  return {(mode & mode_dn) ? F::default_nan : static_cast<T>(x | F::quiet), is_signalling_nan(x) ? flag_ioc : 0};
}

/// The result that two operands give of which one at least is a NaN: a signalling one goes before a quiet one.
template <class T>
constexpr Outcome<T> fp_process_NaNs(T a, T b, int mode) {
  if (is_signalling_nan(a)) return fp_process_NaN(a, mode);
  if (is_signalling_nan(b)) return fp_process_NaN(b, mode);
  return fp_process_NaN(is_nan(a) ? a : b, mode);
}

template <class T>
constexpr Outcome<T> fp_process_NaNs3(T a, T b, T c, int mode) {
  if (is_signalling_nan(a)) return fp_process_NaN(a, mode);
  if (is_signalling_nan(b)) return fp_process_NaN(b, mode);
  if (is_signalling_nan(c)) return fp_process_NaN(c, mode);
  return fp_process_NaN(is_nan(a) ? a : is_nan(b) ? b : c, mode);
}

/// Rounds and packs (-1)^sgn * 1.mnt * 2^(exp - bias), whatever `exp` is. `mnt` is the fraction at the top of the word
/// without the leading one; bits far down may be sticky. `rm` is an `FPRounding`; `mode` gives flush and AHP.
template <class T>
Outcome<T> round_pack(unsigned sgn, int exp, T mnt, int rm, int mode);

extern template Outcome<unsigned short> round_pack(unsigned, int, unsigned short, int, int);
extern template Outcome<unsigned int> round_pack(unsigned, int, unsigned int, int, int);
extern template Outcome<unsigned long> round_pack(unsigned, int, unsigned long, int, int);

/// Position of the leading one in a significand on its way to rounding, whatever the format: one bit is left above it
/// for the carry out of rounding.
inline constexpr int significand_top = 62;

/// Shifts right by `count` below 64; a one lost at the bottom stays as bit 0.
constexpr std::uint64_t shift_right_sticky(std::uint64_t x, int count) {
  return (x >> count) | static_cast<std::uint64_t>(std::countr_zero(x) < count);
}

/// The significand without its leading one at the top of a format's word, as `round_pack` wants it.
template <class T>
constexpr T fraction_at_top(std::uint64_t significand) {
  constexpr int narrowing = 64 - Format<T>::width;
  return static_cast<T>(shift_right_sticky(significand << 2, narrowing));
}

/// Rounds and packs (-1)^sgn * significand * 2^(exp - bias), where the significand's leading one at `significand_top`
/// counts as 1. Equal to `round_pack`; results that are certain to be normal are made in line and without branches that
/// depend on the value.
template <class T>
[[gnu::always_inline]] inline Outcome<T> round_normalised(unsigned sgn, int exp, std::uint64_t significand, int rm,
                                                          int mode) {
  using F = Format<T>;
  constexpr int drop = significand_top - F::fraction_bits;
  constexpr std::uint64_t rest_mask = (std::uint64_t{1} << drop) - 1;
  if (static_cast<unsigned>(exp - 1) >= F::exponent_max - 2u || rm > mode_rounding) [[unlikely]]
    return round_pack<T>(sgn, exp, fraction_at_top<T>(significand), rm, mode);
  std::uint64_t bias = 0;
  if (rm == FPRounding_TiesEven) {
    bias = (rest_mask >> 1) + ((significand >> drop) & 1);
  } else if (rm == static_cast<int>(FPRounding_PosInf + sgn)) {  // away from zero: up if positive, down if negative
    bias = rest_mask;
  }
  // The leading one adds 1 to the exponent field, and so does a carry out of the fraction.
  const std::uint64_t packed =
      (static_cast<std::uint64_t>(exp - 1) << F::fraction_bits) + ((significand + bias) >> drop);
  return {with_sign(sgn, static_cast<T>(packed)), (significand & rest_mask) != 0 ? flag_ixc : 0};
}

/// What a finite computation gives when its result is exactly zero and its terms had different signs.
template <class T>
constexpr Outcome<T> exact_zero(int mode) {
  return {with_sign<T>((mode & mode_rounding) == FPRounding_NegInf, 0), 0};
}

/// A small number of halves, from 2 to 7, as a value of the format.
template <class T>
constexpr T halves(unsigned n) {
  using F = Format<T>;
  const int top = std::bit_width(n) - 1;
  return static_cast<T>((static_cast<T>(F::bias + top - 1) << F::fraction_bits) |
                        ((static_cast<T>(n) << (F::fraction_bits - top)) & F::fraction_mask));
}

/// Puts an outcome's flags into the status word.
template <class T>
[[gnu::always_inline]] inline T settle(Outcome<T> outcome, FPSCR& fpscr) {
  fpscr |= static_cast<FPSCR>(outcome.flags);
  return outcome.value;
}

}  // namespace sve

/// Rounds and packs one value; see `sve::round_pack`. Flags are added to `*flags`.
unsigned short fp16_round_(int sgn, int exp, unsigned short mnt, int rm, int mode, int* flags);
unsigned int fp32_round_(int sgn, int exp, unsigned int mnt, int rm, int mode, int* flags);
unsigned long fp64_round_(int sgn, int exp, unsigned long mnt, int rm, int mode, int* flags);

/// Brings one value to its canonical form: NaNs quieted or replaced, denormals flushed as the controls say.
unsigned short FPProcess16(unsigned short op, FPSCR& fpscr);
unsigned int FPProcess32(unsigned int op, FPSCR& fpscr);
unsigned long FPProcess64(unsigned long op, FPSCR& fpscr);

/// Inverts the sign, also of a NaN; raises nothing.
template <class T>
constexpr T FPNeg(T op) {
  return static_cast<T>(op ^ sve::Format<T>::sign);
}

/// Clears the sign, also of a NaN; raises nothing. There is no 16-bit form.
template <class T>
requires(sizeof(T) >= 4) constexpr T FPAbs(T op) { return sve::magnitude_of(op); }
