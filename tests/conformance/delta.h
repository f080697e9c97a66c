// What an instruction changed, as bytes: the form in which outcomes are compared between builds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/conformance/model.h"

namespace conformance {

/// The places where the outcome differs from the start, with their new contents.
std::vector<std::uint8_t> encode_change(const test_case& c, const window::contents& original,
                                        const model_outcome& result);

/// A hash over everything that the case starts from.
std::uint64_t hash_case(const test_case& c);

/// Names the first place in which two outcomes differ, and what stands there on each side; empty if they are equal.
std::string first_difference(const test_case& c, const outcome& expected, const outcome& actual);

/// The operands of the case, for a reader.
std::string describe_inputs(const test_case& c);

}  // namespace conformance
