#include "sve/runner/preload/signals.h"

#include <sys/auxv.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "sve/runner/preload/copies.h"
#include "sve/runner/preload/debugger.h"
#include "sve/runner/preload/frame.h"

#ifndef SS_AUTODISARM
#define SS_AUTODISARM (1u << 31)
#endif
#ifndef SA_EXPOSE_TAGBITS
#define SA_EXPOSE_TAGBITS 0x800
#endif
#ifndef SA_UNSUPPORTED
#define SA_UNSUPPORTED 0x400
#endif

namespace sve::runner {
namespace {

constexpr std::uintptr_t default_action = 0;          // SIG_DFL
constexpr std::uintptr_t ignore_action = 1;           // SIG_IGN
constexpr unsigned long kernel_minimum_stack = 5120;  // MINSIGSTKSZ of the kernel, which libc's may exceed

SignalServices services;
bool has_landing_pads = false;
bool drops_unknown_flags = false;  // the kernel, since 5.11

}  // namespace

// By these two instructions, a call of rt_sigreturn, debuggers and unwinders know a signal
// frame. They lie in memory that cannot be executed, so that a return to them is a fault and the entry takes over: the
// frame may hold an SVE record, which a kernel that knows no SVE would refuse.
alignas(8) std::uint32_t handler_return[2] = {0xd2801168, 0xd4000001};  // mov x8, #139; svc #0

namespace {

// The actions as the program set them. Writers hold the lock, with all signals blocked; readers are signal handlers,
// take no lock, and read again when a writer came between.
ProgramAction actions[signal_count + 1];
std::atomic<unsigned> version{0};
SleepingLock action_lock;

ProgramAction read_action(int sig) {
  for (;;) {
    const unsigned before = version.load(std::memory_order_acquire);
    const ProgramAction copy = actions[sig];
    std::atomic_thread_fence(std::memory_order_acquire);
    if (!(before & 1) && version.load(std::memory_order_relaxed) == before) return copy;
  }
}

// Call with the lock held.
void write_action(int sig, const ProgramAction& action) {
  version.fetch_add(1, std::memory_order_acq_rel);
  actions[sig] = action;
  version.fetch_add(1, std::memory_order_acq_rel);
}

bool is_handler(std::uintptr_t handler) { return handler != default_action && handler != ignore_action; }

// Owned signals sent to the process while every thread that could take them blocks them.
constinit HeldSignals process_held{};
SleepingLock held_lock;

void hold_for_process(const siginfo_t& info) {
  {
    const std::lock_guard guard(held_lock);
    process_held.hold(info);
  }
  // After it is held: a thread that unblocks the signal meanwhile finds it.
  wake_thread_for(info.si_signo);
}

siginfo_t take_held_for_process(SignalBits set) {
  const std::lock_guard guard(held_lock);
  return process_held.take(set);
}

// Sends this thread what it holds of `set`. If the signals are blocked in the kernel they come when it unblocks them.
void resend_held(ThreadBlock* block, SignalBits set) {
  for (;;) {
    const siginfo_t info = take_pending(set);
    if (info.si_signo == 0) return;
    kernel_resend(block->thread_id, info);
  }
}

constexpr unsigned long kept_flags = SA_NOCLDSTOP | SA_NOCLDWAIT | SA_RESTART | SA_EXPOSE_TAGBITS;

// By what it shows of an action programs find out what a kernel knows.
constexpr unsigned long known_flags = SA_NOCLDSTOP | SA_NOCLDWAIT | SA_SIGINFO | SA_ONSTACK | SA_RESTART | SA_NODEFER |
                                      SA_RESETHAND | SA_EXPOSE_TAGBITS | 0x04000000;  // SA_RESTORER

void signal_entry(int sig, siginfo_t* info, void* raw_context);

// Whether the default action of a signal is the process's end, which we want to report.
bool ends_process(int sig) {
  constexpr SignalBits lets_live = bit(SIGCHLD) | bit(SIGURG) | bit(SIGWINCH) | bit(SIGCONT) | bit(SIGTSTP) |
                                   bit(SIGTTIN) | bit(SIGTTOU) | bit(SIGSTOP) | bit(SIGKILL);
  return services.reports_ends && !(lets_live & bit(sig));
}

// What the kernel is told for an action of the program.
KernelAction kernel_form(int sig, const ProgramAction& action) {
  KernelAction form;
  if (is_owned(sig) || is_handler(action.handler) || (action.handler == default_action && ends_process(sig))) {
    form.handler = reinterpret_cast<std::uintptr_t>(signal_entry);
    form.flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER | (action.flags & kept_flags);
    if (action.handler == ignore_action) form.flags |= SA_RESTART;
    if (is_owned(sig))
      form.flags |= SA_EXPOSE_TAGBITS | SA_UNSUPPORTED;  // who gets the address says later whether it is to see them
    form.mask = ~owned_signals;
  } else {
    form.handler = action.handler;
    form.flags = action.flags;
    form.mask = action.mask;
  }
  return form;
}

// What a kernel action means to the program.
ProgramAction program_form(int sig, const KernelAction& form) {
  if (is_owned(sig) || form.handler == reinterpret_cast<std::uintptr_t>(signal_entry)) return read_action(sig);
  return {form.handler, form.flags, form.mask};
}

// The action for a signal that is about to be delivered; it is taken once if the program wants that.
ProgramAction take_action(int sig) {
  ProgramAction action = read_action(sig);
  if (!(action.flags & SA_RESETHAND)) return action;
  const std::lock_guard guard(action_lock);
  action = read_action(sig);
  if (!is_handler(action.handler)) return action;
  ProgramAction reset = action;
  reset.handler = default_action;
  write_action(sig, reset);
  const KernelAction form = kernel_form(sig, reset);
  kernel_sigaction(sig, &form, nullptr);
  return action;
}

// Ends the process by the signal when the program resumes.
void take_default_action(siginfo_t info, bool recurs) {
  services.report_death(this_thread_block, info);
  death_is_near();
  const KernelAction action;
  kernel_sigaction(info.si_signo, &action, nullptr);
  // A trap or a fault comes again when the instruction is run again, and then kills with all the right particulars.
  if (recurs) return;
  // With a fault's code an emulator of system calls would take it for a fault of its own.
  if (info.si_code > 0) info.si_code = SI_TKILL;
  kernel_mask(SIG_BLOCK, bit(info.si_signo));
  kernel_resend(kernel_thread_id(), info);
}

// What the kernel does where a program cannot be told of a signal: it gets this one, blocked or not.
siginfo_t forced(int sig, int code, std::uintptr_t fault_address) {
  siginfo_t info{};
  info.si_signo = sig;
  info.si_code = code;
  info.si_addr = reinterpret_cast<void*>(fault_address);
  return info;
}

bool is_on(const stack_t& stack, std::uintptr_t sp) {
  if (static_cast<unsigned>(stack.ss_flags) & SS_AUTODISARM) return false;
  const auto bottom = reinterpret_cast<std::uintptr_t>(stack.ss_sp);
  return sp > bottom && sp - bottom <= stack.ss_size;
}

int stack_flags(const stack_t& stack, std::uintptr_t sp) {
  return stack.ss_size == 0 ? SS_DISABLE : is_on(stack, sp) ? SS_ONSTACK : 0;
}

constexpr unsigned long btype = 3ul << 10, btype_call = 2ul << 10;  // what the next instruction may have to be
constexpr unsigned long unchecked_tags = 1ul << 25;

// The one place where a signal becomes the program's. `context` is the interrupted program, and changes so that it
// resumes in the handler; `recurs` says that it meets the signal again if it resumes as it is.
void deliver(ThreadBlock* block, const siginfo_t& info, ucontext_t* context, bool must_come, bool recurs) {
  const int sig = info.si_signo;
  const SignalBits before = (saved_mask(context) & ~owned_signals) | block->blocked;
  const SignalBits now = block->waits ? block->wait_mask : before;
  ProgramAction action = read_action(sig);
  const bool can_end = is_owned(sig) || ends_process(sig);
  if (!must_come && (action.handler == ignore_action || (!can_end && action.handler == default_action))) return;
  // The kernel does not let a program ignore or block a fault: it ends it.
  if (!is_handler(action.handler) || (must_come && (now & bit(sig)))) return take_default_action(info, recurs);
  action = take_action(sig);
  if (!is_handler(action.handler)) return take_default_action(info, recurs);

  mcontext_t& machine = context->uc_mcontext;
  const stack_t& stack = block->program_stack;
  const bool switches = (action.flags & SA_ONSTACK) && stack_flags(stack, machine.sp) == 0;
  const auto top = switches ? reinterpret_cast<std::uintptr_t>(stack.ss_sp) + stack.ss_size : machine.sp;
  const FramePlace place = place_frame(block, context, top);
  siginfo_t shown = info;
  if (is_owned(sig) && info.si_code > 0 && !(action.flags & SA_EXPOSE_TAGBITS))
    shown.si_addr = reinterpret_cast<void*>(without_tag(reinterpret_cast<std::uintptr_t>(info.si_addr)));
  if (!guarded(block, [&] { write_frame(place, block, shown, context, before); })) {
    if (sig == SIGSEGV) return take_default_action(forced(SIGSEGV, SI_KERNEL, 0), false);
    return deliver(block, forced(SIGSEGV, SI_KERNEL, 0), context, true, false);
  }
  SignalBits mask = now | action.mask;
  if (!(action.flags & SA_NODEFER)) mask |= bit(sig);
  block->waits = false;
  block->blocked = mask & owned_signals;
  if (static_cast<unsigned>(stack.ss_flags) & SS_AUTODISARM) block->program_stack = {nullptr, SS_DISABLE, 0};

  set_saved_mask(context, mask & ~owned_signals);
  machine.regs[0] = static_cast<unsigned>(sig);
  if (action.flags & SA_SIGINFO) {
    machine.regs[1] = reinterpret_cast<std::uintptr_t>(&place.frame->info);
    machine.regs[2] = reinterpret_cast<std::uintptr_t>(&place.frame->context);
  }
  machine.regs[29] = reinterpret_cast<std::uintptr_t>(place.frame_record);
  machine.regs[30] = reinterpret_cast<std::uintptr_t>(handler_return);
  machine.sp = reinterpret_cast<std::uintptr_t>(place.frame);
  machine.pc = action.handler;
  // The kernel's call of a handler is an indirect one.
  machine.pstate = (machine.pstate & ~(btype | unchecked_tags)) | (has_landing_pads ? btype_call : 0);
}

// A handler has returned: the program resumes from its frame.
void resume_from_frame(ThreadBlock* block, ucontext_t* context) {
  const auto sp = context->uc_mcontext.sp;
  const auto* frame = reinterpret_cast<const SignalFrame*>(sp);
  bool accepted = false;
  stack_t stack{};
  const bool readable = sp % 16 == 0 && guarded(block, [&] {
                          accepted = read_frame(block, frame, context);
                          stack = frame->context.uc_stack;
                        });
  const SignalBits mask = saved_mask(context);
  block->blocked = mask & owned_signals;
  set_saved_mask(context, mask & ~owned_signals);
  if (!readable || !accepted) {
    const auto at = context->uc_mcontext.sp;
    return deliver(block, forced(SIGSEGV, SEGV_ACCERR, at), context, true, false);
  }
  change_stack(block, &stack, nullptr, context->uc_mcontext.sp);  // the kernel, too, takes no notice if that fails
  if (const SignalBits free = owned_signals & ~mask & pending_signals()) {
    kernel_mask(SIG_BLOCK, free);
    resend_held(block, free);
  }
}

// The kernel's handler of every signal. The kernel has put it on the runner's stack, but for a thread that was made in
// a way that we do not see, which has none yet.
void signal_entry(int sig, siginfo_t* info, void* raw_context) {
  auto* context = static_cast<ucontext_t*>(raw_context);
  ThreadBlock* block = this_thread_block;
  notice_copy();  // before anything is counted
  if (block) {
    if (services.interrupt_run(block, info, context, services.answer_fault) == Interruption::resumed) return;
    sig = info->si_signo;
  }
  const auto sp = context->uc_mcontext.sp;
  const bool is_trap = is_owned(sig) && info->si_code > 0;

  if (block && block->is_runner_stack(sp)) {
    if (!is_trap) return block->late.hold(*info);
    if (services.answer_fault(sig, raw_context)) return;
    if (!block->is_guarded) return take_default_action(*info, true);
    block->fault = *info;
    std::memcpy(block->fault_records, context->uc_mcontext.__reserved, sizeof block->fault_records);
    leave_guarded(block);
  }
  const int saved_errno = errno;
  const bool is_new = !block;
  if (is_new) block = need_thread_block();
  if (!block) return take_default_action(*info, is_trap);
  if (!block->is_runner_stack(reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)))) {
    if (!(context->uc_stack.ss_flags & SS_DISABLE)) block->program_stack = context->uc_stack;
    context->uc_stack = runner_stack(block);
    // It comes again, on the runner's stack.
    if (!is_trap) {
      kernel_mask(SIG_BLOCK, bit(sig));
      kernel_resend(block->thread_id, *info);
    }
    errno = saved_errno;
    return;
  }
  // An entry may be what has asked for the block.
  if (is_new && services.interrupt_run(block, info, context, services.answer_fault) == Interruption::resumed) return;
  if (sig != 0 && !is_trap && (block->woken & bit(sig))) {
    block->woken &= ~bit(sig);
    *info = take_held_for_process(bit(sig));
    if (info->si_signo == 0) return;
  }
  if (sig == 0) {
    // What waited for a run's end is among the late ones.
  } else if (is_trap && sig == SIGSEGV && context->uc_mcontext.pc == reinterpret_cast<std::uintptr_t>(handler_return)) {
    resume_from_frame(block, context);
  } else if (is_trap) {
    if (sig != SIGILL || !services.serve_trap(block, info, context)) deliver(block, *info, context, true, true);
  } else if (is_owned(sig) && ((block->waits ? block->wait_mask : block->blocked.load()) & bit(sig))) {
    if (info->si_code == SI_TKILL) {
      block->held.hold(*info);
    } else {
      hold_for_process(*info);
    }
  } else {
    deliver(block, *info, context, false, false);
  }
  // What came meanwhile comes again when the program runs.
  while (block->late.present) {
    const siginfo_t late = block->late.take(owned_signals);
    kernel_mask(SIG_BLOCK, bit(late.si_signo));
    kernel_resend(block->thread_id, late);
  }
  errno = saved_errno;
}

}  // namespace

