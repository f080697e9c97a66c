// Every routine of the vector library, declared.
#pragma once

#include "sve/veclib/signatures.h"

#ifndef SVE_FOR_EACH
#define SVE_FORGETS_REPEAT
#endif
#include "sve/lanes/repeat.h"

#define SVE_DECLARE_ROUTINE(shape, type, op) sve::routine::shape Vec##type##op;
#define SVE_ROUTINES(shape, types, ...) SVE_FOR_EACH_PAIR(SVE_DECLARE_ROUTINE, shape, types, __VA_ARGS__)
#include "sve/veclib/routines.inc"
#undef SVE_ROUTINES
#undef SVE_DECLARE_ROUTINE

#ifdef SVE_FORGETS_REPEAT
#include "sve/lanes/forget_repeat.h"
#endif
