// Histograms: the bins computed and counted in vectors, with a pass over the data for each bin.
#include "common.h"

#define N 2000
#define BINS 16

KERNEL void bins_of(uint16_t* bins, const uint16_t* a, uint16_t width, size_t n) {
  for (size_t i = 0; i < n; ++i) bins[i] = (uint16_t)(a[i] / width < BINS ? a[i] / width : BINS - 1);
}

KERNEL uint32_t count_equal(const uint16_t* bins, uint16_t bin, size_t n) {
  uint32_t count = 0;
  for (size_t i = 0; i < n; ++i) count += bins[i] == bin;
  return count;
}

KERNEL void scatter(uint32_t* counts, const uint16_t* bins, size_t n) {
  for (size_t i = 0; i < n; ++i) ++counts[bins[i]];
}

KERNEL uint32_t differences(const uint32_t* a, const uint32_t* b, size_t n) {
  uint32_t total = 0;
  for (size_t i = 0; i < n; ++i) total += a[i] > b[i] ? a[i] - b[i] : b[i] - a[i];
  return total;
}

int main(void) {
  static uint16_t a[N], bins[N];
  uint64_t seed = 21;
  for (size_t i = 0; i < N; ++i) a[i] = (uint16_t)(next_number(&seed) % 1000);
  for (uint16_t width = 10; width < 200; width = (uint16_t)(width * 2 + 1)) {
    uint32_t counted[BINS] = {0}, scattered[BINS] = {0};
    bins_of(bins, a, width, N);
    for (uint16_t bin = 0; bin < BINS; ++bin) counted[bin] = count_equal(bins, bin, N);
    scatter(scattered, bins, N);
    printf("%3u:", width);
    for (int bin = 0; bin < BINS; ++bin) printf(" %u", counted[bin]);
    printf(" (%u differ)\n", differences(counted, scattered, BINS));
  }
  return 0;
}
