// A random program of what is hard for a runner: SVE arithmetic in several threads under a storm of timers whose
// handlers use SVE themselves, loads that fault and are mended, first-fault loads, memory that other threads unmap,
// copies of the process, new programs, small alternate stacks, jumps out of handlers. It prints a digest of all that
// does not depend on when things happen, so that a run on a processor with SVE and one under the runner must print the
// same.
//
//     torture SEED [ROUNDS [race]]
//
// With "race" non-fault loads race with other threads that take away what they read. That is apart, since an emulated
// processor with SVE may die of it.
#include <errno.h>
#include <pthread.h>
#include <sched.h>
#include <setjmp.h>
#include <signal.h>
#include <spawn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>

#include "sve/state/built_length.h"

extern char** environ;

namespace {

constexpr size_t vector_bytes = SVE_VECTOR_BITS / 8, predicate_bytes = vector_bytes / 8, page = 4096;
constexpr int thread_count = 3;

#define SVE(text) ".arch_extension sve\n" text

struct Random {
  uint64_t state;
  uint64_t next() {
    state = state * 6364136223846793005u + 1442695040888963407u;
    return state >> 20;
  }
  uint64_t below(uint64_t n) { return next() % n; }
};

uint64_t digest(const void* data, size_t size, uint64_t hash) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  for (size_t i = 0; i < size; ++i) hash = (hash ^ bytes[i]) * 1099511628211u;
  return hash;
}

[[noreturn]] void fail(const char* what) {
  printf("FAILED: %s\n", what);
  fflush(stdout);
  _exit(3);
}

// ---- SVE code ----

struct alignas(16) Values {
  uint8_t z[8][vector_bytes];
  uint8_t p[4][predicate_bytes + 2];
};

// Loads Z0 to Z7 and P0 to P3, turns them over `rounds` times in some of the ways that the bits of `choice` say, and
// stores them. All is in registers for as long as it takes, so that signals meet it there.
uint64_t turn_over(Values* v, uint64_t rounds, uint64_t choice) {
  uint64_t sum = choice;
  asm volatile(SVE("ptrue p4.b\n"
                   "setffr\n"
                   "ldr z0, [%3]\n ldr z1, [%3, #1, mul vl]\n ldr z2, [%3, #2, mul vl]\n ldr z3, [%3, #3, mul vl]\n"
                   "ldr z4, [%3, #4, mul vl]\n ldr z5, [%3, #5, mul vl]\n ldr z6, [%3, #6, mul vl]\n"
                   "ldr z7, [%3, #7, mul vl]\n"
                   "ldr p0, [%4]\n ldr p1, [%5]\n ldr p2, [%6]\n ldr p3, [%7]\n"
                   "1:\n"
                   "add z0.s, p0/m, z0.s, z1.s\n"
                   "mla z2.h, p1/m, z3.h, z4.h\n"
                   "tbz %1, #0, 2f\n"
                   "eor z5.d, z5.d, z0.d\n"
                   "ext z6.b, z6.b, z5.b, #5\n"
                   "2:\n"
                   "tbz %1, #1, 3f\n"
                   "zip1 z7.b, z7.b, z2.b\n"
                   "uqadd z1.b, z1.b, z7.b\n"
                   "3:\n"
                   "tbz %1, #2, 4f\n"
                   "cmphi p2.b, p4/z, z0.b, z1.b\n"
                   "incp %0, p2.b\n"
                   "sel z3.b, p2, z3.b, z6.b\n"
                   "4:\n"
                   "tbz %1, #3, 5f\n"
                   "scvtf z4.s, p4/m, z1.s\n"
                   "fmla z4.s, p4/m, z4.s, z4.s\n"
                   "fcmgt p3.s, p4/z, z4.s, #0.0\n"
                   "5:\n"
                   "tbz %1, #4, 6f\n"
                   "rev z3.h, z3.h\n"
                   "uaddv d16, p1, z0.s\n"
                   "lasta x9, p3, z5.d\n"
                   "add %0, %0, x9\n"
                   "fmov x9, d16\n"
                   "eor %0, %0, x9\n"
                   "6:\n"
                   "rdffr p1.b, p4/z\n"
                   "brkb p0.b, p4/z, p2.b\n"
                   "orr p0.b, p4/z, p0.b, p3.b\n"
                   "add %0, %0, %0, lsr #7\n"
                   "ror %1, %1, #5\n"
                   "subs %2, %2, #1\n"
                   "b.ne 1b\n"
                   "str z0, [%3]\n str z1, [%3, #1, mul vl]\n str z2, [%3, #2, mul vl]\n str z3, [%3, #3, mul vl]\n"
                   "str z4, [%3, #4, mul vl]\n str z5, [%3, #5, mul vl]\n str z6, [%3, #6, mul vl]\n"
                   "str z7, [%3, #7, mul vl]\n"
                   "str p0, [%4]\n str p1, [%5]\n str p2, [%6]\n str p3, [%7]\n")
               : "+r"(sum), "+r"(choice), "+r"(rounds)
               : "r"(v->z), "r"(v->p[0]), "r"(v->p[1]), "r"(v->p[2]), "r"(v->p[3])
               : "x9", "v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7", "v16", "cc", "memory");
  return sum;
}

