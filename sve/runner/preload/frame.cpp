#include "sve/runner/preload/frame.h"

#include <asm/sigcontext.h>

#include <cstring>
#include <type_traits>

namespace sve::runner {
namespace {

// The frame's record of V registers and control words. The kernel always writes one, at first place so far.
template <class Context>
auto* fpsimd_record(Context* context) {
  auto* at = context->uc_mcontext.__reserved;
  for (;;) {
    auto* head = reinterpret_cast<const _aarch64_ctx*>(at);
    if (head->magic == FPSIMD_MAGIC || head->magic == 0 || head->size == 0) break;
    at += head->size;
  }
  using Record = std::conditional_t<std::is_const_v<Context>, const fpsimd_context, fpsimd_context>;
  return reinterpret_cast<Record*>(at);
}

constexpr unsigned long btype_mask = 3ul << 10;  // a landing pad expected by an indirect branch

}  // namespace

void load_state(cpu_state* state, const ucontext_t* context) {
  const mcontext_t& from = context->uc_mcontext;
  std::memcpy(state->x, from.regs, sizeof state->x);
  state->sp = from.sp;
  state->pc = reinterpret_cast<std::uint32_t*>(from.pc);
  state->nzcv = from.pstate & flag_mask;
  const fpsimd_context* vectors = fpsimd_record(context);
  state->fpsr = vectors->fpsr;
  state->fpcr = vectors->fpcr;
  for (int n = 0; n < 32; ++n) std::memcpy(state->z[n], &vectors->vregs[n], sizeof vectors->vregs[n]);
}

void store_state(const cpu_state* state, ucontext_t* context) {
  mcontext_t& to = context->uc_mcontext;
  std::memcpy(to.regs, state->x, sizeof state->x);
  to.sp = state->sp;
  to.pc = reinterpret_cast<std::uintptr_t>(state->pc);
  to.pstate = (to.pstate & ~(flag_mask | btype_mask)) | (state->nzcv & flag_mask);
  fpsimd_context* vectors = fpsimd_record(context);
  vectors->fpsr = state->fpsr;
  for (int n = 0; n < 32; ++n) std::memcpy(&vectors->vregs[n], state->z[n], sizeof vectors->vregs[n]);
}

}  // namespace sve::runner
