// A signal at each instruction of the code that executes a run: at each the program must look as between two
// instructions of its own, and go on as if nothing had been. A parent stops the child at one address after the other,
// as ptrace lets it, and sends the signal where the child meets it. Runs under sve-run.
#include <asm/ptrace.h>
#include <asm/sigcontext.h>
#include <elf.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "sve/state/vector_length.h"

namespace {

extern "C" {
extern const std::uint32_t run_begin[], run_end[];
}

struct Shared {
  int handled, wrong;
  long at;  // where in the run the handler saw the program, in instructions
  char words[200];
};
Shared* seen;

std::uint32_t stored[sve::lanes<std::uint32_t>];
constexpr std::uint64_t x9_before = 1000;
constexpr unsigned lanes = sve::lanes<std::uint32_t>;

void expect(bool right, const char* what, long at) {
  if (right) return;
  ++seen->wrong;
  std::snprintf(seen->words, sizeof seen->words, "%s at instruction %ld", what, at);
}

const unsigned char* sve_record(const ucontext_t* context) {
  const auto* at = reinterpret_cast<const unsigned char*>(context->uc_mcontext.__reserved);
  for (;;) {
    _aarch64_ctx head;
    std::memcpy(&head, at, sizeof head);
    if (head.magic == SVE_MAGIC) return at;
    if (head.magic == 0) return nullptr;
    extra_context extra;
    std::memcpy(&extra, at, sizeof extra);
    at = head.magic == EXTRA_MAGIC ? reinterpret_cast<const unsigned char*>(extra.datap) : at + head.size;
  }
}

// The run: incb x9; whilelo p1.s, x10, x11; add z1.s, z1.s, z0.s; st1w {z1.s}, p0, [x12]; addvl x9, x9, #1.
void look(int, siginfo_t*, void* raw) {
  const auto* context = static_cast<ucontext_t*>(raw);
  const auto& machine = context->uc_mcontext;
  const long at = static_cast<long>(machine.pc - reinterpret_cast<std::uintptr_t>(run_begin)) / 4;
  ++seen->handled;
  seen->at = at;
  expect(at >= 0 && at <= 5, "the program counter", at);
  expect(machine.regs[9] == x9_before + (at >= 1 ? sve::vector_bytes : 0) + (at >= 5 ? sve::vector_bytes : 0), "x9",
         at);
  expect(machine.regs[10] == 3 && machine.regs[11] == 8 && machine.regs[19] == 19 && machine.regs[29] == 29 &&
             machine.regs[30] == 30 && machine.regs[0] == 0x100 && machine.regs[1] == 0x101,
         "other registers", at);
  expect((machine.pstate >> 28) == (at >= 2 ? 10u : 5u), "flags", at);
  const unsigned char* record = sve_record(context);
  std::uint32_t z1[lanes], p1 = 0;
  std::memcpy(z1, record + SVE_SIG_ZREG_OFFSET(7, 1), sizeof z1);
  std::memcpy(&p1, record + SVE_SIG_PREG_OFFSET(7, 1), sizeof p1);
  for (unsigned i = 0; i < lanes; ++i) {
    expect(z1[i] == (at >= 3 ? 7 + i : 7), "z1", at);
    expect(stored[i] == (at >= 4 ? 7 + i : 0), "memory", at);
  }
  expect((p1 == 0x11111) == (at >= 2), "p1", at);
  asm volatile(".arch_extension sve\n dup z1.b, #1\n dup z0.b, #2\n pfalse p0.b\n pfalse p1.b\n" ::: "v0", "v1");
}

[[noreturn]] void child() {
  struct sigaction action = {};
  action.sa_sigaction = look;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGUSR1, &action, nullptr);
  ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
  for (;;) {
    std::memset(stored, 0, sizeof stored);
    std::uint64_t x9 = x9_before, sp_before, sp_after, nzcv, others;
    std::uint32_t z1[lanes];
    asm volatile(
        ".arch_extension sve\n"
        "ptrue p0.s\n"
        "pfalse p1.b\n"
        "index z0.s, #0, #1\n"
        "dup z1.s, #7\n"
        "mov x9, %0\n"
        "mov x10, #3\n"
        "mov x11, #8\n"
        "mov x12, %5\n"
        "mov x13, %6\n"
        "mov x0, #0x100\n"
        "mov x1, #0x101\n"
        "str x29, [sp, #-16]!\n"
        "mov x19, #19\n"
        "mov x29, #29\n"
        "mov x30, #30\n"
        "mov x14, #0x50000000\n"
        "msr nzcv, x14\n"
        "mov x15, sp\n"
        "brk #1\n"
        ".globl run_begin\n"
        "run_begin: incb x9\n"
        "whilelo p1.s, x10, x11\n"
        "add z1.s, z1.s, z0.s\n"
        "st1w {z1.s}, p0, [x12]\n"
        "addvl x9, x9, #1\n"
        ".globl run_end\n"
        "run_end: brk #2\n"
        "mov x16, sp\n"
        "mrs x17, nzcv\n"
        "sub x18, x19, #19\n"
        "sub x29, x29, #29\n"
        "orr x18, x18, x29\n"
        "sub x30, x30, #30\n"
        "orr x18, x18, x30\n"
        "sub x0, x0, #0x100\n"
        "orr x18, x18, x0\n"
        "sub x1, x1, #0x101\n"
        "orr x18, x18, x1\n"
        "ldr x29, [sp], #16\n"
        "mov %0, x9\n"
        "mov %1, x15\n"
        "mov %2, x16\n"
        "mov %3, x17\n"
        "mov %4, x18\n"
        "ptrue p0.s\n"
        "st1w {z1.s}, p0, [x13]\n"
        : "+&r"(x9), "=&r"(sp_before), "=&r"(sp_after), "=&r"(nzcv), "=&r"(others)
        : "r"(stored), "r"(z1)
        : "x0", "x1", "x9", "x10", "x11", "x12", "x13", "x14", "x15", "x16", "x17", "x18", "x19", "x30", "cc", "memory",
          "v0", "v1");
    expect(x9 == x9_before + 224, "x9 in the end", 5);
    expect(sp_before == sp_after, "the stack pointer in the end", 5);
    expect(nzcv == 0xa0000000, "flags in the end", 5);
    expect(others == 0, "other registers in the end", 5);
    for (unsigned i = 0; i < lanes; ++i) expect(z1[i] == 7 + i && stored[i] == 7 + i, "z1 or memory in the end", 5);
  }
}

