// Integer compares: a canonical predicate, zero where Pg is inactive, and the flags from it.
#include "sve/lanes/compares.h"

#include "sve/insn/lanes.h"
#include "sve/insn/predicates.h"

using namespace sve;

namespace {

template <class T, class Test, class... Sources>
void compare_elements(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, Test test, const Sources*... src) {
  const byte* const predicate = p_of(state, pg);
  ComputedPredicate<T> result(predicate, compared_pieces<T>(test, src...));
  write_with_flags(state, p_of(state, pd), predicate, result);
}

template <Signedness S, class Test>
aarch64_decode_rc compare(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_z_reg zn, aarch64_z_reg zm,
                          Test test) {
  return for_size(pd.size, [&](auto element) {
    using T = Lane<decltype(element), S>;
    compare_elements<T>(state, pd, pg, test, z_of(state, zn), z_of(state, zm));
  });
}

// The immediate is cut to the element's width.
template <Signedness S, class Immediate, class Test>
aarch64_decode_rc compare_immediate(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_z_reg zn,
                                    Immediate imm, Test test) {
  return for_size(pd.size, [&](auto element) {
    using T = Lane<decltype(element), S>;
    const T value = static_cast<T>(imm);
    compare_elements<T>(
        state, pd, pg, [test, value](auto a) { return test(a, value); }, z_of(state, zn));
  });
}

constexpr auto equal = [](auto a, auto b) { return a == b; };
constexpr auto different = [](auto a, auto b) { return a != b; };
constexpr auto greater = [](auto a, auto b) { return a > b; };
constexpr auto greater_or_equal = [](auto a, auto b) { return a >= b; };
constexpr auto less = [](auto a, auto b) { return a < b; };
constexpr auto less_or_equal = [](auto a, auto b) { return a <= b; };

}  // namespace

// cmp<cc> Pd.T, Pg/Z, Zn.T, Zm.T
#define COMPARE(cc, signedness_, test)                                                                         \
  aarch64_decode_rc sve_cmp##cc##_ppzz(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_z_reg zn, \
                                       aarch64_z_reg zm) {                                                     \
    return compare<Signedness::signedness_>(state, pd, pg, zn, zm, test);                                      \
  }
// cmp<cc> Pd.T, Pg/Z, Zn.T, #imm
#define COMPARE_IMMEDIATE(cc, signedness_, type, test)                                                         \
  aarch64_decode_rc sve_cmp##cc##_ppzi(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_z_reg zn, \
                                       type imm) {                                                             \
    return compare_immediate<Signedness::signedness_>(state, pd, pg, zn, imm, test);                           \
  }

COMPARE(eq, signed_, equal)
COMPARE(ne, signed_, different)
COMPARE(ge, signed_, greater_or_equal)
COMPARE(gt, signed_, greater)
COMPARE(hs, unsigned_, greater_or_equal)
COMPARE(hi, unsigned_, greater)

COMPARE_IMMEDIATE(eq, signed_, int, equal)
COMPARE_IMMEDIATE(ne, signed_, int, different)
COMPARE_IMMEDIATE(gt, signed_, int, greater)
COMPARE_IMMEDIATE(lt, signed_, int, less)
COMPARE_IMMEDIATE(le, signed_, int, less_or_equal)
COMPARE_IMMEDIATE(hi, unsigned_, unsigned int, greater)
COMPARE_IMMEDIATE(lo, unsigned_, unsigned int, less)
