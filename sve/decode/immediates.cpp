// Expansion of logical and floating-point immediates.
#include <bit>

#include "sve/decode/operands.h"

namespace sve::decode {

std::uint64_t expand_logical_immediate(std::uint32_t field) {
  const std::uint32_t n = Bits<12>::cut(field), immr = Bits<11, 6>::cut(field), imms = Bits<5, 0>::cut(field);
  const std::uint32_t selector = n << 6 | (~imms & 0x3f);
  if (selector == 0) {
    // Reserved (N clear, imms all ones): the element has no width, so that doubling it never reaches 64, and the
    // expansion does not return. Required, so there is no check; the volatile read makes the endless loop one that the
    // language defines.
    volatile bool never_wide_enough = true;
    while (never_wide_enough) {
    }
  }
  const unsigned width = 1u << (std::bit_width(selector) - 1);
  const std::uint32_t levels = width - 1;
  const unsigned ones = (imms & levels) + 1, rotation = immr & levels;
  // 64 ones (N set, imms all ones, reserved) leave an empty element.
  std::uint64_t element = ones == 64 ? 0 : (std::uint64_t{1} << ones) - 1;
  for (unsigned r = 0; r < rotation; ++r) element = element >> 1 | (element & 1) << (width - 1);
  for (unsigned w = width; w < 64; w *= 2) element |= element << w;
  return element;
}

aarch64_sve_fp_dup_imm expand_fp_immediate(std::uint32_t imm8) {
  const std::uint32_t sign = Bits<7>::cut(imm8), b6 = Bits<6>::cut(imm8), exponent = Bits<5, 4>::cut(imm8),
                      fraction = Bits<3, 0>::cut(imm8);
  const std::uint32_t single = sign << 31 | (b6 ^ 1) << 30 | (b6 ? 0x3e000000u : 0) | exponent << 23 | fraction << 19;
  const std::uint32_t half = sign << 15 | (b6 ^ 1) << 14 | (b6 ? 0x3000u : 0) | exponent << 10 | fraction << 6;
  const double wide = std::bit_cast<float>(single);
  return {static_cast<std::uint16_t>(half), single, std::bit_cast<std::uint64_t>(wide)};
}

}  // namespace sve::decode
