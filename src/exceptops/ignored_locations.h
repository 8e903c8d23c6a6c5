// Places whose exceptions the user does not want to see again. A place is a file name and a line
// object; it is found by any name of the same file and removed by the very name it was added
// with.
#ifndef MORVIK_EXCEPTOPS_IGNORED_LOCATIONS_H
#define MORVIK_EXCEPTOPS_IGNORED_LOCATIONS_H

#include <cstdint>

#include "hashtable.h"
#include "host/python.h"
#include "pathops.h"

namespace morvik {

struct IgnoredLocation {
    char* filename;  // owned
    PyObject* line;  // owned; kept alive, not read again
    IgnoredLocation* next;
};

// Line key to the list of locations on such lines, newest first.
using IgnoredLocations = HashTable;

// The key of a line object: its value, for a tuple the sum of its first two items. -1 with an
// error set for anything else.
int32_t exception_line_key(PyObject* line);

void exception_locs_init(IgnoredLocations* table);
void exception_locs_clear(IgnoredLocations* table);

// The location there is or a new one; nullptr with MemoryError set.
IgnoredLocation* exception_loc_add(IgnoredLocations* table, PathCache* cache, const char* filename,
                                   PyObject* line);
void exception_loc_remove(IgnoredLocations* table, const char* filename, PyObject* line);
IgnoredLocation* exception_loc_find(IgnoredLocations* table, PathCache* cache, const char* filename,
                                    PyObject* line);

}  // namespace morvik

#endif
