// What the client needs and the stock platform does not offer: a call that keeps nothing and runs on a stack of its own.
#pragma once

#include "dr_api.h"

namespace sve::client {

/// Registers `event` for the end of the process, by the name that the platform's release has for it.
void register_exit_event(void (*event)());

/// Prepares for `dr_insert_call_zorvi`. Called once, after the extensions are up.
void start_calls();

}  // namespace sve::client

/// Inserts, ahead of `where`, a call of `callee` with `count` immediate operands as its arguments, in the place of the
/// application instruction at `address`.
///
/// The callee runs on a stack that belongs to the thread, with the application's registers already stored: no general,
/// vector or flag register is kept. The application's stack, the spill slots, the platform's stolen register and FPCR are
/// as they were behind the call.
void dr_insert_call_zorvi(void* drcontext, instrlist_t* list, instr_t* where, app_pc address, void* callee,
                          unsigned int count, ...);
