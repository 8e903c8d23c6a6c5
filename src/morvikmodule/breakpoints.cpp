// Entry points that edit and list breakpoints.
#include "bpops/table.h"

#include "dbgcommon.h"
#include "dprintf.h"
#include "morvikmodule/entry_points.h"
#include "tracercore/state.h"

namespace morvik {

namespace {

// A file and a line. False with an error set.
bool parse_place(PyObject* args, const char* format, const char** filename, int* line) {
    return core_is_initialised() && PyArg_ParseTuple(args, format, filename, line) != 0;
}

// A file, a line and one more int.
bool parse_place_and_int(PyObject* args, const char* format, const char** filename, int* line,
                         int* value) {
    return core_is_initialised() && PyArg_ParseTuple(args, format, filename, line, value) != 0;
}

}  // namespace

PyObject* entry_set_break(PyObject* /*self*/, PyObject* args) {
    const char* filename = nullptr;
    int line = 0;
    int enabled = 0;
    int temporary = 0;
    PyObject* cond = nullptr;
    int ignore_count = 0;
    dprintf(kLogCore, "SETTING BREAK\n");
    if (!core_is_initialised() ||
        PyArg_ParseTuple(args, "siiiOi:tracer_set_break", &filename, &line, &enabled, &temporary,
                         &cond, &ignore_count) == 0) {
        return nullptr;
    }
    dprintf(kLogCore, "  line = %d, filename = %s\n", line, text_or_null(filename));
    const int64_t id =
        bp_set(&core.breakpoints, filename, line, enabled, temporary, cond, ignore_count);
    if (id == kNoBreakpoint) {
        return out_of_memory();
    }
    return PyInt_FromLong(id);
}

PyObject* entry_clear_breaks(PyObject* /*self*/, PyObject* args) {
    const char* filename = nullptr;
    int line = 0;
    if (!parse_place(args, "si:tracer_clear_breaks", &filename, &line)) {
        return nullptr;
    }
    bp_clear(&core.breakpoints, filename, line);
    return new_none();
}

PyObject* entry_enable_breaks(PyObject* /*self*/, PyObject* args) {
    const char* filename = nullptr;
    int line = 0;
    int enabled = 0;
    if (!parse_place_and_int(args, "sii:tracer_enable_breaks", &filename, &line, &enabled)) {
        return nullptr;
    }
    bp_enable(&core.breakpoints, filename, line, enabled);
    return new_none();
}

PyObject* entry_ignore_breaks(PyObject* /*self*/, PyObject* args) {
    const char* filename = nullptr;
    int line = 0;
    int count = 0;
    if (!parse_place_and_int(args, "sii:tracer_ignore_breaks", &filename, &line, &count)) {
        return nullptr;
    }
    bp_ignore(&core.breakpoints, filename, line, count);
    return new_none();
}

PyObject* entry_set_breaks_cond(PyObject* /*self*/, PyObject* args) {
    const char* filename = nullptr;
    int line = 0;
    PyObject* cond = nullptr;
    if (!core_is_initialised() ||
        PyArg_ParseTuple(args, "siO:tracer_set_breaks_cond", &filename, &line, &cond) == 0) {
        return nullptr;
    }
    bp_set_cond(&core.breakpoints, filename, line, cond);
    return none_unless_error();
}

PyObject* entry_clear_all_breaks(PyObject* /*self*/, PyObject* /*args*/) {
    if (!core_is_initialised()) {
        return nullptr;
    }
    bp_clear_all(&core.breakpoints);
    return new_none();
}

PyObject* entry_get_breaks(PyObject* /*self*/, PyObject* args) {
    const char* filename = nullptr;
    int line = 0;
    if (!parse_place(args, "si:tracer_get_breaks", &filename, &line)) {
        return nullptr;
    }
    return bp_get(&core.breakpoints, filename, line);
}

PyObject* entry_get_file_breaks(PyObject* /*self*/, PyObject* args) {
    const char* filename = nullptr;
    if (!core_is_initialised() ||
        PyArg_ParseTuple(args, "s:tracer_get_file_breaks", &filename) == 0) {
        return nullptr;
    }
    return bp_get_file(&core.breakpoints, filename);
}

PyObject* entry_get_changed_bps_lists(PyObject* /*self*/, PyObject* args) {
    if (PyArg_ParseTuple(args, ":get_changed_bps_lists") == 0 || !core_is_initialised()) {
        return nullptr;
    }
    return bp_take_changed(&core.breakpoints);
}

}  // namespace morvik
