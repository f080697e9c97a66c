// The signal functions as the program sees them: each is the libc function of its name, in the program's view.
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "sve/runner/preload/interpose.h"
#include "sve/runner/preload/process.h"
#include "sve/runner/preload/signals.h"

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#pragma GCC visibility push(default)

namespace {

using namespace sve::runner;
using SimpleHandler = void (*)(int);

// Signals made interrupting by siginterrupt, for the `signal` calls to come.
std::atomic<SignalBits> interrupting{0};

int result(int error) {
  if (error == 0) return 0;
  errno = error;
  return -1;
}

// change_action, where the runner is active; otherwise what stands behind it has the actions.
int change_shown_action(int sig, const ProgramAction* action, ProgramAction* old) {
  if (is_active()) return change_action(sig, action, old);
  struct sigaction wanted {
  }, before{};
  if (action) {
    wanted.sa_handler = reinterpret_cast<SimpleHandler>(action->handler);
    wanted.sa_flags = static_cast<int>(action->flags);
    wanted.sa_mask = to_set(action->mask);
  }
  if (real.sigaction(sig, action ? &wanted : nullptr, &before) != 0) return errno;
  if (old) {
    *old = {reinterpret_cast<std::uintptr_t>(before.sa_handler), static_cast<unsigned>(before.sa_flags),
            to_bits(before.sa_mask)};
  }
  return 0;
}

int change(int sig, SimpleHandler handler, unsigned long flags, SignalBits mask, SimpleHandler* old) {
  if (sig == 32 || sig == 33) return EINVAL;  // libc's own
  const ProgramAction action{reinterpret_cast<std::uintptr_t>(handler), flags, mask};
  ProgramAction before;
  const int error = change_shown_action(sig, &action, &before);
  if (error == 0) *old = reinterpret_cast<SimpleHandler>(before.handler);
  return error;
}

SimpleHandler change_or_error(int sig, SimpleHandler handler, unsigned long flags, SignalBits mask) {
  SimpleHandler old = SIG_ERR;
  if (handler == SIG_ERR || sig < 1 || sig > signal_count) {
    errno = EINVAL;
  } else if (const int error = change(sig, handler, flags, mask, &old); error != 0) {
    errno = error;
  }
  return old;
}

int change_mask(int how, const sigset_t* set, sigset_t* old) {
  if (!is_active()) return real.pthread_sigmask(how, set, old);
  const SignalBits before = blocked_signals();
  const SignalBits given = set ? to_bits(*set) : 0;
  const sigset_t mask = to_set(given & ~owned_signals);
  const int error = real.pthread_sigmask(how, set ? &mask : nullptr, old);
  if (error != 0) return error;
  if (old) *old = to_set(to_bits(*old) | before);
  if (!set) return 0;
  const SignalBits owned = given & owned_signals;
  const SignalBits now = how == SIG_BLOCK ? before | owned : how == SIG_UNBLOCK ? before & ~owned : owned;
  if (now != before) set_blocked_signals(now);
  return 0;
}

int change_mask_bits(int how, SignalBits bits, int* old) {
  const sigset_t set = to_set(bits);
  sigset_t before;
  const int error = change_mask(how, &set, &before);
  if (old) *old = static_cast<int>(to_bits(before));
  return result(error);
}

int change_one(int how, int sig, bool* was_blocked = nullptr) {
  if (sig < 1 || sig > signal_count) return result(EINVAL);
  const sigset_t set = to_set(bit(sig));
  sigset_t before;
  const int error = change_mask(how, &set, &before);
  if (was_blocked) *was_blocked = sigismember(&before, sig) == 1;
  return result(error);
}

// libc saves the kernel's mask in jump buffers and contexts. Of their sets of 1024 signals the kernel writes the first
// word; the last one notes what it does not know.
constexpr SignalBits note_mark = 0x5356455f4d415300;  // has no owned signal's bit
static_assert((note_mark & owned_signals) == 0);

unsigned long& note_of(const sigset_t* set) {
  return const_cast<sigset_t*>(set)->__val[sizeof set->__val / sizeof set->__val[0] - 1];
}

void note_blocked(sigset_t* set) { note_of(set) = note_mark | blocked_signals(); }

SignalBits noted_blocked(const sigset_t* set) {
  const SignalBits note = note_of(set);
  return (note & ~owned_signals) == note_mark ? note & owned_signals : 0;
}

const sigset_t* saved_set(const __jmp_buf_tag* env) { return reinterpret_cast<const sigset_t*>(&env->__saved_mask); }

void restore_blocked(const __jmp_buf_tag* env) {
  if (env->__mask_was_saved) set_blocked_signals(noted_blocked(saved_set(env)));
}

// What the kernel may be given of a context, whose mask may hold owned signals; they become the program's view.
const ucontext_t* prepare_context(const ucontext_t* context) {
  const SignalBits mask = to_bits(context->uc_sigmask);
  set_blocked_signals((mask & owned_signals) | noted_blocked(&context->uc_sigmask));
  if (!(mask & owned_signals) || !this_thread_block) return context;
  ucontext_t* copy = &this_thread_block->context_copy;
  *copy = *context;
  copy->uc_sigmask = to_set(mask & ~owned_signals);
  // The copy's vectors are read where the copy lies, but nothing in it points into itself.
  return copy;
}

int wait_for(const sigset_t* set, siginfo_t* info, const struct timespec* timeout) {
  const SignalBits owned = to_bits(*set) & owned_signals;
  ThreadBlock* block = owned ? need_thread_block() : nullptr;
  if (!block) return real.sigtimedwait(set, info, timeout);
  block->waited_for = owned;
  int sig = 0;
  while (sig == 0) {
    if (const siginfo_t held = take_pending(owned); held.si_signo != 0) {
      if (info) *info = held;
      sig = held.si_signo;
      continue;
    }
    sig = real.sigtimedwait(set, info, timeout);
    if (sig > 0 && (block->woken & owned & bit(sig))) {
      block->woken &= ~bit(sig);
      sig = 0;
    } else if (sig < 0 && errno == EINTR && (pending_signals() & owned)) {
      sig = 0;  // it came while the kernel was not waiting for it
    }
  }
  block->waited_for = 0;
  return sig;
}

}  // namespace

