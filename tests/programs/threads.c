// Threads that each work on vectors of their own, and hand sums over.
#include <pthread.h>
#include <sched.h>

#include "common.h"

#define N 400
#define THREADS 5
#define ROUNDS 6

struct work {
  int number;
  uint32_t data[N];
  uint64_t result;
};

KERNEL void step(uint32_t* a, uint32_t factor, size_t n) {
  for (size_t i = 0; i < n; ++i) a[i] = a[i] * factor + (uint32_t)i;
}

KERNEL uint64_t total(const uint32_t* a, size_t n) {
  uint64_t sum = 0;
  for (size_t i = 0; i < n; ++i) sum += a[i];
  return sum;
}

static void* run(void* argument) {
  struct work* w = (struct work*)argument;
  for (size_t i = 0; i < N; ++i) w->data[i] = (uint32_t)(i * (size_t)w->number);
  for (int round = 0; round < ROUNDS; ++round) {
    step(w->data, (uint32_t)(w->number * 2 + 1), N);
    w->result = w->result * 3 + total(w->data, N);
    sched_yield();
  }
  return w;
}

int main(void) {
  static struct work works[THREADS];
  // Two generations: the second one's threads take the places of threads that have ended.
  for (int generation = 0; generation < 2; ++generation) {
    pthread_t threads[THREADS];
    for (int t = 0; t < THREADS; ++t) {
      works[t].number = t + 1;
      if (pthread_create(&threads[t], NULL, run, &works[t]) != 0) return 1;
    }
    for (int t = 0; t < THREADS; ++t) pthread_join(threads[t], NULL);
    for (int t = 0; t < THREADS; ++t) printf("%d %d: %llu\n", generation, t, (unsigned long long)works[t].result);
  }
  return 0;
}
