// Arithmetic on vectors of normal numbers: the operations of arithmetic.h and estimates.h for several elements at once.
//
// A lane is done here when its operands are normal or zero, its result is normal or exact, and rounding is to nearest
// with ties to even: then no control but the rounding mode matters, and no flag but inexact can be raised. Any other
// lane is reported as pending, its value means nothing, and the caller does it with the operation on one element. The
// overloads have the names of those operations, so that one expression serves both.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <type_traits>
#include <utility>

#include "sve/fplib/arithmetic.h"
#include "sve/fplib/tables.h"

#if defined(__AVX2__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

// Everything here is in line, so that the calling convention of vectors does not matter.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpsabi"

namespace sve {
namespace normal_lanes {

/// Bytes of the vectors that lanes are computed in: those of the host, as far as they are used.
inline constexpr std::size_t lane_vector_bytes = __BIGGEST_ALIGNMENT__ >= 32 ? 32 : 16;
/// `bytes` and what vectors of lanes take beyond.
constexpr std::size_t whole_lane_vectors(std::size_t bytes) {
  return (bytes + lane_vector_bytes - 1) / lane_vector_bytes * lane_vector_bytes;
}

/// Elements of a format T, each in a word wide enough for the product of two significands of up to single precision.
template <class T>
struct Lanes {
  using Word = std::conditional_t<sizeof(T) == 2, std::uint32_t, std::uint64_t>;
  static constexpr std::size_t count = lane_vector_bytes / sizeof(Word);
  static constexpr int word_bits = 8 * sizeof(Word);
  typedef Word Vector [[gnu::vector_size(lane_vector_bytes)]];
  typedef std::make_signed_t<Word> Signed [[gnu::vector_size(lane_vector_bytes)]];
  typedef T Packed [[gnu::vector_size(count * sizeof(T))]];

  Vector bits;

  /// 0, 1, 2, ... up to the number of lanes.
  static constexpr Vector index() {
    return []<std::size_t... lane>(std::index_sequence<lane...>) { return Vector{lane...}; }
    (std::make_index_sequence<count>());
  }

  Lanes() = default;
  explicit Lanes(Vector v) : bits(v) {}
  /// The same value in each lane.
  Lanes(T value) : bits(Vector{} + Word{value}) {}

  /// Reads `count` elements.
  [[gnu::always_inline]] static Lanes load(const void* elements) {
    Packed packed;
    std::memcpy(&packed, elements, sizeof packed);
#if defined(__AVX2__)  // compilers go a long way round here
    if constexpr (sizeof(T) == 2)
      return Lanes(reinterpret_cast<Vector>(_mm256_cvtepu16_epi32(reinterpret_cast<__m128i>(packed))));
    if constexpr (sizeof(T) == 4)
      return Lanes(reinterpret_cast<Vector>(_mm256_cvtepu32_epi64(reinterpret_cast<__m128i>(packed))));
#endif
    return Lanes(__builtin_convertvector(packed, Vector));
  }
  /// Writes `count` elements: the low parts of the words, whose other bits are 0.
  [[gnu::always_inline]] void store(void* elements) const {
    Packed packed;
#if defined(__AVX2__)
    const __m256i words = reinterpret_cast<__m256i>(bits);
    if constexpr (sizeof(T) == 2)
      packed =
          reinterpret_cast<Packed>(_mm_packus_epi32(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1)));
    else if constexpr (sizeof(T) == 4)
      packed = reinterpret_cast<Packed>(
          _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(words, _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6))));
    else
#endif
      packed = __builtin_convertvector(bits, Packed);
    std::memcpy(elements, &packed, sizeof packed);
  }
};

/// What a computation leaves beside its values.
template <class T>
struct LaneStatus {
  typename Lanes<T>::Vector inexact{};  ///< not 0 where the result was rounded; holds for the lanes that are done
  typename Lanes<T>::Vector pending{};  ///< all ones where the operation on one element has to do it, otherwise 0
};

template <class T>
using Vector = typename Lanes<T>::Vector;
template <class T>
using Signed = typename Lanes<T>::Signed;
template <class T>
using Word = typename Lanes<T>::Word;

// Masks are all ones or 0 in each lane. Compares take words as signed, which is what hosts have instructions for.

