// Floating-point compares, rounding to integral values, and conversions between formats and integers. An element lives
// in the wider of the two widths, at the low end of that slot.
#include "sve/veclib/fp_loops.h"

using namespace sve;
using namespace sve::veclib;

namespace {

// ---- Compares: the first bit of each active element that compares true ----

template <class T, class Test, class... Sources>
PredV compare(const PredV& p, CpuContext* ctx, Test test, const Sources&... src) {
  working_status status(ctx);
  const std::size_t n = count<T>(ctx);
  alignas(32) byte truth[256];
  PendingElements<T> pending;
  const LaneOutcome outcome = compare_on_lanes<T>(
      truth, active_bits(p, n * sizeof(T)), n, pending,
      [test](LaneStatus<T>& lanes, auto... x) { return test(x..., lanes); }, src.bytes...);
  if (outcome.active) status();
  if (outcome.pending) [[unlikely]]
    for (std::size_t e = 0; e < n; ++e)
      if (pending.words[e]) store<T>(truth, e, test(load<T>(src.bytes, e)..., status()) ? 1 : 0);
  return packed(truth, ctx);
}

constexpr auto eq = [](auto a, auto b, auto& s) { return FPCompareEQ(a, b, s); };
constexpr auto ne = [](auto a, auto b, auto& s) { return !FPCompareEQ(a, b, s); };
constexpr auto ge = [](auto a, auto b, auto& s) { return FPCompareGE(a, b, s); };
constexpr auto gt = [](auto a, auto b, auto& s) { return FPCompareGT(a, b, s); };
constexpr auto un = [](auto a, auto b, auto& s) { return FPCompareUN(a, b, s); };
constexpr auto acge = [](auto a, auto b, auto& s) { return FPCompareGE(magnitude_of(a), magnitude_of(b), s); };
constexpr auto acgt = [](auto a, auto b, auto& s) { return FPCompareGT(magnitude_of(a), magnitude_of(b), s); };

// Against zero.
constexpr auto eq0 = [](auto a, auto& s) { return FPCompareEQ(a, decltype(a)(0), s); };
constexpr auto ne0 = [](auto a, auto& s) { return !FPCompareEQ(a, decltype(a)(0), s); };
constexpr auto ge0 = [](auto a, auto& s) { return FPCompareGE(a, decltype(a)(0), s); };
constexpr auto gt0 = [](auto a, auto& s) { return FPCompareGT(a, decltype(a)(0), s); };
constexpr auto le0 = [](auto a, auto& s) { return FPCompareGE(decltype(a)(0), a, s); };
constexpr auto lt0 = [](auto a, auto& s) { return FPCompareGT(decltype(a)(0), a, s); };
// The 32-bit and 64-bit forms that no row reaches negate the opposite compare, so that a NaN compares true; kept so.
constexpr auto le0_unreached = [](auto a, auto& s) { return !FPCompareGT(a, decltype(a)(0), s); };
constexpr auto lt0_unreached = [](auto a, auto& s) { return !FPCompareGE(a, decltype(a)(0), s); };

// ---- Rounding to integral ----

template <class T>
VectorV rounded(const VectorV& old, const PredV& p, const VectorV& a, CpuContext* ctx, FPRounding rounding,
                bool exact) {
  return fp_unary<T>(old, p, a, ctx, [rounding, exact](T x, FPSCR& s) { return FPRoundInt(x, rounding, exact, s); });
}

// ---- Conversions: the low part of each slot, by the sizes of the source and of the result ----

// Between formats: always the IEEE half format, and half values are never flushed, whatever `fpcr` says.
template <class Slot, class From, class To>
VectorV converted(const VectorV& old, const PredV& p, const VectorV& a, CpuContext* ctx) {
  const FPRounding rounding = rounding_of(ctx->fpcr);
  return fp_merging<Slot>(
      old, p, ctx, without_half_controls(ctx->fpcr),
      [rounding](Slot x, FPSCR& s) { return FPConvert<From, To>(static_cast<From>(x), rounding, s); }, a);
}

// From an integer type, extended to 64 bits by its signedness.
template <class Slot, class Integer, class To>
VectorV from_integer(const VectorV& old, const PredV& p, const VectorV& a, CpuContext* ctx) {
  const FPRounding rounding = rounding_of(ctx->fpcr);
  return fp_unary<Slot>(old, p, a, ctx, [rounding](Slot x, FPSCR& s) {
    const auto value = static_cast<unsigned long>(static_cast<long>(static_cast<Integer>(x)));
    return fplibFixedToFP<To>(value, 0, std::is_unsigned_v<Integer>, rounding, s);
  });
}

// To an integer type, towards zero; the result fills its slot by its signedness.
template <class Slot, class From, class Integer>
VectorV to_integer(const VectorV& old, const PredV& p, const VectorV& a, CpuContext* ctx) {
  return fp_unary<unsigned_of<Slot>>(old, p, a, ctx, [](unsigned_of<Slot> x, FPSCR& s) {
    const auto result = fplibFPToFixed<From, unsigned_of<Integer>>(static_cast<From>(x), 0, std::is_unsigned_v<Integer>,
                                                                   FPRounding_Zero, s);
    return static_cast<unsigned_of<Slot>>(static_cast<Integer>(result));
  });
}

using half = unsigned short;
using single = unsigned int;
using double_ = unsigned long;

}  // namespace

