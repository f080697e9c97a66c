// Fault capture: the library's element access, the readability probe, and what an unguarded fault comes to.
#include <atomic>
#include <csignal>
#include <thread>
#include <vector>

#include "sve/fault/fault_capture.h"
#include "sve/insn/functions.h"
#include "sve/veclib/initialize.h"
#include "sve/veclib/memory.h"
#include "sve/veclib/routines.h"
#include "tests/children.h"
#include "tests/memory/guarded_memory.h"

namespace {

using test::GuardedMemory;

const char message[] =
    "zorvi's SVESigHandler caught signal SIGSEGV from the process being emulated, passing it to the default signal "
    "handler.\n";

class Fault : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(SVEInitialize(), 0); }
  CpuContext context{};
};

TEST_F(Fault, GuardedReadsAcrossAPageEndSeeNoPartialValue) {
  const GuardedMemory memory;
  memory.fill_counting();
  for (std::uint64_t before = 1; before < 8; ++before) {
    bool fault = false;
    EXPECT_EQ(ReadMemLib8(memory.end_address() - before, 1, &fault, &context), 0u);
    EXPECT_TRUE(fault);
    fault = false;
    EXPECT_EQ(ReadMemLib8(memory.address() - before, 1, &fault, &context), 0u) << "the first byte is unreadable";
    EXPECT_TRUE(fault);
  }
  bool fault = false;
  std::uint64_t expected;
  std::memcpy(&expected, memory.end() - 8, 8);
  EXPECT_EQ(ReadMemLib8(memory.end_address() - 8, 1, &fault, &context), expected);
  EXPECT_FALSE(fault);
}

TEST_F(Fault, GuardedReadsLeaveTheFlagOfASuccess) {
  const GuardedMemory memory;
  memory.fill_counting();
  for (const bool before : {false, true}) {
    bool fault = before;
    EXPECT_EQ(ReadMemLib1(memory.address(), 0, &fault, &context), memory.begin()[0]);
    EXPECT_EQ(ReadMemLib2(memory.address(), 0, &fault, &context), memory.begin()[0] | memory.begin()[1] << 8);
    EXPECT_EQ(fault, before);
  }
}

TEST_F(Fault, PlainReadsAndWritesEndTheProcessWithTheMessage) {
  const GuardedMemory memory;
  const auto read = in_child([&] { ReadMemLib4(memory.end_address(), 0, nullptr, &context); });
  EXPECT_EQ(read.signal(), SIGSEGV);
  EXPECT_EQ(read.error_output, message) << "once: the second fault finds the default action";
  const auto written = in_child([&] { WriteMemLib4(1, memory.end_address(), &context); });
  EXPECT_EQ(written.signal(), SIGSEGV);
  EXPECT_EQ(written.error_output, message);
}

TEST_F(Fault, ABusErrorIsNamedAndEndsTheProcess) {
  // A page of a file behind its end: readable by its mapping, and a bus error to touch.
  char name[] = "/tmp/sve_fault_test_XXXXXX";
  const int file = mkstemp(name);
  ASSERT_GE(file, 0);
  unlink(name);
  ASSERT_EQ(ftruncate(file, test::page), 0);
  auto* bytes = static_cast<char*>(mmap(nullptr, 2 * test::page, PROT_READ, MAP_SHARED, file, 0));
  ASSERT_NE(bytes, MAP_FAILED);
  char* const behind = bytes + test::page;

  const auto plain = in_child([&] { ReadMemLib1(reinterpret_cast<std::uint64_t>(behind), 0, nullptr, &context); });
  EXPECT_EQ(plain.signal(), SIGBUS);
  EXPECT_NE(plain.error_output.find("caught signal SIGBUS"), std::string::npos);
  // The probe covers access violations alone.
  const auto probed = in_child([&] { addr_is_readable<char>(behind); });
  EXPECT_EQ(probed.signal(), SIGBUS);
  // A guarded read covers both.
  bool fault = false;
  EXPECT_EQ(ReadMemLib1(reinterpret_cast<std::uint64_t>(behind), 1, &fault, &context), 0u);
  EXPECT_TRUE(fault);
  munmap(bytes, 2 * test::page);
  close(file);
}

