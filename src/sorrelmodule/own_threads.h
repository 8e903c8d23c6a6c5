// Threads of the debug server's, in programs that fork.
#ifndef MORVIK_SORRELMODULE_OWN_THREADS_H
#define MORVIK_SORRELMODULE_OWN_THREADS_H

#include "host/python.h"

namespace morvik {

// Calls the function, without arguments, in a new thread, as the interpreter would; but no other
// thread forks while the new one makes itself known to the interpreter. On 2.6 the forked process
// would wait for ever for a lock that the new thread had just then. 0, or -1 with thread.error or
// MemoryError set.
int start_own_thread(PyObject* function);

// The same in the calling thread, which is none that the interpreter knows, and until the function
// has returned. `called` says what that is, once the thread has the interpreter lock; where it
// answers nullptr, nothing is called. There must have been threads before, and can_hold_forks().
void call_in_own_thread(PyInterpreterState* interpreter, PyObject* (*called)());

}  // namespace morvik

#endif
