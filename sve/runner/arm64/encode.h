// AArch64 instructions as data: the forms that the runner's code is made of, one line each, and their encoding.
//
// A form is the word with all fields zero, its fields in the order of the assembler's operands, and that syntax, in
// which %0 to %3 stand for the fields. The syntax is for tests and for traces.
#pragma once

#include <cstdint>

namespace sve::arm64 {

using word = std::uint32_t;

/// `width` bits from `low`, which hold the operand divided by 1 << `scale`.
struct field {
  unsigned char low = 0, width = 0, scale = 0;
  bool is_signed = false;
};

struct form {
  const char* syntax;
  word base;
  field fields[4];
};

/// A register number from `low`.
constexpr field reg(unsigned char low) { return {low, 5}; }
constexpr field uimm(unsigned char low, unsigned char width, unsigned char scale = 0) { return {low, width, scale}; }
constexpr field simm(unsigned char low, unsigned char width, unsigned char scale = 0) {
  return {low, width, scale, true};
}

/// Whether a field can hold the operand.
constexpr bool fits(const field& f, std::int64_t operand) {
  if (operand & ((std::int64_t{1} << f.scale) - 1)) return false;
  const std::int64_t value = operand >> f.scale;
  if (f.width == 0) return operand == 0;
  const std::int64_t half = std::int64_t{1} << (f.width - 1);
  return f.is_signed ? value >= -half && value < half : value >= 0 && value < 2 * half;
}

constexpr word encode_field(const field& f, std::int64_t operand) {
  return (static_cast<word>(operand >> f.scale) & ((word{1} << f.width) - 1)) << f.low;
}

#define SVE_ARM64_FORM(name, syntax, base, ...) inline constexpr form name{syntax, base, {__VA_ARGS__}};
#include "sve/runner/arm64/forms.inc"
#undef SVE_ARM64_FORM

}  // namespace sve::arm64
