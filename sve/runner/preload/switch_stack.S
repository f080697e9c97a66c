// Calls a function on another stack, and leaves such a call early.
#define FRAME 176

        .text
        .p2align 2

// int sve_call_on_stack(void (*function)(void*), void* argument, void* stack_top, void** resume)
// Stores at *resume what sve_leave_stack needs. Returns 0 when the function returned, 1 when the call was left early.
        .globl  sve_call_on_stack
        .hidden sve_call_on_stack
        .type   sve_call_on_stack, %function
sve_call_on_stack:
        .cfi_startproc
        hint    #34                     // bti c
        sub     sp, sp, #FRAME
        .cfi_def_cfa_offset FRAME
        stp     x29, x30, [sp]
        .cfi_offset x29, -FRAME
        .cfi_offset x30, -FRAME + 8
        mov     x29, sp
        .cfi_def_cfa x29, FRAME
        stp     x19, x20, [sp, #16]
        stp     x21, x22, [sp, #32]
        stp     x23, x24, [sp, #48]
        stp     x25, x26, [sp, #64]
        stp     x27, x28, [sp, #80]
        stp     d8, d9, [sp, #96]
        stp     d10, d11, [sp, #112]
        stp     d12, d13, [sp, #128]
        stp     d14, d15, [sp, #144]
        str     x29, [x3]
        mov     x9, x0
        mov     x0, x1
        mov     sp, x2
        blr     x9
        mov     w0, #0
        mov     sp, x29
.Lrestore:
        ldp     x19, x20, [sp, #16]
        ldp     x21, x22, [sp, #32]
        ldp     x23, x24, [sp, #48]
        ldp     x25, x26, [sp, #64]
        ldp     x27, x28, [sp, #80]
        ldp     d8, d9, [sp, #96]
        ldp     d10, d11, [sp, #112]
        ldp     d12, d13, [sp, #128]
        ldp     d14, d15, [sp, #144]
        ldp     x29, x30, [sp]
        add     sp, sp, #FRAME
        .cfi_def_cfa sp, 0
        ret
        .cfi_endproc
        .size   sve_call_on_stack, . - sve_call_on_stack

// [[noreturn]] void sve_leave_stack(void* resume): makes the sve_call_on_stack that stored `resume` return 1.
        .globl  sve_leave_stack
        .hidden sve_leave_stack
        .type   sve_leave_stack, %function
sve_leave_stack:
        hint    #34
        mov     sp, x0
        mov     w0, #1
        b       .Lrestore
        .size   sve_leave_stack, . - sve_leave_stack

        .section .note.GNU-stack, "", %progbits
