// In front of functions that return twice: no frame of ours may stand between them and their caller.
#define BLOCKED 0       /* ThreadBlock::blocked */
#define IS_VFORKED 8    /* ThreadBlock::is_vforked */

        .text

// Calls `before` with the address of the arguments, and goes on at the address that it returns.
        .macro  in_front_of before
        stp     x29, x30, [sp, #-32]!
        .cfi_def_cfa_offset 32
        .cfi_offset x29, -32
        .cfi_offset x30, -24
        stp     x0, x1, [sp, #16]
        add     x0, sp, #16
        bl      \before
        mov     x16, x0
        ldp     x0, x1, [sp, #16]
        ldp     x29, x30, [sp], #32
        .cfi_restore x29
        .cfi_restore x30
        .cfi_def_cfa_offset 0
        br      x16
        .endm

        .macro  function name
        .globl  \name
        .type   \name, %function
        .p2align 2
\name:
        .cfi_startproc
        hint    #34                     // bti c
        .endm

        .macro  end name
        .cfi_endproc
        .size   \name, . - \name
        .endm

        function setjmp                 // the one that saves the mask
        mov     w1, #1
        b       __sigsetjmp
        end     setjmp

        function __sigsetjmp
        mov     w1, w1
        in_front_of sve_before_sigsetjmp
        end     __sigsetjmp

        function getcontext
        in_front_of sve_before_getcontext
        end     getcontext

        function swapcontext
        in_front_of sve_before_swapcontext
        end     swapcontext

// pid_t vfork(void). The child shares the parent's memory, so what it sets there of its own mask is put back, from a
// register, which the two do not share. A thread that is not ours has the next vfork, which may be another copy of this
// library's, that knows the thread.
        function vfork
        mrs     x3, tpidr_el0
        adrp    x4, :gottprel:_ZN3sve6runner17this_thread_blockE
        ldr     x4, [x4, :gottprel_lo12:_ZN3sve6runner17this_thread_blockE]
        ldr     x5, [x3, x4]
        cbz     x5, 1f
        ldr     x6, [x5, #BLOCKED]
        ldr     x7, [x5, #IS_VFORKED]
        mov     x0, #0x4111             // CLONE_VM | CLONE_VFORK | SIGCHLD
        mov     x1, #0
        mov     x2, #0
        mov     x3, #0
        mov     x4, #0
        mov     x8, #220                // clone
        svc     #0
        cbz     x0, 2f
        str     x6, [x5, #BLOCKED]
        str     x7, [x5, #IS_VFORKED]
        b       3f
2:      mov     x6, #1
        str     x6, [x5, #IS_VFORKED]
3:      cmn     x0, #4095
        b.cs    sve_fail
        ret
1:      in_front_of sve_before_vfork
        end     vfork

// long syscall(long number, ...). A raw vfork or clone may return from it twice; what begins a sandbox is to be seen.
        function syscall
        mov     w8, w0
        mov     x0, x1
        mov     x1, x2
        mov     x2, x3
        mov     x3, x4
        mov     x4, x5
        mov     x5, x6
        cmp     x8, #167                // prctl
        b.eq    1f
        cmp     x8, #277                // seccomp
        b.eq    2f
        svc     #0
        cmn     x0, #4095
        b.cs    3f
        ret
1:      b       prctl
2:      b       sve_seccomp
3:      b       sve_fail
        end     syscall

        .section .note.GNU-stack, "", %progbits
