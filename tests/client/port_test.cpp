// The port to the stock platform: the run-time call, and fault capture where the platform owns the signals.
#include "sve/client/port.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <string>
#include <tuple>

#include "fake/platform.h"
#include "sve/client/call_sites.h"
#include "sve/client/guarded_call.h"
#include "sve/client/handler_states.h"
#include "sve/client/sve_client.h"
#include "sve/decode/table.h"
#include "sve/fault/fault_capture.h"
#include "sve/stats/stats.h"
#include "sve/veclib/initialize.h"

// The port's own, under another name beside the recorder of the client's tests.
void port_dr_insert_call_zorvi(void* drcontext, instrlist_t* list, instr_t* where, app_pc address, void* callee,
                               unsigned int count, ...);

namespace {

using fake::now;
using Lines = std::vector<std::string>;

void callee() {}

// Whether blocks are shared, and whether the platform has slots beside its stolen register.
class Port : public testing::TestWithParam<std::tuple<bool, bool>> {
 protected:
  void SetUp() override {
    now = {};
    now.shares_blocks = std::get<0>(GetParam());
    now.has_direct_slots = std::get<1>(GetParam());
    now.current = &thread;
    tls_idx = 9;
    thread.fields[9] = &state;
    sve::client::start_calls();
    EXPECT_EQ(now.calls, (Lines{"drmgr_register_tls_field 1", "dr_raw_tls_calloc 2", "drmgr_register_thread_init_event",
                                "drmgr_register_thread_exit_event", "drmgr_register_tls_field 2",
                                "drmgr_register_kernel_xfer_event", "drmgr_register_thread_exit_event",
                                "dr_register_fork_init_event"}));
    now.calls.clear();
    for (auto* event : now.thread_init) event(&thread);
  }
  std::string read_stack(const char* to) {
    const std::string r = to;
    if (!now.shares_blocks)
      return "mov " + r + ", #" + std::to_string(reinterpret_cast<std::intptr_t>(thread.fields.at(1)));
    return "read " + r + (now.has_direct_slots ? ", [x28+16]" : ", field 1");
  }
  fake::thread thread;
  cpu_state state{};
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
  EXPECT_EQ(fake::texts(list),
            (Lines{"mov x0, #7", "mov x1, #16384", "mov x2, #-9", read_stack("x9"),
                   "mov x10, #" + std::to_string(reinterpret_cast<std::intptr_t>(callee)), "add x19, sp, #0, lsl, #0",
                   "add sp, x9, #0, lsl, #0", "blr x30, x10", "add sp, x19, #0, lsl, #0", "app d503201f"}));
  for (const instr_t* i : list.instructions)
    if (i->special == instr_t::none && !i->is_original) {
      EXPECT_FALSE(i->is_app) << i->text;
      EXPECT_EQ(i->translation, address) << i->text;
    }
  fake::clear(list);
}

// What is known when the block is built is not passed again, and what the thread has lies at the stack's top.
TEST_P(Port, AnEmulatedInstructionIsCalledByItsSite) {
  instrlist_t list;
  const unsigned int word = 0x04210000;  // add z0.b, z0.b, z1.b
  fake::fill(list, &word, 1);
  auto* const address = reinterpret_cast<app_pc>(0x4000);
  const DecodeHandler handler = is_sve(word);
  port_dr_insert_call_zorvi(&thread, &list, list.instructions.front(), address,
                            reinterpret_cast<void*>(emulate_instruction), 3, opnd_create_immed_int(word, OPSZ_4),
                            opnd_create_immed_int(0x4000, OPSZ_8),
                            opnd_create_immed_int(reinterpret_cast<std::intptr_t>(handler), OPSZ_8));
  const sve::client::CallSite* const site = sve::client::need_call_site(word, address, handler);
  const auto number = [](const auto* p) { return std::to_string(reinterpret_cast<std::intptr_t>(p)); };
  EXPECT_EQ(fake::texts(list), (Lines{"mov x0, #" + number(site), "add x1, x27, #0, lsl, #0", read_stack("x2"),
                                      "mov x10, #" + number(reinterpret_cast<void*>(sve::client::run_call_site)),
                                      "add x19, sp, #0, lsl, #0", "add sp, x2, #0, lsl, #0", "blr x30, x10",
                                      "add sp, x19, #0, lsl, #0", "app 04210000"}));
  EXPECT_EQ(thread.direct[1], now.has_direct_slots ? &state : nullptr);
  EXPECT_EQ(thread.direct[2], now.has_direct_slots ? thread.fields.at(1) : nullptr);
  fake::clear(list);
}

TEST_P(Port, EachThreadHasAStackWithAGuard) {
  fake::thread other;
  now.current = &other;
  for (auto* event : now.thread_init) event(&other);
  auto* const end = static_cast<char*>(thread.fields.at(1));
  EXPECT_NE(end, other.fields.at(1));
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(end) % 16, 0u);
  const std::size_t usable = 128 * 1024 - sizeof(sve::client::CallThread);
  std::memset(end - usable, 1, usable);
  EXPECT_FALSE(addr_is_readable<char>(end - usable - 1));
  now.calls.clear();
  for (auto* event : now.thread_exit) event(&other);
  for (auto* event : now.thread_exit) event(&thread);
  const std::string size = std::to_string(128 * 1024 + page_size);
  EXPECT_EQ(now.calls, (Lines{"dr_nonheap_free " + size, "dr_nonheap_free " + size}));
}

