// Step requests of a stopped thread, and the decision whether one makes a thread stop here.
#ifndef MORVIK_TRACERCORE_STEPPING_H
#define MORVIK_TRACERCORE_STEPPING_H

#include "host/python.h"
#include "threadops.h"
#include "tracercore/passed_code.h"
#include "tracercore/state.h"

namespace morvik {

// What a thread's step request says of a frame.
enum class StepDecision {
    kRunFreely,  // no stop: there is no request
    kRunOn,      // no stop: not there yet
    kStopAnywhere,
    kStopInFrame,    // the stop frame, outside the lines that are stepped over
    kStopFrameLeft,  // the stop frame is not on the stack any more
};

inline bool is_stop(StepDecision decision) {
    return decision != StepDecision::kRunFreely && decision != StepDecision::kRunOn;
}

// Whether the thread's step request stops it in the frame since it does in any that it comes to.
inline bool stops_in_any(const ThreadData* record, const PyFrameObject* frame) {
    return record->stop_frame == Py_None &&
           !(record->passes_code && is_code_to_pass(frame->f_code));
}

// Walking outward from a frame: was the stop frame, which is not None, left, so that the thread's
// bottom frame comes first? Remembers in the record how far the answer holds, so that the walk is
// taken once for a stack: whoever asks at every call and return is told by a comparison.
bool stop_frame_was_left(ThreadData* record, PyFrameObject* frame);

// Whether the frame is on another stack than the one that the thread's step request is for. A step
// does not end there, until the outermost frame of its own stack is left.
bool is_elsewhere(ThreadData* record, PyFrameObject* frame);

// To be called when a frame's return event is over: what is remembered goes with the frame.
inline void forget_ended_frame(ThreadData* record, const PyFrameObject* frame) {
    if (record->in_step == frame) {
        record->in_step = record->stop_frame == reinterpret_cast<const PyObject*>(frame)
                              ? nullptr
                              : frame->f_back;
    }
    if (record->step_base == frame) {
        record->step_base = nullptr;
    }
    if (record->woken_frame == frame) {
        record->woken_frame = nullptr;
    }
    if (record->unwound_frame == frame) {
        record->unwound_frame = nullptr;
    }
}

// Runs no Python code.
StepDecision decide_step_request(ThreadData* record, PyFrameObject* frame);
inline StepDecision decide_step(ThreadData* record, PyFrameObject* frame) {
    return record->stop_frame == nullptr ? StepDecision::kRunFreely
                                         : decide_step_request(record, frame);
}

// Whether the calling thread's step request stops it in `frame`. Logs the reason. Sets no error.
bool stop_here(PyFrameObject* frame, StopEvent event);

// Replaces a record's step request; each object is kept with a new reference. May run Python code
// (destructors of what was replaced).
void set_step_request(ThreadData* record, PyObject* stop_frame, PyObject* return_frame,
                      int line_first, int line_last, bool passes_code = false);

// Has the calling thread, whose record this is, stop at its next event, on whatever stack. The rest
// as before.
void request_stop(ThreadData* record);

}  // namespace morvik

#endif
