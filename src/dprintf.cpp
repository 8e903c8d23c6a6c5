#include "dprintf.h"

#include <cstdarg>

#include "host/ref.h"

namespace morvik {

unsigned dprintf_mask = kLogCore | kLogExceptions;
PyObject* dprintf_file = nullptr;

namespace {

// Raises the thread's tracing counter for a scope, so that the Python code of a write is not
// itself traced. Refuses at a depth where the write is already being reported on.
class UntracedWrite {
  public:
    UntracedWrite() : thread_(current_thread_state()) {
        constexpr int kDeepest = 2;
        if (thread_ != nullptr && thread_->tracing >= kDeepest) {
            thread_ = nullptr;
        }
        if (thread_ != nullptr) {
            add_to_tracing(thread_, 1);
        }
    }
    ~UntracedWrite() {
        if (thread_ != nullptr) {
            add_to_tracing(thread_, -1);
        }
    }
    UntracedWrite(const UntracedWrite&) = delete;
    UntracedWrite& operator=(const UntracedWrite&) = delete;
    bool allowed() const { return thread_ != nullptr; }

  private:
    PyThreadState* thread_;
};

}  // namespace

void dprintf_set_file(PyObject* file) { set_slot(dprintf_file, file == Py_None ? nullptr : file); }

void dprintf_write(const char* format, ...) {
    const UntracedWrite write;
    if (!write.allowed()) {
        return;
    }
    const PendingErrorGuard keep_error;
    // The file's own code may set another one, or none.
    const Ref file = Ref::share(dprintf_file);
    va_list args;
    va_start(args, format);
    Ref text = Ref::steal(PyString_FromFormatV(format, args));
    va_end(args);
    if (!text) {
        PyErr_Clear();
        text = Ref::steal(PyString_FromString("DPRINTF error: unable to create output string\n"));
    }
    if (!text) {
        return;
    }
    PyFile_WriteObject(text.get(), file.get(), Py_PRINT_RAW);
    // A failed write or flush is not the program's business. The former's error is dropped before
    // the code of the latter runs, the latter's with keep_error.
    PyErr_Clear();
    const Ref flushed = call_method(file.get(), "flush", nullptr);
}

void dprintf_exception() {
    if (dprintf_file == nullptr || PyErr_Occurred() == nullptr) {
        return;
    }
    const UntracedWrite write;
    if (!write.allowed()) {
        return;
    }
    const PendingErrorGuard keep_error;
    dprintf(kLogCore, "EXCEPTION IN DEBUG TRACER:\n");
    const Ref old_stderr = Ref::share(PySys_GetObject(const_cast<char*>("stderr")));
    if (!old_stderr || old_stderr.get() == Py_None) {
        return;
    }
    // The exception is already set aside, so the printer finds none and the header stands alone:
    // the program's own report of it is not anticipated here.
    const Ref file = Ref::share(dprintf_file);
    PySys_SetObject(const_cast<char*>("stderr"), file.get());
    PyErr_Print();
    PySys_SetObject(const_cast<char*>("stderr"), old_stderr.get());
}

}  // namespace morvik
