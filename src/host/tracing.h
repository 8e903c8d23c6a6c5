// The trace function of a thread, also of one that is not the calling one, and lines as the
// interpreter sees them where it makes its events.
#ifndef MORVIK_HOST_TRACING_H
#define MORVIK_HOST_TRACING_H

#include "host/opcodes.h"
#include "host/python.h"
#include "host/ref.h"

namespace morvik {

// The interpreter counts the threads that have a trace function, and makes line events only
// while there are any. Its count is changed by a thread state that is nobody's: were it one of a
// real thread, that thread could take itself for the holder of the interpreter lock meanwhile.
inline void count_traced_thread(Py_tracefunc before, Py_tracefunc after) {
    PyThreadState nobody = {};
    nobody.c_tracefunc = before;
    PyThreadState* const self = _PyThreadState_Current;
    _PyThreadState_Current = &nobody;
    PyEval_SetTrace(after, nullptr);
    _PyThreadState_Current = self;
}

// Gives every frame on a thread's stack that has no trace function this one.
inline void hook_frames(const PyThreadState* thread, PyObject* trace) {
    for (PyFrameObject* frame = thread->frame; is_frame(frame); frame = frame->f_back) {
        if (frame->f_trace == nullptr) {
            set_frame_trace(frame, trace);
        }
    }
}

// Whether the interpreter would make a line event for coming to this offset in order.
inline bool begins_line(PyCodeObject* code, int offset) {
    PyAddrPair bounds;
#if PY_VERSION_HEX < 0x02070000
    return PyCode_CheckLineNumber(code, offset, &bounds) >= 0;
#else
    _PyCode_CheckLineNumber(code, offset, &bounds);
    return bounds.ap_lower == offset;
#endif
}

// The furthest offset at which a frame can go on in order after the instruction at this one.
inline int next_offset(const PyCodeObject* code, int offset) {
    if (offset < 0 || !PyString_Check(code->co_code) ||
        offset + 2 >= PyString_GET_SIZE(code->co_code)) {
        return offset;
    }
    const auto* const at =
        reinterpret_cast<const unsigned char*>(PyString_AS_STRING(code->co_code)) + offset;
    const int next = offset + (at[0] >= kHostOpcodes.have_argument ? 3 : 1);
    return at[0] == kHostOpcodes.for_iter ? next + at[1] + (at[2] << 8) : next;
}

}  // namespace morvik

#endif
