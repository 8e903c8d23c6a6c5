// What the families of entry points share.
#include "morvikmodule/entry_points.h"

#include "dbgcommon.h"
#include "host/ref.h"
#include "tracercore/state.h"

namespace morvik {

bool core_is_initialised() {
    if (!core.initialised) {
        PyErr_SetString(PyExc_RuntimeError, "init must be called first");
    }
    return core.initialised;
}

ThreadData* own_record() {
    return core_is_initialised() ? thread_table_get_or_add(&core.threads, current_thread_state())
                                 : nullptr;
}

PyObject* none_unless_error() { return PyErr_Occurred() == nullptr ? new_none() : nullptr; }

PyObject* naming_memory_error(PyObject* result) {
    if (result != nullptr || PyErr_Occurred() != PyExc_MemoryError) {
        return result;
    }
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* traceback = nullptr;
    PyErr_Fetch(&type, &value, &traceback);
    if (value == nullptr || value == PyExc_MemoryErrorInst) {
        const Ref held_type = Ref::steal(type);
        const Ref held_value = Ref::steal(value);
        const Ref held_traceback = Ref::steal(traceback);
        return out_of_memory();
    }
    PyErr_Restore(type, value, traceback);
    return nullptr;
}

PyObject* argument(PyObject* args, Py_ssize_t index) { return PyTuple_GetItem(args, index); }

}  // namespace morvik
