// Saturating addition and subtraction, unpredicated. Saturation has no sticky flag.
#include "sve/veclib/saturating.h"

#include "sve/veclib/define.h"

using namespace sve;
using namespace sve::veclib;

namespace {

// The immediate is unsigned also in the signed forms, where at 8 and 16 bits it may lie above the largest element:
// there the exact result is formed at twice the width.
template <class T>
inline constexpr bool exceeds_element = std::is_signed_v<T> && sizeof(T) <= 2;
template <class T>
using Exact = std::conditional_t<sizeof(T) == 1, std::int16_t, std::int32_t>;

template <class T, class Vector, class Context>
auto add_immediate(const Vector& a, std::uint64_t imm, const Context* ctx) {
  if constexpr (exceeds_element<T>) {
    const auto value = static_cast<Exact<T>>(imm);
    return mapped<T>(
        ctx,
        [value](T x) {
          const auto result = static_cast<Exact<T>>(x + value);
          return static_cast<T>(result > highest<T> ? highest<T> : result);
        },
        a);
  } else {
    const T value = static_cast<T>(imm);
    return mapped<T>(ctx, with_second(saturating_sum, value), a);
  }
}

template <class T, class Vector, class Context>
auto subtract_immediate(const Vector& a, std::uint64_t imm, const Context* ctx) {
  if constexpr (exceeds_element<T>) {
    const auto value = static_cast<Exact<T>>(imm);
    return mapped<T>(
        ctx,
        [value](T x) {
          const auto result = static_cast<Exact<T>>(x - value);
          return static_cast<T>(result < lowest<T> ? lowest<T> : result);
        },
        a);
  } else {
    const T value = static_cast<T>(imm);
    return mapped<T>(ctx, with_second(saturating_difference, value), a);
  }
}

}  // namespace

SVE_DEFINE_VV(QAddVVX, mapped<T>(ctx, saturating_sum, a, b), INTEGER_TYPES)
SVE_DEFINE_VV(QSubVVX, mapped<T>(ctx, saturating_difference, a, b), INTEGER_TYPES)
SVE_DEFINE_VI(QAddVIX, add_immediate<T>(a, imm, ctx), INTEGER_TYPES)
SVE_DEFINE_VI(QSubVIX, subtract_immediate<T>(a, imm, ctx), INTEGER_TYPES)
