// Flags from predicates, and queries of predicates, at any vector length.
#pragma once

#include "sve/lanes/compares.h"
#include "sve/lanes/patterns.h"
#include "sve/veclib/elements.h"

/// The flag writers: from a mask and a result predicate, with the element size in bits. An element is active in the
/// mask at its first bit; its result is any bit of its group for Z and C, and its first bit for N. They touch the top
/// byte of `nzcv` alone. PredSetNZC keeps V; PredSetNZCV clears it; PredSetNCV keeps Z and clears V; PredSetNC keeps Z
/// and V.
///
/// With no active element, or none active whose result has a bit: N is 0, C is 1, and Z, where it is written, is 1.
/// PredSetNC has no such case: with no active element it writes nothing.
void PredSetNZCV(const PredV& mask, const PredV& result, int element_bits, CpuContext* context);
void PredSetNZC(const PredV& mask, const PredV& result, int element_bits, CpuContext* context);
void PredSetNCV(const PredV& mask, const PredV& result, int element_bits, CpuContext* context);
void PredSetNC(const PredV& mask, const PredV& result, int element_bits, CpuContext* context);

/// Index of the first and of the last active element, or -1.
int FindFirstActive(const PredV& p, int element_bits, CpuContext* context);
int FindLastActive(const PredV& p, int element_bits, CpuContext* context);

namespace sve::veclib {

/// The first bits of all elements of `bytes` bytes, a power of two up to 16, of a predicate word.
constexpr std::uint64_t element_starts(std::size_t bytes) {
  switch (bytes) {
    case 1:
      return ~std::uint64_t{0};
    case 2:
      return 0x5555555555555555u;
    case 4:
      return 0x1111111111111111u;
    case 8:
      return 0x0101010101010101u;
    default:
      return 0x0001000100010001u;
  }
}

/// The bits of word `w` that lie below a length of `bits` predicate bits.
constexpr std::uint64_t bits_below(std::size_t bits, std::size_t w) {
  return bits <= 64 * w ? 0 : bits - 64 * w >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << (bits - 64 * w)) - 1;
}

// ---- Combinations of predicates, which an operation on words of bits or on pieces of bytes spells ----

/// The bits below a position, and the first bits of all elements of T: sources of a combination like predicates.
struct LeadingBits {
  explicit LeadingBits(int e) : end(e < 0 ? 0u : static_cast<unsigned>(e)) {}
  unsigned end;
};
template <class T>
struct FirstBits {};

inline std::uint64_t word_of(const PredV& p, std::size_t w) { return scalar_word(p.words[w]); }
inline std::uint64_t word_of(LeadingBits b, std::size_t w) { return bits_below(b.end, w); }
template <class T>
constexpr std::uint64_t word_of(FirstBits<T>, std::size_t) {
  return element_starts(sizeof(T));
}

[[gnu::always_inline]] inline auto pieces_of(const in_place::PredV& p) { return source_pieces(p.bytes); }
[[gnu::always_inline]] inline auto pieces_of(LeadingBits b) { return source_pieces(LeadingOnes(b.end).bytes()); }
template <class T>
[[gnu::always_inline]] inline auto pieces_of(FirstBits<T>) {
  return [](std::size_t) { return piece_of_words(first_bytes(sizeof(T))); };
}

template <class Source>
inline constexpr bool is_canonical_source = std::is_same_v<Source, LeadingBits>;
template <class T>
inline constexpr bool is_canonical_source<FirstBits<T>> = true;

constexpr auto same = [](auto x) { return x; };
constexpr auto both = [](auto x, auto y) { return x & y; };

/// The combination of predicates, cut to the length in use. In place it may be written over a source.
template <class Op, class... Sources>
inline PredV combined(const CpuContext* context, Op op, const Sources&... src) {
  PredV r{};
  const std::size_t bits = length_bytes(context), whole = bits / 64;
  for (std::size_t w = 0; w < whole; ++w) r.words[w] = op(word_of(src, w)...);
  if (bits % 64) r.words[whole] = op(word_of(src, whole)...) & bits_below(bits, whole);
  return r;
}
template <class Op, class... Sources>
inline in_place::PredV combined(const in_place::CpuContext* context, Op op, const Sources&... src) {
  // What is cut by bytes of 0 and 1 is such.
  constexpr bool is_cut =
      std::is_same_v<Op, std::remove_const_t<decltype(both)>> && (is_canonical_source<Sources> || ...);
  const auto piece = piecewise(
      [op](auto... pieces) {
        const BytePiece r = op(pieces...);
        return is_cut ? r : r & (BytePiece{} + byte{1});
      },
      pieces_of(src)...);
  store_pieces(context->destination, piece);
  return {context->destination};
}

