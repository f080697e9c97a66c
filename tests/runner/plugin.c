// A library to be opened at run time.
unsigned long plugin_bytes(void) {
  unsigned long n;
  __asm__ volatile(".arch_extension sve\n\tcntb %0" : "=r"(n));
  return n;
}
// Runs when the library is opened.
unsigned long plugin_halfwords_at_start;
__attribute__((constructor)) static void start(void) {
  __asm__ volatile(".arch_extension sve\n\tcnth %0" : "=r"(plugin_halfwords_at_start));
}