pid_t tracee;

user_regs_struct registers() {
  user_regs_struct regs{};
  iovec io{&regs, sizeof regs};
  ptrace(PTRACE_GETREGSET, tracee, NT_PRSTATUS, &io);
  return regs;
}

void go_to(std::uint64_t pc) {
  user_regs_struct regs = registers();
  regs.pc = pc;
  iovec io{&regs, sizeof regs};
  ptrace(PTRACE_SETREGSET, tracee, NT_PRSTATUS, &io);
}

// A breakpoint of the processor's, at one address; 0: none. The runner's code is not to be written to, by ptrace
// neither.
void set_breakpoint(std::uint64_t address) {
  user_hwdebug_state state{};
  state.dbg_regs[0].addr = address;
  state.dbg_regs[0].ctrl = address == 0 ? 0 : 0x1e5;  // execution of a word, in user mode, enabled
  iovec io{&state, offsetof(user_hwdebug_state, dbg_regs) + sizeof state.dbg_regs[0]};
  if (ptrace(PTRACE_SETREGSET, tracee, NT_ARM_HW_BREAK, &io) != 0) std::perror("NT_ARM_HW_BREAK");
}

// Lets the child go on, with all signals but SIGTRAP given to it, until it stops at a SIGTRAP. Returns where; 0: it
// ended.
std::uint64_t resume(int request, int sig = 0) {
  for (;;) {
    ptrace(static_cast<__ptrace_request>(request), tracee, nullptr, sig);
    int status = 0;
    waitpid(tracee, &status, 0);
    if (!WIFSTOPPED(status)) {
      std::printf("FAILED: the child ended, status %#x\n", status);
      return 0;
    }
    if (WSTOPSIG(status) == SIGTRAP) return registers().pc;
    sig = WSTOPSIG(status);
  }
}

}  // namespace

int main() {
  setvbuf(stdout, nullptr, _IONBF, 0);
  seen = static_cast<Shared*>(mmap(nullptr, sizeof *seen, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  tracee = fork();
  if (tracee == 0) child();
  int status = 0;
  const auto begin = reinterpret_cast<std::uint64_t>(run_begin), end = reinterpret_cast<std::uint64_t>(run_end);
  const std::uint64_t before = begin - 4;
  waitpid(tracee, &status, 0);  // in its first instruction of ours
  if (!WIFSTOPPED(status) || resume(PTRACE_CONT, WSTOPSIG(status)) != before) {
    std::printf("FAILED: status %#x at the beginning\n", status);
    return 1;
  }
  // The first visit traps, the second goes through the entry.
  for (int i = 0; i < 2; ++i) {
    go_to(begin);
    if (resume(PTRACE_CONT) != end) return std::printf("FAILED: the run's end is not met\n"), 1;
    go_to(end + 4);
    if (resume(PTRACE_CONT) != before) return std::printf("FAILED: the next round does not begin\n"), 1;
  }
  // What it executes, from the branch on.
  std::vector<std::uint64_t> addresses;
  std::map<std::uint64_t, bool> known;
  go_to(begin);
  for (std::uint64_t pc = begin; pc != end && pc != 0; pc = resume(PTRACE_SINGLESTEP)) {
    if (!known[pc]) addresses.push_back(pc);
    known[pc] = true;
  }
  const char* options = std::getenv("SVE_RUN_OPTIONS");
  if (options && std::strstr(options, "no-patch")) return std::printf("SKIPPED: there are no entries\n"), 77;
  const auto word = static_cast<std::uint32_t>(
      static_cast<unsigned long>(ptrace(PTRACE_PEEKTEXT, tracee, begin & ~7ul, nullptr)) >> (begin & 4 ? 32 : 0));
  if (word >> 26 != 5) return std::printf("FAILED: no branch leads to an entry\n"), 1;
  go_to(end + 4);
  if (resume(PTRACE_CONT) != before) return 1;

  long delivered[6] = {};
  for (const std::uint64_t address : addresses) {
    seen->handled = 0;
    go_to(begin);
    if (address != begin) {
      set_breakpoint(address);
      if (resume(PTRACE_CONT) != address) return std::printf("FAILED: %#lx is not met\n", address), 1;
      set_breakpoint(0);
    }
    if (resume(PTRACE_CONT, SIGUSR1) != end) return std::printf("FAILED: no end after a signal at %#lx\n", address), 1;
    go_to(end + 4);
    if (resume(PTRACE_CONT) != before) return 1;
    if (seen->handled != 1 || seen->wrong != 0) {
      std::printf("FAILED: signal at %#lx: handled %d times, %s\n", address, seen->handled, seen->words);
      return 1;
    }
    if (seen->at >= 0 && seen->at < 6) ++delivered[seen->at];
  }
  kill(tracee, SIGKILL);
  std::printf("%zu instructions interrupted; seen at each of the run's:", addresses.size());
  for (const long n : delivered) std::printf(" %ld", n);
  std::printf("\n");
  return 0;
}
