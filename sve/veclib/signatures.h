// The shapes of the vector library's routines.
#pragma once

#include "sve/state/integers.h"
#include "sve/veclib/types.h"

namespace sve::routine {

#define SVE_BY_VALUE_SHAPE(name, ...) using name = __VA_ARGS__;
#include "sve/veclib/signatures.inc"
#undef SVE_BY_VALUE_SHAPE

}  // namespace sve::routine
