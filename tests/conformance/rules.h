// What the model must answer: the processor's own answer, changed by named rules where a difference is required or
// where the processor's answer cannot be had.
#pragma once

#include <cstdint>
#include <span>

#include "tests/conformance/machine.h"
#include "tests/conformance/row_info.h"
#include "tests/conformance/window.h"

namespace conformance {

/// One case: what both sides start from.
struct TestCase {
  const RowInfo* row;
  unsigned number;
  std::uint32_t word;
  Machine state;
};

/// One side's outcome. The memory is that of the window.
struct Outcome {
  Machine state;
  window::Contents memory;
  bool faulted = false;
  std::uint64_t fault_address = 0;
  std::uint64_t unspecified_begin = 0, unspecified_end = 0;  ///< memory of which nothing is said
};

struct DifferenceRule {
  const char* name;
  const char* reason;
  std::uint64_t fired;
  bool exists = true;  ///< at this vector length
};
std::span<DifferenceRule> difference_rules();

/// The word that the processor is asked about: the row's own, or one of the same meaning where it has none.
std::uint32_t native_word(const RowInfo& row, std::uint32_t word);

/// Whether the processor can be asked. Gives the register that only the native word names its value.
bool prepare_native(TestCase& c);

/// Turns the processor's outcome (or the start, where it was not asked) into the required one, and counts the rules
/// that changed it. `original` is the memory at the start.
void apply_rules(const TestCase& c, bool native_ran, const window::Contents& original, Outcome& expected);

}  // namespace conformance
