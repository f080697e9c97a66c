// The change between a predicate's two forms: one byte per vector byte, of which bit 0 counts, and one bit per vector
// byte. It runs around every library handler, so it uses the host's vectors where it has them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "sve/state/vector_length.h"

#if defined(__AVX2__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace sve {

// Each 64-bit word is formed in a register and stored whole: a later read of the word must not wait for smaller stores.

/// A predicate word that stays in a general register: the words of a predicate were stored one by one, and a vector
/// read of several would wait for all of them.
[[gnu::always_inline]] inline std::uint64_t scalar_word(std::uint64_t word) {
  asm("" : "+r"(word));
  return word;
}

/// Packs bit 0 of each of `count` bytes (a multiple of 8, up to 64) into the low bits of a word.
[[gnu::always_inline]] inline std::uint64_t pack_word(const std::uint8_t* bytes, std::size_t count) {
  std::uint64_t word = 0;
  std::size_t i = 0;
#if defined(__AVX2__)
  for (; i + 32 <= count; i += 32) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes + i));
    word |= std::uint64_t{static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_slli_epi16(v, 7)))} << i;
  }
  for (; i + 16 <= count; i += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i));
    word |= std::uint64_t{static_cast<std::uint16_t>(_mm_movemask_epi8(_mm_slli_epi16(v, 7)))} << i;
  }
#elif defined(__ARM_NEON)
  const int8x16_t place = {0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5, 6, 7};
  for (; i + 16 <= count; i += 16) {
    const uint8x16_t v = vshlq_u8(vandq_u8(vld1q_u8(bytes + i), vdupq_n_u8(1)), place);
    word |= std::uint64_t{vaddv_u8(vget_low_u8(v))} << i | std::uint64_t{vaddv_u8(vget_high_u8(v))} << (i + 8);
  }
#endif
  for (; i < count; i += 8) {
    std::uint64_t x;
    std::memcpy(&x, bytes + i, 8);
    // The multiplier moves bit 0 of byte k to bit 56 + k.
    word |= ((x & 0x0101010101010101u) * 0x0102040810204080u) >> 56 << i;
  }
  return word;
}

/// Spreads the low bits of a word to `count` bytes (a multiple of 8, up to 64) of 0 or 1.
[[gnu::always_inline]] inline void unpack_word(std::uint64_t word, std::uint8_t* bytes, std::size_t count) {
  std::size_t i = 0;
#if defined(__AVX2__)
  const __m256i spread =
      _mm256_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3);
  const __m256i select = _mm256_set1_epi64x(static_cast<long long>(0x8040201008040201u));
  for (; i + 32 <= count; i += 32) {
    const __m256i mask = _mm256_set1_epi32(static_cast<int>(word >> i));
    const __m256i picked = _mm256_and_si256(_mm256_shuffle_epi8(mask, spread), select);
    const __m256i ones = _mm256_and_si256(_mm256_cmpeq_epi8(picked, select), _mm256_set1_epi8(1));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(bytes + i), ones);
  }
  for (; i + 16 <= count; i += 16) {
    const __m128i select_16 = _mm256_castsi256_si128(select);
    const __m128i mask = _mm_set1_epi16(static_cast<short>(word >> i));
    const __m128i picked = _mm_and_si128(_mm_shuffle_epi8(mask, _mm256_castsi256_si128(spread)), select_16);
    const __m128i ones = _mm_and_si128(_mm_cmpeq_epi8(picked, select_16), _mm_set1_epi8(1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes + i), ones);
  }
#elif defined(__ARM_NEON)
  const uint8x16_t select = vreinterpretq_u8_u64(vdupq_n_u64(0x8040201008040201u));
  for (; i + 16 <= count; i += 16) {
    const uint8x16_t mask = vcombine_u8(vdup_n_u8(static_cast<std::uint8_t>(word >> i)),
                                        vdup_n_u8(static_cast<std::uint8_t>(word >> (i + 8))));
    vst1q_u8(bytes + i, vandq_u8(vtstq_u8(mask, select), vdupq_n_u8(1)));
  }