// What is done before a function that returns twice, which is then jumped to: the stubs in returns_twice.S call these.
// Each returns that function's address. `arguments` are its own, and may be changed.
extern "C" {
__attribute__((visibility("hidden"))) void* sve_before_sigsetjmp(void** arguments) {
  if (arguments[1]) note_blocked(const_cast<sigset_t*>(saved_set(static_cast<__jmp_buf_tag*>(arguments[0]))));
  return reinterpret_cast<void*>(real.__sigsetjmp);
}
__attribute__((visibility("hidden"))) void* sve_before_getcontext(void** arguments) {
  note_blocked(&static_cast<ucontext_t*>(arguments[0])->uc_sigmask);
  return reinterpret_cast<void*>(real.getcontext);
}
__attribute__((visibility("hidden"))) void* sve_before_swapcontext(void** arguments) {
  note_blocked(&static_cast<ucontext_t*>(arguments[0])->uc_sigmask);
  arguments[1] = const_cast<ucontext_t*>(prepare_context(static_cast<const ucontext_t*>(arguments[1])));
  return reinterpret_cast<void*>(real.swapcontext);
}
__attribute__((visibility("hidden"))) void* sve_before_vfork(void**) {
  return reinterpret_cast<void*>(next<pid_t()>("vfork"));
}
}

