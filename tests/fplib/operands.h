// Operands for the floating-point tests: boundary grids, seeded random values, control words, and how many to take.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "sve/fplib/fplib.h"

namespace operands {

/// `SVE_FPLIB_SEED` and `SVE_FPLIB_CASES` in the environment choose the seed, and how many random cases each suite
/// takes.
inline std::uint64_t from_environment(const char* name, std::uint64_t otherwise) {
  const char* text = std::getenv(name);
  return text ? std::strtoull(text, nullptr, 0) : otherwise;
}
inline std::uint64_t seed() {
  static const std::uint64_t value = from_environment("SVE_FPLIB_SEED", 20240229);
  return value;
}
inline std::uint64_t cases(std::uint64_t otherwise) { return from_environment("SVE_FPLIB_CASES", otherwise); }

/// A small and fast generator (splitmix64).
class Random {
 public:
  explicit Random(std::uint64_t stream) : state_(seed() * 0x2545f4914f6cdd1dull + stream) {}
  std::uint64_t operator()() {
    std::uint64_t z = (state_ += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
  std::uint64_t below(std::uint64_t n) { return (*this)() % n; }

 private:
  std::uint64_t state_;
};

/// Every interesting exponent with every interesting fraction and both signs. The short grid, for three operands, keeps
/// a few of each.
template <class T>
std::vector<T> grid(bool brief = false) {
  using F = sve::Format<T>;
  constexpr int m = F::fraction_bits, bias = F::bias, max = F::exponent_max;
  std::vector<int> exponents = {0, 1, bias, max - 1, max};
  std::vector<T> fractions = {0, 1, F::fraction_mask};
  if (!brief) {
    for (const int e : {2, 3, bias - m - 2, bias - m - 1, bias - m, bias - 2, bias - 1, bias + 1, bias + 2,
                        bias + m - 1, bias + m, bias + m + 1, max - 3, max - 2, max / 4, max - max / 4}) {
      if (e > 1 && e < max - 1) exponents.push_back(e);
    }
    for (const T f :
         {T{2}, static_cast<T>(F::quiet), static_cast<T>(F::quiet | 1), static_cast<T>(F::quiet - 1),
          static_cast<T>(F::fraction_mask - 1), static_cast<T>(F::fraction_mask / 3), static_cast<T>(T{1} << (m / 2)),
          static_cast<T>(F::fraction_mask << (m / 2) & F::fraction_mask)}) {
      fractions.push_back(f);
    }
  }
  std::vector<T> values;
  for (const int e : exponents)
    for (const T f : fractions) {
      for (const T sign : {T{0}, F::sign}) values.push_back(static_cast<T>(sign | static_cast<T>(e) << m | f));
    }
  return values;
}

/// Random values of several characters: any bits; few bits set; a grid value; one close to `near` in exponent, so that
/// sums cancel and products meet the ends of the range.
template <class T>
T random_value(Random& random, T near) {
  using F = sve::Format<T>;
  static const std::vector<T> edges = grid<T>();
  const std::uint64_t bits = random();
  switch (random.below(8)) {
    case 0:
      return edges[bits % edges.size()];
    case 1:
      return static_cast<T>((T{1} << (bits % F::width)) ^ (T{1} << ((bits >> 8) % F::width)));
    case 2:
      return static_cast<T>((bits & (F::sign | F::fraction_mask)) | (T{F::bias} << F::fraction_bits));
    case 3:
      return static_cast<T>(near ^ (bits & F::sign) ^ (T{1} << ((bits >> 8) % F::width)));
    case 4:
    case 5: {
      const int field =
          static_cast<int>(sve::magnitude_of(near) >> F::fraction_bits) + static_cast<int>(bits >> 58) - 32;
      const T exponent = static_cast<T>(field < 0 ? 0 : field > F::exponent_max ? F::exponent_max - 1 : field);
      return static_cast<T>((bits & (F::sign | F::fraction_mask)) | (exponent << F::fraction_bits));
    }
    default:
      return static_cast<T>(bits);
  }
}

inline constexpr FPSCR control_bits = 7u << 24 | 3u << 22 | 1u << 19;

/// A control word: rounding modes evenly, the other controls mostly clear; and now and then status bits and trap
/// enables that have to stay as they are.
inline FPSCR random_controls(Random& random) {
  const std::uint64_t bits = random();
  FPSCR fpscr = static_cast<FPSCR>(bits & 3) << 22;
  if ((bits >> 2 & 3) == 0) fpscr |= static_cast<FPSCR>(bits >> 8) & control_bits;
  if ((bits >> 4 & 7) == 0) fpscr |= static_cast<FPSCR>(bits >> 32) & ~control_bits;
  return fpscr;
}

/// Whether a flag that has to come can be told from one that was there.
inline bool flags_equal(FPSCR before, FPSCR after, int flags) { return after == (before | static_cast<FPSCR>(flags)); }

/// Says what a suite has covered.
inline void report(const char* what, std::uint64_t count) {
  std::printf("[ COVERED  ] %s: %llu cases, seed %llu\n", what, static_cast<unsigned long long>(count),
              static_cast<unsigned long long>(seed()));
  ::testing::Test::RecordProperty("cases", std::to_string(count));
  ::testing::Test::RecordProperty("seed", std::to_string(seed()));
}

/// Stops a loop that has failed often enough to be understood.
class Failures {
 public:
  bool enough() const { return ::testing::Test::HasFatalFailure() || count_ >= 8; }
  void add(const std::string& text) {
    ++count_;
    ADD_FAILURE() << text;
  }

 private:
  int count_ = 0;
};

inline std::string hex(std::uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof text, "%#llx", static_cast<unsigned long long>(value));
  return text;
}

}  // namespace operands
