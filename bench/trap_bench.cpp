// What a trap costs. Run it under sve-run:
//
//     sve-run --quiet trap_bench
//
// The measure is the cheapest thing of its kind in the same run: a breakpoint that a handler of the program steps over,
// which is one signal there and back.
#include <signal.h>
#include <ucontext.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>

namespace {

#define SVE(text) ".arch_extension sve\n" text

void step_over(int, siginfo_t*, void* context) { static_cast<ucontext_t*>(context)->uc_mcontext.pc += 4; }

// Least time of some rounds, in nanoseconds for each call of `body`.
template <class Body>
double least_time(Body body) {
  using Clock = std::chrono::steady_clock;
  constexpr int rounds = 15, calls = 2000;
  double least = 1e30;
  for (int round = 0; round < rounds; ++round) {
    const auto start = Clock::now();
    for (int i = 0; i < calls; ++i) body();
    const std::chrono::duration<double, std::nano> taken = Clock::now() - start;
    least = std::min(least, taken.count() / calls);
  }
  return least;
}

#define RUN_OF(count, instruction) \
  [] { asm volatile(SVE(".rept " #count "\n" instruction "\n.endr\n")::: "x9", "v1", "v2", "cc", "memory"); }

}  // namespace

int main() {
  struct sigaction action = {};
  action.sa_sigaction = step_over;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGTRAP, &action, nullptr);
  asm volatile(SVE("ptrue p0.b\n")::: "memory");

  const double signal = least_time([] { asm volatile("brk #0" ::: "memory"); });
  const struct {
    const char* name;
    int instructions;
    double time;
  } rows[] = {
      {"cntb, alone", 1, least_time(RUN_OF(1, "cntb x9"))},
      {"cntb, run of 4", 4, least_time(RUN_OF(4, "cntb x9"))},
      {"cntb, run of 16", 16, least_time(RUN_OF(16, "cntb x9"))},
      {"add z.s, alone", 1, least_time(RUN_OF(1, "add z1.s, p0/m, z1.s, z2.s"))},
      {"add z.s, run of 16", 16, least_time(RUN_OF(16, "add z1.s, p0/m, z1.s, z2.s"))},
      {"whilelt p.b, run of 16", 16, least_time(RUN_OF(16, "whilelt p1.b, xzr, x9"))},
  };
  std::printf("%-24s %10s %16s %22s\n", "", "ns", "ns/instruction", "instruction/signal");
  std::printf("%-24s %10.0f\n", "signal there and back", signal);
  for (const auto& row : rows) {
    const double each = row.time / row.instructions;
    std::printf("%-24s %10.0f %16.0f %22.2f\n", row.name, row.time, each, each / signal);
  }
  return 0;
}
