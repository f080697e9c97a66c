#include "sve/runner/sites/interruption.h"

#include <cstring>

#include "sve/runner/preload/frame.h"
#include "sve/runner/sites/entry.h"
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
void leave_run(ThreadBlock* block, ucontext_t* context) {
  store_state(&block->state, context);
  block->running = 0;
}

// What the entry has pushed.
void pop_pushed(ucontext_t* context, const std::uint8_t (&registers)[4]) {
  mcontext_t& machine = context->uc_mcontext;
  const auto* pushed = reinterpret_cast<const std::uint64_t*>(machine.sp);
  for (unsigned k = 0; k < 4; ++k)
    if (registers[k] < 31) machine.regs[registers[k]] = pushed[k];
  machine.sp += SVE_ENTRY_PUSHED;
}
constexpr std::uint8_t heavy_pushed[4] = {0, 30, 31, 31};

// All registers become the program's at the instruction that the run has come to.
void restore_registers(const ThreadBlock* block, ucontext_t* context, const EntryPosition& at, const Site* s) {
  mcontext_t& machine = context->uc_mcontext;
  if (at.is_pushed) pop_pushed(context, at.low);
  for (unsigned n = 0; n < 32; ++n) {
    if (at.x >> n & 1) machine.regs[n] = block->borrowed_x[at.x_slot[n]];
    if (at.v >> n & 1) store_vector(context, n, block->borrowed_v[at.v_slot[n]]);
    if (!(at.z >> n & 1)) continue;
    std::uint8_t low[16];
    std::memcpy(low, block->state.z[n], sizeof low);
    store_vector(context, n, low);
  }
  machine.pc = reinterpret_cast<std::uintptr_t>(s->address + at.instruction);
}

Interruption defer(ThreadBlock* block, siginfo_t* info, ucontext_t* context) {
  if (is_owned(info->si_signo)) {
    block->late.hold(*info);
  } else {
    block->deferred = *info;
    block->deferred_mask = saved_mask(context);
    set_saved_mask(context, ~owned_signals);
  }
  block->pending = 1;
  return Interruption::resumed;
}

// What has waited, if anything has.
siginfo_t take_deferred(ThreadBlock* block, ucontext_t* context) {
  const siginfo_t deferred = block->deferred;
  if (deferred.si_signo != 0) set_saved_mask(context, block->deferred_mask);
  block->deferred.si_signo = 0;
  block->pending = 0;
  return deferred;
}

// The handlers of a part are done, and `place` is in the part's end: the program goes on behind its last instruction. A
// run that is over has been counted.
void leave_part(ThreadBlock* block, ucontext_t* context, std::uintptr_t place) {
  Site* const s = site_of_entry(place);
  const EntryPosition at = locate(*s, place);
  if (!at.is_last) count_partial(s, at.instruction);
  block->state.pc = s->address + at.instruction;
  leave_run(block, context);
}

Interruption interrupt_body(ThreadBlock* block, siginfo_t* info, ucontext_t* context,
                            bool (*answer)(int sig, void* context)) {
  const bool is_fault = is_owned(info->si_signo) && info->si_code > 0;
  if (context->uc_mcontext.pc == reinterpret_cast<std::uintptr_t>(sve_entry_pending)) {
    leave_part(block, context, context->uc_mcontext.regs[30]);
    *info = take_deferred(block, context);
    return Interruption::delivered;
  }
  if (!is_fault) return defer(block, info, context);
  if (answer(info->si_signo, context)) return Interruption::resumed;
  // The program's own data were not there. It hears of it as of a fault of the instruction that is now at `pc`.
  Site* const s = site_of_entry(block->running);
  count_partial(s, static_cast<std::size_t>(block->state.pc - s->address));
  leave_run(block, context);
  if (const siginfo_t deferred = take_deferred(block, context); deferred.si_signo != 0)
    kernel_resend(block->thread_id, deferred);  // behind the fault, which is the instruction's own
  return Interruption::delivered;
}

}  // namespace

// In native code. There a fault is no more than a question: the handler of the instruction tells, as after a trap, what
// it is, and whether it is one.
Interruption interrupt_native(ThreadBlock* block, siginfo_t* info, ucontext_t* context, Site* s,
                              const EntryPosition& at) {
  mcontext_t& machine = context->uc_mcontext;
  const bool is_fault = is_owned(info->si_signo) && info->si_code > 0;
  const auto leave = [&] {
    restore_registers(block, context, at, s);
    if (at.instruction != s->count) count_partial(s, at.instruction);
  };
  if (at.waited) {
    pop_pushed(context, at.low);
    machine.pc = reinterpret_cast<std::uintptr_t>(s->end());
    ++counts_of(block)[s->index];
    *info = take_deferred(block, context);
    return Interruption::delivered;
  }
  if (at.without_block || at.is_begin) {
    leave();
    return Interruption::delivered;
  }
  if (at.is_leaving && at.is_last && !block->pending) {
    restore_registers(block, context, at, s);
    if (!at.is_counted) ++counts_of(block)[s->index];
    machine.pc = reinterpret_cast<std::uintptr_t>(s->end());
    return Interruption::delivered;
  }
  if (!is_fault || !at.is_pushed) return is_fault ? Interruption::none : defer(block, info, context);
  leave();
  if (const siginfo_t deferred = take_deferred(block, context); deferred.si_signo != 0)
    kernel_resend(block->thread_id, deferred);
  info->si_signo = SIGILL;
  info->si_code = ILL_ILLOPC;
  return Interruption::delivered;
}

Interruption interrupt_run(ThreadBlock* block, siginfo_t* info, ucontext_t* context,
                           bool (*answer)(int sig, void* context)) {
  mcontext_t& machine = context->uc_mcontext;
  const auto pc = static_cast<std::uintptr_t>(machine.pc);
  const bool is_fault = is_owned(info->si_signo) && info->si_code > 0;
  if (is_fault && info->si_signo == SIGSEGV && reinterpret_cast<std::uintptr_t>(info->si_addr) == pc &&
      may_try_again(block->tried_again, pc))
    return Interruption::resumed;
  if (is_within(pc, sve_entry_restore, sve_entry_left)) {
    leave_part(block, context, machine.regs[30]);
    return Interruption::delivered;
  }
  if (block->running != 0) return interrupt_body(block, info, context, answer);
  if (pc == reinterpret_cast<std::uintptr_t>(sve_entry_without_block)) {
    Site* s = site_of_entry(machine.regs[30]);
    const EntryPosition at = locate(*s, machine.regs[30]);
    pop_pushed(context, heavy_pushed);
    machine.pc = reinterpret_cast<std::uintptr_t>(s->address + at.instruction);
    count_partial(s, at.instruction);
    return Interruption::delivered;
  }
  if (is_within(pc, sve_entry_save, sve_entry_without_block)) return defer(block, info, context);
  Site* s = site_of_entry(pc);
  if (!s) return Interruption::none;
  const EntryPosition at = locate(*s, pc);
  if (at.is_light) return interrupt_native(block, info, context, s, at);
  if (at.is_leaving) {
    leave_part(block, context, pc);
    return Interruption::delivered;
  }
  // At its first instructions an entry has done nothing yet, or cannot push.
  if (at.is_begin) {
    machine.pc = reinterpret_cast<std::uintptr_t>(s->address + at.instruction);
    count_partial(s, at.instruction);
    return Interruption::delivered;
  }
  return is_fault ? Interruption::none : defer(block, info, context);
}

}  // namespace sve::runner
