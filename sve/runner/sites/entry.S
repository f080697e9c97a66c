// The ends that all entries share: from the program's registers to the thread's cpu_state, and back.
#include "sve/runner/sites/offsets.h"

        .text

// Entries of the file of V registers, whose low parts Z0 to Z31 have in common with them.
        .macro each_v op
        .irp    n, 0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,29,30,31
        \op    q\n, [x19, #SVE_STATE_Z + SVE_VECTOR_BITS / 8 * \n]
        .endr
        .endm

        .macro  define name
        .globl  \name
        .hidden \name
\name:
        .endm

// Called by an entry that has pushed X0 and X30 and got the thread's block into X0. Saves the program's registers and
// leaves X19 at the cpu_state and SP on the runner's stack. A signal from here to the run's end waits for that end.
        .p2align 4
        define  sve_entry_save
        cbz     x0, sve_entry_without_block
        add     x0, x0, #SVE_STATE_IN_BLOCK
        str     x1, [x0, #8]
        stp     x2, x3, [x0, #16]
        stp     x4, x5, [x0, #32]
        stp     x6, x7, [x0, #48]
        stp     x8, x9, [x0, #64]
        stp     x10, x11, [x0, #80]
        stp     x12, x13, [x0, #96]
        stp     x14, x15, [x0, #112]
        stp     x16, x17, [x0, #128]
        stp     x18, x19, [x0, #144]
        stp     x20, x21, [x0, #160]
        stp     x22, x23, [x0, #176]
        stp     x24, x25, [x0, #192]
        stp     x26, x27, [x0, #208]
        stp     x28, x29, [x0, #224]
        mov     x19, x0
        each_v  str
        ldp     x1, x2, [sp]
        str     x1, [x19]
        add     x3, sp, #SVE_ENTRY_PUSHED
        stp     x2, x3, [x19, #SVE_STATE_X30]
        mrs     x0, nzcv
        str     x0, [x19, #SVE_STATE_NZCV]
        mrs     x0, fpsr
        mrs     x1, fpcr
        orr     x0, x0, x1, lsl #32
        str     x0, [x19, #SVE_STATE_FPSR]
        sub     sp, x19, #SVE_STATE_IN_BLOCK
        str     w30, [x19, #SVE_ENTRY_USED]
        str     x30, [x19, #SVE_ENTRY_RUNNING]
        ret

// A thread that the runner does not know yet: the trap makes it known, and serves the run.
        define  sve_entry_without_block
        udf     #0

// Called at an entry's end, with X19 at the cpu_state. Returns with the program's registers but X18, X19 and X30. X20 to
// X29 are as they were: the handlers have preserved them, and what an instruction has written of them the entry loads.
        .p2align 4
        define  sve_entry_restore
        ldr     w0, [x19, #SVE_ENTRY_PENDING]
        cbnz    w0, sve_entry_pending
// From here on the program's state is whole in the cpu_state, which nothing changes any more.
        define  sve_entry_leaving
        str     xzr, [x19, #SVE_ENTRY_RUNNING]
        each_v  ldr
        ldr     w0, [x19, #SVE_STATE_FPSR]
        msr     fpsr, x0
        ldr     x0, [x19, #SVE_STATE_NZCV]
        msr     nzcv, x0
        ldr     x0, [x19, #SVE_STATE_X30 + 8]
        mov     sp, x0
        ldp     x2, x3, [x19, #16]
        ldp     x4, x5, [x19, #32]
        ldp     x6, x7, [x19, #48]
        ldp     x8, x9, [x19, #64]
        ldp     x10, x11, [x19, #80]
        ldp     x12, x13, [x19, #96]
        ldp     x14, x15, [x19, #112]
        ldp     x16, x17, [x19, #128]
        ldp     x0, x1, [x19]
        ret
        define  sve_entry_left

// A signal has waited for the run's end.
        define  sve_entry_pending
        udf     #0

        .section .note.GNU-stack, "", %progbits
