#include "ioops.h"

#include <algorithm>

#include "dbgcommon.h"
#include "dprintf.h"
#include "host/ref.h"
#include "platform/platform.h"

namespace morvik {

namespace {

// The sockets are looked at this often.
constexpr int kTickMilliseconds = 100;

// Writing runs Python code.
template <class... Args>
void log_without_lock(const char* format, Args... args) {
    if (dprintf_enabled(kLogInput)) {
        const PyGILState_STATE state = PyGILState_Ensure();
        dprintf(kLogInput, format, args...);
        PyGILState_Release(state);
    }
}

}  // namespace

OwnedInts socket_fds_from_list(PyObject* list, int* count) {
    if (!PyList_Check(list)) {
        PyErr_BadInternalCall();
        return nullptr;
    }
    *count = static_cast<int>(PyList_GET_SIZE(list));
    const size_t size = std::max(*count, 1);
    OwnedInts fds(static_cast<int*>(malloc(size * sizeof(int))));
    if (!fds) {
        out_of_memory();
        return nullptr;
    }
    fds[0] = -1;
    for (int i = 0; i < *count; ++i) {
        // An item's method may change the list: hence the checked look-up and the reference.
        const Ref item = Ref::share(PyList_GetItem(list, i));
        const Ref number = item ? call_method(item.get(), "fileno", nullptr) : Ref();
        const long fd = number ? PyInt_AsLong(number.get()) : -1;
        if (fd == -1 && PyErr_Occurred() != nullptr) {
            return nullptr;
        }
        fds[i] = static_cast<int>(fd);
    }
    return fds;
}

int file_buffer_count(FILE* stream) { return std::max(stream_buffered_bytes(stream), 0); }

WaitResult WaitOnStdin(FILE* stream, const int* fds, int count) {
    if (!watch_stream(stream)) {
        return kWaitFailed;
    }
    WaitResult result = kNothingYet;
    while (result == kNothingYet) {
        switch (wait_for_stream(stream, kTickMilliseconds)) {
            case StreamWait::kInput:
                result = kFileInput;
                break;
            case StreamWait::kFailed:
                result = kWaitFailed;
                break;
            case StreamWait::kTimeOut:
                result = IsSocketInputAvailable(fds, count);
                break;
        }
    }
    return result;
}

WaitResult IsSocketInputAvailable(const int* fds, int count) {
    int polled[kMaxPolled] = {};
    bool readable[kMaxPolled] = {};
    int* end = polled;
    for (int i = 0; i < count; ++i) {
        if (fds[i] < 0) {
            continue;
        }
        log_without_lock("Adding fd %d to array\n", fds[i]);
        if (end - polled < kMaxPolled && std::find(polled, end, fds[i]) == end) {
            *end++ = fds[i];
        }
    }
    const auto polled_count = static_cast<int>(end - polled);
    if (!poll_descriptors(polled, polled_count, readable)) {
        log_without_lock("Select ended: returned SOCKET_ERROR\n");
        return kWaitFailed;
    }
    for (int i = 0; i < polled_count; ++i) {
        if (readable[i]) {
            log_without_lock("Select ended: fd %d is in read set\n", polled[i]);
            return kSocketInput;
        }
    }
    log_without_lock("Select ended: no fd's in read set\n");
    return kNothingYet;
}

}  // namespace morvik
