// The run-time side of an inserted call: what is known of an emulated instruction when its block is built, and what
// each thread keeps for running it.
#pragma once

#include <atomic>

#include "dr_api.h"
#include "sve/decode/dispatch.h"
#include "sve/report/lane_use.h"

namespace sve::client {

/// An instruction at an address. There is one of each word and address, however often a block is built, and it stays.
struct CallSite {
  unsigned int word;
  unsigned char* pc;
  DecodeHandler handler;
  bool accesses_memory;
  const decode::Row* row;
  LaneUse lanes;
  bool uses_slots;                                          ///< it names a general register that waits in a spill slot
  std::atomic<std::atomic<unsigned long>*> count{nullptr};  ///< its entry of `icounts`, once it has one
};

/// What a thread has at the top of its stack for calls.
struct alignas(16) CallThread {
  unsigned until_leaving;  ///< calls until the thread leaves the code cache
};

/// How many instructions a thread emulates before it leaves the code cache and the platform looks for signals and for
/// threads that want this one to stop: a few milliseconds.
inline constexpr unsigned calls_between_leaving = 4096;

/// The site, made if need be. For the time when blocks are built.
CallSite* need_call_site(unsigned int word, unsigned char* pc, DecodeHandler handler);

/// What the inserted code calls: `emulate_instruction` without its look-ups, on the state that the code has stored to.
/// Does not return where it is time to leave the cache; the application then goes on behind the instruction.
void run_call_site(CallSite* site, cpu_state* state, CallThread* own);

/// In a forked child, which counts from nothing.
void restart_counts(void* drcontext);

}  // namespace sve::client
