#include "sve/runner/preload/emulate.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "sve/decode/dispatch.h"
#include "sve/decode/unallocated.h"
#include "sve/fault/fault_capture.h"
#include "sve/runner/preload/frame.h"
#include "sve/runner/preload/signals.h"
#include "sve/runner/preload/thread_block.h"
#include "sve/stats/stats.h"

extern "C" {
int sve_call_on_stack(void (*function)(void*), void* argument, void* stack_top, void** resume);
[[noreturn]] void sve_leave_stack(void* resume);
}

namespace sve::runner {
namespace {

// All of our words have this major opcode, so that the end of a run is found without a search.
bool may_be_ours(std::uint32_t word) { return (word >> 25 & 15) == 2; }

constexpr std::uintptr_t page_mask = 4095;

void print_failure(std::uint32_t word, const void* pc) {
  char text[96];
  const int size =
      std::snprintf(text, sizeof text, "Error: failed to emulate SVE instruction 0x%08x at PC %p\n", word, pc);
  kernel_write(STDERR_FILENO, text, static_cast<std::size_t>(size));
}

[[maybe_unused]] const bool counts_may_end = [] {
  on_no_memory_for_counts = [] {
    static constexpr char text[] = "sve-run: no memory for more counts; from here on the total alone is counted\n";
    kernel_write(STDERR_FILENO, text, sizeof text - 1);
  };
  return true;
}();

// Runs on the model's stack. One trap serves all instructions of ours that follow each other. A run ends with its page:
// the next may not be there, or may not be code.
void run(void* argument) {
  auto* state = static_cast<cpu_state*>(argument);
  asm volatile("msr fpcr, %0\n\tmsr fpsr, %1" ::"r"(static_cast<std::uint64_t>(state->fpcr)),
               "r"(static_cast<std::uint64_t>(state->fpsr)));
  do {
    const std::uint32_t word = *state->pc;
    if (!may_be_ours(word) || decode::is_unallocated(word)) return;
    if (execute_sve_instruction(state) != AARCH64_DECODE_EXECUTED) {
      if (!is_sve(word)) return;
      print_failure(word, state->pc);
      ++state->pc;
    }
  } while ((reinterpret_cast<std::uintptr_t>(state->pc) & page_mask) != 0);
}

// A signal that someone sent while the model ran: it is the program's, and comes when the program runs again.
void send_late_signals(thread_block* block) {
  for (siginfo_t& late : block->late) {
    if (late.si_signo == 0) continue;
    kernel_mask(SIG_BLOCK, bit(late.si_signo));
    kernel_resend(late.si_signo, &late);
    late.si_signo = 0;
  }
}

}  // namespace

void illegal_instruction_entry(int sig, siginfo_t* info, void* raw_context) {
  auto* context = static_cast<ucontext_t*>(raw_context);
  if (info->si_code <= 0) {  // sent, not trapped
    if (sigill_blocked()) return hold_sigill(info);
    return deliver(sig, info, context);
  }
  const int saved_errno = errno;
  thread_block* block = need_thread_block();
  if (!block) {
    static constexpr char text[] = "sve-run: no memory for a thread's vector state\n";
    kernel_write(STDERR_FILENO, text, sizeof text - 1);
    return deliver(sig, info, context);
  }
  constexpr signal_bits faults = bit(SIGSEGV) | bit(SIGBUS);
  signal_bits program_mask;
  std::memcpy(&program_mask, &context->uc_sigmask, sizeof program_mask);
  if (program_mask & faults) kernel_mask(SIG_UNBLOCK, faults);

  // From here on a SIGSEGV that someone sends must wait: a handler that uses SVE would find the state in use.
  cpu_state* state = &block->state;
  block->emulating = true;
  std::atomic_signal_fence(std::memory_order_seq_cst);
  load_state(state, context);
  const std::uint32_t* start = state->pc;
  const bool faulted = sve_call_on_stack(run, state, model_stack_top(block), &block->resume) != 0;
  if (faulted) {
    // The program's own data were not there. It hears of it as of a fault of the instruction that is now at `pc`.
    std::memcpy(context->uc_mcontext.__reserved, block->fault_records, sizeof block->fault_records);
    context->uc_mcontext.fault_address = reinterpret_cast<std::uintptr_t>(block->fault.si_addr);
  }
  const bool ours = faulted || state->pc != start;
  if (ours) store_state(state, context);
  siginfo_t fault = block->fault;
  std::atomic_signal_fence(std::memory_order_seq_cst);
  block->emulating = false;
  send_late_signals(block);
  errno = saved_errno;
  if (faulted) return deliver(fault.si_signo, &fault, context);
  if (!ours) deliver(sig, info, context);
}

void fault_entry(int sig, siginfo_t* info, void* raw_context) {
  auto* context = static_cast<ucontext_t*>(raw_context);
  thread_block* block = this_thread_block;
  if (!block || !block->emulating) return deliver(sig, info, context);
  if (info->si_code <= 0) {
    block->late[sig == SIGBUS] = *info;
    return;
  }
  if (recover_guarded_fault(sig, raw_context)) return;
  block->fault = *info;
  std::memcpy(block->fault_records, context->uc_mcontext.__reserved, sizeof block->fault_records);
  sve_leave_stack(block->resume);
}

}  // namespace sve::runner

// The model's own calls of sigaction, which the linker redirects here: it asks for the handler that fault_entry is.
extern "C" __attribute__((visibility("hidden"))) int __wrap_sigaction(int, const struct sigaction*, struct sigaction*) {
  return 0;
}