void start_signals(const SignalServices& given, SignalBits ignored) {
  services = given;
  has_landing_pads = (getauxval(AT_HWCAP2) & (1ul << 17)) != 0;  // HWCAP2_BTI
  for (int sig = 1; sig <= signal_count; ++sig) {
    KernelAction inherited;
    if (kernel_sigaction(sig, nullptr, &inherited) != 0) continue;
    actions[sig] = {inherited.handler, inherited.flags, inherited.mask};
    if (!is_owned(sig) && (is_handler(inherited.handler) || inherited.handler == ignore_action || !ends_process(sig)))
      continue;
    if (ignored & bit(sig)) actions[sig].handler = ignore_action;
    const KernelAction form = kernel_form(sig, actions[sig]);
    kernel_sigaction(sig, &form, nullptr);
  }
  KernelAction ours;
  drops_unknown_flags = kernel_sigaction(SIGILL, nullptr, &ours) == 0 && !(ours.flags & SA_UNSUPPORTED);
}

int change_action(int sig, const ProgramAction* action, ProgramAction* old) {
  if (sig < 1 || sig > signal_count || sig == SIGKILL || sig == SIGSTOP) return EINVAL;
  if (in_borrowed_memory()) {
    // Between vfork and exec the actions are the child's, but the table is the parent's, so it stays as it is.
    KernelAction before;
    kernel_sigaction(sig, nullptr, &before);
    if (old) *old = program_form(sig, before);
    if (action && !is_owned(sig)) {
      const KernelAction form{action->handler, action->flags, 0, action->mask};
      kernel_sigaction(sig, &form, nullptr);
    }
    return 0;
  }
  const SignalsBlocked signals;
  const std::lock_guard guard(action_lock);
  KernelAction before;
  if (const long error = kernel_sigaction(sig, nullptr, &before); error != 0) return static_cast<int>(-error);
  const ProgramAction was = program_form(sig, before);
  if (action) {
    ProgramAction wanted = *action;
    if (drops_unknown_flags) wanted.flags &= known_flags;
    const KernelAction form = kernel_form(sig, wanted);
    write_action(sig, wanted);
    kernel_sigaction(sig, &form, nullptr);
  }
  if (old) *old = was;
  return 0;
}

