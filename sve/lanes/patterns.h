// Element counts of predicate patterns, and predicates whose first elements are true.
#pragma once

#include <cstring>
#include <type_traits>

#include "sve/lanes/predicate_bits.h"

/// The number of elements that a five-bit predicate pattern selects out of `count`: POW2 (0), VL1 to VL8, VL16 to VL256
/// (9 to 13), MUL4 (29), MUL3 (30), ALL (31); every other pattern selects none. Two answers are deliberate: POW2 of no
/// elements is 1, and ALL is the even part of the count. A program meets neither at a length whose counts are even.
constexpr int VecTrueILength(unsigned long pattern, int count) {
  if (pattern == 0) {
    int power = 1;
    while (power * 2 <= count) power *= 2;
    return power;
  }
  if (pattern <= 8) return static_cast<int>(pattern) <= count ? static_cast<int>(pattern) : 0;
  if (pattern <= 13) {
    const int length = 1 << (pattern - 5);
    return length <= count ? length : 0;
  }
  switch (pattern) {
    case 29:
      return count & ~3;
    case 30:
      return count / 3 * 3;
    case 31:
      return count & ~1;
    default:
      return 0;
  }
}

namespace sve {

/// The same at the built length, for elements of T and every pattern.
template <class T>
struct PatternCounts {
  constexpr PatternCounts() {
    for (unsigned pattern = 0; pattern < 32; ++pattern)
      count[pattern] = static_cast<Number>(VecTrueILength(pattern, static_cast<int>(lanes<T>)));
  }
  using Number = std::conditional_t<lanes<T> <= 255, byte, std::uint16_t>;
  Number count[32] = {};
};
template <class T>
inline constexpr PatternCounts<T> counts_of_patterns;

/// The number of elements of T that a pattern selects out of a register; none if it has more than five bits.
template <class T>
constexpr unsigned pattern_count(std::uint64_t pattern) {
  return pattern < 32 ? counts_of_patterns<T>.count[pattern] : 0;
}

// A register's worth of true elements of T followed by one of false ones: any leading count is one copy from it.
template <class T>
struct LeadingTable {
  constexpr LeadingTable() {
    for (std::size_t i = 0; i < vector_bytes; i += sizeof(T)) bytes[i] = 1;
  }
  byte bytes[2 * vector_bytes] = {};
};
template <class T>
inline constexpr LeadingTable<T> leading_true;

/// A register of bytes of which the first `end` are 1 and all others 0, in pieces.
class LeadingOnes {
 public:
  explicit LeadingOnes(std::size_t end)
      : bytes_(leading_true<byte>.bytes + vector_bytes - (end < vector_bytes ? end : vector_bytes)) {}
  const byte* bytes() const { return bytes_; }
  [[gnu::always_inline]] BytePiece operator()(std::size_t i) const { return load_piece(bytes_ + 16 * i); }

 private:
  const byte* bytes_;
};

/// Makes the first `elements` elements of T of a predicate register true, and no others.
template <class T>
inline void set_leading(byte* predicate, std::size_t elements) {
  std::memcpy(predicate, leading_true<T>.bytes + vector_bytes - elements * sizeof(T), vector_bytes);
}

}  // namespace sve
