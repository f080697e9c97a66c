// The client on the fake platform: what it inserts, in which order it asks the platform for what, and what comes of
// failures.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "fake/machine.h"
#include "fake/platform.h"
#include "sve/client/port.h"
#include "sve/client/sve_client.h"
#include "sve/stats/stats.h"

// Recorded as one instruction, so that a test sees the arguments.
void dr_insert_call_zorvi(void*, instrlist_t* list, instr_t* where, app_pc address, void* callee, unsigned int count,
                          ...) {
  auto* const i = new instr_t;
  i->special = instr_t::call;
  i->translation = address;
  i->is_app = false;
  i->text = callee == reinterpret_cast<void*>(emulate_instruction) ? "call emulate_instruction" : "call ?";
  std::va_list arguments;
  va_start(arguments, count);
  for (unsigned int n = 0; n < count; ++n) {
    i->operands.push_back(va_arg(arguments, opnd_t));
    i->text += ", #" + std::to_string(i->operands.back().value) + ":" + std::to_string(i->operands.back().size);
  }
  va_end(arguments);
  list->instructions.insert(std::find(list->instructions.begin(), list->instructions.end(), where), i);
}

namespace {

using fake::now;
using Lines = std::vector<std::string>;

constexpr unsigned int nop = 0xd503201f;
constexpr unsigned int cntb_x26 = 0x0420e3fa, cntb_x27 = 0x0420e3fb, cntb_x28 = 0x0420e3fc;
constexpr unsigned int add_z0_z0_z1 = 0x04210000;  // add z0.b, z0.b, z1.b
constexpr unsigned int ptrue_p0_b = 0x2518e3e0, ptrues_p0_b = 0x2519e3e0, pfalse_p0 = 0x2518e400;
constexpr unsigned int ptest_p0_p0 = 0x2550c000;
constexpr unsigned int addvl_x1_sp_1 = 0x043f5021;
constexpr unsigned int str_z0_sp = 0xe58043e0;

class Client : public testing::Test {
 protected:
  void SetUp() override {
    now = {};
    code_module = {reinterpret_cast<app_pc>(code), "/some/where/program"};
    now.main_module = code_module;
    now.current = &thread;
    exe = nullptr;
    exe_start = nullptr;
    icounts.clear();
    sve_instr_count = 77;
    aarch64_instr_count = 77;
  }
  void TearDown() override {
    fake::clear(list);
    for (fake::thread* started : threads)
      for (auto* event : now.thread_exit) event(started);
  }

  void start(Lines arguments = {"client"}) {
    std::vector<const char*> argv;
    for (const auto& a : arguments) argv.push_back(a.c_str());
    dr_client_main(0, static_cast<int>(argv.size()), argv.data());
  }
  void start_thread(fake::thread* begun = nullptr) {
    threads.push_back(begun ? begun : &thread);
    fake::thread* const running = now.current;
    now.current = threads.back();
    for (auto* event : now.thread_init) event(threads.back());
    now.current = running;
    now.calls.clear();
  }
  void run_shared_block(const char* read);
  // What a failure printed, and that it ended the process.
  template <class Action>
  std::string failure(Action action) {
    EXPECT_THROW(action(), fake::aborted);
    return now.reports;
  }
  dr_emit_flags_t build(std::initializer_list<unsigned int> words, bool trace = false, bool translating = false) {
    fake::clear(list);
    std::copy(words.begin(), words.end(), code);
    fake::fill(list, code, words.size());
    return now.block(&thread, code, &list, trace, translating);
  }
  void run(fake::machine& m) {
    m.run(list, thread, [](const std::vector<opnd_t>& o) {
      emulate_instruction(static_cast<unsigned int>(o[0].value), reinterpret_cast<unsigned char*>(o[1].value),
                          reinterpret_cast<DecodeHandler>(o[2].value));
    });
  }
  cpu_state& state() { return *static_cast<cpu_state*>(thread.fields.at(tls_idx)); }

