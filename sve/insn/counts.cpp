// Element counts, counted increments and decrements, and the vector length as a number.
#include "sve/insn/lanes.h"
#include "sve/lanes/patterns.h"
#include "sve/lanes/predicate_bits.h"

using namespace sve;

namespace {

// The amount of a counted instruction, 32 bits wide.
template <class T>
unsigned amount(unsigned int pattern, unsigned int multiplier) {
  return pattern_count<T>(pattern) * multiplier;
}

template <class T>
aarch64_decode_rc increment(cpu_state* state, aarch64_i_reg rdn, unsigned int pattern, unsigned int multiplier) {
  write(state, rdn, read(state, rdn) + amount<T>(pattern, multiplier));
  return executed;
}

template <class T>
aarch64_decode_rc decrement(cpu_state* state, aarch64_i_reg rdn, unsigned int pattern, unsigned int multiplier) {
  write(state, rdn, read(state, rdn) - amount<T>(pattern, multiplier));
  return executed;
}

template <class T>
aarch64_decode_rc add_to_lanes(cpu_state* state, aarch64_z_reg zdn, T n) {
  byte* dst = z_of(state, zdn);
  map_lanes<T>(
      dst, lanes<T>, [n](T a) { return a + n; }, dst);
  return executed;
}

// The number of elements, whatever the pattern.
template <class T>
aarch64_decode_rc count_all(cpu_state* state, aarch64_i_reg rd, unsigned int multiplier) {
  write(state, rd, std::uint64_t{multiplier} * lanes<T>);
  return executed;
}

// The product of the signed immediate and the unit, 32 bits wide, sign-extended.
std::uint64_t scaled(int imm, std::size_t unit) {
  return static_cast<std::uint64_t>(static_cast<std::int64_t>(imm * static_cast<int>(unit)));
}

// Saturating decrement of an unsigned scalar of the width of T; a 32-bit result is zero-extended.
template <class T>
aarch64_decode_rc sve_uqdec(cpu_state* state, aarch64_i_reg rdn, unsigned int pattern, unsigned int multiplier,
                            unsigned int size_code) {
  const T operand = static_cast<T>(read(state, rdn));
  const T n = static_cast<T>(VecTrueILength(pattern, static_cast<int>(vector_bytes >> size_code)));
  const T amount = static_cast<T>(multiplier * n);
  write(state, rdn, amount < operand ? operand - amount : 0);
  return executed;
}

}  // namespace

#define COUNTED_SCALARS(suffix, T)                                                                                     \
  aarch64_decode_rc sve_inc##suffix##_rii(cpu_state* state, aarch64_i_reg rdn, unsigned int pattern,                   \
                                          unsigned int multiplier) {                                                   \
    return increment<T>(state, rdn, pattern, multiplier);                                                              \
  }                                                                                                                    \
  aarch64_decode_rc sve_dec##suffix##_rii(cpu_state* state, aarch64_i_reg rdn, unsigned int pattern,                   \
                                          unsigned int multiplier) {                                                   \
    return decrement<T>(state, rdn, pattern, multiplier);                                                              \
  }                                                                                                                    \
  /* Complete, but no row reaches it; unlike the library's routine it ignores the pattern. */                          \
  aarch64_decode_rc sve_cnt##suffix##_rii(cpu_state* state, aarch64_i_reg rd, unsigned int, unsigned int multiplier) { \
    return count_all<T>(state, rd, multiplier);                                                                        \
  }
#define COUNTED_VECTORS(suffix, T)                                                                   \
  aarch64_decode_rc sve_inc##suffix##_zii(cpu_state* state, aarch64_z_reg zdn, unsigned int pattern, \
                                          unsigned int multiplier) {                                 \
    return add_to_lanes<T>(state, zdn, static_cast<T>(amount<T>(pattern, multiplier)));              \
  }                                                                                                  \
  aarch64_decode_rc sve_dec##suffix##_zii(cpu_state* state, aarch64_z_reg zdn, unsigned int pattern, \
                                          unsigned int multiplier) {                                 \
    return add_to_lanes<T>(state, zdn, static_cast<T>(T{0} - amount<T>(pattern, multiplier)));       \
  }

COUNTED_SCALARS(b, std::uint8_t)
COUNTED_SCALARS(h, std::uint16_t)
COUNTED_SCALARS(w, std::uint32_t)
COUNTED_SCALARS(d, std::uint64_t)
COUNTED_VECTORS(h, std::uint16_t)
COUNTED_VECTORS(w, std::uint32_t)
COUNTED_VECTORS(d, std::uint64_t)

// uqdecb Rdn, pattern, mul #imm
aarch64_decode_rc sve_uqdecb_rii(cpu_state* state, aarch64_i_reg rdn, unsigned int pattern, unsigned int multiplier) {
  return rdn.tied_dst_size == element_d ? sve_uqdec<unsigned long>(state, rdn, pattern, multiplier, element_b)
                                        : sve_uqdec<unsigned int>(state, rdn, pattern, multiplier, element_b);
}

// uqdecw Rdn, pattern, mul #imm. No row reaches it.
aarch64_decode_rc sve_uqdecw_rii(cpu_state* state, aarch64_i_reg rdn, unsigned int pattern, unsigned int multiplier) {
  return rdn.tied_dst_size == element_d ? sve_uqdec<unsigned long>(state, rdn, pattern, multiplier, element_s)
                                        : sve_uqdec<unsigned int>(state, rdn, pattern, multiplier, element_s);
}

// uqdecd Rdn, pattern, mul #imm. No row reaches it. It looks at `size`, which a tied operand leaves at 4, so that it
// would take the 32-bit form for every tied operand; kept so.
aarch64_decode_rc sve_uqdecd_rii(cpu_state* state, aarch64_i_reg rdn, unsigned int pattern, unsigned int multiplier) {
  return rdn.size == element_d ? sve_uqdec<unsigned long>(state, rdn, pattern, multiplier, element_d)
                               : sve_uqdec<unsigned int>(state, rdn, pattern, multiplier, element_d);
}

// incp Xdn, Pm.T
aarch64_decode_rc sve_incp_rp(cpu_state* state, aarch64_i_reg rdn, aarch64_p_reg pm) {
  return for_size(pm.size, [&](auto element) {
    write(state, rdn, read(state, rdn) + common_elements<decltype(element)>(p_of(state, pm), p_of(state, pm)));
  });
}

// addvl Xd|SP, Xn|SP, #imm
aarch64_decode_rc sve_addvl_rri(cpu_state* state, aarch64_i_rsp_reg rd, aarch64_i_rsp_reg rn, int imm) {
  write(state, rd, read(state, rn) + scaled(imm, vector_bytes));
  return executed;
}

// addpl Xd|SP, Xn|SP, #imm
aarch64_decode_rc sve_addpl_rri(cpu_state* state, aarch64_i_rsp_reg rd, aarch64_i_rsp_reg rn, int imm) {
  write(state, rd, read(state, rn) + scaled(imm, predicate_bytes));
  return executed;
}

// rdvl Xd, #imm
aarch64_decode_rc sve_rdvl_ri(cpu_state* state, aarch64_i_reg rd, int imm) {
  write(state, rd, scaled(imm, vector_bytes));
  return executed;
}
