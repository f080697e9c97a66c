// Conversions between all formats and integers, and the directed roundings, in compiled loops and by intrinsics.
#include <arm_sve.h>
#include <math.h>

#include "common.h"

#define N 90
typedef __fp16 fp16;

#define CONVERT(from, to)                                      \
  KERNEL void from##_to_##to(to* t, const from* f, size_t n) { \
    for (size_t i = 0; i < n; ++i) t[i] = (to)f[i];            \
  }
CONVERT(double, float)
CONVERT(float, double)
CONVERT(float, fp16)
CONVERT(fp16, float)
CONVERT(double, fp16)
CONVERT(fp16, double)
CONVERT(int32_t, float)
CONVERT(uint32_t, float)
CONVERT(int64_t, double)
CONVERT(uint64_t, double)
CONVERT(int32_t, double)
CONVERT(int64_t, float)
CONVERT(uint64_t, float)
CONVERT(int16_t, fp16)
CONVERT(uint16_t, fp16)
CONVERT(float, int32_t)
CONVERT(float, uint32_t)
CONVERT(double, int64_t)
CONVERT(double, uint64_t)
CONVERT(double, int32_t)
CONVERT(float, int64_t)
CONVERT(fp16, int16_t)
CONVERT(fp16, uint16_t)

KERNEL void roundings(float* to, const float* from, size_t n) {
  for (size_t i = 0; i < n; i += svcntw()) {
    const svbool_t p = svwhilelt_b32_u64(i, n);
    const svfloat32_t x = svld1_f32(p, from + i);
    svfloat32_t r = svadd_f32_x(p, svrintn_f32_x(p, x), svrintp_f32_x(p, x));
    r = svadd_f32_x(p, r, svadd_f32_x(p, svrintm_f32_x(p, x), svrintz_f32_x(p, x)));
    r = svadd_f32_x(p, r, svadd_f32_x(p, svrinta_f32_x(p, x), svrintx_f32_x(p, x)));
    svst1_f32(p, to + i, r);
  }
}

#define SHOW(from, to, source)                                                                    \
  do {                                                                                            \
    static to result[N];                                                                          \
    from##_to_##to(result, source, N);                                                            \
    printf("%s to %s: %016llx\n", #from, #to, (unsigned long long)digest(result, sizeof result)); \
  } while (0)

int main(void) {
  static double d[N];
  static float s[N], rounded[N];
  static fp16 h[N];
  static int64_t i64[N];
  static int32_t i32[N];
  static int16_t i16[N];
  uint64_t seed = 21;
  for (size_t i = 0; i < N; ++i) {
    d[i] = ldexp((double)(int64_t)(next_number(&seed) % 2000003) - 1000001.0, (int)(i % 20) - 12);
    s[i] = (float)d[i];
    h[i] = (fp16)(d[i] / 32768.0);
    i64[i] = (int64_t)(next_number(&seed) << 17);
    i32[i] = (int32_t)next_number(&seed);
    i16[i] = (int16_t)next_number(&seed);
  }
  SHOW(double, float, d);
  SHOW(float, double, s);
  SHOW(float, fp16, s);
  SHOW(fp16, float, h);
  SHOW(double, fp16, d);
  SHOW(fp16, double, h);
  SHOW(int32_t, float, i32);
  SHOW(uint32_t, float, (uint32_t*)i32);
  SHOW(int64_t, double, i64);
  SHOW(uint64_t, double, (uint64_t*)i64);
  SHOW(int32_t, double, i32);
  SHOW(int64_t, float, i64);
  SHOW(uint64_t, float, (uint64_t*)i64);
  SHOW(int16_t, fp16, i16);
  SHOW(uint16_t, fp16, (uint16_t*)i16);
  SHOW(float, int32_t, s);
  SHOW(float, uint32_t, s);
  SHOW(double, int64_t, d);
  SHOW(double, uint64_t, d);
  SHOW(double, int32_t, d);
  SHOW(float, int64_t, s);
  SHOW(fp16, int16_t, h);
  SHOW(fp16, uint16_t, h);
  roundings(rounded, s, N);
  printf("roundings: %016llx\n", (unsigned long long)digest(rounded, sizeof rounded));
  return 0;
}