  alignas(4096) static inline unsigned int code[1024];
  module_data_t code_module;
  fake::thread thread, other_thread;
  std::vector<fake::thread*> threads;
  instrlist_t list;
};

TEST_F(Client, StartsInOrder) {
  start();
  EXPECT_EQ(now.calls,
            (Lines{"dr_set_client_name Norvane SVE emulation client", "drmgr_init", "drreg_init 1 0 0 0",
                   "dr_get_main_module", "drmgr_register_thread_init_event", "drmgr_register_thread_exit_event",
                   "dr_register_exit_event", "drmgr_register_bb_app2app_event null", "drmgr_register_tls_field 1",
                   // the stacks of the run-time call
                   "drmgr_register_tls_field 2", "dr_raw_tls_calloc 2", "drmgr_register_thread_init_event",
                   "drmgr_register_thread_exit_event",
                   // handlers, and children
                   "drmgr_register_tls_field 3", "drmgr_register_kernel_xfer_event", "drmgr_register_thread_exit_event",
                   "dr_register_fork_init_event", "dr_log null ffffff 1 SVE client initializing\n"}));
  EXPECT_EQ(now.thread_init.front(), event_thread_init);
  EXPECT_EQ(now.thread_exit.front(), event_thread_exit);
  EXPECT_EQ(now.exit, event_exit);
  EXPECT_EQ(now.block, event_instruction_change);
  EXPECT_EQ(exe, &now.main_module);
  EXPECT_EQ(exe_start, code_module.start);
  EXPECT_EQ(tls_idx, 1);
  EXPECT_EQ(sve_instr_count, 0u);
  EXPECT_EQ(aarch64_instr_count, 0u);
  EXPECT_EQ(now.reports, "");
}

TEST_F(Client, WithoutMainModuleTheStartIsNull) {
  now.has_main_module = false;
  start();
  EXPECT_EQ(exe, nullptr);
  EXPECT_EQ(exe_start, nullptr);
}

TEST_F(Client, AnyArgumentAheadOfTwoDashesIsAnError) {
  for (const Lines& arguments : {Lines{"client", "-fast"}, Lines{"client", "word"}, Lines{"client", "", "--"}}) {
    SetUp();
    EXPECT_EQ(failure([&] { start(arguments); }), "Usage error: Unknown option: " + arguments[1] + "\n");
    EXPECT_EQ(now.calls.back(), "dr_abort");
    EXPECT_EQ(now.calls.size(), 2u);
  }
  SetUp();
  EXPECT_NO_THROW(start({"client", "--", "-fast", "word"}));
  EXPECT_EQ(now.reports, "");
}

TEST_F(Client, FailuresOfThePlatformAreAssertions) {
  const auto text = [](int line, const char* condition) {
    return "ASSERT FAILURE: sve/client/sve_client:" + std::to_string(line) + ": " + condition + " ()\n";
  };
  now.drmgr_fails = true;
  EXPECT_EQ(failure([&] { start(); }), text(131, "false"));
  EXPECT_EQ(std::count(now.calls.begin(), now.calls.end(), "drreg_init 1 0 0 0"), 0);
  SetUp();
  now.drreg_fails = true;
  EXPECT_EQ(failure([&] { start(); }), text(131, "false"));
  SetUp();
  now.register_fails = true;
  EXPECT_EQ(failure([&] { start(); }), text(148, "false"));
  EXPECT_EQ(now.calls[now.calls.size() - 2], "drmgr_register_bb_app2app_event null");

  SetUp();
  start();
  EXPECT_EQ(failure([&] { event_thread_exit(&thread); }), text(178, "data != __null"));

  SetUp();
  start();
  now.unregister_fails = true;
  testing::internal::CaptureStderr();
  EXPECT_EQ(failure([&] { event_exit(); }), text(204, "false"));
  EXPECT_EQ(std::count(now.calls.begin(), now.calls.end(), "drreg_exit"), 0);
  now.unregister_fails = false;
  now.drreg_exit_fails = true;
  now.reports.clear();
  EXPECT_EQ(failure([&] { event_exit(); }), text(204, "false"));
  testing::internal::GetCapturedStderr();

  SetUp();
  start();
  start_thread();
  now.stolen = DR_REG_X27;
  EXPECT_EQ(failure([&] { build({nop, cntb_x26}); }), text(270, "dr_get_stolen_reg() == DR_REG_X28"));
  now.stolen = DR_REG_X28;
  now.reports.clear();
  build({nop});
  EXPECT_EQ(now.reports, "");
}

TEST_F(Client, ThreadsHaveAStateEach) {
  start();
  now.calls.clear();
  event_thread_init(&thread);
  const std::string size = std::to_string(sizeof(cpu_state));
  EXPECT_EQ(now.calls, Lines{"dr_thread_alloc " + size});
  EXPECT_EQ(state().p[3][5], 0xa5);  // not cleared
  EXPECT_EQ(state().fpcr_extra, 0u);
  fake::thread other;
  event_thread_init(&other);
  EXPECT_NE(other.fields.at(tls_idx), thread.fields.at(tls_idx));
  now.calls.clear();
  event_thread_exit(&other);
  event_thread_exit(&thread);
  EXPECT_EQ(now.calls, (Lines{"dr_thread_free " + size, "dr_thread_free " + size}));
}

TEST_F(Client, StopsInOrder) {
  start();
  now.calls.clear();
  sve_instr_count = 12;
  aarch64_instr_count = 345;
  testing::internal::CaptureStderr();
  now.exit();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "program: 12 SVE instructions executed\nprogram: 345 Non-SVE AArch64 instructions executed\n");
  EXPECT_EQ(now.calls, (Lines{"dr_log null ffffff 1 SVE client exiting\n", "dr_free_module_data main",
                              "drmgr_unregister_bb_app2app_event the same", "drreg_exit", "drmgr_exit"}));
}