int change_stack(ThreadBlock* block, const stack_t* stack, stack_t* old, std::uintptr_t sp) {
  stack_t& own = block->program_stack;
  const stack_t before = own;
  if (stack) {
    if (is_on(own, sp)) return EPERM;
    stack_t wanted{};
    wanted.ss_flags = stack->ss_flags;
    const unsigned mode = static_cast<unsigned>(stack->ss_flags) & ~SS_AUTODISARM;
    if (mode != SS_DISABLE && mode != SS_ONSTACK && mode != 0) return EINVAL;
    if (mode != SS_DISABLE) {
      if (stack->ss_size < kernel_minimum_stack) return ENOMEM;
      wanted.ss_sp = stack->ss_sp;
      wanted.ss_size = stack->ss_size;
    }
    own = wanted;
  }
  if (old) {
    *old = before;
    old->ss_flags = static_cast<int>(static_cast<unsigned>(stack_flags(before, sp)) |
                                     (static_cast<unsigned>(before.ss_flags) & SS_AUTODISARM));
  }
  return 0;
}

SignalBits blocked_signals() {
  const ThreadBlock* block = need_thread_block();
  return block ? block->blocked.load() : 0;
}

void set_blocked_signals(SignalBits blocked) {
  ThreadBlock* block = need_thread_block();
  if (!block) return;
  block->blocked = blocked & owned_signals;
  const SignalBits free = owned_signals & ~blocked & pending_signals();
  if (!free) return;
  const SignalsBlocked signals;
  resend_held(block, free);
}

