// The trap, seen from the program: registers, threads, code from anywhere, processes. Runs under sve-run itself.
#include <aio.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <mqueue.h>
#include <netdb.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <threads.h>
#include <ucontext.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/children.h"
#include "tests/runner/sve_instructions.h"

namespace {

using namespace sve_instructions;

TEST(Trap, VectorLengthIsTheOneAskedFor) {
  EXPECT_EQ(cntb(), vector_bytes);
  std::uint64_t n;
  asm volatile(SVE_ASM("rdvl %0, #2") : "=r"(n));
  EXPECT_EQ(n, 2 * vector_bytes);
}

struct Registers {
  std::uint64_t x[31];
  std::uint64_t sp, nzcv, fpcr, fpsr;
  unsigned char v[32][16];
};
static_assert(offsetof(Registers, v) == 280);

}  // namespace

extern "C" {
Registers trap_test_before, trap_test_after;
}

namespace {

// All of the host's registers before and after an instruction that writes none of them.
TEST(Trap, OtherRegistersStay) {
  // Each V register gets a value of its own; flags, rounding mode and a sticky bit are set.
#define SAVE(to)                                                                                                    \
  "adrp x30, " to "\n add x30, x30, :lo12:" to                                                                      \
  "\n"                                                                                                              \
  "stp x0, x1, [x30]\n stp x2, x3, [x30, #16]\n stp x4, x5, [x30, #32]\n stp x6, x7, [x30, #48]\n"                  \
  "stp x8, x9, [x30, #64]\n stp x10, x11, [x30, #80]\n stp x12, x13, [x30, #96]\n stp x14, x15, [x30, #112]\n"      \
  "stp x16, x17, [x30, #128]\n stp x18, x19, [x30, #144]\n stp x20, x21, [x30, #160]\n stp x22, x23, [x30, #176]\n" \
  "stp x24, x25, [x30, #192]\n stp x26, x27, [x30, #208]\n stp x28, x29, [x30, #224]\n"                             \
  "mov x0, sp\n str x0, [x30, #248]\n mrs x0, nzcv\n str x0, [x30, #256]\n mrs x0, fpcr\n str x0, [x30, #264]\n"    \
  "mrs x0, fpsr\n str x0, [x30, #272]\n ldr x0, [x30]\n add x30, x30, #280\n"                                       \
  ".irp n, 0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,29,30,31\n"                 \
  "str q\\n, [x30], #16\n .endr\n"
  asm volatile(
      SVE_ASM(".irp n, 0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,29,30,31\n"
              "movi v\\n\\().16b, #(\\n * 5 + 1)\n .endr\n"
              ".irp n, 0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17\n mov x\\n, #(\\n * 257 + 3)\n .endr\n"
              "mov x30, #0x0c00000\n msr fpcr, x30\n mov x30, #1\n movk x30, #0x800, lsl #16\n msr fpsr, x30\n"
              "mov x30, #0xa0000000\n msr nzcv, x30\n")
          SAVE("trap_test_before") "ptrue p3.h, vl5\n" SAVE("trap_test_after") "msr fpcr, xzr\n msr fpsr, xzr\n" ::
              : "x0", "x1", "x2", "x3", "x4", "x5", "x6", "x7", "x8", "x9", "x10", "x11", "x12", "x13", "x14", "x15",
                "x16", "x17", "x30", "v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7", "v8", "v9", "v10", "v11", "v12",
                "v13", "v14", "v15", "v16", "v17", "v18", "v19", "v20", "v21", "v22", "v23", "v24", "v25", "v26", "v27",
                "v28", "v29", "v30", "v31", "cc", "memory");
#undef SAVE
  EXPECT_EQ(std::memcmp(&trap_test_before, &trap_test_after, sizeof(Registers)), 0);
  EXPECT_EQ(trap_test_after.nzcv, 0xa0000000u);
  EXPECT_EQ(trap_test_after.fpcr, 0xc00000u);
  EXPECT_EQ(trap_test_after.fpsr, 0x8000001u);
  EXPECT_EQ(trap_test_after.v[31][15], 156);
}

TEST(Trap, VectorsLieOverTheHostsAndKeepTheRest) {
  all_true_p0();
  fill_z7(0x11);
  EXPECT_EQ(read_z7(), filled(0x11));
  asm volatile("movi v7.16b, #0x22" ::: "v7");
  Vector expected = filled(0x11);
  std::fill_n(expected.begin(), 16, std::uint8_t{0x22});
  EXPECT_EQ(read_z7(), expected);
}

TEST(Trap, StackPointerIsABase) {
  all_true_p0();
  Vector v{};
  asm volatile(SVE_ASM("sub sp, sp, #128\n"
                       "dup z7.b, %w1\n"
                       "st1b {z7.b}, p0, [sp]\n"
                       "ld1b {z6.b}, p0/z, [sp]\n"
                       "add sp, sp, #128\n"
                       "st1b {z6.b}, p0, [%0]\n")::"r"(v.data()),
               "r"(0x5au)
               : "v6", "v7", "memory");
  EXPECT_EQ(v, filled(0x5a));
}

TEST(Trap, FlagsCrossBothWays) {
  std::uint64_t any = 0, carry = 0;
  asm volatile(SVE_ASM("ptrue p1.b\n"
                       "pfalse p2.b\n"
                       "ptest p1, p1.b\n"
                       "cset %0, ne\n"
                       "ptest p1, p2.b\n"
                       "cinc %0, %0, ne\n"
                       "mov x0, #-1\n"
                       "adds x0, x0, #1\n"
                       "ptrue p1.b\n"  // leaves the flags
                       "cset %1, cs\n")
               : "=&r"(any), "=&r"(carry)::"x0", "cc", "memory");
  EXPECT_EQ(any, 1u);
  EXPECT_EQ(carry, 1u);
}

// Instructions of one run that compute in different ways: none loses what another has raised.
TEST(Trap, StatusAddsUpOverARun) {
  std::uint64_t status = 0;
  asm volatile(SVE_ASM("ptrue p0.b\n"
                       "mov w0, #0x7f000000\n"  // 2^127
                       "dup z1.s, w0\n"
                       "mov w0, #0x3f800000\n"
                       "dup z2.s, w0\n"
                       "msr fpsr, xzr\n"
                       "fmla z3.s, p0/m, z1.s, z1.s\n"  // overflows
                       "fadd z2.s, z2.s, z2.s\n"        // is exact
                       "mrs %0, fpsr\n"
                       "msr fpsr, xzr\n")
               : "=r"(status)::"x0", "v1", "v2", "v3");
  EXPECT_EQ(status, 0x14u);
}

TEST(Trap, ErrnoStays) {
  errno = 77;
  cntb();
  EXPECT_EQ(errno, 77);
}

class GeneratedCode : public testing::Test {
 protected:
  static constexpr std::size_t page = 4096;
  void SetUp() override {
    void* p = mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(p, MAP_FAILED);
    code = static_cast<std::uint32_t*>(p);
  }
  void TearDown() override { munmap(code, 3 * page); }
  std::uint64_t call(std::uint32_t* at, std::initializer_list<std::uint32_t> instructions) {
    std::copy(instructions.begin(), instructions.end(), at);
    __builtin___clear_cache(reinterpret_cast<char*>(at), reinterpret_cast<char*>(at + instructions.size()));
    return reinterpret_cast<std::uint64_t (*)()>(at)();
  }
  std::uint32_t* code = nullptr;
  static constexpr std::uint32_t cntb_x0 = 0x0420e3e0, cnth_x0 = 0x0460e3e0, incb_x0 = 0x0430e3e0, ret = 0xd65f03c0;
};

TEST_F(GeneratedCode, Runs) {
  EXPECT_EQ(call(code, {cntb_x0, ret}), vector_bytes);
  EXPECT_EQ(call(code, {cnth_x0, ret}), vector_bytes / 2);
}

TEST_F(GeneratedCode, ARunOfInstructionsCrossesAPage) {
  std::uint32_t* at = code + page / 4 - 2;
  EXPECT_EQ(call(at, {cntb_x0, incb_x0, incb_x0, incb_x0, ret}), 4 * vector_bytes);
}

TEST_F(GeneratedCode, TheLastInstructionOfAllMayBeOurs) {
  mprotect(code + page / 4, page, PROT_NONE);
  // It runs, and the fault comes after it.
  const auto result = in_child([&] {
    std::uint32_t* at = code + page / 4 - 2;
    at[0] = cntb_x0;
    at[1] = incb_x0;
    __builtin___clear_cache(reinterpret_cast<char*>(at), reinterpret_cast<char*>(at + 2));
    static void* beyond = code + page / 4;
    struct sigaction action = {};
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = [](int, siginfo_t* info, void* raw) {
      const auto& context = static_cast<ucontext_t*>(raw)->uc_mcontext;
      _exit(info->si_addr == beyond && context.regs[0] == 2 * vector_bytes ? 42 : 1);
    };
    sigaction(SIGSEGV, &action, nullptr);
    reinterpret_cast<std::uint64_t (*)()>(at)();
  });
  EXPECT_TRUE(result.exited_with(42)) << result.status;
}

// Words that no processor has, although our rows take them: among them the logical immediate that has no width, of
// which the expansion does not return.
TEST_F(GeneratedCode, UnallocatedWordsAreIllegal) {
  const std::uint32_t words[] = {0x05c007c0, 0x050007e0, 0x058005e0, 0x2520e020,
                                 0x2538e020, 0x05102020, 0xa41f4000, 0xe41f6000};
  for (const std::uint32_t word : words) {
    const auto result = in_child([&] {
      struct sigaction action = {};
      action.sa_flags = SA_SIGINFO;
      static const void* at = code + 1;
      action.sa_sigaction = [](int, siginfo_t* info, void*) { _exit(info->si_addr == at ? 42 : 1); };
      sigaction(SIGILL, &action, nullptr);
      call(code, {cntb_x0, word, ret});  // in the middle of a run
    });
    EXPECT_TRUE(result.exited_with(42)) << std::hex << word << " " << result.status;
  }
}

// A load into its own addresses, over pages that a handler brings: what it has loaded so far is no address.
TEST(Faults, AListIsFollowedOverPagesThatComeOnDemand) {
  constexpr std::size_t page = 4096, most = sizeof(Vector) / 8;
  const std::size_t count = vector_bytes / 8;
  static int faults;
  auto* const memory = static_cast<std::uint8_t*>(
      mmap(nullptr, count * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(memory, MAP_FAILED);
  std::uint64_t nodes[most] = {}, expected[most] = {};
  for (std::size_t e = 0; e < count; ++e) {
    nodes[e] = reinterpret_cast<std::uint64_t>(memory + (e * 5 % count) * page + 8 * e);
    expected[e] = reinterpret_cast<std::uint64_t>(memory + e);
    std::memcpy(reinterpret_cast<void*>(nodes[e]), &expected[e], 8);
  }
  mprotect(memory, count * page, PROT_NONE);
  struct sigaction action = {}, before;
  action.sa_flags = SA_SIGINFO;
  action.sa_sigaction = [](int, siginfo_t* info, void*) {
    ++faults;
    mprotect(reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(info->si_addr) & ~(page - 1)), page, PROT_READ);
  };
  sigaction(SIGSEGV, &action, &before);
  asm volatile(SVE_ASM("ptrue p0.b\n"
                       "ld1d {z7.d}, p0/z, [%0]\n"
                       "ld1d {z7.d}, p0/z, [z7.d]\n"
                       "st1d {z7.d}, p0, [%0]\n")::"r"(nodes)
               : "v7", "memory");
  sigaction(SIGSEGV, &before, nullptr);
  EXPECT_EQ(faults, static_cast<int>(count));
  EXPECT_EQ(std::memcmp(nodes, expected, sizeof nodes), 0);
  munmap(memory, count * page);
}

TEST(Libraries, OpenedAtRunTime) {
  void* plugin = dlopen(SVE_PLUGIN, RTLD_NOW);
  ASSERT_TRUE(plugin) << dlerror();
  const auto bytes = reinterpret_cast<unsigned long (*)()>(dlsym(plugin, "plugin_bytes"));
  const auto* at_start = static_cast<unsigned long*>(dlsym(plugin, "plugin_halfwords_at_start"));
  ASSERT_TRUE(bytes && at_start);
  EXPECT_EQ(bytes(), vector_bytes);
  EXPECT_EQ(*at_start, vector_bytes / 2);
  dlclose(plugin);
}

TEST(Threads, HaveTheirOwnVectors) {
  constexpr int count = 6;
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 1; t <= count; ++t) {
    threads.emplace_back([&wrong, t] {
      all_true_p0();
      for (int i = 0; i < 40; ++i) {
        const auto byte = static_cast<std::uint8_t>(t * 16 + i % 16);
        fill_z7(byte);
        std::this_thread::yield();
        if (read_z7() != filled(byte)) ++wrong;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST(Threads, BeginCleared) {
  std::thread([] {
    all_true_p0();
    fill_z7(0xee);
  }).join();
  Vector seen = filled(1);
  std::uint64_t active = 99;
  std::thread([&] {
    asm volatile(SVE_ASM("cntp %0, p0, p0.b") : "=r"(active));
    all_true_p0();
    asm volatile("movi v7.16b, #0" ::: "v7");
    seen = read_z7();
  }).join();
  EXPECT_EQ(active, 0u);
  EXPECT_EQ(seen, filled(0));
}

int count_mappings() {
  std::ifstream maps("/proc/self/maps");
  int lines = 0;
  for (std::string line; std::getline(maps, line);) ++lines;
  return lines;
}

TEST(Threads, GiveTheirMemoryBack) {
  const auto run = [] { std::thread([] { cntb(); }).join(); };
  for (int i = 0; i < 5; ++i) run();
  const int before = count_mappings();
  for (int i = 0; i < 60; ++i) run();
  EXPECT_LT(count_mappings(), before + 20);
}

TEST(Threads, MayUseSveInTheLastDestructor) {
  static std::atomic<std::uint64_t> seen{0};
  static pthread_key_t key;
  ASSERT_EQ(pthread_key_create(&key, [](void*) { seen += cntb(); }), 0);
  std::thread([] {
    cntb();
    pthread_setspecific(key, &seen);
  }).join();
  EXPECT_EQ(seen, vector_bytes);
  pthread_key_delete(key);
}

TEST(Threads, GiveTheirMemoryBackAfterTheLastDestructor) {
  static pthread_key_t keys[40];
  static std::atomic<int> used;
  used = 0;
  // Each asks to be called again, as long as there are rounds.
  for (auto& key : keys) {
    const auto destroy = [](void* own) {
      used += cntb() == vector_bytes;
      pthread_setspecific(*static_cast<pthread_key_t*>(own), own);
    };
    ASSERT_EQ(pthread_key_create(&key, destroy), 0);
  }
  const auto run = [] {
    std::thread([] {
      for (auto& key : keys) pthread_setspecific(key, &key);
    }).join();
  };
  for (int i = 0; i < 5; ++i) run();
  const int before = count_mappings();
  for (int i = 0; i < 60; ++i) run();
  EXPECT_LT(count_mappings(), before + 20);
  EXPECT_EQ(used, 65 * 40 * 4);
  for (auto& key : keys) pthread_key_delete(key);
}

TEST(Threads, OfTheC11Kind) {
  thrd_t thread;
  ASSERT_EQ(thrd_create(
                &thread, [](void*) { return static_cast<int>(cntb()); }, nullptr),
            thrd_success);
  int result = 0;
  thrd_join(thread, &result);
  EXPECT_EQ(result, static_cast<int>(vector_bytes));
}

// libc's own threads have all signals blocked. Each event has a number and a count of its own, since an earlier one's
// calls may still be on their way.
struct Notified {
  static inline std::atomic<int> calls[64];
  static inline int last;
  static void note(sigval value) {
    sigset_t now;
    pthread_sigmask(SIG_BLOCK, nullptr, &now);
    const bool one_mask = sigismember(&now, SIGILL) == sigismember(&now, SIGUSR1);
    if (cntb() == vector_bytes && one_mask) ++calls[value.sival_int];
  }
  static sigevent event() {
    last = (last + 1) % 64;
    calls[last] = 0;
    sigevent e = {};
    e.sigev_notify = SIGEV_THREAD;
    e.sigev_notify_function = note;
    e.sigev_value.sival_int = last;
    return e;
  }
  static bool came(int count) {
    for (int i = 0; i < 3000 && calls[last] < count; ++i) usleep(1000);
    return calls[last] >= count;
  }
};

TEST(Notifications, OfTimers) {
  sigevent event = Notified::event();
  timer_t timer;
  ASSERT_EQ(timer_create(CLOCK_MONOTONIC, &event, &timer), 0);
  const itimerspec often = {{0, 5000000}, {0, 5000000}};
  timer_settime(timer, 0, &often, nullptr);
  EXPECT_TRUE(Notified::came(3));
  timer_delete(timer);
}

TEST(Notifications, OfFiles) {
  char name[] = "/tmp/trap_test_XXXXXX", data[8] = "1234567";
  const int fd = mkstemp(name);
  unlink(name);
  aiocb block = {};
  block.aio_fildes = fd;
  block.aio_buf = data;
  block.aio_nbytes = sizeof data;
  block.aio_sigevent = Notified::event();
  ASSERT_EQ(aio_write(&block), 0);
  EXPECT_TRUE(Notified::came(1));
  block.aio_sigevent = Notified::event();
  ASSERT_EQ(aio_fsync(O_SYNC, &block), 0);
  EXPECT_TRUE(Notified::came(1));
  block.aio_sigevent = Notified::event();
  ASSERT_EQ(aio_read(&block), 0);
  EXPECT_TRUE(Notified::came(1));
  sigevent all = block.aio_sigevent = Notified::event();
  block.aio_lio_opcode = LIO_READ;
  aiocb* list[] = {&block};
  ASSERT_EQ(lio_listio(LIO_NOWAIT, list, 1, &all), 0);
  EXPECT_TRUE(Notified::came(2));
  close(fd);
}

TEST(Notifications, OfNames) {
  addrinfo hints = {};
  hints.ai_flags = AI_NUMERICHOST;
  gaicb request = {};
  request.ar_name = "127.0.0.1";
  request.ar_request = &hints;
  gaicb* list[] = {&request};
  sigevent event = Notified::event();
  ASSERT_EQ(getaddrinfo_a(GAI_NOWAIT, list, 1, &event), 0);
  EXPECT_TRUE(Notified::came(1));
  freeaddrinfo(request.ar_result);
}

TEST(Notifications, OfQueues) {
  const std::string name = "/trap_test_" + std::to_string(getpid());
  mq_attr attributes = {};
  attributes.mq_maxmsg = 1;
  attributes.mq_msgsize = 8;
  const mqd_t queue = mq_open(name.c_str(), O_CREAT | O_RDWR, 0600, &attributes);
  if (queue < 0) GTEST_SKIP() << "SKIPPED: no message queues here: " << std::strerror(errno);
  mq_unlink(name.c_str());
  sigevent event = Notified::event();
  if (mq_notify(queue, &event) != 0) {
    mq_close(queue);
    GTEST_SKIP() << "SKIPPED: no notifications of message queues here (qemu-user has none): " << std::strerror(errno);
  }
  mq_send(queue, "x", 1, 0);
  EXPECT_TRUE(Notified::came(1));
  mq_close(queue);
}

TEST(Threads, NeedLittleStack) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, static_cast<std::size_t>(sysconf(_SC_THREAD_STACK_MIN))), 0);
  pthread_t thread;
  const auto body = [](void*) -> void* {
    all_true_p0();
    fill_z7(3);
    return reinterpret_cast<void*>(read_z7() == filled(3) ? cntb() : 0);
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, body, nullptr), 0);
  void* result = nullptr;
  pthread_join(thread, &result);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(result), vector_bytes);
}

std::string report_of(int executed) {
  return std::string(program_invocation_short_name) + ": " + std::to_string(executed) + " SVE instructions executed\n";
}

TEST(Processes, ACopyKeepsVectorsAndCountsFromNothing) {
  all_true_p0();
  fill_z7(0x77);
  const auto result = in_child([] { _exit(read_z7() == filled(0x77) ? 7 : 8); });
  EXPECT_TRUE(result.exited_with(7)) << result.status;
  EXPECT_EQ(result.error_output, report_of(1));
}

TEST(Processes, ReportOnceOnEveryWayOut) {
  const struct {
    const char* name;
    void (*leave)();
  } ways[] = {
      {"exit", [] { std::exit(3); }},
      {"_exit", [] { _exit(3); }},
      {"_Exit", [] { std::_Exit(3); }},
      {"quick_exit", [] { std::quick_exit(3); }},
      {"exit with stderr closed",
       [] {
         std::atexit([] { close(STDERR_FILENO); });
         std::exit(3);
       }},
  };
  for (const auto& way : ways) {
    const auto result = in_child([&] {
      cntb();
      cntb();
      way.leave();
    });
    EXPECT_TRUE(result.exited_with(3)) << way.name;
    EXPECT_EQ(result.error_output, report_of(2)) << way.name;
  }
}

TEST(Processes, CountWhatExitHandlersExecute) {
  const auto result = in_child([] {
    std::atexit([] { cntb(); });
    std::exit(4);
  });
  EXPECT_TRUE(result.exited_with(4));
  EXPECT_EQ(result.error_output, report_of(1));
}

TEST(Processes, AVforkedChildIsSilentAndLeavesTheParentAlone) {
  const auto result = in_child([] {
    cntb();
    int status = 0;
    const pid_t child = vfork();
    if (child == 0) _exit(5);
    waitpid(child, &status, 0);
    _exit(WEXITSTATUS(status));
  });
  EXPECT_TRUE(result.exited_with(5)) << result.status;
  EXPECT_EQ(result.error_output, report_of(1));
}

long raw_copy() { return syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0); }