TEST_F(Client, LeavesDataForAReport) {
  char directory[] = "/tmp/client-test-XXXXXX";
  ASSERT_NE(mkdtemp(directory), nullptr);
  setenv("SVE_RUN_OPTIONS", (std::string("quiet:report=") + directory + ":counts").c_str(), 1);
  start();
  unsetenv("SVE_RUN_OPTIONS");
  start_thread();
  build({ptrue_p0_b, add_z0_z0_z1});
  fake::machine m;
  run(m);
  run(m);
  testing::internal::CaptureStderr();
  now.exit();
  testing::internal::GetCapturedStderr();
  const std::string path = std::string(directory) + "/" + std::to_string(getpid()) + ".0";
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  const std::string data = text.str();
  EXPECT_TRUE(
      data.starts_with("sve-run-data 1\nbits 896\nplatform dynamorio\nprocess " + std::to_string(getpid()) + " "))
      << data;
  EXPECT_NE(data.find("program /some/where/program\ncounts\nend unknown\ntotal 4\n"), data.npos) << data;
  for (const char* word : {" 1 2 0\nword 0 0x2518e3e0 0\n", " 1 2 0\nword 0 0x4210000 0\n"})
    EXPECT_NE(data.find(word), data.npos) << word << data;
  EXPECT_TRUE(data.ends_with("done\n")) << data;
  std::filesystem::remove_all(directory);
}

