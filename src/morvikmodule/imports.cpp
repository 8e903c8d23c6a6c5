// Entry points for imports and sub-languages.
#include "tracercore/imports.h"
#include "host/ref.h"
#include "morvikmodule/entry_points.h"
#include "tracercore/state.h"
#include "tracercore/sublanguages.h"

namespace morvik {

PyObject* entry_import(PyObject* /*self*/, PyObject* args, PyObject* keywords) {
    return core_is_initialised() ? import_through_hook(args, keywords) : nullptr;
}

PyObject* entry_get_new_imports(PyObject* /*self*/, PyObject* /*args*/) {
    return core_is_initialised() ? take_new_imports() : nullptr;
}

PyObject* entry_set_import_cb(PyObject* /*self*/, PyObject* args) {
    PyObject* const callback = argument(args, 0);
    if (callback == nullptr || !core_is_initialised()) {
        return nullptr;
    }
    set_slot(core.callbacks.import_cb, callback);
    return new_none();
}

PyObject* entry_register_module(PyObject* /*self*/, PyObject* args) {
    PyObject* module = nullptr;
    if (!core_is_initialised() || PyArg_ParseTuple(args, "O:register_module", &module) == 0) {
        return nullptr;
    }
    const char* const file = register_module(module);
    if (file == nullptr || PyErr_Occurred() != nullptr) {
        return none_unless_error();
    }
    return PyString_FromString(file);
}

PyObject* entry_register_sub_language_hook(PyObject* /*self*/, PyObject* args) {
    PyObject* hook = nullptr;
    if (!core_is_initialised() ||
        PyArg_ParseTuple(args, "O:register_sub_language_hook", &hook) == 0 ||
        register_sub_language_hook(hook) != 0) {
        return nullptr;
    }
    return new_none();
}

}  // namespace morvik
