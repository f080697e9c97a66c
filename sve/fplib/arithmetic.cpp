// The general forms of the arithmetic operations.
#include "sve/fplib/arithmetic.h"

#include "sve/fplib/division.h"

namespace sve {
namespace {

template <class T>
constexpr Outcome<T> invalid(int flags) {
  return {Format<T>::default_nan, flags | flag_ioc};
}

template <class T>
constexpr T two(unsigned sgn) {
  return with_sign(sgn, static_cast<T>(T{Format<T>::bias + 1} << Format<T>::fraction_bits));
}

}  // namespace

template <class T, bool Subtract>
Outcome<T> add_any(T a, T b, int mode) {
  using F = Format<T>;
  int flags = 0;
  const Unpacked<T> x = fp_unpack(a, mode, flags);
  Unpacked<T> y = fp_unpack(b, mode, flags);
  if (x.nan() || y.nan()) return with_flags(fp_process_NaNs(a, b, mode), flags);
  if (Subtract) y.sgn ^= 1;  // only now: a NaN keeps its sign
  if (x.infinite() && y.infinite() && x.sgn != y.sgn) return invalid<T>(flags);
  if (x.infinite() || y.infinite()) return {with_sign(x.infinite() ? x.sgn : y.sgn, F::infinity), flags};
  if (x.zero() && y.zero() && x.sgn == y.sgn) return {with_sign<T>(x.sgn, 0), flags};
  const bool swap = x.exp < y.exp || (x.exp == y.exp && x.mnt < y.mnt);
  return with_flags(add_ordered(swap ? y : x, swap ? x : y, mode), flags);
}

template <class T, bool Extended>
Outcome<T> multiply_any(T a, T b, int mode) {
  using F = Format<T>;
  int flags = 0;
  Unpacked<T> x = fp_unpack(a, mode, flags);
  Unpacked<T> y = fp_unpack(b, mode, flags);
  if (x.nan() || y.nan()) return with_flags(fp_process_NaNs(a, b, mode), flags);
  const unsigned sgn = x.sgn ^ y.sgn;
  if ((x.infinite() && y.zero()) || (x.zero() && y.infinite()))
    return Extended ? Outcome<T>{two<T>(sgn), flags} : invalid<T>(flags);
  if (x.infinite() || y.infinite()) return {with_sign(sgn, F::infinity), flags};
  if (x.zero() || y.zero()) return {with_sign<T>(sgn, 0), flags};
  fp_normalise(x);
  fp_normalise(y);
  return with_flags(multiply_finite(x, y, mode), flags);
}

template <class T>
Outcome<T> multiply_add_any(T a, T b, T c, int scale, int mode) {
  using F = Format<T>;
  int flags = 0;
  const Unpacked<T> x = fp_unpack(a, mode, flags);
  const Unpacked<T> y = fp_unpack(b, mode, flags);
  const Unpacked<T> z = fp_unpack(c, mode, flags);
  const bool invalid_product = (y.zero() && z.infinite()) || (y.infinite() && z.zero());
  if (x.nan() || y.nan() || z.nan()) {
    // A quiet NaN does not hide an invalid product, with DN or without; a signalling one does.
    if (is_quiet_nan(a) && invalid_product) return invalid<T>(flags);
    return with_flags(fp_process_NaNs3(a, b, c, mode), flags);
  }
  const unsigned product_sign = y.sgn ^ z.sgn;
  const bool product_infinite = y.infinite() || z.infinite();
  if (invalid_product || (x.infinite() && product_infinite && x.sgn != product_sign)) return invalid<T>(flags);
  if (x.infinite()) return {with_sign(x.sgn, F::infinity), flags};
  if (product_infinite) return {with_sign(product_sign, F::infinity), flags};
  const bool product_zero = y.zero() || z.zero();
  if (x.zero() && product_zero && x.sgn == product_sign) return {with_sign<T>(x.sgn, 0), flags};
  const Term<T> addend = addend_term(x);
  Term<T> product = product_term(y, z);
  if (product_zero) product.exp = addend.exp;  // nothing to align, and the addend must not be shifted
  return with_flags(add_terms(addend, product, scale, mode), flags);
}

template <class T>
Outcome<T> divide_any(T a, T b, int mode) {
  using F = Format<T>;
  int flags = 0;
  Unpacked<T> x = fp_unpack(a, mode, flags);
  Unpacked<T> y = fp_unpack(b, mode, flags);
  const unsigned sgn = x.sgn ^ y.sgn;
  if (x.nan() || y.nan()) return with_flags(fp_process_NaNs(a, b, mode), flags);
  if ((x.infinite() && y.infinite()) || (x.zero() && y.zero())) return invalid<T>(flags);
  if (x.infinite()) return {with_sign(sgn, F::infinity), flags};
  if (y.zero()) return {with_sign(sgn, F::infinity), flags | flag_dzc};
  if (x.zero() || y.infinite()) return {with_sign<T>(sgn, 0), flags};
  fp_normalise(x);
  fp_normalise(y);
  return with_flags(divide_finite(x, y, sgn, mode), flags);
}

template <class T>
Outcome<T> square_root_any(T a, int mode) {
  int flags = 0;
  Unpacked<T> u = fp_unpack(a, mode, flags);
  if (u.nan()) return with_flags(fp_process_NaN(a, mode), flags);
  if (u.zero()) return {with_sign<T>(u.sgn, 0), flags};
  if (u.sgn) return invalid<T>(flags);
  if (u.infinite()) return {a, flags};
  fp_normalise(u);
  return with_flags(root_finite(u, mode), flags);
}

namespace {

template <class T>
T multiply_add_into(T a, T b, T c, int scale, int mode, int* flags) {
  const Outcome<T> outcome = multiply_add_any(a, b, c, scale, mode);
  *flags |= outcome.flags;
  return outcome.value;
}

}  // namespace
}  // namespace sve

unsigned short fp16_muladd(unsigned short a, unsigned short b, unsigned short c, int scale, int mode, int* flags) {
  return sve::multiply_add_into(a, b, c, scale, mode, flags);
}
unsigned int fp32_muladd(unsigned int a, unsigned int b, unsigned int c, int scale, int mode, int* flags) {
  return sve::multiply_add_into(a, b, c, scale, mode, flags);
}
unsigned long fp64_muladd(unsigned long a, unsigned long b, unsigned long c, int scale, int mode, int* flags) {
  return sve::multiply_add_into(a, b, c, scale, mode, flags);
}

#define SVE_FPLIB_INSTANTIATE(T)                                     \
  template sve::Outcome<T> sve::add_any<T, false>(T, T, int);        \
  template sve::Outcome<T> sve::add_any<T, true>(T, T, int);         \
  template sve::Outcome<T> sve::multiply_any<T, false>(T, T, int);   \
  template sve::Outcome<T> sve::multiply_any<T, true>(T, T, int);    \
  template sve::Outcome<T> sve::multiply_add_any(T, T, T, int, int); \
  template sve::Outcome<T> sve::divide_any(T, T, int);               \
  template sve::Outcome<T> sve::square_root_any(T, int);             \
  template T FPAdd(T, T, FPSCR&);                                    \
  template T FPSub(T, T, FPSCR&);                                    \
  template T FPMul(T, T, FPSCR&);                                    \
  template T FPMulX(T, T, FPSCR&);                                   \
  template T FPDiv(T, T, FPSCR&);                                    \
  template T FPSqrt(T, FPSCR&);                                      \
  template T FPMulAdd(T, T, T, FPSCR&);
SVE_FPLIB_FORMATS(SVE_FPLIB_INSTANTIATE)
