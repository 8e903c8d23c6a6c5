// _sorrel_attach: what gets the debug server into a program that runs already. Private to the
// server in sorrel/, and used outside of the program.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "attachmodule/block.h"
#include "attachmodule/load.h"
#include "host/python.h"

namespace morvik {

namespace {

// For the process that does it: nothing is to end it while it holds a thread of the other one.
[[noreturn]] void load_and_exit(pid_t process, const char* text, double seconds, int give_up,
                                int answer) {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, nullptr);
    setsid();
    Failure failure;
    if (!load(process, text, seconds, give_up, &failure)) {
        const ssize_t written = write(answer, failure.text, std::strlen(failure.text));
        _exit(written > 0 ? 1 : 2);
    }
    _exit(0);
}

// What the process has said until its end, in `text`; false when a handler of a signal has raised
// an exception: `give_up` is closed then.
bool read_answer(int answer, int* give_up, char* text, size_t room) {
    bool is_interrupted = false;
    size_t size = 0;
    while (size + 1 < room) {
        ssize_t count = 0;
        int error = 0;
        Py_BEGIN_ALLOW_THREADS;
        count = read(answer, text + size, room - size - 1);
        error = errno;
        Py_END_ALLOW_THREADS;
        if (count > 0) {
            size += static_cast<size_t>(count);
        } else if (count == 0 || error != EINTR) {
            break;
        } else if (!is_interrupted && PyErr_CheckSignals() != 0) {
            is_interrupted = true;
            close(*give_up);
            *give_up = -1;
        }
    }
    text[size] = '\0';
    return !is_interrupted;
}

PyObject* entry_load(PyObject* /*self*/, PyObject* args) {
    int process = 0;
    const char* text = nullptr;
    double seconds = 0.0;
    if (PyArg_ParseTuple(args, "isd:load", &process, &text, &seconds) == 0) {
        return nullptr;
    }
    if (std::strlen(text) >= kMostText) {
        PyErr_SetString(PyExc_ValueError, "the text is too long");
        return nullptr;
    }
    int answer[2] = {-1, -1};
    int give_up[2] = {-1, -1};
    if (pipe(answer) != 0) {
        return PyErr_SetFromErrno(PyExc_OSError);
    }
    pid_t child = -1;
    if (pipe(give_up) == 0) {
        child = fork();
        if (child == 0) {
            close(give_up[1]);
            close(answer[0]);
            load_and_exit(process, text, seconds, give_up[0], answer[1]);
        }
        close(give_up[0]);
    }
    const int error = errno;
    close(answer[1]);
    char failure[sizeof(Failure::text)] = "";
    bool is_heard = true;
    int status = 0;
    if (child > 0) {
        is_heard = read_answer(answer[0], &give_up[1], failure, sizeof failure);
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
    }
    close(answer[0]);
    if (give_up[1] >= 0) {
        close(give_up[1]);
    }
    if (!is_heard) {
        return nullptr;
    }
    if (child < 0) {
        errno = error;
        return PyErr_SetFromErrno(PyExc_OSError);
    }
    if (status != 0) {
        PyErr_SetString(PyExc_RuntimeError,
                        failure[0] != '\0' ? failure : "the loading process was ended");
        return nullptr;
    }
    return new_none();
}

PyMethodDef methods[] = {
    {"load", entry_load, METH_VARARGS,
     "load(process, text, seconds)\n\n"
     "Has the process with this id, a program on an interpreter of the same kind, run the text, "
     "statements of Python, in a new thread, with its sys.modules as `modules`, `imp` among them. "
     "The text is run again, for ten seconds, while it raises exceptions.  Nothing waits for the "
     "import lock.  Returns when that thread has been started.  Raises "
     "RuntimeError with the reason when it cannot be, within so many seconds: the process then "
     "runs on as if nothing had been."},
    {nullptr, nullptr, 0, nullptr},
};

}  // namespace

}  // namespace morvik

// The one symbol that the module exports.
#pragma GCC visibility push(default)
PyMODINIT_FUNC init_sorrel_attach();
#pragma GCC visibility pop

PyMODINIT_FUNC init_sorrel_attach() {
    Py_InitModule3("_sorrel_attach", morvik::methods, "Private to the debug server sorrel.");
}
