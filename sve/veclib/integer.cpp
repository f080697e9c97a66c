// Integer arithmetic, logic, multiply-add and address routines, element by element at any vector length.
#include <bit>
#include <limits>

#include "sve/veclib/define.h"
#include "sve/veclib/toolkit.h"

using namespace sve;
using namespace sve::veclib;

namespace {

template <class T>
inline constexpr int width = 8 * sizeof(T);
template <class T>
inline constexpr int is_unsigned = std::is_unsigned_v<T> ? 1 : 0;

// A type in which sums, differences and products of elements are exact or wrap as the element does.
template <class T>
using Calculation = std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>;
template <class T>
constexpr Calculation<T> wrapping(T a) {
  return static_cast<Calculation<T>>(a);
}

constexpr auto sum = [](auto a, auto b) { return wrapping(a) + wrapping(b); };
constexpr auto difference = [](auto a, auto b) { return wrapping(a) - wrapping(b); };
constexpr auto reversed_difference = [](auto a, auto b) { return wrapping(b) - wrapping(a); };
constexpr auto product =
    SVE_BY_PIECES(2, native::multiply<Element>(a, b), [](auto a, auto b) { return wrapping(a) * wrapping(b); });

constexpr auto conjunction = [](auto a, auto b) { return a & b; };
constexpr auto disjunction = [](auto a, auto b) { return a | b; };
constexpr auto exclusive_disjunction = [](auto a, auto b) { return a ^ b; };
constexpr auto without = [](auto a, auto b) { return a & static_cast<decltype(b)>(~b); };

// The low `Bytes` bytes, extended by the signedness of the element.
template <class T, unsigned Bytes>
constexpr auto extended = SVE_BY_PIECES(1, (native::extended<Element, Bytes>(a)), [](T a) {
  using Low =
      std::conditional_t<Bytes == 1, std::uint8_t, std::conditional_t<Bytes == 2, std::uint16_t, std::uint32_t>>;
  if constexpr (std::is_signed_v<T>) {
    // At the element's own width, so that vectors of it stay such.
    constexpr int above = width<T> - 8 * static_cast<int>(Bytes);
    return static_cast<T>(static_cast<T>(static_cast<UnsignedOf<T>>(a) << above) >> above);
  } else {
    return static_cast<T>(a & T{static_cast<Low>(~Low{0})});
  }
});

// Division never traps: by 0 it gives 0, and the smallest value by -1 gives the smallest value.
constexpr auto quotient = [](auto a, auto b) {
  using T = decltype(a);
  if (b == 0) return T{0};
  if constexpr (std::is_signed_v<T>)
    if (a == std::numeric_limits<T>::min() && b == -1) return a;
  return static_cast<T>(a / b);
};
constexpr auto reversed_quotient = [](auto a, auto b) { return quotient(b, a); };

// The larger and the smaller, the absolute difference and the high half of the product: at the element's own width
// where the host has an instruction, equal to the 128-bit formulas of the toolkit.
constexpr auto larger = [](auto a, auto b) { return a > b ? a : b; };
constexpr auto smaller = [](auto a, auto b) { return a < b ? a : b; };
constexpr auto absolute_difference = SVE_BY_PIECES(2, native::absolute_difference<Element>(a, b), [](auto a, auto b) {
  using T = decltype(a);
  using U = UnsignedOf<T>;
  if constexpr (std::is_unsigned_v<T>) return static_cast<T>(larger(a, b) - smaller(a, b));
  const U exact = static_cast<U>(static_cast<U>(a) - static_cast<U>(b)), negate = static_cast<U>(0 - U{a < b});
  return static_cast<U>((exact ^ negate) - negate);
});
constexpr auto high_product = SVE_BY_PIECES(2, native::high_product<Element>(a, b), [](auto a, auto b) {
  using T = decltype(a);
  if constexpr (sizeof(T) == 8) {
    return bits(ShiftRightInt(
        static_cast<wide>(static_cast<UnsignedWide>(Int(static_cast<std::uint64_t>(a), 64, is_unsigned<T>)) *
                          static_cast<UnsignedWide>(Int(static_cast<std::uint64_t>(b), 64, is_unsigned<T>))),
        64));
  } else {
    using Narrow = std::conditional_t<std::is_signed_v<T>, std::int32_t, std::uint32_t>;
    using Wide = std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>;
    using Product = std::conditional_t<sizeof(T) <= 2, Narrow, Wide>;
    return static_cast<Product>(a) * static_cast<Product>(b) >> width<T>;
  }
});

constexpr auto negated = [](auto a) { return 0 - wrapping(a); };
constexpr auto absolute = SVE_BY_PIECES(1, native::absolute<Element>(a), [](auto a) {
  using U = UnsignedOf<decltype(a)>;
  return a < 0 ? static_cast<U>(0 - static_cast<U>(a)) : static_cast<U>(a);
});
constexpr auto inverted = SVE_BY_PIECES(1, ~a, [](auto a) { return static_cast<decltype(a)>(~a); });
constexpr auto is_zero = [](auto a) { return a == 0 ? 1 : 0; };

// a + b*c and the like; in the MADD forms a is the multiplicand and c the addend.
constexpr auto mla = SVE_BY_PIECES(3, native::add<Element>(a, native::multiply<Element>(b, c)),
                                   [](auto a, auto b, auto c) { return wrapping(a) + wrapping(b) * wrapping(c); });
constexpr auto mls = SVE_BY_PIECES(3, native::subtract<Element>(a, native::multiply<Element>(b, c)),
                                   [](auto a, auto b, auto c) { return wrapping(a) - wrapping(b) * wrapping(c); });
constexpr auto madd = SVE_BY_PIECES(3, native::add<Element>(c, native::multiply<Element>(a, b)),
                                    [](auto a, auto b, auto c) { return wrapping(c) + wrapping(a) * wrapping(b); });
constexpr auto msub = SVE_BY_PIECES(3, native::subtract<Element>(c, native::multiply<Element>(a, b)),
                                    [](auto a, auto b, auto c) { return wrapping(c) - wrapping(a) * wrapping(b); });

template <class T, class Vector, class Context, class Op>
auto with_immediate(const Vector& a, std::uint64_t imm, const Context* ctx, Op op) {
  const T value = static_cast<T>(imm);
  return mapped<T>(
      ctx, [op, value](T x) { return op(x, value); }, a);
}

// Base plus offset times scale, the offset as it is or its low 32 bits extended.
template <unsigned Scale>
constexpr auto address = SVE_BY_PIECES(2, (native::add<Element>(a, native::multiplied<Element, Scale>(b))),
                                       [](auto base, auto offset) { return base + offset * Scale; });
// In shifts to the top and down, the second of which hosts add to the base in one instruction.
template <unsigned Scale>
constexpr auto address_sxtw = [](std::uint64_t base, std::uint64_t offset) {
  return base + static_cast<std::uint64_t>(static_cast<std::int64_t>(offset << 32) >> (32 - std::countr_zero(Scale)));
};
template <unsigned Scale>
constexpr auto address_uxtw =
    [](std::uint64_t base, std::uint64_t offset) { return base + (offset << 32 >> (32 - std::countr_zero(Scale))); };

}  // namespace

