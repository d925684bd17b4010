#ifdef __aarch64__
// What C cannot say: calls on another stack, a function that changes no register but one, and functions with variable arguments
// as Darwin passes them there: all on the stack, 8 bytes each.
        .text

// int CallOnStack(int (*function)(int, char**, char**, char**), int argc, char** argv, char** envp, char** apple, void* top)
// With a null `top`, on the stack that there is.
        .globl  CallOnStack
        .type   CallOnStack, %function
CallOnStack:
        stp     x29, x30, [sp, #-16]!
        mov     x29, sp
        mov     x9, x0
        mov     w0, w1
        mov     x1, x2
        mov     x2, x3
        mov     x3, x4
        cbz     x5, 1f
        mov     sp, x5
1:      blr     x9
        mov     sp, x29
        ldp     x29, x30, [sp], #16
        ret
        .size   CallOnStack, . - CallOnStack

// The code that a thread-local variable's descriptor names: takes the descriptor in x0, returns the address there, and leaves
// every other register as it is, the vector registers included.
        .globl  TlvThunk
        .type   TlvThunk, %function
TlvThunk:
        stp     x29, x30, [sp, #-16]!
        mov     x29, sp
        stp     x1, x2, [sp, #-16]!
        stp     x3, x4, [sp, #-16]!
        stp     x5, x6, [sp, #-16]!
        stp     x7, x8, [sp, #-16]!
        stp     x9, x10, [sp, #-16]!
        stp     x11, x12, [sp, #-16]!
        stp     x13, x14, [sp, #-16]!
        stp     x15, x16, [sp, #-16]!
        sub     sp, sp, #512
        stp     q0, q1, [sp, #0]
        stp     q2, q3, [sp, #32]
        stp     q4, q5, [sp, #64]
        stp     q6, q7, [sp, #96]
        stp     q8, q9, [sp, #128]
        stp     q10, q11, [sp, #160]
        stp     q12, q13, [sp, #192]
        stp     q14, q15, [sp, #224]
        stp     q16, q17, [sp, #256]
        stp     q18, q19, [sp, #288]
        stp     q20, q21, [sp, #320]
        stp     q22, q23, [sp, #352]
        stp     q24, q25, [sp, #384]
        stp     q26, q27, [sp, #416]
        stp     q28, q29, [sp, #448]
        stp     q30, q31, [sp, #480]
        bl      TlvAddress
        ldp     q0, q1, [sp, #0]
        ldp     q2, q3, [sp, #32]
        ldp     q4, q5, [sp, #64]
        ldp     q6, q7, [sp, #96]
        ldp     q8, q9, [sp, #128]
        ldp     q10, q11, [sp, #160]
        ldp     q12, q13, [sp, #192]
        ldp     q14, q15, [sp, #224]
        ldp     q16, q17, [sp, #256]
        ldp     q18, q19, [sp, #288]
        ldp     q20, q21, [sp, #320]
        ldp     q22, q23, [sp, #352]
        ldp     q24, q25, [sp, #384]
        ldp     q26, q27, [sp, #416]
        ldp     q28, q29, [sp, #448]
        ldp     q30, q31, [sp, #480]
        add     sp, sp, #512
        ldp     x15, x16, [sp], #16
        ldp     x13, x14, [sp], #16
        ldp     x11, x12, [sp], #16
        ldp     x9, x10, [sp], #16
        ldp     x7, x8, [sp], #16
        ldp     x5, x6, [sp], #16
        ldp     x3, x4, [sp], #16
        ldp     x1, x2, [sp], #16
        ldp     x29, x30, [sp], #16
        ret
        .size   TlvThunk, . - TlvThunk

// d_NAME with variable arguments after `fixed` others: d_NAME_list with their place as one more.
        .macro  variadic name, fixed
        .globl  d_\name
        .type   d_\name, %function
d_\name:
        mov     x\fixed, sp
        b       d_\name\()_list
        .size   d_\name, . - d_\name
        .endm
        variadic open, 2
        variadic openat, 3
        variadic fcntl, 2
        variadic snprintf, 3
        variadic snprintf_chk, 5
        variadic fprintf, 2
        variadic printf, 1
        variadic sscanf, 2
        variadic scanf, 1
        variadic execl, 2
        variadic snprintf_l, 4
#endif

        .section .note.GNU-stack,"",%progbits
