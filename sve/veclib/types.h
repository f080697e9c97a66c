// The vector library's values: one vector, one predicate, and the machine state that a routine can see.
#pragma once

#include <cstddef>
#include <cstdint>

/// One vector value: 256 bytes, of which those below the vector length in use mean anything. Element 0 lies lowest.
struct VectorV {
  alignas(32) std::uint8_t bytes[256];
};

/// One predicate value: one bit per vector byte; bit i is bit i mod 64 of word i / 64. The element of N bytes at index
/// e is governed by bit e*N.
struct PredV {
  std::uint64_t words[4];
};

/// The machine state of a routine: flags, floating-point control and status, vector length and first-fault register.
struct CpuContext {
  std::uint32_t nzcv;     ///< N in bit 31, Z in bit 30, C in bit 29, V in bit 28; lower bits are preserved
  std::uint32_t fpsr;     ///< image of FPSR
  std::uint32_t fpcr;     ///< image of FPCR
  std::uint32_t vl_word;  ///< vector length as a count of 64-bit granules, in the low 26 bits
  PredV ffr;              ///< first-fault register
};

static_assert(sizeof(VectorV) == 256 && sizeof(PredV) == 32);
static_assert(offsetof(CpuContext, nzcv) == 0 && offsetof(CpuContext, fpsr) == 4 && offsetof(CpuContext, fpcr) == 8 &&
              offsetof(CpuContext, vl_word) == 12 && offsetof(CpuContext, ffr) == 16 && sizeof(CpuContext) == 48);

/// A record that `SVEInitialize` sets to a length of 2 granules; no instruction runs on it.
extern CpuContext cpu_ctxt;
/// Points at `cpu_ctxt` once `SVEInitialize` has run.
extern CpuContext* ctxt;
