// Signals, seen from the program: its handlers, masks and deaths are as they would be on a processor with SVE. Runs
// under sve-run itself.
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <ucontext.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <string>
#include <thread>

#include "tests/children.h"
#include "tests/runner/sve_instructions.h"

namespace {

using namespace sve_instructions;

std::atomic<int> calls{0};
volatile int last_code;
volatile std::uintptr_t last_pc;
volatile bool last_blocked[65];
volatile bool on_stack;
unsigned char alternate[65536];

void note(int, siginfo_t* info, void* raw) {
  ++calls;
  last_code = info->si_code;
  auto& context = static_cast<ucontext_t*>(raw)->uc_mcontext;
  last_pc = context.pc;
  sigset_t now;
  sigprocmask(SIG_BLOCK, nullptr, &now);
  for (int sig = 1; sig < 32; ++sig) last_blocked[sig] = sigismember(&now, sig) == 1;
  const auto* here = reinterpret_cast<unsigned char*>(__builtin_frame_address(0));
  on_stack = here >= alternate && here < alternate + sizeof alternate;
}

void note_and_skip(int sig, siginfo_t* info, void* raw) {
  note(sig, info, raw);
  static_cast<ucontext_t*>(raw)->uc_mcontext.pc += 4;
}

// A handler in the form in which signal() returns it.
sighandler_t simple(void (*handler)(int, siginfo_t*, void*)) {
  struct sigaction action = {};
  action.sa_sigaction = handler;
  return action.sa_handler;
}

void* volatile nowhere = reinterpret_cast<void*>(16);

class Signals : public testing::Test {
 protected:
  void SetUp() override {
    calls = 0;
    all_true_p0();
  }
  void TearDown() override {
    for (int sig : {SIGILL, SIGSEGV, SIGBUS, SIGUSR1, SIGALRM}) signal(sig, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
  }
  static struct sigaction install(int sig, void (*handler)(int, siginfo_t*, void*), int flags = 0,
                                  std::initializer_list<int> mask = {}) {
    struct sigaction action = {}, old = {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | flags;
    for (int s : mask) sigaddset(&action.sa_mask, s);
    EXPECT_EQ(sigaction(sig, &action, &old), 0);
    return old;
  }
  static void use_alternate_stack(bool on) {
    stack_t stack = {};
    stack.ss_sp = alternate;
    stack.ss_size = sizeof alternate;
    stack.ss_flags = on ? 0 : SS_DISABLE;
    ASSERT_EQ(sigaltstack(&stack, nullptr), 0);
  }
};

TEST_F(Signals, AnIllegalInstructionOfTheProgramIsItsOwn) {
  install(SIGILL, note_and_skip, 0, {SIGUSR2});
  cntb();
  EXPECT_EQ(calls, 0);
  undefined_instruction();
  EXPECT_EQ(calls, 1);
  EXPECT_GT(last_code, 0);
  EXPECT_EQ(*reinterpret_cast<const std::uint32_t*>(last_pc), 0u);
  EXPECT_TRUE(last_blocked[SIGILL]);
  EXPECT_TRUE(last_blocked[SIGUSR2]);
  EXPECT_FALSE(last_blocked[SIGUSR1]);
  EXPECT_FALSE(last_blocked[SIGSEGV]);
  EXPECT_EQ(cntb(), vector_bytes);
  undefined_instruction();
  EXPECT_EQ(calls, 2);
}

TEST_F(Signals, ActionsAreReportedAsTheProgramSetThem) {
  for (int sig : {SIGILL, SIGSEGV, SIGBUS, SIGUSR1}) {
    EXPECT_EQ(install(sig, note_and_skip, SA_RESTART | SA_ONSTACK, {SIGILL, SIGUSR2}).sa_handler, SIG_DFL) << sig;
    struct sigaction old = {};
    ASSERT_EQ(sigaction(sig, nullptr, &old), 0);
    EXPECT_EQ(old.sa_sigaction, note_and_skip) << sig;
    EXPECT_EQ(old.sa_flags, SA_SIGINFO | SA_RESTART | SA_ONSTACK) << sig;
    EXPECT_TRUE(sigismember(&old.sa_mask, SIGILL)) << sig;
    EXPECT_TRUE(sigismember(&old.sa_mask, SIGUSR2)) << sig;
    EXPECT_FALSE(sigismember(&old.sa_mask, SIGUSR1)) << sig;
    EXPECT_EQ(signal(sig, SIG_IGN), simple(note_and_skip)) << sig;
    EXPECT_EQ(signal(sig, SIG_DFL), SIG_IGN) << sig;
    EXPECT_EQ(signal(sig, SIG_DFL), SIG_DFL) << sig;
    EXPECT_EQ(cntb(), vector_bytes);
  }
  struct sigaction any = {};
  EXPECT_EQ(sigaction(SIGKILL, &any, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(sigaction(65, nullptr, &any), -1);
  EXPECT_EQ(sigaction(32, &any, nullptr), -1);
  EXPECT_EQ(signal(0, SIG_IGN), SIG_ERR);
}

TEST_F(Signals, OtherWaysToSetAHandler) {
  static void (*const count)(int) = [](int) { ++calls; };
  EXPECT_EQ(sysv_signal(SIGILL, count), SIG_DFL);
  raise(SIGILL);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(signal(SIGILL, SIG_DFL), SIG_DFL);  // reset when it was called
  cntb();
  EXPECT_EQ(sysv_signal(SIGUSR1, count), SIG_DFL);
  raise(SIGUSR1);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(signal(SIGUSR1, SIG_DFL), SIG_DFL);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  constexpr int sigill_bit = 1 << (SIGILL - 1);
  EXPECT_EQ(sigset(SIGILL, count), SIG_DFL);
  EXPECT_EQ(sighold(SIGILL), 0);
  raise(SIGILL);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(cntb(), vector_bytes);
  EXPECT_EQ(sigrelse(SIGILL), 0);
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(sigset(SIGILL, SIG_HOLD), count);
  EXPECT_EQ(sigset(SIGILL, SIG_DFL), SIG_HOLD);
  EXPECT_EQ(sigignore(SIGILL), 0);
  raise(SIGILL);
  EXPECT_EQ(sigblock(sigill_bit) & sigill_bit, 0);
  EXPECT_NE(sigsetmask(0) & sigill_bit, 0);
#pragma GCC diagnostic pop
}

TEST_F(Signals, HandlerFlags) {
  install(SIGILL, note_and_skip, SA_NODEFER);
  undefined_instruction();
  EXPECT_FALSE(last_blocked[SIGILL]);
  install(SIGILL, note_and_skip, SA_RESETHAND);
  undefined_instruction();
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(signal(SIGILL, SIG_DFL), SIG_DFL);
  use_alternate_stack(true);
  for (int sig : {SIGILL, SIGUSR1}) {
    install(sig, note, SA_ONSTACK);
    on_stack = false;
    cntb();
    raise(sig);
    EXPECT_TRUE(on_stack) << sig;
    install(sig, note);
    raise(sig);
    EXPECT_FALSE(on_stack) << sig;
  }
  use_alternate_stack(false);
}

TEST_F(Signals, ASentSigillIsTheProgramsToo) {
  install(SIGILL, note, SA_RESTART);
  raise(SIGILL);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(last_code, SI_TKILL);
  // From a process to a process; that it is the same one spares emulators of system calls a race of theirs.
  kill(getpid(), SIGILL);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(last_code, SI_USER);
  signal(SIGILL, SIG_IGN);
  raise(SIGILL);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(cntb(), vector_bytes);
}

TEST_F(Signals, DeathsAreTheSignalsOwn) {
  const struct {
    const char* name;
    int sig;
    void (*die)();
  } deaths[] = {
      {"illegal instruction", SIGILL, [] { undefined_instruction(); }},
      {"ignored illegal instruction", SIGILL,
       [] {
         signal(SIGILL, SIG_IGN);
         undefined_instruction();
       }},
      {"blocked illegal instruction", SIGILL,
       [] {
         install(SIGILL, note_and_skip);
         sigset_t set;
         sigfillset(&set);
         sigprocmask(SIG_BLOCK, &set, nullptr);
         undefined_instruction();
       }},
      {"sent SIGILL", SIGILL, [] { raise(SIGILL); }},
      {"sent SIGSEGV", SIGSEGV, [] { raise(SIGSEGV); }},
      {"native fault", SIGSEGV, [] { *static_cast<volatile int*>(nowhere) = 1; }},
      {"fault of a vector load", SIGSEGV, [] { load_z7(nowhere); }},
      {"blocked fault of a vector load", SIGSEGV,
       [] {
         install(SIGSEGV, note_and_skip);
         sigset_t set;
         sigfillset(&set);
         sigprocmask(SIG_BLOCK, &set, nullptr);
         load_z7(nowhere);
       }},
      {"abort", SIGABRT, [] { abort(); }},
  };
  for (const auto& death : deaths) {
    const auto result = in_child([&] {
      cntb();
      death.die();
      _exit(9);
    });
    EXPECT_TRUE(result.killed_by(death.sig)) << death.name << " " << result.status;
    if (death.sig != SIGABRT) {
      EXPECT_NE(result.error_output.find(": 1 SVE instructions executed\n"), std::string::npos)
          << death.name << ": " << result.error_output;
    }
    const bool fault = death.sig == SIGSEGV;
    EXPECT_EQ(result.error_output.find("caught signal SIGSEGV from the process being emulated") != std::string::npos,
              fault)
        << death.name;
  }
}

TEST_F(Signals, ABlockedSigillWaitsAndTrapsDoNot) {
  install(SIGILL, note);
  sigset_t all, old, pending;
  sigfillset(&all);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &all, &old), 0);
  EXPECT_FALSE(sigismember(&old, SIGILL));
  fill_z7(0x31);
  EXPECT_EQ(read_z7(), filled(0x31));
  sigpending(&pending);
  EXPECT_FALSE(sigismember(&pending, SIGILL));
  raise(SIGILL);
  kill(getpid(), SIGILL);
  EXPECT_EQ(calls, 0);
  sigpending(&pending);
  EXPECT_TRUE(sigismember(&pending, SIGILL));
  EXPECT_EQ(cntb(), vector_bytes);
  ASSERT_EQ(sigprocmask(SIG_SETMASK, &old, &all), 0);
  EXPECT_TRUE(sigismember(&all, SIGILL));
  EXPECT_TRUE(sigismember(&all, SIGUSR1));
  EXPECT_GE(calls, 1);
  sigpending(&pending);
  EXPECT_FALSE(sigismember(&pending, SIGILL));
  sigprocmask(SIG_BLOCK, nullptr, &old);
  EXPECT_FALSE(sigismember(&old, SIGILL));
}

TEST_F(Signals, AWaitForABlockedSigillEnds) {
  install(SIGILL, note);
  sigset_t blocked, none;
  sigemptyset(&none);
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGILL);
  sigprocmask(SIG_BLOCK, &blocked, nullptr);
  raise(SIGILL);
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(sigsuspend(&none), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(calls, 1);
  raise(SIGILL);
  EXPECT_EQ(calls, 1);
  sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
  EXPECT_EQ(calls, 2);
}

TEST_F(Signals, TheMaskIsInheritedByThreads) {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
  std::uint64_t bytes = 0;
  bool blocked = false;
  std::thread([&] {
    bytes = cntb();
    sigset_t now;
    pthread_sigmask(SIG_BLOCK, nullptr, &now);
    blocked = sigismember(&now, SIGILL) == 1;
  }).join();
  EXPECT_EQ(bytes, vector_bytes);
  EXPECT_TRUE(blocked);
}

void clobber_vectors() {
  asm volatile(SVE_ASM("ptrue p1.b\n pfalse p0.b\n dup z7.b, %w0\n dup z9.b, %w0\n setffr\n")::"r"(0xccu) : "v7", "v9");
}

void use_vectors(int sig, siginfo_t* info, void* raw) {
  note(sig, info, raw);
  clobber_vectors();
}

TEST_F(Signals, AHandlerWithEverythingBlockedMayTrap) {
  struct sigaction action = {};
  action.sa_sigaction = use_vectors;
  action.sa_flags = SA_SIGINFO;
  sigfillset(&action.sa_mask);
  sigaction(SIGUSR1, &action, nullptr);
  raise(SIGUSR1);
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(last_blocked[SIGILL]);
  sigset_t now;
  sigprocmask(SIG_BLOCK, nullptr, &now);
  EXPECT_FALSE(sigismember(&now, SIGILL));
  // The same while waiting with a full mask.
  sigset_t wait;
  sigaddset(&now, SIGUSR1);
  sigprocmask(SIG_SETMASK, &now, nullptr);
  raise(SIGUSR1);
  sigfillset(&wait);
  sigdelset(&wait, SIGUSR1);
  EXPECT_EQ(sigsuspend(&wait), -1);
  EXPECT_EQ(calls, 2);
}

TEST_F(Signals, AHandlersVectorsAreNotTheInterruptedCodes) {
  install(SIGUSR1, use_vectors);
  install(SIGILL, [](int sig, siginfo_t* info, void* raw) {
    use_vectors(sig, info, raw);
    static_cast<ucontext_t*>(raw)->uc_mcontext.pc += 4;
  });
  fill_z7(0x42);
  raise(SIGUSR1);
  EXPECT_EQ(read_z7(), filled(0x42));
  undefined_instruction();
  EXPECT_EQ(read_z7(), filled(0x42));
  EXPECT_EQ(calls, 2);
}

TEST_F(Signals, ATimerBetweenAnyTwoInstructions) {
  install(SIGALRM, use_vectors, SA_RESTART);
  const itimerval often = {{0, 1000}, {0, 1000}}, never = {};
  setitimer(ITIMER_REAL, &often, nullptr);
  int wrong = 0;
  for (int i = 0; calls < 50 && i < 2000000; ++i) {
    const auto byte = static_cast<std::uint8_t>(i);
    fill_z7(byte);
    if (read_z7() != filled(byte)) ++wrong;
  }
  setitimer(ITIMER_REAL, &never, nullptr);
  EXPECT_EQ(wrong, 0);
  EXPECT_GE(calls, 50);
}

sigjmp_buf back;

TEST_F(Signals, AHandlerMayJumpOut) {
  install(SIGILL, [](int, siginfo_t*, void*) {
    ++calls;
    cntb();
    siglongjmp(back, 1);
  });
  for (int i = 0; i < 300; ++i) {
    if (sigsetjmp(back, 1) == 0) undefined_instruction();
    sigset_t now;
    sigprocmask(SIG_BLOCK, nullptr, &now);
    ASSERT_FALSE(sigismember(&now, SIGILL));
  }
  EXPECT_EQ(calls, 300);
  EXPECT_EQ(cntb(), vector_bytes);
}

// A SIGSEGV or SIGBUS that waits because it is blocked goes on waiting, whatever is emulated meanwhile.
TEST_F(Signals, BlockedFaultSignalsWait) {
  for (int sig : {SIGSEGV, SIGBUS, SIGILL}) {
    calls = 0;
    install(sig, note);
    sigset_t set, old, pending;
    sigemptyset(&set);
    sigaddset(&set, sig);
    sigprocmask(SIG_BLOCK, &set, &old);
    EXPECT_FALSE(sigismember(&old, sig));
    raise(sig);
    kill(getpid(), sig);
    EXPECT_EQ(cntb(), vector_bytes);
    fill_z7(1);
    EXPECT_EQ(read_z7(), filled(1));
    EXPECT_EQ(calls, 0) << sig;
    sigpending(&pending);
    EXPECT_TRUE(sigismember(&pending, sig));
    sigprocmask(SIG_BLOCK, nullptr, &old);
    EXPECT_TRUE(sigismember(&old, sig));
    // Taken without a handler, one for the thread and one for the process.
    siginfo_t info = {};
    EXPECT_EQ(sigwaitinfo(&set, &info), sig);
    EXPECT_EQ(info.si_code, SI_TKILL);
    int taken = 0;
    EXPECT_EQ(sigwait(&set, &taken), 0);
    EXPECT_EQ(taken, sig);
    const struct timespec soon = {0, 1000000};
    EXPECT_EQ(sigtimedwait(&set, &info, &soon), -1);
    EXPECT_EQ(errno, EAGAIN);
    sigpending(&pending);
    EXPECT_FALSE(sigismember(&pending, sig));
    raise(sig);
    EXPECT_EQ(calls, 0);
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    EXPECT_EQ(calls, 1) << sig;
  }
}

TEST_F(Signals, AThreadThatWaitsForASignalGetsIt) {
  for (int sig : {SIGILL, SIGSEGV, SIGUSR1}) {
    install(sig, note);
    static sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, sig);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    std::atomic<int> got{0};
    std::thread waiter([&got] {
      int taken = 0;
      sigwait(&set, &taken);
      got = taken;
    });
    usleep(20000);
    cntb();
    kill(getpid(), sig);
    waiter.join();
    EXPECT_EQ(got, sig);
    EXPECT_EQ(calls, 0);
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
  }
}

TEST_F(Signals, AnotherThreadTakesWhatThisOneBlocks) {
  for (int sig : {SIGSEGV, SIGUSR1}) {
    static std::atomic<pthread_t> taker;
    taker = 0;
    install(sig, [](int, siginfo_t*, void*) { taker = pthread_self(); });
    std::atomic<bool> runs{false}, stop{false};
    std::thread other([&] {
      runs = true;
      while (!stop) usleep(1000);
    });
    while (!runs) usleep(1000);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, sig);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    kill(getpid(), sig);
    for (int i = 0; i < 1000 && taker == 0; ++i) usleep(1000);
    EXPECT_EQ(taker, other.native_handle()) << sig;
    stop = true;
    other.join();
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
  }
}

void change_mask(bool blocks, int sig) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, sig);
  sigprocmask(blocks ? SIG_BLOCK : SIG_UNBLOCK, &set, nullptr);
}

