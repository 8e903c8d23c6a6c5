// Knowledge of the program's modules: the replacement __import__, what was loaded before tracing
// began, and module code that runs (again).
#ifndef MORVIK_TRACERCORE_IMPORTS_H
#define MORVIK_TRACERCORE_IMPORTS_H

#include "host/python.h"

namespace morvik {

// Puts the module's own __import__ into the builtins that the calling code sees, once. An error
// may be set: AssertionError when default_import is that very function.
void install_import_hook();

// The replacement itself: same arguments, result and errors as default_import. An error that
// import_cb leaves is set beside the result.
PyObject* import_through_hook(PyObject* args, PyObject* keywords);

// Makes a module's functions, file and breakpoints known, and calls import_cb. Its full file name
// (valid until the process ends), or nullptr. An error that import_cb left is set.
const char* register_module(PyObject* module);

// Registers every module that is loaded, and the main script's file name. The first error that
// import_cb left is set.
void scan_loaded_modules();

// Finds out whether a module by which threads switch stacks has been loaded. No error is set then
// or after.
void notice_stack_switches();

// Module code starts to run: its code objects get their file names, and its file is reported as
// new or reloaded. 0, or -1 with an error set.
int register_module_code(PyFrameObject* frame);

// Reports the file of module code that runs, unless it is no module's. 0, or -1 with an error set.
int __tracer_detect_module_reloads(PyCodeObject* code);

// The paths reported since the last call, as a list; nullptr with an error set.
PyObject* take_new_imports();

}  // namespace morvik

#endif
