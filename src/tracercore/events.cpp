#include "tracercore/events.h"

#include "conames.h"
#include "dbgcommon.h"
#include "dprintf.h"
#include "host/ref.h"
#include "tracercore/exceptions.h"
#include "tracercore/imports.h"
#include "tracercore/policy.h"
#include "tracercore/rest.h"
#include "tracercore/stepping.h"
#include "tracercore/watching.h"

namespace morvik {

namespace {

bool has_sub_language_hook() {
    const ThreadData* const record = thread_table_current(&core.threads);
    return record != nullptr && record->sub_lang_hook != nullptr;
}

// Whether a step out waits for this frame's return. Frames of a sub-language are its hook's.
bool is_return_frame(PyFrameObject* frame) {
    const ThreadData* const record = thread_table_current(&core.threads);
    return record != nullptr && record->return_frame == as_object(frame) &&
           sub_language_category(record, frame) == kUnknownFrame;
}

// What is kept for a frame goes with it.
void forget_frame(PyFrameObject* frame) {
    clear_frame_exc_info(&core.catch_info, frame);
    leave_sub_language_frame(frame);
}

// Gives a function's code its file name the first time it runs. False with an error set.
bool register_function_code(PyFrameObject* frame) {
    PyCodeObject* const code = frame->f_code;
    if (registered_pathname(&code_names, code) == nullptr) {
        if (PyErr_Occurred() != nullptr) {
            return false;
        }
        resolve_and_register(&code_names, frame->f_globals, code->co_filename, code);
    }
    return true;
}

}  // namespace

HandlerResult call_server(PyObject* callback, PyFrameObject* frame, PyObject* argument) {
    const Ref held = Ref::share(callback);
    const CompleteFrames complete;
    if (core.debug_all_threads != 0) {
        wake_all_threads();  // to wait at their next events
    }
    const Ref changed = Ref::steal(bp_take_changed(&core.breakpoints));
    Ref result;
    if (changed && argument == nullptr) {
        result = Ref::steal(call_with_2(held.get(), as_object(frame), changed.get()));
    } else if (changed) {
        result = Ref::steal(call_with_3(held.get(), as_object(frame), argument, changed.get()));
    }
    if (!result) {
        discard_callback_error();
        return kEndTracing;
    }
    return kHandled;
}

bool leave_bottom_frame(PyFrameObject* frame) {
    ThreadData* const record = thread_table_current(&core.threads);
    if (record == nullptr || record->bot_frame != as_object(frame)) {
        return false;
    }
    set_slot(record->bot_frame, Py_None);
    if (core.autoquit != 0) {
        const Ref callback = Ref::share(core.callbacks.quit_cb);
        const Ref result = Ref::steal(PyObject_CallObject(callback.get(), nullptr));
        if (!result) {
            discard_callback_error();
        }
    }
    forget_thread_policy(get_thread_ident());
    return true;
}

HandlerResult dispatch_call(PyFrameObject* frame) {
    if (core.tracing == 0) {
        return kEndTracing;
    }
    if (!is_frame(frame)) {
        return kHandled;
    }
    dprintf(kLogCore, "in call: locals = %p, globals = %p, thread = %ld\n", frame->f_locals,
            frame->f_globals, get_thread_ident());
    const bool registered = frame->f_locals != frame->f_globals ? register_function_code(frame)
                                                                : register_module_code(frame) == 0;
    if (!registered) {
        return kPropagateError;
    }
    ThreadData* const record = thread_table_current(&core.threads);
    if (record != nullptr && record->bot_frame == Py_None) {
        set_slot(record->bot_frame, as_object(frame));
    }
    track_sub_language(frame);
    if (has_sub_language_hook() && sub_language_stop_test(frame, kStopAtCall)) {
        return call_server(core.callbacks.line_cb, frame, nullptr);
    }
    return kHandled;
}

HandlerResult dispatch_line(PyFrameObject* frame) {
    if (core.tracing == 0) {
        return kEndTracing;
    }
    if (!is_frame(frame)) {
        return kHandled;
    }
    const PendingErrorGuard keep_error;
    if (dprintf_file != nullptr) {
        dprintf(kLogCore, "in dispatch_line: file=%s, lineno=%d\n",
                text_or_null(LookupCOPathname(&code_names, frame)), frame->f_lineno);
    }
    look_at_watched(frame, false);
    if (!stop_here(frame, kStopAtLine) && check_breakpoints(frame, kStopAtLine) == 0) {
        return kHandled;
    }
    return call_server(core.callbacks.line_cb, frame, nullptr);
}

HandlerResult dispatch_return(PyFrameObject* frame, PyObject* value) {
    if (core.tracing == 0) {
        return kEndTracing;
    }
    if (!is_frame(frame)) {
        return kHandled;
    }
    if (value == nullptr) {
        const Ref exception = Ref::share(get_frame_exc_info(&core.catch_info, frame));
        if (exception_leaves_frame(frame, exception.get()) != kHandled) {
            forget_frame(frame);
            return kEndTracing;
        }
        if (frame->f_trace == nullptr && core.tracing == 0) {
            return kHandled;
        }
    }
    look_at_watched(frame, true);
    if (is_return_frame(frame) || stop_here(frame, kStopAtReturn)) {
        if (call_server(core.callbacks.return_cb, frame, value != nullptr ? value : Py_None) !=
            kHandled) {
            forget_frame(frame);
            return kEndTracing;
        }
    } else if (leave_bottom_frame(frame) && frame->f_trace == nullptr && core.tracing == 0) {
        return kHandled;
    }
    forget_frame(frame);
    return kHandled;
}

void call_install_thread_hooks(int on) {
    const Ref callback = Ref::share(core.callbacks.install_thread_hooks_cb);
    const Ref number = Ref::steal(PyInt_FromLong(on));
    if (number) {
        const Ref result = Ref::steal(call_with_1(callback.get(), number.get()));
    }
}

}  // namespace morvik
