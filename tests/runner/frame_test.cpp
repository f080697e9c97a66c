// Signal frames and the stacks that they lie on, seen from the program: as on a processor with SVE. Runs under sve-run
// itself.
#include <asm/sigcontext.h>
#include <execinfo.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "tests/children.h"
#include "tests/runner/frame_records.h"
#include "tests/runner/sve_instructions.h"

#ifndef SS_AUTODISARM
#define SS_AUTODISARM (1u << 31)
#endif

namespace {

using namespace sve_instructions;

const unsigned quadwords = static_cast<unsigned>(vector_bytes / 16);
const std::size_t sve_size = (SVE_SIG_CONTEXT_SIZE(quadwords) + 15) / 16 * 16;
// Whether the vectors' record has room beside that of the V registers.
const bool fits = sizeof(fpsimd_context) + sve_size + 64 <= sizeof(mcontext_t::__reserved);

unsigned char* sve_record(void* raw) { return record_of(raw, SVE_MAGIC); }

void install(int sig, void (*handler)(int, siginfo_t*, void*), unsigned flags = 0) {
  struct sigaction action = {};
  action.sa_sigaction = handler;
  action.sa_flags = static_cast<int>(SA_SIGINFO | flags);
  ASSERT_EQ(sigaction(sig, &action, nullptr), 0);
}

class Frames : public testing::Test {
 protected:
  void SetUp() override {
    all_true_p0();
    calls = 0;
  }
  void TearDown() override {
    for (int sig : {SIGILL, SIGSEGV, SIGBUS, SIGUSR1, SIGUSR2}) signal(sig, SIG_DFL);
    stack_t none = {};
    none.ss_flags = SS_DISABLE;
    sigaltstack(&none, nullptr);
  }
  static inline std::atomic<int> calls;
};

TEST_F(Frames, HoldTheVectorsInTheKernelsLayout) {
  static Vector seen;
  static std::uint16_t predicate[16], ffr[16];
  static std::vector<std::uint32_t> order;
  static bool well_placed;
  install(SIGUSR1, [](int, siginfo_t* info, void* raw) {
    ++calls;
    const unsigned char* at = sve_record(raw);
    sve_context head;
    std::memcpy(&head, at, sizeof head);
    well_placed = head.vl == vector_bytes && head.flags == 0 && head.head.size == sve_size;
    std::memcpy(seen.data(), at + SVE_SIG_ZREG_OFFSET(quadwords, 7), vector_bytes);
    std::memcpy(predicate, at + SVE_SIG_PREG_OFFSET(quadwords, 1), vector_bytes / 8);
    std::memcpy(ffr, at + SVE_SIG_FFR_OFFSET(quadwords), vector_bytes / 8);
    order.clear();
    for (const Record& r : records(raw)) {
      well_placed = well_placed && reinterpret_cast<std::uintptr_t>(r.at) % 16 == 0;
      if (r.magic != ESR_MAGIC) order.push_back(r.magic);  // the kernel tells of an earlier fault, too
    }
    const auto* frame = reinterpret_cast<unsigned char*>(info);
    well_placed = well_placed && static_cast<unsigned char*>(raw) == frame + 128;
    // The frame record is at the top, and the interrupted code's stack directly above.
    const auto& machine = static_cast<ucontext_t*>(raw)->uc_mcontext;
    const auto* record_at = reinterpret_cast<const std::uint64_t*>((machine.sp - 16) & ~15ul);
    well_placed = well_placed && record_at[0] == machine.regs[29] && record_at[1] == machine.regs[30];
    well_placed = well_placed && reinterpret_cast<const unsigned char*>(record_at) > frame &&
                  reinterpret_cast<const unsigned char*>(record_at) <= frame + sysconf(_SC_MINSIGSTKSZ);
  });
  fill_z7(0x42);
  asm volatile(SVE_ASM("ptrue p1.h\n setffr\n"));
  raise(SIGUSR1);
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(well_placed);
  EXPECT_EQ(seen, filled(0x42));
  for (std::size_t i = 0; i < vector_bytes / 16; ++i) {
    EXPECT_EQ(predicate[i], 0x5555);
    EXPECT_EQ(ffr[i], 0xffff);
  }
  EXPECT_EQ(order, fits ? (std::vector<std::uint32_t>{FPSIMD_MAGIC, SVE_MAGIC, 0})
                        : (std::vector<std::uint32_t>{FPSIMD_MAGIC, EXTRA_MAGIC, SVE_MAGIC, 0}));
}

// What a handler changes in the frame is what the interrupted code goes on with.
TEST_F(Frames, AreReadBack) {
  install(SIGUSR1, [](int, siginfo_t*, void* raw) {
    unsigned char* at = sve_record(raw);
    std::memset(at + SVE_SIG_ZREG_OFFSET(quadwords, 7), 0x55, vector_bytes);
    std::memset(at + SVE_SIG_PREG_OFFSET(quadwords, 1), 0x11, vector_bytes / 8);
    std::memset(at + SVE_SIG_FFR_OFFSET(quadwords), 0x33, vector_bytes / 8);
    // The low 128 bits are those of the V registers' own record.
    std::memset(record_of(raw, FPSIMD_MAGIC) + offsetof(fpsimd_context, vregs) + 16 * 7, 0x66, 16);
  });
  Vector expected = filled(0x55);
  std::fill_n(expected.begin(), 16, std::uint8_t{0x66});
  fill_z7(1);
  raise(SIGUSR1);
  EXPECT_EQ(read_z7(), expected);
  std::uint64_t active = 0, in_ffr = 0;
  asm volatile(SVE_ASM("cntp %0, p0, p1.b\n rdffr p2.b\n cntp %1, p0, p2.b\n") : "=r"(active), "=r"(in_ffr));
  EXPECT_EQ(active, vector_bytes / 4);
  EXPECT_EQ(in_ffr, vector_bytes / 2);
}

// A record that is only a head, or none, clears what V registers do not hold.
TEST_F(Frames, WithoutVectorsClearThem) {
  static bool whole;
  install(SIGUSR1, [](int, siginfo_t*, void* raw) {
    unsigned char* at = sve_record(raw);
    const _aarch64_ctx none = {}, head = {SVE_MAGIC, sizeof(sve_context)};
    if (whole) {
      // The record of the V registers alone, as a program writes that knows no other.
      std::memcpy(fits ? at : record_of(raw, EXTRA_MAGIC), &none, sizeof none);
      return;
    }
    std::memcpy(at, &head, sizeof head);
    std::memcpy(at + sizeof(sve_context), &none, sizeof none);
  });
  for (bool all : {false, true}) {
    whole = all;
    all_true_p0();
    fill_z7(0x77);
    raise(SIGUSR1);
    std::uint64_t active = 9;
    asm volatile(SVE_ASM("cntp %0, p0, p0.b\n") : "=r"(active));
    EXPECT_EQ(active, 0u);
    all_true_p0();
    Vector expected = filled(0);
    std::fill_n(expected.begin(), 16, std::uint8_t{0x77});
    EXPECT_EQ(read_z7(), expected);
  }
}

TEST_F(Frames, OfAThreadWithoutSveHoldAHeadAlone) {
  static std::uint32_t size;
  size = 0;
  install(SIGUSR1, [](int, siginfo_t*, void* raw) {
    _aarch64_ctx head;
    std::memcpy(&head, sve_record(raw), sizeof head);
    size = head.size;
    fill_z7(1);  // the handler's own, and nobody else's
  });
  pthread_t thread;
  static std::uint64_t active;
  active = 9;
  pthread_create(
      &thread, nullptr,
      [](void*) -> void* {
        raise(SIGUSR1);
        asm volatile(SVE_ASM("movi v7.16b, #0\n ptrue p0.b\n cmpne p1.b, p0/z, z7.b, #0\n cntp %0, p0, p1.b\n")
                     : "=r"(active)::"cc", "v7");
        return nullptr;
      },
      nullptr);
  pthread_join(thread, nullptr);
  EXPECT_EQ(size, 16u);
  EXPECT_EQ(active, 0u);
}

// Frames that the kernel would refuse end in SIGSEGV when the handler returns.
TEST_F(Frames, ThatAreForgedAreRefused) {
  static void (*forge)(void* raw);
  static void (*const forgeries[])(void*) = {
      [](void* raw) { sve_record(raw)[8] = 128; },                           // another length
      [](void* raw) { sve_record(raw)[10] = SVE_SIG_FLAG_SM; },              // streaming mode
      [](void* raw) { std::memcpy(sve_record(raw) + 4, "\x20\0\0\0", 4); },  // too short
      [](void* raw) { std::memcpy(sve_record(raw) + 4, "\0\0\1\0", 4); },    // beyond the end
      [](void* raw) {
        std::memcpy((fits ? sve_record(raw) : record_of(raw, EXTRA_MAGIC)) + 8, "\x08\0\0\0", 4);
      },                                                                                 // elsewhere
      [](void* raw) { std::memcpy(record_of(raw, FPSIMD_MAGIC), "none", 4); },           // no V registers
      [](void* raw) { std::memcpy(records(raw).back().at, "more", 4); },                 // a kind that there is not
      [](void* raw) { std::memcpy(sve_record(raw), record_of(raw, FPSIMD_MAGIC), 8); },  // twice the same
  };
  install(SIGUSR1, [](int, siginfo_t*, void* raw) { forge(raw); });
  for (std::size_t n = 0; n < std::size(forgeries); ++n) {
    forge = forgeries[n];
    const auto dies = in_child([] {
      raise(SIGUSR1);
      _exit(0);
    });
    EXPECT_TRUE(dies.killed_by(SIGSEGV)) << "forgery " << n << ": " << dies.status;
    const auto hears = in_child([] {
      install(SIGSEGV, [](int, siginfo_t* info, void*) { _exit(info->si_code == SEGV_ACCERR ? 42 : 1); });
      raise(SIGUSR1);
      _exit(0);
    });
    EXPECT_TRUE(hears.exited_with(42)) << "forgery " << n << ": " << hears.status;
  }
}

TEST_F(Frames, TheirRoomIsTold) {
  // Where the vectors are in the extra space, they take it beside what a frame has without them.
  const unsigned long room = fits ? 4720 : 1232 + sve_size;
  EXPECT_EQ(getauxval(51), room);  // AT_MINSIGSTKSZ
  EXPECT_GE(sysconf(_SC_MINSIGSTKSZ), static_cast<long>(room));
  EXPECT_GE(sysconf(_SC_SIGSTKSZ), 4 * static_cast<long>(room));
}

// A stack with memory of a known pattern below it.
struct Stack {
  explicit Stack(std::size_t room) : size(room) {
    base = static_cast<unsigned char*>(
        mmap(nullptr, below + 65536, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    std::memset(base, 0xa5, below);
  }
  ~Stack() { munmap(base, below + 65536); }
  unsigned char* bottom() const { return base + below; }
  bool is_kept() const {
    for (std::size_t i = 0; i < below; ++i) {
      if (base[i] != 0xa5) return false;
    }
    return true;
  }
  void use(unsigned flags = 0) const {
    stack_t stack = {};
    stack.ss_sp = bottom();
    stack.ss_size = size;
    stack.ss_flags = static_cast<int>(flags);
    ASSERT_EQ(sigaltstack(&stack, nullptr), 0);
  }
  bool holds(const void* p) const { return p >= bottom() && p < bottom() + size; }
  static constexpr std::size_t below = 16384;
  unsigned char* base;
  std::size_t size;
};

const Stack* current_stack;
bool is_here() { return current_stack->holds(__builtin_frame_address(0)); }
void* volatile nowhere = reinterpret_cast<void*>(16);

std::uint64_t first_fault_bytes(const void* p) {
  std::uint64_t n;
  asm volatile(SVE_ASM("ptrue p3.b\n setffr\n ldff1b {z9.b}, p3/z, [%1]\n rdffr p4.b\n cntp %0, p3, p4.b\n")
               : "=r"(n)
               : "r"(p)
               : "v9", "memory");
  return n;
}

TEST_F(Frames, AHandlerOnASmallAlternateStackOverrunsNothing) {
  const Stack stack(static_cast<std::size_t>(sysconf(_SC_MINSIGSTKSZ)) + 1024);
  current_stack = &stack;
  stack.use();
  static bool here;
  install(
      SIGUSR1,
      [](int, siginfo_t*, void*) {
        here = is_here();
        fill_z7(3);
      },
      SA_ONSTACK);
  fill_z7(5);
  for (int i = 0; i < 3; ++i) raise(SIGUSR1);
  EXPECT_TRUE(here);
  EXPECT_TRUE(stack.is_kept());
  EXPECT_EQ(read_z7(), filled(5));
}

// A crash handler as programs have them: on an alternate stack, and what it does may fault, trap and be interrupted.
TEST_F(Frames, ACrashHandlerMayDoItAll) {
  const Stack stack(32768);
  current_stack = &stack;
  stack.use();
  static unsigned char* page;
  page = static_cast<unsigned char*>(mmap(nullptr, 8192, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) + 4096;
  mprotect(page, 4096, PROT_NONE);
  static bool here, inner_here;
  static std::uint64_t readable;
  install(
      SIGUSR2,
      [](int, siginfo_t*, void*) {
        inner_here = is_here();
        fill_z7(9);
        volatile unsigned char room[2048];
        for (auto& byte : room) byte = 1;
      },
      SA_ONSTACK);
  for (int sig : {SIGSEGV, SIGILL}) {
    install(
        sig,
        [](int, siginfo_t*, void* raw) {
          ++calls;
          here = is_here();
          volatile std::uint64_t canary = 0x1234567890abcdef;
          readable = first_fault_bytes(reinterpret_cast<const unsigned char*>(&calls));
          readable += first_fault_bytes(page - 50);
          raise(SIGUSR2);
          cntb();
          if (canary != 0x1234567890abcdef) _exit(9);
          static_cast<ucontext_t*>(raw)->uc_mcontext.pc += 4;
        },
        SA_ONSTACK);
  }
  fill_z7(5);
  *static_cast<volatile int*>(nowhere) = 1;
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(here && inner_here);
  EXPECT_EQ(readable, vector_bytes + std::min<std::size_t>(vector_bytes, 50));
  undefined_instruction();
  EXPECT_EQ(calls, 2);
  load_z7(page);
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(read_z7(), filled(5));
  EXPECT_TRUE(stack.is_kept());
  munmap(page - 4096, 8192);
}

TEST_F(Frames, AlternateStacksAreTheProgramsOwn) {
  stack_t now = {};
  ASSERT_EQ(sigaltstack(nullptr, &now), 0);
  EXPECT_EQ(now.ss_flags, SS_DISABLE);
  const Stack stack(16384);
  current_stack = &stack;
  stack_t wrong = {stack.bottom(), 0, 2047};
  EXPECT_EQ(sigaltstack(&wrong, nullptr), -1);
  EXPECT_EQ(errno, ENOMEM);
  wrong = {stack.bottom(), 77, 16384};
  EXPECT_EQ(sigaltstack(&wrong, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  stack.use();
  static stack_t inside, in_frame;
  static int change;
  install(
      SIGUSR1,
      [](int, siginfo_t*, void* raw) {
        in_frame = static_cast<ucontext_t*>(raw)->uc_stack;
        sigaltstack(nullptr, &inside);
        const stack_t other = {nullptr, SS_DISABLE, 0};
        change = sigaltstack(&other, nullptr) == 0 ? 0 : errno;
      },
      SA_ONSTACK);
  raise(SIGUSR1);
  EXPECT_EQ(inside.ss_sp, stack.bottom());
  EXPECT_EQ(inside.ss_size, 16384u);
  EXPECT_EQ(inside.ss_flags, SS_ONSTACK);
  EXPECT_EQ(in_frame.ss_sp, stack.bottom());
  EXPECT_EQ(change, EPERM);
  // Disarmed while its handler runs, so that it can be changed there, and armed again by the return.
  stack.use(SS_AUTODISARM);
  raise(SIGUSR1);
  EXPECT_EQ(inside.ss_flags, SS_DISABLE);
  EXPECT_EQ(change, 0);
  sigaltstack(nullptr, &now);
  EXPECT_EQ(now.ss_sp, stack.bottom());
  EXPECT_EQ(static_cast<unsigned>(now.ss_flags), SS_AUTODISARM);
}

TEST_F(Frames, AThreadBeginsWithoutAlternateStack) {
  const Stack stack(16384);
  stack.use();
  static stack_t there;
  pthread_t thread;
  pthread_create(
      &thread, nullptr,
      [](void*) -> void* {
        sigaltstack(nullptr, &there);
        return nullptr;
      },
      nullptr);
  pthread_join(thread, nullptr);
  EXPECT_EQ(there.ss_flags, SS_DISABLE);
  const auto child = in_child([&] {
    stack_t inherited = {};
    sigaltstack(nullptr, &inherited);
    _exit(inherited.ss_sp == stack.bottom() ? 0 : 1);
  });
  EXPECT_TRUE(child.exited_with(0));
}

// No room for the frame: SIGSEGV instead, on its own stack if it has one.
TEST_F(Frames, AStackThatIsUsedUpIsAFault) {
  static const auto use_up = [] {
    auto* pages = static_cast<unsigned char*>(mmap(nullptr, 65536, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    install(SIGUSR1, [](int, siginfo_t*, void*) { _exit(1); });
    kill(getpid(), 0);
    asm volatile(
        "mov x19, sp\n mov sp, %0\n mov x0, %1\n mov x1, %2\n mov x2, %3\n mov x8, #131\n svc #0\n mov sp, x19\n" ::"r"(
            pages + 32768),
        "r"(static_cast<long>(getpid())), "r"(static_cast<long>(gettid())), "r"(static_cast<long>(SIGUSR1))
        : "x0", "x1", "x2", "x8", "x19", "memory");
  };
  const auto dies = in_child([] { use_up(); });
  EXPECT_TRUE(dies.killed_by(SIGSEGV)) << dies.status;
  const auto hears = in_child([] {
    const Stack stack(16384);
    stack.use();
    install(
        SIGSEGV, [](int, siginfo_t* info, void*) { _exit(info->si_code > 0 ? 42 : 2); }, SA_ONSTACK);
    use_up();
  });
  EXPECT_TRUE(hears.exited_with(42)) << hears.status;
}

// Code on a stack of a few bytes with nothing below: an instruction of ours takes none of them.
TEST_F(Frames, ATrapTakesNothingFromTheStack) {
  auto* pages = static_cast<unsigned char*>(mmap(nullptr, 8192, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  mprotect(pages + 4096, 4096, PROT_READ | PROT_WRITE);
  std::uint64_t bytes = 0;
  asm volatile(SVE_ASM("mov x19, sp\n mov sp, %1\n cntb %0\n add %0, %0, #1\n incb %0\n mov sp, x19\n")
               : "=&r"(bytes)
               : "r"(pages + 4096 + 16)
               : "x19", "memory");
  EXPECT_EQ(bytes, 2 * vector_bytes + 1);
  // Nor from below its end: red zones, as hand-written code has them, stay.
  std::memset(pages + 4096, 0x5a, 4096);
  asm volatile(SVE_ASM("mov x19, sp\n mov sp, %1\n cntb %0\n mov sp, x19\n")
               : "=&r"(bytes)
               : "r"(pages + 8192)
               : "x19", "memory");
  for (int i = 0; i < 4096; ++i) ASSERT_EQ(pages[4096 + i], 0x5a);
  munmap(pages, 8192);
}

// Unwinders get through a handler's frame.
[[gnu::noinline]] void throw_through(int sig) {
  // The place that is interrupted must be one that may throw.
  if (sig == SIGILL) {
    asm volatile(".word 0");
  } else {
    *static_cast<volatile int*>(nowhere) = 1;
  }
}

TEST_F(Frames, ExceptionsPassThroughHandlers) {
  for (int sig : {SIGSEGV, SIGILL}) {
    install(
        sig, [](int s, siginfo_t*, void*) { throw std::runtime_error(s == SIGILL ? "illegal" : "fault"); }, SA_NODEFER);
    for (int i = 0; i < 3; ++i) {
      std::string caught;
      try {
        throw_through(sig);
      } catch (const std::runtime_error& e) {
        caught = e.what();
      }
      EXPECT_EQ(caught, sig == SIGILL ? "illegal" : "fault");
      EXPECT_EQ(cntb(), vector_bytes);
    }
  }
}

TEST_F(Frames, BacktracesPassThroughHandlers) {
  static void* frames[64];
  static int count;
  install(SIGUSR1, [](int, siginfo_t*, void*) { count = backtrace(frames, 64); });
  raise(SIGUSR1);
  bool found = false;
here:  // in this function
  for (int i = 0; i < count; ++i) {
    const auto at = reinterpret_cast<std::uintptr_t>(frames[i]);
    const auto test = reinterpret_cast<std::uintptr_t>(&&here);
    found = found || (at > test - 4096 && at < test + 4096);
  }
  EXPECT_TRUE(found) << count;
}

TEST_F(Frames, AThreadMayBeCancelledInAHandler) {
  static std::atomic<bool> cleaned, in_handler;
  cleaned = false;
  in_handler = false;
  install(SIGSEGV, [](int, siginfo_t*, void*) {
    in_handler = true;
    for (;;) pause();
  });
  pthread_t thread;
  pthread_create(
      &thread, nullptr,
      [](void*) -> void* {
        pthread_cleanup_push([](void*) { cleaned = cntb() == vector_bytes; }, nullptr);
        throw_through(SIGSEGV);
        pthread_cleanup_pop(0);
        return nullptr;
      },
      nullptr);
  while (!in_handler) usleep(1000);
  pthread_cancel(thread);
  void* result = nullptr;
  pthread_join(thread, &result);
  EXPECT_EQ(result, PTHREAD_CANCELED);
  EXPECT_TRUE(cleaned);
}

TEST_F(Frames, AHandlerSeesAndChangesRegisters) {
  install(SIGUSR1, [](int, siginfo_t*, void* raw) {
    auto& machine = static_cast<ucontext_t*>(raw)->uc_mcontext;
    machine.regs[9] += 5;
    machine.pstate |= 1ul << 30;
  });
  std::uint64_t value = 0, zero = 0;
  asm volatile(
      "mov x9, #37\n mov x0, %2\n mov x1, %3\n mov x2, %4\n mov x8, #131\n cmp x8, #0\n svc #0\n cset %1, eq\n mov %0, "
      "x9\n"
      : "=&r"(value), "=&r"(zero)
      : "r"(static_cast<long>(getpid())), "r"(static_cast<long>(gettid())), "r"(static_cast<long>(SIGUSR1))
      : "x0", "x1", "x2", "x8", "x9", "cc", "memory");
  EXPECT_EQ(value, 42u);
  EXPECT_EQ(zero, 1u);
}

}  // namespace
