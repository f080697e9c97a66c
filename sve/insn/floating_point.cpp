// Floating-point instructions that run on the host, 32 and 64 bits wide. An inactive element executes no operation and
// raises nothing.
#include <array>

#include "sve/insn/host_fp.h"
#include "sve/insn/lanes.h"
#include "sve/state/predicate_bits.h"

using namespace sve;

namespace {

// Calls `body` with the unsigned type of the two sizes that exist. Nothing passes another code, and with one nothing
// happens.
template <class Body>
aarch64_decode_rc for_fp_size(unsigned int code, Body body) {
  if (code == element_s)
    body(std::uint32_t{});
  else if (code == element_d)
    body(std::uint64_t{});
  return executed;
}

constexpr auto all_active = [] {
  std::array<byte, vector_bytes> predicate{};
  predicate.fill(1);
  return predicate;
}();

// Whether `Op` can be computed on vectors of lanes as well.
template <class U, class Op, class... Sources>
constexpr bool has_lanes = requires(Op op, lanes_fp<U>& host, const Sources*... src) {
  op(host, (static_cast<void>(src), Lanes<U>())...);
};

// The operation as the loops over lanes call it.
template <class U, class Op>
auto on_lanes_of(Op op) {
  return [op](LaneStatus<U>& status, auto... x) {
    lanes_fp<U> host(status);
    return op(host, x...);
  };
}

[[maybe_unused]] ActiveBits active_bytes(const byte* predicate) {
  const register_bits bits(predicate);
  const std::uint64_t words[] = {bits.low, bits.high};
  return {words, vector_bytes};
}

// dst[i] = active ? op(host, src[i]...) : old[i], on vectors of lanes as far as they go. Whole vectors are read, past
// the end of a register too: what follows it belongs to the state.
template <class U, class Host, class Op, class... Sources>
void merge_on(Host& host, byte* dst, const byte* old, const byte* predicate, Op op, const Sources*... src) {
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
void merge(cpu_state* state, byte* dst, const byte* old, const byte* predicate, Op op, const Sources*... src) {
  host_fp host(state);
  merge_on<U>(host, dst, old, predicate, op, src...);
}

template <class Op>
aarch64_decode_rc binary(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm, Op op) {
  return for_fp_size(zdn.tied_dst_size, [&](auto element) {
    byte* dst = z_of(state, zdn);
    merge<decltype(element)>(state, dst, dst, p_of(state, pg), op, dst, z_of(state, zm));
  });
}

// The constant of the one-bit immediate: one of two values.
template <class Op>
aarch64_decode_rc with_constant(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_sve_fp_arith_imm imm,
                                float clear, float set, Op op) {
  const float constant = imm.value ? set : clear;
  return for_fp_size(zdn.tied_dst_size, [&](auto element) {
    using U = decltype(element);
    using Float = std::conditional_t<sizeof(U) == 4, float, double>;
    const auto value = std::bit_cast<fp_value<U>>(static_cast<Float>(constant));
    byte* dst = z_of(state, zdn);
    merge<U>(
        state, dst, dst, p_of(state, pg),
        [&](auto& host, auto a) -> decltype(op(host, a, decltype(a)(value))) {
          return op(host, a, decltype(a)(value));
        },
        dst);
  });
}

template <class Op>
aarch64_decode_rc unary(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn, Op op) {
  return for_fp_size(zd.size, [&](auto element) {
    byte* dst = z_of(state, zd);
    merge<decltype(element)>(state, dst, dst, p_of(state, pg), op, z_of(state, zn));
  });
}

template <class Op>
aarch64_decode_rc ternary(cpu_state* state, aarch64_z_reg zda, aarch64_p_reg pg, aarch64_z_reg zb, aarch64_z_reg zc,
                          Op op) {
  return for_fp_size(zda.tied_dst_size, [&](auto element) {
    byte* dst = z_of(state, zda);
    merge<decltype(element)>(state, dst, dst, p_of(state, pg), op, dst, z_of(state, zb), z_of(state, zc));
  });
}

template <class Op, class... Sources>
aarch64_decode_rc unpredicated(cpu_state* state, aarch64_z_reg zd, Op op, Sources... registers) {
  return for_fp_size(zd.size, [&](auto element) {
    byte* dst = z_of(state, zd);
    merge<decltype(element)>(state, dst, dst, all_active.data(), op, z_of(state, registers)...);
  });
}

// A canonical predicate; the flags stay.
template <class Test, class... Sources>
aarch64_decode_rc compare(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, Test test, Sources... registers) {
  return for_fp_size(pd.size, [&](auto element) {
    using U = decltype(element);
    using Value = fp_value<U>;
    host_fp host(state);
    alignas(normal_lanes::lane_vector_bytes) byte result[std::bit_ceil(vector_bytes)];
    const byte* predicate = p_of(state, pg);
    const auto one = [&](std::size_t i) {
      store<U>(result, i, test(host, load<Value>(z_of(state, registers), i)...) ? 1 : 0);
    };
    if constexpr (has_lanes<U, Test, Sources...>) {
      PendingElements<U> pending;
      const LaneOutcome outcome = compare_on_lanes<U>(result, active_bytes(predicate), lanes<U>, pending,
                                                      on_lanes_of<U>(test), z_of(state, registers)...);
      if (outcome.pending) [[unlikely]]
        for (std::size_t i = 0; i < lanes<U>; ++i)
          if (pending.words[i]) one(i);
    } else {
      for (std::size_t i = 0; i < lanes<U>; ++i)
        if (active<U>(predicate, i))
          one(i);
        else
          store<U>(result, i, 0);
    }
    std::memcpy(p_of(state, pd), result, vector_bytes);
  });
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

}  // namespace

// f<op> Zdn.T, Pg/M, Zdn.T, Zm.T
#define BINARY(name, op)                                                                                        \
  aarch64_decode_rc sve_##name##_zpz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm) { \
    return binary(state, zdn, pg, zm, op);                                                                      \
  }
// f<op> Zdn.T, Pg/M, Zdn.T, #constant
#define WITH_CONSTANT(name, clear, set, op)                                                 \
  aarch64_decode_rc sve_##name##_zpi(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, \
                                     aarch64_sve_fp_arith_imm imm) {                        \
    return with_constant(state, zdn, pg, imm, clear, set, op);                              \
  }
