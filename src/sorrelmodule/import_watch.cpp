#include "sorrelmodule/import_watch.h"

#include "dbgcommon.h"

namespace morvik {

namespace {

// The items of a watch: what to call, with what; how many modules there were, how many imports may
// be under way that have brought them, and how often it has called.
enum Item { kFunction, kArgument, kModuleCount, kUnderWay, kCalls };

long number(PyObject* self, Item item) { return PyInt_AS_LONG(PyList_GET_ITEM(self, item)); }

bool set_number(PyObject* self, Item item, long value) {
    PyObject* const made = PyInt_FromLong(value);
    return made != nullptr && PyList_SetItem(self, item, made) == 0;
}

// Each import runs a module's code in a frame of its own.
long module_frames() {
    long count = 0;
    for (const PyFrameObject* frame = current_thread_state()->frame; frame != nullptr;
         frame = frame->f_back) {
        count += frame->f_locals == frame->f_globals ? 1 : 0;
    }
    return count;
}

// The innermost import sees the modules that the ones around it have begun, which are not whole
// before these end.
PyObject* notice_import(PyObject* self, PyObject* /*module*/) {
    PyObject* const modules = current_thread_state()->interp->modules;
    const long count =
        modules != nullptr && PyDict_Check(modules) ? static_cast<long>(PyDict_Size(modules)) : -1;
    const bool has_changed = count != number(self, kModuleCount);
    const long under_way = number(self, kUnderWay);
    if (!has_changed && under_way == 0) {
        return new_none();
    }
    if (!set_number(self, kModuleCount, count) ||
        !set_number(self, kUnderWay, has_changed ? module_frames() : under_way - 1) ||
        !set_number(self, kCalls, number(self, kCalls) + 1)) {
        return nullptr;
    }
    return PyObject_CallFunctionObjArgs(PyList_GET_ITEM(self, kFunction),
                                        PyList_GET_ITEM(self, kArgument), nullptr);
}

PyObject* calls_of_watch(PyObject* self, PyObject* /*none*/) {
    return Ref::share(PyList_GET_ITEM(self, kCalls)).release();
}

PyMethodDef notice_method = {"notice_import", notice_import, METH_O, nullptr};
PyMethodDef calls_method = {"calls", calls_of_watch, METH_NOARGS, nullptr};

}  // namespace

Ref new_import_watch(PyObject* function, PyObject* argument) {
    const Ref items = Ref::steal(Py_BuildValue("[OOiii]", function, argument, -1, 0, 0));
    const Ref notice = items ? Ref::steal(PyCFunction_New(&notice_method, items.get())) : Ref();
    const Ref calls = items ? Ref::steal(PyCFunction_New(&calls_method, items.get())) : Ref();
    return notice && calls ? Ref::steal(PyTuple_Pack(2, notice.get(), calls.get())) : Ref();
}

}  // namespace morvik
