// The operand lists of all rows.
#include "tests/conformance/row_operands.h"

namespace sve::decode {
namespace {
using conformance::described_form;
using conformance::described_row;
using described_rows = std::span<const described_row>;
}  // namespace
}  // namespace sve::decode

#undef DIRECT
#undef DIRECT_FP
#undef LIBRARY
#undef PREFETCH
#undef SVE_ROWS
#define DIRECT(key, name, function, ...) \
  { #name, described_form<__VA_ARGS__>::value }
#define DIRECT_FP(key, name, function, ...) DIRECT(key, name, function, __VA_ARGS__)
#define LIBRARY(key, name, ...) \
  { #name, described_form<__VA_ARGS__>::value }
#define PREFETCH(key, name) \
  { #name, {} }
#define SVE_ROWS(name, ...) static constexpr described_row described_##name[] = __VA_ARGS__;

#include "sve/decode/table_31_13.cpp"        // NOLINT
#include "sve/decode/table_31_20.cpp"        // NOLINT
#include "sve/decode/table_31_21.cpp"        // NOLINT
#include "sve/decode/table_31_21_15_13.cpp"  // NOLINT
#include "sve/decode/table_other.cpp"        // NOLINT

namespace conformance {

std::span<const std::span<const described_row>> described_tables() {
#define SVE_MAP(name, ...) sve::decode::described_##name,
  static constexpr std::span<const described_row> tables[] = {
#include "sve/decode/maps.inc"
  };
#undef SVE_MAP
  return tables;
}

}  // namespace conformance
