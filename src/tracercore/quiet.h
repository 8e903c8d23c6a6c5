// The short way through the native trace function, for events at which nothing is due: nearly all
// of them. It does what the long way (dispatch.cpp) would leave behind, without taking the mutex
// and without noting the frame: while the interpreter lock is held and no Python code runs, nobody
// could see either.
#ifndef MORVIK_TRACERCORE_QUIET_H
#define MORVIK_TRACERCORE_QUIET_H

#include "host/python.h"

namespace morvik {

// True when the event is done with. False, with nothing changed, when the long way must be gone:
// always while a diagnostic stream is set, since that way logs. Calls, lines and returns run no
// Python code, allocate nothing and make no system call, unless an exception is remembered for a
// frame: remembering and forgetting one releases objects. errno is kept.
bool pass_quietly(PyFrameObject* frame, int event, PyObject* argument);

}  // namespace morvik

#endif
