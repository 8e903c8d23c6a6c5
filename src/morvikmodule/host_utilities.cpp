// Entry points that give the debug server what Python code of this interpreter cannot reach: the
// user, two calls on files, waiting for input, writing into buffers, a frame's locals.
#include <cerrno>
#include <cstring>

#include "dbgcommon.h"
#include "dprintf.h"
#include "host/ref.h"
#include "ioops.h"
#include "morvikmodule/entry_points.h"
#include "platform/platform.h"

namespace morvik {

namespace {

// New reference to the unicode string of a text from the system, or nullptr with an error set.
PyObject* decoded(const char* text) {
    const auto length = static_cast<Py_ssize_t>(strlen(text));
    PyObject* result = PyUnicode_DecodeUTF8(text, length, "strict");
    if (result == nullptr && PyErr_Occurred() != PyExc_MemoryError &&
        Py_FileSystemDefaultEncoding != nullptr) {
        PyErr_Clear();
        result = PyUnicode_Decode(text, length, Py_FileSystemDefaultEncoding, "strict");
    }
    return result;
}

// While one of these lives, other threads cannot close the file: they get the interpreter's own
// error for a file in use.
class FileUse {
  public:
    explicit FileUse(PyObject* file) : file_(reinterpret_cast<PyFileObject*>(file)) {
        PyFile_IncUseCount(file_);
    }
    ~FileUse() { PyFile_DecUseCount(file_); }
    FileUse(const FileUse&) = delete;
    FileUse& operator=(const FileUse&) = delete;

  private:
    PyFileObject* file_;
};

}  // namespace

PyObject* entry_GetUserName(PyObject* /*self*/, PyObject* /*args*/) {
    errno = 0;
    const OwnedText name(user_name());
    if (!name && errno == ENOMEM) {
        return out_of_memory();
    }
    PyObject* const result = name ? decoded(name.get()) : nullptr;
    if (result == nullptr && PyErr_Occurred() == nullptr) {
        PyErr_SetString(PyExc_OSError, "Unable to get user name");
    }
    return result;
}

PyObject* entry_GetUserAppDataPath(PyObject* /*self*/, PyObject* args) {
    if (PyArg_ParseTuple(args, ":GetUserAppDataPath") == 0) {
        return nullptr;
    }
    errno = 0;
    const OwnedText folder(application_data_folder());
    if (!folder && errno == ENOMEM) {
        return out_of_memory();
    }
    PyObject* const result = folder ? decoded(folder.get()) : nullptr;
    if (result == nullptr && PyErr_Occurred() != PyExc_MemoryError) {
        // A folder that cannot be named is as good as none.
        PyErr_Clear();
        return new_none();
    }
    return result;
}

PyObject* entry_PyFile_SetEncoding(PyObject* /*self*/, PyObject* args) {
    PyObject* file = nullptr;
    const char* encoding = nullptr;
    if (PyArg_ParseTuple(args, "Os", &file, &encoding) == 0) {
        return nullptr;
    }
    // The interpreter takes anything for a file here.
    if (!PyFile_Check(file)) {
        return PyErr_Format(PyExc_TypeError, "argument 1 must be file, not %.50s",
                            Py_TYPE(file)->tp_name);
    }
    return PyFile_SetEncoding(file, encoding) != 0 ? new_none() : nullptr;
}

PyObject* entry_PyFile_WriteObject(PyObject* /*self*/, PyObject* args) {
    PyObject* object = nullptr;
    PyObject* file = nullptr;
    int flags = 0;
    if (PyArg_ParseTuple(args, "OOi", &object, &file, &flags) == 0) {
        return nullptr;
    }
    return PyFile_WriteObject(object, file, flags) == 0 ? new_none() : nullptr;
}

PyObject* entry_WaitForInput(PyObject* /*self*/, PyObject* args) {
    PyObject* file = nullptr;
    PyObject* sockets = nullptr;
    if (PyArg_ParseTuple(args, "OO!", &file, &PyList_Type, &sockets) == 0) {
        return nullptr;
    }
    dprintf(kLogCore, "Entering WrapWaitForInput\n");
    FILE* const stream = PyFile_AsFile(file);
    if (stream == nullptr) {
        PyErr_Clear();
        return PyInt_FromLong(-1);
    }
    const FileUse in_use(file);
    const int buffered = file_buffer_count(stream);
    dprintf(kLogCore, "Current file buffer count = %d\n", buffered);
    if (buffered != 0) {
        return PyInt_FromLong(buffered);
    }
    dprintf(kLogCore, "Calling WaitOnStdin(fp = %p, socket_list length = %d\n", stream,
            static_cast<int>(PyList_GET_SIZE(sockets)));
    int count = 0;
    const OwnedInts fds = socket_fds_from_list(sockets, &count);
    if (!fds) {
        return nullptr;
    }
    PyThreadState* const thread = PyEval_SaveThread();
    const WaitResult result = WaitOnStdin(stream, fds.get(), count);
    PyEval_RestoreThread(thread);
    switch (result) {
        case kFileInput:
            return PyInt_FromLong(1);
        case kSocketInput:
            return PyInt_FromLong(0);
        default:
            return PyInt_FromLong(-1);
    }
}

PyObject* entry_CopyIntoBuffer(PyObject* /*self*/, PyObject* args) {
    void* buffer = nullptr;
    Py_ssize_t length = 0;
    int offset = 0;
    const char* data = nullptr;
    Py_ssize_t size = 0;
    if (PyArg_ParseTuple(args, "w#is#", &buffer, &length, &offset, &data, &size) == 0) {
        return nullptr;
    }
    // What stands for the offset may have run code that moved the buffer.
    if (PyObject_AsWriteBuffer(PyTuple_GET_ITEM(args, 0), &buffer, &length) != 0) {
        return nullptr;
    }
    // To keep the offset within the buffer is the caller's part; one outside finds no room.
    const auto room = static_cast<int>(length - offset);
    if (offset < 0 || room <= 0) {
        return PyInt_FromLong(0);
    }
    const auto copied = static_cast<int>(size > room ? room : size);
    memmove(static_cast<char*>(buffer) + offset, data, static_cast<size_t>(copied));
    return PyInt_FromLong(copied);
}

PyObject* entry_PyFrame_LocalsToFast(PyObject* /*self*/, PyObject* args) {
    PyObject* frame = nullptr;
    int clear = 0;
    if (PyArg_ParseTuple(args, "O!i:PyFrame_LocalsToFast", &PyFrame_Type, &frame, &clear) == 0) {
        return nullptr;
    }
    PyFrame_LocalsToFast(as_frame(frame), clear);
    return new_none();
}

}  // namespace morvik