// The inserted code, written down line by line.
Lines sequence(unsigned int word, const unsigned int* at, const cpu_state* state) {
  const auto number = [](auto value) { return std::to_string(value); };
  const auto field = [&](std::size_t offset, int size) { return "[x27+" + number(offset) + ":" + number(size) + "]"; };
  const auto x = [](std::size_t n) { return offsetof(cpu_state, x) + 8 * n; };
  const auto z = [](std::size_t n) { return offsetof(cpu_state, z) + sve::vector_bytes * n; };
  const std::string base = "mov x27, #" + number(reinterpret_cast<std::intptr_t>(state));
  Lines l = {"save x26, slot 2",
             "save x27, slot 3",
             "get stolen x27",
             "save x27, slot 4",
             base,
             "add x26, sp, #0, lsl, #0",
             "str " + field(offsetof(cpu_state, sp), 8) + ", x26"};
  for (int n = 0; n < 26; n += 2) l.push_back("stp " + field(x(n), 16) + ", x" + number(n) + ", x" + number(n + 1));
  l.push_back("stp " + field(x(29), 16) + ", x29, x30");
  for (int n = 0; n < 32; ++n) l.push_back("str " + field(z(n), 16) + ", q" + number(n));
  const std::string nzcv = field(offsetof(cpu_state, nzcv), 8), fpsr = field(offsetof(cpu_state, fpsr), 4),
                    fpcr = field(offsetof(cpu_state, fpcr), 4);
  l.insert(l.end(),
           {"mrs x26, nzcv", "str " + nzcv + ", x26", "mrs x26, fpsr", "str " + fpsr + ", w26", "mrs x26, fpcr",
            "str " + fpcr + ", w26",
            "call emulate_instruction, #" + number(word) + ":4, #" + number(reinterpret_cast<std::intptr_t>(at)) +
                ":8, #" + number(reinterpret_cast<std::intptr_t>(is_sve(word))) + ":8",
            base, "ldr w26, " + fpcr, "msr fpcr, x26", "ldr w26, " + fpsr, "msr fpsr, x26", "ldr x26, " + nzcv,
            "msr nzcv, x26"});
  for (int n = 0; n < 32; ++n) l.push_back("ldr q" + number(n) + ", " + field(z(n), 16));
  for (int n = 0; n < 26; n += 2) l.push_back("ldp x" + number(n) + ", x" + number(n + 1) + ", " + field(x(n), 16));
  l.insert(l.end(), {"ldp x29, x30, " + field(x(29), 16), "ldr x26, " + field(offsetof(cpu_state, sp), 8),
                     "add sp, x26, #0, lsl, #0", "restore x27, slot 4", "set stolen x27", "restore x27, slot 3",
                     "restore x26, slot 2"});
  return l;
}

TEST_F(Client, AnInstructionBecomesTheSequence) {
  start();
  start_thread();
  EXPECT_EQ(build({cntb_x26}), DR_EMIT_DEFAULT);
  const Lines expected = sequence(cntb_x26, code, &state());
  EXPECT_EQ(fake::texts(list), expected);
  // 7 and 14 and 32 and 6 ahead of the call; 1 and 6 and 32 and 14 and 2 and 4 behind it
  EXPECT_EQ(list.instructions.size(), 59u + 1u + 59u);
  EXPECT_EQ(now.destroyed, 1);
  for (const instr_t* i : list.instructions) {
    EXPECT_FALSE(i->is_original);
    if (i->special == instr_t::none) {
      EXPECT_TRUE(i->is_app) << i->text;
      EXPECT_EQ(i->translation, reinterpret_cast<app_pc>(code)) << i->text;
    }
  }
  EXPECT_EQ(aarch64_instr_count, 0u);
  EXPECT_EQ(sve_instr_count, 0u);
}

TEST_F(Client, AllElseStaysAsItIs) {
  start();
  start_thread();
  EXPECT_EQ(build({nop, cntb_x26, add_z0_z0_z1, nop}), DR_EMIT_DEFAULT);
  Lines expected = {"app d503201f"};
  for (const auto& l : sequence(cntb_x26, code + 1, &state())) expected.push_back(l);
  for (const auto& l : sequence(add_z0_z0_z1, code + 2, &state())) expected.push_back(l);
  expected.push_back("app d503201f");
  EXPECT_EQ(fake::texts(list), expected);
  EXPECT_EQ(aarch64_instr_count, 2u);
  // Again, for a trace and for a translation: alike, and counted again.
  for (int again = 1; again <= 3; ++again) {
    EXPECT_EQ(build({nop, cntb_x26, add_z0_z0_z1, nop}, again & 1, again & 2), DR_EMIT_DEFAULT);
    EXPECT_EQ(fake::texts(list), expected);
    EXPECT_EQ(aarch64_instr_count, 2u + 2u * again);
  }
}

TEST_F(Client, BlocksOfSharedLibrariesAreLeftAlone) {
  start();
  start_thread();
  now.modules = {{reinterpret_cast<app_pc>(code), "/lib/libother.so"}};
  exe_start = reinterpret_cast<app_pc>(0x1000);
  EXPECT_EQ(build({nop, cntb_x26}), DR_EMIT_DEFAULT);
  EXPECT_EQ(fake::texts(list), (Lines{"app d503201f", "app 0420e3fa"}));
  EXPECT_EQ(aarch64_instr_count, 0u);
  EXPECT_EQ(now.calls, Lines{"dr_free_module_data"});
}

