// Finding a program and judging whether sve-run can run it.
#pragma once

#include <string>
#include <string_view>

namespace sve::runner {

/// Exit statuses of a runner's own failures, as `env` has them.
inline constexpr int status_failed = 125;          ///< the runner itself
inline constexpr int status_not_executable = 126;  ///< the program is there and cannot be run
inline constexpr int status_not_found = 127;

/// A finding: `status` 0 and the path, or a status and one line that names the thing and the remedy.
struct finding {
  int status = 0;
  std::string path;
  std::string error;
};

/// Looks `name` up as the shell does: a name with a '/' is a path, any other is searched for in `search_path`.
finding find_program(std::string_view name, std::string_view search_path);

/// Checks that the program at `path` is one for AArch64.
finding check_machine(const std::string& path);

/// Checks that preloading reaches the program at `path`: a dynamically linked AArch64 program for glibc.
finding check_program(const std::string& path);

/// The sanitizer's library that the program at `path` was linked with, which must come first of all; empty if none.
std::string sanitizer_of(const std::string& path);

}  // namespace sve::runner
