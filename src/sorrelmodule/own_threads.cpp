#include "sorrelmodule/own_threads.h"

#include "host/ref.h"
#include "platform/platform.h"

namespace morvik {

namespace {

struct Start {
    PyThreadState* thread;
    PyObject* function;
};

// The record is none that the interpreter knows to be the current one.
void discard(Start* start) {
    PyThreadState_Clear(start->thread);
    PyThreadState_Delete(start->thread);
    Py_DECREF(start->function);
    PyMem_Free(start);
}

void report_error(PyObject* function) {
    if (PyErr_ExceptionMatches(PyExc_SystemExit) != 0) {
        PyErr_Clear();
        return;
    }
    PySys_WriteStderr("Unhandled exception in a thread of the debug server: %.200s\n",
                      Py_TYPE(function)->tp_name);
    PyErr_PrintEx(0);
}

// Begins without the interpreter lock.
void run(void* argument) {
    auto* const start = static_cast<Start*>(argument);
    PyThreadState* const thread = start->thread;
    thread->thread_id = PyThread_get_thread_ident();
    hold_forks();
    _PyThreadState_Init(thread);
    let_forks();
    PyEval_AcquireThread(thread);
    if (!Ref::steal(PyObject_CallObject(start->function, nullptr))) {
        report_error(start->function);
    }
    Py_DECREF(start->function);
    PyMem_Free(start);
    PyThreadState_Clear(thread);
    PyThreadState_DeleteCurrent();
    PyThread_exit_thread();
}

void set_thread_error() {
    const Ref module = Ref::steal(PyImport_ImportModule("thread"));
    const Ref type = module ? Ref::steal(PyObject_GetAttrString(module.get(), "error")) : Ref();
    if (type) {
        PyErr_SetString(type.get(), "can't start new thread");
    }
}

}  // namespace

void call_in_own_thread(PyInterpreterState* interpreter, PyObject* (*called)()) {
    hold_forks();
    PyThreadState* const thread = _PyThreadState_Prealloc(interpreter);
    if (thread != nullptr) {
        _PyThreadState_Init(thread);
    }
    let_forks();
    if (thread == nullptr) {
        return;
    }
    PyEval_AcquireThread(thread);
    const Ref function = Ref::share(called());
    if (function && !Ref::steal(PyObject_CallObject(function.get(), nullptr))) {
        report_error(function.get());
    }
    PyThreadState_Clear(thread);
    PyThreadState_DeleteCurrent();
}

int start_own_thread(PyObject* function) {
    auto* const start =
        can_hold_forks() ? static_cast<Start*>(PyMem_Malloc(sizeof(Start))) : nullptr;
    PyThreadState* const thread =
        start != nullptr ? _PyThreadState_Prealloc(PyThreadState_Get()->interp) : nullptr;
    if (thread == nullptr) {
        PyMem_Free(start);
        PyErr_NoMemory();
        return -1;
    }
    // Until it runs it has the ident of the calling thread, and would be found in its place.
    thread->thread_id = 0;
    Py_INCREF(function);
    *start = {thread, function};
    PyEval_InitThreads();
    if (PyThread_start_new_thread(run, start) == -1) {
        discard(start);
        set_thread_error();
        return -1;
    }
    return 0;
}

}  // namespace morvik
