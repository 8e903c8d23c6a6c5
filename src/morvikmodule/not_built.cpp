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

MORVIK_NOT_BUILT(sub_language_get_active_hook)
MORVIK_NOT_BUILT(sub_language_get_frame_category)
MORVIK_NOT_BUILT(get_new_imports)
MORVIK_NOT_BUILT(set_import_cb)
MORVIK_NOT_BUILT(register_module)
MORVIK_NOT_BUILT(register_sub_language_hook)
MORVIK_NOT_BUILT(GetUserName)
MORVIK_NOT_BUILT(GetUserAppDataPath)
MORVIK_NOT_BUILT(PyFile_SetEncoding)
MORVIK_NOT_BUILT(PyFile_WriteObject)
MORVIK_NOT_BUILT(WaitForInput)
MORVIK_NOT_BUILT(CopyIntoBuffer)
MORVIK_NOT_BUILT(PyFrame_LocalsToFast)

#undef MORVIK_NOT_BUILT

PyObject* entry_import(PyObject* /*self*/, PyObject* /*args*/, PyObject* /*keywords*/) {
    return not_built("__import__");
}

}  // namespace morvik