TEST_F(Client, TheMainModuleAndCodeOutsideOfModulesAreRewritten) {
  start();
  start_thread();
  now.modules = {now.main_module};
  build({nop, cntb_x26});
  EXPECT_EQ(list.instructions.size(), 1u + 119u);
  EXPECT_EQ(now.calls.front(), "dr_free_module_data");
  now.modules.clear();
  build({nop, cntb_x26});
  EXPECT_EQ(list.instructions.size(), 1u + 119u);
  EXPECT_EQ(aarch64_instr_count, 2u);
}

TEST_F(Client, AnEmptyBlockReturnsAtOnce) {
  start();
  EXPECT_EQ(build({}), DR_EMIT_DEFAULT);
  EXPECT_TRUE(list.instructions.empty());
}

TEST_F(Client, OneNativeInstructionCountsOncePerPresentation) {
  start();
  build({nop, nop, nop});
  EXPECT_EQ(fake::texts(list), (Lines(3, "app d503201f")));
  EXPECT_EQ(aarch64_instr_count, 3u);
}

// Where blocks are shared the base is loaded from the running thread, and nothing else changes.
TEST_F(Client, SharedBlocksLoadTheThreadsOwnState) { run_shared_block("read x27, [x28+8]"); }

TEST_F(Client, SharedBlocksDoWithoutSlotsBesideTheStolenRegister) {
  now.has_direct_slots = false;
  run_shared_block("read x27, field 1");
}

void Client::run_shared_block(const char* read) {
  now.shares_blocks = true;
  start();
  start_thread();
  build({cntb_x27});
  Lines expected = sequence(cntb_x27, code, &state());
  for (auto& l : expected)
    if (l.starts_with("mov x27")) l = read;
  EXPECT_EQ(fake::texts(list), expected);

  start_thread(&other_thread);
  now.current = &other_thread;
  fake::machine m;
  m.run(list, other_thread, [](const std::vector<opnd_t>& o) {
    emulate_instruction(static_cast<unsigned int>(o[0].value), reinterpret_cast<unsigned char*>(o[1].value),
                        reinterpret_cast<DecodeHandler>(o[2].value));
  });
  EXPECT_EQ(m.x[27], 112u);
  EXPECT_EQ(m.x[26], 0u);
}

class Run : public Client {
 protected:
  void SetUp() override {
    Client::SetUp();
    start();
    start_thread();
    for (int n = 0; n < 32; ++n) m.x[n] = 0x1000 + static_cast<reg_t>(n);
    for (int n = 0; n < 32; ++n) m.q[n].fill(static_cast<byte>(n + 1));
    m.x[28] = 0xbad;  // the platform's
    m.stolen = 0x101c;
    m.fpcr = 0x01c00000;
    m.fpsr = 0x1f;
    m.nzcv = 0x60000000;
  }
  void execute(std::initializer_list<unsigned int> words) {
    build(words);
    run(m);
  }
  fake::machine m;
};

TEST_F(Run, EverythingIsCarriedAcross) {
  fake::machine before = m;
  execute({ptrue_p0_b});
  for (int n = 0; n < 32; ++n) {
    if (n != 28) {
      EXPECT_EQ(m.x[n], before.x[n]) << n;
    }
    EXPECT_EQ(m.q[n], before.q[n]) << n;
  }
  EXPECT_EQ(m.stolen, before.stolen);
  EXPECT_EQ(m.nzcv, before.nzcv);
  EXPECT_EQ(m.fpsr, before.fpsr);
  EXPECT_EQ(m.fpcr, before.fpcr);
  EXPECT_EQ(state().x[26], before.x[26]);
  EXPECT_EQ(state().x[27], before.x[27]);
  EXPECT_EQ(state().x[28], before.stolen);
  EXPECT_EQ(state().sp, before.x[31]);
  EXPECT_EQ(state().pc, code);
}

