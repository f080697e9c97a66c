// The operations against the scalar and vector instructions of an AArch64 processor, under every control that both
// know. On other hosts there is nothing to compare with.
#include <gtest/gtest.h>

#include "operands.h"

#if defined(__aarch64__)

#include <sys/auxv.h>

#include <type_traits>

namespace {

using operands::Failures;
using operands::hex;
using operands::Random;

using H = unsigned short;
using S = unsigned int;
using D = unsigned long;

template <class T>
using Vector = std::conditional_t<sizeof(T) == 2, __fp16, std::conditional_t<sizeof(T) == 4, float, double>>;

template <class T>
Vector<T> as_vector(T bits) {
  return std::bit_cast<Vector<T>>(bits);
}

// Runs one instruction under a control word and gives its result and the status it left.
template <class Result, class Instruction>
Result OnProcessor(FPSCR fpscr, FPSCR& status, Instruction instruction) {
  std::uint64_t before_control, before_status, after;
  asm volatile("mrs %0, fpcr\n\tmrs %1, fpsr" : "=r"(before_control), "=r"(before_status));
  asm volatile("msr fpcr, %0\n\tmsr fpsr, xzr" : : "r"(std::uint64_t{fpscr} & operands::control_bits) : "memory");
  const Result result = instruction();
  asm volatile("mrs %0, fpsr" : "=r"(after) : : "memory");
  asm volatile("msr fpcr, %0\n\tmsr fpsr, %1" : : "r"(before_control), "r"(before_status) : "memory");
  status = static_cast<FPSCR>(after & 0x9f);
  return result;
}

// Each wrapper runs one instruction, on registers of the width of its operands' type.
#define ONE(name)                                                                                     \
  template <class T>                                                                                  \
  T name(T x) {                                                                                       \
    Vector<T> result;                                                                                 \
    if constexpr (sizeof(T) == 2) asm volatile(#name " %h0, %h1" : "=w"(result) : "w"(as_vector(x))); \
    if constexpr (sizeof(T) == 4) asm volatile(#name " %s0, %s1" : "=w"(result) : "w"(as_vector(x))); \
    if constexpr (sizeof(T) == 8) asm volatile(#name " %d0, %d1" : "=w"(result) : "w"(as_vector(x))); \
    return std::bit_cast<T>(result);                                                                  \
  }
#define TWO_AS(name, h, s, d)                                                                            \
  template <class T>                                                                                     \
  T name(T x, T y) {                                                                                     \
    Vector<T> result;                                                                                    \
    if constexpr (sizeof(T) == 2) asm volatile(h : "=w"(result) : "w"(as_vector(x)), "w"(as_vector(y))); \
    if constexpr (sizeof(T) == 4) asm volatile(s : "=w"(result) : "w"(as_vector(x)), "w"(as_vector(y))); \
    if constexpr (sizeof(T) == 8) asm volatile(d : "=w"(result) : "w"(as_vector(x)), "w"(as_vector(y))); \
    return std::bit_cast<T>(result);                                                                     \
  }
#define TWO(name) TWO_AS(name, #name " %h0, %h1, %h2", #name " %s0, %s1, %s2", #name " %d0, %d1, %d2")
#define COMPARE(name)                                                                       \
  template <class T>                                                                        \
  unsigned name(T x, T y) {                                                                 \
    std::uint64_t nzcv;                                                                     \
    const auto a = as_vector(x), b = as_vector(y);                                          \
    if constexpr (sizeof(T) == 2)                                                           \
      asm volatile(#name " %h1, %h2\n\tmrs %0, nzcv" : "=r"(nzcv) : "w"(a), "w"(b) : "cc"); \
    if constexpr (sizeof(T) == 4)                                                           \
      asm volatile(#name " %s1, %s2\n\tmrs %0, nzcv" : "=r"(nzcv) : "w"(a), "w"(b) : "cc"); \
    if constexpr (sizeof(T) == 8)                                                           \
      asm volatile(#name " %d1, %d2\n\tmrs %0, nzcv" : "=r"(nzcv) : "w"(a), "w"(b) : "cc"); \
    return static_cast<unsigned>(nzcv >> 28 & 15);                                          \
  }
#define TO_FIXED(name)                                                                                       \
  template <class T, class R>                                                                                \
  R name(T x) {                                                                                              \
    R result;                                                                                                \
    const auto a = as_vector(x);                                                                             \
    if constexpr (sizeof(T) == 2 && sizeof(R) == 4) asm volatile(#name " %w0, %h1" : "=r"(result) : "w"(a)); \
    if constexpr (sizeof(T) == 4 && sizeof(R) == 4) asm volatile(#name " %w0, %s1" : "=r"(result) : "w"(a)); \
    if constexpr (sizeof(T) == 8 && sizeof(R) == 4) asm volatile(#name " %w0, %d1" : "=r"(result) : "w"(a)); \
    if constexpr (sizeof(T) == 2 && sizeof(R) == 8) asm volatile(#name " %x0, %h1" : "=r"(result) : "w"(a)); \
    if constexpr (sizeof(T) == 4 && sizeof(R) == 8) asm volatile(#name " %x0, %s1" : "=r"(result) : "w"(a)); \
    if constexpr (sizeof(T) == 8 && sizeof(R) == 8) asm volatile(#name " %x0, %d1" : "=r"(result) : "w"(a)); \
    return result;                                                                                           \
  }
#define FROM_FIXED(name)                                                                                   \
  template <class T, int fbits>                                                                            \
  T name(D x) {                                                                                            \
    Vector<T> result;                                                                                      \
    if constexpr (sizeof(T) == 2) asm volatile(#name " %h0, %x1, %2" : "=w"(result) : "r"(x), "i"(fbits)); \
    if constexpr (sizeof(T) == 4) asm volatile(#name " %s0, %x1, %2" : "=w"(result) : "r"(x), "i"(fbits)); \
    if constexpr (sizeof(T) == 8) asm volatile(#name " %d0, %x1, %2" : "=w"(result) : "r"(x), "i"(fbits)); \
    return std::bit_cast<T>(result);                                                                       \
  }

namespace processor {

ONE(fsqrt)
// clang-format off
ONE(frecpe) ONE(frsqrte) ONE(frecpx) ONE(frintn) ONE(frintp) ONE(frintm) ONE(frintz) ONE(frinta) ONE(frinti)
ONE(frintx) TWO(fadd) TWO(fsub) TWO(fmul) TWO(fmulx) TWO(fdiv) TWO(fmax) TWO(fmin) TWO(fmaxnm) TWO(fminnm)
TWO(frecps) TWO(frsqrts) COMPARE(fcmp) COMPARE(fcmpe) TO_FIXED(fcvtzs) TO_FIXED(fcvtzu) TO_FIXED(fcvtns)
TO_FIXED(fcvtnu) TO_FIXED(fcvtas) TO_FIXED(fcvtau) TO_FIXED(fcvtps) TO_FIXED(fcvtpu) TO_FIXED(fcvtms)
TO_FIXED(fcvtmu) FROM_FIXED(scvtf) FROM_FIXED(ucvtf)

template <class T>
T fmadd(T addend, T x, T y) {
  Vector<T> result;
  const auto a = as_vector(addend), b = as_vector(x), c = as_vector(y);
  if constexpr (sizeof(T) == 2) asm volatile("fmadd %h0, %h1, %h2, %h3" : "=w"(result) : "w"(b), "w"(c), "w"(a));
  if constexpr (sizeof(T) == 4) asm volatile("fmadd %s0, %s1, %s2, %s3" : "=w"(result) : "w"(b), "w"(c), "w"(a));
  if constexpr (sizeof(T) == 8) asm volatile("fmadd %d0, %d1, %d2, %d3" : "=w"(result) : "w"(b), "w"(c), "w"(a));
  return std::bit_cast<T>(result);
}
// clang-format on

template <class From, class To>
To fcvt(From x) {
  Vector<To> result;
  const auto a = as_vector(x);
  constexpr int pair = 10 * sizeof(From) + sizeof(To);
  if constexpr (pair == 42) asm volatile("fcvt %h0, %s1" : "=w"(result) : "w"(a));
  if constexpr (pair == 82) asm volatile("fcvt %h0, %d1" : "=w"(result) : "w"(a));
  if constexpr (pair == 84) asm volatile("fcvt %s0, %d1" : "=w"(result) : "w"(a));
  if constexpr (pair == 24) asm volatile("fcvt %s0, %h1" : "=w"(result) : "w"(a));
  if constexpr (pair == 28) asm volatile("fcvt %d0, %h1" : "=w"(result) : "w"(a));
  if constexpr (pair == 48) asm volatile("fcvt %d0, %s1" : "=w"(result) : "w"(a));
  return std::bit_cast<To>(result);
}

}  // namespace processor

struct Checker {
  Failures failures;
  std::uint64_t count = 0;

  template <class Library, class Instruction, class... Operands>
  void operator()(const char* name, FPSCR fpscr, Library library, Instruction instruction, Operands... values) {
    FPSCR status = 0, working = fpscr & operands::control_bits;
    const auto expected =
        OnProcessor<decltype(instruction(values...))>(fpscr, status, [&] { return instruction(values...); });
    const auto value = library(values..., working);
    ++count;
    if (value == expected && (working & 0x9f) == status) return;
    std::string text = std::string(name) + "(";
    ((text += hex(static_cast<std::uint64_t>(values)) + " "), ...);
    failures.add(text + ") under " + hex(fpscr & operands::control_bits) + " gives " +
                 hex(static_cast<std::uint64_t>(value)) + " and " + hex(working & 0x9f) + ", the processor " +
                 hex(static_cast<std::uint64_t>(expected)) + " and " + hex(status));
  }
};

// NZCV of both compares as a nibble: equal, less, greater, unordered.
template <class T>
unsigned compare(T x, T y, FPSCR& status, bool signals) {
  if (FPCompareUN(x, y, status)) {
    if (signals) FPCompareGE(x, y, status);
    return 3;
  }
  return FPCompareEQ(x, y, status) ? 6 : FPCompareGT(x, y, status) ? 2 : 8;
}

template <class T, class R>
void check_to_fixed(Checker& check, FPSCR fpscr, T a) {
  const auto fixed = [](FPRounding rounding, bool u) {
    return [=](T x, FPSCR& status) { return fplibFPToFixed<T, R>(x, 0, u, rounding, status); };
  };
  check("fcvtzs", fpscr, fixed(FPRounding_Zero, false), processor::fcvtzs<T, R>, a);
  check("fcvtzu", fpscr, fixed(FPRounding_Zero, true), processor::fcvtzu<T, R>, a);
  check("fcvtns", fpscr, fixed(FPRounding_TiesEven, false), processor::fcvtns<T, R>, a);
  check("fcvtnu", fpscr, fixed(FPRounding_TiesEven, true), processor::fcvtnu<T, R>, a);
  check("fcvtas", fpscr, fixed(FPRounding_TiesAway, false), processor::fcvtas<T, R>, a);
  check("fcvtau", fpscr, fixed(FPRounding_TiesAway, true), processor::fcvtau<T, R>, a);
  check("fcvtps", fpscr, fixed(FPRounding_PosInf, false), processor::fcvtps<T, R>, a);
  check("fcvtpu", fpscr, fixed(FPRounding_PosInf, true), processor::fcvtpu<T, R>, a);
  check("fcvtms", fpscr, fixed(FPRounding_NegInf, false), processor::fcvtms<T, R>, a);
  check("fcvtmu", fpscr, fixed(FPRounding_NegInf, true), processor::fcvtmu<T, R>, a);
}

// Required difference: the library never flushes a half result of these, whereas the processor does under FZ16.
template <class T, int fbits>
void check_from_fixed(Checker& check, FPSCR fpscr, D a) {
  fpscr &= ~sve::fpscr_fz16;
  const auto rounding = static_cast<FPRounding>(fpscr >> 22 & 3);
  const auto value = [rounding](bool u) {
    return [=](D x, FPSCR& status) { return fplibFixedToFP<T>(x, fbits, u, rounding, status); };
  };
  check("scvtf", fpscr, value(false), processor::scvtf<T, fbits>, a);
  check("ucvtf", fpscr, value(true), processor::ucvtf<T, fbits>, a);
}

template <class T>
void check_width(Checker& check, FPSCR fpscr, T a, T b, T c) {
  check("FPAdd", fpscr, FPAdd<T>, processor::fadd<T>, a, b);
  check("FPSub", fpscr, FPSub<T>, processor::fsub<T>, a, b);
  check("FPMul", fpscr, FPMul<T>, processor::fmul<T>, a, b);
  check("FPMulX", fpscr, FPMulX<T>, processor::fmulx<T>, a, b);
  check("FPDiv", fpscr, FPDiv<T>, processor::fdiv<T>, a, b);
  check("FPMax", fpscr, FPMax<T>, processor::fmax<T>, a, b);
  check("FPMin", fpscr, FPMin<T>, processor::fmin<T>, a, b);
  check("FPMaxNum", fpscr, FPMaxNum<T>, processor::fmaxnm<T>, a, b);
  check("FPMinNum", fpscr, FPMinNum<T>, processor::fminnm<T>, a, b);
  check("FPRecipStepFused", fpscr, FPRecipStepFused<T>, processor::frecps<T>, a, b);
  check("FPRSqrtStepFused", fpscr, FPRSqrtStepFused<T>, processor::frsqrts<T>, a, b);
  check("FPSqrt", fpscr, FPSqrt<T>, processor::fsqrt<T>, a);
  check("FPRecipEstimate", fpscr, FPRecipEstimate<T>, processor::frecpe<T>, a);
  check("FPRSqrtEstimate", fpscr, FPRSqrtEstimate<T>, processor::frsqrte<T>, a);
  check("FPRecpX", fpscr, FPRecpX<T>, processor::frecpx<T>, a);
  check("FPMulAdd", fpscr, FPMulAdd<T>, processor::fmadd<T>, a, b, c);
  const auto round = [](FPRounding rounding, bool exact) {
    return [=](T x, FPSCR& status) { return FPRoundInt(x, rounding, exact, status); };
  };
  const auto current = static_cast<FPRounding>(fpscr >> 22 & 3);
  check("frintn", fpscr, round(FPRounding_TiesEven, false), processor::frintn<T>, a);
  check("frintp", fpscr, round(FPRounding_PosInf, false), processor::frintp<T>, a);
  check("frintm", fpscr, round(FPRounding_NegInf, false), processor::frintm<T>, a);
  check("frintz", fpscr, round(FPRounding_Zero, false), processor::frintz<T>, a);
  check("frinta", fpscr, round(FPRounding_TiesAway, false), processor::frinta<T>, a);
  check("frinti", fpscr, round(current, false), processor::frinti<T>, a);
  check("frintx", fpscr, round(current, true), processor::frintx<T>, a);
  check(
      "fcmp", fpscr, [](T x, T y, FPSCR& status) { return compare(x, y, status, false); }, processor::fcmp<T>, a, b);
  check(
      "fcmpe", fpscr, [](T x, T y, FPSCR& status) { return compare(x, y, status, true); }, processor::fcmpe<T>, a, b);
  check_to_fixed<T, S>(check, fpscr, a);
  check_to_fixed<T, D>(check, fpscr, a);
  const D integer = static_cast<D>(b) * 0x9e3779b97f4a7c15 >> (c & 63);
  check_from_fixed<T, 1>(check, fpscr, integer);
  check_from_fixed<T, 24>(check, fpscr, integer);
  check_from_fixed<T, 64>(check, fpscr, integer);
}

// Between formats. Rounding is the control word's, as the instruction's. Required difference: under FZ16 the library
// flushes a half source, whereas the processor does not.
template <class From, class To>
void check_convert(Checker& check, FPSCR fpscr, From a) {
  fpscr &= ~sve::fpscr_fz16;
  const auto rounding = static_cast<FPRounding>(fpscr >> 22 & 3);
  const auto library = [rounding](From x, FPSCR& status) { return FPConvert<From, To>(x, rounding, status); };
  check("FPConvert", fpscr, library, processor::fcvt<From, To>, a);
}

void check_conversions(Checker& check, FPSCR fpscr, H h, S s, D d) {
  check_convert<S, H>(check, fpscr, s);
  check_convert<D, H>(check, fpscr, d);
  check_convert<D, S>(check, fpscr, d);
  check_convert<H, S>(check, fpscr, h);
  check_convert<H, D>(check, fpscr, h);
  check_convert<S, D>(check, fpscr, s);
}

// Controls at random: all rounding modes, and each other control in a part of the cases.
FPSCR controls(Random& random) { return operands::random_controls(random) & operands::control_bits; }

template <class T>
void run(std::uint64_t wanted) {
  Checker check;
  Random random(40 + sizeof(T));
  T a = 1;
  while (check.count < wanted && !check.failures.enough()) {
    a = operands::random_value<T>(random, a);
    const T b = operands::random_value<T>(random, a);
    const T c = operands::random_value<T>(random, random() & 1 ? a : b);
    check_width(check, controls(random), a, b, c);
  }
  operands::report("random operands against the processor", check.count);
}

bool half_instructions() { return getauxval(AT_HWCAP) & HWCAP_FPHP; }

TEST(Instructions, Half) {
  if (!half_instructions()) GTEST_SKIP() << "this processor has no half-precision arithmetic";
  run<H>(operands::cases(3000000));
}
TEST(Instructions, Single) { run<S>(operands::cases(3000000)); }
TEST(Instructions, Double) { run<D>(operands::cases(3000000)); }

TEST(Instructions, Conversions) {
  Checker check;
  Random random(44);
  H h = 1;
  S s = 1;
  D d = 1;
  const std::uint64_t wanted = operands::cases(1000000);
  while (check.count < wanted && !check.failures.enough()) {
    const FPSCR fpscr = controls(random);
    h = operands::random_value<H>(random, h);
    s = operands::random_value<S>(random, s);
    d = operands::random_value<D>(random, d);
    check_conversions(check, fpscr, h, s, d);
    // Values about the ends of the narrower formats.
    FPSCR scratch = 0;
    const S near_half = FPConvert<H, S>(h, FPRounding_TiesEven, scratch) ^ static_cast<S>(random() >> 50);
    const D near_single = FPConvert<S, D>(s, FPRounding_TiesEven, scratch) ^ (random() >> 34);
    check_conversions(check, fpscr, h, near_half, near_single);
  }
  operands::report("conversions against the processor", check.count);
}

}  // namespace

#else

TEST(Instructions, All) { GTEST_SKIP() << "needs an AArch64 processor to compare with"; }

#endif
