// A small SVE program: one loop written with intrinsics, one left to the compiler.
//
//     aarch64-linux-gnu-gcc -O3 -march=armv8.2-a+sve vectors.c -o vectors
#include <arm_sve.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

// The length of a string of at most `limit` bytes, a vector at a time.
static size_t length(const char* text, size_t limit) {
  for (uint64_t i = 0; i < limit; i += svcntb()) {
    const svbool_t active = svwhilelt_b8_u64(i, limit);
    const svbool_t zero = svcmpeq_n_u8(active, svld1_u8(active, (const uint8_t*)text + i), 0);
    if (svptest_any(active, zero)) return i + svcntp_b8(active, svbrkb_b_z(active, zero));
  }
  return limit;
}

// The compiler makes an SVE loop of this.
__attribute__((noinline)) static int64_t dot(const int32_t* a, const int32_t* b, size_t n) {
  int64_t sum = 0;
  for (size_t i = 0; i < n; ++i) sum += (int64_t)a[i] * b[i];
  return sum;
}

int main(void) {
  enum { n = 1000 };
  static int32_t a[n], b[n];
  for (int i = 0; i < n; ++i) {
    a[i] = i;
    b[i] = 3 * i - 500;
  }
  static char text[300];
  memset(text, 'x', 234);

  printf("vector length: %u bits\n", (unsigned)svcntb() * 8);
  printf("dot product:   %lld\n", (long long)dot(a, b, n));
  printf("string length: %zu\n", length(text, sizeof text));
  return 0;
}
