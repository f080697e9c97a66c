// Prints what a program can find out about the kernel's dealings with SVE: announcements, vector lengths, signal
// frames, what frames are refused, stacks. It must print the same under sve-run as on a kernel whose processor has SVE.
#include <asm/sigcontext.h>
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/runner/frame_records.h"
#include "tests/runner/sve_instructions.h"

#ifndef AT_MINSIGSTKSZ
#define AT_MINSIGSTKSZ 51
#endif
#ifndef SS_AUTODISARM
#define SS_AUTODISARM (1u << 31)
#endif

namespace {

using namespace sve_instructions;

constexpr unsigned length = SVE_VECTOR_BITS / 8, quadwords = length / 16;

void print_length(const char* what, unsigned long argument) {
  errno = 0;
  const int answer = prctl(PR_SVE_SET_VL, argument);
  const int error = errno;
  std::printf("%s: %#x, error %d, then %#x\n", what, static_cast<unsigned>(answer), error,
              static_cast<unsigned>(prctl(PR_SVE_GET_VL)));
}

// Lengths that a kernel grants at this one alone; shorter ones depend on the processor.
void lengths(char** argv) {
  std::printf("length %#x, announced %d\n", static_cast<unsigned>(prctl(PR_SVE_GET_VL)),
              (getauxval(AT_HWCAP) & HWCAP_SVE) != 0);
  print_length("the same", length);
  print_length("longer", 256);
  print_length("longest", 8192);
  print_length("too long", 8208);
  print_length("no length", 0);
  print_length("not whole", length + 8);
  print_length("inherited", length | PR_SVE_VL_INHERIT);
  print_length("unknown flag", length | 1 << 20);
  std::fflush(stdout);
  if (fork() == 0) {
    std::printf("in a child: %#x\n", static_cast<unsigned>(prctl(PR_SVE_GET_VL)));
    std::fflush(stdout);
    _exit(0);
  }
  wait(nullptr);
  const auto in_new_program = [&](const char* what) {
    std::printf("%s: ", what);
    std::fflush(stdout);
    if (fork() == 0) {
      execl("/proc/self/exe", argv[0], "length", nullptr);
      _exit(1);
    }
    wait(nullptr);
  };
  in_new_program("inherited by a new program");
  print_length("no more inherited", length);
  in_new_program("by a new program");
  print_length("on exec", length | PR_SVE_SET_VL_ONEXEC);
  print_length("on exec, inherited", length | PR_SVE_SET_VL_ONEXEC | PR_SVE_VL_INHERIT);
  in_new_program("by a new program");
  print_length("as at first", length);
  pthread_t thread;
  prctl(PR_SVE_SET_VL, length | PR_SVE_VL_INHERIT);
  pthread_create(
      &thread, nullptr,
      [](void*) -> void* {
        std::printf("in a thread: %#x\n", static_cast<unsigned>(prctl(PR_SVE_GET_VL)));
        return nullptr;
      },
      nullptr);
  pthread_join(thread, nullptr);
  prctl(PR_SVE_SET_VL, length);
}

// ---- Frames ----

const char* edit;

std::uint32_t sum(const unsigned char* bytes, std::size_t size) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < size; ++i) value = value * 31 + bytes[i];
  return value;
}

void show_frame(int sig, siginfo_t* info, void* raw) {
  auto* context = static_cast<ucontext_t*>(raw);
  const auto* base = reinterpret_cast<unsigned char*>(info);
  std::printf("signal %d, context at %ld, on a stack of ours: %d, size %zu\n", sig,
              static_cast<long>(reinterpret_cast<unsigned char*>(raw) - base), context->uc_stack.ss_flags,
              context->uc_stack.ss_size);
  for (const Record& r : records(context)) {
    if (r.magic == 0) break;
    std::printf("  record %#x of %u at %ld", r.magic, r.size, static_cast<long>(r.at - base));
    if (r.magic == SVE_MAGIC) {
      sve_context sve;
      std::memcpy(&sve, r.at, sizeof sve);
      std::printf(", length %u, flags %#x, content %#x", sve.vl, sve.flags, sum(r.at + 16, sve.head.size - 16));
    }
    if (r.magic == EXTRA_MAGIC) {
      extra_context extra;
      std::memcpy(&extra, r.at, sizeof extra);
      std::printf(", %u bytes", extra.size);
    }
    std::printf("\n");
  }
}

