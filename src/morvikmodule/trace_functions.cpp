// The trace functions that Python code hands to the interpreter for its threads.
#include "morvikmodule/entry_points.h"
#include "tracercore/dispatch.h"
#include "tracercore/install.h"
#include "tracercore/state.h"

namespace morvik {

PyObject* entry_trace_dispatch(PyObject* /*self*/, PyObject* args) {
    PyObject* frame = nullptr;
    const char* event = nullptr;
    PyObject* event_argument = nullptr;
    if (!core_is_initialised() ||
        PyArg_ParseTuple(args, "OsO:trace_dispatch", &frame, &event, &event_argument) == 0) {
        return nullptr;
    }
    return dispatch_named_event(frame, event, event_argument);
}

PyObject* entry_bootstrap_new_thread(PyObject* self, PyObject* args) {
    if (!core_is_initialised()) {
        return nullptr;
    }
    bootstrap_current_thread();
    return entry_trace_dispatch(self, args);
}

PyObject* entry_thread_exiting(PyObject* /*self*/, PyObject* /*args*/) {
    forget_thread(current_thread_state());
    return new_none();
}

}  // namespace morvik
