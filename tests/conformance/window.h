// The memory window of the memory rows: pages that can be read and written between pages that cannot be touched, at one
// fixed address below 4 GB, so that 32-bit bases reach it and both builds see the same addresses.
#pragma once

#include <cstdint>
#include <cstring>

namespace conformance::window {

inline constexpr std::uint64_t page = 4096;
inline constexpr std::uint64_t base = 0x5a000000;
// Pages from `base`: none, readable, readable, none, readable, none.
inline constexpr unsigned pages = 6;
inline constexpr bool page_readable[pages] = {false, true, true, false, true, false};
inline constexpr std::uint64_t address_of_page(unsigned n) { return base + n * page; }

/// Bytes that are saved, compared and restored: pages 1, 2 and 4.
inline constexpr std::size_t bytes = 3 * page;

inline bool readable(std::uint64_t address) {
  const std::uint64_t n = (address - base) / page;
  return address >= base && n < pages && page_readable[n];
}

struct Contents {
  std::uint8_t data[bytes];

  std::uint8_t& at(std::uint64_t address) {
    const std::uint64_t offset = address - base - page;
    return data[offset < 2 * page ? offset : offset - page];
  }
  std::uint64_t address(std::size_t i) const { return base + page + i + (i < 2 * page ? 0 : page); }
};

/// Maps the window; ends the program with a message when the place is taken.
void map();
void fill(const Contents& from);
void save(Contents& to);

}  // namespace conformance::window
