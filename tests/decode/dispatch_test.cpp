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

TEST_F(Dispatch, ASuccessCountsAtItsAddress) {
  ASSERT_EQ(execute(add_z0_z1), AARCH64_DECODE_EXECUTED);
  ASSERT_EQ(icounts.count(&text), 1u);
  EXPECT_EQ(icounts.at(&text).first, add_z0_z1);
  const unsigned long before = icounts.at(&text).second;
  ASSERT_EQ(execute(add_z0_z1), AARCH64_DECODE_EXECUTED);
  EXPECT_EQ(icounts.at(&text).second, before + 1);
  EXPECT_EQ(icounts.count(&text + 1), 0u);
}

TEST_F(Dispatch, AFailureCountsNothingAndStays) {
  const unsigned long before = sve_instr_count;
  const std::size_t entries = icounts.size();
  std::uint32_t untouched = 0;
  state.pc = &untouched;
  const auto failing = [](cpu_state*, unsigned int) { return AARCH64_DECODE_UNDECODED; };
  EXPECT_EQ(sve::decode::execute_with(failing, &state, add_z0_z1), AARCH64_DECODE_UNDECODED);
  EXPECT_EQ(state.pc, &untouched);
  EXPECT_EQ(sve_instr_count, before);
  EXPECT_EQ(icounts.size(), entries);
}

// The flags of a run, whichever model computes each of its instructions, and nothing but flags.
TEST_F(Dispatch, FlagsOfARunAddUp) {
  constexpr std::uint32_t fmla = 0x65a20020, fadd = 0x65820023;  // fmla z0.s, p0/m, z1.s, z2.s; fadd z3.s, z1.s, z2.s
  ASSERT_EQ(sve::decode::find_row(fmla)->model, sve::decode::Kind::library);
  ASSERT_EQ(sve::decode::find_row(fadd)->model, sve::decode::Kind::direct_fp);
  std::memset(state.p[0], 1, sizeof state.p[0]);
  const auto fill = [](std::uint8_t* z, float value) {
    for (std::size_t i = 0; i < sve::vector_bytes; i += sizeof value) std::memcpy(z + i, &value, sizeof value);
  };
  fill(state.z[1], 0x1p127f);
  fill(state.z[2], 0x1p127f);
#if defined(__aarch64__)
  asm volatile("msr fpsr, xzr");
#endif
  ASSERT_EQ(execute(fmla), AARCH64_DECODE_EXECUTED);
  EXPECT_EQ(state.fpsr, 0x14u) << "overflow and inexact";
  fill(state.z[1], 1.0f);
  fill(state.z[2], 2.0f);
  ASSERT_EQ(execute(fadd), AARCH64_DECODE_EXECUTED);  // exact
  EXPECT_EQ(state.fpsr, 0x14u);
}

// The low bits of FPCR stand where FPSR has its flags.
TEST_F(Dispatch, ControlBitsAreNoFlags) {
  constexpr std::uint32_t fadd = 0x65820023;
  state.fpcr = 0x9f1f;
#if defined(__aarch64__)
  asm volatile("msr fpsr, xzr");
#endif
  ASSERT_EQ(execute(fadd), AARCH64_DECODE_EXECUTED);  // of zeros
  EXPECT_EQ(state.fpsr, 0u);
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
  const DecodeHandler handle = is_sve(prfb);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle(&state, prfb), AARCH64_DECODE_EXECUTED);
  EXPECT_EQ(std::memcmp(&state, &before, sizeof state), 0);
}

TEST_F(Dispatch, TheLogicalImmediateOfOneBit) {
  // dupm z3.d, #1: N set, immr 0, imms 0.
  EXPECT_EQ(execute(0x05c20003), AARCH64_DECODE_EXECUTED);
  for (std::size_t i = 0; i < sve::lanes<std::uint64_t>; ++i) {
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
