// sve-run --check: what would happen to a program, and why.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "sve/runner/launcher/command_line.h"
#include "sve/runner/launcher/program.h"

namespace sve::runner {

/// The exit status where the program would start, and may end by an instruction that is refused.
inline constexpr int status_may_end = 1;

/// What is asked of the machine.
struct Surroundings {
  std::string kernel;  ///< its name and release
  bool has_sve = false;
  std::string search_path;
  /// The paths of the libraries that the loader would load for a program; a name without a '/' was not found.
  std::function<std::vector<std::string>(const std::string& program)> libraries;
  /// Whether DynamoRIO and its client are there: its directory.
  std::function<Finding()> dynamorio;
};

struct CheckResult {
  int status = 0;
  std::string text;  ///< lines of a label and what it is about; the last one is the verdict
};

CheckResult check(const CommandLine& line, const Surroundings& here);

}  // namespace sve::runner
