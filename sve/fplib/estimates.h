// Reciprocal and square-root estimates, their Newton steps, and the trigonometric and exponential accelerators.
#pragma once

#include "sve/fplib/arithmetic.h"
#include "sve/fplib/tables.h"

/// An estimate of 1 / op, good to 8 bits; raises no IXC where the result is normal.
template <class T>
T FPRecipEstimate(T op, FPSCR& fpscr);

/// An estimate of 1 / sqrt(op), good to 8 bits.
template <class T>
T FPRSqrtEstimate(T op, FPSCR& fpscr);

/// 2 - a * b, rounded once; infinity times zero gives 2.0.
template <class T>
T FPRecipStepFused(T a, T b, FPSCR& fpscr);

/// (3 - a * b) / 2, rounded once; infinity times zero gives 1.5.
template <class T>
T FPRSqrtStepFused(T a, T b, FPSCR& fpscr);

/// A power of two near 1 / op: the exponent field inverted, the fraction dropped.
template <class T>
T FPRecpX(T op, FPSCR& fpscr);

/// One step of the sine or cosine polynomial: op1 * |op2| + coefficient. A clear sign of op2 chooses the sine's
/// coefficient `index` (0 to 7), a set one the cosine's.
template <class T>
T FPTRIMADD(unsigned long index, T op1, T op2, FPSCR& fpscr);

/// op1 squared, with bit 0 of op2 as its sign. A NaN keeps its own sign.
template <class T>
T FPTRISMUL(T op1, T op2, FPSCR& fpscr);

/// The three-way select: 1.0 if bit 0 of `op2` is set, otherwise `op1`; then the sign is inverted if bit 1 is set.
/// Raises nothing, and NaNs are like any other bits.
template <class T>
constexpr T FPTRISSEL(T op1, T op2) {
  using F = sve::Format<T>;
  const T chosen = (op2 & 1) ? static_cast<T>(T{F::bias} << F::fraction_bits) : op1;
  return (op2 & 2) ? FPNeg(chosen) : chosen;
}

/// 2 to the power of op's low bits: exponent field, and below it a fraction in 32nds (half precision) or 64ths. Higher
/// bits are ignored; raises nothing.
template <class T>
[[gnu::always_inline]] inline T FPEXPA(T op) {
  using F = sve::Format<T>;
  if constexpr (sizeof(T) == 2) return sve::half_exponentials[op & 0x3ffu];
  constexpr unsigned index_bits = 6;
  const T fraction = sve::exponential_fractions<T>[op & ((1u << index_bits) - 1)];
  return static_cast<T>(((op >> index_bits & F::exponent_max) << F::fraction_bits) | fraction);
}

/// The published estimates for scalars in [0.5, 1) and [0.25, 1). They compute in the host's double arithmetic.
double recip_estimate(double a);
double recip_sqrt_estimate(double a);

/// The same on unsigned fixed point with 32 fraction bits; the second argument is ignored.
unsigned long UnsignedRecipEstimate(unsigned long op, int ignored);
unsigned long UnsignedRSqrtEstimate(unsigned long op, int ignored);

#define SVE_FPLIB_DECLARE(T)                                \
  extern template T FPRecipEstimate(T, FPSCR&);             \
  extern template T FPRSqrtEstimate(T, FPSCR&);             \
  extern template T FPRecipStepFused(T, T, FPSCR&);         \
  extern template T FPRSqrtStepFused(T, T, FPSCR&);         \
  extern template T FPRecpX(T, FPSCR&);                     \
  extern template T FPTRIMADD(unsigned long, T, T, FPSCR&); \
  extern template T FPTRISMUL(T, T, FPSCR&);
SVE_FPLIB_FORMATS(SVE_FPLIB_DECLARE)
#undef SVE_FPLIB_DECLARE
