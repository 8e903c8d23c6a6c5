// Runs the native tests inside one interpreter of the host.
#include "host/python.h"

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    static char program[] = MORVIK_HOST_EXECUTABLE;
    Py_SetProgramName(program);
    Py_Initialize();
    const int result = RUN_ALL_TESTS();
    Py_Finalize();
    return result;
}
