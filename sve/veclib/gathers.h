// The addresses of gathers and scatters, plain and first-fault, and the forms that there are.
#pragma once

#include "sve/veclib/memory.h"

namespace sve::veclib {

// What an element of the offset vector adds to the base: itself, zero-extended, or its low 32 bits extended.
inline constexpr auto whole = [](auto offset) { return u64{offset}; };
inline constexpr auto sxtw = [](auto offset) { return static_cast<u64>(s64{static_cast<s32>(offset)}); };
inline constexpr auto uxtw = [](auto offset) { return u64{static_cast<u32>(offset)}; };

// How each kind of access forms the address of element e.
template <class T, class Vector>
auto vector_plus(const Vector& v, u64 offset) {
  return [&v, offset](std::size_t e) { return u64{load<UnsignedOf<T>>(v.bytes, e)} + offset; };
}
template <class T, class Vector, class Extend>
auto base_plus(u64 base, const Vector& v, std::size_t scale, Extend extend) {
  return [&v, base, scale, extend](std::size_t e) { return base + extend(load<UnsignedOf<T>>(v.bytes, e)) * scale; };
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

}  // namespace sve::veclib

// The same as expressions of a routine's operands: vector of bases and an immediate count of elements, base and vector
// of offsets in bytes, and in elements.
#define SVE_BASES(M, extend) vector_plus<T>(v, s * sizeof(M))
#define SVE_OFFSETS(M, extend) base_plus<T>(s, v, 1, extend)
#define SVE_SCALED(M, extend) base_plus<T>(s, v, sizeof(M), extend)

// MACRO(order, form, address, extend, bytes, M, element types) for every memory type M of every form; `order` is that
// of the operands.
#define SVE_EACH_SCATTER(MACRO)                                     \
  SVE_FROM_BYTES(MACRO, (U32, U64), VS, VIZ, SVE_BASES, whole)      \
  SVE_FROM_BYTES(MACRO, (U32, U64), VS, VSZ, SVE_OFFSETS, whole)    \
  SVE_FROM_BYTES(MACRO, (U32, U64), VS, XVSZ, SVE_OFFSETS, sxtw)    \
  SVE_FROM_BYTES(MACRO, (U64), VS, YVSZ, SVE_OFFSETS, uxtw)         \
  SVE_FROM_HALFWORDS(MACRO, (U32, U64), SV, SVZ, SVE_SCALED, whole) \
  SVE_FROM_HALFWORDS(MACRO, (U32, U64), SV, XSVZ, SVE_SCALED, sxtw) \
  SVE_FROM_HALFWORDS(MACRO, (U64), SV, YSVZ, SVE_SCALED, uxtw)
#define SVE_EACH_GATHER(MACRO)                                             \
  SVE_EACH_SCATTER(MACRO)                                                  \
  SVE_FROM_SIGNED_BYTES(MACRO, (S32, S64), VS, VIZ, SVE_BASES, whole)      \
  SVE_FROM_SIGNED_BYTES(MACRO, (S32, S64), VS, VSZ, SVE_OFFSETS, whole)    \
  SVE_FROM_SIGNED_BYTES(MACRO, (S32, S64), VS, XVSZ, SVE_OFFSETS, sxtw)    \
  SVE_FROM_SIGNED_BYTES(MACRO, (S64), VS, YVSZ, SVE_OFFSETS, uxtw)         \
  SVE_FROM_SIGNED_HALFWORDS(MACRO, (S32, S64), SV, SVZ, SVE_SCALED, whole) \
  SVE_FROM_SIGNED_HALFWORDS(MACRO, (S32, S64), SV, XSVZ, SVE_SCALED, sxtw) \
  SVE_FROM_SIGNED_HALFWORDS(MACRO, (S64), SV, YSVZ, SVE_SCALED, uxtw)
#define SVE_FROM_BYTES(MACRO, types, ...) \
  MACRO(__VA_ARGS__, 1, u8, SVE_UNWRAP types) SVE_FROM_HALFWORDS(MACRO, types, __VA_ARGS__)
#define SVE_FROM_HALFWORDS(MACRO, types, ...)  \
  MACRO(__VA_ARGS__, 2, u16, SVE_UNWRAP types) \
  MACRO(__VA_ARGS__, 4, u32, SVE_UNWRAP types) MACRO(__VA_ARGS__, 8, u64, U64)
#define SVE_FROM_SIGNED_BYTES(MACRO, types, ...) \
  MACRO(__VA_ARGS__, 1, s8, SVE_UNWRAP types) SVE_FROM_SIGNED_HALFWORDS(MACRO, types, __VA_ARGS__)
#define SVE_FROM_SIGNED_HALFWORDS(MACRO, types, ...) \
  MACRO(__VA_ARGS__, 2, s16, SVE_UNWRAP types) MACRO(__VA_ARGS__, 4, s32, S64)
#define SVE_DEFINE_GATHER_VS(...) SVE_DEFINE(VectorV, (SVE_IN_P(p), SVE_IN_V(v), SVE_IN_U(s), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_GATHER_SV(...) SVE_DEFINE(VectorV, (SVE_IN_P(p), SVE_IN_U(s), SVE_IN_V(v), SVE_CTX), __VA_ARGS__)
