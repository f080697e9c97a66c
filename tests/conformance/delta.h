// What an instruction changed, as bytes: the form in which outcomes are compared between builds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/conformance/model.h"

namespace conformance {

/// The places where the outcome differs from the start, with their new contents.
std::vector<std::uint8_t> encode_change(const TestCase& c, const window::Contents& original,
                                        const ModelOutcome& result);

/// A hash over everything that the case starts from.
std::uint64_t hash_case(const TestCase& c);

/// Names the first place in which two outcomes differ, and what stands there on each side; empty if they are equal.
std::string first_difference(const TestCase& c, const Outcome& expected, const Outcome& actual);

/// The operands of the case, for a reader.
std::string describe_inputs(const TestCase& c);

}  // namespace conformance
