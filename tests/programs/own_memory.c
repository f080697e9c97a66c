// A program whose own memcpy, memset and strlen are SVE code, and replace libc's for every library.
#include <stddef.h>
#include <string.h>

#include "common.h"

void* memcpy(void* to, const void* from, size_t n) {
  char* restrict d = to;
  const char* restrict s = from;
  for (size_t i = 0; i < n; ++i) d[i] = s[i];
  return to;
}

void* memset(void* to, int value, size_t n) {
  char* d = to;
  for (size_t i = 0; i < n; ++i) d[i] = (char)value;
  return to;
}

size_t strlen(const char* text) {
  size_t n = 0;
  asm volatile(
      ".arch_extension sve\n"
      "ptrue p0.b\n"
      "setffr\n"
      "1: ldff1b {z0.b}, p0/z, [%1, %0]\n"
      "rdffr p1.b\n"
      "cmpeq p2.b, p1/z, z0.b, #0\n"
      "b.any 2f\n"
      "incp %0, p1.b\n"
      "setffr\n"
      "b 1b\n"
      "2: brkb p2.b, p1/z, p2.b\n"
      "incp %0, p2.b\n"
      : "+r"(n)
      : "r"(text)
      : "v0", "memory", "cc");
  return n;
}

int main(void) {
  char text[1000], copy[1000];
  memset(text, 'x', sizeof text);
  for (size_t n = 0; n < sizeof text; n += 37) {
    text[n] = 0;
    memcpy(copy, text, sizeof text);
    printf("%zu %zu %d\n", strlen(text), strlen(copy), memcmp(text, copy, sizeof text));
    text[n] = 'x';
  }
  return 0;
}
