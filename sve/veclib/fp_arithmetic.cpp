// Element-wise floating-point arithmetic, estimates and accelerators in software.
#include "sve/veclib/fp_loops.h"

using namespace sve;
using namespace sve::veclib;

namespace {

constexpr OnLanes sum([](auto a, auto b, auto& s) SVE_RETURNS(FPAdd(a, b, s)));
constexpr OnLanes subtract([](auto a, auto b, auto& s) SVE_RETURNS(FPSub(a, b, s)));
constexpr OnLanes subtract_reversed([](auto a, auto b, auto& s) SVE_RETURNS(FPSub(b, a, s)));
constexpr OnLanes product([](auto a, auto b, auto& s) SVE_RETURNS(FPMul(a, b, s)));
constexpr OnLanes multiply_extended([](auto a, auto b, auto& s) SVE_RETURNS(FPMulX(a, b, s)));
constexpr OnProcessor quotient([](auto a, auto b, auto& s) SVE_RETURNS(FPDiv(a, b, s)));
constexpr OnProcessor quotient_reversed([](auto a, auto b, auto& s) SVE_RETURNS(FPDiv(b, a, s)));
constexpr OnProcessor maximum([](auto a, auto b, auto& s) SVE_RETURNS(FPMax(a, b, s)));
constexpr OnProcessor minimum([](auto a, auto b, auto& s) SVE_RETURNS(FPMin(a, b, s)));
constexpr OnProcessor maximum_number([](auto a, auto b, auto& s) SVE_RETURNS(FPMaxNum(a, b, s)));
constexpr OnProcessor minimum_number([](auto a, auto b, auto& s) SVE_RETURNS(FPMinNum(a, b, s)));
constexpr OnLanes absolute_difference([](auto a, auto b, auto& s) SVE_RETURNS(magnitude_of(FPSub(a, b, s))));
constexpr OnProcessor root([](auto a, auto& s) SVE_RETURNS(FPSqrt(a, s)));

template <class T>
T scaled(T a, T b, FPSCR& s) {
  if constexpr (sizeof(T) == 2)
    return FPScale16(a, static_cast<short>(b), s);
  else if constexpr (sizeof(T) == 4)
    return FPScale32(a, static_cast<int>(b), s);
  else
    return FPScale64(a, static_cast<long>(b), s);
}
constexpr auto scaled_by_any = [](auto a, auto b, auto& s) SVE_RETURNS(scaled(a, b, s));
constexpr OnProcessor<std::remove_const_t<decltype(scaled_by_any)>, true> scale(scaled_by_any);

// Fused forms. A negated operand is negated before the call, also when it is a NaN, whose sign the result then carries.
// In the first four a is the accumulator, in the other four a is the multiplicand and c the addend.
constexpr OnLanes fma([](auto a, auto b, auto c, auto& s) SVE_RETURNS(FPMulAdd(a, b, c, s)));
constexpr OnLanes fms([](auto a, auto b, auto c, auto& s) SVE_RETURNS(FPMulAdd(a, FPNeg(b), c, s)));
constexpr OnLanes fnma([](auto a, auto b, auto c, auto& s) SVE_RETURNS(FPMulAdd(FPNeg(a), FPNeg(b), c, s)));
constexpr OnLanes fnms([](auto a, auto b, auto c, auto& s) SVE_RETURNS(FPMulAdd(FPNeg(a), b, c, s)));
constexpr OnLanes fmadd([](auto a, auto b, auto c, auto& s) SVE_RETURNS(FPMulAdd(c, a, b, s)));
constexpr OnLanes fmsub([](auto a, auto b, auto c, auto& s) SVE_RETURNS(FPMulAdd(c, FPNeg(a), b, s)));
constexpr OnLanes fnmadd([](auto a, auto b, auto c, auto& s) SVE_RETURNS(FPMulAdd(FPNeg(c), FPNeg(a), b, s)));
constexpr OnLanes fnmsub([](auto a, auto b, auto c, auto& s) SVE_RETURNS(FPMulAdd(FPNeg(c), a, b, s)));

constexpr OnProcessor reciprocal_estimate([](auto a, auto& s) SVE_RETURNS(FPRecipEstimate(a, s)));
constexpr OnProcessor root_estimate([](auto a, auto& s) SVE_RETURNS(FPRSqrtEstimate(a, s)));
constexpr OnLanes reciprocal_step([](auto a, auto b, auto& s) SVE_RETURNS(FPRecipStepFused(a, b, s)));
constexpr OnLanes root_step([](auto a, auto b, auto& s) SVE_RETURNS(FPRSqrtStepFused(a, b, s)));
constexpr OnLanes reciprocal_exponent([](auto a, auto& s) SVE_RETURNS(FPRecpX(a, s)));
constexpr OnLanes trigonometric_square([](auto a, auto b, auto& s) SVE_RETURNS(FPTRISMUL(a, b, s)));

// The constants of the one-bit immediates, by what the bit selects.
struct ConstantPair {
  float clear, set;
};
constexpr ConstantPair half_or_one{0.5f, 1.0f}, half_or_two{0.5f, 2.0f}, zero_or_one{0.0f, 1.0f};

template <class T, class Context>
T constant(ConstantPair pair, std::uint64_t bit, Context* ctx) {
  const float value = bit ? pair.set : pair.clear;
  const std::uint32_t single = std::bit_cast<std::uint32_t>(value);
  if constexpr (sizeof(T) == 8) {
    return std::bit_cast<std::uint64_t>(static_cast<double>(value));
  } else if constexpr (sizeof(T) == 4) {
    return single;
  } else {
    // Converted under the IEEE half format for each element; exact, so that only the fold itself can be seen, and that
    // happens whether or not an element is active.
    FPSCR working = without_half_controls(ctx->fpcr);
    const T half = FPConvert<unsigned int, unsigned short>(single, FPRounding_Zero, working);
    if (count<T>(ctx) != 0) fold(ctx, working);
    return half;
  }
}

template <class T, class Vector, class Predicate, class Context, class Op>
auto with_constant(const Vector& a, const Predicate& p, ConstantPair pair, std::uint64_t bit, Context* ctx, Op op) {
  const T value = constant<T>(pair, bit, ctx);
  return fp_unary<T>(a, p, a, ctx,
                     marked_as<Op>([ op, value ](auto x, auto& s) SVE_RETURNS(op(x, decltype(x)(value), s))));
}

template <class T, class Vector, class Context>
auto trigonometric_multiply_add(const Vector& a, const Vector& b, std::uint64_t index, Context* ctx) {
  return fp_mapped<T>(ctx, OnLanes([index](auto x, auto y, auto& s) SVE_RETURNS(FPTRIMADD(index, x, y, s))), a, b);
}

template <class T, class Vector, class Context>
auto exponential(const Vector& a, const Context* ctx) {
  if constexpr (sizeof(T) == 2) {
    // Looked up whole, for which a vector of indices would only be taken apart again.
    return element_wise(ctx, [&](byte* r) {
      const std::size_t n = covering_count<T>(ctx);
#pragma GCC unroll 8
      for (std::size_t e = 0; e < n; ++e) {
        store<T>(r, e, FPEXPA(load<T>(a.bytes, e)));
        asm volatile("" ::: "memory");
      }
    });
  } else {
    return mapped<T>(
        ctx, [](T x) { return FPEXPA(x); }, a);
  }
}

}  // namespace

