// Signals that meet a thread in the middle of a run.
#pragma once

#include <signal.h>
#include <ucontext.h>

#include "sve/runner/preload/thread_block.h"

namespace sve::runner {

enum class Interruption {
  none,      ///< the thread is outside of any run
  resumed,   ///< nothing is to be delivered now: the thread goes on at `context`
  delivered  ///< `context` is the program's, between two instructions, and `info` the signal that it gets
};

/// Called first with each signal. A processor takes no signal in the middle of an instruction, and here none is taken
/// in the middle of a run: it waits for the end, with everything blocked meanwhile, so that what comes behind it stays
/// in the kernel's order. A fault of the program's data leaves the run at its instruction. `answer` is asked about
/// faults first: whether they are the model's own questions.
Interruption interrupt_run(ThreadBlock* block, siginfo_t* info, ucontext_t* context,
                           bool (*answer)(int sig, void* context));

}  // namespace sve::runner
