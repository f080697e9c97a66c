// Gather loads and scatter stores, and the first-fault and non-fault loads.
#include "sve/fault/fault_capture.h"
#include "sve/veclib/define.h"
#include "sve/veclib/memory.h"

using namespace sve;
using namespace sve::veclib;

namespace {

using u64 = std::uint64_t;

// What an element of the offset vector adds to the base: itself, zero-extended, or its low 32 bits extended.
constexpr auto whole = [](auto offset) { return u64{offset}; };
constexpr auto sxtw = [](auto offset) {
  return static_cast<u64>(static_cast<std::int64_t>(static_cast<std::int32_t>(offset)));
};
constexpr auto uxtw = [](auto offset) { return u64{static_cast<std::uint32_t>(offset)}; };

// How each kind of access forms the address of element e.
template <class T, class Vector>
auto vector_plus(const Vector& v, u64 offset) {
  return [&v, offset](std::size_t e) { return u64{load<unsigned_of<T>>(v.bytes, e)} + offset; };
}
template <class T, class Vector, class Extend>
auto base_plus(u64 base, const Vector& v, std::size_t scale, Extend extend) {
  return [&v, base, scale, extend](std::size_t e) { return base + extend(load<unsigned_of<T>>(v.bytes, e)) * scale; };
}
template <class M>
auto contiguous(u64 start) {
  return [start](std::size_t e) { return start + e * sizeof(M); };
}

// Active elements in rising order; an inactive one forms no address and becomes 0.
template <class T, class M, class Predicate, class Context, class Address>
auto gather(const Predicate& p, Context* ctx, Address address) {
  return whole_or_nothing(ctx, [&](byte* r) {
    const std::size_t n = count<T>(ctx);
    if (known_to_be_all<T>(p)) {
#pragma GCC unroll 32
      for (std::size_t e = 0; e < n; ++e) {
        store<T>(r, e, static_cast<T>(read_plain<M>(address(e))));
        asm volatile("" ::: "memory");  // in rising order: a fault names the first element that has one
      }
    } else {
      for (std::size_t e = 0; e < n; ++e)
        store<T>(r, e, active<T>(p, e) ? static_cast<T>(read_plain<M>(address(e))) : T{0});
    }
  });
}

template <class T, class M, class Predicate, class Vector, class Context, class Address>
void scatter(const Predicate& p, const Vector& v, const Context* ctx, Address address) {
  const std::size_t n = count<T>(ctx);
  const auto one = [&](std::size_t e) { write_plain<M>(address(e), static_cast<M>(load<T>(v.bytes, e))); };
  if (known_to_be_all<T>(p)) {
#pragma GCC unroll 32
    for (std::size_t e = 0; e < n; ++e) one(e);
  } else {
    for (std::size_t e = 0; e < n; ++e)
      if (active<T>(p, e)) one(e);
  }
}

// A guarded read of each active element until the first that faults; from there upward every element is 0 and its bits
// of the first-fault register are cleared, active or not. The first active element is guarded like any other: no load
// of this kind ever faults.
template <class T, class M, class Predicate, class Context, class Address>
auto load_guarded(const Predicate& p, Context* ctx, Address address) {
  return whole_or_nothing(ctx, [&](byte* r) {
    const guarded_reads guard;
    const std::size_t n = count<T>(ctx);
    std::size_t e = 0;
    for (; e < n; ++e) {
      std::make_unsigned_t<M> element{0};
      if (active<T>(p, e) && !guarded_read(address(e), element)) break;
      store<T>(r, e, static_cast<T>(static_cast<M>(element)));
    }
    for (; e < n; ++e) {
      store<T>(r, e, T{0});
      clear_bits(ctx->ffr, e * sizeof(T), sizeof(T));
    }
  });
}

}  // namespace

namespace {

// The same for a contiguous span. Where all of it can be copied, the elements need no guard of their own.
template <class T, class M, class Predicate, class Context>
auto load_guarded_span(const Predicate& p, Context* ctx, u64 start) {
  const guarded_reads guard;
  const std::size_t bytes = count<T>(ctx) * sizeof(M);
  byte span[sizeof(VectorV)];
  if (bytes >= 8 && guarded_copy(span, start, bytes))
    return gather<T, M>(p, ctx, contiguous<M>(reinterpret_cast<u64>(span)));
  return load_guarded<T, M>(p, ctx, contiguous<M>(start));
}

}  // namespace

