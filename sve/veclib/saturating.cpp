// Saturating addition and subtraction, unpredicated. Equal to SatAdd and SatSub of the toolkit, in arithmetic at widths that
// the host vectorises. Saturation has no sticky flag.
#include <limits>

#include "sve/veclib/define.h"

using namespace sve;
using namespace sve::veclib;

namespace {

// A type that holds any sum or difference of two elements of T, or of an element and an immediate.
template <class T>
using exact = std::conditional_t<sizeof(T) <= 2, std::int32_t, std::int64_t>;

template <class T>
constexpr T clamped(exact<T> x) {
  constexpr exact<T> low = std::numeric_limits<T>::min(), high = std::numeric_limits<T>::max();
  return static_cast<T>(x < low ? low : x > high ? high : x);
}

// The second operand is an element, or an immediate, which is unsigned also in the signed forms.
constexpr auto saturating_sum = [](auto a, auto b) {
  using T = decltype(a);
  if constexpr (sizeof(T) < 8) {
    return clamped<T>(static_cast<exact<T>>(static_cast<exact<T>>(a) + static_cast<exact<T>>(b)));
  } else if constexpr (std::is_unsigned_v<T>) {
    const T sum = a + static_cast<T>(b);
    return sum < a ? std::numeric_limits<T>::max() : sum;
  } else {
    const std::uint64_t x = static_cast<std::uint64_t>(a), y = static_cast<std::uint64_t>(b), sum = x + y;
    const bool overflow = static_cast<std::int64_t>((x ^ sum) & (y ^ sum)) < 0;
    return overflow ? static_cast<T>((a >> 63) ^ std::numeric_limits<T>::max()) : static_cast<T>(sum);
  }
};
constexpr auto saturating_difference = [](auto a, auto b) {
  using T = decltype(a);
  if constexpr (sizeof(T) < 8) {
    return clamped<T>(static_cast<exact<T>>(static_cast<exact<T>>(a) - static_cast<exact<T>>(b)));
  } else if constexpr (std::is_unsigned_v<T>) {
    return a < static_cast<T>(b) ? T{0} : static_cast<T>(a - static_cast<T>(b));
  } else {
    const std::uint64_t x = static_cast<std::uint64_t>(a), y = static_cast<std::uint64_t>(b), difference = x - y;
    const bool overflow = static_cast<std::int64_t>((x ^ y) & (x ^ difference)) < 0;
    return overflow ? static_cast<T>((a >> 63) ^ std::numeric_limits<T>::max()) : static_cast<T>(difference);
  }
};

template <class T, class Op>
VectorV with_immediate(const VectorV& a, std::uint64_t imm, const CpuContext* ctx, Op op) {
  const exact<T> value = static_cast<exact<T>>(imm);
  return mapped<T>(ctx, [op, value](T x) { return op(x, value); }, a);
}

}  // namespace

#define INTEGER_TYPES U8, U16, U32, U64, S8, S16, S32, S64

SVE_DEFINE_VV(QAddVVX, mapped<T>(ctx, saturating_sum, a, b), INTEGER_TYPES)
SVE_DEFINE_VV(QSubVVX, mapped<T>(ctx, saturating_difference, a, b), INTEGER_TYPES)
SVE_DEFINE_VI(QAddVIX, with_immediate<T>(a, imm, ctx, saturating_sum), INTEGER_TYPES)
SVE_DEFINE_VI(QSubVIX, with_immediate<T>(a, imm, ctx, saturating_difference), INTEGER_TYPES)
