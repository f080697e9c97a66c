// The general rounding routine, and the canonical form of one value.
#include "sve/fplib/core.h"

namespace sve {

template <class T>
Outcome<T> round_pack(unsigned sgn, int exp, T mnt, int rm, int mode) {
  using F = Format<T>;
  if ((mode & F::flush_mode) && exp < 1) return {with_sign<T>(sgn, 0), flag_ufc};  // no IXC, even where inexact

  // Leading one, fraction, round bit and sticky bit.
  constexpr std::uint64_t sticky_mask = (std::uint64_t{1} << F::exponent_bits) - 1;
  const std::uint64_t m =
      (std::uint64_t{4} << F::fraction_bits) | (mnt >> (F::exponent_bits - 1)) | ((mnt & sticky_mask) != 0);

  int biased = exp;
  std::uint64_t mantissa = m >> 2;
  int error = m & 3;  // 0 exact, 1 below half, 2 half, 3 above half
  if (exp <= 0) {
    biased = 0;
    const std::uint64_t denormal = exp > -63 ? shift_right_sticky(m, 1 - exp) : 1;
    mantissa = denormal >> 2;
    error = denormal & 3;
  }

  // Tininess is judged before rounding: a denormal that rounds up to the smallest normal underflows too.
  int flags = biased == 0 && error != 0 ? flag_ufc : 0;

  const bool up = (rm == FPRounding_TiesEven && (error == 3 || (error == 2 && (mantissa & 1)))) ||
                  (rm == FPRounding_PosInf && !sgn && error != 0) || (rm == FPRounding_NegInf && sgn && error != 0);
  if (up) {
    ++mantissa;
    if (mantissa == F::hidden) biased = 1;
    if (mantissa == std::uint64_t{2} * F::hidden) {
      ++biased;
      mantissa = F::hidden;
    }
  }
  if (rm == FPRounding_Odd && error != 0) mantissa |= 1;

  const bool alternative = sizeof(T) == 2 && (mode & mode_ahp);
  if (alternative && biased > F::exponent_max) return {with_sign<T>(sgn, F::magnitude_mask), flags | flag_ioc};
  if (!alternative && biased >= F::exponent_max) {
    const bool to_infinity =
        rm == FPRounding_TiesEven || (rm == FPRounding_PosInf && !sgn) || (rm == FPRounding_NegInf && sgn);
    return {with_sign<T>(sgn, to_infinity ? F::infinity : F::largest_normal), flags | flag_ofc | flag_ixc};
  }
  if (error != 0) flags |= flag_ixc;
  const std::uint64_t packed = (static_cast<std::uint64_t>(biased) << F::fraction_bits) | (mantissa & F::fraction_mask);
  return {with_sign(sgn, static_cast<T>(packed)), flags};
}

template Outcome<unsigned short> round_pack(unsigned, int, unsigned short, int, int);
template Outcome<unsigned int> round_pack(unsigned, int, unsigned int, int, int);
template Outcome<unsigned long> round_pack(unsigned, int, unsigned long, int, int);

namespace {

template <class T>
T round_into(int sgn, int exp, T mnt, int rm, int mode, int* flags) {
  const Outcome<T> rounded = round_pack<T>(sgn != 0, exp, mnt, rm, mode);
  *flags |= rounded.flags;
  return rounded.value;
}

// A value that is neither a NaN nor flushed comes back as it is: every input can be represented.
template <class T>
T process(T op, FPSCR& fpscr) {
  const int mode = mode_of(fpscr);
  int flags = 0;
  const Unpacked<T> u = fp_unpack(op, mode, flags);
  if (u.nan()) return settle(fp_process_NaN(op, mode), fpscr);
  return settle(Outcome<T>{u.zero() ? with_sign<T>(u.sgn, 0) : op, flags}, fpscr);
}

}  // namespace
}  // namespace sve

unsigned short fp16_round_(int sgn, int exp, unsigned short mnt, int rm, int mode, int* flags) {
  return sve::round_into(sgn, exp, mnt, rm, mode, flags);
}
unsigned int fp32_round_(int sgn, int exp, unsigned int mnt, int rm, int mode, int* flags) {
  return sve::round_into(sgn, exp, mnt, rm, mode, flags);
}
unsigned long fp64_round_(int sgn, int exp, unsigned long mnt, int rm, int mode, int* flags) {
  return sve::round_into(sgn, exp, mnt, rm, mode, flags);
}

unsigned short FPProcess16(unsigned short op, FPSCR& fpscr) { return sve::process(op, fpscr); }
unsigned int FPProcess32(unsigned int op, FPSCR& fpscr) { return sve::process(op, fpscr); }
unsigned long FPProcess64(unsigned long op, FPSCR& fpscr) { return sve::process(op, fpscr); }

template unsigned short FPNeg(unsigned short);
template unsigned int FPNeg(unsigned int);
template unsigned long FPNeg(unsigned long);
template unsigned int FPAbs(unsigned int);
template unsigned long FPAbs(unsigned long);
