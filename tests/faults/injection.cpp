#include "injection.h"

#include <execinfo.h>
#include <malloc.h>
#include <signal.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "host/python.h"
#include "host/ref.h"
#include "tracercore/dispatch.h"

PyMODINIT_FUNC inittmorvik26_vs2012_x64();

namespace morvik {

namespace {

enum Way {
    kNever = 0,
    kOneAllocation = 1,
    kOneCall = 2,
    kAllFrom = 3,
};

constexpr int kDeepest = 60;

struct Stack {
    int depth;
    void* calls[kDeepest];
};

// What the parent of a process that crashes wants to know.
struct Record {
    Stack failed;   // where memory was refused
    Stack crashed;  // where the process received its signal
    Stack at_fault;
    char fault[200];
};

Record* record = nullptr;
Way way = kNever;
long failing = 0;
long count = 0;
bool failed = false;

// Where a thread went into the core. While Python code runs from there, its frame is another.
struct Entry {
    PyThreadState* thread;
    PyFrameObject* frame;
};

thread_local Entry entry = {};

class Inside {
  public:
    Inside() : outer_(entry) {
        entry.thread = current_thread_state();
        entry.frame = entry.thread->frame;
    }
    ~Inside() { entry = outer_; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

  private:
    Entry outer_;
};

// The core calls what is not its own and runs no Python code that would show.
class Outside {
  public:
    explicit Outside(bool is_outside) : inner_(entry) {
        if (is_outside) {
            entry = {};
        }
    }
    ~Outside() { entry = inner_; }
    Outside(const Outside&) = delete;
    Outside& operator=(const Outside&) = delete;

  private:
    Entry inner_;
};

bool is_inside() {
    return entry.thread != nullptr && entry.thread == current_thread_state() &&
           entry.thread->frame == entry.frame;
}

void note(Stack* stack) { stack->depth = backtrace(stack->calls, kDeepest); }

void note_fault(const char* text, const char* more) {
    if (record->fault[0] == '\0') {
        snprintf(record->fault, sizeof(record->fault), "%s%s", text, more);
        note(&record->at_fault);
    }
}

// How often a place came up before, for each time that memory was asked for. A place is where the
// core is, and where the interpreter is for it.
constexpr size_t kMostListed = 1 << 18;
constexpr size_t kMostPlaces = 1 << 16;
struct Place {
    uintptr_t calls;
    unsigned times;
};
bool listing = false;
Place places[kMostPlaces];
unsigned listed[kMostListed];

void list_place() {
    constexpr int kDeep = 16;
    void* calls[kDeep];
    const int depth = backtrace(calls, kDeep);
    uintptr_t sum = 0;
    for (int i = 0; i < depth; ++i) {
        sum = sum * 1000003 + reinterpret_cast<uintptr_t>(calls[i]);
    }
    size_t slot = sum % kMostPlaces;
    while (places[slot].calls != sum && places[slot].calls != 0) {
        slot = (slot + 1) % kMostPlaces;
    }
    places[slot].calls = sum;
    listed[std::min<size_t>(static_cast<size_t>(count), kMostListed) - 1] = places[slot].times++;
}

bool fails_now(Way kind) {
    if (way == kNever || (way != kind && way != kAllFrom) || !is_inside()) {
        return false;
    }
    ++count;
    if (listing) {
        list_place();
        return false;
    }
    if (way == kAllFrom ? count < failing : count != failing) {
        return false;
    }
    if (!failed) {
        failed = true;
        note(&record->failed);
    }
    return true;
}

// An entry point's answer and the error pending have to agree.
PyObject* checked(PyObject* result, const char* name) {
    if (way != kNever && (result == nullptr) != (PyErr_Occurred() != nullptr)) {
        note_fault(
            result == nullptr ? "no result and no error from " : "a result and an error from ",
            name);
    }
    return result;
}

constexpr size_t kMostMethods = 80;
PyMethodDef methods[kMostMethods];  // as the module has them

template <size_t index>
PyObject* call_method(PyObject* self, PyObject* args, PyObject* keywords) {
    const Inside inside;
    const PyMethodDef& method = methods[index];
    auto* const function =
        reinterpret_cast<PyCFunctionWithKeywords>(reinterpret_cast<void (*)()>(method.ml_meth));
    return checked(function(self, args, keywords), method.ml_name);
}

template <size_t... index>
void lead_here(PyMethodDef* table, std::index_sequence<index...> /*all*/) {
    PyCFunctionWithKeywords const callers[] = {call_method<index>...};
    for (size_t i = 0; table[i].ml_name != nullptr; ++i) {
        table[i].ml_meth = reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(callers[i]));
    }
}

void lead_methods_here(PyMethodDef* table) {
    if (methods[0].ml_name != nullptr) {
        return;
    }
    for (size_t i = 0; table[i].ml_name != nullptr; ++i) {
        if (i >= kMostMethods) {
            abort();
        }
        methods[i] = table[i];
    }
    lead_here(table, std::make_index_sequence<kMostMethods>());
}

void init_core_module() {
    const Inside inside;
    inittmorvik26_vs2012_x64();
}

// arm(way, number): from now on the allocation or call of this number fails; with the number 0
// none does, but they are listed.
PyObject* arm(PyObject* /*self*/, PyObject* args) {
    int wanted = kNever;
    if (PyArg_ParseTuple(args, "il", &wanted, &failing) == 0) {
        return nullptr;
    }
    count = 0;
    failed = false;
    listing = failing == 0;
    *record = {};
    way = static_cast<Way>(wanted);
    return new_none();
}

// disarm(): (how many there were, whether one failed, what else went wrong).
PyObject* disarm(PyObject* /*self*/, PyObject* /*args*/) {
    way = kNever;
    return Py_BuildValue("lis", count, failed ? 1 : 0, record->fault);
}

// occurrences(): for each of the allocations or calls that were listed, how often the same place
// had come up before it.
PyObject* occurrences(PyObject* /*self*/, PyObject* /*args*/) {
    Ref list = Ref::steal(PyList_New(0));
    for (long i = 0; i < count; ++i) {
        const Ref times = Ref::steal(PyInt_FromLong(listed[i]));
        PyList_Append(list.get(), times.get());
    }
    return list.release();
}

// Stacks of the last process that was armed: where memory was refused, where it crashed, where it
// went wrong.
PyObject* stacks(PyObject* /*self*/, PyObject* /*args*/) {
    Ref lists[3];
    const Stack* const noted[] = {&record->failed, &record->crashed, &record->at_fault};
    for (int i = 0; i < 3; ++i) {
        lists[i] = Ref::steal(PyList_New(0));
        for (int j = 0; j < noted[i]->depth; ++j) {
            const Ref call = Ref::steal(PyLong_FromVoidPtr(noted[i]->calls[j]));
            PyList_Append(lists[i].get(), call.get());
        }
    }
    return PyTuple_Pack(3, lists[0].get(), lists[1].get(), lists[2].get());
}

void crash(int number) {
    note(&record->crashed);
    signal(number, SIG_DFL);
    raise(number);
}

// note_crashes(): a process that receives a deadly signal leaves its stack behind.
PyObject* note_crashes(PyObject* /*self*/, PyObject* /*args*/) {
    for (const int number : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL}) {
        signal(number, crash);
    }
    return new_none();
}

PyMethodDef functions[] = {{"arm", arm, METH_VARARGS, nullptr},
                           {"disarm", disarm, METH_NOARGS, nullptr},
                           {"occurrences", occurrences, METH_NOARGS, nullptr},
                           {"stacks", stacks, METH_NOARGS, nullptr},
                           {"note_crashes", note_crashes, METH_NOARGS, nullptr},
                           {nullptr, nullptr, 0, nullptr}};

void init_injection_module() { Py_InitModule("injection", functions); }

// An event ends with an error set if it says so, and with none otherwise.
int checked_event(int result) {
    if (way != kNever && (result != 0) != (PyErr_Occurred() != nullptr)) {
        note_fault(result != 0 ? "no error from " : "an error from ", "an event");
    }
    return result;
}

void prepare() {
    record = static_cast<Record*>(
        mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    // The first call allocates.
    note(&record->failed);
}

}  // namespace

bool allocation_fails(const char* /*allocator*/) {
    if (!fails_now(kOneAllocation)) {
        return false;
    }
    errno = ENOMEM;
    return true;
}

bool call_fails() {
    if (!fails_now(kOneCall)) {
        return false;
    }
    PyErr_NoMemory();
    return true;
}

bool error_is_pending(const char* called) {
    if (way != kNever && is_inside() && PyErr_Occurred() != nullptr) {
        note_fault("called with an error pending: ", called);
    }
    return false;
}

}  // namespace morvik

