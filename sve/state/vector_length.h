// The model's vector length. The number 112 is written here once; everything else derives from it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sve {

using byte = std::uint8_t;

/// Bytes in a Z register, and in a predicate in its byte-per-vector-byte form.
inline constexpr std::size_t vector_bytes = 112;
/// Bits in a Z register.
inline constexpr std::size_t vector_bits = vector_bytes * 8;
/// 64-bit granules in a Z register, the unit of `CpuContext::vl_word`.
inline constexpr std::size_t vector_granules = vector_bytes / 8;
/// Bytes of a predicate in the architecture's packed form.
inline constexpr std::size_t predicate_bytes = vector_bytes / 8;

/// Elements of `T` in a Z register.
template <class T>
inline constexpr std::size_t lanes = vector_bytes / sizeof(T);

}  // namespace sve
