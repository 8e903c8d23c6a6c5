// The one way the interpreter's headers come in, and what differs between the interpreters the
// core is built for. Nothing outside host/ tests the Python version.
#ifndef MORVIK_HOST_PYTHON_H
#define MORVIK_HOST_PYTHON_H

#define PY_SSIZE_T_CLEAN
#include <Python.h>
// Python.h comes first, as it asks for.
#include <frameobject.h>
#include <pythread.h>
#include <traceback.h>

#include <cerrno>

#if PY_VERSION_HEX < 0x02060000 || PY_VERSION_HEX >= 0x02080000
#error "Morvik is built for CPython 2.6 and 2.7"
#endif

namespace morvik {

// The calling thread's state, or nullptr where the caller does not hold the interpreter lock.
// PyThreadState_Get() aborts the process instead.
inline PyThreadState* current_thread_state() { return _PyThreadState_Current; }

// Changes how often a thread's events are held back. Beyond the range of an int it goes on at the
// other end.
inline void add_to_tracing(PyThreadState* thread, int value) {
    thread->tracing =
        static_cast<int>(static_cast<unsigned>(thread->tracing) + static_cast<unsigned>(value));
}

// New references to a constant, for return statements and slots.
inline PyObject* new_none() {
    Py_INCREF(Py_None);
    return Py_None;
}

// Exactly a frame. A frame chain ends at anything else.
inline bool is_frame(const void* object) {
    return object != nullptr && Py_TYPE(static_cast<const PyObject*>(object)) == &PyFrame_Type;
}

inline PyObject* as_object(PyFrameObject* frame) { return reinterpret_cast<PyObject*>(frame); }
inline PyFrameObject* as_frame(PyObject* object) {
    return reinterpret_cast<PyFrameObject*>(object);
}

// The line that a frame is at, as frame.f_lineno tells it. The field is kept up to date only in
// frames with a trace function.
inline int frame_line(const PyFrameObject* frame) {
    return frame->f_trace != nullptr ? frame->f_lineno
                                     : PyCode_Addr2Line(frame->f_code, frame->f_lasti);
}

enum class Match { kNo, kYes, kCannotTell };

// The same as exception_matches(), as far as it can be told without running Python code.
inline Match match_without_code(PyObject* exception, PyObject* kinds) {
    if (!PyType_Check(exception) || !PyExceptionClass_Check(exception)) {
        return Match::kCannotTell;
    }
    // A class of the ordinary metaclass has no say in what its subclasses are.
    if (PyType_CheckExact(kinds)) {
        return PyExceptionClass_Check(kinds) &&
                       PyType_IsSubtype(reinterpret_cast<PyTypeObject*>(exception),
                                        reinterpret_cast<PyTypeObject*>(kinds)) != 0
                   ? Match::kYes
                   : Match::kNo;
    }
    if (!PyTuple_Check(kinds)) {
        return PyType_Check(kinds) || PyClass_Check(kinds) ? Match::kCannotTell : Match::kNo;
    }
    Match answer = Match::kNo;
    for (Py_ssize_t i = 0; answer != Match::kYes && i < PyTuple_GET_SIZE(kinds); ++i) {
        PyObject* const kind = PyTuple_GET_ITEM(kinds, i);
        const Match match =
            PyTuple_Check(kind) ? Match::kCannotTell : match_without_code(exception, kind);
        answer = match != Match::kNo ? match : answer;
    }
    return answer;
}

// Whether an exception is of a kind, or of one of a tuple of kinds: 1 or 0. Classes whose metaclass
// says so decide it with their own code. errno is kept.
inline int exception_matches(PyObject* exception, PyObject* kinds) {
    const Match match = match_without_code(exception, kinds);
    if (match != Match::kCannotTell) {
        return match == Match::kYes ? 1 : 0;
    }
    const int saved_errno = errno;
#if PY_VERSION_HEX < 0x02070000
    // Where the recursion limit is reached 2.6 would answer no, and print so, for want of a level
    // to ask with.
    constexpr int kLevelsToAskWith = 5;
    const int limit = Py_GetRecursionLimit();
    Py_SetRecursionLimit(limit + kLevelsToAskWith);
    const int matches = PyErr_GivenExceptionMatches(exception, kinds);
    Py_SetRecursionLimit(limit);
#else
    const int matches = PyErr_GivenExceptionMatches(exception, kinds);
#endif
    errno = saved_errno;
    return matches;
}

}  // namespace morvik

#endif
