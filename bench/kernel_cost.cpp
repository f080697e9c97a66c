// kernel_cost NAME: what a system call, a signal or an SVE instruction takes on a real kernel, in instructions of the
// machine: the program's own, and the kernel's. scripts/test-kernel --cost runs it where the emulated machine counts
// them.
#include <linux/perf_event.h>
#include <signal.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

// Counts instructions of the program, or of the kernel.
class Counter {
 public:
  explicit Counter(bool of_kernel) {
    perf_event_attr event{};
    event.size = sizeof event;
    event.type = PERF_TYPE_HARDWARE;
    event.config = PERF_COUNT_HW_INSTRUCTIONS;
    event.exclude_user = of_kernel;
    event.exclude_kernel = !of_kernel;
    fd_ = static_cast<int>(syscall(SYS_perf_event_open, &event, 0, -1, -1, 0));
  }
  bool works() const { return fd_ >= 0; }
  std::uint64_t value() const {
    std::uint64_t count = 0;
    return read(fd_, &count, sizeof count) == sizeof count ? count : 0;
  }

 private:
  int fd_;
};

void step_over(int, siginfo_t*, void* context) { static_cast<ucontext_t*>(context)->uc_mcontext.pc += 4; }

template <class Body>
int measure(const char* name, Body body) {
  const Counter program(false), kernel(true);
  if (!program.works() || !kernel.works()) {
    std::perror("kernel_cost: this machine counts no instructions");
    return 1;
  }
  constexpr int rounds = 2000;
  body();  // what is made at the first time
  std::uint64_t least[2] = {~std::uint64_t{0}, ~std::uint64_t{0}};
  // The least of some series, since timers interrupt.
  for (int series = 0; series < 10; ++series) {
    const std::uint64_t before[2] = {program.value(), kernel.value()};
    for (int i = 0; i < rounds; ++i) body();
    const std::uint64_t taken[2] = {program.value() - before[0], kernel.value() - before[1]};
    for (int k = 0; k < 2; ++k)
      if (taken[k] < least[k]) least[k] = taken[k];
  }
  std::printf("%-40s %8.0f %8.0f\n", name, static_cast<double>(least[0]) / rounds,
              static_cast<double>(least[1]) / rounds);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const char* const what = argc > 1 ? argv[1] : "";
  if (std::strcmp(what, "kernel") == 0) {
    struct sigaction action = {};
    action.sa_sigaction = step_over;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGILL, &action, nullptr);
    return measure("system call (getppid)", [] { syscall(SYS_getppid); }) |
           measure("signal that a handler steps over", [] { asm volatile("udf #0"); });
  }
  const auto one = [] { asm volatile(".arch_extension sve\n incb x0" ::: "x0"); };
  const auto ten = [] {
    asm volatile(
        ".arch_extension sve\n"
        "add z0.s, z0.s, z1.s\n add z1.s, z1.s, z2.s\n add z2.s, z2.s, z3.s\n add z3.s, z3.s, z4.s\n"
        "add z4.s, z4.s, z5.s\n add z5.s, z5.s, z6.s\n add z6.s, z6.s, z7.s\n add z7.s, z7.s, z0.s\n"
        "add z0.s, z0.s, z2.s\n add z1.s, z1.s, z3.s\n" ::
            : "v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7");
  };
  char name[64];
  std::snprintf(name, sizeof name, "%s: a run of one (incb)", what);
  int status = measure(name, one);
  std::snprintf(name, sizeof name, "%s: a run of ten (add)", what);
  return status | measure(name, ten);
}
