// What the memory instruction functions share: addresses, element access, and the walk over active elements.
#pragma once

#include "sve/insn/lanes.h"

namespace sve {

/// One host access of the size of M at an application address.
template <class M>
[[gnu::always_inline]] inline M read_memory(std::uint64_t address) {
  M value;
  std::memcpy(&value, reinterpret_cast<const void*>(address), sizeof value);
  return value;
}
template <class M>
[[gnu::always_inline]] inline void write_memory(std::uint64_t address, M value) {
  std::memcpy(reinterpret_cast<void*>(address), &value, sizeof value);
}

/// Whether every element of T is active.
template <class T>
inline bool all_active(const byte* predicate) {
  // Bit 0 of each element's first byte, in every 64-bit word at once.
  constexpr std::uint64_t first_bits = ~std::uint64_t{0} / static_cast<T>(~T{0});
  std::uint64_t all = first_bits;
  for (std::size_t i = 0; i < lanes<std::uint64_t>; ++i) all &= load<std::uint64_t>(predicate, i);
  return all == first_bits;
}

/// Whether `bytes` bytes from an address lie in one page of any size in use.
inline bool within_page(std::uint64_t address, std::size_t bytes) {
  constexpr std::uint64_t smallest_page = 4096;
  return (address & (smallest_page - 1)) <= smallest_page - bytes;
}

}  // namespace sve
