// Compares, maximum and minimum on raw bits.
//
// All are in line; NaNs, and denormals under a flush control, take the general functions.
#pragma once

#include "sve/fplib/core.h"

namespace sve {

/// How two values stand to each other.
enum class Relation { equal, less, greater, unordered };

/// The relation of any two values, with the flags of flushed denormals alone: what a NaN raises is the operation's own.
template <class T>
Outcome<Relation> relate_any(T a, T b, int mode);

/// True if either is a NaN, or a denormal that the mode flushes.
template <class T>
constexpr bool needs_relate_any(T a, T b, int mode) {
  using F = Format<T>;
  if (is_nan(a) | is_nan(b)) return true;
  const auto denormal = [](T x) { return static_cast<T>(magnitude_of(x) - 1) < F::fraction_mask; };
  return (mode & F::flush_mode) && (denormal(a) | denormal(b));
}

/// Raw bits as a signed number that orders as the values do; both zeros give 0.
template <class T>
constexpr std::int64_t ordering_key(T x) {
  const std::int64_t magnitude = static_cast<std::int64_t>(magnitude_of(x));
  return sign_of(x) ? -magnitude : magnitude;
}

template <class T>
constexpr bool either_signalling(T a, T b) {
  return is_signalling_nan(a) || is_signalling_nan(b);
}

/// Compares that signal on every NaN: `test` gets the two ordering keys.
template <class T, class Test>
[[gnu::always_inline]] inline bool compare_signalling(T a, T b, FPSCR& fpscr, Test test) {
  if (!needs_relate_any(a, b, mode_of(fpscr))) [[likely]]
    return test(ordering_key(a), ordering_key(b));
  const Relation relation = settle(relate_any(a, b, mode_of(fpscr)), fpscr);
  if (relation == Relation::unordered) {
    fpscr |= flag_ioc;
    return false;
  }
  const int order = relation == Relation::less ? -1 : relation == Relation::greater;
  return test(order, 0);
}

/// Maximum or minimum for all operands. The choice looks at raw bits, the result is flushed.
template <class T, bool Maximum>
Outcome<T> select_any(T a, T b, int mode);

template <class T, bool Maximum>
[[gnu::always_inline]] inline Outcome<T> select(T a, T b, int mode) {
  if (needs_relate_any(a, b, mode)) [[unlikely]]
    return select_any<T, Maximum>(a, b, mode);
  // Raw bits order by the sign first, and as soon as one sign is set their order is the wrong way round.
  const bool greater = (a > b) != static_cast<bool>(sign_of<T>(a | b));
  return {greater == Maximum ? a : b, 0};
}

/// A quiet NaN against a number gives way to the infinity that any number beats.
template <class T>
constexpr void replace_quiet_nan(T& a, T& b, T infinity) {
  const bool quiet_a = is_quiet_nan(a), quiet_b = is_quiet_nan(b);
  if (quiet_b && !quiet_a) b = infinity;
  if (quiet_a && !quiet_b) a = infinity;
}

}  // namespace sve

/// a == b. Quiet NaNs are unequal to everything and raise nothing; signalling ones raise IOC.
template <class T>
[[gnu::always_inline]] inline bool FPCompareEQ(T a, T b, FPSCR& fpscr) {
  const int mode = sve::mode_of(fpscr);
  if (!sve::needs_relate_any(a, b, mode)) [[likely]]
    return a == b || sve::magnitude_of<T>(a | b) == 0;
  const sve::Relation relation = sve::settle(sve::relate_any(a, b, mode), fpscr);
  if (sve::either_signalling(a, b)) fpscr |= sve::flag_ioc;
  return relation == sve::Relation::equal;
}

/// a >= b. Every NaN, quiet or signalling, gives false and raises IOC, unlike in `FPCompareEQ`.
template <class T>
[[gnu::always_inline]] inline bool FPCompareGE(T a, T b, FPSCR& fpscr) {
  return sve::compare_signalling(a, b, fpscr, [](std::int64_t x, std::int64_t y) { return x >= y; });
}

/// a > b. NaNs as in `FPCompareGE`.
template <class T>
[[gnu::always_inline]] inline bool FPCompareGT(T a, T b, FPSCR& fpscr) {
  return sve::compare_signalling(a, b, fpscr, [](std::int64_t x, std::int64_t y) { return x > y; });
}

/// True if either is a NaN. Only a signalling one raises IOC.
template <class T>
[[gnu::always_inline]] inline bool FPCompareUN(T a, T b, FPSCR& fpscr) {
  const int mode = sve::mode_of(fpscr);
  if (!sve::needs_relate_any(a, b, mode)) [[likely]]
    return false;
  const sve::Relation relation = sve::settle(sve::relate_any(a, b, mode), fpscr);
  if (sve::either_signalling(a, b)) fpscr |= sve::flag_ioc;
  return relation == sve::Relation::unordered;
}

/// The NZCV nibble of a compare: 3 unordered, 6 equal, 8 less, 2 greater. There is no 16-bit form.
template <class T>
requires(sizeof(T) >= 4) int FPCompare(T a, T b, bool signal_nans, FPSCR& fpscr);

/// The greater of two values; +0 is greater than -0. A NaN operand gives a NaN.
template <class T>
[[gnu::always_inline]] inline T FPMax(T a, T b, FPSCR& fpscr) {
  return sve::settle(sve::select<T, true>(a, b, sve::mode_of(fpscr)), fpscr);
}

/// The lesser of two values; -0 is less than +0. A NaN operand gives a NaN.
template <class T>
[[gnu::always_inline]] inline T FPMin(T a, T b, FPSCR& fpscr) {
  return sve::settle(sve::select<T, false>(a, b, sve::mode_of(fpscr)), fpscr);
}

/// As `FPMax`, but a number wins over a quiet NaN.
template <class T>
[[gnu::always_inline]] inline T FPMaxNum(T a, T b, FPSCR& fpscr) {
  sve::replace_quiet_nan<T>(a, b, FPNeg(sve::Format<T>::infinity));
  return FPMax(a, b, fpscr);
}

/// As `FPMin`, but a number wins over a quiet NaN.
template <class T>
[[gnu::always_inline]] inline T FPMinNum(T a, T b, FPSCR& fpscr) {
  sve::replace_quiet_nan<T>(a, b, sve::Format<T>::infinity);
  return FPMin(a, b, fpscr);
}

#define SVE_FPLIB_DECLARE(T)                                              \
  extern template sve::Outcome<sve::Relation> sve::relate_any(T, T, int); \
  extern template sve::Outcome<T> sve::select_any<T, false>(T, T, int);   \
  extern template sve::Outcome<T> sve::select_any<T, true>(T, T, int);
SVE_FPLIB_FORMATS(SVE_FPLIB_DECLARE)
#undef SVE_FPLIB_DECLARE
extern template int FPCompare(unsigned int, unsigned int, bool, FPSCR&);
extern template int FPCompare(unsigned long, unsigned long, bool, FPSCR&);
