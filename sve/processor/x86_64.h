// The operations of the floating-point library on pieces, by the instructions of an x86-64 host: single and double
// precision, in any rounding mode. Where the two architectures may differ, an operation reports doubt, and the library
// computes the whole vector instead:
//
// - a result that is a NaN: which operand it comes from, and the sign of the default one;
// - a result that is the smallest normal number: it is tiny here if it was so after rounding, and before rounding
// there.
//   Below that number both find it tiny, above it neither does;
// - conversions to integers that do not fit.
//
// With flushing to zero all is the library's. No other control makes a difference to results that are not NaNs.
//
// Each operation is one `asm volatile`: the compiler may neither fold it, contract it with another, nor move it across
// the accesses to MXCSR, which are of the same kind.
#pragma once

#include <immintrin.h>

#include <bit>

#include "sve/processor/pieces.h"

namespace sve::processor {

inline constexpr bool exists = true;
inline constexpr bool settles_all = false;

/// Whether it computes under the controls of `fpcr`.
inline bool serves(FPSCR fpcr) { return !(fpcr & fpscr_fz); }

/// During the life of one MXCSR rounds as `fpcr` says, and traps nothing. Its rounding and traps are the caller's again
/// afterwards; its flags need not be, by the calling convention. They gather there what `before` holds already, so that
/// it is written only where it does not fit. Reading it takes longer than all the rest: that is left out where nothing
/// depends on it, and afterwards where results tell that nothing was raised that `before` does not hold.
class Control {
 public:
  Control(FPSCR fpcr, FPSCR before) : fpcr_(fpcr), before_(before) {}
  ~Control() {
    if (entered_ && ((callers_ & ~all_flags) != wanted_ || !settled_)) write(callers_ & ~all_flags);
  }
  /// Before what depends on MXCSR.
  [[gnu::always_inline]] void enter() {
    if (entered_) return;
    entered_ = true;
    // To nearest, up, down, to zero there; to nearest, down, up, to zero here.
    constexpr unsigned roundings = 0u | 2u << 2 | 1u << 4 | 3u << 6;
    wanted_ = all_masked | (roundings >> (2 * (fpcr_ >> fpscr_rmode_shift & 3)) & 3) << 13;
    callers_ = read();
    if ((callers_ & ~all_flags) != wanted_ || (flags_of(callers_) & ~before_)) write(wanted_);
  }
  Control(const Control&) = delete;
  Control& operator=(const Control&) = delete;

  /// The flags that were raised, and some of `before`.
  FPSCR raised() const {
    if (!rounds_ || ((before_ & flag_ixc) && none(extreme_))) return 0;
    return flags_of(read());
  }
  /// Whether no operation reported doubt. Where one did, what was raised is forgotten.
  bool settled() { return settled_ = none(doubt_); }

  template <class Mask>
  [[gnu::always_inline]] void doubt(Mask mask) {
    doubt_ |= reinterpret_cast<Bits>(mask);
  }
  /// Operations whose results do not tell what they raised.
  void rounds() {
    rounds_ = true;
    extreme_ |= ~Bits{};
  }
  /// A result that raises nothing unless it is a NaN.
  template <class T>
  [[gnu::always_inline]] Piece<T> without_nan(Piece<T> r) {
    doubt(signed_magnitude(r) > static_cast<std::make_signed_t<T>>(Format<T>::infinity));
    return r;
  }
  /// A result that was rounded. One between the smallest normal number and the largest, to which overflow may round,
  /// raises at most inexact.
  template <class T>
  [[gnu::always_inline]] Piece<T> rounded(Piece<T> r) {
    using Signed = std::make_signed_t<T>;
    rounds_ = true;
    const auto above = signed_magnitude(r) - static_cast<Signed>(Format<T>::hidden);
    constexpr Signed range = static_cast<Signed>(Format<T>::infinity - Format<T>::hidden);
    doubt((above > range) | (above == 0));
    extreme_ |= reinterpret_cast<Bits>((above <= 0) | (above >= range - 1));
    return r;
  }

 private:
  typedef std::uint64_t Bits [[gnu::vector_size(16)]];
  static constexpr unsigned all_flags = 0x3f, all_masked = 0x1f80;

