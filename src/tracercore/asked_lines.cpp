#include "tracercore/asked_lines.h"

#include <cstdlib>

#include "conames.h"
#include "hashtable.h"
#include "tracercore/state.h"

namespace morvik {

namespace {

// By address of code, its lines: how many, and these, in one block. Finds nothing before the first
// code object is in it.
HashTable asked;

const int* lines_of(const PyCodeObject* code) {
    const HashEntry* const entry = hash_find(&asked, &code);
    return entry != nullptr ? static_cast<const int*>(hash_get_value(entry)) : nullptr;
}

}  // namespace

bool is_asked_at(const PyCodeObject* code, int line) {
    const int* const lines = lines_of(code);
    if (lines == nullptr) {
        return true;
    }
    for (int i = 1; i <= lines[0]; ++i) {
        if (lines[i] == line) {
            return true;
        }
    }
    return false;
}

bool is_asked_anywhere(const PyCodeObject* code) {
    const int* const lines = lines_of(code);
    return lines == nullptr || lines[0] != 0;
}

bool is_asked_everywhere(const PyCodeObject* code) { return lines_of(code) == nullptr; }

int ask_at_lines(PyCodeObject* code, PyObject* lines) {
    // The registry keeps such code, and tells of its end.
    if (registered_pathname(&code_names, code) == nullptr) {
        return PyErr_Occurred() != nullptr ? -1 : 0;
    }
    const Py_ssize_t count = PyTuple_GET_SIZE(lines);
    auto* const copy = static_cast<int*>(malloc(static_cast<size_t>(count + 1) * sizeof(int)));
    if (copy == nullptr) {
        PyErr_NoMemory();
        return -1;
    }
    copy[0] = static_cast<int>(count);
    for (Py_ssize_t i = 0; i < count; ++i) {
        const long line = PyInt_AsLong(PyTuple_GET_ITEM(lines, i));
        if (line == -1 && PyErr_Occurred() != nullptr) {
            free(copy);
            return -1;
        }
        copy[i + 1] = static_cast<int>(line);
    }
    ask_at_all_lines(code);
    if (asked.num_buckets == 0) {
        hash_init(&asked, sizeof(code));
    }
    int is_new = 0;
    HashEntry* const entry = hash_create(&asked, &code, &is_new);
    if (entry == nullptr) {
        free(copy);
        PyErr_NoMemory();
        return -1;
    }
    hash_set_value(entry, copy);
    bp_forget_passed(&core.breakpoints);
    return 1;
}

void ask_at_all_lines(const PyCodeObject* code) {
    HashEntry* const entry = hash_find(&asked, &code);
    if (entry != nullptr) {
        hash_delete_entry_and_value(entry);
        bp_forget_passed(&core.breakpoints);
    }
}

void ask_everywhere() {
    if (asked.num_entries != 0) {
        hash_delete_table_and_values(&asked);
        hash_init(&asked, sizeof(const PyCodeObject*));
        bp_forget_passed(&core.breakpoints);
    }
}

}  // namespace morvik
