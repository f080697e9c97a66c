// Integer matrix products in two widths.
#include "common.h"

#define N 37

KERNEL void multiply_s32(int32_t c[restrict N][N], int32_t a[restrict N][N], int32_t b[restrict N][N]) {
  for (int i = 0; i < N; ++i)
    for (int k = 0; k < N; ++k)
      for (int j = 0; j < N; ++j) c[i][j] += a[i][k] * b[k][j];
}

KERNEL void multiply_s16(int64_t c[restrict N][N], int16_t a[restrict N][N], int16_t b[restrict N][N]) {
  for (int i = 0; i < N; ++i)
    for (int k = 0; k < N; ++k)
      for (int j = 0; j < N; ++j) c[i][j] += (int64_t)a[i][k] * b[k][j];
}

int main(void) {
  static int32_t a[N][N], b[N][N], c[N][N];
  static int16_t d[N][N], e[N][N];
  static int64_t f[N][N];
  uint64_t seed = 5;
  for (int i = 0; i < N; ++i) {
    for (int j = 0; j < N; ++j) {
      a[i][j] = (int32_t)next_number(&seed);
      b[i][j] = (int32_t)next_number(&seed);
      d[i][j] = (int16_t)next_number(&seed);
      e[i][j] = (int16_t)next_number(&seed);
    }
  }
  multiply_s32(c, a, b);
  multiply_s16(f, d, e);
  long long trace = 0;
  for (int i = 0; i < N; ++i) trace += c[i][i] + f[i][i];
  printf("%lld %016llx %016llx\n", trace, (unsigned long long)digest(c, sizeof c),
         (unsigned long long)digest(f, sizeof f));
  return 0;
}
