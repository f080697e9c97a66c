// Prints what indirect branches to SVE instructions do in pages that want landing pads, its own among them, and in
// others. It must print the same under sve-run as on a processor with SVE.
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>

namespace {

constexpr int prot_bti = 0x10;
constexpr std::uint32_t words[] = {0xd503245f, 0x0420e3e0, 0x0430e3e0, 0x0430e3e0, 0xd65f03c0};
asm(".text\n .balign 4\n own_words: bti c\n .inst 0x0420e3e0, 0x0430e3e0, 0x0430e3e0\n ret");  // cntb x0; incb x0,
                                                                                               // twice
extern "C" std::uint32_t own_words[];

sigjmp_buf behind;
std::uint32_t* code;

void show(int sig, siginfo_t* info, void* raw) {
  const auto& machine = static_cast<ucontext_t*>(raw)->uc_mcontext;
  std::printf("signal %d, code %d, at word %ld, from word %ld, BTYPE %u\n", sig, info->si_code,
              static_cast<long>(static_cast<std::uint32_t*>(info->si_addr) - code),
              static_cast<long>(reinterpret_cast<std::uint32_t*>(machine.pc) - code),
              static_cast<unsigned>(machine.pstate >> 10 & 3));
  siglongjmp(behind, 1);
}

std::uint64_t by_blr(std::uint32_t* at) {
  register std::uint64_t x0 asm("x0") = 1;
  asm volatile("blr %1" : "+r"(x0) : "r"(at) : "x30", "memory", "cc");
  return x0;
}
std::uint64_t by_br(std::uint32_t* at) {
  register std::uint64_t x0 asm("x0") = 1;
  asm volatile("adr x30, 1f\n br %1\n 1: hint #38" : "+r"(x0) : "r"(at) : "x30", "memory", "cc");
  return x0;
}
std::uint64_t by_ret(std::uint32_t* at) {
  register std::uint64_t x0 asm("x0") = 1;
  asm volatile("adr x30, 1f\n ret %1\n 1:" : "+r"(x0) : "r"(at) : "x30", "memory", "cc");
  return x0;
}

[[gnu::noipa]] void attempt(std::uint64_t (*go)(std::uint32_t*), std::uint32_t* at) {
  if (sigsetjmp(behind, 1) == 0) std::printf("%lu\n", static_cast<unsigned long>(go(at)));
}

// Three times from each: a place is patched when it has been met.
void attempt_all(const char* name, std::uint64_t (*go)(std::uint32_t*), std::uint32_t* words_at) {
  code = words_at;
  for (int i = 0; i < 3; ++i) {
    for (const int at : {1, 0, 2}) {
      std::printf("%s to word %d: ", name, at);
      attempt(go, code + at);
    }
  }
}

}  // namespace

int main() {
  setvbuf(stdout, nullptr, _IONBF, 0);
  struct sigaction action = {};
  action.sa_sigaction = show;
  action.sa_flags = SA_SIGINFO;
  for (const int sig : {SIGILL, SIGSEGV, SIGBUS}) sigaction(sig, &action, nullptr);
  const struct {
    const char* name;
    std::uint64_t (*go)(std::uint32_t*);
  } ways[] = {{"blr", by_blr}, {"br", by_br}, {"ret", by_ret}};
  for (const auto& way : ways) attempt_all(way.name, way.go, own_words);
  for (const int guard : {0, prot_bti}) {
    for (const auto& way : ways) {
      void* const page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
      std::memcpy(page, words, sizeof words);
      __builtin___clear_cache(static_cast<char*>(page), static_cast<char*>(page) + sizeof words);
      if (mprotect(page, 4096, PROT_READ | PROT_EXEC | guard) != 0) return 1;
      std::printf("guard %#x\n", guard);
      attempt_all(way.name, way.go, static_cast<std::uint32_t*>(page));
    }
  }
  return 0;
}
