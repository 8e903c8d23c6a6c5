// What native tests ask of the interpreter that they run in.
#ifndef MORVIK_TESTS_EMBEDDING_H
#define MORVIK_TESTS_EMBEDDING_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dprintf.h"
#include "host/python.h"
#include "host/ref.h"

namespace morvik {

// Runs statements in a new namespace, with the variables of `globals` where given. The namespace,
// or nothing when they raised, which is then printed.
inline Ref run(const std::string& statements, PyObject* globals = nullptr) {
    Ref names = globals != nullptr ? Ref::share(globals) : Ref::steal(PyDict_New());
    PyDict_SetItemString(names.get(), "__builtins__", PyEval_GetBuiltins());
    const Ref result =
        Ref::steal(PyRun_String(statements.c_str(), Py_file_input, names.get(), names.get()));
    if (!result) {
        PyErr_Print();
        ADD_FAILURE() << "raised: " << statements;
        return Ref();
    }
    return names;
}

// A variable of a namespace, borrowed.
inline PyObject* item(const Ref& names, const char* name) {
    return PyDict_GetItemString(names.get(), name);
}

inline PyCodeObject* code_of(PyObject* function) {
    return reinterpret_cast<PyCodeObject*>(PyFunction_GET_CODE(function));
}

inline std::string repr(PyObject* object) {
    const Ref text = Ref::steal(object != nullptr ? PyObject_Repr(object) : nullptr);
    PyErr_Clear();
    return text ? PyString_AS_STRING(text.get()) : "(no object)";
}

// An address as log messages show it.
inline std::string address(const void* pointer) {
    const Ref text = Ref::steal(PyString_FromFormat("%p", const_cast<void*>(pointer)));
    return text ? PyString_AS_STRING(text.get()) : "";
}

// Collects what the core logs in some categories while it lives.
class Diagnostics {
  public:
    explicit Diagnostics(unsigned categories) : old_mask_(dprintf_mask) {
        names_ =
            run("lines = []\n"
                "class Stream(object):\n"
                "    def write(self, text): lines.append(text)\n"
                "    def flush(self): pass\n"
                "stream = Stream()\n");
        dprintf_mask = categories;
        dprintf_set_file(item(names_, "stream"));
    }
    ~Diagnostics() {
        dprintf_set_file(nullptr);
        dprintf_mask = old_mask_;
    }
    Diagnostics(const Diagnostics&) = delete;
    Diagnostics& operator=(const Diagnostics&) = delete;

    // The messages since the last call.
    std::vector<std::string> take() {
        std::vector<std::string> messages;
        PyObject* const lines = item(names_, "lines");
        for (Py_ssize_t i = 0; i < PyList_GET_SIZE(lines); ++i) {
            messages.emplace_back(PyString_AS_STRING(PyList_GET_ITEM(lines, i)));
        }
        PyList_SetSlice(lines, 0, PyList_GET_SIZE(lines), nullptr);
        return messages;
    }

  private:
    unsigned old_mask_;
    Ref names_;
};

}  // namespace morvik

#endif
