// The table lookup of whole registers.
#pragma once

#include <bit>
#include <limits>

#include "sve/lanes/lanes.h"
#include "sve/lanes/predicate_bits.h"

namespace sve {

/// dst[i] = table[indices[i]], or 0 where the index lies beyond the register. Any of the three may be the same
/// register.
template <class T>
inline void look_up(byte* dst, const byte* table, const byte* indices) {
#if defined(__ARM_NEON) && defined(__aarch64__)
  // The processor's own lookup knows bytes, of up to four pieces, and gives 0 for an index beyond them.
  constexpr std::size_t tables = (register_pieces + 3) / 4;
  uint8x16x4_t tables_of_four[tables];
#pragma GCC unroll 16
  for (std::size_t i = 0; i < 4 * tables; ++i)
    tables_of_four[i / 4].val[i % 4] =
        i < register_pieces ? reinterpret_cast<uint8x16_t>(load_piece(table + 16 * i)) : vdupq_n_u8(0);
  typedef T Elements [[gnu::vector_size(16)]];
  const BytePiece places = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
  const BytePiece within = places & byte{sizeof(T) - 1}, first_bytes = places - within;
#pragma GCC unroll 16
  for (std::size_t i = 0; i < register_pieces; ++i) {
    const Elements index = reinterpret_cast<Elements>(load_piece(indices + 16 * i));
    // At the greatest length every byte is an index into the register, so that none says "beyond".
    const bool any_byte_is_inside = vector_bytes == 256;
    BytePiece in_range = ~BytePiece{};
    Elements at = index;
    if constexpr (lanes<T> <= std::numeric_limits<T>::max()) {
      const T end = static_cast<T>(lanes<T>);
      if (any_byte_is_inside)
        in_range = reinterpret_cast<BytePiece>(index < end);
      else
        at = index < end ? index : Elements{} + end;
    }
    at <<= std::countr_zero(sizeof(T));  // the element's first byte, to all its bytes
    BytePiece byte_at = reinterpret_cast<BytePiece>(at);
    if constexpr (sizeof(T) > 1)
      byte_at = reinterpret_cast<BytePiece>(
          vqtbl1q_u8(reinterpret_cast<uint8x16_t>(byte_at), reinterpret_cast<uint8x16_t>(first_bytes)));
    const uint8x16_t first = reinterpret_cast<uint8x16_t>(byte_at + within);
    uint8x16_t found = vqtbl4q_u8(tables_of_four[0], first);
#pragma GCC unroll 3
    for (std::size_t t = 1; t < tables; ++t)
      found = vqtbx4q_u8(found, tables_of_four[t], vsubq_u8(first, vdupq_n_u8(static_cast<byte>(64 * t))));
    BytePiece result = reinterpret_cast<BytePiece>(found);
    if (any_byte_is_inside) result &= in_range;
    store_piece(dst + 16 * i, result);
  }
#else
  byte result[vector_bytes];
  for (std::size_t i = 0; i < lanes<T>; ++i) {
    const T at = load<T>(indices, i);
    const bool in_range = std::size_t{at} < lanes<T>;
    const T value = load<T>(table, in_range ? at : 0);
    store<T>(result, i, static_cast<T>(value & static_cast<T>(0 - T{in_range})));
  }
  std::memcpy(dst, result, vector_bytes);
#endif
}

}  // namespace sve
