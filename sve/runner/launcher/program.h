// Finding a program and judging whether sve-run can run it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sve::runner {

/// Exit statuses of a runner's own failures, as `env` has them.
inline constexpr int status_failed = 125;          ///< the runner itself
inline constexpr int status_not_executable = 126;  ///< the program is there and cannot be run
inline constexpr int status_not_found = 127;

/// A finding: `status` 0 and the path, or a status and one line that names the thing and the remedy.
struct Finding {
  int status = 0;
  std::string path;
  std::string error;
};

/// Looks `name` up as the shell does: a name with a '/' is a path, any other is searched for in `search_path`.
Finding find_program(std::string_view name, std::string_view search_path);

/// What the kernel runs for `program`, the first of `words`: for a script its interpreter, which comes before it in the
/// words then.
Finding resolve_scripts(const Finding& program, std::vector<std::string>& words);

/// Checks that the program at `path` is one for AArch64.
Finding check_machine(const std::string& path);

/// What is to be known of an AArch64 program before it is run.
struct ProgramKind {
  bool is_dynamic = false, is_library = false;
  bool has_glibc = false;
  std::string loader;
  bool changes_user = false;       ///< set-user-ID or set-group-ID, to another one
  bool gets_capabilities = false;  ///< from its file, for this user
  bool is_go = false;
  std::string sanitizer;  ///< the library of one that it was linked with, which must come first of all; empty if none
};
ProgramKind kind_of(const std::string& path);

/// Checks that preloading reaches the program at `path`: a dynamically linked AArch64 program for glibc.
Finding check_program(const std::string& path);

}  // namespace sve::runner
