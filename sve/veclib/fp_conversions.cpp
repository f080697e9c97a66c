// Rounding to integral values, and conversions between formats and integers. An element lives in the wider of the two
// widths, at the low end of that slot.
#include "sve/veclib/fp_loops.h"

using namespace sve;
using namespace sve::veclib;

namespace {

// ---- Rounding to integral ----

template <class T, class Vector, class Predicate, class Context>
auto rounded(const Vector& old, const Predicate& p, const Vector& a, Context* ctx, FPRounding rounding) {
  return fp_unary<T>(old, p, a, ctx,
                     OnProcessor([rounding](auto x, auto& s) SVE_RETURNS(FPRoundInt(x, rounding, false, s))));
}

// By the rounding of `fpcr`.
template <class T>
T round_by_control(T x, FPSCR& s) {
  return FPRoundInt(x, rounding_of(s), false, s);
}
template <class T>
T round_exactly(T x, FPSCR& s) {
  return FPRoundInt(x, rounding_of(s), true, s);
}
constexpr OnProcessor by_control([](auto x, auto& s) SVE_RETURNS(round_by_control(x, s)));
constexpr OnProcessor exactly([](auto x, auto& s) SVE_RETURNS(round_exactly(x, s)));

// ---- Conversions: the low part of each slot, by the sizes of the source and of the result ----

template <class From, class To, class Slot>
Slot convert(Slot x, FPSCR& s) {
  return FPConvert<From, To>(static_cast<From>(x), rounding_of(s), s);
}

// From an integer type, extended to 64 bits by its signedness.
template <class Integer, class To, class Slot>
Slot from_integer(Slot x, FPSCR& s) {
  const auto value = static_cast<unsigned long>(static_cast<long>(static_cast<Integer>(x)));
  return fplibFixedToFP<To>(value, 0, std::is_unsigned_v<Integer>, rounding_of(s), s);
}

// To an integer type, towards zero; the result fills its slot by its signedness.
template <class From, class Integer, class Slot>
Slot to_integer(Slot x, FPSCR& s) {
  const auto result = fplibFPToFixed<From, UnsignedOf<Integer>>(static_cast<From>(x), 0, std::is_unsigned_v<Integer>,
                                                                FPRounding_Zero, s);
  return static_cast<Slot>(static_cast<Integer>(result));
}

// The processor's, of the same names, are found by the type of their operand.

// Between formats: always the IEEE half format, and half values are never flushed, whatever `fpcr` says.
template <class Slot, class From, class To, class Vector, class Predicate, class Context>
auto converted(const Vector& old, const Predicate& p, const Vector& a, Context* ctx) {
  return fp_merging_under<Slot>(old, p, ctx, without_half_controls(ctx->fpcr),
                                OnProcessor([](auto x, auto& s) SVE_RETURNS(convert<From, To>(x, s))), a);
}

// Whether the processor has the conversions between the half format and integers, which not all have.
template <class Value, class Slot, class Vector, class Predicate, class Context, class Op, class Marked>
auto converted_where(const Vector& old, const Predicate& p, const Vector& a, Context* ctx, Op op, Marked marked) {
  if (processor::computes<Value>(ctx->fpcr)) return fp_unary<Slot>(old, p, a, ctx, marked);
  return fp_unary<Slot>(old, p, a, ctx, op);
}

template <class Slot, class Integer, class To, class Vector, class Predicate, class Context>
auto converted_from(const Vector& old, const Predicate& p, const Vector& a, Context* ctx) {
  const auto op = [](auto x, auto& s) SVE_RETURNS(from_integer<Integer, To>(x, s));
  return converted_where<To, Slot>(old, p, a, ctx, op, OnProcessor<decltype(op), true>(op));
}

template <class Slot, class From, class Integer, class Vector, class Predicate, class Context>
auto converted_to(const Vector& old, const Predicate& p, const Vector& a, Context* ctx) {
  const auto op = [](auto x, auto& s) SVE_RETURNS(to_integer<From, Integer>(x, s));
  return converted_where<From, UnsignedOf<Slot>>(old, p, a, ctx, op, OnProcessor(op));
}

using half = unsigned short;
using single = unsigned int;
using double_ = unsigned long;

}  // namespace