bool is_blocked(int sig) {
  sigset_t now;
  sigprocmask(SIG_BLOCK, nullptr, &now);
  return sigismember(&now, sig) == 1;
}

// Whether the mask of now, whose `sig` is changed meanwhile, comes back with the registers.
[[gnu::noinline]] bool a_jump_restores(bool blocks, int sig) {
  if (sigsetjmp(back, 1) == 0) {
    change_mask(!blocks, sig);
    siglongjmp(back, 1);
  }
  return is_blocked(sig) == blocks;
}

[[gnu::noinline]] bool a_context_restores(bool blocks, int sig) {
  static volatile bool again;
  static ucontext_t here;
  again = false;
  getcontext(&here);
  if (!again) {
    again = true;
    change_mask(!blocks, sig);
    setcontext(&here);
  }
  return is_blocked(sig) == blocks;
}

TEST_F(Signals, MasksInJumpBuffersAndContexts) {
  for (int sig : {SIGILL, SIGSEGV, SIGUSR1}) {
    for (bool blocks : {true, false}) {
      change_mask(blocks, sig);
      EXPECT_TRUE(a_jump_restores(blocks, sig)) << sig << blocks;
      EXPECT_TRUE(a_context_restores(blocks, sig)) << sig << blocks;
    }
    EXPECT_EQ(cntb(), vector_bytes);
  }
}

