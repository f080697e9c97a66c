// Dot products: same width, narrow into wide, and the weighted sum of three arrays.
#include "common.h"

#define N 611

#define DOT(name, element, total)                                    \
  KERNEL total name(const element* a, const element* b, size_t n) {  \
    total sum = 0;                                                   \
    for (size_t i = 0; i < n; ++i) sum += (total)a[i] * (total)b[i]; \
    return sum;                                                      \
  }
DOT(dot_s8, int8_t, int32_t)
DOT(dot_u8, uint8_t, uint32_t)
DOT(dot_s16, int16_t, int64_t)
DOT(dot_u16, uint16_t, uint64_t)
DOT(dot_s32, int32_t, int32_t)
DOT(dot_u32, uint32_t, uint64_t)
DOT(dot_u64, uint64_t, uint64_t)

KERNEL void multiply_add(int32_t* to, const int32_t* a, const int32_t* b, int32_t factor, size_t n) {
  for (size_t i = 0; i < n; ++i) to[i] = a[i] * b[i] - factor * to[i];
}

int main(void) {
  static uint64_t a[N], b[N], c[N];
  uint64_t seed = 3;
  for (size_t i = 0; i < N; ++i) {
    a[i] = next_number(&seed) * 0x10001;
    b[i] = next_number(&seed) * 0x10003;
    c[i] = next_number(&seed);
  }
  for (size_t n = 0; n <= N; n = n * 2 + 3) {
    printf("%3zu: %d %u %lld %llu %d %llu %llu\n", n, dot_s8((int8_t*)a, (int8_t*)b, n),
           dot_u8((uint8_t*)a, (uint8_t*)b, n), (long long)dot_s16((int16_t*)a, (int16_t*)b, n),
           (unsigned long long)dot_u16((uint16_t*)a, (uint16_t*)b, n), dot_s32((int32_t*)a, (int32_t*)b, n),
           (unsigned long long)dot_u32((uint32_t*)a, (uint32_t*)b, n), (unsigned long long)dot_u64(a, b, n));
    multiply_add((int32_t*)c, (int32_t*)a, (int32_t*)b, 5, n);
    printf("     %016llx\n", (unsigned long long)digest(c, sizeof c));
  }
  return 0;
}
