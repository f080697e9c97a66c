// Flags from predicates, and queries of predicates, at any vector length.
#pragma once

#include "sve/veclib/elements.h"

/// The flag writers: from a mask and a result predicate, with the element size in bits. An element is active in the
/// mask at its first bit; its result is any bit of its group for Z and C, and its first bit for N. They touch the top
/// byte of `nzcv` alone. PredSetNZC keeps V; PredSetNZCV clears it; PredSetNCV keeps Z and clears V; PredSetNC keeps Z
/// and V.
///
/// With no active element, or none active whose result has a bit: N is 0, C is 1, and Z, where it is written, is 1.
/// PredSetNC has no such case: with no active element it writes nothing.
void PredSetNZCV(const PredV& mask, const PredV& result, int element_bits, CpuContext* context);
void PredSetNZC(const PredV& mask, const PredV& result, int element_bits, CpuContext* context);
void PredSetNCV(const PredV& mask, const PredV& result, int element_bits, CpuContext* context);
void PredSetNC(const PredV& mask, const PredV& result, int element_bits, CpuContext* context);

/// Index of the first and of the last active element, or -1.
int FindFirstActive(const PredV& p, int element_bits, CpuContext* context);
int FindLastActive(const PredV& p, int element_bits, CpuContext* context);

namespace sve::veclib {

/// The first bits of all elements of `bytes` bytes, a power of two up to 16, of a predicate word.
constexpr std::uint64_t element_starts(std::size_t bytes) {
  switch (bytes) {
    case 1:
      return ~std::uint64_t{0};
    case 2:
      return 0x5555555555555555u;
    case 4:
      return 0x1111111111111111u;
    case 8:
      return 0x0101010101010101u;
    default:
      return 0x0001000100010001u;
  }
}

/// The bits of word `w` that lie below a length of `bits` predicate bits.
constexpr std::uint64_t bits_below(std::size_t bits, std::size_t w) {
  return bits <= 64 * w ? 0 : bits - 64 * w >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << (bits - 64 * w)) - 1;
}

/// Word-wise combination of predicates, cut to the length in use.
template <class Op, class... Sources>
inline PredV combined(const CpuContext* context, Op op, const Sources&... src) {
  PredV r{};
  const std::size_t bits = length_bytes(context), whole = bits / 64;
  for (std::size_t w = 0; w < whole; ++w) r.words[w] = op(scalar_word(src.words[w])...);
  if (bits % 64) r.words[whole] = op(scalar_word(src.words[whole])...) & bits_below(bits, whole);
  return r;
}

/// Highest and lowest set bit over the four words, or -1.
inline int lowest_bit(const PredV& p) {
  for (int w = 0; w < 4; ++w)
    if (p.words[w]) return 64 * w + __builtin_ctzll(p.words[w]);
  return -1;
}
inline int highest_bit(const PredV& p) {
  for (int w = 3; w >= 0; --w)
    if (p.words[w]) return 64 * w + 63 - __builtin_clzll(p.words[w]);
  return -1;
}

/// The active elements of T within the length: their first bits, nothing else.
template <class T>
inline PredV elements_of(const PredV& p, const CpuContext* context) {
  return combined(
      context, [](std::uint64_t word) { return word & element_starts(sizeof(T)); }, p);
}

/// The number of active elements of T.
template <class T>
inline std::uint64_t active_count(const PredV& p, const CpuContext* context) {
  const PredV elements = elements_of<T>(p, context);
  std::uint64_t n = 0;
  for (const std::uint64_t word : elements.words) n += static_cast<std::uint64_t>(__builtin_popcountll(word));
  return n;
}

/// The first `n` elements of T true, their first bits alone.
template <class T>
inline PredV leading(std::size_t n) {
  PredV r;
  for (std::size_t w = 0; w < 4; ++w) r.words[w] = element_starts(sizeof(T)) & bits_below(n * sizeof(T), w);
  return r;
}

}  // namespace sve::veclib
