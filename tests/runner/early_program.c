// SVE before main: where the loader chooses implementations, and in all kinds of constructors. Prints what each saw.
#include <stdio.h>
#include <sys/auxv.h>
#include <sys/mman.h>

static inline unsigned long bytes(void) {
  unsigned long n;
  __asm__ volatile(".arch_extension sve\n\tcntb %0" : "=r"(n));
  return n;
}

static int one(void) { return 1; }
static int two(void) { return 2; }
static int (*choose(unsigned long features))(void) { return bytes() >= 16 && features & HWCAP_SVE ? two : one; }
int chosen(void) __attribute__((ifunc("choose")));

static unsigned long before_all, before_main;
static void preinitialise(void) { before_all = bytes(); }
__attribute__((section(".preinit_array"), used)) static void (*preinitialiser)(void) = preinitialise;
__attribute__((constructor)) static void initialise(void) { before_main = bytes(); }

int early_choices(void);
extern unsigned long early_library_bytes __attribute__((weak));

int main(void) {
  printf("%d %d %lu %lu %lu %lu\n", chosen(), early_choices(), before_all,
         &early_library_bytes ? early_library_bytes : 0, before_main, bytes());
  return 0;
}