template <class T>
[[gnu::always_inline]] inline Vector<T> less(Vector<T> a, Vector<T> b) {
  return reinterpret_cast<Vector<T>>(reinterpret_cast<Signed<T>>(a) < reinterpret_cast<Signed<T>>(b));
}
template <class T>
[[gnu::always_inline]] inline Vector<T> is_zero(Vector<T> a) {
  return reinterpret_cast<Vector<T>>(a == Vector<T>{});
}
/// Set where the sign bit of the format is.
template <class T>
[[gnu::always_inline]] inline Vector<T> sign_mask(Vector<T> bits) {
  return less<T>(bits << (Lanes<T>::word_bits - Format<T>::width), Vector<T>{});
}
/// Whether a mask is set anywhere.
template <class T>
[[gnu::always_inline]] inline bool any(Vector<T> mask) {
#if defined(__AVX2__)
  return !_mm256_testz_si256(reinterpret_cast<__m256i>(mask), reinterpret_cast<__m256i>(mask));
#elif defined(__ARM_NEON)
  return vmaxvq_u32(reinterpret_cast<uint32x4_t>(mask)) != 0;
#else
  Word<T> found = 0;
  for (std::size_t i = 0; i < Lanes<T>::count; ++i) found |= mask[i];
  return found != 0;
#endif
}
/// Chooses by the sign of each word of `mask`.
template <class T>
[[gnu::always_inline]] inline Vector<T> select(Vector<T> mask, Vector<T> yes, Vector<T> no) {
  return reinterpret_cast<Signed<T>>(mask) < Signed<T>{} ? yes : no;
}
template <class T>
[[gnu::always_inline]] inline Vector<T> at_most(Vector<T> a, Word<T> limit) {
  const Vector<T> limits = Vector<T>{} + limit;
  return select<T>(less<T>(limits, a), limits, a);
}

/// The products of the low 32 bits of 64-bit words.
template <class T>
[[gnu::always_inline]] inline Vector<T> multiply_low_halves(Vector<T> a, Vector<T> b) {
#if defined(__AVX2__)
  return reinterpret_cast<Vector<T>>(_mm256_mul_epu32(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b)));
#elif defined(__ARM_NEON)
  return reinterpret_cast<Vector<T>>(
      vmull_u32(vmovn_u64(reinterpret_cast<uint64x2_t>(a)), vmovn_u64(reinterpret_cast<uint64x2_t>(b))));
#else
  return (a & 0xffffffffu) * (b & 0xffffffffu);
#endif
}

/// An operand taken apart as a normal value.
template <class T>
struct Parts {
  Vector<T> magnitude, exp, significand;
  Vector<T> zero{};   ///< set by settle_operands
  Vector<T> unusual;  ///< not normal

  [[gnu::always_inline]] explicit Parts(Vector<T> bits) {
    using F = Format<T>;
    magnitude = bits & Word<T>{F::magnitude_mask};
    exp = magnitude >> F::fraction_bits;
    significand = (bits & Word<T>{F::fraction_mask}) | Word<T>{F::hidden};
    // As is_normal tells it.
    constexpr Word<T> field = F::magnitude_mask & ~((Word<T>{F::hidden} << 1) - 1);
    unusual = is_zero<T>((bits + Word<T>{F::hidden}) & field);
  }
};

/// Gives zeros, if there are any, the significand 0, and makes lanes pending that have an operand neither normal nor
/// zero.
template <class T, class... More>
[[gnu::always_inline]] inline void settle_operands(LaneStatus<T>& status, More&... operands) {
  if (!any<T>((operands.unusual | ...))) return;
  const auto settle_one = [&](Parts<T>& operand) {
    operand.zero = is_zero<T>(operand.magnitude);
    operand.significand &= ~operand.zero;
    status.pending |= operand.unusual & ~operand.zero;
  };
  (settle_one(operands), ...);
}

/// x shifted right by `distance`, which is not negative; a one that is lost stays as bit 0.
template <class T>
[[gnu::always_inline]] inline Vector<T> shift_right_sticky(Vector<T> x, Vector<T> distance) {
  const Vector<T> n = at_most<T>(distance, Lanes<T>::word_bits - 1);
  const Vector<T> kept = x >> n;
  return kept | (~is_zero<T>((kept << n) ^ x) & 1);
}

