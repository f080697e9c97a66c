// Saturating addition and subtraction, unpredicated. Equal to SatAdd and SatSub of the toolkit, in arithmetic at widths
// that the host vectorises. Saturation has no sticky flag.
#include <limits>

#include "sve/veclib/define.h"

using namespace sve;
using namespace sve::veclib;

namespace {

template <class T>
inline constexpr T highest = std::numeric_limits<T>::max();
template <class T>
inline constexpr T lowest = std::numeric_limits<T>::min();

// The limit that an overflow of a signed operation passed: the one on the side of the first operand.
template <class T>
constexpr T limit_beside(T a) {
  return static_cast<T>((a >> (8 * sizeof(T) - 1)) ^ highest<T>);
}

constexpr auto sum = [](auto a, auto b) {
  using T = decltype(a);
  using U = unsigned_of<T>;
  const U x = static_cast<U>(a), y = static_cast<U>(b), wrapped = static_cast<U>(x + y);
  if constexpr (std::is_unsigned_v<T>) return wrapped < x ? highest<T> : wrapped;
  const bool overflow = static_cast<signed_of<U>>((x ^ wrapped) & (y ^ wrapped)) < 0;
  return overflow ? limit_beside(a) : static_cast<T>(wrapped);
};
constexpr auto difference = [](auto a, auto b) {
  using T = decltype(a);
  using U = unsigned_of<T>;
  const U x = static_cast<U>(a), y = static_cast<U>(b), wrapped = static_cast<U>(x - y);
  if constexpr (std::is_unsigned_v<T>) return x < y ? T{0} : wrapped;
  const bool overflow = static_cast<signed_of<U>>((x ^ y) & (x ^ wrapped)) < 0;
  return overflow ? limit_beside(a) : static_cast<T>(wrapped);
};

// The immediate is unsigned also in the signed forms, where at 8 and 16 bits it may lie above the largest element:
// there the exact result is formed at twice the width.
template <class T>
inline constexpr bool exceeds_element = std::is_signed_v<T> && sizeof(T) <= 2;
template <class T>
using exact = std::conditional_t<sizeof(T) == 1, std::int16_t, std::int32_t>;

template <class T>
VectorV add_immediate(const VectorV& a, std::uint64_t imm, const CpuContext* ctx) {
  if constexpr (exceeds_element<T>) {
    const auto value = static_cast<exact<T>>(imm);
    return mapped<T>(
        ctx,
        [value](T x) {
          const auto result = static_cast<exact<T>>(x + value);
          return static_cast<T>(result > highest<T> ? highest<T> : result);
        },
        a);
  } else {
    const T value = static_cast<T>(imm);
    return mapped<T>(
        ctx, [value](T x) { return sum(x, value); }, a);
  }
}

template <class T>
VectorV subtract_immediate(const VectorV& a, std::uint64_t imm, const CpuContext* ctx) {
  if constexpr (exceeds_element<T>) {
    const auto value = static_cast<exact<T>>(imm);
    return mapped<T>(
        ctx,
        [value](T x) {
          const auto result = static_cast<exact<T>>(x - value);
          return static_cast<T>(result < lowest<T> ? lowest<T> : result);
        },
        a);
  } else {
    const T value = static_cast<T>(imm);
    return mapped<T>(
        ctx, [value](T x) { return difference(x, value); }, a);
  }
}

}  // namespace

#define INTEGER_TYPES U8, U16, U32, U64, S8, S16, S32, S64

SVE_DEFINE_VV(QAddVVX, mapped<T>(ctx, sum, a, b), INTEGER_TYPES)
SVE_DEFINE_VV(QSubVVX, mapped<T>(ctx, difference, a, b), INTEGER_TYPES)
SVE_DEFINE_VI(QAddVIX, add_immediate<T>(a, imm, ctx), INTEGER_TYPES)
SVE_DEFINE_VI(QSubVIX, subtract_immediate<T>(a, imm, ctx), INTEGER_TYPES)