// f<op> Zd.T, Pg/M, Zn.T
#define UNARY(name, member)                                                                                         \
  aarch64_decode_rc sve_##name##_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {      \
    return unary(state, zd, pg, zn, [](auto& host, auto a) -> decltype(host.member(a)) { return host.member(a); }); \
  }
// f<op> Zd.T, Zn.T, Zm.T
#define UNPREDICATED(name, op)                                                                                 \
  aarch64_decode_rc sve_##name##_zzz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn, aarch64_z_reg zm) { \
    return unpredicated(state, zd, op, zn, zm);                                                                \
  }
// Accumulator first: op(Zda, Zn, Zm).
#define FUSED(name, member)                                                                                    \
  aarch64_decode_rc sve_##name##_zpzz(cpu_state* state, aarch64_z_reg zda, aarch64_p_reg pg, aarch64_z_reg zn, \
                                      aarch64_z_reg zm) {                                                      \
    return ternary(state, zda, pg, zn, zm,                                                                     \
                   [](auto& host, auto acc, auto n, auto m) -> decltype(host.member(acc, n, m)) {              \
                     return host.member(acc, n, m);                                                            \
                   });                                                                                         \
  }
// Multiplicand first: op(Za, Zdn, Zm).
#define FUSED_MULTIPLICAND(name, member)                                                                               \
  aarch64_decode_rc sve_##name##_zpzz(cpu_state* state, aarch64_z_reg zdn, aarch64_p_reg pg, aarch64_z_reg zm,         \
                                      aarch64_z_reg za) {                                                              \
    return ternary(                                                                                                    \
        state, zdn, pg, zm, za,                                                                                        \
        [](auto& host, auto dn, auto m, auto a) -> decltype(host.member(a, dn, m)) { return host.member(a, dn, m); }); \
  }
// fcm<cc> Pd.T, Pg/Z, Zn.T, Zm.T
#define COMPARE(name, member)                                                                                       \
  aarch64_decode_rc sve_##name##_ppzz(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_z_reg zn,       \
                                      aarch64_z_reg zm) {                                                           \
    return compare(                                                                                                 \
        state, pd, pg, [](auto& host, auto a, auto b) -> decltype(host.member(a, b)) { return host.member(a, b); }, \
        zn, zm);                                                                                                    \
  }
// fcm<cc> Pd.T, Pg/Z, Zn.T, #0.0
#define COMPARE_ZERO(name, member)                                                                             \
  aarch64_decode_rc sve_##name##_ppz(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, aarch64_z_reg zn) { \
    return compare(                                                                                            \
        state, pd, pg,                                                                                         \
        [](auto& host, auto a) -> decltype(host.member(a, a)) { return host.member(a, decltype(a){0}); }, zn); \
  }

BINARY(fadd, sum)
BINARY(fsub, subtract)
BINARY(fsubr, subtract_reversed)
BINARY(fmul, product)
BINARY(fdiv, quotient)
BINARY(fdivr, quotient_reversed)
BINARY(fmax, maximum)
BINARY(fmaxnm, maximum_number)
BINARY(fminnm, minimum_number)

