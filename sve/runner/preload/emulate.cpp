#include "sve/runner/preload/emulate.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "sve/decode/dispatch.h"
#include "sve/decode/unallocated.h"
#include "sve/report/text.h"
#include "sve/runner/preload/copies.h"
#include "sve/runner/preload/frame.h"
#include "sve/runner/preload/process.h"
#include "sve/runner/sites/offsets.h"
#include "sve/runner/sites/site.h"

namespace sve::runner {
namespace {

// In the processor's state: that the instruction before was an indirect branch.
constexpr std::uint64_t landing_pad_mask = 3u << 10;

// All of our words have this major opcode, so that the end of a run is found without a search.
bool may_be_ours(std::uint32_t word) { return (word >> 25 & 15) == 2; }

constexpr std::uintptr_t page_mask = 4095;

void print_failure(std::uint32_t word, const void* pc) {
  Text<96> line;
  (line << "Error: failed to emulate SVE instruction ").hex(word, 8) << " at PC ";
  line.hex(reinterpret_cast<std::uintptr_t>(pc)) << "\n";
  kernel_write(STDERR_FILENO, line.data(), line.size());
}

void execute(cpu_state* state, std::uint32_t word, DecodeHandler handle, Site* s) {
  const decode::Row* const r = s && s->uses ? decode::find_row(word) : nullptr;
  const auto done = r && has_lane_use(*r) ? execute_and_count(state, word, *r, &s->uses[state->pc - s->address])
                                          : handle(state, word);
  if (done != AARCH64_DECODE_EXECUTED) {
    print_failure(word, state->pc);
    if (s) {  // it does not count with the run
      s->partial[state->pc - s->address].fetch_sub(1);
      --this_thread_block->partial;
    }
  }
  ++state->pc;
}

// With a site, its run, up to the first instruction that is not of SVE; without one, as far as there are such words.
void run(cpu_state* state, Site* s) {
  asm volatile("msr fpcr, %0\n\tmsr fpsr, %1" ::"r"(static_cast<std::uint64_t>(state->fpcr)),
               "r"(static_cast<std::uint64_t>(state->fpsr)));
  if (s) {
    for (std::size_t i = 0; i < s->count && s->handlers[i]; ++i) execute(state, s->words[i], s->handlers[i], s);
    return;
  }
  do {
    const std::uint32_t word = *state->pc;
    const DecodeHandler handle = handler_of(word);
    if (!handle) return;
    execute(state, word, handle, nullptr);
    count_without_site(!is_sandboxed() && !in_borrowed_memory());
  } while ((reinterpret_cast<std::uintptr_t>(state->pc) & page_mask) != 0);
}

// What a trap takes, but for the kernel's share.
class TimeOfTrap {
 public:
  explicit TimeOfTrap(ThreadBlock* block) : block_(block), begun_(counts_time() ? read_counter() : 0) {}
  ~TimeOfTrap() {
    if (counts_time()) block_->in_runs += read_counter() - begun_;
  }

 private:
  ThreadBlock* block_;
  std::uint64_t begun_;
};

// A call, so that the compiler sees that `guarded` may be left by it.
[[gnu::noipa]] void touch(std::uint64_t at) {
  auto* byte = reinterpret_cast<volatile std::uint8_t*>(at);
  *byte = *byte;
}

// Whether the program's stack has what an entry takes of it.
bool has_room_to_push(ThreadBlock* block) {
  const std::uint64_t sp = block->state.sp;
  return guarded(block, [sp] {
    touch(sp - SVE_ENTRY_PUSHED);
    touch(sp - 1);
  });
}

// What native code asks of predicates.
void learn_full_predicates(ThreadBlock* block) {
  std::fill(std::begin(block->full), std::end(block->full), 0);
  if (translation_of_sites() != Translation::native) return;
  for (unsigned n = 0; n < 16; ++n) {
    std::uint64_t all = ~std::uint64_t{0};
    for (std::size_t i = 0; i < vector_bytes; i += 8) {
      std::uint64_t bytes;
      std::memcpy(&bytes, block->state.p[n] + i, 8);
      all &= bytes;
    }
    constexpr std::uint64_t firsts[] = {0x0101010101010101, 0x0001000100010001, 0x0000000100000001, 1};
    for (unsigned size = 0; size < 4; ++size)
      if ((all & firsts[size]) == firsts[size]) block->full[n] |= 1u << size;
  }
}

}  // namespace

DecodeHandler handler_of(std::uint32_t word) {
  return may_be_ours(word) && !decode::is_unallocated(word) ? is_sve(word) : nullptr;
}

bool serve_trap(ThreadBlock* block, siginfo_t* info, ucontext_t* context) {
  cpu_state* state = &block->state;
  count_trap();
  const TimeOfTrap time(block);
  load_state(state, context);
  std::uint32_t* const start = state->pc;
  Site* s = find_site(start);
  if (!s) notice_sandbox();
  // A vforked child makes none, and patches none: the lock may be held by a thread that the child has not, where it is
  // a copy after all.
  if (!s && !is_sandboxed() && !in_borrowed_memory()) s = need_site(start);
  // An indirect branch to here, from code that has landing pads. Whether the page wants one the processor tells at our
  // branch, which is as little one as the program's own word: what comes back from it has met the landing pad's fault.
  const bool may_need_landing_pad = (context->uc_mcontext.pstate & landing_pad_mask) != 0;
  if (may_need_landing_pad) {
    if (s && !is_sandboxed() && has_room_to_push(block)) patch_site(s);
    if (is_patched(start)) {
      if (block->sent_to == start) return false;
      block->sent_to = start;
      return true;
    }
  }
  block->sent_to = nullptr;
  // Another thread may have patched it since it trapped here.
  if (!s && !handler_of(*start)) return is_patched(start);
  block->used_sve = true;
  // A run that the handlers cannot execute to its end goes through its code from the first time on, unless the stack is
  // used up. Met by a trap once more, it goes as far as it can.
  if (s && s->has_scalars && s->entry == 0 && has_room_to_push(block)) {
    patch_site(s);
    if (is_patched(start)) return true;
  }
  const bool faulted = !guarded(block, [=] { run(state, s); });
  learn_full_predicates(block);
  if (s) {
    if (faulted || state->pc != s->end()) {
      // Not patched yet: the program's handler may look at the instruction.
      count_partial(s, static_cast<std::size_t>(state->pc - start));
    } else {
      ++counts_of(block)[s->index];
      if (!is_sandboxed()) patch_site(s);
    }
  }
  if (!faulted) {
    store_state(state, context);
    return true;
  }
  // The program's own data were not there. It hears of it as of a fault of the instruction that is now at `pc`.
  std::memcpy(context->uc_mcontext.__reserved, block->fault_records, sizeof block->fault_records);
  context->uc_mcontext.fault_address = without_tag(reinterpret_cast<std::uintptr_t>(block->fault.si_addr));
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