TEST_F(Signals, AContextWithAFullMaskMayTrap) {
  static ucontext_t outside, inside;
  static std::uint64_t bytes;
  static bool blocked;
  static char stack[65536];
  bytes = 0;
  getcontext(&inside);
  sigfillset(&inside.uc_sigmask);
  inside.uc_stack.ss_sp = stack;
  inside.uc_stack.ss_size = sizeof stack;
  inside.uc_link = &outside;
  makecontext(
      &inside,
      [] {
        bytes = cntb();
        sigset_t now;
        sigprocmask(SIG_BLOCK, nullptr, &now);
        blocked = sigismember(&now, SIGILL) == 1 && sigismember(&now, SIGUSR1) == 1;
        swapcontext(&inside, &outside);
        bytes += cntb();
      },
      0);
  for (int i = 1; i <= 2; ++i) {
    swapcontext(&outside, &inside);
    EXPECT_EQ(bytes, i * vector_bytes);
    EXPECT_TRUE(blocked);
    EXPECT_FALSE(is_blocked(SIGUSR1));
    if (i == 1) {
      EXPECT_FALSE(is_blocked(SIGILL));
    }
  }
}

// In a wait with a mask of its own, what that mask blocks waits on, and the handler's frame has the mask from before.
// With SIGILL, since qemu's sigsuspend does not wake up for a blocked SIGSEGV.
TEST_F(Signals, WaitsWithAMaskOfTheirOwn) {
  static bool kept;
  install(SIGILL, [](int, siginfo_t*, void* raw) {
    ++calls;
    kept = sigismember(&static_cast<ucontext_t*>(raw)->uc_sigmask, SIGILL) == 1;
    cntb();
  });
  install(SIGUSR1, note);
  sigset_t both, none, other;
  sigemptyset(&none);
  sigemptyset(&both);
  sigaddset(&both, SIGILL);
  sigaddset(&both, SIGUSR1);
  sigemptyset(&other);
  sigaddset(&other, SIGUSR1);
  sigprocmask(SIG_BLOCK, &both, nullptr);
  raise(SIGILL);
  const struct timespec at_once = {0, 0};
  EXPECT_EQ(pselect(0, nullptr, nullptr, nullptr, &at_once, &both), 0);
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(sigsuspend(&other), -1);
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(kept);
  const struct timespec long_time = {5, 0};
  raise(SIGILL);
  EXPECT_EQ(ppoll(nullptr, 0, &long_time, &none), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(calls, 2);
  sigset_t now;
  sigprocmask(SIG_BLOCK, nullptr, &now);
  EXPECT_TRUE(sigismember(&now, SIGILL));
  EXPECT_EQ(cntb(), vector_bytes);
  // A sigsuspend that blocks what comes does not end by it.
  const pthread_t self = pthread_self();
  std::thread sender([self] {
    usleep(20000);
    pthread_kill(self, SIGILL);
    usleep(20000);
    pthread_kill(self, SIGUSR1);
  });
  sigdelset(&both, SIGUSR1);
  EXPECT_EQ(sigsuspend(&both), -1);
  sender.join();
  EXPECT_EQ(calls, 3);  // SIGUSR1's
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  EXPECT_EQ(sigpause(SIGILL), -1);
#pragma GCC diagnostic pop
  EXPECT_EQ(calls, 4);
}

TEST_F(Signals, QueuedSignalsComeInOrder) {
  static int values[8];
  static int count;
  count = 0;
  install(SIGRTMIN, [](int, siginfo_t* info, void*) {
    values[count++] = info->si_value.sival_int;
    clobber_vectors();
  });
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGRTMIN);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  for (int i = 0; i < 8; ++i) sigqueue(getpid(), SIGRTMIN, sigval{.sival_int = i});
  fill_z7(0x21);
  sigprocmask(SIG_UNBLOCK, &set, nullptr);
  EXPECT_EQ(count, 8);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(values[i], i);
  EXPECT_EQ(read_z7(), filled(0x21));
  signal(SIGRTMIN, SIG_DFL);
}

