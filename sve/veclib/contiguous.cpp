// Contiguous, structure and replicating loads and stores, and whole-register fills and spills.
#include "sve/veclib/define.h"
#include "sve/veclib/memory.h"

using namespace sve;
using namespace sve::veclib;

namespace {

using u64 = std::uint64_t;

u64 scaled(std::int64_t imm, std::size_t unit) { return static_cast<u64>(imm) * unit; }

// The start of a contiguous access of M into elements of T by an immediate count of whole transfers.
template <class T, class M, class Context>
u64 start_si(u64 base, std::int64_t imm, const Context* ctx) {
  return base + scaled(imm, count<T>(ctx) * sizeof(M));
}
template <class M>
u64 start_ss(u64 base, u64 index) {
  return base + index * sizeof(M);
}

// Active elements in rising order from packed memory; inactive ones are not read and become 0.
template <class T, class M, class Predicate, class Context>
auto load_from(const Predicate& p, u64 start, Context* ctx) {
  return whole_or_nothing(ctx, [&](byte* r) {
    const std::size_t n = count<T>(ctx);
    for (std::size_t e = 0; e < n; ++e)
      store<T>(r, e, active<T>(p, e) ? static_cast<T>(read_plain<M>(start + e * sizeof(M))) : T{0});
  });
}

template <class T, class M, class Predicate, class Vector, class Context>
void store_to(const Predicate& p, u64 start, const Vector& v, const Context* ctx) {
  const std::size_t n = count<T>(ctx);
  for (std::size_t e = 0; e < n; ++e)
    if (active<T>(p, e)) write_plain<M>(start + e * sizeof(M), static_cast<M>(load<T>(v.bytes, e)));
}

// One read if any element is active, none otherwise.
template <class T, class M, class Predicate, class Context>
auto replicate(const Predicate& p, u64 base, std::int64_t imm, const Context* ctx) {
  const std::size_t n = count<T>(ctx);
  bool any = false;
  for (std::size_t e = 0; e < n; ++e) any = any || active<T>(p, e);
  const T value = any ? static_cast<T>(read_plain<M>(base + scaled(imm, sizeof(M)))) : T{0};
  return zeroing<T>(p, ctx, [value] { return value; });
}

// Whether every element of T of the lowest 128 bits is active, where that is quickly told.
template <class T>
bool unit_known_to_be_all(const PredV&) {
  return false;
}
template <class T>
bool unit_known_to_be_all(const in_place::PredV& p) {
  return !any_of(piece_of_words(first_bytes(sizeof(T))) & ~load_piece(p.bytes));
}

// One quadword, governed by the lowest 16 predicate bits alone, to every 128-bit unit. The count of units reads the
// length word whole.
template <class T, class Predicate, class Context>
auto replicate_quadword(const Predicate& p, u64 address, const Context* ctx) {
  alignas(16) byte unit[16];
  if (unit_known_to_be_all<T>(p) && address % 4096 <= 4096 - sizeof unit)  // in one page: all of it or nothing
    std::memcpy(unit, reinterpret_cast<const void*>(address), sizeof unit);
  else
    for (std::size_t i = 0; i < sizeof unit / sizeof(T); ++i)
      store<T>(unit, i, active<T>(p, i) ? read_plain<T>(address + i * sizeof(T)) : T{0});
  return element_wise(ctx, [&](byte* r) {
    const std::size_t units = length_word(ctx) >> 1;
    for (std::size_t i = 0; i < units; ++i) std::memcpy(r + i * sizeof unit, unit, sizeof unit);
  });
}

// N interleaved streams: structures in rising order, and in each its fields in rising order.
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

#define SVE_DEFINE_LOAD_SI(...) SVE_DEFINE(VectorV, (SVE_IN_P(p), SVE_IN_U(base), SVE_IN_S(imm), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_LOAD_SS(...) \
  SVE_DEFINE(VectorV, (SVE_IN_P(p), SVE_IN_U(base), SVE_IN_U(index), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_STORE_SI(...) \
  SVE_DEFINE(void, (SVE_IN_P(p), SVE_IN_U(base), SVE_IN_S(imm), SVE_IN_V(v), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_STORE_SS(...) \
  SVE_DEFINE(void, (SVE_IN_P(p), SVE_IN_U(base), SVE_IN_U(index), SVE_IN_V(v), SVE_CTX), __VA_ARGS__)

// Loads and stores of memory elements of type M.
#define CONTIGUOUS_LOAD(name, M, ...)                                                                   \
  SVE_DEFINE_LOAD_SI(name##SIZ, (load_from<T, M>(p, start_si<T, M>(base, imm, ctx), ctx)), __VA_ARGS__) \
  SVE_DEFINE_LOAD_SS(name##LSSZ, (load_from<T, M>(p, start_ss<M>(base, index), ctx)), __VA_ARGS__)
#define CONTIGUOUS_STORE(name, M, ...)                                                                     \
  SVE_DEFINE_STORE_SI(name##SIZ, (store_to<T, M>(p, start_si<T, M>(base, imm, ctx), v, ctx)), __VA_ARGS__) \
  SVE_DEFINE_STORE_SS(name##LSSZ, (store_to<T, M>(p, start_ss<M>(base, index), v, ctx)), __VA_ARGS__)
#define REPLICATE(name, M, ...) SVE_DEFINE_LOAD_SI(name##SIZ, (replicate<T, M>(p, base, imm, ctx)), __VA_ARGS__)
#define REPLICATE_QUADWORD(name, ...)                                                                \
  SVE_DEFINE_LOAD_SI(name##QSIZ, replicate_quadword<T>(p, base + scaled(imm, 16), ctx), __VA_ARGS__) \
  SVE_DEFINE_LOAD_SS(name##QSSZ, replicate_quadword<T>(p, base + index * sizeof(T), ctx), __VA_ARGS__)

CONTIGUOUS_LOAD(CLoad1, std::uint8_t, U8, U16, U32, U64)
CONTIGUOUS_LOAD(CLoad1, std::int8_t, S16, S32, S64)
CONTIGUOUS_LOAD(CLoad2, std::uint16_t, U16, U32, U64)
CONTIGUOUS_LOAD(CLoad2, std::int16_t, S32, S64)
CONTIGUOUS_LOAD(CLoad4, std::uint32_t, U32, U64)
CONTIGUOUS_LOAD(CLoad4, std::int32_t, S64)
CONTIGUOUS_LOAD(CLoad8, std::uint64_t, U64)

CONTIGUOUS_STORE(CStore1, std::uint8_t, U8, U16, U32, U64)
CONTIGUOUS_STORE(CStore2, std::uint16_t, U16, U32, U64)
CONTIGUOUS_STORE(CStore4, std::uint32_t, U32, U64)
CONTIGUOUS_STORE(CStore8, std::uint64_t, U64)

REPLICATE(LoadDup1, std::uint8_t, U8, U16, U32, U64)
REPLICATE(LoadDup1, std::int8_t, S16, S32, S64)
REPLICATE(LoadDup2, std::uint16_t, U16, U32, U64)
REPLICATE(LoadDup2, std::int16_t, S32, S64)
REPLICATE(LoadDup4, std::uint32_t, U32, U64)
REPLICATE(LoadDup4, std::int32_t, S64)
REPLICATE(LoadDup8, std::uint64_t, U64)

// Non-temporal forms move the same elements.
CONTIGUOUS_LOAD(CLoadNT1, std::uint8_t, U8)
CONTIGUOUS_STORE(CStoreNT1, std::uint8_t, U8)
CONTIGUOUS_LOAD(CLoadNT2, std::uint16_t, U16)
CONTIGUOUS_STORE(CStoreNT2, std::uint16_t, U16)
CONTIGUOUS_LOAD(CLoadNT4, std::uint32_t, U32)
CONTIGUOUS_STORE(CStoreNT4, std::uint32_t, U32)
CONTIGUOUS_LOAD(CLoadNT8, std::uint64_t, U64)
CONTIGUOUS_STORE(CStoreNT8, std::uint64_t, U64)

REPLICATE_QUADWORD(LoadDup1, U8)
REPLICATE_QUADWORD(LoadDup2, U16)
REPLICATE_QUADWORD(LoadDup4, U32)
REPLICATE_QUADWORD(LoadDup8, U64)

#define SVE_OUT(name) VectorV& name
#define STRUCTURES(N, width, digit, outs, ins, names)                                                               \
  void Vec##width##E##N##Load##digit##SIZ(const PredV& p, u64 base, std::int64_t imm, SVE_UNWRAP outs,              \
                                          CpuContext* ctx) {                                                        \
    using T = element::width;                                                                                       \
    load_structures<T>(p, base + scaled(imm, count<T>(ctx) * N * sizeof(T)), ctx, SVE_UNWRAP names);                \
  }                                                                                                                 \
  void Vec##width##E##N##Load##digit##LSSZ(const PredV& p, u64 base, u64 index, SVE_UNWRAP outs, CpuContext* ctx) { \
    using T = element::width;                                                                                       \
    load_structures<T>(p, start_ss<T>(base, index), ctx, SVE_UNWRAP names);                                         \
  }                                                                                                                 \
  void Vec##width##E##N##Store##digit##SIZ(const PredV& p, u64 base, std::int64_t imm, SVE_UNWRAP ins,              \
                                           CpuContext* ctx) {                                                       \
    using T = element::width;                                                                                       \
    store_structures<T>(p, base + scaled(imm, count<T>(ctx) * N * sizeof(T)), ctx, SVE_UNWRAP names);               \
  }                                                                                                                 \
  void Vec##width##E##N##Store##digit##LSSZ(const PredV& p, u64 base, u64 index, SVE_UNWRAP ins, CpuContext* ctx) { \
    using T = element::width;                                                                                       \
    store_structures<T>(p, start_ss<T>(base, index), ctx, SVE_UNWRAP names);                                        \
  }
#define STRUCTURES_2(width, digit) \
  STRUCTURES(2, width, digit, (SVE_OUT(a), SVE_OUT(b)), (SVE_IN_V(a), SVE_IN_V(b)), (a, b))
#define STRUCTURES_3(width, digit) \
  STRUCTURES(3, width, digit, (SVE_OUT(a), SVE_OUT(b), SVE_OUT(c)), (SVE_IN_V(a), SVE_IN_V(b), SVE_IN_V(c)), (a, b, c))
#define STRUCTURES_4(width, digit)                                              \
  STRUCTURES(4, width, digit, (SVE_OUT(a), SVE_OUT(b), SVE_OUT(c), SVE_OUT(d)), \
             (SVE_IN_V(a), SVE_IN_V(b), SVE_IN_V(c), SVE_IN_V(d)), (a, b, c, d))

STRUCTURES_2(U8, 1)
STRUCTURES_2(U16, 2)
STRUCTURES_2(U32, 4)
STRUCTURES_2(U64, 8)
STRUCTURES_3(U8, 1)
STRUCTURES_3(U16, 2)
STRUCTURES_3(U32, 4)
STRUCTURES_3(U64, 8)
STRUCTURES_4(U8, 1)
STRUCTURES_4(U16, 2)
STRUCTURES_4(U32, 4)
STRUCTURES_4(U64, 8)

// Whole registers, a byte at a time. These read the length word whole.

VectorV VecU64FillSI(u64 base, std::int64_t imm, CpuContext* ctx) {
  VectorV r;
  const std::size_t bytes = std::size_t{ctx->vl_word} * 8;
  for (std::size_t i = 0; i < bytes; ++i)
    r.bytes[i] = static_cast<byte>(ReadMemLib1(base + scaled(imm, bytes) + i, 0, nullptr, ctx));
  return r;
}

void VecU64SpillSI(u64 base, std::int64_t imm, const VectorV& v, CpuContext* ctx) {
  const std::size_t bytes = std::size_t{ctx->vl_word} * 8;
  for (std::size_t i = 0; i < bytes; ++i) WriteMemLib1(v.bytes[i], base + scaled(imm, bytes) + i, ctx);
}

PredV VecPFillSI(u64 base, std::int64_t imm, CpuContext* ctx) {
  PredV r{};
  const std::size_t bytes = ctx->vl_word;
  for (std::size_t i = 0; i < bytes; ++i)
    r.words[i / 8] |= ReadMemLib1(base + scaled(imm, bytes) + i, 0, nullptr, ctx) << (8 * (i % 8));
  return r;
}

void VecPSpillSI(u64 base, std::int64_t imm, const PredV& p, CpuContext* ctx) {
  const std::size_t bytes = ctx->vl_word;
  for (std::size_t i = 0; i < bytes; ++i)
    WriteMemLib1(static_cast<byte>(p.words[i / 8] >> (8 * (i % 8))), base + scaled(imm, bytes) + i, ctx);
}
