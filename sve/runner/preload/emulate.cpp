#include "sve/runner/preload/emulate.h"

#include <cstring>

#include "sve/decode/dispatch.h"
#include "sve/runner/preload/frame.h"
#include "sve/runner/preload/text.h"

namespace sve::runner {
namespace {

// All of our words have this major opcode, so that the end of a run is found without a search.
bool may_be_ours(std::uint32_t word) { return (word >> 25 & 15) == 2; }

constexpr std::uintptr_t page_mask = 4095;

void print_failure(std::uint32_t word, const void* pc) {
  Text<96> line;
  (line << "Error: failed to emulate SVE instruction ").hex(word, 8) << " at PC ";
  line.hex(reinterpret_cast<std::uintptr_t>(pc)) << "\n";
  kernel_write(STDERR_FILENO, line.data(), line.size());
}

// Words that the model accepts, or never answers, and that no processor executes: the logical immediates whose element
// has no width.
bool refuses(std::uint32_t word) {
  const bool is_logical_immediate = (word & 0xff3c0000) == 0x05000000;
  const bool has_no_width = (word >> 17 & 1) == 0 && (word >> 5 & 0x3f) == 0x3f;
  return is_logical_immediate && has_no_width;
}

// One trap serves all instructions of ours that follow each other. A run ends with its page: the next may not be there,
// or may not be code.
void run(cpu_state* state) {
  asm volatile("msr fpcr, %0\n\tmsr fpsr, %1" ::"r"(static_cast<std::uint64_t>(state->fpcr)),
               "r"(static_cast<std::uint64_t>(state->fpsr)));
  do {
    const std::uint32_t word = *state->pc;
    if (!may_be_ours(word) || refuses(word)) return;
    if (execute_sve_instruction(state) != AARCH64_DECODE_EXECUTED) {
      if (!is_sve(word)) return;
      print_failure(word, state->pc);
      ++state->pc;
    }
  } while ((reinterpret_cast<std::uintptr_t>(state->pc) & page_mask) != 0);
}

}  // namespace

bool serve_trap(thread_block* block, siginfo_t* info, ucontext_t* context) {
  cpu_state* state = &block->state;
  load_state(state, context);
  const std::uint32_t* start = state->pc;
  if (guarded(block, [state] { run(state); })) {
    if (state->pc == start) return false;
    block->used_sve = true;
    store_state(state, context);
    return true;
  }
  // The program's own data were not there. It hears of it as of a fault of the instruction that is now at `pc`.
  std::memcpy(context->uc_mcontext.__reserved, block->fault_records, sizeof block->fault_records);
  context->uc_mcontext.fault_address = reinterpret_cast<std::uintptr_t>(block->fault.si_addr);
  block->used_sve = true;
  store_state(state, context);
  *info = block->fault;
  return false;
}

}  // namespace sve::runner

// The model's own calls of sigaction, which the linker redirects here: it asks for a handler that the runner's entry
// takes the place of.
extern "C" __attribute__((visibility("hidden"))) int __wrap_sigaction(int, const struct sigaction*, struct sigaction*) {
  return 0;
}
