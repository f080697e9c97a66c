// Floating point by the processor, in vectors of sixteen bytes: where the host is AArch64, the operations of the
// library that one of its instructions computes, under the library's names, so that one expression serves both. No bit
// of a result and no flag tells which of the two has run. Elsewhere `exists` is false, and nothing here is ever
// instantiated.
//
// Each operation is one `asm volatile`: the compiler may neither fold it, contract it with another, nor move it across
// the accesses to the control and status registers, which are of the same kind.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#if defined(__aarch64__)
#include <arm_neon.h>
#endif

#include "sve/fplib/fplib.h"
#include "sve/fplib/lane_loops.h"

namespace sve::processor {

#if defined(__aarch64__)
inline constexpr bool exists = true;
#else
inline constexpr bool exists = false;
#endif

/// The sizes in bytes, added up, of the elements that the processor computes; none until `initialize` has looked. Half
/// precision is missing in the first version of the architecture, all but its conversions to the other formats.
[[gnu::visibility("hidden")]] extern unsigned widths;

/// Called once at start.
void initialize();

/// Whether the processor computes with elements of T.
template <class T>
inline bool computes() {
  return exists && (widths & sizeof(T));
}

/// Sixteen bytes of elements of T, raw bits.
template <class T>
struct Piece {
  static constexpr std::size_t count = 16 / sizeof(T);
  using Element = std::type_identity_t<T>;
  typedef Element Bits [[gnu::vector_size(16)]];
  typedef std::make_signed_t<T> SignedBits [[gnu::vector_size(16)]];
  Bits bits;

  Piece() = default;
  explicit Piece(Bits b) : bits(b) {}
  /// The same value in each element.
  template <class Value>
  requires std::is_integral_v<Value> Piece(Value value) : bits(Bits{} + static_cast<T>(value)) {}
  [[gnu::always_inline]] static Piece load(const std::uint8_t* bytes) {
    Piece r;
    std::memcpy(&r.bits, bytes, 16);
    return r;
  }
  [[gnu::always_inline]] void store(std::uint8_t* bytes) const { std::memcpy(bytes, &bits, 16); }
  /// Its elements as those of another type.
  template <class U>
  [[gnu::always_inline]] Piece<U> as() const {
    return Piece<U>(reinterpret_cast<typename Piece<U>::Bits>(bits));
  }
};

/// All ones where a compare holds, otherwise 0.
template <class T>
struct Truth {
  typename Piece<T>::Bits bits;
  Truth operator!() const { return {~bits}; }
};

template <class T>
[[gnu::always_inline]] inline typename Piece<T>::Bits select(typename Piece<T>::Bits mask, typename Piece<T>::Bits a,
                                                             typename Piece<T>::Bits b) {
  return (a & mask) | (b & ~mask);
}

/// Operations on pieces run under the processor's control and status registers as they stand.
struct Live {};

/// During the life of one the registers are those of an operation under `fpcr`: FPCR holds the controls that count of
/// `fpcr`, and no trap enables; FPSR starts clear. Both are the caller's again afterwards.
class Control : public Live {
 public:
  explicit Control(FPSCR fpcr);
  ~Control();
  Control(const Control&) = delete;
  Control& operator=(const Control&) = delete;
  /// The flags that were raised.
  FPSCR raised() const;

