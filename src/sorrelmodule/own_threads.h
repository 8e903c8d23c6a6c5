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

}  // namespace morvik

#endif
