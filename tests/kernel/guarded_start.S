// The start of a program whose own pages want landing pads: those of the C library's files for that may have none.
        .text
        .globl  _start
        .type   _start, %function
_start:
        bti     c
        mov     x29, #0
        mov     x30, #0
        mov     x5, x0
        ldr     x1, [sp]
        add     x2, sp, #8
        mov     x6, sp
        adrp    x0, main
        add     x0, x0, :lo12:main
        mov     x3, #0
        mov     x4, #0
        bl      __libc_start_main
        bl      abort
        .section .note.gnu.property, "a"
        .balign 8
        .word   4, 16, 5                // a property of the system's, of AArch64
        .asciz  "GNU"
        .word   0xc0000000, 4, 1, 0     // features: BTI
        .section .note.GNU-stack, "", %progbits
