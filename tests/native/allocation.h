// Allocations that fail when a test says so, and a count of those that are not given back. The
// linker leads malloc(), calloc(), strdup() and free() of all that is linked into the tests here.
#ifndef MORVIK_TESTS_NATIVE_ALLOCATION_H
#define MORVIK_TESTS_NATIVE_ALLOCATION_H

namespace morvik {

// For its lifetime one allocation fails: the one after `successes` more. The first by default.
class FailingAllocation {
  public:
    explicit FailingAllocation(int successes = 0);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    // Whether it has happened.
    static bool happened();
};

// Blocks allocated and not yet freed since the process began, less those of the system's own.
long live_blocks();

}  // namespace morvik

#endif
