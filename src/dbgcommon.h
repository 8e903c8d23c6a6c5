// Small services on the interpreter's extension interface that the rest of the core shares.
// None keeps state; all need the interpreter lock.
#ifndef MORVIK_DBGCOMMON_H
#define MORVIK_DBGCOMMON_H

#include <sys/stat.h>

#include <cstdlib>
#include <memory>

#include "host/python.h"

namespace morvik {

// A string from malloc() and friends.
struct FreeDeleter {
    void operator()(void* block) const { free(block); }
};
using OwnedText = std::unique_ptr<char, FreeDeleter>;

// The text itself, or "(NULL)".
inline const char* text_or_null(const char* text) { return text != nullptr ? text : "(NULL)"; }

// New reference to a callable of a module, imported by name. nullptr with the import's or the
// lookup's error set, or with none when the attribute is not callable. Runs Python code.
PyObject* get_module_function(const char* module_name, const char* function_name);

// Call with positional arguments. New reference, or nullptr with the exception set. Runs Python
// code.
PyObject* call_with_1(PyObject* callable, PyObject* arg);
PyObject* call_with_2(PyObject* callable, PyObject* arg1, PyObject* arg2);
PyObject* call_with_3(PyObject* callable, PyObject* arg1, PyObject* arg2, PyObject* arg3);

// A frame's caller (borrowed), or nullptr when the object is no frame or has none. Every walk of
// a frame chain goes through here, so that a foreign object in one ends the walk.
inline PyFrameObject* frame_back(PyObject* object) {
    return is_frame(object) ? as_frame(object)->f_back : nullptr;
}
inline PyFrameObject* frame_back(PyFrameObject* frame) { return frame_back(as_object(frame)); }

// Frames on a thread's stack; nullptr names the calling thread.
int stack_depth(PyThreadState* thread);

// The characters of a string object (borrowed), or nullptr with TypeError set.
inline const char* string_chars(PyObject* object) { return PyString_AsString(object); }

// A copy of a string object's characters. Empty with TypeError set for anything else, empty with
// no error set when out of memory.
OwnedText string_dup(PyObject* object);

// Text for diagnostic lines (borrowed); never fails.
const char* object_text(PyObject* object);

// Sets MemoryError "Out of memory", without allocating anything. Always nullptr.
PyObject* out_of_memory();
// Makes the text that it goes by. 0, or -1 with an error set.
int out_of_memory_init();

// Reports to the diagnostic output what is lost for want of memory, and counts it: whoever keeps
// an answer for good asks whether the count is still the same.
void report_out_of_memory(const char* lost);
unsigned out_of_memory_count();
// Clears the pending error. Where it is MemoryError, reports what is lost by it.
void drop_error(const char* lost);

// Address of an export of the running interpreter, or nullptr; sets no error.
void* python_library_symbol(const char* name);

// stat() of a path: 0 or -1.
int file_stat(const char* path, struct stat* status);

}  // namespace morvik

#endif
