// Integer arithmetic and logic: predicated, unpredicated and immediate forms. Arithmetic wraps at the element's width.
#include "sve/insn/lanes.h"

using namespace sve;

namespace {

constexpr auto wrapping_multiply = SVE_BY_PIECES(2, native::multiply<Element>(a, b), [](auto a, auto b) {
  // Narrow elements promote to int, whose product could overflow; unsigned arithmetic wraps.
  using Wide = std::conditional_t<sizeof(a) == 8, std::uint64_t, std::uint32_t>;
  return static_cast<decltype(a)>(static_cast<Wide>(a) * static_cast<Wide>(b));
});

// Division never traps: by 0 it gives 0, and by -1 the negated dividend, so that the smallest value stays itself.
constexpr auto unsigned_divide = [](auto a, auto b) {
  return b == 0 ? decltype(a){0} : static_cast<decltype(a)>(a / b);
};
constexpr auto signed_divide = [](auto a, auto b) {
  using T = decltype(a);
  if (b == 0) return T{0};
  if (b == -1) return static_cast<T>(0 - static_cast<UnsignedOf<T>>(a));
  return static_cast<T>(a / b);
};

// Division knows two sizes: code 3 is 64 bits, every other code 32 bits.
template <Signedness S, class Op>
aarch64_decode_rc divide(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm, Op op) {
  const auto run = [&](auto element) {
    using T = Lane<decltype(element), S>;
    byte* dst = z_of(state, zdn);
    merge_lanes_in_order<T, vector_bytes>(dst, dst, p_of(state, pg), lanes<T>, op, dst, z_of(state, zm));
  };
  if (zdn.tied_dst_size == element_d)
    run(std::uint64_t{});
  else
    run(std::uint32_t{});
  return executed;
}

// Extends the low `From` of each element to the element's width.
template <class From>
aarch64_decode_rc extend(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return merging_unary(state, zd.size, zd, pg, zn, [](auto a) { return static_cast<From>(a); });
}

}  // namespace

// Predicated, merging: an inactive element keeps Zdn.

// add Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_add_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return merging(state, zdn.tied_dst_size, zdn, pg, zm, [](auto a, auto b) { return a + b; });
}

// sub Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_sub_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return merging(state, zdn.tied_dst_size, zdn, pg, zm, [](auto a, auto b) { return a - b; });
}

// mul Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_mul_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return merging(state, zdn.tied_dst_size, zdn, pg, zm, wrapping_multiply);
}

// and Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_and_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return merging(state, zdn.tied_dst_size, zdn, pg, zm, [](auto a, auto b) { return a & b; });
}

// orr Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_orr_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return merging(state, zdn.tied_dst_size, zdn, pg, zm, [](auto a, auto b) { return a | b; });
}

// eor Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_eor_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return merging(state, zdn.tied_dst_size, zdn, pg, zm, [](auto a, auto b) { return a ^ b; });
}

// bic Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_bic_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return merging(state, zdn.tied_dst_size, zdn, pg, zm,
                 [](auto a, auto b) { return a & static_cast<decltype(b)>(~b); });
}

// smax Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_smax_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return merging<Signedness::signed_>(state, zm.size, zdn, pg, zm, [](auto a, auto b) { return a > b ? a : b; });
}

// smin Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_smin_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return merging<Signedness::signed_>(state, zm.size, zdn, pg, zm, [](auto a, auto b) { return a < b ? a : b; });
}

// umax Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_umax_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return merging(state, zm.size, zdn, pg, zm, [](auto a, auto b) { return a > b ? a : b; });
}

// umin Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_umin_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return merging(state, zm.size, zdn, pg, zm, [](auto a, auto b) { return a < b ? a : b; });
}

// sdiv Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_sdiv_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return divide<Signedness::signed_>(state, zdn, pg, zm, signed_divide);
}

// sdivr Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_sdivr_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return divide<Signedness::signed_>(state, zdn, pg, zm, [](auto a, auto b) { return signed_divide(b, a); });
}

// udiv Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_udiv_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return divide<Signedness::unsigned_>(state, zdn, pg, zm, unsigned_divide);
}

// udivr Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_udivr_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return divide<Signedness::unsigned_>(state, zdn, pg, zm, [](auto a, auto b) { return unsigned_divide(b, a); });
}

// Predicated unary, merging: an inactive element keeps the old Zd.

// neg Zd.T, Pg/M, Zn.T
aarch64_decode_rc sve_neg_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return merging_unary(state, zd.size, zd, pg, zn, [](auto a) { return static_cast<decltype(a)>(decltype(a){0} - a); });
}

// sxtb Zd.T, Pg/M, Zn.T
aarch64_decode_rc sve_sxtb_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return extend<std::int8_t>(state, zd, pg, zn);
}

// sxth Zd.T, Pg/M, Zn.T
aarch64_decode_rc sve_sxth_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return extend<std::int16_t>(state, zd, pg, zn);
}

// sxtw Zd.T, Pg/M, Zn.T
aarch64_decode_rc sve_sxtw_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return extend<std::int32_t>(state, zd, pg, zn);
}

// uxth Zd.T, Pg/M, Zn.T
aarch64_decode_rc sve_uxth_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return extend<std::uint16_t>(state, zd, pg, zn);
}

// uxtw Zd.T, Pg/M, Zn.T
aarch64_decode_rc sve_uxtw_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return extend<std::uint32_t>(state, zd, pg, zn);
}

// Multiply-accumulate, merging: an inactive element keeps the first operand.

