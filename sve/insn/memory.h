// What the memory instruction functions share: addresses, element access, and the walk over active elements.
#pragma once

#include "sve/insn/lanes.h"
#include "sve/lanes/predicate_bits.h"

namespace sve {

/// Between two accesses of which the second may fault: what was written for the first stands by then. Without it the
/// compiler makes one wide access of several.
[[gnu::always_inline]] inline void keep_order() { asm volatile("" ::: "memory"); }

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
  keep_order();
}

/// Whether `bytes` bytes from an address lie in one page of any size in use.
inline bool within_page(std::uint64_t address, std::size_t bytes) {
  constexpr std::uint64_t smallest_page = 4096;
  return (address & (smallest_page - 1)) <= smallest_page - bytes;
}

}  // namespace sve
