// Integer compares: a canonical predicate and the flags from it.
#include "sve/veclib/define.h"
#include "sve/veclib/predicates.h"

using namespace sve;
using namespace sve::veclib;

namespace {

template <class T, class Test, class... Sources>
PredV compare(const PredV& p, CpuContext* ctx, Test test, const Sources&... src) {
  const PredV r = compared<T>(p, ctx, test, src...);
  PredSetNZCV(p, r, 8 * sizeof(T), ctx);
  return r;
}

template <class T, class Test>
PredV compare_immediate(const PredV& p, const VectorV& a, std::uint64_t imm, CpuContext* ctx, Test test) {
  const T value = static_cast<T>(imm);
  return compare<T>(
      p, ctx, [test, value](T x) { return test(x, value); }, a);
}

// Each element against the 64-bit element that covers it, both extended to 64 bits by the routine's signedness.
template <class T, class Test>
PredV compare_wide(const PredV& p, const VectorV& a, const VectorV& b, CpuContext* ctx, Test test) {
  using Wide = std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>;
  constexpr std::size_t per_unit = 8 / sizeof(T);
  const byte_predicate predicate(p, ctx);
  alignas(32) byte result[256];
  const std::size_t units = granules(ctx);
  for (std::size_t u = 0; u < units; ++u) {
    const Wide other = load<Wide>(b.bytes, u);
    for (std::size_t i = u * per_unit; i < (u + 1) * per_unit; ++i)
      store<T>(result, i,
               static_cast<T>((test(static_cast<Wide>(load<T>(a.bytes, i)), other) ? 1 : 0) &
                              load<unsigned_of<T>>(predicate, i)));
  }
  const PredV r = packed(result, ctx);
  PredSetNZCV(p, r, 8 * sizeof(T), ctx);
  return r;
}

constexpr auto eq = [](auto a, auto b) { return a == b; };
constexpr auto ne = [](auto a, auto b) { return a != b; };
constexpr auto ge = [](auto a, auto b) { return a >= b; };
constexpr auto gt = [](auto a, auto b) { return a > b; };
constexpr auto le = [](auto a, auto b) { return a <= b; };
constexpr auto lt = [](auto a, auto b) { return a < b; };

}  // namespace

#define UNSIGNED_TYPES U8, U16, U32, U64
#define SIGNED_TYPES S8, S16, S32, S64

SVE_DEFINE_CMP_VV(CmpFlgEQVVZ, compare<T>(p, ctx, eq, a, b), SIGNED_TYPES)
SVE_DEFINE_CMP_VV(CmpFlgNEVVZ, compare<T>(p, ctx, ne, a, b), SIGNED_TYPES)
SVE_DEFINE_CMP_VV(CmpFlgGEVVZ, compare<T>(p, ctx, ge, a, b), UNSIGNED_TYPES, SIGNED_TYPES)
SVE_DEFINE_CMP_VV(CmpFlgGTVVZ, compare<T>(p, ctx, gt, a, b), UNSIGNED_TYPES, SIGNED_TYPES)

#define IMMEDIATE(test) compare_immediate<T>(p, a, static_cast<std::uint64_t>(imm), ctx, test)
SVE_DEFINE_CMP_VI_SIGNED(CmpFlgEQVIZ, IMMEDIATE(eq), SIGNED_TYPES)
SVE_DEFINE_CMP_VI_SIGNED(CmpFlgNEVIZ, IMMEDIATE(ne), SIGNED_TYPES)
SVE_DEFINE_CMP_VI_SIGNED(CmpFlgGEVIZ, IMMEDIATE(ge), SIGNED_TYPES)
SVE_DEFINE_CMP_VI_SIGNED(CmpFlgGTVIZ, IMMEDIATE(gt), SIGNED_TYPES)
SVE_DEFINE_CMP_VI_SIGNED(CmpFlgLEVIZ, IMMEDIATE(le), SIGNED_TYPES)
SVE_DEFINE_CMP_VI_SIGNED(CmpFlgLTVIZ, IMMEDIATE(lt), SIGNED_TYPES)
SVE_DEFINE_CMP_VI(CmpFlgGEVIZ, IMMEDIATE(ge), UNSIGNED_TYPES)
SVE_DEFINE_CMP_VI(CmpFlgGTVIZ, IMMEDIATE(gt), UNSIGNED_TYPES)
SVE_DEFINE_CMP_VI(CmpFlgLEVIZ, IMMEDIATE(le), UNSIGNED_TYPES)
SVE_DEFINE_CMP_VI(CmpFlgLTVIZ, IMMEDIATE(lt), UNSIGNED_TYPES)

SVE_DEFINE_CMP_VV(CmpFlgEQVWZ, compare_wide<T>(p, a, b, ctx, eq), S8, S16, S32)
SVE_DEFINE_CMP_VV(CmpFlgNEVWZ, compare_wide<T>(p, a, b, ctx, ne), S8, S16, S32)
SVE_DEFINE_CMP_VV(CmpFlgGEVWZ, compare_wide<T>(p, a, b, ctx, ge), U8, U16, U32, S8, S16, S32)
SVE_DEFINE_CMP_VV(CmpFlgGTVWZ, compare_wide<T>(p, a, b, ctx, gt), U8, U16, U32, S8, S16, S32)
SVE_DEFINE_CMP_VV(CmpFlgLEVWZ, compare_wide<T>(p, a, b, ctx, le), U8, U16, U32, S8, S16, S32)
SVE_DEFINE_CMP_VV(CmpFlgLTVWZ, compare_wide<T>(p, a, b, ctx, lt), U8, U16, U32, S8, S16, S32)
