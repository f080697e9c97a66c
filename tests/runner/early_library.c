// A library that comes before the runner's: linked with -z initfirst, or preloaded by the user.
static unsigned long bytes(void) {
  unsigned long n;
  __asm__ volatile(".arch_extension sve\n\tcntb %0" : "=r"(n));
  return n;
}

unsigned long early_library_bytes;
__attribute__((constructor)) static void start(void) { early_library_bytes = bytes(); }
