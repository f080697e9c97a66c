// String length and search by loops on whilelt, written with intrinsics.
#include <arm_sve.h>

#include "common.h"

KERNEL size_t length_up_to(const char* s, size_t limit) {
  for (uint64_t i = 0; i < limit; i += svcntb()) {
    const svbool_t pg = svwhilelt_b8_u64(i, limit);
    const svbool_t zero = svcmpeq_n_u8(pg, svld1_u8(pg, (const uint8_t*)s + i), 0);
    if (svptest_any(pg, zero)) return i + svcntp_b8(pg, svbrkb_b_z(pg, zero));
  }
  return limit;
}

KERNEL size_t count_character(const char* s, size_t n, char c) {
  size_t count = 0;
  for (int64_t i = 0; i < (int64_t)n; i += (int64_t)svcntb()) {
    const svbool_t pg = svwhilelt_b8_s64(i, (int64_t)n);
    count += svcntp_b8(pg, svcmpeq_n_u8(pg, svld1_u8(pg, (const uint8_t*)s + i), (uint8_t)c));
  }
  return count;
}

KERNEL void upper_case(char* s, size_t n) {
  for (uint64_t i = 0; i < n; i += svcntb()) {
    const svbool_t pg = svwhilelt_b8_u64(i, n);
    const svuint8_t text = svld1_u8(pg, (uint8_t*)s + i);
    const svbool_t lower = svcmple_n_u8(svcmpge_n_u8(pg, text, 'a'), text, 'z');
    svst1_u8(lower, (uint8_t*)s + i, svsub_n_u8_x(lower, text, 32));
  }
}

int main(void) {
  static char text[1024];
  printf("vector of %lu bytes\n", (unsigned long)svcntb());
  for (size_t n = 0; n < 900; n += 1 + n / 6) {
    memset(text, 0, sizeof text);
    for (size_t i = 0; i < n; ++i) text[i] = "the quick brown fox jumps over the lazy dog "[(i * 7 + n) % 44];
    const size_t length = length_up_to(text, sizeof text);
    printf("%zu %zu %zu %zu ", n, length, length_up_to(text, n / 2), count_character(text, length, 'o'));
    upper_case(text, length);
    printf("%016llx\n", (unsigned long long)digest(text, sizeof text));
  }
  return 0;
}
