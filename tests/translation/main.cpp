// The code of runs beside the handlers of their instructions: random runs on random states, every register and all
// memory compared, where a run ends and where a fault leaves it.
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <ucontext.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "sve/decode/text.h"
#include "sve/decode/unallocated.h"
#include "sve/fault/fault_capture.h"
#include "sve/runner/preload/frame.h"
#include "sve/runner/sites/entry.h"
#include "sve/runner/sites/interruption.h"
#include "tests/conformance/states.h"
#include "tests/conformance/window.h"
#include "tests/conformance/words.h"

struct Registers {
  std::uint64_t x[31], sp, nzcv, fpsr, fpcr, unused;
  std::uint8_t v[32][16];
};
extern "C" {
void translation_enter(Registers*, const void* pad);
void translation_leave();
}

// The model's own calls, which the linker redirects here: the handler below asks it about each fault.
extern "C" int __real_sigaction(int, const struct sigaction*, struct sigaction*);
extern "C" int __wrap_sigaction(int, const struct sigaction*, struct sigaction*) { return 0; }

// What the code under test asks of the rest of the runner.
namespace sve::runner {
thread_local ThreadBlock* this_thread_block __attribute__((tls_model("initial-exec"))) = nullptr;
namespace {
Site the_site;
std::size_t counted_partial = 0;
std::uint64_t code_end = 0;
}  // namespace
Site* site_of_entry(std::uintptr_t pc) { return pc >= the_site.code && pc < code_end ? &the_site : nullptr; }
void count_partial(Site*, std::size_t done) { counted_partial += done; }
bool may_try_again(TriedAgain&, std::uintptr_t) { return false; }
void HeldSignals::hold(const siginfo_t&) { std::abort(); }
}  // namespace sve::runner

