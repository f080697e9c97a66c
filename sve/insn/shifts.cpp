// Shifts by vector and by immediate, bit and word reversal. The amount is the whole unsigned element: nothing cuts it
// to a few low bits.
#include "sve/insn/lanes.h"

using namespace sve;

namespace {

template <class T>
inline constexpr unsigned width = 8 * sizeof(T);

// Wide enough to shift in without promotion surprises.
template <class T>
using Shifted = std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>;

constexpr auto left = SVE_BY_PIECES(2, native::shifted_left<Element>(a, b), [](auto a, auto n) {
  using T = decltype(a);
  const bool fits = n < width<T>;
  return fits ? static_cast<T>(Shifted<T>{a} << (fits ? n : 0)) : T{0};
});
constexpr auto right = SVE_BY_PIECES(2, native::shifted_right<Element>(a, b), [](auto a, auto n) {
  using T = decltype(a);
  const bool fits = n < width<T>;
  return fits ? static_cast<T>(a >> (fits ? n : 0)) : T{0};
});
// The sign comes in, so that a large amount leaves the sign alone. `n` is unsigned.
constexpr auto right_arithmetic = SVE_BY_PIECES(2, native::shifted_right<Element>(a, b), [](auto a, auto n) {
  using T = decltype(a);
  constexpr auto limit = static_cast<decltype(n)>(width<T> - 1);
  return static_cast<T>(a >> (n < limit ? n : limit));
});

// Bytes reversed, then nibbles, pairs and bits swapped within each.
constexpr auto reverse_bits = SVE_BY_PIECES(1, native::bits_reversed<Element>(a), [](auto a) {
  using T = decltype(a);
  std::uint64_t x = a;
  x = (x >> 4 & 0x0f0f0f0f0f0f0f0fu) | (x & 0x0f0f0f0f0f0f0f0fu) << 4;
  x = (x >> 2 & 0x3333333333333333u) | (x & 0x3333333333333333u) << 2;
  x = (x >> 1 & 0x5555555555555555u) | (x & 0x5555555555555555u) << 1;
  if constexpr (sizeof(T) == 1) return static_cast<T>(x);
  if constexpr (sizeof(T) == 2) return static_cast<T>(__builtin_bswap16(static_cast<std::uint16_t>(x)));
  if constexpr (sizeof(T) == 4) return static_cast<T>(__builtin_bswap32(static_cast<std::uint32_t>(x)));
  if constexpr (sizeof(T) == 8) return static_cast<T>(__builtin_bswap64(x));
});

}  // namespace

// lsl Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_lsl_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return merging(state, zdn.tied_dst_size, zdn, pg, zm, left);
}

// lsr Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_lsr_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return merging(state, zdn.tied_dst_size, zdn, pg, zm, right);
}

// asr Zdn.T, Pg/M, Zdn.T, Zm.T
aarch64_decode_rc sve_asr_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) {
  return merging<Signedness::signed_>(state, zdn.tied_dst_size, zdn, pg, zm,
                                      SVE_BY_PIECES(2, native::shifted_right<Element>(a, b), [](auto a, auto b) {
                                        return right_arithmetic(a, static_cast<UnsignedOf<decltype(b)>>(b));
                                      }));
}

// lsl Zdn.T, Pg/M, Zdn.T, #imm
aarch64_decode_rc sve_lsl_zpi(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, unsigned int imm) {
  return merging_unary(state, zdn.tied_dst_size, zdn, pg, zdn, with_second(left, imm));
}

// lsr Zdn.T, Pg/M, Zdn.T, #imm. Complete, though the rows of the instruction go to the library.
aarch64_decode_rc sve_lsr_zpi(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, unsigned int imm) {
  return merging_unary(state, zdn.tied_dst_size, zdn, pg, zdn, with_second(right, imm));
}

// asr Zdn.T, Pg/M, Zdn.T, #imm
aarch64_decode_rc sve_asr_zpi(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, unsigned int imm) {
  return merging_unary<Signedness::signed_>(state, zdn.tied_dst_size, zdn, pg, zdn, with_second(right_arithmetic, imm));
}

namespace {

template <Signedness S = Signedness::unsigned_, class Op>
aarch64_decode_rc unpredicated_unary(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, Op op) {
  return for_size(zd.size, [&](auto element) {
    using T = Lane<decltype(element), S>;
    map_lanes<T>(z_of(state, zd), lanes<T>, op, z_of(state, zn));
  });
}

}  // namespace

// lsl Zd.T, Zn.T, #imm
aarch64_decode_rc sve_lsl_zzi(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, unsigned int imm) {
  return unpredicated_unary(state, zd, zn, with_second(left, imm));
}

// lsr Zd.T, Zn.T, #imm. Complete, though the rows of the instruction go to the library.
aarch64_decode_rc sve_lsr_zzi(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, unsigned int imm) {
  return unpredicated_unary(state, zd, zn, with_second(right, imm));
}

// asr Zd.T, Zn.T, #imm
aarch64_decode_rc sve_asr_zzi(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, unsigned int imm) {
  return unpredicated_unary<Signedness::signed_>(state, zd, zn, with_second(right_arithmetic, imm));
}

// rbit Zd.T, Pg/M, Zn.T
aarch64_decode_rc sve_rbit_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return merging_unary(state, zd.size, zd, pg, zn, reverse_bits);
}

// revw Zd.D, Pg/M, Zn.D
aarch64_decode_rc sve_revw_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return merging_unary(state, element_d, zd, pg, zn, [](auto a) {
    return static_cast<decltype(a)>(std::uint64_t{a} << 32 | std::uint64_t{a} >> 32);
  });
}
