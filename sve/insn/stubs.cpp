// Instruction functions of the instructions that only the vector library models.
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "sve/insn/functions.h"
#include "sve/insn/unimplemented.h"
#include "sve/lanes/repeat.h"

namespace sve {

aarch64_decode_rc unimplemented(const cpu_state* state, const char* function) {
  std::fprintf(stderr, "Unimplemented instruction: [  %tx:\t %08x\t %s  ]\n",
               static_cast<std::ptrdiff_t>(reinterpret_cast<std::uintptr_t>(state->pc)),
               static_cast<unsigned int>(state->instr), function);
  return AARCH64_DECODE_UNDECODED;
}

}  // namespace sve

using Z = aarch64_z_reg;
using P = aarch64_p_reg;
using R = aarch64_i_reg;
using SP = aarch64_i_rsp_reg;

// The operand lists of the shapes, since a definition cannot take its parameters from a type.
#define OPERANDS_pi P, unsigned int
#define OPERANDS_pp P, P
#define OPERANDS_ppp P, P, P
#define OPERANDS_pppp P, P, P, P
#define OPERANDS_ppz P, P, Z
#define OPERANDS_ppzi P, P, Z, unsigned int
#define OPERANDS_ppzi_signed P, P, Z, int
#define OPERANDS_ppzz P, P, Z, Z
#define OPERANDS_prefetch_pri P, SP, int
#define OPERANDS_prefetch_prr P, SP, R
#define OPERANDS_prefetch_prz P, SP, Z
#define OPERANDS_prefetch_pzi P, Z, unsigned int
#define OPERANDS_prr P, R, R
#define OPERANDS_rii R, unsigned int, unsigned int
#define OPERANDS_rp R, P
#define OPERANDS_rpr R, P, R
#define OPERANDS_rpz R, P, Z
#define OPERANDS_rr R, R
#define OPERANDS_vpz unsigned int, P, Z
#define OPERANDS_zi Z, unsigned int
#define OPERANDS_zi_signed Z, int
#define OPERANDS_zii Z, unsigned int, unsigned int
#define OPERANDS_zp Z, P
#define OPERANDS_zpi Z, P, unsigned int
#define OPERANDS_zpi_fp Z, P, aarch64_sve_fp_arith_imm
#define OPERANDS_zpi_fp_dup Z, P, aarch64_sve_fp_dup_imm
#define OPERANDS_zpri Z, P, SP, int
#define OPERANDS_zprr Z, P, SP, R
#define OPERANDS_zprz Z, P, SP, Z
#define OPERANDS_zpz Z, P, Z
#define OPERANDS_zpzi Z, P, Z, unsigned int
#define OPERANDS_zpzr Z, P, Z, unsigned int
#define OPERANDS_zpzr_base Z, P, Z, SP
#define OPERANDS_zpzzr Z, P, Z, Z, unsigned int
#define OPERANDS_zr_zero Z, R
#define OPERANDS_zv Z, Z
#define OPERANDS_zz Z, Z
#define OPERANDS_zzi Z, Z, unsigned int
#define OPERANDS_zzz Z, Z, Z
#define OPERANDS_zzzi Z, Z, Z, unsigned int
#define OPERANDS_zzzi_fp Z, Z, Z, aarch64_sve_fp_arith_imm
#define OPERANDS_zzzri Z, Z, Z, unsigned int, unsigned int

#define DEFINE_STUB(shape, name) DEFINE_STUB_1(name, OPERANDS_##shape)
#define DEFINE_STUB_1(name, ...) DEFINE_STUB_2(name, __VA_ARGS__)
#define DEFINE_STUB_2(name, ...) \
  aarch64_decode_rc sve_##name(cpu_state* state, __VA_ARGS__) { return sve::unimplemented(state, "sve_" #name); }
#define SVE_STUBS(shape, ...) SVE_FOR_EACH_WITH(DEFINE_STUB, shape, __VA_ARGS__)
#include "sve/insn/stubs.inc"
