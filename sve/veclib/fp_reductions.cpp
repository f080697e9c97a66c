// Floating-point reductions: a strictly ordered sum, and balanced trees of adjacent pairs. The shape of the tree
// decides the bits of the result, so it is required: a program gets those of a processor with this vector length.
#include "sve/veclib/fp_loops.h"

using namespace sve;
using namespace sve::veclib;

namespace {

constexpr auto sum = [](auto a, auto b, auto& s) SVE_RETURNS(FPAdd(a, b, s));
constexpr auto maximum = [](auto a, auto b, auto& s) SVE_RETURNS(FPMax(a, b, s));
constexpr auto minimum = [](auto a, auto b, auto& s) SVE_RETURNS(FPMin(a, b, s));
constexpr auto maximum_number = [](auto a, auto b, auto& s) SVE_RETURNS(FPMaxNum(a, b, s));
constexpr auto minimum_number = [](auto a, auto b, auto& s) SVE_RETURNS(FPMinNum(a, b, s));

// Elements beyond the vector, up to the next power of two, and inactive ones are the pad value, and take part in every
// round like all others; pads raise nothing.
template <class T>
struct Reduction {
  T value;
  WorkingStatus status;
};

template <class T, class Predicate, class Op>
Reduction<T> tree_by_library(const Predicate& p, const byte* a, std::size_t n, std::size_t width, FPSCR control, T pad,
                             Op op) {
  WorkingStatus status(control);
  T values[256 / sizeof(T)];
  for (std::size_t i = 0; i < width; ++i) values[i] = i < n && active<T>(p, i) ? load<T>(a, i) : pad;
  for (; width > 1; width /= 2)
    for (std::size_t k = 0; k < width / 2; ++k) values[k] = op(values[2 * k], values[2 * k + 1], status());
  return {values[0], status};
}

template <class T, class Predicate, class Vector, class Context, class Op>
T tree(const Predicate& p, const Vector& a, Context* ctx, T pad, Op op) {
  const std::size_t n = count<T>(ctx);
  std::size_t width = 1;
  while (width < n) width *= 2;
  const FPSCR fpcr = ctx->fpcr;
  constexpr bool has_pieces = processor::has_operation<T, Op, T, T>;
  if constexpr (has_pieces) {
    if (processor::computes<T>(fpcr)) [[likely]] {
      processor::Control control(fpcr, ctx->fpsr);
      const T result =
          processor::reduce_pieces<T>(control, a.bytes, activity(p, n * sizeof(T)), n * sizeof(T), width, pad, op);
      if (control.settled()) [[likely]] {
        status_of(fpcr, {control.raised(), width > 1}).fold_into(ctx);
        return result;
      }
    }
  }
  const auto r =
      by_library<has_pieces>([=](const Predicate& under,
                                 const byte* from) { return tree_by_library<T>(under, from, n, width, fpcr, pad, op); },
                             p, static_cast<const byte*>(a.bytes));
  r.status.fold_into(ctx);
  return r.value;
}

template <class T, class Predicate>
Reduction<T> ordered_sum_by_library(const Predicate& p, T total, const byte* a, std::size_t n, FPSCR control) {
  WorkingStatus status(control);
  for (std::size_t i = 0; i < n; ++i)
    if (active<T>(p, i)) total = FPAdd(total, load<T>(a, i), status());
  return {total, status};
}

template <class T, class Predicate, class Vector, class Context>
T ordered_sum(const Predicate& p, std::uint64_t start, const Vector& a, Context* ctx) {
  const std::size_t n = count<T>(ctx);
  const T first = static_cast<T>(start);
  const FPSCR fpcr = ctx->fpcr;
  constexpr bool has_pieces = processor::has_operation<T, decltype(sum), T, T>;
  if constexpr (has_pieces) {
    if (processor::computes<T>(fpcr)) [[likely]] {
      processor::Control control(fpcr, ctx->fpsr);
      processor::Piece<T> total(first);
      bool any = false;
      for (std::size_t i = 0; i < n; ++i)
        if (active<T>(p, i)) {
          total = add_first(total, load<T>(a.bytes, i), control);
          any = true;
        }
      if (control.settled()) [[likely]] {
        status_of(fpcr, {control.raised(), any}).fold_into(ctx);
        return total.bits[0];
      }
    }
  }
  const auto r = by_library<has_pieces>(
      [=](const Predicate& under, const byte* from) { return ordered_sum_by_library<T>(under, first, from, n, fpcr); },
      p, static_cast<const byte*>(a.bytes));
  r.status.fold_into(ctx);
  return r.value;
}

template <class T>
constexpr T infinity = Format<T>::infinity;
template <class T>
constexpr T minus_infinity = FPNeg(Format<T>::infinity);
template <class T>
constexpr T default_nan = Format<T>::default_nan;

}  // namespace

SVE_DEFINE_PSV_SCALAR(AddReduceAV, ordered_sum<T>(p, scalar, a, ctx), FP_TYPES)
SVE_DEFINE_PV_SCALAR(AddReduceFV, tree<T>(p, a, ctx, T{0}, sum), FP_TYPES)
SVE_DEFINE_PV_SCALAR(MaxReduceFV, tree<T>(p, a, ctx, minus_infinity<T>, maximum), FP_TYPES)
SVE_DEFINE_PV_SCALAR(MinReduceFV, tree<T>(p, a, ctx, infinity<T>, minimum), FP_TYPES)
SVE_DEFINE_PV_SCALAR(MaxNumReduceFV, tree<T>(p, a, ctx, default_nan<T>, maximum_number), FP_TYPES)
SVE_DEFINE_PV_SCALAR(MinNumReduceFV, tree<T>(p, a, ctx, default_nan<T>, minimum_number), FP_TYPES)
