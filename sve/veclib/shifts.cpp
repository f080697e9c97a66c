// Shifts and bit operations. An amount is the whole element, or the whole 64-bit element in the wide forms: nothing
// cuts it to a few low bits.
#include "sve/veclib/define.h"
#include "sve/veclib/toolkit.h"

using namespace sve;
using namespace sve::veclib;

namespace {

template <class T>
inline constexpr int width = 8 * sizeof(T);

// The shifts for any unsigned amount, equal to ShiftLeftInt and ShiftRightInt on the widened element.
constexpr auto left = SVE_BY_PIECES(2, native::shifted_left<Element>(a, b), [](auto a, auto n) {
  using T = decltype(a);
  using Wide = std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>;
  const auto in_range = n < static_cast<decltype(n)>(width<T>) ? n : decltype(n){0};
  const Wide shifted = static_cast<Wide>(static_cast<Wide>(a) << in_range);
  return n < static_cast<decltype(n)>(width<T>) ? shifted : Wide{0};
});
constexpr auto right = SVE_BY_PIECES(2, native::shifted_right<Element>(a, b), [](auto a, auto n) {
  using T = decltype(a);
  constexpr auto limit = static_cast<decltype(n)>(width<T> - 1);
  if constexpr (std::is_signed_v<T>)
    return static_cast<T>(a >> (n < limit ? n : limit));
  else
    return n > limit ? T{0} : static_cast<T>(a >> (n > limit ? decltype(n){0} : n));
});

// The element is shifted by the other operand, read as unsigned.
constexpr auto left_by = SVE_BY_PIECES(2, native::shifted_left<Element>(a, b),
                                       [](auto a, auto b) { return left(a, static_cast<UnsignedOf<decltype(b)>>(b)); });
constexpr auto right_by = SVE_BY_PIECES(2, native::shifted_right<Element>(a, b), [](auto a, auto b) {
  return right(a, static_cast<UnsignedOf<decltype(b)>>(b));
});
constexpr auto left_reversed =
    SVE_BY_PIECES(2, native::shifted_left<Element>(b, a), [](auto a, auto b) { return left_by(b, a); });
constexpr auto right_reversed =
    SVE_BY_PIECES(2, native::shifted_right<Element>(b, a), [](auto a, auto b) { return right_by(b, a); });

// An amount of 64 or more shifts everything out, whatever it is.
unsigned whole_amount(std::uint64_t imm) { return imm < 64 ? static_cast<unsigned>(imm) : 64; }

template <class T, class Vector, class Predicate, class Context, class Op>
auto immediate_merging(const Vector& a, const Predicate& p, std::uint64_t imm, const Context* ctx, Op op) {
  return merging_unary<T>(a, p, a, ctx, with_second(op, whole_amount(imm)));
}

template <class T, class Vector, class Context, class Op>
auto immediate_mapped(const Vector& a, std::uint64_t imm, const Context* ctx, Op op) {
  return mapped<T>(ctx, with_second(op, whole_amount(imm)), a);
}

// The amounts of a wide shift, spread to one for each element: every element of a 64-bit unit takes that unit's amount.
// An amount above the width shifts as the width does, so that it fits the narrow element.
template <class T, class Vector, class Context>
VectorV narrowed_amounts(const Vector& wide_amounts, const Context* ctx) {
  return mapped_aside<std::uint64_t>(
      ctx,
      [](std::uint64_t amount) { return replicated<T>(amount < static_cast<unsigned>(width<T>) ? amount : width<T>); },
      wide_amounts);
}

// The same of a piece. Only the low byte of an amount counts, once it is in range.
template <class T>
BytePiece spread_amounts(BytePiece units) {
  typedef std::uint64_t Units [[gnu::vector_size(16)]];
  const Units wide = reinterpret_cast<Units>(units), limit = Units{} + static_cast<unsigned>(width<T>);
  return units_spread<T>(reinterpret_cast<BytePiece>(wide < limit ? wide : limit));
}

// The same in pieces where the operation has them, which are formed as they are needed.
template <class T, class Op>
inline constexpr bool forms_amounts = computes_pieces<T, Op, T, T>;
template <class Op>
constexpr auto with_wide_amounts(Op op) {
  const auto of_pieces = [op](auto element, BytePiece a, BytePiece units) {
    using T = decltype(element);
    return op.piece(element, a, spread_amounts<T>(units));
  };
  return ByPieces(op, of_pieces);
}
template <class T, class Predicate, class Op>
VectorV wide_merging(const VectorV& a, const Predicate& p, const VectorV& b, const CpuContext* ctx, Op op) {
  return merging<T>(a, p, narrowed_amounts<T>(b, ctx), ctx, op);
}
template <class T, class Op>
VectorV wide_mapped(const VectorV& a, const VectorV& b, const CpuContext* ctx, Op op) {
  return mapped<T>(ctx, op, a, narrowed_amounts<T>(b, ctx));
}
template <class T, class Vector, class Predicate, class Op>
Vector wide_merging(const Vector& a, const Predicate& p, const Vector& b, const in_place::CpuContext* ctx, Op op) {
  if constexpr (forms_amounts<T, Op>)
    return merging<T>(a, p, b, ctx, with_wide_amounts(op));
  else
    return merging<T>(a, p, narrowed_amounts<T>(b, ctx), ctx, op);
}
template <class T, class Vector, class Op>
Vector wide_mapped(const Vector& a, const Vector& b, const in_place::CpuContext* ctx, Op op) {
  if constexpr (forms_amounts<T, Op>)
    return mapped<T>(ctx, with_wide_amounts(op), a, b);
  else
    return mapped<T>(ctx, op, a, narrowed_amounts<T>(b, ctx));
}

// Division by a power of two, rounded towards zero.
constexpr auto divided = SVE_BY_PIECES(2, native::divided_by_power<Element>(a, b), [](auto a, unsigned n) {
  using T = decltype(a);
  if (n >= static_cast<unsigned>(width<T>)) return T{0};  // nothing is left of an element
  const T bias = static_cast<T>((a >> (width<T> - 1)) & static_cast<T>((std::uint64_t{1} << n) - 1));
  return static_cast<T>(static_cast<T>(a + bias) >> n);
});

// The counts, equal to those of the toolkit, in steps that hosts have for vectors: sums of neighbouring bits, pairs and
// so on, which a mask keeps apart until they are bytes. Leading bits of 64 are quicker one by one.
template <class T>
constexpr auto count_bits_of = [](T a) {
  constexpr T ones = static_cast<T>(~T{0});
  T x = static_cast<T>(a - ((a >> 1) & (ones / 3)));
  x = static_cast<T>((x & (ones / 5)) + ((x >> 2) & (ones / 5)));
  x = static_cast<T>((x + (x >> 4)) & (ones / 17));
  if constexpr (sizeof(T) > 1) x = static_cast<T>(x + (x >> 8));
  if constexpr (sizeof(T) > 2) x = static_cast<T>(x + (x >> 16));
  if constexpr (sizeof(T) > 4) x = static_cast<T>(x + (x >> 32));
  return static_cast<T>(x & (2 * width<T> - 1));
};
template <class T>
constexpr auto count_bits = SVE_BY_PIECES(1, native::bits_counted<Element>(a), count_bits_of<T>);
template <class T>
constexpr auto count_leading_zeros_of = [](T a) {
  if constexpr (sizeof(T) == 8) return static_cast<T>(CountLeadingZeroBits(a, width<T>));
  a = static_cast<T>(a | (a >> 1));
  a = static_cast<T>(a | (a >> 2));
  a = static_cast<T>(a | (a >> 4));
  if constexpr (sizeof(T) > 1) a = static_cast<T>(a | (a >> 8));
  if constexpr (sizeof(T) > 2) a = static_cast<T>(a | (a >> 16));
  return count_bits_of<T>(static_cast<T>(~a));
};
template <class T>
constexpr auto count_leading_signs_of = [](T a) {
  if constexpr (sizeof(T) == 8) return static_cast<T>(CountLeadingSignBits(a, width<T>));
  const T sign = static_cast<T>(static_cast<SignedOf<T>>(a) >> (width<T> - 1));
  return static_cast<T>(count_leading_zeros_of<T>(static_cast<T>(a ^ sign)) - 1);
};
// Hosts count in vectors up to 32 bits.
template <class T>
constexpr auto count_leading_zeros = SVE_BY_PIECES(1, native::leading_zeros<Element>(a), count_leading_zeros_of<T>);
template <>
constexpr auto count_leading_zeros<std::uint64_t> = count_leading_zeros_of<std::uint64_t>;
template <class T>
constexpr auto count_leading_signs = SVE_BY_PIECES(1, native::leading_signs<Element>(a), count_leading_signs_of<T>);
template <>
constexpr auto count_leading_signs<std::uint64_t> = count_leading_signs_of<std::uint64_t>;
template <class T>
constexpr auto reverse_bits = SVE_BY_PIECES(1, native::bits_reversed<Element>(a),
                                            [](T a) { return BitReverse(a, width<T>); });
template <class T, int Bytes>
constexpr auto containers_reversed = SVE_BY_PIECES(1, (native::reversed<Element, Bytes>(a)),
                                                   [](T a) { return Reverse(a, 8 * sizeof(T), Bytes); });

}  // namespace