// mla Zda.T, Pg/M, Zn.T, Zm.T
aarch64_decode_rc sve_mla_zpzz(cpu_state* state, aarch64_z_reg zda, aarch64_p_reg pg, aarch64_z_reg zn,
                               aarch64_z_reg zm) {
  return merging_ternary(state, zda.tied_dst_size, zda, pg, zn, zm,
                         SVE_BY_PIECES(3, native::add<Element>(a, native::multiply<Element>(b, c)),
                                       [](auto acc, auto n, auto m) { return acc + wrapping_multiply(n, m); }));
}

// mls Zda.T, Pg/M, Zn.T, Zm.T
aarch64_decode_rc sve_mls_zpzz(cpu_state* state, aarch64_z_reg zda, aarch64_p_reg pg, aarch64_z_reg zn,
                               aarch64_z_reg zm) {
  return merging_ternary(state, zda.tied_dst_size, zda, pg, zn, zm,
                         SVE_BY_PIECES(3, native::subtract<Element>(a, native::multiply<Element>(b, c)),
                                       [](auto acc, auto n, auto m) { return acc - wrapping_multiply(n, m); }));
}

// mad Zdn.T, Pg/M, Zm.T, Za.T
aarch64_decode_rc sve_mad_zpzz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm,
                               aarch64_z_reg za) {
  return merging_ternary(state, zdn.tied_dst_size, zdn, pg, zm, za,
                         SVE_BY_PIECES(3, native::add<Element>(c, native::multiply<Element>(a, b)),
                                       [](auto dn, auto m, auto a) { return a + wrapping_multiply(dn, m); }));
}

// msb Zdn.T, Pg/M, Zm.T, Za.T
aarch64_decode_rc sve_msb_zpzz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm,
                               aarch64_z_reg za) {
  return merging_ternary(state, zdn.tied_dst_size, zdn, pg, zm, za,
                         SVE_BY_PIECES(3, native::subtract<Element>(c, native::multiply<Element>(a, b)),
                                       [](auto dn, auto m, auto a) { return a - wrapping_multiply(dn, m); }));
}

// Unpredicated.

// add Zd.T, Zn.T, Zm.T
aarch64_decode_rc sve_add_zzz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, aarch64_z_reg zm) {
  return unpredicated(state, zd.size, zd, zn, zm, [](auto a, auto b) { return a + b; });
}

// sub Zd.T, Zn.T, Zm.T
aarch64_decode_rc sve_sub_zzz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, aarch64_z_reg zm) {
  return unpredicated(state, zd.size, zd, zn, zm, [](auto a, auto b) { return a - b; });
}

// and Zd.D, Zn.D, Zm.D
aarch64_decode_rc sve_and_zzz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, aarch64_z_reg zm) {
  return unpredicated(state, element_d, zd, zn, zm, [](auto a, auto b) { return a & b; });
}

// orr Zd.D, Zn.D, Zm.D
aarch64_decode_rc sve_orr_zzz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, aarch64_z_reg zm) {
  return unpredicated(state, element_d, zd, zn, zm, [](auto a, auto b) { return a | b; });
}

// eor Zd.D, Zn.D, Zm.D
aarch64_decode_rc sve_eor_zzz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, aarch64_z_reg zm) {
  return unpredicated(state, element_d, zd, zn, zm, [](auto a, auto b) { return a ^ b; });
}

// bic Zd.D, Zn.D, Zm.D
aarch64_decode_rc sve_bic_zzz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, aarch64_z_reg zm) {
  return unpredicated(state, element_d, zd, zn, zm, [](auto a, auto b) { return a & static_cast<decltype(b)>(~b); });
}

// Immediate forms.

// add Zdn.T, Zdn.T, #imm
aarch64_decode_rc sve_add_zi(cpu_state* state, aarch64_z_reg zdn, unsigned int imm) {
  return with_immediate(state, zdn.tied_dst_size, zdn, imm, [](auto a, auto b) { return a + b; });
}

// sub Zdn.T, Zdn.T, #imm
aarch64_decode_rc sve_sub_zi(cpu_state* state, aarch64_z_reg zdn, unsigned int imm) {
  return with_immediate(state, zdn.tied_dst_size, zdn, imm, [](auto a, auto b) { return a - b; });
}

// mul Zdn.T, Zdn.T, #imm
aarch64_decode_rc sve_mul_zi(cpu_state* state, aarch64_z_reg zdn, int imm) {
  return with_immediate(state, zdn.tied_dst_size, zdn, imm, wrapping_multiply);
}

// and Zdn.D, Zdn.D, #imm
aarch64_decode_rc sve_and_zi(cpu_state* state, aarch64_z_reg zdn, aarch64_sve_logical64_imm imm) {
  return with_immediate(state, element_d, zdn, imm.value, [](auto a, auto b) { return a & b; });
}

// orr Zdn.D, Zdn.D, #imm
aarch64_decode_rc sve_orr_zi(cpu_state* state, aarch64_z_reg zdn, aarch64_sve_logical64_imm imm) {
  return with_immediate(state, element_d, zdn, imm.value, [](auto a, auto b) { return a | b; });
}

// eor Zdn.D, Zdn.D, #imm
aarch64_decode_rc sve_eor_zi(cpu_state* state, aarch64_z_reg zdn, aarch64_sve_logical64_imm imm) {
  return with_immediate(state, element_d, zdn, imm.value, [](auto a, auto b) { return a ^ b; });
}

// adr Zd.T, [Zn.T, Zm.T, lsl #amount]. The amount and the element size come from the instruction word.
aarch64_decode_rc sve_adr_scaled_zzz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, aarch64_z_reg zm) {
  const unsigned int shift = state->instr >> 10 & 3;
  const bool doubleword = state->instr >> 22 & 1;
  return unpredicated(state, doubleword ? element_d : element_s, zd, zn, zm,
                      [shift](auto base, auto offset) { return base + (offset << shift); });
}
