// Running a program under DynamoRIO: where it is, and the command.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "sve/runner/launcher/command_line.h"
#include "sve/runner/launcher/program.h"

namespace sve::runner {

using readable_test = std::function<bool(const std::string&)>;

/// The installation that `given`, or else one of the environment's variables, names: its own directory, or the one of
/// its CMake files.
finding find_dynamorio(const std::string& given, const std::function<const char*(const char*)>& variable,
                       const readable_test& readable);

/// The words of the command that runs `program`, at its path, with the arguments of `line`.
std::vector<std::string> dynamorio_command(const command_line& line, const std::string& home, const std::string& client,
                                           const std::string& program);

}  // namespace sve::runner
