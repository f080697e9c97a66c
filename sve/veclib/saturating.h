// Saturating sums and differences of elements: equal to SatAdd and SatSub of the toolkit, in arithmetic at widths that
// the host vectorises.
#pragma once

#include <limits>

#include "sve/veclib/elements.h"

namespace sve::veclib {

template <class T>
inline constexpr T highest = std::numeric_limits<T>::max();
template <class T>
inline constexpr T lowest = std::numeric_limits<T>::min();

/// The limit that an overflow of a signed operation passed: the one on the side of the first operand.
template <class T>
constexpr T limit_beside(T a) {
  return static_cast<T>((a >> (8 * sizeof(T) - 1)) ^ highest<T>);
}

/// op of each element of the source, for an operation of those below: the processor's own saturating instructions would
/// leave their mark in FPSR.
template <class T, class Context, class Op, class... Sources>
[[gnu::always_inline]] inline auto saturated(const Context* context, Op op, const Sources&... src) {
  [[maybe_unused]] const StatusKept status;
  return mapped<T>(context, op, src...);
}

/// a + b, brought to the nearest value of their type.
inline constexpr auto saturating_sum = SVE_BY_PIECES(2, native::saturating_sum<Element>(a, b), [](auto a, auto b) {
  using T = decltype(a);
  using U = UnsignedOf<T>;
  const U x = static_cast<U>(a), y = static_cast<U>(b), wrapped = static_cast<U>(x + y);
  if constexpr (std::is_unsigned_v<T>) return wrapped < x ? highest<T> : wrapped;
  const bool overflow = static_cast<SignedOf<U>>((x ^ wrapped) & (y ^ wrapped)) < 0;
  return overflow ? limit_beside(a) : static_cast<T>(wrapped);
});
/// a - b, brought to the nearest value of their type.
inline constexpr auto saturating_difference =
    SVE_BY_PIECES(2, native::saturating_difference<Element>(a, b), [](auto a, auto b) {
      using T = decltype(a);
      using U = UnsignedOf<T>;
      const U x = static_cast<U>(a), y = static_cast<U>(b), wrapped = static_cast<U>(x - y);
      if constexpr (std::is_unsigned_v<T>) return x < y ? T{0} : wrapped;
      const bool overflow = static_cast<SignedOf<U>>((x ^ y) & (x ^ wrapped)) < 0;
      return overflow ? limit_beside(a) : static_cast<T>(wrapped);
    });

}  // namespace sve::veclib
