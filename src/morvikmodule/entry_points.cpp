// What the families of entry points share.
#include "morvikmodule/entry_points.h"

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

PyObject* argument(PyObject* args, Py_ssize_t index) { return PyTuple_GetItem(args, index); }

}  // namespace morvik
