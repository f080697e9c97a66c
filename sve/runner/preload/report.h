// The totals and counts that a process prints when it ends.
#pragma once

#include <signal.h>

#include "sve/report/run_data.h"
#include "sve/runner/preload/thread_block.h"

namespace sve::runner {

using sve::ProcessEnd, sve::Text;

/// What the options say of it, and the program's name. Opens what will be written to, since later the program may have
/// closed its stderr, changed its root directory or given up its rights.
void start_report(const char* program_name, bool totals, bool counts, const char* counts_file, bool counts_file_begun);

/// In a forked child: it counts from nothing and has a file of its own if the name holds a %p.
void restart_report();

/// The program has put another file in the place of its stderr.
void stderr_changed();

/// Prints totals and counts and leaves the data for a report, once a process. `signal` where one is how it ends.
void report(ProcessEnd how, int signal = 0);

/// The same before death by a signal, with the words for a fault of the program and for an instruction that is of
/// another extension of the architecture.
void report_death(ThreadBlock* block, const siginfo_t& info);

/// Exec has failed after the report was printed: there will be another one.
void report_again();

/// One line of the runner's own, "sve-run: " and `text`, on the stderr that the process began with.
void print_line(const char* text);

}  // namespace sve::runner
