// Running a program for a report: sve-run stays its parent, and has sve-report make the report of what the processes
// have left behind.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "sve/runner/launcher/command_line.h"
#include "sve/runner/launcher/program.h"

namespace sve::runner {

/// Makes the directory for the processes' data, names it in `line`, and looks whether the reports can be written. The
/// finding's path is that of sve-report, which is looked for in `places`.
Finding prepare_reports(CommandLine& line, const std::vector<std::string>& places);

/// Calls `become_program` in a child, passes it the signals that come, waits for its end, and has the reports written.
/// Returns its exit status; dies by its signal.
int run_for_reports(const CommandLine& line, const std::string& sve_report, const std::function<int()>& become_program);

}  // namespace sve::runner
