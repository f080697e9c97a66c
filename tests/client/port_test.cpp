// The port to the stock platform: the run-time call, and fault capture where the platform owns the signals.
#include "sve/client/port.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <string>

#include "fake/platform.h"
#include "sve/client/guarded_call.h"
#include "sve/decode/table.h"
#include "sve/fault/fault_capture.h"
#include "sve/stats/stats.h"
#include "sve/veclib/initialize.h"

// The port's own, under another name beside the recorder of the client's tests.
void port_dr_insert_call_zorvi(void* drcontext, instrlist_t* list, instr_t* where, app_pc address, void* callee,
                               unsigned int count, ...);

namespace {

using fake::now;
using lines = std::vector<std::string>;

void callee() {}

class Port : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    now = {};
    now.shares_blocks = GetParam();
    sve::client::start_calls();
    EXPECT_EQ(now.calls, (lines{"drmgr_register_tls_field 1", "drmgr_register_thread_init_event",
                                "drmgr_register_thread_exit_event"}));
    now.calls.clear();
    for (auto* event : now.thread_init) event(&thread);
  }
  fake::thread thread;
};

TEST_P(Port, TheCallRunsOnTheThreadsStack) {
  instrlist_t list;
  const unsigned int word = 0xd503201f;
  fake::fill(list, &word, 1);
  instr_t* const where = list.instructions.front();
  auto* const address = reinterpret_cast<app_pc>(0x4000);
  port_dr_insert_call_zorvi(&thread, &list, where, address, reinterpret_cast<void*>(callee), 3,
                            opnd_create_immed_int(7, OPSZ_4), opnd_create_immed_int(0x4000, OPSZ_8),
                            opnd_create_immed_int(-9, OPSZ_8));
  const std::string end = std::to_string(reinterpret_cast<std::intptr_t>(thread.fields.at(1)));
  EXPECT_EQ(fake::texts(list),
            (lines{"mov x0, #7", "mov x1, #16384", "mov x2, #-9", GetParam() ? "read x9, field 1" : "mov x9, #" + end,
                   "mov x10, #" + std::to_string(reinterpret_cast<std::intptr_t>(callee)), "add x19, sp, #0, lsl, #0",
                   "add sp, x9, #0, lsl, #0", "blr x30, x10", "add sp, x19, #0, lsl, #0", "app d503201f"}));
  for (const instr_t* i : list.instructions) {
    if (i->special == instr_t::none && !i->is_original) {
      EXPECT_FALSE(i->is_app) << i->text;
      EXPECT_EQ(i->translation, address) << i->text;
    }
  }
  fake::clear(list);
}

TEST_P(Port, EachThreadHasAStackWithAGuard) {
  fake::thread other;
  for (auto* event : now.thread_init) event(&other);
  auto* const end = static_cast<char*>(thread.fields.at(1));
  EXPECT_NE(end, other.fields.at(1));
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(end) % 16, 0u);
  const std::size_t usable = 128 * 1024;
  std::memset(end - usable, 1, usable);
  EXPECT_FALSE(addr_is_readable<char>(end - usable - 1));
  now.calls.clear();
  for (auto* event : now.thread_exit) event(&other);
  for (auto* event : now.thread_exit) event(&thread);
  const std::string size = std::to_string(usable + page_size);
  EXPECT_EQ(now.calls, (lines{"dr_nonheap_free " + size, "dr_nonheap_free " + size}));
}

INSTANTIATE_TEST_SUITE_P(Blocks, Port, testing::Bool(),
                         [](const auto& one) { return one.param ? "Shared" : "Private"; });

TEST(PortMutex, IsSharedBetweenProcesses) {
  sve::client::make_mutex_work(icounts_mutex);
  // As the C library lays a mutex out: bit 7 of its kind.
  EXPECT_NE(icounts_mutex.native_handle()->__data.__kind & 128, 0);
}

std::function<void()> access_of_model;
constexpr unsigned int memory_word = 0xe58043e0;

aarch64_decode_rc access(cpu_state*, unsigned int) {
  access_of_model();
  return AARCH64_DECODE_EXECUTED;
}

class Faults : public testing::Test {
 protected:
  void SetUp() override {
    now = {};
    page = map(PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1);
    closed = map(PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1);
    std::FILE* const file = std::tmpfile();  // empty: its page can be mapped, and is no memory
    beyond_end = map(PROT_READ | PROT_WRITE, MAP_SHARED, fileno(file));
    std::fclose(file);
    unmapped = map(PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1);
    munmap(unmapped, page_size);
    fake::own_signals();
    sigaction(SIGSEGV, nullptr, &platforms);
  }
  void TearDown() override {
    struct sigaction after;
    sigaction(SIGSEGV, nullptr, &after);
    EXPECT_EQ(after.sa_sigaction, platforms.sa_sigaction) << "the platform's handler is gone";
    for (char* p : {page, closed, beyond_end}) munmap(p, page_size);
    std::signal(SIGSEGV, SIG_DFL);
    std::signal(SIGBUS, SIG_DFL);
  }
  static char* map(int protection, int flags, int fd) {
    void* const at = mmap(nullptr, page_size, protection, flags, fd, 0);
    EXPECT_NE(at, MAP_FAILED);
    return static_cast<char*>(at);
  }
  static std::uint64_t number(const char* p) { return reinterpret_cast<std::uint64_t>(p); }
  static aarch64_decode_rc call(std::function<void()> body, unsigned int word = memory_word) {
    access_of_model = std::move(body);
    return sve::client::call_handler(nullptr, access, nullptr, word);
  }
  char *page, *closed, *beyond_end, *unmapped;
  struct sigaction platforms;
};
using FaultsDeathTest = Faults;

