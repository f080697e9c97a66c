// Sets the rounding mode and reads the exception flags around vector code.
#include <arm_sve.h>
#include <fenv.h>

#include "common.h"

static const int modes[] = {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO};
static const char* const names[] = {"nearest", "upward", "downward", "zero"};

KERNEL float sum_of(float a, float b) {
  return svlasta_f32(svpfalse_b(), svadd_f32_x(svptrue_b32(), svdup_f32(a), svdup_f32(b)));
}
KERNEL double fused(double a, double b, double c) {
  return svlasta_f64(svpfalse_b(), svmla_f64_x(svptrue_b64(), svdup_f64(a), svdup_f64(b), svdup_f64(c)));
}
KERNEL double quotient(double a, double b) {
  return svlasta_f64(svpfalse_b(), svdiv_f64_x(svptrue_b64(), svdup_f64(a), svdup_f64(b)));
}
KERNEL double half_product(double a, double b) {
  const svbool_t p = svptrue_b16();
  const svfloat16_t r = svmul_f16_x(p, svdup_f16((__fp16)a), svdup_f16((__fp16)b));
  return (double)svlasta_f16(svpfalse_b(), r);
}

static void flags(const char* what) {
  printf("%s:%s%s%s%s%s\n", what, fetestexcept(FE_INVALID) ? " invalid" : "",
         fetestexcept(FE_DIVBYZERO) ? " divbyzero" : "", fetestexcept(FE_OVERFLOW) ? " overflow" : "",
         fetestexcept(FE_UNDERFLOW) ? " underflow" : "", fetestexcept(FE_INEXACT) ? " inexact" : "");
  feclearexcept(FE_ALL_EXCEPT);
}

int main(void) {
  volatile float tiny = 0x1p-30f;
  volatile double third = 3, zero = 0, huge = 1e300, small = 0x1p-1000;
  for (int i = 0; i < 4; ++i) {
    fesetround(modes[i]);
    feclearexcept(FE_ALL_EXCEPT);
    printf("%s: %a %a %a %a\n", names[i], (double)sum_of(1.0f, tiny), (double)sum_of(-1.0f, -tiny),
           fused(1.0, third, 0.1), quotient(-1.0, third));
    flags("after sums");
    printf("%a %a\n", half_product(1.001, 1.001), half_product(60000.0, 2.0));
    flags("after halves");
    quotient(1.0, zero);
    flags("after division by zero");
    quotient(zero, zero);
    flags("after zero by zero");
    fused(0.0, huge, huge);
    flags("after a large product");
    quotient(small, huge);
    flags("after a small quotient");
    sum_of(1.0f, 1.0f);
    flags("after an exact sum");
    if (fegetround() != modes[i]) puts("the rounding mode changed");
  }
  return 0;
}
