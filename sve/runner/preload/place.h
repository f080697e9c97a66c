// Where an instruction of the program stands, in words for its user.
#pragma once

#include <cstdint>

#include "sve/report/text.h"
#include "sve/runner/preload/thread_block.h"

namespace sve::runner {

/// Adds "FUNCTION+0x10 (FILE)" to the line; "FILE+0x1234" where the file names no function there, and the address alone
/// where it lies in no file or nothing may be opened any more. Takes 5 KB of stack.
void add_place(Text<1024>& line, ThreadBlock* block, std::uintptr_t address);

}  // namespace sve::runner
