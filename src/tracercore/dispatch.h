// The native trace function: the one place where the interpreter enters the core while the
// program runs.
#ifndef MORVIK_TRACERCORE_DISPATCH_H
#define MORVIK_TRACERCORE_DISPATCH_H

#include "host/python.h"

namespace morvik {

// The trace function for PyEval_SetTrace. `argument` is the interpreter's, borrowed, may be
// nullptr. 0 to continue; -1 with an error set that must be raised in the traced code. errno is
// kept. The debug server's callbacks run inside, and so any Python code.
int c_dispatch(PyObject* trace_object, PyFrameObject* frame, int event, PyObject* argument);

// The same for a caller in Python, with the event's name. New reference to `trace_dispatch`, or
// to None, or nullptr with an error set.
PyObject* dispatch_named_event(PyObject* frame, const char* event, PyObject* argument);

}  // namespace morvik

#endif
