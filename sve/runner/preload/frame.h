// Registers between a signal frame and the emulated machine.
#pragma once

#include <ucontext.h>

#include "sve/state/cpu_state.h"

namespace sve::runner {

/// Loads all that the host holds: X0 to X30, SP, PC, NZCV, V0 to V31, FPSR, FPCR.
void load_state(cpu_state* state, const ucontext_t* context);

/// The way back. FPCR is the program's own and no instruction of ours changes it.
void store_state(const cpu_state* state, ucontext_t* context);

}  // namespace sve::runner