  template <class T>
  static auto signed_magnitude(Piece<T> r) {
    return reinterpret_cast<typename Piece<T>::SignedBits>(magnitude_of(r).bits);
  }
  static bool none(Bits mask) {
    return _mm_testz_si128(reinterpret_cast<__m128i>(mask), reinterpret_cast<__m128i>(mask));
  }
  static unsigned read() {
    unsigned csr;
    asm volatile("vstmxcsr %0" : "=m"(csr) : : "memory");
    return csr;
  }
  static void write(unsigned csr) { asm volatile("vldmxcsr %0" : : "m"(csr) : "memory"); }
  /// In their places in FPSR: bit 1 tells of subnormal operands here, and is not wanted.
  static FPSCR flags_of(unsigned csr) { return (csr & 1) | (csr >> 1 & 0x1e); }

  FPSCR fpcr_, before_;
  unsigned callers_, wanted_;
  bool entered_ = false, settled_ = true, rounds_ = false;
  Bits doubt_{}, extreme_{};
};
using Under = Control&;

template <class T>
concept Computed = sizeof(T) == 4 || sizeof(T) == 8;

#define SVE_PIECE_ASM(instruction, operands, ...)                                         \
  do {                                                                                    \
    if constexpr (sizeof(T) == 4) asm volatile(instruction "ps " operands : __VA_ARGS__); \
    if constexpr (sizeof(T) == 8) asm volatile(instruction "pd " operands : __VA_ARGS__); \
  } while (false)
#define SVE_PIECE_BINARY(name, instruction)                                               \
  template <Computed T>                                                                   \
  [[gnu::always_inline]] inline Piece<T> name(Piece<T> a, Piece<T> b, Control& control) { \
    Piece<T> r;                                                                           \
    control.enter();                                                                      \
    SVE_PIECE_ASM(instruction, "%2, %1, %0", "=x"(r.bits) : "x"(a.bits), "x"(b.bits));    \
    return control.rounded(r);                                                            \
  }
SVE_PIECE_BINARY(FPAdd, "vadd")
SVE_PIECE_BINARY(FPSub, "vsub")
SVE_PIECE_BINARY(FPMul, "vmul")
SVE_PIECE_BINARY(FPDiv, "vdiv")
#undef SVE_PIECE_BINARY

template <Computed T>
[[gnu::always_inline]] inline Piece<T> FPSqrt(Piece<T> a, Control& control) {
  Piece<T> r;
  control.enter();
  SVE_PIECE_ASM("vsqrt", "%1, %0", "=x"(r.bits) : "x"(a.bits));
  return control.rounded(r);
}

/// c + a * b, the addend first.
template <Computed T>
[[gnu::always_inline]] inline Piece<T> FPMulAdd(Piece<T> c, Piece<T> a, Piece<T> b, Control& control) {
  control.enter();
  SVE_PIECE_ASM("vfmadd231", "%2, %1, %0", "+x"(c.bits) : "x"(a.bits), "x"(b.bits));
  return control.rounded(c);
}
/// c - a * b
template <Computed T>
[[gnu::always_inline]] inline Piece<T> multiply_subtract(Piece<T> c, Piece<T> a, Piece<T> b, Control& control) {
  control.enter();
  SVE_PIECE_ASM("vfnmadd231", "%2, %1, %0", "+x"(c.bits) : "x"(a.bits), "x"(b.bits));
  return control.rounded(c);
}

/// The value of a small constant.
template <class T>
[[gnu::always_inline]] inline Piece<T> number(double value) {
  if constexpr (sizeof(T) == 4) return Piece<T>(std::bit_cast<std::uint32_t>(static_cast<float>(value)));
  if constexpr (sizeof(T) == 8) return Piece<T>(std::bit_cast<std::uint64_t>(value));
}

/// Of infinity and zero it is 2, and here a NaN.
template <Computed T>
[[gnu::always_inline]] inline Piece<T> FPRecipStepFused(Piece<T> a, Piece<T> b, Control& control) {
  return multiply_subtract(number<T>(2), a, b, control);
}
/// The difference is halved exactly, unless it is too large before: then its half may not be.
template <Computed T>
[[gnu::always_inline]] inline Piece<T> FPRSqrtStepFused(Piece<T> a, Piece<T> b, Control& control) {
  const Piece<T> difference = multiply_subtract(number<T>(3), a, b, control);
  control.doubt(magnitude_of(difference).bits >= Format<T>::largest_normal);  // what overflow rounds to
  return FPMul(difference, number<T>(0.5), control);
}

// ---- Minimum and maximum: which of two is larger is a matter of integers, with -0 below +0 ----

/// As a signed integer that orders as the value does.
template <class T>
[[gnu::always_inline]] inline typename Piece<T>::SignedBits ordered(Piece<T> a) {
  using Signed = typename Piece<T>::SignedBits;
  const Signed bits = reinterpret_cast<Signed>(a.bits);
  return bits ^ ((bits < 0) & static_cast<std::make_signed_t<T>>(Format<T>::magnitude_mask));
}
template <Computed T>
[[gnu::always_inline]] inline Piece<T> larger(Piece<T> a, Piece<T> b, Piece<T> if_so, Piece<T> if_not,
                                              Control& control) {
  control.without_nan(a), control.without_nan(b);
  const auto mask = reinterpret_cast<typename Piece<T>::Bits>(ordered(a) > ordered(b));
  return Piece<T>(select<T>(mask, if_so.bits, if_not.bits));
}
template <Computed T>
[[gnu::always_inline]] inline Piece<T> FPMax(Piece<T> a, Piece<T> b, Control& control) {
  return larger(a, b, a, b, control);
}
template <Computed T>
[[gnu::always_inline]] inline Piece<T> FPMin(Piece<T> a, Piece<T> b, Control& control) {
  return larger(a, b, b, a, control);
}
/// They differ where an operand is a NaN.
template <Computed T>
[[gnu::always_inline]] inline Piece<T> FPMaxNum(Piece<T> a, Piece<T> b, Control& control) {
  return FPMax(a, b, control);
}
template <Computed T>
[[gnu::always_inline]] inline Piece<T> FPMinNum(Piece<T> a, Piece<T> b, Control& control) {
  return FPMin(a, b, control);
}

// ---- Compares, which raise nothing without NaNs, on integers: then nothing depends on MXCSR ----

template <Computed T>
[[gnu::always_inline]] inline Truth<T> FPCompareEQ(Piece<T> a, Piece<T> b, Control& control) {
  control.without_nan(a), control.without_nan(b);
  const auto truth = (a.bits == b.bits) | (magnitude_of(Piece<T>(a.bits | b.bits)).bits == 0);
  return {reinterpret_cast<typename Piece<T>::Bits>(truth)};
}
/// Of doubles lanes are as fast.
template <Computed T>
requires(sizeof(T) == 4) [[gnu::always_inline]] inline Truth<T> FPCompareGT(Piece<T> a, Piece<T> b, Control& control) {
  control.without_nan(a), control.without_nan(b);
  const auto truth = (ordered(a) > ordered(b)) & (magnitude_of(Piece<T>(a.bits | b.bits)).bits != 0);
  return {reinterpret_cast<typename Piece<T>::Bits>(truth)};
}
template <Computed T>
requires(sizeof(T) == 4) [[gnu::always_inline]] inline Truth<T> FPCompareGE(Piece<T> a, Piece<T> b, Control& control) {
  return !FPCompareGT(b, a, control);
}
/// Never, or there is doubt.
template <Computed T>
[[gnu::always_inline]] inline Truth<T> FPCompareUN(Piece<T> a, Piece<T> b, Control& control) {
  control.without_nan(a), control.without_nan(b);
  return {typename Piece<T>::Bits{}};
}

// ---- Pairs ----

#define SVE_PIECE_PAIRS(name)                                                             \
  template <Computed T>                                                                   \
  [[gnu::always_inline]] inline Pairs<T> name(Pairs<T> a, Pairs<T> b, Control& control) { \
    typename Piece<T>::Bits even, odd;                                                    \
    if constexpr (sizeof(T) == 4) {                                                       \
      even = __builtin_shufflevector(a.elements.bits, b.elements.bits, 0, 2, 4, 6);       \
      odd = __builtin_shufflevector(a.elements.bits, b.elements.bits, 1, 3, 5, 7);        \
    } else {                                                                              \
      even = __builtin_shufflevector(a.elements.bits, b.elements.bits, 0, 2);             \
      odd = __builtin_shufflevector(a.elements.bits, b.elements.bits, 1, 3);              \
    }                                                                                     \
    return {name(Piece<T>(even), Piece<T>(odd), control)};                                \
  }
SVE_PIECE_PAIRS(FPAdd)
SVE_PIECE_PAIRS(FPMax)
SVE_PIECE_PAIRS(FPMin)
SVE_PIECE_PAIRS(FPMaxNum)
SVE_PIECE_PAIRS(FPMinNum)
#undef SVE_PIECE_PAIRS

/// a[0] + b in element 0; the others add zeros.
template <Computed T>
[[gnu::always_inline]] inline Piece<T> add_first(Piece<T> a, T b, Control& control) {
  return FPAdd(Piece<T>(typename Piece<T>::Bits{a.bits[0]}), Piece<T>(typename Piece<T>::Bits{b}), control);
}

// ---- Rounding to integral. A result is never the smallest normal number ----

#define SVE_PIECE_ROUND(name, immediate, checked)                                  \
  template <Computed T>                                                            \
  [[gnu::always_inline]] inline Piece<T> name(Piece<T> a, Control& control) {      \
    Piece<T> r;                                                                    \
    control.enter();                                                               \
    SVE_PIECE_ASM("vround", "$" immediate ", %1, %0", "=x"(r.bits) : "x"(a.bits)); \
    return control.checked(r);                                                     \
  }
// 8: without telling that it is inexact.
SVE_PIECE_ROUND(round_ties_even, "8", without_nan)
SVE_PIECE_ROUND(round_down, "9", without_nan)
SVE_PIECE_ROUND(round_up, "10", without_nan)
SVE_PIECE_ROUND(round_towards_zero, "11", without_nan)
SVE_PIECE_ROUND(round_by_control, "12", without_nan)
SVE_PIECE_ROUND(round_exactly, "4", rounded)
#undef SVE_PIECE_ROUND

/// Away from zero by one where at least half of it was cut off; both steps are exact. Infinities give doubt.
template <Computed T>
[[gnu::always_inline]] inline Piece<T> round_ties_away(Piece<T> a, Control& control) {
  const Piece<T> whole = round_towards_zero(a, control), rest = FPSub(a, whole, control);
  const auto away = reinterpret_cast<typename Piece<T>::Bits>(magnitude_of(rest).bits >= number<T>(0.5).bits);
  return FPAdd(whole, Piece<T>((away & number<T>(1).bits) | (a.bits & Format<T>::sign)), control);
}

// ---- Conversions of the low parts of slots, whose results fill the slots ----

[[gnu::always_inline]] inline Piece<std::uint32_t> low_words(Piece<std::uint64_t> a) {
  return Piece<std::uint32_t>(reinterpret_cast<Piece<std::uint32_t>::Bits>(
                                  _mm_shuffle_epi32(reinterpret_cast<__m128i>(a.bits), 0b11'01'10'00)) &
                              Piece<std::uint32_t>::Bits{~0u, ~0u});
}
template <class Slot>
[[gnu::always_inline]] inline Piece<std::uint16_t> low_halves(Piece<Slot> a) {
  const auto low = reinterpret_cast<__m128i>(a.bits & Slot{0xffff});
  if constexpr (sizeof(Slot) == 4)
    return Piece<std::uint16_t>(reinterpret_cast<Piece<std::uint16_t>::Bits>(_mm_packus_epi32(low, __m128i{})));
  const __m128i words = _mm_packus_epi32(low, __m128i{});
  return Piece<std::uint16_t>(reinterpret_cast<Piece<std::uint16_t>::Bits>(_mm_packus_epi32(words, __m128i{})));
}

#define SVE_PIECE_CONVERT(name, From, To, instruction)                            \
  [[gnu::always_inline]] inline Piece<To> name(Piece<From> a, Control& control) { \
    Piece<To> r;                                                                  \
    control.enter();                                                              \
    asm volatile(instruction " %1, %0" : "=x"(r.bits) : "x"(a.bits));             \
    return control.rounded(r);                                                    \
  }
SVE_PIECE_CONVERT(single_of_half, std::uint16_t, std::uint32_t, "vcvtph2ps")
SVE_PIECE_CONVERT(single_of_double, std::uint64_t, std::uint32_t, "vcvtpd2ps")
SVE_PIECE_CONVERT(half_of_single, std::uint32_t, std::uint16_t, "vcvtps2ph $4,")
SVE_PIECE_CONVERT(single_of_signed, std::uint32_t, std::uint32_t, "vcvtdq2ps")
SVE_PIECE_CONVERT(double_of_signed, std::uint32_t, std::uint64_t, "vcvtdq2pd")
#undef SVE_PIECE_CONVERT

/// Between formats. From double to half would round twice, and widening to double is faster on lanes.
template <class From, class To, class Slot>
requires(sizeof(To) < 8 && (sizeof(From) < 8 || sizeof(To) == 4))
    [[gnu::always_inline]] inline Piece<Slot> convert(Piece<Slot> a, Control& control) {
  constexpr int from = sizeof(From), to = sizeof(To);
  if constexpr (from == 2 && to == 4) {
    return single_of_half(low_halves(a), control).template as<Slot>();
  } else if constexpr (from == 4 && to == 2) {
    const auto halves = reinterpret_cast<__m128i>(half_of_single(a.template as<std::uint32_t>(), control).bits);
    return Piece<Slot>(reinterpret_cast<typename Piece<Slot>::Bits>(_mm_cvtepu16_epi32(halves)));
  } else {
    const auto singles = reinterpret_cast<__m128i>(single_of_double(a.template as<std::uint64_t>(), control).bits);
    return Piece<Slot>(reinterpret_cast<typename Piece<Slot>::Bits>(_mm_cvtepu32_epi64(singles)));
  }
}

/// From integers of 32 bits; those of 64 have no vectors.
template <class Integer, class To, class Slot>
requires(sizeof(To) >= 4 && sizeof(Integer) == 4)
    [[gnu::always_inline]] inline Piece<Slot> from_integer(Piece<Slot> a, Control& control) {
  if constexpr (sizeof(Slot) == 4 && std::is_signed_v<Integer>) {
    return single_of_signed(a.template as<std::uint32_t>(), control).template as<Slot>();
  } else if constexpr (sizeof(Integer) == 4 && sizeof(To) == 8 && std::is_signed_v<Integer>) {
    return double_of_signed(low_words(a.template as<std::uint64_t>()), control).template as<Slot>();
  } else {
    control.enter();
    control.rounds();
    return one_by_one(a, [](Slot x) {
      typename Piece<To>::Bits r{};
      const auto value = static_cast<std::int64_t>(static_cast<Integer>(x));
      if constexpr (sizeof(To) == 4) asm volatile("vcvtsi2ssq %1, %0, %0" : "+x"(r) : "r"(value));
      if constexpr (sizeof(To) == 8) asm volatile("vcvtsi2sdq %1, %0, %0" : "+x"(r) : "r"(value));
      return static_cast<Slot>(r[0]);
    });
  }
}

/// To integers of 32 bits, towards zero. The answer to what does not fit is the least one, which gives doubt.
template <class From, class Integer, class Slot>
requires(sizeof(From) >= 4 && sizeof(Integer) == 4)
    [[gnu::always_inline]] inline Piece<Slot> to_integer(Piece<Slot> a, Control& control) {
  control.enter();
  control.rounds();
  if constexpr (sizeof(Slot) == 4 && std::is_signed_v<Integer>) {
    Piece<Slot> r;
    asm volatile("vcvttps2dq %1, %0" : "=x"(r.bits) : "x"(a.bits));
    control.doubt(r.bits == Slot{1} << 31);
    return r;
  } else {
    typename Piece<std::uint64_t>::Bits doubtful{};
    const Piece<Slot> r = one_by_one(a, [&doubtful](Slot x) {
      const typename Piece<Slot>::Bits from{x};
      std::int64_t value;
      if constexpr (sizeof(From) == 4) asm volatile("vcvttss2siq %1, %0" : "=r"(value) : "x"(from));
      if constexpr (sizeof(From) == 8) asm volatile("vcvttsd2siq %1, %0" : "=r"(value) : "x"(from));
      doubtful[0] |= value != static_cast<Integer>(value);
      return static_cast<Slot>(static_cast<Integer>(value));
    });
    control.doubt(doubtful);
    return r;
  }
}

// ---- Predicates from compares ----

template <class T>
[[gnu::always_inline]] inline bool any_of(typename Piece<T>::Bits bits) {
  return !_mm_testz_si128(reinterpret_cast<__m128i>(bits), reinterpret_cast<__m128i>(bits));
}

/// The first bits of the elements that compared true, of sixteen.
template <Computed T>
[[gnu::always_inline]] inline std::uint64_t FirstBits(Truth<T> truth) {
  constexpr unsigned first = sizeof(T) == 4 ? 0x1111 : 0x101;
  return static_cast<unsigned>(_mm_movemask_epi8(reinterpret_cast<__m128i>(truth.bits))) & first;
}

#undef SVE_PIECE_ASM

}  // namespace sve::processor
