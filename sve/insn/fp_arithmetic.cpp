// Floating-point arithmetic on the host.
#include "sve/insn/fp_lanes.h"

using namespace sve;
using namespace sve::fp;

namespace {

template <class Op>
aarch64_decode_rc binary(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm, Op op) {
  return for_fp_size(zdn.tied_dst_size, [&](auto element) {
    byte* dst = z_of(state, zdn);
    merge<decltype(element)>(state, dst, dst, p_of(state, pg), op, dst, z_of(state, zm));
  });
}

// The constant of the one-bit immediate: one of two values.
template <class Op>
aarch64_decode_rc with_constant(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_sve_fp_arith_imm imm,
                                float clear, float set, Op op) {
  const float constant = imm.value ? set : clear;
  return for_fp_size(zdn.tied_dst_size, [&](auto element) {
    using U = decltype(element);
    using Float = std::conditional_t<sizeof(U) == 4, float, double>;
    const auto value = std::bit_cast<FpValue<U>>(static_cast<Float>(constant));
    byte* dst = z_of(state, zdn);
    merge<U>(
        state, dst, dst, p_of(state, pg),
        [&](auto& host, auto a) -> decltype(op(host, a, a)) {
          if constexpr (std::is_same_v<decltype(a), FpValue<U>>)
            return op(host, a, value);
          else
            return op(host, a, decltype(a)(raw<U>(value)));
        },
        dst);
  });
}

template <class Op>
aarch64_decode_rc ternary(cpu_state* state, aarch64_z_reg zda, aarch64_p_reg pg, aarch64_z_reg zb, aarch64_z_reg zc,
                          Op op) {
  return for_fp_size(zda.tied_dst_size, [&](auto element) {
    byte* dst = z_of(state, zda);
    merge<decltype(element)>(state, dst, dst, p_of(state, pg), op, dst, z_of(state, zb), z_of(state, zc));
  });
}

template <class Op, class... Sources>
aarch64_decode_rc unpredicated(cpu_state* state, aarch64_z_reg zd, Op op, Sources... registers) {
  return for_fp_size(zd.size, [&](auto element) {
    byte* dst = z_of(state, zd);
    merge<decltype(element)>(state, dst, dst, EveryElement{}, op, z_of(state, registers)...);
  });
}

}  // namespace

// f<op> Zdn.T, Pg/M, Zdn.T, Zm.T
#define BINARY(name, op)                                                                                        \
  aarch64_decode_rc sve_##name##_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) { \
    return binary(state, zdn, pg, zm, op);                                                                      \
  }
// f<op> Zdn.T, Pg/M, Zdn.T, #constant
#define WITH_CONSTANT(name, clear, set, op)                                                 \
  aarch64_decode_rc sve_##name##_zpi(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, \
                                     aarch64_sve_fp_arith_imm imm) {                        \
    return with_constant(state, zdn, pg, imm, clear, set, op);                              \
  }
// f<op> Zd.T, Pg/M, Zn.T
#define UNARY(name, member)                                                                                         \
  aarch64_decode_rc sve_##name##_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {      \
    return unary(state, zd, pg, zn, [](auto& host, auto a) -> decltype(host.member(a)) { return host.member(a); }); \
  }
// f<op> Zd.T, Zn.T, Zm.T
#define UNPREDICATED(name, op)                                                                                 \
  aarch64_decode_rc sve_##name##_zzz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, aarch64_z_reg zm) { \
    return unpredicated(state, zd, op, zn, zm);                                                                \
  }
// Accumulator first: op(Zda, Zn, Zm).
#define FUSED(name, member)                                                                                    \
  aarch64_decode_rc sve_##name##_zpzz(cpu_state* state, aarch64_z_reg zda, aarch64_p_reg pg, aarch64_z_reg zn, \
                                      aarch64_z_reg zm) {                                                      \
    return ternary(state, zda, pg, zn, zm,                                                                     \
                   [](auto& host, auto acc, auto n, auto m) -> decltype(host.member(acc, n, m)) {              \
                     return host.member(acc, n, m);                                                            \
                   });                                                                                         \
  }
// Multiplicand first: op(Za, Zdn, Zm).
#define FUSED_MULTIPLICAND(name, member)                                                                               \
  aarch64_decode_rc sve_##name##_zpzz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm,         \
                                      aarch64_z_reg za) {                                                              \
    return ternary(                                                                                                    \
        state, zdn, pg, zm, za,                                                                                        \
        [](auto& host, auto dn, auto m, auto a) -> decltype(host.member(a, dn, m)) { return host.member(a, dn, m); }); \
  }
BINARY(fadd, sum)
BINARY(fsub, subtract)
BINARY(fsubr, subtract_reversed)
BINARY(fmul, product)
BINARY(fdiv, quotient)
BINARY(fdivr, quotient_reversed)
BINARY(fmax, maximum)
BINARY(fmaxnm, maximum_number)
BINARY(fminnm, minimum_number)

WITH_CONSTANT(fadd, 0.5f, 1.0f, sum)
WITH_CONSTANT(fsub, 0.5f, 1.0f, subtract)
WITH_CONSTANT(fsubr, 0.5f, 1.0f, subtract_reversed)
WITH_CONSTANT(fmul, 0.5f, 2.0f, product)

UNPREDICATED(fadd, sum)
UNPREDICATED(fsub, subtract)
UNPREDICATED(fmul, product)
UNPREDICATED(frecps, reciprocal_step)

UNARY(fsqrt, square_root)

// frecpe Zd.T, Zn.T
aarch64_decode_rc sve_frecpe_zz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn) {
  return unpredicated(
      state, zd,
      [](auto& host, auto a) -> decltype(host.reciprocal_estimate(a)) { return host.reciprocal_estimate(a); }, zn);
}

// fneg Zd.T, Pg/M, Zn.T: the sign alone, no status.
aarch64_decode_rc sve_fneg_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return for_fp_size(zd.size, [&](auto element) {
    using U = decltype(element);
    byte* dst = z_of(state, zd);
    merge_lanes<U>(
        dst, dst, p_of(state, pg), lanes<U>, [](U a) { return FPNeg(a); }, z_of(state, zn));
  });
}

// fabs Zd.T, Pg/M, Zn.T. No row reaches it. It keeps what compares greater than or equal to zero and negates any other,
// so that -0 stays -0 and every NaN has its sign flipped.
aarch64_decode_rc sve_fabs_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return for_fp_size(zd.size, [&](auto element) {
    using U = decltype(element);
    byte* dst = z_of(state, zd);
    merge_lanes<U>(
        dst, dst, p_of(state, pg), lanes<U>,
        [](U a) {
          const U magnitude = magnitude_of(a);
          const bool keeps = magnitude <= Format<U>::infinity && (a == magnitude || magnitude == 0);
          return keeps ? a : FPNeg(a);
        },
        z_of(state, zn));
  });
}

// Only fnmla has rows; the library serves the rest.
FUSED(fmla, multiply_add)
FUSED(fmls, multiply_subtract)
FUSED(fnmla, negated_multiply_add)
FUSED(fnmls, negated_multiply_subtract)
FUSED_MULTIPLICAND(fmad, multiply_add)
FUSED_MULTIPLICAND(fmsb, multiply_subtract)
FUSED_MULTIPLICAND(fnmad, negated_multiply_add)
FUSED_MULTIPLICAND(fnmsb, negated_multiply_subtract)
