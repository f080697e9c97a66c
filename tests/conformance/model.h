// Execution of one case by the model.
#pragma once

#include "tests/conformance/rules.h"

namespace conformance {

struct model_outcome : outcome {
  int code;           ///< of the handler
  bool stray_bytes;   ///< a predicate byte holds more than its bit 0
  bool instr_stored;  ///< the word stands in `instr`
};

/// Runs the row's handler on the case's state, the floating-point registers of the host set as the program's would be.
/// The window holds the memory, and is saved afterwards for a row that stores.
void run_model(const test_case& c, model_outcome& result);

}  // namespace conformance