WITH_CONSTANT(fadd, 0.5f, 1.0f, sum)
WITH_CONSTANT(fsub, 0.5f, 1.0f, subtract)
WITH_CONSTANT(fsubr, 0.5f, 1.0f, subtract_reversed)
WITH_CONSTANT(fmul, 0.5f, 2.0f, product)

UNPREDICATED(fadd, sum)
UNPREDICATED(fsub, subtract)
UNPREDICATED(fmul, product)
UNPREDICATED(frecps, reciprocal_step)

UNARY(fsqrt, square_root)
UNARY(frinta, round_ties_away)

// frecpe Zd.T, Zn.T
aarch64_decode_rc sve_frecpe_zz(cpu_state* state, aarch64_z_reg zd, aarch64_z_reg zn) {
  return unpredicated(
      state, zd,
      [](auto& host, auto a) -> decltype(host.reciprocal_estimate(a)) { return host.reciprocal_estimate(a); }, zn);
}

// fneg Zd.T, Pg/M, Zn.T: the sign alone, no status.
aarch64_decode_rc sve_fneg_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return for_fp_size(zd.size, [&](auto element) {
    using U = decltype(element);
    byte* dst = z_of(state, zd);
    merge_lanes<U>(
        dst, dst, p_of(state, pg), lanes<U>, [](U a) { return FPNeg(a); }, z_of(state, zn));
  });
}

// fabs Zd.T, Pg/M, Zn.T. No row reaches it. It keeps what compares greater than or equal to zero and negates any other,
// so that -0 stays -0 and every NaN has its sign flipped.
aarch64_decode_rc sve_fabs_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return for_fp_size(zd.size, [&](auto element) {
    using U = decltype(element);
    byte* dst = z_of(state, zd);
    merge_lanes<U>(
        dst, dst, p_of(state, pg), lanes<U>,
        [](U a) {
          const U magnitude = magnitude_of(a);
          const bool keeps = magnitude <= Format<U>::infinity && (a == magnitude || magnitude == 0);
          return keeps ? a : FPNeg(a);
        },
        z_of(state, zn));
  });
}

// Only fnmla has rows; the library serves the rest.
FUSED(fmla, multiply_add)
FUSED(fmls, multiply_subtract)
FUSED(fnmla, negated_multiply_add)
FUSED(fnmls, negated_multiply_subtract)
FUSED_MULTIPLICAND(fmad, multiply_add)
FUSED_MULTIPLICAND(fmsb, multiply_subtract)
FUSED_MULTIPLICAND(fnmad, negated_multiply_add)
FUSED_MULTIPLICAND(fnmsb, negated_multiply_subtract)

COMPARE(fcmeq, equal)
COMPARE(fcmne, not_equal)
COMPARE(fcmge, greater_or_equal)
COMPARE(fcmgt, greater)
COMPARE(fcmuo, unordered)
COMPARE_ZERO(fcmeq, equal)
COMPARE_ZERO(fcmge, greater_or_equal)
COMPARE_ZERO(fcmgt, greater)
COMPARE_ZERO(fcmle, less_or_equal)
COMPARE_ZERO(fcmlt, less)

namespace {

// Conversions in slots of Slot: the low part of the source slot, and a result that fills its slot by zeros or, for
// integers, by its signedness.
template <class Slot, class Op>
aarch64_decode_rc convert(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn, Op op) {
  host_fp host(state);
  byte* dst = z_of(state, zd);
  merge_lanes_in_order<Slot, vector_bytes>(
      dst, dst, p_of(state, pg), lanes<Slot>, [&](Slot a) { return op(host, a); }, z_of(state, zn));
  return executed;
}

// The raw bits of a value, and the value of raw bits.
template <class U>
U raw(fp_value<U> value) {
  return std::bit_cast<U>(value);
}
template <class U>
fp_value<U> value_of(U bits) {
  return std::bit_cast<fp_value<U>>(bits);
}

using s32 = std::int32_t;
using s64 = std::int64_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;

}  // namespace

#define FROM_INTEGER(name, Slot, Integer, To)                                                                  \
  aarch64_decode_rc sve_##name##_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) { \
    return convert<Slot>(state, zd, pg, zn, [](host_fp& host, Slot a) -> Slot {                                \
      return raw<To>(host.from_integer<To>(static_cast<Integer>(a)));                                          \
    });                                                                                                        \
  }
#define TO_INTEGER(name, Slot, From, Integer)                                                                  \
  aarch64_decode_rc sve_##name##_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) { \
    return convert<Slot>(state, zd, pg, zn, [](host_fp& host, Slot a) -> Slot {                                \
      return static_cast<Slot>(host.to_integer<Integer>(value_of<From>(static_cast<From>(a))));                \
    });                                                                                                        \
  }