TEST_F(Run, TheRegistersOfTheSequenceAreWrittenThroughTheSlots) {
  execute({cntb_x26});
  EXPECT_EQ(m.x[26], 112u);
  EXPECT_EQ(m.x[27], 0x101bu);
  execute({cntb_x27});
  EXPECT_EQ(m.x[27], 112u);
  EXPECT_EQ(m.x[26], 112u);
  EXPECT_EQ(m.stolen, 0x101cu);
  execute({cntb_x28});
  EXPECT_EQ(m.stolen, 112u);
}

TEST_F(Run, NativeWritesKeepTheUpperBytes) {
  std::memset(state().z[0], 0x10, sve::vector_bytes);
  std::memset(state().z[1], 0x02, sve::vector_bytes);
  m.q[0].fill(0x20);
  m.q[1].fill(0x01);
  execute({add_z0_z0_z1});
  EXPECT_EQ(m.q[0][15], 0x21);
  EXPECT_EQ(state().z[0][16], 0x12);
  m.q[0].fill(0x40);  // as a native instruction would
  execute({add_z0_z0_z1});
  EXPECT_EQ(m.q[0][0], 0x41);
  EXPECT_EQ(state().z[0][16], 0x14);
  EXPECT_EQ(state().z[0][111], 0x14);
}

TEST_F(Run, FlagsReachTheApplication) {
  m.nzcv = 0x10000000;
  execute({pfalse_p0, ptest_p0_p0});
  EXPECT_EQ(m.nzcv & 0xf0000000, 0x60000000u);  // none active: Z and C
  execute({ptrues_p0_b});
  EXPECT_EQ(m.nzcv & 0xf0000000, 0x80000000u);  // the first and the last active: N, not C
}

TEST_F(Run, TheStackPointerIsTheApplications) {
  execute({addvl_x1_sp_1});
  EXPECT_EQ(m.x[1], 0x101fu + sve::vector_bytes);
  alignas(16) byte stack[sve::vector_bytes] = {};
  m.x[31] = reinterpret_cast<reg_t>(stack);
  std::memset(state().z[0], 0x33, sve::vector_bytes);
  execute({str_z0_sp});
  EXPECT_EQ(stack[0], 0x01);  // the native register's
  EXPECT_EQ(stack[111], 0x33);
  EXPECT_EQ(m.x[31], reinterpret_cast<reg_t>(stack));
}

TEST_F(Run, ALoopCountsEachExecution) {
  build({nop, cntb_x26});
  delete list.instructions.front();
  list.instructions.pop_front();
  for (int round = 0; round < 1000; ++round) run(m);
  EXPECT_EQ(sve_instr_count, 1000u);
  EXPECT_EQ(aarch64_instr_count, 1u);
  ASSERT_EQ(icounts.size(), 1u);
  EXPECT_EQ(icounts.at(code + 1).first, cntb_x26);
  EXPECT_EQ(icounts.at(code + 1).second, 1000u);
}

// A failure is reported with the word in memory, changes the slots all the same, and counts nothing.
TEST_F(Run, AFailureIsReportedAndSkipped) {
  code[3] = 0x12345678;
  thread.slots[SPILL_SLOT_2] = 1;
  thread.slots[SPILL_SLOT_3] = 2;
  thread.slots[SPILL_SLOT_4] = 3;
  testing::internal::CaptureStderr();
  emulate_instruction(0x04000000, reinterpret_cast<unsigned char*>(code + 3), [](cpu_state* s, unsigned int word) {
    EXPECT_EQ(word, 0x04000000u);
    for (int n = 26; n < 29; ++n) s->x[n] *= 10;
    return AARCH64_DECODE_UNDECODED;
  });
  char expected[128];
  std::snprintf(expected, sizeof expected, "Error: failed to emulate SVE instruction 0x12345678 at PC %p\n",
                static_cast<void*>(code + 3));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), expected);
  EXPECT_EQ(thread.slots[SPILL_SLOT_2], 10u);
  EXPECT_EQ(thread.slots[SPILL_SLOT_3], 20u);
  EXPECT_EQ(thread.slots[SPILL_SLOT_4], 30u);
  EXPECT_EQ(state().pc, code + 3);
  EXPECT_EQ(sve_instr_count, 0u);
  EXPECT_TRUE(icounts.empty());
}

}  // namespace
