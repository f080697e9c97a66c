// What debugger_test debugs, at any vector length. Its lines and labels are known there.
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#define MOST_LANES 32
long watched[MOST_LANES], bytes;
volatile int rounds;

__attribute__((noinline)) long steps(long x) {
  __asm__ volatile("first: incb %0" : "+r"(x));
  __asm__ volatile("second: incb %0\n third: inch %0" : "+r"(x));
  __asm__ volatile("nop\n fourth: dech %0" : "+r"(x));
  x += 1;
  return x;
}

__attribute__((noinline)) void vectors(void) {
  __asm__ volatile(
      "ptrue p0.b\n"
      "index z0.s, #0, #1\n"
      "index z1.b, #1, #2\n"
      "ptrue p1.s, vl3\n"
      "setffr\n"
      "dup z2.d, #7\n"
      "nop\n"
      "filled: add z3.s, z0.s, z2.s\n" ::
          : "z0", "z1", "z2", "z3", "p0", "p1", "memory");
}

__attribute__((noinline)) long stored(void) {
  long lanes[MOST_LANES];
  __asm__ volatile(
      "nop\n"
      "shown: st1d {z2.d}, p0, [%0]\n"
      "st1d {z2.d}, p0, [%1]\n"
      "nop\n" ::"r"(watched),
      "r"(lanes)
      : "memory");
  return lanes[0] + lanes[bytes / 8 - 1];
}

__attribute__((noinline)) void handler(int sig) {
  __asm__ volatile("dup z0.s, #9\n dup z2.d, #1\n in_handler: nop" ::: "z0", "z2");
  rounds += sig == SIGUSR1;
}

// Until a debugger ends it.
__attribute__((noinline)) long loop(void) {
  long x = 0, i;
  for (i = 0; rounds >= 0; i++) {
    __asm__ volatile("nop\n incb %0\n in_loop: inch %0\n decw %0" : "+r"(x));
    if ((i & 1023) == 0) usleep(0);
  }
  return x == i * (bytes + bytes / 2 - bytes / 4);
}

void* threads_part(void* argument) {
  long x = 0;
  __asm__ volatile("index z0.s, %w1, #1\n ptrue p0.s\n nop\n in_thread: incb %0"
                   : "+r"(x)
                   : "r"((int)(long)argument)
                   : "z0", "p0");
  return (void*)x;
}

int main(int argc, char** argv) {
  const char* mode = argc > 1 ? argv[1] : "";
  __asm__("rdvl %0, #1" : "=r"(bytes));
  printf("first %ld\n", steps(1000));
  printf("second %ld\n", steps(2000));
  vectors();
  printf("stored %ld\n", stored());
  signal(SIGUSR1, handler);
  vectors();
  raise(SIGUSR1);
  printf("handled %d\n", rounds);
  pthread_t thread;
  pthread_create(&thread, NULL, threads_part, (void*)5);
  void* result;
  pthread_join(thread, &result);
  printf("thread %ld\n", (long)result);
  fflush(stdout);
  if (!strcmp(mode, "abort")) {
    vectors();
    abort();
  }
  if (!strcmp(mode, "fork")) {
    const pid_t child = fork();
    if (child == 0) _exit(steps(3000) == 3001 + 2 * bytes ? 5 : 6);
    int status;
    waitpid(child, &status, 0);
    printf("child %d, parent %ld\n", WEXITSTATUS(status), steps(4000));
  }
  if (!strcmp(mode, "fault"))
    __asm__ volatile("ptrue p0.b\n faulting: ld1b {z0.b}, p0/z, [%0]" ::"r"(16L) : "z0", "p0");
  if (!strcmp(mode, "loop")) printf("looped %ld\n", loop());
  return 0;
}
