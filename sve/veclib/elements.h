// The element types of routine names, and the frame that every routine shares: element counts, the governing predicate,
// the element loops over values. A routine works at the length in `vl_word`, whatever that is.
#pragma once

#include "sve/lanes/lanes.h"
#include "sve/lanes/predicate_bits.h"
#include "sve/veclib/in_place.h"
#include "sve/veclib/types.h"

namespace sve::element {

// Floating-point elements travel as raw bits.
using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using S8 = std::int8_t;
using S16 = std::int16_t;
using S32 = std::int32_t;
using S64 = std::int64_t;
using F16 = std::uint16_t;
using F32 = std::uint32_t;
using F64 = std::uint64_t;  // a single-precision value in a 64-bit element
using D64 = std::uint64_t;
using H16 = std::uint16_t;
using H32 = std::uint32_t;  // a half-precision value in a wider element
using H64 = std::uint64_t;
using B8 = std::uint8_t;
using P = std::uint8_t;  // predicates without an element size work on bytes
using P8 = std::uint8_t;
using P16 = std::uint16_t;
using P32 = std::uint32_t;
using P64 = std::uint64_t;

}  // namespace sve::element

namespace sve::veclib {

// ---- The two representations: values at any length, and registers in place at the built one ----

/// Vector length in use, in 64-bit granules. The top six bits of the word do not count.
inline std::size_t granules(const CpuContext* context) { return context->vl_word & 0x3ffffffu; }
constexpr std::size_t granules(const in_place::CpuContext*) { return vector_granules; }

/// The length word whole.
inline std::uint64_t length_word(const CpuContext* context) { return context->vl_word; }
constexpr std::uint64_t length_word(const in_place::CpuContext*) { return vector_granules; }

/// The result that `write(bytes)` forms: each element from that place of the sources alone, so that it may be written
/// over them.
template <class Write>
[[gnu::always_inline]] inline VectorV element_wise(const CpuContext*, Write write) {
  VectorV r;
  write(r.bytes);
  return r;
}
template <class Write>
[[gnu::always_inline]] inline in_place::VectorV element_wise(const in_place::CpuContext* context, Write write) {
  write(context->destination);
  return {context->destination};
}

/// The same where an element depends on other places as well: `write` never writes over a source.
template <class Write>
[[gnu::always_inline]] inline VectorV apart(const CpuContext* context, Write write) {
  return element_wise(context, write);
}
template <class Write>
[[gnu::always_inline]] inline in_place::VectorV apart(const in_place::CpuContext* context, Write write) {
  write(context->result);
  return {context->result};
}

/// The same where `write` may end in a fault, which must have changed no register.
template <class Write>
[[gnu::always_inline]] inline VectorV whole_or_nothing(const CpuContext* context, Write write) {
  return element_wise(context, write);
}
template <class Write>
[[gnu::always_inline]] inline in_place::VectorV whole_or_nothing(in_place::CpuContext* context, Write write) {
  write(context->aside);
  return {context->aside};
}

/// Clears the bits `first` to `first` + n - 1 of a first-fault register, which lie in one group.
inline void clear_bits(PredV& ffr, std::size_t first, std::size_t n) {
  ffr.words[first / 64] &= ~(((std::uint64_t{1} << n) - 1) << (first % 64));
}
inline void clear_bits(in_place::PredV& ffr, std::size_t first, std::size_t n) { std::memset(ffr.bytes + first, 0, n); }

/// Bytes of a vector at the length in use.
template <class Context>
constexpr std::size_t length_bytes(const Context* context) {
  return granules(context) * 8;
}

/// Elements of T at the length in use.
template <class T, class Context>
constexpr std::size_t count(const Context* context) {
  return granules(context) * 8 / sizeof(T);
}

/// Elements of T in the whole 16-byte pieces that cover the length in use. The element loops below run over these: what
/// a vector holds above its length is undefined, so that computing it too costs nothing but spares a remainder loop.
template <class T, class Context>
constexpr std::size_t covering_count(const Context* context) {
  return (granules(context) + 1) / 2 * (16 / sizeof(T));
}
static_assert(vector_bytes % 16 == 0, "what covers a register in place is the register");

/// The predicate bit of vector byte `i`.
inline bool bit(const PredV& p, std::size_t i) { return p.words[i / 64] >> (i % 64) & 1; }
inline bool bit(const in_place::PredV& p, std::size_t i) { return p.bytes[i] & 1; }

/// Whether element `i` of T is active: the bit of its lowest byte.
template <class T, class Predicate>
inline bool active(const Predicate& p, std::size_t i) {
  return bit(p, i * sizeof(T));
}

/// Whether every element of T is active, where that is quickly told.
template <class T>
inline bool known_to_be_all(const PredV&) {
  return false;
}
template <class T>
inline bool known_to_be_all(const in_place::PredV& p) {
  return sve::all_active<T>(p.bytes);
}

/// A predicate in byte form, as the element loops take it: up to the length in use, and what covers it.
struct BytePredicate {
  explicit BytePredicate(const PredV& p, const CpuContext* context) {
    unpack_bits(p.words, bytes, covering_count<std::uint8_t>(context));
  }
  operator const byte*() const { return bytes; }
  alignas(32) byte bytes[256];
};
inline BytePredicate as_bytes(const PredV& p, const CpuContext* context) { return BytePredicate(p, context); }
inline const byte* as_bytes(const in_place::PredV& p, const in_place::CpuContext*) { return p.bytes; }

/// The predicate whose bytes `bytes` are, up to the length in use; 0 above it.
inline PredV packed(const byte* bytes, const CpuContext* context) {
  PredV p{};
  pack_bits(bytes, p.words, length_bytes(context));
  return p;
}
/// A predicate register as a value.
inline PredV packed(const in_place::PredV& p) {
  PredV r{};
  pack_register(p.bytes, r.words);
  return r;
}

// ---- Element loops. `op` must be pure: it is evaluated for inactive elements too. ----

/// First operand a, predicate, second operand b: active ? op(a, b) : a.
template <class T, class Vector, class Predicate, class Second, class Context, class Op>
[[gnu::always_inline]] inline auto merging(const Vector& a, const Predicate& p, const Second& b, const Context* context,
                                           Op op) {
  return element_wise(
      context, [&](byte * r) __attribute__((always_inline)) {
        merge_lanes<T>(r, a.bytes, as_bytes(p, context), covering_count<T>(context), op, a.bytes, b.bytes);
      });
}

/// Old destination, predicate, source: active ? op(a) : old.
template <class T, class Vector, class Predicate, class Context, class Op>
[[gnu::always_inline]] inline auto merging_unary(const Vector& old, const Predicate& p, const Vector& a,
                                                 const Context* context, Op op) {
  return element_wise(
      context, [&](byte * r) __attribute__((always_inline)) {
        merge_lanes<T>(r, old.bytes, as_bytes(p, context), covering_count<T>(context), op, a.bytes);
      });
}

/// Accumulator or first operand, predicate, two operands: active ? op(a, b, c) : a.
template <class T, class Vector, class Predicate, class Context, class Op>
[[gnu::always_inline]] inline auto merging_ternary(const Vector& a, const Predicate& p, const Vector& b,
                                                   const Vector& c, const Context* context, Op op) {
  return element_wise(
      context, [&](byte * r) __attribute__((always_inline)) {
        merge_lanes<T>(r, a.bytes, as_bytes(p, context), covering_count<T>(context), op, a.bytes, b.bytes, c.bytes);
      });
}

/// op of each element of the sources, unpredicated.
template <class T, class Context, class Op, class... Sources>
[[gnu::always_inline]] inline auto mapped(const Context* context, Op op, const Sources&... src) {
  return element_wise(
      context, [&](byte * r)
                   __attribute__((always_inline)) { map_lanes<T>(r, covering_count<T>(context), op, src.bytes...); });
}

/// The same into a temporary of the body.
template <class T, class Context, class Op, class... Sources>
[[gnu::always_inline]] inline VectorV mapped_aside(const Context* context, Op op, const Sources&... src) {
  VectorV r;
  map_lanes<T>(r.bytes, covering_count<T>(context), op, src.bytes...);
  return r;
}

/// Under a zeroing predicate: active ? op(src...) : 0.
template <class T, class Predicate, class Context, class Op, class... Sources>
[[gnu::always_inline]] inline auto zeroing(const Predicate& p, const Context* context, Op op, const Sources&... src) {
  return element_wise(
      context, [&](byte * r) __attribute__((always_inline)) {
        zero_lanes<T>(r, as_bytes(p, context), covering_count<T>(context), op, src.bytes...);
      });
}

/// A vector with the element `index` of T of each 16-byte segment in all of the segment's places.
template <class T, class Vector, class Context>
inline VectorV segments_filled(const Vector& v, std::uint64_t index, const Context* context) {
  const BytePiece places = BytePiece{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15} & byte{sizeof(T) - 1};
  const BytePiece from = places + static_cast<byte>(index * sizeof(T));
  VectorV r;
  for (std::size_t i = 0; i < covering_count<byte>(context); i += 16)
    store_piece(r.bytes + i, __builtin_shuffle(load_piece(v.bytes + i), from));
  return r;
}

/// The low element of T of a 64-bit unit in all the unit's places.
template <class T>
constexpr std::uint64_t replicated(std::uint64_t unit) {
  if constexpr (sizeof(T) < 8) {
    unit &= static_cast<UnsignedOf<T>>(~UnsignedOf<T>{0});
    for (unsigned shift = 8 * sizeof(T); shift < 64; shift *= 2) unit |= unit << shift;
  }
  return unit;
}

}  // namespace sve::veclib
