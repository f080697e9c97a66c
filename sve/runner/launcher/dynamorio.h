// Running a program under DynamoRIO: where it is, and the command.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "sve/runner/launcher/command_line.h"
#include "sve/runner/launcher/program.h"

namespace sve::runner {

using ReadableTest = std::function<bool(const std::string&)>;

/// The installation that `given`, or else one of the environment's variables, names: its own directory, or the one of
/// its CMake files.
Finding find_dynamorio(const std::string& given, const std::function<const char*(const char*)>& variable,
                       const ReadableTest& readable);

/// The words of the command that runs `program`, at its path, with the arguments of `line`.
std::vector<std::string> dynamorio_command(const CommandLine& line, const std::string& home, const std::string& client,
                                           const std::string& program);

}  // namespace sve::runner
