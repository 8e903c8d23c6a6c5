#include "tracercore/quiet.h"

#include "conames.h"
#include "dprintf.h"
#include "host/ref.h"
#include "platform/platform.h"
#include "tracercore/exceptions.h"
#include "tracercore/policy.h"
#include "tracercore/rest.h"
#include "tracercore/returning.h"
#include "tracercore/state.h"
#include "tracercore/stepping.h"
#include "tracercore/watching.h"

namespace morvik {

namespace {

// Whether no idle call is due. Counts the event only then.
bool idle_is_quiet() {
    if (core.idle_thread != kNoOwner || !(core.idle_period > 0.0F)) {
        return true;
    }
    if (core.idle_event_count < core.idle_check_interval) {
        ++core.idle_event_count;
        return true;
    }
    if (wall_clock_seconds() >= core.next_idle_time) {
        return false;
    }
    core.idle_event_count = 0;
    return true;
}

bool step_is_quiet(ThreadData* record, PyFrameObject* frame) {
    return record->sub_lang_hook == nullptr &&
           (core.import_cb_thread != kNoOwner || !is_stop(decide_step(record, frame)));
}

// Whether no breakpoint can stop at the line.
bool is_passed_line(const PyCodeObject* code, int line) {
    if (core.breakpoints.by_line.num_entries == 0 || bp_is_passed(&core.breakpoints, code, line)) {
        return true;
    }
    if (bp_first_on_line(&core.breakpoints, line) != nullptr) {
        return false;
    }
    if (is_recently_registered(&code_names, code)) {
        bp_note_passed(&core.breakpoints, code, line);
    }
    return true;
}

bool line_is_quiet(ThreadData* record, PyFrameObject* frame) {
    return !is_watched(frame) && step_is_quiet(record, frame) &&
           is_passed_line(frame->f_code, frame->f_lineno);
}

bool return_is_quiet(ThreadData* record, PyFrameObject* frame, const PyObject* value) {
    return (value != nullptr || !is_printed_stop(core.exception_mode)) &&
           record->return_frame != as_object(frame) && record->bot_frame != as_object(frame) &&
           !is_watched(frame) && step_is_quiet(record, frame);
}

bool exception_is_quiet(ThreadData* record, PyFrameObject* frame, PyObject* exception) {
    return exception != nullptr && PyTuple_Check(exception) && PyTuple_GET_SIZE(exception) > 0 &&
           step_is_quiet(record, frame) &&
           !may_stop_at_exception(record, frame, PyTuple_GET_ITEM(exception, 0));
}

bool call_is_quiet(const ThreadData* record, const PyFrameObject* frame) {
    return frame->f_locals != frame->f_globals && record->bot_frame != Py_None &&
           core.sub_languages.registered == 0 && is_recently_registered(&code_names, frame->f_code);
}

bool event_is_quiet(ThreadData* record, PyFrameObject* frame, int event, PyObject* argument) {
    switch (event) {
        case kEventException:
            return exception_is_quiet(record, frame, argument);
        case kEventLine:
            return line_is_quiet(record, frame);
        case kEventReturn:
            return return_is_quiet(record, frame, argument);
        case kEventCall:
            return call_is_quiet(record, frame);
        default:
            return false;
    }
}

// What the handler of a quiet event would leave behind, other than one of a line. Apart, so that
// what it keeps in registers costs a line nothing.
[[gnu::noinline]] void leave_traces(const PyThreadState* thread, ThreadData* record,
                                    PyFrameObject* frame, int event, PyObject* argument) {
    if (event == kEventCall) {
        count_registry_call(&code_names);
        hook_called_frame(thread, frame);
    } else if (event == kEventException) {
        const ErrnoGuard keep_errno;
        note_exception(record, frame, PyTuple_GET_ITEM(argument, 0));
        if (set_frame_exc_info(&core.catch_info, frame, argument) != 0) {
            PyErr_Clear();
        }
    } else if (event == kEventReturn) {
        forget_ended_frame(record, frame);
        if (core.catch_info.frame_exc_info != nullptr) {
            const ErrnoGuard keep_errno;
            clear_frame_exc_info(&core.catch_info, frame);
        }
        note_return(record, frame, argument);
    }
}

}  // namespace

bool pass_quietly(PyFrameObject* frame, int event, PyObject* argument) {
    if (core.mutex_owner != kNoOwner || core.pending_raise_count != 0 || core.tracing == 0 ||
        dprintf_file != nullptr || !is_frame(frame)) {
        return false;
    }
    PyThreadState* const thread = current_thread_state();
    const Policy policy = known_policy(thread);
    ThreadData* const record = thread_table_find(&core.threads, thread);
    if (policy != Policy::kDebug) {
        if (record != nullptr) {
            record->in_step = nullptr;  // nothing is kept up to date in such a thread
        }
        return policy == Policy::kIgnore;
    }
    if (record == nullptr || !record->frames_hooked || !record->trace_installed ||
        record->woken_frame == frame || !event_is_quiet(record, frame, event, argument) ||
        !idle_is_quiet()) {
        return false;
    }
    ++core.event_count;
    if (record->thread_ident != thread->thread_id) {
        record->thread_ident = thread->thread_id;
    }
    if (event != kEventLine) {
        leave_traces(thread, record, frame, event, argument);
        if (thread->c_profilefunc == nullptr && event != kEventException && !core.always_trace) {
            watch_calls(event == kEventCall ? frame : frame->f_back);
        }
    }
    return true;
}

}  // namespace morvik
