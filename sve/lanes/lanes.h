// The element loops that both models share: reading and writing elements of a register, and blending under a predicate
// in the byte-per-vector-byte form. `n` is an element count; with a constant count the compiler vectorises each loop.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "sve/state/vector_length.h"

namespace sve {

template <class T>
[[gnu::always_inline]] inline T load(const byte* elements, std::size_t i) {
  T value;
  std::memcpy(&value, elements + i * sizeof(T), sizeof(T));
  return value;
}

template <class T>
[[gnu::always_inline]] inline void store(byte* elements, std::size_t i, T value) {
  std::memcpy(elements + i * sizeof(T), &value, sizeof(T));
}

template <class T>
using unsigned_of = std::make_unsigned_t<T>;
template <class T>
using signed_of = std::make_signed_t<T>;

/// Whether element `i` of type T is active: bit 0 of the predicate byte at the element's first byte.
template <class T>
[[gnu::always_inline]] inline bool active(const byte* predicate, std::size_t i) {
  return predicate[i * sizeof(T)] & 1;
}

/// All ones for an active element, 0 for an inactive one, at the element's width.
template <class T>
[[gnu::always_inline]] inline unsigned_of<T> active_mask(const byte* predicate, std::size_t i) {
  return static_cast<unsigned_of<T>>(0 - (load<unsigned_of<T>>(predicate, i) & 1u));
}

// Destination and sources of the loops below are either the same register or disjoint, and element i of the result
// depends on element i of the sources alone: writing in place is safe, and `ivdep` tells the compiler so.

/// dst[i] = op(src[i]...), for every element.
template <class T, class Op, class... Sources>
[[gnu::always_inline]] inline void map_lanes(byte* dst, std::size_t n, Op op, const Sources*... src) {
#pragma GCC ivdep
  for (std::size_t i = 0; i < n; ++i) store<T>(dst, i, static_cast<T>(op(load<T>(src, i)...)));
}

/// dst[i] = active ? op(src[i]...) : old[i]. `op` is evaluated for inactive elements too, so it must be pure.
template <class T, class Op, class... Sources>
[[gnu::always_inline]] inline void merge_lanes(byte* dst, const byte* old, const byte* predicate, std::size_t n, Op op,
                                               const Sources*... src) {
  using U = unsigned_of<T>;
#pragma GCC ivdep
  for (std::size_t i = 0; i < n; ++i) {
    const U keep = load<U>(old, i);
    const U computed = static_cast<U>(op(load<T>(src, i)...));
    const U mask = active_mask<T>(predicate, i);
    store<U>(dst, i, static_cast<U>(keep ^ ((keep ^ computed) & mask)));
  }
}

/// dst[i] = active ? op(src[i]...) : 0. `op` must be pure.
template <class T, class Op, class... Sources>
[[gnu::always_inline]] inline void zero_lanes(byte* dst, const byte* predicate, std::size_t n, Op op,
                                              const Sources*... src) {
  using U = unsigned_of<T>;
#pragma GCC ivdep
  for (std::size_t i = 0; i < n; ++i)
    store<U>(dst, i, static_cast<U>(static_cast<U>(op(load<T>(src, i)...)) & active_mask<T>(predicate, i)));
}

/// As merge_lanes, for an `op` that has effects or may not run for inactive elements: elements in rising order, no
/// computation for an inactive one, the result in a buffer that is written once at the end.
template <class T, std::size_t Capacity, class Op, class... Sources>
[[gnu::always_inline]] inline void merge_lanes_in_order(byte* dst, const byte* old, const byte* predicate,
                                                        std::size_t n, Op op, const Sources*... src) {
  byte result[Capacity];
  for (std::size_t i = 0; i < n; ++i)
    store<T>(result, i, active<T>(predicate, i) ? static_cast<T>(op(load<T>(src, i)...)) : load<T>(old, i));
  std::memcpy(dst, result, n * sizeof(T));
}

}  // namespace sve
