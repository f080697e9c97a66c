// The random numbers of the cases: every case is a function of its seed, its row and its number, on any machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace conformance {

/// SplitMix64.
class RandomSource {
 public:
  explicit RandomSource(std::uint64_t seed) : state_(seed) {}

  std::uint64_t next() {
    std::uint64_t z = state_ += 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
  }
  /// A number below `bound`, which is below 2^32.
  std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(((next() >> 32) * bound) >> 32); }
  bool chance(std::uint32_t of_100) { return below(100) < of_100; }
  template <class T, std::size_t N>
  const T& pick(const T (&values)[N]) {
    return values[below(N)];
  }
  template <class T>
  const T& pick(std::span<const T> values) {
    return values[below(static_cast<std::uint32_t>(values.size()))];
  }

 private:
  std::uint64_t state_;
};

/// Mixes values into one seed.
inline std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
  return RandomSource(a ^ (b * 0xd6e8feb86659fd93u)).next();
}

/// A hash of a name that is the same everywhere.
inline std::uint64_t hash_name(const char* name) {
  std::uint64_t h = 0xcbf29ce484222325u;
  for (; *name; ++name) h = (h ^ static_cast<unsigned char>(*name)) * 0x100000001b3u;
  return h;
}

}  // namespace conformance