SignalBits pending_signals() {
  return process_held.present | (this_thread_block ? this_thread_block->held.present.load() : 0);
}

siginfo_t take_pending(SignalBits set) {
  const SignalsBlocked signals;
  siginfo_t info{};
  if (this_thread_block) info = this_thread_block->held.take(set);
  return info.si_signo != 0 ? info : take_held_for_process(set);
}

WaitMask::WaitMask(const sigset_t* mask) : mask_(mask), block_(need_thread_block()), given_(mask && block_) {
  if (!given_) return;
  const SignalBits wanted = to_bits(*mask);
  kernel_mask_ = to_set(wanted & ~owned_signals);
  block_->wait_mask = wanted;
  block_->waits = true;
  // What is held and now free comes as soon as the wait begins.
  if (const SignalBits free = owned_signals & ~wanted & pending_signals()) {
    runner::kernel_mask(SIG_BLOCK, free);
    resend_held(block_, free);
  }
}

WaitMask::~WaitMask() {
  if (!given_) return;
  block_->waits = false;
  runner::kernel_mask(SIG_UNBLOCK, owned_signals);
}

bool WaitMask::is_over() const { return !given_ || !block_->waits; }

SignalBits ignored_signals() {
  SignalBits ignored = 0;
  for (int sig : {SIGILL, SIGSEGV, SIGBUS}) {
    if (read_action(sig).handler == ignore_action) ignored |= bit(sig);
  }
  return ignored;
}

