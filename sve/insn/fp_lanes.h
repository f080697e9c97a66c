// What the floating-point instruction functions share: loops over elements on the host's floating point, 32 and 64 bits
// wide. An inactive element executes no operation and raises nothing.
#pragma once

#include "sve/insn/host_fp.h"
#include "sve/insn/lanes.h"
#include "sve/state/predicate_bits.h"

namespace sve::fp {

// Calls `body` with the unsigned type of the two sizes that exist. Nothing passes another code, and with one nothing
// happens.
template <class Body>
inline aarch64_decode_rc for_fp_size(unsigned int code, Body body) {
  if (code == element_s)
    body(std::uint32_t{});
  else if (code == element_d)
    body(std::uint64_t{});
  return executed;
}

// Whether `Op` can be computed on vectors of lanes as well.
template <class U, class Op, class... Sources>
constexpr bool has_lanes = requires(Op op, lanes_fp<U>& host, const Sources*... src) {
  op(host, (static_cast<void>(src), Lanes<U>())...);
};

// The operation as the loops over lanes call it.
template <class U, class Op>
inline auto on_lanes_of(Op op) {
  return [op](LaneStatus<U>& status, auto... x) {
    lanes_fp<U> host(status);
    return op(host, x...);
  };
}

inline ActiveBits active_bytes(const byte* predicate) {
  const register_bits bits(predicate);
  const std::uint64_t words[] = {bits.low, bits.high};
  return {words, vector_bytes};
}

// dst[i] = active ? op(host, src[i]...) : old[i], on vectors of lanes as far as they go. Whole vectors are read, past
// the end of a register too: what follows it belongs to the state.
template <class U, class Host, class Op, class... Sources>
inline void merge_on(Host& host, byte* dst, const byte* old, const byte* predicate, Op op, const Sources*... src) {
  using Value = fp_value<U>;
  if constexpr (has_lanes<U, Op, Sources...>) {
    if (host.rounds_to_nearest()) {
      alignas(normal_lanes::lane_vector_bytes) byte result[std::bit_ceil(vector_bytes)];
      PendingElements<U> pending;
      const LaneOutcome outcome =
          merge_on_lanes<U>(result, old, active_bytes(predicate), lanes<U>, pending, on_lanes_of<U>(op), src...);
      if (outcome.inexact) host.raise(flag_ixc);
      if (outcome.pending) [[unlikely]]
        for (std::size_t i = 0; i < lanes<U>; ++i)
          if (pending.words[i]) store<Value>(result, i, op(host, load<Value>(src, i)...));
      std::memcpy(dst, result, vector_bytes);
      return;
    }
  }
  merge_lanes_in_order<Value, vector_bytes>(
      dst, old, predicate, lanes<U>, [&](auto... x) { return op(host, x...); }, src...);
}
template <class U, class Op, class... Sources>
inline void merge(cpu_state* state, byte* dst, const byte* old, const byte* predicate, Op op, const Sources*... src) {
  host_fp host(state);
  merge_on<U>(host, dst, old, predicate, op, src...);
}

template <class Op>
inline aarch64_decode_rc unary(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn, Op op) {
  return for_fp_size(zd.size, [&](auto element) {
    byte* dst = z_of(state, zd);
    merge<decltype(element)>(state, dst, dst, p_of(state, pg), op, z_of(state, zn));
  });
}

// The raw bits of a value, and the value of raw bits.
template <class U>
inline U raw(fp_value<U> value) {
  return std::bit_cast<U>(value);
}
template <class U>
inline fp_value<U> value_of(U bits) {
  return std::bit_cast<fp_value<U>>(bits);
}

// Callable with those hosts alone that have the operation.
#define HOST_BINARY(name, call) constexpr auto name = [](auto& host, auto a, auto b) -> decltype(call) { return call; };
HOST_BINARY(sum, host.add(a, b))
HOST_BINARY(subtract, host.subtract(a, b))
HOST_BINARY(subtract_reversed, host.subtract(b, a))
HOST_BINARY(product, host.multiply(a, b))
HOST_BINARY(quotient, host.divide(a, b))
HOST_BINARY(quotient_reversed, host.divide(b, a))
HOST_BINARY(maximum, host.maximum(a, b))
HOST_BINARY(maximum_number, host.maximum_number(a, b))
HOST_BINARY(minimum_number, host.minimum_number(a, b))
HOST_BINARY(reciprocal_step, host.reciprocal_step(a, b))
#undef HOST_BINARY

}  // namespace sve::fp