#define SVE_DEFINE_GATHER_VS(...) SVE_DEFINE(VectorV, (SVE_IN_P(p), SVE_IN_V(v), SVE_IN_U(s), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_GATHER_SV(...) SVE_DEFINE(VectorV, (SVE_IN_P(p), SVE_IN_U(s), SVE_IN_V(v), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_SCATTER_VS(...) \
  SVE_DEFINE(void, (SVE_IN_P(p), SVE_IN_V(v), SVE_IN_U(s), SVE_IN_V(data), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_SCATTER_SV(...) \
  SVE_DEFINE(void, (SVE_IN_P(p), SVE_IN_U(s), SVE_IN_V(v), SVE_IN_V(data), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_LOAD_SI(...) SVE_DEFINE(VectorV, (SVE_IN_P(p), SVE_IN_U(base), SVE_IN_S(imm), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_LOAD_SS(...) \
  SVE_DEFINE(VectorV, (SVE_IN_P(p), SVE_IN_U(base), SVE_IN_U(index), SVE_CTX), __VA_ARGS__)

// One address form each, for loads of memory type M plain and first-fault, and for stores. VI: vector of bases and an
// immediate count of elements; VS: vector of byte offsets and a base; SV: base and a vector of scaled offsets.
#define LOADS_VI(digit, M, ...)                                                                                 \
  SVE_DEFINE_GATHER_VS(Load##digit##VIZ, (gather<T, M>(p, ctx, vector_plus<T>(v, s * sizeof(M)))), __VA_ARGS__) \
  SVE_DEFINE_GATHER_VS(LoadFF##digit##VIZ, (load_guarded<T, M>(p, ctx, vector_plus<T>(v, s * sizeof(M)))), __VA_ARGS__)
#define LOADS_VS(digit, form, extend, M, ...)                                                                 \
  SVE_DEFINE_GATHER_VS(Load##digit##form, (gather<T, M>(p, ctx, base_plus<T>(s, v, 1, extend))), __VA_ARGS__) \
  SVE_DEFINE_GATHER_VS(LoadFF##digit##form, (load_guarded<T, M>(p, ctx, base_plus<T>(s, v, 1, extend))), __VA_ARGS__)
#define LOADS_SV(digit, form, extend, M, ...)                                                                         \
  SVE_DEFINE_GATHER_SV(Load##digit##form, (gather<T, M>(p, ctx, base_plus<T>(s, v, sizeof(M), extend))), __VA_ARGS__) \
  SVE_DEFINE_GATHER_SV(LoadFF##digit##form, (load_guarded<T, M>(p, ctx, base_plus<T>(s, v, sizeof(M), extend))),      \
                       __VA_ARGS__)
#define STORES_VI(digit, M, ...) \
  SVE_DEFINE_SCATTER_VS(Store##digit##VIZ, (scatter<T, M>(p, data, ctx, vector_plus<T>(v, s * sizeof(M)))), __VA_ARGS__)
#define STORES_VS(digit, form, extend, M, ...) \
  SVE_DEFINE_SCATTER_VS(Store##digit##form, (scatter<T, M>(p, data, ctx, base_plus<T>(s, v, 1, extend))), __VA_ARGS__)
#define STORES_SV(digit, form, extend, M, ...)                                                                    \
  SVE_DEFINE_SCATTER_SV(Store##digit##form, (scatter<T, M>(p, data, ctx, base_plus<T>(s, v, sizeof(M), extend))), \
                        __VA_ARGS__)
#define CONTIGUOUS_FF(digit, M, ...) \
  SVE_DEFINE_LOAD_SS(CLoadFF##digit##LSSZ, (load_guarded_span<T, M>(p, ctx, base + index * sizeof(M))), __VA_ARGS__)
#define CONTIGUOUS_NF(digit, M, ...)                                                                                \
  SVE_DEFINE_LOAD_SI(CLoadNF##digit##SIZ,                                                                           \
                     (load_guarded_span<T, M>(p, ctx, base + static_cast<u64>(imm) * (count<T>(ctx) * sizeof(M)))), \
                     __VA_ARGS__)

LOADS_VI(1, std::uint8_t, U32, U64)
LOADS_VI(1, std::int8_t, S32, S64)
LOADS_VI(2, std::uint16_t, U32, U64)
LOADS_VI(2, std::int16_t, S32, S64)
LOADS_VI(4, std::uint32_t, U32, U64)
LOADS_VI(4, std::int32_t, S64)
LOADS_VI(8, std::uint64_t, U64)

LOADS_VS(1, VSZ, whole, std::uint8_t, U32, U64)
LOADS_VS(1, VSZ, whole, std::int8_t, S32, S64)
LOADS_VS(2, VSZ, whole, std::uint16_t, U32, U64)
LOADS_VS(2, VSZ, whole, std::int16_t, S32, S64)
LOADS_VS(4, VSZ, whole, std::uint32_t, U32, U64)
LOADS_VS(4, VSZ, whole, std::int32_t, S64)
LOADS_VS(8, VSZ, whole, std::uint64_t, U64)
LOADS_VS(1, XVSZ, sxtw, std::uint8_t, U32, U64)
LOADS_VS(1, XVSZ, sxtw, std::int8_t, S32, S64)
LOADS_VS(2, XVSZ, sxtw, std::uint16_t, U32, U64)
LOADS_VS(2, XVSZ, sxtw, std::int16_t, S32, S64)
LOADS_VS(4, XVSZ, sxtw, std::uint32_t, U32, U64)
LOADS_VS(4, XVSZ, sxtw, std::int32_t, S64)
LOADS_VS(8, XVSZ, sxtw, std::uint64_t, U64)
LOADS_VS(1, YVSZ, uxtw, std::uint8_t, U64)
LOADS_VS(1, YVSZ, uxtw, std::int8_t, S64)
LOADS_VS(2, YVSZ, uxtw, std::uint16_t, U64)
LOADS_VS(2, YVSZ, uxtw, std::int16_t, S64)
LOADS_VS(4, YVSZ, uxtw, std::uint32_t, U64)
LOADS_VS(4, YVSZ, uxtw, std::int32_t, S64)
LOADS_VS(8, YVSZ, uxtw, std::uint64_t, U64)

LOADS_SV(2, SVZ, whole, std::uint16_t, U32, U64)
LOADS_SV(2, SVZ, whole, std::int16_t, S32, S64)
LOADS_SV(4, SVZ, whole, std::uint32_t, U32, U64)
LOADS_SV(4, SVZ, whole, std::int32_t, S64)
LOADS_SV(8, SVZ, whole, std::uint64_t, U64)
LOADS_SV(2, XSVZ, sxtw, std::uint16_t, U32, U64)
LOADS_SV(2, XSVZ, sxtw, std::int16_t, S32, S64)
LOADS_SV(4, XSVZ, sxtw, std::uint32_t, U32, U64)
LOADS_SV(4, XSVZ, sxtw, std::int32_t, S64)
LOADS_SV(8, XSVZ, sxtw, std::uint64_t, U64)
LOADS_SV(2, YSVZ, uxtw, std::uint16_t, U64)
LOADS_SV(2, YSVZ, uxtw, std::int16_t, S64)
LOADS_SV(4, YSVZ, uxtw, std::uint32_t, U64)
LOADS_SV(4, YSVZ, uxtw, std::int32_t, S64)
LOADS_SV(8, YSVZ, uxtw, std::uint64_t, U64)

STORES_VI(1, std::uint8_t, U32, U64)
STORES_VI(2, std::uint16_t, U32, U64)
STORES_VI(4, std::uint32_t, U32, U64)
STORES_VI(8, std::uint64_t, U64)
STORES_VS(1, VSZ, whole, std::uint8_t, U32, U64)
STORES_VS(2, VSZ, whole, std::uint16_t, U32, U64)
STORES_VS(4, VSZ, whole, std::uint32_t, U32, U64)
STORES_VS(8, VSZ, whole, std::uint64_t, U64)
STORES_VS(1, XVSZ, sxtw, std::uint8_t, U32, U64)
STORES_VS(2, XVSZ, sxtw, std::uint16_t, U32, U64)
STORES_VS(4, XVSZ, sxtw, std::uint32_t, U32, U64)
STORES_VS(8, XVSZ, sxtw, std::uint64_t, U64)
STORES_VS(1, YVSZ, uxtw, std::uint8_t, U64)
STORES_VS(2, YVSZ, uxtw, std::uint16_t, U64)
STORES_VS(4, YVSZ, uxtw, std::uint32_t, U64)
STORES_VS(8, YVSZ, uxtw, std::uint64_t, U64)
STORES_SV(2, SVZ, whole, std::uint16_t, U32, U64)
STORES_SV(4, SVZ, whole, std::uint32_t, U32, U64)
STORES_SV(8, SVZ, whole, std::uint64_t, U64)
STORES_SV(2, XSVZ, sxtw, std::uint16_t, U32, U64)
STORES_SV(4, XSVZ, sxtw, std::uint32_t, U32, U64)
STORES_SV(8, XSVZ, sxtw, std::uint64_t, U64)
STORES_SV(2, YSVZ, uxtw, std::uint16_t, U64)
STORES_SV(4, YSVZ, uxtw, std::uint32_t, U64)
STORES_SV(8, YSVZ, uxtw, std::uint64_t, U64)

CONTIGUOUS_FF(1, std::uint8_t, U8, U16, U32, U64)
CONTIGUOUS_FF(1, std::int8_t, S16, S32, S64)
CONTIGUOUS_FF(2, std::uint16_t, U16, U32, U64)
CONTIGUOUS_FF(2, std::int16_t, S32, S64)
CONTIGUOUS_FF(4, std::uint32_t, U32, U64)
CONTIGUOUS_FF(4, std::int32_t, S64)
CONTIGUOUS_FF(8, std::uint64_t, U64)
CONTIGUOUS_NF(1, std::uint8_t, U8, U16, U32, U64)
CONTIGUOUS_NF(1, std::int8_t, S16, S32, S64)
CONTIGUOUS_NF(2, std::uint16_t, U16, U32, U64)
CONTIGUOUS_NF(2, std::int16_t, S32, S64)
CONTIGUOUS_NF(4, std::uint32_t, U32, U64)
CONTIGUOUS_NF(4, std::int32_t, S64)
CONTIGUOUS_NF(8, std::uint64_t, U64)