TEST_F(Fault, TheProbeAnswersAndLeavesTheHandlerInPlace) {
  const GuardedMemory memory;
  struct sigaction action;
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(addr_is_readable(reinterpret_cast<char volatile*>(memory.begin())));
    EXPECT_TRUE(addr_is_readable(reinterpret_cast<char volatile*>(memory.end() - 1)));
    EXPECT_FALSE(addr_is_readable(reinterpret_cast<char volatile*>(memory.end())));
    EXPECT_FALSE(addr_is_readable(reinterpret_cast<char volatile*>(memory.begin() - 1)));
    for (const int sig : {SIGSEGV, SIGBUS}) {
      ASSERT_EQ(sigaction(sig, nullptr, &action), 0);
      EXPECT_EQ(action.sa_sigaction, SVESigHandler);
    }
  }
}

TEST_F(Fault, SixteenThreadsProbeAtOnce) {
  const GuardedMemory memory;
  memory.fill_counting();
  constexpr int threads = 16, rounds = 20'000;
  std::vector<int> wrong(threads, 0);
  std::vector<std::thread> running;
  for (int t = 0; t < threads; ++t)
    running.emplace_back([&, t] {
      CpuContext own{};
      for (int i = 0; i < rounds; ++i) {
        bool fault = false;
        const bool unreadable = (i + t) % 2 != 0;
        const std::uint64_t address = unreadable ? memory.end_address() - 3 : memory.address(t * 8);
        const std::uint64_t value = ReadMemLib4(address, 1, &fault, &own);
        std::uint32_t expected = 0;
        if (!unreadable) std::memcpy(&expected, memory.begin() + t * 8, 4);
        wrong[static_cast<std::size_t>(t)] += fault != unreadable || value != expected;
        wrong[static_cast<std::size_t>(t)] += addr_is_readable(reinterpret_cast<char volatile*>(memory.end())) ? 1 : 0;
      }
    });
  for (std::thread& t : running) t.join();
  for (int t = 0; t < threads; ++t) EXPECT_EQ(wrong[static_cast<std::size_t>(t)], 0) << "thread " << t;
  struct sigaction action;
  ASSERT_EQ(sigaction(SIGSEGV, nullptr, &action), 0);
  EXPECT_EQ(action.sa_sigaction, SVESigHandler);
}

// A program may set its own actions after the library is loaded: guarded reads answer, and its handlers get what is
// theirs.
class ForeignAction : public Fault {
 protected:
  static void handler(int, siginfo_t* info, void*) {
    ++handled;
    last = reinterpret_cast<std::uint64_t>(info->si_addr);
    mprotect(reinterpret_cast<void*>(last & ~(test::page - 1)), test::page, PROT_READ);
  }
  void SetUp() override {
    Fault::SetUp();
    handled = 0;
    struct sigaction action = {};
    action.sa_sigaction = handler;
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, SIGUSR1);
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    for (const int sig : {SIGSEGV, SIGBUS}) sigaction(sig, &action, &before[sig == SIGBUS]);
  }
  void TearDown() override {
    for (const int sig : {SIGSEGV, SIGBUS}) {
      struct sigaction action;
      ASSERT_EQ(sigaction(sig, &before[sig == SIGBUS], &action), 0);
      EXPECT_EQ(action.sa_sigaction, handler) << "the program's action is gone";
      EXPECT_TRUE(sigismember(&action.sa_mask, SIGUSR1));
      EXPECT_TRUE(action.sa_flags & SA_SIGINFO);
    }
  }
  static inline std::atomic<int> handled;
  static inline std::atomic<std::uint64_t> last;
  struct sigaction before[2];
};

TEST_F(ForeignAction, TheProbeAnswers) {
  const GuardedMemory memory;
  EXPECT_TRUE(addr_is_readable(reinterpret_cast<char volatile*>(memory.begin())));
  EXPECT_FALSE(addr_is_readable(reinterpret_cast<char volatile*>(memory.end())));
  EXPECT_EQ(handled, 0);
}