#endif
  for (; i < count; i += 8) {
    std::uint64_t x = (word >> i & 0xff) * 0x0101010101010101u & 0x8040201008040201u;  // byte k keeps bit k alone
    x = ((x + 0x7f7f7f7f7f7f7f7fu) >> 7) & 0x0101010101010101u;                        // nonzero bytes become 1
    std::memcpy(bytes + i, &x, 8);
  }
}

/// Packs `count` bytes (a multiple of 8) to words of bits; the bits of the last word above them are 0.
[[gnu::always_inline]] inline void pack_bits(const std::uint8_t* bytes, std::uint64_t* words, std::size_t count) {
  for (std::size_t i = 0; i < count; i += 64) words[i / 64] = pack_word(bytes + i, count - i < 64 ? count - i : 64);
}

/// Spreads bits to `count` bytes (a multiple of 8) of 0 or 1.
[[gnu::always_inline]] inline void unpack_bits(const std::uint64_t* words, std::uint8_t* bytes, std::size_t count) {
#pragma GCC unroll 4
  for (std::size_t i = 0; i < count; i += 64) unpack_word(words[i / 64], bytes + i, count - i < 64 ? count - i : 64);
}

// ---- Whole registers, in pieces of sixteen bytes ----

using BytePiece [[gnu::vector_size(16)]] = byte;
inline constexpr std::size_t register_pieces = vector_bytes / 16;
static_assert(vector_bytes % 16 == 0);

/// Whether compilers make wider pieces of a loop over elements.
#if defined(__AVX2__)
inline constexpr bool has_wider_pieces = true;
#else
inline constexpr bool has_wider_pieces = false;
#endif

[[gnu::always_inline]] inline BytePiece load_piece(const byte* bytes) {
  BytePiece r;
  std::memcpy(&r, bytes, sizeof r);
  return r;
}
[[gnu::always_inline]] inline void store_piece(byte* bytes, BytePiece piece) {
  std::memcpy(bytes, &piece, sizeof piece);
}

/// Where a register of a file of registers lies, as an address of its own. AArch64 compilers would otherwise reach its
/// first piece by an index from the state's start, and then read it alone and not in a pair with the second one.
[[gnu::always_inline]] inline byte* address_in(byte (*file)[vector_bytes], unsigned number) {
#if defined(__ARM_NEON)
  asm("" : "+r"(file));
  byte* at = file[number];
  asm("" : "+r"(at));
  return at;
#else
  return file[number];
#endif
}

/// What lies behind a file of registers, at `there`, reached as another one of them.
template <std::size_t N>
[[gnu::always_inline]] inline byte* address_behind([[maybe_unused]] byte (&file)[N][vector_bytes],
                                                   [[maybe_unused]] byte* there) {
#if defined(__ARM_NEON)
  return address_in(file, N);
#else
  return there;
#endif
}

/// Stores a register from pieces that `piece(0)` and so on give. GCC for AArch64 does not pair stores by itself.
template <class Piece, std::size_t... I>
[[gnu::always_inline]] inline void store_each_piece(byte* bytes, Piece piece, std::index_sequence<I...>) {
  const BytePiece pieces[] = {piece(I)...};  // all of them, since a store in assembler may overlap any source
#if defined(__ARM_NEON) && !defined(__clang__)
  struct whole {
    byte bytes[vector_bytes];
  };
  const auto store_two = [&]<std::size_t J>(std::integral_constant<std::size_t, J>) {
    auto& destination = *reinterpret_cast<whole*>(bytes);
    if constexpr (J % 2 == 1)
      asm("stp %q1, %q2, [%3, %4]"
          : "+m"(destination)
          : "w"(pieces[J - 1]), "w"(pieces[J]), "r"(bytes), "i"(16 * (J - 1)));
    else if constexpr (J + 1 == register_pieces)
      asm("str %q1, [%2, %3]" : "+m"(destination) : "w"(pieces[J]), "r"(bytes), "i"(16 * J));
  };
  (store_two(std::integral_constant<std::size_t, I>{}), ...);
#else
  (store_piece(bytes + 16 * I, pieces[I]), ...);
#endif
}
template <class Piece>
[[gnu::always_inline]] inline void store_pieces(byte* bytes, Piece piece) {
  store_each_piece(bytes, piece, std::make_index_sequence<register_pieces>{});
}

