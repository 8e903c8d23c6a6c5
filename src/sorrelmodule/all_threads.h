// Tracing in all threads of the interpreter, wherever they are: in old frames, or waiting in C.
//
// PyEval_SetTrace acts on the calling thread alone. Here the records of all threads are changed,
// with the interpreter lock held and no Python code run from the first to the last of them: a
// thread may end, and its record be freed, whenever the lock is given away.
#ifndef MORVIK_SORRELMODULE_ALL_THREADS_H
#define MORVIK_SORRELMODULE_ALL_THREADS_H

#include "host/python.h"

namespace morvik {

// Gives the calling thread's trace function to every other thread that has none, and its trace
// object to the frames on their stacks that have none. `on_end` (a callable without arguments) is
// called in each of these threads as the last of what it runs, unless tracing has been taken from
// it before. 0, or -1 with an error set and nothing changed: RuntimeError when the calling thread
// is not traced, MemoryError.
int trace_all_threads(PyObject* on_end);

// Takes the trace function that has this trace object from every thread, the calling one
// included, and the object from the frames on their stacks. Sets no error. The caller holds a
// reference to the object.
void untrace_all_threads(PyObject* trace_object);

}  // namespace morvik

#endif
