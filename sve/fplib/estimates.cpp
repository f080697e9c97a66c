// Reciprocal and square-root estimates, their Newton steps, and the trigonometric and exponential accelerators.
#include "sve/fplib/estimates.h"

#include <bit>
#include <cmath>

#include "sve/fplib/tables.h"

namespace sve {
namespace {

// The eight bits of an estimate, `estimate` in 256 to 511, with the leading one at the hidden bit.
template <class T>
constexpr T at_hidden_bit(unsigned estimate) {
  return static_cast<T>(static_cast<T>(estimate) << (Format<T>::fraction_bits - 8));
}

template <class T>
Outcome<T> reciprocal_estimate(T op, int mode) {
  using F = Format<T>;
  int flags = 0;
  Unpacked<T> u = fp_unpack(op, mode, flags);
  if (u.nan()) return fp_process_NaN(op, mode);
  if (u.infinite()) return {with_sign<T>(u.sgn, 0), 0};
  if (u.zero()) return {with_sign(u.sgn, F::infinity), flags | flag_dzc};

  // Two exponents below the normal range, the reciprocal overflows.
  const int field = static_cast<int>(magnitude_of(op) >> F::fraction_bits);
  if (magnitude_of(op) < F::hidden >> 2) {
    const int rm = mode & mode_rounding;
    const bool to_infinity = rm == FPRounding_TiesEven || rm == static_cast<int>(FPRounding_PosInf + u.sgn);
    return {with_sign(u.sgn, to_infinity ? F::infinity : F::largest_normal), flag_ofc | flag_ixc};
  }
  // Above it would be a denormal.
  constexpr int denormal_from = F::exponent_max - 2;
  if ((mode & F::flush_mode) && field >= denormal_from) return {with_sign<T>(u.sgn, 0), flag_ufc};

  fp_normalise(u);
  const unsigned divisor = static_cast<unsigned>(u.mnt >> (F::fraction_bits - 9)) | 1;
  const T fraction = at_hidden_bit<T>((0x80000 / divisor + 1) >> 1);
  const int exp = denormal_from - u.exp;
  if (exp <= 0) return {with_sign(u.sgn, static_cast<T>(fraction >> (1 - exp))), 0};  // exp is 0 or -1
  return {with_sign(u.sgn, static_cast<T>((static_cast<T>(exp) << F::fraction_bits) | (fraction & F::fraction_mask))),
          0};
}

template <class T>
Outcome<T> reciprocal_root_estimate(T op, int mode) {
  using F = Format<T>;
  int flags = 0;
  Unpacked<T> u = fp_unpack(op, mode, flags);
  if (u.nan()) return fp_process_NaN(op, mode);
  if (u.zero()) return {with_sign(u.sgn, F::infinity), flags | flag_dzc};
  if (u.sgn) return {F::default_nan, flag_ioc};
  if (u.infinite()) return {0, 0};
  fp_normalise(u);
  const unsigned odd = u.exp & 1;
  const unsigned index = (static_cast<unsigned>(u.mnt >> (F::fraction_bits - 7)) & 127) | (odd ? 0 : 128);
  const T exponent = static_cast<T>((3 * F::bias - 1 - u.exp) >> 1);
  return {
      static_cast<T>((exponent << F::fraction_bits) | (T{recip_sqrt_estimate_table[index]} << (F::fraction_bits - 8))),
      0};
}

// addend - a * b, halved if `scale` is -1; infinity times zero gives `limit`.
template <class T>
Outcome<T> newton_step(T addend, T a, T b, T limit, int scale, int mode) {
  using F = Format<T>;
  a = FPNeg(a);  // of a NaN too
  int flags = 0;
  const Unpacked<T> x = fp_unpack(a, mode, flags);
  const Unpacked<T> y = fp_unpack(b, mode, flags);
  if (x.nan() || y.nan()) return with_flags(fp_process_NaNs(a, b, mode), flags);
  if ((x.infinite() && y.zero()) || (x.zero() && y.infinite())) return {limit, flags};
  if (x.infinite() || y.infinite()) return {with_sign(x.sgn ^ y.sgn, F::infinity), flags};
  return with_flags(multiply_add_any(addend, a, b, scale, mode), flags);
}

template <class T>
Outcome<T> reciprocal_exponent(T op, int mode) {
  using F = Format<T>;
  int flags = 0;
  const Unpacked<T> u = fp_unpack(op, mode, flags);
  if (u.nan()) return fp_process_NaN(op, mode);
  constexpr T largest = F::infinity - F::hidden;
  if (magnitude_of(op) < F::hidden) return {with_sign(u.sgn, largest), flags};
  return {with_sign(u.sgn, static_cast<T>(~op & F::infinity)), 0};  // infinity gives zero
}

template <class T>
Outcome<T> signed_square(T op1, T op2, int mode) {
  using F = Format<T>;
  int flags = 0;
  Unpacked<T> u = fp_unpack(op1, mode, flags);
  if (u.nan()) return with_flags(fp_process_NaN(op1, mode), flags);
  const unsigned sgn = op2 & 1;
  if (u.infinite()) return {with_sign(sgn, F::infinity), flags};
  if (u.zero()) return {with_sign<T>(sgn, 0), flags};
  fp_normalise(u);
  u.sgn = 0;  // the rounding is that of a positive value, whatever sign comes after it
  const Outcome<T> square = multiply_finite(u, u, mode);
  return {with_sign(sgn, square.value), square.flags | flags};
}

}  // namespace
}  // namespace sve