/// Shifts a word that is not zero left until its leading one stands one below the top, by less than 2^Steps places, and
/// lowers the exponent by as much. Only a difference of close terms needs more than a few places.
template <class T, int Steps>
[[gnu::always_inline]] inline void normalise(Vector<T>& x, Vector<T>& exp) {
  constexpr int always = 2;
  const auto shift_by = [&](int places) {
    const Vector<T> by = is_zero<T>(x >> (Lanes<T>::word_bits - 1 - places)) & Word<T>(places);
    x <<= by;
    exp -= by;
  };
  if (Steps > always && any<T>(is_zero<T>(x >> (Lanes<T>::word_bits - 1 - (1 << always))))) {
#pragma GCC unroll 8
    for (int step = Steps - 1; step >= always; --step) shift_by(1 << step);
  }
#pragma GCC unroll 8
  for (int step = std::min(always, Steps) - 1; step >= 0; --step) shift_by(1 << step);
}

/// Rounds sign * significand * 2^(exp - bias) whose leading one stands one below the top and counts as 1. Lanes whose
/// mask in `exact_zero` is set give 0 instead.
template <class T>
[[gnu::always_inline]] inline Lanes<T> round(Vector<T> sign, Vector<T> exp, Vector<T> significand, Vector<T> exact_zero,
                                             LaneStatus<T>& status) {
  using F = Format<T>;
  constexpr int drop = Lanes<T>::word_bits - 2 - F::fraction_bits;
  constexpr Word<T> rest = (Word<T>{1} << drop) - 1;
  // The leading one adds 1 to the exponent field, and so does a carry out of the fraction.
  const Vector<T> rounded = (significand + (rest >> 1) + (significand >> drop & 1)) >> drop;
  const Vector<T> packed = ((exp - 1) << F::fraction_bits) + rounded;
  status.inexact |= (significand & rest) & ~exact_zero;
  // In range even if rounding carries. One compare for both ends: a negative word has its sign here too.
  const Vector<T> out = (exp - 1) | ((Word<T>{F::exponent_max} - 2) - exp);
  status.pending |= less<T>(out, Vector<T>{}) & ~exact_zero;
  return Lanes<T>((packed & ~exact_zero) | sign);
}

/// a + b, or a - b where `differ` is all ones.
template <class T>
[[gnu::always_inline]] inline Vector<T> add_or_subtract(Vector<T> a, Vector<T> b, Vector<T> differ) {
  return a + (b ^ differ) - differ;
}

/// A product of significands in two limbs, 8 * (a * b) = high * 2^56 + low.
template <class T>
struct LimbProduct {
  Vector<T> high, low;
};
inline constexpr std::uint64_t limb_mask = (std::uint64_t{1} << 56) - 1;

template <class T>
[[gnu::always_inline]] inline LimbProduct<T> limb_product(Vector<T> a, Vector<T> b) {
  const Vector<T> c = b << 3;
  const Vector<T> a1 = a >> 32, c1 = c >> 32;
  const Vector<T> low = multiply_low_halves<T>(a, c);
  const Vector<T> middle = multiply_low_halves<T>(a1, c) + multiply_low_halves<T>(a, c1) + (low >> 32);
  return {(multiply_low_halves<T>(a1, c1) << 8) + (middle >> 24), ((middle & 0xffffffu) << 32) | (low & 0xffffffffu)};
}

/// a * b of significands, with the leading one at the third bit from the top or at the second.
template <class T>
[[gnu::always_inline]] inline Vector<T> product(Vector<T> a, Vector<T> b) {
  constexpr int shift = Lanes<T>::word_bits - 3 - 2 * Format<T>::fraction_bits;
  if constexpr (sizeof(T) == 8) {
    const LimbProduct<T> p = limb_product<T>(a, b);
    return (p.high << 10) | (p.low >> 46) | (~is_zero<T>(p.low & ((std::uint64_t{1} << 46) - 1)) & 1);
  } else if constexpr (sizeof(T) == 4) {
    return multiply_low_halves<T>(a, b) << shift;
  } else {
    return (a * b) << shift;
  }
}

