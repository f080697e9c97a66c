// What the floating-point instruction functions share: loops over elements on the host's floating point, 32 and 64 bits
// wide. An inactive element executes no operation and raises nothing.
#pragma once

#include <array>

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

// The host's operations on vectors, as far as it has them, as those on elements: on AArch64 under the live control.
template <class U>
class PiecesFp {
  processor::Under under_;

 public:
  explicit PiecesFp(processor::Under under) : under_(under) {}
#define PIECES_OPERATION(name, operands, call) \
  template <class P>                           \
  auto name operands SVE_RETURNS(call)
  PIECES_OPERATION(add, (P a, P b), FPAdd(a, b, under_))
  PIECES_OPERATION(subtract, (P a, P b), FPSub(a, b, under_))
  PIECES_OPERATION(multiply, (P a, P b), FPMul(a, b, under_))
  PIECES_OPERATION(divide, (P a, P b), FPDiv(a, b, under_))
  PIECES_OPERATION(maximum, (P a, P b), FPMax(a, b, under_))
  PIECES_OPERATION(maximum_number, (P a, P b), FPMaxNum(a, b, under_))
  PIECES_OPERATION(minimum_number, (P a, P b), FPMinNum(a, b, under_))
  PIECES_OPERATION(reciprocal_step, (P a, P b), FPRecipStepFused(a, b, under_))
  PIECES_OPERATION(square_root, (P a), FPSqrt(a, under_))
  PIECES_OPERATION(reciprocal_estimate, (P a), FPRecipEstimate(a, under_))
  PIECES_OPERATION(round_ties_away, (P a), FPRoundInt(a, FPRounding_TiesAway, false, under_))
  PIECES_OPERATION(multiply_add, (P c, P a, P b), FPMulAdd(c, a, b, under_))
  PIECES_OPERATION(multiply_subtract, (P c, P a, P b), FPMulAdd(c, FPNeg(a), b, under_))
  PIECES_OPERATION(negated_multiply_add, (P c, P a, P b), FPMulAdd(FPNeg(c), FPNeg(a), b, under_))
  PIECES_OPERATION(negated_multiply_subtract, (P c, P a, P b), FPMulAdd(FPNeg(c), a, b, under_))
  PIECES_OPERATION(equal, (P a, P b), FPCompareEQ(a, b, under_))
  PIECES_OPERATION(not_equal, (P a, P b), !FPCompareEQ(a, b, under_))
  PIECES_OPERATION(unordered, (P a, P b), FPCompareUN(a, b, under_))
  PIECES_OPERATION(greater_or_equal, (P a, P b), FPCompareGE(a, b, under_))
  PIECES_OPERATION(greater, (P a, P b), FPCompareGT(a, b, under_))
  PIECES_OPERATION(less_or_equal, (P a, P b), FPCompareGE(b, a, under_))
  PIECES_OPERATION(less, (P a, P b), FPCompareGT(b, a, under_))
#undef PIECES_OPERATION
};

// Whether `Op` can be computed on a kind of vectors: by the host's instructions, or on lanes of integers.
template <class Host, class Element, class Op, class... Sources>
concept computes_vectors =
    std::invocable<const Op&, Host&, decltype(static_cast<void>(std::declval<Sources>()), std::declval<Element>())...>;
template <class U, class Op, class... Sources>
concept has_pieces = processor::exists && computes_vectors<PiecesFp<U>, Piece<U>, Op, Sources...>;
template <class U, class Op, class... Sources>
concept has_lanes = computes_vectors<LanesFp<U>, Lanes<U>, Op, Sources...>;

// The predicate of an instruction that has none.
struct EveryElement {
  operator const byte*() const {
    static constexpr auto ones = [] {
      std::array<byte, vector_bytes> predicate{};
      predicate.fill(1);
      return predicate;
    }();
    return ones.data();
  }
};
template <class U>
inline processor::Group<U> governing_group(const byte* predicate, std::size_t first, std::size_t n) {
  return {predicate, first, n};
}
template <class U>
inline processor::Group<U> governing_group(EveryElement, std::size_t, std::size_t) {
  return processor::Group<U>(Piece<U>(U{1}));
}

