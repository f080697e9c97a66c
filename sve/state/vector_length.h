// The model's vector length. The build says it, once; everything else derives from it.
#pragma once

#include <cstddef>

#include "sve/state/built_length.h"
#include "sve/state/integers.h"

namespace sve {

/// Bits in a Z register: one of the architecture's lengths.
inline constexpr std::size_t vector_bits = SVE_VECTOR_BITS;
static_assert(vector_bits % 128 == 0 && vector_bits >= 128 && vector_bits <= 2048);
/// Bytes in a Z register, and in a predicate in its byte-per-vector-byte form.
inline constexpr std::size_t vector_bytes = vector_bits / 8;
/// 64-bit granules in a Z register, the unit of `CpuContext::vl_word`.
inline constexpr std::size_t vector_granules = vector_bytes / 8;
/// Bytes of a predicate in the architecture's packed form.
inline constexpr std::size_t predicate_bytes = vector_bytes / 8;

/// Elements of `T` in a Z register.
template <class T>
inline constexpr std::size_t lanes = vector_bytes / sizeof(T);

}  // namespace sve
