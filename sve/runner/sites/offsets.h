// Where entries find what they need, as numbers for assembly too. From the thread's cpu_state.
#pragma once

#define SVE_STATE_IN_BLOCK 272
#define SVE_STATE_X30 240
#define SVE_STATE_PC 256
#define SVE_STATE_NZCV 264
#define SVE_STATE_FPSR 272
#define SVE_STATE_Z 288
#define SVE_ENTRY_RUNNING 5792
#define SVE_ENTRY_PENDING 5800
#define SVE_ENTRY_USED 5808
#define SVE_ENTRY_FULL 5816
#define SVE_ENTRY_BORROWED_X 5880
#define SVE_ENTRY_GATHERED 5952
// The thread's counts, behind its block.
#define SVE_ENTRY_COUNTS (65536 - SVE_STATE_IN_BLOCK)
// What an entry pushes onto the program's stack: X0, X1, X30.
#define SVE_ENTRY_PUSHED 32
