// The process as a whole: its options, its totals, its copies.
#pragma once

namespace sve::runner {

/// Whether this process emulates. Not so on a processor that has SVE itself.
bool is_active();

/// Whether programs that ask are told that there is SVE.
bool announces();

/// Whether this is a vforked child, which runs in its parent's memory.
bool in_borrowed_memory();

/// Prints the totals, once a process.
void report();

/// The same before death by `sig`, with the words for a fault of the program.
void report_death(int sig);

/// The program has begun to exit: whatever closes stderr from here on, the totals still get there.
void exit_begins();

/// Around fork: the copy has whole tables, and counts from nothing.
void before_fork();
void after_fork_in_parent();
void after_fork_in_child();

/// The environment that a new program needs to be emulated too, beginning with LD_PRELOAD=.
const char* library_path();
const char* options_text();

}  // namespace sve::runner
