// Permutes of two sources: element i of the result is element rule(i, n) of the sources joined, which have n each.
#pragma once

#include <cstddef>

namespace test {

using index_rule = std::size_t (*)(std::size_t i, std::size_t n);
inline std::size_t zip(std::size_t i, std::size_t n, std::size_t base) { return base + i / 2 + (i % 2 ? n : 0); }
inline constexpr index_rule zip1 = [](std::size_t i, std::size_t n) { return zip(i, n, 0); };
inline constexpr index_rule zip2 = [](std::size_t i, std::size_t n) { return zip(i, n, n / 2); };
inline constexpr index_rule uzp1 = [](std::size_t i, std::size_t) { return 2 * i; };
inline constexpr index_rule uzp2 = [](std::size_t i, std::size_t) { return 2 * i + 1; };
inline constexpr index_rule trn1 = [](std::size_t i, std::size_t n) { return i % 2 ? n + i - 1 : i; };
inline constexpr index_rule trn2 = [](std::size_t i, std::size_t n) { return i % 2 ? n + i : i + 1; };
inline constexpr index_rule reverse = [](std::size_t i, std::size_t n) { return n - 1 - i; };

}  // namespace test
