#include "tracercore/exceptions.h"

#include <cstring>

#include "conames.h"
#include "dbgcommon.h"
#include "dprintf.h"
#include "exceptops/handlers.h"
#include "host/ref.h"
#include "tracercore/events.h"
#include "tracercore/stepping.h"

namespace morvik {

namespace {

bool is_kind_of(PyObject* type, PyObject* types) {
    // Classes that are asked may name other types to the core.
    const Ref held_types = Ref::share(types);
    return types != nullptr && exception_matches(type, types) != 0;
}

bool is_handled(PyFrameObject* frame, PyObject* type, HandlerMatch match, bool this_frame_only,
                ClassTests tests = ClassTests::kAll) {
    // The server may name other ignored handlers from code that logging runs.
    const Ref ignored = Ref::share(core.ignored_handlers);
    return exception_is_handled(frame, ignored.get(), type, match, this_frame_only, kHostOpcodes,
                                tests) != 0;
}

// Whether the exception ends the thread: nothing in its bottom frame can take it any more.
bool leaves_bottom_frame(PyFrameObject* frame) {
    ThreadData* record = thread_table_current(&core.threads);
    if (record == nullptr || record->bot_frame != as_object(frame) || frame->f_iblock != 0) {
        return false;
    }
    dprintf(kLogExceptions, "  leaving bottom frame\n");
    record = thread_table_current(&core.threads);  // logging runs code that may drop it
    if (record != nullptr) {
        record->exiting_on_exc = true;
    }
    return true;
}

// What a sub-language hook says of an exception in one of its key frames.
struct HookAnswer {
    bool stop;
    Ref translation;   // (file name, line), or nothing
    const char* file;  // nullptr: go by the frame itself
    PyObject* line;
};

HookAnswer ask_hook(PyObject* hook, PyFrameObject* frame) {
    const PendingErrorGuard drop_errors;
    HookAnswer answer = {false, Ref(), nullptr, nullptr};
    const Ref wanted = call_method(hook, "_StopHere", "Oii", as_object(frame), -1, -1);
    answer.stop = wanted && PyObject_IsTrue(wanted.get()) == 1;
    if (answer.stop) {
        answer.translation = call_method(hook, "_TranslateFrame", "Oi", as_object(frame), 1);
    }
    // There may be more to it than file and line.
    const Ref place =
        answer.translation ? Ref::steal(PyTuple_GetSlice(answer.translation.get(), 0, 2)) : Ref();
    if (place && PyArg_ParseTuple(place.get(), "sO", &answer.file, &answer.line) == 0) {
        answer.file = nullptr;
    }
    drop_error("an answer of a sub-language hook");
    return answer;
}

bool is_quiet_location(const char* file, PyObject* line) {
    const int32_t line_key = exception_line_key(line);
    const bool quiet =
        exception_loc_find(&core.ignored_locations, code_names.path_cache, file, line) != nullptr ||
        is_sre_parse_probe(file, line_key) != 0;
    drop_error("whether an exception is reported");
    return quiet;
}

// Whether an exception that was raised in this frame is never reported.
bool is_quiet_place(PyFrameObject* frame) {
    const ThreadData* const record = thread_table_current(&core.threads);
    const Ref hook = Ref::share(record != nullptr ? record->sub_lang_hook : nullptr);
    const FrameCategory category = sub_language_category(record, frame);
    if (category == kHiddenFrame) {
        return true;
    }
    if (category == kKeyFrame) {
        const HookAnswer answer = ask_hook(hook.get(), frame);
        if (!answer.stop || answer.file != nullptr) {
            return !answer.stop || is_quiet_location(answer.file, answer.line);
        }
    }
    const char* const file = LookupCOPathname(&code_names, frame);
    const Ref line = Ref::steal(PyInt_FromLong(frame_line(frame)));
    if (file == nullptr || !line) {
        drop_error("whether an exception is reported");
        return false;
    }
    return is_quiet_location(file, line.get());
}

// Raises the recursion limit for a scope when the exception says that it was reached: the debug
// server's code runs at the very depth where it was.
class RecursionReserve {
  public:
    explicit RecursionReserve(PyObject* exception) {
        constexpr int kReserve = 50;
        constexpr char kMessage[] = "maximum recursion depth exceeded";
        PyObject* const value =
            PyTuple_GET_SIZE(exception) > 1 ? PyTuple_GET_ITEM(exception, 1) : nullptr;
        if (value != nullptr && PyString_Check(value) &&
            strncmp(PyString_AS_STRING(value), kMessage, sizeof(kMessage) - 1) == 0 &&
            is_kind_of(PyTuple_GET_ITEM(exception, 0), PyExc_RuntimeError)) {
            limit_ = Py_GetRecursionLimit();
            Py_SetRecursionLimit(limit_ + kReserve);
        }
    }
    ~RecursionReserve() {
        if (limit_ != kUnchanged) {
            Py_SetRecursionLimit(limit_);
        }
    }
    RecursionReserve(const RecursionReserve&) = delete;
    RecursionReserve& operator=(const RecursionReserve&) = delete;

