// The operations of the floating-point library on pieces, by the instructions of an AArch64 host: with every result and
// flag right.
//
// Each operation is one `asm volatile`: the compiler may neither fold it, contract it with another, nor move it across
// the accesses to the control and status registers, which are of the same kind.
#pragma once

#include <arm_neon.h>

#include "sve/processor/pieces.h"

namespace sve::processor {

inline constexpr bool exists = true;
/// Every result is given.
inline constexpr bool settles_all = true;

/// Operations on pieces run under the processor's control and status registers as they stand.
struct Live {};

/// During the life of one the registers are those of an operation under `fpcr`: FPCR holds the controls that count of
/// `fpcr`, and no trap enables; FPSR starts clear. Both are the caller's again afterwards.
class Control : public Live {
 public:
  /// What has been raised already does not matter.
  explicit Control(FPSCR fpcr, FPSCR = 0);
  ~Control();
  Control(const Control&) = delete;
  Control& operator=(const Control&) = delete;
  /// The flags that were raised.
  FPSCR raised() const;
  bool settled() const { return true; }

 private:
  std::uint64_t control_, callers_control_, callers_status_;
};

/// How an operation is told what it runs under.
using Under = Live;

/// Whether it computes under the controls of `fpcr`.
inline bool serves(FPSCR) { return true; }

inline Control::Control(FPSCR fpcr, FPSCR) : control_(fpcr & (7u << 24 | 3u << 22 | fpscr_fz16)) {
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

/// An address whose loads are not joined with those through others, which may be far away.
inline const std::uint8_t* own_address(const std::uint8_t* bytes) {
  asm("" : "+r"(bytes));
  return bytes;
}
/// Lets a piece be loaded here, and not where an operation needs it: between operations loads would not go in pairs.
template <class T>
[[gnu::always_inline]] inline Piece<T> in_register(Piece<T> a) {
  asm("" : "+w"(a.bits));
  return a;
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

template <class T>
[[gnu::always_inline]] inline Piece<T> FPMulAdd(Piece<T> c, Negated<T> a, Piece<T> b, Live) {
  SVE_PIECE_ASM("fmls %0.8h, %1.8h, %2.8h", "fmls %0.4s, %1.4s, %2.4s", "fmls %0.2d, %1.2d, %2.2d", "+w"(c.bits)
                : "w"(a.positive.bits), "w"(b.bits));
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
[[gnu::always_inline]] inline std::uint64_t FirstBits(Truth<T> truth) {
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

template <class T>
[[gnu::always_inline]] inline bool any_of(typename Piece<T>::Bits bits) {
  return vmaxvq_u32(reinterpret_cast<uint32x4_t>(bits)) != 0;
}

#undef SVE_PIECE_ASM
#undef SVE_PIECE_UNARY
#undef SVE_PIECE_BINARY
#undef SVE_PIECE_BINARY_OF

}  // namespace sve::processor
