// Fault capture by POSIX signals. A guarded read is a load in one of the few functions below, which keep nothing on the
// stack; the signal handler recognises it by the interrupted program counter and resumes at the end that answers
// "unreadable". No state is shared or saved, so any number of threads can read guarded at once, and a read that
// succeeds costs no system call.
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <type_traits>

#include "sve/fault/fault_capture.h"

[[gnu::init_priority(1020)]] static const struct PageSizeReader {
  PageSizeReader() { page_size = static_cast<unsigned int>(sysconf(_SC_PAGESIZE)); }
} page_size_is_read;
unsigned int page_size;

// The element and 1, or 0 and 0 where it cannot be read; both in registers.
struct sve_guarded_element {
  std::uint64_t value, readable;
};

// `sve_guarded_begin` to `sve_guarded_end` survives both signals, the probe SIGSEGV alone.
extern "C" {
sve_guarded_element sve_guarded_read_1(std::uint64_t address);
sve_guarded_element sve_guarded_read_2(std::uint64_t address);
sve_guarded_element sve_guarded_read_4(std::uint64_t address);
sve_guarded_element sve_guarded_read_8(std::uint64_t address);
// In rising pieces of 8 bytes; the last one overlaps the one before.
sve_guarded_element sve_guarded_copy(void* to, std::uint64_t from, std::size_t bytes);
sve_guarded_element sve_probe_readable(std::uint64_t address);
extern const char sve_guarded_begin[], sve_guarded_end[], sve_guarded_unreadable[], sve_probe_end[];
}

// clang-format off
#define SVE_FUNCTION(name, type) ".p2align 4\n.hidden " name "\n.globl " name "\n.type " name ", " type "\n" name ":\n"
#define SVE_LABEL(name) ".hidden " name "\n.globl " name "\n" name ":\n"
#if defined(__aarch64__)
#define SVE_READ(name, load) SVE_FUNCTION(name, "%function") "  " load ", [x0]\n  mov x1, #1\n  ret\n"
asm(".text\n.p2align 4\n"
    SVE_LABEL("sve_guarded_begin")
    SVE_READ("sve_guarded_read_1", "ldrb w0")
    SVE_READ("sve_guarded_read_2", "ldrh w0")
    SVE_READ("sve_guarded_read_4", "ldr w0")
    SVE_READ("sve_guarded_read_8", "ldr x0")
    SVE_FUNCTION("sve_guarded_copy", "%function")
    "  sub x5, x2, #8\n"  // where the last piece begins
    "  mov x3, #0\n"
    "1:\n"
    "  cmp x3, x5\n"
    "  b.hs 2f\n"
    "  ldr x4, [x1, x3]\n"
    "  str x4, [x0, x3]\n"
    "  add x3, x3, #8\n"
    "  b 1b\n"
    "2:\n"
    "  ldr x4, [x1, x5]\n"
    "  str x4, [x0, x5]\n"
    "  mov x1, #1\n"
    "  ret\n"
    SVE_LABEL("sve_guarded_end")
    SVE_READ("sve_probe_readable", "ldrb w0")
    SVE_LABEL("sve_probe_end")
    SVE_FUNCTION("sve_guarded_unreadable", "%function")
    "  mov x0, #0\n"
    "  mov x1, #0\n"
    "  ret\n");
static auto& program_counter(void* context) { return static_cast<ucontext_t*>(context)->uc_mcontext.pc; }
#elif defined(__x86_64__)
#define SVE_READ(name, load) SVE_FUNCTION(name, "@function") "  " load "\n  movl $1, %edx\n  ret\n"
asm(".text\n.p2align 4\n"
    SVE_LABEL("sve_guarded_begin")
    SVE_READ("sve_guarded_read_1", "movzbl (%rdi), %eax")
    SVE_READ("sve_guarded_read_2", "movzwl (%rdi), %eax")
    SVE_READ("sve_guarded_read_4", "movl (%rdi), %eax")
    SVE_READ("sve_guarded_read_8", "movq (%rdi), %rax")
    SVE_FUNCTION("sve_guarded_copy", "@function")
    "  subq $8, %rdx\n"  // where the last piece begins
    "  xorl %ecx, %ecx\n"
    "1:\n"
    "  cmpq %rdx, %rcx\n"
    "  jae 2f\n"
    "  movq (%rsi,%rcx), %rax\n"
    "  movq %rax, (%rdi,%rcx)\n"
    "  addq $8, %rcx\n"
    "  jmp 1b\n"
    "2:\n"
    "  movq (%rsi,%rdx), %rax\n"
    "  movq %rax, (%rdi,%rdx)\n"
    "  movl $1, %edx\n"
    "  ret\n"
    SVE_LABEL("sve_guarded_end")
    SVE_READ("sve_probe_readable", "movzbl (%rdi), %eax")
    SVE_LABEL("sve_probe_end")
    SVE_FUNCTION("sve_guarded_unreadable", "@function")
    "  xorl %eax, %eax\n"
    "  xorl %edx, %edx\n"
    "  ret\n");
static auto& program_counter(void* context) { return static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_RIP]; }
#else
#error "no guarded read for this processor"
#endif
// clang-format on