/// (a + b * c) * 2^scale, rounded once. In double precision, lanes where half of all bits cancel stay pending.
template <class T>
[[gnu::always_inline]] inline Lanes<T> multiply_add(Lanes<T> a, Lanes<T> b, Lanes<T> c, int scale,
                                                    LaneStatus<T>& status) {
  using F = Format<T>;
  constexpr Word<T> sign = F::sign;
  Parts<T> x(a.bits), y(b.bits), z(c.bits);
  settle_operands<T>(status, x, y, z);
  const Vector<T> product_sign = b.bits ^ c.bits;
  const Vector<T> differ = sign_mask<T>(a.bits ^ product_sign);
  // A product of zero counts as far below the addend.
  const Vector<T> lowered = (y.zero | z.zero) & Word<T>{4 * F::exponent_max};
  if constexpr (sizeof(T) < 8) {
    using L = FusedLayout<T, Word<T>>;
    const Vector<T> addend = x.significand << L::addend_shift;
    const Vector<T> term = sizeof(T) == 4 ? multiply_low_halves<T>(y.significand, z.significand) << L::product_shift
                                          : (y.significand * z.significand) << L::product_shift;
    const Vector<T> addend_exp = x.exp + Word<T>(L::addend_exponent);
    const Vector<T> term_exp = y.exp + z.exp + Word<T>(L::product_exponent) - lowered;
    const Vector<T> distance = addend_exp - term_exp;
    const Vector<T> swap = less<T>(distance, Vector<T>{});
    const Vector<T> larger = select<T>(swap, term, addend);
    const Vector<T> smaller = addend ^ term ^ larger;
    const Vector<T> aligned = shift_right_sticky<T>(smaller, (distance ^ swap) - swap);
    Vector<T> sum = add_or_subtract<T>(larger, aligned, differ);
    const Vector<T> negative = less<T>(sum, Vector<T>{});
    sum = (sum ^ negative) - negative;
    const Vector<T> cancelled = is_zero<T>(sum);
    const Vector<T> sgn =
        select<T>(cancelled, a.bits & product_sign, select<T>(swap, product_sign, a.bits) ^ negative) & sign;
    Vector<T> exp = select<T>(swap, term_exp, addend_exp) + Word<T>(scale);
    normalise<T, sizeof(Word<T>) == 8 ? 6 : 5>(sum, exp);
    return round<T>(sgn, exp, sum, cancelled, status);
  } else {
    // Two limbs of 56 bits for each term: the addend has its bits in the high one, the product in both.
    const LimbProduct<T> term = limb_product<T>(y.significand, z.significand);
    const Vector<T> term_exp = y.exp + z.exp - (F::bias - 1) - lowered;
    const Vector<T> distance = x.exp - term_exp;
    const Vector<T> swap = less<T>(distance, Vector<T>{});
    const Vector<T> larger_high = select<T>(swap, term.high, x.significand);
    const Vector<T> larger_low = term.low & swap;
    const Vector<T> smaller_high = x.significand ^ term.high ^ larger_high;
    const Vector<T> smaller_low = term.low ^ larger_low;
    // Shift right by whole limbs, then by bits.
    const Vector<T> bits = at_most<T>((distance ^ swap) - swap, 111);
    const Vector<T> whole = less<T>(Vector<T>{} + 55, bits);
    const Vector<T> n = bits - (whole & 56);
    const Vector<T> high = smaller_high & ~whole;
    const Vector<T> low = select<T>(whole, smaller_high, smaller_low);
    const Vector<T> lost = (low & ~(~Vector<T>{} << n)) | (smaller_low & whole);
    const Vector<T> aligned_high = high >> n;
    const Vector<T> aligned_low = (low >> n) | ((high << (56 - n)) & limb_mask) | (~is_zero<T>(lost) & 1);
    // Add or subtract, then negate what is below zero; carries stand above the limb.
    Vector<T> sum_low = larger_low + (aligned_low ^ (differ & limb_mask)) + (differ & 1);
    Vector<T> sum_high = larger_high + (aligned_high ^ differ) + (sum_low >> 56);
    const Vector<T> negative = less<T>(sum_high, Vector<T>{});
    sum_low = ((sum_low & limb_mask) ^ (negative & limb_mask)) + (negative & 1);
    sum_high = (sum_high ^ negative) + (sum_low >> 56);
    sum_low &= limb_mask;
    const Vector<T> sgn = (select<T>(swap, product_sign, a.bits) ^ negative) & sign;
    // The leading one of all but deep cancellations stands in bits 22 to 53 of the high limb.
    const Vector<T> cancelled = is_zero<T>(sum_high >> 22);
    status.pending |= cancelled;
    Vector<T> significand = sum_high << 9, places{};
    normalise<T, 5>(significand, places);  // counts down
    const Vector<T> rest = places + 47;
    significand |= (sum_low >> rest) | (~is_zero<T>(sum_low & ~(~Vector<T>{} << rest)) & 1);
    const Vector<T> exp = select<T>(swap, term_exp, x.exp) + Word<T>(1 + scale) + places;
    return round<T>(sgn, exp, significand, Vector<T>{}, status);
  }
}

