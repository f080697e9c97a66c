// Every name that the installed headers promise: its address is there, and the data hold what they should.
#include <cstdio>
#include <string>

#include "sve/decode/dispatch.h"
#include "sve/insn/functions.h"
#include "sve/lanes/repeat.h"
#include "sve/stats/stats.h"
#include "sve/veclib/initialize.h"
#include "sve/veclib/routines.h"
#include "sve/veclib/types.h"

namespace {

using Address = void (*)();

#define FUNCTION(shape, name) reinterpret_cast<Address>(static_cast<sve::insn::shape*>(sve_##name)),
#define SVE_FUNCTIONS(shape, ...) SVE_FOR_EACH_WITH(FUNCTION, shape, __VA_ARGS__)
#define SVE_UNREACHED_FUNCTIONS(shape, ...) SVE_FOR_EACH_WITH(FUNCTION, shape, __VA_ARGS__)
#define SVE_STUBS(shape, ...) SVE_FOR_EACH_WITH(FUNCTION, shape, __VA_ARGS__)
#define ROUTINE(shape, type, op) reinterpret_cast<Address>(static_cast<sve::routine::shape*>(Vec##type##op)),
#define SVE_ROUTINES(shape, types, ...) SVE_FOR_EACH_PAIR(ROUTINE, shape, types, __VA_ARGS__)
volatile Address callees[] = {
#include "sve/insn/functions.inc"
#include "sve/insn/stubs.inc"
#include "sve/veclib/routines.inc"
    reinterpret_cast<Address>(sve_zip1),       reinterpret_cast<Address>(sve_zip2),
    reinterpret_cast<Address>(sve_uzp1),       reinterpret_cast<Address>(is_sve),
    reinterpret_cast<Address>(SVEInitialize),  reinterpret_cast<Address>(execute_sve_instruction),
    reinterpret_cast<Address>(dump_sve_stats), reinterpret_cast<Address>(update_sve_stats)};

int failures = 0;
void expect(bool holds, const char* what) {
  if (holds) return;
  std::printf("the installed library: %s\n", what);
  ++failures;
}

template <class Table>
void expect_names(const Table& table, const char* first, const char* last) {
  expect(table.front() == std::string(first) && table.back() == std::string(last), last);
}

}  // namespace

int main() {
  for (const auto& callee : callees) expect(callee != nullptr, "a function is missing");
  expect(SVEInitialize() != 0 && ctxt == &cpu_ctxt && ctxt->vl_word == 2, "ctxt");

  static std::uint32_t words[2] = {0x04000020, 0x04000020};  // add z0.b, p0/m, z0.b, z1.b
  static cpu_state state;
  state.pc = words;
  expect(execute_sve_instruction(&state) == AARCH64_DECODE_EXECUTED, "execute_sve_instruction");
  update_sve_stats(&words[1], words[1]);
  {
    const std::lock_guard lock(icounts_mutex);
    expect(sve_instr_count == 2 && icounts.size() == 2 && icounts.at(&words[0]).second == 1, "the counts");
  }
  expect(aarch64_instr_count == 0 && sve::on_no_memory_for_counts == nullptr, "the other counts");

  expect_names(aarch64_i_reg::wname, "w0", "wzr");
  expect_names(aarch64_i_reg::xname, "x0", "xzr");
  expect_names(aarch64_i_rsp_reg::wname, "w0", "illegal");
  expect_names(aarch64_i_rsp_reg::xname, "x0", "sp");
  expect_names(aarch64_p_reg::pname, "p0", "p15");
  expect_names(aarch64_p_reg::pname_m, "p0/m", "p15/m");
  expect_names(aarch64_p_reg::pname_z, "p0/z", "p15/z");
  expect_names(aarch64_p_reg::pname_b, "p0.b", "p15.b");
  expect_names(aarch64_p_reg::pname_h, "p0.h", "p15.h");
  expect_names(aarch64_p_reg::pname_s, "p0.s", "p15.s");
  expect_names(aarch64_p_reg::pname_d, "p0.d", "p15.d");
  expect_names(aarch64_z_reg::zname, "z0", "z31");
  expect_names(aarch64_z_reg::zname_b, "z0.b", "z31.b");
  expect_names(aarch64_z_reg::zname_h, "z0.h", "z31.h");
  expect_names(aarch64_z_reg::zname_s, "z0.s", "z31.s");
  expect_names(aarch64_z_reg::zname_d, "z0.d", "z31.d");
  return failures != 0;
}
