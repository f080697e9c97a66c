// Executing words through the two entry points, and what the kinds of handler leave behind.
#include "sve/decode/dispatch.h"

#include <gtest/gtest.h>

#include <cstring>

#include "sve/decode/table.h"
#include "sve/stats/stats.h"

namespace {

constexpr std::uint32_t add_z0_z1 = 0x04000020;   // add z0.b, p0/m, z0.b, z1.b
constexpr std::uint32_t subr_z0_z1 = 0x04030020;  // subr z0.b, p0/m, z0.b, z1.b: a library row
constexpr std::uint32_t prfb = 0x85c00000;        // prfb pldl1keep, p0, [x0]
constexpr std::uint32_t nop = 0xd503201f;

class Dispatch : public testing::Test {
 protected:
  aarch64_decode_rc execute(std::uint32_t word) {
    text = word;
    state.pc = &text;
    return execute_sve_instruction(&state);
  }
  std::uint32_t text = 0;
  cpu_state state{};
};

TEST_F(Dispatch, ASuccessMovesOnAndCounts) {
  std::memset(state.p[0], 1, sizeof state.p[0]);
  std::memset(state.z[0], 2, sizeof state.z[0]);
  std::memset(state.z[1], 3, sizeof state.z[1]);
  const unsigned long before = sve_instr_count;
  EXPECT_EQ(execute(add_z0_z1), AARCH64_DECODE_EXECUTED);
  EXPECT_EQ(state.pc, &text + 1);
  EXPECT_EQ(sve_instr_count, before + 1);
  EXPECT_EQ(state.instr, add_z0_z1);
  for (const std::uint8_t byte : state.z[0]) EXPECT_EQ(byte, 5);
}

TEST_F(Dispatch, AWordThatIsNotOursChangesNothing) {
  const unsigned long before = sve_instr_count;
  EXPECT_EQ(is_sve(nop), nullptr);
  EXPECT_EQ(execute(nop), AARCH64_DECODE_UNDECODED);
  EXPECT_EQ(state.pc, &text);
  EXPECT_EQ(sve_instr_count, before);
}

TEST_F(Dispatch, ALibraryRowLeavesTheLastDirectWord) {
  ASSERT_EQ(execute(add_z0_z1), AARCH64_DECODE_EXECUTED);
  ASSERT_STREQ(sve::decode::find_row(subr_z0_z1)->name, "VecU8SubRVVM");
  ASSERT_EQ(execute(subr_z0_z1), AARCH64_DECODE_EXECUTED);
  EXPECT_EQ(state.instr, add_z0_z1);
}

TEST_F(Dispatch, APrefetchChangesNothingAtAll) {
  for (std::size_t i = 0; i < sizeof state; ++i)
    reinterpret_cast<unsigned char*>(&state)[i] = static_cast<unsigned char>(i * 31);
  const cpu_state before = state;
  const decode_handler handle = is_sve(prfb);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle(&state, prfb), AARCH64_DECODE_EXECUTED);
  EXPECT_EQ(std::memcmp(&state, &before, sizeof state), 0);
}

TEST_F(Dispatch, TheLogicalImmediateOfOneBit) {
  // dupm z3.d, #1: N set, immr 0, imms 0.
  EXPECT_EQ(execute(0x05c20003), AARCH64_DECODE_EXECUTED);
  for (std::size_t i = 0; i < 14; ++i) {
    std::uint64_t element;
    std::memcpy(&element, state.z[3] + 8 * i, 8);
    EXPECT_EQ(element, 1u);
  }
}

TEST_F(Dispatch, BitsOutsideTheKeyAreOperands) {
  for (std::uint32_t p = 0; p < 16; ++p) {
    for (auto& predicate : state.p) std::memset(predicate, 1, sizeof predicate);
    EXPECT_EQ(execute(0x2518e400 | p), AARCH64_DECODE_EXECUTED);  // pfalse
    for (std::uint32_t n = 0; n < 16; ++n) EXPECT_EQ(state.p[n][0], n == p ? 0 : 1);
  }
}

}  // namespace