/// All ones in the elements of T that are active in a piece of a predicate register.
template <class T>
[[gnu::always_inline]] inline BytePiece active_piece(const byte* predicate) {
  typedef std::make_unsigned_t<T> Elements [[gnu::vector_size(16)]];
  BytePiece mask = reinterpret_cast<BytePiece>((reinterpret_cast<Elements>(load_piece(predicate)) & 1) != 0);
#if defined(__ARM_NEON)
  asm("" : "+w"(mask));  // a mask that one instruction tests for, where a choice by the test would take two
#endif
  return mask;
}

/// Whether a piece has any bit.
[[gnu::always_inline]] inline bool any_of(BytePiece piece) {
#if defined(__ARM_NEON)
  return vmaxvq_u32(reinterpret_cast<uint32x4_t>(piece)) != 0;
#else
  std::uint64_t words[2];
  std::memcpy(words, &piece, sizeof words);
  return (words[0] | words[1]) != 0;
#endif
}
/// The highest of a piece's bytes, which are all 0 or 1.
[[gnu::always_inline]] inline std::uint32_t highest_byte(BytePiece piece) {
#if defined(__ARM_NEON)
  return vmaxvq_u8(reinterpret_cast<uint8x16_t>(piece));
#else
  return any_of(piece);
#endif
}
/// The sum of a piece's bytes, which is at most `vector_bytes`.
[[gnu::always_inline]] inline std::uint64_t sum_of(BytePiece piece) {
  constexpr bool fits_a_byte = vector_bytes < 256;
#if defined(__ARM_NEON)
  if constexpr (!fits_a_byte) return vaddlvq_u8(reinterpret_cast<uint8x16_t>(piece));
  return vaddvq_u8(reinterpret_cast<uint8x16_t>(piece));
#else
  std::uint64_t words[2];
  std::memcpy(words, &piece, sizeof words);
  if constexpr (!fits_a_byte) {
    const std::uint64_t even = 0x00ff00ff00ff00ffu;
    const std::uint64_t pairs = (words[0] & even) + (words[0] >> 8 & even) + (words[1] & even) + (words[1] >> 8 & even);
    return pairs * 0x0001000100010001u >> 48;
  }
  return (words[0] + words[1]) * 0x0101010101010101u >> 56;
#endif
}

/// The bits of a whole predicate register, those of the last word above them 0.
inline constexpr std::size_t register_words = (vector_bytes + 63) / 64;
struct PredicateWords {
  std::uint64_t words[register_words];
};
/// Bit 0 of each byte of the pieces `piece(0)` and so on of a register.
template <class Piece>
[[gnu::always_inline]] inline PredicateWords pack_pieces(Piece piece) {
  PredicateWords r{};
#if defined(__ARM_NEON)
  // Each byte becomes its place in a byte of the result; three rounds of adding neighbours join those of eight pieces.
  const uint8x16_t place = {1, 2, 4, 8, 16, 32, 64, 128, 1, 2, 4, 8, 16, 32, 64, 128};
#pragma GCC unroll 2
  for (std::size_t first = 0; first < register_pieces; first += 8) {
    uint8x16_t sums[8];
    std::size_t n = register_pieces - first < 8 ? register_pieces - first : 8;
#pragma GCC unroll 16
    for (std::size_t i = 0; i < n; ++i)
      sums[i] = vandq_u8(vtstq_u8(reinterpret_cast<uint8x16_t>(piece(first + i)), vdupq_n_u8(1)), place);
#pragma GCC unroll 3
    for (int round = 0; round < 3; ++round, n = (n + 1) / 2)
#pragma GCC unroll 4
      for (std::size_t i = 0; i < n; i += 2) sums[i / 2] = vpaddq_u8(sums[i], i + 1 < n ? sums[i + 1] : vdupq_n_u8(0));
    const uint64x2_t words = vreinterpretq_u64_u8(sums[0]);
    r.words[first / 4] = vgetq_lane_u64(words, 0);
    if (first / 4 + 1 < register_words) r.words[first / 4 + 1] = vgetq_lane_u64(words, 1);
  }
#else
#pragma GCC unroll 16
  for (std::size_t i = 0; i < register_pieces; ++i) {
    byte bytes[16];
    store_piece(bytes, piece(i));
    r.words[i / 4] |= pack_word(bytes, 16) << (16 * (i % 4));
  }
#endif
  return r;
}

