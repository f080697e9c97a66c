// States that hurt: edge values at every element size, special floating-point values, awkward predicates, addresses
// around page ends, all floating-point modes.
#pragma once

#include <cstdint>

#include "tests/conformance/machine.h"
#include "tests/conformance/random.h"
#include "tests/conformance/row_info.h"

namespace conformance {

/// Random contents of every register, the ground on which the cases of one row stand.
void make_background(RandomSource& random, Machine& state);

/// Renews what the word names. `number` is the case's number in its row and selects the floating-point mode. A memory
/// row gets addresses in the window; one that has no fault handling of its own touches unreadable memory only with
/// `faults`.
void make_state(const RowInfo& row, std::uint32_t word, unsigned number, bool faults, RandomSource& random,
                Machine& state);

}  // namespace conformance
