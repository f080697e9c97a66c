// The element types of routine names, and the frame that every routine shares: element counts, the governing predicate,
// the element loops over values. A routine works at the length in `vl_word`, whatever that is.
#pragma once

#include "sve/lanes/lanes.h"
#include "sve/lanes/predicate_bits.h"
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

/// Vector length in use, in 64-bit granules. The top six bits of the word do not count.
inline std::size_t granules(const CpuContext* context) { return context->vl_word & 0x3ffffffu; }

/// Bytes of a vector at the length in use.
inline std::size_t length_bytes(const CpuContext* context) { return granules(context) * 8; }

/// Elements of T at the length in use.
template <class T>
inline std::size_t count(const CpuContext* context) {
  return granules(context) * 8 / sizeof(T);
}

/// Elements of T in the whole 16-byte pieces that cover the length in use. The element loops below run over these: what
/// a vector holds above its length is undefined, so that computing it too costs nothing but spares a remainder loop.
template <class T>
inline std::size_t covering_count(const CpuContext* context) {
  return (granules(context) + 1) / 2 * (16 / sizeof(T));
}

/// The predicate bit of vector byte `i`.
inline bool bit(const PredV& p, std::size_t i) { return p.words[i / 64] >> (i % 64) & 1; }

/// Whether element `i` of T is active: the bit of its lowest byte.
template <class T>
inline bool active(const PredV& p, std::size_t i) {
  return bit(p, i * sizeof(T));
}

/// A predicate in byte form, as the element loops take it: up to the length in use, and what covers it.
struct byte_predicate {
  explicit byte_predicate(const PredV& p, const CpuContext* context) {
    unpack_bits(p.words, bytes, covering_count<std::uint8_t>(context));
  }
  operator const byte*() const { return bytes; }
  alignas(32) byte bytes[256];
};

/// The predicate whose bytes `bytes` are, up to the length in use; 0 above it.
inline PredV packed(const byte* bytes, const CpuContext* context) {
  PredV p{};
  pack_bits(bytes, p.words, length_bytes(context));
  return p;
}

// ---- Element loops. `op` must be pure: it is evaluated for inactive elements too. ----

/// First operand a, predicate, second operand b: active ? op(a, b) : a.
template <class T, class Op>
inline VectorV merging(const VectorV& a, const PredV& p, const VectorV& b, const CpuContext* context, Op op) {
  VectorV r;
  merge_lanes<T>(r.bytes, a.bytes, byte_predicate(p, context), covering_count<T>(context), op, a.bytes, b.bytes);
  return r;
}

/// Old destination, predicate, source: active ? op(a) : old.
template <class T, class Op>
inline VectorV merging_unary(const VectorV& old, const PredV& p, const VectorV& a, const CpuContext* context, Op op) {
  VectorV r;
  merge_lanes<T>(r.bytes, old.bytes, byte_predicate(p, context), covering_count<T>(context), op, a.bytes);
  return r;
}

/// Accumulator or first operand, predicate, two operands: active ? op(a, b, c) : a.
template <class T, class Op>
inline VectorV merging_ternary(const VectorV& a, const PredV& p, const VectorV& b, const VectorV& c,
                               const CpuContext* context, Op op) {
  VectorV r;
  merge_lanes<T>(r.bytes, a.bytes, byte_predicate(p, context), covering_count<T>(context), op, a.bytes, b.bytes,
                 c.bytes);
  return r;
}

/// op of each element of the sources, unpredicated.
template <class T, class Op, class... Sources>
inline VectorV mapped(const CpuContext* context, Op op, const Sources&... src) {
  VectorV r;
  map_lanes<T>(r.bytes, covering_count<T>(context), op, src.bytes...);
  return r;
}

/// A compare under a zeroing predicate: the first bit of each active element's group is test(a, b), all others 0.
template <class T, class Test, class... Sources>
inline PredV compared(const PredV& p, const CpuContext* context, Test test, const Sources&... src) {
  alignas(32) byte r[256];
  map_lanes<T>(
      r, covering_count<T>(context), [test](auto... x) { return test(x...) ? 1 : 0; }, src.bytes...);
  PredV result = packed(r, context);
  for (int w = 0; w < 4; ++w) result.words[w] = scalar_word(result.words[w]) & scalar_word(p.words[w]);
  return result;
}

/// The low element of T of a 64-bit unit in all the unit's places.
template <class T>
constexpr std::uint64_t replicated(std::uint64_t unit) {
  if constexpr (sizeof(T) < 8) {
    unit &= static_cast<unsigned_of<T>>(~unsigned_of<T>{0});
    for (unsigned shift = 8 * sizeof(T); shift < 64; shift *= 2) unit |= unit << shift;
  }
  return unit;
}

}  // namespace sve::veclib
