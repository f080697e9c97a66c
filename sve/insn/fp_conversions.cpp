// Floating-point conversions and rounding to integers on the host.
#include "sve/insn/fp_lanes.h"

using namespace sve;
using namespace sve::fp;

// frinta Zd.T, Pg/M, Zn.T
aarch64_decode_rc sve_frinta_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return unary(state, zd, pg, zn,
               [](auto& host, auto a) -> decltype(host.round_ties_away(a)) { return host.round_ties_away(a); });
}

namespace {

// Conversions in slots of Slot: the low part of the source slot, and a result that fills its slot by zeros or, for
// integers, by its signedness.
template <class Slot, class Op>
aarch64_decode_rc convert(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn, Op op) {
  HostFp host(state);
  byte* dst = z_of(state, zd);
  merge_lanes_in_order<Slot, vector_bytes>(
      dst, dst, p_of(state, pg), lanes<Slot>, [&](Slot a) { return op(host, a); }, z_of(state, zn));
  return executed;
}

}  // namespace

#define FROM_INTEGER(name, Slot, Integer, To)                                                                  \
  aarch64_decode_rc sve_##name##_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) { \
    return convert<Slot>(state, zd, pg, zn, [](HostFp& host, Slot a) -> Slot {                                 \
      return raw<To>(host.from_integer<To>(static_cast<Integer>(a)));                                          \
    });                                                                                                        \
  }
#define TO_INTEGER(name, Slot, From, Integer)                                                                  \
  aarch64_decode_rc sve_##name##_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) { \
    return convert<Slot>(state, zd, pg, zn, [](HostFp& host, Slot a) -> Slot {                                 \
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
                      [](HostFp& host, u64 a) -> u64 { return raw<u32>(host.narrowed(value_of<u64>(a))); });
}

aarch64_decode_rc sve_fcvt_s2d_zpz(cpu_state* state, aarch64_z_reg zd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return convert<u64>(state, zd, pg, zn, [](HostFp& host, u64 a) -> u64 {
    return raw<u64>(host.widened(value_of<u32>(static_cast<u32>(a))));
  });
}