template <class T>
[[gnu::always_inline]] inline Lanes<T> magnitude_of(Lanes<T> op) {
  return Lanes<T>(op.bits & Word<T>{Format<T>::magnitude_mask});
}

// The operations, found by their arguments: none of these names hides that of the operation on one element.

template <class T>
[[gnu::always_inline]] inline Lanes<T> FPNeg(Lanes<T> op) {
  return Lanes<T>(op.bits ^ Word<T>{Format<T>::sign});
}

template <class T>
[[gnu::always_inline]] inline Lanes<T> FPAdd(Lanes<T> a, Lanes<T> b, LaneStatus<T>& status) {
  using F = Format<T>;
  constexpr int lift = Lanes<T>::word_bits - 3 - F::fraction_bits;  // one free bit for the carry, one for a sign
  constexpr Word<T> sign = F::sign;
  const Vector<T> swap = less<T>(magnitude_of(a).bits, magnitude_of(b).bits);
  const Vector<T> larger = select<T>(swap, b.bits, a.bits);
  const Vector<T> smaller = a.bits ^ b.bits ^ larger;
  Parts<T> x(larger), y(smaller);
  settle_operands<T>(status, x, y);
  const Vector<T> aligned = shift_right_sticky<T>(y.significand << lift, x.exp - y.exp);
  const Vector<T> differ = sign_mask<T>(a.bits ^ b.bits);
  Vector<T> sum = add_or_subtract<T>(x.significand << lift, aligned, differ);
  // An exact zero is negative where both operands are: only two zeros are of one sign and cancel.
  const Vector<T> cancelled = is_zero<T>(sum);
  const Vector<T> sgn = select<T>(cancelled, a.bits & b.bits, larger) & sign;
  Vector<T> exp = x.exp + 1;
  normalise<T, std::bit_width(F::fraction_bits + 3u)>(sum, exp);
  return round<T>(sgn, exp, sum, cancelled, status);
}

template <class T>
[[gnu::always_inline]] inline Lanes<T> FPSub(Lanes<T> a, Lanes<T> b, LaneStatus<T>& status) {
  return FPAdd(a, FPNeg(b), status);
}

template <class T>
[[gnu::always_inline]] inline Lanes<T> FPMul(Lanes<T> a, Lanes<T> b, LaneStatus<T>& status) {
  using F = Format<T>;
  Parts<T> x(a.bits), y(b.bits);
  settle_operands<T>(status, x, y);
  Vector<T> significand = product<T>(x.significand, y.significand);
  Vector<T> exp = x.exp + y.exp - (F::bias - 1);
  normalise<T, 1>(significand, exp);
  return round<T>((a.bits ^ b.bits) & Word<T>{F::sign}, exp, significand, x.zero | y.zero, status);
}

/// Infinity times zero, where it differs from FPMul, is never done here.
template <class T>
[[gnu::always_inline]] inline Lanes<T> FPMulX(Lanes<T> a, Lanes<T> b, LaneStatus<T>& status) {
  return FPMul(a, b, status);
}

template <class T>
[[gnu::always_inline]] inline Lanes<T> FPMulAdd(Lanes<T> a, Lanes<T> b, Lanes<T> c, LaneStatus<T>& status) {
  return multiply_add<T>(a, b, c, 0, status);
}

template <class T>
[[gnu::always_inline]] inline Lanes<T> FPRecipStepFused(Lanes<T> a, Lanes<T> b, LaneStatus<T>& status) {
  return multiply_add<T>(halves<T>(4), FPNeg(a), b, 0, status);
}

