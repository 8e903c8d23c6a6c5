#include "sorrelmodule/all_threads.h"

#include <utility>

#include "dbgcommon.h"
#include "host/ref.h"
#include "host/tracing.h"

namespace morvik {

namespace {

// Stands in the dictionary of a thread that was given its trace function here: the interpreter
// clears the dictionary when the thread ends.
struct ThreadEnd {
    PyObject_HEAD PyThreadState* thread;  // nullptr: nothing is to be done at its end
    PyObject* on_end;                     // owned
};

constexpr char kKey[] = "sorrel thread end";

// Threads that may start between counting them and going through them.
constexpr Py_ssize_t kMoreThreads = 16;

PyThreadState* first_thread() {
    return PyInterpreterState_ThreadHead(current_thread_state()->interp);
}

bool is_thread(const PyThreadState* wanted) {
    const PyThreadState* thread = first_thread();
    while (thread != nullptr && thread != wanted) {
        thread = thread->next;
    }
    return thread != nullptr;
}

void install(PyThreadState* thread, Py_tracefunc function, PyObject* object) {
    count_traced_thread(nullptr, function);
    Py_INCREF(object);
    thread->c_traceobj = object;
    thread->c_tracefunc = function;
    thread->use_tracing = 1;
}

// Returns what the thread was traced with, for the caller to release when Python code may run.
Ref uninstall(PyThreadState* thread) {
    count_traced_thread(thread->c_tracefunc, nullptr);
    Ref object = Ref::steal(thread->c_traceobj);
    thread->c_traceobj = nullptr;
    thread->c_tracefunc = nullptr;
    thread->use_tracing = thread->c_profilefunc != nullptr ? 1 : 0;
    return object;
}

void unhook_frames(const PyThreadState* thread, const PyObject* object) {
    for (PyFrameObject* frame = thread->frame; frame != nullptr; frame = frame_back(frame)) {
        if (frame->f_trace == object) {
            clear_slot(frame->f_trace);  // Not its last reference.
        }
    }
}

void thread_end_dealloc(PyObject* self) {
    auto* const end = reinterpret_cast<ThreadEnd*>(self);
    const PendingErrorGuard keep_error;
    if (end->thread != nullptr && Py_IsInitialized() != 0 && is_thread(end->thread)) {
        if (end->thread->c_tracefunc != nullptr) {
            // The interpreter would forget the function without counting the thread off.
            const Ref object = uninstall(end->thread);
        }
        if (end->thread == current_thread_state()) {
            const Ref result = Ref::steal(PyObject_CallObject(end->on_end, nullptr));
            if (!result) {
                // Written in pieces, to a stream that the interpreter only borrows meanwhile.
                const Ref stream = Ref::share(PySys_GetObject(const_cast<char*>("stderr")));
                PyErr_WriteUnraisable(end->on_end);
            }
        }
    }
    clear_slot(end->on_end);
    PyObject_Del(self);
}

PyTypeObject* thread_end_type() {
    static PyTypeObject type = {};
    if (type.tp_name == nullptr) {
        Py_REFCNT(&type) = 1;
        type.tp_name = "_sorrel.ThreadEnd";
        type.tp_basicsize = sizeof(ThreadEnd);
        type.tp_dealloc = thread_end_dealloc;
        type.tp_flags = Py_TPFLAGS_DEFAULT;
        type.tp_doc = "Ends the tracing of a thread with the thread";
    }
    return PyType_Ready(&type) == 0 ? &type : nullptr;
}

bool is_thread_end(const PyObject* object) {
    return object != nullptr && Py_TYPE(object) == thread_end_type();
}

// A thread's dictionary with a ThreadEnd in it that is nobody's yet.
Ref new_dictionary(PyObject* on_end) {
    PyTypeObject* const type = thread_end_type();
    Ref dictionary = Ref::steal(PyDict_New());
    ThreadEnd* const end = type != nullptr ? PyObject_New(ThreadEnd, type) : nullptr;
    if (end == nullptr) {
        return Ref();
    }
    end->thread = nullptr;
    Py_INCREF(on_end);
    end->on_end = on_end;
    const Ref owned = Ref::steal(reinterpret_cast<PyObject*>(end));
    if (!dictionary || PyDict_SetItemString(dictionary.get(), kKey, owned.get()) != 0) {
        return Ref();
    }
    return dictionary;
}

// So many dictionaries, in a list.
Ref new_dictionaries(PyObject* on_end, Py_ssize_t count) {
    Ref dictionaries = Ref::steal(PyList_New(0));
    while (dictionaries && count-- > 0) {
        const Ref dictionary = new_dictionary(on_end);
        if (!dictionary || PyList_Append(dictionaries.get(), dictionary.get()) != 0) {
            return Ref();
        }
    }
    return dictionaries;
}

ThreadEnd* thread_end_in(PyObject* dictionary) {
    PyObject* const end = dictionary != nullptr ? PyDict_GetItemString(dictionary, kKey) : nullptr;
    return is_thread_end(end) ? reinterpret_cast<ThreadEnd*>(end) : nullptr;
}

// Has the thread's dictionary tell of its end. Where memory is short nobody is told.
void watch_end(PyThreadState* thread, PyObject* dictionary) {
    ThreadEnd* end = thread_end_in(dictionary);
    ThreadEnd* const old_end = thread_end_in(thread->dict);
    if (end == nullptr) {
        return;
    }
    if (old_end != nullptr) {
        std::swap(old_end->on_end, end->on_end);  // The old one is released with the dictionary.
        end = old_end;
    } else if (thread->dict == nullptr) {
        Py_INCREF(dictionary);
        thread->dict = dictionary;
    } else if (PyDict_SetItemString(thread->dict, kKey, reinterpret_cast<PyObject*>(end)) != 0) {
        PyErr_Clear();
        return;
    }
    end->thread = thread;
}

// The function that threads are traced with which have this trace object, if there are any.
Py_tracefunc function_with(const PyObject* trace_object) {
    for (const PyThreadState* thread = first_thread(); thread != nullptr; thread = thread->next) {
        if (thread->c_traceobj == trace_object && thread->c_tracefunc != nullptr) {
            return thread->c_tracefunc;
        }
    }
    return nullptr;
}

// The core takes its function from threads that it needs no events of just now, perhaps from all.
// Called for no event that there is, its trace object puts it into the calling thread again.
bool show_function(PyObject* trace_object) {
    const PyThreadState* const thread = current_thread_state();
    if (thread->c_traceobj != trace_object || thread->c_tracefunc != nullptr) {
        return true;
    }
    return static_cast<bool>(Ref::steal(
        PyObject_CallFunction(trace_object, const_cast<char*>("OsO"), Py_None, "", Py_None)));
}

PyFrameObject* outermost_frame(const PyThreadState* thread) {
    PyFrameObject* outermost = nullptr;
    for (PyFrameObject* frame = thread->frame; frame != nullptr; frame = frame_back(frame)) {
        outermost = frame;
    }
    return outermost;
}

// Whether the frame is that of what brings the debug server into a program that runs already, which
// may be tried while it is debugged. That is known by the namespace it has been given.
bool brings_server(const PyFrameObject* outermost) {
    PyObject* const globals = outermost->f_globals;
    const bool is_it =
        PyDict_GetItemString(globals, "modules") == current_thread_state()->interp->modules &&
        PyDict_GetItemString(globals, "__name__") == nullptr;
    PyErr_Clear();
    return is_it;
}

// Whether a thread has no frames, or its outermost one has one of these namespaces.
bool is_left_out(const PyFrameObject* outermost, PyObject* left_out) {
    const Ref id =
        Ref::steal(outermost != nullptr ? PyLong_FromVoidPtr(outermost->f_globals) : nullptr);
    const int is_in = id ? PySet_Contains(left_out, id.get()) : 1;
    PyErr_Clear();
    return is_in != 0;
}

bool is_wanted(const PyThreadState* thread, PyObject* left_out) {
    if (thread->c_tracefunc != nullptr || thread->c_traceobj != nullptr) {
        return false;
    }
    const PyFrameObject* const outermost = outermost_frame(thread);
    return (outermost == nullptr || !brings_server(outermost)) &&
           (left_out == nullptr || !is_left_out(outermost, left_out));
}

Py_ssize_t count_wanted(PyObject* left_out) {
    Py_ssize_t count = 0;
    for (const PyThreadState* thread = first_thread(); thread != nullptr; thread = thread->next) {
        count += is_wanted(thread, left_out) ? 1 : 0;
    }
    return count;
}

void forget_end(const PyThreadState* thread) {
    ThreadEnd* const end = thread_end_in(thread->dict);
    if (end != nullptr) {
        // It stays where it is, and does nothing: releasing it here could run Python code.
        end->thread = nullptr;
    }
}

#if PY_VERSION_HEX < 0x02070000
// Later versions do that themselves. The states are found by the threads' idents, under a key that
// is one of the first that the process has made: it is known by what it holds for this thread.
void forget_other_states() {
    constexpr int most_keys = 100;
    PyThreadState* const own = PyThreadState_GET();
    for (int key = 1; key <= most_keys; key++) {
        if (PyThread_get_key_value(key) == own) {
            PyThread_delete_key(key);
            // In place of what has just been freed; where memory is short all the same, the thread
            // is one that the interpreter gets to know when it next asks.
            PyThread_set_key_value(key, own);
        }
    }
}
#endif

}  // namespace

int trace_all_threads(PyObject* on_end, PyObject* trace_object, PyObject* left_out) {
    const Py_ssize_t count = count_wanted(left_out);
    if (count == 0) {
        return 0;
    }
    // What may run Python code comes first. That may start threads; there are never many.
    const Ref dictionaries = new_dictionaries(on_end, count + kMoreThreads);
    if (!dictionaries) {
        PyErr_SetString(PyExc_MemoryError, "Out of memory");
        return -1;
    }
    if (!show_function(trace_object)) {
        return -1;
    }
    const Py_tracefunc function = function_with(trace_object);
    Py_ssize_t used = 0;
    for (PyThreadState* thread = first_thread(); function != nullptr && thread != nullptr;
         thread = thread->next) {
        if (!is_wanted(thread, left_out)) {
            continue;
        }
        hook_frames(thread, trace_object);
        install(thread, function, trace_object);
        if (used < PyList_GET_SIZE(dictionaries.get())) {
            watch_end(thread, PyList_GET_ITEM(dictionaries.get(), used++));
        }
    }
    return 0;
}

void untrace_all_threads(PyObject* trace_object) {
    for (PyThreadState* thread = first_thread(); thread != nullptr; thread = thread->next) {
        if (thread->c_traceobj == trace_object) {
            const Ref object = uninstall(thread);  // Not its last reference.
        }
        unhook_frames(thread, trace_object);
        forget_end(thread);
    }
}

void disown_other_threads() {
    const PyThreadState* const own = current_thread_state();
    for (PyThreadState* thread = first_thread(); thread != nullptr; thread = thread->next) {
        if (thread != own) {
            thread->thread_id = 0;
        }
    }
#if PY_VERSION_HEX < 0x02070000
    forget_other_states();
#endif
}

Ref thread_idents() {
    Ref idents = Ref::steal(PyList_New(0));
    if (!idents) {
        return idents;
    }
    for (const PyThreadState* thread = first_thread(); thread != nullptr; thread = thread->next) {
        if (thread->thread_id != 0) {
            const Ref ident = Ref::steal(PyInt_FromLong(thread->thread_id));
            if (!ident || PyList_Append(idents.get(), ident.get()) != 0) {
                return Ref();
            }
        }
    }
    // New ones come first.
    return PyList_Reverse(idents.get()) == 0 ? std::move(idents) : Ref();
}

}  // namespace morvik
