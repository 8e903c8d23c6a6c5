#include "exceptops/ignored_locations.h"

#include <cstdlib>
#include <cstring>

#include "dbgcommon.h"
#include "host/ref.h"

namespace morvik {

namespace {

IgnoredLocation* head_of(const HashEntry* entry) {
    return entry != nullptr ? static_cast<IgnoredLocation*>(hash_get_value(entry)) : nullptr;
}

void free_location(IgnoredLocation* location) {
    free(location->filename);
    Py_XDECREF(location->line);
    free(location);
}

IgnoredLocation* find_by_key(IgnoredLocations* table, PathCache* cache, const char* filename,
                             int32_t key) {
    if (cache == nullptr) {
        return nullptr;
    }
    IgnoredLocation* location = head_of(hash_find(table, &key));
    while (location != nullptr && same_file(cache, location->filename, filename) == 0) {
        location = location->next;
    }
    return location;
}

}  // namespace

int32_t exception_line_key(PyObject* line) {
    if (!PyTuple_Check(line)) {
        return static_cast<int32_t>(PyInt_AsLong(line));
    }
    PyObject* const first = PyTuple_GetItem(line, 0);
    PyObject* const second = first != nullptr ? PyTuple_GetItem(line, 1) : nullptr;
    if (second == nullptr) {
        return -1;
    }
    const long a = PyInt_AsLong(first);
    const long b = PyErr_Occurred() == nullptr ? PyInt_AsLong(second) : -1;
    return PyErr_Occurred() == nullptr
               ? static_cast<int32_t>(static_cast<unsigned long>(a) + static_cast<unsigned long>(b))
               : -1;
}

void exception_locs_init(IgnoredLocations* table) { hash_init(table, sizeof(int32_t)); }

void exception_locs_clear(IgnoredLocations* table) {
    HashSearch search;
    // Releasing a line object may run Python code that changes the table.
    while (HashEntry* const entry = hash_first(table, &search)) {
        IgnoredLocation* location = head_of(entry);
        hash_delete_entry(entry);
        while (location != nullptr) {
            IgnoredLocation* const next = location->next;
            free_location(location);
            location = next;
        }
    }
    hash_delete_table(table);
    exception_locs_init(table);
}

IgnoredLocation* exception_loc_add(IgnoredLocations* table, PathCache* cache, const char* filename,
                                   PyObject* line) {
    const int32_t key = exception_line_key(line);
    const unsigned shortages = out_of_memory_count();
    IgnoredLocation* const known = find_by_key(table, cache, filename, key);
    if (known != nullptr) {
        return known;
    }
    if (out_of_memory_count() != shortages) {
        out_of_memory();  // it may be there already
        return nullptr;
    }
    auto* const location = static_cast<IgnoredLocation*>(calloc(1, sizeof(IgnoredLocation)));
    int is_new = 0;
    HashEntry* entry = nullptr;
    if (location != nullptr) {
        Py_INCREF(line);
        location->line = line;
        location->filename = strdup(filename);
        entry = location->filename != nullptr ? hash_create(table, &key, &is_new) : nullptr;
    }
    if (entry == nullptr) {
        if (location != nullptr) {
            free_location(location);
        }
        out_of_memory();
        return nullptr;
    }
    location->next = head_of(entry);
    hash_set_value(entry, location);
    return location;
}

void exception_loc_remove(IgnoredLocations* table, const char* filename, PyObject* line) {
    const int32_t key = exception_line_key(line);
    HashEntry* const entry = hash_find(table, &key);
    IgnoredLocation* before = nullptr;
    IgnoredLocation* location = head_of(entry);
    while (location != nullptr && strcmp(location->filename, filename) != 0) {
        before = location;
        location = location->next;
    }
    if (location == nullptr) {
        return;
    }
    if (before != nullptr) {
        before->next = location->next;
    } else if (location->next != nullptr) {
        hash_set_value(entry, location->next);
    } else {
        hash_delete_entry(entry);
    }
    free_location(location);
}

IgnoredLocation* exception_loc_find(IgnoredLocations* table, PathCache* cache, const char* filename,
                                    PyObject* line) {
    return find_by_key(table, cache, filename, exception_line_key(line));
}

}  // namespace morvik
