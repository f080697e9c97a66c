// Floating-point reductions on the host.
#include "sve/insn/fp_lanes.h"

using namespace sve;
using namespace sve::fp;

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
    using Value = FpValue<U>;
    constexpr std::size_t width = std::bit_ceil(lanes<U>);
    const byte* predicate = p_of(state, pg);
    const byte* src = z_of(state, zn);
    Value values[width];
    for (std::size_t i = 0; i < width; ++i)
      values[i] = i < lanes<U> && active<U>(predicate, i) ? load<Value>(src, i) : value_of<U>(pad(U{}));
    HostFp host(state);
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
    using Value = FpValue<U>;
    HostFp host(state);
    Value total = load<Value>(state->z[vd], 0);
    for (std::size_t i = 0; i < lanes<U>; ++i)
      if (active<U>(p_of(state, pg), i)) total = host.add(total, load<Value>(z_of(state, zm), i));
    write_scalar(state, vd, total);
  });
}
