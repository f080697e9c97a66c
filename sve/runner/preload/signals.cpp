#include "sve/runner/preload/signals.h"

#include <atomic>
#include <cerrno>
#include <cstring>

#include "sve/runner/preload/emulate.h"
#include "sve/runner/preload/process.h"
#include "sve/runner/preload/report.h"
#include "sve/runner/preload/thread_block.h"

extern "C" int sve_call_on_stack(void (*function)(void*), void* argument, void* stack_top, void** resume);

namespace sve::runner {
namespace {

using handler_function = void (*)(int, siginfo_t*, void*);

constexpr std::uintptr_t default_action = 0;  // SIG_DFL
constexpr std::uintptr_t ignore_action = 1;   // SIG_IGN
constexpr signal_bits sigill = bit(SIGILL);

// The actions as the program set them. Writers hold the lock, with all signals blocked; readers are signal handlers,
// take no lock, and read again when a writer came between.
program_action actions[signal_count + 1];
std::atomic<unsigned> version{0};
std::atomic_flag lock = ATOMIC_FLAG_INIT;

program_action read_action(int sig) {
  for (;;) {
    const unsigned before = version.load(std::memory_order_acquire);
    const program_action copy = actions[sig];
    std::atomic_thread_fence(std::memory_order_acquire);
    if (!(before & 1) && version.load(std::memory_order_relaxed) == before) return copy;
  }
}

// Call with all signals blocked and `lock` held.
void write_action(int sig, const program_action& action) {
  version.fetch_add(1, std::memory_order_acq_rel);
  actions[sig] = action;
  version.fetch_add(1, std::memory_order_acq_rel);
}

class ActionLock {
 public:
  ActionLock() {
    while (lock.test_and_set(std::memory_order_acquire)) system_call(SYS_sched_yield);
  }
  ~ActionLock() { lock.clear(std::memory_order_release); }
  ActionLock(const ActionLock&) = delete;
  ActionLock& operator=(const ActionLock&) = delete;

