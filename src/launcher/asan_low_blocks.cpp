// Under the address sanitizer all blocks lie high up, and no thread state could be found
// again by its id. Here blocks of a thread state's size come from a region of the executable
// itself, which is linked low; everything else goes to the sanitizer's own allocator. The
// gaps between blocks, and freed blocks, are poisoned as the sanitizer's own would be.
//
// Compiled without instrumentation: malloc is called before the sanitizer is ready.

#include <Python.h>

#include <sanitizer/asan_interface.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>

extern "C" {
void* __interceptor_malloc(size_t size);
void* __interceptor_realloc(void* block, size_t size);
void __interceptor_free(void* block);
}

namespace {

struct Slot {
    alignas(16) char block[sizeof(PyThreadState)];
    alignas(16) char gap[32];
};

constexpr size_t kSlots = 4096;
Slot slots[kSlots];
Slot* free_slots[kSlots];
size_t free_count = 0;
std::mutex mutex;

// Runs before main, when the sanitizer is already up.
__attribute__((constructor)) void open_slots() {
    std::lock_guard<std::mutex> lock(mutex);
    for (size_t i = kSlots; i-- > 0;) {
        __asan_poison_memory_region(&slots[i], sizeof slots[i]);
        free_slots[free_count++] = &slots[i];
    }
}

Slot* slot_of(const void* block) {
    const auto at = reinterpret_cast<uintptr_t>(block);
    const auto first = reinterpret_cast<uintptr_t>(slots);
    return at >= first && at < first + sizeof slots ? &slots[(at - first) / sizeof(Slot)] : nullptr;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void* malloc(size_t size) {
    if (size == sizeof(PyThreadState)) {
        std::lock_guard<std::mutex> lock(mutex);
        if (free_count > 0) {
            Slot* slot = free_slots[--free_count];
            __asan_unpoison_memory_region(slot->block, sizeof slot->block);
            return slot->block;
        }
    }
    return __interceptor_malloc(size);
}

__attribute__((visibility("default"))) void free(void* block) {
    if (Slot* slot = slot_of(block)) {
        std::lock_guard<std::mutex> lock(mutex);
        __asan_poison_memory_region(slot->block, sizeof slot->block);
        free_slots[free_count++] = slot;
        return;
    }
    __interceptor_free(block);
}

__attribute__((visibility("default"))) void* realloc(void* block, size_t size) {
    if (slot_of(block) == nullptr) {
        return __interceptor_realloc(block, size);
    }
    void* moved = malloc(size);
    if (moved != nullptr) {
        memcpy(moved, block, size < sizeof(PyThreadState) ? size : sizeof(PyThreadState));
        free(block);
    }
    return moved;
}

// The interpreter keeps what it made until the process ends.
const char* __asan_default_options() { return "detect_leaks=0"; }
const char* __ubsan_default_options() { return "print_stacktrace=1"; }

}  // extern "C"
