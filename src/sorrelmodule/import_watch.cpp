#include "sorrelmodule/import_watch.h"

#include "dbgcommon.h"

namespace morvik {

namespace {

// The items of a watch: what to call, with what, and how many modules there were.
enum Item { kFunction, kArgument, kModuleCount, kItemCount };

PyObject* notice_import(PyObject* self, PyObject* /*module*/) {
    const PyObject* const modules = current_thread_state()->interp->modules;
    const Py_ssize_t count = modules != nullptr ? PyDict_Size(const_cast<PyObject*>(modules)) : -1;
    if (count < 0) {
        PyErr_Clear();  // It is ending, or the program has made something else of them.
        return new_none();
    }
    if (count == PyInt_AS_LONG(PyList_GET_ITEM(self, kModuleCount))) {
        return new_none();
    }
    PyObject* const kept = PyInt_FromSsize_t(count);
    if (kept == nullptr || PyList_SetItem(self, kModuleCount, kept) != 0) {
        return nullptr;
    }
    return PyObject_CallFunctionObjArgs(PyList_GET_ITEM(self, kFunction),
                                        PyList_GET_ITEM(self, kArgument), nullptr);
}

PyMethodDef method = {"notice_import", notice_import, METH_O, nullptr};

}  // namespace

Ref new_import_watch(PyObject* function, PyObject* argument) {
    const Ref items = Ref::steal(Py_BuildValue("[OOi]", function, argument, -1));
    return items ? Ref::steal(PyCFunction_New(&method, items.get())) : Ref();
}

}  // namespace morvik