#define FP_TYPES F16, F32, D64

SVE_DEFINE_CMP_VV(CmpEQVVZ, compare<T>(p, ctx, eq, a, b), FP_TYPES)
SVE_DEFINE_CMP_VV(CmpNEVVZ, compare<T>(p, ctx, ne, a, b), FP_TYPES)
SVE_DEFINE_CMP_VV(CmpGEVVZ, compare<T>(p, ctx, ge, a, b), FP_TYPES)
SVE_DEFINE_CMP_VV(CmpGTVVZ, compare<T>(p, ctx, gt, a, b), FP_TYPES)
SVE_DEFINE_CMP_VV(CmpUNVVZ, compare<T>(p, ctx, un, a, b), FP_TYPES)
SVE_DEFINE_CMP_VV(AcGEVVZ, compare<T>(p, ctx, acge, a, b), FP_TYPES)
SVE_DEFINE_CMP_VV(AcGTVVZ, compare<T>(p, ctx, acgt, a, b), FP_TYPES)
SVE_DEFINE_CMP_V0(CmpEQV0Z, compare<T>(p, ctx, eq0, a), FP_TYPES)
SVE_DEFINE_CMP_V0(CmpNEV0Z, compare<T>(p, ctx, ne0, a), FP_TYPES)
SVE_DEFINE_CMP_V0(CmpGEV0Z, compare<T>(p, ctx, ge0, a), FP_TYPES)
SVE_DEFINE_CMP_V0(CmpGTV0Z, compare<T>(p, ctx, gt0, a), FP_TYPES)
SVE_DEFINE_CMP_V0(CmpLEV0Z, compare<T>(p, ctx, le0, a), F16)
SVE_DEFINE_CMP_V0(CmpLTV0Z, compare<T>(p, ctx, lt0, a), F16)
SVE_DEFINE_CMP_V0(CmpLEV0Z, compare<T>(p, ctx, le0_unreached, a), F32, D64)
SVE_DEFINE_CMP_V0(CmpLTV0Z, compare<T>(p, ctx, lt0_unreached, a), F32, D64)