// finish(i, mask, op(host, src piece...)) for each piece i of a register under the live control, with the masks of its
// active elements. The others compute with 1.0, which raises nothing.
template <class U, class Predicate, class Op, class Finish, class... Sources>
inline void on_live_pieces(Predicate predicate, Op op, Finish finish, const Sources*... src) {
  static_assert(vector_bytes % 16 == 0);
  PiecesFp<U> host{{}};
  const Piece<U> one(U{1}), inactive(processor::harmless<U>);
  const auto of_group = [&](std::size_t first, std::size_t n, const auto& governing, const auto&... group)
      __attribute__((always_inline)) {
#pragma GCC unroll 4
    for (std::size_t k = 0; k < n; ++k) {
      const auto mask = reinterpret_cast<typename Piece<U>::Bits>((governing.piece[k].bits & one.bits) != 0);
      finish(first + k, mask, op(host, Piece<U>(processor::select<U>(mask, group.piece[k].bits, inactive.bits))...));
    }
  };
#pragma GCC unroll 4
  for (std::size_t first = 0; first < register_pieces; first += processor::group_pieces) {
    const std::size_t left = register_pieces - first,
                      n = left < processor::group_pieces ? left : processor::group_pieces;
    of_group(first, n, governing_group<U>(predicate, first, n), processor::Group<U>(src, first, n)...);
  }
}

// The operation as the loops over pieces under a control of their own call it.
template <class U, class Op>
struct OnPiecesOf {
  using P = Piece<U>;
  using Control = processor::Control;
  Op op;
  auto operator()(P a, Control& control) const { return called(control, a); }
  auto operator()(P a, P b, Control& control) const { return called(control, a, b); }
  auto operator()(P a, P b, P c, Control& control) const { return called(control, a, b, c); }
  template <class... Operands>
  auto called(Control& control, Operands... x) const {
    PiecesFp<U> host(control);
    return op(host, x...);
  }
};

// The operation as the loops over lanes call it.
template <class U, class Op>
inline auto on_lanes_of(Op op) {
  return [op](LaneStatus<U>& status, auto... x) {
    LanesFp<U> host(status);
    return op(host, x...);
  };
}

inline ActiveBits active_bytes(const byte* predicate) { return {RegisterBits(predicate).words, vector_bytes}; }

// dst[i] = active ? op(host, src[i]...) : old[i], on vectors of lanes as far as they go. Whole vectors are read, past
// the end of a register too: what follows it belongs to the state.
template <class U, class Host, class Predicate, class Op, class... Sources>
inline void merge_on(Host& host, byte* dst, const byte* old, Predicate predicate, Op op, const Sources*... src) {
  using Value = FpValue<U>;
  if constexpr (has_pieces<U, Op, Sources...> && processor::settles_all) {
    BytePiece merged[register_pieces];
    on_live_pieces<U>(
        predicate, op,
        [&merged, old](std::size_t i, auto mask, Piece<U> computed) {
          merged[i] =
              reinterpret_cast<BytePiece>(processor::select<U>(mask, computed.bits, Piece<U>::load(old + 16 * i).bits));
        },
        src...);
    store_pieces(dst, [&](std::size_t i) { return merged[i]; });
    return;
  } else if constexpr (has_pieces<U, Op, Sources...>) {
    if (processor::serves(host.control())) [[likely]] {
      const processor::Raised raised =
          processor::merge_pieces<U>(host.control(), host.raised_before(), dst, old, processor::ActiveBytes{predicate},
                                     vector_bytes, processor::harmless<U>, OnPiecesOf<U, Op>{op}, src...);
      if (raised.settled) [[likely]]
        return host.raise(static_cast<int>(raised.flags));
    }
  }
  if constexpr (has_lanes<U, Op, Sources...>) {
    if (host.rounds_to_nearest()) {
      alignas(normal_lanes::lane_vector_bytes) byte result[normal_lanes::whole_lane_vectors(vector_bytes)];
      PendingElements<U> pending;
      const LaneOutcome outcome =
          merge_on_lanes<U>(result, old, active_bytes(predicate), lanes<U>, pending, on_lanes_of<U>(op), src...);
      if (outcome.inexact) host.raise(flag_ixc);
      if (outcome.pending) [[unlikely]]
        pending.for_each(lanes<U>, [&](std::size_t i) { store<Value>(result, i, op(host, load<Value>(src, i)...)); });
      std::memcpy(dst, result, vector_bytes);
      return;
    }
  }
  merge_lanes_in_order<Value, vector_bytes>(
      dst, old, predicate, lanes<U>, [&](auto... x) { return op(host, x...); }, src...);
}
template <class U, class Predicate, class Op, class... Sources>
inline void merge(cpu_state* state, byte* dst, const byte* old, Predicate predicate, Op op, const Sources*... src) {
  HostFp host(state);
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
inline U raw(FpValue<U> value) {
  return std::bit_cast<U>(value);
}
template <class U>
inline FpValue<U> value_of(U bits) {
  return std::bit_cast<FpValue<U>>(bits);
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
