// Integer reductions of the active elements to a scalar in a vector register.
#include <limits>

#include "sve/insn/lanes.h"

using namespace sve;

namespace {

// The scalar goes to the low bytes of Zd; all bytes above it become 0.
template <class T>
void write_scalar(cpu_state* state, unsigned int vd, T value) {
  byte* dst = state->z[vd];
  std::memset(dst, 0, vector_bytes);
  store<T>(dst, 0, value);
}

// Folds the active elements in rising order from `start`; an inactive element counts as the start value, on which
// `step` has no effect.
template <Signedness S, class Start, class Step>
aarch64_decode_rc reduce(cpu_state* state, unsigned int vd, aarch64_p_reg pg, aarch64_z_reg zn, Start start,
                         Step step) {
  return for_size(zn.size, [&](auto element) {
    using T = Lane<decltype(element), S>;
    using U = decltype(element);
    const byte* predicate = p_of(state, pg);
    const byte* src = z_of(state, zn);
    const T none = start(T{});
    T result = none;
    for (std::size_t i = 0; i < lanes<T>; ++i) {
      const U mask = active_mask<U>(predicate, i);
      const T value = static_cast<T>((load<U>(src, i) & mask) | (static_cast<U>(none) & static_cast<U>(~mask)));
      result = static_cast<T>(step(result, value));
    }
    write_scalar<T>(state, vd, result);
  });
}

constexpr auto zero = [](auto t) { return decltype(t){0}; };
constexpr auto all_ones = [](auto t) { return static_cast<decltype(t)>(~decltype(t){0}); };
constexpr auto smallest = [](auto t) { return std::numeric_limits<decltype(t)>::min(); };
constexpr auto largest = [](auto t) { return std::numeric_limits<decltype(t)>::max(); };

}  // namespace

// uaddv Dd, Pg, Zn.T: a 64-bit sum.
aarch64_decode_rc sve_uaddv_vpz(cpu_state* state, unsigned int vd, aarch64_p_reg pg, aarch64_z_reg zn) {
  return for_size(zn.size, [&](auto element) {
    using T = decltype(element);
    const byte* predicate = p_of(state, pg);
    const byte* src = z_of(state, zn);
    // The sum of a register's elements of up to 16 bits fits 32 bits.
    using Sum = std::conditional_t<sizeof(T) <= 2, std::uint32_t, std::uint64_t>;
    Sum sum = 0;
    for (std::size_t i = 0; i < lanes<T>; ++i) sum += static_cast<Sum>(load<T>(src, i) & active_mask<T>(predicate, i));
    write_scalar<std::uint64_t>(state, vd, sum);
  });
}

#define REDUCTION(name, signedness_, start, step)                                                             \
  aarch64_decode_rc sve_##name##_vpz(cpu_state* state, unsigned int vd, aarch64_p_reg pg, aarch64_z_reg zn) { \
    return reduce<Signedness::signedness_>(state, vd, pg, zn, start, [](auto a, auto b) { return step; });    \
  }

REDUCTION(smaxv, signed_, smallest, a > b ? a : b)
REDUCTION(sminv, signed_, largest, a < b ? a : b)
REDUCTION(umaxv, unsigned_, zero, a > b ? a : b)
REDUCTION(uminv, unsigned_, all_ones, a < b ? a : b)
REDUCTION(andv, unsigned_, all_ones, a& b)
REDUCTION(orv, unsigned_, zero, a | b)
REDUCTION(eorv, unsigned_, zero, a ^ b)
