// What the calls that one line of a frame makes have returned: the last ones of them.
#ifndef MORVIK_RETURNED_CALLS_H
#define MORVIK_RETURNED_CALLS_H

#include "host/python.h"

namespace morvik {

// References of its own.
struct ReturnedCall {
    PyObject* name;     // of the code
    PyObject* globals;  // of the module that the code belongs to
    PyObject* value;
};

constexpr unsigned kMostReturnedCalls = 20;

struct ReturnedCalls {
    PyFrameObject* caller;  // whose calls they are, borrowed and only compared; nullptr for none
    unsigned count;         // how many there are
    unsigned next;          // where the next one goes, in place of the oldest if all are taken
    ReturnedCall last[kMostReturnedCalls];
};

// Nothing yet, of no caller; nullptr when out of memory (no error set).
ReturnedCalls* returned_calls_new();
// May run Python code (destructors).
void returned_calls_free(ReturnedCalls* calls);

// Forgets what there is, in favour of another caller's calls. May run Python code (destructors), as
// the last thing that it does: that may free `calls`.
void returned_calls_begin(ReturnedCalls* calls, PyFrameObject* caller);
// The same, and the first of those calls has returned from this frame.
void returned_calls_begin_with(ReturnedCalls* calls, PyFrameObject* caller,
                               const PyFrameObject* frame, PyObject* value);

// A call has returned from this frame. May run Python code, in the same way.
void returned_calls_add(ReturnedCalls* calls, const PyFrameObject* frame, PyObject* value);

// New reference to a list of a tuple (name, globals, value) for each, the oldest first; nullptr
// with an error set.
PyObject* returned_calls_list(const ReturnedCalls* calls);

}  // namespace morvik

#endif
