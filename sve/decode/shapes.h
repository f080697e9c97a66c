// The 44 shapes of fixed bits: how a map's key is cut from an instruction word.
#pragma once

#include <cstdint>

namespace sve::decode {

/// The bits `High` down to `Low` of a word.
template <unsigned High, unsigned Low = High>
struct Bits {
  static constexpr unsigned low = Low;
  static constexpr unsigned width = High - Low + 1;
  static constexpr std::uint32_t mask = static_cast<std::uint32_t>(((std::uint64_t{1} << width) - 1) << Low);
  static constexpr std::uint32_t cut(std::uint32_t word) { return (word & mask) >> Low; }
  static constexpr std::uint32_t place(std::uint32_t value) { return (value << Low) & mask; }
};

/// A key: the concatenation of bit ranges, the first-named in the highest position.
template <class... Ranges>
struct Shape {
  static constexpr std::uint32_t mask = (Ranges::mask | ...);

  static constexpr int key(std::uint32_t word) {
    std::uint32_t key = 0;
    ((key = static_cast<std::uint32_t>((std::uint64_t{key} << Ranges::width) | Ranges::cut(word))), ...);
    return static_cast<int>(key);
  }

  /// The word that holds `key` in the fixed bits and zeros elsewhere.
  static constexpr std::uint32_t word(int key) {
    std::uint32_t word = 0;
    unsigned below = (Ranges::width + ... + 0u);
    ((below -= Ranges::width,
      word |= Ranges::place(static_cast<std::uint32_t>(std::uint64_t{static_cast<std::uint32_t>(key)} >> below))),
     ...);
    return word;
  }
};

}  // namespace sve::decode
