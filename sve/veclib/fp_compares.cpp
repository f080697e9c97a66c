// Floating-point compares.
#include "sve/veclib/fp_loops.h"

using namespace sve;
using namespace sve::veclib;

namespace {

// The bits or bytes of the result, by the processor.
template <class T, class Test, class... Sources>
processor::Raised compare_by_processor(PredV& r, const PredV& p, CpuContext* ctx, Test test, const Sources&... src) {
  const std::size_t bytes = count<T>(ctx) * sizeof(T);
  return processor::compare_pieces<T>(ctx->fpcr, ctx->fpsr, r.words, active_bits(p, bytes), bytes, test, src.bytes...);
}
template <class T, class Test, class... Sources>
processor::Raised compare_by_processor(in_place::PredV& r, const in_place::PredV& p, in_place::CpuContext* ctx,
                                       Test test, const Sources&... src) {
  r.bytes = ctx->destination;
  return processor::compare_pieces<T>(ctx->fpcr, ctx->fpsr, r.bytes, activity(p, vector_bytes), vector_bytes, test,
                                      src.bytes...);
}

// The same by the library: bytes of truth, in whole vectors of lanes.
template <class T, class Predicate, class Test, class... Sources>
WorkingStatus compare_by_library(byte* truth, std::size_t n, const Predicate& p, FPSCR control, Test test,
                                 const Sources*... src) {
  WorkingStatus status(control);
  PendingElements<T> pending;
  const LaneOutcome outcome = compare_on_lanes<T>(
      truth, active_bits(p, n * sizeof(T)), n, pending,
      [test](LaneStatus<T>& lanes, auto... x) { return test(x..., lanes); }, src...);
  if (outcome.active) status();
  if (outcome.pending) [[unlikely]]
    pending.for_each(n, [&](std::size_t e) { store<T>(truth, e, test(load<T>(src, e)..., status()) ? 1 : 0); });
  return status;
}

PredV of_bytes(const VectorV& truth, const CpuContext* ctx) { return packed(truth.bytes, ctx); }
in_place::PredV of_bytes(const VectorV& truth, const in_place::CpuContext* ctx) {
  std::memcpy(ctx->destination, truth.bytes, vector_bytes);
  return {ctx->destination};
}

// The first bit of each active element that compares true.
template <class T, class Predicate, class Context, class Test, class... Sources>
Predicate compare(const Predicate& p, Context* ctx, Test test, const Sources&... src) {
  const FPSCR control = ctx->fpcr;
  constexpr bool has_pieces = processor::has_operation<T, Test, Sources...>;
  if constexpr (has_pieces) {
    if (processor::computes<T>(control)) [[likely]] {
      Predicate result;
      const processor::Raised raised = compare_by_processor<T>(result, p, ctx, test, src...);
      if (raised.settled) [[likely]] {
        status_of(control, raised).fold_into(ctx);
        return result;
      }
    }
  }
  VectorV truth;
  const std::size_t n = count<T>(ctx);
  by_library<has_pieces>(
      [=, to = truth.bytes](const Predicate& under, const auto*... from) {
        return compare_by_library<T>(to, n, under, control, test, from...);
      },
      p, static_cast<const byte*>(src.bytes)...)
      .fold_into(ctx);
  return of_bytes(truth, ctx);
}

constexpr auto eq = [](auto a, auto b, auto& s) SVE_RETURNS(FPCompareEQ(a, b, s));
constexpr auto ne = [](auto a, auto b, auto& s) SVE_RETURNS(!FPCompareEQ(a, b, s));
constexpr auto ge = [](auto a, auto b, auto& s) SVE_RETURNS(FPCompareGE(a, b, s));
constexpr auto gt = [](auto a, auto b, auto& s) SVE_RETURNS(FPCompareGT(a, b, s));
constexpr auto un = [](auto a, auto b, auto& s) SVE_RETURNS(FPCompareUN(a, b, s));
constexpr auto acge = [](auto a, auto b, auto& s) SVE_RETURNS(FPCompareGE(magnitude_of(a), magnitude_of(b), s));
constexpr auto acgt = [](auto a, auto b, auto& s) SVE_RETURNS(FPCompareGT(magnitude_of(a), magnitude_of(b), s));

// Against zero.
constexpr auto eq0 = [](auto a, auto& s) SVE_RETURNS(FPCompareEQ(a, decltype(a)(0), s));
constexpr auto ne0 = [](auto a, auto& s) SVE_RETURNS(!FPCompareEQ(a, decltype(a)(0), s));
constexpr auto ge0 = [](auto a, auto& s) SVE_RETURNS(FPCompareGE(a, decltype(a)(0), s));
constexpr auto gt0 = [](auto a, auto& s) SVE_RETURNS(FPCompareGT(a, decltype(a)(0), s));
constexpr auto le0 = [](auto a, auto& s) SVE_RETURNS(FPCompareGE(decltype(a)(0), a, s));
constexpr auto lt0 = [](auto a, auto& s) SVE_RETURNS(FPCompareGT(decltype(a)(0), a, s));
// The 32-bit and 64-bit forms that no row reaches negate the opposite compare, so that a NaN compares true; kept so.
constexpr auto le0_unreached = [](auto a, auto& s) SVE_RETURNS(!FPCompareGT(a, decltype(a)(0), s));
constexpr auto lt0_unreached = [](auto a, auto& s) SVE_RETURNS(!FPCompareGE(a, decltype(a)(0), s));

}  // namespace

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