SVE_DEFINE_VVM(ShlVVM, merging<T>(a, p, b, ctx, left_by), UNSIGNED_TYPES)
SVE_DEFINE_VVM(ShrVVM, merging<T>(a, p, b, ctx, right_by), INTEGER_TYPES)
SVE_DEFINE_VVM(ShlRVVM, merging<T>(a, p, b, ctx, left_reversed), UNSIGNED_TYPES)
SVE_DEFINE_VVM(ShrRVVM, merging<T>(a, p, b, ctx, right_reversed), INTEGER_TYPES)

SVE_DEFINE_VVM(ShlVWM, wide_merging<T>(a, p, b, ctx, left_by), U8, U16, U32)
SVE_DEFINE_VVM(ShrVWM, wide_merging<T>(a, p, b, ctx, right_by), U8, U16, U32, S8, S16, S32)
SVE_DEFINE_VV(ShlVWX, wide_mapped<T>(a, b, ctx, left_by), U8, U16, U32)
SVE_DEFINE_VV(ShrVWX, wide_mapped<T>(a, b, ctx, right_by), U8, U16, U32, S8, S16, S32)

SVE_DEFINE_VIM(ShlVIM, immediate_merging<T>(a, p, imm, ctx, left), UNSIGNED_TYPES)
SVE_DEFINE_VIM(ShrVIM, immediate_merging<T>(a, p, imm, ctx, right), INTEGER_TYPES)
SVE_DEFINE_VIM(ShrDVIM, immediate_merging<T>(a, p, imm, ctx, divided), SIGNED_TYPES)
SVE_DEFINE_VI(ShlVIX, immediate_mapped<T>(a, imm, ctx, left), UNSIGNED_TYPES)
SVE_DEFINE_VI(ShrVIX, immediate_mapped<T>(a, imm, ctx, right), UNSIGNED_TYPES)
SVE_DEFINE_VI_SIGNED(ShrVIX, immediate_mapped<T>(a, static_cast<std::uint64_t>(imm), ctx, right), SIGNED_TYPES)

SVE_DEFINE_VVM(ClzVM, merging_unary<T>(a, p, b, ctx, count_leading_zeros<T>), UNSIGNED_TYPES)
SVE_DEFINE_VVM(ClsVM, merging_unary<T>(a, p, b, ctx, count_leading_signs<T>), UNSIGNED_TYPES)
SVE_DEFINE_VVM(CntVM, merging_unary<T>(a, p, b, ctx, count_bits<T>), UNSIGNED_TYPES)
SVE_DEFINE_VVM(RBitVM, merging_unary<T>(a, p, b, ctx, reverse_bits<T>), UNSIGNED_TYPES)
SVE_DEFINE_VVM(Rev1V, (merging_unary<T>(a, p, b, ctx, containers_reversed<T, 1>)), U16, U32, U64)
SVE_DEFINE_VVM(Rev2V, (merging_unary<T>(a, p, b, ctx, containers_reversed<T, 2>)), U32, U64)
SVE_DEFINE_VVM(Rev4V, (merging_unary<T>(a, p, b, ctx, containers_reversed<T, 4>)), U64)