#define FILL(n) "index z" #n ".b, #" #n " - 16, #3\n"
// Fills all vectors and predicates, meets a SIGTRAP, and stores some of them. No system call comes between, which would
// leave the vectors' upper parts undefined.
__attribute__((noinline)) void trap_with_vectors(unsigned char* out) {
  asm volatile(
      SVE_ASM(
          "ptrue p0.b\n"
          "setffr\n" FILL(0) FILL(1) FILL(2) FILL(3) FILL(4) FILL(5) FILL(6) FILL(7) FILL(8) FILL(9) FILL(10) FILL(
              11) FILL(12) FILL(13) FILL(14) FILL(15) FILL(16) FILL(17) FILL(18) FILL(19) FILL(20) FILL(21) FILL(22)
              FILL(23) FILL(24) FILL(25) FILL(26) FILL(27) FILL(28) FILL(29) FILL(30) FILL(
                  31) "ptrue p1.h\n pfalse p2.b\n ptrue p3.s, vl3\n ptrue p4.d\n ptrue p5.b, vl7\n ptrue p6.h, vl5\n"
                      "ptrue p7.b, mul3\n pfalse p8.b\n ptrue p9.d\n ptrue p10.s\n ptrue p11.h, vl1\n pfalse p12.b\n"
                      "ptrue p13.b, vl16\n ptrue p14.s, vl2\n ptrue p15.d, vl5\n"
                      "brk #77\n"
                      "str z0, [%0]\n str z7, [%0, #1, mul vl]\n str z31, [%0, #2, mul vl]\n"
                      "str p0, [%0, #24, mul vl]\n str p1, [%0, #25, mul vl]\n str p15, [%0, #26, mul vl]\n"
                      "rdffr p2.b\n str p2, [%0, #27, mul vl]\n")::"r"(out)
      : "memory", "v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7", "v8", "v9", "v10", "v11", "v12", "v13", "v14", "v15",
        "v16", "v17", "v18", "v19", "v20", "v21", "v22", "v23", "v24", "v25", "v26", "v27", "v28", "v29", "v30", "v31");
}

void change_head(unsigned char* at, std::uint32_t magic, std::uint32_t size) {
  const _aarch64_ctx head{magic, size};
  std::memcpy(at, &head, sizeof head);
}

