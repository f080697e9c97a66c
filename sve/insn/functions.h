// The instruction functions. Each works on `cpu_state` at the model's fixed vector length, takes its element size from
// its operands and returns 0; the stubs report themselves unimplemented and return 2.
#pragma once

#include "sve/insn/signatures.h"

#ifndef SVE_FOR_EACH
#define SVE_FORGETS_REPEAT
#endif
#include "sve/lanes/repeat.h"

#define SVE_DECLARE_FUNCTION(shape, name) sve::insn::shape sve_##name;
#define SVE_FUNCTIONS(shape, ...) SVE_FOR_EACH_WITH(SVE_DECLARE_FUNCTION, shape, __VA_ARGS__)
#define SVE_UNREACHED_FUNCTIONS(shape, ...) SVE_FOR_EACH_WITH(SVE_DECLARE_FUNCTION, shape, __VA_ARGS__)
#include "sve/insn/functions.inc"
#undef SVE_UNREACHED_FUNCTIONS
#undef SVE_FUNCTIONS

#define SVE_STUBS(shape, ...) SVE_FOR_EACH_WITH(SVE_DECLARE_FUNCTION, shape, __VA_ARGS__)
#include "sve/insn/stubs.inc"
#undef SVE_STUBS
#undef SVE_DECLARE_FUNCTION

/// Interleaves of buffers of a register's size in units of `1 << es` bytes, shared by the Z and the P forms of an
/// instruction.
void sve_zip1(char* dst, char* a, char* b, element_size es);
void sve_zip2(char* dst, char* a, char* b, element_size es);
void sve_uzp1(char* dst, char* a, char* b, element_size es);

#ifdef SVE_FORGETS_REPEAT
#include "sve/lanes/forget_repeat.h"
#endif
