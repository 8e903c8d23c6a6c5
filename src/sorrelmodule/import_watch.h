// What the core tells of each import.
#ifndef MORVIK_SORRELMODULE_IMPORT_WATCH_H
#define MORVIK_SORRELMODULE_IMPORT_WATCH_H

#include "host/ref.h"

namespace morvik {

// A callable with one argument, the module, that calls function(argument) where sys.modules has
// more or fewer items than when it was last called, and at its first call. Where that function is
// in C, no other thread runs meanwhile: while the core's import callback is active, no thread stops
// for its step. Nothing with an error set where memory is short.
Ref new_import_watch(PyObject* function, PyObject* argument);

}  // namespace morvik

#endif
