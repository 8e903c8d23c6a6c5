// Tracing in all threads of the interpreter, wherever they are: in old frames, or waiting in C.
//
// PyEval_SetTrace acts on the calling thread alone. Here the records of all threads are changed,
// with the interpreter lock held and no Python code run from the first to the last of them: a
// thread may end, and its record be freed, whenever the lock is given away.
#ifndef MORVIK_SORRELMODULE_ALL_THREADS_H
#define MORVIK_SORRELMODULE_ALL_THREADS_H

#include "host/python.h"
#include "host/ref.h"

namespace morvik {

// Gives the trace function that some thread has with this trace object to every thread that has
// none, and the object to the frames on their stacks that have none. Where no thread has it nothing
// is done. `on_end` (a callable without arguments) is called in each of these threads as the last
// of what it runs, unless tracing has been taken from it before. `left_out`: nullptr, or a set of
// the id()s of namespaces: threads without frames are passed by then, and those whose outermost
// frame has one of these as its globals. A thread that brings the debug server into the program is
// passed by in any case. 0, or -1 with MemoryError set and nothing changed.
int trace_all_threads(PyObject* on_end, PyObject* trace_object, PyObject* left_out);

// Takes the trace function that has this trace object from every thread, the calling one
// included, and the object from the frames on their stacks. Sets no error. The caller holds a
// reference to the object.
void untrace_all_threads(PyObject* trace_object);

// In a forked process: the interpreter keeps the records of the threads that are not there any more
// for good. A new thread may get the ident of one of them, so these get one that is nobody's, 0.
// On 2.6 it would also be taken for that one: a debug build aborts then.
void disown_other_threads();

// New list with the idents of the interpreter's threads in the order of their start, or nullptr
// with MemoryError set. The first one has begun the interpreter, and is its main thread.
Ref thread_idents();

}  // namespace morvik

#endif
