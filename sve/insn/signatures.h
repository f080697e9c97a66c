// The shapes of the instruction functions, named after the operand letters of their names: z and p registers, r general
// register, i immediate, v a vector register that receives a scalar.
#pragma once

#include "sve/state/cpu_state.h"

namespace sve::insn {

using rc = aarch64_decode_rc;
using state = cpu_state*;
using zr_ = aarch64_z_reg;
using pr_ = aarch64_p_reg;
using ir_ = aarch64_i_reg;
using sr_ = aarch64_i_rsp_reg;

// Vectors.
using zpz = rc(state, zr_, pr_, zr_);
using zpzz = rc(state, zr_, pr_, zr_, zr_);
using zzz = rc(state, zr_, zr_, zr_);
using zz = rc(state, zr_, zr_);
using zi = rc(state, zr_, unsigned int);
using zi_signed = rc(state, zr_, int);
using zi_logical = rc(state, zr_, aarch64_sve_logical64_imm);
using zi_fp = rc(state, zr_, aarch64_sve_fp_dup_imm);
using zpi = rc(state, zr_, pr_, unsigned int);
using zpi_signed = rc(state, zr_, pr_, int);
using zpi_fp = rc(state, zr_, pr_, aarch64_sve_fp_arith_imm);
using zpi_fp_dup = rc(state, zr_, pr_, aarch64_sve_fp_dup_imm);
using zzi = rc(state, zr_, zr_, unsigned int);
using zzzi = rc(state, zr_, zr_, zr_, unsigned int);
using zzzi_fp = rc(state, zr_, zr_, zr_, aarch64_sve_fp_arith_imm);
using zpzr = rc(state, zr_, pr_, zr_, unsigned int);        // the last letter is a rotation
using zpzzr = rc(state, zr_, pr_, zr_, zr_, unsigned int);  // likewise
using zzzri = rc(state, zr_, zr_, zr_, unsigned int, unsigned int);
using zr = rc(state, zr_, sr_);
using zr_zero = rc(state, zr_, ir_);
using zpr = rc(state, zr_, pr_, sr_);
using zpv = rc(state, zr_, pr_, zr_);
using zv = rc(state, zr_, zr_);
using vpz = rc(state, unsigned int, pr_, zr_);
using rpz = rc(state, ir_, pr_, zr_);
using index_ii = rc(state, zr_, int, int);
using index_ir = rc(state, zr_, int, ir_);
using index_ri = rc(state, zr_, ir_, int);
using index_rr = rc(state, zr_, ir_, ir_);

// Predicates and compares.
using ppzz = rc(state, pr_, pr_, zr_, zr_);
using ppzi = rc(state, pr_, pr_, zr_, unsigned int);
using ppzi_signed = rc(state, pr_, pr_, zr_, int);
using ppz = rc(state, pr_, pr_, zr_);
using pppp = rc(state, pr_, pr_, pr_, pr_);
using ppp = rc(state, pr_, pr_, pr_);
using pp = rc(state, pr_, pr_);
using p = rc(state, pr_);
using pi = rc(state, pr_, unsigned int);
using prr = rc(state, pr_, ir_, ir_);
using rr = rc(state, ir_, ir_);
using none = rc(state);

// Counts and lengths.
using rpp = rc(state, ir_, pr_, pr_);
using rp = rc(state, ir_, pr_);
using rpr = rc(state, ir_, pr_, ir_);
using zp = rc(state, zr_, pr_);
using rii = rc(state, ir_, unsigned int, unsigned int);  // pattern, multiplier
using zii = rc(state, zr_, unsigned int, unsigned int);
using rri = rc(state, sr_, sr_, int);
using ri = rc(state, ir_, int);

// Memory.
using zpri = rc(state, zr_, pr_, sr_, int);
using zpri_unsigned = rc(state, zr_, pr_, sr_, unsigned int);
using zprr = rc(state, zr_, pr_, sr_, ir_);
using zri = rc(state, zr_, sr_, int);
using pri = rc(state, pr_, sr_, int);
using zpzi = rc(state, zr_, pr_, zr_, unsigned int);
using zpzr_base = rc(state, zr_, pr_, zr_, sr_);
using zprz = rc(state, zr_, pr_, sr_, zr_);
using prefetch_pri = rc(state, pr_, sr_, int);
using prefetch_prr = rc(state, pr_, sr_, ir_);
using prefetch_pzi = rc(state, pr_, zr_, unsigned int);
using prefetch_prz = rc(state, pr_, sr_, zr_);

}  // namespace sve::insn