/// Highest and lowest set bit over the four words, or -1.
inline int lowest_bit(const PredV& p) {
  for (int w = 0; w < 4; ++w)
    if (p.words[w]) return 64 * w + __builtin_ctzll(p.words[w]);
  return -1;
}
inline int highest_bit(const PredV& p) {
  for (int w = 3; w >= 0; --w)
    if (p.words[w]) return 64 * w + 63 - __builtin_clzll(p.words[w]);
  return -1;
}

/// The position of the lowest and of the highest bit of a combination, or -1, and how many there are.
template <class Op, class... Sources>
inline int lowest_of(const CpuContext* context, Op op, const Sources&... src) {
  return lowest_bit(combined(context, op, src...));
}
template <class Op, class... Sources>
inline int highest_of(const CpuContext* context, Op op, const Sources&... src) {
  return highest_bit(combined(context, op, src...));
}
template <class Op, class... Sources>
inline std::uint64_t population(const CpuContext* context, Op op, const Sources&... src) {
  std::uint64_t n = 0;
  for (const std::uint64_t word : combined(context, op, src...).words)
    n += static_cast<std::uint64_t>(__builtin_popcountll(word));
  return n;
}
template <class Op, class... Sources>
inline RegisterPlaces bits_of(Op op, const Sources&... src) {
  return RegisterPlaces::of_pieces(piecewise(op, pieces_of(src)...));
}
template <class T>
inline RegisterPlaces bits_of(decltype(both), const in_place::PredV& p, FirstBits<T>) {
  return RegisterPlaces(p.bytes) & RegisterPlaces::elements(sizeof(T));
}
template <class Op, class... Sources>
inline int lowest_of(const in_place::CpuContext*, Op op, const Sources&... src) {
  return bits_of(op, src...).first();
}
template <class Op, class... Sources>
inline int highest_of(const in_place::CpuContext*, Op op, const Sources&... src) {
  return bits_of(op, src...).last();
}
template <class Op, class... Sources>
inline std::uint64_t population(const in_place::CpuContext*, Op op, const Sources&... src) {
  BytePiece sums{};
  const auto piece = piecewise(op, pieces_of(src)...);
#pragma GCC unroll 16
  for (std::size_t i = 0; i < register_pieces; ++i) sums += piece(i) & (BytePiece{} + byte{1});
  return sum_of(sums);
}

/// The number of active elements of T.
template <class T, class Predicate, class Context>
inline std::uint64_t active_count(const Predicate& p, const Context* context) {
  return population(context, both, p, FirstBits<T>{});
}
/// Index of the last active element of T, or -1.
template <class T, class Predicate, class Context>
inline int last_active(const Predicate& p, const Context* context) {
  const int at = highest_of(context, both, p, FirstBits<T>{});
  return at < 0 ? -1 : at / static_cast<int>(sizeof(T));
}

/// The first `n` elements of T true, their first bits alone.
template <class T>
inline PredV leading(std::size_t n, const CpuContext* context) {
  return combined(context, both, FirstBits<T>{}, LeadingBits(static_cast<int>(n * sizeof(T))));
}
template <class T>
inline in_place::PredV leading(std::size_t n, const in_place::CpuContext* context) {
  set_leading<T>(context->destination, n);
  return {context->destination};
}

inline void set_bit(PredV& p, std::size_t i) { p.words[i / 64] |= std::uint64_t{1} << (i % 64); }
inline void set_bit(in_place::PredV& p, std::size_t i) { p.bytes[i] = 1; }

// ---- Flags in place ----

inline constexpr std::uint32_t flag_n_bit = 0x80000000u, flag_z_bit = 0x40000000u, flag_c_bit = 0x20000000u,
                               flag_v_bit = 0x10000000u;

/// Replaces the flags `which` by those that `value` has.
template <class Context>
inline void write_flags(Context* context, std::uint32_t which, std::uint32_t value) {
  context->nzcv = (context->nzcv & ~which) | value;
}

