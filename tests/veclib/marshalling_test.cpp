// Library handlers from outside: what every one of them does to the state around its routine, over all rows of the
// table that run in the library and touch no memory, and the kinds of operand and result that need a case of their own.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "tests/states.h"
#include "values.h"

namespace {

using namespace veclib_test;
using sve::vector_bytes;
using sve::decode::Kind;

aarch64_decode_rc execute(cpu_state& state, u32 word) { return sve::decode::find_row(word)->handle(&state, word); }

// With controls and status of those bits alone that mean something.
cpu_state random_state(Random& random) {
  cpu_state state = test::random_state(random);
  state.pc = reinterpret_cast<u32*>(random());
  state.fpsr &= 0x9f;
  state.fpcr &= 0x07c80000;
  state.fpcr_extra = static_cast<u32>(random()) & 0x07c00000;
  return state;
}

TEST(Marshalling, EveryLibraryHandlerAroundItsRoutine) {
  Random random(11);
  int rows = 0;
  for_each_row([&](auto& map, auto& row) {
    if (row.model != Kind::library || row.function->is_memory()) return;
    ++rows;
    for (int i = 0; i < 4; ++i) {
      const u32 word = map.word(row.key) | (static_cast<u32>(random()) & ~map.fixed_bits);
      const cpu_state before = random_state(random);
      cpu_state s = before;
      ASSERT_EQ(row.handle(&s, word), AARCH64_DECODE_EXECUTED);
      const std::string_view name = row.name;
      EXPECT_EQ(s.instr, before.instr) << name;
      EXPECT_EQ(s.fpcr, before.fpcr | before.fpcr_extra) << name;
      EXPECT_EQ(s.fpcr_extra, before.fpcr_extra) << name;
      EXPECT_EQ(s.nzcv >> 32, 0u) << name;  // the upper half is dropped
      EXPECT_EQ(s.nzcv & 0x0fffffff, before.nzcv & 0x0fffffff) << name;
      EXPECT_EQ(s.pc, before.pc) << name;
      EXPECT_EQ(s.sp, before.sp) << name;
      for (std::size_t b = 0; b < vector_bytes; ++b)
        ASSERT_EQ(s.ffr[b], before.ffr[b] & 1) << name;  // the same, as 0 or 1
      for (const sve::decode::Operand& o : row.operands())
        if (o.is_written() && o.kind == sve::decode::OperandKind::p) {
          const byte* p = s.p[o.number(word)];
          EXPECT_TRUE(std::all_of(p, p + vector_bytes, [](byte bit) { return bit <= 1; })) << name;
        }
      if (::testing::Test::HasFailure()) return;
    }
  });
  EXPECT_GT(rows, 0);
}

#if defined(__aarch64__)
u64 host_status() {
  u64 status;
  asm volatile("mrs %0, fpsr" : "=r"(status) : : "memory");
  return status;
}

// The host saturates with instructions that leave a mark in its status register.
TEST(Marshalling, OperationsOnIntegersLeaveTheHostsStatusAlone) {
  asm volatile("msr fpsr, xzr\n\tmovi v0.16b, #0x7f\n\tsqadd v0.16b, v0.16b, v0.16b" : : : "v0", "memory");
  const u64 saturated = 1u << 27, inexact = 1u << 4;
  ASSERT_EQ(host_status(), saturated);
  Random random(13);
  int rows = 0;
  for_each_row([&](auto& map, auto& row) {
    if (row.model != Kind::library || row.function->is_memory() || row.function->floating_point) return;
    ++rows;
    for (const u64 status : {u64{0}, saturated, inexact}) {
      cpu_state s = random_state(random);
      asm volatile("msr fpsr, %0" : : "r"(status) : "memory");
      row.handle(&s, map.word(row.key) | (static_cast<u32>(random()) & ~map.fixed_bits));
      ASSERT_EQ(host_status(), status) << row.name;
    }
  });
  EXPECT_GT(rows, 300);
}
#endif

TEST(Marshalling, PrefetchesTouchNothing) {
  Random random(12);
  int rows = 0;
  for_each_row([&](auto& map, auto& row) {
    if (row.model != Kind::prefetch) return;
    ++rows;
    const cpu_state before = random_state(random);
    cpu_state s = before;
    EXPECT_EQ(row.handle(&s, map.word(row.key) | (static_cast<u32>(random()) & ~map.fixed_bits)), 0);
    EXPECT_EQ(std::memcmp(&s, &before, sizeof s), 0) << row.name;
  });
  EXPECT_GT(rows, 0);
}

TEST(Marshalling, FpcrExtraReachesTheRoutine) {
  // 1 plus a small product rounds by the mode that fpcr_extra adds.
  const u32 word = word_of("VecF32FMAVVVM");
  cpu_state s{};
  std::memset(s.p[0], 1, vector_bytes);
  sve::store<u32>(s.z[0], 0, 0x3f800000);
  sve::store<u32>(s.z[1], 0, 0x33000000);  // 2 to the -25
  sve::store<u32>(s.z[2], 0, 0x3f800000);
  s.fpcr_extra = 1u << 22;  // towards plus infinity
  EXPECT_EQ(execute(s, word | 1 << 5 | 2 << 16), 0);
  EXPECT_EQ(sve::load<u32>(s.z[0], 0), 0x3f800001u);
  EXPECT_EQ(s.fpcr, 1u << 22);
  EXPECT_EQ(s.fpsr & 0x10, 0x10u);  // inexact
}

TEST(Marshalling, ResultsForX31AreDropped) {
  Random random(13);
  for (const char* name : {"VecU8LastAV", "VecU8CountVLSI", "VecU64QIncrVL8SI", "VecS32QIncrVL4SI", "VecU8DecrSCountPS",
                           "VecU32CondXASV"}) {
    const cpu_state before = random_state(random);
    cpu_state s = before;
    EXPECT_EQ(execute(s, word_of(name) | 31), 0) << name;
    EXPECT_EQ(std::memcmp(s.x, before.x, sizeof s.x), 0) << name;
    EXPECT_EQ(s.sp, before.sp) << name;
    EXPECT_EQ(std::memcmp(s.z, before.z, sizeof s.z), 0) << name;
    EXPECT_EQ(std::memcmp(s.p, before.p, sizeof s.p), 0) << name;
  }
}

TEST(Marshalling, ScalarResultsOfX) {
  cpu_state s{};
  for (std::size_t i = 0; i < vector_bytes; ++i) s.z[3][i] = static_cast<byte>(i + 100);
  std::memset(s.x, 0xff, sizeof s.x);
  s.p[2][4] = 1;
  EXPECT_EQ(execute(s, word_of("VecU8LastAV") | 2 << 10 | 3 << 5 | 7), 0);
  EXPECT_EQ(s.x[7], 105u);  // zero-extended to 64 bits
  EXPECT_EQ(execute(s, word_of("VecU8CountVLSI") | 3 << 16 | 31 << 5 | 8), 0);
  EXPECT_EQ(s.x[8], 4 * vector_bytes);  // the field of 3 is a multiplier of 4
}

TEST(Marshalling, ScalarsInVectorRegistersClearTheRest) {
  for (const auto& [name, expected] : {std::pair<const char*, u64>{"VecB8LastAV", 0xa1},
                                       {"VecF32CondXBSV", 0xa0a0a1a0},
                                       {"VecS8AddReduceV", static_cast<u64>(s64{-96})}}) {
    for (const u32 d : {3u, 6u}) {  // also where the destination is the source
      cpu_state s{};
      for (auto& z : s.z) std::memset(z, 0xa0, vector_bytes);
      s.z[3][9] = 0xa1;
      s.p[2][8] = 1;
      EXPECT_EQ(execute(s, word_of(name) | 2 << 10 | 3 << 5 | d), 0);
      EXPECT_EQ(sve::load<u64>(s.z[d], 0), expected) << name;
      EXPECT_TRUE(std::all_of(s.z[d] + 8, s.z[d] + vector_bytes, [](byte b) { return b == 0; })) << name;
    }
  }
}

TEST(Marshalling, ScalarOperands) {
  cpu_state s{};
  s.sp = 0x77;
  s.x[5] = 0x1ff;
  std::memset(s.z[4], 0x42, vector_bytes);
  EXPECT_EQ(execute(s, word_of("VecU8InsertS") | 5 << 5 | 3), 0);
  EXPECT_EQ(s.z[3][0], 0xff);
  EXPECT_EQ(execute(s, word_of("VecU8InsertS") | 31 << 5 | 3), 0);  // the zero register, not SP
  EXPECT_EQ(s.z[3][0], 0);
  EXPECT_EQ(s.z[3][1], 0xff);
  EXPECT_EQ(execute(s, word_of("VecB8InsertS") | 4 << 5 | 3), 0);  // the low element of a vector register
  EXPECT_EQ(s.z[3][0], 0x42);
  EXPECT_EQ(s.z[3][2], 0xff);
  s.nzcv = 0;
  s.x[5] = 0;
  EXPECT_EQ(execute(s, word_of("VecU64CTermEQ") | 5 << 5 | 31 << 16), 0);
  EXPECT_EQ(s.nzcv, n_bit);
}

TEST(Marshalling, BasesOfSpAndIndicesOfZero) {
  alignas(16) byte memory[48];
  for (std::size_t i = 0; i < sizeof memory; ++i) memory[i] = static_cast<byte>(i + 1);
  cpu_state s{};
  std::memset(s.p[2], 1, vector_bytes);
  s.sp = reinterpret_cast<u64>(memory);
  EXPECT_EQ(execute(s, word_of("VecU8LoadDup1QSIZ") | 1 << 16 | 2 << 10 | 31 << 5 | 3), 0);
  EXPECT_EQ(std::memcmp(s.z[3], memory + 16, 16), 0);
  EXPECT_EQ(std::memcmp(s.z[3] + vector_bytes - 16, memory + 16, 16), 0);
  // Register 31 as an index is reserved by the architecture; here it reads as 0.
  EXPECT_EQ(execute(s, word_of("VecU8LoadDup1QSSZ") | 31 << 16 | 2 << 10 | 31 << 5 | 3), 0);
  EXPECT_EQ(std::memcmp(s.z[3], memory, 16), 0);
}

TEST(Marshalling, PredicatesCountByBitZeroAndComeBackAsZeroOrOne) {
  Random random(14);
  const cpu_state before = random_state(random);
  cpu_state s = before;
  EXPECT_EQ(execute(s, word_of("VecPActualFlgP") | 4 << 5 | 6), 0);
  for (std::size_t i = 0; i < vector_bytes; ++i) EXPECT_EQ(s.p[6][i], before.p[4][i] & before.ffr[i] & 1);
}

}  // namespace