uint64_t arithmetic(Random& random, uint64_t most_rounds = 40) {
  Values v;
  for (auto& z : v.z)
    for (auto& byte : z) byte = static_cast<uint8_t>(random.next());
  for (auto& p : v.p)
    for (auto& byte : p) byte = static_cast<uint8_t>(random.next());
  const uint64_t rounds = 1 + random.below(most_rounds);
  const uint64_t sum = turn_over(&v, rounds, random.next());
  return digest(&v, sizeof v, sum);
}

// What a handler leaves in the registers must be nobody's but its own.
void clobber(uint64_t byte) {
  asm volatile(SVE("ptrue p0.b\n pfalse p1.b\n pfalse p2.b\n pfalse p3.b\n ptrue p4.h\n wrffr p1.b\n"
                   "dup z0.b, %w0\n dup z1.b, %w0\n dup z2.b, %w0\n dup z3.b, %w0\n dup z4.b, %w0\n dup z5.b, %w0\n"
                   "dup z6.b, %w0\n dup z7.b, %w0\n")
               :
               : "r"(byte)
               : "v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7", "memory");
}

// The length of a text, by first-fault loads: what lies behind it may not be there.
uint64_t length_of(const char* text) {
  uint64_t n = 0;
  asm volatile(SVE("ptrue p0.b\n"
                   "1: setffr\n"
                   "ldff1b {z0.b}, p0/z, [%1, %0]\n"
                   "rdffr p1.b, p0/z\n"
                   "cmpeq p2.b, p1/z, z0.b, #0\n"
                   "b.any 2f\n"
                   "incp %0, p1.b\n"
                   "b 1b\n"
                   "2: brkb p2.b, p1/z, p2.b\n"
                   "incp %0, p2.b\n")
               : "+r"(n)
               : "r"(text)
               : "v0", "cc", "memory");
  return n;
}

// ---- Memory that is not there at first ----

// Pages that the handler of faults makes there, with a pattern that follows from the address.
struct LazyPages {
  unsigned char* begin;
  size_t size;
};
thread_local LazyPages lazy __attribute__((tls_model("initial-exec")));
thread_local sigjmp_buf escape __attribute__((tls_model("initial-exec")));
thread_local volatile sig_atomic_t escapes __attribute__((tls_model("initial-exec")));

void fill_page(unsigned char* at) {
  for (size_t i = 0; i < page; ++i) at[i] = static_cast<unsigned char>(i * 7 + (i >> 8));
}

void mend(int, siginfo_t* info, void*) {
  auto* at = static_cast<unsigned char*>(info->si_addr);
  if (escapes) siglongjmp(escape, 1);
  if (at < lazy.begin || at >= lazy.begin + lazy.size) {
    static const char text[] = "FAILED: a fault of nobody's\n";
    if (write(STDOUT_FILENO, text, sizeof text - 1) < 0) _exit(4);
    _exit(3);
  }
  auto* begin = reinterpret_cast<unsigned char*>(reinterpret_cast<uintptr_t>(at) & ~(page - 1));
  mprotect(begin, page, PROT_READ | PROT_WRITE);
  fill_page(begin);
  clobber(0x55);
}

