// What happens on a call, line or return event of a debugged thread, and the calls into the debug
// server that follow from it.
#ifndef MORVIK_TRACERCORE_EVENTS_H
#define MORVIK_TRACERCORE_EVENTS_H

#include "host/python.h"
#include "tracercore/state.h"

namespace morvik {

// Anything but a frame is passed by. No error is left set unless the result says so.
HandlerResult dispatch_call(PyFrameObject* frame);
HandlerResult dispatch_line(PyFrameObject* frame);
// `value` is what the frame returns, nullptr when an exception leaves it.
HandlerResult dispatch_return(PyFrameObject* frame, PyObject* value);

// callback(frame, changed_bps), or callback(frame, argument, changed_bps) where there is an
// argument. A failure is written to the diagnostic output and ends tracing of the thread.
HandlerResult call_server(PyObject* callback, PyFrameObject* frame, PyObject* argument);

// Whether the frame is the calling thread's bottom frame. If so the program, or this thread's part
// of it, is over: the server is told, if it wants to be.
bool leave_bottom_frame(PyFrameObject* frame);

// install_thread_hooks_cb(on); an error that it raises stays set.
void call_install_thread_hooks(int on);

}  // namespace morvik

#endif
