// The general forms of compares, maximum and minimum.
#include "sve/fplib/compares.h"

namespace sve {
namespace {

// A value after flushing, as raw bits.
template <class T>
constexpr T flushed(T x, int mode, int& flags) {
  return fp_unpack(x, mode, flags).zero() ? with_sign<T>(sign_of(x), 0) : x;
}

}  // namespace

template <class T>
Outcome<Relation> relate_any(T a, T b, int mode) {
  int flags = 0;
  const std::int64_t x = ordering_key(flushed(a, mode, flags));
  const std::int64_t y = ordering_key(flushed(b, mode, flags));
  if (is_nan(a) || is_nan(b)) return {Relation::unordered, flags};
  return {x == y ? Relation::equal : x < y ? Relation::less : Relation::greater, flags};
}

template <class T, bool Maximum>
Outcome<T> select_any(T a, T b, int mode) {
  int flags = 0;
  const T x = flushed(a, mode, flags);
  const T y = flushed(b, mode, flags);
  if (is_nan(a) || is_nan(b)) {
    const Outcome<T> nan = fp_process_NaNs(a, b, mode);
    return with_flags(nan, flags);
  }
  const bool negative = sign_of(a) || sign_of(b);
  const bool pick_a = sign_of(a) != sign_of(b) ? sign_of(Maximum ? b : a) != 0 : (Maximum ? a > b : a < b) != negative;
  return {pick_a ? x : y, flags};
}

}  // namespace sve

template <class T>
requires(sizeof(T) >= 4) int FPCompare(T a, T b, bool signal_nans, FPSCR& fpscr) {
  const sve::Relation relation = sve::settle(sve::relate_any(a, b, sve::mode_of(fpscr)), fpscr);
  if (relation == sve::Relation::unordered) {
    if (signal_nans || sve::either_signalling(a, b)) fpscr |= sve::flag_ioc;
    return 3;
  }
  return relation == sve::Relation::equal ? 6 : relation == sve::Relation::less ? 8 : 2;
}

template int FPCompare(unsigned int, unsigned int, bool, FPSCR&);
template int FPCompare(unsigned long, unsigned long, bool, FPSCR&);

#define SVE_FPLIB_INSTANTIATE(T)                                   \
  template sve::Outcome<sve::Relation> sve::relate_any(T, T, int); \
  template sve::Outcome<T> sve::select_any<T, false>(T, T, int);   \
  template sve::Outcome<T> sve::select_any<T, true>(T, T, int);    \
  template bool FPCompareEQ(T, T, FPSCR&);                         \
  template bool FPCompareGE(T, T, FPSCR&);                         \
  template bool FPCompareGT(T, T, FPSCR&);                         \
  template bool FPCompareUN(T, T, FPSCR&);                         \
  template T FPMax(T, T, FPSCR&);                                  \
  template T FPMin(T, T, FPSCR&);                                  \
  template T FPMaxNum(T, T, FPSCR&);                               \
  template T FPMinNum(T, T, FPSCR&);
SVE_FPLIB_FORMATS(SVE_FPLIB_INSTANTIATE)