TEST_F(Signals, InterruptedCallsGoOnIfTheyMay) {
  for (bool restarts : {true, false}) {
    install(SIGUSR1, use_vectors, restarts ? SA_RESTART : 0);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pthread_t self = pthread_self();
    const std::string status = "/proc/self/task/" + std::to_string(syscall(SYS_gettid)) + "/stat";
    std::atomic<bool> returned{false};
    std::thread sender([&] {
      for (char state = 0; state != 'S';) {
        std::string word;
        std::ifstream(status) >> word >> word >> state;
        usleep(1000);
      }
      pthread_kill(self, SIGUSR1);
      // What is there to read before the signal is would be read.
      for (int i = 0; i < (restarts ? 20 : 10000) && !returned; ++i) usleep(1000);
      EXPECT_EQ(write(ends[1], "x", 1), 1);
    });
    char byte = 0;
    const ssize_t n = read(ends[0], &byte, 1);
    returned = true;
    if (restarts) {
      EXPECT_EQ(n, 1);
    } else {
      EXPECT_EQ(n, -1);
      EXPECT_EQ(errno, EINTR);
    }
    sender.join();
    close(ends[0]);
    close(ends[1]);
  }
}

TEST_F(Signals, AVforkedChildsMaskIsItsOwn) {
  sigset_t set, now;
  sigemptyset(&set);
  sigaddset(&set, SIGILL);
  sigaddset(&set, SIGUSR1);
  const pid_t child = vfork();
  if (child == 0) {
    sigprocmask(SIG_BLOCK, &set, nullptr);
    _exit(cntb() == vector_bytes ? 3 : 4);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 3);
  sigprocmask(SIG_BLOCK, nullptr, &now);
  EXPECT_FALSE(sigismember(&now, SIGILL));
  EXPECT_FALSE(sigismember(&now, SIGUSR1));
}

