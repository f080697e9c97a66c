// What the client needs and the stock platform does not offer: a call that keeps nothing and runs on a stack of its
// own, and blocks that belong to one thread.
#pragma once

#include <mutex>

#include "dr_api.h"

namespace sve::client {

/// Registers `event` for the end of the process, by the name that the platform's release has for it.
void register_exit_event(void (*event)());

/// Inserts, ahead of `where`, a load of the thread-local field `index` into `to`. Where blocks are private to a thread
/// the field's value goes into the block as an immediate: the block has to run on the thread that builds it.
void insert_load_of_field(void* drcontext, instrlist_t* list, instr_t* where, int index, reg_id_t to);

/// Makes `mutex` exclude the application's threads from one another. The client has a C library of its own, which sees
/// no thread created and takes a plain mutex without an atomic operation as long as there is one thread; it does not do
/// that with one that processes share.
void make_mutex_work(std::mutex& mutex);

/// Prepares for `dr_insert_call_zorvi`, and for what the platform does not do by itself: signals reach SVE code that
/// runs in a loop, handlers do not change what they interrupt, a forked child counts from nothing. Called once, after
/// the extensions are up.
void start_calls();

}  // namespace sve::client

/// Inserts, ahead of `where`, a call of `callee` with `count` immediate operands as its arguments, in the place of the
/// application instruction at `address`.
///
/// The callee runs on a stack that belongs to the thread, with the application's registers already stored: no general,
/// vector or flag register is kept. A call of `emulate_instruction` with its three arguments may be one of
/// `run_call_site` instead, which does the same; its state is then the one that X27 points to, the base of the code
/// around the call. The application's stack, the spill slots, the platform's stolen register and FPCR are as they were
/// behind the call.
void dr_insert_call_zorvi(void* drcontext, instrlist_t* list, instr_t* where, app_pc address, void* callee,
                          unsigned int count, ...);