SVE_DEFINE_VVM(FRIntNVM, rounded<T>(a, p, b, ctx, FPRounding_TiesEven, false), FP_TYPES)
SVE_DEFINE_VVM(FRIntPVM, rounded<T>(a, p, b, ctx, FPRounding_PosInf, false), FP_TYPES)
SVE_DEFINE_VVM(FRIntMVM, rounded<T>(a, p, b, ctx, FPRounding_NegInf, false), FP_TYPES)
SVE_DEFINE_VVM(FRIntZVM, rounded<T>(a, p, b, ctx, FPRounding_Zero, false), FP_TYPES)
SVE_DEFINE_VVM(FRIntAVM, rounded<T>(a, p, b, ctx, FPRounding_TiesAway, false), FP_TYPES)
SVE_DEFINE_VVM(FRIntIVM, rounded<T>(a, p, b, ctx, rounding_of(ctx->fpcr), false), FP_TYPES)
SVE_DEFINE_VVM(FRIntXVM, rounded<T>(a, p, b, ctx, rounding_of(ctx->fpcr), true), FP_TYPES)

#define CONVERSION(op, types, ...) SVE_DEFINE_VVM(op, (__VA_ARGS__(a, p, b, ctx)), types)
CONVERSION(ExtndHVM, F32, converted<T, half, single>)
CONVERSION(ExtndHVM, D64, converted<T, half, double_>)
CONVERSION(ExtndFVM, D64, converted<T, single, double_>)
CONVERSION(TruncFVM, H32, converted<T, single, half>)
CONVERSION(TruncDVM, H64, converted<T, double_, half>)
CONVERSION(TruncDVM, F64, converted<T, double_, single>)

// The source integer's bytes stand in the name. Half results come in the slot of the wider side.
#define HALF_FROM(op, slot, integer)                                                        \
  VectorV VecF16##op(const VectorV& a, const PredV& p, const VectorV& b, CpuContext* ctx) { \
    return from_integer<slot, integer, half>(a, p, b, ctx);                                 \
  }
HALF_FROM(FromS2VM, std::uint16_t, std::int16_t)
HALF_FROM(FromU2VM, std::uint16_t, std::uint16_t)
HALF_FROM(FromS4VM, std::uint32_t, std::int32_t)
HALF_FROM(FromU4VM, std::uint32_t, std::uint32_t)
HALF_FROM(FromS8VM, std::uint64_t, std::int64_t)
HALF_FROM(FromU8VM, std::uint64_t, std::uint64_t)
CONVERSION(FromS4VM, F32, from_integer<T, std::int32_t, single>)
CONVERSION(FromU4VM, F32, from_integer<T, std::uint32_t, single>)
CONVERSION(FromS8VM, F64, from_integer<T, std::int64_t, single>)
CONVERSION(FromU8VM, F64, from_integer<T, std::uint64_t, single>)
CONVERSION(FromS4VM, D64, from_integer<T, std::int32_t, double_>)
CONVERSION(FromU4VM, D64, from_integer<T, std::uint32_t, double_>)
CONVERSION(FromS8VM, D64, from_integer<T, std::int64_t, double_>)
CONVERSION(FromU8VM, D64, from_integer<T, std::uint64_t, double_>)

CONVERSION(_2FromHVM, S16, to_integer<T, half, std::int16_t>)
CONVERSION(_2FromHVM, U16, to_integer<T, half, std::uint16_t>)
CONVERSION(_4FromHVM, S32, to_integer<T, half, std::int32_t>)
CONVERSION(_4FromHVM, U32, to_integer<T, half, std::uint32_t>)
CONVERSION(_8FromHVM, S64, to_integer<T, half, std::int64_t>)
CONVERSION(_8FromHVM, U64, to_integer<T, half, std::uint64_t>)
CONVERSION(_4FromFVM, S32, to_integer<T, single, std::int32_t>)
CONVERSION(_4FromFVM, U32, to_integer<T, single, std::uint32_t>)
CONVERSION(_8FromFVM, S64, to_integer<T, single, std::int64_t>)
CONVERSION(_8FromFVM, U64, to_integer<T, single, std::uint64_t>)
CONVERSION(_4FromDVM, S64, to_integer<T, double_, std::int32_t>)
CONVERSION(_4FromDVM, U64, to_integer<T, double_, std::uint32_t>)
CONVERSION(_8FromDVM, S64, to_integer<T, double_, std::int64_t>)
CONVERSION(_8FromDVM, U64, to_integer<T, double_, std::uint64_t>)
