// The interpreter in another process: where its functions are, and whether it is of the kind that
// this module is built for.
#ifndef MORVIK_ATTACHMODULE_INTERPRETER_H
#define MORVIK_ATTACHMODULE_INTERPRETER_H

#include "attachmodule/target.h"

namespace morvik {

struct Interpreter {
    Address add_pending_call;
    Address eval_init_threads;
    Address eval_threads_initialized;
    Address eval_builtins;
    Address eval_save_thread;
    Address ticker;  // of the variable
    Address gil_ensure;
    Address gil_release;
    Address gil_this_thread_state;
    Address import_module_dict;
    Address import_no_block;
    Address is_initialized;
    Address build_value;
    Address dec_ref;
    Address err_clear;
    Address run_string;
    Address start_new_thread;
    Address current_thread_state;  // of the variable
    // The C library's.
    Address munmap;
    Address usleep;
};

// Reads what the process exports, in its memory: the files may have been replaced meanwhile.
bool find_interpreter(pid_t process, const TargetMemory& memory, Interpreter* found,
                      Failure* failure);

// Whether the thread with this ident (the system's thread pointer) holds the interpreter lock.
// To be asked while the thread cannot run. Where it cannot be found out, it does.
bool holds_interpreter_lock(const TargetMemory& memory, const Interpreter& interpreter,
                            Address ident);

}  // namespace morvik

#endif
