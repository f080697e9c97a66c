// Complex multiplication and addition by the instructions for them, and by indexed multiply-add.
#include <arm_sve.h>

#include "common.h"

#define N 150

KERNEL void multiply_add(float* acc, const float* a, const float* b, size_t n) {
  for (size_t i = 0; i < n; i += svcntw()) {
    const svbool_t p = svwhilelt_b32_u64(i, n);
    svfloat32_t r = svld1_f32(p, acc + i);
    const svfloat32_t x = svld1_f32(p, a + i), y = svld1_f32(p, b + i);
    r = svcmla_f32_m(p, r, x, y, 0);
    r = svcmla_f32_m(p, r, x, y, 90);
    svst1_f32(p, acc + i, r);
  }
}

KERNEL void rotate_add(double* acc, const double* a, size_t n) {
  for (size_t i = 0; i < n; i += svcntd()) {
    const svbool_t p = svwhilelt_b64_u64(i, n);
    const svfloat64_t x = svld1_f64(p, a + i);
    svst1_f64(p, acc + i, svcadd_f64_m(p, svcadd_f64_m(p, svld1_f64(p, acc + i), x, 90), x, 270));
  }
}

KERNEL void lanes(float* acc, const float* a, const float* b, size_t n) {
  for (size_t i = 0; i < n; i += svcntw()) {
    const svbool_t p = svwhilelt_b32_u64(i, n);
    svfloat32_t r = svld1_f32(p, acc + i);
    const svfloat32_t x = svld1_f32(p, a + i), y = svld1_f32(p, b + i);
    r = svmla_lane_f32(r, x, y, 2);
    r = svmls_lane_f32(r, y, x, 1);
    r = svcmla_lane_f32(r, x, y, 1, 180);
    svst1_f32(p, acc + i, svmul_lane_f32(r, y, 3));
  }
}

int main(void) {
  static float a[2 * N], b[2 * N], c[2 * N];
  static double d[2 * N], e[2 * N];
  uint64_t seed = 9;
  for (size_t i = 0; i < 2 * N; ++i) {
    a[i] = (float)(next_number(&seed) % 1000) / 37.0f - 13.0f;
    b[i] = (float)(next_number(&seed) % 1000) / 41.0f - 11.0f;
    c[i] = 0.5f;
    d[i] = a[i];
    e[i] = b[i];
  }
  for (size_t n = 2; n <= 2 * N; n += 62) {
    multiply_add(c, a, b, n);
    rotate_add(d, e, n);
    printf("%zu: %a %a %016llx %016llx\n", n, (double)c[0], (double)c[1], (unsigned long long)digest(c, sizeof c),
           (unsigned long long)digest(d, sizeof d));
    lanes(c, a, b, n);
    printf("    %016llx\n", (unsigned long long)digest(c, sizeof c));
  }
  return 0;
}