SVE_DEFINE_VVM(FRIntNVM, rounded<T>(a, p, b, ctx, FPRounding_TiesEven), FP_TYPES)
SVE_DEFINE_VVM(FRIntPVM, rounded<T>(a, p, b, ctx, FPRounding_PosInf), FP_TYPES)
SVE_DEFINE_VVM(FRIntMVM, rounded<T>(a, p, b, ctx, FPRounding_NegInf), FP_TYPES)
SVE_DEFINE_VVM(FRIntZVM, rounded<T>(a, p, b, ctx, FPRounding_Zero), FP_TYPES)
SVE_DEFINE_VVM(FRIntAVM, rounded<T>(a, p, b, ctx, FPRounding_TiesAway), FP_TYPES)
SVE_DEFINE_VVM(FRIntIVM, fp_unary<T>(a, p, b, ctx, by_control), FP_TYPES)
SVE_DEFINE_VVM(FRIntXVM, fp_unary<T>(a, p, b, ctx, exactly), FP_TYPES)

#define CONVERSION(op, types, ...) SVE_DEFINE_VVM(op, (__VA_ARGS__(a, p, b, ctx)), types)
CONVERSION(ExtndHVM, F32, converted<T, half, single>)
CONVERSION(ExtndHVM, D64, converted<T, half, double_>)
CONVERSION(ExtndFVM, D64, converted<T, single, double_>)
CONVERSION(TruncFVM, H32, converted<T, single, half>)
CONVERSION(TruncDVM, H64, converted<T, double_, half>)
CONVERSION(TruncDVM, F64, converted<T, double_, single>)

// The source integer's bytes stand in the name. Half results come in the slot of the wider side.
#define HALF_FROM(op, slot, integer) SVE_DEFINE_VVM(op, (converted_from<slot, integer, half>(a, p, b, ctx)), F16)
HALF_FROM(FromS2VM, std::uint16_t, std::int16_t)
HALF_FROM(FromU2VM, std::uint16_t, std::uint16_t)
HALF_FROM(FromS4VM, std::uint32_t, std::int32_t)
HALF_FROM(FromU4VM, std::uint32_t, std::uint32_t)
HALF_FROM(FromS8VM, std::uint64_t, std::int64_t)
HALF_FROM(FromU8VM, std::uint64_t, std::uint64_t)
CONVERSION(FromS4VM, F32, converted_from<T, std::int32_t, single>)
CONVERSION(FromU4VM, F32, converted_from<T, std::uint32_t, single>)
CONVERSION(FromS8VM, F64, converted_from<T, std::int64_t, single>)
CONVERSION(FromU8VM, F64, converted_from<T, std::uint64_t, single>)
CONVERSION(FromS4VM, D64, converted_from<T, std::int32_t, double_>)
CONVERSION(FromU4VM, D64, converted_from<T, std::uint32_t, double_>)
CONVERSION(FromS8VM, D64, converted_from<T, std::int64_t, double_>)
CONVERSION(FromU8VM, D64, converted_from<T, std::uint64_t, double_>)

CONVERSION(_2FromHVM, S16, converted_to<T, half, std::int16_t>)
CONVERSION(_2FromHVM, U16, converted_to<T, half, std::uint16_t>)
CONVERSION(_4FromHVM, S32, converted_to<T, half, std::int32_t>)
CONVERSION(_4FromHVM, U32, converted_to<T, half, std::uint32_t>)
CONVERSION(_8FromHVM, S64, converted_to<T, half, std::int64_t>)
CONVERSION(_8FromHVM, U64, converted_to<T, half, std::uint64_t>)
CONVERSION(_4FromFVM, S32, converted_to<T, single, std::int32_t>)
CONVERSION(_4FromFVM, U32, converted_to<T, single, std::uint32_t>)
CONVERSION(_8FromFVM, S64, converted_to<T, single, std::int64_t>)
CONVERSION(_8FromFVM, U64, converted_to<T, single, std::uint64_t>)
CONVERSION(_4FromDVM, S64, converted_to<T, double_, std::int32_t>)
CONVERSION(_4FromDVM, U64, converted_to<T, double_, std::uint32_t>)
CONVERSION(_8FromDVM, S64, converted_to<T, double_, std::int64_t>)
CONVERSION(_8FromDVM, U64, converted_to<T, double_, std::uint64_t>)
