#include "tracercore/returning.h"

#include "dbgcommon.h"
#include "host/ref.h"
#include "returned_calls.h"
#include "tracercore/state.h"

namespace morvik {

namespace {

// The frame whose calls a step request goes over; nullptr for none.
PyFrameObject* noted_caller(const ThreadData* record) {
    PyObject* const place = record->stop_frame == Py_None ? record->curr_frame : record->stop_frame;
    return core.notes_returns && is_frame(place) ? as_frame(place) : nullptr;
}

// Whether a frame is that of a function which has returned. A generator yields, to whatever asks it
// for more; the code of a module, and of a class, is not called.
bool is_returned_call(const PyFrameObject* frame, const PyObject* value) {
    const int flags = frame->f_code->co_flags;
    const bool is_class = (flags & CO_OPTIMIZED) == 0 && value == frame->f_locals;
    return value != nullptr && (flags & CO_NEWLOCALS) != 0 && (flags & CO_GENERATOR) == 0 &&
           !is_class;
}

}  // namespace

void begin_noting_returns(ThreadData* record) {
    PyFrameObject* const caller = noted_caller(record);
    if (record->returned == nullptr && caller != nullptr) {
        record->returned = returned_calls_new();
        if (record->returned == nullptr) {
            report_out_of_memory("what the calls of a step return");
        }
    }
    if (record->returned != nullptr) {
        returned_calls_begin(record->returned, caller);
    }
}

void note_return_in_step(ThreadData* record, PyFrameObject* frame, PyObject* value) {
    ReturnedCalls* const returned = record->returned;
    PyFrameObject* const caller = frame_back(frame);
    const bool is_noted = caller != nullptr && is_returned_call(frame, value);
    const ErrnoGuard keep_errno;
    if (returned->caller == frame) {
        // The step goes on where that has been called.
        if (is_noted) {
            returned_calls_begin_with(returned, caller, frame, value);
        } else {
            returned_calls_begin(returned, caller);
        }
    } else if (is_noted && returned->caller == caller) {
        returned_calls_add(returned, frame, value);
    }
}

}  // namespace morvik
