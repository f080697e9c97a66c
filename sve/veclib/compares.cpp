// Integer compares: a canonical predicate and the flags from it.
#include <limits>

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

constexpr auto eq = [](auto a, auto b) { return a == b; };
constexpr auto ne = [](auto a, auto b) { return a != b; };
constexpr auto ge = [](auto a, auto b) { return a >= b; };
constexpr auto gt = [](auto a, auto b) { return a > b; };
constexpr auto le = [](auto a, auto b) { return a <= b; };
constexpr auto lt = [](auto a, auto b) { return a < b; };

// Each element against the 64-bit element that covers it, both by the routine's signedness. The wide element is brought
// into the range of the narrow ones; where it was beyond, `side` tells on which side, 1 above and 2 below.
template <class T, class Test>
PredV compare_wide(const PredV& p, const VectorV& a, const VectorV& b, CpuContext* ctx, Test test) {
  using Wide = std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>;
  constexpr Wide low = std::numeric_limits<T>::min(), high = std::numeric_limits<T>::max();
  const VectorV nearest = mapped<std::uint64_t>(
      ctx,
      [](std::uint64_t unit) {
        const Wide x = static_cast<Wide>(unit);
        return replicated<T>(static_cast<std::uint64_t>(x > high ? high : x < low ? low : x));
      },
      b);
  const VectorV side = mapped<std::uint64_t>(
      ctx,
      [](std::uint64_t unit) {
        const Wide x = static_cast<Wide>(unit);
        return replicated<T>(x > high ? 1u : x < low ? 2u : 0u);
      },
      b);
  const PredV r = compared<T>(p, ctx, test, a, nearest, side);
  PredSetNZCV(p, r, 8 * sizeof(T), ctx);
  return r;
}

constexpr auto wide_eq = [](auto a, auto b, auto side) { return (a == b) & (side == 0); };
constexpr auto wide_ne = [](auto a, auto b, auto side) { return (a != b) | (side != 0); };
constexpr auto wide_ge = [](auto a, auto b, auto side) { return (a >= b) & (side != 1); };
constexpr auto wide_gt = [](auto a, auto b, auto side) { return (a > b) | (side == 2); };
constexpr auto wide_le = [](auto a, auto b, auto side) { return (a <= b) & (side != 2); };
constexpr auto wide_lt = [](auto a, auto b, auto side) { return (a < b) | (side == 1); };

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

SVE_DEFINE_CMP_VV(CmpFlgEQVWZ, compare_wide<T>(p, a, b, ctx, wide_eq), S8, S16, S32)
SVE_DEFINE_CMP_VV(CmpFlgNEVWZ, compare_wide<T>(p, a, b, ctx, wide_ne), S8, S16, S32)
SVE_DEFINE_CMP_VV(CmpFlgGEVWZ, compare_wide<T>(p, a, b, ctx, wide_ge), U8, U16, U32, S8, S16, S32)
SVE_DEFINE_CMP_VV(CmpFlgGTVWZ, compare_wide<T>(p, a, b, ctx, wide_gt), U8, U16, U32, S8, S16, S32)
SVE_DEFINE_CMP_VV(CmpFlgLEVWZ, compare_wide<T>(p, a, b, ctx, wide_le), U8, U16, U32, S8, S16, S32)
SVE_DEFINE_CMP_VV(CmpFlgLTVWZ, compare_wide<T>(p, a, b, ctx, wide_lt), U8, U16, U32, S8, S16, S32)