TEST_F(Signals, AThreadsMaskFromItsAttributes) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  sigset_t set;
  sigfillset(&set);
  pthread_attr_setsigmask_np(&attributes, &set);
  static bool blocked;
  pthread_t thread;
  pthread_create(
      &thread, &attributes,
      [](void*) -> void* {
        cntb();
        sigset_t now;
        pthread_sigmask(SIG_BLOCK, nullptr, &now);
        blocked = sigismember(&now, SIGILL) == 1 && sigismember(&now, SIGUSR1) == 1;
        return nullptr;
      },
      nullptr);
  pthread_join(thread, nullptr);
  EXPECT_TRUE(blocked);
}

// Words that are SVE by their look and that no processor executes.
TEST_F(Signals, ImmediatesWithoutWidthAreIllegal) {
  install(SIGILL, note_and_skip);
  asm volatile(".inst 0x050007e0\n .inst 0x05400fe3\n .inst 0x058007e0\n .inst 0x05c00fe0\n" ::: "v0", "v3");
  EXPECT_EQ(calls, 4);
  asm volatile(SVE_ASM("dupm z0.b, #1\n")::: "v0");
  EXPECT_EQ(calls, 4);
}

// A page to be read, and one behind it that cannot be.
class Faults : public Signals {
 protected:
  static constexpr std::size_t page = 4096;
  void SetUp() override {
    Signals::SetUp();
    pages = static_cast<unsigned char*>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(pages, MAP_FAILED);
    std::memset(pages, 0x66, 2 * page);
    mprotect(pages + page, page, PROT_NONE);
    expected_address = pages + page;
  }
  void TearDown() override {
    munmap(pages, 2 * page);
    Signals::TearDown();
  }
  static inline unsigned char* pages;
  static inline unsigned char* volatile expected_address;
};

