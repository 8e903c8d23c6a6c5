// What the core tells of each import.
#ifndef MORVIK_SORRELMODULE_IMPORT_WATCH_H
#define MORVIK_SORRELMODULE_IMPORT_WATCH_H

#include "host/ref.h"

namespace morvik {

// A tuple of two functions. The first, with one argument, the module, is to be told of each import,
// and calls function(argument) where there are other modules than before, also as each of the
// imports ends that was under way then; it runs no Python code of its own. Where that function is
// in C, no other thread runs meanwhile: while the core's import callback is active, no thread stops
// for its step. The second returns how often that was. Nothing with an error set where memory is
// short.
Ref new_import_watch(PyObject* function, PyObject* argument);

}  // namespace morvik

#endif
