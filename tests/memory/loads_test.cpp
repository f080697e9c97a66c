// Loads and stores of the instruction functions and of the library at page ends, with wrapping register groups,
// inactive elements over unmapped memory, and the three ways in which first-fault and non-fault loads meet unreadable
// memory.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csetjmp>
#include <csignal>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "sve/fault/fault_capture.h"
#include "sve/insn/functions.h"
#include "sve/veclib/initialize.h"
#include "sve/veclib/routines.h"
#include "tests/children.h"
#include "tests/memory/guarded_memory.h"

namespace {

using sve::vector_bytes;
constexpr std::size_t words = sve::lanes<std::uint32_t>, doubles = sve::lanes<std::uint64_t>;
constexpr PredV all_of_value{{~0ul, ~0ul, ~0ul, ~0ul}};
using test::GuardedMemory;

using Z = aarch64_z_reg;
using P = aarch64_p_reg;
using R = aarch64_i_reg;
using SP = aarch64_i_rsp_reg;

class Loads : public testing::Test {
 protected:
  void SetUp() override {
    SVEInitialize();
    state = cpu_state{};
    for (auto& z : state.z) std::memset(z, 0xa5, sizeof z);
    std::memset(state.p[1], 1, vector_bytes);
    std::memset(state.ffr, 1, vector_bytes);
  }
  void all_inactive() { std::memset(state.p[1], 0, vector_bytes); }
  bool is_zero(unsigned z) const {
    return std::all_of(std::begin(state.z[z]), std::end(state.z[z]), [](std::uint8_t b) { return b == 0; });
  }

