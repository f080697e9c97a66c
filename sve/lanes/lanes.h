// The element loops that both models share: reading and writing elements of a register, and blending under a predicate
// in the byte-per-vector-byte form. `n` is an element count; with a constant count the compiler vectorises each loop.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "sve/lanes/by_pieces.h"
#include "sve/lanes/predicate_bits.h"

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
using UnsignedOf = std::make_unsigned_t<T>;
template <class T>
using SignedOf = std::make_signed_t<T>;

/// Whether element `i` of type T is active: bit 0 of the predicate byte at the element's first byte.
template <class T>
[[gnu::always_inline]] inline bool active(const byte* predicate, std::size_t i) {
  return predicate[i * sizeof(T)] & 1;
}

/// All ones for an active element, 0 for an inactive one, at the element's width.
template <class T>
[[gnu::always_inline]] inline UnsignedOf<T> active_mask(const byte* predicate, std::size_t i) {
  return static_cast<UnsignedOf<T>>(0 - (load<UnsignedOf<T>>(predicate, i) & 1u));
}

/// Whether `n` elements of T are known to be a register of the built length.
template <class T>
[[gnu::always_inline]] inline bool is_register(std::size_t n) {
  return __builtin_constant_p(n) && n * sizeof(T) == vector_bytes;
}

/// The masks of a predicate of `n` elements. On AArch64 those of a register of the built length are formed first, one
/// instruction a piece.
template <class T>
struct ActiveMasks {
  [[gnu::always_inline]] ActiveMasks(const byte* p, [[maybe_unused]] std::size_t n) : predicate(p) {
#if defined(__ARM_NEON)
    whole = is_register<T>(n);
    if (whole)
#pragma GCC unroll 16
      for (std::size_t i = 0; i < register_pieces; ++i) store_piece(masks + 16 * i, active_piece<T>(p + 16 * i));
#endif
  }
  [[gnu::always_inline]] UnsignedOf<T> of(std::size_t i) const {
    return whole ? load<UnsignedOf<T>>(masks, i) : active_mask<T>(predicate, i);
  }
  const byte* predicate;
  bool whole = false;
  alignas(16) byte masks[vector_bytes];
};

/// Lets `write(bytes)` form a register of `n` elements of T at `dst`. On AArch64 the pieces of a register of the built
/// length stay in the processor's until all are formed: stores in between would keep loads from going in pairs.
template <class T, class Write>
[[gnu::always_inline]] inline void written_whole(byte* dst, [[maybe_unused]] std::size_t n, Write write) {
#if defined(__ARM_NEON)
  if (is_register<T>(n)) {
    alignas(16) byte pieces[vector_bytes];
    write(static_cast<byte*>(pieces));
    store_pieces(dst, [&](std::size_t i) { return load_piece(pieces + 16 * i); });
    return;
  }
#endif
  write(dst);
}

// Destination and sources of the loops below are either the same register or disjoint, and element i of the result
// depends on element i of the sources alone: writing in place is safe, and `ivdep` tells the compiler so.

/// dst[i] = op(src[i]...), for every element.
template <class T, class Op, class... Sources>
[[gnu::always_inline]] inline void map_lanes(byte* dst, std::size_t n, Op op, const Sources*... src) {
  if constexpr (computes_pieces<T, Op, Sources...>)
    if (is_register<T>(n)) {
      store_pieces(dst, piecewise([&](auto... pieces) { return op.piece(T{}, pieces...); }, source_pieces(src)...));
      return;
    }
  written_whole<T>(dst, n, [=](byte* r) {
#pragma GCC ivdep
    for (std::size_t i = 0; i < n; ++i) store<T>(r, i, static_cast<T>(op(load<T>(src, i)...)));
  });
}

/// dst[i] = active ? op(src[i]...) : old[i]. `op` is evaluated for inactive elements too, so it must be pure.
template <class T, class Op, class... Sources>
[[gnu::always_inline]] inline void merge_lanes(byte* dst, const byte* old, const byte* predicate, std::size_t n, Op op,
                                               const Sources*... src) {
  using U = UnsignedOf<T>;
  if constexpr (computes_pieces<T, Op, Sources...>)
    if (is_register<T>(n)) {
      store_pieces(dst, [&](std::size_t i) {
        const BytePiece keep = load_piece(old + 16 * i), computed = op.piece(T{}, load_piece(src + 16 * i)...);
        return keep ^ ((keep ^ computed) & active_piece<T>(predicate + 16 * i));
      });
      return;
    }
  const ActiveMasks<T> masks(predicate, n);
  written_whole<T>(dst, n, [=, &masks](byte* r) {
#pragma GCC ivdep
    for (std::size_t i = 0; i < n; ++i) {
      const U keep = load<U>(old, i);
      const U computed = static_cast<U>(op(load<T>(src, i)...));
      const U mask = masks.of(i);
      store<U>(r, i, static_cast<U>(keep ^ ((keep ^ computed) & mask)));
    }
  });
}

/// dst[i] = active ? op(src[i]...) : 0. `op` must be pure.
template <class T, class Op, class... Sources>
[[gnu::always_inline]] inline void zero_lanes(byte* dst, const byte* predicate, std::size_t n, Op op,
                                              const Sources*... src) {
  using U = UnsignedOf<T>;
  const ActiveMasks<T> masks(predicate, n);
  written_whole<T>(dst, n, [=, &masks](byte* r) {
#pragma GCC ivdep
    for (std::size_t i = 0; i < n; ++i)
      store<U>(r, i, static_cast<U>(static_cast<U>(op(load<T>(src, i)...)) & masks.of(i)));
  });
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
