// A program of a user: executes one instruction through the installed library.
#include <cstdio>
#include <cstring>

#include "sve/decode/dispatch.h"
#include "sve/insn/functions.h"
#include "sve/veclib/routines.h"

static_assert(sve::vector_bits == LENGTH, "the headers are those of the library");

int main() {
  static cpu_state state;
  std::memset(state.p[0], 1, sizeof state.p[0]);
  std::memset(state.z[0], 2, sizeof state.z[0]);
  std::memset(state.z[1], 3, sizeof state.z[1]);
  std::uint32_t word = 0x04000020;  // add z0.b, p0/m, z0.b, z1.b
  state.pc = &word;
  if (!is_sve(word) || execute_sve_instruction(&state) != AARCH64_DECODE_EXECUTED ||
      state.z[0][sve::vector_bytes - 1] != 5) {
    std::puts("the installed library did not add");
    return 1;
  }
  return 0;
}
