// Rounding to integral values, and conversions between formats and integers. An element lives in the wider of the two
// widths, at the low end of that slot.
#include "sve/veclib/fp_loops.h"

using namespace sve;
using namespace sve::veclib;

namespace {

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
