// How an instruction without a model answers.
#pragma once

#include "sve/state/cpu_state.h"

namespace sve {

/// Prints the address, the word and the function's name of an unimplemented instruction to stderr; returns 2.
aarch64_decode_rc unimplemented(const cpu_state* state, const char* function);

}  // namespace sve
