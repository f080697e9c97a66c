// The operand lists that rows share, one name a form. Direct forms are in the order of the instruction function's
// parameters and bear its letters; library forms name the result, then the routine's operands.
#pragma once

#include "sve/decode/handlers.h"

namespace sve::decode {

// Registers by the role of their field.
template <unsigned E> using Zd = Z<0, E>;
template <unsigned E> using Zn = Z<5, E>;
template <unsigned E> using Zm = Z<16, E>;
template <unsigned Q> using Pg = P<10, 3, Q>;
template <unsigned Q> using Pg4 = P<10, 4, Q>;
template <unsigned Q> using Pd = P<0, 4, Q>;
template <unsigned Q> using Pn = P<5, 4, Q>;
template <unsigned Q> using Pm = P<16, 4, Q>;

// ---- Direct forms ----

template <unsigned E> using zpz_tied = operands<Zdn<E>, Pg<merging>, Zn<E>>;
template <unsigned E> using zpz = operands<Zd<E>, Pg<merging>, Zn<E>>;
template <unsigned E, unsigned Source> using zpz_from = operands<Zd<E>, Pg<merging>, Zn<Source>>;
template <unsigned E> using zpz_zeroing = operands<Zd<E>, Pg<zeroing>, Zn<E>>;
template <unsigned E> using zpzz_mla = operands<Zdn<E>, Pg<merging>, Zn<E>, Zm<E>>;
template <unsigned E> using zpzz_mad = operands<Zdn<E>, Pg<merging>, Zm<E>, Zn<E>>;
template <unsigned E> using zpzz_sel = operands<Zdn<E>, Pg4<bare>, Zn<E>, Zm<E>>;
template <unsigned E> using zzz = operands<Zd<E>, Zn<E>, Zm<E>>;
template <unsigned E> using zz = operands<Zd<E>, Zn<E>>;
template <unsigned E, unsigned Source> using zz_from = operands<Zd<E>, Zn<Source>>;
using zz_bare = operands<Zd<aarch64_z_reg::none>, Zn<aarch64_z_reg::none>>;
template <unsigned E> using zi_shifted = operands<Zdn<E>, Shifted8<E>>;
template <unsigned E> using zi_signed = operands<Zdn<E>, S<12, 5>>;
template <unsigned E> using zi_dup = operands<Zd<E>, SignedShifted8>;
using zi_logical = operands<Zdn<d>, LogicalImmediate>;
using zi_dup_logical = operands<Zd<d>, LogicalImmediate>;
template <unsigned E> using zi_fp_dup = operands<Zd<E>, FpImmediate>;
template <unsigned E, unsigned Q> using zpi_copy = operands<Zd<E>, P<16, 4, Q>, SignedShifted8>;
template <unsigned E> using zpi_left = operands<Zdn<E>, Pg<merging>, LeftShift<E, true>>;
template <unsigned E> using zpi_right = operands<Zdn<E>, Pg<merging>, RightShift<E, true>>;
template <unsigned E> using zpi_fp = operands<Zdn<E>, Pg<merging>, FpArithmeticImmediate>;
template <unsigned E> using zzi_left = operands<Zd<E>, Zn<E>, LeftShift<E, false>>;
template <unsigned E> using zzi_right = operands<Zd<E>, Zn<E>, RightShift<E, false>>;
template <unsigned E> using zzi_dup = operands<Zd<E>, Zn<E>, DupIndex<E>>;
using zzi_ext = operands<Zdn<b>, Zn<b>, Ujoined<bits<20, 16>, bits<12, 10>>>;
template <unsigned E> using zr_dup = operands<Zd<E>, Rsp<5, E>>;
template <unsigned E> using zpr_copy = operands<Zd<E>, Pg<merging>, Rsp<5, E>>;
template <unsigned E> using zpv_copy = operands<Zd<E>, Pg<merging>, Zn<E>>;
template <unsigned E> using vpz = operands<Vd, Pg<bare>, Zn<E>>;
template <unsigned E> using rpz = operands<R<0, E>, Pg<bare>, Zn<E>>;
template <unsigned E> using rpz_tied = operands<Rdn<E>, Pg<bare>, Zn<E>>;
template <unsigned E> using zii_index = operands<Zd<E>, S<9, 5>, S<20, 16>>;
template <unsigned E> using zir_index = operands<Zd<E>, S<9, 5>, R<16, E>>;
template <unsigned E> using zri_index = operands<Zd<E>, R<5, E>, S<20, 16>>;
template <unsigned E> using zrr_index = operands<Zd<E>, R<5, E>, R<16, E>>;

template <unsigned E> using ppzz = operands<Pd<E>, Pg<zeroing>, Zn<E>, Zm<E>>;
template <unsigned E> using ppz = operands<Pd<E>, Pg<zeroing>, Zn<E>>;
template <unsigned E> using ppzi_signed = operands<Pd<E>, Pg<zeroing>, Zn<E>, S<20, 16>>;
template <unsigned E> using ppzi_unsigned = operands<Pd<E>, Pg<zeroing>, Zn<E>, U<20, 14>>;
using pppp = operands<Pd<b>, Pg4<zeroing>, Pn<b>, Pm<b>>;
using pppp_sel = operands<Pd<b>, Pg4<bare>, Pn<b>, Pm<b>>;
template <unsigned Q> using ppp_break = operands<Pd<b>, Pg4<Q>, Pn<b>>;
using ppp_brkn = operands<Pdn<b>, Pg4<zeroing>, Pn<b>>;
template <unsigned E> using ppp_permute = operands<Pd<E>, Pn<E>, Pm<E>>;
template <unsigned E, unsigned Source> using pp = operands<Pd<E>, Pn<Source>>;
template <unsigned E> using pp_pnext = operands<Pdn<E>, Pn<bare>>;
using pp_test = operands<Pg4<bare>, Pn<b>>;
using pp_rdffr = operands<Pd<b>, P<5, 4, zeroing>>;
using p_dst = operands<Pd<b>>;
using p_src = operands<Pn<b>>;
template <unsigned E> using pi_pattern = operands<Pd<E>, U<9, 5>>;
template <unsigned E, unsigned Width> using prr_while = operands<Pd<E>, R<5, Width>, R<16, Width>>;
using no_operands = operands<>;

template <unsigned E> using rpp_count = operands<R<0, d>, Pg4<bare>, Pn<E>>;
template <unsigned E> using rp_count = operands<Rdn<d>, Pn<E>>;
template <unsigned Width> using rii_count = operands<Rdn<Width>, U<9, 5>, Multiplier>;
template <unsigned E> using zii_count = operands<Zdn<E>, U<9, 5>, Multiplier>;
using rri_length = operands<Rsp<0>, Rsp<16>, S<10, 5>>;
using ri_length = operands<R<0, d>, S<10, 5>>;

template <unsigned E> using zpri_load = operands<Zd<E>, Pg<zeroing>, Rsp<5>, S<19, 16>>;
template <unsigned E> using zprr_load = operands<Zd<E>, Pg<zeroing>, Rsp<5>, R<16, d>>;
template <unsigned E> using zpri_replicate = operands<Zd<E>, Pg<zeroing>, Rsp<5>, U<21, 16>>;
template <unsigned E> using zpri_store = operands<Zd<E>, Pg<bare>, Rsp<5>, S<19, 16>>;
template <unsigned E> using zprr_store = operands<Zd<E>, Pg<bare>, Rsp<5>, R<16, d>>;
using vl_offset = Sjoined<bits<21, 16>, bits<12, 10>>;
using zri_fill = operands<Zd<aarch64_z_reg::none>, Rsp<5>, vl_offset>;
using pri_fill = operands<Pd<bare>, Rsp<5>, vl_offset>;
template <unsigned E> using zpzi_gather = operands<Zd<E>, Pg<zeroing>, Zn<E>, U<20, 16>>;
template <unsigned E> using zpzr_gather = operands<Zd<E>, Pg<zeroing>, Zm<E>, Rsp<5>>;
template <unsigned E> using zprz_gather = operands<Zd<E>, Pg<zeroing>, Rsp<5>, Zm<E>>;
template <unsigned E> using zpzi_scatter = operands<Zd<E>, Pg<bare>, Zn<E>, U<20, 16>>;
template <unsigned E> using zpzr_scatter = operands<Zd<E>, Pg<bare>, Zm<E>, Rsp<5>>;
template <unsigned E> using zprz_scatter = operands<Zd<E>, Pg<bare>, Rsp<5>, Zm<E>>;

// ---- Library forms ----

// Vectors by field; G is the governing predicate of three bits.
using Vdn = vector_in<bits<4, 0>>;
using Vn = vector_in<bits<9, 5>>;
using Vm = vector_in<bits<20, 16>>;
using G = predicate_in<bits<12, 10>>;
using G4 = predicate_in<bits<13, 10>>;
using Qd = predicate_in<bits<3, 0>>;
using Qn = predicate_in<bits<8, 5>>;
using Qm = predicate_in<bits<19, 16>>;
using Xd = register_in<bits<4, 0>>;
using Xn = register_in<bits<9, 5>>;
using Xm = register_in<bits<20, 16>>;
using Base = base_in<bits<9, 5>>;

namespace lib {

using vvm = routine_form<to_z, Vdn, G, Vn>;  // also unary: the old destination, the predicate, the source
using vvvm = routine_form<to_z, Vdn, G, Vn, Vm>;
using vvvm_mad = routine_form<to_z, Vdn, G, Vm, Vn>;     // integer: multiplier in 20 to 16, addend in 9 to 5
using vvvm_fp_mad = routine_form<to_z, Vdn, G, Vn, Vm>;  // floating point: multiplier in 9 to 5, addend in 20 to 16
template <unsigned E> using vim_right = routine_form<to_z, Vdn, G, RightShift<E, true>>;
using vim_fp = routine_form<to_z, Vdn, G, FpArithmeticImmediate>;
template <unsigned E> using im_fp = routine_form<to_z, Vdn, predicate_in<bits<19, 16>>, FpImmediateBits<E>>;
using vvx = routine_form<to_z, Vn, Vm>;
using v = routine_form<to_z, Vn>;
template <unsigned E> using vix_right = routine_form<to_z, Vn, RightShift<E, false>>;
template <unsigned E> using vix_shifted = routine_form<to_z, Vdn, Shifted8<E>>;
using vix_signed = routine_form<to_z, Vdn, S<12, 5>>;
using vix_unsigned = routine_form<to_z, Vdn, U<12, 5>>;
using vvi_trig = routine_form<to_z, Vdn, Vn, U<18, 16>>;
using dot = routine_form<to_z, Vn, Vm, Vdn>;
// Indexed forms: the second source is cut short and the index takes the bits above it.
using dot_indexed_s = routine_form<to_z, Vn, vector_in<bits<18, 16>>, Vdn, U<20, 19>>;
using dot_indexed_d = routine_form<to_z, Vn, vector_in<bits<19, 16>>, Vdn, U<20>>;
using fma_indexed_h = routine_form<to_z, Vdn, Vn, vector_in<bits<18, 16>>, Ujoined<bits<22>, bits<20, 19>>>;
using fma_indexed_s = routine_form<to_z, Vdn, Vn, vector_in<bits<18, 16>>, U<20, 19>>;
using fma_indexed_d = routine_form<to_z, Vdn, Vn, vector_in<bits<19, 16>>, U<20>>;
using fmul_indexed_h = routine_form<to_z, Vn, vector_in<bits<18, 16>>, Ujoined<bits<22>, bits<20, 19>>>;
using fmul_indexed_s = routine_form<to_z, Vn, vector_in<bits<18, 16>>, U<20, 19>>;
using fmul_indexed_d = routine_form<to_z, Vn, vector_in<bits<19, 16>>, U<20>>;
using fcadd = routine_form<to_z, Vdn, G, Vn, U<16>>;
using fcmla = routine_form<to_z, Vdn, G, Vn, Vm, U<14, 13>>;
using fcmla_indexed_h = routine_form<to_z, Vn, vector_in<bits<18, 16>>, Vdn, U<11, 10>, U<20, 19>>;
using fcmla_indexed_s = routine_form<to_z, Vn, vector_in<bits<19, 16>>, Vdn, U<11, 10>, U<20>>;

using splice = routine_form<to_z, G, Vdn, Vn>;  // also the vector forms of clasta and clastb
using compact = routine_form<to_z, G, Vn>;
using insert_x = routine_form<to_z, Vdn, register_in<bits<9, 5>>>;
template <unsigned E> using insert_v = routine_form<to_z, Vdn, element_in<bits<9, 5>, E>>;
using last_x = routine_form<to_x, G, Vn>;
using last_v = routine_form<to_v, G, Vn>;  // also the reductions
using cond_x = routine_form<to_x, G, Xd, Vn>;
template <unsigned E> using cond_v = routine_form<to_v, G, element_in<bits<4, 0>, E>, Vn>;  // also fadda

using cmp_vv = routine_form<to_p, G, Vn, Vm>;
using cmp_v0 = routine_form<to_p, G, Vn>;
using cmp_vi_signed = routine_form<to_p, G, Vn, S<20, 16>>;
using cmp_vi_unsigned = routine_form<to_p, G, Vn, U<20, 14>>;

using pppp = routine_form<to_p, G4, Qn, Qm>;
using ppp_break = routine_form<to_p, G4, Qn>;
using ppp_permute = routine_form<to_p, Qn, Qm>;
using pfirst = routine_form<to_p, Qn, Qd>;
using rdffrs = routine_form<to_p, Qn>;
using pattern = routine_form<to_p, U<9, 5>>;
using while_signed = routine_form<to_p, signed_register_in<bits<9, 5>>, signed_register_in<bits<20, 16>>>;
using terminate = routine_form<nothing, Xn, Xm>;

// The multiplier's raw field: the routines add one.
using count = routine_form<to_x, U<9, 5>, U<19, 16>>;
using count_x = routine_form<to_x, Xd, U<9, 5>, U<19, 16>>;
using count_v = routine_form<to_z, Vdn, U<9, 5>, U<19, 16>>;
using count_p_x = routine_form<to_x, Qn, Xd>;
using count_p_v = routine_form<to_z, Qn, Vdn>;

using load_q_si = routine_form<to_z, G, Base, S<19, 16>>;
using load_ss = routine_form<to_z, G, Base, Xm>;
using gather_vi = routine_form<to_z, G, Vn, U<20, 16>>;
using gather_vs = routine_form<to_z, G, Vm, Base>;
using gather_sv = routine_form<to_z, G, Base, Vm>;
using scatter_vi = routine_form<nothing, G, Vn, U<20, 16>, Vdn>;
using scatter_vs = routine_form<nothing, G, Vm, Base, Vdn>;
using scatter_sv = routine_form<nothing, G, Base, Vm, Vdn>;

}  // namespace lib
}  // namespace sve::decode
