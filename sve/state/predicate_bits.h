// The change between a predicate's two forms: one byte per vector byte, of which bit 0 counts, and one bit per vector
// byte. It runs around every library handler, so it uses the host's vectors where it has them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "sve/state/vector_length.h"

#if defined(__AVX2__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace sve {

/// Packs bit 0 of each of 8 bytes into one byte.
inline std::uint8_t pack_8(const std::uint8_t* bytes) {
  std::uint64_t x;
  std::memcpy(&x, bytes, 8);
  // The multiplier moves bit 0 of byte k to bit 56 + k.
  return static_cast<std::uint8_t>(((x & 0x0101010101010101u) * 0x0102040810204080u) >> 56);
}

/// Spreads 8 bits to 8 bytes of 0 or 1.
inline void unpack_8(std::uint8_t bits, std::uint8_t* bytes) {
  std::uint64_t x = (bits * 0x0101010101010101u) & 0x8040201008040201u;  // byte k keeps bit k alone
  x = ((x + 0x7f7f7f7f7f7f7f7fu) >> 7) & 0x0101010101010101u;           // nonzero bytes become 1
  std::memcpy(bytes, &x, 8);
}

/// Packs `count` bytes (a multiple of 8) to count / 8 bytes of bits, in the architecture's order.
[[gnu::always_inline]] inline void pack_bits(const std::uint8_t* bytes, std::uint8_t* bits, std::size_t count) {
  std::size_t i = 0;
#if defined(__AVX2__)
  for (; i + 32 <= count; i += 32) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes + i));
    const std::uint32_t mask = static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_slli_epi16(v, 7)));
    std::memcpy(bits + i / 8, &mask, 4);
  }
  for (; i + 16 <= count; i += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i));
    const std::uint16_t mask = static_cast<std::uint16_t>(_mm_movemask_epi8(_mm_slli_epi16(v, 7)));
    std::memcpy(bits + i / 8, &mask, 2);
  }
#elif defined(__ARM_NEON)
  static constexpr std::int8_t places[16] = {0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5, 6, 7};
  const int8x16_t place = vld1q_s8(places);
  for (; i + 16 <= count; i += 16) {
    const uint8x16_t v = vshlq_u8(vandq_u8(vld1q_u8(bytes + i), vdupq_n_u8(1)), place);
    bits[i / 8] = vaddv_u8(vget_low_u8(v));
    bits[i / 8 + 1] = vaddv_u8(vget_high_u8(v));
  }
#endif
  for (; i < count; i += 8) bits[i / 8] = pack_8(bytes + i);
}

/// Spreads bits to `count` bytes (a multiple of 8) of 0 or 1.
[[gnu::always_inline]] inline void unpack_bits(const std::uint8_t* bits, std::uint8_t* bytes, std::size_t count) {
  std::size_t i = 0;
#if defined(__AVX2__)
  const __m256i spread = _mm256_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2, 2, 2, 2, 3, 3,
                                          3, 3, 3, 3, 3, 3);
  const __m256i select = _mm256_set1_epi64x(static_cast<long long>(0x8040201008040201u));
  for (; i + 32 <= count; i += 32) {
    std::int32_t mask;
    std::memcpy(&mask, bits + i / 8, 4);
    const __m256i picked = _mm256_and_si256(_mm256_shuffle_epi8(_mm256_set1_epi32(mask), spread), select);
    const __m256i ones = _mm256_and_si256(_mm256_cmpeq_epi8(picked, select), _mm256_set1_epi8(1));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(bytes + i), ones);
  }
  for (; i + 16 <= count; i += 16) {
    std::int16_t mask;
    std::memcpy(&mask, bits + i / 8, 2);
    const __m128i select_16 = _mm256_castsi256_si128(select);
    const __m128i picked =
        _mm_and_si128(_mm_shuffle_epi8(_mm_set1_epi16(mask), _mm256_castsi256_si128(spread)), select_16);
    const __m128i ones = _mm_and_si128(_mm_cmpeq_epi8(picked, select_16), _mm_set1_epi8(1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes + i), ones);
  }
#elif defined(__ARM_NEON)
  const uint8x8_t select = vcreate_u8(0x8040201008040201u);
  for (; i < count; i += 8) vst1_u8(bytes + i, vand_u8(vtst_u8(vdup_n_u8(bits[i / 8]), select), vdup_n_u8(1)));
#endif
  for (; i < count; i += 8) unpack_8(bits[i / 8], bytes + i);
}

/// The bits of a whole predicate register, as two words.
struct register_bits {
  std::uint64_t low, high;

  register_bits(std::uint64_t l, std::uint64_t h) : low(l), high(h) {}
  explicit register_bits(const std::uint8_t* bytes) : low(0), high(0) {
    static_assert(vector_bytes <= 128);
    std::uint8_t packed[16] = {};
    pack_bits(bytes, packed, vector_bytes);
    std::memcpy(&low, packed, 8);
    std::memcpy(&high, packed + 8, 8);
  }
  /// The bits that decide over elements of `size` bytes: every size-th one.
  static register_bits elements(unsigned size) {
    constexpr std::uint64_t every[] = {~std::uint64_t{0}, 0x5555555555555555u, 0, 0x1111111111111111u, 0, 0, 0,
                                       0x0101010101010101u};
    const std::uint64_t mask = every[size - 1];
    return {mask, mask & ((std::uint64_t{1} << (vector_bytes - 64)) - 1)};
  }
  /// The bits 0 to `end` - 1.
  static register_bits below(int end) {
    const auto ones = [](int n) { return n <= 0 ? 0 : n >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << n) - 1; };
    return {ones(end), ones(end - 64)};
  }

  friend register_bits operator&(register_bits a, register_bits b) { return {a.low & b.low, a.high & b.high}; }
  friend register_bits operator~(register_bits a) { return {~a.low, ~a.high}; }
  explicit operator bool() const { return (low | high) != 0; }
  bool test(int i) const { return (i < 64 ? low >> i : high >> (i - 64)) & 1; }
  /// Index of the lowest and of the highest set bit, or -1.
  int first() const { return low ? __builtin_ctzll(low) : high ? 64 + __builtin_ctzll(high) : -1; }
  int last() const { return high ? 127 - __builtin_clzll(high) : low ? 63 - __builtin_clzll(low) : -1; }
  int count() const { return __builtin_popcountll(low) + __builtin_popcountll(high); }

  /// Spreads the bits to the bytes of a register, 0 or 1.
  void spread(std::uint8_t* bytes) const {
    std::uint8_t packed[16];
    std::memcpy(packed, &low, 8);
    std::memcpy(packed + 8, &high, 8);
    unpack_bits(packed, bytes, vector_bytes);
  }
};

}  // namespace sve
