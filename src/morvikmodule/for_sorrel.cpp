// What the debug server in sorrel/ alone may call of the core, beside the functions of the module.
#include "host/ref.h"
#include "morvikmodule/entry_points.h"
#include "tracercore/asked_lines.h"
#include "tracercore/passed_code.h"
#include "tracercore/rest.h"
#include "tracercore/returning.h"
#include "tracercore/state.h"
#include "tracercore/stepping.h"
#include "tracercore/sublanguages.h"
#include "tracercore/watching.h"

namespace morvik {

namespace {

constexpr char kAttribute[] = "_for_sorrel";

PyObject* entry_step_through(PyObject* /*self*/, PyObject* /*none*/) {
    ThreadData* const record = own_record();
    if (record == nullptr) {
        return nullptr;
    }
    set_step_request(record, Py_None, Py_None, -1, -1, true);
    return new_none();
}

PyObject* entry_pass_code(PyObject* /*self*/, PyObject* code) {
    if (!PyCode_Check(code)) {
        PyErr_SetString(PyExc_TypeError, "code must be a code object");
        return nullptr;
    }
    return PyBool_FromLong(pass_code(reinterpret_cast<PyCodeObject*>(code)) ? 1 : 0);
}

PyObject* entry_pass_no_code(PyObject* /*self*/, PyObject* /*none*/) {
    pass_no_code();
    wake_all_threads();
    return new_none();
}

PyObject* entry_ask_at(PyObject* /*self*/, PyObject* args) {
    PyCodeObject* code = nullptr;
    PyObject* lines = nullptr;
    if (PyArg_ParseTuple(args, "O!O!:ask_at", &PyCode_Type, &code, &PyTuple_Type, &lines) == 0) {
        return nullptr;
    }
    const int is_known = ask_at_lines(code, lines);
    return is_known >= 0 ? PyBool_FromLong(is_known) : nullptr;
}

PyObject* entry_ask_everywhere(PyObject* /*self*/, PyObject* /*none*/) {
    ask_everywhere();
    wake_all_threads();
    return new_none();
}

PyObject* entry_event_number(PyObject* /*self*/, PyObject* /*none*/) {
    const ThreadData* const record = thread_table_current(&core.threads);
    return PyInt_FromSize_t(record != nullptr ? record->event_number : 0);
}

PyObject* entry_watch(PyObject* /*self*/, PyObject* args) {
    PyObject* callback = nullptr;
    PyObject* frames = nullptr;
    if (PyArg_ParseTuple(args, "OO:watch", &callback, &frames) == 0) {
        return nullptr;
    }
    if (callback == Py_None) {
        forget_watch();
        return new_none();
    }
    if (frames != Py_None && !PyTuple_Check(frames)) {
        PyErr_SetString(PyExc_TypeError, "frames must be a tuple or None");
        return nullptr;
    }
    set_watch(callback, frames != Py_None ? frames : nullptr);
    return new_none();
}

PyObject* entry_note_returns(PyObject* /*self*/, PyObject* on) {
    const int is_on = PyObject_IsTrue(on);
    if (is_on < 0) {
        return nullptr;
    }
    core.notes_returns = is_on != 0;
    return new_none();
}

PyObject* entry_returned(PyObject* /*self*/, PyObject* frame) {
    const ThreadData* const record = thread_table_current(&core.threads);
    return record != nullptr && record->returned != nullptr && is_frame(frame) &&
                   record->returned->caller == as_frame(frame)
               ? returned_calls_list(record->returned)
               : PyList_New(0);
}

PyObject* entry_is_elsewhere(PyObject* /*self*/, PyObject* frame) {
    if (!is_frame(frame)) {
        PyErr_SetString(PyExc_TypeError, "frame must be a frame");
        return nullptr;
    }
    ThreadData* const record = own_record();
    if (record == nullptr) {
        return nullptr;
    }
    return PyBool_FromLong(is_elsewhere(record, as_frame(frame)) ? 1 : 0);
}

PyObject* entry_use_hooks(PyObject* /*self*/, PyObject* on) {
    const int is_on = PyObject_IsTrue(on);
    if (is_on < 0) {
        return nullptr;
    }
    use_sub_language_hooks(is_on != 0);
    return new_none();
}

PyMethodDef functions[] = {
    {"step_through", entry_step_through, METH_NOARGS,
     "step_through()\n\n"
     "As step_into, but nothing in code that is to be passed stops the calling thread for it."},
    {"pass_code", entry_pass_code, METH_O,
     "pass_code(code)\n\n"
     "Such steps of all threads pass this code object from now on, not those nested in it.  False "
     "where they cannot, since it is in no file."},
    {"pass_no_code", entry_pass_no_code, METH_NOARGS,
     "pass_no_code()\n\n"
     "They pass none any more that was named before."},
    {"is_elsewhere", entry_is_elsewhere, METH_O,
     "is_elsewhere(frame)\n\n"
     "Whether the frame is on another stack of the calling thread than the one that its step is "
     "for."},
    {"use_hooks", entry_use_hooks, METH_O,
     "use_hooks(on)\n\n"
     "Whether hooks of sub-languages are asked from now on, and threads are in their languages: "
     "the calling one is from now on where its stack is, others are when they enter them.  "
     "Registering a hook has all of them asked again."},
    {"ask_at", entry_ask_at, METH_VARARGS,
     "ask_at(code, lines)\n\n"
     "While a thread runs on, hooks are asked about frames of this code of theirs only at these "
     "lines, a tuple, with its first one for calls, and at exceptions.  False where that cannot "
     "be, since it is in no file."},
    {"ask_everywhere", entry_ask_everywhere, METH_NOARGS,
     "ask_everywhere()\n\n"
     "They are asked again as if nothing had been said of any code."},
    {"event_number", entry_event_number, METH_NOARGS,
     "event_number()\n\n"
     "The same while one event of the calling thread's is handled, another one at the next that a "
     "hook is asked about."},
    {"watch", entry_watch, METH_VARARGS,
     "watch(callback, frames)\n\n"
     "Before each line of these frames, a tuple, and before each of their returns, the callback is "
     "called from now on: with the frame, and with whether that is left for good.  frames: None "
     "for those of all code.  callback: None for nothing more."},
    {"note_returns", entry_note_returns, METH_O,
     "note_returns(on)\n\n"
     "Whether steps that begin from now on note what the calls return that they go over."},
    {"returned", entry_returned, METH_O,
     "returned(frame)\n\n"
     "What the calls that this frame has made itself have returned since the calling thread's last "
     "step began, or came back to this frame: a list of (name, globals, value), the last 20.  "
     "Until the next step request they are kept alive."},
};

}  // namespace

bool add_functions_for_sorrel(PyObject* module) {
    Ref all = Ref::steal(PyDict_New());
    for (PyMethodDef& function : functions) {
        const Ref made = all ? Ref::steal(PyCFunction_New(&function, nullptr)) : Ref();
        if (!made || PyDict_SetItemString(all.get(), function.ml_name, made.get()) != 0) {
            return false;
        }
    }
    return PyModule_AddObject(module, kAttribute, all.release()) == 0;
}

}  // namespace morvik
