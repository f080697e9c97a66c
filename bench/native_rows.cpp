// Runs the words of the benchmark's cases natively and prints the nanoseconds of each: for a processor, or an emulated
// one, that has SVE at the model's vector length. Prints "NAME FAMILY NANOSECONDS" lines; arguments are regular
// expressions of names. With --count first it runs each word a known number of times between marks (see bench/count)
// and prints "MARK NAME TIMES" lines.
#include <time.h>

#include <regex>
#include <vector>

#include "bench/count_mark.h"
#include "bench/row_case.h"

extern "C" {
// x0: registers, x1: code, x2: iterations. Loads Z0 to Z3, sets P0 to P15 and FFR, and calls the code with the count in
// x19.
void run_native(const bench::Registers*, const void*, std::uint64_t);
}

asm(R"(
  .arch armv8.2-a+sve
  .text
  .global run_native
run_native:
  stp x29, x30, [sp, -176]!
  stp x19, x20, [sp, 16]
  stp x21, x22, [sp, 32]
  stp d8, d9, [sp, 48]
  stp d10, d11, [sp, 64]
  stp d12, d13, [sp, 80]
  stp d14, d15, [sp, 96]
  mov x20, x0
  mov x21, x1
  mov x19, x2
  ldr z0, [x20]
  ldr z1, [x20, #1, mul vl]
  ldr z2, [x20, #2, mul vl]
  ldr z3, [x20, #3, mul vl]
  setffr
)"
#define PTRUE(n) "  ptrue p" #n ".b\n"
    PTRUE(0) PTRUE(1) PTRUE(2) PTRUE(3) PTRUE(4) PTRUE(5) PTRUE(6) PTRUE(7) PTRUE(8) PTRUE(9) PTRUE(10) PTRUE(11)
        PTRUE(12) PTRUE(13) PTRUE(14) PTRUE(15) R"(
  addvl x3, x20, #4
  ldp x1, x2, [x3]
  blr x21
  ldp d14, d15, [sp, 96]
  ldp d12, d13, [sp, 80]
  ldp d10, d11, [sp, 64]
  ldp d8, d9, [sp, 48]
  ldp x21, x22, [sp, 32]
  ldp x19, x20, [sp, 16]
  ldp x29, x30, [sp], 176
  ret
)");

static_assert(offsetof(bench::Registers, x1) == 4 * sve::vector_bytes);

namespace {

double now() {
  timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

constexpr int unrolled = 16;

// A loop of the word, `unrolled` times a round, counted in x19. Floating-point cases restore Z0 before each word. With
// the word 0 there is all but the word.
void make_loop(std::uint32_t* code, const bench::RowCase& c) {
  std::size_t n = 0;
  for (int i = 0; i < unrolled; ++i) {
    if (c.floating_point) code[n++] = 0x04633060;  // mov z0.d, z3.d
    if (c.word != 0) code[n++] = c.word;
  }
  code[n++] = 0xf1000673;                                                                      // subs x19, x19, #1
  code[n] = 0x54000001 | ((static_cast<std::uint32_t>(-static_cast<int>(n)) & 0x7ffff) << 5);  // b.ne to the start
  ++n;
  code[n++] = 0xd65f03c0;  // ret
  __builtin___clear_cache(reinterpret_cast<char*>(code), reinterpret_cast<char*>(code + n));
}

double measure(std::uint32_t* code, const bench::RowCase& c) {
  make_loop(code, c);
  double best = 1e30;
  std::uint64_t rounds = 64;
  for (int sample = 0; sample < 5; ++sample) {
    double start = now();
    run_native(&c.values, code, rounds);
    double elapsed = now() - start;
    if (elapsed < 1e6 && sample == 0) {
      rounds *= 8;
      --sample;
      if (rounds > (1u << 22)) ++sample;
      continue;
    }
    const double each = elapsed / (static_cast<double>(rounds) * unrolled);
    if (each < best) best = each;
  }
  return best;
}

// The first run of the loop is an emulator's to translate it.
void count(std::uint32_t* code, const bench::RowCase& c, std::uint32_t id) {
  constexpr std::uint64_t rounds = 8;
  make_loop(code, c);
  run_native(&c.values, code, 2);
  bench::mark(id);
  run_native(&c.values, code, rounds);
  bench::mark(id + 1);
  run_native(&c.values, code, 2 * rounds);
  bench::mark(id + 2);
}

}  // namespace

int main(int argc, char** argv) {
  bench::map_window();
  auto* code = static_cast<std::uint32_t*>(
      mmap(nullptr, 4096, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  if (code == MAP_FAILED) {
    std::perror("cannot map memory for code");
    return 1;
  }
  const bool counts = argc > 1 && std::string_view(argv[1]) == "--count";
  std::uint32_t id = 0;
  std::vector<std::regex> filters;
  for (int i = 1 + counts; i < argc; ++i) filters.emplace_back(argv[i]);
  for (const sve::decode::Map* map : sve::decode::maps_in_is_sve_order())
    for (const sve::decode::Row& row : map->rows) {
      bool wanted = filters.empty();
      for (const std::regex& filter : filters) wanted = wanted || std::regex_search(row.name, filter);
      if (!wanted) continue;
      bench::RowCase c = bench::make_case(*map, row);
      if (!counts) {
        std::printf("%s %s%s %.3f\n", row.name, name_of(row.function->of), row.is_direct() ? "" : "/library",
                    measure(code, c));
      } else {
        count(code, c, id);
        std::printf("%u %s %d\n", id, row.name, 8 * unrolled);
        id += 3;
        if (c.floating_point) {
          c.word = 0;
          count(code, c, id);
          std::printf("%u %s %d\n", id, "restore", 8 * unrolled);
          id += 3;
        }
      }
      std::fflush(stdout);
    }
}
