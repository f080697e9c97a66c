// What the floating-point instruction functions share: loops over elements on the host's floating point, 32 and 64 bits
// wide. An inactive element executes no operation and raises nothing.
#pragma once

#include "sve/insn/host_fp.h"
#include "sve/insn/lanes.h"
#include "sve/lanes/predicate_bits.h"
#include "sve/processor/vectors.h"

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

using processor::Piece;

// The host's operations on vectors, where it has them: under the live control, as those on elements.
template <class U>
class pieces_fp {
 public:
  using P = Piece<U>;
  auto add(P a, P b) const { return FPAdd(a, b, live); }
  auto subtract(P a, P b) const { return FPSub(a, b, live); }
  auto multiply(P a, P b) const { return FPMul(a, b, live); }
  auto divide(P a, P b) const { return FPDiv(a, b, live); }
  auto maximum(P a, P b) const { return FPMax(a, b, live); }
  auto maximum_number(P a, P b) const { return FPMaxNum(a, b, live); }
  auto minimum_number(P a, P b) const { return FPMinNum(a, b, live); }
  auto reciprocal_step(P a, P b) const { return FPRecipStepFused(a, b, live); }
  auto square_root(P a) const { return FPSqrt(a, live); }
  auto reciprocal_estimate(P a) const { return FPRecipEstimate(a, live); }
  auto round_ties_away(P a) const { return FPRoundInt(a, FPRounding_TiesAway, false, live); }
  auto multiply_add(P c, P a, P b) const { return FPMulAdd(c, a, b, live); }
  auto multiply_subtract(P c, P a, P b) const { return FPMulAdd(c, FPNeg(a), b, live); }
  auto negated_multiply_add(P c, P a, P b) const { return FPMulAdd(FPNeg(c), FPNeg(a), b, live); }
  auto negated_multiply_subtract(P c, P a, P b) const { return FPMulAdd(FPNeg(c), a, b, live); }
  auto equal(P a, P b) const { return FPCompareEQ(a, b, live); }
  auto not_equal(P a, P b) const { return !FPCompareEQ(a, b, live); }
  auto unordered(P a, P b) const { return FPCompareUN(a, b, live); }
  auto greater_or_equal(P a, P b) const { return FPCompareGE(a, b, live); }
  auto greater(P a, P b) const { return FPCompareGT(a, b, live); }
  auto less_or_equal(P a, P b) const { return FPCompareGE(b, a, live); }
  auto less(P a, P b) const { return FPCompareGT(b, a, live); }

 private:
  static constexpr processor::Live live{};
};

// Whether `Op` can be computed on the host's vectors as well: by its instructions, or on lanes of integers.
template <class U>
using host_vector = std::conditional_t<processor::exists, Piece<U>, Lanes<U>>;
template <class U>
using vector_fp = std::conditional_t<processor::exists, pieces_fp<U>, lanes_fp<U>>;
template <class U, class Op, class... Sources>
constexpr bool has_vectors = requires(Op op, vector_fp<U>& host, const Sources*... src) {
  op(host, (static_cast<void>(src), host_vector<U>())...);
};

// finish(i, mask, op(host, src piece...)) for each piece of a register, with the masks of its active elements. The
// others compute with 1.0, which raises nothing.
template <class U, class Op, class Finish, class... Sources>
inline void on_pieces(const byte* predicate, Op op, Finish finish, const Sources*... src) {
  static_assert(vector_bytes % 16 == 0);
  vector_fp<U> host;
#pragma GCC unroll 16
  for (std::size_t i = 0; i < vector_bytes; i += 16) {
    const auto mask = processor::piece_mask<U>(predicate + i);
    const Piece<U> inactive(processor::harmless<U>);
    finish(i, mask, op(host, Piece<U>(processor::select<U>(mask, Piece<U>::load(src + i).bits, inactive.bits))...));
  }
}

// The operation as the loops over lanes call it.
template <class U, class Op>
inline auto on_lanes_of(Op op) {
  return [op](LaneStatus<U>& status, auto... x) {
    vector_fp<U> host(status);
    return op(host, x...);
  };
}

inline ActiveBits active_bytes(const byte* predicate) {
  return {register_bits(predicate).words, vector_bytes};
}

// dst[i] = active ? op(host, src[i]...) : old[i], on vectors of lanes as far as they go. Whole vectors are read, past
// the end of a register too: what follows it belongs to the state.
template <class U, class Host, class Op, class... Sources>
inline void merge_on(Host& host, byte* dst, const byte* old, const byte* predicate, Op op, const Sources*... src) {
  using Value = fp_value<U>;
  if constexpr (has_vectors<U, Op, Sources...> && processor::exists) {
    on_pieces<U>(
        predicate, op,
        [dst, old](std::size_t i, auto mask, Piece<U> computed) {
          Piece<U>(processor::select<U>(mask, computed.bits, Piece<U>::load(old + i).bits)).store(dst + i);
        },
        src...);
    return;
  } else if constexpr (has_vectors<U, Op, Sources...>) {
    if (host.rounds_to_nearest()) {
      alignas(normal_lanes::lane_vector_bytes) byte result[normal_lanes::whole_lane_vectors(vector_bytes)];
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
