// Exponential and sine by the accelerator instructions, reciprocals and roots by estimates and steps.
#include <arm_sve.h>

#include "common.h"

#define N 100

// 2^x: the accelerator makes 2^(i/64) from the low bits, a short series the rest.
KERNEL void exp2_of(double* to, const double* from, size_t n) {
  for (size_t i = 0; i < n; i += svcntd()) {
    const svbool_t p = svwhilelt_b64_u64(i, n);
    const svfloat64_t x = svld1_f64(p, from + i);
    const svfloat64_t shifted = svadd_n_f64_x(p, x, 0x1.8p46 + 1023);
    const svfloat64_t rest = svsub_f64_x(p, x, svsub_n_f64_x(p, shifted, 0x1.8p46 + 1023));
    const svfloat64_t scale = svexpa_f64(svreinterpret_u64_f64(shifted));
    svfloat64_t r = svmad_n_f64_x(p, rest, svdup_f64(0x1.ebfbdff82c58fp-3), 0x1.62e42fefa39efp-1);
    r = svmul_f64_x(p, r, rest);
    svst1_f64(p, to + i, svmla_f64_x(p, scale, scale, r));
  }
}

// Sine of |x| below pi/4 by the coefficient steps.
KERNEL void sine_of(float* to, const float* from, size_t n) {
  for (size_t i = 0; i < n; i += svcntw()) {
    const svbool_t p = svwhilelt_b32_u64(i, n);
    const svfloat32_t x = svld1_f32(p, from + i);
    const svuint32_t quadrant = svdup_u32(0);
    const svfloat32_t squared = svtsmul_f32(x, quadrant);
    svfloat32_t r = svdup_f32(0);
    r = svtmad_f32(r, squared, 7);
    r = svtmad_f32(r, squared, 6);
    r = svtmad_f32(r, squared, 5);
    r = svtmad_f32(r, squared, 4);
    r = svtmad_f32(r, squared, 3);
    r = svtmad_f32(r, squared, 2);
    r = svtmad_f32(r, squared, 1);
    r = svtmad_f32(r, squared, 0);
    svst1_f32(p, to + i, svmul_f32_x(p, r, svtssel_f32(x, quadrant)));
  }
}

KERNEL void reciprocals(float* to, float* roots, const float* from, size_t n) {
  for (size_t i = 0; i < n; i += svcntw()) {
    const svbool_t p = svwhilelt_b32_u64(i, n);
    const svfloat32_t x = svld1_f32(p, from + i);
    svfloat32_t e = svrecpe_f32(x);
    e = svmul_f32_x(p, e, svrecps_f32(e, x));
    svst1_f32(p, to + i, e);
    svfloat32_t r = svrsqrte_f32(x);
    r = svmul_f32_x(p, r, svrsqrts_f32(svmul_f32_x(p, r, x), r));
    svst1_f32(p, roots + i, svscale_n_f32_x(p, svrecpx_f32_x(p, r), 3));
  }
}

int main(void) {
  static double x[N], y[N];
  static float s[N], t[N], u[N];
  for (size_t i = 0; i < N; ++i) {
    x[i] = (double)i * 0.137 - 6.5;
    s[i] = (float)i * 0.007f + 0.01f;
  }
  exp2_of(y, x, N);
  for (size_t i = 0; i < N; i += 9) printf("2^%a = %a\n", x[i], y[i]);
  sine_of(t, s, N);
  for (size_t i = 0; i < N; i += 9) printf("sin %a = %a\n", (double)s[i], (double)t[i]);
  reciprocals(t, u, s, N);
  for (size_t i = 0; i < N; i += 9) printf("1/%a = %a, %a\n", (double)s[i], (double)t[i], (double)u[i]);
  return 0;
}
