// Every routine of the vector library. `SVE_ROUTINES(vvm, AbdVVM, U8, S8)` in routines.inc
// declares VecU8AbdVVM and VecS8AbdVVM with the shape sve::routine::vvm.
#pragma once

#include "sve/state/repeat.h"
#include "sve/veclib/signatures.h"

#define SVE_DECLARE_ROUTINE(shape_and_op, type) SVE_DECLARE_ROUTINE_1(type, SVE_UNWRAP shape_and_op)
#define SVE_DECLARE_ROUTINE_1(...) SVE_DECLARE_ROUTINE_2(__VA_ARGS__)
#define SVE_DECLARE_ROUTINE_2(type, shape, op) sve::routine::shape Vec##type##op;
#define SVE_UNWRAP(...) __VA_ARGS__
#define SVE_ROUTINES(shape, op, ...) SVE_FOR_EACH_WITH(SVE_DECLARE_ROUTINE, (shape, op), __VA_ARGS__)

#include "sve/veclib/routines.inc"
#undef SVE_ROUTINES
