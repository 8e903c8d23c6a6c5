// What stands in the place of sys.settrace.
#ifndef MORVIK_SORRELMODULE_SETTRACE_H
#define MORVIK_SORRELMODULE_SETTRACE_H

#include "host/ref.h"

namespace morvik {

// A function that looks and fails like sys.settrace, and calls function(argument) in its place, or
// the function that this was last called with. Of that the calling thread has no events, neither by
// the trace function that it had nor by the one that it has then. Nothing with an error set where
// memory is short.
Ref new_settrace(PyObject* function);

}  // namespace morvik

#endif