// What a copy of the process ends with.
int status_of(long child) {
  int status = 0;
  waitpid(static_cast<pid_t>(child), &status, 0);
  return status;
}

// A copy made by a system call of the program's own: no vforked child.
TEST(Processes, RawCopiesAreProcessesOfTheirOwn) {
  all_true_p0();
  fill_z7(0x31);
  const auto result = in_child([] {
    cntb();
    cntb();
    const long child = raw_copy();
    if (child == 0) {
      if (read_z7() != filled(0x31)) _exit(1);
      static volatile int calls = 0;
      struct sigaction action = {};
      action.sa_flags = SA_SIGINFO;
      action.sa_sigaction = [](int, siginfo_t*, void* raw) {
        calls = calls + 1;
        static_cast<ucontext_t*>(raw)->uc_mcontext.pc += 4;
      };
      sigaction(SIGILL, &action, nullptr);
      undefined_instruction();
      action.sa_sigaction = [](int, siginfo_t*, void*) { calls = calls + cntb(); };
      sigaction(SIGUSR1, &action, nullptr);
      raise(SIGUSR1);
      _exit(calls == static_cast<int>(vector_bytes) + 1 ? 6 : 7);
    }
    _exit(WEXITSTATUS(status_of(child)));
  });
  EXPECT_TRUE(result.exited_with(6)) << result.status;
  EXPECT_EQ(result.error_output, report_of(2) + report_of(2));
}

