// What trampolines share that load every register of a program from a block and store every register back. The block
// begins with X0 to X30; behind them are these, and the vectors.
#define SP_OFFSET 248
#define NZCV_OFFSET 256
#define FPSR_OFFSET 264
#define FPCR_OFFSET 272
#define V_OFFSET 288

// \op of every general register but two.
        .macro  each_x op, at, skip, skip_too=-1
        .irp    n, 0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,29,30
        .if     (\n - \skip) && (\n - \skip_too)
        \op     x\n, [\at, #8 * \n]
        .endif
        .endr
        .endm

        .macro  load_system at, through
        ldr     \through, [\at, #FPSR_OFFSET]
        msr     fpsr, \through
        ldr     \through, [\at, #FPCR_OFFSET]
        msr     fpcr, \through
        ldr     \through, [\at, #NZCV_OFFSET]
        msr     nzcv, \through
        .endm
        .macro  store_system at, through
        mrs     \through, nzcv
        str     \through, [\at, #NZCV_OFFSET]
        mrs     \through, fpsr
        str     \through, [\at, #FPSR_OFFSET]
        .endm

// What a function keeps for its caller, on the stack.
        .macro  push_kept
        stp     x29, x30, [sp, #-16]!
        stp     x19, x20, [sp, #-16]!
        stp     x21, x22, [sp, #-16]!
        stp     x23, x24, [sp, #-16]!
        stp     x25, x26, [sp, #-16]!
        stp     x27, x28, [sp, #-16]!
        stp     d8, d9, [sp, #-16]!
        stp     d10, d11, [sp, #-16]!
        stp     d12, d13, [sp, #-16]!
        stp     d14, d15, [sp, #-16]!
        .endm
        .macro  pop_kept
        ldp     d14, d15, [sp], #16
        ldp     d12, d13, [sp], #16
        ldp     d10, d11, [sp], #16
        ldp     d8, d9, [sp], #16
        ldp     x27, x28, [sp], #16
        ldp     x25, x26, [sp], #16
        ldp     x23, x24, [sp], #16
        ldp     x21, x22, [sp], #16
        ldp     x19, x20, [sp], #16
        ldp     x29, x30, [sp], #16
        .endm