template <class T>
T FPRecipEstimate(T op, FPSCR& fpscr) {
  return sve::settle(sve::reciprocal_estimate(op, sve::mode_of(fpscr)), fpscr);
}

template <class T>
T FPRSqrtEstimate(T op, FPSCR& fpscr) {
  return sve::settle(sve::reciprocal_root_estimate(op, sve::mode_of(fpscr)), fpscr);
}

template <class T>
T FPRecipStepFused(T a, T b, FPSCR& fpscr) {
  return sve::settle(sve::newton_step(sve::halves<T>(4), a, b, sve::halves<T>(4), 0, sve::mode_of(fpscr)), fpscr);
}

template <class T>
T FPRSqrtStepFused(T a, T b, FPSCR& fpscr) {
  return sve::settle(sve::newton_step(sve::halves<T>(6), a, b, sve::halves<T>(3), -1, sve::mode_of(fpscr)), fpscr);
}

template <class T>
T FPRecpX(T op, FPSCR& fpscr) {
  return sve::settle(sve::reciprocal_exponent(op, sve::mode_of(fpscr)), fpscr);
}

template <class T>
T FPTRIMADD(unsigned long index, T op1, T op2, FPSCR& fpscr) {
  // The sign bit decides, so -0 and negative NaNs count as negative.
  const T coefficient = sve::trigonometric_coefficients<T>[(index & 7) + 8 * sve::sign_of(op2)];
  return FPMulAdd(coefficient, op1, sve::magnitude_of(op2), fpscr);
}

template <class T>
T FPTRISMUL(T op1, T op2, FPSCR& fpscr) {
  return sve::settle(sve::signed_square(op1, op2, sve::mode_of(fpscr)), fpscr);
}

double recip_estimate(double a) {
  const double q = std::trunc(a * 512.0);
  const double r = 1.0 / ((q + 0.5) / 512.0);
  return std::trunc(r * 256.0 + 0.5) / 256.0;
}

double recip_sqrt_estimate(double a) {
  const double x = a < 0.5 ? (std::trunc(a * 512.0) + 0.5) / 512.0 : (std::trunc(a * 256.0) + 0.5) / 256.0;
  const double r = 1.0 / std::sqrt(x);
  return std::trunc(r * 256.0 + 0.5) / 256.0;
}

namespace {

// A double with the given exponent field and fraction; and back, the top of a fraction under a leading one.
double from_fields(unsigned long exponent, unsigned long fraction) {
  return std::bit_cast<double>(exponent << 52 | fraction);
}
unsigned long top_of_fraction(double estimate) {
  return 0x80000000ul | (std::bit_cast<unsigned long>(estimate) >> 21 & 0x7fffffff);
}

}  // namespace

unsigned long UnsignedRecipEstimate(unsigned long op, int) {
  if (!(op & 0x80000000ul)) return 0xffffffff;
  return top_of_fraction(recip_estimate(from_fields(0x3fe, (op & 0x7fffffff) << 21)));
}

unsigned long UnsignedRSqrtEstimate(unsigned long op, int) {
  if (op < 0x40000000ul) return 0xffffffff;
  return top_of_fraction(recip_sqrt_estimate((op & 0x80000000ul) ? from_fields(0x3fe, (op & 0x7fffffff) << 21)
                                                                 : from_fields(0x3fd, (op & 0x3fffffff) << 22)));
}

#define SVE_FPLIB_INSTANTIATE(T)                     \
  template T FPRecipEstimate(T, FPSCR&);             \
  template T FPRSqrtEstimate(T, FPSCR&);             \
  template T FPRecipStepFused(T, T, FPSCR&);         \
  template T FPRSqrtStepFused(T, T, FPSCR&);         \
  template T FPRecpX(T, FPSCR&);                     \
  template T FPTRIMADD(unsigned long, T, T, FPSCR&); \
  template T FPTRISMUL(T, T, FPSCR&);                \
  template T FPEXPA(T);
SVE_FPLIB_FORMATS(SVE_FPLIB_INSTANTIATE)
