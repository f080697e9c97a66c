// Permutes of two sources: element i of the result is element rule(i, n) of the sources joined, which have n each.
#pragma once

#include <cstddef>

namespace test {

using IndexRule = std::size_t (*)(std::size_t i, std::size_t n);
inline std::size_t zip(std::size_t i, std::size_t n, std::size_t base) { return base + i / 2 + (i % 2 ? n : 0); }
inline constexpr IndexRule zip1 = [](std::size_t i, std::size_t n) { return zip(i, n, 0); };
inline constexpr IndexRule zip2 = [](std::size_t i, std::size_t n) { return zip(i, n, n / 2); };
inline constexpr IndexRule uzp1 = [](std::size_t i, std::size_t) { return 2 * i; };
inline constexpr IndexRule uzp2 = [](std::size_t i, std::size_t) { return 2 * i + 1; };
inline constexpr IndexRule trn1 = [](std::size_t i, std::size_t n) { return i % 2 ? n + i - 1 : i; };
inline constexpr IndexRule trn2 = [](std::size_t i, std::size_t n) { return i % 2 ? n + i : i + 1; };
inline constexpr IndexRule reverse = [](std::size_t i, std::size_t n) { return n - 1 - i; };

}  // namespace test
