// Callbacks of the core's in which exceptions may turn up that are not the debug server's.
#ifndef MORVIK_SORRELMODULE_DEFERRING_H
#define MORVIK_SORRELMODULE_DEFERRING_H

#include "host/ref.h"

namespace morvik {

// A function that calls function(...) and returns what that does. Where that raises, at whichever
// instruction, defer(type, value, traceback) is called: when this is true, the new function returns
// True, else the exception passes. Where function returns a negative number, that signal is sent to
// the process once it has been left, and the new function returns 0. What defer itself raises is
// treated the same, once. Nothing with an error set where memory is short.
Ref new_deferring(PyObject* function, PyObject* defer);

}  // namespace morvik

#endif
