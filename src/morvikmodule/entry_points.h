// The module's functions as the interpreter calls them: the module object (ignored) and the tuple
// of positional arguments in; a new reference or nullptr with an error set out.
//
// Conventions they share: nothing to report is None; booleans are the ints 1 and 0; an argument
// error is the interpreter's TypeError with the name after the format's colon. Those that take
// their arguments straight from the tuple ignore surplus ones.
#ifndef MORVIK_MORVIKMODULE_ENTRY_POINTS_H
#define MORVIK_MORVIKMODULE_ENTRY_POINTS_H

#include "host/python.h"
#include "threadops.h"

namespace morvik {

using EntryPoint = PyObject*(PyObject* self, PyObject* args);

// Set-up and run control.
EntryPoint entry_init, entry_reset, entry_destroy;
EntryPoint entry_set_autoquit, entry_set_idle_period, entry_set_debug_all_threads;
EntryPoint entry_set_debug_thread_cb;
EntryPoint entry_start_trace, entry_stop_trace;
EntryPoint entry_step_into, entry_step_over, entry_step_over_line, entry_step_over_line_range;
EntryPoint entry_step_out, entry_continue_run, entry_stop;

// Inspection and thread state.
EntryPoint entry_get_threads, entry_get_curr_frame, entry_get_thread_name, entry_is_botframe;
EntryPoint entry_get_tracing, entry_sub_language_get_active_hook;
EntryPoint entry_sub_language_get_frame_category;
EntryPoint entry_add_to_tstate_tracing, entry_get_tstate_tracing;
EntryPoint entry_set_tstate_use_tracing, entry_get_tstate_use_tracing;
EntryPoint entry_acquire_sorrel_mutex, entry_release_sorrel_mutex, entry_raise_exception;
EntryPoint entry_locals_to_fast, entry_get_frame_file, entry_get_current_tstate_id;
EntryPoint entry_get_thread_ident_for_tstate_id, entry_is_internal_frame;

// Breakpoints.
EntryPoint entry_set_break, entry_clear_breaks, entry_enable_breaks, entry_ignore_breaks;
EntryPoint entry_set_breaks_cond, entry_clear_all_breaks, entry_get_breaks, entry_get_file_breaks;
EntryPoint entry_get_changed_bps_lists;

// Exceptions.
EntryPoint entry_set_exception_mode, entry_get_exception_mode, entry_ignore_exception_loc;
EntryPoint entry_exception_loc_ignored, entry_clear_exception_ignores, entry_exiting_on_exception;
EntryPoint entry_set_always_stop_excepts, entry_get_always_stop_excepts;
EntryPoint entry_set_never_stop_excepts, entry_get_never_stop_excepts;
EntryPoint entry_set_ignored_exception_handlers, entry_set_exc_catch_info_list;

// Imports and sub-languages.
EntryPoint entry_get_new_imports, entry_set_import_cb, entry_register_module;
EntryPoint entry_register_sub_language_hook;
PyObject* entry_import(PyObject* self, PyObject* args, PyObject* keywords);

// Host utilities.
EntryPoint entry_GetUserName, entry_GetUserAppDataPath, entry_PyFile_SetEncoding;
EntryPoint entry_PyFile_WriteObject, entry_WaitForInput, entry_CopyIntoBuffer;
EntryPoint entry_PyFrame_LocalsToFast;

// Trace functions that Python code hands to the interpreter.
EntryPoint entry_trace_dispatch, entry_bootstrap_new_thread, entry_thread_exiting;

// Gives the module what only the debug server in sorrel/ calls. False with an error set.
bool add_functions_for_sorrel(PyObject* module);

// The module object as it was first imported (borrowed).
PyObject* this_module();

// Whether init() has run; sets RuntimeError when not.
bool core_is_initialised();

// The calling thread's record, made when there is none; nullptr with an error set.
ThreadData* own_record();

// None, or nullptr when a core operation left an error pending: it is the entry point's to raise.
PyObject* none_unless_error();

// What an entry point answers; an error that the interpreter itself set for want of memory says so.
PyObject* naming_memory_error(PyObject* result);

// Item `index` of the argument tuple (borrowed), or nullptr with IndexError set.
PyObject* argument(PyObject* args, Py_ssize_t index);

}  // namespace morvik

#endif
