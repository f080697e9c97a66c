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

template <class T>
constexpr auto sum_with_unsigned = SVE_BY_PIECES(2, native::saturating_sum_with_unsigned<Element>(a, b),
                                                 [](T x, Exact<T> value) {
                                                   const auto result = static_cast<Exact<T>>(x + value);
                                                   return static_cast<T>(result > highest<T> ? highest<T> : result);
                                                 });
template <class T>
constexpr auto difference_with_unsigned = SVE_BY_PIECES(2, native::saturating_difference_with_unsigned<Element>(a, b),
                                                        [](T x, Exact<T> value) {
                                                          const auto result = static_cast<Exact<T>>(x - value);
                                                          return static_cast<T>(result < lowest<T> ? lowest<T>
                                                                                                   : result);
                                                        });

template <class T, class Vector, class Context>
[[gnu::always_inline]] inline auto add_immediate(const Vector& a, std::uint64_t imm, const Context* ctx) {
  if constexpr (exceeds_element<T>)
    return saturated<T>(ctx, with_second(sum_with_unsigned<T>, static_cast<Exact<T>>(imm)), a);
  else
    return saturated<T>(ctx, with_second(saturating_sum, static_cast<T>(imm)), a);
}

template <class T, class Vector, class Context>
[[gnu::always_inline]] inline auto subtract_immediate(const Vector& a, std::uint64_t imm, const Context* ctx) {
  if constexpr (exceeds_element<T>)
    return saturated<T>(ctx, with_second(difference_with_unsigned<T>, static_cast<Exact<T>>(imm)), a);
  else
    return saturated<T>(ctx, with_second(saturating_difference, static_cast<T>(imm)), a);
}

}  // namespace

SVE_DEFINE_VV(QAddVVX, saturated<T>(ctx, saturating_sum, a, b), INTEGER_TYPES)
SVE_DEFINE_VV(QSubVVX, saturated<T>(ctx, saturating_difference, a, b), INTEGER_TYPES)
SVE_DEFINE_VI(QAddVIX, add_immediate<T>(a, imm, ctx), INTEGER_TYPES)
SVE_DEFINE_VI(QSubVIX, subtract_immediate<T>(a, imm, ctx), INTEGER_TYPES)
