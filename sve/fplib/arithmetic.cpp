// The general forms of the arithmetic operations, division and square root.
#include "sve/fplib/arithmetic.h"

namespace sve {
namespace {

// Adds the flags that unpacking raised.
template <class T>
Outcome<T> with_flags(Outcome<T> outcome, int flags) {
  return {outcome.value, outcome.flags | flags};
}

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
  if ((x.infinite() && y.zero()) || (x.zero() && y.infinite())) {
    return Extended ? Outcome<T>{two<T>(sgn), flags} : invalid<T>(flags);
  }
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

namespace {

// A quotient or root whose leading one stands anywhere; bit 0 may be sticky, and `exp` counts for bit `top`.
template <class T>
Outcome<T> round_at(unsigned sgn, int exp, std::uint64_t x, int top, int mode) {
  const int shift = std::countl_zero(x) - (63 - significand_top);
  return round_normalised<T>(sgn, exp - shift + (significand_top - top), x << shift, mode & mode_rounding, mode);
}

// Significands with the leading one at the top of the format's word. The exponent of the result counts for its top bit.

Outcome<unsigned short> divide_finite(Unpacked<unsigned short> a, Unpacked<unsigned short> b, unsigned sgn, int mode) {
  const unsigned dividend = static_cast<unsigned>(a.mnt) << 20;
  const unsigned divisor = static_cast<unsigned>(b.mnt);
  const unsigned q = dividend / divisor;
  return round_at<unsigned short>(sgn, a.exp - b.exp + 26, q | (q * divisor != dividend), 31, mode);
}

Outcome<unsigned int> divide_finite(Unpacked<unsigned int> a, Unpacked<unsigned int> b, unsigned sgn, int mode) {
  const std::uint64_t dividend = a.mnt << 26;
  const std::uint64_t q = dividend / b.mnt;
  return round_at<unsigned int>(sgn, a.exp - b.exp + 164, q | (q * b.mnt != dividend), 63, mode);
}

// Newton-Raphson on the reciprocal, since a 128-by-64 division is not used. The estimate of the quotient is below it,
// by at most one; the exact product decides.
Outcome<unsigned long> divide_finite(Unpacked<unsigned long> x, Unpacked<unsigned long> y, unsigned sgn, int mode) {
  const std::uint64_t a = x.mnt << 11, b = y.mnt << 11;
  const std::uint64_t r = ~std::uint64_t{0} / (b >> 31);
  const Uint128 p = static_cast<Uint128>(b) * r;
  const std::uint64_t e = static_cast<std::uint64_t>(((static_cast<Uint128>(1) << 96) - p) >> 32);
  const std::uint64_t reciprocal = static_cast<std::uint64_t>((static_cast<Uint128>(e) * r) >> 33);
  std::uint64_t q = static_cast<std::uint64_t>((static_cast<Uint128>(reciprocal) * (a >> 2)) >> 68);
  const Uint128 next = static_cast<Uint128>(b >> 2) * (q + 1);
  const Uint128 target = static_cast<Uint128>(a >> 11) << 64;
  if (next <= target) ++q;
  const std::uint64_t sticky = next != target;
  return round_at<unsigned long>(sgn, x.exp - y.exp + 1031, (q << 1) | sticky, 64, mode);
}

// Square roots: a linear seed, Newton steps, and the last bit decided by squaring.

Outcome<unsigned short> root_finite(Unpacked<unsigned short> u, int mode) {
  unsigned a = static_cast<unsigned>(u.mnt) << 5;
  int exp = u.exp - 5;
  if (exp % 2 == 0) {
    a >>= 1;
    ++exp;
  }
  const unsigned seed = (a >> 3) + (a >> 2) + 0x5000;
  const unsigned n = a << 16;
  unsigned x = (n / seed + seed) >> 1;
  x = (n / x + x) >> 1;
  const std::uint64_t wide = static_cast<std::uint64_t>(x) << 16;
  x = (static_cast<unsigned>(((static_cast<std::uint64_t>(a) << 48) / wide + wide) >> 17) - 4) >> 3;
  const unsigned square = (x + 1) * (x + 1), target = a << 10;
  if (square <= target) ++x;
  return round_at<unsigned short>(0, (exp + 25) >> 1, (static_cast<std::uint64_t>(x) << 1) | (square != target), 16,
                                  mode);
}

Outcome<unsigned int> root_finite(Unpacked<unsigned int> u, int mode) {
  unsigned a = static_cast<unsigned>(u.mnt) << 8;
  int exp = u.exp - 8;
  if (exp % 2 == 0) {
    a >>= 1;
    ++exp;
  }
  const unsigned seed = (a >> 3) + (a >> 2) + 0x50000000;
  unsigned x = a / (seed >> 15) + (seed >> 16);
  const unsigned wide = (((x >> 1) & 0xffff) + a / x) << 15;
  x = ((wide >> 1) - 32 + static_cast<unsigned>(((static_cast<std::uint64_t>(a) << 32) / wide) >> 2)) >> 6;
  const std::uint64_t next = std::uint64_t{x} + 1;
  const std::uint64_t square = next * next, target = static_cast<std::uint64_t>(a) << 19;
  const std::uint64_t root = square <= target ? next : x;
  return round_at<unsigned int>(0, (exp + 147) >> 1, (root << 1) | (square != target), 32, mode);
}

// The parity of the exponent is the opposite of the other widths: the mantissa stands elsewhere relative to it.
Outcome<unsigned long> root_finite(Unpacked<unsigned long> u, int mode) {
  std::uint64_t a = u.mnt << 11;
  int exp = u.exp - 11;
  if (exp % 2 != 0) {
    a >>= 1;
    ++exp;
  }
  const unsigned seed = static_cast<unsigned>((a >> 34) + (a >> 35)) + 0x50000000;
  const unsigned high = static_cast<unsigned>(a >> 32);
  const unsigned first = high / (seed >> 15) + (seed >> 16);
  const unsigned second = (high / first + (first >> 1)) << 15;
  const unsigned x = static_cast<unsigned>((a / second) >> 2) + (second >> 1);
  const std::uint64_t r = (std::uint64_t{1} << 62) / x;
  const std::uint64_t d = -(x * r) * 2;
  const std::uint64_t reciprocal = static_cast<std::uint64_t>((static_cast<Uint128>(d) * r) >> 31);
  const Uint128 step = static_cast<Uint128>(a >> 10) * (reciprocal >> 2);
  const std::uint64_t y = (static_cast<std::uint64_t>(x) << 31) + (static_cast<std::uint64_t>((step << 5) >> 56) >> 1);
  std::uint64_t root = ((y - 256) >> 9) + 1;
  const Uint128 square = (static_cast<Uint128>(root) * root) << 19, target = static_cast<Uint128>(a) << 64;
  if (square > target) --root;
  return round_at<unsigned long>(0, (exp + 1053) >> 1, (root << 1) | (square != target), 64, mode);
}

template <class T>
Outcome<T> divide(T a, T b, int mode) {
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
Outcome<T> square_root(T a, int mode) {
  int flags = 0;
  Unpacked<T> u = fp_unpack(a, mode, flags);
  if (u.nan()) return with_flags(fp_process_NaN(a, mode), flags);
  if (u.zero()) return {with_sign<T>(u.sgn, 0), flags};
  if (u.sgn) return invalid<T>(flags);
  if (u.infinite()) return {a, flags};
  fp_normalise(u);
  return with_flags(root_finite(u, mode), flags);
}

template <class T>
T multiply_add_into(T a, T b, T c, int scale, int mode, int* flags) {
  const Outcome<T> outcome = multiply_add_any(a, b, c, scale, mode);
  *flags |= outcome.flags;
  return outcome.value;
}

}  // namespace
}  // namespace sve

template <class T>
T FPDiv(T a, T b, FPSCR& fpscr) {
  return sve::settle(sve::divide(a, b, sve::mode_of(fpscr)), fpscr);
}

template <class T>
T FPSqrt(T a, FPSCR& fpscr) {
  return sve::settle(sve::square_root(a, sve::mode_of(fpscr)), fpscr);
}

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
  template T FPAdd(T, T, FPSCR&);                                    \
  template T FPSub(T, T, FPSCR&);                                    \
  template T FPMul(T, T, FPSCR&);                                    \
  template T FPMulX(T, T, FPSCR&);                                   \
  template T FPDiv(T, T, FPSCR&);                                    \
  template T FPSqrt(T, FPSCR&);                                      \
  template T FPMulAdd(T, T, T, FPSCR&);
SVE_FPLIB_INSTANTIATE(unsigned short)
SVE_FPLIB_INSTANTIATE(unsigned int)
SVE_FPLIB_INSTANTIATE(unsigned long)