// Of places that are patched already, which no trap tells of.
TEST(Processes, RawCopiesCountFromNothingWithoutATrap) {
  if (madvise(nullptr, 0, 9999) == 0) GTEST_SKIP() << "SKIPPED: this kernel follows no advice on memory (qemu-user)";
  const auto result = in_child([] {
    for (int i = 0; i < 3; ++i) cntb();
    const long child = raw_copy();
    if (child == 0) {
      for (int i = 0; i < 5; ++i) cntb();
      _exit(4);
    }
    const int status = status_of(child);
    cntb();
    _exit(WEXITSTATUS(status));
  });
  EXPECT_TRUE(result.exited_with(4)) << result.status;
  EXPECT_EQ(result.error_output, report_of(5) + report_of(4));
}

TEST(Processes, ClonesOnStacksOfTheirOwn) {
  all_true_p0();
  fill_z7(0x32);
  const auto result = in_child([] {
    cntb();
    alignas(16) static char stack[16384];
    const auto body = [](void* argument) {
      const bool is_whole = read_z7() == filled(0x32) && argument == stack;
      return is_whole ? static_cast<int>(cntb()) : 1;
    };
    const int child = clone(body, stack + sizeof stack, SIGCHLD, stack);
    _exit(WEXITSTATUS(status_of(child)));
  });
  EXPECT_TRUE(result.exited_with(vector_bytes % 256)) << result.status;
  EXPECT_EQ(result.error_output, report_of(2) + report_of(1));
}

