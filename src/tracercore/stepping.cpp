#include "tracercore/stepping.h"

#include "dbgcommon.h"
#include "dprintf.h"
#include "host/ref.h"
#include "tracercore/rest.h"
#include "tracercore/returning.h"

namespace morvik {

namespace {

bool in_line_range(const ThreadData* record, const PyFrameObject* frame) {
    if (record->line_first == -1) {
        return false;
    }
    const int line = frame_line(frame);
    return record->line_first <= line && line <= record->line_last;
}

PyFrameObject* outermost(PyFrameObject* frame) {
    while (is_frame(frame->f_back)) {
        frame = frame->f_back;
    }
    return frame;
}

}  // namespace

bool is_elsewhere(ThreadData* record, PyFrameObject* frame) {
    if (!core.stacks_switch || record->step_base == nullptr) {
        return false;
    }
    const bool is_in_step = record->in_step != nullptr &&
                            (record->in_step == frame || record->in_step == frame->f_back);
    return !is_in_step && outermost(frame) != record->step_base;
}

bool stop_frame_was_left(ThreadData* record, PyFrameObject* frame) {
    if (record->in_step != nullptr) {
        if (record->in_step == frame) {
            return false;
        }
        if (record->in_step == frame->f_back && record->bot_frame != as_object(frame)) {
            record->in_step = frame;
            return false;
        }
    }
    record->in_step = nullptr;
    for (PyFrameObject* outer = frame; outer != nullptr; outer = frame_back(outer)) {
        if (as_object(outer) == record->stop_frame) {
            record->in_step = frame;
            return false;
        }
        if (as_object(outer) == record->bot_frame) {
            return true;
        }
    }
    // Not every stack has the thread's bottom frame.
    return core.stacks_switch;
}

StepDecision decide_step_request(ThreadData* record, PyFrameObject* frame) {
    if (is_elsewhere(record, frame)) {
        return StepDecision::kRunOn;
    }
    if (record->stop_frame == Py_None) {
        return stops_in_any(record, frame) ? StepDecision::kStopAnywhere : StepDecision::kRunOn;
    }
    if (record->stop_frame == as_object(frame) && !in_line_range(record, frame)) {
        return StepDecision::kStopInFrame;
    }
    return stop_frame_was_left(record, frame) ? StepDecision::kStopFrameLeft : StepDecision::kRunOn;
}

bool stop_here(PyFrameObject* frame, StopEvent event) {
    if (core.import_cb_thread != kNoOwner) {
        dprintf(kLogCore, "Not stopping here because import callback is active\n");
        return false;
    }
    if (core.tracing == 0) {
        dprintf(kLogCore, "Not stopping here because no longer tracing\n");
        return false;
    }
    ThreadData* record = thread_table_current(&core.threads);
    if (record != nullptr && record->sub_lang_hook != nullptr) {
        if (sub_language_stop_test(frame, event)) {
            return true;
        }
        // The hook's own code may have changed everything, each time that it ran.
        if (is_implementation_frame(thread_table_current(&core.threads), frame)) {
            return false;
        }
        record = thread_table_current(&core.threads);
    }
    if (record == nullptr) {
        dprintf(kLogCore, "ERROR: UNEXPECTED thread_data == NULL (while still tracing)!\n");
        return false;
    }
    const StepDecision decision = decide_step(record, frame);
    if (is_stop(decision)) {
        check_breakpoints(frame, event);  // they count it, however the thread came to stop
    }
    switch (decision) {
        case StepDecision::kRunFreely:
            dprintf(kLogCore, "Not stopping here because stop_frame == NULL\n");
            break;
        case StepDecision::kRunOn:
            break;
        case StepDecision::kStopAnywhere:
            dprintf(kLogCore, "Stopping here because stop_frame == None\n");
            break;
        case StepDecision::kStopInFrame:
            dprintf(kLogCore, "Stopping here because stop_frame == current frame\n");
            break;
        case StepDecision::kStopFrameLeft:
            dprintf(kLogCore, "Stopping because bot_frame is found before the stop frame\n");
            break;
    }
    return is_stop(decision);
}

void set_step_request(ThreadData* record, PyObject* stop_frame, PyObject* return_frame,
                      int line_first, int line_last, bool passes_code) {
    // The record is complete before anything is released: a destructor may free it.
    const Ref old_stop_frame = Ref::steal(record->stop_frame);
    const Ref old_return_frame = Ref::steal(record->return_frame);
    Py_XINCREF(stop_frame);
    record->stop_frame = stop_frame;
    Py_INCREF(return_frame);
    record->return_frame = return_frame;
    record->line_first = line_first;
    record->line_last = line_last;
    record->passes_code = passes_code;
    record->in_step = nullptr;
    PyFrameObject* const innermost = current_thread_state()->frame;
    record->step_base = innermost != nullptr ? outermost(innermost) : nullptr;
    if (stop_frame != nullptr) {
        wake_thread(current_thread_state());
    }
    begin_noting_returns(record);
}

void request_stop(ThreadData* record) {
    const Ref old_stop_frame = Ref::steal(record->stop_frame);
    record->stop_frame = new_none();
    record->line_first = -1;
    record->line_last = -1;
    record->passes_code = false;
    record->in_step = nullptr;
    record->step_base = nullptr;
    wake_thread(current_thread_state());
}

}  // namespace morvik
