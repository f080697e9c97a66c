// Smallest and greatest element, and clamping, over all element sizes.
#include "common.h"

#define N 777

#define FAMILY(suffix, element)                                                                    \
  KERNEL element least_##suffix(const element* a, size_t n) {                                      \
    element best = a[0];                                                                           \
    for (size_t i = 0; i < n; ++i) best = a[i] < best ? a[i] : best;                               \
    return best;                                                                                   \
  }                                                                                                \
  KERNEL element greatest_##suffix(const element* a, size_t n) {                                   \
    element best = a[0];                                                                           \
    for (size_t i = 0; i < n; ++i) best = a[i] > best ? a[i] : best;                               \
    return best;                                                                                   \
  }                                                                                                \
  KERNEL void clamp_##suffix(element* to, const element* a, element low, element high, size_t n) { \
    for (size_t i = 0; i < n; ++i) to[i] = a[i] < low ? low : a[i] > high ? high : a[i];           \
  }                                                                                                \
  static void show_##suffix(uint64_t seed) {                                                       \
    static element a[N], b[N];                                                                     \
    for (size_t i = 0; i < N; ++i) a[i] = (element)(next_number(&seed) >> (i % 7));                \
    for (size_t n = 1; n <= N; n = n * 3 + 1) {                                                    \
      const element low = least_##suffix(a, n), high = greatest_##suffix(a, n);                    \
      clamp_##suffix(b, a, (element)(low / 2 + 1), (element)(high / 2), n);                        \
      printf(#suffix " %zu: %lld %lld %016llx\n", n, (long long)low, (long long)high,              \
             (unsigned long long)digest(b, sizeof b));                                             \
    }                                                                                              \
  }
FAMILY(s8, int8_t)
FAMILY(u8, uint8_t)
FAMILY(s16, int16_t)
FAMILY(u16, uint16_t)
FAMILY(s32, int32_t)
FAMILY(u32, uint32_t)
FAMILY(s64, int64_t)
FAMILY(u64, uint64_t)

int main(void) {
  show_s8(1);
  show_u8(2);
  show_s16(3);
  show_u16(4);
  show_s32(5);
  show_u32(6);
  show_s64(7);
  show_u64(8);
  return 0;
}
