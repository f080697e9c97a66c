// The emulated machine of one thread, and the result code of everything that executes on it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "sve/state/operands.h"
#include "sve/state/vector_length.h"

/// Result of a decode handler, an instruction function and `execute_sve_instruction`.
enum aarch64_decode_rc : int {
  AARCH64_DECODE_EXECUTED = 0,   ///< the instruction was executed
  AARCH64_DECODE_UNDECODED = 2,  ///< the word was not decoded, or its instruction function is unimplemented
};

/// The architectural state of one application thread.
///
/// Z registers hold element 0 in their lowest bytes, each element little-endian; bytes 0 to 15 of `z[n]` are the view
/// of the host's Vn. Predicates hold one byte per vector byte, of which only bit 0 counts; the activity of an element
/// is decided at its lowest byte, and writers store 0 or 1 there and 0 in the element's other bytes.
struct alignas(16) cpu_state {
  std::uint64_t x[31];       ///< X0 to X30
  std::uint64_t sp;          ///< stack pointer; an index of 31 into `x` lands here
  std::uint32_t* pc;         ///< address of the instruction being emulated
  std::uint64_t nzcv;        ///< N in bit 31, Z in bit 30, C in bit 29, V in bit 28; the rest as it came
  std::uint32_t fpsr;        ///< image of FPSR
  std::uint32_t fpcr;        ///< image of FPCR
  std::uint32_t fpcr_extra;  ///< OR-ed into FPCR when state is marshalled for the vector library; never stored to
  alignas(16) std::uint8_t z[32][sve::vector_bytes];  ///< Z0 to Z31
  std::uint8_t p[16][sve::vector_bytes];              ///< P0 to P15, one byte per vector byte
  std::uint8_t ffr[sve::vector_bytes];                ///< first-fault register, in the same form
  std::uint64_t instr;  ///< word of the last instruction that ran in an instruction function, zero-extended
};

static_assert(offsetof(cpu_state, sp) == offsetof(cpu_state, x) + 31 * sizeof(std::uint64_t),
              "index 31 of x must land on sp");
static_assert(offsetof(cpu_state, z) % 16 == 0, "z[0] lies at a 16-byte boundary");
static_assert(offsetof(cpu_state, pc) == 256 && offsetof(cpu_state, nzcv) == 264 && offsetof(cpu_state, fpsr) == 272 &&
              offsetof(cpu_state, fpcr) == 276 && offsetof(cpu_state, fpcr_extra) == 280);

namespace sve {

/// Condition flags in `cpu_state::nzcv`.
inline constexpr std::uint64_t flag_n = 0x80000000u;
inline constexpr std::uint64_t flag_z = 0x40000000u;
inline constexpr std::uint64_t flag_c = 0x20000000u;
inline constexpr std::uint64_t flag_v = 0x10000000u;
inline constexpr std::uint64_t flag_mask = 0xf0000000u;

/// Replaces the four condition flags and leaves every other bit of `nzcv` as it was.
inline void write_flags(cpu_state* state, bool n, bool z, bool c, bool v) {
  state->nzcv = (state->nzcv & ~flag_mask) | (n ? flag_n : 0) | (z ? flag_z : 0) | (c ? flag_c : 0) | (v ? flag_v : 0);
}

/// Reads a general register; 31 is the zero register.
inline std::uint64_t read(const cpu_state* state, aarch64_i_reg r) { return r.number < 31 ? state->x[r.number] : 0; }

/// Writes a general register; a write to 31 is dropped.
inline void write(cpu_state* state, aarch64_i_reg r, std::uint64_t value) {
  if (r.number < 31) state->x[r.number] = value;
}

/// Reads a general register or, for 31, the stack pointer.
inline std::uint64_t read(const cpu_state* state, aarch64_i_rsp_reg r) {
  // Register 31 of the file is the stack pointer, by the layout.
  std::uint64_t value;
  std::memcpy(&value, reinterpret_cast<const unsigned char*>(state) + offsetof(cpu_state, x) + sizeof value * r.number,
              8);
  return value;
}

/// Writes a general register or, for 31, the stack pointer.
inline void write(cpu_state* state, aarch64_i_rsp_reg r, std::uint64_t value) {
  (r.number < 31 ? state->x[r.number] : state->sp) = value;
}

}  // namespace sve
