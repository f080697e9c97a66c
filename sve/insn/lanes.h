// What the instruction functions share: the dispatch on the element size, and the element loops of `lanes.h` over whole
// registers of `cpu_state`.
#pragma once

#include "sve/insn/functions.h"
#include "sve/lanes/lanes.h"

namespace sve {

inline constexpr aarch64_decode_rc executed = AARCH64_DECODE_EXECUTED;

/// Whether a family computes on elements as unsigned or as signed integers.
enum class Signedness { unsigned_, signed_ };

template <class T, Signedness S>
using Lane = std::conditional_t<S == Signedness::signed_, SignedOf<T>, T>;

/// Calls `body` with a value of the unsigned element type that the size code names. The code is compared with 2, then
/// 3, then 1; every other code means 8 bits.
template <class Body>
[[gnu::always_inline]] inline aarch64_decode_rc for_size(unsigned int code, Body body) {
  if (code == element_s)
    body(std::uint32_t{});
  else if (code == element_d)
    body(std::uint64_t{});
  else if (code == element_h)
    body(std::uint16_t{});
  else
    body(std::uint8_t{});
  return executed;
}

inline byte* z_of(cpu_state* state, aarch64_z_reg r) { return address_in(state->z, r.number); }
inline byte* p_of(cpu_state* state, aarch64_p_reg r) { return address_in(state->p, r.number); }

/// Destructive binary operation under a merging predicate: Zdn = active ? op(Zdn, Zm) : Zdn. The size is Zdn's.
template <Signedness S = Signedness::unsigned_, class Op>
inline aarch64_decode_rc merging(cpu_state* state, unsigned int size, aarch64_z_reg zdn, aarch64_p_reg pg,
                                 aarch64_z_reg zm, Op op) {
  return for_size(size, [&](auto element) {
    using T = Lane<decltype(element), S>;
    byte* dst = z_of(state, zdn);
    merge_lanes<T>(dst, dst, p_of(state, pg), lanes<T>, op, dst, z_of(state, zm));
  });
}

/// Unary operation under a merging predicate: Zd = active ? op(Zn) : Zd.
template <Signedness S = Signedness::unsigned_, class Op>
inline aarch64_decode_rc merging_unary(cpu_state* state, unsigned int size, aarch64_z_reg zd, aarch64_p_reg pg,
                                       aarch64_z_reg zn, Op op) {
  return for_size(size, [&](auto element) {
    using T = Lane<decltype(element), S>;
    byte* dst = z_of(state, zd);
    merge_lanes<T>(dst, dst, p_of(state, pg), lanes<T>, op, z_of(state, zn));
  });
}

/// Ternary operation under a merging predicate: Zda = active ? op(Zda, b, c) : Zda.
template <Signedness S = Signedness::unsigned_, class Op>
inline aarch64_decode_rc merging_ternary(cpu_state* state, unsigned int size, aarch64_z_reg zda, aarch64_p_reg pg,
                                         aarch64_z_reg zb, aarch64_z_reg zc, Op op) {
  return for_size(size, [&](auto element) {
    using T = Lane<decltype(element), S>;
    byte* dst = z_of(state, zda);
    merge_lanes<T>(dst, dst, p_of(state, pg), lanes<T>, op, dst, z_of(state, zb), z_of(state, zc));
  });
}

/// Unpredicated binary operation: Zd = op(Zn, Zm).
template <Signedness S = Signedness::unsigned_, class Op>
inline aarch64_decode_rc unpredicated(cpu_state* state, unsigned int size, aarch64_z_reg zd, aarch64_z_reg zn,
                                      aarch64_z_reg zm, Op op) {
  return for_size(size, [&](auto element) {
    using T = Lane<decltype(element), S>;
    map_lanes<T>(z_of(state, zd), lanes<T>, op, z_of(state, zn), z_of(state, zm));
  });
}

/// Unpredicated operation with an immediate cut to the element's width: Zdn = op(Zdn, imm).
template <Signedness S = Signedness::unsigned_, class Immediate, class Op>
inline aarch64_decode_rc with_immediate(cpu_state* state, unsigned int size, aarch64_z_reg zdn, Immediate imm, Op op) {
  return for_size(size, [&](auto element) {
    using T = Lane<decltype(element), S>;
    byte* dst = z_of(state, zdn);
    const T value = static_cast<T>(imm);
    map_lanes<T>(
        dst, lanes<T>, [op, value](T a) { return op(a, value); }, dst);
  });
}

}  // namespace sve
