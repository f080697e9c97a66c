// Raw system calls and the kernel's own signal types. The trap path uses these and no libc function: they leave errno
// alone, take no lock, and see the kernel's state rather than the one that the program is shown.
#pragma once

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

namespace sve::runner {

/// The kernel's signal set: signal n is bit n-1.
using SignalBits = std::uint64_t;

inline constexpr int signal_count = 64;
constexpr SignalBits bit(int sig) { return SignalBits{1} << (sig - 1); }

/// What traps and faults arrive as. One that comes while the kernel has it blocked is death, so the kernel never has.
inline constexpr SignalBits owned_signals = bit(SIGILL) | bit(SIGSEGV) | bit(SIGBUS);
constexpr bool is_owned(int sig) { return (owned_signals & bit(sig)) != 0; }

/// The kernel's part of libc's set, and back.
inline SignalBits to_bits(const sigset_t& set) {
  SignalBits bits;
  __builtin_memcpy(&bits, &set, sizeof bits);
  return bits;
}
inline sigset_t to_set(SignalBits bits) {
  sigset_t set{};
  __builtin_memcpy(&set, &bits, sizeof bits);
  return set;
}

/// The kernel's form of an action.
struct KernelAction {
  std::uintptr_t handler = 0;
  unsigned long flags = 0;
  std::uintptr_t restorer = 0;
  SignalBits mask = 0;
};

inline long system_call(long number, long a = 0, long b = 0, long c = 0, long d = 0, long e = 0, long f = 0) {
  register long x8 asm("x8") = number;
  register long x0 asm("x0") = a;
  register long x1 asm("x1") = b;
  register long x2 asm("x2") = c;
  register long x3 asm("x3") = d;
  register long x4 asm("x4") = e;
  register long x5 asm("x5") = f;
  asm volatile("svc #0" : "+r"(x0) : "r"(x8), "r"(x1), "r"(x2), "r"(x3), "r"(x4), "r"(x5) : "memory", "cc");
  return x0;
}

template <class T>
long address(T* p) {
  return static_cast<long>(reinterpret_cast<std::intptr_t>(p));
}

/// The address that a pointer of the program's means, whose highest byte the processor ignores.
constexpr std::uintptr_t without_tag(std::uintptr_t pointer) {
  return static_cast<std::uintptr_t>(static_cast<std::intptr_t>(pointer << 8) >> 8);
}

/// Returns 0 or the negated error number.
inline long kernel_sigaction(int sig, const KernelAction* action, KernelAction* old) {
  return system_call(SYS_rt_sigaction, sig, address(action), address(old), sizeof(SignalBits));
}

/// `how` is SIG_BLOCK, SIG_UNBLOCK or SIG_SETMASK. Returns the mask before the change.
inline SignalBits kernel_mask(int how, SignalBits set) {
  SignalBits old = 0;
  system_call(SYS_rt_sigprocmask, how, address(&set), address(&old), sizeof(SignalBits));
  return old;
}

inline int kernel_process_id() { return static_cast<int>(system_call(SYS_getpid)); }

inline void kernel_write(int fd, const char* text, std::size_t size) {
  while (size > 0) {
    const long n = system_call(SYS_write, fd, address(text), static_cast<long>(size));
    if (n == -4) continue;  // interrupted
    if (n <= 0) return;
    text += n;
    size -= static_cast<std::size_t>(n);
  }
}

inline int kernel_thread_id() { return static_cast<int>(system_call(SYS_gettid)); }

/// Sends a thread of this process a signal that looks like `info`.
inline void kernel_resend(int thread, siginfo_t info) {
  system_call(SYS_rt_tgsigqueueinfo, kernel_process_id(), thread, info.si_signo, address(&info));
}

/// All signals blocked for as long as this lives. With it held no handler of the program runs on this thread, so locks
/// that a trap may take are safe to take.
class SignalsBlocked {
 public:
  SignalsBlocked() : before_(kernel_mask(SIG_SETMASK, ~SignalBits{0})) {}
  ~SignalsBlocked() { kernel_mask(SIG_SETMASK, before_); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  SignalBits before_;
};

/// A lock for a short while. Its holder has all signals blocked or is a signal handler of ours. Who waits sleeps: many
/// threads that meet fresh code at once would take the processor from the holder otherwise.
class SleepingLock {
 public:
  void lock() {
    if (try_lock()) return;
    if (holders_are_gone) {
      state_ = taken;
      return;
    }
    while (__atomic_exchange_n(&state_, waited_for, __ATOMIC_ACQUIRE) != 0)
      system_call(SYS_futex, address(&state_), futex_wait, waited_for);
  }
  bool try_lock() {
    int free = 0;
    return __atomic_compare_exchange_n(&state_, &free, taken, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED);
  }
  void unlock() {
    if (__atomic_exchange_n(&state_, 0, __ATOMIC_RELEASE) == waited_for)
      system_call(SYS_futex, address(&state_), futex_wake, 1);
  }

  /// In a copy of the process that has been made while others held locks: they are not in the copy.
  static inline bool holders_are_gone = false;

 private:
  static constexpr int taken = 1, waited_for = 2;
  static constexpr int futex_wait = 128, futex_wake = 129;  // FUTEX_WAIT_PRIVATE, FUTEX_WAKE_PRIVATE
  int state_ = 0;
};

}  // namespace sve::runner
