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

// install_thread_hooks_cb(on); an error that it raises stays set.
void call_install_thread_hooks(int on);

}  // namespace morvik

#endif