extern "C" {

int sigaction(int sig, const struct sigaction* action, struct sigaction* old) noexcept {
  if (sig == 32 || sig == 33) return result(EINVAL);
  ProgramAction wanted, before;
  if (action) {
    wanted = {reinterpret_cast<std::uintptr_t>(action->sa_sigaction), static_cast<unsigned>(action->sa_flags),
              to_bits(action->sa_mask)};
  }
  const int error = change_shown_action(sig, action ? &wanted : nullptr, &before);
  if (error == 0 && old) {
    old->sa_sigaction = reinterpret_cast<void (*)(int, siginfo_t*, void*)>(before.handler);
    old->sa_flags = static_cast<int>(before.flags);
    old->sa_mask = to_set(before.mask);
    old->sa_restorer = nullptr;
  }
  return result(error);
}
int __sigaction(int sig, const struct sigaction* action, struct sigaction* old) noexcept
    __attribute__((alias("sigaction")));

SimpleHandler signal(int sig, SimpleHandler handler) noexcept {
  const bool interrupts = sig >= 1 && sig <= signal_count && (interrupting & bit(sig)) != 0;
  return change_or_error(sig, handler, interrupts ? 0 : SA_RESTART, sig >= 1 && sig <= signal_count ? bit(sig) : 0);
}
SimpleHandler bsd_signal(int sig, SimpleHandler handler) noexcept __attribute__((alias("signal")));
SimpleHandler ssignal(int sig, SimpleHandler handler) noexcept __attribute__((alias("signal")));

SimpleHandler sysv_signal(int sig, SimpleHandler handler) noexcept {
  return change_or_error(sig, handler, SA_RESETHAND | SA_NODEFER, 0);
}
SimpleHandler __sysv_signal(int sig, SimpleHandler handler) noexcept __attribute__((alias("sysv_signal")));

SimpleHandler sigset(int sig, SimpleHandler handler) noexcept {
  bool was_blocked = false;
  if (handler == SIG_HOLD) {
    if (change_one(SIG_BLOCK, sig, &was_blocked) != 0) return SIG_ERR;
    if (was_blocked) return SIG_HOLD;
    ProgramAction current;
    if (result(change_shown_action(sig, nullptr, &current)) != 0) return SIG_ERR;
    return reinterpret_cast<SimpleHandler>(current.handler);
  }
  const SimpleHandler old = change_or_error(sig, handler, 0, 0);
  if (old == SIG_ERR || change_one(SIG_UNBLOCK, sig, &was_blocked) != 0) return SIG_ERR;
  return was_blocked ? SIG_HOLD : old;
}

int sigignore(int sig) noexcept { return change_or_error(sig, SIG_IGN, 0, 0) == SIG_ERR ? -1 : 0; }
int sighold(int sig) noexcept { return change_one(SIG_BLOCK, sig); }
int sigrelse(int sig) noexcept { return change_one(SIG_UNBLOCK, sig); }

int siginterrupt(int sig, int interrupt) noexcept {
  ProgramAction action;
  if (const int error = change_shown_action(sig, nullptr, &action); error != 0) return result(error);
  if (interrupt) {
    interrupting |= bit(sig);
    action.flags &= ~static_cast<unsigned long>(SA_RESTART);
  } else {
    interrupting &= ~bit(sig);
    action.flags |= SA_RESTART;
  }
  ProgramAction before;
  return result(change_shown_action(sig, &action, &before));
}

int pthread_sigmask(int how, const sigset_t* set, sigset_t* old) noexcept { return change_mask(how, set, old); }
int sigprocmask(int how, const sigset_t* set, sigset_t* old) noexcept { return result(change_mask(how, set, old)); }

int sigblock(int mask) noexcept {
  int old = 0;
  return change_mask_bits(SIG_BLOCK, static_cast<unsigned>(mask), &old) == 0 ? old : -1;
}
int sigsetmask(int mask) noexcept {
  int old = 0;
  return change_mask_bits(SIG_SETMASK, static_cast<unsigned>(mask), &old) == 0 ? old : -1;
}
int siggetmask() noexcept { return sigblock(0); }

int sigaltstack(const stack_t* stack, stack_t* old) noexcept {
  if (!is_active()) return real.sigaltstack(stack, old);
  ThreadBlock* block = need_thread_block();
  if (!block) return result(ENOMEM);
  return result(change_stack(block, stack, old, reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0))));
}

