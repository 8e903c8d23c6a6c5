// Functions of the interface that are not built yet: each says so by its name.
#include "morvikmodule/entry_points.h"

namespace morvik {

namespace {

PyObject* not_built(const char* name) {
    PyErr_SetString(PyExc_NotImplementedError, name);
    return nullptr;
}

}  // namespace

#define MORVIK_NOT_BUILT(name) \
    PyObject* entry_##name(PyObject* /*self*/, PyObject* /*args*/) { return not_built(#name); }

MORVIK_NOT_BUILT(GetUserName)
MORVIK_NOT_BUILT(GetUserAppDataPath)
MORVIK_NOT_BUILT(PyFile_SetEncoding)
MORVIK_NOT_BUILT(PyFile_WriteObject)
MORVIK_NOT_BUILT(WaitForInput)
MORVIK_NOT_BUILT(CopyIntoBuffer)
MORVIK_NOT_BUILT(PyFrame_LocalsToFast)

#undef MORVIK_NOT_BUILT

}  // namespace morvik
