// What the runner keeps for each thread: its emulated machine, its view of signals, and the stack on which the runner
// serves its signals.
//
// The kernel's alternate stack of every thread is the runner's, always, so that a trap takes nothing from the stack of
// the program, which may have nothing to spare. The program's alternate stack is kept here and served by the runner.
#pragma once

#include <signal.h>
#include <ucontext.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "sve/runner/preload/kernel.h"
#include "sve/state/cpu_state.h"

namespace sve::runner {

/// Signals that were sent while the program blocks them, of those that the kernel must not block: one of each kind, as
/// the kernel holds them.
struct HeldSignals {
  siginfo_t info[3];
  std::atomic<SignalBits> present;

  static int place(int sig) { return sig == SIGILL ? 0 : sig == SIGSEGV ? 1 : 2; }
  void hold(const siginfo_t& held);
  /// Takes out the first one that is in `set`; si_signo is 0 if there is none.
  siginfo_t take(SignalBits set);
};

/// Where a thread could not execute and has tried again last, and how many patches there were by then.
struct TriedAgain {
  std::uintptr_t pc;
  unsigned works;
};

/// A thread's block. It is all zero at first but for the program's stack, which is none.
struct ThreadBlock {
  /// The owned signals that the program thinks blocked. First, for vfork's sake.
  std::atomic<SignalBits> blocked;
  /// Whether this thread runs as a vforked child: `blocked` is the child's, and the parent puts its own back.
  unsigned long is_vforked;

  // These are written by entries of sites: see sites/offsets.h.
  alignas(16) std::uint8_t borrowed_v[16][16];  ///< the program's values of registers that native code borrows
  cpu_state state;
  std::uint64_t running;   ///< an entry's address if it executes a run now; `state` is whole between two instructions
  std::uint32_t pending;   ///< whether something waits for the run's end
  std::uint64_t used_sve;  ///< whether `state` holds more than zeroes above the V registers
  std::uint32_t full[16];  ///< by predicate, for which sizes, a bit each, all elements are known to be active
  std::uint64_t borrowed_x[8];
  alignas(16) std::uint8_t gathered[vector_bytes];  ///< what is loaded element by element, until all of it is

  std::uint64_t run_begun, in_runs;  ///< by the processor's counter, where a report is to tell of time

  siginfo_t deferred;        ///< the signal that waits; si_signo 0 if none does
  SignalBits deferred_mask;  ///< the program's mask, while everything waits
  stack_t program_stack;     ///< as the program set it; SS_DISABLE if it has none

  // A wait with a mask of its own, as in sigsuspend. A signal's arrival ends it.
  bool waits;
  SignalBits wait_mask;
  std::atomic<SignalBits> waited_for;  ///< owned signals that a sigwait of this thread would take
  std::atomic<SignalBits> woken;       ///< sent to make this thread look for those that are held for the process

  HeldSignals held;  ///< sent to this thread while the program blocks them
  HeldSignals late;  ///< sent while the runner was at work on this thread

  // A piece of our code that touches the program's memory.
  bool is_guarded;
  void* resume[5];
  siginfo_t fault;
  std::uint8_t fault_records[sizeof(mcontext_t::__reserved)];

  ucontext_t context_copy;  ///< of a context on its way to the kernel, if its mask is not for the kernel

  // What the thread begins with: its function, in a type of any kind, and that one's argument.
  void (*start)();
  void* start_argument;

  TriedAgain tried_again;        ///< after a patch may have been in the way
  const std::uint32_t* sent_to;  ///< the patched place at which the last trap has told the thread to try again

  std::int64_t partial;  ///< instructions executed in runs that did not come to their end, and without a site
  bool inherits_length;  ///< what PR_SVE_VL_INHERIT says; no other part of the length can change
  int thread_id;
  bool is_ending;  ///< the thread is among its last destructors, and the block is free when it is gone
  ThreadBlock* next;

  /// Whether a stack pointer is in the runner's stack, which ends where the block begins.
  bool is_runner_stack(std::uintptr_t sp) const;
};

/// A thread's executions of each site, by the site's index, lie behind its block, so that entries need no lock to
/// count.
inline constexpr std::size_t thread_counts_offset = 65536;
static_assert(sizeof(ThreadBlock) <= thread_counts_offset);
inline std::uint64_t* counts_of(ThreadBlock* block) {
  return reinterpret_cast<std::uint64_t*>(reinterpret_cast<std::byte*>(block) + thread_counts_offset);
}

/// The list of all blocks.
extern ThreadBlock* thread_blocks;

/// Calls `body` with each thread's block, of those too that have ended and not been reused. Call with all signals
/// blocked.
void for_each_thread_block(void (*body)(ThreadBlock* block, void* argument), void* argument);

/// This thread's block, or null. Initial-exec, so that a signal handler reads it without a call.
extern thread_local ThreadBlock* this_thread_block __attribute__((tls_model("initial-exec")));

/// The block of this thread, made if need be; null when memory has run out, or where the runner is not active. The
/// kernel's mask loses the owned signals to the program's view.
ThreadBlock* need_thread_block();

/// A block for a thread to come, and its return if none comes. Memory of threads that have ended is reused or given
/// back.
ThreadBlock* make_thread_block();
void free_thread_block(ThreadBlock* block);

/// Makes `block` this thread's.
void begin_thread(ThreadBlock* block);

/// The runner's stack, as the kernel is told of it.
stack_t runner_stack(const ThreadBlock* block);

/// For a signal of the whole process that this thread blocks: sends it to another thread that does not, or waits for
/// it, if there is one. The kernel lets no thread forge another's signal, so what that one gets tells it where to look.
void wake_thread_for(int sig);

/// Whether there are threads beside this one, as far as we know.
bool has_other_threads();

/// Runs `body`, which touches memory that is the program's. Returns false if a fault ended it, which `block->fault`
/// tells of. No caller may know which registers it leaves alone: a fault leaves none.
template <class Body>
[[gnu::noipa]] bool guarded(ThreadBlock* block, Body body) {
  if (__builtin_setjmp(block->resume)) return false;
  block->is_guarded = true;
  std::atomic_signal_fence(std::memory_order_seq_cst);
  body();
  std::atomic_signal_fence(std::memory_order_seq_cst);
  block->is_guarded = false;
  return true;
}

/// From the handler of a fault: makes `guarded` return false.
[[noreturn]] void leave_guarded(ThreadBlock* block);

/// Called once at start, before any thread is made; and in a copy of the process, which has this thread alone.
void start_thread_blocks();
void keep_own_thread_block();

/// Around fork: the list of blocks is whole in the child, which unlocks it by keeping its own.
void lock_thread_blocks();
void unlock_thread_blocks();

}  // namespace sve::runner
