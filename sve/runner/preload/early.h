// The library's start before every constructor: when the loader relocates it.
#pragma once

namespace sve::runner {

/// A value of the auxiliary vector where the kernel has put it, for programs and libc to read; null if it is not there.
unsigned long* auxiliary_value(unsigned long type);

}  // namespace sve::runner