void make_readable(int sig, siginfo_t* info, void* raw) {
  note(sig, info, raw);
  auto* fault = static_cast<unsigned char*>(info->si_addr);
  auto* at = reinterpret_cast<unsigned char*>(reinterpret_cast<std::uintptr_t>(fault) & ~std::uintptr_t{4095});
  mprotect(at, 4096, PROT_READ | PROT_WRITE);
  clobber_vectors();
}

// So much of a vector lies on the page that can be read.
const int readable_bytes = static_cast<int>(vector_bytes) / 2 - 6;

TEST_F(Faults, AVectorLoadsFaultIsTheProgramsAndCanBeMended) {
  for (int flags : {0, SA_ONSTACK}) {
    mprotect(pages + page, page, PROT_NONE);
    calls = 0;
    use_alternate_stack(true);
    install(SIGSEGV, make_readable, flags, {SIGUSR2});
    fill_z7(1);
    std::uint64_t marker = 0, load = 0;
    asm volatile(SVE_ASM("mov x9, #12345\n"
                         "adr %1, 1f\n"
                         "1: ld1b {z7.b}, p0/z, [%2]\n"
                         "mov %0, x9\n")
                 : "=&r"(marker), "=&r"(load)
                 : "r"(pages + page - readable_bytes)
                 : "x9", "v7", "memory");
    EXPECT_EQ(marker, 12345u);
    EXPECT_EQ(read_z7(), filled(0x66));
    EXPECT_EQ(calls, 1);
    EXPECT_GT(last_code, 0);
    EXPECT_EQ(last_pc, load);  // where a branch may stand by now
    EXPECT_EQ(on_stack, flags != 0);
    EXPECT_TRUE(last_blocked[SIGSEGV]);
    EXPECT_TRUE(last_blocked[SIGUSR2]);
    EXPECT_FALSE(last_blocked[SIGILL]);
    EXPECT_FALSE(last_blocked[SIGUSR1]);
    use_alternate_stack(false);
  }
  sigset_t now;
  sigprocmask(SIG_BLOCK, nullptr, &now);
  EXPECT_FALSE(sigismember(&now, SIGSEGV));
}

