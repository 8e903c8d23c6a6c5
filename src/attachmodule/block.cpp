#include "attachmodule/block.h"

#include "host/python.h"

namespace morvik {

// What the assembler calls the places in BlockData.
static_assert(offsetof(Interpreter, add_pending_call) == 0x00, "the assembler's numbers");
static_assert(offsetof(Interpreter, eval_init_threads) == 0x08, "the assembler's numbers");
static_assert(offsetof(Interpreter, eval_threads_initialized) == 0x10, "the assembler's numbers");
static_assert(offsetof(Interpreter, eval_builtins) == 0x18, "the assembler's numbers");
static_assert(offsetof(Interpreter, eval_save_thread) == 0x20, "the assembler's numbers");
static_assert(offsetof(Interpreter, ticker) == 0x28, "the assembler's numbers");
static_assert(offsetof(Interpreter, gil_ensure) == 0x30, "the assembler's numbers");
static_assert(offsetof(Interpreter, gil_release) == 0x38, "the assembler's numbers");
static_assert(offsetof(Interpreter, gil_this_thread_state) == 0x40, "the assembler's numbers");
static_assert(offsetof(Interpreter, import_module_dict) == 0x48, "the assembler's numbers");
static_assert(offsetof(Interpreter, import_no_block) == 0x50, "the assembler's numbers");
static_assert(offsetof(Interpreter, is_initialized) == 0x58, "the assembler's numbers");
static_assert(offsetof(Interpreter, build_value) == 0x60, "the assembler's numbers");
static_assert(offsetof(Interpreter, dec_ref) == 0x68, "the assembler's numbers");
static_assert(offsetof(Interpreter, err_clear) == 0x70, "the assembler's numbers");
static_assert(offsetof(Interpreter, run_string) == 0x78, "the assembler's numbers");
static_assert(offsetof(Interpreter, start_new_thread) == 0x80, "the assembler's numbers");
static_assert(offsetof(Interpreter, munmap) == 0x90, "the assembler's numbers");
static_assert(offsetof(Interpreter, usleep) == 0x98, "the assembler's numbers");
static_assert(offsetof(BlockData, block) == 0xa0, "the assembler's numbers");
static_assert(offsetof(BlockData, claimed) == 0xa8, "the assembler's numbers");
static_assert(offsetof(BlockData, users) == 0xac, "the assembler's numbers");
static_assert(offsetof(BlockData, started) == 0xb0, "the assembler's numbers");
static_assert(offsetof(BlockData, released) == 0xb4, "the assembler's numbers");
static_assert(offsetof(BlockData, text) == 0xb8, "the assembler's numbers");
static_assert(Py_file_input == 257, "the assembler's number");
static_assert(sizeof(BlockData) <= 3 * kPageSize, "leaves no room for a stack");
static_assert(kBlockSize == 0x10000, "the assembler's number");

// Never run here: it is copied into the other process, and works wherever it lies.
//
// rbx holds the data's address throughout. Functions are called through it.
__asm__(R"(
    .section .rodata
    .balign 16
morvik_block_begin:

    # The answer: whether the interpreter is there.
morvik_block_check:
    movq    %rdi, %rbx
    callq   *0x58(%rbx)                 # Py_IsInitialized()
    int3

    # Has the interpreter call `pending` in its main thread when that is between two instructions
    # of Python code. Made for signal handlers: it waits for nothing. The answer: 0, or -1 when the
    # queue is full or just being changed.
morvik_block_queue:
    movq    %rdi, %rbx
    leaq    morvik_block_pending(%rip), %rdi
    movq    %rbx, %rsi
    callq   *(%rbx)                     # Py_AddPendingCall(pending, data)
    int3

    # Starts the thread from one that waits, without the interpreter lock, in a system call. The
    # answer: 1, or 0 where this thread is not one that may.
morvik_block_start:
    movq    %rdi, %rbx
    callq   *0x10(%rbx)                 # PyEval_ThreadsInitialized()
    testl   %eax, %eax
    jnz     1f
    # There is no interpreter lock before there are threads. Only the one thread that runs Python
    # code may make it: it is in no Python code now.
    callq   *0x40(%rbx)                 # PyGILState_GetThisThreadState()
    testq   %rax, %rax
    jz      2f
    callq   *0x30(%rbx)                 # PyGILState_Ensure()
    movl    %eax, %r12d
    callq   *0x08(%rbx)                 # PyEval_InitThreads()
    movl    %r12d, %edi
    callq   *0x38(%rbx)                 # PyGILState_Release(state)
1:  movl    $1, %eax
    xchgl   %eax, 0xa8(%rbx)
    testl   %eax, %eax
    jnz     2f
    callq   morvik_block_start_thread
    movl    $1, %eax
    int3
2:  xorl    %eax, %eax
    int3

    # int pending(void *data): what the interpreter calls. The main thread holds the lock.
morvik_block_pending:
    endbr64
    pushq   %rbx
    movq    %rdi, %rbx
    movl    $1, %eax
    xchgl   %eax, 0xa8(%rbx)
    testl   %eax, %eax
    jnz     1f
    callq   *0x08(%rbx)                 # PyEval_InitThreads()
    callq   morvik_block_start_thread
1:  jmp     morvik_block_leave

morvik_block_start_thread:
    subq    $8, %rsp
    leaq    morvik_block_thread(%rip), %rdi
    movq    %rbx, %rsi
    callq   *0x80(%rbx)                 # PyThread_start_new_thread(thread, data)
    cmpq    $-1, %rax
    setz    %al
    movzbl  %al, %eax
    incl    %eax
    movl    %eax, 0xb0(%rbx)
    addq    $8, %rsp
    ret

    # void thread(void *data): a thread that is nobody's else.
morvik_block_thread:
    endbr64
    pushq   %rbx
    pushq   %r12
    pushq   %r13
    pushq   %r14
    subq    $8, %rsp
    movq    %rdi, %rbx
    movl    $190, %r13d                 # 9.5 seconds: whoever has asked for this waits for ten
    # The interpreter may end while this waits, for whatever: then nothing of it may be touched but
    # the lock.
1:  callq   *0x58(%rbx)                 # Py_IsInitialized()
    testl   %eax, %eax
    jz      3f
    callq   *0x30(%rbx)                 # PyGILState_Ensure()
    movl    %eax, %r12d
    callq   *0x58(%rbx)                 # Py_IsInitialized()
    testl   %eax, %eax
    jz      2f
    callq   morvik_block_run
    movl    %eax, %r14d
    callq   *0x58(%rbx)                 # Py_IsInitialized()
    testl   %eax, %eax
    jz      2f
    movl    %r12d, %edi
    callq   *0x38(%rbx)                 # PyGILState_Release(state)
    testl   %r14d, %r14d
    jnz     3f
    movl    $50000, %edi
    callq   *0x98(%rbx)                 # usleep(50000)
    decl    %r13d
    jnz     1b
    jmp     3f
2:  callq   *0x20(%rbx)                 # PyEval_SaveThread()
    # The one who has started it may still be in this code. Ten seconds, then the code stays.
3:  movl    $10000, %r12d
4:  cmpl    $0, 0xb4(%rbx)
    jnz     5f
    movl    $1000, %edi
    callq   *0x98(%rbx)                 # usleep(1000)
    decl    %r12d
    jnz     4b
    addq    $8, %rsp
    popq    %r14
    popq    %r13
    popq    %r12
    popq    %rbx
    ret
5:  addq    $8, %rsp
    popq    %r14
    popq    %r13
    popq    %r12
    jmp     morvik_block_leave

    # Runs the text in a namespace with sys.modules, where it finds `imp`. The answer: 0 when that
    # is to be tried again, since the text has raised an exception, or `imp` has yet to be imported
    # and somebody else holds the import lock: nobody could call this back from waiting for it.
    #
    # The interpreter gives its lock to no other thread for so many instructions, unless there are
    # signals: what the text finds out stays true while it acts on it.
morvik_block_run:
    pushq   %r12
    pushq   %r13
    subq    $8, %rsp
    xorl    %r12d, %r12d
    xorl    %r13d, %r13d
    movq    0x28(%rbx), %rax
    movl    $10000, (%rax)              # _Py_Ticker
    leaq    morvik_block_imp(%rip), %rdi
    callq   *0x50(%rbx)                 # PyImport_ImportModuleNoBlock("imp")
    testq   %rax, %rax
    jz      1f
    movq    %rax, %rdi
    callq   *0x68(%rbx)                 # Py_DecRef(module)
    callq   *0x18(%rbx)                 # PyEval_GetBuiltins()
    movq    %rax, %r12
    callq   *0x48(%rbx)                 # PyImport_GetModuleDict()
    leaq    morvik_block_format(%rip), %rdi
    leaq    morvik_block_builtins(%rip), %rsi
    movq    %r12, %rdx
    leaq    morvik_block_modules(%rip), %rcx
    movq    %rax, %r8
    xorl    %eax, %eax
    callq   *0x60(%rbx)                 # Py_BuildValue(format, name, builtins, name, modules)
    movq    %rax, %r12
    testq   %rax, %rax
    jz      1f
    leaq    0xb8(%rbx), %rdi
    movl    $257, %esi                  # Py_file_input
    movq    %r12, %rdx
    movq    %r12, %rcx
    xorl    %r8d, %r8d
    callq   *0x78(%rbx)                 # PyRun_StringFlags(text, input, globals, globals, NULL)
    movq    %rax, %r13
1:  callq   *0x58(%rbx)                 # Py_IsInitialized()
    testl   %eax, %eax
    jz      2f
    callq   *0x70(%rbx)                 # PyErr_Clear()
    movq    %r13, %rdi
    callq   *0x68(%rbx)                 # Py_DecRef(result)
    movq    %r12, %rdi
    callq   *0x68(%rbx)                 # Py_DecRef(globals)
2:  xorl    %eax, %eax
    testq   %r13, %r13
    setnz   %al
    addq    $8, %rsp
    popq    %r13
    popq    %r12
    ret

morvik_block_imp:
    .asciz  "imp"
morvik_block_format:
    .asciz  "{sOsO}"
morvik_block_builtins:
    .asciz  "__builtins__"
morvik_block_modules:
    .asciz  "modules"

    # The last one takes the block away. That ends in the C library: there is nothing to return to
    # here.
morvik_block_leave:
    lock decl 0xac(%rbx)
    jnz     1f
    movq    0xa0(%rbx), %rdi
    movl    $0x10000, %esi
    movq    0x90(%rbx), %rax
    popq    %rbx
    jmpq    *%rax                       # munmap(block, size), 0 also for the interpreter
1:  xorl    %eax, %eax
    popq    %rbx
    ret

morvik_block_end:
    .previous
)");

extern "C" {
extern const char block_begin[] __asm__("morvik_block_begin");
extern const char block_check[] __asm__("morvik_block_check");
extern const char block_queue[] __asm__("morvik_block_queue");
extern const char block_start[] __asm__("morvik_block_start");
extern const char block_end[] __asm__("morvik_block_end");
}

BlockCode block_code() {
    const auto at = [](const char* part) { return static_cast<Address>(part - block_begin); };
    return {block_begin, at(block_end), at(block_check), at(block_queue), at(block_start)};
}

}  // namespace morvik
