// The vector library's memory access: plain and guarded reads of one element, and plain writes. An application address
// is a host pointer.
#pragma once

#include <cstdint>

#include "sve/veclib/define.h"

/// Reads 1, 2, 4 or 8 bytes at `addr`, zero-extended. With a null `fault` one plain access: a fault ends the process.
/// With a flag the access is guarded; if it faults the flag is set and the result is 0. The flag is never cleared.
/// Where the program may have its own action for the signals, callers hold a `GuardedReads`. `not_first` is 0 for a
/// plain load and for the first active element of a first-fault load, and has no effect.
std::uint64_t ReadMemLib1(std::uint64_t addr, int not_first, bool* fault, CpuContext* context);
std::uint64_t ReadMemLib2(std::uint64_t addr, int not_first, bool* fault, CpuContext* context);
std::uint64_t ReadMemLib4(std::uint64_t addr, int not_first, bool* fault, CpuContext* context);
std::uint64_t ReadMemLib8(std::uint64_t addr, int not_first, bool* fault, CpuContext* context);

/// Stores `value` at `addr` with one plain access. There is no guarded form of a write.
void WriteMemLib1(std::uint8_t value, std::uint64_t addr, CpuContext* context);
void WriteMemLib2(std::uint16_t value, std::uint64_t addr, CpuContext* context);
void WriteMemLib4(std::uint32_t value, std::uint64_t addr, CpuContext* context);
void WriteMemLib8(std::uint64_t value, std::uint64_t addr, CpuContext* context);

/// A simulated memory that this build does not have: reads report no fault and give 0, writes do nothing.
std::uint64_t ReadMem(std::uint64_t addr, int size, int not_first, bool* fault, CpuContext* context);
std::uint64_t ReadMemSim(std::uint64_t addr, int size, int not_first, bool* fault, bool simulated, CpuContext* context);
void WriteMem(std::uint64_t value, std::uint64_t addr, int size, CpuContext* context);
void WriteMemSim(std::uint64_t value, std::uint64_t addr, int size, bool simulated, CpuContext* context);

namespace sve::veclib {

/// The plain element reads and writes by memory type; a signed type extends by sign.
template <class M>
inline M read_plain(std::uint64_t addr) {
  M value;
  std::memcpy(&value, reinterpret_cast<const void*>(addr), sizeof value);
  return value;
}
template <class M>
inline void write_plain(std::uint64_t addr, M value) {
  std::memcpy(reinterpret_cast<void*>(addr), &value, sizeof value);
  asm volatile("" ::: "memory");  // a store that faults has stored the elements below: none waits for the next
}

/// The start of a contiguous access of M into elements of T, by an immediate count of whole transfers and by an index.
inline u64 scaled(s64 imm, std::size_t unit) { return static_cast<u64>(imm) * unit; }
template <class T, class M, class Context>
u64 start_si(u64 base, s64 imm, const Context* ctx) {
  return base + scaled(imm, count<T>(ctx) * sizeof(M));
}
template <class M>
u64 start_ss(u64 base, u64 index) {
  return base + index * sizeof(M);
}

}  // namespace sve::veclib

#define SVE_DEFINE_LOAD_SI(...) SVE_DEFINE(VectorV, (SVE_IN_P(p), SVE_IN_U(base), SVE_IN_S(imm), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_LOAD_SS(...) \
  SVE_DEFINE(VectorV, (SVE_IN_P(p), SVE_IN_U(base), SVE_IN_U(index), SVE_CTX), __VA_ARGS__)

// MACRO(op, bytes, M, element types) for every memory type M: with the elements that are stored to it, with those that
// are loaded from it, and with those of its size alone.
#define SVE_EACH_NARROWING(MACRO, op) \
  MACRO(op, 1, u8, U8, U16, U32, U64) \
  MACRO(op, 2, u16, U16, U32, U64)    \
  MACRO(op, 4, u32, U32, U64)         \
  MACRO(op, 8, u64, U64)
#define SVE_EACH_EXTENDING(MACRO, op) \
  SVE_EACH_NARROWING(MACRO, op)       \
  MACRO(op, 1, s8, S16, S32, S64)     \
  MACRO(op, 2, s16, S32, S64)         \
  MACRO(op, 4, s32, S64)
#define SVE_EACH_SAME_SIZE(MACRO, op) \
  MACRO(op, 1, u8, U8) MACRO(op, 2, u16, U16) MACRO(op, 4, u32, U32) MACRO(op, 8, u64, U64)
