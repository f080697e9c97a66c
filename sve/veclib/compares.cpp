// Integer compares: a canonical predicate and the flags from it.
#include "sve/lanes/compares.h"

#include <limits>

#include "sve/veclib/define.h"
#include "sve/veclib/predicates.h"

using namespace sve;
using namespace sve::veclib;

namespace {

// `test` takes elements, or vectors of them.
template <class T, class Test, class... Sources>
PredV compare(const PredV& p, CpuContext* ctx, Test test, const Sources&... src) {
  alignas(32) byte truth[256];
  map_lanes<T>(
      truth, covering_count<T>(ctx), [test](auto... x) { return test(x...) ? 1 : 0; }, src.bytes...);
  PredV r = packed(truth, ctx);
  for (int w = 0; w < 4; ++w) r.words[w] = scalar_word(r.words[w]) & scalar_word(p.words[w]);
  PredSetNZCV(p, r, 8 * sizeof(T), ctx);
  return r;
}
template <class T, class Test, class... Sources>
in_place::PredV compare(const in_place::PredV& p, in_place::CpuContext* ctx, Test test, const Sources&... src) {
  return flagged_pieces<T>(p, ctx, compared_pieces<T>(test, src.bytes...));
}

template <class T, class Predicate, class Vector, class Context, class Test>
Predicate compare_immediate(const Predicate& p, const Vector& a, std::uint64_t imm, Context* ctx, Test test) {
  const T value = static_cast<T>(imm);
  return compare<T>(
      p, ctx, [test, value](auto x) { return test(x, value); }, a);
}

constexpr auto eq = [](auto a, auto b) { return a == b; };
constexpr auto ne = [](auto a, auto b) { return a != b; };
constexpr auto ge = [](auto a, auto b) { return a >= b; };
constexpr auto gt = [](auto a, auto b) { return a > b; };
constexpr auto le = [](auto a, auto b) { return a <= b; };
constexpr auto lt = [](auto a, auto b) { return a < b; };

// Each element against the 64-bit element that covers it, both by the routine's signedness: with the low part of the
// wide one, and all ones in `above` or `below` where that is beyond the range of the narrow ones.
template <class T>
using WideOf = std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>;
template <class T>
inline constexpr WideOf<T> low = std::numeric_limits<T>::min();
template <class T>
inline constexpr WideOf<T> high = std::numeric_limits<T>::max();

template <class T, class Test>
PredV compare_wide(const PredV& p, const VectorV& a, const VectorV& b, CpuContext* ctx, Test test) {
  const auto of_units = [&](auto op) {
    return mapped_aside<std::uint64_t>(
        ctx, [op](std::uint64_t unit) { return op(static_cast<WideOf<T>>(unit)); }, b);
  };
  const auto mask = [](bool condition) { return condition ? ~std::uint64_t{0} : 0; };
  const VectorV low_part = of_units([](WideOf<T> x) { return replicated<T>(static_cast<std::uint64_t>(x)); });
  const VectorV above = of_units([mask](WideOf<T> x) { return mask(x > high<T>); });
  const VectorV below = of_units([mask](WideOf<T> x) { return mask(x < low<T>); });
  return compare<T>(p, ctx, test, a, low_part, above, below);
}

template <class T, class Test>
in_place::PredV compare_wide(const in_place::PredV& p, const in_place::VectorV& a, const in_place::VectorV& b,
                             in_place::CpuContext* ctx, Test test) {
  return compare<T>(
      p, ctx,
      [test](auto x, auto units) {
        typedef WideOf<T> Units [[gnu::vector_size(16)]];
        using Truth = decltype(x == x);
        const Units unit = reinterpret_cast<Units>(units);
        const auto above = unit > high<T>, below = unit < low<T>;
        const BytePiece low_part = units_spread<T>(reinterpret_cast<BytePiece>(unit));
        return test(x, reinterpret_cast<decltype(x)>(low_part), reinterpret_cast<Truth>(above),
                    reinterpret_cast<Truth>(below));
      },
      a, b);
}

constexpr auto wide_eq = [](auto a, auto b, auto above, auto below) { return (a == b) & ~(above | below); };
constexpr auto wide_ne = [](auto a, auto b, auto above, auto below) { return (a != b) | above | below; };
constexpr auto wide_ge = [](auto a, auto b, auto above, auto below) { return ((a >= b) & ~above) | below; };
constexpr auto wide_gt = [](auto a, auto b, auto above, auto below) { return ((a > b) & ~above) | below; };
constexpr auto wide_le = [](auto a, auto b, auto above, auto below) { return ((a <= b) & ~below) | above; };
constexpr auto wide_lt = [](auto a, auto b, auto above, auto below) { return ((a < b) & ~below) | above; };

}  // namespace

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
