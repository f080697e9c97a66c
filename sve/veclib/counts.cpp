// Element counts and counted increments, plain and saturating, and the vector length as a number.
#include "sve/lanes/patterns.h"
#include "sve/veclib/define.h"
#include "sve/veclib/predicates.h"
#include "sve/veclib/saturating.h"

using namespace sve;
using namespace sve::veclib;

namespace {

template <class T>
std::uint64_t selected(std::uint64_t pattern, const CpuContext* ctx) {
  return static_cast<std::uint64_t>(VecTrueILength(pattern, static_cast<int>(count<T>(ctx))));
}
template <class T>
std::uint64_t selected(std::uint64_t pattern, const in_place::CpuContext*) {
  return pattern_count<T>(pattern);
}

// The pattern's count of T times the multiplier, which is one more than its field.
template <class T, class Context>
std::uint64_t amount(std::uint64_t pattern, std::uint64_t field, const Context* ctx) {
  const std::uint64_t n = selected<T>(pattern, ctx);
  return n + field * n;
}

template <class T, class Vector, class Context>
auto plus(const Vector& a, std::uint64_t n, const Context* ctx) {
  return mapped<T>(
      ctx, [n](T x) { return x + n; }, a);
}

// A scalar of `Width` bits by the signedness of T.
template <class T, int Width>
using ScalarOf = std::conditional_t<std::is_signed_v<T>, std::conditional_t<Width == 32, std::int32_t, std::int64_t>,
                                    std::conditional_t<Width == 32, std::uint32_t, std::uint64_t>>;

// Saturating sum or difference of a scalar of `Width` bits; an operand's upper bits do not count. A 32-bit result fills
// its 64-bit register by the signedness of the routine.
template <class T, int Width>
std::uint64_t saturating_plus(std::uint64_t x, std::uint64_t n) {
  using Scalar = ScalarOf<T, Width>;
  return static_cast<std::uint64_t>(saturating_sum(static_cast<Scalar>(x), static_cast<Scalar>(n)));
}
template <class T, int Width>
std::uint64_t saturating_minus(std::uint64_t x, std::uint64_t n) {
  using Scalar = ScalarOf<T, Width>;
  return static_cast<std::uint64_t>(saturating_difference(static_cast<Scalar>(x), static_cast<Scalar>(n)));
}

// Saturating sum or difference of each element and a count, which is below 4096 and so fits every element of 16 bits.
template <class T, class Vector, class Context>
[[gnu::always_inline]] inline auto saturating_plus(const Vector& a, std::uint64_t n, const Context* ctx) {
  static_assert(sizeof(T) > 1);
  return saturated<T>(ctx, with_second(saturating_sum, static_cast<T>(n)), a);
}
template <class T, class Vector, class Context>
[[gnu::always_inline]] inline auto saturating_minus(const Vector& a, std::uint64_t n, const Context* ctx) {
  static_assert(sizeof(T) > 1);
  return saturated<T>(ctx, with_second(saturating_difference, static_cast<T>(n)), a);
}

// The length queries read the word whole: bits above the length would count here and nowhere else.
std::uint64_t length_times(std::int64_t imm, std::uint64_t unit) { return static_cast<std::uint64_t>(imm) * unit; }

}  // namespace

#define VECTOR_TYPES U16, U32, U64
#define SATURATING_VECTOR_TYPES VECTOR_TYPES, S16, S32, S64

SVE_DEFINE_COUNT(CountVLSI, amount<T>(pattern, field, ctx), UNSIGNED_TYPES)
SVE_DEFINE_COUNT_X(IncrVLSI, x + amount<T>(pattern, field, ctx), UNSIGNED_TYPES)
SVE_DEFINE_COUNT_X(DecrVLSI, x - amount<T>(pattern, field, ctx), UNSIGNED_TYPES)
SVE_DEFINE_COUNT_V(IncrVLVI, plus<T>(a, amount<T>(pattern, field, ctx), ctx), VECTOR_TYPES)
SVE_DEFINE_COUNT_V(DecrVLVI, plus<T>(a, 0 - amount<T>(pattern, field, ctx), ctx), VECTOR_TYPES)

SVE_DEFINE_COUNT_X(QIncrVL4SI, (saturating_plus<T, 32>(x, amount<T>(pattern, field, ctx))), INTEGER_TYPES)
SVE_DEFINE_COUNT_X(QIncrVL8SI, (saturating_plus<T, 64>(x, amount<T>(pattern, field, ctx))), INTEGER_TYPES)
SVE_DEFINE_COUNT_X(QDecrVL4SI, (saturating_minus<T, 32>(x, amount<T>(pattern, field, ctx))), INTEGER_TYPES)
SVE_DEFINE_COUNT_X(QDecrVL8SI, (saturating_minus<T, 64>(x, amount<T>(pattern, field, ctx))), INTEGER_TYPES)
SVE_DEFINE_COUNT_V(QIncrVLVI, saturating_plus<T>(a, amount<T>(pattern, field, ctx), ctx), SATURATING_VECTOR_TYPES)
SVE_DEFINE_COUNT_V(QDecrVLVI, saturating_minus<T>(a, amount<T>(pattern, field, ctx), ctx), SATURATING_VECTOR_TYPES)

SVE_DEFINE_COUNT_P_X(IncrSCountPS, x + active_count<T>(p, ctx), UNSIGNED_TYPES)
SVE_DEFINE_COUNT_P_X(DecrSCountPS, x - active_count<T>(p, ctx), UNSIGNED_TYPES)
SVE_DEFINE_COUNT_P_V(IncrCountPV, plus<T>(a, active_count<T>(p, ctx), ctx), VECTOR_TYPES)
SVE_DEFINE_COUNT_P_V(DecrCountPV, plus<T>(a, 0 - active_count<T>(p, ctx), ctx), VECTOR_TYPES)
SVE_DEFINE_COUNT_P_X(QIncrSCount4PS, (saturating_plus<T, 32>(x, active_count<T>(p, ctx))), INTEGER_TYPES)
SVE_DEFINE_COUNT_P_X(QIncrSCount8PS, (saturating_plus<T, 64>(x, active_count<T>(p, ctx))), INTEGER_TYPES)
SVE_DEFINE_COUNT_P_X(QDecrSCount4PS, (saturating_minus<T, 32>(x, active_count<T>(p, ctx))), INTEGER_TYPES)
SVE_DEFINE_COUNT_P_X(QDecrSCount8PS, (saturating_minus<T, 64>(x, active_count<T>(p, ctx))), INTEGER_TYPES)
SVE_DEFINE_COUNT_P_V(QIncrCountPV, saturating_plus<T>(a, active_count<T>(p, ctx), ctx), SATURATING_VECTOR_TYPES)
SVE_DEFINE_COUNT_P_V(QDecrCountPV, saturating_minus<T>(a, active_count<T>(p, ctx), ctx), SATURATING_VECTOR_TYPES)

#define SVE_DEFINE_LENGTH(...) SVE_DEFINE(std::uint64_t, (SVE_IN_S(imm), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_ADD_LENGTH(...) SVE_DEFINE(std::uint64_t, (SVE_IN_U(x), SVE_IN_S(imm), SVE_CTX), __VA_ARGS__)
SVE_DEFINE_LENGTH(VLX, length_times(imm, length_word(ctx) * 8), S64)
SVE_DEFINE_ADD_LENGTH(AddVLX, x + length_times(imm, length_word(ctx) * 8), S64)
SVE_DEFINE_ADD_LENGTH(AddPLX, x + length_times(imm, length_word(ctx)), S64)
