// Structure loads and stores: N interleaved streams between memory and N vectors.
#include "sve/veclib/memory.h"

using namespace sve;
using namespace sve::veclib;

namespace {

// Structures in rising order, and in each its fields in rising order.
template <class T, class... Vectors>
void load_structures(const PredV& p, u64 start, const CpuContext* ctx, Vectors&... to) {
  const std::size_t n = count<T>(ctx);
  for (std::size_t e = 0; e < n; ++e) {
    const bool is_active = active<T>(p, e);
    u64 address = start + e * sizeof...(to) * sizeof(T);
    ((store<T>(to.bytes, e, is_active ? read_plain<T>(address) : T{0}), address += sizeof(T)), ...);
  }
}

template <class T, class... Vectors>
void store_structures(const PredV& p, u64 start, const CpuContext* ctx, const Vectors&... from) {
  const std::size_t n = count<T>(ctx);
  for (std::size_t e = 0; e < n; ++e) {
    if (!active<T>(p, e)) continue;
    u64 address = start + e * sizeof...(from) * sizeof(T);
    ((write_plain<T>(address, load<T>(from.bytes, e)), address += sizeof(T)), ...);
  }
}

}  // namespace

#define SVE_OUT(name) VectorV& name
#define STRUCTURES(op, N, width, bytes, outs, ins, names)                                                         \
  void Vec##width##op##Load##bytes##SIZ(const PredV& p, u64 base, s64 imm, SVE_UNWRAP outs, CpuContext* ctx) {    \
    using T = element::width;                                                                                     \
    load_structures<T>(p, base + scaled(imm, count<T>(ctx) * N * sizeof(T)), ctx, SVE_UNWRAP names);              \
  }                                                                                                               \
  void Vec##width##op##Load##bytes##LSSZ(const PredV& p, u64 base, u64 index, SVE_UNWRAP outs, CpuContext* ctx) { \
    using T = element::width;                                                                                     \
    load_structures<T>(p, start_ss<T>(base, index), ctx, SVE_UNWRAP names);                                       \
  }                                                                                                               \
  void Vec##width##op##Store##bytes##SIZ(const PredV& p, u64 base, s64 imm, SVE_UNWRAP ins, CpuContext* ctx) {    \
    using T = element::width;                                                                                     \
    store_structures<T>(p, base + scaled(imm, count<T>(ctx) * N * sizeof(T)), ctx, SVE_UNWRAP names);             \
  }                                                                                                               \
  void Vec##width##op##Store##bytes##LSSZ(const PredV& p, u64 base, u64 index, SVE_UNWRAP ins, CpuContext* ctx) { \
    using T = element::width;                                                                                     \
    store_structures<T>(p, start_ss<T>(base, index), ctx, SVE_UNWRAP names);                                      \
  }
#define STRUCTURES_2(op, bytes, M, width) \
  STRUCTURES(op, 2, width, bytes, (SVE_OUT(a), SVE_OUT(b)), (SVE_IN_V(a), SVE_IN_V(b)), (a, b))
#define STRUCTURES_3(op, bytes, M, width)                                                                        \
  STRUCTURES(op, 3, width, bytes, (SVE_OUT(a), SVE_OUT(b), SVE_OUT(c)), (SVE_IN_V(a), SVE_IN_V(b), SVE_IN_V(c)), \
             (a, b, c))
#define STRUCTURES_4(op, bytes, M, width)                                           \
  STRUCTURES(op, 4, width, bytes, (SVE_OUT(a), SVE_OUT(b), SVE_OUT(c), SVE_OUT(d)), \
             (SVE_IN_V(a), SVE_IN_V(b), SVE_IN_V(c), SVE_IN_V(d)), (a, b, c, d))

SVE_EACH_SAME_SIZE(STRUCTURES_2, E2)
SVE_EACH_SAME_SIZE(STRUCTURES_3, E3)
SVE_EACH_SAME_SIZE(STRUCTURES_4, E4)
