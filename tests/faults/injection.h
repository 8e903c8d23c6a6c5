// Allocations that fail inside the core. It is inside while one of its functions runs that the
// interpreter called, outside again while that has Python code run.
#ifndef MORVIK_TESTS_FAULTS_INJECTION_H
#define MORVIK_TESTS_FAULTS_INJECTION_H

namespace morvik {

// Whether this allocation, by the core or by the interpreter for it, is to fail.
bool allocation_fails(const char* allocator);

// Whether this call of the core's is to fail; MemoryError is set then.
bool call_fails();

// Notes a fault when what may run Python code is called for the core while an error is pending.
// Always false.
bool error_is_pending(const char* called);

}  // namespace morvik

#endif
