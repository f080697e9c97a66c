// A program with its own SIGSEGV handler, for faults of its native code, and SVE code around them. With "emulated" the
// last fault is one of an SVE store, which the handler must not see.
#include <setjmp.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>

static sigjmp_buf after;
static volatile int caught;

static void handler(int sig, siginfo_t* info, void* context) {
  (void)sig, (void)info, (void)context;
  ++caught;
  siglongjmp(after, 1);
}

static uint64_t bytes(void) {
  uint64_t n;
  __asm__ volatile("cntb %0" : "=r"(n));
  return n;
}

int main(int argc, char** argv) {
  char* closed = mmap(NULL, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  struct sigaction action;
  memset(&action, 0, sizeof action);
  action.sa_sigaction = handler;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGSEGV, &action, NULL);
  uint64_t sum = 0;
  for (int i = 0; i < 5; ++i) {
    sum += bytes();
    if (sigsetjmp(after, 1) == 0) *(volatile char*)closed = 1;
    sum += bytes();
  }
  printf("%d faults caught, %llu\n", caught, (unsigned long long)sum);
  // A first-fault load of what cannot be read beyond the first element
  char* page = mmap(NULL, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  mprotect(page + 4096, 4096, PROT_NONE);
  uint64_t loaded;
  __asm__ volatile("ptrue p0.b\n\tsetffr\n\tldff1b z0.b, p0/z, [%1]\n\trdffr p1.b\n\tcntp %0, p0, p1.b"
                   : "=r"(loaded)
                   : "r"(page + 4096 - 10)
                   : "v0", "p0", "p1", "memory");
  printf("%llu bytes loaded\n", (unsigned long long)loaded);
  fflush(stdout);
  if (argc > 1 && strcmp(argv[1], "emulated") == 0) {
    signal(SIGSEGV, SIG_DFL);
    __asm__ volatile("ptrue p0.b\n\tst1b z0.b, p0, [%0]" : : "r"(closed) : "p0", "memory");
  }
  return 0;
}