int sigpending(sigset_t* set) noexcept {
  const int status = real.sigpending(set);
  if (status == 0) *set = to_set(to_bits(*set) | (pending_signals() & blocked_signals()));
  return status;
}

int sigtimedwait(const sigset_t* set, siginfo_t* info, const struct timespec* timeout) {
  return wait_for(set, info, timeout);
}
int sigwaitinfo(const sigset_t* set, siginfo_t* info) { return wait_for(set, info, nullptr); }
int sigwait(const sigset_t* set, int* sig) {
  int got;
  do {
    got = wait_for(set, nullptr, nullptr);
  } while (got < 0 && errno == EINTR);
  if (got < 0) return errno;
  *sig = got;
  return 0;
}

// While these wait with a mask of their own, handlers run under that mask, and may trap. A signal that the mask blocks
// and the kernel does not may interrupt the wait; sigsuspend then waits on.
int sigsuspend(const sigset_t* set) {
  WaitMask mask(set);
  do {
    real.sigsuspend(mask.kernel_mask());
  } while (!mask.is_over());
  errno = EINTR;
  return -1;
}
int __sigsuspend(const sigset_t* set) { return sigsuspend(set); }

int __xpg_sigpause(int sig) {
  sigset_t set;
  change_mask(SIG_BLOCK, nullptr, &set);
  if (sig < 1 || sig > signal_count) return result(EINVAL);
  sigdelset(&set, sig);
  return sigsuspend(&set);
}
int __sigpause(int sig_or_mask, int is_sig) {
  if (is_sig) return __xpg_sigpause(sig_or_mask);
  const sigset_t set = to_set(static_cast<unsigned>(sig_or_mask));
  return sigsuspend(&set);
}
int bsd_sigpause(int mask) asm("sigpause");  // the headers give that name to the other one
int bsd_sigpause(int mask) { return __sigpause(mask, 0); }

int pselect(int count, fd_set* reads, fd_set* writes, fd_set* excepts, const struct timespec* timeout,
            const sigset_t* set) {
  return real.pselect(count, reads, writes, excepts, timeout, WaitMask(set).kernel_mask());
}
int ppoll(struct pollfd* fds, nfds_t count, const struct timespec* timeout, const sigset_t* set) {
  return real.ppoll(fds, count, timeout, WaitMask(set).kernel_mask());
}
int __ppoll_chk(struct pollfd* fds, nfds_t count, const struct timespec* timeout, const sigset_t* set, size_t size) {
  return real.__ppoll_chk(fds, count, timeout, WaitMask(set).kernel_mask(), size);
}
int epoll_pwait(int epfd, struct epoll_event* events, int count, int timeout, const sigset_t* set) {
  return real.epoll_pwait(epfd, events, count, timeout, WaitMask(set).kernel_mask());
}
int epoll_pwait2(int epfd, struct epoll_event* events, int count, const struct timespec* timeout, const sigset_t* set) {
  return real.epoll_pwait2(epfd, events, count, timeout, WaitMask(set).kernel_mask());
}
void longjmp(jmp_buf env, int value) noexcept {
  restore_blocked(env);
  real.longjmp(env, value);
  __builtin_unreachable();
}
void _longjmp(jmp_buf env, int value) noexcept {
  restore_blocked(env);
  real._longjmp(env, value);
  __builtin_unreachable();
}
void siglongjmp(sigjmp_buf env, int value) noexcept {
  restore_blocked(env);
  real.siglongjmp(env, value);
  __builtin_unreachable();
}
void __longjmp_chk(jmp_buf env, int value) {
  restore_blocked(env);
  real.__longjmp_chk(env, value);
  __builtin_unreachable();
}

int setcontext(const ucontext_t* context) noexcept { return real.setcontext(prepare_context(context)); }

}  // extern "C"
#pragma GCC visibility pop
