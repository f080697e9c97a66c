// Fault capture by POSIX signals. A guarded read is one load at a known address; the signal handler recognises it by
// the interrupted program counter and resumes behind it with the answer "unreadable". No state is shared or saved, so
// any number of threads can probe at once, and a probe that succeeds costs one load and no system call.
#include <ucontext.h>
#include <unistd.h>

#include <cstdio>
#include <type_traits>

#include "sve/fault/fault_capture.h"

[[gnu::init_priority(1002)]] static const struct page_size_reader {
  page_size_reader() { page_size = static_cast<unsigned int>(sysconf(_SC_PAGESIZE)); }
} page_size_is_read;
unsigned int page_size;

// Two probes, since they differ in the signals that they survive. Each loads one byte, and returns 1; the `_unreadable`
// entry behind it returns 0.
extern "C" {
int sve_probe_guarded(std::uint64_t address);
int sve_probe_readable(std::uint64_t address);
extern const char sve_probe_guarded_load[], sve_probe_guarded_unreadable[];
extern const char sve_probe_readable_load[], sve_probe_readable_unreadable[];
}

#if defined(__aarch64__)
#define SVE_PROBE(name)                                                               \
  asm(".text\n.p2align 4\n"                                                           \
      ".hidden " #name "\n.globl " #name "\n.type " #name                             \
      ", %function\n"                                                                 \
      ".hidden " #name "_load\n.globl " #name                                         \
      "_load\n"                                                                       \
      ".hidden " #name "_unreadable\n.globl " #name "_unreadable\n" #name ":\n" #name \
      "_load:\n"                                                                      \
      "  ldrb w1, [x0]\n"                                                             \
      "  mov w0, #1\n"                                                                \
      "  ret\n" #name                                                                 \
      "_unreadable:\n"                                                                \
      "  mov w0, #0\n"                                                                \
      "  ret\n")
static auto& program_counter(void* context) { return static_cast<ucontext_t*>(context)->uc_mcontext.pc; }
#elif defined(__x86_64__)
#define SVE_PROBE(name)                                                               \
  asm(".text\n.p2align 4\n"                                                           \
      ".hidden " #name "\n.globl " #name "\n.type " #name                             \
      ", @function\n"                                                                 \
      ".hidden " #name "_load\n.globl " #name                                         \
      "_load\n"                                                                       \
      ".hidden " #name "_unreadable\n.globl " #name "_unreadable\n" #name ":\n" #name \
      "_load:\n"                                                                      \
      "  movb (%rdi), %al\n"                                                          \
      "  movl $1, %eax\n"                                                             \
      "  ret\n" #name                                                                 \
      "_unreadable:\n"                                                                \
      "  xorl %eax, %eax\n"                                                           \
      "  ret\n")
static auto& program_counter(void* context) { return static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_RIP]; }
#else
#error "no guarded read for this processor"
#endif

SVE_PROBE(sve_probe_guarded);
SVE_PROBE(sve_probe_readable);

namespace {

void set_action(void (*handler)(int, siginfo_t*, void*)) {
  struct sigaction action = {};
  if (handler)
    action.sa_sigaction = handler;
  else
    action.sa_handler = SIG_DFL;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_SIGINFO | SA_RESTART | SA_NODEFER;
  sigaction(SIGSEGV, &action, nullptr);
  sigaction(SIGBUS, &action, nullptr);
}

}  // namespace

namespace sve {

bool guarded_touch(std::uint64_t address) { return sve_probe_guarded(address) != 0; }

void install_fault_capture() { set_action(SVESigHandler); }

bool recover_guarded_fault(int sig, void* context) {
  auto& pc = program_counter(context);
  using counter = std::remove_reference_t<decltype(pc)>;
  const auto at = [&pc](const char* load) {
    return static_cast<std::uintptr_t>(pc) == reinterpret_cast<std::uintptr_t>(load);
  };
  if (at(sve_probe_guarded_load)) {
    pc = static_cast<counter>(reinterpret_cast<std::uintptr_t>(sve_probe_guarded_unreadable));
    return true;
  }
  // The readability probe covers access violations alone.
  if (sig == SIGSEGV && at(sve_probe_readable_load)) {
    pc = static_cast<counter>(reinterpret_cast<std::uintptr_t>(sve_probe_readable_unreadable));
    return true;
  }
  return false;
}

}  // namespace sve

template <>
bool addr_is_readable<char>(char volatile* p) {
  return sve_probe_readable(reinterpret_cast<std::uint64_t>(p)) != 0;
}

void SVESigHandler(int sig, siginfo_t*, void* context) {
  if (sve::recover_guarded_fault(sig, context)) return;
  set_action(nullptr);
  std::fprintf(
      stderr,
      "zorvi's SVESigHandler caught signal %s from the process being emulated, passing it to the default signal "
      "handler.\n",
      sig == SIGSEGV ? "SIGSEGV" : "SIGBUS");
  std::fflush(stderr);
}
