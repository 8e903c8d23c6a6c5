// The module itself: its method table and its initialisation.
#include "conames.h"
#include "dbgcommon.h"
#include "dprintf.h"
#include "host/ref.h"
#include "morvikmodule/entry_points.h"
#include "tracercore/state.h"

namespace morvik {

namespace {

// The method table has one pointer type for both calling styles.
PyCFunction with_keywords(PyCFunctionWithKeywords function) {
    return reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(function));
}

// What fails for want of memory fails by one name.
template <EntryPoint entry>
PyObject* ours(PyObject* self, PyObject* args) {
    return naming_memory_error(entry(self, args));
}

// The docstrings are part of the interface; servers and their users have read them so for long.
PyMethodDef methods[] = {
    {"init", ours<entry_init>, METH_VARARGS,
     "Initialize the tracer:  This must be called before using other\n"
     "functions in this module!  Pass in: idle period, \n"
     "exception mode (0=never stop, 1=always stop, 2=stop on unhandled only),\n"
     "install thread hooks callback, idle callback, line callback, return callback,\n"
     "and exception callback.\n"
     "Currently there is also a default_import parameter which should get\n"
     "__builtins__['__import__'] until we can access this correctly on the C side"},
    {"reset", ours<entry_reset>, METH_VARARGS,
     "Reset the debug tracer core to blank initial state"},
    {"destroy", ours<entry_destroy>, METH_VARARGS,
     "Clear all info from the tracer core and reset environment to initial state"},
    {"set_autoquit", ours<entry_set_autoquit>, METH_VARARGS,
     "Set the autoquit flag.  Set autoquit to 0 to prevent automatic\n"
     "dropping of the debug connection when the bottom frame is reached (as\n"
     "should be done in embedded scripting, where the bottom frame is\n"
     "just the end of a single script invocation)."},
    {"set_idle_period", ours<entry_set_idle_period>, METH_VARARGS,
     "Set the idle period (in seconds):  The idle call back is called this often"},
    {"set_debug_all_threads", ours<entry_set_debug_all_threads>, METH_VARARGS,
     "Determine whether to debug all threads.  Set to 1 to debug all threads, or 0 to "
     "debug only\n"
     "one thread at a time and ignore all other threads entirely while one thread is "
     "stopped.\n"},
    {"set_debug_thread_cb", ours<entry_set_debug_thread_cb>, METH_VARARGS,
     "Set callback that determines whether or not to debug on a thread-by-thread\n"
     "basis.  Returns 0 if the thread should be ignored, 1 if it should be stopped when\n"
     "any other thread is stopped, and 2 if it should be stopped only if it reaches a\n"
     "breakpoint or exception [XXX the latter is unimplemented].\n"},
    {"start_trace", ours<entry_start_trace>, METH_VARARGS,
     " Set trace function to start tracing and set the trace in all frames."},
    {"stop_trace", ours<entry_stop_trace>, METH_VARARGS,
     "Remove trace function and stop debugging."},
    {"step_into", ours<entry_step_into>, METH_VARARGS,
     "Set up to step into next function or to next instruction"},
    {"step_over", ours<entry_step_over>, METH_VARARGS, "Set up to step over the next instruction"},
    {"step_over_line", ours<entry_step_over_line>, METH_VARARGS,
     "Set up to step over the next line of code"},
    {"step_over_line_range", ours<entry_step_over_line_range>, METH_VARARGS,
     "Set up to step over the given range of lines"},
    {"step_out", ours<entry_step_out>, METH_VARARGS,
     "Set up to step out of the current stack frame"},
    {"continue_run", ours<entry_continue_run>, METH_VARARGS,
     "Set up to continue running freely until next breakpoint"},
    {"stop", ours<entry_stop>, METH_VARARGS, "Set up to stop at next reached run location"},
    {"get_threads", ours<entry_get_threads>, METH_VARARGS,
     "Get the a list of all threads' thread ids.  These can be passed to get_curr_frame\n"
     "for access to the thread's stack, although some thread ids returned here may still\n"
     "be running if in C code and thus have no obtainable stack."},
    {"get_curr_frame", ours<entry_get_curr_frame>, METH_VARARGS,
     "Get the current frame for the given thread id -- this is the frame where\n"
     "the thread stopped, so the innermost aka top frame.  This may raise IndexError\n"
     "if the given thread is still running (which may happen if it's stuck in C code)."},
    {"get_thread_name", ours<entry_get_thread_name>, METH_VARARGS,
     "Get the name of the main function for the given thread."},
    {"is_botframe", ours<entry_is_botframe>, METH_VARARGS,
     "Checks given frame to see if it is the bottom frame for its thread, returns 1 if so."},
    {"get_tracing", ours<entry_get_tracing>, METH_VARARGS,
     "Returns whether tracing is active in any thread"},
    {"set_break", ours<entry_set_break>, METH_VARARGS,
     "Set a breakpoint at given file/line.  Pass in file, line, enabled flag,\n"
     "temporary flag, conditional as string (or None), and ignore count.  If\n"
     "a breakpoint exists, its values will be updated accordingly.  The new breakpoint\n"
     "id is returned as int."},
    {"clear_breaks", ours<entry_clear_breaks>, METH_VARARGS,
     "Clear all breakpoints at given file/line"},
    {"enable_breaks", ours<entry_enable_breaks>, METH_VARARGS,
     "Enable/disable all breakpoints at given file and line number"},
    {"ignore_breaks", ours<entry_ignore_breaks>, METH_VARARGS,
     "Ignore all breakpoints at given file and line number for a given number\n"
     "of hits"},
    {"set_breaks_cond", ours<entry_set_breaks_cond>, METH_VARARGS,
     "Set conditional for all breakpoints at given file and line number; empty string to "
     "set no conditional"},
    {"clear_all_breaks", ours<entry_clear_all_breaks>, METH_VARARGS,
     "Clear all defined breakpoints"},
    {"get_breaks", ours<entry_get_breaks>, METH_VARARGS,
     "Get all breakpoints at given file and line number: Returns sequence of\n"
     "(id, enabled, temporary, cond, ignore_count, hit_count) tuples"},
    {"get_file_breaks", ours<entry_get_file_breaks>, METH_VARARGS,
     "Get all breakpoints in given file: Returns sequence of (lineno, id\n"
     "enabled, temporary, cond, ignore_count, hit_count) tuples"},
    {"set_exception_mode", ours<entry_set_exception_mode>, METH_VARARGS,
     "Set exception mode to use : One of kExcNeverStop=0 to never stop\n"
     "on exceptions, kExcAlwaysStop=1 to always stop on exceptions,\n"
     "or kExcUnhandledStop=2 to only stop on unhandled exceptions.\n"},
    {"get_exception_mode", ours<entry_get_exception_mode>, METH_VARARGS,
     "Get exception mode in use : One of kExcNeverStop=0 to never stop\n"
     "on exceptions, kExcAlwaysStop=1 to always stop on exceptions,\n"
     "or kExcUnhandledStop=2 to only stop on unhandled exceptions.\n"},
    {"ignore_exception_loc", ours<entry_ignore_exception_loc>, METH_VARARGS,
     "Ignore/un-ignore future exceptions at given file, lineno (filename must be as given"
     "\n"
     "in the reported exception)"},
    {"exception_loc_ignored", ours<entry_exception_loc_ignored>, METH_VARARGS,
     "Check whether exceptions at given file / line number are being ignored bythe "
     "debugger"},
    {"clear_exception_ignores", ours<entry_clear_exception_ignores>, METH_VARARGS,
     "Clear exception ignores list to blank"},
    {"exiting_on_exception", ours<entry_exiting_on_exception>, METH_VARARGS,
     "Returns true when the debugger core has seen an unhandled exception at the\n"
     "bottom frame, and thus any further stepping, etc, will cause the program\n"
     "to exit.  This is used to make sure we close the client connection cleanly\n"
     "in all cases.  Note that this always returns false when autoquit is off\n"
     "since the exception won't cause exit in an embedded environment."},
    {"set_always_stop_excepts", ours<entry_set_always_stop_excepts>, METH_VARARGS,
     "Set the tuple of exception types to always stop on"},
    {"get_always_stop_excepts", ours<entry_get_always_stop_excepts>, METH_VARARGS,
     "Get the tuple of exception types to always stop on"},
    {"set_never_stop_excepts", ours<entry_set_never_stop_excepts>, METH_VARARGS,
     "Set the tuple of exception types to never stop on"},
    {"get_never_stop_excepts", ours<entry_get_never_stop_excepts>, METH_VARARGS,
     "Get the tuple of exception types to never stop on"},
    {"set_ignored_exception_handlers", ours<entry_set_ignored_exception_handlers>, METH_VARARGS,
     "Sets the dictionary of ignored handlers.  Keys may be either frame or code objects "
     "to ignore"},
    {"set_exc_catch_info_list", ours<entry_set_exc_catch_info_list>, METH_VARARGS,
     "Set list of exception info instances.  Each instance should have co_name, "
     "module_name, prints, ignore, & parent attributes.  Class for these instances is "
     "defined in sorrel.py."},
    {"get_new_imports", ours<entry_get_new_imports>, METH_VARARGS,
     "Used to obtain list of full path names for modules that have been\n"
     "loaded or reloaded since the last call to this function.  Also clears\n"
     "the table of new loaded/reloaded modules to blank."},
    {"set_import_cb", ours<entry_set_import_cb>, METH_VARARGS,
     "Set the callback called when a module is imported (may be None)"},
    {"register_module", ours<entry_register_module>, METH_VARARGS,
     "Register module with the debugger"},
    {"register_sub_language_hook", ours<entry_register_sub_language_hook>, METH_VARARGS,
     "Register a sub-language extension with the debugger"},
    {"sub_language_get_active_hook", ours<entry_sub_language_get_active_hook>, METH_VARARGS,
     "Get the active sub language hook in the given thread.  Returns None\n"
     "when no sub-language implementation is active on the thread's stack."},
    {"sub_language_get_frame_category", ours<entry_sub_language_get_frame_category>, METH_VARARGS,
     "Get the type of the given frame:  Returns 1 if it's a key frame in the active\n"
     "sub-language implementation, 0 if it's a frame that should be hidden because it\n"
     "is part of the sub-language implementation but not a key frame, and -1 for\n"
     "unknown frames."},
    {"add_to_tstate_tracing", ours<entry_add_to_tstate_tracing>, METH_VARARGS,
     "Adds given value to tracing field of the current thread state.  The trace function "
     "will be called only if tracing == 0.  value can be < 0."},
    {"get_tstate_tracing", ours<entry_get_tstate_tracing>, METH_VARARGS,
     "Returns current value of tracing field of the current thread state.  The trace "
     "function will be called only if tracing == 0."},
    {"set_tstate_use_tracing", ours<entry_set_tstate_use_tracing>, METH_VARARGS,
     "Set value of use_tracing field of the current thread state.  The trace & profile "
     "functions will be called only if use_tracing != 0.  The field was add in Python "
     "2.3; this does nothing in Python 2.0 & 2.1."},
    {"get_tstate_use_tracing", ours<entry_get_tstate_use_tracing>, METH_VARARGS,
     "Returns current value of use_tracing field of the current thread state.  The trace "
     "& profile functions will be called only if use_tracing != 0. The field was add in "
     "Python 2.3; this always returns 1 in Python 2.0 & 2.1."},
    {"acquire_sorrel_mutex", ours<entry_acquire_sorrel_mutex>, METH_VARARGS,
     "Acquire the mutex used to ensure only one thread calls into the debug server."},
    {"release_sorrel_mutex", ours<entry_release_sorrel_mutex>, METH_VARARGS,
     "Release the mutex used to ensure only one thread calls into the debug server."},
    {"raise_exception", ours<entry_raise_exception>, METH_VARARGS,
     "Raise given exception in the thread at the next opportunity"},
    {"locals_to_fast", ours<entry_locals_to_fast>, METH_VARARGS,
     "Call LocalsToFast on given frame so changes made in the frame locals dict get\n"
     "put back into the real locals dict\n"},
    {"get_frame_file", ours<entry_get_frame_file>, METH_VARARGS,
     "Returns the filename associated with the given frame"},
    {"get_current_tstate_id", ours<entry_get_current_tstate_id>, METH_VARARGS,
     "Returns id of current thread state"},
    {"get_thread_ident_for_tstate_id", ours<entry_get_thread_ident_for_tstate_id>, METH_VARARGS,
     "Returns id returned by thread.get_ident for given tstate_id"},
    {"is_internal_frame", ours<entry_is_internal_frame>, METH_VARARGS,
     "Returns id returned by thread.get_ident for given tstate_id"},
    {"get_changed_bps_lists", ours<entry_get_changed_bps_lists>, METH_VARARGS,
     "Gets and clears the changed bp lists."},
    {"GetUserName", ours<entry_GetUserName>, METH_VARARGS, "Return username for process \n"},
    {"GetUserAppDataPath", ours<entry_GetUserAppDataPath>, METH_VARARGS,
     "Returns path name of current users application data directory.  Returns None if "
     "unable to get path, either because there's no appropriate user or if the directory "
     "doesn't exist."},
    {"PyFile_SetEncoding", ours<entry_PyFile_SetEncoding>, METH_VARARGS,
     "Calls PyFile_SetEncoding C function"},
    {"PyFile_WriteObject", ours<entry_PyFile_WriteObject>, METH_VARARGS,
     "Calls PyFile_WriteObject C function"},
    {"WaitForInput", ours<entry_WaitForInput>, METH_VARARGS,
     "Wait until input is available on either the given file object or the socket file "
     "descriptor.  Returns -1 if it was unable to wait for any reason (e.g. if arg 1 is "
     "not a PyFileObject or an internal error occurs), 0 if input on the debug connection "
     "is available, or the number of bytes that can safely be read  for the file object."},
    {"CopyIntoBuffer", ours<entry_CopyIntoBuffer>, METH_VARARGS,
     "Put data into a writable buffer at given offset,  If data is longer than the "
     "remaining buffer space, it is truncated.  Returns # of bytes copied."},
    {"PyFrame_LocalsToFast", ours<entry_PyFrame_LocalsToFast>, METH_VARARGS,
     "Wrapper around PyFrame_LocalsToFast internal api call."},
    {"trace_dispatch", entry_trace_dispatch, METH_VARARGS, nullptr},
    {"bootstrap_new_thread", entry_bootstrap_new_thread, METH_VARARGS, nullptr},
    {"thread_exiting", entry_thread_exiting, METH_VARARGS, nullptr},
    {"__import__", with_keywords(entry_import), METH_VARARGS | METH_KEYWORDS, nullptr},
    {nullptr, nullptr, 0, nullptr},
};

// Held: the program may take the module out of sys.modules and import another one from the copy
// that the interpreter keeps of its dictionary.
PyObject* module_object = nullptr;

}  // namespace

PyObject* this_module() { return module_object; }

void init_module() {
    dprintf(kLogCore, "Initialize morvik module started\n");
    PyObject* const module =
        Py_InitModule4("tmorvik26_vs2012_x64", methods, nullptr, nullptr, PYTHON_API_VERSION);
    if (module == nullptr || !add_functions_for_sorrel(module)) {
        // The import fails, and can be tried again where nothing half made is left behind.
        const PendingErrorGuard keep_error;
        PyDict_DelItemString(PyImport_GetModuleDict(), "tmorvik26_vs2012_x64");
        return;
    }
    set_slot(module_object, module);
    thread_ident_init();
    // What there is no memory for now, init() makes.
    if (out_of_memory_init() != 0) {
        PyErr_Clear();
    }
    registry_init(&code_names, path_cache_new());
    dprintf(kLogCore, "Initialize morvik module complete\n");
}

}  // namespace morvik

// The one symbol that the module exports.
#pragma GCC visibility push(default)
PyMODINIT_FUNC inittmorvik26_vs2012_x64();
#pragma GCC visibility pop

PyMODINIT_FUNC inittmorvik26_vs2012_x64() { morvik::init_module(); }
