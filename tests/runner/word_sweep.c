// Executes random words of the vector extension's major opcode and tells of each whether the processor has such an
// instruction. Run on a processor that has the extension it records the answers; run on one that has not, under the
// runner, it compares its own with them.
//
//   word_sweep --write FILE COUNT SEED
//   word_sweep --compare FILE
#include <setjmp.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

enum { page = 4096, batch = 512, scratch_bytes = 1 << 20 };

struct place {
  uint32_t word, stop;
};
static struct place* places;
static char* scratch;
static sigjmp_buf back;
static const uint32_t* running;
static volatile sig_atomic_t executed;

static uint64_t state;
static uint64_t next_random(void) {
  uint64_t z = state += 0x9e3779b97f4a7c15u;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
  return z ^ (z >> 31);
}
static uint32_t next_word(void) {
  uint32_t word = ((uint32_t)next_random() & ~(15u << 25)) | 2u << 25;
  // addvl and addpl into the stack pointer from x30, which holds the word's own address: from the stack pointer
  // instead.
  if ((word & 0xffbff81f) == 0x043e501f) word |= 1u << 16;
  // A store on the stack, below the stack pointer too, where the runner's signal frame lies: elsewhere instead.
  if (word >> 29 == 7 && (word >> 5 & 31) == 31) word &= ~(1u << 5);
  return word;
}

// The word is no instruction if it raises SIGILL itself. A memory fault is that of an instruction.
static void on_signal(int sig, siginfo_t* info, void* context) {
  (void)info;
  const uint32_t* pc = (const uint32_t*)((ucontext_t*)context)->uc_mcontext.pc;
  if (pc != running && pc != running + 1) {
    signal(sig, SIG_DFL);
    return;
  }
  executed = sig != SIGILL;
  siglongjmp(back, 1);
}

// All general registers point into the scratch memory, and so does the stack pointer, into another part of it, where
// the handlers run; vectors are zero as far as the host knows.
static void jump(const uint32_t* at) {
  __asm__ volatile(
      "mov x30, %0\n"
      "mov sp, %1\n"
      "mov x29, %2\n"
      ".irp n, 0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,29\n"
      "mov x\\n, x29\n"
      "movi v\\n\\().2d, #0\n"
      ".endr\n"
      "br x30\n" ::"r"(at),
      "r"(scratch + scratch_bytes / 4 * 3), "r"(scratch + scratch_bytes / 4)
      : "memory", "x29", "x30");
  __builtin_unreachable();
}

static int is_executed(const uint32_t* at) {
  running = at;
  if (sigsetjmp(back, 1) == 0) jump(at);
  return executed;
}

// Words that are instructions on one of the two alone, each group with its reason.
static struct {
  uint32_t mask, value;
  const char* reason;
  unsigned long fired;
} exceptions[] = {
    {0xff20c000, 0x4420c000, "the emulated processor has indexed multiplications of SVE2 although it is one without",
     0},
};

static int is_excepted(uint32_t word) {
  for (unsigned i = 0; i < sizeof exceptions / sizeof *exceptions; ++i)
    if ((word & exceptions[i].mask) == exceptions[i].value) return exceptions[i].fired++, 1;
  return 0;
}

static int fail(const char* what) {
  perror(what);
  return 2;
}

int main(int argc, char** argv) {
  const int writes = argc == 5 && strcmp(argv[1], "--write") == 0;
  if (!writes && !(argc == 3 && strcmp(argv[1], "--compare") == 0)) {
    fputs("usage: word_sweep --write FILE COUNT SEED | --compare FILE\n", stderr);
    return 2;
  }
  FILE* file = fopen(argv[2], writes ? "wb" : "rb");
  if (!file) return fail(argv[2]);
  uint64_t header[2] = {0, 0};  // count and seed
  if (writes) {
    header[0] = strtoull(argv[3], NULL, 0);
    header[1] = strtoull(argv[4], NULL, 0);
    fwrite(header, sizeof header, 1, file);
  } else if (fread(header, sizeof header, 1, file) != 1) {
    return fail(argv[2]);
  }
  state = header[1];

  places = mmap(NULL, batch * sizeof *places, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  scratch = mmap(NULL, scratch_bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  struct sigaction action = {.sa_sigaction = on_signal, .sa_flags = SA_SIGINFO};
  if (places == MAP_FAILED || scratch == MAP_FAILED) return fail("word_sweep");
  const int signals[] = {SIGILL, SIGSEGV, SIGBUS, SIGTRAP};
  for (unsigned i = 0; i < 4; ++i) sigaction(signals[i], &action, NULL);

  unsigned long differ = 0, count_executed = 0;
  for (uint64_t done = 0; done < header[0]; done += batch) {
    const unsigned n = header[0] - done < batch ? (unsigned)(header[0] - done) : batch;
    // Read-only while they run: a stray store of one word must not change the next.
    mprotect(places, batch * sizeof *places, PROT_READ | PROT_WRITE);
    for (unsigned i = 0; i < n; ++i) places[i] = (struct place){next_word(), 0xd4200000};  // brk #0
    mprotect(places, batch * sizeof *places, PROT_READ | PROT_EXEC);
    __builtin___clear_cache((char*)places, (char*)(places + n));
    for (unsigned i = 0; i < n; ++i) {
      const int here = is_executed(&places[i].word);
      count_executed += (unsigned)here;
      if (writes) {
        fputc(here, file);
        continue;
      }
      const int there = fgetc(file);
      if (there == EOF) return fail(argv[2]);
      if (here == there || is_excepted(places[i].word)) continue;
      if (++differ <= 40)
        printf("0x%08x: %s here, %s on the processor\n", places[i].word, here ? "executed" : "illegal",
               there ? "executed" : "illegal");
    }
  }
  if (fclose(file)) return fail(argv[2]);
  printf("%lu words, %lu of them executed", (unsigned long)header[0], count_executed);
  if (!writes) printf(", %lu differ", differ);
  putchar('\n');
  for (unsigned i = 0; !writes && i < sizeof exceptions / sizeof *exceptions; ++i)
    printf("%8lu excepted: %s\n", exceptions[i].fired, exceptions[i].reason);
  return differ != 0;
}
