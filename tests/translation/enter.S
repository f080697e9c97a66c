// void translation_enter(registers*, const void* pad): loads every register of the program but X0 and X1, which the pad
// loads, and goes there. What leaves goes to translation_leave, which stores every register and returns to the caller.
#define SP_OFFSET 248
#define NZCV_OFFSET 256
#define FPSR_OFFSET 264
#define FPCR_OFFSET 272
#define V_OFFSET 288

        .macro  each_v op, at
        .irp    n, 0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,29,30,31
        \op     q\n, [\at, #V_OFFSET + 16 * \n]
        .endr
        .endm
        .macro  each_x op, at
        .irp    n, 2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,29,30
        \op     x\n, [\at, #8 * \n]
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
        adrp    x2, host
        add     x2, x2, :lo12:host
        mov     x3, sp
        mrs     x4, fpcr
        stp     x3, x4, [x2]
        str     x0, [x2, #16]
        ldr     x2, [x0, #FPSR_OFFSET]
        msr     fpsr, x2
        ldr     x2, [x0, #FPCR_OFFSET]
        msr     fpcr, x2
        ldr     x2, [x0, #NZCV_OFFSET]
        msr     nzcv, x2
        each_v  ldr, x0
        ldr     x2, [x0, #SP_OFFSET]
        mov     sp, x2
        each_x  ldr, x0
        br      x1

        .global translation_leave
translation_leave:
        stp     x0, x1, [sp, #-16]!
        adrp    x0, host
        ldr     x0, [x0, :lo12:host + 16]
        each_x  str, x0
        ldp     x2, x3, [sp], #16
        stp     x2, x3, [x0]
        mov     x2, sp
        str     x2, [x0, #SP_OFFSET]
        mrs     x2, nzcv
        str     x2, [x0, #NZCV_OFFSET]
        mrs     x2, fpsr
        str     x2, [x0, #FPSR_OFFSET]
        each_v  str, x0
        adrp    x2, host
        add     x2, x2, :lo12:host
        ldp     x3, x4, [x2]
        mov     sp, x3
        msr     fpcr, x4
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

        .section .note.GNU-stack, "", %progbits
