// Integer reductions and dot products.
#include <limits>

#include "sve/veclib/define.h"

using namespace sve;
using namespace sve::veclib;

namespace {

// Folds the active elements in rising order. An inactive element counts as the start value, on which the step has no
// effect; with a vector length of 0 the start value is the result.
template <class T, class Predicate, class Vector, class Context, class Step>
T reduced(const Predicate& p, const Vector& a, const Context* ctx, T start, Step step) {
  using U = UnsignedOf<T>;
  const auto predicate = as_bytes(p, ctx);
  const std::size_t n = count<T>(ctx);
  T result = start;
  for (std::size_t i = 0; i < n; ++i) {
    const U mask = active_mask<U>(predicate, i);
    const T value = static_cast<T>((load<U>(a.bytes, i) & mask) | (static_cast<U>(start) & static_cast<U>(~mask)));
    result = static_cast<T>(step(result, value));
  }
  return result;
}

// A sum of 64 bits, which wraps there; elements are extended by their signedness.
template <class T, class Predicate, class Vector, class Context>
std::uint64_t summed(const Predicate& p, const Vector& a, const Context* ctx) {
  using U = UnsignedOf<T>;
  // The sum of a vector's elements of up to 16 bits fits 32 bits.
  using Narrow = std::conditional_t<std::is_signed_v<T>, std::int32_t, std::uint32_t>;
  using Wide = std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>;
  using Sum = std::conditional_t<sizeof(T) <= 2, Narrow, std::uint64_t>;
  const auto predicate = as_bytes(p, ctx);
  const std::size_t n = count<T>(ctx);
  Sum sum = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const T value = static_cast<T>(load<U>(a.bytes, i) & active_mask<U>(predicate, i));
    sum += static_cast<Sum>(static_cast<Wide>(value));
  }
  return static_cast<std::uint64_t>(static_cast<Wide>(sum));
}

// The signed extrema come back sign-extended to 32 bits, or whole at 64.
template <class T>
constexpr std::uint64_t scalar(T value) {
  if constexpr (std::is_signed_v<T> && sizeof(T) < 8)
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(value));
  else
    return static_cast<std::uint64_t>(value);
}

template <class T>
inline constexpr T lowest = std::numeric_limits<T>::min();
template <class T>
inline constexpr T highest = std::numeric_limits<T>::max();

constexpr auto larger = [](auto a, auto b) { return a > b ? a : b; };
constexpr auto smaller = [](auto a, auto b) { return a < b ? a : b; };

template <class T>
using Quarter = std::conditional_t<sizeof(T) == 4, std::conditional_t<std::is_signed_v<T>, std::int8_t, std::uint8_t>,
                                   std::conditional_t<std::is_signed_v<T>, std::int16_t, std::uint16_t>>;

// Each lane of the accumulator plus the products of its four narrow elements with those of the same lane of the second
// source. Wraps at the lane's width.
template <class T, class Vector, class Second, class Context>
auto dot(const Vector& first, const Second& second, const Vector& accumulator, const Context* ctx) {
  using Narrow = Quarter<T>;
  using Wide = UnsignedOf<T>;
  const auto one = [](T sum, T x, T y) {
    for (std::size_t k = 0; k < 4; ++k)
      sum = static_cast<T>(static_cast<Wide>(sum) +
                           static_cast<Wide>(static_cast<T>(static_cast<Narrow>(x >> (k * 8 * sizeof(Narrow))))) *
                               static_cast<Wide>(static_cast<T>(static_cast<Narrow>(y >> (k * 8 * sizeof(Narrow))))));
    return sum;
  };
  return mapped<T>(ctx, SVE_BY_PIECES(3, native::add<Element>(a, native::sums_of_products<Element>(b, c)), one),
                   accumulator, first, second);
}

}  // namespace

SVE_DEFINE_PV_SCALAR(AddReduceV, summed<T>(p, a, ctx), UNSIGNED_TYPES, S8, S16, S32)
SVE_DEFINE_PV_SCALAR(MaxReduceV, scalar(reduced<T>(p, a, ctx, lowest<T>, larger)), INTEGER_TYPES)
SVE_DEFINE_PV_SCALAR(MinReduceV, scalar(reduced<T>(p, a, ctx, highest<T>, smaller)), INTEGER_TYPES)
SVE_DEFINE_PV_SCALAR(AndReduceV, reduced<T>(p, a, ctx, highest<T>, [](T x, T y) { return x & y; }), UNSIGNED_TYPES)
SVE_DEFINE_PV_SCALAR(OrReduceV, reduced<T>(p, a, ctx, T{0}, [](T x, T y) { return x | y; }), UNSIGNED_TYPES)
SVE_DEFINE_PV_SCALAR(XorReduceV, reduced<T>(p, a, ctx, T{0}, [](T x, T y) { return x ^ y; }), UNSIGNED_TYPES)

SVE_DEFINE_VVV(DotVVVX, dot<T>(a, b, c, ctx), S32, U32, S64, U64)
SVE_DEFINE_VVVI(DotVVVIX, dot<T>(a, segments_filled<T>(b, imm, ctx), c, ctx), S32, U32, S64, U64)
