// The data that a process leaves behind for sve-run's report.
#pragma once

#include "sve/report/run_data.h"

namespace sve::runner {

/// From now on data are collected in a directory, with a file for each process. The file is made at once, since later
/// the program may have changed its root directory or given up its rights.
void start_run_data(const char* directory, const char* program_path, bool lanes);

/// In a forked child, which has a file of its own.
void restart_run_data();

/// Writes what is known.
void write_run_data(ProcessEnd how, int signal);

}  // namespace sve::runner
