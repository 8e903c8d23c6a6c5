// Entry points for the exception policy.
#include "conames.h"
#include "dbgcommon.h"
#include "exceptops/catch_info.h"
#include "exceptops/ignored_locations.h"
#include "host/ref.h"
#include "morvikmodule/entry_points.h"
#include "tracercore/rest.h"
#include "tracercore/state.h"

namespace morvik {

namespace {

// Keeps a tuple of exception types; an empty one stands for none.
PyObject* set_types(PyObject* args, const char* format, PyObject** slot) {
    PyObject* types = nullptr;
    if (PyArg_ParseTuple(args, format, &PyTuple_Type, &types) == 0) {
        return nullptr;
    }
    set_slot(*slot, PyTuple_GET_SIZE(types) > 0 ? types : nullptr);
    wake_all_threads();
    return new_none();
}

PyObject* get_types(PyObject* args, const char* format, PyObject* types) {
    if (PyArg_ParseTuple(args, format) == 0) {
        return nullptr;
    }
    return types != nullptr ? Ref::share(types).release() : PyTuple_New(0);
}

}  // namespace

PyObject* entry_set_exception_mode(PyObject* /*self*/, PyObject* args) {
    int mode = 0;
    if (PyArg_ParseTuple(args, "i:tracer_set_exception_mode", &mode) == 0) {
        return nullptr;
    }
    core.exception_mode = mode;
    wake_all_threads();
    return new_none();
}

PyObject* entry_get_exception_mode(PyObject* /*self*/, PyObject* /*args*/) {
    return PyInt_FromLong(core.exception_mode);
}

PyObject* entry_ignore_exception_loc(PyObject* /*self*/, PyObject* args) {
    const char* filename = nullptr;
    PyObject* line = nullptr;
    int ignore = 0;
    if (!core_is_initialised() ||
        PyArg_ParseTuple(args, "sOi:tracer_ignore_exception_loc", &filename, &line, &ignore) == 0) {
        return nullptr;
    }
    if (ignore != 0) {
        exception_loc_add(&core.ignored_locations, code_names.path_cache, filename, line);
    } else {
        exception_loc_remove(&core.ignored_locations, filename, line);
    }
    return none_unless_error();
}

PyObject* entry_exception_loc_ignored(PyObject* /*self*/, PyObject* args) {
    const char* filename = nullptr;
    PyObject* line = nullptr;
    if (!core_is_initialised() ||
        PyArg_ParseTuple(args, "sO:tracer_exception_loc_ignored", &filename, &line) == 0) {
        return nullptr;
    }
    const unsigned shortages = out_of_memory_count();
    const bool found = exception_loc_find(&core.ignored_locations, code_names.path_cache, filename,
                                          line) != nullptr;
    if (!found && out_of_memory_count() != shortages) {
        return out_of_memory();
    }
    return PyErr_Occurred() == nullptr ? PyInt_FromLong(found) : nullptr;
}

PyObject* entry_clear_exception_ignores(PyObject* /*self*/, PyObject* /*args*/) {
    if (!core_is_initialised()) {
        return nullptr;
    }
    exception_locs_clear(&core.ignored_locations);
    return new_none();
}

PyObject* entry_exiting_on_exception(PyObject* /*self*/, PyObject* /*args*/) {
    const ThreadData* const record = thread_table_current(&core.threads);
    return PyInt_FromLong(core.autoquit != 0 && record != nullptr && record->exiting_on_exc);
}

PyObject* entry_set_always_stop_excepts(PyObject* /*self*/, PyObject* args) {
    return set_types(args, "O!:set_always_stop_excepts", &core.always_stop_excepts);
}

PyObject* entry_get_always_stop_excepts(PyObject* /*self*/, PyObject* args) {
    return get_types(args, ":get_always_stop_excepts", core.always_stop_excepts);
}

PyObject* entry_set_never_stop_excepts(PyObject* /*self*/, PyObject* args) {
    return set_types(args, "O!:set_never_stop_excepts", &core.never_stop_excepts);
}

PyObject* entry_get_never_stop_excepts(PyObject* /*self*/, PyObject* args) {
    return get_types(args, ":get_never_stop_excepts", core.never_stop_excepts);
}

PyObject* entry_set_ignored_exception_handlers(PyObject* /*self*/, PyObject* args) {
    PyObject* handlers = nullptr;
    if (PyArg_ParseTuple(args, "O:set_ignored_exception_handlers", &handlers) == 0) {
        return nullptr;
    }
    set_slot(core.ignored_handlers, handlers);
    return new_none();
}

PyObject* entry_set_exc_catch_info_list(PyObject* /*self*/, PyObject* args) {
    PyObject* list = nullptr;
    if (PyArg_ParseTuple(args, "O!:set_exc_catch_info_list", &PyList_Type, &list) == 0 ||
        set_catch_info_list(&core.catch_info, list) != 0) {
        return nullptr;
    }
    return new_none();
}

}  // namespace morvik
