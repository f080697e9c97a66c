// The trap: runs the instructions of ours that a SIGILL stands for.
#pragma once

#include <signal.h>

#include "sve/runner/preload/kernel.h"

namespace sve::runner {

/// The kernel's handler of SIGILL.
void illegal_instruction_entry(int sig, siginfo_t* info, void* context);

/// The kernel's handler of SIGSEGV and SIGBUS.
void fault_entry(int sig, siginfo_t* info, void* context);

/// What is blocked while an instruction is emulated, so that no signal comes in the middle of one: all but the faults
/// of its own memory accesses.
inline constexpr signal_bits emulation_mask = ~(bit(SIGSEGV) | bit(SIGBUS));

}  // namespace sve::runner
