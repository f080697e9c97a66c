// Sixteen bytes of floating-point elements, as the host's processor computes them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "sve/fplib/fplib.h"
#include "sve/fplib/lane_loops.h"

/// The body of a lambda that can be called with those operands alone that the expression has a meaning for.
#define SVE_RETURNS(...) \
  ->decltype(__VA_ARGS__) { return __VA_ARGS__; }

namespace sve::processor {

/// Sixteen bytes of elements of T, raw bits.
template <class T>
struct Piece {
  static constexpr std::size_t count = 16 / sizeof(T);
  using Element = std::type_identity_t<T>;
  typedef Element Bits [[gnu::vector_size(16)]];
  typedef std::make_signed_t<T> SignedBits [[gnu::vector_size(16)]];
  Bits bits;

  Piece() = default;
  explicit Piece(Bits b) : bits(b) {}
  /// The same value in each element.
  template <class Value>
  requires std::is_integral_v<Value> Piece(Value value) : bits(Bits{} + static_cast<T>(value)) {}
  [[gnu::always_inline]] static Piece load(const std::uint8_t* bytes) {
    Piece r;
    std::memcpy(&r.bits, bytes, 16);
    return r;
  }
  [[gnu::always_inline]] void store(std::uint8_t* bytes) const { std::memcpy(bytes, &bits, 16); }
  /// Its elements as those of another type.
  template <class U>
  [[gnu::always_inline]] Piece<U> as() const {
    return Piece<U>(reinterpret_cast<typename Piece<U>::Bits>(bits));
  }
};

/// All ones where a compare holds, otherwise 0.
template <class T>
struct Truth {
  typename Piece<T>::Bits bits;
  Truth operator!() const { return {~bits}; }
};

template <class T>
[[gnu::always_inline]] inline typename Piece<T>::Bits select(typename Piece<T>::Bits mask, typename Piece<T>::Bits a,
                                                             typename Piece<T>::Bits b) {
  return (a & mask) | (b & ~mask);
}

/// Pieces whose adjacent elements are operands of each other: op(a, b) is that of the pairs of a, then of those of b.
template <class T>
struct Pairs {
  Piece<T> elements;
};

// ---- Operations without status ----

/// A negated piece, which remembers what it is the negation of: some instructions negate by themselves.
template <class T>
struct Negated : Piece<T> {
  [[gnu::always_inline]] explicit Negated(Piece<T> a) : Piece<T>(a.bits ^ Format<T>::sign), positive(a) {}
  Piece<T> positive;
};
template <class T>
[[gnu::always_inline]] inline Negated<T> FPNeg(Piece<T> a) {
  return Negated<T>(a);
}
template <class T>
[[gnu::always_inline]] inline Piece<T> magnitude_of(Piece<T> a) {
  return Piece<T>(a.bits & static_cast<T>(~Format<T>::sign));
}

/// Each element of a piece by itself.
template <class T, class One>
[[gnu::always_inline]] inline Piece<T> one_by_one(Piece<T> a, One one) {
  for (std::size_t e = 0; e < Piece<T>::count; ++e) a.bits[e] = one(a.bits[e]);
  return a;
}

}  // namespace sve::processor
