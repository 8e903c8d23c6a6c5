#include "allocation.h"

#include <atomic>
#include <cstddef>
#include <cstring>

namespace {

constexpr int kNever = -1;

std::atomic<int> successes_left{kNever};
std::atomic<bool> failed{false};
std::atomic<long> blocks{0};

bool fails_now() {
    if (successes_left == kNever || failed) {
        return false;
    }
    failed = successes_left == 0;
    --successes_left;
    return failed;
}

void* counted(void* block) {
    if (block != nullptr) {
        ++blocks;
    }
    return block;
}

}  // namespace

// Names that the linker gives: calls to f() arrive at __wrap_f(), and __real_f() is the former f().
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
char* __real_strdup(const char* text);
void __real_free(void* block);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
char* __wrap_strdup(const char* text);
void __wrap_free(void* block);

void* __wrap_malloc(size_t size) { return fails_now() ? nullptr : counted(__real_malloc(size)); }

void* __wrap_calloc(size_t count, size_t size) {
    return fails_now() ? nullptr : counted(__real_calloc(count, size));
}

char* __wrap_strdup(const char* text) {
    return fails_now() ? nullptr : static_cast<char*>(counted(__real_strdup(text)));
}

void __wrap_free(void* block) {
    if (block != nullptr) {
        --blocks;
    }
    __real_free(block);
}
}

namespace morvik {

FailingAllocation::FailingAllocation(int successes) {
    failed = false;
    successes_left = successes;
}

FailingAllocation::~FailingAllocation() { successes_left = kNever; }

bool FailingAllocation::happened() { return failed; }

long live_blocks() { return blocks; }

}  // namespace morvik
