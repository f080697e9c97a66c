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
template <class Context>
inline void fold(Context* context, FPSCR working) {
  context->fpsr = (context->fpsr | working) & fpsr_mask;
}

/// One working word for a whole loop: operations only add status bits and look at controls alone, so that folding once
/// at the end is folding after each. With no operation executed nothing is folded.
class WorkingStatus {
 public:
  explicit WorkingStatus(FPSCR control) : working_(control) {}

  FPSCR& operator()() {
    used_ = true;
    return working_;
  }
  template <class Context>
  void fold_into(Context* context) const {
    if (used_) fold(context, working_);
  }

  bool to_nearest() const { return rounding_of(working_) == FPRounding_TiesEven; }

 private:
  FPSCR working_;
  bool used_ = false;
};

/// The status of pieces that the processor computed.
inline WorkingStatus status_of(FPSCR control, processor::Raised raised) {
  WorkingStatus status(control);
  if (raised.any_active) status() |= raised.flags;
  return status;
}

/// Runs what the library computes, apart from what the processor computes, whose registers it would take. It sees
/// nothing of a context but its arguments.
template <class Body, class... Arguments>
[[gnu::noinline]] auto out_of_line(Body body, Arguments... arguments) {
  return body(arguments...);
}
template <bool besides_processor, class Body, class... Arguments>
inline auto by_library(Body body, const Arguments&... arguments) {
  if constexpr (besides_processor)
    return out_of_line(body, arguments...);
  else
    return body(arguments...);
}

/// Marks an operation that the host's processor may compute as well: op(x..., status) with x an element and an
/// `FPSCR&`, or with x of `processor::Piece` and their `processor::Control`. Its operands are floating-point values, or
/// integers.
template <class Op, bool of_integers = false>
struct OnProcessor : Op {
  explicit constexpr OnProcessor(Op op) : Op(op) {}
  using Op::operator();

  template <class T>
  static constexpr T inactive = of_integers ? T{0} : processor::harmless<T>;
};

/// Marks one that serves vectors of lanes, too: with x of `Lanes` and their `LaneStatus`.
template <class Op>
struct OnLanes : OnProcessor<Op> {
  explicit constexpr OnLanes(Op op) : OnProcessor<Op>(op) {}
};

template <class Op>
inline constexpr bool runs_on_lanes = false;
template <class Op>
inline constexpr bool runs_on_lanes<OnLanes<Op>> = true;
template <class Op>
inline constexpr bool runs_on_processor = runs_on_lanes<Op>;
template <class Op, bool of_integers>
inline constexpr bool runs_on_processor<OnProcessor<Op, of_integers>> = true;

/// `adapted`, which calls an Op, with the mark of that Op.
template <class Op, class Adapted>
constexpr auto marked_as(Adapted adapted) {
  if constexpr (runs_on_lanes<Op>)
    return OnLanes(adapted);
  else if constexpr (runs_on_processor<Op>)
    return OnProcessor(adapted);
  else
    return adapted;
}

/// The predicate that lets every element be active.
struct Unpredicated {};

inline ActiveBits active_bits(const PredV& p, std::size_t length) { return {p.words, length}; }
inline ActiveBits active_bits(const in_place::PredV& p, std::size_t length) { return {packed(p).words, length}; }
inline ActiveBits active_bits(Unpredicated, std::size_t length) { return {length}; }

/// The same as the processor's loops take it: bytes as they are.
template <class Predicate>
inline ActiveBits activity(const Predicate& p, std::size_t length) {
  return active_bits(p, length);
}
inline processor::ActiveBytes activity(const in_place::PredV& p, std::size_t) { return {p.bytes}; }
inline processor::AllActive activity(Unpredicated, std::size_t) { return {}; }

template <class T>
bool is_active(Unpredicated, std::size_t) {
  return true;
}
template <class T, class Predicate>
bool is_active(const Predicate& p, std::size_t e) {
  return active<T>(p, e);
}

/// Where the library's loops may write whole vectors of lanes: at a value, and elsewhere beside a register, which takes
/// its part afterwards.
template <class Body>
inline WorkingStatus library_result(const CpuContext*, byte* r, Body body) {
  return body(r);
}
template <class Body>
inline WorkingStatus library_result(const in_place::CpuContext*, byte* r, Body body) {
  VectorV whole;
  const WorkingStatus status = body(whole.bytes);
  std::memcpy(r, whole.bytes, vector_bytes);
  return status;
}