SVE_DEFINE_VVM(AddVVM, fp_merging<T>(a, p, b, ctx, sum), FP_TYPES)
SVE_DEFINE_VVM(SubVVM, fp_merging<T>(a, p, b, ctx, subtract), FP_TYPES)
SVE_DEFINE_VVM(SubRVVM, fp_merging<T>(a, p, b, ctx, subtract_reversed), FP_TYPES)
SVE_DEFINE_VVM(MulVVM, fp_merging<T>(a, p, b, ctx, product), FP_TYPES)
SVE_DEFINE_VVM(MulXVVM, fp_merging<T>(a, p, b, ctx, multiply_extended), FP_TYPES)
SVE_DEFINE_VVM(DivVVM, fp_merging<T>(a, p, b, ctx, quotient), FP_TYPES)
SVE_DEFINE_VVM(DivRVVM, fp_merging<T>(a, p, b, ctx, quotient_reversed), FP_TYPES)
SVE_DEFINE_VVM(MaxVVM, fp_merging<T>(a, p, b, ctx, maximum), FP_TYPES)
SVE_DEFINE_VVM(MinVVM, fp_merging<T>(a, p, b, ctx, minimum), FP_TYPES)
SVE_DEFINE_VVM(MaxNumVVM, fp_merging<T>(a, p, b, ctx, maximum_number), FP_TYPES)
SVE_DEFINE_VVM(MinNumVVM, fp_merging<T>(a, p, b, ctx, minimum_number), FP_TYPES)
SVE_DEFINE_VVM(AbdVVM, fp_merging<T>(a, p, b, ctx, absolute_difference), FP_TYPES)
SVE_DEFINE_VVM(ScaleVVM, fp_merging<T>(a, p, b, ctx, scale), FP_TYPES)
SVE_DEFINE_VV(AddVVX, fp_mapped<T>(ctx, sum, a, b), FP_TYPES)
SVE_DEFINE_VV(SubVVX, fp_mapped<T>(ctx, subtract, a, b), FP_TYPES)
SVE_DEFINE_VV(MulVVX, fp_mapped<T>(ctx, product, a, b), FP_TYPES)

