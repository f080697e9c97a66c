// Floating-point compares on the host.
#include "sve/insn/fp_lanes.h"

using namespace sve;
using namespace sve::fp;

namespace {

// Whether the processor's results are right; else nothing has happened.
template <class U, class Host, class Test, class... Sources>
bool compared_by_processor(Host& host, byte* dst, const byte* predicate, Test test, const Sources*... src) {
  if (!processor::serves(host.control())) return false;
  const processor::Raised raised =
      processor::compare_pieces<U>(host.control(), host.raised_before(), dst, processor::ActiveBytes{predicate},
                                   vector_bytes, OnPiecesOf<U, Test>{test}, src...);
  if (raised.settled) host.raise(static_cast<int>(raised.flags));
  return raised.settled;
}

// A canonical predicate; the flags stay.
template <class Test, class... Sources>
aarch64_decode_rc compare(cpu_state* state, aarch64_p_reg pd, aarch64_p_reg pg, Test test, Sources... registers) {
  return for_fp_size(pd.size, [&](auto element) {
    using U = decltype(element);
    using Value = FpValue<U>;
    HostFp host(state);
    alignas(normal_lanes::lane_vector_bytes) byte result[normal_lanes::whole_lane_vectors(vector_bytes)];
    const byte* predicate = p_of(state, pg);
    const auto one = [&](std::size_t i) {
      store<U>(result, i, test(host, load<Value>(z_of(state, registers), i)...) ? 1 : 0);
    };
    if constexpr (has_pieces<U, Test, Sources...> && processor::settles_all) {
      BytePiece found[register_pieces];
      on_live_pieces<U>(
          predicate, test,
          [&found](std::size_t i, auto mask, auto truth) {
            found[i] = reinterpret_cast<BytePiece>(truth.bits & mask & Piece<U>(U{1}).bits);
          },
          z_of(state, registers)...);
      store_pieces(p_of(state, pd), [&](std::size_t i) { return found[i]; });
      return;
    } else if constexpr (has_lanes<U, Test, Sources...>) {
      if constexpr (has_pieces<U, Test, Sources...>)
        if (compared_by_processor<U>(host, p_of(state, pd), predicate, test, z_of(state, registers)...)) [[likely]]
          return;
      PendingElements<U> pending;
      const LaneOutcome outcome = compare_on_lanes<U>(result, active_bytes(predicate), lanes<U>, pending,
                                                      on_lanes_of<U>(test), z_of(state, registers)...);
      if (outcome.pending) [[unlikely]]
        pending.for_each(lanes<U>, one);
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

}  // namespace

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
