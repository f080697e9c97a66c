// Predicates that are computed under another one, with the flags that are asked of them: compares of whole registers,
// and logic. In pieces of sixteen bytes.
#pragma once

#include "sve/lanes/predicate_bits.h"

namespace sve {

/// The bytes 0 or 1 of a predicate of elements of T, as pieces. It holds true elements that are inactive, too, until
/// `restrict_to` has taken them out; nobody needs to where all are active.
template <class T>
struct ComputedPredicate {
  /// `result(0)` and so on are pieces of which bit 0 of each element's first byte counts.
  template <class Result>
  [[gnu::always_inline]] ComputedPredicate(const byte* predicate, Result result) {
    const BytePiece one = piece_of_words(first_bytes(sizeof(T)));
#pragma GCC unroll 16
    for (std::size_t i = 0; i < register_pieces; ++i) pieces[i] = result(i) & one;
    every_active = every_word_has(first_bytes(sizeof(T)), predicate);
  }
  [[gnu::always_inline]] void restrict_to(const byte* predicate) {
#pragma GCC unroll 16
    for (std::size_t i = 0; i < register_pieces; ++i) pieces[i] &= load_piece(predicate + 16 * i);
  }
  [[gnu::always_inline]] void store(byte* dst) const {
    store_pieces(dst, [this](std::size_t i) { return pieces[i]; });
  }
  /// N, Z, C and V in bits 31 to 28 where every element is active.
  [[gnu::always_inline]] std::uint32_t flags_of_all() const {
    BytePiece found{};
#pragma GCC unroll 16
    for (std::size_t i = 0; i < register_pieces; ++i) found |= pieces[i];
    const std::uint32_t first = pieces[0][0], last = pieces[register_pieces - 1][16 - sizeof(T)];
    return 0x60000000u ^ first << 31 ^ highest_byte(found) << 30 ^ last << 29;
  }

  BytePiece pieces[register_pieces];
  bool every_active;
};

/// The pieces of a compare of registers. `test` takes vectors of T and compares element by element.
template <class T, class Test, class... Sources>
[[gnu::always_inline]] inline auto compared_pieces(Test test, const Sources*... src) {
  typedef T Elements [[gnu::vector_size(16)]];
  return [=](std::size_t i) {
    return reinterpret_cast<BytePiece>(test(reinterpret_cast<Elements>(load_piece(src + 16 * i))...));
  };
}

}  // namespace sve
