// Ownership of interpreter objects and of the state that belongs to the traced program: whoever
// holds one of these cannot forget to give it back on some exit path.
#ifndef MORVIK_HOST_REF_H
#define MORVIK_HOST_REF_H

#include <cerrno>

#include "host/python.h"

namespace morvik {

// One strong reference, or none. Moves, never copies.
class Ref {
  public:
    Ref() = default;
    Ref(Ref&& other) noexcept : object_(other.release()) {}
    Ref& operator=(Ref&& other) noexcept {
        PyObject* const old = object_;
        object_ = other.release();
        Py_XDECREF(old);
        return *this;
    }
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    ~Ref() { Py_XDECREF(object_); }

    // Takes over a new reference (as most interpreter calls return); nullptr stays empty.
    static Ref steal(PyObject* object) { return Ref(object); }
    // Adds a reference to a borrowed one.
    static Ref share(PyObject* object) {
        Py_XINCREF(object);
        return Ref(object);
    }

    PyObject* get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }
    // Hands the reference to the caller.
    PyObject* release() {
        PyObject* const object = object_;
        object_ = nullptr;
        return object;
    }

  private:
    explicit Ref(PyObject* object) : object_(object) {}
    PyObject* object_ = nullptr;
};

// What a method of `object` returns, or nothing with an error set. `format` is that of a tuple's
// items, nullptr for no arguments. 2.6's own way of calling a method by its name takes every
// failure to find it for an AttributeError, also when memory was short.
template <typename... Arguments>
Ref call_method(PyObject* object, const char* name, const char* format, Arguments... arguments) {
    const Ref method = Ref::steal(PyObject_GetAttrString(object, name));
    return method ? Ref::steal(PyObject_CallFunction(method.get(), const_cast<char*>(format),
                                                     arguments...))
                  : Ref();
}

// Puts a new reference to `object` (which may be nullptr) into an owning slot. The old occupant
// goes last, since its destructor may run Python code that looks at the slot.
inline void set_slot(PyObject*& slot, PyObject* object) {
    PyObject* const old = slot;
    Py_XINCREF(object);
    slot = object;
    Py_XDECREF(old);
}

// Gives a frame its trace function. The interpreter takes the line that such a frame is at from the
// frame, where it was not kept up to date before.
inline void set_frame_trace(PyFrameObject* frame, PyObject* trace) {
    if (frame->f_lasti >= 0) {
        frame->f_lineno = PyCode_Addr2Line(frame->f_code, frame->f_lasti);
    }
    set_slot(frame->f_trace, trace);
}

// Empties an owning slot.
inline void clear_slot(PyObject*& slot) {
    PyObject* const old = slot;
    slot = nullptr;
    Py_XDECREF(old);
}

// The traced program's errno is the same when the scope ends as when it began.
class ErrnoGuard {
  public:
    ErrnoGuard() : saved_(errno) {}
    ~ErrnoGuard() { errno = saved_; }
    ErrnoGuard(const ErrnoGuard&) = delete;
    ErrnoGuard& operator=(const ErrnoGuard&) = delete;

  private:
    int saved_;
};

// Sets the pending Python exception aside for a scope; whatever is raised meanwhile is dropped
// when the first one comes back.
class PendingErrorGuard {
  public:
    PendingErrorGuard() { PyErr_Fetch(&type_, &value_, &traceback_); }
    ~PendingErrorGuard() { PyErr_Restore(type_, value_, traceback_); }
    PendingErrorGuard(const PendingErrorGuard&) = delete;
    PendingErrorGuard& operator=(const PendingErrorGuard&) = delete;

  private:
    PyObject* type_ = nullptr;
    PyObject* value_ = nullptr;
    PyObject* traceback_ = nullptr;
};

// Keeps the first of several errors while work that needs none pending goes on, and sets it when
// the scope ends.
class FirstError {
  public:
    FirstError() = default;
    ~FirstError() {
        collect();
        PyErr_Restore(type_, value_, traceback_);
    }
    FirstError(const FirstError&) = delete;
    FirstError& operator=(const FirstError&) = delete;
    void collect() {
        if (type_ == nullptr) {
            PyErr_Fetch(&type_, &value_, &traceback_);
        } else {
            PyErr_Clear();
        }
    }
    // Forgets the error kept, in favour of the pending one.
    void drop() {
        Py_CLEAR(type_);
        Py_CLEAR(value_);
        Py_CLEAR(traceback_);
    }

  private:
    PyObject* type_ = nullptr;
    PyObject* value_ = nullptr;
    PyObject* traceback_ = nullptr;
};

}  // namespace morvik

#endif
