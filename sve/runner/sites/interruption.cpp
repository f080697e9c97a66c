#include "sve/runner/sites/interruption.h"

#include <cstring>

#include "sve/runner/preload/frame.h"
#include "sve/runner/sites/offsets.h"
#include "sve/runner/sites/patch.h"
#include "sve/runner/sites/site.h"

extern "C" {
// The code that all entries share, in entry.S.
extern const char sve_entry_save[], sve_entry_without_block[], sve_entry_restore[], sve_entry_left[],
    sve_entry_pending[];
}

namespace sve::runner {
namespace {

bool is_within(std::uintptr_t pc, const char* begin, const char* end) {
  return pc >= reinterpret_cast<std::uintptr_t>(begin) && pc < reinterpret_cast<std::uintptr_t>(end);
}

// The program goes on where its cpu_state says.
void leave_run(thread_block* block, ucontext_t* context) {
  store_state(&block->state, context);
  block->running = 0;
}

// X0, X1 and X30 stand where the entry has pushed them.
void pop_pushed(ucontext_t* context) {
  mcontext_t& machine = context->uc_mcontext;
  const auto* pushed = reinterpret_cast<const std::uint64_t*>(machine.sp);
  machine.regs[0] = pushed[0];
  machine.regs[1] = pushed[1];
  machine.regs[30] = pushed[2];
  machine.sp += SVE_ENTRY_PUSHED;
}

interruption defer(thread_block* block, siginfo_t* info, ucontext_t* context) {
  if (is_owned(info->si_signo)) {
    block->late.hold(*info);
  } else {
    block->deferred = *info;
    block->deferred_mask = saved_mask(context);
    set_saved_mask(context, ~owned_signals);
  }
  block->pending = 1;
  return interruption::resumed;
}

// What has waited, if anything has.
siginfo_t take_deferred(thread_block* block, ucontext_t* context) {
  const siginfo_t deferred = block->deferred;
  if (deferred.si_signo != 0) set_saved_mask(context, block->deferred_mask);
  block->deferred.si_signo = 0;
  block->pending = 0;
  return deferred;
}

interruption interrupt_body(thread_block* block, siginfo_t* info, ucontext_t* context,
                            bool (*answer)(int sig, void* context)) {
  const bool is_fault = is_owned(info->si_signo) && info->si_code > 0;
  if (context->uc_mcontext.pc == reinterpret_cast<std::uintptr_t>(sve_entry_pending)) {
    leave_run(block, context);
    *info = take_deferred(block, context);
    return interruption::delivered;
  }
  if (!is_fault) return defer(block, info, context);
  if (answer(info->si_signo, context)) return interruption::resumed;
  // The program's own data were not there. It hears of it as of a fault of the instruction that is now at `pc`.
  bool is_tail;
  site* const s = site_of_entry(block->running, is_tail);
  count_partial(s, static_cast<std::size_t>(block->state.pc - s->address));
  leave_run(block, context);
  if (const siginfo_t deferred = take_deferred(block, context); deferred.si_signo != 0)
    kernel_resend(block->thread_id, deferred);  // behind the fault, which is the instruction's own
  return interruption::delivered;
}

}  // namespace

interruption interrupt_run(thread_block* block, siginfo_t* info, ucontext_t* context,
                           bool (*answer)(int sig, void* context)) {
  mcontext_t& machine = context->uc_mcontext;
  const auto pc = static_cast<std::uintptr_t>(machine.pc);
  const bool is_fault = is_owned(info->si_signo) && info->si_code > 0;
  bool is_tail = false;
  if (is_fault && info->si_signo == SIGSEGV && reinterpret_cast<std::uintptr_t>(info->si_addr) == pc && was_in_work(pc))
    return interruption::resumed;
  if (is_within(pc, sve_entry_restore, sve_entry_left)) {
    leave_run(block, context);
    return interruption::delivered;
  }
  if (block->running != 0) return interrupt_body(block, info, context, answer);
  if (pc == reinterpret_cast<std::uintptr_t>(sve_entry_without_block)) {
    const site* s = site_of_entry(machine.regs[30], is_tail);
    pop_pushed(context);
    machine.pc = reinterpret_cast<std::uintptr_t>(s->address);
    return interruption::delivered;
  }
  if (is_within(pc, sve_entry_save, sve_entry_without_block)) return defer(block, info, context);
  const site* s = site_of_entry(pc, is_tail);
  if (!s) return interruption::none;
  if (is_tail) {
    leave_run(block, context);
    return interruption::delivered;
  }
  // At its first instructions an entry has done nothing yet, or cannot push.
  if (pc == s->entry) {
    machine.pc = reinterpret_cast<std::uintptr_t>(s->address);
    return interruption::delivered;
  }
  return is_fault ? interruption::none : defer(block, info, context);
}

}  // namespace sve::runner
