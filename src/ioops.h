// Waiting for whichever comes first: input on a C stream, such as the program's standard input, or
// on one of the sockets of the debug connection. One thread at a time.
#ifndef MORVIK_IOOPS_H
#define MORVIK_IOOPS_H

#include <cstdio>
#include <memory>

#include "dbgcommon.h"
#include "host/python.h"

namespace morvik {

enum WaitResult : int {
    kNothingYet = 0,
    kWaitFailed = 1,
    kFileInput = 2,
    kSocketInput = 3,
};

using OwnedInts = std::unique_ptr<int[], FreeDeleter>;

// What the items of a list answer to fileno(), and how many they are; at least one element, -1
// where the list is empty. Empty with an error set. Needs the interpreter lock; runs Python code.
OwnedInts socket_fds_from_list(PyObject* list, int* count);

// Bytes that a read of the stream hands out without blocking, as far as they are in its buffer.
int file_buffer_count(FILE* stream);

// The rest is called without the interpreter lock, which only a diagnostic line takes for itself.

// Waits until the stream has input, kFileInput, which leaves it in the stream, or a socket has,
// kSocketInput. kWaitFailed where that cannot be waited for.
WaitResult WaitOnStdin(FILE* stream, const int* fds, int count);

// Whether one of the descriptors can be read now: kSocketInput, kNothingYet or kWaitFailed. Those
// below 0 are left out, and so are all after the first 64 different ones.
WaitResult IsSocketInputAvailable(const int* fds, int count);

}  // namespace morvik

#endif