 private:
  SignalsBlocked signals_;  // first in, last out
};

// Who blocks SIGILL on this thread, in the program's view. A handler may be left by a jump that tells us nothing, so
// only a block that the program asked for is taken to make a trap fatal.
enum class block : unsigned char { none, by_handler, by_request };
thread_local block blocked __attribute__((tls_model("initial-exec"))) = block::none;
// SIGILLs that wait while the program blocks them: one sent to this thread, one sent to the process.
thread_local siginfo_t held_by_thread __attribute__((tls_model("initial-exec")));
siginfo_t held_by_process;
std::atomic<int> process_holds{0};  // 0 nothing, 1 being changed, 2 a signal

signal_bits saved_mask(const ucontext_t* context) {
  signal_bits mask;
  std::memcpy(&mask, &context->uc_sigmask, sizeof mask);
  return mask;
}

void set_saved_mask(ucontext_t* context, signal_bits mask) { std::memcpy(&context->uc_sigmask, &mask, sizeof mask); }

// A call of a handler of the program.
struct handler_call {
  std::uintptr_t handler;
  int sig;
  siginfo_t* info;
  ucontext_t* context;
};

void call_plainly(void* argument) {
  const auto* call = static_cast<handler_call*>(argument);
  reinterpret_cast<handler_function>(call->handler)(call->sig, call->info, call->context);
}

// The interrupted code's vectors, predicates and FFR outlive a handler that uses SVE, as they would in a signal frame
// of a processor with SVE; and like there they lie on the stack of the handler, which it may leave by a jump.
__attribute__((noinline)) void call_keeping_vectors(handler_call* call, thread_block* vectors) {
  struct {
    alignas(16) std::uint8_t z[32][vector_bytes - 16];
    std::uint8_t p[16][vector_bytes];
    std::uint8_t ffr[vector_bytes];
  } kept;
  cpu_state* state = &vectors->state;
  for (int n = 0; n < 32; ++n) std::memcpy(kept.z[n], state->z[n] + 16, sizeof kept.z[n]);
  std::memcpy(kept.p, state->p, sizeof kept.p);
  std::memcpy(kept.ffr, state->ffr, sizeof kept.ffr);
  call_plainly(call);
  for (int n = 0; n < 32; ++n) std::memcpy(state->z[n] + 16, kept.z[n], sizeof kept.z[n]);
  std::memcpy(state->p, kept.p, sizeof kept.p);
  std::memcpy(state->ffr, kept.ffr, sizeof kept.ffr);
}

// Calls the handler in the program's view of the mask. `blocks_sigill` tells whether it runs with SIGILL blocked.
void call_handler(handler_call* call, bool blocks_sigill) {
  const block before = blocked;
  if (before != block::none) set_saved_mask(call->context, saved_mask(call->context) | sigill);
  if (blocks_sigill && before == block::none) blocked = block::by_handler;
  if (thread_block* vectors = this_thread_block) {
    call_keeping_vectors(call, vectors);
  } else {
    call_plainly(call);
  }
  const signal_bits after = saved_mask(call->context);
  set_saved_mask(call->context, after & ~sigill);
  set_sigill_blocked((after & sigill) != 0);
  if (blocked != block::none && before != block::none) blocked = before;
}

void call_handler_with_sigill_free(void* call) { call_handler(static_cast<handler_call*>(call), false); }
void call_handler_with_sigill_blocked(void* call) { call_handler(static_cast<handler_call*>(call), true); }

// The kernel's handler of every signal but the owned ones: the kernel has set the mask and the stack.
void program_signal_entry(int sig, siginfo_t* info, void* context) {
  program_action action = read_action(sig);
  if (action.handler == default_action || action.handler == ignore_action) return;  // changed while on its way
  handler_call call{action.handler, sig, info, static_cast<ucontext_t*>(context)};
  call_handler(&call, (action.mask & sigill) != 0);
}

constexpr unsigned long kernel_flags =
    SA_NOCLDSTOP | SA_NOCLDWAIT | SA_ONSTACK | SA_RESTART | SA_NODEFER | SA_RESETHAND;

// What the kernel is told for an action of the program.
kernel_action kernel_form(int sig, const program_action& action) {
  kernel_action form;
  form.mask = action.mask & ~sigill;
  if (is_owned(sig)) {
    form.handler = reinterpret_cast<std::uintptr_t>(sig == SIGILL ? illegal_instruction_entry : fault_entry);
    form.flags = SA_SIGINFO | (action.flags & (SA_ONSTACK | SA_RESTART));
    if (action.handler == ignore_action) form.flags |= SA_RESTART;
    if (sig == SIGILL) form.mask = emulation_mask;
  } else if (action.handler == default_action || action.handler == ignore_action) {
    form.handler = action.handler;
    form.flags = action.flags;
  } else {
    form.handler = reinterpret_cast<std::uintptr_t>(program_signal_entry);
    form.flags = SA_SIGINFO | (action.flags & kernel_flags);
  }
  return form;
}

// What a kernel action means to the program.
program_action program_form(int sig, const kernel_action& form) {
  const program_action known = read_action(sig);
  if (is_owned(sig)) return known;
  program_action action{form.handler, form.flags, form.mask | (known.mask & sigill)};
  if (form.handler == reinterpret_cast<std::uintptr_t>(program_signal_entry)) {
    action.handler = known.handler;
    action.flags = (form.flags & ~static_cast<unsigned long>(SA_SIGINFO)) | (known.flags & SA_SIGINFO);
  }
  return action;
}

// Ends the process by `sig`, or makes the kernel do so when the program resumes.
void take_default_action(int sig, const siginfo_t* info) {
  report_death(sig);
  const kernel_action action;
  kernel_sigaction(sig, &action, nullptr);
  // A trap or a fault comes again when the instruction is run again, and then kills with all the right particulars.
  if (info->si_code > 0) return;
  siginfo_t again = *info;
  kernel_mask(SIG_BLOCK, bit(sig));
  kernel_resend(sig, &again);
}

bool on_alternate_stack(stack_t* stack) {
  system_call(SYS_sigaltstack, 0, address(stack));
  return (stack->ss_flags & (SS_ONSTACK | SS_DISABLE)) != 0;
}

}  // namespace

void start_signals() {
  for (int sig = 1; sig <= signal_count; ++sig) {
    kernel_action inherited;
    if (kernel_sigaction(sig, nullptr, &inherited) != 0) continue;
    actions[sig].handler = inherited.handler;
  }
  if (kernel_mask(SIG_UNBLOCK, sigill) & sigill) blocked = block::by_request;
  for (int sig : {SIGILL, SIGSEGV, SIGBUS}) {
    const kernel_action form = kernel_form(sig, actions[sig]);
    kernel_sigaction(sig, &form, nullptr);
  }
}

int change_action(int sig, const program_action* action, program_action* old) {
  if (sig < 1 || sig > signal_count || sig == SIGKILL || sig == SIGSTOP) return EINVAL;
  if (in_borrowed_memory()) {
    // Between vfork and exec the actions are the child's, but the table is the parent's, so it stays as it is.
    kernel_action before;
    kernel_sigaction(sig, nullptr, &before);
    if (old) *old = program_form(sig, before);
    if (action && !is_owned(sig)) {
      const kernel_action form{action->handler, action->flags, 0, action->mask};
      kernel_sigaction(sig, &form, nullptr);
    }
    return 0;
  }
  const ActionLock guard;
  kernel_action before;
  if (const long error = kernel_sigaction(sig, nullptr, &before); error != 0) return static_cast<int>(-error);
  const program_action was = program_form(sig, before);
  if (action) {
    const kernel_action form = kernel_form(sig, *action);
    write_action(sig, *action);
    kernel_sigaction(sig, &form, nullptr);
  }
  if (old) *old = was;
  return 0;
}

void deliver(int sig, siginfo_t* info, ucontext_t* context) {
  program_action action = read_action(sig);
  if (action.handler == ignore_action && info->si_code <= 0) return;
  const signal_bits interrupted = saved_mask(context);
  // The kernel does not let a program ignore or block a fault: it ends it.
  const bool blocks_it = sig == SIGILL ? blocked == block::by_request : (interrupted & bit(sig)) != 0;
  const bool fatal = info->si_code > 0 && blocks_it;
  if (action.handler == default_action || action.handler == ignore_action || fatal) {
    return take_default_action(sig, info);
  }
  if (action.flags & SA_RESETHAND) {
    const ActionLock guard;
    program_action reset = action;
    reset.handler = default_action;
    write_action(sig, reset);
  }
  signal_bits mask = interrupted | action.mask;
  if (!(action.flags & SA_NODEFER)) mask |= bit(sig);
  kernel_mask(SIG_SETMASK, mask & ~sigill);
  handler_call call{action.handler, sig, info, context};
  const auto function = (mask & sigill) ? call_handler_with_sigill_blocked : call_handler_with_sigill_free;
  stack_t stack{};
  if ((action.flags & SA_ONSTACK) && !on_alternate_stack(&stack)) {
    void* unused;
    auto top = reinterpret_cast<std::uintptr_t>(stack.ss_sp) + stack.ss_size;
    sve_call_on_stack(function, &call, reinterpret_cast<void*>(top & ~std::uintptr_t{15}), &unused);
  } else {
    function(&call);
  }
}

bool sigill_blocked() { return blocked != block::none; }

bool sigill_pending() { return held_by_thread.si_signo != 0 || process_holds.load(std::memory_order_acquire) == 2; }

void set_sigill_blocked(bool now_blocked) {
  blocked = now_blocked ? block::by_request : block::none;
  if (now_blocked || !sigill_pending()) return;
  siginfo_t info;
  if (held_by_thread.si_signo != 0) {
    info = held_by_thread;
    held_by_thread.si_signo = 0;
    kernel_resend(SIGILL, &info);
  }
  int held = 2;
  if (process_holds.compare_exchange_strong(held, 1, std::memory_order_acq_rel)) {
    info = held_by_process;
    process_holds.store(0, std::memory_order_release);
    kernel_resend(SIGILL, &info);
  }
}

void hold_sigill(const siginfo_t* info) {
  if (info->si_code == SI_TKILL) {
    held_by_thread = *info;
    return;
  }
  int none = 0;  // like any pending signal it is held once
  if (!process_holds.compare_exchange_strong(none, 1, std::memory_order_acq_rel)) return;
  held_by_process = *info;
  process_holds.store(2, std::memory_order_release);
}

void actions_before_exec() {
  for (int sig : {SIGILL, SIGSEGV, SIGBUS}) {
    if (read_action(sig).handler != ignore_action) continue;
    const kernel_action ignore{ignore_action, 0, 0, 0};
    kernel_sigaction(sig, &ignore, nullptr);
  }
  if (sigill_blocked()) kernel_mask(SIG_BLOCK, sigill);
}

void actions_after_failed_exec() {
  for (int sig : {SIGILL, SIGSEGV, SIGBUS}) {
    const program_action action = read_action(sig);
    if (action.handler != ignore_action) continue;
    const kernel_action form = kernel_form(sig, action);
    kernel_sigaction(sig, &form, nullptr);
  }
  if (sigill_blocked()) kernel_mask(SIG_UNBLOCK, sigill);
}

void lock_actions() {
  while (lock.test_and_set(std::memory_order_acquire)) system_call(SYS_sched_yield);
}

void unlock_actions() { lock.clear(std::memory_order_release); }

}  // namespace sve::runner
