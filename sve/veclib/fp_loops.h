// The element loops of floating-point routines: software floating point under the context's `fpcr`, whose status bits
// are folded into its `fpsr`. An inactive element executes no operation and raises nothing. Where the host's processor
// computes an operation, it does, with the same bits.
#pragma once

#include "sve/fplib/fplib.h"
#include "sve/fplib/lane_loops.h"
#include "sve/processor/vectors.h"
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

  bool to_nearest() const { return rounding_of(working_) == FPRounding_TiesEven; }

 private:
  CpuContext* context_;
  FPSCR working_;
  bool used_ = false;
};

/// Marks an operation that the host's processor computes as well: op(x..., status) with x an element and an `FPSCR&`,
/// or with x of `processor::Piece` and their `processor::Control`. Its operands are floating-point values, or integers.
template <class Op, bool of_integers = false>
struct on_processor : Op {
  explicit constexpr on_processor(Op op) : Op(op) {}
  using Op::operator();

  template <class T>
  static constexpr T inactive = of_integers ? T{0} : processor::harmless<T>;
};

/// Marks one that serves vectors of lanes, too: with x of `Lanes` and their `LaneStatus`.
template <class Op>
struct on_lanes : on_processor<Op> {
  explicit constexpr on_lanes(Op op) : on_processor<Op>(op) {}
};

template <class Op>
inline constexpr bool runs_on_lanes = false;
template <class Op>
inline constexpr bool runs_on_lanes<on_lanes<Op>> = true;
template <class Op>
inline constexpr bool runs_on_processor = runs_on_lanes<Op>;
template <class Op, bool of_integers>
inline constexpr bool runs_on_processor<on_processor<Op, of_integers>> = true;

/// `adapted`, which calls an Op, with the mark of that Op.
template <class Op, class Adapted>
constexpr auto marked_as(Adapted adapted) {
  if constexpr (runs_on_lanes<Op>)
    return on_lanes(adapted);
  else if constexpr (runs_on_processor<Op>)
    return on_processor(adapted);
  else
    return adapted;
}

/// The predicate that lets every element be active.
struct all_active {};

inline ActiveBits active_bits(const PredV& p, std::size_t length) { return {p.words, length}; }
inline ActiveBits active_bits(all_active, std::size_t length) { return {length}; }

template <class T>
bool is_active(all_active, std::size_t) {
  return true;
}
template <class T>
bool is_active(const PredV& p, std::size_t e) {
  return active<T>(p, e);
}

/// r[e] = active ? op(src[e]..., fpscr) : old[e] for n elements. T is the slot; op may work on its low part.
template <class T, class Predicate, class Op, class... Sources>
inline VectorV fp_merged(std::size_t n, const VectorV& old, const Predicate& p, CpuContext* context, FPSCR control,
                         Op op, const Sources&... src) {
  VectorV r;
  working_status status(context, control);
  if constexpr (processor::exists && runs_on_processor<Op>) {
    if (processor::computes<T>()) {
      const ActiveBits active = active_bits(p, n * sizeof(T));
      const FPSCR raised = processor::merge_pieces<T>(control, r.bytes, old.bytes, active, n * sizeof(T),
                                                      Op::template inactive<T>, op, src.bytes...);
      if (processor::any_active<T>(active)) status() |= raised;
      return r;
    }
  }
  const auto one = [&](std::size_t e) { return static_cast<T>(op(load<T>(src.bytes, e)..., status())); };
  if constexpr (runs_on_lanes<Op>) {
    PendingElements<T> pending;
    if (status.to_nearest()) {
      const LaneOutcome outcome = merge_on_lanes<T>(
          r.bytes, old.bytes, active_bits(p, n * sizeof(T)), n, pending,
          [op](LaneStatus<T>& lanes, auto... x) { return op(x..., lanes); }, src.bytes...);
      if (outcome.active) status() |= outcome.inexact ? flag_ixc : 0;
      if (!outcome.pending) [[likely]]
        return r;
    } else {
      r = old;
      for (std::size_t e = 0; e < n; ++e) pending.words[e] = is_active<T>(p, e);
    }
    for (std::size_t e = 0; e < n; ++e)
      if (pending.words[e]) store<T>(r.bytes, e, one(e));
  } else {
    for (std::size_t e = 0; e < n; ++e) store<T>(r.bytes, e, is_active<T>(p, e) ? one(e) : load<T>(old.bytes, e));
  }
  return r;
}

/// The same under a predicate.
template <class T, class Op, class... Sources>
inline VectorV fp_merging(const VectorV& old, const PredV& p, CpuContext* context, FPSCR control, Op op,
                          const Sources&... src) {
  return fp_merged<T>(count<T>(context), old, p, context, control, op, src...);
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
inline VectorV fp_mapped(CpuContext* context, Op op, const VectorV& first, const Sources&... src) {
  return fp_merged<T>(count<T>(context), first, all_active{}, context, context->fpcr, op, first, src...);
}

}  // namespace sve::veclib
