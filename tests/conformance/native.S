// Loads every register from a block, branches to one word, and stores every register back. One pair of routines for each
// register that can hold the block's address, since a word may use any three of the others.

#include "sve/state/built_length.h"
#include "tests/machine_registers.S"

        .arch armv8.2-a+sve

#define TARGET_OFFSET 280
#define VECTOR_BYTES (SVE_VECTOR_BITS / 8)
#define P_OFFSET (V_OFFSET + 32 * VECTOR_BYTES)
#define HOST_SP_OFFSET ((P_OFFSET + 17 * VECTOR_BYTES / 8 + 15) / 16 * 16)
#define HOST_FPCR_OFFSET (HOST_SP_OFFSET + 8)

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
        push_kept
        mov     x1, sp
        str     x1, [x0, #HOST_SP_OFFSET]
        mrs     x1, fpcr
        str     x1, [x0, #HOST_FPCR_OFFSET]
        mov     x1, #P_OFFSET
        add     x1, x0, x1
        ldr     p0, [x1, #16, mul vl]
        wrffr   p0.b
        predicates ldr, x1
        add     x1, x0, #V_OFFSET
        vectors ldr, x1
        load_system x0, x1
        ldr     x1, [x0, #SP_OFFSET]
        mov     sp, x1
        mov     x\skip, x0
        each_x  ldr, x\skip, \skip
        ldr     x\skip, [x\skip, #TARGET_OFFSET]
        br      x\skip
        .size   conformance_enter_\skip, . - conformance_enter_\skip

        .global conformance_leave_\skip
        .type   conformance_leave_\skip, %function
// Reached by a branch, with the block's address in x\skip.
conformance_leave_\skip:
        each_x  str, x\skip, \skip
        mov     x0, x\skip
        store_system x0, x1
        mrs     x1, fpcr
        str     x1, [x0, #FPCR_OFFSET]
        mov     x1, sp
        str     x1, [x0, #SP_OFFSET]
        add     x1, x0, #V_OFFSET
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
        pop_kept
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
