// Contiguous loads and stores: predicated, non-temporal (as plain ones), replicating, and whole-register fills and
// spills.
#include "sve/veclib/memory.h"

using namespace sve;
using namespace sve::veclib;

namespace {

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

}  // namespace

#define SVE_DEFINE_STORE_SI(...) \
  SVE_DEFINE(void, (SVE_IN_P(p), SVE_IN_U(base), SVE_IN_S(imm), SVE_IN_V(v), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_STORE_SS(...) \
  SVE_DEFINE(void, (SVE_IN_P(p), SVE_IN_U(base), SVE_IN_U(index), SVE_IN_V(v), SVE_CTX), __VA_ARGS__)

#define LOAD(op, bytes, M, ...)                                                                              \
  SVE_DEFINE_LOAD_SI(op##bytes##SIZ, (load_from<T, M>(p, start_si<T, M>(base, imm, ctx), ctx)), __VA_ARGS__) \
  SVE_DEFINE_LOAD_SS(op##bytes##LSSZ, (load_from<T, M>(p, start_ss<M>(base, index), ctx)), __VA_ARGS__)
#define STORE(op, bytes, M, ...)                                                                                \
  SVE_DEFINE_STORE_SI(op##bytes##SIZ, (store_to<T, M>(p, start_si<T, M>(base, imm, ctx), v, ctx)), __VA_ARGS__) \
  SVE_DEFINE_STORE_SS(op##bytes##LSSZ, (store_to<T, M>(p, start_ss<M>(base, index), v, ctx)), __VA_ARGS__)
#define REPLICATE(op, bytes, M, ...) \
  SVE_DEFINE_LOAD_SI(op##bytes##SIZ, (replicate<T, M>(p, base, imm, ctx)), __VA_ARGS__)
#define REPLICATE_QUADWORD(op, bytes, M, ...)                                                             \
  SVE_DEFINE_LOAD_SI(op##bytes##QSIZ, replicate_quadword<T>(p, base + scaled(imm, 16), ctx), __VA_ARGS__) \
  SVE_DEFINE_LOAD_SS(op##bytes##QSSZ, replicate_quadword<T>(p, start_ss<M>(base, index), ctx), __VA_ARGS__)

SVE_EACH_EXTENDING(LOAD, CLoad)
SVE_EACH_NARROWING(STORE, CStore)
SVE_EACH_EXTENDING(REPLICATE, LoadDup)
SVE_EACH_SAME_SIZE(REPLICATE_QUADWORD, LoadDup)

// Non-temporal forms move the same elements.
SVE_EACH_SAME_SIZE(LOAD, CLoadNT)
SVE_EACH_SAME_SIZE(STORE, CStoreNT)

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
