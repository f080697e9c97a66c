// Gather loads and scatter stores: one address for each element, from a vector of bases or of offsets.
#include "sve/insn/memory.h"

using namespace sve;

namespace {

// What an element of the offset vector adds to the base: itself, or its low 32 bits extended by sign or by zero.
constexpr auto whole = [](auto offset) { return u64{offset}; };
constexpr auto sxtw = [](auto offset) { return static_cast<u64>(static_cast<std::int64_t>(static_cast<s32>(offset))); };
constexpr auto uxtw = [](auto offset) { return u64{static_cast<u32>(offset)}; };

// each(e, whether it is active) in rising order. Where all are, which is mostly so, they are not asked one by one.
template <class T, class Each>
[[gnu::always_inline]] inline void for_each_element(const byte* predicate, Each each) {
  if (all_active<T>(predicate)) [[likely]] {
#pragma GCC unroll 32
    for (std::size_t e = 0; e < lanes<T>; ++e) each(e, true);
  } else {
    for (std::size_t e = 0; e < lanes<T>; ++e) each(e, active<T>(predicate, e));
  }
}

// Element T of the register from element M of memory at address(vector element), in rising order. An inactive element
// forms no address. A load that faults has written the elements below, unless its destination is the vector of
// addresses: that one stays whole, so that a program that mends the fault can run the instruction again.
template <class T, class M, class Address>
aarch64_decode_rc gather(cpu_state* state, aarch64_z_reg zt, aarch64_p_reg pg, aarch64_z_reg vector, Address address) {
  const byte* predicate = p_of(state, pg);
  const byte* addresses = z_of(state, vector);
  alignas(16) byte whole_result[vector_bytes];
  byte* dst = zt.number == vector.number ? whole_result : z_of(state, zt);
  for_each_element<T>(predicate, [&](std::size_t e, bool is_active) {
    store<T>(dst, e, is_active ? static_cast<T>(read_memory<M>(address(load<T>(addresses, e)))) : T{0});
    keep_order();
  });
  if (dst == whole_result) std::memcpy(z_of(state, zt), whole_result, vector_bytes);
  return executed;
}

// The low bytes of each active element, in rising order: of two equal addresses the higher element's value stays.
template <class T, class M, class Address>
aarch64_decode_rc scatter(cpu_state* state, aarch64_z_reg zt, aarch64_p_reg pg, aarch64_z_reg vector, Address address) {
  const byte* src = z_of(state, zt);
  const byte* predicate = p_of(state, pg);
  const byte* addresses = z_of(state, vector);
  for_each_element<T>(predicate, [&](std::size_t e, bool is_active) {
    if (is_active) write_memory<M>(address(load<T>(addresses, e)), static_cast<M>(load<T>(src, e)));
  });
  return executed;
}

}  // namespace

// Vector of bases plus an unsigned immediate count of memory elements.
#define VECTOR_IMMEDIATE(name, move, T, M)                                                                    \
  aarch64_decode_rc sve_##name##_zpzi(cpu_state* state, aarch64_z_reg zt, aarch64_p_reg pg, aarch64_z_reg zn, \
                                      unsigned int imm) {                                                     \
    const u64 offset = u64{imm} * sizeof(M);                                                                  \
    return move<T, M>(state, zt, pg, zn, [offset](T element) { return element + offset; });                   \
  }
// Base register plus a vector of byte offsets.
#define BASE_OFFSET(name, move, T, M, extend)                                                                 \
  aarch64_decode_rc sve_##name##_zpzr(cpu_state* state, aarch64_z_reg zt, aarch64_p_reg pg, aarch64_z_reg zm, \
                                      aarch64_i_rsp_reg rn) {                                                 \
    const u64 base = read(state, rn);                                                                         \
    return move<T, M>(state, zt, pg, zm, [base](T element) { return base + extend(element); });               \
  }
// Base register plus a vector of offsets counted in memory elements.
#define BASE_SCALED(name, move, T, M, extend)                                                               \
  aarch64_decode_rc sve_##name##_scaled_zprz(cpu_state* state, aarch64_z_reg zt, aarch64_p_reg pg,          \
                                             aarch64_i_rsp_reg rn, aarch64_z_reg zm) {                      \
    const u64 base = read(state, rn);                                                                       \
    return move<T, M>(state, zt, pg, zm, [base](T element) { return base + extend(element) * sizeof(M); }); \
  }

