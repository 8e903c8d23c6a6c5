// morvik-python: the host interpreter in a process whose heap lies below 2 GiB.
//
// Python code names a thread by the low 32 bits of its thread state's address. The
// interpreter's own executable is position independent and has its heap high up, where no
// such name leads back to an address. This one is linked at a fixed low address, and the
// heap begins right behind it.

#include <Python.h>
#include <frameobject.h>
#include <malloc.h>

// The wrong configuration links all the same, and the module then fails in odd ways.
#ifdef Py_DEBUG
static_assert(MORVIK_HOST_IS_DEBUG, "a release host with a debug host's headers");
#else
static_assert(!MORVIK_HOST_IS_DEBUG, "a debug host with a release host's headers");
#endif

#if MORVIK_TELLS_RAISES
// The core sets this, to hear of every exception at the place where the interpreter would make an
// event of it for a trace function.
extern "C" {
void (*morvik_raised)(PyFrameObject* frame) = nullptr;

int __real_PyTraceBack_Here(PyFrameObject* frame);
int __wrap_PyTraceBack_Here(PyFrameObject* frame);

int __wrap_PyTraceBack_Here(PyFrameObject* frame) {
    const int result = __real_PyTraceBack_Here(frame);
    if (morvik_raised != nullptr) {
        morvik_raised(frame);
    }
    return result;
}
}
#endif

#if MORVIK_LEADS_GENERATORS
// 2.6 takes the thread in which a generator was made for the one that it is traced in. Where that
// has ended, freed memory is written to, and events may be lost.
extern "C" {
PyObject* __real_PyEval_EvalFrameEx(PyFrameObject* frame, int throws);
PyObject* __wrap_PyEval_EvalFrameEx(PyFrameObject* frame, int throws);

// Only generators have their frames executed from outside the interpreter's loop.
PyObject* __wrap_PyEval_EvalFrameEx(PyFrameObject* frame, int throws) {
    frame->f_tstate = PyThreadState_GET();
    return __real_PyEval_EvalFrameEx(frame, throws);
}
}
#endif

int main(int argc, char** argv) {
    // Further arenas, one for each thread, would be mapped high up.
    mallopt(M_ARENA_MAX, 1);
    // Setting the default threshold stops it from growing: large blocks stay out of the low heap.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    // The interpreter finds its library by its own path and shows it as sys.executable.
    static char executable[] = MORVIK_HOST_EXECUTABLE;
    argv[0] = executable;
    return Py_Main(argc, argv);
}
