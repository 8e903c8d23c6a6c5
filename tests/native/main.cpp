// Runs the tests with the host's interpreter in the process.
#include <gmock/gmock.h>

#include "host/python.h"

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    static char executable[] = MORVIK_HOST_EXECUTABLE;
    Py_SetProgramName(executable);
    Py_Initialize();
    PyEval_InitThreads();
    const int result = RUN_ALL_TESTS();
    Py_Finalize();
    return result;
}