 private:
  std::uint64_t control_, callers_control_, callers_status_;
};

/// Pieces whose adjacent elements are operands of each other: op(a, b) is that of the pairs of a, then of those of b.
template <class T>
struct Pairs {
  Piece<T> elements;
};

// ---- Operations without status ----

template <class T>
[[gnu::always_inline]] inline Piece<T> FPNeg(Piece<T> a) {
  return Piece<T>(a.bits ^ Format<T>::sign);
}
template <class T>
[[gnu::always_inline]] inline Piece<T> magnitude_of(Piece<T> a) {
  return Piece<T>(a.bits & static_cast<T>(~Format<T>::sign));
}

#if defined(__aarch64__)

inline Control::Control(FPSCR fpcr) : control_(fpcr & (7u << 24 | 3u << 22 | fpscr_fz16)) {
  asm volatile("mrs %0, fpcr\n\tmrs %1, fpsr\n\tmsr fpsr, xzr"
               : "=r"(callers_control_), "=r"(callers_status_)
               :
               : "memory");
  if (control_ != callers_control_) asm volatile("msr fpcr, %0" : : "r"(control_) : "memory");
}
inline Control::~Control() {
  if (control_ != callers_control_) asm volatile("msr fpcr, %0" : : "r"(callers_control_) : "memory");
  asm volatile("msr fpsr, %0" : : "r"(callers_status_) : "memory");
}
inline FPSCR Control::raised() const {
  std::uint64_t status;
  asm volatile("mrs %0, fpsr" : "=r"(status) : : "memory");
  return static_cast<FPSCR>(status & 0x9f);
}

// The arrangement of a piece stands in the text of an instruction.
#define SVE_PIECE_ASM(h, s, d, ...)                                                         \
  do {                                                                                      \
    if constexpr (sizeof(T) == 2) asm volatile(".arch_extension fp16\n\t" h : __VA_ARGS__); \
    if constexpr (sizeof(T) == 4) asm volatile(s : __VA_ARGS__);                            \
    if constexpr (sizeof(T) == 8) asm volatile(d : __VA_ARGS__);                            \
  } while (false)
#define SVE_PIECE_UNARY(name, instruction)                                                                            \
  template <class T>                                                                                                  \
  [[gnu::always_inline]] inline Piece<T> name(Piece<T> a, Live) {                                                     \
    Piece<T> r;                                                                                                       \
    SVE_PIECE_ASM(instruction " %0.8h, %1.8h", instruction " %0.4s, %1.4s", instruction " %0.2d, %1.2d", "=w"(r.bits) \
                  : "w"(a.bits));                                                                                     \
    return r;                                                                                                         \
  }
#define SVE_PIECE_BINARY_OF(Result, name, instruction)                                    \
  template <class T>                                                                      \
  [[gnu::always_inline]] inline Result<T> name(Piece<T> a, Piece<T> b, Live) {            \
    Result<T> r;                                                                          \
    SVE_PIECE_ASM(instruction " %0.8h, %1.8h, %2.8h", instruction " %0.4s, %1.4s, %2.4s", \
                  instruction " %0.2d, %1.2d, %2.2d", "=w"(r.bits)                        \
                  : "w"(a.bits), "w"(b.bits));                                            \
    return r;                                                                             \
  }
#define SVE_PIECE_BINARY(name, instruction) SVE_PIECE_BINARY_OF(Piece, name, instruction)

SVE_PIECE_BINARY(FPAdd, "fadd")
SVE_PIECE_BINARY(FPSub, "fsub")
SVE_PIECE_BINARY(FPMul, "fmul")
SVE_PIECE_BINARY(FPMulX, "fmulx")
SVE_PIECE_BINARY(FPDiv, "fdiv")
SVE_PIECE_BINARY(FPMax, "fmax")
SVE_PIECE_BINARY(FPMin, "fmin")
SVE_PIECE_BINARY(FPMaxNum, "fmaxnm")
SVE_PIECE_BINARY(FPMinNum, "fminnm")
SVE_PIECE_BINARY(FPRecipStepFused, "frecps")
SVE_PIECE_BINARY(FPRSqrtStepFused, "frsqrts")
SVE_PIECE_UNARY(FPSqrt, "fsqrt")
SVE_PIECE_UNARY(FPRecipEstimate, "frecpe")
SVE_PIECE_UNARY(FPRSqrtEstimate, "frsqrte")

SVE_PIECE_BINARY_OF(Truth, FPCompareEQ, "fcmeq")
SVE_PIECE_BINARY_OF(Truth, FPCompareGE, "fcmge")
SVE_PIECE_BINARY_OF(Truth, FPCompareGT, "fcmgt")
/// A number equals itself, and nothing but a signalling NaN raises invalid.
template <class T>
[[gnu::always_inline]] inline Truth<T> FPCompareUN(Piece<T> a, Piece<T> b, Live control) {
  return {~(FPCompareEQ(a, a, control).bits & FPCompareEQ(b, b, control).bits)};
}

/// c + a * b, the addend first.
template <class T>
[[gnu::always_inline]] inline Piece<T> FPMulAdd(Piece<T> c, Piece<T> a, Piece<T> b, Live) {
  SVE_PIECE_ASM("fmla %0.8h, %1.8h, %2.8h", "fmla %0.4s, %1.4s, %2.4s", "fmla %0.2d, %1.2d, %2.2d", "+w"(c.bits)
                : "w"(a.bits), "w"(b.bits));
  return c;
}

#define SVE_PIECE_PAIRS(name, instruction)                                                \
  template <class T>                                                                      \
  [[gnu::always_inline]] inline Pairs<T> name(Pairs<T> a, Pairs<T> b, Live) {             \
    Pairs<T> r;                                                                           \
    SVE_PIECE_ASM(instruction " %0.8h, %1.8h, %2.8h", instruction " %0.4s, %1.4s, %2.4s", \
                  instruction " %0.2d, %1.2d, %2.2d", "=w"(r.elements.bits)               \
                  : "w"(a.elements.bits), "w"(b.elements.bits));                          \
    return r;                                                                             \
  }
SVE_PIECE_PAIRS(FPAdd, "faddp")
SVE_PIECE_PAIRS(FPMax, "fmaxp")
SVE_PIECE_PAIRS(FPMin, "fminp")
SVE_PIECE_PAIRS(FPMaxNum, "fmaxnmp")
SVE_PIECE_PAIRS(FPMinNum, "fminnmp")
#undef SVE_PIECE_PAIRS

/// a[0] + b in element 0 alone.
template <class T>
[[gnu::always_inline]] inline Piece<T> add_first(Piece<T> a, T b, Live) {
  const Piece<T> addend(typename Piece<T>::Bits{b});
  SVE_PIECE_ASM("fadd %h0, %h0, %h1", "fadd %s0, %s0, %s1", "fadd %d0, %d0, %d1", "+w"(a.bits) : "w"(addend.bits));
  return a;
}

// ---- Rounding to integral, and conversions of the low parts of slots, whose results fill the slots ----

SVE_PIECE_UNARY(round_ties_even, "frintn")
SVE_PIECE_UNARY(round_up, "frintp")
SVE_PIECE_UNARY(round_down, "frintm")
SVE_PIECE_UNARY(round_towards_zero, "frintz")
SVE_PIECE_UNARY(round_ties_away, "frinta")
SVE_PIECE_UNARY(round_by_control, "frinti")
SVE_PIECE_UNARY(round_exactly, "frintx")
SVE_PIECE_UNARY(from_signed, "scvtf")
SVE_PIECE_UNARY(from_unsigned, "ucvtf")
SVE_PIECE_UNARY(to_signed, "fcvtzs")
SVE_PIECE_UNARY(to_unsigned, "fcvtzu")

/// As the function for one element; the rounding that FPCR selects is known to `round_by_control` and `round_exactly`.
template <class T>
[[gnu::always_inline]] inline Piece<T> FPRoundInt(Piece<T> a, FPRounding rounding, bool, Live control) {
  switch (rounding) {
    case FPRounding_PosInf:
      return round_up(a, control);
    case FPRounding_NegInf:
      return round_down(a, control);
    case FPRounding_Zero:
      return round_towards_zero(a, control);
    case FPRounding_TiesAway:
      return round_ties_away(a, control);
    default:
      return round_ties_even(a, control);
  }
}

/// Between formats. By way of single precision where that is exact.
template <class From, class To, class Slot>
[[gnu::always_inline]] inline Piece<Slot> convert(Piece<Slot> a, Live) {
  Piece<Slot> r, other;
  constexpr int from = sizeof(From), to = sizeof(To);
  if constexpr (from == 2 && to == 4)
    asm volatile("xtn %0.4h, %1.4s\n\tfcvtl %0.4s, %0.4h" : "=w"(r.bits) : "w"(a.bits));
  if constexpr (from == 4 && to == 8)
    asm volatile("xtn %0.2s, %1.2d\n\tfcvtl %0.2d, %0.2s" : "=w"(r.bits) : "w"(a.bits));
  if constexpr (from == 2 && to == 8)
    asm volatile(
        "xtn %0.2s, %1.2d\n\txtn %0.4h, %0.4s\n\tfcvtl %0.4s, "
        "%0.4h\n\tfcvtl %0.2d, %0.2s"
        : "=w"(r.bits)
        : "w"(a.bits));
  if constexpr (from == 4 && to == 2)
    asm volatile("fcvtn %0.4h, %1.4s\n\tuxtl %0.4s, %0.4h" : "=w"(r.bits) : "w"(a.bits));
  if constexpr (from == 8 && to == 4)
    asm volatile("fcvtn %0.2s, %1.2d\n\tuxtl %0.2d, %0.2s" : "=w"(r.bits) : "w"(a.bits));
  if constexpr (from == 8 && to == 2)  // not in two steps, which would round twice
    asm volatile(
        "dup %d1, %2.d[1]\n\tfcvt %h0, %d2\n\tfcvt %h1, %d1\n\tins "
        "%0.d[1], %1.d[0]"
        : "=&w"(r.bits), "=&w"(other.bits)
        : "w"(a.bits));
  return r;
}

// ---- What only a register of one element has ----

/// Each element of a piece by itself.
template <class T, class One>
[[gnu::always_inline]] inline Piece<T> one_by_one(Piece<T> a, One one) {
  for (std::size_t e = 0; e < Piece<T>::count; ++e) a.bits[e] = one(a.bits[e]);
  return a;
}

template <class T>
[[gnu::always_inline]] inline Piece<T> FPRecpX(Piece<T> a, Live) {
  return one_by_one(a, [](T x) {
    // Through a whole register, since raw bits of 16 have no home of their own among the floating-point ones.
    const Piece<T> from(x);
    Piece<T> r;
    SVE_PIECE_ASM("frecpx %h0, %h1", "frecpx %s0, %s1", "frecpx %d0, %d1", "=w"(r.bits) : "w"(from.bits));
    return r.bits[0];
  });
}

/// From integers, and to them towards zero.
template <class Integer, class To, class Slot>
[[gnu::always_inline]] inline Piece<Slot> from_integer(Piece<Slot> a, Live control) {
  constexpr bool is_signed = std::is_signed_v<Integer>;
  if constexpr (sizeof(To) == sizeof(Slot)) {
    for (std::size_t e = 0; e < Piece<Slot>::count; ++e) a.bits[e] = static_cast<Slot>(static_cast<Integer>(a.bits[e]));
    return is_signed ? from_signed(a, control) : from_unsigned(a, control);
  } else {
    return one_by_one(a, [](Slot x) {
      typename Piece<To>::Bits r;
      using Wide = std::conditional_t<is_signed, std::int64_t, std::uint64_t>;
      const Wide value = static_cast<Integer>(x);
      if constexpr (sizeof(To) == 2 && is_signed)
        asm volatile(".arch_extension fp16\n\tscvtf %h0, %x1" : "=w"(r) : "r"(value));
      if constexpr (sizeof(To) == 2 && !is_signed)
        asm volatile(".arch_extension fp16\n\tucvtf %h0, %x1" : "=w"(r) : "r"(value));
      if constexpr (sizeof(To) == 4 && is_signed) asm volatile("scvtf %s0, %x1" : "=w"(r) : "r"(value));
      if constexpr (sizeof(To) == 4 && !is_signed) asm volatile("ucvtf %s0, %x1" : "=w"(r) : "r"(value));
      return static_cast<Slot>(r[0]);
    });
  }
}

template <class From, class Integer, class Slot>
[[gnu::always_inline]] inline Piece<Slot> to_integer(Piece<Slot> a, Live control) {
  constexpr bool is_signed = std::is_signed_v<Integer>;
  if constexpr (sizeof(Integer) == sizeof(Slot) && (sizeof(From) == sizeof(Slot) || sizeof(From) == 4)) {
    if constexpr (sizeof(From) != sizeof(Slot)) a = convert<From, Slot>(a, control);
    return is_signed ? to_signed(a, control) : to_unsigned(a, control);
  } else {
    return one_by_one(a, [](Slot x) {
      const typename Piece<Slot>::Bits from{x};
      Integer r;
#define SVE_TO_INTEGER(from_size, to_size, text)                                       \
  if constexpr (sizeof(From) == from_size && sizeof(Integer) == to_size && is_signed)  \
    asm volatile(".arch_extension fp16\n\tfcvtzs " text : "=r"(r) : "w"(from));        \
  if constexpr (sizeof(From) == from_size && sizeof(Integer) == to_size && !is_signed) \
    asm volatile(".arch_extension fp16\n\tfcvtzu " text : "=r"(r) : "w"(from));
      SVE_TO_INTEGER(2, 4, "%w0, %h1")
      SVE_TO_INTEGER(2, 8, "%x0, %h1")
      SVE_TO_INTEGER(8, 4, "%w0, %d1")
#undef SVE_TO_INTEGER
      return static_cast<Slot>(r);
    });
  }
}

// ---- Predicates from compares ----

/// The first bits of the elements that compared true, of sixteen.
template <class T>
[[gnu::always_inline]] inline std::uint64_t first_bits(Truth<T> truth) {
  if constexpr (sizeof(T) == 2) {
    const typename Piece<T>::Bits bits = {1, 4, 16, 64, 256, 1024, 4096, 16384};
    return vaddvq_u16(reinterpret_cast<uint16x8_t>(truth.bits & bits));
  } else if constexpr (sizeof(T) == 4) {
    const typename Piece<T>::Bits bits = {1, 0x10, 0x100, 0x1000};
    return vaddvq_u32(reinterpret_cast<uint32x4_t>(truth.bits & bits));
  } else {
    const typename Piece<T>::Bits bits = {1, 0x100};
    return vaddvq_u64(reinterpret_cast<uint64x2_t>(truth.bits & bits));
  }
}

// ---- Scaling, of which only the last of three steps can be inexact ----

/// a times 2 to the power of the elements of b, which are signed integers. Any power is the product of three that the
/// format has, or leads past its range. Upwards each step is exact or overflows, as the whole does. Downwards a step is
/// exact, or what it leaves is so small that the next ones round it as they round any such value.
template <class T>
[[gnu::always_inline]] inline Piece<T> scaled(Piece<T> a, Piece<T> b, Live control) {
  using Signed = typename Piece<T>::SignedBits;
  const Signed highest = Signed{} + Format<T>::bias, lowest = Signed{} + (1 - Format<T>::bias);
  const auto clamped = [&](Signed x) {
    x = x < highest ? x : highest;
    return x > lowest ? x : lowest;
  };
  const auto power = [&](Signed x) {
    return Piece<T>(reinterpret_cast<typename Piece<T>::Bits>((x + highest) << Format<T>::fraction_bits));
  };
  const Signed whole = reinterpret_cast<Signed>(b.bits), last = clamped(whole), before = clamped(whole - last),
               first = clamped(whole - last - before);
  return FPMul(FPMul(FPMul(a, power(first), control), power(before), control), power(last), control);
}

// ---- The accelerators, whose parts are operations above ----

template <class T>
[[gnu::always_inline]] inline Piece<T> FPTRIMADD(unsigned long index, Piece<T> a, Piece<T> b, Live control) {
  using Bits = typename Piece<T>::Bits;
  const Bits cosine = reinterpret_cast<Bits>((b.bits & Format<T>::sign) != 0);
  const Piece<T> coefficient(select<T>(cosine, Piece<T>(trigonometric_coefficients<T>[(index & 7) + 8]).bits,
                                       Piece<T>(trigonometric_coefficients<T>[index & 7]).bits));
  return FPMulAdd(coefficient, a, magnitude_of(b), control);
}

template <class T>
[[gnu::always_inline]] inline Piece<T> FPTRISMUL(Piece<T> a, Piece<T> b, Live control) {
  const Piece<T> square = FPMul(a, a, control);
  using Bits = typename Piece<T>::Bits;
  // A NaN keeps its sign; the square of anything else has none.
  const Bits number = reinterpret_cast<Bits>(magnitude_of(square).bits <= Format<T>::infinity);
  return Piece<T>(square.bits | ((b.bits << static_cast<T>(Format<T>::width - 1)) & number));
}

#undef SVE_PIECE_ASM
#undef SVE_PIECE_UNARY
#undef SVE_PIECE_BINARY
#undef SVE_PIECE_BINARY_OF

#endif

// ---- The loops over whole vectors ----

/// Masks of a piece's elements from the predicate bits of a vector.
template <class T>
[[gnu::always_inline]] inline typename Piece<T>::Bits piece_mask(const ActiveBits& active, std::size_t piece) {
  using Bits = typename Piece<T>::Bits;
  const Bits bits = Bits{} + static_cast<T>(active.words[piece / 4] >> (16 * (piece % 4)));
  if constexpr (sizeof(T) == 2)
    return reinterpret_cast<Bits>((bits & Bits{1, 4, 16, 64, 256, 1024, 4096, 16384}) != 0);
  else if constexpr (sizeof(T) == 4)
    return reinterpret_cast<Bits>((bits & Bits{1, 0x10, 0x100, 0x1000}) != 0);
  else
    return reinterpret_cast<Bits>((bits & Bits{1, 0x100}) != 0);
}

/// The same from the byte form of a predicate.
template <class T>
[[gnu::always_inline]] inline typename Piece<T>::Bits piece_mask(const std::uint8_t* predicate) {
  using Bits = typename Piece<T>::Bits;
  return reinterpret_cast<Bits>((Piece<T>::load(predicate).bits & Piece<T>(T{1}).bits) != 0);
}

/// The bits of a predicate word that decide over elements of T.
template <class T>
inline constexpr std::uint64_t deciding_bits = ~std::uint64_t{0} / ((std::uint64_t{1} << sizeof(T)) - 1);

template <class T>
[[gnu::always_inline]] inline bool any_active(const ActiveBits& active) {
  return ((active.words[0] | active.words[1] | active.words[2] | active.words[3]) & deciding_bits<T>) != 0;
}
template <class T>
[[gnu::always_inline]] inline bool every_active(const ActiveBits& active, std::size_t bytes) {
  std::uint64_t missing = 0;
  for (std::size_t w = 0; w < 4; ++w) missing |= ActiveBits::below(bytes, w) & ~active.words[w];
  return (missing & deciding_bits<T>) == 0;
}

/// Which bytes of a vector are active, by bit 0 of a byte each; the vector is whole pieces.
struct ActiveBytes {
  const std::uint8_t* bytes;
};
/// Every byte is.
struct AllActive {};

template <class T>
[[gnu::always_inline]] inline typename Piece<T>::Bits piece_mask(ActiveBytes active, std::size_t piece) {
  return piece_mask<T>(active.bytes + 16 * piece);
}
template <class T>
[[gnu::always_inline]] inline bool any_of(typename Piece<T>::Bits bits) {
#if defined(__aarch64__)
  return vmaxvq_u32(reinterpret_cast<uint32x4_t>(bits)) != 0;
#else
  return Piece<T>(bits).template as<std::uint64_t>().bits[0] != 0;  // never instantiated
#endif
}
template <class T>
[[gnu::always_inline]] inline bool every_active(ActiveBytes active, std::size_t bytes) {
  typename Piece<T>::Bits all = Piece<T>(T{1}).bits;
#pragma GCC unroll 8
  for (std::size_t i = 0; i < bytes; i += 16) all &= Piece<T>::load(active.bytes + i).bits;
  return !any_of<T>(all ^ Piece<T>(T{1}).bits);
}
template <class T>
[[gnu::always_inline]] inline bool every_active(AllActive, std::size_t) {
  return true;
}

/// A piece of a vector of `bytes` bytes; where only half of it is below the end, that half twice, which raises the
/// same.
template <class T>
[[gnu::always_inline]] inline Piece<T> piece_of(const std::uint8_t* vector, std::size_t i, std::size_t bytes) {
  Piece<T> r = Piece<T>::load(vector + 16 * i);
  if (16 * i + 8 >= bytes) {
    typename Piece<std::uint64_t>::Bits halves = r.template as<std::uint64_t>().bits;
    halves[1] = halves[0];
    r = Piece<std::uint64_t>(halves).template as<T>();
  }
  return r;
}

/// What an inactive element computes with: 1.0, which no operation raises anything for, or 0 among integers.
template <class T>
inline constexpr T harmless = static_cast<T>(T{Format<T>::bias} << Format<T>::fraction_bits);

/// What operations raised, and whether any element was active.
struct Raised {
  FPSCR flags;
  bool any_active;
};

/// finish(i, mask, op(src piece..., control)) for each piece of vectors of `bytes` bytes, a multiple of 8. `mask` is
/// that of the active elements, or `no_mask` where all are.
struct no_mask {};
template <class T, class Activity, class Op, class Finish, class... Sources>
[[gnu::always_inline]] inline Raised for_each_piece(FPSCR fpcr, const Activity& active, std::size_t bytes, T inactive,
                                                    Op op, Finish finish, const Sources*... src) {
  Control control(fpcr);
  const std::size_t pieces = (bytes + 15) / 16;
  if (every_active<T>(active, bytes)) [[likely]] {
#pragma GCC unroll 8
    for (std::size_t i = 0; i < pieces; ++i) finish(i, no_mask{}, op(piece_of<T>(src, i, bytes)..., control));
    return {control.raised(), bytes != 0};
  }
  typename Piece<T>::Bits any{};
  if constexpr (!std::is_same_v<Activity, AllActive>) {
#pragma GCC unroll 8
    for (std::size_t i = 0; i < pieces; ++i) {
      const auto mask = piece_mask<T>(active, i);
      any |= mask;
      finish(i, mask,
             op(Piece<T>(select<T>(mask, Piece<T>::load(src + 16 * i).bits, Piece<T>(inactive).bits))..., control));
    }
  }
  return {control.raised(), any_of<T>(any)};
}

/// dst[e] = active ? op(src[e]..., control) : old[e].
template <class T, class Activity, class Op, class... Sources>
[[gnu::always_inline]] inline Raised merge_pieces(FPSCR fpcr, std::uint8_t* dst, const std::uint8_t* old,
                                                  const Activity& active, std::size_t bytes, T inactive, Op op,
                                                  const Sources*... src) {
  return for_each_piece<T>(
      fpcr, active, bytes, inactive, op,
      [dst, old](std::size_t i, auto mask, Piece<T> computed) {
        if constexpr (!std::is_same_v<decltype(mask), no_mask>)
          computed = Piece<T>(select<T>(mask, computed.bits, Piece<T>::load(old + 16 * i).bits));
        computed.store(dst + 16 * i);
      },
      src...);
}

/// Sets the first bit of each active element that compares true in `words`, and clears all others.
template <class T, class Test, class... Sources>
[[gnu::always_inline]] inline Raised compare_pieces(FPSCR fpcr, std::uint64_t* words, const ActiveBits& active,
                                                    std::size_t bytes, Test test, const Sources*... src) {
  std::uint64_t found[4] = {};
  const Raised raised = for_each_piece<T>(
      fpcr, active, bytes, harmless<T>, test,
      [&found](std::size_t i, auto, Truth<T> truth) { found[i / 4] |= first_bits(truth) << (16 * (i % 4)); }, src...);
  for (std::size_t w = 0; w < 4; ++w) words[w] = found[w] & active.words[w];
  return raised;
}
/// The same to bytes of 0 and 1.
template <class T, class Test, class... Sources>
[[gnu::always_inline]] inline Raised compare_pieces(FPSCR fpcr, std::uint8_t* dst, ActiveBytes active,
                                                    std::size_t bytes, Test test, const Sources*... src) {
  return for_each_piece<T>(
      fpcr, active, bytes, harmless<T>, test,
      [dst](std::size_t i, auto mask, Truth<T> truth) {
        auto found = truth.bits & Piece<T>(T{1}).bits;
        if constexpr (!std::is_same_v<decltype(mask), no_mask>) found &= mask;
        Piece<T>(found).store(dst + 16 * i);
      },
      src...);
}

/// The result of a balanced tree of adjacent pairs, `width` elements wide, a power of two, over a vector of `bytes`
/// bytes. Inactive ones, and those above the vector, are `pad`.
template <class T, class Activity, class Op>
[[gnu::always_inline]] inline T reduce_pieces(Control& control, const std::uint8_t* vector, const Activity& active,
                                              std::size_t bytes, std::size_t width, T pad, Op op) {
  Pairs<T> pieces[16];
  std::size_t n = width <= Piece<T>::count ? 1 : width / Piece<T>::count;
#pragma GCC unroll 8
  for (std::size_t i = 0; i < n; ++i) {
    typename Piece<T>::Bits elements = Piece<T>(pad).bits;
    if (16 * i < bytes) elements = select<T>(piece_mask<T>(active, i), Piece<T>::load(vector + 16 * i).bits, elements);
    pieces[i] = {Piece<T>(elements)};
  }
  for (; n > 1; n /= 2, width /= 2)
#pragma GCC unroll 8
    for (std::size_t k = 0; k < n / 2; ++k) pieces[k] = op(pieces[2 * k], pieces[2 * k + 1], control);
  for (; width > 1; width /= 2) pieces[0] = op(pieces[0], pieces[0], control);
  return pieces[0].elements.bits[0];
}

}  // namespace sve::processor
