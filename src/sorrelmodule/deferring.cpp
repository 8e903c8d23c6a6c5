#include "sorrelmodule/deferring.h"

#include "platform/platform.h"

namespace morvik {

namespace {

enum Item { kFunction, kDefer };

// 1 where the pending exception has been deferred, 0 where it has not and is pending again, -1
// where there is another one instead.
int defer_pending(PyObject* defer) {
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* traceback = nullptr;
    PyErr_Fetch(&type, &value, &traceback);
    PyErr_NormalizeException(&type, &value, &traceback);
    const Ref answer = Ref::steal(
        PyObject_CallFunctionObjArgs(defer, type, value != nullptr ? value : Py_None,
                                     traceback != nullptr ? traceback : Py_None, nullptr));
    const int is_deferred = answer ? PyObject_IsTrue(answer.get()) : -1;
    if (is_deferred == 0) {
        PyErr_Restore(type, value, traceback);
        return 0;
    }
    const PendingErrorGuard between;
    Py_XDECREF(type);
    Py_XDECREF(value);
    Py_XDECREF(traceback);
    return is_deferred;
}

// A negative number is a signal to send, once all of the function has been left: the program's
// handler is called where the program is then. The caller gets 0 instead.
PyObject* sent_or_same(PyObject* result) {
    if (!PyInt_Check(result) || PyInt_AS_LONG(result) >= 0) {
        return result;
    }
    const Ref number = Ref::steal(result);
    send_signal_to_self(static_cast<int>(-PyInt_AS_LONG(number.get())));
    return PyInt_FromLong(0);
}

// A signal handler runs between any two instructions of Python code, the first of the function's
// included: only what is outside of it sees all that is raised there.
PyObject* call_deferring(PyObject* self, PyObject* args) {
    PyObject* const defer = PyTuple_GET_ITEM(self, kDefer);
    Ref result = Ref::steal(PyObject_Call(PyTuple_GET_ITEM(self, kFunction), args, nullptr));
    if (result) {
        return sent_or_same(result.release());
    }
    int is_deferred = defer_pending(defer);
    if (is_deferred < 0) {
        is_deferred = defer_pending(defer);
    }
    return is_deferred > 0 ? Ref::share(Py_True).release() : nullptr;
}

PyMethodDef call_method_definition = {"deferring", call_deferring, METH_VARARGS, nullptr};

}  // namespace

Ref new_deferring(PyObject* function, PyObject* defer) {
    const Ref items = Ref::steal(PyTuple_Pack(2, function, defer));
    return items ? Ref::steal(PyCFunction_New(&call_method_definition, items.get())) : Ref();
}

}  // namespace morvik
