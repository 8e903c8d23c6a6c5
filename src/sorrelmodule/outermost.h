// Running the program's code as if nothing ran it.
#ifndef MORVIK_SORRELMODULE_OUTERMOST_H
#define MORVIK_SORRELMODULE_OUTERMOST_H

#include "host/ref.h"

namespace morvik {

// Executes code in a namespace, which has to hold its builtins. Its frame has no caller to have
// them from, and as much of the stack as the outermost frame of an interpreter. None, or nothing
// with an error set, whose traceback goes on in the frame that has called this.
Ref run_outermost(PyObject* code, PyObject* variables);

// The same for a file, as the interpreter reads a script, errors included.
Ref run_file_outermost(const char* path, PyObject* variables);

}  // namespace morvik

#endif
