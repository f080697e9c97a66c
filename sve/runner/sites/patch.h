// Replacing one instruction of the program while its other threads may execute it.
#pragma once

#include <cstdint>

namespace sve::runner {

/// Finds out which way of writing is seen by what executes. Once, at start; and in a copy of the process.
void start_patching();

/// Writes `to` at `address` if `from` stands there. Returns false, with nothing changed, where writing is refused,
/// `from` does not stand there, or others share the memory. The page never is writable and executable at once, unless
/// the program has made it so.
bool patch_word(std::uint32_t* address, std::uint32_t from, std::uint32_t to);

/// For a thread that could not execute what stands at `pc`: whether it met the moment of a patch, and now can.
bool was_in_work(std::uintptr_t pc);

}  // namespace sve::runner
