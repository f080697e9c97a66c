// Copy, fill, reverse, stride and widen at all element sizes, at every length and alignment around a vector.
#include "common.h"

#define N 300

#define FAMILY(suffix, element)                                                                \
  KERNEL void copy_##suffix(element* to, const element* from, size_t n) {                      \
    for (size_t i = 0; i < n; ++i) to[i] = (element)(from[i] ^ 0);                             \
  }                                                                                            \
  KERNEL void fill_##suffix(element* to, element value, size_t n) {                            \
    for (size_t i = 0; i < n; ++i) to[i] = value;                                              \
  }                                                                                            \
  KERNEL void count_##suffix(element* to, element start, size_t n) {                           \
    for (size_t i = 0; i < n; ++i) to[i] = (element)(start + 3 * i);                           \
  }                                                                                            \
  KERNEL void reverse_##suffix(element* restrict to, const element* restrict from, size_t n) { \
    for (size_t i = 0; i < n; ++i) to[i] = from[n - 1 - i];                                    \
  }                                                                                            \
  KERNEL void select_##suffix(element* to, const element* a, const element* b, size_t n) {     \
    for (size_t i = 0; i < n; ++i) to[i] = a[i] < b[i] ? (element)(a[i] + 1) : b[i];           \
  }                                                                                            \
  static void show_##suffix(void) {                                                            \
    static element a[N], b[N], c[N];                                                           \
    uint64_t all = 0, seed = sizeof(element);                                                  \
    for (size_t i = 0; i < N; ++i) a[i] = (element)next_number(&seed);                         \
    for (size_t n = 0; n < 130; n += 1 + n / 9) {                                              \
      memset(b, 0x5a, sizeof b);                                                               \
      memset(c, 0xa5, sizeof c);                                                               \
      copy_##suffix(b + n % 5, a, n);                                                          \
      count_##suffix(c + n % 3, (element)n, n);                                                \
      select_##suffix(b, b, c, n);                                                             \
      fill_##suffix(b + 131, (element)(n * 77), n);                                            \
      reverse_##suffix(c + 131, b, n);                                                         \
      all = all * 31 + digest(b, sizeof b) + digest(c, sizeof c);                              \
    }                                                                                          \
    printf(#suffix ": %016llx\n", (unsigned long long)all);                                    \
  }
FAMILY(u8, uint8_t)
FAMILY(u16, uint16_t)
FAMILY(u32, uint32_t)
FAMILY(u64, uint64_t)

KERNEL void widen(uint64_t* to, const int8_t* from, size_t n) {
  for (size_t i = 0; i < n; ++i) to[i] = (uint64_t)(from[i] * 3);
}
KERNEL void narrow(uint8_t* to, const uint32_t* from, size_t n) {
  for (size_t i = 0; i < n; ++i) to[i] = (uint8_t)(from[i] >> 5);
}

int main(void) {
  show_u8();
  show_u16();
  show_u32();
  show_u64();
  static uint64_t wide[N];
  static uint32_t words[N];
  static uint8_t bytes[N];
  uint64_t seed = 9;
  for (size_t i = 0; i < N; ++i) words[i] = (uint32_t)next_number(&seed);
  narrow(bytes, words, N);
  widen(wide, (const int8_t*)bytes, N);
  printf("widen, narrow: %016llx %016llx\n", (unsigned long long)digest(wide, sizeof wide),
         (unsigned long long)digest(bytes, sizeof bytes));
  return 0;
}
