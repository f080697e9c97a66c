// The process as a whole: its options and its copies.
#pragma once

namespace sve::runner {

/// Takes over the signals of the process. Called once, as early as can be: nothing of libc is ready.
void serve_traps(char** environment);

/// Whether this process emulates. Not so on a processor that has SVE itself.
bool is_active();

/// Whether the program has restricted its system calls, or is about to: nothing is called then but what serves a trap,
/// which is rt_sigreturn, and what prints the total, which is write.
bool is_sandboxed();
void sandbox_begins();
/// Finds out whether it has begun unseen, by a system call of the program's own.
void notice_sandbox();

/// Whether programs that ask are told that there is SVE.
bool announces();

/// Around fork: the copy has whole tables, and counts from nothing.
void before_fork();
void after_fork_in_parent();
void after_fork_in_child();

/// The environment that a new program needs to be emulated too, beginning with LD_PRELOAD=.
const char* library_path();
const char* options_text();

}  // namespace sve::runner
