// Execution of one case by the model.
#pragma once

#include <span>

#include "tests/conformance/rules.h"

namespace conformance {

struct ModelOutcome : Outcome {
  int code;           ///< of the handler
  bool stray_bytes;   ///< a predicate byte holds more than its bit 0
  bool instr_stored;  ///< the word stands in `instr`
};

/// Runs the row's handler on the case's state, the floating-point registers of the host set as the program's would be.
/// The window holds the memory, and is saved afterwards for a row that stores.
void run_model(const TestCase& c, ModelOutcome& result);

/// A start of the model with what the processor has no place for.
struct ModelStart {
  Machine state;
  std::uint64_t nzcv_beside_flags;
  std::uint32_t fpcr_beside_modes;
  std::uint8_t stray_predicate_bits[sve::vector_bytes];  ///< in every predicate byte, above bit 0
};
struct ModelEnd {
  Machine state;       ///< flags and modes alone in `nzcv` and `fpcr`
  std::uint64_t nzcv;  ///< all of it
  std::uint32_t fpcr;
};

/// Runs the words through `execute_sve_instruction`, the floating-point registers of the host set once, at the start.
/// Returns how many were executed.
unsigned run_sequence(const ModelStart& start, std::span<const std::uint32_t> words, ModelEnd& end);

}  // namespace conformance