TEST_F(Faults, TheHandlerSeesWhatWasDoneBeforeTheFault) {
  static volatile std::uint64_t x9, x10;
  static void* volatile address;
  install(SIGSEGV, [](int, siginfo_t* info, void* raw) {
    const auto& context = static_cast<ucontext_t*>(raw)->uc_mcontext;
    x9 = context.regs[9];
    x10 = context.regs[10];
    address = info->si_addr;
    siglongjmp(back, 1);
  });
  for (int i = 0; i < 20; ++i) {
    x9 = 0;
    x10 = 0;
    if (sigsetjmp(back, 1) == 0) {
      // One run of three: the first takes effect, the third does not.
      asm volatile(
          SVE_ASM("mov x9, #1\n mov x10, #2\n cntb x9\n ld1b {z7.b}, p0/z, [%0]\n cntb x10\n")::"r"(pages + page)
          : "x9", "x10", "v7", "memory");
      FAIL();
    }
    EXPECT_EQ(x9, vector_bytes);
    EXPECT_EQ(x10, 2u);
    EXPECT_EQ(address, expected_address);
  }
  EXPECT_EQ(cntb(), vector_bytes);
}

TEST_F(Faults, NativeFaultsAreTheProgramsToo) {
  install(SIGSEGV, make_readable);
  EXPECT_EQ(*static_cast<volatile unsigned char*>(pages + page), 0x66);
  EXPECT_EQ(calls, 1);
}