SignalBits actions_before_exec() {
  kernel_mask(SIG_BLOCK, blocked_signals());
  const SignalBits ignored = ignored_signals();
  // A vforked child has actions of its own.
  if (ignored == 0 || (has_other_threads() && !in_borrowed_memory())) return ignored;
  for (int sig : {SIGILL, SIGSEGV, SIGBUS}) {
    const KernelAction ignore{ignore_action, 0, 0, 0};
    if (ignored & bit(sig)) kernel_sigaction(sig, &ignore, nullptr);
  }
  return 0;
}

void actions_after_failed_exec() {
  for (int sig : {SIGILL, SIGSEGV, SIGBUS}) {
    const ProgramAction action = read_action(sig);
    if (action.handler != ignore_action) continue;
    const KernelAction form = kernel_form(sig, action);
    kernel_sigaction(sig, &form, nullptr);
  }
  kernel_mask(SIG_UNBLOCK, owned_signals);
}

void lock_actions() {
  action_lock.lock();
  held_lock.lock();
  lock_thread_blocks();
}

void unlock_actions() {
  unlock_thread_blocks();
  held_lock.unlock();
  action_lock.unlock();
}

void actions_are_whole() { version &= ~1u; }

void forget_pending() { process_held.present = 0; }

}  // namespace sve::runner
