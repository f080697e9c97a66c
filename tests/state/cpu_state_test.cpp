#include "sve/state/cpu_state.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(CpuState, FieldsStandInTheirOrder) {
  EXPECT_EQ(offsetof(cpu_state, x), 0u);
  EXPECT_EQ(offsetof(cpu_state, sp), 248u);
  EXPECT_EQ(offsetof(cpu_state, pc), 256u);
  EXPECT_LT(offsetof(cpu_state, pc), offsetof(cpu_state, nzcv));
  EXPECT_LT(offsetof(cpu_state, nzcv), offsetof(cpu_state, fpsr));
  EXPECT_LT(offsetof(cpu_state, fpsr), offsetof(cpu_state, fpcr));
  EXPECT_LT(offsetof(cpu_state, fpcr), offsetof(cpu_state, fpcr_extra));
  EXPECT_LT(offsetof(cpu_state, fpcr_extra), offsetof(cpu_state, z));
  EXPECT_EQ(offsetof(cpu_state, p) - offsetof(cpu_state, z), 32 * sve::vector_bytes);
  EXPECT_EQ(offsetof(cpu_state, ffr) - offsetof(cpu_state, p), 16 * sve::vector_bytes);
  EXPECT_LT(offsetof(cpu_state, ffr), offsetof(cpu_state, instr));
  EXPECT_EQ(alignof(cpu_state), 16u);
}

TEST(CpuState, Register31IsTheStackPointerOrZeroByOperandType) {
  cpu_state state{};
  state.sp = 0x1234;
  EXPECT_EQ(sve::read(&state, aarch64_i_rsp_reg(31, 3)), 0x1234u);
  EXPECT_EQ(sve::read(&state, aarch64_i_reg(31, 3)), 0u);
  sve::write(&state, aarch64_i_reg(31, 3), 99);
  EXPECT_EQ(state.sp, 0x1234u);
  sve::write(&state, aarch64_i_rsp_reg(31, 3), 99);
  EXPECT_EQ(state.sp, 99u);
}

TEST(CpuState, FlagsLeaveTheOtherBitsOfTheWord) {
  cpu_state state{};
  state.nzcv = 0xa5a5a5a5'55a5a5a5u;
  sve::write_flags(&state, true, false, true, false);
  EXPECT_EQ(state.nzcv, 0xa5a5a5a5'a5a5a5a5u);
  sve::write_flags(&state, false, true, false, true);
  EXPECT_EQ(state.nzcv, 0xa5a5a5a5'55a5a5a5u);
}

TEST(RegisterNames, FollowTheirRule) {
  for (unsigned n = 0; n < 31; ++n) {
    EXPECT_EQ(aarch64_i_reg::wname[n], "w" + std::to_string(n));
    EXPECT_EQ(aarch64_i_reg::xname[n], "x" + std::to_string(n));
    EXPECT_EQ(aarch64_i_rsp_reg::wname[n], "w" + std::to_string(n));
    EXPECT_EQ(aarch64_i_rsp_reg::xname[n], "x" + std::to_string(n));
  }
  EXPECT_STREQ(aarch64_i_reg::wname[31], "wzr");
  EXPECT_STREQ(aarch64_i_reg::xname[31], "xzr");
  EXPECT_STREQ(aarch64_i_rsp_reg::wname[31], "illegal");
  EXPECT_STREQ(aarch64_i_rsp_reg::xname[31], "sp");
  for (unsigned n = 0; n < 16; ++n) {
    const std::string p = "p" + std::to_string(n);
    EXPECT_EQ(aarch64_p_reg::pname[n], p);
    EXPECT_EQ(aarch64_p_reg::pname_m[n], p + "/m");
    EXPECT_EQ(aarch64_p_reg::pname_z[n], p + "/z");
    EXPECT_EQ(aarch64_p_reg::pname_b[n], p + ".b");
    EXPECT_EQ(aarch64_p_reg::pname_h[n], p + ".h");
    EXPECT_EQ(aarch64_p_reg::pname_s[n], p + ".s");
    EXPECT_EQ(aarch64_p_reg::pname_d[n], p + ".d");
  }
  for (unsigned n = 0; n < 32; ++n) {
    const std::string z = "z" + std::to_string(n);
    EXPECT_EQ(aarch64_z_reg::zname[n], z);
    EXPECT_EQ(aarch64_z_reg::zname_b[n], z + ".b");
    EXPECT_EQ(aarch64_z_reg::zname_h[n], z + ".h");
    EXPECT_EQ(aarch64_z_reg::zname_s[n], z + ".s");
    EXPECT_EQ(aarch64_z_reg::zname_d[n], z + ".d");
  }
}

}  // namespace
