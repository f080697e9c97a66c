// Floating-point reductions: a strictly ordered sum, and balanced trees of adjacent pairs. The shape of the tree
// decides the bits of the result and is required.
#include "sve/veclib/fp_loops.h"

using namespace sve;
using namespace sve::veclib;

namespace {

// Elements beyond the vector, up to the next power of two, and inactive ones are the pad value, and take part in every
// round like all others; pads raise nothing.
template <class T, class Op>
T tree(const PredV& p, const VectorV& a, CpuContext* ctx, T pad, Op op) {
  const std::size_t n = count<T>(ctx);
  std::size_t width = 1;
  while (width < n) width *= 2;
  working_status status(ctx);
  if constexpr (processor::exists) {
    if (processor::computes<T>()) {
      processor::Control control(ctx->fpcr);
      const T result = processor::reduce_pieces<T>(control, a.bytes, active_bits(p, n * sizeof(T)), width, pad, op);
      if (width > 1) status() |= control.raised();
      return result;
    }
  }
  T values[256 / sizeof(T)];
  for (std::size_t i = 0; i < width; ++i) values[i] = i < n && active<T>(p, i) ? load<T>(a.bytes, i) : pad;
  for (; width > 1; width /= 2)
    for (std::size_t k = 0; k < width / 2; ++k) values[k] = op(values[2 * k], values[2 * k + 1], status());
  return values[0];
}

template <class T>
T ordered_sum(const PredV& p, std::uint64_t start, const VectorV& a, CpuContext* ctx) {
  const std::size_t n = count<T>(ctx);
  T total = static_cast<T>(start);
  working_status status(ctx);
  if constexpr (processor::exists) {
    if (processor::computes<T>()) {
      processor::Control control(ctx->fpcr);
      const ActiveBits bits = active_bits(p, n * sizeof(T));
      processor::Piece<T> sum(total);
      for (std::size_t w = 0; w < 4; ++w)
        for (std::uint64_t word = bits.words[w] & processor::deciding_bits<T>; word; word &= word - 1)
          sum = add_first(sum, load<T>(a.bytes + 64 * w + static_cast<unsigned>(__builtin_ctzll(word)), 0), control);
      if (processor::any_active<T>(bits)) status() |= control.raised();
      return sum.bits[0];
    }
  }
  for (std::size_t i = 0; i < n; ++i)
    if (active<T>(p, i)) total = FPAdd(total, load<T>(a.bytes, i), status());
  return total;
}

template <class T>
constexpr T infinity = Format<T>::infinity;
template <class T>
constexpr T minus_infinity = FPNeg(Format<T>::infinity);
template <class T>
constexpr T default_nan = Format<T>::default_nan;

constexpr auto sum = [](auto a, auto b, auto& s) { return FPAdd(a, b, s); };
constexpr auto maximum = [](auto a, auto b, auto& s) { return FPMax(a, b, s); };
constexpr auto minimum = [](auto a, auto b, auto& s) { return FPMin(a, b, s); };
constexpr auto maximum_number = [](auto a, auto b, auto& s) { return FPMaxNum(a, b, s); };
constexpr auto minimum_number = [](auto a, auto b, auto& s) { return FPMinNum(a, b, s); };

}  // namespace

#define FP_TYPES F16, F32, D64

SVE_DEFINE_PSV_SCALAR(AddReduceAV, ordered_sum<T>(p, scalar, a, ctx), FP_TYPES)
SVE_DEFINE_PV_SCALAR(AddReduceFV, tree<T>(p, a, ctx, T{0}, sum), FP_TYPES)
SVE_DEFINE_PV_SCALAR(MaxReduceFV, tree<T>(p, a, ctx, minus_infinity<T>, maximum), FP_TYPES)
SVE_DEFINE_PV_SCALAR(MinReduceFV, tree<T>(p, a, ctx, infinity<T>, minimum), FP_TYPES)
SVE_DEFINE_PV_SCALAR(MaxNumReduceFV, tree<T>(p, a, ctx, default_nan<T>, maximum_number), FP_TYPES)
SVE_DEFINE_PV_SCALAR(MinNumReduceFV, tree<T>(p, a, ctx, default_nan<T>, minimum_number), FP_TYPES)
