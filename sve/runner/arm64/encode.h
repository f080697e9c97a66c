// AArch64 instructions as data: the forms that the runner's code is made of, one line each, and their encoding.
//
// A form is the word with all fields zero, its fields in the order of the assembler's operands, and that syntax, in
// which %0 to %3 stand for the fields. The syntax is for tests and for traces.
#pragma once

#include <cstdint>

namespace sve::arm64 {

using word = std::uint32_t;

/// `width` bits from `low`, which hold the operand divided by 1 << `scale`.
struct Field {
  unsigned char low = 0, width = 0, scale = 0;
  bool is_signed = false;
};

struct Form {
  const char* syntax;
  word base;
  Field fields[4];
};

/// A register number from `low`.
constexpr Field reg(unsigned char low) { return {low, 5}; }
constexpr Field uimm(unsigned char low, unsigned char width, unsigned char scale = 0) { return {low, width, scale}; }
constexpr Field simm(unsigned char low, unsigned char width, unsigned char scale = 0) {
  return {low, width, scale, true};
}

/// Whether a field can hold the operand.
constexpr bool fits(const Field& f, std::int64_t operand) {
  // The multiple of 1 << `scale` in whose range of 1 << `width` from the least one it must lie.
  const std::uint64_t least = f.is_signed ? std::uint64_t{1} << (f.width - 1 + f.scale) : 0;
  const std::uint64_t above = ~std::uint64_t{0} << (f.width + f.scale), below = (std::uint64_t{1} << f.scale) - 1;
  return ((static_cast<std::uint64_t>(operand) + least) & (above | below)) == 0;
}

constexpr word encode_field(const Field& f, std::int64_t operand) {
  return (static_cast<word>(operand >> f.scale) & ((word{1} << f.width) - 1)) << f.low;
}

// ---- Vector instructions of several element sizes ----

enum class VectorKind : std::uint8_t {
  three,         ///< v, v, v
  two,           ///< v, v
  two_and_zero,  ///< v, v, #0
  across,        ///< a scalar of the element's size, v
  narrow,        ///< elements of twice the size to the low half
  left,          ///< v, v, number
  right,
  wide,       ///< elements of the low half to twice the size
  wide_high,  ///< of the high half
  structure,  ///< registers from v on, [x], by as much as they hold
  fp_three,   ///< as `three`, half precision encoded apart
  fp_two
};

struct VectorForm {
  const char* name;
  VectorKind kind;
  std::uint8_t sizes;  ///< which exist, bit 0 bytes
  word base;
};

/// The word for elements of `size`, 0 bytes to 3 doublewords; `m` is the second source or the number of a shift.
constexpr word encode(const VectorForm& f, unsigned size, unsigned d, unsigned n, unsigned m = 0) {
  word w = f.base | d | n << 5;
  switch (f.kind) {
    case VectorKind::three:
      return w | size << 22 | m << 16;
    case VectorKind::left:
      return w | ((8u << size) + m) << 16;
    case VectorKind::right:
      return w | ((16u << size) - m) << 16;
    case VectorKind::wide:
    case VectorKind::wide_high:
      return w | 8u << size << 16;
    case VectorKind::structure:
      return w | size << 10;
    case VectorKind::fp_three:
      return size == 1 ? (w ^ 0x0060c000) | m << 16 : w | (size == 3 ? 1u << 22 : 0) | m << 16;
    case VectorKind::fp_two:
      return size == 1 ? w ^ 0x00580000 : w | (size == 3 ? 1u << 22 : 0);
    default:
      return w | size << 22;
  }
}

#define SVE_ARM64_VECTOR(name, kind, sizes, base) \
  inline constexpr VectorForm v_##name{#name, VectorKind::kind, sizes, base};
#include "sve/runner/arm64/vector_forms.inc"
#undef SVE_ARM64_VECTOR

#define SVE_ARM64_FORM(name, syntax, base, ...) inline constexpr Form name{syntax, base, {__VA_ARGS__}};
#include "sve/runner/arm64/forms.inc"
#undef SVE_ARM64_FORM

}  // namespace sve::arm64
