// Recognising and executing one instruction word.
#pragma once

#include "sve/state/cpu_state.h"

/// A decode handler: cuts the operands of its instruction out of the word and executes it on the state.
using DecodeHandler = aarch64_decode_rc (*)(cpu_state*, unsigned int);

/// The handler of an SVE instruction word, or null for a word that is not one. Safe from any thread once the library is
/// loaded; touches no state.
DecodeHandler is_sve(unsigned int word);

/// Fetches the word at `state->pc` and executes it. On success counts it, adds 4 to `pc` and returns 0. On a word that
/// is not an SVE instruction returns 2; on any failure `pc` stays and nothing is counted.
aarch64_decode_rc execute_sve_instruction(cpu_state* state);
