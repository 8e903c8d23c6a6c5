"""The names of the module's functions in their order, with the docstrings that users see."""

FUNCTIONS = [
    ("init",
     "Initialize the tracer:  This must be called before using other\n"
     "functions in this module!  Pass in: idle period, \n"
     "exception mode (0=never stop, 1=always stop, 2=stop on unhandled only),\n"
     "install thread hooks callback, idle callback, line callback, return callback,\n"
     "and exception callback.\n"
     "Currently there is also a default_import parameter which should get\n"
     "__builtins__['__import__'] until we can access this correctly on the C side"),
    ("reset",
     "Reset the debug tracer core to blank initial state"),
    ("destroy",
     "Clear all info from the tracer core and reset environment to initial state"),
    ("set_autoquit",
     "Set the autoquit flag.  Set autoquit to 0 to prevent automatic\n"
     "dropping of the debug connection when the bottom frame is reached (as\n"
     "should be done in embedded scripting, where the bottom frame is\n"
     "just the end of a single script invocation)."),
    ("set_idle_period",
     "Set the idle period (in seconds):  The idle call back is called this often"),
    ("set_debug_all_threads",
     "Determine whether to debug all threads.  Set to 1 to debug all threads, or 0 to "
     "debug only\n"
     "one thread at a time and ignore all other threads entirely while one thread is "
     "stopped.\n"),
    ("set_debug_thread_cb",
     "Set callback that determines whether or not to debug on a thread-by-thread\n"
     "basis.  Returns 0 if the thread should be ignored, 1 if it should be stopped "
     "when\n"
     "any other thread is stopped, and 2 if it should be stopped only if it reaches a\n"
     "breakpoint or exception [XXX the latter is unimplemented].\n"),
    ("start_trace",
     " Set trace function to start tracing and set the trace in all frames."),
    ("stop_trace",
     "Remove trace function and stop debugging."),
    ("step_into",
     "Set up to step into next function or to next instruction"),
    ("step_over",
     "Set up to step over the next instruction"),
    ("step_over_line",
     "Set up to step over the next line of code"),
    ("step_over_line_range",
     "Set up to step over the given range of lines"),
    ("step_out",
     "Set up to step out of the current stack frame"),
    ("continue_run",
     "Set up to continue running freely until next breakpoint"),
    ("stop",
     "Set up to stop at next reached run location"),
    ("get_threads",
     "Get the a list of all threads' thread ids.  These can be passed to "
     "get_curr_frame\n"
     "for access to the thread's stack, although some thread ids returned here may "
     "still\n"
     "be running if in C code and thus have no obtainable stack."),
    ("get_curr_frame",
     "Get the current frame for the given thread id -- this is the frame where\n"
     "the thread stopped, so the innermost aka top frame.  This may raise IndexError\n"
     "if the given thread is still running (which may happen if it's stuck in C code)."),
    ("get_thread_name",
     "Get the name of the main function for the given thread."),
    ("is_botframe",
     "Checks given frame to see if it is the bottom frame for its thread, returns 1 "
     "if so."),
    ("get_tracing",
     "Returns whether tracing is active in any thread"),
    ("set_break",
     "Set a breakpoint at given file/line.  Pass in file, line, enabled flag,\n"
     "temporary flag, conditional as string (or None), and ignore count.  If\n"
     "a breakpoint exists, its values will be updated accordingly.  The new breakpoint\n"
     "id is returned as int."),
    ("clear_breaks",
     "Clear all breakpoints at given file/line"),
    ("enable_breaks",
     "Enable/disable all breakpoints at given file and line number"),
    ("ignore_breaks",
     "Ignore all breakpoints at given file and line number for a given number\n"
     "of hits"),
    ("set_breaks_cond",
     "Set conditional for all breakpoints at given file and line number; empty string "
     "to set no conditional"),
    ("clear_all_breaks",
     "Clear all defined breakpoints"),
    ("get_breaks",
     "Get all breakpoints at given file and line number: Returns sequence of\n"
     "(id, enabled, temporary, cond, ignore_count, hit_count) tuples"),
    ("get_file_breaks",
     "Get all breakpoints in given file: Returns sequence of (lineno, id\n"
     "enabled, temporary, cond, ignore_count, hit_count) tuples"),
    ("set_exception_mode",
     "Set exception mode to use : One of kExcNeverStop=0 to never stop\n"
     "on exceptions, kExcAlwaysStop=1 to always stop on exceptions,\n"
     "or kExcUnhandledStop=2 to only stop on unhandled exceptions.\n"),
    ("get_exception_mode",
     "Get exception mode in use : One of kExcNeverStop=0 to never stop\n"
     "on exceptions, kExcAlwaysStop=1 to always stop on exceptions,\n"
     "or kExcUnhandledStop=2 to only stop on unhandled exceptions.\n"),
    ("ignore_exception_loc",
     "Ignore/un-ignore future exceptions at given file, lineno (filename must be as "
     "given\n"
     "in the reported exception)"),
    ("exception_loc_ignored",
     "Check whether exceptions at given file / line number are being ignored bythe "
     "debugger"),
    ("clear_exception_ignores",
     "Clear exception ignores list to blank"),
    ("exiting_on_exception",
     "Returns true when the debugger core has seen an unhandled exception at the\n"
     "bottom frame, and thus any further stepping, etc, will cause the program\n"
     "to exit.  This is used to make sure we close the client connection cleanly\n"
     "in all cases.  Note that this always returns false when autoquit is off\n"
     "since the exception won't cause exit in an embedded environment."),
    ("set_always_stop_excepts",
     "Set the tuple of exception types to always stop on"),
    ("get_always_stop_excepts",
     "Get the tuple of exception types to always stop on"),
    ("set_never_stop_excepts",
     "Set the tuple of exception types to never stop on"),
    ("get_never_stop_excepts",
     "Get the tuple of exception types to never stop on"),
    ("set_ignored_exception_handlers",
     "Sets the dictionary of ignored handlers.  Keys may be either frame or code "
     "objects to ignore"),
    ("set_exc_catch_info_list",
     "Set list of exception info instances.  Each instance should have co_name, "
     "module_name, prints, ignore, & parent attributes.  Class for these instances is "
     "defined in sorrel.py."),
    ("get_new_imports",
     "Used to obtain list of full path names for modules that have been\n"
     "loaded or reloaded since the last call to this function.  Also clears\n"
     "the table of new loaded/reloaded modules to blank."),
    ("set_import_cb",
     "Set the callback called when a module is imported (may be None)"),
    ("register_module",
     "Register module with the debugger"),
    ("register_sub_language_hook",
     "Register a sub-language extension with the debugger"),
    ("sub_language_get_active_hook",
     "Get the active sub language hook in the given thread.  Returns None\n"
     "when no sub-language implementation is active on the thread's stack."),
    ("sub_language_get_frame_category",
     "Get the type of the given frame:  Returns 1 if it's a key frame in the active\n"
     "sub-language implementation, 0 if it's a frame that should be hidden because it\n"
     "is part of the sub-language implementation but not a key frame, and -1 for\n"
     "unknown frames."),
    ("add_to_tstate_tracing",
     "Adds given value to tracing field of the current thread state.  The trace "
     "function will be called only if tracing == 0.  value can be < 0."),
    ("get_tstate_tracing",
     "Returns current value of tracing field of the current thread state.  The trace "
     "function will be called only if tracing == 0."),
    ("set_tstate_use_tracing",
     "Set value of use_tracing field of the current thread state.  The trace & "
     "profile functions will be called only if use_tracing != 0.  The field was add "
     "in Python 2.3; this does nothing in Python 2.0 & 2.1."),
    ("get_tstate_use_tracing",
     "Returns current value of use_tracing field of the current thread state.  The "
     "trace & profile functions will be called only if use_tracing != 0. The field "
     "was add in Python 2.3; this always returns 1 in Python 2.0 & 2.1."),
    ("acquire_sorrel_mutex",
     "Acquire the mutex used to ensure only one thread calls into the debug server."),
    ("release_sorrel_mutex",
     "Release the mutex used to ensure only one thread calls into the debug server."),
    ("raise_exception",
     "Raise given exception in the thread at the next opportunity"),
    ("locals_to_fast",
     "Call LocalsToFast on given frame so changes made in the frame locals dict get\n"
     "put back into the real locals dict\n"),
    ("get_frame_file",
     "Returns the filename associated with the given frame"),
    ("get_current_tstate_id",
     "Returns id of current thread state"),
    ("get_thread_ident_for_tstate_id",
     "Returns id returned by thread.get_ident for given tstate_id"),
    ("is_internal_frame",
     "Returns id returned by thread.get_ident for given tstate_id"),
    ("get_changed_bps_lists",
     "Gets and clears the changed bp lists."),
    ("GetUserName",
     "Return username for process \n"),
    ("GetUserAppDataPath",
     "Returns path name of current users application data directory.  Returns None if "
     "unable to get path, either because there's no appropriate user or if the "
     "directory doesn't exist."),
    ("PyFile_SetEncoding",
     "Calls PyFile_SetEncoding C function"),
    ("PyFile_WriteObject",
     "Calls PyFile_WriteObject C function"),
    ("WaitForInput",
     "Wait until input is available on either the given file object or the socket "
     "file descriptor.  Returns -1 if it was unable to wait for any reason (e.g. if "
     "arg 1 is not a PyFileObject or an internal error occurs), 0 if input on the "
     "debug connection is available, or the number of bytes that can safely be read  "
     "for the file object."),
    ("CopyIntoBuffer",
     "Put data into a writable buffer at given offset,  If data is longer than the "
     "remaining buffer space, it is truncated.  Returns # of bytes copied."),
    ("PyFrame_LocalsToFast",
     "Wrapper around PyFrame_LocalsToFast internal api call."),
    ("trace_dispatch", None),
    ("bootstrap_new_thread", None),
    ("thread_exiting", None),
    ("__import__", None),
]