VECTOR_IMMEDIATE(ld1d, gather, u64, u64)
VECTOR_IMMEDIATE(ld1b_d, gather, u64, u8)
VECTOR_IMMEDIATE(ld1sb_d, gather, u64, s8)
VECTOR_IMMEDIATE(ld1h_d, gather, u64, u16)
VECTOR_IMMEDIATE(ld1sh_d, gather, u64, s16)
VECTOR_IMMEDIATE(ld1sw_d, gather, u64, s32)
VECTOR_IMMEDIATE(ld1w_d, gather, u64, u32)
VECTOR_IMMEDIATE(st1w_d, scatter, u64, u32)
VECTOR_IMMEDIATE(st1b_d, scatter, u64, u8)
VECTOR_IMMEDIATE(st1d, scatter, u64, u64)
VECTOR_IMMEDIATE(st1h_d, scatter, u64, u16)

BASE_OFFSET(ld1sw_d, gather, u64, s32, whole)
BASE_OFFSET(ld1sb_d, gather, u64, s8, whole)
BASE_OFFSET(ld1b_d, gather, u64, u8, whole)
BASE_OFFSET(ld1w_d, gather, u64, u32, whole)
BASE_OFFSET(ld1d, gather, u64, u64, whole)
BASE_OFFSET(ld1sh_d, gather, u64, s16, whole)
BASE_OFFSET(ld1h_d, gather, u64, u16, whole)
BASE_OFFSET(ld1sh_s_sxtw, gather, u32, s16, sxtw)
BASE_OFFSET(ld1b_d_sxtw, gather, u64, u8, sxtw)
BASE_OFFSET(ld1b_s_sxtw, gather, u32, u8, sxtw)
BASE_OFFSET(ld1sb_s_sxtw, gather, u32, s8, sxtw)
BASE_OFFSET(ld1w_sxtw, gather, u32, u32, sxtw)
BASE_OFFSET(ld1sb_d_sxtw, gather, u64, s8, sxtw)
BASE_OFFSET(ld1h_s_sxtw, gather, u32, u16, sxtw)
BASE_OFFSET(ld1sb_d_uxtw, gather, u64, s8, uxtw)
BASE_OFFSET(st1d, scatter, u64, u64, whole)
BASE_OFFSET(st1b_d, scatter, u64, u8, whole)
BASE_OFFSET(st1w_d, scatter, u64, u32, whole)
BASE_OFFSET(st1h_d, scatter, u64, u16, whole)
BASE_OFFSET(st1b_d_sxtw, scatter, u64, u8, sxtw)
BASE_OFFSET(st1w_sxtw, scatter, u32, u32, sxtw)
BASE_OFFSET(st1h_s_sxtw, scatter, u32, u16, sxtw)
BASE_OFFSET(st1b_s_sxtw, scatter, u32, u8, sxtw)

BASE_SCALED(ld1sw_d, gather, u64, s32, whole)
BASE_SCALED(ld1h_d, gather, u64, u16, whole)
BASE_SCALED(ld1w_d, gather, u64, u32, whole)
BASE_SCALED(ld1sh_d, gather, u64, s16, whole)
BASE_SCALED(ld1d, gather, u64, u64, whole)
BASE_SCALED(ld1sh_d_sxtw, gather, u64, s16, sxtw)
BASE_SCALED(ld1h_d_sxtw, gather, u64, u16, sxtw)
BASE_SCALED(ld1w_sxtw, gather, u32, u32, sxtw)
BASE_SCALED(ld1sh_s_sxtw, gather, u32, s16, sxtw)
BASE_SCALED(ld1w_d_sxtw, gather, u64, u32, sxtw)
BASE_SCALED(ld1sw_d_sxtw, gather, u64, s32, sxtw)
BASE_SCALED(ld1h_s_sxtw, gather, u32, u16, sxtw)
BASE_SCALED(ld1d_sxtw, gather, u64, u64, sxtw)
BASE_SCALED(ld1d_uxtw, gather, u64, u64, uxtw)
BASE_SCALED(ld1sh_d_uxtw, gather, u64, s16, uxtw)
BASE_SCALED(st1w_d, scatter, u64, u32, whole)
BASE_SCALED(st1d, scatter, u64, u64, whole)
BASE_SCALED(st1h_d, scatter, u64, u16, whole)
BASE_SCALED(st1d_sxtw, scatter, u64, u64, sxtw)
BASE_SCALED(st1w_d_sxtw, scatter, u64, u32, sxtw)
BASE_SCALED(st1w_sxtw, scatter, u32, u32, sxtw)
BASE_SCALED(st1h_s_sxtw, scatter, u32, u16, sxtw)
BASE_SCALED(st1h_d_sxtw, scatter, u64, u16, sxtw)
BASE_SCALED(st1w_d_uxtw, scatter, u64, u32, uxtw)
BASE_SCALED(st1d_uxtw, scatter, u64, u64, uxtw)
