// Sums over all element sizes, signed and unsigned, narrow into wide.
#include "common.h"

#define N 1003

#define SUM(name, element, total)                 \
  KERNEL total name(const element* a, size_t n) { \
    total sum = 0;                                \
    for (size_t i = 0; i < n; ++i) sum += a[i];   \
    return sum;                                   \
  }
SUM(sum_u8, uint8_t, uint8_t)
SUM(sum_s16, int16_t, int16_t)
SUM(sum_u32, uint32_t, uint32_t)
SUM(sum_s64, int64_t, int64_t)
SUM(sum_u8_wide, uint8_t, uint64_t)
SUM(sum_s8_wide, int8_t, int64_t)
SUM(sum_u16_wide, uint16_t, uint32_t)
SUM(sum_s32_wide, int32_t, int64_t)

int main(void) {
  static union {
    uint8_t u8[N * 8];
    int8_t s8[N];
    int16_t s16[N];
    uint16_t u16[N];
    uint32_t u32[N];
    int32_t s32[N];
    int64_t s64[N];
  } data;
  uint64_t seed = 1;
  for (size_t i = 0; i < sizeof data.u8; ++i) data.u8[i] = (uint8_t)next_number(&seed);
  const size_t lengths[] = {0, 1, 13, 14, 15, 28, 56, 112, 113, 500, N};
  for (size_t k = 0; k < sizeof lengths / sizeof *lengths; ++k) {
    const size_t n = lengths[k];
    printf("%4zu: %u %d %u %lld %llu %lld %u %lld\n", n, sum_u8(data.u8, n), sum_s16(data.s16, n), sum_u32(data.u32, n),
           (long long)sum_s64(data.s64, n), (unsigned long long)sum_u8_wide(data.u8, n),
           (long long)sum_s8_wide(data.s8, n), sum_u16_wide(data.u16, n), (long long)sum_s32_wide(data.s32, n));
  }
  return 0;
}