INSTANTIATE_TEST_SUITE_P(Blocks, Port, testing::Combine(testing::Bool(), testing::Bool()), [](const auto& one) {
  return std::string(std::get<0>(one.param) ? "Shared" : "Private") +
         (std::get<1>(one.param) ? "DirectSlots" : "FieldsOnly");
});

class Sites : public testing::Test {
 protected:
  void SetUp() override {
    now = {};
    now.current = &thread;
    tls_idx = 9;
    thread.fields[9] = &state;
    icounts.clear();
    sve_instr_count = 0;
    sve::client::restart_counts(nullptr);  // sites of other tests have their counts no more
  }
  sve::client::CallSite* site(unsigned int word, DecodeHandler handler) {
    return sve::client::need_call_site(word, address(), handler);
  }
  sve::client::CallSite* site(unsigned int word) { return site(word, is_sve(word)); }
  unsigned char* address() { return reinterpret_cast<unsigned char*>(code); }
  unsigned int code[4] = {};
  fake::thread thread;
  cpu_state state{};
  sve::client::CallThread own{sve::client::calls_between_leaving};
};

TEST_F(Sites, RunAndCount) {
  sve::client::CallSite* const add = site(0x04210000);
  EXPECT_EQ(site(0x04210000), add);
  EXPECT_NE(site(0x04220000), add);
  state.z[0][5] = 3, state.z[1][5] = 4;
  sve::client::run_call_site(add, &state, &own);
  EXPECT_EQ(state.z[0][5], 7);
  EXPECT_EQ(state.pc, reinterpret_cast<std::uint32_t*>(address()));
  sve::client::run_call_site(add, &state, &own);
  EXPECT_EQ(sve_instr_count, 2u);
  ASSERT_EQ(icounts.size(), 1u);
  EXPECT_EQ(icounts.begin()->second.first, 0x04210000u);
  EXPECT_EQ(icounts.begin()->second.second, 2u);
}

TEST_F(Sites, RegistersInSlotsAreReadAndWritten) {
  thread.slots[SPILL_SLOT_2] = 1000;
  // addvl x28, x26, #1
  sve::client::run_call_site(site(0x043a503c), &state, &own);
  EXPECT_EQ(thread.slots[SPILL_SLOT_4], 1112u);
  EXPECT_EQ(sve_instr_count, 1u);
}

TEST_F(Sites, AFailureIsReportedAndNotCounted) {
  testing::internal::CaptureStderr();
  const DecodeHandler fails = [](cpu_state*, unsigned int) { return AARCH64_DECODE_UNDECODED; };
  sve::client::run_call_site(site(0x04a00000, fails), &state, &own);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Error: failed to emulate SVE instruction 0x00000000 at PC"),
            std::string::npos);
  EXPECT_EQ(sve_instr_count, 0u);
  EXPECT_TRUE(icounts.empty());
}

TEST_F(Sites, AForkedChildCountsFromNothing) {
  sve::client::CallSite* const add = site(0x04210000);
  sve::client::run_call_site(add, &state, &own);
  aarch64_instr_count = 5;
  sve::client::restart_counts(nullptr);
  EXPECT_EQ(sve_instr_count, 0u);
  EXPECT_EQ(aarch64_instr_count, 0u);
  EXPECT_TRUE(icounts.empty());
  sve::client::run_call_site(add, &state, &own);
  EXPECT_EQ(sve_instr_count, 1u);
  EXPECT_EQ(icounts.begin()->second.second, 1u);
}