using morvik::Inside;
using morvik::Outside;

// The names that the linker gives, where a macro stands for the real one.
#define WRAP(name) WRAP_EXPANDED(name)
#define WRAP_EXPANDED(name) __wrap_##name
#define TRACE_FUNCTION _ZN6morvik10c_dispatchEP7_objectP6_frameiS1_

extern "C" {

int WRAP(TRACE_FUNCTION)(PyObject* object, PyFrameObject* frame, int event, PyObject* argument);
void __wrap_PyEval_SetTrace(Py_tracefunc function, PyObject* object);
PyObject* __wrap_PyObject_Call(PyObject* callable, PyObject* args, PyObject* keywords);
PyObject* WRAP(Py_InitModule4)(const char* name, PyMethodDef* methods, const char* doc,
                               PyObject* self, int version);

int WRAP(TRACE_FUNCTION)(PyObject* object, PyFrameObject* frame, int event, PyObject* argument) {
    const Inside inside;
    return morvik::checked_event(morvik::c_dispatch(object, frame, event, argument));
}

void __wrap_PyEval_SetTrace(Py_tracefunc function, PyObject* object) {
    PyEval_SetTrace(function == morvik::c_dispatch ? WRAP(TRACE_FUNCTION) : function, object);
}

PyObject* __wrap_PyObject_Call(PyObject* callable, PyObject* args, PyObject* keywords) {
    // The interpreter's own import function, whose errors are the program's.
    const bool is_import = PyCFunction_Check(callable);
    if (!is_import && (morvik::error_is_pending("PyObject_Call") || morvik::call_fails())) {
        return nullptr;
    }
    const Outside outside(is_import);
    return PyObject_Call(callable, args, keywords);
}

PyObject* WRAP(Py_InitModule4)(const char* name, PyMethodDef* methods, const char* doc,
                               PyObject* self, int version) {
    if (morvik::call_fails()) {
        return nullptr;
    }
    morvik::lead_methods_here(methods);
    return Py_InitModule4(name, methods, doc, self, version);
}
}

int main(int argc, char** argv) {
    // As morvik-python does.
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    morvik::prepare();
    static char core_name[] = "tmorvik26_vs2012_x64";
    static char injection_name[] = "injection";
    PyImport_AppendInittab(core_name, morvik::init_core_module);
    PyImport_AppendInittab(injection_name, morvik::init_injection_module);
    static char executable[] = MORVIK_HOST_EXECUTABLE;
    argv[0] = executable;
    return Py_Main(argc, argv);
}
