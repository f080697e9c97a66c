// Finding the library of a vector length.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "sve/runner/launcher/program.h"

namespace sve::runner {

/// The library whose name is `prefix`, the length in bits and ".so", in the first of `places` that has it. Without it
/// the error names the lengths that there are, or, if there is none, says `remedy`.
Finding find_library(const std::vector<std::filesystem::path>& places, std::string_view prefix, const std::string& bits,
                     const std::string& remedy);

/// The length of the first library with the prefix in a list of paths, in bits; empty if there is none.
std::string length_in(std::string_view list, std::string_view prefix);

}  // namespace sve::runner
