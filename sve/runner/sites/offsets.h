// Where entries find what they need, as numbers for assembly too. From the thread's cpu_state.
#pragma once

#include "sve/state/built_length.h"

#define SVE_STATE_IN_BLOCK 272
#define SVE_STATE_X30 240
#define SVE_STATE_PC 256
#define SVE_STATE_NZCV 264
#define SVE_STATE_FPSR 272
#define SVE_STATE_Z 288
#define SVE_STATE_SIZE (SVE_STATE_Z + 49 * (SVE_VECTOR_BITS / 8) + 16)
#define SVE_ENTRY_RUNNING SVE_STATE_SIZE
#define SVE_ENTRY_PENDING (SVE_STATE_SIZE + 8)
#define SVE_ENTRY_USED (SVE_STATE_SIZE + 16)
#define SVE_ENTRY_FULL (SVE_STATE_SIZE + 24)
#define SVE_ENTRY_BORROWED_X (SVE_STATE_SIZE + 88)
#define SVE_ENTRY_GATHERED (SVE_STATE_SIZE + 160)
// The thread's counts, behind its block.
#define SVE_ENTRY_COUNTS (65536 - SVE_STATE_IN_BLOCK)
// What an entry pushes onto the program's stack: X0, X1, X30.
#define SVE_ENTRY_PUSHED 32
