// The signal functions as the program sees them: each is the libc function of its name, in the program's view.
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "sve/runner/preload/interpose.h"
#include "sve/runner/preload/signals.h"

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#pragma GCC visibility push(default)

namespace {

using namespace sve::runner;
using simple_handler = void (*)(int);

// Signals made interrupting by siginterrupt, for the `signal` calls to come.
std::atomic<signal_bits> interrupting{0};

signal_bits to_bits(const sigset_t& set) {
  signal_bits bits;
  std::memcpy(&bits, &set, sizeof bits);
  return bits;
}

sigset_t to_set(signal_bits bits) {
  sigset_t set;
  sigemptyset(&set);
  std::memcpy(&set, &bits, sizeof bits);
  return set;
}

// A copy of a mask for the kernel, which never sees SIGILL blocked. Null stays null.
class KernelMask {
 public:
  explicit KernelMask(const sigset_t* set) : given_(set != nullptr) {
    if (!set) return;
    copy_ = *set;
    sigdelset(&copy_, SIGILL);
  }
  const sigset_t* get() const { return given_ ? &copy_ : nullptr; }

 private:
  bool given_;
  sigset_t copy_;
};

int result(int error) {
  if (error == 0) return 0;
  errno = error;
  return -1;
}

int change(int sig, simple_handler handler, unsigned long flags, signal_bits mask, simple_handler* old) {
  if (sig == 32 || sig == 33) return EINVAL;  // libc's own
  const program_action action{reinterpret_cast<std::uintptr_t>(handler), flags, mask};
  program_action before;
  const int error = change_action(sig, &action, &before);
  if (error == 0) *old = reinterpret_cast<simple_handler>(before.handler);
  return error;
}

simple_handler change_or_error(int sig, simple_handler handler, unsigned long flags, signal_bits mask) {
  simple_handler old = SIG_ERR;
  if (handler == SIG_ERR || sig < 1 || sig > signal_count) {
    errno = EINVAL;
  } else if (const int error = change(sig, handler, flags, mask, &old); error != 0) {
    errno = error;
  }
  return old;
}

int change_mask(int how, const sigset_t* set, sigset_t* old) {
  const bool was_blocked = sigill_blocked();
  const bool names_sigill = set && sigismember(set, SIGILL) == 1;
  const KernelMask mask(set);
  const int error = real.pthread_sigmask(how, mask.get(), old);
  if (error != 0) return error;
  if (old && was_blocked) sigaddset(old, SIGILL);
  if (set && (names_sigill || how == SIG_SETMASK)) set_sigill_blocked(names_sigill && how != SIG_UNBLOCK);
  return 0;
}

int change_mask_bits(int how, signal_bits bits, int* old) {
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

}  // namespace

extern "C" {

int sigaction(int sig, const struct sigaction* action, struct sigaction* old) noexcept {
  if (sig == 32 || sig == 33) return result(EINVAL);
  program_action wanted, before;
  if (action) {
    wanted = {reinterpret_cast<std::uintptr_t>(action->sa_sigaction), static_cast<unsigned>(action->sa_flags),
              to_bits(action->sa_mask)};
  }
  const int error = change_action(sig, action ? &wanted : nullptr, &before);
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

simple_handler signal(int sig, simple_handler handler) noexcept {
  const bool interrupts = sig >= 1 && sig <= signal_count && (interrupting & bit(sig)) != 0;
  return change_or_error(sig, handler, interrupts ? 0 : SA_RESTART, sig >= 1 && sig <= signal_count ? bit(sig) : 0);
}
simple_handler bsd_signal(int sig, simple_handler handler) noexcept __attribute__((alias("signal")));
simple_handler ssignal(int sig, simple_handler handler) noexcept __attribute__((alias("signal")));

simple_handler sysv_signal(int sig, simple_handler handler) noexcept {
  return change_or_error(sig, handler, SA_RESETHAND | SA_NODEFER, 0);
}
simple_handler __sysv_signal(int sig, simple_handler handler) noexcept __attribute__((alias("sysv_signal")));

simple_handler sigset(int sig, simple_handler handler) noexcept {
  bool was_blocked = false;
  if (handler == SIG_HOLD) {
    if (change_one(SIG_BLOCK, sig, &was_blocked) != 0) return SIG_ERR;
    if (was_blocked) return SIG_HOLD;
    program_action current;
    if (result(change_action(sig, nullptr, &current)) != 0) return SIG_ERR;
    return reinterpret_cast<simple_handler>(current.handler);
  }
  const simple_handler old = change_or_error(sig, handler, 0, 0);
  if (old == SIG_ERR || change_one(SIG_UNBLOCK, sig, &was_blocked) != 0) return SIG_ERR;
  return was_blocked ? SIG_HOLD : old;
}

int sigignore(int sig) noexcept { return change_or_error(sig, SIG_IGN, 0, 0) == SIG_ERR ? -1 : 0; }
int sighold(int sig) noexcept { return change_one(SIG_BLOCK, sig); }
int sigrelse(int sig) noexcept { return change_one(SIG_UNBLOCK, sig); }

int siginterrupt(int sig, int interrupt) noexcept {
  program_action action;
  if (const int error = change_action(sig, nullptr, &action); error != 0) return result(error);
  if (interrupt) {
    interrupting |= bit(sig);
    action.flags &= ~static_cast<unsigned long>(SA_RESTART);
  } else {
    interrupting &= ~bit(sig);
    action.flags |= SA_RESTART;
  }
  program_action before;
  return result(change_action(sig, &action, &before));
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

int sigpending(sigset_t* set) noexcept {
  const int status = real.sigpending(set);
  if (status == 0 && sigill_pending()) sigaddset(set, SIGILL);
  return status;
}

// While these wait with a mask of their own, handlers run under that mask, and may trap.
int sigsuspend(const sigset_t* set) {
  if (!sigill_blocked() || sigismember(set, SIGILL) == 1) return real.sigsuspend(KernelMask(set).get());
  // It waits for a SIGILL too, and one may have come already.
  const bool came = sigill_pending();
  set_sigill_blocked(false);
  if (!came) real.sigsuspend(KernelMask(set).get());
  set_sigill_blocked(true);
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

int pselect(int count, fd_set* reads, fd_set* writes, fd_set* excepts, const struct timespec* timeout,
            const sigset_t* set) {
  return real.pselect(count, reads, writes, excepts, timeout, KernelMask(set).get());
}
int ppoll(struct pollfd* fds, nfds_t count, const struct timespec* timeout, const sigset_t* set) {
  return real.ppoll(fds, count, timeout, KernelMask(set).get());
}
int __ppoll_chk(struct pollfd* fds, nfds_t count, const struct timespec* timeout, const sigset_t* set, size_t size) {
  return real.__ppoll_chk(fds, count, timeout, KernelMask(set).get(), size);
}
int epoll_pwait(int epfd, struct epoll_event* events, int count, int timeout, const sigset_t* set) {
  return real.epoll_pwait(epfd, events, count, timeout, KernelMask(set).get());
}
int epoll_pwait2(int epfd, struct epoll_event* events, int count, const struct timespec* timeout, const sigset_t* set) {
  return real.epoll_pwait2(epfd, events, count, timeout, KernelMask(set).get());
}
int pthread_attr_setsigmask_np(pthread_attr_t* attr, const sigset_t* set) {
  return real.pthread_attr_setsigmask_np(attr, KernelMask(set).get());
}

// A jump that restores the mask restores one without SIGILL, since no other was there to be saved.
void longjmp(jmp_buf env, int value) noexcept {
  if (env[0].__mask_was_saved) set_sigill_blocked(false);
  real.longjmp(env, value);
  __builtin_unreachable();
}
void _longjmp(jmp_buf env, int value) noexcept {
  if (env[0].__mask_was_saved) set_sigill_blocked(false);
  real._longjmp(env, value);
  __builtin_unreachable();
}
void siglongjmp(sigjmp_buf env, int value) noexcept {
  if (env[0].__mask_was_saved) set_sigill_blocked(false);
  real.siglongjmp(env, value);
  __builtin_unreachable();
}
void __longjmp_chk(jmp_buf env, int value) {
  if (env[0].__mask_was_saved) set_sigill_blocked(false);
  real.__longjmp_chk(env, value);
  __builtin_unreachable();
}

}  // extern "C"
#pragma GCC visibility pop