  private:
    static constexpr int kUnchanged = -1;
    int limit_ = kUnchanged;
};

// The frame where the exception was raised; empty where that cannot be told.
Ref raising_frame(PyFrameObject* frame, PyObject* exception) {
    PyObject* const traceback =
        PyTuple_GET_SIZE(exception) > 2 ? PyTuple_GET_ITEM(exception, 2) : nullptr;
    if (traceback == nullptr) {
        return Ref();
    }
    if (traceback == Py_None) {
        return Ref::share(as_object(frame));
    }
    Ref found = Ref::steal(last_traceback_frame(traceback));
    PyErr_Clear();
    return is_frame(found.get()) ? std::move(found) : Ref();
}

// Reports an exception to the debug server, unless the place where it was raised is a quiet one.
HandlerResult stop_at_exception(PyFrameObject* frame, PyObject* exception) {
    const Ref raised_in = raising_frame(frame, exception);
    if (!raised_in || is_quiet_place(as_frame(raised_in.get()))) {
        return kHandled;
    }
    const RecursionReserve reserve(exception);
    return call_server(core.callbacks.exception_cb, frame, exception);
}

// What the thread is handling now, as (type, value, traceback).
Ref handled_exception() {
    const PyThreadState* const thread = current_thread_state();
    const auto or_none = [](PyObject* object) { return object != nullptr ? object : Py_None; };
    return Ref::steal(PyTuple_Pack(3, or_none(thread->exc_type), or_none(thread->exc_value),
                                   or_none(thread->exc_traceback)));
}

}  // namespace

bool stop_at_exception_no_filters(PyFrameObject* frame, PyObject* type) {
    dprintf(kLogExceptions, "stop_at_exception_no_filters\n");
    if (core.exception_mode == kExcAlwaysStop) {
        return true;
    }
    if (is_kind_of(type, core.never_stop_excepts)) {
        dprintf(kLogExceptions, "  never stop\n");
        return false;
    }
    if (leaves_bottom_frame(frame)) {
        return true;
    }
    if (is_kind_of(type, core.always_stop_excepts) &&
        !is_handled(frame, type, HandlerMatch::kTyped, true)) {
        dprintf(kLogExceptions, "  always stop\n");
        return true;
    }
    if (core.exception_mode == kExcUnhandledStop &&
        !is_handled(frame, type, HandlerMatch::kAny, false)) {
        dprintf(kLogExceptions, "  unhandled\n");
        return true;
    }
    if (!is_printed_stop(core.exception_mode)) {
        return false;
    }
    if (frame_prints_exc(&core.catch_info, frame) != 0) {
        dprintf(kLogExceptions, "  frame prints\n");
        return true;
    }
    return false;
}

bool may_stop_at_exception(const ThreadData* record, PyFrameObject* frame, PyObject* type) {
    constexpr ClassTests kTests = ClassTests::kWithoutCode;
    const auto match = [type](PyObject* types) {
        return types != nullptr ? match_without_code(type, types) : Match::kNo;
    };
    if (core.exception_mode == kExcAlwaysStop || is_printed_stop(core.exception_mode)) {
        return true;
    }
    if (match(core.never_stop_excepts) == Match::kYes) {
        return false;
    }
    if (record->bot_frame == as_object(frame) && frame->f_iblock == 0) {
        return true;
    }
    if (match(core.always_stop_excepts) != Match::kNo &&
        !is_handled(frame, type, HandlerMatch::kTyped, true, kTests)) {
        return true;
    }
    return core.exception_mode == kExcUnhandledStop &&
           !is_handled(frame, type, HandlerMatch::kAny, false, kTests);
}

HandlerResult dispatch_exception(PyFrameObject* frame, PyObject* exception) {
    dprintf(kLogCore, "---EXCEPTION---\n");
    if (core.tracing == 0) {
        return kEndTracing;
    }
    if (!is_frame(frame) || exception == nullptr || !PyTuple_Check(exception) ||
        PyTuple_GET_SIZE(exception) == 0) {
        dprintf(kLogCore, "  exit 0\n");
        return kHandled;
    }
    if (stop_here(frame, kStopAtException) ||
        stop_at_exception_no_filters(frame, PyTuple_GET_ITEM(exception, 0))) {
        dprintf(kLogCore, "  dispatched=TRUE\n");
        if (stop_at_exception(frame, exception) != kHandled) {
            dprintf(kLogCore, "  failure\n");
            return kEndTracing;
        }
    }
    if (set_frame_exc_info(&core.catch_info, frame, exception) != 0) {
        dprintf(kLogCore, "  set_frame_exc_info failed\n");
        PyErr_Clear();
    }
    return kHandled;
}

HandlerResult exception_leaves_frame(PyFrameObject* frame, PyObject* exception) {
    if (!is_frame(frame)) {
        return kHandled;
    }
    HandlerResult result = kHandled;
    if (is_printed_stop(core.exception_mode) &&
        frame_parent_prints_exc(&core.catch_info, frame) != 0) {
        const Ref reported = exception != nullptr ? Ref::share(exception) : handled_exception();
        if (!reported) {
            drop_error("the report of an exception");
            return kEndTracing;
        }
        result = stop_at_exception(frame, reported.get());
    }
    leave_bottom_frame(frame);
    return result;
}

}  // namespace morvik
