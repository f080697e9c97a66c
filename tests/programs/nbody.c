// Bodies that attract each other, advanced in small steps; square roots and divisions in compiled loops.
#include <math.h>

#include "common.h"

#define N 37

static double x[N], y[N], z[N], vx[N], vy[N], vz[N], mass[N];

KERNEL void accelerate(double dt) {
  for (size_t i = 0; i < N; ++i) {
    double ax = 0, ay = 0, az = 0;
    for (size_t j = 0; j < N; ++j) {
      const double dx = x[j] - x[i], dy = y[j] - y[i], dz = z[j] - z[i];
      const double r2 = dx * dx + dy * dy + dz * dz + 0.01;
      const double f = mass[j] / (r2 * sqrt(r2));
      ax += dx * f;
      ay += dy * f;
      az += dz * f;
    }
    vx[i] += ax * dt;
    vy[i] += ay * dt;
    vz[i] += az * dt;
  }
}

KERNEL void move(double dt) {
  for (size_t i = 0; i < N; ++i) {
    x[i] += vx[i] * dt;
    y[i] += vy[i] * dt;
    z[i] += vz[i] * dt;
  }
}

int main(void) {
  uint64_t seed = 5;
  for (size_t i = 0; i < N; ++i) {
    x[i] = (double)(next_number(&seed) % 1000) / 100.0;
    y[i] = (double)(next_number(&seed) % 1000) / 100.0;
    z[i] = (double)(next_number(&seed) % 1000) / 100.0;
    mass[i] = (double)(1 + next_number(&seed) % 9);
  }
  for (int step = 0; step < 8; ++step) {
    accelerate(0.01);
    move(0.01);
    printf("%d: %a %a %a %016llx\n", step, x[0], y[1], z[2], (unsigned long long)digest(vx, sizeof vx));
  }
  return 0;
}
