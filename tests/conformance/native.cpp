// The code buffer, the signal handlers and the call of the trampolines.
#include "tests/conformance/native.h"

#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <ucontext.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sve/fault/fault_capture.h"

#if defined(__aarch64__)
#include <sys/prctl.h>
#endif

namespace conformance {
namespace {

volatile sig_atomic_t in_model;
sigjmp_buf model_fault;
std::uint64_t fault_address;
#if defined(__aarch64__)
NativeResult* running;
std::uintptr_t after_words;
#endif

void keep_default(int sig) {
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  sigaction(sig, &action, nullptr);
}

void on_fault(int sig, siginfo_t* info, void* context) {
  if (sig != SIGILL && sve::recover_guarded_fault(sig, context)) return;
  const auto address = reinterpret_cast<std::uintptr_t>(info->si_addr);
  if (in_model && sig != SIGILL) {
    fault_address = address;
    siglongjmp(model_fault, 1);
  }
#if defined(__aarch64__)
  if (running) {
    // What follows the words stores the state of the fault.
    running->faulted = sig != SIGILL;
    running->undefined = sig == SIGILL;
    running->address = address;
    running = nullptr;
    static_cast<ucontext_t*>(context)->uc_mcontext.pc = after_words;
    return;
  }
#endif
  keep_default(sig);
}

void install_handlers() {
  static std::uint8_t stack[1 << 18];
  stack_t alternate = {};
  alternate.ss_sp = stack;
  alternate.ss_size = sizeof stack;
  sigaltstack(&alternate, nullptr);
  struct sigaction action = {};
  action.sa_sigaction = on_fault;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  for (const int sig : {SIGSEGV, SIGBUS, SIGILL}) sigaction(sig, &action, nullptr);
}

}  // namespace

bool catches_fault(void (*body)(void*), void* argument, std::uint64_t* address) {
  if (sigsetjmp(model_fault, 0)) {
    in_model = 0;
    *address = fault_address;
    return true;
  }
  in_model = 1;
  body(argument);
  in_model = 0;
  return false;
}

namespace {

constexpr unsigned first_spare = 25, spares = 4;

}  // namespace

unsigned native_spare_register(std::span<const std::uint32_t> words) {
  for (unsigned n = first_spare; n < first_spare + spares; ++n) {
    bool named = false;
    for (const std::uint32_t word : words) named |= (word & 31) == n || (word >> 5 & 31) == n || (word >> 16 & 31) == n;
    if (!named) return n;
  }
  return 0;
}

#if defined(__aarch64__)

struct Block : Machine {
  std::uint64_t host_sp;
  std::uint64_t host_fpcr;
};
static_assert(sizeof(Machine) % 16 == 0 && sizeof(Machine) - offsetof(Machine, ffr) - sizeof Machine::ffr < 16);

extern "C" {
void conformance_enter_25(Block*);
void conformance_enter_26(Block*);
void conformance_enter_27(Block*);
void conformance_enter_28(Block*);
void conformance_leave_25();
void conformance_leave_26();
void conformance_leave_27();
void conformance_leave_28();
}

namespace {

Block the_block;

// A place holds the words, `ldr xN, literal` and a branch to the trampoline of xN. Static, to be within reach of a
// branch.
struct Place {
  std::uint32_t code[native_longest + 2];
};
struct alignas(65536) Code {
  Place places[native_places];
  Block* literal;
} the_code;
unsigned words_at[native_places];
unsigned next_place;

constexpr void (*enter[spares])(Block*) = {conformance_enter_25, conformance_enter_26, conformance_enter_27,
                                           conformance_enter_28};
void (*const leave[spares])() = {conformance_leave_25, conformance_leave_26, conformance_leave_27,
                                 conformance_leave_28};

std::uint32_t offset_words(const void* to, const void* from) {
  return static_cast<std::uint32_t>((reinterpret_cast<std::intptr_t>(to) - reinterpret_cast<std::intptr_t>(from)) / 4);
}

}  // namespace

bool native_available(const char** why) {
  const int length = prctl(PR_SVE_GET_VL);
  if (length < 0) {
    *why = "the processor has no SVE";
    return false;
  }
  if ((length & PR_SVE_VL_LEN_MASK) != static_cast<int>(sve::vector_bytes)) {
    *why = "the processor's vector length is another one than this build's";
    return false;
  }
  return true;
}

void native_set_up() {
  install_handlers();
  the_code.literal = &the_block;
  if (mprotect(&the_code, sizeof the_code, PROT_READ | PROT_WRITE | PROT_EXEC) != 0) {
    std::perror("conformance: code buffer");
    std::exit(2);
  }
}

unsigned native_place(std::span<const std::uint32_t> words, unsigned spare) {
  const unsigned n = next_place++ % native_places;
  std::uint32_t* at = the_code.places[n].code;
  for (const std::uint32_t word : words) *at++ = word;
  words_at[n] = static_cast<unsigned>(words.size());
  *at = 0x58000000u | (offset_words(&the_code.literal, at) & 0x7ffff) << 5 | spare;
  ++at;
  *at = 0x14000000u | (offset_words(reinterpret_cast<const void*>(leave[spare - first_spare]), at) & 0x3ffffff);
  __builtin___clear_cache(reinterpret_cast<char*>(&the_code.places[n]),
                          reinterpret_cast<char*>(&the_code.places[n + 1]));
  return n;
}

NativeResult native_run(unsigned n, unsigned spare, Machine& state) {
  NativeResult result;
  std::memcpy(static_cast<Machine*>(&the_block), &state, sizeof state);
  the_block.unused = reinterpret_cast<std::uintptr_t>(&the_code.places[n]);
  after_words = reinterpret_cast<std::uintptr_t>(&the_code.places[n].code[words_at[n]]);
  running = &result;
  enter[spare - first_spare](&the_block);
  running = nullptr;
  std::memcpy(&state, static_cast<Machine*>(&the_block), sizeof state);
  state.unused = 0;
  return result;
}

#else

bool native_available(const char** why) {
  *why = "this build's processor is not AArch64";
  return false;
}
void native_set_up() { install_handlers(); }
unsigned native_place(std::span<const std::uint32_t>, unsigned) { return 0; }
NativeResult native_run(unsigned, unsigned, Machine&) { return {}; }

#endif

}  // namespace conformance
