// Operations on elements that hosts have for whole pieces of sixteen bytes, and compilers do not find by themselves.
// Only saturation touches the status register, and stands under a `StatusKept` for that.
#pragma once

#include "sve/lanes/predicate_bits.h"

namespace sve {

/// An operation on elements together with the same one on pieces: op(a...) and op.piece(T{}, pieces...). The loops of
/// `lanes.h` take the second where they know the length and the host has it.
template <class One, class OfPieces>
struct ByPieces : One {
  constexpr ByPieces(One one, OfPieces of_pieces) : One(one), piece(of_pieces) {}
  OfPieces piece;
};

template <class T, class Op, class... Sources>
concept computes_pieces = requires(const Op& op,
                                   decltype(static_cast<void>(std::declval<Sources>()), BytePiece{})... a) {
  op.piece(T{}, a...);
};

/// The lowest element of T of each 64-bit unit in all the unit's places.
template <class T>
[[gnu::always_inline]] inline BytePiece units_spread(BytePiece units) {
  return [units]<std::size_t... I>(std::index_sequence<I...>) {
    return __builtin_shufflevector(units, units, ((I & 8) | (I & (sizeof(T) - 1)))...);
  }
  (std::make_index_sequence<16>{});
}

/// op(a, value) in the forms that op has.
template <class Op, class Value>
constexpr auto with_second(Op op, Value value) {
  const auto one = [op, value](auto a) { return op(a, value); };
  if constexpr (requires { op.piece; })
    return ByPieces(one, [op, value](auto element, BytePiece a) {
      typedef decltype(element) Elements [[gnu::vector_size(16)]];
      return op.piece(element, a, reinterpret_cast<BytePiece>(Elements{} + static_cast<decltype(element)>(value)));
    });
  else
    return one;
}

#if defined(__ARM_NEON)

namespace native {

template <class T>
struct VectorOf {
  typedef T type [[gnu::vector_size(16)]];
};
template <class T>
using Elements = typename VectorOf<T>::type;
template <class T>
using UnsignedElements = Elements<std::make_unsigned_t<T>>;

// One instruction; the arrangement of a piece stands in its text.
#define SVE_NATIVE_BINARY(name, instruction, ...)                                                                    \
  template <class T>                                                                                                 \
  [[gnu::always_inline]] inline BytePiece name(BytePiece a, BytePiece b) {                                           \
    BytePiece r;                                                                                                     \
    if constexpr (sizeof(T) == 1) asm __VA_ARGS__(instruction " %0.16b, %1.16b, %2.16b" : "=w"(r) : "w"(a), "w"(b)); \
    if constexpr (sizeof(T) == 2) asm __VA_ARGS__(instruction " %0.8h, %1.8h, %2.8h" : "=w"(r) : "w"(a), "w"(b));    \
    if constexpr (sizeof(T) == 4) asm __VA_ARGS__(instruction " %0.4s, %1.4s, %2.4s" : "=w"(r) : "w"(a), "w"(b));    \
    if constexpr (sizeof(T) == 8) asm __VA_ARGS__(instruction " %0.2d, %1.2d, %2.2d" : "=w"(r) : "w"(a), "w"(b));    \
    return r;                                                                                                        \
  }
#define SVE_NATIVE_UNARY(name, text)                          \
  [[gnu::always_inline]] inline BytePiece name(BytePiece a) { \
    BytePiece r;                                              \
    asm(text : "=w"(r) : "w"(a));                             \
    return r;                                                 \
  }
SVE_NATIVE_BINARY(ushl, "ushl")
SVE_NATIVE_BINARY(sshl, "sshl")
SVE_NATIVE_BINARY(sabd, "sabd")
SVE_NATIVE_BINARY(uabd, "uabd")
// Volatile, so that they stay between the reading and the writing of the status register.
SVE_NATIVE_BINARY(sqadd, "sqadd", volatile)
SVE_NATIVE_BINARY(uqadd, "uqadd", volatile)
SVE_NATIVE_BINARY(sqsub, "sqsub", volatile)
SVE_NATIVE_BINARY(uqsub, "uqsub", volatile)
SVE_NATIVE_UNARY(abs_d, "abs %0.2d, %1.2d")
SVE_NATIVE_UNARY(rev16_b, "rev16 %0.16b, %1.16b")
SVE_NATIVE_UNARY(rev32_b, "rev32 %0.16b, %1.16b")
SVE_NATIVE_UNARY(rev64_b, "rev64 %0.16b, %1.16b")
SVE_NATIVE_UNARY(rev32_h, "rev32 %0.8h, %1.8h")
SVE_NATIVE_UNARY(rev64_h, "rev64 %0.8h, %1.8h")
SVE_NATIVE_UNARY(rev64_s, "rev64 %0.4s, %1.4s")
SVE_NATIVE_UNARY(rbit_b, "rbit %0.16b, %1.16b")
SVE_NATIVE_UNARY(cnt_b, "cnt %0.16b, %1.16b")
SVE_NATIVE_UNARY(uaddlp_b, "uaddlp %0.8h, %1.16b")
SVE_NATIVE_UNARY(uaddlp_h, "uaddlp %0.4s, %1.8h")
SVE_NATIVE_UNARY(uaddlp_s, "uaddlp %0.2d, %1.4s")
SVE_NATIVE_UNARY(clz_b, "clz %0.16b, %1.16b")
SVE_NATIVE_UNARY(clz_h, "clz %0.8h, %1.8h")
SVE_NATIVE_UNARY(clz_s, "clz %0.4s, %1.4s")
SVE_NATIVE_UNARY(cls_b, "cls %0.16b, %1.16b")
SVE_NATIVE_UNARY(cls_h, "cls %0.8h, %1.8h")
SVE_NATIVE_UNARY(cls_s, "cls %0.4s, %1.4s")
#undef SVE_NATIVE_UNARY
#undef SVE_NATIVE_BINARY

/// The elements of an amount, at most the width, which shifts everything out. The instruction takes the amount from the
/// lowest byte alone, and shifts to the right by a negative one.
template <class T>
[[gnu::always_inline]] inline UnsignedElements<T> clamped_amounts(BytePiece amounts) {
  using U = std::make_unsigned_t<T>;
  const auto n = reinterpret_cast<Elements<U>>(amounts);
  const Elements<U> width = Elements<U>{} + static_cast<U>(8 * sizeof(T));
  return n < width ? n : width;
}
template <class T>
[[gnu::always_inline]] inline BytePiece shifted_left(BytePiece a, BytePiece amounts) {
  return ushl<T>(a, reinterpret_cast<BytePiece>(clamped_amounts<T>(amounts)));
}
/// By the signedness of T.
template <class T>
[[gnu::always_inline]] inline BytePiece shifted_right(BytePiece a, BytePiece amounts) {
  const auto n = reinterpret_cast<BytePiece>(-clamped_amounts<T>(amounts));
  return std::is_signed_v<T> ? sshl<T>(a, n) : ushl<T>(a, n);
}

template <class T>
[[gnu::always_inline]] inline BytePiece add(BytePiece a, BytePiece b) {
  return reinterpret_cast<BytePiece>(reinterpret_cast<UnsignedElements<T>>(a) +
                                     reinterpret_cast<UnsignedElements<T>>(b));
}
template <class T>
[[gnu::always_inline]] inline BytePiece subtract(BytePiece a, BytePiece b) {
  return reinterpret_cast<BytePiece>(reinterpret_cast<UnsignedElements<T>>(a) -
                                     reinterpret_cast<UnsignedElements<T>>(b));
}

/// By a power of two.
template <class T, unsigned Scale>
[[gnu::always_inline]] inline BytePiece multiplied(BytePiece a) {
  return reinterpret_cast<BytePiece>(reinterpret_cast<UnsignedElements<T>>(a) << __builtin_ctz(Scale));
}

/// |a - b|, by the signedness of T.
template <class T>
[[gnu::always_inline]] inline BytePiece absolute_difference(BytePiece a, BytePiece b) {
  if constexpr (sizeof(T) < 8) {
    return std::is_signed_v<T> ? sabd<T>(a, b) : uabd<T>(a, b);
  } else {
    const auto less = reinterpret_cast<BytePiece>(reinterpret_cast<Elements<T>>(a) < reinterpret_cast<Elements<T>>(b));
    return subtract<T>(subtract<T>(a, b) ^ less, less);
  }
}
template <class T>
[[gnu::always_inline]] inline BytePiece absolute(BytePiece a) {
  return sizeof(T) == 8 ? abs_d(a) : absolute_difference<T>(a, BytePiece{});
}

/// The high half of the product, by the signedness of T.
template <class T>
[[gnu::always_inline]] inline BytePiece high_product(BytePiece a, BytePiece b) {
  BytePiece r, high;
#define SVE_HIGH_PRODUCT(s, narrow, low, wide)                                                          \
  asm(s "mull %0." wide ", %2." low ", %3." low "\n\t" s "mull2 %1." wide ", %2." narrow ", %3." narrow \
        "\n\tuzp2 %0." narrow ", %0." narrow ", %1." narrow                                             \
      : "=&w"(r), "=&w"(high)                                                                           \
      : "w"(a), "w"(b))
  if constexpr (sizeof(T) == 1 && std::is_signed_v<T>) SVE_HIGH_PRODUCT("s", "16b", "8b", "8h");
  if constexpr (sizeof(T) == 1 && !std::is_signed_v<T>) SVE_HIGH_PRODUCT("u", "16b", "8b", "8h");
  if constexpr (sizeof(T) == 2 && std::is_signed_v<T>) SVE_HIGH_PRODUCT("s", "8h", "4h", "4s");
  if constexpr (sizeof(T) == 2 && !std::is_signed_v<T>) SVE_HIGH_PRODUCT("u", "8h", "4h", "4s");
  if constexpr (sizeof(T) == 4 && std::is_signed_v<T>) SVE_HIGH_PRODUCT("s", "4s", "2s", "2d");
  if constexpr (sizeof(T) == 4 && !std::is_signed_v<T>) SVE_HIGH_PRODUCT("u", "4s", "2s", "2d");
#undef SVE_HIGH_PRODUCT
  if constexpr (sizeof(T) == 8) {
    using Wide = std::conditional_t<std::is_signed_v<T>, __int128, unsigned __int128>;
    const auto x = reinterpret_cast<Elements<T>>(a), y = reinterpret_cast<Elements<T>>(b);
    r = reinterpret_cast<BytePiece>(
        Elements<T>{static_cast<T>(Wide{x[0]} * y[0] >> 64), static_cast<T>(Wide{x[1]} * y[1] >> 64)});
  }
  return r;
}

/// The low `Bytes` bytes of each element, extended by the signedness of T.
template <class T, unsigned Bytes>
[[gnu::always_inline]] inline BytePiece extended(BytePiece a) {
  constexpr int above = 8 * static_cast<int>(sizeof(T) - Bytes);
  if constexpr (std::is_signed_v<T>)
    return reinterpret_cast<BytePiece>(
        reinterpret_cast<Elements<T>>(reinterpret_cast<UnsignedElements<T>>(a) << above) >> above);
  else
    return a & reinterpret_cast<BytePiece>(Elements<T>{} + static_cast<T>(static_cast<T>(~T{0}) >> above));
}

/// Sums and differences brought to the nearest value of T.
template <class T>
[[gnu::always_inline]] inline BytePiece saturating_sum(BytePiece a, BytePiece b) {
  return std::is_signed_v<T> ? sqadd<T>(a, b) : uqadd<T>(a, b);
}
template <class T>
[[gnu::always_inline]] inline BytePiece saturating_difference(BytePiece a, BytePiece b) {
  return std::is_signed_v<T> ? sqsub<T>(a, b) : uqsub<T>(a, b);
}
/// The same of signed elements of 8 or 16 bits and unsigned ones.
template <class T>
[[gnu::always_inline]] inline BytePiece saturating_sum_with_unsigned(BytePiece a, BytePiece b) {
  static_assert(sizeof(T) <= 2);
  if constexpr (sizeof(T) == 1)
    asm volatile("suqadd %0.16b, %1.16b" : "+w"(a) : "w"(b));
  else
    asm volatile("suqadd %0.8h, %1.8h" : "+w"(a) : "w"(b));
  return a;
}
template <class T>
[[gnu::always_inline]] inline BytePiece saturating_difference_with_unsigned(BytePiece a, BytePiece b) {
  return ~saturating_sum_with_unsigned<T>(~a, b);  // ~a is -a - 1
}

/// Signed elements divided by powers of two, rounded towards zero. A divisor of all the width leaves nothing.
template <class T>
[[gnu::always_inline]] inline BytePiece divided_by_power(BytePiece a, BytePiece amounts) {
  const BytePiece kept = shifted_left<T>(~BytePiece{}, amounts);  // of an element, the bits that are not shifted out
  const BytePiece negative = reinterpret_cast<BytePiece>(reinterpret_cast<Elements<T>>(a) < 0);
  const BytePiece any = reinterpret_cast<BytePiece>(reinterpret_cast<Elements<T>>(kept) != 0);
  return shifted_right<T>(add<T>(a, negative & ~kept), amounts) & any;
}

/// The low half of the product. Of 64 bits it is that of the low halves plus, above, the products of unlike halves.
template <class T>
[[gnu::always_inline]] inline BytePiece multiply(BytePiece a, BytePiece b) {
  if constexpr (sizeof(T) < 8) {
    return reinterpret_cast<BytePiece>(reinterpret_cast<UnsignedElements<T>>(a) *
                                       reinterpret_cast<UnsignedElements<T>>(b));
  } else {
    BytePiece r, x, y;
    asm("rev64 %0.4s, %4.4s\n\tmul %0.4s, %0.4s, %3.4s\n\tuaddlp %0.2d, %0.4s\n\tshl %0.2d, %0.2d, #32\n\t"
        "xtn %1.2s, %3.2d\n\txtn %2.2s, %4.2d\n\tumlal %0.2d, %1.2s, %2.2s"
        : "=&w"(r), "=&w"(x), "=&w"(y)
        : "w"(a), "w"(b));
    return r;
  }
}

/// In each element of T the sum of the products of its quarters, by the signedness of T.
template <class T>
[[gnu::always_inline]] inline BytePiece sums_of_products(BytePiece a, BytePiece b) {
  BytePiece r, high;
#define SVE_SUMS_OF_PRODUCTS(s, narrow, low, wide, widest)                                                            \
  asm(s "mull %0." wide ", %2." low ", %3." low "\n\t" s "mull2 %1." wide ", %2." narrow ", %3." narrow "\n\t" s      \
        "addlp %0." widest ", %0." wide "\n\t" s "addlp %1." widest ", %1." wide "\n\taddp %0." widest ", %0." widest \
        ", %1." widest                                                                                                \
      : "=&w"(r), "=&w"(high)                                                                                         \
      : "w"(a), "w"(b))
  if constexpr (sizeof(T) == 4 && std::is_signed_v<T>) SVE_SUMS_OF_PRODUCTS("s", "16b", "8b", "8h", "4s");
  if constexpr (sizeof(T) == 4 && !std::is_signed_v<T>) SVE_SUMS_OF_PRODUCTS("u", "16b", "8b", "8h", "4s");
  if constexpr (sizeof(T) == 8 && std::is_signed_v<T>) SVE_SUMS_OF_PRODUCTS("s", "8h", "4h", "4s", "2d");
  if constexpr (sizeof(T) == 8 && !std::is_signed_v<T>) SVE_SUMS_OF_PRODUCTS("u", "8h", "4h", "4s", "2d");
#undef SVE_SUMS_OF_PRODUCTS
  return r;
}

/// The containers of `Bytes` bytes in each element in reverse order.
template <class T, int Bytes>
[[gnu::always_inline]] inline BytePiece reversed(BytePiece a) {
  if constexpr (sizeof(T) == Bytes) return a;
  if constexpr (sizeof(T) == 2 && Bytes == 1) return rev16_b(a);
  if constexpr (sizeof(T) == 4 && Bytes == 1) return rev32_b(a);
  if constexpr (sizeof(T) == 8 && Bytes == 1) return rev64_b(a);
  if constexpr (sizeof(T) == 4 && Bytes == 2) return rev32_h(a);
  if constexpr (sizeof(T) == 8 && Bytes == 2) return rev64_h(a);
  if constexpr (sizeof(T) == 8 && Bytes == 4) return rev64_s(a);
}
template <class T>
[[gnu::always_inline]] inline BytePiece bits_reversed(BytePiece a) {
  return reversed<T, 1>(rbit_b(a));
}
template <class T>
[[gnu::always_inline]] inline BytePiece bits_counted(BytePiece a) {
  a = cnt_b(a);
  if constexpr (sizeof(T) > 1) a = uaddlp_b(a);
  if constexpr (sizeof(T) > 2) a = uaddlp_h(a);
  if constexpr (sizeof(T) > 4) a = uaddlp_s(a);
  return a;
}
/// Not for elements of 64 bits.
template <class T>
[[gnu::always_inline]] inline BytePiece leading_zeros(BytePiece a) {
  return sizeof(T) == 1 ? clz_b(a) : sizeof(T) == 2 ? clz_h(a) : clz_s(a);
}
template <class T>
[[gnu::always_inline]] inline BytePiece leading_signs(BytePiece a) {
  return sizeof(T) == 1 ? cls_b(a) : sizeof(T) == 2 ? cls_h(a) : cls_s(a);
}

/// Elements of T of which each is a read of its own of the M at `address`, extended by the signedness of M.
template <class T, class M, std::size_t... E>
[[gnu::always_inline]] inline BytePiece repeated_reads(std::uint64_t address, std::index_sequence<E...>) {
  BytePiece r{};
  const auto read = [&]<std::size_t Place>(std::integral_constant<std::size_t, Place>) {
    if constexpr (sizeof(M) == 1) asm volatile("ld1 {%0.b}[%1], [%2]" : "+w"(r) : "i"(Place), "r"(address) : "memory");
    if constexpr (sizeof(M) == 2) asm volatile("ld1 {%0.h}[%1], [%2]" : "+w"(r) : "i"(Place), "r"(address) : "memory");
    if constexpr (sizeof(M) == 4) asm volatile("ld1 {%0.s}[%1], [%2]" : "+w"(r) : "i"(Place), "r"(address) : "memory");
    if constexpr (sizeof(M) == 8) asm volatile("ld1 {%0.d}[%1], [%2]" : "+w"(r) : "i"(Place), "r"(address) : "memory");
  };
  (read(std::integral_constant<std::size_t, E * sizeof(T) / sizeof(M)>{}), ...);
  if constexpr (std::is_signed_v<M> && sizeof(M) < sizeof(T)) {
    constexpr int above = 8 * (sizeof(T) - sizeof(M));
    r = reinterpret_cast<BytePiece>(
        reinterpret_cast<Elements<std::make_signed_t<T>>>(reinterpret_cast<UnsignedElements<T>>(r) << above) >> above);
  }
  return r;
}
inline constexpr bool reads_elements = true;
template <class T, class M>
[[gnu::always_inline]] inline BytePiece repeated_reads(std::uint64_t address) {
  return repeated_reads<T, M>(address, std::make_index_sequence<16 / sizeof(T)>{});
}

}  // namespace native

/// During the life of one the status register may be changed; afterwards it is as it was.
class StatusKept {
 public:
  StatusKept() {
    std::uint64_t status;  // in a register
    asm volatile("mrs %0, fpsr" : "=r"(status));
    status_ = status;
  }
  ~StatusKept() { asm volatile("msr fpsr, %0" : : "r"(status_)); }
  StatusKept(const StatusKept&) = delete;
  StatusKept& operator=(const StatusKept&) = delete;

 private:
  std::uint64_t status_;
};

/// The operation `one` on elements with the expression on pieces a, b, c of `Element`; elsewhere `one` alone.
#define SVE_BY_PIECES(parameters, expression, ...)                                   \
  ::sve::ByPieces(__VA_ARGS__, [](auto element, SVE_PIECE_PARAMETERS_##parameters) { \
    using Element [[maybe_unused]] = decltype(element);                              \
    return expression;                                                               \
  })
#else
namespace native {
inline constexpr bool reads_elements = false;
template <class T, class M>
BytePiece repeated_reads(std::uint64_t address);
}  // namespace native
struct StatusKept {};
#define SVE_BY_PIECES(parameters, expression, ...) __VA_ARGS__
#endif
#define SVE_PIECE_PARAMETERS_1 ::sve::BytePiece a
#define SVE_PIECE_PARAMETERS_2 ::sve::BytePiece a, ::sve::BytePiece b
#define SVE_PIECE_PARAMETERS_3 ::sve::BytePiece a, ::sve::BytePiece b, ::sve::BytePiece c

}  // namespace sve