std::uint64_t halfwords_for_the_first_time() {
  std::uint64_t n;
  asm volatile(SVE_ASM("cnth %0") : "=r"(n));
  return n;
}

constexpr int no_sandbox = 77;

// Reading, writing, ending and `allowed` are allowed; what the rest comes to is `otherwise`.
template <class Enter>
bool filter_calls(unsigned otherwise, Enter enter, unsigned allowed = SYS_read) {
  sock_filter program[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                           BPF_JUMP(BPF_JMP | BPF_JEQ, allowed, 6, 0),
                           BPF_JUMP(BPF_JMP | BPF_JEQ, SYS_read, 5, 0),
                           BPF_JUMP(BPF_JMP | BPF_JEQ, SYS_write, 4, 0),
                           BPF_JUMP(BPF_JMP | BPF_JEQ, SYS_exit, 3, 0),
                           BPF_JUMP(BPF_JMP | BPF_JEQ, SYS_exit_group, 2, 0),
                           BPF_JUMP(BPF_JMP | BPF_JEQ, SYS_rt_sigreturn, 1, 0),
                           BPF_STMT(BPF_RET | BPF_K, otherwise),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog filter{sizeof program / sizeof program[0], program};
  return enter(&filter);
}

// A system call that no function of the C library makes.
long bare_call(long number, long a, long b = 0, long c = 0) {
  register long x8 asm("x8") = number;
  register long x0 asm("x0") = a;
  register long x1 asm("x1") = b;
  register long x2 asm("x2") = c;
  register long x3 asm("x3") = 0;
  register long x4 asm("x4") = 0;
  asm volatile("svc #0" : "+r"(x0) : "r"(x8), "r"(x1), "r"(x2), "r"(x3), "r"(x4) : "memory");
  return x0;
}

// Places old and new, when it is called first.
[[gnu::noinline]] bool counts_in_sandbox() {
  return cntb() == vector_bytes && halfwords_for_the_first_time() == vector_bytes / 2 && cntb() == vector_bytes;
}

template <class Enter>
void strict_sandbox_lets_traps_be(Enter enter) {
  const auto result = in_child([=] {
    if (enter() != 0) _exit(no_sandbox);
    syscall(SYS_exit, counts_in_sandbox() ? 7 : 8);
  });
  if (result.exited_with(no_sandbox)) GTEST_SKIP() << "this kernel has no seccomp";
  EXPECT_TRUE(result.exited_with(7)) << result.status;
}

TEST(Sandboxes, OfReadWriteAndExitLetTrapsBe) {
  strict_sandbox_lets_traps_be([] { return prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT); });
  strict_sandbox_lets_traps_be([] { return syscall(SYS_prctl, PR_SET_SECCOMP, SECCOMP_MODE_STRICT); });
  strict_sandbox_lets_traps_be([] { return syscall(SYS_seccomp, SECCOMP_SET_MODE_STRICT, 0, nullptr); });
}

