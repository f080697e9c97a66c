// Replacing one instruction of the program while its other threads may execute it.
#pragma once

#include <cstdint>

namespace sve::runner {

struct TriedAgain;

/// Finds out which way of writing is seen by what executes. Once, at start; and in a copy of the process.
void start_patching();

/// Writes `to` at `address` if `from` stands there. Returns false, with nothing changed, where writing is refused,
/// `from` does not stand there, or others share the memory. The page never is writable and executable at once, unless
/// the program has made it so.
bool patch_word(std::uint32_t* address, std::uint32_t from, std::uint32_t to);

/// For a thread that could not execute what stands at `pc`: whether to try again, since that may have been the moment
/// of a patch. Only if it fails there again, with no patch between, is it the program's own fault.
bool may_try_again(TriedAgain& last, std::uintptr_t pc);

}  // namespace sve::runner