  cpu_state state;
};

const P governing(1, P::zeroing);
const SP base(2, 3), stack(31, 3);
const R index_register(3, 3), zero_register(31, 3);

// ---- Contiguous forms ----

struct ContiguousForm {
  const char* name;
  aarch64_decode_rc (*immediate)(cpu_state*, Z, P, SP, int);
  aarch64_decode_rc (*indexed)(cpu_state*, Z, P, SP, R);
  unsigned element, memory;  // bytes
  bool is_signed;
};
#define FORM(name, element, memory, is_signed) \
  { #name, sve_##name##_zpri, sve_##name##_scaled_zprr, element, memory, is_signed }
const ContiguousForm load_forms[] = {
    FORM(ld1b, 1, 1, false),   FORM(ld1b_h, 2, 1, false), FORM(ld1b_s, 4, 1, false), FORM(ld1b_d, 8, 1, false),
    FORM(ld1sb_h, 2, 1, true), FORM(ld1sb_s, 4, 1, true), FORM(ld1sb_d, 8, 1, true), FORM(ld1h, 2, 2, false),
    FORM(ld1h_s, 4, 2, false), FORM(ld1h_d, 8, 2, false), FORM(ld1sh_s, 4, 2, true), FORM(ld1sh_d, 8, 2, true),
    FORM(ld1w, 4, 4, false),   FORM(ld1w_d, 8, 4, false), FORM(ld1sw_d, 8, 4, true), FORM(ld1d, 8, 8, false),
    FORM(ldnt1b, 1, 1, false), FORM(ldnt1h, 2, 2, false), FORM(ldnt1w, 4, 4, false), FORM(ldnt1d, 8, 8, false)};
const ContiguousForm store_forms[] = {FORM(st1b, 1, 1, false),   FORM(st1b_h, 2, 1, false), FORM(st1b_s, 4, 1, false),
                                      FORM(st1b_d, 8, 1, false), FORM(st1h, 2, 2, false),   FORM(st1h_s, 4, 2, false),
                                      FORM(st1h_d, 8, 2, false), FORM(st1w, 4, 4, false),   FORM(st1w_d, 8, 4, false),
                                      FORM(st1d, 8, 8, false),   FORM(stnt1b, 1, 1, false), FORM(stnt1h, 2, 2, false),
                                      FORM(stnt1w, 4, 4, false), FORM(stnt1d, 8, 8, false)};

// Structures of n fields.
struct {
  sve::insn::zpri *load, *store;
  unsigned n, bytes;
} const structure_forms[] = {
    {sve_ld2b_zpri, sve_st2b_zpri, 2, 1}, {sve_ld3b_zpri, sve_st3b_zpri, 3, 1}, {sve_ld4b_zpri, sve_st4b_zpri, 4, 1},
    {sve_ld2h_zpri, sve_st2h_zpri, 2, 2}, {sve_ld3h_zpri, sve_st3h_zpri, 3, 2}, {sve_ld4h_zpri, sve_st4h_zpri, 4, 2},
    {sve_ld2w_zpri, sve_st2w_zpri, 2, 4}, {sve_ld3w_zpri, sve_st3w_zpri, 3, 4}, {sve_ld4w_zpri, sve_st4w_zpri, 4, 4},
    {sve_ld2d_zpri, sve_st2d_zpri, 2, 8}, {sve_ld3d_zpri, sve_st3d_zpri, 3, 8}, {sve_ld4d_zpri, sve_st4d_zpri, 4, 8}};

// Up to eight bytes, zero-extended.
std::uint64_t element(const std::uint8_t* from, std::size_t bytes) {
  std::uint64_t value = 0;
  std::memcpy(&value, from, bytes);
  return value;
}

// Element e of what a load leaves, from the bytes at `from`.
std::uint64_t extended(const ContiguousForm& f, const std::uint8_t* from) {
  std::uint64_t value = element(from, f.memory);
  if (f.is_signed) {
    const int above = 64 - 8 * static_cast<int>(f.memory);
    value = static_cast<std::uint64_t>(static_cast<std::int64_t>(value << above) >> above);
  }
  return f.element == 8 ? value : value & ((std::uint64_t{1} << (8 * f.element)) - 1);
}

TEST_F(Loads, ContiguousFormsFitTheLastAndTheFirstBytesOfAPage) {
  const GuardedMemory memory;
  memory.fill_counting();
  std::mt19937 random(1);
  for (const ContiguousForm& f : load_forms) {
    const unsigned n = vector_bytes / f.element, span = n * f.memory;
    for (const bool sparse : {false, true})
      for (const std::uint64_t start : {memory.address(), memory.end_address(static_cast<std::ptrdiff_t>(span))}) {
        for (auto& byte : state.p[1]) byte = sparse ? random() & 1 : 1;
        state.x[2] = start;
        ASSERT_EQ(f.immediate(&state, Z(4, 0), governing, base, 0), 0);
        for (unsigned e = 0; e < n; ++e) {
          const bool active = state.p[1][e * f.element] & 1;
          ASSERT_EQ(element(state.z[4] + e * f.element, f.element),
                    active ? extended(f, reinterpret_cast<const std::uint8_t*>(start) + e * f.memory) : 0)
              << f.name << " element " << e;
        }
      }
  }
  for (const ContiguousForm& f : store_forms) {
    const unsigned n = vector_bytes / f.element, span = n * f.memory;
    for (const bool sparse : {false, true})
      for (const std::uint64_t start : {memory.address(), memory.end_address(static_cast<std::ptrdiff_t>(span))}) {
        memory.fill_counting();
        std::vector<std::uint8_t> expected(memory.begin(), memory.end());
        for (auto& byte : state.p[1]) byte = sparse ? random() & 1 : 1;
        for (auto& byte : state.z[4]) byte = static_cast<std::uint8_t>(random());
        for (unsigned e = 0; e < n; ++e)
          if (state.p[1][e * f.element] & 1)
            std::memcpy(&expected[start - memory.address() + e * f.memory], state.z[4] + e * f.element, f.memory);
        state.x[2] = start;
        ASSERT_EQ(f.immediate(&state, Z(4, 0), governing, base, 0), 0);
        ASSERT_EQ(std::memcmp(memory.begin(), expected.data(), expected.size()), 0) << f.name << " sparse " << sparse;
      }
  }
}

TEST_F(Loads, ContiguousAddresses) {
  const GuardedMemory memory;
  memory.fill_counting();
  for (const ContiguousForm& f : load_forms) {
    const int n = static_cast<int>(vector_bytes / f.element), unit = n * static_cast<int>(f.memory);
    for (const int imm : {-8, -1, 1, 7}) {
      state.x[2] = memory.address(1500);
      f.immediate(&state, Z(4, 0), governing, base, imm);
      EXPECT_EQ(element(state.z[4], f.element), extended(f, memory.begin() + 1500 + imm * unit))
          << f.name << " imm " << imm;
    }
    // An index counts memory elements; register 31 adds nothing as an index and is SP as a base.
    state.sp = memory.address(700);
    state.x[3] = 5;
    f.indexed(&state, Z(4, 0), governing, stack, index_register);
    EXPECT_EQ(element(state.z[4], f.element), extended(f, memory.begin() + 700 + 5 * f.memory)) << f.name;
    f.indexed(&state, Z(4, 0), governing, stack, zero_register);
    EXPECT_EQ(element(state.z[4], f.element), extended(f, memory.begin() + 700)) << f.name;
  }
}

TEST_F(Loads, NoActiveElementTouchesNothing) {
  all_inactive();
  state.x[2] = 0x10;
  state.x[3] = 1;
  for (const ContiguousForm& f : load_forms) {
    f.immediate(&state, Z(4, 0), governing, base, 1);
    EXPECT_TRUE(is_zero(4)) << f.name;
    f.indexed(&state, Z(5, 0), governing, base, index_register);
    EXPECT_TRUE(is_zero(5)) << f.name;
  }
  for (const ContiguousForm& f : store_forms) {
    f.immediate(&state, Z(4, 0), governing, base, 1);
    f.indexed(&state, Z(4, 0), governing, base, index_register);
  }
  sve_ld1rd_zpri(&state, Z(6, 3), governing, base, 0);
  EXPECT_TRUE(is_zero(6));
}

TEST_F(Loads, AFaultMidwayEndsTheProcessWithTheElementsBelowStored) {
  const GuardedMemory memory;
  for (const ContiguousForm& f : store_forms) {
    std::memset(memory.begin(), 0, test::page);
    for (std::size_t i = 0; i < vector_bytes; ++i) state.z[4][i] = static_cast<std::uint8_t>(i + 1);
    const unsigned fitting = std::min<unsigned>(3, vector_bytes / f.element - 1);  // elements below the page end
    state.x[2] = memory.end_address(fitting * f.memory);
    const auto result = in_child([&] { f.immediate(&state, Z(4, 0), governing, base, 0); });
    EXPECT_EQ(result.signal(), SIGSEGV) << f.name;
    EXPECT_NE(result.error_output.find("SVESigHandler caught signal SIGSEGV"), std::string::npos);
    for (unsigned e = 0; e < fitting; ++e)
      EXPECT_EQ(std::memcmp(memory.end() - (fitting - e) * f.memory, state.z[4] + e * f.element, f.memory), 0)
          << f.name << " element " << e;
  }
  for (const ContiguousForm& f : load_forms) {
    state.x[2] = memory.end_address(vector_bytes / f.element * f.memory - 1);
    const auto result = in_child([&] { f.immediate(&state, Z(4, 0), governing, base, 0); });
    EXPECT_EQ(result.signal(), SIGSEGV) << f.name;
  }
}

// A state that a child process shares with its parent.
struct SharedState {
  SharedState()
      : at(static_cast<cpu_state*>(
            mmap(nullptr, sizeof(cpu_state), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
    if (at == MAP_FAILED) std::abort();
  }
  ~SharedState() { munmap(at, sizeof(cpu_state)); }
  SharedState(const SharedState&) = delete;
  SharedState& operator=(const SharedState&) = delete;
  cpu_state* const at;
};

// The elements below the fault are in the register when the process dies, whether all elements are active or some.
TEST_F(Loads, AFaultMidwayLeavesTheElementsBelowLoaded) {
  const GuardedMemory memory;
  memory.fill_counting();
  const SharedState shared;
  for (const ContiguousForm& f : load_forms)
    for (const bool sparse : {false, true}) {
      SetUp();
      const unsigned fitting = std::min<unsigned>(5, vector_bytes / f.element - 1 - sparse);
      if (sparse) state.p[1][(vector_bytes / f.element - 1) * f.element] = 0;
      state.x[2] = memory.end_address(fitting * f.memory + f.memory / 2);  // the next one lies across the end
      *shared.at = state;
      EXPECT_EQ(in_child([&] { f.immediate(shared.at, Z(4, 0), governing, base, 0); }).signal(), SIGSEGV) << f.name;
      for (unsigned e = 0; e < fitting; ++e) {
        EXPECT_EQ(element(shared.at->z[4] + e * f.element, f.element),
                  extended(f, memory.end() - fitting * f.memory - f.memory / 2 + e * f.memory))
            << f.name << " sparse " << sparse << " element " << e;
      }
      EXPECT_EQ(shared.at->z[4][fitting * f.element], 0xa5) << f.name << ": the element that faulted";
    }
}

TEST_F(Loads, AStructureLoadThatFaultsLeavesTheFieldsBelowLoaded) {
  const GuardedMemory memory;
  memory.fill_counting();
  const SharedState shared;
  for (const auto& f : structure_forms)
    for (const bool sparse : {false, true}) {
      SetUp();
      if (sparse) state.p[1][vector_bytes - f.bytes] = 0;
      const unsigned whole = std::min<unsigned>(3, vector_bytes / f.bytes - 1 - sparse);
      const unsigned fitting = whole * f.n + 1;  // fields: whole structures, and one field of the next
      state.x[2] = memory.end_address(fitting * f.bytes);
      *shared.at = state;
      EXPECT_EQ(in_child([&] { f.load(shared.at, Z(30, 0), governing, base, 0); }).signal(), SIGSEGV);
      for (unsigned i = 0; i < fitting; ++i)
        EXPECT_EQ(std::memcmp(shared.at->z[(30 + i % f.n) % 32] + i / f.n * f.bytes,
                              memory.end() - (fitting - i) * f.bytes, f.bytes),
                  0)
            << f.n << " of " << f.bytes << " sparse " << sparse << " field " << i;
      EXPECT_EQ(shared.at->z[31][whole * f.bytes], 0xa5) << "the field that faulted";
    }
}

TEST_F(Loads, AGatherThatFaultsLeavesTheElementsBelowLoaded) {
  const GuardedMemory memory;
  memory.fill_counting();
  const SharedState shared;
  const std::size_t fitting = doubles / 2;
  for (const bool into_addresses : {false, true}) {
    SetUp();
    for (std::size_t e = 0; e < doubles; ++e) {
      const std::uint64_t address =
          e < fitting ? memory.address(static_cast<std::ptrdiff_t>(8 * e)) : memory.end_address();
      std::memcpy(state.z[8] + 8 * e, &address, 8);
    }
    *shared.at = state;
    const Z to(into_addresses ? 8 : 9, 3);
    EXPECT_EQ(in_child([&] { sve_ld1d_zpzi(shared.at, to, governing, Z(8, 3), 0); }).signal(), SIGSEGV);
    if (into_addresses)
      EXPECT_EQ(std::memcmp(shared.at->z[8], state.z[8], vector_bytes), 0) << "the addresses stay whole";
    else
      EXPECT_EQ(std::memcmp(shared.at->z[9], memory.begin(), fitting * 8), 0);
  }
}

// What is stored in pieces is stored in those pieces: bytes by the library's routine, 16 bytes by the instruction
// function.
TEST_F(Loads, ASpillThatFaultsHasStoredThePiecesBelow) {
  const GuardedMemory memory;
  VectorV v{};
  for (std::size_t i = 0; i < vector_bytes; ++i) v.bytes[i] = state.z[7][i] = static_cast<std::uint8_t>(i + 1);
  for (std::size_t fitting = 1; fitting < vector_bytes; ++fitting) {
    const auto stored = [&] {
      std::size_t n = 0;
      while (n < fitting && memory.end()[n - fitting] == v.bytes[n]) ++n;
      return n;
    };
    std::memset(memory.begin(), 0, test::page);
    CpuContext context{};
    context.vl_word = sve::vector_granules;
    const std::uint64_t start = memory.end_address(static_cast<std::ptrdiff_t>(fitting));
    EXPECT_EQ(in_child([&] { VecU64SpillSI(start, 0, v, &context); }).signal(), SIGSEGV);
    ASSERT_EQ(stored(), fitting);
    std::memset(memory.begin(), 0, test::page);
    state.x[2] = start;
    EXPECT_EQ(in_child([&] { sve_str_zri(&state, Z(7, 5), base, 0); }).signal(), SIGSEGV);
    ASSERT_EQ(stored() / 16, fitting / 16);
    std::memset(memory.begin(), 0, test::page);
    EXPECT_EQ(in_child([&] { VecU8CStore1SIZ(all_of_value, start, 0, v, &context); }).signal(), SIGSEGV);
    ASSERT_EQ(stored(), fitting);
  }
}

// ---- Faults that the program mends ----

sigjmp_buf mending;
std::uint64_t to_mend;

void leave_for_mending(int, siginfo_t* info, void*) {
  to_mend = reinterpret_cast<std::uint64_t>(info->si_addr) & ~(test::page - 1);
  siglongjmp(mending, 1);
}

// Runs `instruction` until it no longer faults; each fault maps one page more. Returns how often it faulted.
int run_mending(const std::function<void()>& instruction) {
  struct sigaction action = {}, before[2];
  action.sa_sigaction = leave_for_mending;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  sigaction(SIGSEGV, &action, &before[0]);
  sigaction(SIGBUS, &action, &before[1]);
  volatile int faults = 0;
  if (sigsetjmp(mending, 1) != 0) {
    faults = faults + 1;
    mprotect(reinterpret_cast<void*>(to_mend), test::page, PROT_READ | PROT_WRITE);
  }
  instruction();
  sigaction(SIGSEGV, &before[0], nullptr);
  sigaction(SIGBUS, &before[1], nullptr);
  return faults;
}

TEST_F(Loads, AListIsFollowedOverPagesThatComeOnDemand) {
  constexpr std::size_t pages = doubles, step = pages / 2;
  const GuardedMemory memory(pages);
  // i = next[i], one element a page.
  for (std::size_t e = 0; e < pages; ++e) {
    const std::uint64_t next = memory.address(static_cast<std::ptrdiff_t>(((e + step) % pages) * test::page + 8 * e));
    std::memcpy(memory.begin() + e * test::page + 8 * ((e + pages - step) % pages), &next, 8);
  }
  for (const bool indexed : {false, true}) {
    for (std::size_t e = 0; e < pages; ++e) {
      const std::uint64_t first = e * test::page + 8 * ((e + pages - step) % pages) + (indexed ? 0 : memory.address());
      std::memcpy(state.z[8] + 8 * e, &first, 8);
    }
    state.x[2] = memory.address();
    mprotect(memory.begin(), pages * test::page, PROT_NONE);
    const int faults = run_mending([&] {
      if (indexed)
        sve_ld1d_zpzr(&state, Z(8, 3), governing, Z(8, 3), base);
      else
        sve_ld1d_zpzi(&state, Z(8, 3), governing, Z(8, 3), 0);
    });
    EXPECT_EQ(faults, static_cast<int>(pages));
    for (std::size_t e = 0; e < pages; ++e) {
      std::uint64_t got;
      std::memcpy(&got, state.z[8] + 8 * e, 8);
      EXPECT_EQ(got, memory.address(static_cast<std::ptrdiff_t>(((e + step) % pages) * test::page + 8 * e))) << e;
    }
  }
}

// ---- Memory that other threads take away ----

// Half of the time the second page of `memory` cannot be read, or is not there.
class RestlessPage {
 public:
  explicit RestlessPage(std::uint8_t* at)
      : thread_([this, at] {
          for (unsigned i = 0; !stop_; ++i) {
            if (i % 2 == 0) {
              mprotect(at, test::page, PROT_NONE);
              mprotect(at, test::page, PROT_READ | PROT_WRITE);
            } else {
              munmap(at, test::page);
              mmap(at, test::page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
            }
          }
        }) {}
  ~RestlessPage() {
    stop_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

TEST_F(Loads, SpeculativeLoadsOutliveAnotherThreadsUnmapping) {
  const GuardedMemory memory(2);
  std::memset(memory.begin(), 0, 2 * test::page);
  const std::uint64_t end = memory.address(test::page);  // of the page that stays
  struct Speculative {
    bool faults_at_first;
    std::function<void(std::uint64_t start)> load;
  };
  CpuContext context{};
  context.vl_word = sve::vector_granules;
  VectorV offsets{};
  for (std::uint32_t e = 0; e < words; ++e) {
    const std::uint32_t offset = 4 * e;
    std::memcpy(offsets.bytes + offset, &offset, 4);
  }
  const auto first_fault = [&](auto function, unsigned size) {
    return [this, function, size](std::uint64_t start) {
      state.x[2] = start;
      function(&state, Z(4, size), governing, base, zero_register);
    };
  };
  const auto non_fault = [&](auto function, unsigned size) {
    return [this, function, size](std::uint64_t start) {
      state.x[2] = start;
      function(&state, Z(4, size), governing, base, 0);
    };
  };
  const Speculative forms[] = {{true, first_fault(sve_ldff1b_scaled_zprr, 0)},
                               {true, first_fault(sve_ldff1w_scaled_zprr, 2)},
                               {true, first_fault(sve_ldff1d_scaled_zprr, 3)},
                               {false, non_fault(sve_ldnf1b_zpri, 0)},
                               {false, non_fault(sve_ldnf1d_zpri, 3)},
                               {false, [&](std::uint64_t s) { VecU16CLoadFF2LSSZ(all_of_value, s, 0, &context); }},
                               {false, [&](std::uint64_t s) { VecU32LoadFF4VSZ(all_of_value, offsets, s, &context); }}};
  // In a child: who is killed would take the other tests along.
  const auto result = in_child([&] {
    const RestlessPage restless(reinterpret_cast<std::uint8_t*>(end));
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
    while (std::chrono::steady_clock::now() < until)
      for (const Speculative& f : forms)
        for (std::uint64_t below = 8; below < vector_bytes; below += 8) {
          std::memset(state.ffr, 1, vector_bytes);
          f.load(end - below);
          // What lies on the page that stays is loaded, whatever happens.
          for (std::uint64_t i = 0; i < below; ++i)
            if (state.ffr[i] != 1) _exit(1);
          // A first-fault load that begins on unreadable memory may fault.
          if (!f.faults_at_first) f.load(end + 64);
        }
  });
  EXPECT_EQ(result.signal(), 0) << result.error_output;
  EXPECT_EQ(result.status, 0);
}

TEST_F(Loads, WholeRegisters) {
  const GuardedMemory memory;
  memory.fill_counting();
  state.x[2] = memory.end_address(vector_bytes);
  sve_ldr_zri(&state, Z(7, 5), base, 0);
  EXPECT_EQ(std::memcmp(state.z[7], memory.end() - vector_bytes, vector_bytes), 0);
  state.x[2] = memory.address(32 * static_cast<std::ptrdiff_t>(vector_bytes));
  sve_str_zri(&state, Z(7, 5), base, -32);
  EXPECT_EQ(std::memcmp(memory.begin(), state.z[7], vector_bytes), 0);
  constexpr auto predicate = static_cast<std::ptrdiff_t>(sve::predicate_bytes);
  // A predicate needs exactly its packed bytes, at either end of a page.
  for (const std::ptrdiff_t at : {std::ptrdiff_t{0}, std::ptrdiff_t{test::page - predicate}}) {
    memory.fill_counting();
    state.x[2] = memory.address(at + predicate);
    sve_ldr_pri(&state, P(5, P::bare), base, -1);
    for (std::size_t i = 0; i < vector_bytes; ++i)
      ASSERT_EQ(state.p[5][i], memory.begin()[at + static_cast<std::ptrdiff_t>(i / 8)] >> (i % 8) & 1) << i;
    std::vector<std::uint8_t> whole(memory.begin(), memory.end());
    for (auto& byte : state.p[5]) byte = static_cast<std::uint8_t>(byte | 0xfe);  // only bit 0 counts
    std::memset(memory.begin() + at, 0, sve::predicate_bytes);
    sve_str_pri(&state, P(5, P::bare), base, -1);
    EXPECT_EQ(std::memcmp(memory.begin(), whole.data(), whole.size()), 0) << "nothing beside those bytes";
  }
}

// Names of forms that no encoding produces: each does what the form of the same sizes does.
TEST_F(Loads, NamesWithoutAnEncodingAreThePlainForms) {
  using Function = aarch64_decode_rc (*)(cpu_state*, Z, P, SP, int);
  const struct {
    const char* name;
    Function call, plain;
  } forms[] = {{"ld1sb", sve_ld1sb_zpri, sve_ld1b_zpri},       {"ld1sh", sve_ld1sh_zpri, sve_ld1h_zpri},
               {"ld1sw", sve_ld1sw_zpri, sve_ld1w_zpri},       {"ld1sd", sve_ld1sd_zpri, sve_ld1d_zpri},
               {"st1sb", sve_st1sb_zpri, sve_st1b_zpri},       {"st1sb_h", sve_st1sb_h_zpri, sve_st1b_h_zpri},
               {"st1sb_s", sve_st1sb_s_zpri, sve_st1b_s_zpri}, {"st1sb_d", sve_st1sb_d_zpri, sve_st1b_d_zpri},
               {"st1sh", sve_st1sh_zpri, sve_st1h_zpri},       {"st1sh_s", sve_st1sh_s_zpri, sve_st1h_s_zpri},
               {"st1sh_d", sve_st1sh_d_zpri, sve_st1h_d_zpri}, {"st1sw", sve_st1sw_zpri, sve_st1w_zpri},
               {"st1sw_d", sve_st1sw_d_zpri, sve_st1w_d_zpri}, {"st1sd", sve_st1sd_zpri, sve_st1d_zpri}};
  const GuardedMemory memory;
  std::mt19937 random(11);
  for (const auto& f : forms)
    for (const int imm : {-8, 0, 7})
      for (int round = 0; round < 4; ++round) {
        for (auto& byte : state.p[1]) byte = round == 0 ? 1 : static_cast<std::uint8_t>(random());
        for (auto& byte : state.z[4]) byte = static_cast<std::uint8_t>(random());
        state.x[2] = memory.address(1800);
        const cpu_state before = state;
        memory.fill_counting();
        ASSERT_EQ(f.plain(&state, Z(4, 0), governing, base, imm), AARCH64_DECODE_EXECUTED);
        const cpu_state expected = state;
        const std::vector<std::uint8_t> stored(memory.begin(), memory.end());
        state = before;
        memory.fill_counting();
        ASSERT_EQ(f.call(&state, Z(4, 0), governing, base, imm), AARCH64_DECODE_EXECUTED);
        ASSERT_EQ(std::memcmp(&state, &expected, sizeof state), 0) << f.name;
        ASSERT_EQ(std::memcmp(memory.begin(), stored.data(), stored.size()), 0) << f.name;
      }
}

// ---- Structures ----

TEST_F(Loads, StructureGroupsWrapAtZ31) {
  const GuardedMemory memory;
  memory.fill_counting();
  std::mt19937 random(3);
  for (const auto& f : structure_forms)
    for (const bool sparse : {false, true}) {
      for (auto& byte : state.p[1]) byte = sparse ? random() & 1 : 1;
      const std::size_t span = f.n * vector_bytes;
      for (const int imm : {1, -1}) {
        state.x[2] = memory.address(2000);
        const std::uint8_t* start = memory.begin() + 2000 + imm * static_cast<int>(span);
        ASSERT_EQ(f.load(&state, Z(30, 0), governing, base, imm), 0);
        for (std::size_t e = 0; e < vector_bytes / f.bytes; ++e)
          for (unsigned k = 0; k < f.n; ++k) {
            const std::uint8_t* z = state.z[(30 + k) % 32] + e * f.bytes;
            const std::uint8_t zeros[8] = {};
            const bool active = state.p[1][e * f.bytes] & 1;
            ASSERT_EQ(std::memcmp(z, active ? start + (e * f.n + k) * f.bytes : zeros, f.bytes), 0)
                << f.n << " of " << f.bytes << " element " << e << " field " << k;
          }
      }
      std::vector<std::uint8_t> expected(memory.begin(), memory.end());
      state.x[2] = memory.end_address(static_cast<std::ptrdiff_t>(span));
      std::memset(memory.end() - span, 0x11, span);
      std::memset(expected.data() + expected.size() - span, 0x11, span);
      for (std::size_t e = 0; e < vector_bytes / f.bytes; ++e)
        for (unsigned k = 0; k < f.n; ++k)
          if (state.p[1][e * f.bytes] & 1)
            std::memcpy(&expected[expected.size() - span + (e * f.n + k) * f.bytes],
                        state.z[(30 + k) % 32] + e * f.bytes, f.bytes);
      ASSERT_EQ(f.store(&state, Z(30, 0), governing, base, 0), 0);
      EXPECT_EQ(std::memcmp(memory.begin(), expected.data(), expected.size()), 0) << f.n << " of " << f.bytes;
      memory.fill_counting();
    }
}

TEST_F(Loads, AStructureStoreWritesItsActiveStructuresOnly) {
  const GuardedMemory memory;
  std::memset(memory.begin(), 0, test::page);
  all_inactive();
  state.p[1][2] = 1;  // element 1 of 16 bits
  state.x[2] = memory.address();
  sve_st2h_zpri(&state, Z(4, 1), governing, base, 0);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(memory.begin()[i], i >= 4 && i < 8 ? 0xa5 : 0) << i;
  all_inactive();
  state.x[2] = 0x10;
  sve_ld3w_zpri(&state, Z(31, 2), governing, base, 0);
  EXPECT_TRUE(is_zero(31) && is_zero(0) && is_zero(1));
  sve_st4d_zpri(&state, Z(31, 3), governing, base, 0);
}

// ---- Gathers and scatters ----

template <class T>
void set_lane(std::uint8_t* z, std::size_t e, T value) {
  std::memcpy(z + e * sizeof(T), &value, sizeof value);
}
template <class T>
T lane(const std::uint8_t* z, std::size_t e) {
  T value;
  std::memcpy(&value, z + e * sizeof(T), sizeof value);
  return value;
}

TEST_F(Loads, GatherOffsetsExtendBySignOrByZero) {
  const GuardedMemory memory(2);
  memory.fill_counting();
  const std::uint64_t middle = memory.address(4096);
  state.x[2] = middle;
  for (std::size_t e = 0; e < doubles; ++e)
    set_lane<std::uint64_t>(state.z[8], e, 0xdeadbeef'ffffffffu - e);  // low word -1-e
  sve_ld1w_d_sxtw_scaled_zprz(&state, Z(9, 3), governing, base, Z(8, 3));
  for (std::size_t e = 0; e < doubles; ++e)
    EXPECT_EQ(lane<std::uint64_t>(state.z[9], e), lane<std::uint32_t>(memory.begin() + 4096 - 4 * (e + 1), 0)) << e;
  // The same low words, zero-extended, reach far above the base: with a base that far below the window they land in it.
  state.x[2] = middle - std::uint64_t{0xffffffff} * 8 - 8;
  for (std::size_t e = 0; e < doubles; ++e) set_lane<std::uint64_t>(state.z[8], e, 0x12345678'ffffffffu - e);
  sve_ld1d_uxtw_scaled_zprz(&state, Z(9, 3), governing, base, Z(8, 3));
  for (std::size_t e = 0; e < doubles; ++e)
    EXPECT_EQ(lane<std::uint64_t>(state.z[9], e), lane<std::uint64_t>(memory.begin() + 4096 - 8 * (e + 1), 0)) << e;
}

TEST_F(Loads, AVectorOf32BitBasesIsZeroExtended) {
  // 0xffffffff and an immediate of one byte are the address 0x100000000.
  void* at = mmap(reinterpret_cast<void*>(0x100000000), test::page, PROT_READ | PROT_WRITE,
                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  if (at != reinterpret_cast<void*>(0x100000000)) GTEST_SKIP() << "the address 0x100000000 is taken in this process";
  *static_cast<std::uint8_t*>(at) = 0x77;
  VectorV bases{};
  set_lane<std::uint32_t>(bases.bytes, 0, 0xffffffffu);
  PredV first{{1, 0, 0, 0}};
  CpuContext context{};
  context.vl_word = sve::vector_granules;
  EXPECT_EQ(lane<std::uint32_t>(VecU32Load1VIZ(first, bases, 1, &context).bytes, 0), 0x77u);
  munmap(at, test::page);
}

TEST_F(Loads, EqualScatterAddressesKeepTheHighestElement) {
  const GuardedMemory memory;
  state.x[2] = memory.address(64);
  std::memset(state.z[8], 0, vector_bytes);
  for (std::size_t e = 0; e < doubles; ++e) set_lane<std::uint64_t>(state.z[9], e, e + 100);
  sve_st1d_scaled_zprz(&state, Z(9, 3), governing, base, Z(8, 3));
  EXPECT_EQ(lane<std::uint64_t>(memory.begin() + 64, 0), 99u + doubles);
  for (std::size_t e = doubles / 2; e < doubles; ++e) state.p[1][e * 8] = 0;
  sve_st1d_scaled_zprz(&state, Z(9, 3), governing, base, Z(8, 3));
  EXPECT_EQ(lane<std::uint64_t>(memory.begin() + 64, 0), 99u + doubles / 2);
}

TEST_F(Loads, InactiveGatherElementsFormNoAddress) {
  all_inactive();
  for (std::size_t e = 0; e < doubles; ++e) set_lane<std::uint64_t>(state.z[8], e, 0x10);
  sve_ld1d_zpzi(&state, Z(9, 3), governing, Z(8, 3), 0);
  EXPECT_TRUE(is_zero(9));
  sve_st1d_zpzi(&state, Z(8, 3), governing, Z(8, 3), 0);
  // The destination may be the vector of addresses.
  const GuardedMemory memory;
  memory.fill_counting();
  std::memset(state.p[1], 1, vector_bytes);
  for (std::size_t e = 0; e < doubles; ++e)
    set_lane<std::uint64_t>(state.z[8], e, memory.address(static_cast<std::ptrdiff_t>(doubles - 1 - e) * 8));
  sve_ld1d_zpzi(&state, Z(8, 3), governing, Z(8, 3), 0);
  for (std::size_t e = 0; e < doubles; ++e)
    EXPECT_EQ(lane<std::uint64_t>(state.z[8], e), lane<std::uint64_t>(memory.begin(), doubles - 1 - e));
}

// ---- First-fault, by a probe of the next page ----

TEST_F(Loads, FirstFaultCountsElementsBelowThePageEnd) {
  const GuardedMemory memory;
  memory.fill_counting();
  struct {
    aarch64_decode_rc (*load)(cpu_state*, Z, P, SP, R);
    unsigned element, memory;
  } const forms[] = {{sve_ldff1b_scaled_zprr, 1, 1},   {sve_ldff1b_h_scaled_zprr, 2, 1},
                     {sve_ldff1b_s_scaled_zprr, 4, 1}, {sve_ldff1b_d_scaled_zprr, 8, 1},
                     {sve_ldff1w_scaled_zprr, 4, 4},   {sve_ldff1w_d_scaled_zprr, 8, 4},
                     {sve_ldff1d_scaled_zprr, 8, 8}};
  for (const auto& f : forms)
    for (unsigned below = 1; below <= vector_bytes; ++below) {
      SetUp();
      state.x[2] = memory.end_address(below);
      // Every element must fit if it counts: memory elements are no wider than the register's.
      f.load(&state, Z(4, 0), governing, base, zero_register);
      const std::size_t n = vector_bytes / f.element;
      const std::size_t k = below / f.element;
      for (std::size_t e = 0; e < n; ++e) {
        const std::uint8_t* z = state.z[4] + e * f.element;
        for (unsigned b = 0; b < f.element; ++b) {
          const std::uint8_t expected =
              e >= k         ? 0xa5
              : b < f.memory ? memory.end()[-static_cast<int>(below) + static_cast<int>(e * f.memory + b)]
                             : 0;
          ASSERT_EQ(z[b], expected) << "element " << f.element << " memory " << f.memory << " below " << below << " e "
                                    << e;
          ASSERT_EQ(state.ffr[e * f.element + b], e < k ? 1 : 0);
        }
      }
    }
}

TEST_F(Loads, FirstFaultAtExactlyAPageEndLoadsAll) {
  const GuardedMemory memory;
  memory.fill_counting();
  state.x[2] = memory.end_address(vector_bytes);
  sve_ldff1b_scaled_zprr(&state, Z(4, 0), governing, base, zero_register);
  EXPECT_EQ(std::memcmp(state.z[4], memory.end() - vector_bytes, vector_bytes), 0);
  for (const std::uint8_t byte : state.ffr) EXPECT_EQ(byte, 1);
  // An unreadable first page is not tested: it ends the process.
  state.x[2] = memory.end_address() + 64;
  EXPECT_EQ(in_child([&] { sve_ldff1b_scaled_zprr(&state, Z(4, 0), governing, base, zero_register); }).signal(),
            SIGSEGV);
}

// ---- Non-fault, by a probe of each page ----

TEST_F(Loads, NonFaultIsNotSticky) {
  const GuardedMemory memory;
  memory.fill_counting();
  // The first 10 bytes of the span lie on the unreadable page before.
  state.x[2] = memory.address(-10);
  for (std::size_t i = 12; i < 16; ++i) state.p[1][i] = 0;  // elements 6 and 7 inactive
  state.p[1][4] = 0;                                        // element 2, on the unreadable page, too
  sve_ldnf1h_zpri(&state, Z(4, 1), governing, base, 0);
  for (std::size_t e = 0; e < 2 * words; ++e) {
    const bool inactive = e == 2 || e == 6 || e == 7;
    const std::uint16_t expected = inactive ? 0 : e < 5 ? 0xa5a5 : lane<std::uint16_t>(memory.begin() - 10, e);
    ASSERT_EQ(lane<std::uint16_t>(state.z[4], e), expected) << e;
    ASSERT_EQ(state.ffr[2 * e], e < 5 && !inactive ? 0 : 1) << e;
    ASSERT_EQ(state.ffr[2 * e + 1], e < 5 && !inactive ? 0 : 1) << e;
  }
}

TEST_F(Loads, NonFaultWithNothingActiveProbesAndChangesNoMarks) {
  all_inactive();
  state.x[2] = 0x10;
  sve_ldnf1b_zpri(&state, Z(4, 0), governing, base, 0);
  EXPECT_TRUE(is_zero(4));
  for (const std::uint8_t byte : state.ffr) EXPECT_EQ(byte, 1);
}

TEST_F(Loads, ANonFaultElementThatStraddlesAPageEndIsFatal) {
  const GuardedMemory memory;
  state.x[2] = memory.end_address(7);
  EXPECT_EQ(in_child([&] { sve_ldnf1d_zpri(&state, Z(4, 3), governing, base, 0); }).signal(), SIGSEGV);
}

// ---- First-fault and non-fault, by a guarded read of each element ----

using GuardedLoad = std::function<VectorV(const PredV&, std::uint64_t start, CpuContext*)>;

TEST_F(Loads, GuardedLoadsStopAtTheFirstActiveElementThatFaults) {
  const GuardedMemory memory;
  memory.fill_counting();
  struct {
    const char* name;
    unsigned element, memory;
    GuardedLoad load;
  } const forms[] = {
      {"ldff1h.h", 2, 2, [](const PredV& p, std::uint64_t s, CpuContext* c) { return VecU16CLoadFF2LSSZ(p, s, 0, c); }},
      {"ldff1sb.d", 8, 1,
       [](const PredV& p, std::uint64_t s, CpuContext* c) { return VecS64CLoadFF1LSSZ(p, s, 0, c); }},
      {"ldff1d", 8, 8, [](const PredV& p, std::uint64_t s, CpuContext* c) { return VecU64CLoadFF8LSSZ(p, s, 0, c); }},
      {"ldnf1w", 4, 4, [](const PredV& p, std::uint64_t s, CpuContext* c) { return VecU32CLoadNF4SIZ(p, s, 0, c); }},
      {"ldff1w gather", 4, 4, [](const PredV& p, std::uint64_t s, CpuContext* c) {
         VectorV offsets{};
         for (std::size_t e = 0; e < words; ++e)
           set_lane<std::uint32_t>(offsets.bytes, e, static_cast<std::uint32_t>(4 * e));
         return VecU32LoadFF4VSZ(p, offsets, s, c);
       }}};
  std::mt19937_64 random(5);
  for (const auto& f : forms) {
    const std::size_t n = vector_bytes / f.element;
    for (std::size_t readable = 0; readable <= n; ++readable)
      for (int round = 0; round < 4; ++round) {
        CpuContext context{};
        context.vl_word = sve::vector_granules;
        for (auto& word : context.ffr.words) word = ~std::uint64_t{0};
        PredV p{{random(), random(), random(), random()}};
        if (round == 0) p = all_of_value;
        // One byte of the first element beyond is still readable where an element has several.
        const std::uint64_t start =
            memory.end_address(static_cast<std::ptrdiff_t>(readable * f.memory + (f.memory > 1)));
        const VectorV r = f.load(p, start, &context);
        bool failed = false;
        for (std::size_t e = 0; e < n; ++e) {
          const std::size_t bit = e * f.element;
          const bool active = p.words[bit / 64] >> (bit % 64) & 1;
          failed = failed || (active && e >= readable);
          std::uint64_t got = 0, expected = 0;
          std::memcpy(&got, r.bytes + e * f.element, f.element);
          if (active && !failed) {
            std::memcpy(&expected, reinterpret_cast<const std::uint8_t*>(start) + e * f.memory, f.memory);
            if (f.name == std::string("ldff1sb.d"))
              expected = static_cast<std::uint64_t>(static_cast<std::int8_t>(expected));
          }
          ASSERT_EQ(got, expected) << f.name << " readable " << readable << " element " << e;
          for (std::size_t b = bit; b < bit + f.element; ++b)
            ASSERT_EQ(context.ffr.words[b / 64] >> (b % 64) & 1, failed ? 0u : 1u) << f.name << " ffr bit " << b;
        }
      }
  }
}

TEST_F(Loads, FirstFaultInSixteenThreads) {
  // Each thread's loads fault at an element of its own; every element and every mark is checked.
  constexpr int threads = 16;
  const int rounds = std::getenv("SVE_MANY_FIRST_FAULTS") ? 625'000 : 12'500;
  const GuardedMemory memory;
  memory.fill_counting();
  std::array<int, threads> wrong{};
  std::vector<std::thread> running;
  for (int t = 0; t < threads; ++t)
    running.emplace_back([&, t] {
      CpuContext context{};
      context.vl_word = sve::vector_granules;
      const std::size_t readable = static_cast<std::size_t>(t) % doubles;
      for (int i = 0; i < rounds; ++i) {
        for (auto& word : context.ffr.words) word = ~std::uint64_t{0};
        const std::uint64_t start = memory.end_address(static_cast<std::ptrdiff_t>(readable * 8));
        const VectorV r = VecU64CLoadFF8LSSZ(all_of_value, start, 0, &context);
        for (std::size_t e = 0; e < doubles; ++e) {
          const std::uint64_t expected =
              e < readable ? lane<std::uint64_t>(reinterpret_cast<const std::uint8_t*>(start), e) : 0;
          wrong[static_cast<std::size_t>(t)] += lane<std::uint64_t>(r.bytes, e) != expected;
          wrong[static_cast<std::size_t>(t)] +=
              (context.ffr.words[e / 8] >> (e % 8 * 8) & 0xff) != (e < readable ? 0xffu : 0u);
        }
      }
    });
  for (std::thread& t : running) t.join();
  for (const int w : wrong) EXPECT_EQ(w, 0);
}

// ---- Replicating loads ----

TEST_F(Loads, QuadwordsLookAtSixteenPredicateBits) {
  const GuardedMemory memory;
  memory.fill_counting();
  CpuContext context{};
  context.vl_word = sve::vector_granules;
  const std::uint64_t end = memory.end_address(16);
  const auto check = [&](const VectorV& r, const std::uint8_t* from, auto active, std::size_t size) {
    for (std::size_t i = 0; i < vector_bytes; ++i) ASSERT_EQ(r.bytes[i], active(i % 16 / size) ? from[i % 16] : 0) << i;
  };
  const PredV all{{0xffff, 0, 0, 0}};
  check(
      VecU8LoadDup1QSIZ(all, end - 16, 1, &context), memory.end() - 16, [](std::size_t) { return true; }, 1);
  check(
      VecU64LoadDup8QSIZ(all, end + 16, -1, &context), memory.end() - 16, [](std::size_t) { return true; }, 8);
  check(
      VecU32LoadDup4QSSZ(all, end - 8, 2, &context), memory.end() - 16, [](std::size_t) { return true; }, 4);
  const PredV in_words{{1u << 0 | 1u << 8 | 0xf0f0, 0, 0, 0}};
  check(
      VecU32LoadDup4QSIZ(in_words, end, 0, &context), memory.end() - 16,
      [&](std::size_t i) { return in_words.words[0] >> (4 * i) & 1; }, 4);
  const PredV in_doubles{{1u << 8, 0, 0, 0}};
  check(
      VecU64LoadDup8QSIZ(in_doubles, end, 0, &context), memory.end() - 16, [](std::size_t i) { return i == 1; }, 8);
  const PredV above{{~std::uint64_t{0xffff}, ~std::uint64_t{0}, 0, 0}};
  check(
      VecU16LoadDup2QSIZ(above, 0x10, 0, &context), memory.begin(), [](std::size_t) { return false; }, 2);
}

TEST_F(Loads, ReplicatedElementsScaleTheirImmediateAndExtend) {
  const GuardedMemory memory;
  std::memset(memory.begin(), 0, test::page);
  memory.begin()[63 * 2 + 1] = 0x80;
  state.x[2] = memory.address();
  sve_ld1rsh_d_zpri(&state, Z(4, 3), governing, base, 63);
  for (std::size_t e = 0; e < doubles; ++e) EXPECT_EQ(lane<std::uint64_t>(state.z[4], e), 0xffffffffffff8000u);
  sve_ld1rh_s_zpri(&state, Z(4, 2), governing, base, 63);
  for (std::size_t e = 0; e < words; ++e) EXPECT_EQ(lane<std::uint32_t>(state.z[4], e), 0x8000u);
}

// Lengths other than the model's; at length 0 nothing is touched.
TEST_F(Loads, RoutinesFollowTheLengthWord) {
  const GuardedMemory memory;
  memory.fill_counting();
  const PredV all{{~std::uint64_t{0}, ~std::uint64_t{0}, ~std::uint64_t{0}, ~std::uint64_t{0}}};
  for (const unsigned granules : {0u, 1u, 2u, 6u, 14u, 32u}) {
    CpuContext context{};
    context.vl_word = granules;
    const std::size_t bytes = granules * 8;
    const VectorV r = VecU8CLoad1SIZ(all, memory.end_address(static_cast<std::ptrdiff_t>(bytes)), 0, &context);
    EXPECT_EQ(std::memcmp(r.bytes, memory.end() - bytes, bytes), 0) << granules;
    const VectorV wide =
        VecS64CLoad2SIZ(all, memory.end_address(static_cast<std::ptrdiff_t>(granules * 4)), 1, &context);
    for (std::size_t e = 0; granules != 0 && e < granules; ++e)
      EXPECT_EQ(lane<std::int64_t>(wide.bytes, e), lane<std::int16_t>(memory.end() - granules * 2, e)) << granules;
    VecU8CStore1SIZ(all, memory.address(static_cast<std::ptrdiff_t>(bytes)), -1, r, &context);
    EXPECT_EQ(std::memcmp(memory.begin(), r.bytes, bytes), 0) << granules;
    memory.fill_counting();
  }
}

}  // namespace
