// void translation_enter(registers*, const void* pad): loads every register of the program but X0 and X1, which the pad
// loads, and goes there. What leaves goes to translation_leave, which stores every register and returns to the caller.
#include "tests/machine_registers.S"

        .macro  each_v op, at
        .irp    n, 0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,29,30,31
        \op     q\n, [\at, #V_OFFSET + 16 * \n]
        .endr
        .endm

        .bss
        .p2align 4
host:   .skip 32

        .text
        .p2align 4
        .global translation_enter
        .type translation_enter, %function
translation_enter:
        push_kept
        adrp    x2, host
        add     x2, x2, :lo12:host
        mov     x3, sp
        mrs     x4, fpcr
        stp     x3, x4, [x2]
        str     x0, [x2, #16]
        load_system x0, x2
        each_v  ldr, x0
        ldr     x2, [x0, #SP_OFFSET]
        mov     sp, x2
        each_x  ldr, x0, 0, 1
        br      x1

        .global translation_leave
translation_leave:
        stp     x0, x1, [sp, #-16]!
        adrp    x0, host
        ldr     x0, [x0, :lo12:host + 16]
        each_x  str, x0, 0, 1
        ldp     x2, x3, [sp], #16
        stp     x2, x3, [x0]
        mov     x2, sp
        str     x2, [x0, #SP_OFFSET]
        store_system x0, x2
        each_v  str, x0
        adrp    x2, host
        add     x2, x2, :lo12:host
        ldp     x3, x4, [x2]
        mov     sp, x3
        msr     fpcr, x4
        pop_kept
        ret

        .section .note.GNU-stack, "", %progbits