template <class Enter>
void list_lets_traps_and_the_report_be(Enter enter) {
  const auto result = in_child([=] {
    if (!filter_calls(SECCOMP_RET_KILL_PROCESS, enter)) _exit(no_sandbox);
    _exit(counts_in_sandbox() ? 7 : 8);
  });
  if (result.exited_with(no_sandbox)) GTEST_SKIP() << "this kernel has no seccomp";
  EXPECT_TRUE(result.exited_with(7)) << result.status;
  EXPECT_EQ(result.error_output, report_of(3));
}

TEST(Sandboxes, OfAListLetTrapsAndTheReportBe) {
  list_lets_traps_and_the_report_be([](const sock_fprog* filter) {
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, filter) == 0;
  });
  // Neither by prctl: the one by a call that is not seen, the other by one that is.
  list_lets_traps_and_the_report_be([](const sock_fprog* filter) {
    return bare_call(SYS_prctl, PR_SET_NO_NEW_PRIVS, 1) == 0 &&
           syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, filter) == 0;
  });
}

// Nobody sees these begin. Places that have been met need no call but the return from their trap, if they trap still.
TEST(Sandboxes, OfBareCallsLetPlacesThatAreMetBe) {
  const auto result = in_child([] {
    counts_in_sandbox();
    counts_in_sandbox();
    if (bare_call(SYS_prctl, PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) _exit(no_sandbox);
    bare_call(SYS_exit, counts_in_sandbox() ? 7 : 8);
  });
  if (result.exited_with(no_sandbox)) GTEST_SKIP() << "this kernel has no seccomp";
  EXPECT_TRUE(result.exited_with(7)) << result.status;
}

// New places ask whether there is a sandbox.
TEST(Sandboxes, OfBareCallsAreSeenWhereAskingIsAllowed) {
  for (const unsigned otherwise : {SECCOMP_RET_ERRNO | EPERM, SECCOMP_RET_KILL_PROCESS}) {
    const auto result = in_child([=] {
      const bool begun = filter_calls(
          otherwise,
          [](const sock_fprog* filter) {
            return bare_call(SYS_prctl, PR_SET_NO_NEW_PRIVS, 1) == 0 &&
                   bare_call(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, reinterpret_cast<long>(filter)) == 0;
          },
          otherwise == SECCOMP_RET_KILL_PROCESS ? SYS_prctl : SYS_read);
      if (!begun) _exit(no_sandbox);
      _exit(counts_in_sandbox() ? 7 : 8);
    });
    if (result.exited_with(no_sandbox)) GTEST_SKIP() << "this kernel has no seccomp";
    EXPECT_TRUE(result.exited_with(7)) << result.status;
    EXPECT_EQ(result.error_output, report_of(3));
  }
}

// In memory that is its parent's until it has a program of its own.
TEST_F(GeneratedCode, AVforkedChildsSandboxIsItsOwn) {
  const auto is_patched_when_called = [this](int at, std::uint32_t word) {
    const std::uint32_t words[] = {word, ret};
    EXPECT_EQ(mprotect(code, page, PROT_READ | PROT_WRITE), 0);
    std::memcpy(code + at, words, sizeof words);
    __builtin___clear_cache(reinterpret_cast<char*>(code + at), reinterpret_cast<char*>(code + at + 2));
    EXPECT_EQ(mprotect(code, page, PROT_READ | PROT_EXEC), 0);
    reinterpret_cast<std::uint64_t (*)()>(code + at)();
    return code[at] != word;
  };
  const bool is_patched = is_patched_when_called(0, cntb_x0);
  const pid_t child = vfork();
  if (child == 0) _exit(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 ? 3 : 4);
  EXPECT_EQ(WEXITSTATUS(status_of(child)), 3);
  EXPECT_EQ(is_patched_when_called(8, cnth_x0), is_patched);
}

TEST(Processes, ManyCopiesWhileThreadsTrap) {
  std::atomic<bool> stop{false};
  std::thread busy([&] {
    while (!stop) cntb();
  });
  for (int i = 0; i < 20; ++i) {
    const auto result = in_child([] { _exit(cntb() == vector_bytes ? 0 : 1); });
    EXPECT_TRUE(result.exited_with(0)) << result.status;
    EXPECT_EQ(result.error_output, report_of(1));
  }
  stop = true;
  busy.join();
}

// Whatever the other threads are at, which the copy has not.
TEST_F(GeneratedCode, RawCopiesWaitForNobody) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> busy;
  for (int t = 0; t < 3; ++t)
    busy.emplace_back([&] {
      while (!stop) {
        void* const own = mmap(nullptr, page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        auto* const words = static_cast<std::uint32_t*>(own);
        words[0] = cntb_x0;
        words[1] = ret;
        __builtin___clear_cache(reinterpret_cast<char*>(words), reinterpret_cast<char*>(words + 2));
        mprotect(own, page, PROT_READ | PROT_EXEC);
        reinterpret_cast<std::uint64_t (*)()>(own)();
        mprotect(own, page, PROT_READ | PROT_WRITE);
        munmap(own, page);
      }
    });
  int wrong = 0;
  for (int i = 0; i < 100; ++i) {
    const long child = raw_copy();
    if (child == 0) {
      alarm(20);
      syscall(SYS_exit_group, call(code, {cnth_x0, ret}) == vector_bytes / 2 ? 5 : 6);
    }
    const int status = status_of(child);
    wrong += !WIFEXITED(status) || WEXITSTATUS(status) != 5;
  }
  stop = true;
  for (auto& thread : busy) thread.join();
  EXPECT_EQ(wrong, 0);
}

// The copy's code is the copy's alone.
TEST_F(GeneratedCode, RawCopiesGetTheirOwnWordsBack) {
  code[0] = cntb_x0;
  code[1] = ret;
  __builtin___clear_cache(reinterpret_cast<char*>(code), reinterpret_cast<char*>(code + 2));
  mprotect(code, page, PROT_READ | PROT_EXEC);
  const auto call_it = reinterpret_cast<std::uint64_t (*)()>(code);
  EXPECT_EQ(call_it(), vector_bytes);
  const std::uint32_t patched = code[0];
  const long child = raw_copy();
  if (child == 0) {
    mprotect(code, page, PROT_READ | PROT_WRITE);
    syscall(SYS_exit_group, code[0] == cntb_x0 ? 5 : 6);
  }
  const int status = status_of(child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 5) << status;
  EXPECT_EQ(code[0], patched);
  EXPECT_EQ(call_it(), vector_bytes);
  mprotect(code, page, PROT_READ | PROT_WRITE | PROT_EXEC);
}

TEST(NewPrograms, AreEmulatedEvenWithABareEnvironment) {
  // What the emulated processor of a cross build needs; nothing of ours.
  std::vector<std::string> kept;
  for (const char* name : {"QEMU_CPU", "QEMU_LD_PREFIX"}) {
    if (const char* value = std::getenv(name)) kept.push_back(std::string(name) + "=" + value);
  }
  std::vector<char*> environment;
  for (auto& entry : kept) environment.push_back(entry.data());
  environment.push_back(nullptr);
  char self[4096];
  self[readlink("/proc/self/exe", self, sizeof self - 1)] = 0;
  const auto result = in_child([&] {
    char* arguments[] = {self, const_cast<char*>("--count-bytes"), nullptr};
    execve(self, arguments, environment.data());
    _exit(errno == ENOEXEC ? 99 : 98);
  });
  if (result.exited_with(99)) GTEST_SKIP() << "AArch64 programs cannot be executed directly here";
  EXPECT_TRUE(result.exited_with(static_cast<int>(vector_bytes))) << result.status;
  EXPECT_NE(result.error_output.find(report_of(1)), std::string::npos) << result.error_output;
}

// Where a new program would not find the library it runs without, and that is said.
TEST(Processes, AfterAChangeOfRootNothingIsPreloaded) {
  char directory[] = "/tmp/trap_test_XXXXXX";
  ASSERT_TRUE(mkdtemp(directory));
  const auto result = in_child([&] {
    if (chroot(directory) != 0) _exit(99);
    for (int i = 0; i < 2; ++i) execl("/program", "program", nullptr);
    _exit(errno == ENOENT && cntb() == vector_bytes ? 42 : 1);
  });
  rmdir(directory);
  if (result.exited_with(99)) GTEST_SKIP() << "SKIPPED: only root may change the root directory";
  EXPECT_TRUE(result.exited_with(42)) << result.status;
  const auto said = result.error_output.find(".so: not to be reached any more");
  EXPECT_NE(said, std::string::npos) << result.error_output;
  EXPECT_EQ(result.error_output.find("not to be reached", said + 50), std::string::npos) << result.error_output;
}

class ShellCommands : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    preload = getenv("LD_PRELOAD");
    unsetenv("LD_PRELOAD");
    char path[4096];
    self.assign(path, static_cast<std::size_t>(readlink("/proc/self/exe", path, sizeof path)));
    can_start = WEXITSTATUS(std::system((self + " --succeed").c_str())) == 0;
  }
  static void TearDownTestSuite() { setenv("LD_PRELOAD", preload.c_str(), 1); }
  void SetUp() override {
    if (!can_start) GTEST_SKIP() << "SKIPPED: AArch64 programs cannot be executed directly here";
  }
  static std::string first_line(const std::string& command) {
    FILE* stream = popen(command.c_str(), "r");
    char line[256] = "";
    if (!std::fgets(line, sizeof line, stream)) line[0] = 0;
    pclose(stream);
    return line;
  }
  static std::string spawned(const posix_spawnattr_t* attributes = nullptr) {
    int ends[2];
    if (pipe(ends) != 0) return "";
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, ends[1], STDOUT_FILENO);
    char* arguments[] = {self.data(), const_cast<char*>("--show-signals"), nullptr};
    pid_t child;
    if (posix_spawn(&child, self.c_str(), &files, attributes, arguments, environ) != 0) return "";
    close(ends[1]);
    waitpid(child, nullptr, 0);
    char line[256] = "";
    if (read(ends[0], line, sizeof line - 1) < 0) line[0] = 0;
    close(ends[0]);
    posix_spawn_file_actions_destroy(&files);
    return line;
  }
  static inline std::string self, preload;
  static inline bool can_start;
};
class NewProgramsOfShells : public ShellCommands {};

