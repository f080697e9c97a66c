// Instruction words: a row's fixed bits with random operands, overlaps of registers made frequent.
#pragma once

#include <cstdint>
#include <span>

#include "tests/conformance/random.h"
#include "tests/conformance/row_info.h"

namespace conformance {

/// Operand combinations that the encoding reserves, so that there is nothing to compare with.
struct ReservedRule {
  const char* name;
  const char* reason;
  bool (*matches)(const RowInfo&, std::uint32_t word);
  std::uint64_t fired;
};
std::span<ReservedRule> reserved_rules();

/// A word of the row that no reserved rule matches.
std::uint32_t make_word(const RowInfo& row, RandomSource& random);

}  // namespace conformance