TEST_F(ForeignAction, FirstFaultAndNonFaultLoadsMark) {
  const GuardedMemory memory;
  memory.fill_counting();
  static cpu_state state;
  std::memset(state.p[1], 1, sizeof state.p[1]);
  constexpr std::size_t half = sve::vector_bytes / 2;
  std::memset(state.ffr, 1, sizeof state.ffr);
  state.x[2] = memory.end_address(half);
  const aarch64_p_reg pg(1, aarch64_p_reg::zeroing);
  sve_ldff1b_scaled_zprr(&state, {4, 0}, pg, {2, 3}, {31, 3});
  EXPECT_EQ(state.ffr[half - 1], 1);
  EXPECT_EQ(state.ffr[half], 0);
  std::memset(state.ffr, 1, sizeof state.ffr);
  sve_ldnf1b_zpri(&state, {5, 0}, pg, {2, 3}, 0);
  EXPECT_EQ(state.ffr[half - 1], 1);
  EXPECT_EQ(state.ffr[half], 0);
  context.vl_word = sve::vector_granules;
  const PredV all{{~0ul, ~0ul, ~0ul, ~0ul}};
  context.ffr = all;
  VecU8CLoadFF1LSSZ(all, state.x[2], 0, &context);
  for (std::size_t i = 0; i < sve::vector_bytes; ++i) EXPECT_EQ(context.ffr.words[i / 64] >> i % 64 & 1, i < half);
  EXPECT_EQ(handled, 0);
}

TEST_F(ForeignAction, PlainFaultsAreThePrograms) {
  const GuardedMemory memory;
  mprotect(memory.begin(), test::page, PROT_NONE);
  EXPECT_EQ(ReadMemLib1(memory.address(5), 0, nullptr, &context), 0u);
  EXPECT_EQ(handled, 1);
  EXPECT_EQ(last, memory.address(5));
}

// While one thread reads guarded, another one's own fault still comes to the program's handler.
TEST_F(ForeignAction, FaultsOfOtherThreadsArePassedOn) {
  const GuardedMemory memory(2);
  std::atomic<bool> stop{false};
  std::atomic<int> wrong{0};
  std::vector<std::thread> probing;
  for (int t = 0; t < 3; ++t)
    probing.emplace_back([&] {
      while (!stop) wrong += addr_is_readable(reinterpret_cast<char volatile*>(memory.end())) ? 1 : 0;
    });
  constexpr int faults = 2000;
  for (int i = 0; i < faults; ++i) {
    mprotect(memory.begin(), test::page, PROT_NONE);
    static_cast<void>(*static_cast<volatile std::uint8_t*>(memory.begin() + i % 4096));
  }
  stop = true;
  for (std::thread& t : probing) t.join();
  EXPECT_EQ(handled, faults);
  EXPECT_EQ(wrong, 0);
}

TEST_F(ForeignAction, TheDefaultActionIsAnActionOfTheProgramToo) {
  const GuardedMemory memory;
  const auto result = in_child([&] {
    std::signal(SIGSEGV, SIG_DFL);
    if (addr_is_readable(reinterpret_cast<char volatile*>(memory.end()))) _exit(1);
    struct sigaction action;
    sigaction(SIGSEGV, nullptr, &action);
    if (action.sa_handler != SIG_DFL) _exit(2);
    ReadMemLib1(memory.end_address(), 0, nullptr, &context);
  });
  EXPECT_EQ(result.signal(), SIGSEGV);
  EXPECT_EQ(result.error_output, "");
}

TEST_F(Fault, TheSimulatedMemoryIsInert) {
  bool fault = true;
  EXPECT_EQ(ReadMem(0x1000, 4, 0, &fault, &context), 0u);
  EXPECT_FALSE(fault);
  fault = true;
  EXPECT_EQ(ReadMemSim(0x1000, 4, 0, &fault, true, &context), 0u);
  EXPECT_FALSE(fault);
  WriteMem(1, 0x1000, 4, &context);
  WriteMemSim(1, 0x1000, 4, true, &context);
}

TEST_F(Fault, ThePageSizeIsThatOfTheHost) { EXPECT_EQ(page_size, static_cast<unsigned>(sysconf(_SC_PAGESIZE))); }

}  // namespace
