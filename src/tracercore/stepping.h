// Step requests of a stopped thread, and the decision whether one makes a thread stop here.
#ifndef MORVIK_TRACERCORE_STEPPING_H
#define MORVIK_TRACERCORE_STEPPING_H

#include "host/python.h"
#include "threadops.h"
#include "tracercore/state.h"

namespace morvik {

// Whether the calling thread's step request stops it in `frame`. Logs the reason. Sets no error.
bool stop_here(PyFrameObject* frame, StopEvent event);

// Replaces a record's step request; each object is kept with a new reference. May run Python code
// (destructors of what was replaced).
void set_step_request(ThreadData* record, PyObject* stop_frame, PyObject* return_frame,
                      int line_first, int line_last);

}  // namespace morvik

#endif
