// The loop that runs an operation on vectors of lanes over whole registers.
#pragma once

#include "sve/fplib/normal_lanes.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpsabi"

namespace sve {

/// Which bytes of a vector of up to 256 bytes are active: one bit each, 0 from the length on.
struct ActiveBits {
  std::uint64_t words[4];

  ActiveBits(std::size_t length) {
    for (std::size_t i = 0; i < 4; ++i) words[i] = below(length, i);
  }
  ActiveBits(const std::uint64_t* bits, std::size_t length) {
    for (std::size_t i = 0; i < 4; ++i) words[i] = 64 * i < length ? bits[i] & below(length, i) : 0;
  }
  static std::uint64_t below(std::size_t length, std::size_t word) {
    return length >= 64 * (word + 1) ? ~std::uint64_t{0}
           : length <= 64 * word     ? 0
                                     : (std::uint64_t{1} << (length - 64 * word)) - 1;
  }

  /// Masks of the lanes from element `e` on.
  template <class T>
  [[gnu::always_inline]] typename Lanes<T>::Vector mask(std::size_t e) const {
    using Word = typename Lanes<T>::Word;
    using Vector = typename Lanes<T>::Vector;
    const std::size_t first = e * sizeof(T);
    const Vector bits = Vector{} + static_cast<Word>(words[first / 64] >> (first % 64));
    // The bit of each lane as the sign of its word.
    constexpr Vector up = Vector{} + (Lanes<T>::word_bits - 1) - Lanes<T>::index() * sizeof(T);
    return normal_lanes::less<T>(bits << up, Vector{});
  }
};

/// Words that are not 0 for the active elements that the lanes did not do.
template <class T>
struct PendingElements {
  typename Lanes<T>::Word words[256 / sizeof(T)];

  /// Calls body(e) for those of the first n elements.
  template <class Body>
  [[gnu::always_inline]] void for_each(std::size_t n, Body body) const {
    for (std::size_t e = 0; e < n; ++e)
      if (words[e]) body(e);
  }
};

/// Whether any element was active, was done with a rounded result, is pending.
struct LaneOutcome {
  bool active, inexact, pending;
};

/// Runs body(status, e, mask of the active lanes) for the vectors of lanes of n elements.
template <class T, class Body>
[[gnu::always_inline]] inline LaneOutcome on_each_vector(const ActiveBits& active, std::size_t n,
                                                         PendingElements<T>& pending, Body body) {
  using Vector = typename Lanes<T>::Vector;
  Vector any_active{}, any_pending{}, inexact{};
  for (std::size_t e = 0; e < n; e += Lanes<T>::count) {
    LaneStatus<T> status;
    const Vector mask = active.mask<T>(e);
    body(status, e, mask);
    status.pending &= mask;
    std::memcpy(pending.words + e, &status.pending, sizeof status.pending);
    any_active |= mask;
    any_pending |= status.pending;
    inexact |= status.inexact & mask & ~status.pending;
  }
  return {normal_lanes::any<T>(any_active), normal_lanes::any<T>(inexact), normal_lanes::any<T>(any_pending)};
}

/// dst[e] = active ? op(status, src[e]...) : old[e] for n elements; pending ones are left undefined. Whole vectors of
/// `lane_vector_bytes` are read and written, so the arrays extend to a multiple of that.
template <class T, class Op, class... Sources>
[[gnu::always_inline]] inline LaneOutcome merge_on_lanes(std::uint8_t* dst, const std::uint8_t* old,
                                                         const ActiveBits& active, std::size_t n,
                                                         PendingElements<T>& pending, Op op, const Sources*... src) {
  return on_each_vector<T>(active, n, pending, [&](LaneStatus<T>& status, std::size_t e, auto mask) {
    const Lanes<T> computed = op(status, Lanes<T>::load(src + e * sizeof(T))...);
    const Lanes<T> kept = Lanes<T>::load(old + e * sizeof(T));
    Lanes<T>(normal_lanes::select<T>(mask, computed.bits, kept.bits)).store(dst + e * sizeof(T));
  });
}

/// dst[e] = active and test(status, src[e]...), as 1 or 0, for n elements; pending ones are left undefined.
template <class T, class Test, class... Sources>
[[gnu::always_inline]] inline LaneOutcome compare_on_lanes(std::uint8_t* dst, const ActiveBits& active, std::size_t n,
                                                           PendingElements<T>& pending, Test test,
                                                           const Sources*... src) {
  return on_each_vector<T>(active, n, pending, [&](LaneStatus<T>& status, std::size_t e, auto mask) {
    Lanes<T>(test(status, Lanes<T>::load(src + e * sizeof(T))...).bits & mask & 1).store(dst + e * sizeof(T));
  });
}

}  // namespace sve

#pragma GCC diagnostic pop