// What a handler does to its frame before it returns.
void change_frame(int, siginfo_t*, void* raw) {
  auto* context = static_cast<ucontext_t*>(raw);
  context->uc_mcontext.pc += 4;  // behind the brk
  unsigned char* const sve_at = record_of(context, SVE_MAGIC);
  unsigned char* const fpsimd_at = record_of(context, FPSIMD_MAGIC);
  unsigned char* const extra_at = record_of(context, EXTRA_MAGIC);
  const auto is = [](const char* name) { return std::strcmp(edit, name) == 0; };
  sve_context sve;
  std::memcpy(&sve, sve_at, sizeof sve);
  extra_context extra;
  std::memcpy(&extra, extra_at, sizeof extra);
  if (is("vectors")) {
    std::memset(sve_at + SVE_SIG_ZREG_OFFSET(quadwords, 7), 0x77, length);
    std::memset(sve_at + SVE_SIG_PREG_OFFSET(quadwords, 1), 0x11, length / 8);
    std::memset(sve_at + SVE_SIG_FFR_OFFSET(quadwords), 0x01, length / 8);
  }
  if (is("low parts")) std::memset(fpsimd_at + 16 + 7 * 16, 0x55, 16);
  if (is("another length")) sve.vl = 64;
  if (is("streaming")) sve.flags |= 1;
  if (is("unknown flag")) sve.flags |= 0x8000;
  if (is("head only")) sve.head.size = sizeof sve;
  if (is("short")) sve.head.size = 512;
  if (is("odd size")) sve.head.size -= 8;
  std::memcpy(sve_at, &sve, sizeof sve);
  if (is("no SVE record")) change_head(sve_at, 0, 0);
  if (is("no V record")) change_head(fpsimd_at, ESR_MAGIC, sizeof(fpsimd_context));
  if (is("wrong V record")) change_head(fpsimd_at, FPSIMD_MAGIC, 512);
  if (is("unknown record")) change_head(sve_at, 0x12345678, sve.head.size);
  if (is("two V records")) change_head(sve_at, FPSIMD_MAGIC, sizeof(fpsimd_context));
  if (is("extra elsewhere")) extra.datap += 16;
  if (is("extra too long")) extra.size = 1 << 20;
  if (is("extra not whole")) extra.size -= 8;
  if (is("extra too short")) extra.size = 512;
  std::memcpy(extra_at, &extra, sizeof extra);
  if (is("no extra space")) change_head(extra_at, 0, 0);
  if (is("no records")) change_head(reinterpret_cast<unsigned char*>(context->uc_mcontext.__reserved), 0, 0);
  if (is("mode")) context->uc_mcontext.pstate |= 0xc;
}

void handle(int sig, void (*handler)(int, siginfo_t*, void*), int flags = 0) {
  struct sigaction action = {};
  action.sa_sigaction = handler;
  action.sa_flags = SA_SIGINFO | flags;
  sigaction(sig, &action, nullptr);
}

void frames() {
  handle(SIGTRAP, [](int sig, siginfo_t* info, void* raw) {
    show_frame(sig, info, raw);
    static_cast<ucontext_t*>(raw)->uc_mcontext.pc += 4;
  });
  static unsigned char out[4096];
  trap_with_vectors(out);
  for (const char* name : {"nothing",        "vectors",         "low parts",
                           "another length", "streaming",       "unknown flag",
                           "head only",      "short",           "odd size",
                           "no SVE record",  "no V record",     "wrong V record",
                           "unknown record", "two V records",   "extra elsewhere",
                           "extra too long", "extra not whole", "extra too short",
                           "no extra space", "no records",      "mode"}) {
    edit = name;
    std::printf("%s: ", name);
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
      handle(SIGTRAP, change_frame);
      trap_with_vectors(out);
      std::printf("z0 %#x z7 %#x z31 %#x predicates %#x ", sum(out, length), sum(out + length, length),
                  sum(out + 2 * length, length), sum(out + 24 * length / 8, 4 * length / 8));
      std::fflush(stdout);
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    std::printf("status %#x\n", status & ~0x80u);  // but for the core
  }
}

// ---- Stacks ----

void* stack_memory;

void on_stack(std::size_t size, unsigned flags) {
  std::printf("a stack of %zu, flags %#x: ", size, flags);
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    stack_t stack{}, old{};
    stack.ss_sp = stack_memory;
    stack.ss_size = size;
    stack.ss_flags = static_cast<int>(flags);
    const int answer = sigaltstack(&stack, nullptr);
    const int error = answer ? errno : 0;
    sigaltstack(nullptr, &old);
    std::printf("error %d, flags %#x; ", error, static_cast<unsigned>(old.ss_flags));
    std::fflush(stdout);
    handle(
        SIGTRAP,
        [](int, siginfo_t*, void* raw) {
          auto* context = static_cast<ucontext_t*>(raw);
          context->uc_mcontext.pc += 4;
          stack_t now{};
          sigaltstack(nullptr, &now);
          static char line[200];
          const int written = std::snprintf(
              line, sizeof line, "inside %#x %zu, frame says %#x %zu; ", static_cast<unsigned>(now.ss_flags),
              now.ss_size, static_cast<unsigned>(context->uc_stack.ss_flags), context->uc_stack.ss_size);
          if (write(1, line, static_cast<std::size_t>(written)) < 0) _exit(1);
        },
        SA_ONSTACK);
    static unsigned char out[4096];
    trap_with_vectors(out);
    stack_t after{};
    sigaltstack(nullptr, &after);
    std::printf("after %#x %zu ", static_cast<unsigned>(after.ss_flags), after.ss_size);
    std::fflush(stdout);
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  std::printf("status %#x\n", status & ~0x80u);
}

