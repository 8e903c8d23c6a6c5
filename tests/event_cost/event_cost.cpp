// What an event that does not stop must not do: allocate, or call the system.
#include <gtest/gtest.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "host/python.h"
#include "host/ref.h"

PyMODINIT_FUNC inittmorvik26_vs2012_x64();

namespace {
long allocations = 0;
constexpr int kNoSeccomp = 77;
}  // namespace

// The linker sends every call of these here, the interpreter's own among them where it is a
// static library. A debug build renames its object allocator by a macro: hence the second step.
#define COUNTED(name, parameters, arguments) COUNTED_EXPANDED(name, parameters, arguments)
#define COUNTED_EXPANDED(name, parameters, arguments) \
    extern "C" void* __real_##name parameters;        \
    extern "C" void* __wrap_##name parameters;        \
    void* __wrap_##name parameters {                  \
        ++allocations;                                \
        return __real_##name arguments;               \
    }
COUNTED(malloc, (size_t size), (size))
COUNTED(calloc, (size_t count, size_t size), (count, size))
COUNTED(realloc, (void* block, size_t size), (block, size))
COUNTED(PyObject_Malloc, (size_t size), (size))
COUNTED(PyObject_Realloc, (void* block, size_t size), (block, size))

namespace {

using morvik::Ref;

PyObject* count_allocations(PyObject* /*self*/, PyObject* /*args*/) {
    return PyInt_FromLong(allocations);
}

// The program's functions, under the core in a state of program.py's choice. Each test needs a
// process of its own, as ctest gives it: the core is initialised once.
class EventCost : public ::testing::Test {
  protected:
    EventCost() {
        char name[] = "tmorvik26_vs2012_x64";
        PyImport_AppendInittab(name, inittmorvik26_vs2012_x64);
        static char executable[] = MORVIK_HOST_EXECUTABLE;
        Py_SetProgramName(executable);
        Py_InitializeEx(0);
        PyEval_InitThreads();
        static PyMethodDef function = {"allocations", count_allocations, METH_NOARGS, nullptr};
        names_ = PyModule_GetDict(PyImport_AddModule("__main__"));
        const Ref counter = Ref::steal(PyCFunction_New(&function, nullptr));
        const Ref path = Ref::steal(PyString_FromString(MORVIK_PROGRAM));
        PyDict_SetItemString(names_, "allocations", counter.get());
        PyDict_SetItemString(names_, "__file__", path.get());
        FILE* const file = fopen(MORVIK_PROGRAM, "r");
        const Ref run = Ref::steal(
            PyRun_FileEx(file, MORVIK_PROGRAM, Py_file_input, names_, names_, /*closeit=*/1));
        EXPECT_TRUE(run);
    }

    void begin(const char* how) {
        char format[] = "s";
        const Ref done =
            Ref::steal(PyObject_CallFunction(PyDict_GetItemString(names_, "begin"), format, how));
        ASSERT_TRUE(done);
    }

    long measure(long times) {
        char format[] = "l";
        const Ref count = Ref::steal(
            PyObject_CallFunction(PyDict_GetItemString(names_, "measure"), format, times));
        return count ? PyInt_AsLong(count.get()) : -1;
    }

    // What the same loop allocates when it runs ten times as long, beyond what it does anyway.
    long further_allocations() {
        constexpr long kTimes = 1000;
        measure(kTimes);  // fills the interpreter's free lists
        const long short_loop = measure(kTimes);
        EXPECT_GE(short_loop, 0);
        return measure(10 * kTimes) - short_loop;
    }

    long stops() { return PyInt_AsLong(PyDict_GetItemString(names_, "stops")); }

    PyObject* names_ = nullptr;  // the program's
};

TEST_F(EventCost, RunningFreelyAllocatesNothing) {
    begin("running");
    EXPECT_EQ(further_allocations(), 0);
    EXPECT_EQ(stops(), 0);
}

TEST_F(EventCost, SteppingOverALoopAllocatesNothing) {
    begin("stepping_over");
    EXPECT_EQ(further_allocations(), 0);
    EXPECT_GT(stops(), 0);
}

TEST_F(EventCost, ABreakpointOnAnotherLineAllocatesNothing) {
    begin("breakpoint_on_another_line");
    EXPECT_EQ(further_allocations(), 0);
}

TEST_F(EventCost, ABreakpointOnTheSameLineOfAnotherFileAllocatesNothing) {
    begin("breakpoint_in_another_file");
    EXPECT_EQ(further_allocations(), 0);
}

TEST_F(EventCost, ADisabledBreakpointAllocatesNothing) {
    begin("disabled_breakpoint");
    EXPECT_EQ(further_allocations(), 0);
}

TEST_F(EventCost, AnAllocationAtEveryLineIsNoticed) {
    begin("allocating_at_every_line");
    EXPECT_GT(further_allocations(), 9000);
}

// How a child process ends that runs an action while the kernel kills it for any system call but
// to leave.
template <class Action>
int status_without_system_calls(Action action) {
    const pid_t child = fork();
    if (child == 0) {
        if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) {
            _exit(kNoSeccomp);
        }
        action();
        syscall(SYS_exit, 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

TEST_F(EventCost, RunningFreelyCallsNotTheSystem) {
    begin("running");
    measure(1000);
    const int status = status_without_system_calls([this] { measure(1000); });
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNoSeccomp) {
        GTEST_SKIP() << "no seccomp";
    }
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
}

TEST_F(EventCost, ASystemCallIsNoticed) {
    const int status = status_without_system_calls([] { syscall(SYS_getppid); });
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNoSeccomp) {
        GTEST_SKIP() << "no seccomp";
    }
    EXPECT_TRUE(WIFSIGNALED(status));
}

}  // namespace
