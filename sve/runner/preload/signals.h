// The program's view of signals, kept apart from the kernel's.
//
// Every signal that the program handles enters through one function of ours, on the runner's own stack. What is the
// program's is delivered: the entry builds the frame that a processor with SVE would have, changes the kernel's own so
// that the kernel resumes the program in its handler, and returns. So nothing of ours is on a stack while a handler
// runs, which it may leave as it likes. When it returns, it returns into the entry again.
//
// For the owned signals ours stays the kernel's handler whatever the program sets, and the kernel never has them
// blocked; whether the program thinks them blocked is kept here.
#pragma once

#include <signal.h>
#include <ucontext.h>

#include "sve/runner/preload/kernel.h"
#include "sve/runner/preload/thread_block.h"
#include "sve/runner/sites/interruption.h"

namespace sve::runner {

/// An action as the program set it.
struct ProgramAction {
  std::uintptr_t handler = 0;  ///< function, SIG_DFL or SIG_IGN
  unsigned long flags = 0;
  SignalBits mask = 0;
};

/// Where handlers return to.
extern std::uint32_t handler_return[2];

/// What the entry calls, all on the runner's stack with every signal blocked but the owned ones.
struct SignalServices {
  /// Asked first of all: whether the signal meets a run. See sites/interruption.h.
  Interruption (*interrupt_run)(ThreadBlock* block, siginfo_t* info, ucontext_t* context,
                                bool (*answer)(int sig, void* context));
  /// Serves an illegal instruction. Returns true if the program goes on at `context`; otherwise `*info` tells the
  /// signal that it gets there.
  bool (*serve_trap)(ThreadBlock* block, siginfo_t* info, ucontext_t* context);
  /// Whether a fault at `context` is the model's own question about memory; if so, the answer is in `context`.
  bool (*answer_fault)(int sig, void* context);
  /// The process is about to die by the signal. `block` is null where there is none.
  void (*report_death)(ThreadBlock* block, const siginfo_t& info);
  /// Whether it is to be called for all signals whose default action is that.
  bool reports_ends;
};

/// Takes over the owned signals, which the program finds as they were inherited. Called once at start. `ignored` are
/// those that the parent could not have ignored in the kernel.
void start_signals(const SignalServices& services, SignalBits ignored);

/// What sigaction does, in the program's view. Returns 0 or an error number.
int change_action(int sig, const ProgramAction* action, ProgramAction* old);

/// What sigaltstack does for a caller whose stack pointer is `sp`. Returns 0 or an error number.
int change_stack(ThreadBlock* block, const stack_t* stack, stack_t* old, std::uintptr_t sp);

/// The owned signals that the program thinks blocked on this thread.
SignalBits blocked_signals();

/// Sets that, and delivers those that waited for it.
void set_blocked_signals(SignalBits blocked);

/// The owned signals that wait to be unblocked on this thread.
SignalBits pending_signals();

/// Takes one of those that is in `set`; si_signo is 0 if there is none.
siginfo_t take_pending(SignalBits set);

/// For as long as this lives, the thread waits with a mask of its own. The wait itself is to be given `kernel_mask`.
class WaitMask {
 public:
  explicit WaitMask(const sigset_t* mask);
  ~WaitMask();
  WaitMask(const WaitMask&) = delete;
  WaitMask& operator=(const WaitMask&) = delete;
  const sigset_t* kernel_mask() const { return given_ ? &kernel_mask_ : mask_; }
  /// Whether a handler of the program has run since.
  bool is_over() const;

 private:
  const sigset_t* mask_;
  ThreadBlock* block_;
  bool given_;
  sigset_t kernel_mask_;
};

/// The owned signals that the program ignores.
SignalBits ignored_signals();

/// Puts into the kernel what a new program inherits across exec, and takes it out again when exec has failed. Ignored
/// signals are put there only if no other thread can trap meanwhile; the return value is those that were not.
SignalBits actions_before_exec();
void actions_after_failed_exec();

/// Around fork: no action, nor what is kept of threads, is half written in the child.
void lock_actions();
void unlock_actions();
/// In the child: nothing waits that was sent to the parent.
void forget_pending();

/// In a copy of the process where another thread may have been changing an action: it is not in the copy.
void actions_are_whole();

}  // namespace sve::runner
