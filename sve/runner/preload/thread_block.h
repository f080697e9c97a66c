// What the runner keeps for each thread: its emulated machine, and the stack on which the model runs.
#pragma once

#include <signal.h>
#include <ucontext.h>

#include <cstddef>
#include <cstdint>

#include "sve/runner/preload/kernel.h"
#include "sve/state/cpu_state.h"

namespace sve::runner {

/// A thread's block. It is made when the thread first needs it, all zero, and freed when the thread ends.
struct thread_block {
  cpu_state state;
  bool emulating;     ///< a trap is being served: `state` is not the program's to change
  void* resume;       ///< where a fault of the model's own memory access leaves to
  siginfo_t fault;    ///< that fault
  siginfo_t late[2];  ///< SIGSEGV and SIGBUS sent by someone while the model ran; si_signo 0 if none
  std::uint8_t fault_records[sizeof(mcontext_t::__reserved)];  ///< the fault frame's records
};

/// This thread's block, or null. Initial-exec, so that a signal handler reads it without a call.
extern thread_local thread_block* this_thread_block __attribute__((tls_model("initial-exec")));

/// The block of this thread, made if need be; null when memory has run out. Callable from a signal handler, with all
/// signals blocked.
thread_block* need_thread_block();

/// The top of the stack on which the model runs. Nothing else ever runs there: signals of the program wait until the
/// model is done, and a fault of the program's data leaves the stack before the program hears of it.
inline void* model_stack_top(thread_block* block) { return block; }

/// Called once at start, before any thread is made.
void start_thread_blocks();

}  // namespace sve::runner
