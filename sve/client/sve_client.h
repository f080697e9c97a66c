// The instrumentation client: its life cycle, the rewriting of the application's blocks, and the run-time target of the
// code that it inserts.
#pragma once

#include <cstdint>

#include "dr_api.h"
#include "sve/decode/dispatch.h"

/// The application's main module, released at exit, and its start; both null if there is none.
extern module_data_t* exe;
extern app_pc exe_start;
/// Index of the thread-local field that holds each thread's `cpu_state`.
extern std::int32_t tls_idx;

/// Allocates the thread's `cpu_state`. Its vectors' upper bytes, predicates and FFR begin with whatever was there.
void event_thread_init(void* drcontext);
/// Releases it.
void event_thread_exit(void* drcontext);
/// Prints the totals and tears the platform's extensions down.
void event_exit();

/// Replaces each SVE instruction of a block of the main module, or of code outside of all modules, by inline code that
/// stores the application's registers into the thread's `cpu_state`, calls `emulate_instruction` and loads them back.
/// Everything else stays as it is. A block is treated alike each time it is presented: `for_trace` and `translating`
/// are not looked at.
dr_emit_flags_t event_instruction_change(void* drcontext, void* tag, instrlist_t* bb, bool for_trace, bool translating);

/// Runs `handler` on the current thread's `cpu_state`. X26 to X28 come from the spill slots and go back to them; all
/// other registers are stored and reloaded by the inserted code around the call. A failure is reported, not counted,
/// and the application goes on behind the instruction.
void emulate_instruction(unsigned int word, unsigned char* pc, DecodeHandler handler);

namespace sve::client {

/// Says that the instruction at `pc` could not be emulated.
void report_failure(const void* pc);

}  // namespace sve::client
