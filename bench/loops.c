// Whole loops, as a compiler makes them: built once with SVE and once without vectors. Each runs between marks, so that
// what they take can be compared; see bench/count. Prints "MARK NAME CHECKSUM" lines.
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#ifdef __ARM_FEATURE_SVE
#include <arm_sve.h>
#endif

enum { n = 4096 };

static float fa[n], fb[n], fc[n];
static double da[n], db[n], dc[n];
static int32_t ia[n], ib[n], ic[n];
static int16_t ha[n];
static uint8_t ba[n], bb[n];
static int64_t la[n], lb[n];

#define LOOP(name) static __attribute__((noinline, noclone)) double name(void)

LOOP(axpy) {
  for (int i = 0; i < n; ++i) fc[i] = 1.5f * fa[i] + fc[i];
  return fc[n - 1];
}
LOOP(triad) {
  for (int i = 0; i < n; ++i) dc[i] = da[i] + 3.0 * db[i];
  return dc[n - 1];
}
LOOP(dot) {
  float sum = 0;
  for (int i = 0; i < n; ++i) sum += fa[i] * fb[i];
  return sum;
}
LOOP(dot_integer) {
  int32_t sum = 0;
  for (int i = 0; i < n; ++i) sum += ia[i] * ib[i];
  return sum;
}
LOOP(clamp) {
  for (int i = 0; i < n; ++i) ic[i] = ia[i] < -50 ? -50 : ia[i] > 50 ? 50 : ia[i];
  return ic[n / 2];
}
LOOP(conditional_update) {
  for (int i = 0; i < n; ++i)
    if (ia[i] > ib[i]) ic[i] += ia[i];
  return ic[n / 3];
}
LOOP(count_matches) {
  int count = 0;
  for (int i = 0; i < n; ++i) count += ba[i] == 7;
  return count;
}
LOOP(stencil) {
  for (int i = 1; i < n - 1; ++i) fc[i] = 0.25f * fa[i - 1] + 0.5f * fa[i] + 0.25f * fa[i + 1];
  return fc[n / 2];
}
LOOP(complex_multiply) {
  for (int i = 0; i < n / 2; ++i) {
    fc[2 * i] = fa[2 * i] * fb[2 * i] - fa[2 * i + 1] * fb[2 * i + 1];
    fc[2 * i + 1] = fa[2 * i] * fb[2 * i + 1] + fa[2 * i + 1] * fb[2 * i];
  }
  return fc[n / 2];
}
LOOP(maximum) {
  int32_t most = ia[0];
  for (int i = 1; i < n; ++i) most = ia[i] > most ? ia[i] : most;
  return most;
}
LOOP(widening_sum) {
  int32_t sum = 0;
  for (int i = 0; i < n; ++i) sum += ha[i];
  return sum;
}
LOOP(narrowing) {
  for (int i = 0; i < n; ++i) bb[i] = (uint8_t)(ha[i] >> 3);
  return bb[n / 2];
}
LOOP(to_float) {
  for (int i = 0; i < n; ++i) fc[i] = (float)ia[i];
  return fc[n / 2];
}
LOOP(to_integer) {
  for (int i = 0; i < n; ++i) ic[i] = (int32_t)fa[i];
  return ic[n / 2];
}
LOOP(matrix) {
  enum { m = 24 };
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < m; ++j) {
      float sum = 0;
      for (int k = 0; k < m; ++k) sum += fa[i * m + k] * fb[j * m + k];
      fc[i * m + j] = sum;
    }
  return fc[m];
}
LOOP(shifts) {
  for (int i = 0; i < n; ++i) lb[i] = (la[i] << 3) ^ (la[i] >> 5);
  return (double)lb[n / 2];
}
LOOP(square_root) {
  for (int i = 0; i < n; ++i) dc[i] = sqrt(da[i]);
  return dc[n / 2];
}
LOOP(gather) {
  for (int i = 0; i < n; ++i) fc[i] = fa[ia[i] & (n - 1)];
  return fc[n / 2];
}
LOOP(add_bytes) {
  for (int i = 0; i < n; ++i) bb[i] = (uint8_t)(bb[i] + ba[i]);
  return bb[n / 2];
}
LOOP(logic) {
  for (int i = 0; i < n; ++i) ic[i] = (ia[i] & ~ib[i]) | (ic[i] ^ 0x5a5a5a5a);
  return ic[n / 2];
}
LOOP(absolute_difference) {
  for (int i = 0; i < n; ++i) ic[i] = abs(ia[i] - ib[i]);
  return ic[n / 2];
}

