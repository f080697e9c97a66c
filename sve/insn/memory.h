// What the memory instruction functions share: addresses, element access, and the walk over active elements.
#pragma once

#include "sve/insn/lanes.h"
#include "sve/lanes/predicate_bits.h"

namespace sve {

/// Between two accesses of which the second may fault: what was written for the first stands by then. Without it the
/// compiler makes one wide access of several.
[[gnu::always_inline]] inline void keep_order() { asm volatile("" ::: "memory"); }

/// One host access of the size of M at an application address.
template <class M>
[[gnu::always_inline]] inline M read_memory(std::uint64_t address) {
  M value;
  std::memcpy(&value, reinterpret_cast<const void*>(address), sizeof value);
  return value;
}
template <class M>
[[gnu::always_inline]] inline void write_memory(std::uint64_t address, M value) {
  std::memcpy(reinterpret_cast<void*>(address), &value, sizeof value);
  keep_order();
}

/// Whether `bytes` bytes from an address lie in one page of any size in use.
inline bool within_page(std::uint64_t address, std::size_t bytes) {
  constexpr std::uint64_t smallest_page = 4096;
  return (address & (smallest_page - 1)) <= smallest_page - bytes;
}

}  // namespace sve

// The heads of functions of a base register, and an immediate or an index.
#define SVE_ZPRI(name)                                                                                            \
  aarch64_decode_rc sve_##name##_zpri(cpu_state* state, aarch64_z_reg zt, aarch64_p_reg pg, aarch64_i_rsp_reg rn, \
                                      int imm)
#define SVE_ZPRR(name)                                                                             \
  aarch64_decode_rc sve_##name##_scaled_zprr(cpu_state* state, aarch64_z_reg zt, aarch64_p_reg pg, \
                                             aarch64_i_rsp_reg rn, aarch64_i_reg rm)

// MACRO(name, T, M, ...) for elements T and memory types M: of one size, all that are stored, and all that are loaded.
#define SVE_SAME_SIZE_FUNCTIONS(MACRO, name, ...)     \
  MACRO(name##b, u8, u8 __VA_OPT__(, ) __VA_ARGS__)   \
  MACRO(name##h, u16, u16 __VA_OPT__(, ) __VA_ARGS__) \
  MACRO(name##w, u32, u32 __VA_OPT__(, ) __VA_ARGS__) \
  MACRO(name##d, u64, u64 __VA_OPT__(, ) __VA_ARGS__)
#define SVE_STORE_FUNCTIONS(MACRO, name) \
  SVE_SAME_SIZE_FUNCTIONS(MACRO, name)   \
  MACRO(name##b_h, u16, u8)              \
  MACRO(name##b_s, u32, u8)              \
  MACRO(name##b_d, u64, u8)              \
  MACRO(name##h_s, u32, u16)             \
  MACRO(name##h_d, u64, u16)             \
  MACRO(name##w_d, u64, u32)
#define SVE_LOAD_FUNCTIONS(MACRO, name) \
  SVE_STORE_FUNCTIONS(MACRO, name)      \
  MACRO(name##sb_h, u16, s8)            \
  MACRO(name##sb_s, u32, s8)            \
  MACRO(name##sb_d, u64, s8)            \
  MACRO(name##sh_s, u32, s16)           \
  MACRO(name##sh_d, u64, s16)           \
  MACRO(name##sw_d, u64, s32)
