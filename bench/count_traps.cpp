// What the runner takes for its traps, in host instructions; see bench/count. Prints "MARK NAME" lines. With --nothing
// it ends at once.
#include <cstdio>

#include "bench/count_mark.h"

namespace {

#define RUN_OF(count, instruction)                                                    \
  [] {                                                                                \
    asm volatile(".arch_extension sve\n.rept " #count "\n" instruction "\n.endr\n" :: \
                     : "x9", "v1", "v2", "cc", "memory");                             \
  }

std::uint32_t id = 0;

// The last of some runs of the same instructions: by then whatever is made once is made.
void count(const char* name, void (*given)()) {
  void (*volatile body)() = given;  // one copy of its code
  for (int i = 0; i < 4; ++i) {
    bench::mark(id);
    body();
    bench::mark(id + 1);
  }
  std::printf("%u %s\n", id, name);
  id += 2;
}

unsigned char room[112];

}  // namespace

int main(int argc, char**) {
  if (argc > 1) return 0;
  count("empty", [] {});
  count("cntb, alone", RUN_OF(1, "cntb x9"));
  count("cntb, run of 16", RUN_OF(16, "cntb x9"));
  count("ptrue p, alone", RUN_OF(1, "ptrue p0.b"));
  count("add z.s, alone", RUN_OF(1, "add z1.s, p0/m, z1.s, z2.s"));
  count("add z.s, run of 16", RUN_OF(16, "add z1.s, p0/m, z1.s, z2.s"));
  // Met for the first time: the trap, the translation and the run, of as many loops' bodies.
  bench::mark(id);
  asm volatile(
      ".arch_extension sve\n.rept 64\nld1w {z1.s}, p0/z, [%0]\nld1w {z2.s}, p0/z, [%0]\n"
      "fmad z1.s, p0/m, z2.s, z1.s\nst1w {z1.s}, p0, [%0]\nadd x9, x9, #28\nwhilelo p0.s, w9, w9\nb 1f\n1:\n.endr\n"
      :
      : "r"(room)
      : "x9", "v1", "v2", "cc", "memory");
  bench::mark(id + 1);
  std::printf("%u meeting 64 loops\n", id);
  id += 2;
  count("whilelt p.b, run of 16", RUN_OF(16, "whilelt p1.b, xzr, x9"));
}