uint64_t mended_faults(Random& random) {
  auto* memory = static_cast<unsigned char*>(mmap(nullptr, 4 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  lazy = {memory, 4 * page};
  uint64_t sum = 0;
  for (int i = 0; i < 6; ++i) {
    unsigned char out[2 * vector_bytes];
    const unsigned char* const from = memory + random.below(4 * page - 2 * vector_bytes);
    const uint64_t base = reinterpret_cast<uintptr_t>(memory), step = 8 + 8 * random.below(120);
    asm volatile(SVE("ptrue p0.b\n"
                     "ld1b {z0.b}, p0/z, [%1]\n"
                     "index z1.d, #0, %3\n"
                     "ld1d {z1.d}, p0/z, [%2, z1.d]\n"  // into its own offsets
                     "add z0.b, z0.b, z1.b\n"
                     "str z0, [%0]\n str z1, [%0, #1, mul vl]\n")
                 :
                 : "r"(out), "r"(from), "r"(base), "r"(step)
                 : "v0", "v1", "memory");
    sum = digest(out, sizeof out, sum);
    unsigned char* const to = memory + random.below(4 * page - vector_bytes);
    asm volatile(SVE("ptrue p0.h\n dup z2.h, %w1\n st1h {z2.h}, p0, [%0]\n")
                 :
                 : "r"(reinterpret_cast<uintptr_t>(to) & ~uintptr_t{1}), "r"(i)
                 : "v2", "memory");
    if (i % 2) mprotect(memory + random.below(4) * page, page, PROT_NONE);
  }
  mprotect(memory, 4 * page, PROT_READ);
  munmap(memory, 4 * page);
  lazy = {};
  return sum;
}

uint64_t text_at_the_end(Random& random) {
  auto* memory =
      static_cast<char*>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  mprotect(memory + page, page, PROT_NONE);
  const uint64_t length = random.below(600);
  char* const text = memory + page - 1 - length;
  memset(text, 'x', length);
  const uint64_t found = length_of(text);
  munmap(memory, 2 * page);
  if (found != length) fail("the length of a text at the end of memory");
  return found;
}

// Loads that race with the unmapping of what they read: whatever they find, it is the pattern, and nobody dies.
void racing_loads() {
  auto* memory =
      static_cast<unsigned char*>(mmap(nullptr, page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  memset(memory, 'r', page);
  std::atomic<bool> done{false};
  struct Race {
    unsigned char* memory;
    std::atomic<bool>* done;
  } both{memory, &done};
  pthread_t other;
  pthread_create(
      &other, nullptr,
      [](void* argument) -> void* {
        auto* r = static_cast<Race*>(argument);
        for (int i = 0; i < 30; ++i) {
          mprotect(r->memory, page, PROT_NONE);
          sched_yield();
          mprotect(r->memory, page, PROT_READ);
        }
        *r->done = true;
        return nullptr;
      },
      &both);
  while (!done) {
    unsigned char out[2 * vector_bytes];
    uint8_t loaded[predicate_bytes + 2];
    asm volatile(SVE("ptrue p0.b\n setffr\n"
                     "ldnf1b {z0.b}, p0/z, [%1]\n"
                     "rdffr p1.b\n"
                     "str z0, [%0]\n str p1, [%2]\n")
                 :
                 : "r"(out), "r"(memory), "r"(loaded)
                 : "v0", "memory");
    // Memory may come back in the middle of the load, and then it goes on loading.
    for (size_t i = 0; i < vector_bytes; ++i)
      if ((loaded[i / 8] >> (i % 8) & 1) && out[i] != 'r') fail("a non-fault load found what was never there");
  }
  pthread_join(other, nullptr);
  munmap(memory, page);
}

// ---- Signals ----

std::atomic<uint64_t> ticks{0};

std::atomic<bool> ticking{true};

// Once a millisecond, but armed anew each time, so that the program gets on however slow the machine is.
void arm_timer(int which) {
  const itimerval soon{{0, 0}, {0, 1000}};
  if (ticking) setitimer(which, &soon, nullptr);
}

void tick(int sig) {
  Random random{77};
  const uint64_t first = arithmetic(random, 3);
  Random again{77};
  clobber(0x11);
  if (arithmetic(again, 3) != first) {
    static const char text[] = "FAILED: SVE in a handler\n";
    if (write(STDOUT_FILENO, text, sizeof text - 1) < 0) _exit(4);
    _exit(3);
  }
  clobber(0x22);
  ++ticks;
  arm_timer(sig == SIGALRM ? ITIMER_REAL : ITIMER_PROF);
}

thread_local volatile uint64_t in_handler __attribute__((tls_model("initial-exec")));

void on_small_stack(int) {
  Random random{5};
  in_handler = arithmetic(random);
}

void leaves_by_jump(int) {
  clobber(0x33);
  siglongjmp(escape, 2);
}

uint64_t signals(Random& random) {
  // The least that a processor with SVE at this length needs, and what the handler itself does.
  const size_t size = static_cast<size_t>(sysconf(_SC_MINSIGSTKSZ)) + 4096;
  auto* memory = static_cast<unsigned char*>(
      mmap(nullptr, size + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  memset(memory, 0xab, page);
  stack_t stack{}, before;
  stack.ss_sp = memory + page;
  stack.ss_size = size;
  sigaltstack(&stack, &before);
  pthread_kill(pthread_self(), SIGUSR1);
  uint64_t sum = in_handler;
  sigset_t blocked, old;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  sigaddset(&blocked, SIGALRM);
  pthread_sigmask(SIG_BLOCK, &blocked, &old);
  in_handler = 0;
  pthread_kill(pthread_self(), SIGUSR1);
  sum += arithmetic(random);
  if (in_handler != 0) fail("a blocked signal was delivered");
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  if (in_handler == 0) fail("a signal that waited was lost");
  if (sigsetjmp(escape, 1) == 0) {
    pthread_kill(pthread_self(), SIGUSR2);
    fail("a jump out of a handler");
  }
  if (sigsetjmp(escape, 1) == 0) {
    escapes = 1;
    asm volatile(SVE("ptrue p0.b\n ld1b {z0.b}, p0/z, [%0]\n") : : "r"(8) : "v0", "memory");
    fail("a load from nowhere");
  }
  escapes = 0;
  sigaltstack(&before, nullptr);
  for (size_t i = 0; i < page; ++i)
    if (memory[i] != 0xab) fail("an alternate stack was overrun");
  munmap(memory, size + page);
  return sum + arithmetic(random);
}

// ---- Processes ----

int wait_for(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

uint64_t copy_of_process(Random& random) {
  const uint64_t seed = random.next();
  const pid_t child = fork();
  if (child == 0) {
    Random own{seed};
    _exit(static_cast<int>(arithmetic(own) & 0x7f));
  }
  Random own{seed};
  const int expected = static_cast<int>(arithmetic(own) & 0x7f), status = wait_for(child);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != expected) fail("a copy of the process differs");
  return static_cast<uint64_t>(expected);
}

uint64_t new_program(Random& random, char* self) {
  char seed[32];
  const uint64_t number = random.next();
  snprintf(seed, sizeof seed, "%llu", static_cast<unsigned long long>(number));
  char mode[] = "--child";
  char* arguments[] = {self, mode, seed, nullptr};
  pid_t child = 0;
  if (number % 2 == 0) {
    if (posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, arguments, environ) != 0) fail("posix_spawn");
  } else if ((child = vfork()) == 0) {
    execve("/proc/self/exe", arguments, environ);
    _exit(99);
  }
  Random own{number};
  const int expected = static_cast<int>(arithmetic(own) & 0x7f), status = wait_for(child);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != expected) fail("a new program differs");
  return static_cast<uint64_t>(expected);
}

// ---- The program ----

struct Work {
  uint64_t seed, rounds, sum;
  char* self;
  bool races;
};

void* run(void* argument) {
  auto* w = static_cast<Work*>(argument);
  Random random{w->seed};
  for (uint64_t i = 0; i < w->rounds; ++i) {
    switch (random.below(16)) {
      case 0:
        w->sum += copy_of_process(random);
        break;
      case 1:
        w->sum += i % 4 == 0 ? new_program(random, w->self) : arithmetic(random);
        break;
      case 2:
      case 3:
        w->sum += mended_faults(random);
        break;
      case 4:
      case 5:
        w->sum += text_at_the_end(random);
        break;
      case 6:
        if (w->races) racing_loads();
        break;
      case 7:
      case 8:
        w->sum += signals(random);
        break;
      default:
        w->sum += arithmetic(random);
        break;
    }
    w->sum = w->sum * 31 + i;
  }
  return nullptr;
}

void install(int sig, void (*handler)(int), int flags) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigaddset(&action.sa_mask, SIGALRM);
  sigaddset(&action.sa_mask, SIGPROF);
  sigaction(sig, &action, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2 && strcmp(argv[1], "--child") == 0) {
    Random random{strtoull(argv[2], nullptr, 10)};
    return static_cast<int>(arithmetic(random) & 0x7f);
  }
  const uint64_t seed = argc > 1 ? strtoull(argv[1], nullptr, 10) : 1;
  const uint64_t rounds = argc > 2 ? strtoull(argv[2], nullptr, 10) : 40;
  const bool races = argc > 3;
  install(SIGALRM, tick, SA_RESTART);
  install(SIGPROF, tick, SA_RESTART);
  install(SIGUSR1, on_small_stack, SA_ONSTACK);
  install(SIGUSR2, leaves_by_jump, 0);
  struct sigaction faults {};
  faults.sa_sigaction = mend;
  faults.sa_flags = SA_SIGINFO | (seed % 2 ? SA_NODEFER : 0);
  sigaction(SIGSEGV, &faults, nullptr);
  arm_timer(ITIMER_REAL);
  arm_timer(ITIMER_PROF);

  Work all[thread_count];
  pthread_t threads[thread_count];
  for (int i = 0; i < thread_count; ++i) {
    all[i] = {seed * 1000 + static_cast<uint64_t>(i), rounds, 0, argv[0], races};
    pthread_create(&threads[i], nullptr, run, &all[i]);
  }
  uint64_t sum = 0;
  for (int i = 0; i < thread_count; ++i) {
    pthread_join(threads[i], nullptr);
    sum = sum * 1000003 + all[i].sum;
  }
  ticking = false;  // one more may come
  if (ticks == 0) fail("no timer came");
  printf("seed %llu: %016llx\n", static_cast<unsigned long long>(seed), static_cast<unsigned long long>(sum));
  return 0;
}