// What compilers do not make of plain loops is written for SVE.
LOOP(string_length) {
#ifdef __ARM_FEATURE_SVE
  const svbool_t all = svptrue_b8();
  uint64_t at = 0;
  for (;;) {
    svsetffr();
    const svuint8_t bytes = svldff1(all, ba + at);
    const svbool_t valid = svrdffr();
    const svbool_t zeroes = svcmpeq(valid, bytes, 0xee);
    if (svptest_any(all, zeroes)) return (double)(at + svcntp_b8(all, svbrkb_z(valid, zeroes)));
    at += svcntp_b8(all, valid);
  }
#else
  size_t at = 0;
  while (ba[at] != 0xee) ++at;
  return (double)at;
#endif
}
LOOP(histogram) {
  memset(ic, 0, 256 * sizeof *ic);
  for (int i = 0; i < n; ++i) ++ic[ba[i]];
  return ic[7];
}
LOOP(compaction) {
  int kept = 0;
#ifdef __ARM_FEATURE_SVE
  for (int i = 0; i < n; i += (int)svcntw()) {
    const svbool_t some = svwhilelt_b32(i, n);
    const svint32_t values = svld1(some, ia + i);
    const svbool_t keeps = svcmpgt(some, values, 0);
    svst1(svwhilelt_b32((uint64_t)0, svcntp_b32(some, keeps)), ic + kept, svcompact(keeps, values));
    kept += (int)svcntp_b32(some, keeps);
  }
#else
  for (int i = 0; i < n; ++i)
    if (ia[i] > 0) ic[kept++] = ia[i];
#endif
  return ic[kept - 1] + kept;
}

static const struct {
  const char* name;
  double (*run)(void);
} loops[] = {
#define NAMED(name) \
  { #name, name }
    NAMED(axpy),
    NAMED(triad),
    NAMED(dot),
    NAMED(dot_integer),
    NAMED(clamp),
    NAMED(stencil),
    NAMED(count_matches),
    NAMED(conditional_update),
    NAMED(maximum),
    NAMED(widening_sum),
    NAMED(narrowing),
    NAMED(complex_multiply),
    NAMED(to_float),
    NAMED(to_integer),
    NAMED(matrix),
    NAMED(shifts),
    NAMED(square_root),
    NAMED(gather),
    NAMED(add_bytes),
    NAMED(logic),
    NAMED(absolute_difference),
    NAMED(string_length),
    NAMED(histogram),
    NAMED(compaction),
};

// As in count_mark.h.
static void mark(uint32_t id) {
  register int64_t x8 __asm__("x8") = 62;
  register int64_t x0 __asm__("x0") = -1;
  register int64_t x1 __asm__("x1") = (int64_t)(UINT64_C(0x5e5e5e) << 32 | id);
  register int64_t x2 __asm__("x2") = 0;
  __asm__ volatile("svc #0" : "+r"(x0) : "r"(x8), "r"(x1), "r"(x2) : "memory", "cc");
}

static void fill(void) {
  uint32_t seed = 12345;
  for (int i = 0; i < n; ++i) {
    seed = seed * 1664525u + 1013904223u;
    const int32_t value = (int32_t)(seed >> 8) % 1000 - 500;
    fa[i] = (float)value / 16, fb[i] = (float)(value ^ 21) / 8, fc[i] = 1;
    da[i] = fabs((double)value) + 0.5, db[i] = value / 3.0, dc[i] = 0;
    ia[i] = value, ib[i] = value ^ (int32_t)(seed & 127), ic[i] = 3;
    ha[i] = (int16_t)value, ba[i] = (uint8_t)(seed >> 28), la[i] = value * INT64_C(77);
  }
  ba[n - 9] = 0xee;
}

int main(void) {
  for (size_t i = 0; i < sizeof loops / sizeof *loops; ++i) {
    double result = 0;
    for (int k = 0; k < 3; ++k) {  // the last time everything has been met
      fill();
      mark((uint32_t)(2 * i));
      result = loops[i].run();
      mark((uint32_t)(2 * i + 1));
    }
    printf("%zu %s %.6g\n", 2 * i, loops[i].name, result);
  }
  return 0;
}