SVE_DEFINE_VIM(AddVIM, with_constant<T>(a, p, half_or_one, imm, ctx, sum), FP_TYPES)
SVE_DEFINE_VIM(SubVIM, with_constant<T>(a, p, half_or_one, imm, ctx, subtract), FP_TYPES)
SVE_DEFINE_VIM(SubRVIM, with_constant<T>(a, p, half_or_one, imm, ctx, subtract_reversed), FP_TYPES)
SVE_DEFINE_VIM(MulVIM, with_constant<T>(a, p, half_or_two, imm, ctx, product), FP_TYPES)
SVE_DEFINE_VIM(MaxVIM, with_constant<T>(a, p, zero_or_one, imm, ctx, maximum), FP_TYPES)
SVE_DEFINE_VIM(MinVIM, with_constant<T>(a, p, zero_or_one, imm, ctx, minimum), FP_TYPES)
SVE_DEFINE_VIM(MaxNumVIM, with_constant<T>(a, p, zero_or_one, imm, ctx, maximum_number), FP_TYPES)
SVE_DEFINE_VIM(MinNumVIM, with_constant<T>(a, p, zero_or_one, imm, ctx, minimum_number), FP_TYPES)

// Sign operations touch no status.
SVE_DEFINE_VVM(AbsVM, merging_unary<T>(a, p, b, ctx, [](T x) { return magnitude_of(x); }), FP_TYPES)
SVE_DEFINE_VVM(NegVM, merging_unary<T>(a, p, b, ctx, [](T x) { return FPNeg(x); }), FP_TYPES)
SVE_DEFINE_VVM(SqrtVM, fp_unary<T>(a, p, b, ctx, root), FP_TYPES)

SVE_DEFINE_VVVM(FMAVVVM, fp_ternary<T>(a, p, b, c, ctx, fma), FP_TYPES)
SVE_DEFINE_VVVM(FMSVVVM, fp_ternary<T>(a, p, b, c, ctx, fms), FP_TYPES)
SVE_DEFINE_VVVM(FNMAVVVM, fp_ternary<T>(a, p, b, c, ctx, fnma), FP_TYPES)
SVE_DEFINE_VVVM(FNMSVVVM, fp_ternary<T>(a, p, b, c, ctx, fnms), FP_TYPES)
SVE_DEFINE_VVVM(FMADDVVVM, fp_ternary<T>(a, p, b, c, ctx, fmadd), FP_TYPES)
SVE_DEFINE_VVVM(FMSUBVVVM, fp_ternary<T>(a, p, b, c, ctx, fmsub), FP_TYPES)
SVE_DEFINE_VVVM(FNMADDVVVM, fp_ternary<T>(a, p, b, c, ctx, fnmadd), FP_TYPES)
SVE_DEFINE_VVVM(FNMSUBVVVM, fp_ternary<T>(a, p, b, c, ctx, fnmsub), FP_TYPES)

SVE_DEFINE_V(RecpEV, fp_mapped<T>(ctx, reciprocal_estimate, a), FP_TYPES)
SVE_DEFINE_V(RSqrtEV, fp_mapped<T>(ctx, root_estimate, a), FP_TYPES)
SVE_DEFINE_VV(RecpSVV, fp_mapped<T>(ctx, reciprocal_step, a, b), FP_TYPES)
SVE_DEFINE_VV(RSqrtSVV, fp_mapped<T>(ctx, root_step, a, b), FP_TYPES)
SVE_DEFINE_VVM(RecpXVM, fp_unary<T>(a, p, b, ctx, reciprocal_exponent), FP_TYPES)
SVE_DEFINE_VVI(TRIMADDVVI, trigonometric_multiply_add<T>(a, b, imm, ctx), FP_TYPES)
SVE_DEFINE_VV(TRISMULVV, fp_mapped<T>(ctx, trigonometric_square, a, b), FP_TYPES)
SVE_DEFINE_VV(TRISSELVV,
              mapped<T>(
                  ctx, [](T x, T y) { return FPTRISSEL(x, y); }, a, b),
              FP_TYPES)
SVE_DEFINE_V(EXPAV, exponential<T>(a, ctx), FP_TYPES)
