// The operand lists that rows share, one name a form. Each is in the order of the instruction function's parameters and
// bears its letters; what the routine of the same instruction takes follows from it (form.h), or is said here.
#pragma once

#include "sve/decode/form.h"

namespace sve::decode {

// One form a line.
// clang-format off

// Registers by the role of their field. Zdn stands twice in the assembler's syntax, Zda once; both are destructive.
template <unsigned E> using Zd = Z<Bits<4, 0>, E, destination>;
template <unsigned E> using Zdn = Z_tied<E, both, Repetition::next>;
template <unsigned E> using Zda = Z_tied<E, both, Repetition::none>;
template <unsigned E> using Zn = Z<Bits<9, 5>, E, source>;
template <unsigned E> using Zm = Z<Bits<20, 16>, E, source>;
template <unsigned Q> using Pg = P<Bits<12, 10>, Q, governing>;
template <unsigned Q> using Pg4 = P<Bits<13, 10>, Q, governing>;
template <unsigned Q> using Pg_copy = P<Bits<19, 16>, Q, governing>;
template <unsigned Q> using Pd = P<Bits<3, 0>, Q, destination>;
template <unsigned Q> using Pn = P<Bits<8, 5>, Q, source>;
template <unsigned Q> using Pm = P<Bits<19, 16>, Q, source>;
template <unsigned E> using Rd = R<Bits<4, 0>, E, destination>;
template <unsigned E> using Rn = R<Bits<9, 5>, E, source>;
template <unsigned E> using Rm = R<Bits<20, 16>, E, source>;
using Base = Rsp<Bits<9, 5>, base>;

// ---- Vectors ----

template <unsigned E, unsigned Second = E> using zpz_tied = form<Zdn<E>, Pg<merging>, Zn<Second>>;
template <unsigned E> using zpz = form<Zd<E>, Pg<merging>, Zn<E>>;
template <unsigned E, unsigned Source> using zpz_from = form<Zd<E>, Pg<merging>, Zn<Source>>;
template <unsigned E> using zpz_zeroing = form<Zd<E>, Pg<zeroing>, Zn<E>>;
template <unsigned E> using zpz_bare = form<Zd<E>, Pg<bare>, Zn<E>>;
// The routines of splice, clasta and clastb take the predicate first.
template <unsigned E> using zpz_select = routine_takes<form<Zdn<E>, Pg<bare>, Zn<E>>, 1, 0, 2>;
// Multiply-add: accumulator in bits 4 to 0 (mla), or multiplicand there and the addend last (mad). Integer and
// floating-point mad have the multiplier and the addend in opposite fields.
template <unsigned E> using zpzz_mla = form<Zda<E>, Pg<merging>, Zn<E>, Zm<E>>;
template <unsigned E> using zpzz_mad = form<Zda<E>, Pg<merging>, Zm<E>, Zn<E>>;
template <unsigned E> using zpzz_fp_mad = zpzz_mla<E>;
template <unsigned E> using zpzz_sel = form<Z_tied<E, destination, Repetition::none>, Pg4<bare>, Zn<E>, Zm<E>>;
template <unsigned E> using zpzz_rotated = form<Zda<E>, Pg<merging>, Zn<E>, Zm<E>, Rotation<14, 13>>;
template <unsigned E> using zpz_rotated = form<Zdn<E>, Pg<merging>, Zn<E>, Rotation<16>>;
template <unsigned E, unsigned Second = E> using zzz = form<Zd<E>, Zn<E>, Zm<Second>>;
template <unsigned E> using zzz_table = form<Zd<E>, Z_list<Bits<9, 5>, E, source, 1>, Zm<E>>;
template <unsigned E> using zz = form<Zd<E>, Zn<E>>;
template <unsigned E, unsigned Source> using zz_from = form<Zd<E>, Zn<Source>>;
using zz_bare = form<Z_bare<Bits<4, 0>, destination>, Z_bare<Bits<9, 5>, source>>;
template <unsigned E, Extension Extends, unsigned Shift>
using zzz_address = form<Zd<E>, Z<Bits<9, 5>, E, base>, Z_offset<E, Extends, Shift>>;

// The routines of dot products and of the indexed complex multiply-add take the accumulator third.
template <unsigned E> using dot = routine_takes<form<Zda<E>, Zn<E - 2>, Zm<E - 2>>, 1, 2, 0>;
// Indexed forms: the second source is cut short and the index takes the bits above it.
template <unsigned E> using Zm_8 = Z<Bits<18, 16>, E, source>;
template <unsigned E> using Zm_16 = Z<Bits<19, 16>, E, source>;
using index_h = Ujoined<Bits<22>, Bits<20, 19>>;
using index_s = U<20, 19>;
using index_d = U<20>;
using dot_indexed_s = routine_takes<form<Zda<s>, Zn<b>, Zm_8<b>, index<index_s>>, 1, 2, 0, 3>;
using dot_indexed_d = routine_takes<form<Zda<d>, Zn<h>, Zm_16<h>, IndexByte<index_d>>, 1, 2, 0, 3>;
using fma_indexed_h = form<Zda<h>, Zn<h>, Zm_8<h>, IndexByte<index_h>>;
using fma_indexed_s = form<Zda<s>, Zn<s>, Zm_8<s>, IndexByte<index_s>>;
using fma_indexed_d = form<Zda<d>, Zn<d>, Zm_16<d>, IndexByte<index_d>>;
using fmul_indexed_h = form<Zd<h>, Zn<h>, Zm_8<h>, IndexByte<index_h>>;
using fmul_indexed_s = form<Zd<s>, Zn<s>, Zm_8<s>, IndexByte<index_s>>;
using fmul_indexed_d = form<Zd<d>, Zn<d>, Zm_16<d>, IndexByte<index_d>>;
using fcmla_indexed_h =
    routine_takes<form<Zda<h>, Zn<h>, Zm_8<h>, index<U<20, 19>>, Rotation<11, 10>>, 1, 2, 0, 4, 3>;
using fcmla_indexed_s = routine_takes<form<Zda<s>, Zn<s>, Zm_16<s>, index<U<20>>, Rotation<11, 10>>, 1, 2, 0, 4, 3>;

// ---- Vectors and immediates ----

template <unsigned E> using zi_shifted = form<Zdn<E>, Shifted8<E>>;
template <unsigned E> using zi_signed = form<Zdn<E>, S<12, 5>>;
template <unsigned E> using zi_unsigned = form<Zdn<E>, U<12, 5>>;
template <unsigned E> using zi_dup = form<Zd<E>, SignedShifted8>;
using zi_logical = form<Zdn<d>, LogicalImmediate>;
using zi_dup_logical = form<Zd<d>, LogicalImmediate>;
template <unsigned E> using zi_fp_dup = form<Zd<E>, FpImmediate<E>>;
template <unsigned E> using zpi_fp_copy = form<Zd<E>, Pg_copy<merging>, FpImmediate<E>>;
template <unsigned E, unsigned Q> using zpi_copy = form<Zd<E>, Pg_copy<Q>, SignedShifted8>;
template <unsigned E> using zpi_left = form<Zdn<E>, Pg<merging>, LeftShift<E, true>>;
template <unsigned E> using zpi_right = form<Zdn<E>, Pg<merging>, RightShift<E, true>>;
// Floating-point arithmetic with one of two constants.
template <unsigned E> using zpi_half_one = form<Zdn<E>, Pg<merging>, FpChoice<E, fp_half, fp_one>>;
template <unsigned E> using zpi_half_two = form<Zdn<E>, Pg<merging>, FpChoice<E, fp_half, fp_two>>;
template <unsigned E> using zpi_zero_one = form<Zdn<E>, Pg<merging>, FpChoice<E, fp_zero, fp_one>>;
template <unsigned E> using zzi_left = form<Zd<E>, Zn<E>, LeftShift<E, false>>;
template <unsigned E> using zzi_right = form<Zd<E>, Zn<E>, RightShift<E, false>>;
template <unsigned E> using zzi_dup = form<Zd<E>, Zn<E>, DupIndex<E>>;
template <unsigned E> using zzi_trig = form<Zdn<E>, Zn<E>, U<18, 16>>;
using zzi_ext = form<Zdn<b>, Zn<b>, Ujoined<Bits<20, 16>, Bits<12, 10>>>;
template <unsigned E> using zii_index = form<Zd<E>, S<9, 5>, S<20, 16>>;
template <unsigned E> using zir_index = form<Zd<E>, S<9, 5>, Rm<E>>;
template <unsigned E> using zri_index = form<Zd<E>, Rn<E>, S<20, 16>>;
template <unsigned E> using zrr_index = form<Zd<E>, Rn<E>, Rm<E>>;

// ---- Vectors and scalars ----

template <unsigned E> using zr_dup = form<Zd<E>, Rsp<Bits<9, 5>, source, E>>;
template <unsigned E> using zpr_copy = form<Zd<E>, Pg<merging>, Rsp<Bits<9, 5>, source, E>>;
template <unsigned E> using zpv_copy = form<Zd<E>, Pg<merging>, Vn<E>>;
template <unsigned E> using zr_insert = form<Zda<E>, Rn<E>>;
template <unsigned E> using zv_insert = form<Zda<E>, Vn<E>>;
template <unsigned E, unsigned Sum = E> using vpz = form<Vd<Sum>, Pg<bare>, Zn<E>>;
template <unsigned E> using vpz_tied = routine_takes<form<Vdn<E>, Pg<bare>, Zn<E>>, 1, 0, 2>;
template <unsigned E> using rpz = form<Rd<E>, Pg<bare>, Zn<E>>;
template <unsigned E> using rpz_tied = routine_takes<form<Rdn<E, Repetition::next>, Pg<bare>, Zn<E>>, 1, 0, 2>;

// ---- Predicates ----

template <unsigned E, unsigned Second = E> using ppzz = form<Pd<E>, Pg<zeroing>, Zn<E>, Zm<Second>>;
template <unsigned E> using ppz = form<Pd<E>, Pg<zeroing>, Zn<E>>;
template <unsigned E> using ppzi_signed = form<Pd<E>, Pg<zeroing>, Zn<E>, S<20, 16>>;
template <unsigned E> using ppzi_unsigned = form<Pd<E>, Pg<zeroing>, Zn<E>, U<20, 14>>;
using pppp = form<Pd<b>, Pg4<zeroing>, Pn<b>, Pm<b>>;
using pppp_sel = form<Pd<b>, Pg4<bare>, Pn<b>, Pm<b>>;
template <unsigned Q> using ppp_break = form<Pd<b>, Pg4<Q>, Pn<b>>;
using ppp_brkn = routine_takes<form<Pdn<b, Repetition::last>, Pg4<zeroing>, Pn<b>>, 1, 2, 0>;
template <unsigned E> using ppp_permute = form<Pd<E>, Pn<E>, Pm<E>>;
template <unsigned E, unsigned Source> using pp = form<Pd<E>, Pn<Source>>;
template <unsigned E>
using pp_next = routine_takes<form<Pdn<E, Repetition::next>, P<Bits<8, 5>, bare, governing>>, 1, 0>;
using pp_test = form<Pg4<bare>, Pn<b>>;
using pp_rdffr = form<Pd<b>, P<Bits<8, 5>, zeroing, governing>>;
using p_dst = form<Pd<b>>;
using p_src = form<Pn<b>>;
template <unsigned E> using pi_pattern = form<Pd<E>, Pattern>;
template <unsigned E, unsigned Width> using prr_while = form<Pd<E>, Rn<Width>, Rm<Width>>;
template <unsigned Width> using rr_terminate = form<Rn<Width>, Rm<Width>>;
using no_operands = form<>;

// ---- Counts ----

template <unsigned E> using rpp_count = form<Rd<d>, Pg4<bare>, Pn<E>>;
// The routines take the predicate first. Saturating ones of 32 bits name the register again as W, or, unsigned, only so.
template <unsigned E, unsigned Width = d> using rp_count = routine_takes<form<Rdn<Width>, Pn<E>>, 1, 0>;
template <unsigned E> using rpr_count = routine_takes<form<Rdn<d>, Pn<E>, R<Bits<4, 0>, s, source>>, 1, 0>;
template <unsigned E> using zp_count = routine_takes<form<Zda<E>, Pn<E>>, 1, 0>;
template <unsigned Width> using rii_count = form<Rdn<Width>, Pattern, Multiplier>;
using rii_count_s = form<Rdn<d, Repetition::next, s>, Pattern, Multiplier>;
using rii_result = form<Rd<d>, Pattern, Multiplier>;
template <unsigned E> using zii_count = form<Zda<E>, Pattern, Multiplier>;
using rri_length = form<Rsp<Bits<4, 0>, destination>, Rsp<Bits<20, 16>, source>, S<10, 5>>;
using ri_length = form<Rd<d>, S<10, 5>>;

// ---- Memory ----

using Imm_vl = vl_offset_of<S<19, 16>>;
using Imm_unsigned = offset_of<U<20, 16>>;
using vl_offset = vl_offset_of<Sjoined<Bits<21, 16>, Bits<12, 10>>>;
using Xm = R<Bits<20, 16>, d, offset>;
template <unsigned E> using Z_base = Z<Bits<9, 5>, E, base>;
template <unsigned E, OperandRole Role, unsigned Registers = 1> using Zt = Z_list<Bits<4, 0>, E, Role, Registers>;

template <unsigned E, unsigned Registers = 1>
using zpri_load = form<Zt<E, destination, Registers>, Pg<zeroing>, Base, Imm_vl>;
template <unsigned E, unsigned Registers = 1>
using zprr_load = form<Zt<E, destination, Registers>, Pg<zeroing>, Base, Xm>;
template <unsigned E> using zpri_replicate = form<Zt<E, destination>, Pg<zeroing>, Base, offset_of<U<21, 16>>>;
template <unsigned E> using zpri_quadword = form<Zt<E, destination>, Pg<zeroing>, Base, offset_of<S<19, 16>>>;
template <unsigned E, unsigned Registers = 1>
using zpri_store = form<Zt<E, stored, Registers>, Pg<bare>, Base, Imm_vl>;
template <unsigned E, unsigned Registers = 1>
using zprr_store = form<Zt<E, stored, Registers>, Pg<bare>, Base, Xm>;
using zri_fill = form<Z_bare<Bits<4, 0>, destination>, Base, vl_offset>;
using zri_spill = form<Z_bare<Bits<4, 0>, stored>, Base, vl_offset>;
using pri_fill = form<Pd<bare>, Base, vl_offset>;
using pri_spill = form<P<Bits<3, 0>, bare, stored>, Base, vl_offset>;

// Vectors of addresses, or of offsets that are extended from 32 bits or not, and scaled by what is accessed or not.
inline constexpr Extension lsl = Extension::lsl, sxtw = Extension::sxtw, uxtw = Extension::uxtw, plain = Extension::none;
inline constexpr unsigned scaled = Operand::by_access;
template <unsigned E> using zpzi_gather = form<Zt<E, destination>, Pg<zeroing>, Z_base<E>, Imm_unsigned>;
template <unsigned E, Extension Extends>
using zpzr_gather = form<Zt<E, destination>, Pg<zeroing>, Z_offset<E, Extends, 0>, Base>;
template <unsigned E, Extension Extends>
using zprz_gather = form<Zt<E, destination>, Pg<zeroing>, Base, Z_offset<E, Extends, scaled>>;
template <unsigned E> using zpzi_scatter = form<Zt<E, stored>, Pg<bare>, Z_base<E>, Imm_unsigned>;
template <unsigned E, Extension Extends>
using zpzr_scatter = form<Zt<E, stored>, Pg<bare>, Z_offset<E, Extends, 0>, Base>;
template <unsigned E, Extension Extends>
using zprz_scatter = form<Zt<E, stored>, Pg<bare>, Base, Z_offset<E, Extends, scaled>>;

using pri_prefetch = form<PrefetchOperation, Pg<bare>, Base, vl_offset_of<S<21, 16>>>;
using prr_prefetch = form<PrefetchOperation, Pg<bare>, Base, Xm>;
template <unsigned E> using pzi_prefetch = form<PrefetchOperation, Pg<bare>, Z_base<E>, Imm_unsigned>;
template <unsigned E, Extension Extends>
using prz_prefetch = form<PrefetchOperation, Pg<bare>, Base, Z_offset<E, Extends, scaled>>;

}  // namespace sve::decode
