// Diagnostic output: the core's account of its own decisions, written to a Python file object
// that the debug server hands over, filtered by one category bit per message.
#ifndef MORVIK_DPRINTF_H
#define MORVIK_DPRINTF_H

#include "host/python.h"

namespace morvik {

// One bit each; a message carries exactly one.
enum DprintfCategory : unsigned {
    kLogErrors = 1,       // errors of the common Python services
    kLogFiles = 2,        // file identity
    kLogCore = 4,         // module interface, trace core, threads
    kLogBreakpoints = 8,  // breakpoints
    kLogExceptions = 16,  // exception analysis and the exception stop decision
    kLogInput = 32,       // waiting for input
};

// The categories that are written. Fixed in the shipped module; native tests widen it.
extern unsigned dprintf_mask;

// The file written to (owned), nullptr for none.
extern PyObject* dprintf_file;

// Drops the previous file and keeps a new reference to `file`; nullptr or None turns output off.
void dprintf_set_file(PyObject* file);

inline bool dprintf_enabled(unsigned category) {
    return dprintf_file != nullptr && (category & dprintf_mask) != 0;
}

// Formats in the dialect of PyString_FromFormat and writes; use dprintf() below. Runs Python code
// (the file's), untraced in this thread; the pending exception survives.
void dprintf_write(const char* format, ...);

// A message that is switched off costs the two tests and no call.
template <class... Args>
inline void dprintf(unsigned category, const char* format, Args... args) {
    if (dprintf_enabled(category)) {
        dprintf_write(format, args...);
    }
}

// Writes a header line when an exception is pending, which stays pending.
void dprintf_exception();

}  // namespace morvik

#endif
