// The general forms of conversions, rounding to integral values, and scaling.
#include "sve/fplib/conversions.h"

#include <algorithm>

namespace sve {
namespace {

// A NaN in another format: quiet, with the sign and as much of the payload as there is room for at its top.
template <class From, class To>
To convert_nan(From op) {
  using F = Format<From>;
  using G = Format<To>;
  const std::uint64_t payload = op & F::fraction_mask;
  constexpr int widening = G::fraction_bits - F::fraction_bits;
  const std::uint64_t fraction = widening > 0 ? payload << std::max(widening, 0) : payload >> std::max(-widening, 0);
  return with_sign(sign_of(op), static_cast<To>(fraction | G::default_nan));
}

template <class From, class To>
Outcome<To> narrow(From op, int rounding, FPSCR fpscr) {
  using F = Format<From>;
  using G = Format<To>;
  const unsigned sgn = sign_of(op);
  const bool alternative = sizeof(To) == 2 && (fpscr & fpscr_ahp);
  if (is_nan(op)) {
    if (alternative) return {with_sign<To>(sgn, 0), flag_ioc};
    return {(fpscr & fpscr_dn) ? G::default_nan : convert_nan<From, To>(op), is_signalling_nan(op) ? flag_ioc : 0};
  }
  if (magnitude_of(op) == F::infinity) {
    if (alternative) return {with_sign(sgn, G::magnitude_mask), flag_ioc};
    return {with_sign(sgn, G::infinity), 0};
  }
  const std::uint64_t fraction = op & F::fraction_mask;
  if (fraction == 0) return {with_sign<To>(sgn, 0), 0};
  if (fpscr & fpscr_fz) return {with_sign<To>(sgn, 0), flag_idc};
  // A source denormal: so far below the result's range that its missing leading one does not matter.
  const int mode = static_cast<int>((fpscr >> 22) & 15) | (alternative ? mode_ahp : 0);
  return round_pack<To>(sgn, 1 + G::bias - F::bias, 1, rounding, mode);
}

template <class From, class To>
Outcome<To> widen(From op, FPSCR fpscr) {
  using F = Format<From>;
  using G = Format<To>;
  const unsigned sgn = sign_of(op);
  const bool half = sizeof(From) == 2;
  const bool alternative = half && (fpscr & fpscr_ahp);
  Unpacked<From> u = {sgn, static_cast<int>(magnitude_of(op) >> F::fraction_bits),
                      static_cast<std::uint64_t>(op & F::fraction_mask)};
  if (u.exp == F::exponent_max && !alternative) {
    if (u.mnt == 0) return {with_sign(sgn, G::infinity), 0};
    return {(fpscr & fpscr_dn) ? G::default_nan : convert_nan<From, To>(op), is_signalling_nan(op) ? flag_ioc : 0};
  }
  if (u.exp == 0) {
    if (u.mnt == 0) return {with_sign<To>(sgn, 0), 0};
    if (fpscr & (half ? fpscr_fz16 : fpscr_fz)) return {with_sign<To>(sgn, 0), F::input_flush_flag};
    u.exp = 1;
    fp_normalise(u);
  }
  const std::uint64_t fraction = (u.mnt & F::fraction_mask) << std::max(G::fraction_bits - F::fraction_bits, 0);
  const std::uint64_t exponent = static_cast<std::uint64_t>(u.exp + G::bias - F::bias);
  return {with_sign(sgn, static_cast<To>((exponent << G::fraction_bits) | fraction)), 0};
}

}  // namespace

template <class From, class To>
Outcome<To> convert_any(From op, int rounding, FPSCR fpscr) {
  if constexpr (sizeof(To) < sizeof(From)) return narrow<From, To>(op, rounding, fpscr);
  return widen<From, To>(op, fpscr);
}

namespace {

template <class T>
Outcome<T> round_to_integral(T op, int rounding, bool exact, int mode) {
  using F = Format<T>;
  int flags = 0;
  const Unpacked<T> u = fp_unpack(op, mode, flags);
  if (u.nan()) return fp_process_NaN(op, mode);
  if (u.zero()) return {with_sign<T>(u.sgn, 0), flags};
  const int fraction_bits = F::bias + F::fraction_bits - u.exp;
  if (fraction_bits <= 0) return {op, 0};
  const Cut cut = cut_fraction(u.mnt, fraction_bits);
  Unpacked<T> rounded = {u.sgn, F::bias + F::fraction_bits, round_integer(cut, u.sgn, rounding)};
  if (exact && cut.error != 0) flags |= flag_ixc;
  if (rounded.zero()) return {with_sign<T>(u.sgn, 0), flags};
  fp_normalise(rounded);
  return {with_sign(u.sgn, static_cast<T>((static_cast<std::uint64_t>(rounded.exp) << F::fraction_bits) |
                                          (rounded.mnt & F::fraction_mask))),
          flags};
}

template <class T>
Outcome<T> scale_by(T a, int scale, int mode) {
  int flags = 0;
  Unpacked<T> u = fp_unpack(a, mode, flags);
  if (u.nan()) return fp_process_NaN(a, mode);
  if (u.infinite()) return {a, 0};
  if (u.zero()) return {with_sign<T>(u.sgn, 0), flags};
  fp_normalise(u);
  const Outcome<T> scaled = round_normalised<T>(
      u.sgn, u.exp + scale, u.mnt << (significand_top - Format<T>::fraction_bits), mode & mode_rounding, mode);
  return with_flags(scaled, flags);
}

}  // namespace

template <class From, class To>
Outcome<To> to_fixed_any(From op, int fbits, bool u, int rounding, int mode) {
  using F = Format<From>;
  constexpr int width = 8 * sizeof(To);
  int flags = 0;
  const Unpacked<From> v = fp_unpack(op, mode, flags);
  const Outcome<To> saturated = {static_cast<To>(saturation(v.sgn, u, width)), flag_ioc};  // and no other flag
  if (v.nan()) return {0, flag_ioc};
  if (v.infinite()) return saturated;
  const int exp = fbits + v.exp + (1023 - F::bias);
  const unsigned long mantissa = v.mnt << (52 - F::fraction_bits);
  unsigned long x;
  if (exp > 1086) {  // 2^64 at least
    flags |= flag_ioc;
    x = saturation(v.sgn, u, 64);
  } else {
    x = FPToFixed_64(static_cast<int>(v.sgn), exp, mantissa, u, static_cast<FPRounding>(rounding), &flags);
  }
  if constexpr (width < 64) {
    const long s = static_cast<long>(x), limit = 1l << (width - 1);
    if (u ? x >> width != 0 : s >= limit || s < -limit) return saturated;
  }
  return {static_cast<To>(x), flags};
}

}  // namespace sve

