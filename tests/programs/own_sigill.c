// A program with a SIGILL handler of its own, which meets only what is its own, and uses vectors itself.
#include <setjmp.h>
#include <signal.h>
#include <ucontext.h>

#include "common.h"

#define N 200

static uint32_t in_handler[N];
static volatile sig_atomic_t caught;
static sigjmp_buf back;

KERNEL void step(uint32_t* a, uint32_t factor, size_t n) {
  for (size_t i = 0; i < n; ++i) a[i] = a[i] * factor + (uint32_t)i;
}

static void skip(int sig, siginfo_t* info, void* context) {
  (void)sig;
  (void)info;
  ++caught;
  step(in_handler, 7, N);
  ((ucontext_t*)context)->uc_mcontext.pc += 4;
}

static void jump(int sig) { siglongjmp(back, sig); }

// Not an instruction on any processor.
KERNEL void undefined(void) { __asm__ volatile(".inst 0x00000000" ::: "memory"); }

int main(void) {
  static uint32_t a[N];
  step(a, 3, N);
  struct sigaction action = {0}, old;
  action.sa_sigaction = skip;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGILL, &action, &old);
  printf("default before: %d\n", old.sa_handler == SIG_DFL);
  for (int i = 0; i < 3; ++i) {
    step(a, 5, N);
    undefined();
  }
  printf("caught %d: %016llx %016llx\n", (int)caught, (unsigned long long)digest(a, sizeof a),
         (unsigned long long)digest(in_handler, sizeof in_handler));
  signal(SIGILL, jump);
  for (int i = 0; i < 2; ++i) {
    const int sig = sigsetjmp(back, 1);
    if (sig == 0) undefined();
    step(a, 9, N);
    printf("back by %d\n", sig);
  }
  sigaction(SIGILL, NULL, &old);
  printf("mine: %d\n", old.sa_handler == jump);
  printf("%016llx\n", (unsigned long long)digest(a, sizeof a));
  signal(SIGILL, SIG_DFL);
  fflush(stdout);
  undefined();
  return 1;
}