/// All pieces of a register. AArch64 loads up to four at a time.
struct AllPieces {
  [[gnu::always_inline]] explicit AllPieces(const std::uint8_t* bytes) {
#if defined(__ARM_NEON)
    constexpr std::size_t rest = register_pieces % 4, fours = register_pieces - rest;
#pragma GCC unroll 4
    for (std::size_t i = 0; i < fours; i += 4) take<4>(i, vld1q_u8_x4(bytes + 16 * i));
    if constexpr (rest == 3) take<3>(fours, vld1q_u8_x3(bytes + 16 * fours));
    if constexpr (rest == 2) take<2>(fours, vld1q_u8_x2(bytes + 16 * fours));
    if constexpr (rest == 1) piece[fours] = load_piece(bytes + 16 * fours);
#else
#pragma GCC unroll 16
    for (std::size_t i = 0; i < register_pieces; ++i) piece[i] = load_piece(bytes + 16 * i);
#endif
  }
  [[gnu::always_inline]] BytePiece operator()(std::size_t i) const { return piece[i]; }
  BytePiece piece[register_pieces];

 private:
  template <std::size_t N, class Several>
  [[gnu::always_inline]] void take(std::size_t first, Several loaded) {
#pragma GCC unroll 4
    for (std::size_t k = 0; k < N; ++k) piece[first + k] = reinterpret_cast<BytePiece>(loaded.val[k]);
  }
};

[[gnu::always_inline]] inline auto pieces_at(const std::uint8_t* bytes) {
  return [bytes](std::size_t i) { return load_piece(bytes + 16 * i); };
}

/// The pieces of a register as a source of others: loaded together where that takes fewer instructions, else one by
/// one.
[[gnu::always_inline]] inline auto source_pieces(const std::uint8_t* bytes) {
#if defined(__ARM_NEON)
  return AllPieces(bytes);
#else
  return pieces_at(bytes);
#endif
}

/// The pieces op(source(i)...) of such sources.
template <class Op, class... Sources>
[[gnu::always_inline]] inline auto piecewise(Op op, const Sources&... src) {
  return [=](std::size_t i) __attribute__((always_inline)) { return op(src(i)...); };
}

/// The pieces of a register joined.
[[gnu::always_inline]] inline BytePiece union_of(const std::uint8_t* bytes) {
  const AllPieces pieces(bytes);
  BytePiece all = pieces.piece[0];
#pragma GCC unroll 16
  for (std::size_t i = 1; i < register_pieces; ++i) all |= pieces.piece[i];
  return all;
}

/// Packs the bytes of a register to words of bits.
[[gnu::always_inline]] inline void pack_register(const std::uint8_t* bytes, std::uint64_t* words) {
  const PredicateWords packed = pack_pieces(pieces_at(bytes));
#pragma GCC unroll 4
  for (std::size_t w = 0; w < register_words; ++w) words[w] = packed.words[w];
}
/// Spreads words of bits to the bytes of a register.
[[gnu::always_inline]] inline void unpack_register(const std::uint64_t* words, std::uint8_t* bytes) {
  unpack_bits(words, bytes, vector_bytes);
}

/// Whether each byte of a predicate register is 0 or 1.
[[gnu::always_inline]] inline bool is_canonical(const std::uint8_t* bytes) {
#if defined(__ARM_NEON)
  return vmaxvq_u8(reinterpret_cast<uint8x16_t>(union_of(bytes))) <= 1;
#else
  return !any_of(union_of(bytes) & (BytePiece{} + byte{0xfe}));
#endif
}

/// Makes it so.
inline void make_canonical(std::uint8_t* bytes) {
  for (std::size_t i = 0; i < register_pieces; ++i)
    store_piece(bytes + 16 * i, load_piece(bytes + 16 * i) & (BytePiece{} + byte{1}));
}

/// A piece of 64-bit words, each of which is `word`.
[[gnu::always_inline]] inline BytePiece piece_of_words(std::uint64_t word) {
  const std::uint64_t words[2] = {word, word};
  BytePiece r;
  std::memcpy(&r, words, sizeof r);
  return r;
}

