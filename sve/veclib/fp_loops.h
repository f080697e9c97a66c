// The element loops of floating-point routines: software floating point under the context's `fpcr`, whose status bits
// are folded into its `fpsr`. An inactive element executes no operation and raises nothing.
#pragma once

#include "sve/fplib/fplib.h"
#include "sve/veclib/define.h"

namespace sve::veclib {

/// The rounding that `fpcr` selects.
inline FPRounding rounding_of(FPSCR fpcr) { return static_cast<FPRounding>(fpcr >> fpscr_rmode_shift & 3); }

/// `fpcr` as conversions and half-precision immediates take it: the IEEE half format, and no flush of half values.
inline FPSCR without_half_controls(FPSCR fpcr) { return fpcr & ~(fpscr_ahp | fpscr_fz16); }

/// Folds a working control and status word into the context. Bits other than status are dropped from `fpsr` as well.
inline void fold(CpuContext* context, FPSCR working) { context->fpsr = (context->fpsr | working) & fpsr_mask; }

/// One working word for a whole loop: operations only add status bits and look at controls alone, so that folding once
/// at the end is folding after each. With no operation executed nothing is folded.
class working_status {
 public:
  explicit working_status(CpuContext* context) : working_status(context, context->fpcr) {}
  working_status(CpuContext* context, FPSCR control) : context_(context), working_(control) {}
  ~working_status() {
    if (used_) fold(context_, working_);
  }
  working_status(const working_status&) = delete;
  working_status& operator=(const working_status&) = delete;

  FPSCR& operator()() {
    used_ = true;
    return working_;
  }

 private:
  CpuContext* context_;
  FPSCR working_;
  bool used_ = false;
};

/// r[e] = active ? op(src[e]..., fpscr) : old[e], in rising order. T is the slot; op may work on its low part.
template <class T, class Op, class... Sources>
inline VectorV fp_merging(const VectorV& old, const PredV& p, CpuContext* context, FPSCR control, Op op,
                          const Sources&... src) {
  VectorV r;
  working_status status(context, control);
  const std::size_t n = count<T>(context);
  for (std::size_t e = 0; e < n; ++e)
    store<T>(r.bytes, e,
             active<T>(p, e) ? static_cast<T>(op(load<T>(src.bytes, e)..., status())) : load<T>(old.bytes, e));
  return r;
}

template <class T, class Op>
inline VectorV fp_merging(const VectorV& a, const PredV& p, const VectorV& b, CpuContext* context, Op op) {
  return fp_merging<T>(a, p, context, context->fpcr, op, a, b);
}
template <class T, class Op>
inline VectorV fp_unary(const VectorV& old, const PredV& p, const VectorV& a, CpuContext* context, Op op) {
  return fp_merging<T>(old, p, context, context->fpcr, op, a);
}
template <class T, class Op>
inline VectorV fp_ternary(const VectorV& a, const PredV& p, const VectorV& b, const VectorV& c, CpuContext* context,
                          Op op) {
  return fp_merging<T>(a, p, context, context->fpcr, op, a, b, c);
}

/// The same without a predicate.
template <class T, class Op, class... Sources>
inline VectorV fp_mapped(CpuContext* context, Op op, const Sources&... src) {
  VectorV r;
  working_status status(context);
  const std::size_t n = count<T>(context);
  for (std::size_t e = 0; e < n; ++e) store<T>(r.bytes, e, static_cast<T>(op(load<T>(src.bytes, e)..., status())));
  return r;
}

}  // namespace sve::veclib