namespace {

constexpr int captured_flags = SA_SIGINFO | SA_RESTART | SA_NODEFER;

void set_action(void (*handler)(int, siginfo_t*, void*)) {
  struct sigaction action = {};
  if (handler)
    action.sa_sigaction = handler;
  else
    action.sa_handler = SIG_DFL;
  sigemptyset(&action.sa_mask);
  action.sa_flags = captured_flags;
  sigaction(SIGSEGV, &action, nullptr);
  sigaction(SIGBUS, &action, nullptr);
}

using SignalHandler = void (*)(int, siginfo_t*, void*);

bool has_action(int sig, SignalHandler handler) {
  struct sigaction action = {};
  return sigaction(sig, nullptr, &action) == 0 && action.sa_sigaction == handler;
}

// Whether the actions have to be looked at. Where ours did not take effect when it was installed a platform owns the
// signals, and hands us the faults that are ours.
bool watches_actions = false;

// The program's action, while `stand_in` stands in its place for guarded reads.
struct ReplacedAction {
  int sig;
  std::atomic<bool> replaced;
  struct sigaction program;

  void replace();
  void restore();
  void pass_on(siginfo_t* info, void* context) const;
};
ReplacedAction segv{SIGSEGV, false, {}}, bus{SIGBUS, false, {}};
std::mutex replacing;
int replacers = 0;

// The handler while one of these lives. It is not SVESigHandler itself, so that each knows who installed it.
void stand_in(int sig, siginfo_t* info, void* context) {
  if (!sve::recover_guarded_fault(sig, context)) (sig == SIGSEGV ? segv : bus).pass_on(info, context);
}

void ReplacedAction::replace() {
  struct sigaction action = {};
  if (sigaction(sig, nullptr, &action) != 0 || action.sa_sigaction == SVESigHandler || action.sa_sigaction == stand_in)
    return;
  program = action;
  replaced = true;
  action.sa_sigaction = stand_in;
  action.sa_flags = captured_flags | (program.sa_flags & SA_ONSTACK);
  sigaction(sig, &action, nullptr);
}

void ReplacedAction::restore() {
  if (replaced && has_action(sig, stand_in)) sigaction(sig, &program, nullptr);
  replaced = false;
}

// A fault that is none of ours. Where the program has its action back, or has no handler, the access faults once more.
void ReplacedAction::pass_on(siginfo_t* info, void* context) const {
  if (!replaced) return;
  const struct sigaction action = program;
  if (action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN)
    sigaction(sig, &action, nullptr);
  else if (action.sa_flags & SA_SIGINFO)
    action.sa_sigaction(sig, info, context);
  else
    action.sa_handler(sig);
}

}  // namespace

namespace sve {

GuardedReads::GuardedReads() : borrowed_(false) {
  if (!watches_actions) return;
  if (has_action(SIGSEGV, SVESigHandler) && has_action(SIGBUS, SVESigHandler)) return;
  const std::lock_guard lock(replacing);
  ++replacers;
  segv.replace();
  bus.replace();
  borrowed_ = true;
}

GuardedReads::~GuardedReads() {
  if (!borrowed_) return;
  const std::lock_guard lock(replacing);
  if (--replacers != 0) return;
  segv.restore();
  bus.restore();
}

template <class M>
bool guarded_read(std::uint64_t address, M& value) {
  sve_guarded_element element;
  if constexpr (sizeof(M) == 1) element = sve_guarded_read_1(address);
  if constexpr (sizeof(M) == 2) element = sve_guarded_read_2(address);
  if constexpr (sizeof(M) == 4) element = sve_guarded_read_4(address);
  if constexpr (sizeof(M) == 8) element = sve_guarded_read_8(address);
  value = static_cast<M>(element.value);
  return element.readable != 0;
}
template bool guarded_read(std::uint64_t, std::uint8_t&);
template bool guarded_read(std::uint64_t, std::uint16_t&);
template bool guarded_read(std::uint64_t, std::uint32_t&);
template bool guarded_read(std::uint64_t, std::uint64_t&);

bool guarded_copy(void* to, std::uint64_t address, std::size_t bytes) {
  return sve_guarded_copy(to, address, bytes).readable != 0;
}

void install_fault_capture() {
  set_action(SVESigHandler);
  watches_actions = has_action(SIGSEGV, SVESigHandler);
}

bool recover_guarded_fault(int sig, void* context) {
  auto& pc = program_counter(context);
  const auto within = [&pc](const char* begin, const char* end) {
    const auto at = static_cast<std::uintptr_t>(pc);
    return at >= reinterpret_cast<std::uintptr_t>(begin) && at < reinterpret_cast<std::uintptr_t>(end);
  };
  // The readability probe covers access violations alone.
  const bool ours =
      within(sve_guarded_begin, sve_guarded_end) || (sig == SIGSEGV && within(sve_guarded_end, sve_probe_end));
  using Counter = std::remove_reference_t<decltype(pc)>;
  if (ours) pc = static_cast<Counter>(reinterpret_cast<std::uintptr_t>(sve_guarded_unreadable));
  return ours;
}

}  // namespace sve

template <>
bool addr_is_readable<char>(char volatile* p) {
  const sve::GuardedReads guard;
  return sve_probe_readable(reinterpret_cast<std::uint64_t>(p)).readable != 0;
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
