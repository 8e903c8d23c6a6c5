// A program of somebody's own with the interpreter inside, as the debug server meets them: position
// independent, with a heap high up and threads that are not the interpreter's.
//
// usage: embedding SCRIPT [ARGS] | embedding -m MODULE [ARGS]
//
// The script finds a module `embedder`, whose functions run Python code in threads of its own:
//   run(function)   calls it in a new thread
//   poll(function)  calls it in a new thread again and again until it returns something false; the
//                   interpreter knows nothing of the thread in between
//   join()          waits in C for all of these threads
#include <Python.h>
#include <pthread.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr int kMostThreads = 64;
constexpr timespec kPause = {0, 1000000};

pthread_t threads[kMostThreads];
int thread_count = 0;

struct Work {
    PyObject* function;  // owned
    bool is_repeated;
};

bool call_once(PyObject* function) {
    const PyGILState_STATE state = PyGILState_Ensure();
    PyObject* const result = PyObject_CallObject(function, nullptr);
    const bool goes_on = result != nullptr && PyObject_IsTrue(result) == 1;
    if (result == nullptr) {
        PyErr_Print();
    }
    Py_XDECREF(result);
    PyGILState_Release(state);
    return goes_on;
}

void* run_thread(void* argument) {
    auto* const work = static_cast<Work*>(argument);
    while (call_once(work->function) && work->is_repeated) {
        nanosleep(&kPause, nullptr);
    }
    const PyGILState_STATE state = PyGILState_Ensure();
    Py_DECREF(work->function);
    PyGILState_Release(state);
    delete work;
    return nullptr;
}

PyObject* start(PyObject* args, bool is_repeated) {
    PyObject* function = nullptr;
    if (PyArg_ParseTuple(args, "O", &function) == 0) {
        return nullptr;
    }
    Py_INCREF(function);
    auto* const work = new Work{function, is_repeated};
    if (thread_count == kMostThreads ||
        pthread_create(&threads[thread_count], nullptr, run_thread, work) != 0) {
        Py_DECREF(function);
        delete work;
        PyErr_SetString(PyExc_RuntimeError, "no more threads");
        return nullptr;
    }
    ++thread_count;
    Py_RETURN_NONE;
}

PyObject* run(PyObject* /*self*/, PyObject* args) { return start(args, false); }

PyObject* poll(PyObject* /*self*/, PyObject* args) { return start(args, true); }

PyObject* join(PyObject* /*self*/, PyObject* /*args*/) {
    while (thread_count > 0) {
        const pthread_t thread = threads[--thread_count];
        Py_BEGIN_ALLOW_THREADS;
        pthread_join(thread, nullptr);
        Py_END_ALLOW_THREADS;
    }
    Py_RETURN_NONE;
}

PyMethodDef methods[] = {
    {"run", run, METH_VARARGS, "run(function): calls it in a new thread"},
    {"poll", poll, METH_VARARGS, "poll(function): calls it in a new thread while it returns true"},
    {"join", join, METH_NOARGS, "join(): waits for the threads"},
    {nullptr, nullptr, 0, nullptr},
};

void make_module() { Py_InitModule("embedder", methods); }

int run_script(const char* path) {
    FILE* const file = fopen(path, "r");
    if (file == nullptr) {
        perror(path);
        return 2;
    }
    return PyRun_SimpleFileEx(file, path, 1) == 0 ? 0 : 1;
}

// As the interpreter's option does it.
int run_module() {
    return PyRun_SimpleString(
        "import runpy, sys\n"
        "sys.path[0] = ''\n"
        "runpy.run_module(sys.argv[0], None, '__main__', True)\n");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || (strcmp(argv[1], "-m") == 0 && argc < 3)) {
        fprintf(stderr, "usage: embedding SCRIPT [ARGS] | embedding -m MODULE [ARGS]\n");
        return 2;
    }
    const bool is_module = strcmp(argv[1], "-m") == 0;
    // Where the library is found from.
    static char name[] = MORVIK_HOST_EXECUTABLE;
    Py_SetProgramName(name);
    static char module[] = "embedder";
    PyImport_AppendInittab(module, make_module);
    Py_Initialize();
    PyEval_InitThreads();
    const int skipped = is_module ? 2 : 1;
    PySys_SetArgv(argc - skipped, argv + skipped);
    const int status = is_module ? run_module() : run_script(argv[1]);
    Py_Finalize();
    return status;
}