TEST_F(Sites, AThreadLeavesTheCacheNowAndThen) {
  for (int i = 0; i < 31; ++i) state.x[i] = 100 + i;
  state.sp = 131;
  state.nzcv = 0x60000000, state.fpcr = 0x01000000, state.fpsr = 0x10;
  for (int n = 0; n < 32; ++n) std::memset(state.z[n], n + 1, sizeof state.z[n]);
  for (int i = 1; i < 4; ++i) thread.slots[i] = 200 + i;
  sve::client::CallSite* const move = site(0x04603000);  // mov z0.d, z0.d
  for (unsigned i = 1; i < sve::client::calls_between_leaving; ++i) sve::client::run_call_site(move, &state, &own);
  EXPECT_TRUE(now.redirections.empty());
  sve::client::run_call_site(move, &state, &own);
  ASSERT_EQ(now.redirections.size(), 1u);
  const dr_mcontext_t& context = now.redirections.front();
  EXPECT_EQ(context.size, sizeof context);
  EXPECT_EQ(context.flags, DR_MC_ALL);
  EXPECT_EQ(context.pc, address() + 4);
  EXPECT_EQ(context.sp, 131u);
  EXPECT_EQ(context.r0, 100u);
  for (reg_t i = 1; i < 31; ++i) EXPECT_EQ(context.others[i - 1], i >= 26 && i <= 28 ? 201 + i - 26 : 100 + i) << i;
  EXPECT_EQ(context.nzcv, 0x60000000u);
  EXPECT_EQ(context.fpcr, 0x01000000u);
  EXPECT_EQ(context.fpsr, 0x10u);
  for (int n = 0; n < 32; ++n) EXPECT_EQ(context.simd[n].bytes[15], n + 1) << n;
  EXPECT_EQ(own.until_leaving, sve::client::calls_between_leaving);
}

class Handlers : public Sites {
 protected:
  void SetUp() override {
    Sites::SetUp();
    sve::client::keep_states_over_handlers();
  }
  void TearDown() override {
    for (auto* event : now.thread_exit) event(&thread);
    std::size_t allocated = 0, released = 0;
    for (const std::string& call : now.calls) {
      allocated += call.starts_with("dr_thread_alloc");
      released += call.starts_with("dr_thread_free");
    }
    EXPECT_EQ(allocated, released);
  }
  void fill(int byte) {
    std::memset(state.z, byte, sizeof state.z);
    std::memset(state.p, byte & 1, sizeof state.p);
    std::memset(state.ffr, byte & 1, sizeof state.ffr);
  }
  bool is(int byte) {
    return state.z[0][0] == byte && state.z[31][111] == byte && state.p[0][0] == (byte & 1) &&
           state.p[15][111] == (byte & 1) && state.ffr[111] == (byte & 1);
  }
  void deliver(reg_t sp) {
    dr_mcontext_t source{};
    source.sp = sp;
    const dr_kernel_xfer_info_t info = {DR_XFER_SIGNAL_DELIVERY, &source, nullptr, sp - 600, 10};
    now.transfer(&thread, &info);
  }
  void come_back(reg_t sp) {
    const dr_kernel_xfer_info_t info = {DR_XFER_SIGNAL_RETURN, nullptr, nullptr, sp, 10};
    now.transfer(&thread, &info);
  }
};

TEST_F(Handlers, LeaveTheInterruptedStateAsItWas) {
  fill(1);
  deliver(5000);
  fill(2);
  deliver(4000);
  fill(3);
  come_back(4000);
  EXPECT_TRUE(is(2));
  come_back(5000);
  EXPECT_TRUE(is(1));
  fill(4);
  come_back(5000);  // of no handler that is known
  EXPECT_TRUE(is(4));
}

TEST_F(Handlers, ThatAreLeftByAJumpAreForgotten) {
  fill(1);
  deliver(5000);
  fill(2);
  for (reg_t i = 0; i < 1000; ++i) deliver(4000 - 16 * i);
  fill(3);
  come_back(4000 - 16 * 999);
  EXPECT_TRUE(is(2));
}

TEST_F(Handlers, OneBehindAJumpReturns) {
  fill(1);
  deliver(5000);
  fill(2);
  deliver(4000);
  come_back(5000);
  EXPECT_TRUE(is(1));
}

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
  const sve::GuardedReads guard;
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
  for (const auto* map : sve::decode::maps_in_is_sve_order())
    for (const auto& row : map->rows) {
      const bool accesses = row.function->access != sve::decode::AccessKind::none;
      EXPECT_EQ(map->word(row.key) >> 31 != 0, accesses) << row.name;
      ++(accesses ? memory : others);
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