SVE_DEFINE_VVM(AddVVM, merging<T>(a, p, b, ctx, sum), UNSIGNED_TYPES)
SVE_DEFINE_VVM(SubVVM, merging<T>(a, p, b, ctx, difference), UNSIGNED_TYPES)
SVE_DEFINE_VVM(SubRVVM, merging<T>(a, p, b, ctx, reversed_difference), UNSIGNED_TYPES)
SVE_DEFINE_VVM(MulVVM, merging<T>(a, p, b, ctx, product), SIGNED_TYPES)
SVE_DEFINE_VVM(MulHVVM, merging<T>(a, p, b, ctx, high_product), INTEGER_TYPES)
SVE_DEFINE_VVM(DivVVM, merging<T>(a, p, b, ctx, quotient), U32, U64, S32, S64)
SVE_DEFINE_VVM(DivRVVM, merging<T>(a, p, b, ctx, reversed_quotient), U32, U64, S32, S64)
SVE_DEFINE_VVM(MaxVVM, merging<T>(a, p, b, ctx, larger), INTEGER_TYPES)
SVE_DEFINE_VVM(MinVVM, merging<T>(a, p, b, ctx, smaller), INTEGER_TYPES)
SVE_DEFINE_VVM(AbdVVM, merging<T>(a, p, b, ctx, absolute_difference), INTEGER_TYPES)

SVE_DEFINE_VVM(NegVM, merging_unary<T>(a, p, b, ctx, negated), SIGNED_TYPES)
SVE_DEFINE_VVM(AbsVM, merging_unary<T>(a, p, b, ctx, absolute), SIGNED_TYPES)
SVE_DEFINE_VVM(InvVM, merging_unary<T>(a, p, b, ctx, inverted), UNSIGNED_TYPES)  // not: the bitwise inverse
SVE_DEFINE_VVM(NotVM, merging_unary<T>(a, p, b, ctx, is_zero), UNSIGNED_TYPES)   // cnot: the logical inverse

SVE_DEFINE_VVVM(MLAVVVM, merging_ternary<T>(a, p, b, c, ctx, mla), SIGNED_TYPES)
SVE_DEFINE_VVVM(MLSVVVM, merging_ternary<T>(a, p, b, c, ctx, mls), SIGNED_TYPES)
SVE_DEFINE_VVVM(MADDVVVM, merging_ternary<T>(a, p, b, c, ctx, madd), SIGNED_TYPES)
SVE_DEFINE_VVVM(MSUBVVVM, merging_ternary<T>(a, p, b, c, ctx, msub), SIGNED_TYPES)

SVE_DEFINE_VV(AddVVX, mapped<T>(ctx, sum, a, b), UNSIGNED_TYPES)
SVE_DEFINE_VV(SubVVX, mapped<T>(ctx, difference, a, b), UNSIGNED_TYPES)

