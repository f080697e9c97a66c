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
constexpr auto left = [](auto a, auto n) {
  using T = decltype(a);
  using Wide = std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>;
  const auto in_range = n < static_cast<decltype(n)>(width<T>) ? n : decltype(n){0};
  const Wide shifted = static_cast<Wide>(static_cast<Wide>(a) << in_range);
  return n < static_cast<decltype(n)>(width<T>) ? shifted : Wide{0};
};
constexpr auto right = [](auto a, auto n) {
  using T = decltype(a);
  constexpr auto limit = static_cast<decltype(n)>(width<T> - 1);
  if constexpr (std::is_signed_v<T>)
    return static_cast<T>(a >> (n < limit ? n : limit));
  else
    return n > limit ? T{0} : static_cast<T>(a >> (n > limit ? decltype(n){0} : n));
};

// The element is shifted by the other operand, read as unsigned.
constexpr auto left_by = [](auto a, auto b) { return left(a, static_cast<unsigned_of<decltype(b)>>(b)); };
constexpr auto right_by = [](auto a, auto b) { return right(a, static_cast<unsigned_of<decltype(b)>>(b)); };
constexpr auto left_reversed = [](auto a, auto b) { return left_by(b, a); };
constexpr auto right_reversed = [](auto a, auto b) { return right_by(b, a); };

// An amount of 64 or more shifts everything out, whatever it is.
unsigned whole_amount(std::uint64_t imm) { return imm < 64 ? static_cast<unsigned>(imm) : 64; }

template <class T, class Vector, class Predicate, class Context, class Op>
auto immediate_merging(const Vector& a, const Predicate& p, std::uint64_t imm, const Context* ctx, Op op) {
  const unsigned n = whole_amount(imm);
  return merging_unary<T>(a, p, a, ctx, [op, n](T x) { return op(x, n); });
}

template <class T, class Vector, class Context, class Op>
auto immediate_mapped(const Vector& a, std::uint64_t imm, const Context* ctx, Op op) {
  const unsigned n = whole_amount(imm);
  return mapped<T>(
      ctx, [op, n](T x) { return op(x, n); }, a);
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

// Division by a power of two, rounded towards zero.
constexpr auto divided = [](auto a, unsigned n) {
  using T = decltype(a);
  if (n >= 64) return T{0};
  // The biased sum needs 65 bits only for a non-negative element, which has no bias.
  const std::int64_t bias = a < 0 ? static_cast<std::int64_t>((std::uint64_t{1} << n) - 1) : 0;
  return static_cast<T>((static_cast<std::int64_t>(a) + bias) >> n);
};

// The counts, equal to those of the toolkit, in steps that hosts have for vectors: sums of neighbouring bits, pairs and
// so on, which a mask keeps apart until they are bytes. Leading bits of 64 are quicker one by one.
template <class T>
constexpr auto count_bits = [](T a) {
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
constexpr auto count_leading_zeros = [](T a) {
  if constexpr (sizeof(T) == 8) return static_cast<T>(CountLeadingZeroBits(a, width<T>));
  a = static_cast<T>(a | (a >> 1));
  a = static_cast<T>(a | (a >> 2));
  a = static_cast<T>(a | (a >> 4));
  if constexpr (sizeof(T) > 1) a = static_cast<T>(a | (a >> 8));
  if constexpr (sizeof(T) > 2) a = static_cast<T>(a | (a >> 16));
  return count_bits<T>(static_cast<T>(~a));
};
template <class T>
constexpr auto count_leading_signs = [](T a) {
  if constexpr (sizeof(T) == 8) return static_cast<T>(CountLeadingSignBits(a, width<T>));
  const T sign = static_cast<T>(static_cast<signed_of<T>>(a) >> (width<T> - 1));
  return static_cast<T>(count_leading_zeros<T>(static_cast<T>(a ^ sign)) - 1);
};
template <class T>
constexpr auto reverse_bits = [](T a) { return BitReverse(a, width<T>); };
template <class T, int Bytes>
constexpr auto containers_reversed = [](T a) { return Reverse(a, 8 * sizeof(T), Bytes); };

}  // namespace

SVE_DEFINE_VVM(ShlVVM, merging<T>(a, p, b, ctx, left_by), UNSIGNED_TYPES)
SVE_DEFINE_VVM(ShrVVM, merging<T>(a, p, b, ctx, right_by), INTEGER_TYPES)
SVE_DEFINE_VVM(ShlRVVM, merging<T>(a, p, b, ctx, left_reversed), UNSIGNED_TYPES)
SVE_DEFINE_VVM(ShrRVVM, merging<T>(a, p, b, ctx, right_reversed), INTEGER_TYPES)

SVE_DEFINE_VVM(ShlVWM, merging<T>(a, p, narrowed_amounts<T>(b, ctx), ctx, left_by), U8, U16, U32)
SVE_DEFINE_VVM(ShrVWM, merging<T>(a, p, narrowed_amounts<T>(b, ctx), ctx, right_by), U8, U16, U32, S8, S16, S32)
SVE_DEFINE_VV(ShlVWX, mapped<T>(ctx, left_by, a, narrowed_amounts<T>(b, ctx)), U8, U16, U32)
SVE_DEFINE_VV(ShrVWX, mapped<T>(ctx, right_by, a, narrowed_amounts<T>(b, ctx)), U8, U16, U32, S8, S16, S32)

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
