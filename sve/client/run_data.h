// The data that a process leaves behind for sve-run's report.
#pragma once

#include "sve/decode/dispatch.h"

namespace sve::client {

/// Reads from the environment whether sve-run wants data, and begins their file.
void start_run_data();

/// In a forked child, which has a file of its own.
void restart_run_data();

/// Writes what was counted.
void write_run_data();

/// The handler that a site calls: `handler`, or one that counts lane use, too, where that is asked for.
DecodeHandler counting_handler(DecodeHandler handler);

}  // namespace sve::client
