// Attribute look-up that runs no Python code.
#ifndef MORVIK_EXCEPTOPS_STATIC_LOOKUP_H
#define MORVIK_EXCEPTOPS_STATIC_LOOKUP_H

#include "host/ref.h"

namespace morvik {

// An attribute of a module, a class or an instance of either kind of class, as stored in its
// dictionary or inherited. Empty for everything that code of the program's would have to compute
// (properties, __getattr__ and the like). Sets no error.
Ref static_attribute(PyObject* object, PyObject* name);

}  // namespace morvik

#endif
