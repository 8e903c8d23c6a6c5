// Ties the file names that breakpoints are given by to the files that modules are loaded from.
// Module files are kept without compiled suffix and in the platform's one letter case; synonyms
// are kept as breakpoints and code files spell them. What is known once stays known until the
// breakpoint table is reset.
#ifndef MORVIK_BPOPS_RESOLUTION_H
#define MORVIK_BPOPS_RESOLUTION_H

#include "bpops/table.h"

namespace morvik {

// Makes a module's file known; anything but a module, or one without a file, is passed by.
void resolve_module(BreakpointTable* table, PyObject* module);

// Makes a module file known, and with it the breakpoints that waited for it. nullptr and names
// of more than kMaxPath characters are no file's.
void __tracer_resolve_bp_filenames(BreakpointTable* table, const char* module_filename);

// Fills in a new breakpoint's module file if that is known. 1, or 0 with MemoryError set.
int find_bp_filename_synonyms(BreakpointTable* table, BreakpointRecord* record);

// The known module file that a name stands for, owned by the table; nullptr for none.
const char* find_module_for_file(BreakpointTable* table, const char* filename);

// If both names denote one file, makes the first a synonym of the second: the module file as it
// is now stored. nullptr when they do not, or when out of memory.
const char* add_synonym(BreakpointTable* table, const char* filename, const char* module_file);

}  // namespace morvik

#endif
