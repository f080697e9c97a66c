// The way from the inserted code into the model that an unguarded memory fault can leave.
#pragma once

#include "sve/decode/dispatch.h"

namespace sve::client {

/// Runs `handler`. A fault of one of its plain memory accesses ends the process as `SVESigHandler` tells, although the
/// platform owns the signals.
aarch64_decode_rc call_handler(void* drcontext, DecodeHandler handler, cpu_state* state, unsigned int word);

/// Whether a word may access memory. The memory instructions are those with the top bit set; the others cannot fault,
/// and go without the cost of being prepared for it.
constexpr bool word_accesses_memory(unsigned int word) { return word >> 31 != 0; }

}  // namespace sve::client