void stacks() {
  std::printf("least %ld, and by libc %ld, usual %ld\n", static_cast<long>(getauxval(AT_MINSIGSTKSZ)),
              sysconf(_SC_MINSIGSTKSZ), sysconf(_SC_SIGSTKSZ));
  // With nothing below it, so that a handler that does not fit faults.
  auto* const memory = static_cast<char*>(mmap(nullptr, 131072, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  stack_memory = memory + 65536;
  mprotect(stack_memory, 65536, PROT_READ | PROT_WRITE);
  for (const std::size_t size : {5119, 5120, 65536}) on_stack(size, 0);
  for (const unsigned flags : {SS_AUTODISARM, unsigned{SS_ONSTACK}, unsigned{SS_DISABLE}, 4u}) on_stack(65536, flags);
}

// ---- Tagged addresses ----

constexpr std::uint64_t tag = std::uint64_t{0x5a} << 56;
std::uint64_t tagged_page;
sigjmp_buf behind_fault;

void show_fault(int sig, siginfo_t* info, void* raw) {
  const auto at = reinterpret_cast<std::uint64_t>(info->si_addr);
  const std::uint64_t from = static_cast<ucontext_t*>(raw)->uc_mcontext.fault_address;
  std::printf("signal %d, code %d, tag %#x, offset %ld; in the frame tag %#x, offset %ld\n", sig, info->si_code,
              static_cast<unsigned>(at >> 56), static_cast<long>(at << 8 >> 8) - static_cast<long>(tagged_page),
              static_cast<unsigned>(from >> 56), static_cast<long>(from << 8 >> 8) - static_cast<long>(tagged_page));
  siglongjmp(behind_fault, 1);
}

template <class Body>
[[gnu::noipa]] void attempt(Body body, int i) {
  if (sigsetjmp(behind_fault, 1) == 0) body(i);
}

template <class Body>
void with_fault(const char* what, Body body) {
  for (int i = 0; i < 3; ++i) {  // at a trap, and of a site that has been patched
    std::printf("%s: ", what);
    attempt(body, i);
  }
}

void tags() {
  struct sigaction action = {}, seen = {};
  action.sa_flags = 0x400 | 0x800 | 0x10000;  // SA_UNSUPPORTED, SA_EXPOSE_TAGBITS, none
  sigaction(SIGSEGV, &action, nullptr);
  sigaction(SIGSEGV, nullptr, &seen);
  std::printf("flags %#x", static_cast<unsigned>(seen.sa_flags));
  sigaction(SIGUSR1, &action, nullptr);
  sigaction(SIGUSR1, nullptr, &seen);
  std::printf(" %#x\n", static_cast<unsigned>(seen.sa_flags));
  auto* const memory =
      static_cast<unsigned char*>(mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  for (int i = 0; i < 4096; ++i) memory[i] = static_cast<unsigned char>(i * 7);
  tagged_page = reinterpret_cast<std::uint64_t>(memory) + 4096;
  mprotect(memory + 4096, 4096, PROT_NONE);
  const std::uint64_t good = (tagged_page - 4096) | tag, bad = tagged_page | tag, last = (tagged_page - 56) | tag;
  for (int i = 0; i < 3; ++i) {
    unsigned char out[4][112];
    asm volatile(SVE_ASM("ptrue p0.b\n"
                         "ld1b {z1.b}, p0/z, [%0]\n st1b {z1.b}, p0, [%1]\n"
                         "index z2.d, %0, #3\n ld1d {z3.d}, p0/z, [z2.d]\n str z3, [%1, #1, mul vl]\n"
                         "setffr\n ldff1b {z4.b}, p0/z, [%2]\n rdffr p1.b\n"
                         "mov z4.b, p1/z, #1\n str z4, [%1, #2, mul vl]\n"
                         "st1d {z3.d}, p0, [z2.d]\n ld1b {z5.b}, p0/z, [%0]\n str z5, [%1, #3, mul vl]\n")::"r"(good),
                 "r"(out), "r"(last)
                 : "memory", "v1", "v2", "v3", "v4", "v5");
    std::printf("through tags %#x\n", sum(out[0], sizeof out));
  }
  for (const int flags : {0, 0x800}) {
    handle(SIGSEGV, show_fault, flags);
    with_fault("scalar", [=](int) { asm volatile("ldr x9, [%0]" ::"r"(bad + 8) : "x9"); });
    with_fault("contiguous", [=](int i) {
      asm volatile(SVE_ASM("ptrue p0.b\n ld1b {z1.b}, p0/z, [%0]")::"r"(i ? bad : good) : "v1");
      if (i == 0) std::printf("none\n");
    });
    with_fault("store", [=](int i) {
      asm volatile(SVE_ASM("ptrue p0.b\n st1w {z1.s}, p0, [%0]")::"r"(i ? bad : good) : "memory");
      if (i == 0) std::printf("none\n");
    });
    with_fault("gather", [=](int i) {
      asm volatile(SVE_ASM("ptrue p0.b\n index z2.d, %0, #8\n ld1d {z1.d}, p0/z, [z2.d]")::"r"(i ? bad : good)
                   : "v1", "v2");
      if (i == 0) std::printf("none\n");
    });
    with_fault("first-fault", [=](int i) {
      asm volatile(SVE_ASM("ptrue p0.b\n setffr\n ldff1b {z1.b}, p0/z, [%0]")::"r"(i ? bad : good) : "v1");
      if (i == 0) std::printf("none\n");
    });
  }
  // What is written to is the program's own again, however it is named.
  auto* const code =
      static_cast<std::uint32_t*>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  code[0] = 0x0420e3e0;  // cntb x0
  code[1] = 0xd65f03c0;  // ret
  __builtin___clear_cache(reinterpret_cast<char*>(code), reinterpret_cast<char*>(code + 2));
  mprotect(code, 4096, PROT_READ | PROT_EXEC);
  const auto bytes = reinterpret_cast<std::uint64_t (*)()>(code)();
  errno = prctl(PR_SET_TAGGED_ADDR_CTRL, PR_TAGGED_ADDR_ENABLE, 0, 0, 0);
  const int answer =
      mprotect(reinterpret_cast<void*>(reinterpret_cast<std::uint64_t>(code) | tag), 4096, PROT_READ | PROT_WRITE);
  std::printf("%lu bytes, mprotect %d, word %#x\n", static_cast<unsigned long>(bytes), answer, code[0]);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::strcmp(argv[1], "length") == 0) {
    std::printf("%#x\n", static_cast<unsigned>(prctl(PR_SVE_GET_VL)));
    return 0;
  }
  setvbuf(stdout, nullptr, _IONBF, 0);
  handle(SIGTRAP, [](int sig, siginfo_t* info, void* raw) {
    show_frame(sig, info, raw);
    static_cast<ucontext_t*>(raw)->uc_mcontext.pc += 4;
  });
  asm volatile("brk #77");  // before any SVE
  lengths(argv);
  frames();
  stacks();
  tags();
  return 0;
}
