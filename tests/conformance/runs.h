// Runs of two to eight instructions in one go: what one leaves behind for the next beside its result.
#pragma once

#include <cstdint>

namespace conformance {

/// Runs `count` runs, or only number `one` when that is not negative, on the processor and through
/// `execute_sve_instruction`, and compares the state after each. Returns the number that differ.
unsigned compare_runs(unsigned count, std::uint64_t seed, long one);

}  // namespace conformance
