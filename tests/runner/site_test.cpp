// Sites: what is met once is patched, and everything stays as it would be without. Runs under sve-run, with patching
// and without.
#include <gtest/gtest.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "tests/children.h"
#include "tests/runner/sve_instructions.h"

namespace {

using namespace sve_instructions;

constexpr std::size_t page = 4096;
constexpr std::uint32_t incb_x0 = 0x0430e3e0, ret = 0xd65f03c0;
// cntb, cnth, cntw, cntd into X0, and what they give.
constexpr std::array<std::uint32_t, 4> counts_into_x0 = {0x0420e3e0, 0x0460e3e0, 0x04a0e3e0, 0x04e0e3e0};
const std::array<std::uint64_t, 4> counted = {vector_bytes, vector_bytes / 2, vector_bytes / 4, vector_bytes / 8};

bool patches() {
  const char* options = std::getenv("SVE_RUN_OPTIONS");
  return !options || !std::strstr(options, "no-patch");
}

// Code that the test makes.
class Code {
 public:
  explicit Code(std::size_t words, int protection = PROT_READ | PROT_WRITE)
      : size_((words * 4 + page - 1) & ~(page - 1)),
        words_(static_cast<std::uint32_t*>(mmap(nullptr, size_, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {}
  ~Code() { munmap(words_, size_); }
  Code(const Code&) = delete;
  Code& operator=(const Code&) = delete;

  std::uint32_t& operator[](std::size_t i) { return words_[i]; }
  std::uint32_t* data() { return words_; }
  void make(int protection) { ASSERT_EQ(mprotect(words_, size_, protection), 0); }
  void make_executable() {
    clear();
    make(PROT_READ | PROT_EXEC);
  }
  void clear() { __builtin___clear_cache(reinterpret_cast<char*>(words_), reinterpret_cast<char*>(words_) + size_); }
  std::uint64_t call(std::size_t at, std::uint64_t x0 = 0) {
    return reinterpret_cast<std::uint64_t (*)(std::uint64_t)>(words_ + at)(x0);
  }

 private:
  std::size_t size_;
  std::uint32_t* words_;
};

bool is_branch(std::uint32_t word) { return word >> 26 == 5; }

TEST(Sites, AreBranchesAfterTheFirstVisit) {
  Code code(8);
  for (int i = 0; i < 3; ++i) code[i] = incb_x0;
  code[3] = ret;
  code.make_executable();
  EXPECT_EQ(code.call(0), 3 * vector_bytes);
  EXPECT_EQ(is_branch(code[0]), patches());
  EXPECT_EQ(code[1], incb_x0);
  EXPECT_EQ(code.call(0, 1), 3 * vector_bytes + 1);
  // In the middle there is another site.
  EXPECT_EQ(code.call(1), 2 * vector_bytes);
  EXPECT_EQ(is_branch(code[1]), patches());
  EXPECT_EQ(code.call(0), 3 * vector_bytes);
  EXPECT_EQ(code.call(1), 2 * vector_bytes);
}

TEST(Sites, CodeThatBecomesWritableIsTheProgramsOwnAgain) {
  Code code(8);
  code[0] = incb_x0;
  code[1] = incb_x0;
  code[2] = ret;
  code.make_executable();
  EXPECT_EQ(code.call(0), 2 * vector_bytes);
  code.make(PROT_READ | PROT_WRITE);
  EXPECT_EQ(code[0], incb_x0);
  code[1] = ret;  // the second word alone changes
  code.make_executable();
  EXPECT_EQ(code.call(0), vector_bytes);
  EXPECT_EQ(code.call(0), vector_bytes);
}

TEST(Sites, OneAfterTheOtherBecomesTheProgramsOwnAgain) {
  Code codes[3] = {Code(2), Code(2), Code(2)};
  for (Code& code : codes) {
    code[0] = incb_x0;
    code[1] = ret;
    code.make_executable();
    EXPECT_EQ(code.call(0), vector_bytes);
  }
  for (Code& code : codes) {
    code.make(PROT_READ | PROT_WRITE);
    EXPECT_EQ(code[0], incb_x0);
  }
}

// In both directions, and from page to page, so that neighbouring pages are patched while others execute them.
TEST(Sites, ManyThreadsMeetFreshOnesAtOnce) {
  constexpr std::size_t pages = 20, in_page = page / 8, sites = pages * in_page, threads = 16;
  Code code(2 * sites);
  for (std::size_t i = 0; i < sites; ++i) {
    code[2 * i] = counts_into_x0[i % 4];
    code[2 * i + 1] = ret;
  }
  code.make_executable();
  std::atomic<std::size_t> wrong{0}, ready{0};
  std::vector<std::thread> all;
  for (std::size_t t = 0; t < threads; ++t)
    all.emplace_back([&, t] {
      ++ready;
      while (ready < threads) std::this_thread::yield();
      for (std::size_t k = 0; k < sites; ++k) {
        const std::size_t forward = t / 2 % 2 ? k : (k + t) % pages * in_page + k / pages;
        const std::size_t i = t % 2 ? forward : sites - 1 - forward;
        if (code.call(2 * i) != counted[i % 4]) ++wrong;
      }
    });
  for (auto& thread : all) thread.join();
  EXPECT_EQ(wrong, 0u);
}

TEST(Sites, NeighboursArePatchedWhileOthersExecuteThem) {
  constexpr std::size_t runs = 200, length = 8;
  Code code(runs * (length + 1));
  for (std::size_t i = 0; i < runs * (length + 1); ++i) code[i] = i % (length + 1) == length ? ret : incb_x0;
  code.make_executable();
  std::atomic<std::size_t> wrong{0};
  std::vector<std::thread> all;
  for (unsigned t = 0; t < 8; ++t)
    all.emplace_back([&, t] {
      std::minstd_rand random(t + 1);
      for (int k = 0; k < 4000; ++k) {
        const std::size_t run = random() % runs, at = random() % length;
        if (code.call(run * (length + 1) + at) != vector_bytes * (length - at)) ++wrong;
      }
    });
  for (auto& thread : all) thread.join();
  EXPECT_EQ(wrong, 0u);
}

// A compiler of code at run time that rewrites it where it is. A million times with SVE_SITE_REWRITES=1000000.
TEST(Sites, WritableCodeMayBeRewrittenAtAnyTime) {
  const char* wanted = std::getenv("SVE_SITE_REWRITES");
  const int rewrites = wanted ? std::atoi(wanted) : 20000;
  Code code(8, PROT_READ | PROT_WRITE | PROT_EXEC);
  code[0] = counts_into_x0[0];
  code[2] = ret;
  int wrong = 0;
  for (int i = 0; i < rewrites; ++i) {
    const std::size_t first = static_cast<std::size_t>(i) % 4, second = static_cast<std::size_t>(i / 4) % 4;
    if (i % 3 != 0) code[0] = counts_into_x0[first];
    code[1] = i % 3 == 1 ? counts_into_x0[second] : incb_x0;
    code.clear();
    const std::uint64_t got = code.call(0);
    if (i % 3 == 1 && got != counted[second]) ++wrong;
    if (i % 3 == 2 && got != counted[first] + vector_bytes) ++wrong;
  }
  EXPECT_EQ(wrong, 0);
}

TEST(Sites, OtherCodeAtTheSameAddress) {
  void* const place = mmap(nullptr, page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  for (std::size_t i = 0; i < 200; ++i) {
    auto* code = static_cast<std::uint32_t*>(
        mmap(place, page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0));
    ASSERT_EQ(code, place);
    code[0] = counts_into_x0[i % 4];
    code[1] = i % 3 ? incb_x0 : ret;
    code[2] = ret;
    __builtin___clear_cache(reinterpret_cast<char*>(code), reinterpret_cast<char*>(code + 3));
    ASSERT_EQ(mprotect(place, page, PROT_READ | PROT_EXEC), 0);
    for (int k = 0; k < 3; ++k)
      EXPECT_EQ(reinterpret_cast<std::uint64_t (*)()>(place)(), counted[i % 4] + (i % 3 ? vector_bytes : 0));
    ASSERT_EQ(munmap(place, page), 0);
  }
}

TEST(Sites, ACopyOfTheProcessKeepsThemAndMakesItsOwn) {
  Code code(16);
  for (std::size_t i = 0; i < 4; ++i) {
    code[2 * i] = counts_into_x0[i];
    code[2 * i + 1] = ret;
  }
  code.make_executable();
  EXPECT_EQ(code.call(0), vector_bytes);
  const auto child = in_child(
      [&] { _exit(code.call(0) == counted[0] && code.call(2) == counted[1] && code.call(4) == counted[2] ? 0 : 1); });
  EXPECT_TRUE(child.exited_with(0)) << child.status;
  // What the child has made meanwhile is not in the way of what this process makes.
  EXPECT_EQ(code.call(6), counted[3]);
  EXPECT_EQ(code.call(4), vector_bytes / 4);
  EXPECT_EQ(code.call(2), vector_bytes / 2);
}

// ---- Signals in the middle of runs ----

std::atomic<int> ticks{0};

// Armed anew each time, so that the program gets on however slow the machine is.
void arm_timer() {
  const itimerval soon{{0, 0}, {0, 500}};
  setitimer(ITIMER_REAL, &soon, nullptr);
}

void tick(int) {
  fill_z7(0xee);
  if (++ticks < 300) arm_timer();
}

TEST(Runs, AreWholeUnderAStormOfTimers) {
  struct sigaction action = {}, before;
  action.sa_handler = tick;
  sigaction(SIGALRM, &action, &before);
  ticks = 0;
  arm_timer();
  int wrong = 0, rounds = 0;
  while (ticks < 300) {
    std::uint64_t sum = 0, n = 1000;
    Vector out{};
    asm volatile(SVE_ASM("ptrue p0.b\n"
                         "dup z7.b, #0\n"
                         "1: incb %0\n"
                         "add z7.b, z7.b, #1\n"
                         "incb %0\n"
                         "dech %0\n"
                         "subs %1, %1, #1\n"
                         "b.ne 1b\n"
                         "st1b {z7.b}, p0, [%2]\n")
                 : "+r"(sum), "+r"(n)
                 : "r"(out.data())
                 : "v7", "cc", "memory");
    if (sum != 1000 * (vector_bytes + vector_bytes / 2) || out != filled(static_cast<std::uint8_t>(1000))) ++wrong;
    ++rounds;
  }
  sigaction(SIGALRM, &before, nullptr);
  EXPECT_EQ(wrong, 0);
  EXPECT_GT(rounds, 0);
}

std::uint8_t* guarded_page;
std::uintptr_t fault_pc, fault_x9;
sigjmp_buf escape;
bool escapes;

void mend(int, siginfo_t*, void* raw) {
  const auto& machine = static_cast<ucontext_t*>(raw)->uc_mcontext;
  fault_pc = machine.pc;
  fault_x9 = machine.regs[9];
  mprotect(guarded_page, page, PROT_READ | PROT_WRITE);
  fill_z7(0x99);
  if (escapes) siglongjmp(escape, 1);
}

TEST(Runs, AFaultInTheMiddleIsTheInstructionsOwn) {
  guarded_page =
      static_cast<std::uint8_t*>(mmap(nullptr, page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  std::memset(guarded_page, 0x42, page);
  struct sigaction action = {}, before;
  action.sa_sigaction = mend;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGSEGV, &action, &before);
  for (int i = 0; i < 6; ++i) {
    escapes = i == 5;
    if (i >= 2) mprotect(guarded_page, page, PROT_NONE);
    fault_pc = fault_x9 = 0;
    std::uint64_t load = 0, x9 = 0;
    Vector out{};
    if (sigsetjmp(escape, 1) == 0) {
      asm volatile(SVE_ASM("ptrue p0.b\n"
                           "mov x9, #5\n"
                           "adr %0, 1f\n"
                           "dup z6.b, #3\n"
                           "incb x9\n"
                           "1: ld1b {z7.b}, p0/z, [%2]\n"
                           "add z7.b, z7.b, z6.b\n"
                           "incb x9\n"
                           "st1b {z7.b}, p0, [%3]\n"
                           "mov %1, x9\n")
                   : "=&r"(load), "=&r"(x9)
                   : "r"(guarded_page), "r"(out.data())
                   : "x9", "v6", "v7", "memory");
      EXPECT_FALSE(escapes);
      EXPECT_EQ(x9, 5u + 2 * vector_bytes);
      EXPECT_EQ(out, filled(0x45));
      EXPECT_EQ(fault_pc, i >= 2 ? load : 0u);
    }
    EXPECT_EQ(fault_x9, i >= 2 ? 5u + vector_bytes : 0u);  // what is before it is done, what is behind it is not
  }
  sigaction(SIGSEGV, &before, nullptr);
  munmap(guarded_page, page);
}

}  // namespace
