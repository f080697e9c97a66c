// Compiled floating-point loops in double, float and half precision: axpy, sums in order and in a tree, a stencil.
#include <arm_sve.h>

#include "common.h"

#define N 403

#define LOOPS(type)                                                                                          \
  KERNEL void axpy_##type(type* y, const type* x, type a, size_t n) {                                        \
    for (size_t i = 0; i < n; ++i) y[i] += a * x[i];                                                         \
  }                                                                                                          \
  KERNEL type dot_##type(const type* x, const type* y, size_t n) {                                           \
    type sum = 0;                                                                                            \
    for (size_t i = 0; i < n; ++i) sum += x[i] * y[i]; /* in order: fadda */                                 \
    return sum;                                                                                              \
  }                                                                                                          \
  KERNEL void stencil_##type(type* to, const type* from, size_t n) {                                         \
    for (size_t i = 1; i + 1 < n; ++i) to[i] = (from[i - 1] + from[i + 1]) / (type)2 - from[i] * (type)0.25; \
  }                                                                                                          \
  KERNEL void limits_##type(type* to, const type* from, type low, type high, size_t n) {                     \
    for (size_t i = 0; i < n; ++i) to[i] = from[i] < low ? low : from[i] > high ? high : from[i];            \
  }
typedef __fp16 fp16;
LOOPS(double)
LOOPS(float)
LOOPS(fp16)

KERNEL double tree_sum(const double* x, size_t n) {
  svfloat64_t sum = svdup_f64(0);
  for (size_t i = 0; i < n; i += svcntd()) {
    const svbool_t p = svwhilelt_b64_u64(i, n);
    sum = svadd_f64_m(p, sum, svld1_f64(p, x + i));
  }
  return svaddv_f64(svptrue_b64(), sum);
}

KERNEL float tree_extrema(const float* x, size_t n) {
  svfloat32_t low = svdup_f32(1e30f), high = svdup_f32(-1e30f);
  for (size_t i = 0; i < n; i += svcntw()) {
    const svbool_t p = svwhilelt_b32_u64(i, n);
    const svfloat32_t v = svld1_f32(p, x + i);
    low = svminnm_f32_m(p, low, v);
    high = svmax_f32_m(p, high, v);
  }
  return svminnmv_f32(svptrue_b32(), low) + svmaxv_f32(svptrue_b32(), high);
}

int main(void) {
  static double d[N], e[N], f[N];
  static float s[N], t[N], u[N];
  static fp16 h[N], k[N], l[N];
  uint64_t seed = 11;
  for (size_t i = 0; i < N; ++i) {
    d[i] = (double)(int64_t)(next_number(&seed) % 20001) / 64.0 - 150.0;
    e[i] = 1.0 / (double)(1 + next_number(&seed) % 1000);
    s[i] = (float)d[i];
    t[i] = (float)e[i];
    h[i] = (fp16)(d[i] / 16);
    k[i] = (fp16)e[i];
  }
  for (size_t n = 0; n <= N; n = 2 * n + 5) {
    axpy_double(e, d, 0.3, n);
    axpy_float(t, s, 0.3f, n);
    axpy_fp16(k, h, (fp16)0.3, n);
    stencil_double(f, d, n);
    stencil_float(u, s, n);
    stencil_fp16(l, h, n);
    limits_double(e, e, -20.0, 20.0, n);
    limits_float(t, t, -20.0f, 20.0f, n);
    limits_fp16(k, k, (fp16)-4, (fp16)4, n);
    printf("%3zu: %a %a %a %a %a\n", n, dot_double(d, e, n), (double)dot_float(s, t, n), (double)dot_fp16(h, k, n),
           tree_sum(d, n), (double)tree_extrema(s, n));
    printf("     %016llx %016llx %016llx %016llx %016llx %016llx\n", (unsigned long long)digest(e, sizeof e),
           (unsigned long long)digest(t, sizeof t), (unsigned long long)digest(k, sizeof k),
           (unsigned long long)digest(f, sizeof f), (unsigned long long)digest(u, sizeof u),
           (unsigned long long)digest(l, sizeof l));
  }
  return 0;
}
