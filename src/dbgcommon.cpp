#include "dbgcommon.h"

#include <cstring>

#include "dprintf.h"
#include "host/ref.h"
#include "platform/platform.h"

namespace morvik {

namespace {

PyObject* out_of_memory_text = nullptr;
unsigned reports = 0;

PyObject* call_with_tuple(PyObject* callable, Ref args) {
    return args ? PyObject_Call(callable, args.get(), nullptr) : nullptr;
}

// The interpreter records the handle of its own library on platforms that have such handles.
void* recorded_library_handle() {
    PyObject* const handle = PySys_GetObject(const_cast<char*>("dllhandle"));
    if (handle == nullptr) {
        PyErr_Clear();
        return nullptr;
    }
    void* const value = PyLong_AsVoidPtr(handle);
    if (PyErr_Occurred() != nullptr) {
        PyErr_Clear();
        return nullptr;
    }
    return value;
}

}  // namespace

PyObject* get_module_function(const char* module_name, const char* function_name) {
    const Ref module = Ref::steal(PyImport_ImportModule(const_cast<char*>(module_name)));
    if (!module) {
        dprintf(kLogErrors, "module %s not found\n", text_or_null(module_name));
        return nullptr;
    }
    Ref function = Ref::steal(PyObject_GetAttrString(module.get(), function_name));
    if (!function) {
        dprintf(kLogErrors, "%s.%s function not found\n", text_or_null(module_name),
                text_or_null(function_name));
        return nullptr;
    }
    if (PyCallable_Check(function.get()) == 0) {
        dprintf(kLogErrors, "%s.%s is not callable\n", text_or_null(module_name),
                text_or_null(function_name));
        return nullptr;
    }
    return function.release();
}

PyObject* call_with_1(PyObject* callable, PyObject* arg) {
    return call_with_tuple(callable, Ref::steal(PyTuple_Pack(1, arg)));
}

PyObject* call_with_2(PyObject* callable, PyObject* arg1, PyObject* arg2) {
    return call_with_tuple(callable, Ref::steal(PyTuple_Pack(2, arg1, arg2)));
}

PyObject* call_with_3(PyObject* callable, PyObject* arg1, PyObject* arg2, PyObject* arg3) {
    return call_with_tuple(callable, Ref::steal(PyTuple_Pack(3, arg1, arg2, arg3)));
}

int stack_depth(PyThreadState* thread) {
    if (thread == nullptr) {
        thread = current_thread_state();
    }
    int depth = 0;
    if (thread != nullptr) {
        for (PyFrameObject* frame = thread->frame; frame != nullptr; frame = frame_back(frame)) {
            ++depth;
        }
    }
    return depth;
}

OwnedText string_dup(PyObject* object) {
    const char* const chars = string_chars(object);
    if (chars == nullptr) {
        return nullptr;
    }
    OwnedText copy(strdup(chars));
    if (!copy) {
        dprintf(kLogFiles, "FAILURE: Out of memory copying string: %s", object_text(object));
        PyErr_Clear();
    }
    return copy;
}

const char* object_text(PyObject* object) {
    if (object == nullptr) {
        return "(NULL PyObject*)";
    }
    return PyString_Check(object) ? PyString_AS_STRING(object) : "(non-PyString PyObject*)";
}

PyObject* out_of_memory() {
    if (out_of_memory_text != nullptr) {
        PyErr_SetObject(PyExc_MemoryError, out_of_memory_text);
    } else {
        PyErr_SetString(PyExc_MemoryError, "Out of memory");
    }
    return nullptr;
}

int out_of_memory_init() {
    if (out_of_memory_text == nullptr) {
        out_of_memory_text = PyString_FromString("Out of memory");
    }
    return out_of_memory_text != nullptr ? 0 : -1;
}

void report_out_of_memory(const char* lost) {
    ++reports;
    dprintf(kLogCore, "OUT OF MEMORY: %s\n", lost);
}

unsigned out_of_memory_count() { return reports; }

void drop_error(const char* lost) {
    const bool of_memory = PyErr_Occurred() == PyExc_MemoryError;
    PyErr_Clear();
    if (of_memory) {
        report_out_of_memory(lost);
    }
}

void* python_library_symbol(const char* name) {
    return interpreter_symbol(name, reinterpret_cast<const void*>(&PyObject_GetAttr),
                              recorded_library_handle);
}

int file_stat(const char* path, struct stat* status) { return stat(path, status); }

}  // namespace morvik
