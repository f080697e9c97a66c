// The table lookup of whole registers.
#pragma once

#include <bit>

#include "sve/lanes/lanes.h"
#include "sve/lanes/predicate_bits.h"

namespace sve {

/// dst[i] = table[indices[i]], or 0 where the index lies beyond the register. Any of the three may be the same
/// register.
template <class T>
inline void look_up(byte* dst, const byte* table, const byte* indices) {
#if defined(__ARM_NEON) && defined(__aarch64__)
  // The processor's own lookup knows bytes, of up to four pieces, and gives 0 for an index beyond them.
  static_assert(register_pieces == 7);
  const auto piece = [](const byte* from, std::size_t i) {
    return reinterpret_cast<uint8x16_t>(load_piece(from + 16 * i));
  };
  const uint8x16x4_t low = {piece(table, 0), piece(table, 1), piece(table, 2), piece(table, 3)},
                     high = {piece(table, 4), piece(table, 5), piece(table, 6), vdupq_n_u8(0)};
  typedef T Elements [[gnu::vector_size(16)]];
  const byte_piece within = byte_piece{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15} & byte{sizeof(T) - 1};
#pragma GCC unroll 7
  for (std::size_t i = 0; i < register_pieces; ++i) {
    Elements at = reinterpret_cast<Elements>(load_piece(indices + 16 * i));
    at = at < static_cast<T>(lanes<T>) ? at : Elements{} + static_cast<T>(lanes<T>);
    at <<= std::countr_zero(sizeof(T));  // the element's first byte, to all its bytes
#pragma GCC unroll 3
    for (unsigned shift = 8; shift < 8 * sizeof(T); shift *= 2) at |= at << shift;
    const byte_piece bytes = reinterpret_cast<byte_piece>(at) + within;
    const uint8x16_t first = reinterpret_cast<uint8x16_t>(bytes);
    const uint8x16_t found = vorrq_u8(vqtbl4q_u8(low, first), vqtbl4q_u8(high, vsubq_u8(first, vdupq_n_u8(64))));
    store_piece(dst + 16 * i, reinterpret_cast<byte_piece>(found));
  }
#else
  byte result[vector_bytes];
  for (std::size_t i = 0; i < lanes<T>; ++i) {
    const T at = load<T>(indices, i);
    const bool in_range = at < lanes<T>;
    const T value = load<T>(table, in_range ? at : 0);
    store<T>(result, i, static_cast<T>(value & static_cast<T>(0 - T{in_range})));
  }
  std::memcpy(dst, result, vector_bytes);
#endif
}

}  // namespace sve
