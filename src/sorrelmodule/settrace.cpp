#include "sorrelmodule/settrace.h"

#include "dbgcommon.h"

namespace morvik {

namespace {

// Kept here, since a function that has it as its own would look like a method.
PyObject* called = nullptr;

PyObject* call_without_events(PyObject* /*self*/, PyObject* argument) {
    const Ref held = Ref::share(called);
    PyThreadState* const thread = current_thread_state();
    add_to_tracing(thread, 1);
    PyObject* const result = PyObject_CallFunctionObjArgs(held.get(), argument, nullptr);
    add_to_tracing(thread, -1);
    return result;
}

PyMethodDef settrace_method = {"settrace", call_without_events, METH_O,
                               "settrace(function)\n\n"
                               "Set the global debug tracing function.  It will be called on each\n"
                               "function call.  See the debugger chapter in the library manual."};

}  // namespace

Ref new_settrace(PyObject* function) {
    set_slot(called, function);
    const Ref module_name = Ref::steal(PyString_FromString("sys"));
    return module_name ? Ref::steal(PyCFunction_NewEx(&settrace_method, nullptr, module_name.get()))
                       : Ref();
}

}  // namespace morvik
