// SVE instructions for tests that run under sve-run themselves; the tests are compiled for a processor without SVE.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "sve/state/built_length.h"

namespace sve_instructions {

/// The vector length in bytes that the test meets: what the variable of sve-run says, or the one of this build.
inline const std::size_t vector_bytes = [] {
  const char* const bits = std::getenv("SVE_RUN_VECTOR_LENGTH");
  return (bits ? std::strtoul(bits, nullptr, 10) : SVE_VECTOR_BITS) / 8;
}();

/// Room for the longest vector; 0 above the length.
using Vector = std::array<std::uint8_t, 256>;

#define SVE_ASM(text) ".arch_extension sve\n" text

inline std::uint64_t cntb() {
  std::uint64_t n;
  asm volatile(SVE_ASM("cntb %0") : "=r"(n));
  return n;
}

inline void all_true_p0() { asm volatile(SVE_ASM("ptrue p0.b")::: "memory"); }

/// Z7 as bytes, stored through P0.
inline Vector read_z7() {
  Vector v{};
  asm volatile(SVE_ASM("st1b {z7.b}, p0, [%0]")::"r"(v.data()) : "memory");
  return v;
}

inline void fill_z7(std::uint32_t byte) { asm volatile(SVE_ASM("dup z7.b, %w0")::"r"(byte) : "v7"); }

/// Loads Z7 from memory through P0.
inline void load_z7(const void* p) { asm volatile(SVE_ASM("ld1b {z7.b}, p0/z, [%0]")::"r"(p) : "v7", "memory"); }

inline Vector filled(std::uint8_t byte) {
  Vector v{};
  std::fill_n(v.begin(), vector_bytes, byte);
  return v;
}

/// Not an instruction on any processor.
inline void undefined_instruction() { asm volatile(".inst 0x00000000" ::: "memory"); }

}  // namespace sve_instructions
