// The floating-point library: IEEE 754 half, single and double precision in integer instructions, exact to the bit.
//
// Operations are templates over the type that holds an element's raw bits (`unsigned short`, `unsigned int`,
// `unsigned long`) and take the `FPSCR` of the operation by reference: controls are read from it, status bits are added
// to it. Nothing traps, and every operand has a defined result. A loop over elements gives each operation a copy of the
// control word and folds the copies' status bits under `sve::fpsr_mask`.
#pragma once

#include "sve/fplib/arithmetic.h"    // IWYU pragma: export
#include "sve/fplib/compares.h"      // IWYU pragma: export
#include "sve/fplib/control.h"       // IWYU pragma: export
#include "sve/fplib/conversions.h"   // IWYU pragma: export
#include "sve/fplib/core.h"          // IWYU pragma: export
#include "sve/fplib/division.h"      // IWYU pragma: export
#include "sve/fplib/estimates.h"     // IWYU pragma: export
#include "sve/fplib/normal_lanes.h"  // IWYU pragma: export
