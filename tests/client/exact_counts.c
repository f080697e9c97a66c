// Threads that each run a loop of a known number of SVE instructions. exact_counts THREADS ROUNDS: each thread runs
// 3 instructions a round, and 3 more.
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

static long rounds;

static void* run(void* argument) {
  uint64_t elements = 0, sum = 0;
  __asm__ volatile(
      "index z0.d, #0, #1\n\t"
      "ptrue p1.d\n\t"
      "mov %[left], %[rounds]\n"
      "1:\n\t"
      "add z0.d, z0.d, #1\n\t"
      "incd %[elements]\n\t"
      "ptest p1, p1.b\n\t"
      "b.none 2f\n\t"
      "subs %[left], %[left], #1\n\t"
      "b.ne 1b\n"
      "2:\n\t"
      "uaddv d0, p1, z0.d\n\t"
      "fmov %[sum], d0"
      : [elements] "+r"(elements), [sum] "=r"(sum), [left] "=&r"((uint64_t){0})
      : [rounds] "r"(rounds)
      : "cc", "v0", "p1");
  (void)argument;
  // Elements that begin as 0, 1, 2 and so on.
  const uint64_t n = VECTOR_BYTES / 8;
  return (void*)(uintptr_t)(elements == n * (uint64_t)rounds && sum == n * (n - 1) / 2 + n * (uint64_t)rounds);
}

int main(int argc, char** argv) {
  const int threads = argc > 1 ? atoi(argv[1]) : 1;
  rounds = argc > 2 ? atol(argv[2]) : 1000;
  pthread_t thread[64];
  int right = 0;
  for (int i = 0; i < threads; ++i)
    if (pthread_create(&thread[i], NULL, run, NULL) != 0) return 1;
  for (int i = 0; i < threads; ++i) {
    void* result;
    pthread_join(thread[i], &result);
    right += result != NULL;
  }
  printf("%d of %d threads right\n", right, threads);
  return right == threads ? 0 : 1;
}