/// r[e] = active ? op(src[e]..., fpscr) : old[e] for n elements, by the library. Whole vectors of lanes are written.
template <class T, class Predicate, class Op, class... Sources>
inline WorkingStatus fp_merged_by_library(byte* r, std::size_t n, const byte* old, const Predicate& p, FPSCR control,
                                          Op op, const Sources*... src) {
  WorkingStatus status(control);
  const auto one = [&](std::size_t e) { return static_cast<T>(op(load<T>(src, e)..., status())); };
  if constexpr (runs_on_lanes<Op>) {
    PendingElements<T> pending;
    if (status.to_nearest()) {
      const LaneOutcome outcome = merge_on_lanes<T>(
          r, old, active_bits(p, n * sizeof(T)), n, pending,
          [op](LaneStatus<T>& lanes, auto... x) { return op(x..., lanes); }, src...);
      if (outcome.active) status() |= outcome.inexact ? flag_ixc : 0;
      if (!outcome.pending) [[likely]]
        return status;
    } else {
      std::memcpy(r, old, n * sizeof(T));
      for (std::size_t e = 0; e < n; ++e) pending.words[e] = is_active<T>(p, e);
    }
    pending.for_each(n, [&](std::size_t e) { store<T>(r, e, one(e)); });
  } else {
    for (std::size_t e = 0; e < n; ++e) store<T>(r, e, is_active<T>(p, e) ? one(e) : load<T>(old, e));
  }
  return status;
}

/// The same by what the host has. T is the slot; op may work on its low part.
template <class T, class Vector, class Predicate, class Context, class Op, class... Sources>
inline auto fp_merged(std::size_t n, const Vector& old, const Predicate& p, Context* context, FPSCR control, Op op,
                      const Sources&... src) {
  return element_wise(
      context, [&](byte * r) __attribute__((always_inline)) {
        constexpr bool has_pieces = runs_on_processor<Op> && processor::has_operation<T, Op, Sources...>;
        if constexpr (has_pieces) {
          if (processor::computes<T>(control)) [[likely]] {
            const processor::Raised raised =
                processor::merge_pieces<T>(control, context->fpsr, r, old.bytes, activity(p, n * sizeof(T)),
                                           n * sizeof(T), Op::template inactive<T>, op, src.bytes...);
            if (raised.settled) [[likely]] {
              status_of(control, raised).fold_into(context);
              return;
            }
          }
        }
        library_result(context, r, [&](byte* to) {
          return by_library<has_pieces>(
              [=](const Predicate& under, const byte* kept, const auto*... from) {
                return fp_merged_by_library<T>(to, n, kept, under, control, op, from...);
              },
              p, static_cast<const byte*>(old.bytes), static_cast<const byte*>(src.bytes)...);
        }).fold_into(context);
      });
}

/// The same under a predicate.
template <class T, class Vector, class Predicate, class Context, class Op, class... Sources>
inline auto fp_merging_under(const Vector& old, const Predicate& p, Context* context, FPSCR control, Op op,
                             const Sources&... src) {
  return fp_merged<T>(count<T>(context), old, p, context, control, op, src...);
}

template <class T, class Vector, class Predicate, class Context, class Op>
inline auto fp_merging(const Vector& a, const Predicate& p, const Vector& b, Context* context, Op op) {
  return fp_merging_under<T>(a, p, context, context->fpcr, op, a, b);
}
template <class T, class Vector, class Predicate, class Context, class Op>
inline auto fp_unary(const Vector& old, const Predicate& p, const Vector& a, Context* context, Op op) {
  return fp_merging_under<T>(old, p, context, context->fpcr, op, a);
}
template <class T, class Vector, class Predicate, class Context, class Op>
inline auto fp_ternary(const Vector& a, const Predicate& p, const Vector& b, const Vector& c, Context* context, Op op) {
  return fp_merging_under<T>(a, p, context, context->fpcr, op, a, b, c);
}

/// The same without a predicate.
template <class T, class Context, class Op, class Vector, class... Sources>
inline auto fp_mapped(Context* context, Op op, const Vector& first, const Sources&... src) {
  return fp_merged<T>(count<T>(context), first, Unpredicated{}, context, context->fpcr, op, first, src...);
}

}  // namespace sve::veclib
