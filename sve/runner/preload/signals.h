// The program's view of signals, kept apart from the kernel's.
//
// Every handler of the program is entered through one of ours. For SIGILL, SIGSEGV and SIGBUS ours stays installed
// whatever the program sets; for the others it is there so that a handler that uses SVE leaves the interrupted code's
// vectors and predicates as they were. SIGILL is never blocked in the kernel, since a trap on a blocked SIGILL is
// death; whether the program thinks it blocked is kept here.
#pragma once

#include <signal.h>
#include <ucontext.h>

#include "sve/runner/preload/kernel.h"

namespace sve::runner {

/// An action as the program set it.
struct program_action {
  std::uintptr_t handler = 0;  ///< function, SIG_DFL or SIG_IGN
  unsigned long flags = 0;
  signal_bits mask = 0;
};

/// Signals of which ours is always the handler in the kernel.
constexpr bool is_owned(int sig) { return sig == SIGILL || sig == SIGSEGV || sig == SIGBUS; }

/// Takes over the owned signals. Called once at start.
void start_signals();

/// What sigaction does, in the program's view. Returns 0 or an error number.
int change_action(int sig, const program_action* action, program_action* old);

/// Calls the program's handler of an owned signal, or takes the default action. `context` is the interrupted program.
/// Returns to resume the program from `context`.
void deliver(int sig, siginfo_t* info, ucontext_t* context);

/// Whether the program thinks SIGILL blocked on this thread.
bool sigill_blocked();

/// Sets that, and delivers a SIGILL that was waiting for it.
void set_sigill_blocked(bool blocked);

/// Whether a SIGILL waits to be unblocked.
bool sigill_pending();

/// A SIGILL that came from a sender while the program blocks it: keeps it for later.
void hold_sigill(const siginfo_t* info);

/// Puts into the kernel what a new program inherits across exec, and takes it out again when exec has failed.
void actions_before_exec();
void actions_after_failed_exec();

/// Around fork: no action is half written in the child.
void lock_actions();
void unlock_actions();

}  // namespace sve::runner
