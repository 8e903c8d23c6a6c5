#include "sorrelmodule/outermost.h"

#include <cstdio>

namespace morvik {

namespace {

// The calling thread's stack begins anew for as long as this lives. The frames that are out of
// sight stay alive: they are being executed.
class NewStack {
  public:
    NewStack()
        : thread_(PyThreadState_GET()), frame_(thread_->frame), depth_(thread_->recursion_depth) {
        thread_->frame = nullptr;
        thread_->recursion_depth = 0;
    }
    NewStack(const NewStack&) = delete;
    NewStack& operator=(const NewStack&) = delete;
    ~NewStack() {
        thread_->frame = frame_;
        thread_->recursion_depth = depth_;
    }

  private:
    PyThreadState* thread_;
    PyFrameObject* frame_;
    int depth_;
};

}  // namespace

Ref run_outermost(PyObject* code, PyObject* variables) {
    const NewStack stack;
    return Ref::steal(PyEval_EvalCode(reinterpret_cast<PyCodeObject*>(code), variables, variables));
}

Ref run_file_outermost(const char* path, PyObject* variables) {
    FILE* file = nullptr;
    // Whoever is at the other end of a pipe may be another thread.
    Py_BEGIN_ALLOW_THREADS;
    file = fopen(path, "rb");
    Py_END_ALLOW_THREADS;
    if (file == nullptr) {
        PyErr_SetFromErrnoWithFilename(PyExc_IOError, const_cast<char*>(path));
        return Ref();
    }
    const NewStack stack;
    // What is imported has the new division by another way, what is compiled here by this one.
    PyCompilerFlags flags = {_Py_QnewFlag != 0 ? CO_FUTURE_DIVISION : 0};
    return Ref::steal(
        PyRun_FileExFlags(file, path, Py_file_input, variables, variables, 1, &flags));
}

}  // namespace morvik
