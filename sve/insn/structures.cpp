// Structure loads and stores: N interleaved streams between memory and N consecutive Z registers, Z31 followed by Z0.
#include "sve/insn/memory.h"

using namespace sve;

namespace {

template <unsigned N>
struct Group {
  Group(cpu_state* state, aarch64_z_reg first) {
    for (unsigned k = 0; k < N; ++k) z[k] = address_in(state->z, (first.number + k) % 32);
  }
  byte* z[N];
};

// Structures of N elements in rising order, and in each its fields in rising order. An inactive structure is not read,
// and its elements become 0.
template <class T, unsigned N>
aarch64_decode_rc load_structures(cpu_state* state, aarch64_z_reg zt, aarch64_p_reg pg, std::uint64_t start) {
  const Group<N> to(state, zt);
  const byte* predicate = p_of(state, pg);
  // A load that faults has written the fields below.
  if (all_active<T>(predicate) && within_page(start, N * vector_bytes)) {
    for (std::size_t e = 0; e < lanes<T>; ++e)
      for (unsigned k = 0; k < N; ++k) store<T>(to.z[k], e, read_memory<T>(start + (e * N + k) * sizeof(T)));
    return executed;
  }
  for (std::size_t e = 0; e < lanes<T>; ++e) {
    const bool is_active = active<T>(predicate, e);
    for (unsigned k = 0; k < N; ++k) {
      store<T>(to.z[k], e, is_active ? read_memory<T>(start + (e * N + k) * sizeof(T)) : T{0});
      keep_order();
    }
  }
  return executed;
}

template <class T, unsigned N>
aarch64_decode_rc store_structures(cpu_state* state, aarch64_z_reg zt, aarch64_p_reg pg, std::uint64_t start) {
  const Group<N> from(state, zt);
  const byte* predicate = p_of(state, pg);
  // A store that faults has stored the fields below.
  if (all_active<T>(predicate) && within_page(start, N * vector_bytes)) {
    byte* dst = reinterpret_cast<byte*>(start);
#pragma GCC ivdep
    for (std::size_t e = 0; e < lanes<T>; ++e)
      for (unsigned k = 0; k < N; ++k) store<T>(dst, e * N + k, load<T>(from.z[k], e));
    return executed;
  }
  for (std::size_t e = 0; e < lanes<T>; ++e)
    if (active<T>(predicate, e))
      for (unsigned k = 0; k < N; ++k) write_memory<T>(start + (e * N + k) * sizeof(T), load<T>(from.z[k], e));
  return executed;
}

// The immediate counts whole register groups.
template <unsigned N>
std::uint64_t start_at(cpu_state* state, aarch64_i_rsp_reg rn, int imm) {
  return read(state, rn) + static_cast<std::uint64_t>(std::int64_t{imm} * static_cast<int>(N * vector_bytes));
}
template <class T>
std::uint64_t start_at(cpu_state* state, aarch64_i_rsp_reg rn, aarch64_i_reg rm) {
  return read(state, rn) + read(state, rm) * sizeof(T);
}

}  // namespace

#define STRUCTURES(name, T, M, move, N)                                             \
  SVE_ZPRI(name) { return move<T, N>(state, zt, pg, start_at<N>(state, rn, imm)); } \
  SVE_ZPRR(name) { return move<T, N>(state, zt, pg, start_at<T>(state, rn, rm)); }

SVE_SAME_SIZE_FUNCTIONS(STRUCTURES, ld2, load_structures, 2)
SVE_SAME_SIZE_FUNCTIONS(STRUCTURES, ld3, load_structures, 3)
SVE_SAME_SIZE_FUNCTIONS(STRUCTURES, ld4, load_structures, 4)
SVE_SAME_SIZE_FUNCTIONS(STRUCTURES, st2, store_structures, 2)
SVE_SAME_SIZE_FUNCTIONS(STRUCTURES, st3, store_structures, 3)
SVE_SAME_SIZE_FUNCTIONS(STRUCTURES, st4, store_structures, 4)
