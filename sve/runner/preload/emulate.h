// The trap: runs the instructions of ours that a SIGILL stands for.
#pragma once

#include <signal.h>
#include <ucontext.h>

#include "sve/decode/dispatch.h"
#include "sve/runner/preload/thread_block.h"

namespace sve::runner {

/// Executes what stands at the program's `pc`, and all instructions of ours that follow it directly. Returns true if
/// the program goes on at `context`. Otherwise `context` is where it is, and `*info` the signal that it gets there:
/// that of a fault of its memory, or the illegal instruction if it is not ours.
bool serve_trap(ThreadBlock* block, siginfo_t* info, ucontext_t* context);

/// The handler of a word that the runner serves, or null.
DecodeHandler handler_of(std::uint32_t word);

}  // namespace sve::runner
