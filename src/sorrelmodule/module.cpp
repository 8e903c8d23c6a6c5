// _sorrel: what the debug server needs of the interpreter beyond the core's functions. Private to
// the server in sorrel/; other debug servers have no use for it.
#include "exceptops/handlers.h"
#include "exceptops/static_lookup.h"
#include "host/python.h"
#include "host/ref.h"
#include "platform/platform.h"
#include "sorrelmodule/all_threads.h"
#include "sorrelmodule/deferring.h"
#include "sorrelmodule/frame_state.h"
#include "sorrelmodule/import_watch.h"
#include "sorrelmodule/interrupts.h"
#include "sorrelmodule/outermost.h"
#include "sorrelmodule/own_threads.h"
#include "sorrelmodule/redirection.h"
#include "sorrelmodule/settrace.h"

namespace morvik {

namespace {

PyObject* entry_trace_all_threads(PyObject* /*self*/, PyObject* args) {
    PyObject* on_end = nullptr;
    PyObject* trace_object = nullptr;
    PyObject* left_out = nullptr;
    if (PyArg_ParseTuple(args, "OO|O!:trace_all_threads", &on_end, &trace_object, &PySet_Type,
                         &left_out) == 0) {
        return nullptr;
    }
    if (PyCallable_Check(on_end) == 0) {
        PyErr_SetString(PyExc_TypeError, "on_end must be callable");
        return nullptr;
    }
    return trace_all_threads(on_end, trace_object, left_out) == 0 ? new_none() : nullptr;
}

PyObject* entry_untrace_all_threads(PyObject* /*self*/, PyObject* args) {
    PyObject* trace_object = nullptr;
    if (PyArg_ParseTuple(args, "O:untrace_all_threads", &trace_object) == 0) {
        return nullptr;
    }
    untrace_all_threads(trace_object);
    return new_none();
}

PyObject* entry_raise_in_thread(PyObject* /*self*/, PyObject* args) {
    long ident = 0;
    PyObject* exception = nullptr;
    if (PyArg_ParseTuple(args, "lO:raise_in_thread", &ident, &exception) == 0) {
        return nullptr;
    }
    if (exception != Py_None && PyExceptionClass_Check(exception) == 0) {
        PyErr_SetString(PyExc_TypeError, "exception must be None or an exception class");
        return nullptr;
    }
    return PyInt_FromLong(
        PyThreadState_SetAsyncExc(ident, exception != Py_None ? exception : nullptr));
}

PyObject* entry_active_blocks(PyObject* /*self*/, PyObject* args) {
    PyObject* frame = nullptr;
    if (PyArg_ParseTuple(args, "O!:active_blocks", &PyFrame_Type, &frame) == 0) {
        return nullptr;
    }
    return active_blocks(as_frame(frame)).release();
}

PyObject* entry_variable(PyObject* /*self*/, PyObject* args) {
    PyObject* frame = nullptr;
    Py_ssize_t index = 0;
    if (PyArg_ParseTuple(args, "O!n:variable", &PyFrame_Type, &frame, &index) == 0) {
        return nullptr;
    }
    Ref held = variable(as_frame(frame), index);
    if (!held) {
        PyErr_SetString(PyExc_LookupError, "the variable holds nothing");
    }
    return held.release();
}

PyObject* entry_static_attribute(PyObject* /*self*/, PyObject* args) {
    PyObject* object = nullptr;
    PyObject* name = nullptr;
    if (PyArg_ParseTuple(args, "OS:static_attribute", &object, &name) == 0) {
        return nullptr;
    }
    Ref found = static_attribute(object, name);
    if (!found) {
        PyErr_SetString(PyExc_LookupError, "it can only be computed, or is not there");
    }
    return found.release();
}

PyObject* entry_find_handler(PyObject* /*self*/, PyObject* args) {
    PyFrameObject* frame = nullptr;
    PyObject* type = nullptr;
    PyObject* ignored = nullptr;
    if (PyArg_ParseTuple(args, "O!OO!:find_handler", &PyFrame_Type, &frame, &type, &PyDict_Type,
                         &ignored) == 0) {
        return nullptr;
    }
    const FoundHandler found = find_handler(frame, ignored, type);
    return found.frame != nullptr ? Py_BuildValue("(On)", found.frame, found.clause) : new_none();
}

PyObject* entry_import_watch(PyObject* /*self*/, PyObject* args) {
    PyObject* function = nullptr;
    PyObject* argument = nullptr;
    if (PyArg_ParseTuple(args, "OO:import_watch", &function, &argument) == 0) {
        return nullptr;
    }
    return new_import_watch(function, argument).release();
}

PyObject* entry_settrace(PyObject* /*self*/, PyObject* function) {
    return new_settrace(function).release();
}

PyObject* entry_deferring(PyObject* /*self*/, PyObject* args) {
    PyObject* function = nullptr;
    PyObject* defer = nullptr;
    if (PyArg_ParseTuple(args, "OO:deferring", &function, &defer) == 0) {
        return nullptr;
    }
    return new_deferring(function, defer).release();
}

PyObject* entry_run_outermost(PyObject* /*self*/, PyObject* args) {
    PyObject* code = nullptr;
    PyObject* variables = nullptr;
    if (PyArg_ParseTuple(args, "O!O!:run_outermost", &PyCode_Type, &code, &PyDict_Type,
                         &variables) == 0) {
        return nullptr;
    }
    return run_outermost(code, variables).release();
}

PyObject* entry_run_file_outermost(PyObject* /*self*/, PyObject* args) {
    const char* path = nullptr;
    PyObject* variables = nullptr;
    if (PyArg_ParseTuple(args, "sO!:run_file_outermost", &path, &PyDict_Type, &variables) == 0) {
        return nullptr;
    }
    return run_file_outermost(path, variables).release();
}

PyObject* entry_start_thread(PyObject* /*self*/, PyObject* args) {
    PyObject* function = nullptr;
    if (PyArg_ParseTuple(args, "O:start_thread", &function) == 0) {
        return nullptr;
    }
    if (PyCallable_Check(function) == 0) {
        PyErr_SetString(PyExc_TypeError, "function must be callable");
        return nullptr;
    }
    return start_own_thread(function) == 0 ? new_none() : nullptr;
}

PyObject* entry_disown_other_threads(PyObject* /*self*/, PyObject* /*args*/) {
    disown_other_threads();
    return new_none();
}

PyObject* entry_guard_interrupts(PyObject* /*self*/, PyObject* args) {
    static PyObject* shared = nullptr;
    PyObject* memory = nullptr;
    const void* front = nullptr;
    Py_ssize_t size = 0;
    if (PyArg_ParseTuple(args, "|O:guard_interrupts", &memory) == 0) {
        return nullptr;
    }
    if (memory == nullptr) {
        return PyBool_FromLong(guard_interrupts(nullptr) ? 1 : 0);
    }
    if (PyObject_AsReadBuffer(memory, &front, &size) != 0) {
        return nullptr;
    }
    if (static_cast<size_t>(size) < sizeof(int32_t)) {
        PyErr_SetString(PyExc_ValueError, "no room for a process id");
        return nullptr;
    }
    const bool is_guarded = guard_interrupts(static_cast<const int32_t*>(front));
    // The one before is let go when nothing looks at it any more.
    set_slot(shared, memory);
    return PyBool_FromLong(is_guarded ? 1 : 0);
}

PyObject* entry_let_calls_go_on(PyObject* /*self*/, PyObject* args) {
    int on = 0;
    if (PyArg_ParseTuple(args, "i:let_calls_go_on", &on) == 0) {
        return nullptr;
    }
    let_calls_go_on(on != 0);
    return new_none();
}

PyObject* entry_watch_interrupts(PyObject* /*self*/, PyObject* function) {
    return PyBool_FromLong(watch_interrupts_by(function) ? 1 : 0);
}

PyObject* entry_pending_interrupts(PyObject* /*self*/, PyObject* /*args*/) {
    return PyInt_FromLong(pending_interrupts());
}

PyObject* entry_take_interrupts(PyObject* /*self*/, PyObject* /*args*/) {
    return PyInt_FromLong(take_interrupts());
}

PyObject* entry_note_interrupt(PyObject* /*self*/, PyObject* /*args*/) {
    note_interrupt();
    return new_none();
}

PyObject* entry_end_call_in(PyObject* /*self*/, PyObject* args) {
    long ident = 0;
    if (PyArg_ParseTuple(args, "l:end_call_in", &ident) == 0) {
        return nullptr;
    }
    end_call_in(ident);
    return new_none();
}

PyObject* entry_was_main_thread_waiting(PyObject* /*self*/, PyObject* /*args*/) {
    return PyBool_FromLong(was_main_thread_waiting() ? 1 : 0);
}

PyObject* entry_set_foreground_group(PyObject* /*self*/, PyObject* args) {
    int terminal = 0;
    int group = 0;
    if (PyArg_ParseTuple(args, "ii:set_foreground_group", &terminal, &group) == 0) {
        return nullptr;
    }
    return PyBool_FromLong(set_foreground_group(terminal, group) ? 1 : 0);
}

PyObject* entry_thread_idents(PyObject* /*self*/, PyObject* /*args*/) {
    return thread_idents().release();
}

PyObject* entry_redirect_output(PyObject* /*self*/, PyObject* args) {
    Py_ssize_t limit = 0;
    if (PyArg_ParseTuple(args, "n:redirect_output", &limit) == 0) {
        return nullptr;
    }
    return begin_redirection(limit).release();
}

PyMethodDef methods[] = {
    {"trace_all_threads", entry_trace_all_threads, METH_VARARGS,
     "trace_all_threads(on_end, trace_object[, left_out])\n\n"
     "Gives the trace function that some thread has with this object to every thread that has "
     "none, the frames on its stack included, wherever the thread is.  on_end() is called in each "
     "of them as the last of what it runs, unless it is untraced before.  With left_out, a set of "
     "the ids of global namespaces, threads are passed by that have no frames, or whose outermost "
     "frame has one of these.  So is one that is just bringing the server into the program."},
    {"untrace_all_threads", entry_untrace_all_threads, METH_VARARGS,
     "untrace_all_threads(trace_object)\n\n"
     "Takes the trace function with this object from every thread, the calling one included, and "
     "from the frames on their stacks."},
    {"raise_in_thread", entry_raise_in_thread, METH_VARARGS,
     "raise_in_thread(ident, exception)\n\n"
     "Has the interpreter raise the exception class between two instructions of Python code in "
     "the thread with this ident; None takes one back that was not raised yet.  Returns the "
     "number of threads found: 0 or 1."},
    {"active_blocks", entry_active_blocks, METH_VARARGS,
     "active_blocks(frame)\n\n"
     "The active blocks of the frame, the innermost first, as a list of (opcode, handler, object): "
     "what has set up the block, where its handler begins, and what lies right below the block on "
     "the value stack, which for that of a with statement is the bound __exit__."},
    {"variable", entry_variable, METH_VARARGS,
     "variable(frame, index)\n\n"
     "What a fast local variable holds; cells follow the variables.  Raises LookupError for one "
     "that holds nothing."},
    {"static_attribute", entry_static_attribute, METH_VARARGS,
     "static_attribute(object, name)\n\n"
     "An attribute as it is stored in the object or its class, without running any Python code.  "
     "Raises LookupError where only that could tell."},
    {"find_handler", entry_find_handler, METH_VARARGS,
     "find_handler(frame, type, ignored)\n\n"
     "Where an exception of this type that the frame has now goes on: None for nowhere, or a tuple "
     "of the frame or caller whose handler takes it and the offset of the except clause in that "
     "one's code, -1 where it ends a loop.  Frames or code objects that are keys of the "
     "dictionary count as having no handler."},
    {"import_watch", entry_import_watch, METH_VARARGS,
     "import_watch(function, argument)\n\n"
     "A tuple of two functions.  The first, with one argument, the module, is to be told of each "
     "import, and calls function(argument) where there are other modules than before, also as each "
     "of the imports ends that was under way then; it runs no Python code of its own.  The second "
     "returns how often that was."},
    {"settrace", entry_settrace, METH_O,
     "settrace(function)\n\n"
     "What stands in the place of sys.settrace, and calls function(argument) there.  Of that the "
     "calling thread has no events, neither by the trace function that it had nor by the one that "
     "it has then."},
    {"deferring", entry_deferring, METH_VARARGS,
     "deferring(function, defer)\n\n"
     "A function that calls function(...) and returns what that does.  Where that raises, at "
     "whichever instruction, defer(type, value, traceback) is called: when this is true, the new "
     "function returns True, else the exception passes.  What defer itself raises is treated the "
     "same, once.  Where function returns a negative number, that signal is sent to the process "
     "once it has been left, and 0 is returned."},
    {"run_outermost", entry_run_outermost, METH_VARARGS,
     "run_outermost(code, variables)\n\n"
     "Executes the code in this namespace, which has to hold its __builtins__.  Its frame has no "
     "caller, and as much of the stack as the outermost frame of an interpreter."},
    {"run_file_outermost", entry_run_file_outermost, METH_VARARGS,
     "run_file_outermost(path, variables)\n\n"
     "The same for a file, which is read as the interpreter reads a script, errors included."},
    {"start_thread", entry_start_thread, METH_VARARGS,
     "start_thread(function)\n\n"
     "Calls the function in a new thread of the server's own.  Other threads may fork at any "
     "moment of that; with thread.start_new_thread a forked process of 2.6 may wait for ever.  "
     "Raises thread.error where there are too many threads."},
    {"disown_other_threads", entry_disown_other_threads, METH_NOARGS,
     "disown_other_threads()\n\n"
     "In a forked process: the interpreter keeps what it knows of threads that are not there any "
     "more, and new ones may get their idents.  From now on theirs is 0."},
    {"guard_interrupts", entry_guard_interrupts, METH_VARARGS,
     "guard_interrupts([memory])\n\n"
     "Has Ctrl-C do what is set for it now only where the int at the beginning of this memory, "
     "which "
     "processes share, is this process's id, or that of one that has ended.  To be called again "
     "whenever something else has been set for the signal.  False where it cannot be.  Where that "
     "int is -1, Ctrl-C ends the process with exit status 0.  Without memory, what was given "
     "before counts, or in no case anything but this process."},
    {"let_calls_go_on", entry_let_calls_go_on, METH_VARARGS,
     "let_calls_go_on(flag)\n\n"
     "Whether system calls go on after a Ctrl-C that the guard lets through, where they can."},
    {"watch_interrupts", entry_watch_interrupts, METH_O,
     "watch_interrupts(function)\n\n"
     "Has function() called after each Ctrl-C that the guard lets through, one at a time, in a "
     "thread of the server's, if the program has threads.  None: no more.  To be called by the "
     "main thread, and again in a forked process.  False where it cannot be."},
    {"pending_interrupts", entry_pending_interrupts, METH_NOARGS,
     "pending_interrupts()\n\n"
     "How many that the guard has let through nobody has taken."},
    {"take_interrupts", entry_take_interrupts, METH_NOARGS,
     "take_interrupts()\n\n"
     "Takes them; returns how many there were.  The main thread's handler is called all the same."},
    {"note_interrupt", entry_note_interrupt, METH_NOARGS,
     "note_interrupt()\n\n"
     "One that is no signal is about to be handled, too."},
    {"end_call_in", entry_end_call_in, METH_VARARGS,
     "end_call_in(ident)\n\n"
     "The system call that the thread with this ident waits in ends early, as by a signal, where "
     "the guard is in force."},
    {"was_main_thread_waiting", entry_was_main_thread_waiting, METH_NOARGS,
     "was_main_thread_waiting()\n\n"
     "Whether the main thread was without the interpreter lock when the last one came."},
    {"set_foreground_group", entry_set_foreground_group, METH_VARARGS,
     "set_foreground_group(terminal, group)\n\n"
     "Brings a process group to the foreground of a terminal, whose descriptor this is, of the "
     "calling process, which need not be there itself.  False where it cannot be."},
    {"thread_idents", entry_thread_idents, METH_NOARGS,
     "thread_idents()\n\n"
     "The idents of all threads of the interpreter in the order of their start, as a list.  The "
     "first one is the main thread's.  A thread that is being started may have its starter's."},
    {"redirect_output", entry_redirect_output, METH_VARARGS,
     "redirect_output(limit)\n\n"
     "Puts streams in the place of sys.stdout and sys.stderr that write to those and keep what was "
     "written, at most so much.  Returns a tuple of two functions.  The first returns what that is "
     "since it was last called, a list of (name, text), and how much more there was.  The second "
     "puts back what was there before, where they still are."},
    {nullptr, nullptr, 0, nullptr},
};

}  // namespace

}  // namespace morvik

// The one symbol that the module exports.
#pragma GCC visibility push(default)
PyMODINIT_FUNC init_sorrel();
#pragma GCC visibility pop

PyMODINIT_FUNC init_sorrel() {
    PyObject* const module =
        Py_InitModule3("_sorrel", morvik::methods, "Private to the debug server sorrel.");
    if (module != nullptr) {
        // The interpreter loads what was built for another version, too. When this cannot be set
        // there is an error, and the import fails.
        PyModule_AddStringConstant(module, "HOST_VERSION", PY_VERSION);
    }
}