constexpr const char* segv =
    "^zorvi's SVESigHandler caught signal SIGSEGV from the process being emulated, passing it to the default signal "
    "handler.\n(qemu: [^\n]*\n)?$";
constexpr const char* bus =
    "^zorvi's SVESigHandler caught signal SIGBUS from the process being emulated, passing it to the default signal "
    "handler.\n(qemu: [^\n]*\n)?$";

TEST_F(Faults, NoHandlerIsInstalled) {
  SVEInitialize();
  sve::install_fault_capture();
  EXPECT_FALSE(sve::recover_guarded_fault(SIGSEGV, nullptr));
}

TEST_F(Faults, GuardedReadsAnswerAndGiveTheElement) {
  const sve::guarded_reads guard;
  page[page_size - 1] = 0x5a;
  const auto readable = [](std::uint64_t address, std::uint8_t expected) {
    std::uint8_t byte = 0xff;
    const bool answer = sve::guarded_read(address, byte);
    EXPECT_EQ(byte, expected);
    return answer;
  };
  EXPECT_TRUE(readable(number(page), 0));
  EXPECT_TRUE(readable(number(page + page_size - 1), 0x5a));
  EXPECT_FALSE(readable(number(closed), 0));
  EXPECT_FALSE(readable(number(unmapped), 0));
  EXPECT_FALSE(readable(number(beyond_end), 0));
  EXPECT_FALSE(readable(0, 0));
  char copy[16];
  EXPECT_TRUE(sve::guarded_copy(copy, number(page + page_size - 16), 16));
  EXPECT_EQ(copy[15], 0x5a);
  EXPECT_FALSE(sve::guarded_copy(copy, number(closed), 16));
}

TEST_F(Faults, TheProbeAnswers) {
  EXPECT_TRUE(addr_is_readable<char>(page));
  EXPECT_FALSE(addr_is_readable<char>(closed));
  EXPECT_FALSE(addr_is_readable<char>(unmapped));
}

TEST_F(Faults, WithoutFaultTheHandlersResultComesBack) {
  int runs = 0;
  EXPECT_EQ(call([&] { ++runs; }), AARCH64_DECODE_EXECUTED);
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(call([&] { ++runs; }, 0x04210000), AARCH64_DECODE_EXECUTED);
  EXPECT_EQ(runs, 2);
}

// The try block is for words with the top bit set. Those are the memory instructions, and no others.
TEST(GuardedCall, TheTopBitTellsMemoryInstructions) {
  int memory = 0, others = 0;
  for (const auto* map : sve::decode::maps_in_is_sve_order()) {
    for (const auto& row : map->rows) {
      const std::string name = row.name;
      bool accesses = false;
      for (const char* part : {"Load", "Store", "Prefetch", "Spill", "Fill"})
        accesses |= name.find(part) != std::string::npos;
      EXPECT_EQ(map->word(row.key) >> 31 != 0, accesses) << name;
      ++(accesses ? memory : others);
    }
  }
  EXPECT_GT(memory, 300);
  EXPECT_GT(others, 900);
}

TEST_F(FaultsDeathTest, AnUnguardedFaultEndsTheProcessByItsSignal) {
  EXPECT_EXIT(call([&] { *static_cast<volatile char*>(unmapped); }), testing::KilledBySignal(SIGSEGV), segv);
  EXPECT_EXIT(call([&] { *static_cast<volatile char*>(closed) = 1; }), testing::KilledBySignal(SIGSEGV), segv);
  EXPECT_EXIT(call([&] { *static_cast<volatile char*>(beyond_end); }), testing::KilledBySignal(SIGBUS), bus);
}

TEST_F(FaultsDeathTest, TheProbeDoesNotCoverABusError) {
  EXPECT_EXIT(call([&] { addr_is_readable<char>(beyond_end); }), testing::KilledBySignal(SIGBUS), bus);
}

// The platform itself gives write access to a page of code that it protected.
TEST_F(Faults, AWriteThatThePlatformPutsRightGoesOn) {
  mprotect(page, page_size, PROT_READ);
  now.put_right = page;
  EXPECT_EQ(call([&] { *static_cast<volatile char*>(page) = 42; }), AARCH64_DECODE_EXECUTED);
  EXPECT_EQ(*page, 42);
}

}  // namespace