TEST_F(Faults, NonFaultLoadsDisturbNobody) {
  install(SIGSEGV, note);
  const auto load = [] {
    Vector mask{}, data{};
    asm volatile(SVE_ASM("setffr\n"
                         "ldnf1b {z7.b}, p0/z, [%0]\n"
                         "rdffr p2.b\n"
                         "mov z8.b, p2/z, #1\n"
                         "st1b {z8.b}, p0, [%1]\n"
                         "st1b {z7.b}, p0, [%2]\n")::"r"(pages + page - readable_bytes),
                 "r"(mask.data()), "r"(data.data())
                 : "v7", "v8", "memory");
    int readable = 0;
    for (const std::uint8_t byte : mask) readable += byte;
    return readable;
  };
  EXPECT_EQ(load(), readable_bytes);
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, nullptr);
  EXPECT_EQ(load(), readable_bytes);
  sigemptyset(&all);
  sigprocmask(SIG_SETMASK, &all, nullptr);
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(signal(SIGSEGV, SIG_DFL), simple(note));
}

TEST_F(Faults, ManyThreadsAtOnce) {
  install(SIGSEGV, [](int, siginfo_t*, void* raw) { static_cast<ucontext_t*>(raw)->uc_mcontext.pc += 4; });
  std::atomic<int> wrong{0};
  std::thread threads[4];
  for (auto& thread : threads) {
    thread = std::thread([&wrong] {
      all_true_p0();
      for (int i = 0; i < 50; ++i) {
        fill_z7(5);
        load_z7(pages + page);  // faults; the handler steps over it
        if (read_z7() != filled(5)) ++wrong;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST_F(Faults, ASentSegvDuringEmulationWaits) {
  install(SIGSEGV, use_vectors);
  const pthread_t self = pthread_self();
  std::atomic<bool> stop{false};
  std::thread sender([&] {
    for (int i = 0; i < 300 && !stop; ++i) {
      pthread_kill(self, SIGSEGV);
      usleep(300);
    }
    stop = true;
  });
  int wrong = 0;
  for (int i = 0; !stop; ++i) {
    const auto byte = static_cast<std::uint8_t>(i);
    fill_z7(byte);
    if (read_z7() != filled(byte)) ++wrong;
  }
  sender.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_GT(calls, 0);
}

}  // namespace