TEST_F(NewProgramsOfShells, AreEmulatedWithoutPreloadInTheEnvironment) {
  EXPECT_EQ(WEXITSTATUS(std::system((self + " --count-bytes").c_str())), vector_bytes);
  EXPECT_EQ(WEXITSTATUS(std::system(("exec " + self + " --count-bytes").c_str())), vector_bytes);
  EXPECT_EQ(first_line(self + " --show-announcement"), "announced 1, length " + std::to_string(vector_bytes) + "\n");
  EXPECT_NE(std::system(nullptr), 0);
}

TEST_F(NewProgramsOfShells, FindSignalsIgnoredAndBlocked) {
  EXPECT_EQ(spawned(), "ignored -, blocked -\n");
  signal(SIGILL, SIG_IGN);
  signal(SIGUSR1, SIG_IGN);
  EXPECT_EQ(spawned(), "ignored 4 10, blocked -\n");
  EXPECT_EQ(first_line(self + " --show-signals"), "ignored 4 10, blocked -\n");
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t set;
  sigfillset(&set);
  posix_spawnattr_setsigdefault(&attributes, &set);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  EXPECT_EQ(spawned(&attributes), "ignored -, blocked -\n");
  posix_spawnattr_destroy(&attributes);
  signal(SIGILL, SIG_DFL);
  signal(SIGUSR1, SIG_DFL);
  sigemptyset(&set);
  sigaddset(&set, SIGILL);
  sigaddset(&set, SIGUSR1);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  EXPECT_EQ(spawned(), "ignored -, blocked 4 10\n");
  sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

// With the signals that traps arrive as ignored or blocked an exec that fails must harm nobody.
TEST(Processes, AFailedExecLeavesOtherThreadsAlone) {
  const auto result = in_child([] {
    signal(SIGILL, SIG_IGN);
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::thread busy([&] {
      while (!stop) wrong += cntb() != vector_bytes;
    });
    for (int i = 0; i < 300; ++i) execl("/nonesuch/program", "program", nullptr);
    stop = true;
    busy.join();
    sigset_t now;
    sigprocmask(SIG_BLOCK, nullptr, &now);
    _exit(wrong == 0 && signal(SIGILL, SIG_DFL) == SIG_IGN && !sigismember(&now, SIGILL) ? 42 : 1);
  });
  EXPECT_TRUE(result.exited_with(42)) << result.status;
}

TEST(Announcement, ProgramsThatAskFindSve) {
  EXPECT_TRUE(getauxval(AT_HWCAP) & (1 << 22));
  const int length = static_cast<int>(vector_bytes);
  EXPECT_EQ(prctl(PR_SVE_GET_VL), length);
  EXPECT_EQ(prctl(PR_SVE_SET_VL, length), length);
  EXPECT_EQ(prctl(PR_SVE_SET_VL, 256 | PR_SVE_VL_INHERIT), length | PR_SVE_VL_INHERIT);
  EXPECT_EQ(prctl(PR_SVE_GET_VL), length | PR_SVE_VL_INHERIT);
  EXPECT_EQ(prctl(PR_SVE_SET_VL, 256), length);
  EXPECT_EQ(prctl(PR_SVE_SET_VL, 16), length);
  for (const int unknown : {0, 120, 8208}) {
    EXPECT_EQ(prctl(PR_SVE_SET_VL, unknown), -1) << unknown;
    EXPECT_EQ(errno, EINVAL);
  }
  EXPECT_EQ(prctl(PR_GET_DUMPABLE), 1);
}

// Behind the environment, as long as that is whole.
unsigned long* const auxiliary_vector = [] {
  char** entry = environ;
  while (*entry) ++entry;
  return reinterpret_cast<unsigned long*>(entry + 1);
}();

TEST(Announcement, TheAuxiliaryVectorOnTheStackAgrees) {
  bool seen = false;
  for (const unsigned long* aux = auxiliary_vector; aux[0] != AT_NULL; aux += 2) {
    if (aux[0] == AT_HWCAP) seen = (aux[1] & (1 << 22)) != 0;
    if (aux[0] == 51) {  // AT_MINSIGSTKSZ, if the kernel tells it
      // As a kernel with SVE at this length tells it. Up to 768 bits the record has room in any frame.
      if (vector_bytes > 112) {
        EXPECT_GT(aux[1], 5072u);
      } else {
        EXPECT_EQ(aux[1], vector_bytes == 112 ? 5072u : 4720u);
      }
    }
  }
  EXPECT_TRUE(seen);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::strcmp(argv[1], "--count-bytes") == 0) return static_cast<int>(sve_instructions::cntb());
  if (argc > 1 && std::strcmp(argv[1], "--show-announcement") == 0) {
    return std::printf("announced %d, length %d\n", (getauxval(AT_HWCAP) >> 22 & 1) != 0, prctl(PR_SVE_GET_VL)) < 0;
  }
  if (argc > 1 && std::strcmp(argv[1], "--succeed") == 0) return 0;
  if (argc > 1 && std::strcmp(argv[1], "--show-signals") == 0) {
    std::string ignored, blocked;
    sigset_t now;
    sigprocmask(SIG_BLOCK, nullptr, &now);
    for (int sig : {SIGILL, SIGBUS, SIGUSR1, SIGSEGV}) {
      struct sigaction action = {};
      if (sigaction(sig, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) ignored += " " + std::to_string(sig);
      if (sigismember(&now, sig)) blocked += " " + std::to_string(sig);
    }
    sve_instructions::cntb();
    return std::printf("ignored%s, blocked%s\n", ignored.empty() ? " -" : ignored.c_str(),
                       blocked.empty() ? " -" : blocked.c_str()) < 0;
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
