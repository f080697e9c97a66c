// Floating point by the processor, in vectors of sixteen bytes: the operations of the library that the host's
// instructions compute, under the library's names, so that one expression serves both. No bit of a result and no flag
// tells which of the two has run.
//
// An AArch64 host gives every result. An x86-64 host gives those that are the same on both architectures, and tells
// where one is not: then nothing is written, and the library computes the vector. Elsewhere `exists` is false, and
// nothing here is ever instantiated.
#pragma once

#include <array>
#include <concepts>
#include <utility>

#include "sve/lanes/predicate_bits.h"
#include "sve/processor/pieces.h"

#if defined(__aarch64__)
#include "sve/processor/aarch64.h"
#elif defined(__AVX2__) && defined(__FMA__) && defined(__F16C__)
#include "sve/processor/x86_64.h"
#else
#include "sve/processor/none.h"
#endif

namespace sve::processor {

/// The sizes in bytes, added up, of the elements that the processor computes; none until `initialize` has looked. Half
/// precision is missing in the first version of AArch64, all but its conversions to the other formats, and on x86-64.
[[gnu::visibility("hidden")]] extern unsigned widths;

/// Called once at start.
void initialize();

/// Whether the processor computes with elements of T under the controls of `fpcr`.
template <class T>
inline bool computes(FPSCR fpcr) {
  return exists && (widths & sizeof(T)) && serves(fpcr);
}

/// Whether it has op(Piece<T>..., control), with a piece for each source.
template <class T, class Op, class... Sources>
concept has_operation = exists &&
    std::invocable<const Op&, decltype(static_cast<void>(std::declval<Sources>()), std::declval<Piece<T>>())...,
                   Control&>;

template <class T>
concept Rounds = requires(Piece<T> a, Under under) {
  round_ties_away(a, under);
};

/// As the function for one element; the rounding that the host's control register selects is known to
/// `round_by_control` and `round_exactly`.
template <Rounds T>
[[gnu::always_inline]] inline Piece<T> FPRoundInt(Piece<T> a, FPRounding rounding, bool, Under control) {
  switch (rounding) {
    case FPRounding_PosInf:
      return round_up(a, control);
    case FPRounding_NegInf:
      return round_down(a, control);
    case FPRounding_Zero:
      return round_towards_zero(a, control);
    case FPRounding_TiesAway:
      return round_ties_away(a, control);
    default:
      return round_ties_even(a, control);
  }
}

template <class T>
concept Multiplies = requires(Piece<T> a, Under under) {
  FPMulAdd(a, a, FPMul(a, a, under), under);
};

// ---- Scaling, of which only the last of three steps can be inexact ----

/// a times 2 to the power of the elements of b, which are signed integers. Any power is the product of three that the
/// format has, or leads past its range. Upwards each step is exact or overflows, as the whole does. Downwards a step is
/// exact, or what it leaves is so small that the next ones round it as they round any such value.
template <Multiplies T>
[[gnu::always_inline]] inline Piece<T> scaled(Piece<T> a, Piece<T> b, Under control) {
  using Signed = typename Piece<T>::SignedBits;
  const Signed highest = Signed{} + Format<T>::bias, lowest = Signed{} + (1 - Format<T>::bias);
  const auto clamped = [&](Signed x) {
    x = x < highest ? x : highest;
    return x > lowest ? x : lowest;
  };
  const auto power = [&](Signed x) {
    return Piece<T>(reinterpret_cast<typename Piece<T>::Bits>((x + highest) << Format<T>::fraction_bits));
  };
  const Signed whole = reinterpret_cast<Signed>(b.bits), last = clamped(whole), before = clamped(whole - last),
               first = clamped(whole - last - before);
  return FPMul(FPMul(FPMul(a, power(first), control), power(before), control), power(last), control);
}

// ---- The accelerators, whose parts are operations above ----

template <Multiplies T>
[[gnu::always_inline]] inline Piece<T> FPTRIMADD(unsigned long index, Piece<T> a, Piece<T> b, Under control) {
  using Bits = typename Piece<T>::Bits;
  const Bits cosine = reinterpret_cast<Bits>((b.bits & Format<T>::sign) != 0);
  const Piece<T> coefficient(select<T>(cosine, Piece<T>(trigonometric_coefficients<T>[(index & 7) + 8]).bits,
                                       Piece<T>(trigonometric_coefficients<T>[index & 7]).bits));
  return FPMulAdd(coefficient, a, magnitude_of(b), control);
}

template <Multiplies T>
[[gnu::always_inline]] inline Piece<T> FPTRISMUL(Piece<T> a, Piece<T> b, Under control) {
  const Piece<T> square = FPMul(a, a, control);
  using Bits = typename Piece<T>::Bits;
  // A NaN keeps its sign; the square of anything else has none.
  const Bits number = reinterpret_cast<Bits>(magnitude_of(square).bits <= Format<T>::infinity);
  return Piece<T>(square.bits | ((b.bits << static_cast<T>(Format<T>::width - 1)) & number));
}

// ---- The loops over whole vectors ----

/// Up to four pieces of a vector, loaded together: four of four vectors are what the host has registers for.
inline constexpr std::size_t group_pieces = 4;
template <class T>
struct Group {
  explicit Group(Piece<T> same) : piece{same, same, same, same} {}
  [[gnu::always_inline]] Group(const std::uint8_t* vector, std::size_t first, std::size_t n) {
#pragma GCC unroll 4
    for (std::size_t k = 0; k < n; ++k) piece[k] = in_register(Piece<T>::load(vector + 16 * (first + k)));
  }
  Piece<T> piece[group_pieces];
};

/// Masks of a piece's elements from the predicate bits of a vector.
template <class T>
[[gnu::always_inline]] inline typename Piece<T>::Bits piece_mask(const ActiveBits& active, std::size_t piece) {
  using Bits = typename Piece<T>::Bits;
  const Bits bits = Bits{} + static_cast<T>(active.words[piece / 4] >> (16 * (piece % 4)));
  if constexpr (sizeof(T) == 2)
    return reinterpret_cast<Bits>((bits & Bits{1, 4, 16, 64, 256, 1024, 4096, 16384}) != 0);
  else if constexpr (sizeof(T) == 4)
    return reinterpret_cast<Bits>((bits & Bits{1, 0x10, 0x100, 0x1000}) != 0);
  else
    return reinterpret_cast<Bits>((bits & Bits{1, 0x100}) != 0);
}

/// The same from the byte form of a predicate.
template <class T>
[[gnu::always_inline]] inline typename Piece<T>::Bits piece_mask(const std::uint8_t* predicate) {
  using Bits = typename Piece<T>::Bits;
  return reinterpret_cast<Bits>((Piece<T>::load(predicate).bits & Piece<T>(T{1}).bits) != 0);
}

/// The bits of a predicate word that decide over elements of T.
template <class T>
inline constexpr std::uint64_t deciding_bits = ~std::uint64_t{0} / ((std::uint64_t{1} << sizeof(T)) - 1);

template <class T>
[[gnu::always_inline]] inline bool any_active(const ActiveBits& active) {
  return ((active.words[0] | active.words[1] | active.words[2] | active.words[3]) & deciding_bits<T>) != 0;
}
template <class T>
[[gnu::always_inline]] inline bool every_active(const ActiveBits& active, std::size_t bytes) {
  std::uint64_t missing = 0;
  for (std::size_t w = 0; w < 4; ++w) missing |= ActiveBits::below(bytes, w) & ~active.words[w];
  return (missing & deciding_bits<T>) == 0;
}

/// Which bytes of a vector are active, by bit 0 of a byte each; the vector is whole pieces.
struct ActiveBytes {
  const std::uint8_t* bytes;
};
/// Every byte is.
struct AllActive {};

template <class T>
[[gnu::always_inline]] inline typename Piece<T>::Bits piece_mask(ActiveBytes active, std::size_t piece) {
  return piece_mask<T>(active.bytes + 16 * piece);
}
template <class T>
[[gnu::always_inline]] inline bool every_active(ActiveBytes active, std::size_t bytes) {
  typename Piece<T>::Bits all = Piece<T>(T{1}).bits;
#pragma GCC unroll 8
  for (std::size_t i = 0; i < bytes; i += 16) all &= Piece<T>::load(active.bytes + i).bits;
  return !any_of<T>(all ^ Piece<T>(T{1}).bits);
}
template <class T>
[[gnu::always_inline]] inline bool every_active(AllActive, std::size_t) {
  return true;
}

/// A piece of a vector of `bytes` bytes; where only half of it is below the end, that half twice, which raises the
/// same.
template <class T>
[[gnu::always_inline]] inline Piece<T> piece_of(const std::uint8_t* vector, std::size_t i, std::size_t bytes) {
  Piece<T> r = Piece<T>::load(vector + 16 * i);
  if (16 * i + 8 >= bytes) {
    typename Piece<std::uint64_t>::Bits halves = r.template as<std::uint64_t>().bits;
    halves[1] = halves[0];
    r = Piece<std::uint64_t>(halves).template as<T>();
  }
  return r;
}

/// What an inactive element computes with: 1.0, which no operation raises anything for, or 0 among integers.
template <class T>
inline constexpr T harmless = static_cast<T>(T{Format<T>::bias} << Format<T>::fraction_bits);

/// What operations raised, whether any element was active, and whether the results are right.
struct Raised {
  FPSCR flags;
  bool any_active;
  bool settled = true;
};

/// Whether results are formed in the host's registers and stored when all are: those of a register of the built length,
/// if nothing can unsettle them. Stores in between would keep loads from going in pairs.
[[gnu::always_inline]] inline bool formed_first(std::size_t bytes) {
  return exists && settles_all && __builtin_constant_p(bytes) && bytes == vector_bytes;
}

/// Stores what `compute(put)` forms and hands to put(i, piece), unless it turns out unsettled.
template <class Compute>
[[gnu::always_inline]] inline Raised settled_results(std::uint8_t* dst, std::size_t bytes, Compute compute) {
  if (formed_first(bytes)) {
    BytePiece formed[register_pieces];
    const Raised raised = compute([&formed](std::size_t i, auto piece) __attribute__((always_inline)) {
      formed[i] = reinterpret_cast<BytePiece>(piece.bits);
    });
    store_pieces(dst, [&formed](std::size_t i) { return formed[i]; });
    return raised;
  }
  alignas(16) std::uint8_t unsettled[settles_all ? 1 : 256];
  std::uint8_t* const to = settles_all ? dst : unsettled;
  const Raised raised =
      compute([to](std::size_t i, auto piece) __attribute__((always_inline)) { piece.store(to + 16 * i); });
  if constexpr (!settles_all)
    if (raised.settled) {
#pragma GCC unroll 8
      for (std::size_t i = 0; i < bytes; i += 16) Piece<std::uint64_t>::load(unsettled + i).store(dst + i);
    }
  return raised;
}

/// finish(i, mask, op(src piece..., control)) for each piece of vectors of `bytes` bytes, a multiple of 8. `mask` is
/// that of the active elements, or `NoMask` where all are. `before` are flags that have been raised before, which may
/// be among those that the result tells.
struct NoMask {};
template <class T, class Activity, class Op, class Finish, class... Sources>
[[gnu::always_inline]] inline Raised for_each_piece(FPSCR fpcr, FPSCR before, const Activity& active, std::size_t bytes,
                                                    T inactive, Op op, Finish finish, const Sources*... src) {
  Control control(fpcr, before);
  const std::size_t pieces = (bytes + 15) / 16;
  if (every_active<T>(active, bytes)) [[likely]] {
    if constexpr (exists && settles_all)
      if (formed_first(bytes)) {
        const auto of_group = [&finish, &op, &control ](std::size_t first, std::size_t n, const auto&... group)
            __attribute__((always_inline)) {
#pragma GCC unroll 4
          for (std::size_t k = 0; k < n; ++k) finish(first + k, NoMask{}, op(group.piece[k]..., control));
        };
#pragma GCC unroll 4
        for (std::size_t first = 0; first < register_pieces; first += group_pieces) {
          const std::size_t n = register_pieces - first < group_pieces ? register_pieces - first : group_pieces;
          of_group(first, n, Group<T>(own_address(src), first, n)...);
        }
        return {control.raised(), true, control.settled()};
      }
#pragma GCC unroll 8
    for (std::size_t i = 0; i < pieces; ++i) finish(i, NoMask{}, op(piece_of<T>(src, i, bytes)..., control));
    return {control.raised(), bytes != 0, control.settled()};
  }
  typename Piece<T>::Bits any{};
  if constexpr (!std::is_same_v<Activity, AllActive>) {
#pragma GCC unroll 8
    for (std::size_t i = 0; i < pieces; ++i) {
      const auto mask = piece_mask<T>(active, i);
      any |= mask;
      finish(i, mask,
             op(Piece<T>(select<T>(mask, Piece<T>::load(src + 16 * i).bits, Piece<T>(inactive).bits))..., control));
    }
  }
  return {control.raised(), any_of<T>(any), control.settled()};
}

/// dst[e] = active ? op(src[e]..., control) : old[e]. Nothing is written unless all is settled.
template <class T, class Activity, class Op, class... Sources>
[[gnu::always_inline]] inline Raised merge_pieces(FPSCR fpcr, FPSCR before, std::uint8_t* dst, const std::uint8_t* old,
                                                  const Activity& active, std::size_t bytes, T inactive, Op op,
                                                  const Sources*... src) {
  return settled_results(
      dst, bytes, [&](auto put) __attribute__((always_inline)) {
        return for_each_piece<T>(
            fpcr, before, active, bytes, inactive, op,
            [ put, old ](std::size_t i, auto mask, Piece<T> computed) __attribute__((always_inline)) {
              if constexpr (!std::is_same_v<decltype(mask), NoMask>)
                computed = Piece<T>(select<T>(mask, computed.bits, Piece<T>::load(old + 16 * i).bits));
              put(i, computed);
            },
            src...);
      });
}

/// Sets the first bit of each active element that compares true in `words`, and clears all others.
template <class T, class Test, class... Sources>
[[gnu::always_inline]] inline Raised compare_pieces(FPSCR fpcr, FPSCR before, std::uint64_t* words,
                                                    const ActiveBits& active, std::size_t bytes, Test test,
                                                    const Sources*... src) {
  std::uint64_t found[4] = {};
  const Raised raised = for_each_piece<T>(
      fpcr, before, active, bytes, harmless<T>, test,
      [&found](std::size_t i, auto, Truth<T> truth) { found[i / 4] |= FirstBits(truth) << (16 * (i % 4)); }, src...);
  for (std::size_t w = 0; w < 4; ++w) words[w] = found[w] & active.words[w];
  return raised;
}
/// The same to bytes of 0 and 1.
template <class T, class Test, class... Sources>
[[gnu::always_inline]] inline Raised compare_pieces(FPSCR fpcr, FPSCR before, std::uint8_t* dst, ActiveBytes active,
                                                    std::size_t bytes, Test test, const Sources*... src) {
  return settled_results(
      dst, bytes, [&](auto put) __attribute__((always_inline)) {
        return for_each_piece<T>(
            fpcr, before, active, bytes, harmless<T>, test,
            [put](std::size_t i, auto mask, Truth<T> truth) __attribute__((always_inline)) {
              auto found = truth.bits & Piece<T>(T{1}).bits;
              if constexpr (!std::is_same_v<decltype(mask), NoMask>) found &= mask;
              put(i, Piece<T>(found));
            },
            src...);
      });
}

/// The result of a balanced tree of adjacent pairs, `width` elements wide, a power of two, over a vector of `bytes`
/// bytes. Inactive ones, and those above the vector, are `pad`.
template <class T, class Activity, class Op>
[[gnu::always_inline]] inline T reduce_pieces(Control& control, const std::uint8_t* vector, const Activity& active,
                                              std::size_t bytes, std::size_t width, T pad, Op op) {
  Pairs<T> pieces[16];
  std::size_t n = width <= Piece<T>::count ? 1 : width / Piece<T>::count;
#pragma GCC unroll 8
  for (std::size_t i = 0; i < n; ++i) {
    typename Piece<T>::Bits elements = Piece<T>(pad).bits;
    if (16 * i < bytes) elements = select<T>(piece_mask<T>(active, i), Piece<T>::load(vector + 16 * i).bits, elements);
    pieces[i] = {Piece<T>(elements)};
  }
  for (; n > 1; n /= 2, width /= 2)
#pragma GCC unroll 8
    for (std::size_t k = 0; k < n / 2; ++k) pieces[k] = op(pieces[2 * k], pieces[2 * k + 1], control);
  for (; width > 1; width /= 2) pieces[0] = op(pieces[0], pieces[0], control);
  return pieces[0].elements.bits[0];
}

}  // namespace sve::processor
