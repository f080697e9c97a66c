// Element counts and counted increments, plain and saturating, and the vector length as a number.
#include "sve/lanes/patterns.h"
#include "sve/veclib/define.h"
#include "sve/veclib/predicates.h"
#include "sve/veclib/saturating.h"
#include "sve/veclib/toolkit.h"

using namespace sve;
using namespace sve::veclib;

namespace {

// The pattern's count of T times the multiplier, which is one more than its field.
template <class T>
std::uint64_t amount(std::uint64_t pattern, std::uint64_t field, const CpuContext* ctx) {
  const std::uint64_t n = static_cast<std::uint64_t>(VecTrueILength(pattern, static_cast<int>(count<T>(ctx))));
  return n + field * n;
}

template <class T>
VectorV plus(const VectorV& a, std::uint64_t n, const CpuContext* ctx) {
  return mapped<T>(
      ctx, [n](T x) { return x + n; }, a);
}

template <class T>
inline constexpr int is_unsigned = std::is_unsigned_v<T> ? 1 : 0;

// A 32-bit result fills its 64-bit register by the signedness of the routine.
template <class T>
std::uint64_t extended(std::uint64_t x, int width) {
  return static_cast<std::uint64_t>(static_cast<std::int64_t>(Int(x, width, is_unsigned<T>)));
}

// Saturating sum or difference of a scalar of `Width` bits; an operand's upper bits do not count.
template <class T, int Width>
std::uint64_t saturating_plus(std::uint64_t x, std::uint64_t n) {
  return extended<T>(SatAdd(x, n, Width, is_unsigned<T>), Width);
}
template <class T, int Width>
std::uint64_t saturating_minus(std::uint64_t x, std::uint64_t n) {
  return extended<T>(SatSub(x, n, Width, is_unsigned<T>).value, Width);
}

// Saturating sum or difference of each element and a count, which is below 4096 and so fits every element of 16 bits.
template <class T>
VectorV saturating_plus(const VectorV& a, std::uint64_t n, const CpuContext* ctx) {
  static_assert(sizeof(T) > 1);
  const T value = static_cast<T>(n);
  return mapped<T>(
      ctx, [value](T x) { return saturating_sum(x, value); }, a);
}
template <class T>
VectorV saturating_minus(const VectorV& a, std::uint64_t n, const CpuContext* ctx) {
  static_assert(sizeof(T) > 1);
  const T value = static_cast<T>(n);
  return mapped<T>(
      ctx, [value](T x) { return saturating_difference(x, value); }, a);
}

// The length queries read the word whole: bits above the length would count here and nowhere else.
std::uint64_t length_times(std::int64_t imm, std::uint64_t unit) { return static_cast<std::uint64_t>(imm) * unit; }

}  // namespace

#define UNSIGNED_TYPES U8, U16, U32, U64
#define INTEGER_TYPES UNSIGNED_TYPES, S8, S16, S32, S64
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

std::uint64_t VecS64VLX(std::int64_t imm, CpuContext* ctx) {
  return length_times(imm, ctx->vl_word * std::uint64_t{8});
}
std::uint64_t VecS64AddVLX(std::uint64_t x, std::int64_t imm, CpuContext* ctx) {
  return x + length_times(imm, ctx->vl_word * std::uint64_t{8});
}
std::uint64_t VecS64AddPLX(std::uint64_t x, std::int64_t imm, CpuContext* ctx) {
  return x + length_times(imm, ctx->vl_word);
}
