#include "tracercore/dispatch.h"

#include "dbgcommon.h"
#include "dprintf.h"
#include "host/ref.h"
#include "threadops.h"
#include "tracercore/events.h"
#include "tracercore/exceptions.h"
#include "tracercore/install.h"
#include "tracercore/policy.h"
#include "tracercore/quiet.h"
#include "tracercore/rest.h"
#include "tracercore/returning.h"
#include "tracercore/state.h"
#include "tracercore/stepping.h"

namespace morvik {

namespace {

// Raises the exception that is queued for the calling thread, if one is.
bool raise_pending_exception() {
    ThreadData* const record = thread_table_current(&core.threads);
    if (record == nullptr || record->pending_exc == nullptr) {
        return false;
    }
    const Ref exception = Ref::steal(record->pending_exc);
    record->pending_exc = nullptr;
    --core.pending_raise_count;
    if (PyExceptionInstance_Check(exception.get())) {
        // The class of an old-style instance is not its type.
        PyErr_SetObject(PyExceptionInstance_Class(exception.get()), exception.get());
    } else {
        PyErr_SetNone(exception.get());
    }
    return true;
}

// Whether the calling thread's record could be found or made.
bool enter_frame(PyFrameObject* frame) {
    ThreadData* const record = thread_table_get_or_add(&core.threads, current_thread_state());
    if (record == nullptr) {
        discard_callback_error();
        return false;
    }
    set_slot(record->curr_frame, as_object(frame));
    return true;
}

void leave_frame() {
    ThreadData* const record = thread_table_current(&core.threads);
    if (record != nullptr) {
        set_slot(record->curr_frame, Py_None);
    }
}

bool ensure_thread_traced() {
    if (core.tracing == 0) {
        dprintf(kLogCore, "trace_dispatch called while not tracing; thread = %ld\n",
                get_thread_ident());
        untrace_current_thread();
        return false;
    }
    PyThreadState* const thread = current_thread_state();
    const ThreadData* record = thread_table_get_or_add(&core.threads, thread);
    if (record == nullptr) {
        discard_callback_error();
        return false;
    }
    if (!record->frames_hooked) {
        insert_into_thread(thread);
        record = thread_table_find(&core.threads, thread);
    }
    if (record == nullptr || !record->trace_installed) {
        set_trace_for_current_thread(1);
    }
    return true;
}

struct Outcome {
    bool stopping;   // tracing of this thread ends
    bool propagate;  // the pending error goes to the traced code
};

Outcome handle_call(PyFrameObject* frame) {
    const HandlerResult result = dispatch_call(frame);
    if (result == kPropagateError) {
        dprintf(kLogCore, "PROPAGATING EXCEPTION INTO USER CODE\n");
        return {false, true};
    }
    if (result != kHandled) {
        dprintf(kLogCore, "TRACER CALL STOPPED TRACER\n");
        return {true, false};
    }
    hook_called_frame(current_thread_state(), frame);
    return {false, false};
}

Outcome ended_if(HandlerResult result, const char* message) {
    if (result != kHandled) {
        dprintf(kLogCore, message);
    }
    return {result != kHandled, false};
}

Outcome handle_event(PyFrameObject* frame, int event, PyObject* argument) {
    switch (event) {
        case kEventCall:
            return handle_call(frame);
        case kEventException:
            return ended_if(dispatch_exception(frame, argument), "TRACER EXC STOPPED TRACER\n");
        case kEventLine:
            return ended_if(dispatch_line(frame), "TRACER LINE STOPPED TRACER\n");
        case kEventReturn:
            return ended_if(dispatch_return(frame, argument), "TRACER RETURN STOPPED TRACER\n");
        default:
            return {false, false};
    }
}

// One event of a thread that is debugged, from taking the mutex to giving it back.
bool serialised_event(PyFrameObject* frame, int event, PyObject* argument) {
    acquire_sorrel_mutex();
    Outcome outcome = {false, false};
    if (!ensure_thread_traced()) {
        dprintf(kLogCore, "TRACER STOPPED WHILE WAITING FOR MUTEX\n");
    } else {
        ++core.event_count;
        if (ThreadData* const record = thread_table_current(&core.threads); record != nullptr) {
            ++record->event_number;
        }
        if (call_idle() != 0) {
            dprintf(kLogCore, "IDLE STOPPED TRACER\n");
            outcome.stopping = true;
        } else {
            outcome = handle_event(frame, event, argument);
        }
    }
    if (outcome.stopping || core.tracing == 0) {
        const PendingErrorGuard keep_propagated;
        untrace_current_thread();
    }
    leave_frame();
    release_sorrel_mutex();
    return outcome.propagate;
}

int dispatch_in_turn(PyFrameObject* frame, int event, PyObject* argument) {
    const long ident = get_thread_ident();
    if (core.pending_raise_count != 0 && raise_pending_exception()) {
        return -1;
    }
    if (core.mutex_owner == ident) {
        dprintf(kLogCore, "recursive c_dispatch\n");
        return 0;
    }
    if (core.debug_all_threads == 0 && core.mutex_owner != kNoOwner) {
        dprintf(kLogCore, "ignoring thread in c_dispatch\n");
        return 0;
    }
    if (core.debug_thread_cb != nullptr && thread_policy(ident) == 0) {
        dprintf(kLogCore, "ignore thread by policy\n");
        return 0;
    }
    if (!enter_frame(frame)) {
        return 0;
    }
    return serialised_event(frame, event, argument) ? -1 : 0;
}

// Apart, so that what it keeps in registers costs a quiet event nothing.
[[gnu::noinline]] int dispatch_the_long_way(PyFrameObject* frame, int event, PyObject* argument) {
    const ErrnoGuard keep_errno;
    ThreadData* record = thread_table_current(&core.threads);
    if (record != nullptr && is_left_over(record, frame, event)) {
        return 0;
    }
    const int result = dispatch_in_turn(frame, event, argument);
    record = thread_table_current(&core.threads);
    if (event == kEventReturn && record != nullptr) {
        forget_ended_frame(record, frame);
        note_return(record, frame, argument);
    }
    const bool goes_on_here = event != kEventReturn && result == 0;
    watch_calls(goes_on_here && is_frame(frame) ? frame : frame_back(frame));
    if (event == kEventException && record != nullptr && is_frame(frame) && argument != nullptr &&
        PyTuple_Check(argument) && PyTuple_GET_SIZE(argument) > 0) {
        note_exception(record, frame, PyTuple_GET_ITEM(argument, 0));
    }
    // What goes on after a call or a return is settled when the interpreter profiles it.
    if ((event == kEventLine || event == kEventException) && is_frame(frame)) {
        settle(frame);
    }
    return result;
}

}  // namespace

int c_dispatch(PyObject* /*trace_object*/, PyFrameObject* frame, int event, PyObject* argument) {
    return pass_quietly(frame, event, argument) ? 0 : dispatch_the_long_way(frame, event, argument);
}

PyObject* dispatch_named_event(PyObject* frame, const char* event, PyObject* argument) {
    constexpr int kNoEvent = -1;
    int code = kNoEvent;
    switch (*event) {
        case 'c':
            code = kEventCall;
            break;
        case 'e':
            code = kEventException;
            break;
        case 'l':
            code = kEventLine;
            break;
        case 'r':
            code = kEventReturn;
            break;
        default:
            break;
    }
    if (code != kNoEvent && c_dispatch(core.trace_dispatch, as_frame(frame), code, argument) != 0) {
        return PyErr_Occurred() == nullptr ? new_none() : nullptr;
    }
    if (current_thread_state()->c_traceobj == core.trace_dispatch) {
        PyEval_SetTrace(c_dispatch, core.trace_dispatch);
    }
    Py_INCREF(core.trace_dispatch);
    return core.trace_dispatch;
}

}  // namespace morvik