template <class T>
T FPRoundInt(T op, FPRounding rounding, bool exact, FPSCR& fpscr) {
  return sve::settle(sve::round_to_integral(op, rounding, exact, sve::mode_of(fpscr)), fpscr);
}

unsigned long FPToFixed_64(int sgn, int exp, unsigned long mnt, bool u, FPRounding rounding, int* flags) {
  const sve::Cut cut = sve::cut_fraction(mnt << 11, 1086 - exp);
  const unsigned long x = sve::round_integer(cut, sgn != 0, rounding);
  const bool out_of_range = u ? sgn && x != 0 : x > (sgn ? 1ul << 63 : (1ul << 63) - 1);
  if (out_of_range) {
    *flags = sve::flag_ioc;
    return sve::saturation(sgn, u, 64);
  }
  if (cut.error != 0) *flags = sve::flag_ixc;
  return sgn ? -x : x;
}

// The clamps exceed every exponent range.
unsigned short FPScale16(unsigned short a, short scale, FPSCR& fpscr) {
  return sve::settle(sve::scale_by(a, std::clamp<int>(scale, -60, 60), sve::mode_of(fpscr)), fpscr);
}
unsigned int FPScale32(unsigned int a, int scale, FPSCR& fpscr) {
  return sve::settle(sve::scale_by(a, std::clamp(scale, -300, 300), sve::mode_of(fpscr)), fpscr);
}
unsigned long FPScale64(unsigned long a, long scale, FPSCR& fpscr) {
  return sve::settle(sve::scale_by(a, static_cast<int>(std::clamp(scale, -3000l, 3000l)), sve::mode_of(fpscr)), fpscr);
}

#define SVE_FPLIB_INSTANTIATE(From, To)                                   \
  template sve::Outcome<To> sve::convert_any<From, To>(From, int, FPSCR); \
  template To FPConvert<From, To>(From, FPRounding, FPSCR&);
SVE_FPLIB_CONVERT_PAIRS(SVE_FPLIB_INSTANTIATE)
#undef SVE_FPLIB_INSTANTIATE
#define SVE_FPLIB_INSTANTIATE(From, To)                                             \
  template sve::Outcome<To> sve::to_fixed_any<From, To>(From, int, bool, int, int); \
  template To fplibFPToFixed<From, To>(From, int, bool, FPRounding, FPSCR&);
SVE_FPLIB_FIXED_PAIRS(SVE_FPLIB_INSTANTIATE)
#undef SVE_FPLIB_INSTANTIATE
#define SVE_FPLIB_INSTANTIATE(T)                      \
  template T FPRoundInt(T, FPRounding, bool, FPSCR&); \
  template T fplibFixedToFP<T>(unsigned long, int, bool, FPRounding, FPSCR&);
SVE_FPLIB_FORMATS(SVE_FPLIB_INSTANTIATE)
