// Loads every register from a block, branches to one word, and stores every register back. One pair of routines for each
// register that can hold the block's address, since a word may use any three of the others.

#include "sve/state/built_length.h"

        .arch armv8.2-a+sve

#define SP_OFFSET 248
#define NZCV_OFFSET 256
#define FPSR_OFFSET 264
#define FPCR_OFFSET 272
#define TARGET_OFFSET 280
#define Z_OFFSET 288
#define VECTOR_BYTES (SVE_VECTOR_BITS / 8)
#define P_OFFSET (Z_OFFSET + 32 * VECTOR_BYTES)
#define HOST_SP_OFFSET ((P_OFFSET + 17 * VECTOR_BYTES / 8 + 15) / 16 * 16)
#define HOST_FPCR_OFFSET (HOST_SP_OFFSET + 8)

// Every general register but \skip, by pairs that avoid it.
        .macro  general op, at, skip
        .irp    n, 0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,29,30
        .if     \n - \skip
        \op     x\n, [\at, #8 * \n]
        .endif
        .endr
        .endm

        .macro  vectors op, at
        .irp    n, 0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,29,30,31
        \op     z\n, [\at, #\n, mul vl]
        .endr
        .endm

        .macro  predicates op, at
        .irp    n, 0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15
        \op     p\n, [\at, #\n, mul vl]
        .endr
        .endm

        .macro  trampoline skip
        .global conformance_enter_\skip
        .type   conformance_enter_\skip, %function
// void enter(block*): the block's target is the word's place.
conformance_enter_\skip:
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
        mov     x1, sp
        str     x1, [x0, #HOST_SP_OFFSET]
        mrs     x1, fpcr
        str     x1, [x0, #HOST_FPCR_OFFSET]
        mov     x1, #P_OFFSET
        add     x1, x0, x1
        ldr     p0, [x1, #16, mul vl]
        wrffr   p0.b
        predicates ldr, x1
        add     x1, x0, #Z_OFFSET
        vectors ldr, x1
        ldr     x1, [x0, #FPSR_OFFSET]
        msr     fpsr, x1
        ldr     x1, [x0, #FPCR_OFFSET]
        msr     fpcr, x1
        ldr     x1, [x0, #NZCV_OFFSET]
        msr     nzcv, x1
        ldr     x1, [x0, #SP_OFFSET]
        mov     sp, x1
        mov     x\skip, x0
        general ldr, x\skip, \skip
        ldr     x\skip, [x\skip, #TARGET_OFFSET]
        br      x\skip
        .size   conformance_enter_\skip, . - conformance_enter_\skip

        .global conformance_leave_\skip
        .type   conformance_leave_\skip, %function
// Reached by a branch, with the block's address in x\skip.
conformance_leave_\skip:
        general str, x\skip, \skip
        mov     x0, x\skip
        mrs     x1, nzcv
        str     x1, [x0, #NZCV_OFFSET]
        mrs     x1, fpsr
        str     x1, [x0, #FPSR_OFFSET]
        mrs     x1, fpcr
        str     x1, [x0, #FPCR_OFFSET]
        mov     x1, sp
        str     x1, [x0, #SP_OFFSET]
        add     x1, x0, #Z_OFFSET
        vectors str, x1
        mov     x1, #P_OFFSET
        add     x1, x0, x1
        predicates str, x1
        rdffr   p0.b
        str     p0, [x1, #16, mul vl]
        ldr     x1, [x0, #HOST_FPCR_OFFSET]
        msr     fpcr, x1
        ldr     x1, [x0, #HOST_SP_OFFSET]
        mov     sp, x1
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
        ret
        .size   conformance_leave_\skip, . - conformance_leave_\skip
        .endm

        .text
        .p2align 4
        trampoline 25
        trampoline 26
        trampoline 27
        trampoline 28

        .section .note.GNU-stack, "", %progbits
