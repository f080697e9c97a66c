// A library that the loader relocates before the runner's, and that chooses implementations with SVE code: through a
// function that others see, through one that it keeps to itself, and by the features that the loader and libc tell.
#include <sys/auxv.h>

static unsigned long bytes(void) {
  unsigned long n;
  __asm__ volatile(".arch_extension sve\n\tcntb %0" : "=r"(n));
  return n;
}

static int none(void) { return 0; }
static int seen(void) { return 1; }
typedef int chosen_function(void);

static chosen_function* by_code(void) { return bytes() >= 16 ? seen : none; }
static chosen_function* by_argument(unsigned long features) { return features & HWCAP_SVE ? seen : none; }
static chosen_function* by_question(void) { return getauxval(AT_HWCAP) & HWCAP_SVE ? seen : none; }
static chosen_function* by_own_code(void) { return bytes() >= 16 ? seen : none; }

int choice_by_code(void) __attribute__((ifunc("by_code")));
int choice_by_argument(void) __attribute__((ifunc("by_argument")));
int choice_by_question(void) __attribute__((ifunc("by_question")));
static int own_choice(void) __attribute__((ifunc("by_own_code")));

int early_choices(void) {
  return choice_by_code() + 2 * choice_by_argument() + 4 * choice_by_question() + 8 * own_choice();
}
