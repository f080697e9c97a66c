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

  bool to_nearest() const { return rounding_of(working_) == FPRounding_TiesEven; }

 private:
  CpuContext* context_;
  FPSCR working_;
  bool used_ = false;
};

/// Marks an operation that serves vectors of lanes as well as single elements: op(x..., status) with x an element and
/// an `FPSCR&`, or with x of `Lanes` and their `LaneStatus`.
template <class Op>
struct on_lanes : Op {
  explicit constexpr on_lanes(Op op) : Op(op) {}
  using Op::operator();
};

template <class Op>
inline constexpr bool runs_on_lanes = false;
template <class Op>
inline constexpr bool runs_on_lanes<on_lanes<Op>> = true;

// The vectors of the loop below never leave it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpsabi"

/// The predicate that lets every element be active.
struct all_active {};

/// Predicate bits as whole words, 0 above the length.
struct active_bits {
  std::uint64_t words[4];

  active_bits(const PredV& p, std::size_t length) {
    for (std::size_t i = 0; i < 4; ++i) words[i] = p.words[i] & below(length, i);
  }
  active_bits(all_active, std::size_t length) {
    for (std::size_t i = 0; i < 4; ++i) words[i] = below(length, i);
  }
  static std::uint64_t below(std::size_t length, std::size_t word) {
    return length >= 64 * (word + 1) ? ~std::uint64_t{0}
           : length <= 64 * word     ? 0
                                     : (std::uint64_t{1} << (length - 64 * word)) - 1;
  }

  /// Masks of the lanes from element `e` on.
  template <class T>
  [[gnu::always_inline]] typename Lanes<T>::Vector mask(std::size_t e) const {
    using Word = typename Lanes<T>::Word;
    using Vector = typename Lanes<T>::Vector;
    const std::size_t first = e * sizeof(T);
    const Vector bits = Vector{} + static_cast<Word>(words[first / 64] >> (first % 64));
    // The bit of each lane as the sign of its word.
    constexpr Vector up = Vector{} + (Lanes<T>::word_bits - 1) - Lanes<T>::index() * sizeof(T);
    return normal_lanes::less<T>(bits << up, Vector{});
  }
};

/// Words that are not 0 for the elements that are left to do one by one.
template <class T>
struct left_to_do {
  typename Lanes<T>::Word words[sizeof(VectorV) / sizeof(T)];
};

/// r[e] = active ? op(src[e]..., lanes) : old[e], on vectors of lanes. Tells whether elements are left to do.
template <class T, class Predicate, class Op, class... Sources>
[[gnu::always_inline]] inline bool merge_on_lanes(VectorV& r, const VectorV& old, const Predicate& p,
                                                  working_status& status, std::size_t n, left_to_do<T>& left, Op op,
                                                  const Sources&... src) {
  using Vector = typename Lanes<T>::Vector;
  const active_bits active(p, n * sizeof(T));
  Vector any_active{}, any_pending{}, inexact{};
  for (std::size_t e = 0; e < n; e += Lanes<T>::count) {
    LaneStatus<T> lanes;
    const Lanes<T> computed = op(Lanes<T>::load(src.bytes + e * sizeof(T))..., lanes);
    const Lanes<T> kept = Lanes<T>::load(old.bytes + e * sizeof(T));
    const Vector mask = active.mask<T>(e);
    Lanes<T>(normal_lanes::select<T>(mask, computed.bits, kept.bits)).store(r.bytes + e * sizeof(T));
    lanes.pending &= mask;
    std::memcpy(left.words + e, &lanes.pending, sizeof lanes.pending);
    any_active |= mask;
    any_pending |= lanes.pending;
    inexact |= lanes.inexact & mask & ~lanes.pending;
  }
  if (normal_lanes::any<T>(any_active)) status() |= normal_lanes::any<T>(inexact) ? flag_ixc : 0;
  return normal_lanes::any<T>(any_pending);
}

#pragma GCC diagnostic pop

template <class T>
bool is_active(all_active, std::size_t) {
  return true;
}
template <class T>
bool is_active(const PredV& p, std::size_t e) {
  return active<T>(p, e);
}

/// r[e] = active ? op(src[e]..., fpscr) : old[e]. T is the slot; op may work on its low part.
template <class T, class Predicate, class Op, class... Sources>
inline VectorV fp_merged(const VectorV& old, const Predicate& p, CpuContext* context, FPSCR control, Op op,
                         const Sources&... src) {
  VectorV r;
  working_status status(context, control);
  const std::size_t n = count<T>(context);
  const auto one = [&](std::size_t e) { return static_cast<T>(op(load<T>(src.bytes, e)..., status())); };
  if constexpr (runs_on_lanes<Op>) {
    left_to_do<T> left;
    if (status.to_nearest()) {
      if (!merge_on_lanes<T>(r, old, p, status, n, left, op, src...)) [[likely]]
        return r;
    } else {
      r = old;
      for (std::size_t e = 0; e < n; ++e) left.words[e] = is_active<T>(p, e);
    }
    for (std::size_t e = 0; e < n; ++e)
      if (left.words[e]) store<T>(r.bytes, e, one(e));
  } else {
    for (std::size_t e = 0; e < n; ++e) store<T>(r.bytes, e, is_active<T>(p, e) ? one(e) : load<T>(old.bytes, e));
  }
  return r;
}

/// The same under a predicate.
template <class T, class Op, class... Sources>
inline VectorV fp_merging(const VectorV& old, const PredV& p, CpuContext* context, FPSCR control, Op op,
                          const Sources&... src) {
  return fp_merged<T>(old, p, context, control, op, src...);
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
  return fp_merged<T>(first, all_active{}, context, context->fpcr, op, first, src...);
}

}  // namespace sve::veclib