namespace {

using namespace conformance;
using namespace sve::runner;

constexpr unsigned most_words = 12;
constexpr std::size_t stack_bytes = 4096, stack_compared = 1024;

struct Place {
  alignas(4096) std::uint32_t pad[16];
  std::uint32_t program[64];  // where the run lies, never executed, and behind it what leaves
  std::uint32_t scalar[16];   // one instruction, and what leaves
  std::uint32_t entry[2 * most_entry_words];
};
Place* code;
ThreadBlock* block;
std::uint8_t* stack;  // of the program

// ---- Faults ----

std::uint64_t at_work;  // the number of the case

enum class Doing { nothing, model, native } now;
std::uint32_t* stopped_at = nullptr;  // where a signal comes, in place of this word
std::uint32_t stopped_word;
sigjmp_buf escape;
siginfo_t left_info;
Registers left_registers;
std::uint64_t left_pc;

void from_context(const ucontext_t* context, Registers& r) {
  cpu_state state;
  load_state(&state, context);
  std::memcpy(r.x, state.x, sizeof r.x);
  r.sp = state.sp;
  r.nzcv = state.nzcv;
  r.fpsr = state.fpsr;
  for (unsigned n = 0; n < 32; ++n) std::memcpy(r.v[n], state.z[n], 16);
}

void on_signal(int sig, siginfo_t* info, void* raw) {
  auto* context = static_cast<ucontext_t*>(raw);
  if (now == Doing::native) {
    // The instruction at which another signal comes.
    if (sig == SIGTRAP) {
      *stopped_at = stopped_word;
      __builtin___clear_cache(reinterpret_cast<char*>(stopped_at), reinterpret_cast<char*>(stopped_at + 1));
      stopped_at = nullptr;
      info->si_signo = SIGUSR1;
      info->si_code = SI_TKILL;
    }
    if (interrupt_run(block, info, context, sve::recover_guarded_fault) == Interruption::resumed) return;
    left_pc = context->uc_mcontext.pc;
    left_info = *info;
    from_context(context, left_registers);
    siglongjmp(escape, 1);
  }
  if (sig != SIGILL && sve::recover_guarded_fault(sig, context)) return;
  if (now == Doing::model) siglongjmp(escape, 1);
  std::printf("signal %d outside of any run, in case %" PRIu64 ", at 0x%" PRIx64 ", address 0x%" PRIx64 "\n", sig,
              at_work, static_cast<std::uint64_t>(context->uc_mcontext.pc),
              reinterpret_cast<std::uint64_t>(info->si_addr));
  std::fflush(stdout);
  struct sigaction fatal = {};
  fatal.sa_handler = SIG_DFL;
  __real_sigaction(sig, &fatal, nullptr);
}

// ---- One case ----

struct RunCase {
  std::uint32_t words[most_words];
  DecodeHandler handlers[most_words];
  unsigned length = 0;
  Machine state;
  bool knows_full = true;
  bool is_known = true;                             // whether the runner knows the thread
  std::uint8_t stray_bits[sve::vector_bytes] = {};  // in every predicate byte, above bit 0
};

struct Result {
  cpu_state state;
  Registers low;  // the registers that the processor holds
  unsigned done = 0;
  bool faulted = false;
  window::Contents memory;
  std::uint8_t stack[stack_compared];
};

window::Contents original;

void set_memory() {
  window::fill(original);
  for (std::size_t i = 0; i < stack_bytes; ++i) stack[i] = static_cast<std::uint8_t>(i * 7);
}

std::uint32_t branch(const std::uint32_t* from, const void* to) {
  return branch_to(reinterpret_cast<std::uint64_t>(from), reinterpret_cast<std::uint64_t>(to));
}

void put_leave(std::uint32_t* at) {
  at[0] = 0xa9bf07e0;  // stp x0, x1, [sp, #-16]!
  at[1] = 0x58000060;  // ldr x0, .+12
  at[2] = 0xd61f0000;  // br x0
  at[3] = 0xd503201f;
  const auto to = reinterpret_cast<std::uint64_t>(&translation_leave) + 4;
  std::memcpy(at + 4, &to, sizeof to);
}

void enter(Registers& r, const void* target) {
  code->pad[0] = 0xa9400400;  // ldp x0, x1, [x0]
  code->pad[1] = branch(code->pad + 1, target);
  __builtin___clear_cache(reinterpret_cast<char*>(code->pad), reinterpret_cast<char*>(code->pad + 2));
  translation_enter(&r, code->pad);
}

void to_registers(const cpu_state& state, Registers& r) {
  std::memcpy(r.x, state.x, sizeof r.x);
  r.sp = state.sp;
  r.nzcv = state.nzcv;
  r.fpsr = state.fpsr;
  r.fpcr = state.fpcr;
  for (unsigned n = 0; n < 32; ++n) std::memcpy(r.v[n], state.z[n], 16);
}
void from_registers(const Registers& r, cpu_state& state) {
  std::memcpy(state.x, r.x, sizeof r.x);
  state.sp = r.sp;
  state.nzcv = r.nzcv;
  state.fpsr = static_cast<std::uint32_t>(r.fpsr);
  for (unsigned n = 0; n < 32; ++n) std::memcpy(state.z[n], r.v[n], 16);
}

void set_floating_point(std::uint64_t control, std::uint64_t status) {
  asm volatile("msr fpcr, %0\n\tmsr fpsr, %1" : : "r"(control), "r"(status) : "memory");
}

// By the handlers, from instruction `first` on to `end`, or to a fault.
void run_model(const RunCase& c, unsigned first, unsigned end, Result& r) {
  static unsigned at;  // kept across the jump
  at = first;
  r.faulted = false;
  if (sigsetjmp(escape, 1) == 0) {
    for (; at < end; ++at) {
      if (!c.handlers[at]) {
        Registers low{};
        to_registers(r.state, low);
        code->scalar[0] = c.words[at];
        __builtin___clear_cache(reinterpret_cast<char*>(code->scalar), reinterpret_cast<char*>(code->scalar + 1));
        enter(low, code->scalar);
        from_registers(low, r.state);
        continue;
      }
      now = Doing::model;
      set_floating_point(r.state.fpcr, r.state.fpsr);
      r.state.pc = code->program + at;
      c.handlers[at](&r.state, c.words[at]);
      set_floating_point(0, 0);
      now = Doing::nothing;
    }
  } else {
    set_floating_point(0, 0);
    r.faulted = true;
  }
  now = Doing::nothing;
  r.done = at;
}

void learn(const cpu_state& state, std::uint32_t (&full)[16]) {
  for (unsigned n = 0; n < 16; ++n) {
    full[n] = 0;
    for (unsigned size = 0; size < 4; ++size) {
      bool all = true;
      for (std::size_t i = 0; i < sve::vector_bytes; i += std::size_t{1} << size) all &= state.p[n][i] & 1;
      full[n] |= static_cast<std::uint32_t>(all) << size;
    }
  }
}

bool run_native(const RunCase& c, Result& r, long stop_at) {
  the_site.address = code->program;
  the_site.count = c.length;
  the_site.index = 5;
  the_site.words = const_cast<std::uint32_t*>(c.words);
  the_site.handlers = const_cast<DecodeHandler*>(c.handlers);
  the_site.has_scalars = false;
  for (unsigned i = 0; i < c.length; ++i) the_site.has_scalars |= !c.handlers[i];
  EntryCode made;
  const auto at = reinterpret_cast<std::uint64_t>(code->entry);
  if (!make_entry(the_site, at, Translation::native, made)) return false;
  std::memcpy(code->entry, made.words, 4 * made.size);
  __builtin___clear_cache(reinterpret_cast<char*>(code->entry), reinterpret_cast<char*>(code->entry + made.size));
  the_site.code = at;
  the_site.events = made.events;
  the_site.event_count = static_cast<std::uint32_t>(made.event_count);
  the_site.entry = at + 4 * made.begin;
  code_end = at + 4 * made.size;
  std::memcpy(code->program, c.words, 4 * c.length);
  put_leave(code->program + c.length);
  __builtin___clear_cache(reinterpret_cast<char*>(code->program), reinterpret_cast<char*>(code->scalar));

  if (stop_at >= 0) {
    stopped_at = code->entry + made.begin + stop_at;
    if (stopped_at >= code->entry + made.size) return false;
    stopped_word = *stopped_at;
    *stopped_at = 0xd4200000;  // brk #0
    __builtin___clear_cache(reinterpret_cast<char*>(stopped_at), reinterpret_cast<char*>(stopped_at + 1));
  }
  block->state = r.state;
  block->running = 0;
  block->deferred.si_signo = 0;
  block->pending = 0;
  learn(r.state, block->full);
  if (!c.knows_full) std::memset(block->full, 0, sizeof block->full);
  for (unsigned n = 0; n < 32; ++n) std::memset(block->state.z[n], 0xcc, 16);  // the processor's
  to_registers(r.state, r.low);
  counted_partial = 0;
  counts_of(block)[5] = 0;
  r.faulted = false;
  if (sigsetjmp(escape, 1) == 0) {
    now = Doing::native;
    this_thread_block = c.is_known ? block : nullptr;
    enter(r.low, reinterpret_cast<const void*>(the_site.entry.load()));
    now = Doing::nothing;
    r.done = c.length;
  } else {
    now = Doing::nothing;
    set_floating_point(0, 0);
    r.low = left_registers;
    r.faulted = true;
    r.done = static_cast<unsigned>((left_pc - reinterpret_cast<std::uint64_t>(code->program)) / 4);
  }
  r.state = block->state;
  r.low.fpcr = c.state.fpcr;
  from_registers(r.low, r.state);
  return true;
}

std::string hex(std::uint64_t value) {
  char text[20];
  std::snprintf(text, sizeof text, "%" PRIx64, value);
  return text;
}

std::string difference_of(const Result& expected, const Result& actual) {
  const cpu_state &e = expected.state, &a = actual.state;
  for (unsigned n = 0; n < 31; ++n)
    if (e.x[n] != a.x[n]) return "x" + std::to_string(n) + ": " + hex(e.x[n]) + ", native " + hex(a.x[n]);
  if (e.sp != a.sp) return "sp: " + hex(e.sp) + ", native " + hex(a.sp);
  if ((e.nzcv ^ a.nzcv) & 0xf0000000) return "nzcv: " + hex(e.nzcv) + ", native " + hex(a.nzcv);
  if (e.fpsr != a.fpsr) return "fpsr: " + hex(e.fpsr) + ", native " + hex(a.fpsr);
  for (unsigned n = 0; n < 32; ++n)
    for (unsigned i = 0; i < sve::vector_bytes; ++i)
      if (e.z[n][i] != a.z[n][i])
        return "z" + std::to_string(n) + " byte " + std::to_string(i) + ": " + hex(e.z[n][i]) + ", native " +
               hex(a.z[n][i]);
  for (unsigned n = 0; n < 16; ++n)
    for (unsigned i = 0; i < sve::vector_bytes; ++i)
      if ((e.p[n][i] ^ a.p[n][i]) & 1)  // nothing else of a byte counts
        return "p" + std::to_string(n) + " byte " + std::to_string(i) + ": " + hex(e.p[n][i]) + ", native " +
               hex(a.p[n][i]);
  for (unsigned i = 0; i < sve::vector_bytes; ++i)
    if ((e.ffr[i] ^ a.ffr[i]) & 1) return "ffr byte " + std::to_string(i);
  if (std::memcmp(&expected.memory, &actual.memory, sizeof expected.memory) != 0) return "memory";
  if (std::memcmp(expected.stack, actual.stack, sizeof expected.stack) != 0) return "the stack";
  return "";
}

void save_memory(Result& r) {
  window::save(r.memory);
  std::memcpy(r.stack, stack + stack_bytes / 2, sizeof r.stack);
}

struct Tally {
  std::uint64_t runs = 0, faults = 0, failures = 0, not_made = 0, signals = 0, stops_over = 0;
} total;

// With a signal at a word of the code, if `stop_at` is not negative.
std::string compare(const RunCase& c, long stop_at, bool* over = nullptr) {
  static Result expected, actual;
  to_model(c.state, expected.state);
  expected.state.instr = 0;
  for (auto& p : expected.state.p)
    for (std::size_t i = 0; i < sve::vector_bytes; ++i) p[i] |= c.stray_bits[i];
  actual.state = expected.state;
  set_memory();
  if (!run_native(c, actual, stop_at)) {
    ++(over ? total.stops_over : total.not_made);
    if (over) *over = true;
    return "";
  }
  if (!c.is_known) {
    // It is made known, and comes again as a trap.
    if (!actual.faulted || left_info.si_signo != SIGILL || actual.done != 0) return "an unknown thread does not trap";
    save_memory(actual);
    set_memory();
    save_memory(expected);
    return difference_of(expected, actual);
  }
  if (stop_at >= 0 && stopped_at) return "";  // the run has not come there
  if (actual.faulted && left_info.si_signo == SIGUSR1) {
    // It is delivered between two instructions, once, and the mask is again what it was.
    ++total.signals;
    if (block->pending || block->deferred.si_signo) return "a signal still waits";
    const bool is_over = actual.done == c.length;
    if (counts_of(block)[5] != is_over || counted_partial != (is_over ? 0 : actual.done))
      return "the run was not counted as far as it went";
    save_memory(actual);
    set_memory();
    run_model(c, 0, actual.done, expected);
    save_memory(expected);
    const std::string difference = difference_of(expected, actual);
    return difference.empty() ? "" : "at a signal: " + difference;
  }
  if (!actual.faulted && (counts_of(block)[5] != 1 || counted_partial != 0)) return "the run was not counted once";
  if (actual.faulted && (counts_of(block)[5] != 0 || counted_partial != actual.done)) return "a part was not counted";
  for (unsigned n = 0; n < 16; ++n) {
    std::uint32_t full[16];
    learn(actual.state, full);
    if (block->full[n] & ~full[n]) return "p" + std::to_string(n) + " is thought to be full";
  }
  if (actual.faulted) {
    // Before the instruction that it has come to, and what its handler makes of that.
    ++total.faults;
    const unsigned at = actual.done;
    run_model(c, at, c.length, actual);
    save_memory(actual);
    set_memory();
    run_model(c, 0, at, expected);
    if (expected.faulted) return "a fault was at instruction " + std::to_string(at) + ", native later";
    // What the handler of an instruction has done before it faulted stands; native code has done nothing of it.
    if (left_info.si_signo != SIGILL) {
      run_model(c, at, at + 1, expected);
      if (!expected.faulted) return "a fault only native";
    }
    static Result before;
    before.state = block->state;
    before.low = left_registers;
    from_registers(before.low, before.state);
    save_memory(expected);
    before.memory = expected.memory;
    std::memcpy(before.stack, expected.stack, sizeof before.stack);
    if (std::string difference = difference_of(expected, before); !difference.empty())
      return "before the fault at " + std::to_string(at) + ": " + difference;
    run_model(c, at, c.length, expected);
  } else {
    save_memory(actual);
    set_memory();
    run_model(c, 0, c.length, expected);
  }
  save_memory(expected);
  if (expected.faulted != actual.faulted)
    return expected.faulted ? "a fault at instruction " + std::to_string(expected.done) + ", none native"
                            : "a fault only native";
  return difference_of(expected, actual);
}

// ---- Cases ----

std::uint32_t scalar_word(RandomSource& random) {
  static constexpr std::uint32_t bases[] = {
      0x11000000, 0x91000000, 0x51000000, 0xd1000000, 0x31000000, 0xb1000000, 0x71000000, 0xf1000000,  // add, sub
      0x0b000000, 0x8b000000, 0x4b000000, 0xcb000000, 0x2b000000, 0xab000000, 0x6b000000, 0xeb000000,
      0x0a000000, 0x8a000000, 0x2a000000, 0xaa000000, 0xca000000, 0xea000000, 0x52800000, 0xd2800000,
      0xf2800000, 0x1a800000, 0x9a800400, 0x1b000000, 0x9b000000, 0xd3400000, 0x93400000, 0xd503201f};
  const std::uint32_t base = random.pick(bases);
  if (base == 0xd503201f) return base;
  for (;;) {
    const std::uint32_t word = base | (static_cast<std::uint32_t>(random.next()) & 0x001fffff);
    if ((base >> 24 & 31) == 0b01011 && !(word >> 31) && (word & 0x8000)) continue;  // a shift by more than a word
    if ((base >> 24 & 31) == 0b01010 && !(word >> 31) && (word & 0x8000)) continue;
    if ((base & 0x7f800000) == 0x1b000000 && (word >> 21 & 7) != 0) continue;
    if (base == 0x1a800000 && (word & 0x800)) continue;
    if (base == 0x9a800400 && (word & 0x800)) continue;
    if (is_simple_scalar(word)) return word;
  }
}

void make_case(const std::vector<const RowInfo*>& rows, unsigned length, std::uint64_t seed, std::uint64_t number,
               RunCase& c) {
  RandomSource random(mix(seed, number));
  c.length = length;
  make_background(random, c.state);
  for (unsigned i = 0; i < length; ++i) {
    if (i > 0 && i + 1 < length && random.chance(15)) {
      c.words[i] = scalar_word(random);
      c.handlers[i] = nullptr;
      continue;
    }
    const RowInfo& row = *rows[random.below(static_cast<std::uint32_t>(rows.size()))];
    for (;;) {
      c.words[i] = make_word(row, random);
      if (sve::decode::is_unallocated(c.words[i])) continue;
      // Below the stack pointer there is nothing of the program's.
      if (row.memory.is_memory() && (c.words[i] >> 5 & 31) == 31 &&
          (row.memory.address != AddressForm::base_immediate || row.memory.imm(c.words[i]) < 0))
        continue;
      // Nor is one to be had from anywhere.
      const bool writes_sp = std::ranges::any_of(row.operands, [&](const Operand& o) {
        return o.kind == Role::x_or_sp && o.is_written() && o.number(c.words[i]) == register_31;
      });
      if (writes_sp) continue;
      break;
    }
    c.handlers[i] = is_sve(c.words[i]);
    make_state(row, c.words[i], static_cast<unsigned>(number), random.chance(10), random, c.state);
  }
  // Most predicates of real loops are full.
  if (random.chance(60))
    for (unsigned n = 0; n < 16; ++n)
      if (random.chance(90)) std::memset(c.state.p[n], 0xff, sizeof c.state.p[n]);
  c.knows_full = random.chance(80);
  const bool strays = random.chance(20);
  for (std::uint8_t& bits : c.stray_bits) bits = static_cast<std::uint8_t>(strays ? random.next() & 0xfe : 0);
  // What a processor without half precision has no bit for is not the program's either.
  set_floating_point(c.state.fpcr, 0);
  asm volatile("mrs %0, fpcr" : "=r"(c.state.fpcr) : : "memory");
  set_floating_point(0, 0);
  c.state.sp = reinterpret_cast<std::uint64_t>(stack + stack_bytes / 2);
}

void show(const RunCase& c, const std::string& difference, std::uint64_t number) {
  std::printf("FAIL case %" PRIu64 ": %s\n", number, difference.c_str());
  for (unsigned i = 0; i < c.length; ++i) {
    char text[sve::decode::max_text];
    const std::string said(c.handlers[i] ? sve::decode::text_of(c.words[i], text) : "scalar");
    std::printf("  %08x %s\n", c.words[i], said.c_str());
  }
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  std::uint64_t seed = 1, only = ~std::uint64_t{0};
  unsigned cases = 16, runs = 10000, signalled = 40;
  const char* name = nullptr;
  for (int i = 1; i + 1 < argc; i += 2) {
    if (!std::strcmp(argv[i], "--seed")) seed = std::strtoull(argv[i + 1], nullptr, 0);
    if (!std::strcmp(argv[i], "--cases")) cases = static_cast<unsigned>(std::strtoul(argv[i + 1], nullptr, 0));
    if (!std::strcmp(argv[i], "--runs")) runs = static_cast<unsigned>(std::strtoul(argv[i + 1], nullptr, 0));
    if (!std::strcmp(argv[i], "--signalled")) signalled = static_cast<unsigned>(std::strtoul(argv[i + 1], nullptr, 0));
    if (!std::strcmp(argv[i], "--row")) name = argv[i + 1];
    if (!std::strcmp(argv[i], "--case")) only = std::strtoull(argv[i + 1], nullptr, 0);
  }
  code = static_cast<Place*>(
      mmap(nullptr, sizeof(Place), PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  constexpr std::size_t below = 512 * 1024;
  auto* room = static_cast<std::byte*>(
      mmap(nullptr, below + (1 << 20), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  block = reinterpret_cast<ThreadBlock*>(room + below);
  this_thread_block = block;
  // What is addressed by the stack pointer reaches so far, where nothing of this test's may lie.
  constexpr std::size_t reach = 512 * sve::vector_bytes;
  auto* around =
      static_cast<std::uint8_t*>(mmap(nullptr, stack_bytes + 2 * reach, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  if (code == MAP_FAILED || room == MAP_FAILED || around == MAP_FAILED) return 2;
  stack = around + (reach + stack_bytes - 1) / stack_bytes * stack_bytes;
  if (mprotect(stack, stack_bytes, PROT_READ | PROT_WRITE) != 0) return 2;
  put_leave(code->scalar + 1);
  start_native();
  window::map();
  RandomSource random(seed);
  for (std::uint8_t& byte : original.data) byte = static_cast<std::uint8_t>(random.next() >> 32);
  static std::uint8_t alternate[1 << 18];
  stack_t of_signals{};
  of_signals.ss_sp = alternate;
  of_signals.ss_size = sizeof alternate;
  sigaltstack(&of_signals, nullptr);
  struct sigaction action = {};
  action.sa_sigaction = on_signal;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  for (const int sig : {SIGSEGV, SIGBUS, SIGILL, SIGTRAP}) __real_sigaction(sig, &action, nullptr);

  const auto c = std::make_unique<RunCase>();
  std::vector<const RowInfo*> all;
  unsigned shown = 0;
  const auto run_one = [&](const std::vector<const RowInfo*>& rows, unsigned length, std::uint64_t number) {
    at_work = number;
    make_case(rows, length, seed, number, *c);
    ++total.runs;
    const std::string difference = compare(*c, -1);
    if (difference.empty()) return true;
    ++total.failures;
    if (shown++ < 20) show(*c, difference, number);
    return false;
  };
  // Each row alone.
  for (const RowInfo& row : all_rows()) {
    // In a run of its own, and only there, since what it answers to stray bits of predicates is not settled.
    all.push_back(&row);
    if (name && !row.name_has(name)) continue;
    const std::vector<const RowInfo*> one{&row};
    for (unsigned k = 0; k < cases; ++k) {
      const std::uint64_t number = std::uint64_t{1} << 32 | static_cast<std::uint64_t>(row.index) << 12 | k;
      if (only != ~std::uint64_t{0} && only != number) continue;
      if (!run_one(one, 1, number)) break;
    }
  }
  // Runs of several: mostly of rows that have native forms.
  std::vector<const RowInfo*> native;
  for (const RowInfo* row : all)
    if (has_native_form(row->fixed())) native.push_back(row);
  std::printf("%zu of %zu rows have native forms\n", native.size(), all.size());
  for (unsigned k = 0; k < runs && !name; ++k) {
    if (only != ~std::uint64_t{0} && only != k) continue;
    RandomSource choice(mix(seed, k + 77));
    const unsigned length = 2 + choice.below(most_words - 1);
    run_one(choice.chance(75) ? native : all, length, k);
  }
  // A signal at each word of the code that is executed.
  for (unsigned k = 0; k < signalled && !name; ++k) {
    if (only != ~std::uint64_t{0} && only != k) continue;
    RandomSource choice(mix(seed, k + 77));
    make_case(choice.chance(60) ? native : all, 2 + choice.below(most_words - 1), seed, k, *c);
    c->is_known = false;
    if (const std::string difference = compare(*c, -1); !difference.empty()) {
      ++total.failures;
      show(*c, difference, k);
    }
    c->is_known = true;
    bool over = false;
    for (long at = 0; !over; ++at) {
      const std::string difference = compare(*c, at, &over);
      if (difference.empty()) continue;
      ++total.failures;
      if (shown++ < 20) show(*c, "signal at word " + std::to_string(at) + ": " + difference, k);
      break;
    }
  }
  std::printf("%" PRIu64 " runs, %" PRIu64 " signals, %" PRIu64 " with faults, %" PRIu64 " not made, %" PRIu64
              " differ, seed %" PRIu64 "\n",
              total.runs, total.signals, total.faults, total.not_made, total.failures, seed);
  return total.failures != 0 || total.not_made != 0;
}
