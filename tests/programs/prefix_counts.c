// How many elements up to each place satisfy a condition; running sums; places of the matches.
#include <arm_sve.h>

#include "common.h"

#define N 500

// Running sums within a vector by shifted additions, carried from vector to vector.
KERNEL void running_sum(uint32_t* to, const uint32_t* from, size_t n) {
  uint32_t carry = 0;
  for (uint64_t i = 0; i < n; i += svcntw()) {
    const svbool_t pg = svwhilelt_b32_u64(i, n);
    svuint32_t v = svld1_u32(pg, from + i);
    const svuint32_t places = svindex_u32(0, 1);
    for (uint32_t shift = 1; shift < svcntw(); shift *= 2) {
      const svbool_t high = svcmpge_n_u32(pg, places, shift);
      v = svadd_u32_m(high, v, svtbl_u32(v, svsub_n_u32_x(pg, places, shift)));
    }
    v = svadd_n_u32_x(pg, v, carry);
    svst1_u32(pg, to + i, v);
    carry = svlastb_u32(pg, v);
  }
}

KERNEL size_t matches(uint32_t* places, const int16_t* a, int16_t limit, size_t n) {
  size_t count = 0;
  for (size_t i = 0; i < n; ++i)
    if (a[i] < limit) places[count++] = (uint32_t)i;
  return count;
}

KERNEL void counts_before(uint32_t* counts, const int16_t* a, int16_t limit, size_t n) {
  for (size_t i = 0; i < n; ++i) counts[i] = a[i] < limit;
}

KERNEL unsigned count_if(const int16_t* a, int16_t limit, size_t n) {
  unsigned count = 0;
  for (size_t i = 0; i < n; ++i) count += a[i] < limit;
  return count;
}

int main(void) {
  static int16_t a[N];
  static uint32_t flags[N], sums[N], places[N];
  uint64_t seed = 11;
  for (size_t i = 0; i < N; ++i) a[i] = (int16_t)next_number(&seed);
  for (int limit = -30000; limit <= 30000; limit += 12000) {
    counts_before(flags, a, (int16_t)limit, N);
    running_sum(sums, flags, N);
    const size_t count = matches(places, a, (int16_t)limit, N);
    printf("%6d: %u %u %zu %016llx %016llx\n", limit, count_if(a, (int16_t)limit, N), sums[N - 1], count,
           (unsigned long long)digest(sums, sizeof sums), (unsigned long long)digest(places, count * sizeof *places));
  }
  return 0;
}
