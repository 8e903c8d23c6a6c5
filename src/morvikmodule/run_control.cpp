// Entry points for set-up and run control: init to stop.
#include <climits>
#include <cstdio>

#include "dbgcommon.h"
#include "dprintf.h"
#include "host/ref.h"
#include "morvikmodule/entry_points.h"
#include "tracercore/install.h"
#include "tracercore/rest.h"
#include "tracercore/state.h"
#include "tracercore/stepping.h"

namespace morvik {

namespace {

bool check(bool passed, const char* message) {
    if (!passed) {
        PyErr_SetString(PyExc_TypeError, message);
    }
    return passed;
}

bool check_callable(PyObject* object, const char* message) {
    return check(PyCallable_Check(object) != 0, message);
}

bool check_callbacks(const Callbacks& given) {
    return check_callable(given.install_thread_hooks_cb,
                          "install_thread_hooks_cb must be callable") &&
           check_callable(given.idle_cb, "idle_cb must be callable") &&
           check_callable(given.line_cb, "line_cb must be callable") &&
           check_callable(given.return_cb, "return_cb must be callable") &&
           check_callable(given.exception_cb, "exception_cb must be callable") &&
           check_callable(given.quit_cb, "quit_cb must be callable") &&
           check(given.import_cb == Py_None || PyCallable_Check(given.import_cb) != 0,
                 "import_cb must be None or callable") &&
           check_callable(given.default_import, "default_import must be callable") &&
           check(PyDict_Check(given.internal_modules_map), "internal_modules_map must be a dict");
}

// Stores one int, parsed by `format`.
PyObject* store_int(PyObject* args, const char* format, int* setting) {
    int value = 0;
    if (PyArg_ParseTuple(args, format, &value) == 0) {
        return nullptr;
    }
    *setting = value;
    return new_none();
}

PyObject* request_step(PyObject* stop_frame, PyObject* return_frame, int line_first,
                       int line_last) {
    ThreadData* const record = own_record();
    if (record == nullptr) {
        return nullptr;
    }
    set_step_request(record, stop_frame, return_frame, line_first, line_last);
    return new_none();
}

// Over lines of the frame that the thread is stopped in.
PyObject* request_step_over(int line_first, int line_last) {
    const ThreadData* const record = own_record();
    if (record == nullptr) {
        return nullptr;
    }
    return request_step(record->curr_frame, Py_None, line_first, line_last);
}

}  // namespace

PyObject* entry_init(PyObject* /*self*/, PyObject* args) {
    dprintf(kLogCore, "STARTING MORVIK INIT\n");
    fflush(stdout);
    fflush(stderr);
    CoreSettings settings = {};
    Callbacks& given = settings.callbacks;
    if (PyArg_ParseTuple(args, "fiOOOOOOOOOO:tracer_init", &settings.idle_period,
                         &settings.exception_mode, &given.install_thread_hooks_cb, &given.idle_cb,
                         &given.line_cb, &given.return_cb, &given.exception_cb, &given.quit_cb,
                         &given.import_cb, &given.default_import, &settings.debug_stream,
                         &given.internal_modules_map) == 0) {
        return nullptr;
    }
    if (!check_callbacks(given)) {
        return nullptr;
    }
    settings.module = this_module();
    if (core_init(settings) == 0 || PyErr_Occurred() != nullptr) {
        return nullptr;
    }
    dprintf(kLogCore, "DONE WITH INIT MORVIK\n");
    return new_none();
}

PyObject* entry_reset(PyObject* /*self*/, PyObject* /*args*/) {
    dprintf(kLogCore, "RESET REACHED\n");
    if (!core_is_initialised()) {
        return nullptr;
    }
    core_reset();
    return none_unless_error();
}

PyObject* entry_destroy(PyObject* /*self*/, PyObject* /*args*/) {
    dprintf(kLogCore, "DESTROY REACHED\n");
    if (!core_is_initialised()) {
        return nullptr;
    }
    core_destroy();
    return none_unless_error();
}

PyObject* entry_set_autoquit(PyObject* /*self*/, PyObject* args) {
    return store_int(args, "i:set_autoquit", &core.autoquit);
}

PyObject* entry_set_idle_period(PyObject* /*self*/, PyObject* args) {
    float seconds = 0.0F;
    if (PyArg_ParseTuple(args, "f:tracer_set_idle_period", &seconds) == 0) {
        return nullptr;
    }
    core.idle_period = seconds;
    wake_all_threads();
    return new_none();
}

PyObject* entry_set_debug_all_threads(PyObject* /*self*/, PyObject* args) {
    PyObject* const result = store_int(args, "i:set_debug_all_threads", &core.debug_all_threads);
    wake_all_threads();
    return result;
}

PyObject* entry_set_debug_thread_cb(PyObject* /*self*/, PyObject* args) {
    PyObject* callback = nullptr;
    // A call without its argument leaves the callback that is set in force.
    if (PyArg_ParseTuple(args, "O:set_debug_thread_cb", &callback) == 0) {
        return nullptr;
    }
    set_slot(core.debug_thread_cb, callback);
    clear_thread_policies();
    return new_none();
}

PyObject* entry_start_trace(PyObject* /*self*/, PyObject* /*args*/) {
    if (!core_is_initialised()) {
        return nullptr;
    }
    start_trace();
    return none_unless_error();
}

PyObject* entry_stop_trace(PyObject* /*self*/, PyObject* args) {
    dprintf(kLogCore, "STOP TRACE AFTER %i INSTRUCTIONS\n", static_cast<int>(core.event_count));
    dprintf(kLogCore, "%i IMPORT HOOK CALLS WERE MADE\n", core.import_hook_calls);
    dprintf(kLogCore, "%i UNIQUE IMPORTS WERE MADE\n",
            static_cast<int>(core.imported_files.num_entries));
    if (PyArg_ParseTuple(args, ":tracer_stop_trace") == 0 || !core_is_initialised()) {
        return nullptr;
    }
    __tracer_stop_trace();
    return none_unless_error();
}

PyObject* entry_step_into(PyObject* /*self*/, PyObject* /*args*/) {
    return request_step(Py_None, Py_None, -1, -1);
}

PyObject* entry_step_over(PyObject* /*self*/, PyObject* /*args*/) {
    return request_step_over(-1, -1);
}

PyObject* entry_step_over_line(PyObject* /*self*/, PyObject* /*args*/) {
    const ThreadData* const record = own_record();
    if (record == nullptr) {
        return nullptr;
    }
    const int line = is_frame(record->curr_frame) ? frame_line(as_frame(record->curr_frame)) : -1;
    return request_step_over(line, line);
}

PyObject* entry_step_over_line_range(PyObject* /*self*/, PyObject* args) {
    int first = 0;
    int last = 0;
    if (PyArg_ParseTuple(args, "ii", &first, &last) == 0) {
        return nullptr;
    }
    return request_step_over(first, last);
}

PyObject* entry_step_out(PyObject* /*self*/, PyObject* /*args*/) {
    const ThreadData* const record = own_record();
    if (record == nullptr) {
        return nullptr;
    }
    const Ref left = Ref::share(record->curr_frame);
    const Ref hook = Ref::share(record->sub_lang_hook);
    if (!hook) {
        PyFrameObject* const caller = frame_back(left.get());
        if (caller == nullptr && core.stacks_switch) {
            // What it returns to is on another stack: only the return is certain to come.
            return request_step(left.get(), left.get(), 0, INT_MAX);
        }
        return request_step(caller != nullptr ? as_object(caller) : Py_None, left.get(), -1, -1);
    }
    const Ref target = call_method(hook.get(), "_GetStepOutFrame", "O", left.get());
    return target ? request_step(target.get(), left.get(), -1, -1) : nullptr;
}

PyObject* entry_continue_run(PyObject* /*self*/, PyObject* /*args*/) {
    return request_step(nullptr, Py_None, -1, -1);
}

PyObject* entry_stop(PyObject* /*self*/, PyObject* /*args*/) {
    ThreadData* const record = own_record();
    if (record == nullptr) {
        return nullptr;
    }
    request_stop(record);
    return new_none();
}

}  // namespace morvik
