// Compares of whole registers under a predicate in byte form, in pieces of sixteen bytes, and what flags ask of them.
#pragma once

#include "sve/lanes/predicate_bits.h"

namespace sve {

/// Bits of what was inactive, and of what compared true: of each piece's, joined.
struct compare_outcome {
  byte_piece missing, found;
  bool every_active() const { return !any_of(missing); }
  bool any() const { return any_of(found); }
};

/// dst[i] = active and test(src[i]...), as 1 or 0 at the width of T: a canonical predicate. `test` takes vectors of T
/// and compares element by element. `dst` may be the predicate, but none of the sources.
template <class T, class Test, class... Sources>
[[gnu::always_inline]] inline compare_outcome compare_register(byte* dst, const byte* predicate, Test test,
                                                               const Sources*... src) {
  typedef T Elements [[gnu::vector_size(16)]];
  const byte_piece one = piece_of_words(first_bytes(sizeof(T)));
  byte_piece every = ~byte_piece{}, found{};
#pragma GCC unroll 16
  for (std::size_t i = 0; i < register_pieces; ++i) {
    const byte_piece active = load_piece(predicate + 16 * i);
    const byte_piece truth =
        reinterpret_cast<byte_piece>(test(reinterpret_cast<Elements>(load_piece(src + 16 * i))...));
    const byte_piece result = truth & active & one;
    store_piece(dst + 16 * i, result);
    every &= active;
    found |= result;
  }
  return {one & ~every, found};
}

}  // namespace sve
