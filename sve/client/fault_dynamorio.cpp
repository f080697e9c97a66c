// Fault capture under the platform, which owns SIGSEGV and SIGBUS: it needs them itself, and gives the application its
// own handlers. So none is installed. Guarded reads are the platform's safe reads; a plain access of the model runs
// under the platform's try block.
#include <sys/syscall.h>
#include <unistd.h>

#include <csetjmp>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <mutex>

#include "dr_api.h"
#include "sve/client/guarded_call.h"
#include "sve/client/port.h"
#include "sve/fault/fault_capture.h"

// The C library's own answer is not there yet when the platform's private loader initialises the client.
[[gnu::init_priority(1020)]] static const struct PageSizeReader {
  PageSizeReader() { page_size = static_cast<unsigned int>(dr_page_size()); }
} page_size_is_read;
unsigned int page_size;

namespace {

constexpr int captured_flags = SA_SIGINFO | SA_RESTART | SA_NODEFER;

struct SignalActions {
  struct sigaction segv, bus;
};

void set_actions(const SignalActions& now, SignalActions* before) {
  sigaction(SIGSEGV, &now.segv, before ? &before->segv : nullptr);
  sigaction(SIGBUS, &now.bus, before ? &before->bus : nullptr);
}

void set_actions(struct sigaction action, SignalActions* before) {
  sigemptyset(&action.sa_mask);
  action.sa_flags |= captured_flags;
  set_actions(SignalActions{action, action}, before);
}

// One thread at a time repeats an access that faulted.
struct WorkingMutex : std::mutex {
  WorkingMutex() { sve::client::make_mutex_work(*this); }
} repeating;
long repeating_thread;
SignalActions platform_actions;
sigjmp_buf after_fault;
siginfo_t fault;

// The platform takes write access from pages that hold code, lets the application believe otherwise, and puts a write
// right on its fault.
bool is_put_right_by_platform(void* address) {
  dr_mem_info_t info;
  return dr_query_memory_ex(static_cast<const byte*>(address), &info) && (info.prot & DR_MEMPROT_PRETEND_WRITE) != 0;
}

using SignalHandler = void (*)(int, siginfo_t*, void*);

}  // namespace

// A fault while the actions are ours. That of the repeated access is noted, and nothing more is done here, where the
// platform's own queries would have no one to catch their faults. That of another thread is the platform's, whose
// handler this returns.
extern "C" __attribute__((visibility("hidden"))) SignalHandler sve_client_on_fault(int sig, siginfo_t* info, void*) {
  if (syscall(SYS_gettid) != repeating_thread)
    return (sig == SIGSEGV ? platform_actions.segv : platform_actions.bus).sa_sigaction;
  fault = *info;
  siglongjmp(after_fault, sig);
}

#ifdef __aarch64__
// The platform's handler finds the kernel's frame by its stack pointer, so it is entered as the kernel would.
asm(R"(
        .text
        .p2align 2
sve_client_fault_entry:
        stp     x0, x1, [sp, #-32]!
        stp     x2, x30, [sp, #16]
        bl      sve_client_on_fault
        mov     x16, x0
        ldp     x2, x30, [sp, #16]
        ldp     x0, x1, [sp], #32
        br      x16
)");
extern "C" __attribute__((visibility("hidden"))) void sve_client_fault_entry(int sig, siginfo_t* info, void* context);
#else
static void sve_client_fault_entry(int sig, siginfo_t* info, void* context) {
  sve_client_on_fault(sig, info, context)(sig, info, context);
}
#endif

namespace {

// Runs the instruction with the actions ours; returns the signal of its fault, or 0.
int run_under_own_actions(DecodeHandler handler, cpu_state* state, unsigned int word, aarch64_decode_rc& rc) {
  struct sigaction action = {};
  action.sa_sigaction = sve_client_fault_entry;
  action.sa_flags = SA_ONSTACK;  // the platform's stack for signals
  set_actions(action, &platform_actions);
  const int sig = sigsetjmp(after_fault, 1);
  if (sig == 0) rc = handler(state, word);
  set_actions(platform_actions, nullptr);
  return sig;
}

// Only now is it known that an access faulted, not by which signal nor where. No instruction that faults has changed
// what it reads, so the handler can run once more, this time without the platform between the fault and the system's
// own handler.
aarch64_decode_rc repeat(DecodeHandler handler, cpu_state* state, unsigned int word) {
  const std::lock_guard<std::mutex> lock(repeating);
  repeating_thread = syscall(SYS_gettid);
  aarch64_decode_rc rc = AARCH64_DECODE_EXECUTED;
  while (const int sig = run_under_own_actions(handler, state, word, rc)) {
    if (is_put_right_by_platform(fault.si_addr)) {
      // Writes what is there.
      __atomic_fetch_or(static_cast<unsigned char*>(fault.si_addr), 0, __ATOMIC_RELAXED);
      continue;
    }
    SVESigHandler(sig, nullptr, nullptr);
    rc = handler(state, word);               // and takes the default action
    set_actions(platform_actions, nullptr);  // unless the memory has come meanwhile
    break;
  }
  return rc;
}

}  // namespace

namespace sve {

template <class M>
bool guarded_read(std::uint64_t address, M& value) {
  if (guarded_copy(&value, address, sizeof value)) return true;
  value = 0;
  return false;
}
template bool guarded_read(std::uint64_t, std::uint8_t&);
template bool guarded_read(std::uint64_t, std::uint16_t&);
template bool guarded_read(std::uint64_t, std::uint32_t&);
template bool guarded_read(std::uint64_t, std::uint64_t&);

bool guarded_copy(void* to, std::uint64_t address, std::size_t bytes) {
  return dr_safe_read(reinterpret_cast<const void*>(address), bytes, to, nullptr);
}

GuardedReads::GuardedReads() : borrowed_(false) {}
GuardedReads::~GuardedReads() = default;

void install_fault_capture() {}

bool recover_guarded_fault(int, void*) { return false; }

aarch64_decode_rc client::call_handler(void* drcontext, DecodeHandler handler, cpu_state* state, unsigned int word) {
  if (!word_accesses_memory(word)) return handler(state, word);
  volatile aarch64_decode_rc rc = AARCH64_DECODE_EXECUTED;
  volatile bool faulted = false;
  DR_TRY_EXCEPT(
      drcontext, { rc = handler(state, word); }, { faulted = true; });
  if (faulted) return repeat(handler, state, word);
  return rc;
}

}  // namespace sve

template <>
bool addr_is_readable<char>(char volatile* p) {
  std::uint8_t element;
  if (sve::guarded_read(reinterpret_cast<std::uint64_t>(p), element)) return true;
  // A safe read survives a bus error too, which this probe does not cover. Where the page allows reading that is what
  // it was, and the plain access takes it the way of every unguarded fault.
  dr_mem_info_t info;
  if (!dr_query_memory_ex(reinterpret_cast<const byte*>(const_cast<const char*>(p)), &info)) return false;
  if ((info.prot & DR_MEMPROT_READ) == 0) return false;
  static_cast<void>(*p);
  return true;
}

void SVESigHandler(int sig, siginfo_t*, void*) {
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  set_actions(action, nullptr);
  std::fprintf(
      stderr,
      "zorvi's SVESigHandler caught signal %s from the process being emulated, passing it to the default signal "
      "handler.\n",
      sig == SIGSEGV ? "SIGSEGV" : "SIGBUS");
  std::fflush(stderr);
}
