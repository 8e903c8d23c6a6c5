// Turning tracing on and off in the whole interpreter, and for the threads that start and end
// meanwhile.
#ifndef MORVIK_TRACERCORE_INSTALL_H
#define MORVIK_TRACERCORE_INSTALL_H

#include "host/python.h"
#include "threadops.h"

namespace morvik {

// Turns tracing on, puts the trace into every frame of every thread and installs it natively in
// the calling one; others follow at their next event. Returns 1; an error that the server's hooks
// callback left is set. Tracing is off again, and MemoryError set, where memory did not suffice.
// Runs Python code.
int start_trace();

// Turns tracing off and takes the trace out of every frame of every thread; the native trace
// function goes from the calling thread now, from others at their next event. An error that the
// hooks callback left is set. Runs Python code.
void __tracer_stop_trace();

// Stores the trace in every frame on a thread's stack and fills its record's bottom frame and
// name. Logs (which may run Python code); sets no error.
void insert_into_thread(PyThreadState* thread);

// Takes the trace out of every frame on a thread's stack; other trace functions stay. Logs; sets
// no error.
void remove_from_thread(PyThreadState* thread);

// Installs or removes the native trace function in the calling thread, unless its record says so
// already. Returns 1.
int set_trace_for_current_thread(int on);

// Ends tracing of the calling thread alone: remove_from_thread() and the native trace function.
void untrace_current_thread();

// Prepares a thread that starts: a record of its own (an older one under the same thread state is
// dropped), hooked frames, the native trace function.
void bootstrap_current_thread();

// Whether a frame is the interpreter's own start-up code of a thread. Sets no error.
bool is_bootstrap_frame(PyFrameObject* frame);

// Whether a frame's file belongs to the debugger: 1 or 0, or -1 with an error set.
int is_internal_frame(PyFrameObject* frame);

}  // namespace morvik

#endif
