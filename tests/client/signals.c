// Signals that meet SVE code, by the mode that the argument names. Each loop is one block of code that ends in a branch
// to itself, and nearly all of its time is spent in instructions that are emulated.
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

static volatile sig_atomic_t signals, wrong;

static void spin_until(volatile sig_atomic_t* count, int wanted) {
  __asm__ volatile(
      "1:\n\tadd z0.d, z0.d, #1\n\tadd z1.d, z1.d, #1\n\tadd z2.d, z2.d, #1\n\t"
      "ldr w9, [%0]\n\tcmp w9, %w1\n\tb.lt 1b"
      :
      : "r"(count), "r"(wanted)
      : "cc", "x9", "v0", "v1", "v2", "memory");
}

static void count(int sig) {
  (void)sig;
  ++signals;
}

// Leaves other vectors, predicates and first-fault register than it found.
static void use_sve(int sig) {
  uint64_t sum;
  __asm__ volatile(
      "ptrue p0.b\n\tpfalse p1.b\n\tpfalse p2.b\n\tsetffr\n\twrffr p1.b\n\tindex z0.b, #1, #1\n\tmov z1.b, #7\n\t"
      "mov z31.b, #9\n\tuaddv d0, p0, z1.b\n\tfmov %0, d0"
      : "=r"(sum)
      :
      : "v0", "v1", "v31", "p0", "p1", "p2", "memory");
  if (sum != 7 * VECTOR_BYTES) ++wrong;
  ++signals;
  (void)sig;
}

static void handle(int sig, void (*handler)(int)) {
  struct sigaction action;
  memset(&action, 0, sizeof action);
  action.sa_handler = handler;
  sigaction(sig, &action, NULL);
}

static void every(int microseconds, int interval) {
  const struct itimerval timer = {{0, interval}, {0, microseconds}};
  setitimer(ITIMER_REAL, &timer, NULL);
}

static void* spin(void* argument) {
  spin_until(argument, 1000000000);
  return NULL;
}

static void* nothing(void* argument) {
  uint64_t n;
  __asm__ volatile("cntb %0" : "=r"(n));
  return n == VECTOR_BYTES ? argument : NULL;
}

static char* beyond_the_end(void) {
  FILE* file = tmpfile();  // empty: its page can be mapped, and is no memory
  return mmap(NULL, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fileno(file), 0);
}

int main(int argc, char** argv) {
  const char* mode = argc > 1 ? argv[1] : "";
  const int wanted = argc > 2 ? atoi(argv[2]) : 1;
  if (strcmp(mode, "term") == 0) {  // ends by it
    if (fork() == 0) {
      usleep(300000);
      kill(getppid(), SIGTERM);
      _exit(0);
    }
    spin_until(&signals, 1);
  } else if (strcmp(mode, "alarm") == 0) {
    handle(SIGALRM, count);
    every(100000, 0);
    spin_until(&signals, 1);
    printf("%d alarm\n", signals);
  } else if (strcmp(mode, "storm") == 0) {
    handle(SIGALRM, count);
    every(1000, 1000);
    spin_until(&signals, wanted);
    every(0, 0);
    printf("at least %d alarms\n", wanted);
  } else if (strcmp(mode, "thread") == 0) {
    pthread_t thread;
    handle(SIGUSR1, count);
    volatile sig_atomic_t* const flag = &signals;
    pthread_create(&thread, NULL, (void* (*)(void*))nothing, NULL);
    pthread_join(thread, NULL);
    pthread_create(&thread, NULL, spin, (void*)flag);
    pthread_detach(thread);
    usleep(100000);
    for (int i = 0; i < wanted; ++i) {
      const int before = signals;
      pthread_kill(thread, SIGUSR1);
      while (signals == before) usleep(1000);
    }
    printf("%d signals to the thread\n", signals);
  } else if (strcmp(mode, "handler") == 0) {
    // The interrupted loop's vectors, predicates and first-fault register are as they were.
    handle(SIGALRM, use_sve);
    every(1000, 1000);
    long differences = 0;
    while (signals < wanted) {
      uint64_t lanes, active, first_fault;
      __asm__ volatile(
          "ptrue p0.b\n\tptrue p1.b\n\tptrue p2.b\n\tsetffr\n\tmov z0.b, #1\n\tmov z31.b, #2\n\tmov x9, #400\n"
          "1:\n\tadd z0.b, z0.b, z31.b\n\tsub z0.b, z0.b, z31.b\n\tsubs x9, x9, #1\n\tb.ne 1b\n\t"
          "add z0.b, z0.b, z31.b\n\tuaddv d0, p1, z0.b\n\tfmov %0, d0\n\tcntp %1, p0, p2.b\n\t"
          "rdffr p3.b\n\tcntp %2, p0, p3.b"
          : "=r"(lanes), "=r"(active), "=r"(first_fault)
          :
          : "cc", "x9", "v0", "v31", "p0", "p1", "p2", "p3", "memory");
      differences += lanes != 3 * VECTOR_BYTES || active != VECTOR_BYTES || first_fault != VECTOR_BYTES;
    }
    every(0, 0);
    printf("%ld differences, %d handlers wrong\n", differences, wrong);
  } else if (strcmp(mode, "exit") == 0) {  // while other threads spin
    pthread_t thread;
    for (int i = 0; i < wanted; ++i) pthread_create(&thread, NULL, spin, (void*)&signals);
    usleep(300000);
    printf("exit beside %d threads\n", wanted);
  } else if (strcmp(mode, "threads") == 0) {  // short-lived ones
    int right = 0;
    for (int i = 0; i < wanted; ++i) {
      pthread_t thread;
      void* result = NULL;
      if (pthread_create(&thread, NULL, nothing, &thread) == 0) pthread_join(thread, &result);
      right += result != NULL;
    }
    printf("%d of %d threads right\n", right, wanted);
  } else if (strcmp(mode, "fork") == 0) {  // the child executes one instruction
    for (int i = 0; i < 99; ++i) nothing(NULL);
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) return nothing("") ? 0 : 1;
    int status = 1;
    waitpid(child, &status, 0);
    printf("child: %d\n", status);
  } else if (strcmp(mode, "bus_load") == 0) {
    __asm__ volatile("ptrue p0.b\n\tld1b z0.b, p0/z, [%0]" : : "r"(beyond_the_end()) : "p0", "v0", "memory");
  } else if (strcmp(mode, "bus_store") == 0) {
    __asm__ volatile("ptrue p0.b\n\tst1b z0.b, p0, [%0]" : : "r"(beyond_the_end()) : "p0", "memory");
  } else {
    return 2;
  }
  fflush(stdout);
  return 0;
}