FROM_INTEGER(scvtf_s2s, u32, s32, u32)
FROM_INTEGER(scvtf_s2d, u64, s32, u64)
FROM_INTEGER(scvtf_d2s, u64, s64, u32)
FROM_INTEGER(scvtf_d2d, u64, s64, u64)
FROM_INTEGER(ucvtf_s2s, u32, u32, u32)
FROM_INTEGER(ucvtf_s2d, u64, u32, u64)
FROM_INTEGER(ucvtf_d2d, u64, u64, u64)

// No row reaches the conversions below.
TO_INTEGER(fcvtzs_s2s, u32, u32, s32)
TO_INTEGER(fcvtzs_s2d, u64, u32, s64)
TO_INTEGER(fcvtzs_d2s, u64, u64, s32)
TO_INTEGER(fcvtzs_d2d, u64, u64, s64)
TO_INTEGER(fcvtzu_s2s, u32, u32, u32)
TO_INTEGER(fcvtzu_s2d, u64, u32, u64)
TO_INTEGER(fcvtzu_d2s, u64, u64, u32)
TO_INTEGER(fcvtzu_d2d, u64, u64, u64)

aarch64_decode_rc sve_fcvt_d2s_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return convert<u64>(state, zd, pg, zn,
                      [](host_fp& host, u64 a) -> u64 { return raw<u32>(host.narrowed(value_of<u64>(a))); });
}

aarch64_decode_rc sve_fcvt_s2d_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return convert<u64>(state, zd, pg, zn, [](host_fp& host, u64 a) -> u64 {
    return raw<u64>(host.widened(value_of<u32>(static_cast<u32>(a))));
  });
}

namespace {

template <class Value>
void write_scalar(cpu_state* state, unsigned int vd, Value value) {
  std::memset(state->z[vd], 0, vector_bytes);
  store<Value>(state->z[vd], 0, value);
}

// A balanced tree of adjacent pairs over the next power of two above the element count; inactive and missing elements
// are the pad.
template <class Pad, class Op>
aarch64_decode_rc tree(cpu_state* state, unsigned int vd, aarch64_p_reg pg, aarch64_z_reg zn, Pad pad, Op op) {
  return for_fp_size(zn.size, [&](auto element) {
    using U = decltype(element);
    using Value = fp_value<U>;
    constexpr std::size_t width = std::bit_ceil(lanes<U>);
    const byte* predicate = p_of(state, pg);
    const byte* src = z_of(state, zn);
    Value values[width];
    for (std::size_t i = 0; i < width; ++i)
      values[i] = i < lanes<U> && active<U>(predicate, i) ? load<Value>(src, i) : value_of<U>(pad(U{}));
    host_fp host(state);
    for (std::size_t n = width; n > 1; n /= 2)
      for (std::size_t k = 0; k < n / 2; ++k) values[k] = op(host, values[2 * k], values[2 * k + 1]);
    write_scalar(state, vd, values[0]);
  });
}

constexpr auto default_nan = [](auto u) { return Format<decltype(u)>::default_nan; };
constexpr auto plus_zero = [](auto u) { return decltype(u){0}; };

}  // namespace

// fmaxnmv Vd, Pg, Zn.T
aarch64_decode_rc sve_fmaxnmv_vpz(cpu_state* state, unsigned int vd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return tree(state, vd, pg, zn, default_nan, maximum_number);
}

// fminnmv Vd, Pg, Zn.T
aarch64_decode_rc sve_fminnmv_vpz(cpu_state* state, unsigned int vd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return tree(state, vd, pg, zn, default_nan, minimum_number);
}

// faddv Vd, Pg, Zn.T. No row reaches it.
aarch64_decode_rc sve_faddv_vpz(cpu_state* state, unsigned int vd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return tree(state, vd, pg, zn, plus_zero, sum);
}

// fadda Vdn, Pg, Vdn, Zm.T. No row reaches it.
aarch64_decode_rc sve_fadda_vpz(cpu_state* state, unsigned int vd, aarch64_p_reg pg, aarch64_z_reg zm) {
  return for_fp_size(zm.size, [&](auto element) {
    using U = decltype(element);
    using Value = fp_value<U>;
    host_fp host(state);
    Value total = load<Value>(state->z[vd], 0);
    for (std::size_t i = 0; i < lanes<U>; ++i)
      if (active<U>(p_of(state, pg), i)) total = host.add(total, load<Value>(z_of(state, zm), i));
    write_scalar(state, vd, total);
  });
}
