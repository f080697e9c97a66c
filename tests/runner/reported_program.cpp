// A program that executes SVE instructions and then ends in the way that its first argument names; see report_test.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/runner/sve_instructions.h"

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
  if (mode("pause")) {
    std::puts("ready");
    std::fflush(stdout);
    pause();
  }
  return 7;
}
