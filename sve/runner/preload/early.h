// The library's start before every constructor: when the loader relocates it.
#pragma once

namespace sve::runner {

/// A value of the auxiliary vector, before libc tells it; 0 if it is not there.
unsigned long early_auxiliary_value(unsigned long type);

}  // namespace sve::runner