/// Whether every 64-bit word of a predicate register has all bits of `mask`.
[[gnu::always_inline]] inline bool every_word_has(std::uint64_t mask, const std::uint8_t* bytes) {
#if defined(__AVX2__)
  const auto whole = [&](std::size_t i) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes + i)); };
  __m256i all = _mm256_set1_epi8(-1);
  for (std::size_t i = 0; i + 32 <= vector_bytes; i += 32) all = _mm256_and_si256(all, whole(i));
  const __m128i rest = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + vector_bytes - 16));
  const __m128i both = _mm_and_si128(_mm256_castsi256_si128(all), _mm256_extracti128_si256(all, 1));
  return _mm_testc_si128(_mm_and_si128(both, rest), _mm_set1_epi64x(static_cast<long long>(mask)));
#else
  const AllPieces pieces(bytes);
  BytePiece all = pieces.piece[0];
#pragma GCC unroll 16
  for (std::size_t i = 1; i < register_pieces; ++i) all &= pieces.piece[i];
  return !any_of(piece_of_words(mask) & ~all);
#endif
}

/// In each 64-bit word of a predicate register, bit 0 of the first bytes of all elements of `bytes` bytes.
constexpr std::uint64_t first_bytes(std::size_t bytes) {
  return bytes == 8 ? 1 : ~std::uint64_t{0} / ((std::uint64_t{1} << 8 * bytes) - 1);
}
/// Whether every element of T is active.
template <class T>
inline bool all_active(const byte* predicate) {
  return every_word_has(first_bytes(sizeof(T)), predicate);
}

/// How many elements of T are active in both of two predicate registers.
template <class T>
inline std::uint64_t common_elements(const byte* a, const byte* b) {
  BytePiece sums{};
  for (std::size_t i = 0; i < register_pieces; ++i)
    sums += load_piece(a + 16 * i) & load_piece(b + 16 * i) & piece_of_words(first_bytes(sizeof(T)));
  return sum_of(sums);
}

/// What one asks of the bits of a whole predicate register.
struct RegisterBits : PredicateWords {
  RegisterBits(const PredicateWords& all) : PredicateWords(all) {}
  explicit RegisterBits(const std::uint8_t* bytes) : RegisterBits(of_pieces(pieces_at(bytes))) {}
  template <class Piece>
  [[gnu::always_inline]] static RegisterBits of_pieces(Piece piece) {
    return pack_pieces(piece);
  }
  /// The bits that decide over elements of `size` bytes: every size-th one.
  static RegisterBits elements(unsigned size) {
    constexpr std::uint64_t every[] = {~std::uint64_t{0},  0x5555555555555555u, 0, 0x1111111111111111u, 0, 0, 0,
                                       0x0101010101010101u};
    return below(vector_bytes).each([&](std::uint64_t word, std::size_t) { return word & every[size - 1]; });
  }
  /// The bits 0 to `end` - 1.
  static RegisterBits below(int end) {
    const auto ones = [](int n) { return n <= 0 ? 0 : n >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << n) - 1; };
    return RegisterBits(PredicateWords{}).each([&](std::uint64_t, std::size_t w) {
      return ones(end - 64 * static_cast<int>(w));
    });
  }

  friend RegisterBits operator&(const RegisterBits& a, const RegisterBits& b) {
    return a.each([&](std::uint64_t word, std::size_t w) { return word & b.words[w]; });
  }
  friend RegisterBits operator~(const RegisterBits& a) {
    return a.each([](std::uint64_t word, std::size_t) { return ~word; });
  }
  explicit operator bool() const {
    std::uint64_t any = 0;
    for (const std::uint64_t word : words) any |= word;
    return any != 0;
  }
  bool test(int i) const {
    const auto at = static_cast<unsigned>(i);
    return words[register_words == 1 ? 0 : at / 64] >> at % 64 & 1;
  }
  /// Index of the lowest and of the highest set bit, or -1.
  int first() const {
#pragma GCC unroll 4
    for (std::size_t w = 0; w < register_words; ++w)
      if (words[w]) return static_cast<int>(64 * w) + __builtin_ctzll(words[w]);
    return -1;
  }
  int last() const {
#pragma GCC unroll 4
    for (std::size_t w = register_words; w-- > 0;)
      if (words[w]) return static_cast<int>(64 * w) + 63 - __builtin_clzll(words[w]);
    return -1;
  }

 private:
  template <class Op>
  [[gnu::always_inline]] RegisterBits each(Op op) const {
    PredicateWords r;
#pragma GCC unroll 4
    for (std::size_t w = 0; w < register_words; ++w) r.words[w] = op(words[w], w);
    return r;
  }
};