template <class T>
[[gnu::always_inline]] inline Lanes<T> FPRSqrtStepFused(Lanes<T> a, Lanes<T> b, LaneStatus<T>& status) {
  return multiply_add<T>(halves<T>(6), FPNeg(a), b, -1, status);
}

template <class T>
[[gnu::always_inline]] inline Lanes<T> FPRecpX(Lanes<T> op, LaneStatus<T>& status) {
  using F = Format<T>;
  Parts<T> x(op.bits);
  settle_operands<T>(status, x);
  const Vector<T> largest = x.zero & Word<T>{F::infinity - F::hidden};
  return Lanes<T>((op.bits & Word<T>{F::sign}) | (~op.bits & ~x.zero & Word<T>{F::infinity}) | largest);
}

template <class T>
[[gnu::always_inline]] inline Lanes<T> FPTRIMADD(unsigned long index, Lanes<T> op1, Lanes<T> op2,
                                                 LaneStatus<T>& status) {
  const Vector<T> cosine = sign_mask<T>(op2.bits);
  const Vector<T> coefficient = select<T>(cosine, Lanes<T>(trigonometric_coefficients<T>[(index & 7) + 8]).bits,
                                          Lanes<T>(trigonometric_coefficients<T>[index & 7]).bits);
  return multiply_add<T>(Lanes<T>(coefficient), op1, magnitude_of(op2), 0, status);
}

template <class T>
[[gnu::always_inline]] inline Lanes<T> FPTRISMUL(Lanes<T> op1, Lanes<T> op2, LaneStatus<T>& status) {
  const Lanes<T> square = FPMul(op1, op1, status);
  return Lanes<T>(square.bits | (op2.bits & 1) << (Format<T>::width - 1));
}

/// What a compare of lanes gives: all ones where it holds, otherwise 0.
template <class T>
struct LaneTruth {
  Vector<T> bits;

  LaneTruth operator!() const { return {~bits}; }
};

/// Operands of a compare as signed words that order as the values do; both zeros are 0. NaNs, and denormals, which a
/// control may flush, make their lanes pending. The rounding mode does not matter.
template <class T>
struct OrderedLanes {
  Vector<T> a, b;

  [[gnu::always_inline]] OrderedLanes(Lanes<T> x, Lanes<T> y, LaneStatus<T>& status)
      : a(key(x, status)), b(key(y, status)) {}

 private:
  [[gnu::always_inline]] static Vector<T> key(Lanes<T> op, LaneStatus<T>& status) {
    using F = Format<T>;
    const Vector<T> magnitude = magnitude_of(op).bits, sign = sign_mask<T>(op.bits);
    status.pending |= less<T>(Vector<T>{} + Word<T>{F::infinity}, magnitude) |
                      (less<T>(magnitude, Vector<T>{} + Word<T>{F::hidden}) & ~is_zero<T>(magnitude));
    return (magnitude ^ sign) - sign;
  }
};

template <class T>
[[gnu::always_inline]] inline LaneTruth<T> FPCompareEQ(Lanes<T> a, Lanes<T> b, LaneStatus<T>& status) {
  const OrderedLanes<T> keys(a, b, status);
  return {is_zero<T>(keys.a ^ keys.b)};
}

template <class T>
[[gnu::always_inline]] inline LaneTruth<T> FPCompareGE(Lanes<T> a, Lanes<T> b, LaneStatus<T>& status) {
  const OrderedLanes<T> keys(a, b, status);
  return {~less<T>(keys.a, keys.b)};
}

template <class T>
[[gnu::always_inline]] inline LaneTruth<T> FPCompareGT(Lanes<T> a, Lanes<T> b, LaneStatus<T>& status) {
  const OrderedLanes<T> keys(a, b, status);
  return {less<T>(keys.b, keys.a)};
}

template <class T>
[[gnu::always_inline]] inline LaneTruth<T> FPCompareUN(Lanes<T> a, Lanes<T> b, LaneStatus<T>& status) {
  static_cast<void>(OrderedLanes<T>(a, b, status));
  return {Vector<T>{}};
}

}  // namespace normal_lanes

using normal_lanes::Lanes;
using normal_lanes::LaneStatus;

}  // namespace sve

#pragma GCC diagnostic pop
