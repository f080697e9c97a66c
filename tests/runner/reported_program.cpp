// A program that executes SVE instructions and then ends in the way that its first argument names; see report_test.
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "tests/runner/sve_instructions.h"

// Words of extensions that are not SVE's first version, in functions that the reports are to name.
extern "C" [[gnu::noinline]] void widens_by_sve2() { asm volatile(".inst 0x45410000"); }     // saddlb z0.h, z0.b, z1.b
extern "C" [[gnu::noinline]] void multiplies_by_sme() { asm volatile(".inst 0x80810000"); }  // fmopa za0.s, ...
static void skip_instruction(int, siginfo_t*, void* context) { static_cast<ucontext_t*>(context)->uc_mcontext.pc += 4; }

int main(int argc, char** argv) {
  const auto mode = [&](const char* name) { return argc > 1 && std::strcmp(argv[1], name) == 0; };
  const char* const operand = argc > 2 ? argv[2] : "";
  if (sve_instructions::cntb() != sve_instructions::vector_bytes) return 1;
  if (mode("show-preload")) return std::puts(std::getenv("LD_PRELOAD")) < 0;
  if (mode("file-in-place-of-stderr")) {
    close(STDERR_FILENO);
    return open(operand, O_WRONLY | O_CREAT, 0666) == STDERR_FILENO ? 7 : 1;
  }
  if (mode("close-all")) {
    for (int fd = 2; fd < 1024; ++fd) close(fd);
    for (int fd = 2; fd < 1024; ++fd) dup2(open("/dev/null", O_WRONLY), fd);
    return 7;
  }
  if (mode("change-root")) return chroot(operand) == 0 && chdir("/") == 0 ? 7 : 1;
  if (mode("exec")) {
    execv("/nonesuch", argv);
    argv[1] = const_cast<char*>("return");
    execv("/proc/self/exe", argv);
    return 1;
  }
  if (mode("fork")) return fork() < 0;
  if (mode("signal")) {
    raise(std::atoi(operand));
    return 1;
  }
  if (mode("abort")) std::abort();
  if (mode("handled-sve2")) {
    struct sigaction action {};
    action.sa_sigaction = skip_instruction;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGILL, &action, nullptr);
    widens_by_sve2();
  }
  if (mode("sve2")) widens_by_sve2();
  if (mode("sme")) multiplies_by_sme();
  if (mode("sandboxed-sve2")) {
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    widens_by_sve2();
  }
  if (mode("generated-sme")) {
    void* const code = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    std::memcpy(code, "\0\0\x81\x80", 4);
    __builtin___clear_cache(static_cast<char*>(code), static_cast<char*>(code) + 4);
    mprotect(code, 4096, PROT_READ | PROT_EXEC);
    reinterpret_cast<void (*)()>(code)();
  }
  if (mode("illegal")) asm volatile("udf #0");
  if (mode("many-places")) {  // each is executed once
    const std::size_t places = std::strtoul(operand, nullptr, 10), size = (8 * places + 4095) & ~std::size_t{4095};
    auto* code =
        static_cast<std::uint32_t*>(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    for (std::size_t i = 0; i < places; ++i) {
      code[2 * i] = 0x0420e3e0;      // cntb x0
      code[2 * i + 1] = 0xd65f03c0;  // ret
    }
    __builtin___clear_cache(reinterpret_cast<char*>(code), reinterpret_cast<char*>(code) + size);
    mprotect(code, size, PROT_READ | PROT_EXEC);
    for (std::size_t i = 0; i < places; ++i) reinterpret_cast<void (*)()>(code + 2 * i)();
  }
  if (mode("restrict-itself")) {
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return 1;
    sve_instructions::all_true_p0();
    if (*operand && fork() == 0) return 0;  // with another end than the parent's
    if (*operand) wait(nullptr);
  }
  if (mode("load-plugin")) {
    void* const plugin = dlopen(operand, RTLD_NOW);
    auto* const function = plugin ? reinterpret_cast<unsigned long (*)()>(dlsym(plugin, "plugin_bytes")) : nullptr;
    if (!function || function() != 112 || dlclose(plugin) != 0) return 1;
  }
  if (mode("threads")) {
    for (int i = 0; i < 3; ++i)
      std::thread([i] {
        for (int k = 0; k <= i; ++k) sve_instructions::all_true_p0();
      }).join();
  }
  if (mode("pause")) {
    std::puts("ready");
    std::fflush(stdout);
    pause();
  }
  return 7;
}