#if defined(__ARM_NEON)
/// The same of up to eight pieces, one bit of a byte each, the last piece's the highest: bytes insert into each other
/// by one instruction, and a place is the least of sixteen.
class FoldedBits {
 public:
  explicit FoldedBits(const std::uint8_t* bytes) : FoldedBits(of_pieces(AllPieces(bytes))) {}
  template <class Piece>
  [[gnu::always_inline]] static FoldedBits of_pieces(const Piece& piece) {
    return folded(piece, std::make_index_sequence<register_pieces - 1>{});
  }
  static FoldedBits elements(unsigned size) {
    return vtstq_u8(reinterpret_cast<uint8x16_t>(piece_of_words(first_bytes(size))), vdupq_n_u8(1));
  }
  static FoldedBits below(int end) {
    // Of byte j the bits from (end - j) / 16 on, rounded up, are not below.
    const uint8x16_t from = vshrq_n_u8(vsubq_u8(vdupq_n_u8(static_cast<std::uint8_t>(end + 15)), places), 4);
    return ~FoldedBits(vshlq_u8(used(), vreinterpretq_s8_u8(from)));
  }

  friend FoldedBits operator&(FoldedBits a, FoldedBits b) { return vandq_u8(a.bits_, b.bits_); }
  friend FoldedBits operator~(FoldedBits a) { return veorq_u8(a.bits_, used()); }
  explicit operator bool() const { return any_of(reinterpret_cast<BytePiece>(bits_)); }
  bool test(int i) const {
    byte bytes[16];
    vst1q_u8(bytes, bits_);
    return bytes[i % 16] >> (i / 16 + unused) & 1;
  }
  int first() const {
    const int at = least(places, vclzq_u8(vrbitq_u8(bits_))) - 16 * unused;
    return at < static_cast<int>(vector_bytes) ? at : -1;
  }
  int last() const {
    const int before = least(vsubq_u8(vdupq_n_u8(15), places), vclzq_u8(bits_)), end = vector_bytes;
    return before < end ? end - 1 - before : -1;
  }

 private:
  static constexpr int unused = register_pieces < 8 ? 8 - static_cast<int>(register_pieces) : 0;  // the lowest bits
  static constexpr uint8x16_t places = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

  FoldedBits(uint8x16_t bits) : bits_(bits) {}
  static uint8x16_t used() { return vdupq_n_u8(static_cast<std::uint8_t>(0xff << unused)); }
  template <class Piece, std::size_t... I>
  [[gnu::always_inline]] static FoldedBits folded(const Piece& piece, std::index_sequence<I...>) {
    uint8x16_t bits = vshlq_n_u8(reinterpret_cast<uint8x16_t>(piece(0)), unused);
    ((bits = vsliq_n_u8(bits, reinterpret_cast<uint8x16_t>(piece(I + 1)), unused + 1 + I)), ...);
    return bits;
  }
  // The least of 16 * high + low; eight of `high` is more than any place.
  static int least(uint8x16_t low, uint8x16_t high) { return vminvq_u8(vsliq_n_u8(low, high, 4)); }

  uint8x16_t bits_;
};
using RegisterPlaces = std::conditional_t<(register_pieces <= 8), FoldedBits, RegisterBits>;
#else
using RegisterPlaces = RegisterBits;
#endif

/// The first element active in a mask after the last one of another predicate: its place or -1, and whether it is the
/// mask's first one, and its last.
struct NextElement {
  int place;
  bool is_first, is_last;
};
template <class T>
inline NextElement next_element(const byte* mask, const byte* source) {
  const RegisterPlaces elements = RegisterPlaces::elements(sizeof(T)), active = RegisterPlaces(mask) & elements,
                       passed = RegisterPlaces::below((RegisterPlaces(source) & elements).last() + 1);
  const int place = (active & ~passed).first();
  return {place, place >= 0 && !(active & passed), place >= 0 && active.last() == place};
}

}  // namespace sve