/// PredSetNZCV where every element of `element_bits` bits is active.
inline void set_flags_of_all(const PredV& result, int element_bits, CpuContext* context) {
  PredV all;
  for (std::size_t w = 0; w < 4; ++w) all.words[w] = bits_below(length_bytes(context), w);
  PredSetNZCV(all, result, element_bits, context);
}
inline void write_flags_of_all(in_place::CpuContext* context, const in_place::PredV& result, int element_bits,
                               bool any) {
  std::uint64_t last = 0;
  const auto bytes = static_cast<std::size_t>(element_bits) / 8;
  std::memcpy(&last, result.bytes + vector_bytes - bytes, bytes);
  write_flags(context, flag_n_bit | flag_z_bit | flag_c_bit | flag_v_bit,
              (result.bytes[0] & 1u) * flag_n_bit | (any ? 0 : flag_z_bit) | (last & first_bytes(1) ? 0 : flag_c_bit));
}
inline void set_flags_of_all(const in_place::PredV& result, int element_bits, in_place::CpuContext* context) {
  write_flags_of_all(context, result, element_bits, any_of(union_of(result.bytes) & (BytePiece{} + byte{1})));
}

/// PredSetNZCV of the first `n` elements of T, under a mask of the first `of` elements.
template <class T>
inline void set_flags_of_leading(std::size_t n, std::size_t of, CpuContext* context) {
  PredSetNZCV(leading<T>(of, context), leading<T>(n, context), 8 * sizeof(T), context);
}
template <class T>
inline void set_flags_of_leading(std::size_t n, std::size_t of, in_place::CpuContext* context) {
  write_flags(context, flag_n_bit | flag_z_bit | flag_c_bit | flag_v_bit,
              (n != 0 ? flag_n_bit : flag_z_bit) | (n == 0 || n < of ? flag_c_bit : 0));
}

/// PredSetNZCV by way of values.
void set_flags_of_some(const in_place::PredV& mask, const in_place::PredV& result, int element_bits,
                       in_place::CpuContext* context);

/// The pieces `result(0)` and so on under a predicate, with the flags of that.
template <class T, class Result>
[[gnu::always_inline]] inline in_place::PredV flagged_pieces(const in_place::PredV& p, in_place::CpuContext* context,
                                                             Result result) {
  ComputedPredicate<T> computed(p.bytes, result);
  if (computed.every_active) [[likely]] {
    write_flags(context, flag_n_bit | flag_z_bit | flag_c_bit | flag_v_bit, computed.flags_of_all());
  } else {
    computed.restrict_to(p.bytes);
    computed.store(context->aside);  // the destination may be the predicate
    set_flags_of_some(p, {context->aside}, 8 * sizeof(T), context);
  }
  computed.store(context->destination);
  return {context->destination};
}

/// The combination of predicates under another one, with the flags of that.
template <class Op, class... Sources>
inline PredV flagged_under(const PredV& p, CpuContext* context, Op op, const Sources&... src) {
  const PredV r = combined(
      context, [op](auto governing, auto... x) { return governing & op(x...); }, p, src...);
  PredSetNZCV(p, r, 8, context);
  return r;
}
template <class Op, class... Sources>
inline in_place::PredV flagged_under(const in_place::PredV& p, in_place::CpuContext* context, Op op,
                                     const Sources&... src) {
  return flagged_pieces<std::uint8_t>(p, context, piecewise(op, pieces_of(src)...));
}

/// The same of leading bits, whose flags their end tells.
inline in_place::PredV flagged_under(const in_place::PredV& p, in_place::CpuContext* context, decltype(same),
                                     LeadingBits bits) {
  if (known_to_be_all<byte>(p)) [[likely]] {
    const std::size_t n = bits.end < vector_bytes ? bits.end : vector_bytes;
    set_flags_of_leading<byte>(n, vector_bytes, context);
    return leading<byte>(n, context);
  }
  return flagged_pieces<byte>(p, context, LeadingOnes(bits.end));
}

/// PredSetNZCV of registers.
inline void PredSetNZCV(const in_place::PredV& mask, const in_place::PredV& result, int element_bits,
                        in_place::CpuContext* context) {
  if (every_word_has(first_bytes(static_cast<unsigned>(element_bits) / 8), mask.bytes)) [[likely]]
    set_flags_of_all(result, element_bits, context);
  else
    set_flags_of_some(mask, result, element_bits, context);
}

}  // namespace sve::veclib