SVE_DEFINE_VI(AddVIX, with_immediate<T>(a, imm, ctx, sum), UNSIGNED_TYPES)
SVE_DEFINE_VI(SubVIX, with_immediate<T>(a, imm, ctx, difference), UNSIGNED_TYPES)
SVE_DEFINE_VI(SubRVIX, with_immediate<T>(a, imm, ctx, reversed_difference), UNSIGNED_TYPES)
SVE_DEFINE_VI_SIGNED(MulVIX, with_immediate<T>(a, static_cast<std::uint64_t>(imm), ctx, product), SIGNED_TYPES)
SVE_DEFINE_VI(MaxVIX, with_immediate<T>(a, imm, ctx, larger), UNSIGNED_TYPES)
SVE_DEFINE_VI(MinVIX, with_immediate<T>(a, imm, ctx, smaller), UNSIGNED_TYPES)
SVE_DEFINE_VI_SIGNED(MaxVIX, with_immediate<T>(a, static_cast<std::uint64_t>(imm), ctx, larger), SIGNED_TYPES)
SVE_DEFINE_VI_SIGNED(MinVIX, with_immediate<T>(a, static_cast<std::uint64_t>(imm), ctx, smaller), SIGNED_TYPES)

SVE_DEFINE_VV(LEA1VV, mapped<T>(ctx, address<1>, a, b), U32, U64)
SVE_DEFINE_VV(LEA2VV, mapped<T>(ctx, address<2>, a, b), U32, U64)
SVE_DEFINE_VV(LEA4VV, mapped<T>(ctx, address<4>, a, b), U32, U64)
SVE_DEFINE_VV(LEA8VV, mapped<T>(ctx, address<8>, a, b), U32, U64)
SVE_DEFINE_VV(LEA1XVV, mapped<T>(ctx, address_sxtw<1>, a, b), U64)
SVE_DEFINE_VV(LEA2XVV, mapped<T>(ctx, address_sxtw<2>, a, b), U64)
SVE_DEFINE_VV(LEA4XVV, mapped<T>(ctx, address_sxtw<4>, a, b), U64)
SVE_DEFINE_VV(LEA8XVV, mapped<T>(ctx, address_sxtw<8>, a, b), U64)
SVE_DEFINE_VV(LEA1YVV, mapped<T>(ctx, address_uxtw<1>, a, b), U64)
SVE_DEFINE_VV(LEA2YVV, mapped<T>(ctx, address_uxtw<2>, a, b), U64)
SVE_DEFINE_VV(LEA4YVV, mapped<T>(ctx, address_uxtw<4>, a, b), U64)
SVE_DEFINE_VV(LEA8YVV, mapped<T>(ctx, address_uxtw<8>, a, b), U64)

SVE_DEFINE_VVM(AndVVM, merging<T>(a, p, b, ctx, conjunction), UNSIGNED_TYPES)
SVE_DEFINE_VVM(OrVVM, merging<T>(a, p, b, ctx, disjunction), UNSIGNED_TYPES)
SVE_DEFINE_VVM(XorVVM, merging<T>(a, p, b, ctx, exclusive_disjunction), UNSIGNED_TYPES)
SVE_DEFINE_VVM(BicVVM, merging<T>(a, p, b, ctx, without), UNSIGNED_TYPES)
SVE_DEFINE_VV(AndVVX, mapped<T>(ctx, conjunction, a, b), U64)
SVE_DEFINE_VV(OrVVX, mapped<T>(ctx, disjunction, a, b), U64)
SVE_DEFINE_VV(XorVVX, mapped<T>(ctx, exclusive_disjunction, a, b), U64)
SVE_DEFINE_VV(BicVVX, mapped<T>(ctx, without, a, b), U64)
SVE_DEFINE_VI(AndVIX, with_immediate<T>(a, imm, ctx, conjunction), U64)
SVE_DEFINE_VI(OrVIX, with_immediate<T>(a, imm, ctx, disjunction), U64)
SVE_DEFINE_VI(XorVIX, with_immediate<T>(a, imm, ctx, exclusive_disjunction), U64)

SVE_DEFINE_VVM(Extnd12VM, (merging_unary<T>(a, p, b, ctx, extended<T, 1>)), U16, S16)
SVE_DEFINE_VVM(Extnd14VM, (merging_unary<T>(a, p, b, ctx, extended<T, 1>)), U32, S32)
SVE_DEFINE_VVM(Extnd18VM, (merging_unary<T>(a, p, b, ctx, extended<T, 1>)), U64, S64)
SVE_DEFINE_VVM(Extnd24VM, (merging_unary<T>(a, p, b, ctx, extended<T, 2>)), U32, S32)
SVE_DEFINE_VVM(Extnd28VM, (merging_unary<T>(a, p, b, ctx, extended<T, 2>)), U64, S64)
SVE_DEFINE_VVM(Extnd48VM, (merging_unary<T>(a, p, b, ctx, extended<T, 4>)), U64, S64)
