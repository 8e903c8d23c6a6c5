#include "tracercore/install.h"

#include <cstring>
#include <utility>

#include "conames.h"
#include "dbgcommon.h"
#include "dprintf.h"
#include "host/ref.h"
#include "tracercore/dispatch.h"
#include "tracercore/events.h"
#include "tracercore/imports.h"
#include "tracercore/pulse.h"
#include "tracercore/rest.h"
#include "tracercore/state.h"

namespace morvik {

namespace {

PyInterpreterState* current_interpreter() { return current_thread_state()->interp; }

bool is_live_thread(const PyThreadState* thread) {
    for (PyThreadState* other = PyInterpreterState_ThreadHead(current_interpreter());
         other != nullptr; other = PyThreadState_Next(other)) {
        if (other == thread) {
            return true;
        }
    }
    return false;
}

// The frames on a thread's stack, innermost first, as a new list. Logging and releasing objects
// run Python code, during which the thread may go on and its frames go away: whoever does either
// works on this list. Empty for a thread that has ended; nullptr out of memory, which is reported.
Ref frames_of_thread(const PyThreadState* thread) {
    // Making the list may run a garbage collection, and so anything: look at the thread after it.
    Ref frames = Ref::steal(PyList_New(0));
    if (frames && is_live_thread(thread)) {
        for (PyFrameObject* frame = thread->frame; frame != nullptr; frame = frame_back(frame)) {
            if (PyList_Append(frames.get(), as_object(frame)) != 0) {
                frames = Ref();
                break;
            }
        }
    }
    drop_error("the frames of a thread were passed over");
    return frames;
}

// Applies an operation to every thread of the interpreter. Threads may end while it runs: the
// addresses are taken first, and the operations check them.
void for_each_thread(void (*operation)(PyThreadState*)) {
    Ref threads = Ref::steal(PyList_New(0));
    for (PyThreadState* thread = PyInterpreterState_ThreadHead(current_interpreter());
         threads && thread != nullptr; thread = PyThreadState_Next(thread)) {
        const Ref address = Ref::steal(PyLong_FromVoidPtr(thread));
        if (!address || PyList_Append(threads.get(), address.get()) != 0) {
            break;
        }
    }
    drop_error("threads were passed over");
    for (Py_ssize_t i = 0; threads && i < PyList_GET_SIZE(threads.get()); ++i) {
        auto* const thread =
            static_cast<PyThreadState*>(PyLong_AsVoidPtr(PyList_GET_ITEM(threads.get(), i)));
        if (is_live_thread(thread)) {
            operation(thread);
        }
    }
}

// The canonical name of a frame's file; nothing out of memory, which is reported.
OwnedText canonical_file_name(PyFrameObject* frame) {
    const char* const file = LookupCOPathname(&code_names, frame);
    // A relative name would be overwritten by the next look-up.
    OwnedText copy(file != nullptr ? strdup(file) : nullptr);
    if (!copy) {
        report_out_of_memory("the name of a frame's file");
    }
    const char* const full = copy && code_names.path_cache != nullptr
                                 ? full_path(code_names.path_cache, copy.get())
                                 : nullptr;
    return full != nullptr ? OwnedText(strdup(full)) : std::move(copy);
}

// The name of a thread's main function, when `frame` is one: the first code of the program above
// the interpreter's or the debugger's own start-up code. Borrowed, or nullptr.
PyObject* main_function_name(PyFrameObject* frame) {
    PyFrameObject* const caller = frame_back(frame);
    if (!is_frame(caller)) {
        return nullptr;
    }
    const bool started_here = is_bootstrap_frame(caller) || is_internal_frame(caller) > 0;
    PyObject* const name =
        started_here && is_internal_frame(frame) == 0 ? frame->f_code->co_name : nullptr;
    drop_error("the name of a thread was not found out");
    return name;
}

void insert_into_frame(PyThreadState* thread, PyFrameObject* frame) {
    dprintf(kLogCore, "\tinserting into thread state %p; frame = %p\n", thread, frame);
    set_frame_trace(frame, core.trace_dispatch);
    ThreadData* record = thread_table_find(&core.threads, thread);
    if (record == nullptr) {
        return;
    }
    set_slot(record->bot_frame, as_object(frame));
    record = thread_table_find(&core.threads, thread);
    if (record == nullptr || record->thread_name != nullptr) {
        return;
    }
    // Only the innermost frame is asked: a name is one that the thread starts with, not one
    // that it happens to have on its stack when tracing begins.
    PyObject* const name = main_function_name(frame);
    // Keys of the server's map were compared, which may run any code.
    record = thread_table_find(&core.threads, thread);
    if (record != nullptr) {
        set_slot(record->thread_name, name != nullptr ? name : Py_None);
    }
}

}  // namespace

int start_trace() {
    dprintf(kLogCore, "START TRACING\n");
    if (core.tracing != 0) {
        return 1;
    }
    core.event_count = 0;
    core.tracing = 1;
    const unsigned shortages = out_of_memory_count();
    FirstError errors;
    notice_stack_switches();
    scan_loaded_modules();
    errors.collect();
    for_each_thread(insert_into_thread);
    set_trace_for_current_thread(1);
    if (out_of_memory_count() == shortages) {
        call_install_thread_hooks(1);
        return 1;
    }
    // Half of it is worth nothing.
    __tracer_stop_trace();
    errors.drop();
    out_of_memory();
    return 1;
}

void __tracer_stop_trace() {
    dprintf(kLogCore, "in __tracer_stop_trace()\n");
    core.tracing = 0;
    pulse_end();
    wake_all_threads();  // to find out
    for_each_thread(remove_from_thread);
    set_trace_for_current_thread(0);
    call_install_thread_hooks(0);
}

void insert_into_thread(PyThreadState* thread) {
    ThreadData* record = thread_table_get_or_add(&core.threads, thread);
    if (record == nullptr) {
        drop_error("a thread was passed over");
        return;
    }
    const Ref old_curr_frame = Ref::steal(record->curr_frame);
    const Ref old_bot_frame = Ref::steal(record->bot_frame);
    const Ref old_name = Ref::steal(record->thread_name);
    record->curr_frame = new_none();
    record->bot_frame = new_none();
    record->thread_name = nullptr;
    record->in_step = nullptr;
    const Ref frames = frames_of_thread(thread);
    for (Py_ssize_t i = 0; frames && i < PyList_GET_SIZE(frames.get()); ++i) {
        insert_into_frame(thread, as_frame(PyList_GET_ITEM(frames.get(), i)));
    }
    record = thread_table_find(&core.threads, thread);
    if (record != nullptr) {
        record->frames_hooked = frames ? 1 : 0;  // else at the thread's next event
        if (record->thread_name == nullptr) {
            record->thread_name = new_none();
        }
    }
}

void remove_from_thread(PyThreadState* thread) {
    ThreadData* const record = thread_table_find(&core.threads, thread);
    if (record != nullptr) {
        record->frames_hooked = 0;
    }
    const Ref frames = frames_of_thread(thread);
    for (Py_ssize_t i = 0; frames && i < PyList_GET_SIZE(frames.get()); ++i) {
        PyFrameObject* const frame = as_frame(PyList_GET_ITEM(frames.get(), i));
        if (frame->f_trace != nullptr && frame->f_trace == core.trace_dispatch) {
            dprintf(kLogCore, "\tremoving from thread state; frame = %p\n", frame);
            clear_slot(frame->f_trace);
        }
    }
}

int set_trace_for_current_thread(int on) {
    ThreadData* const record = thread_table_get_or_add(&core.threads, current_thread_state());
    if (record == nullptr) {
        drop_error("a thread's trace function was not changed");
        return 1;
    }
    if (record->trace_installed == on) {
        return 1;
    }
    record->trace_installed = on != 0 ? 1 : 0;
    if (on != 0) {
        PyEval_SetTrace(c_dispatch, core.trace_dispatch);
        watch_calls(current_thread_state()->frame);
    } else {
        stop_watching_calls();
        PyEval_SetTrace(nullptr, nullptr);
    }
    return 1;
}

void untrace_current_thread() {
    PyThreadState* const thread = current_thread_state();
    remove_from_thread(thread);
    // A record made after a reset does not know that its thread was traced before.
    ThreadData* const record = thread_table_find(&core.threads, thread);
    if (record != nullptr && is_traced_here(thread)) {
        record->trace_installed = 1;
    }
    set_trace_for_current_thread(0);
}

void bootstrap_current_thread() {
    PyThreadState* const thread = current_thread_state();
    const ThreadData* const record = thread_table_find(&core.threads, thread);
    if (core.stacks_switch && record != nullptr && record->trace_installed != 0) {
        // A greenlet begins that the program takes for a thread.
        PyEval_SetTrace(c_dispatch, core.trace_dispatch);
        return;
    }
    forget_thread(thread);
    insert_into_thread(thread);
    set_trace_for_current_thread(1);
}

bool is_bootstrap_frame(PyFrameObject* frame) {
    constexpr char kFile[] = "threading.py";
    constexpr size_t kFileLength = sizeof(kFile) - 1;
    if (strcmp(object_text(frame->f_code->co_name), "__bootstrap") != 0) {
        return false;
    }
    const OwnedText file = canonical_file_name(frame);
    const size_t length = file ? strlen(file.get()) : 0;
    return length >= kFileLength && strcmp(file.get() + length - kFileLength, kFile) == 0;
}

int is_internal_frame(PyFrameObject* frame) {
    const OwnedText file = canonical_file_name(frame);
    if (!file) {
        out_of_memory();
        return -1;
    }
    if (*file == '\0') {
        return 0;
    }
    const Ref name = Ref::steal(PyString_FromString(file.get()));
    if (!name) {
        return -1;
    }
    PyObject* const map = core.callbacks.internal_modules_map;
    return map != nullptr && PyDict_GetItem(map, name.get()) != nullptr ? 1 : 0;
}

}  // namespace morvik
