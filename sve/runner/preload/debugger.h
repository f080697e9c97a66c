// What a debugger asks of the library: where things are, and functions to be called in the stopped process. Its side is
// gdb.py.
#pragma once

namespace sve::runner {

/// Whether another process traces this one.
bool is_traced();

/// Tells the debugger that the fault that comes next is the process's end.
void death_is_near();

}  // namespace sve::runner
