// Exception events: whether one stops, by the policy that the debug server set, and the report.
#ifndef MORVIK_TRACERCORE_EXCEPTIONS_H
#define MORVIK_TRACERCORE_EXCEPTIONS_H

#include "exceptops/catch_info.h"
#include "exceptops/ignored_locations.h"
#include "host/python.h"
#include "tracercore/state.h"

namespace morvik {

// Exception modes. 4 and 5 are alike: stop also where the program prints an exception.
enum ExceptionMode {
    kExcNeverStop = 0,
    kExcAlwaysStop = 1,
    kExcUnhandledStop = 2,
    kExcPrintedStop = 4,
    kExcPrintedStopToo = 5,
};

inline bool is_printed_stop(int mode) {
    return mode == kExcPrintedStop || mode == kExcPrintedStopToo;
}

// Whether the policy stops at an exception of this type, quiet places not considered. Notes when
// it ends the thread. Sets no error.
bool stop_at_exception_no_filters(PyFrameObject* frame, PyObject* type);

// Whether it may do so, as far as can be told without running Python code: false only where it
// surely does not.
bool may_stop_at_exception(const ThreadData* record, PyFrameObject* frame, PyObject* type);

// An exception event with the interpreter's (type, value, traceback). Leaves no error set.
HandlerResult dispatch_exception(PyFrameObject* frame, PyObject* exception);

// An exception leaves a frame; `exception` is the one last seen in it, or nullptr. Leaves no error
// set.
HandlerResult exception_leaves_frame(PyFrameObject* frame, PyObject* exception);

}  // namespace morvik

#endif
