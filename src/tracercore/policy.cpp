#include "tracercore/policy.h"

#include "dbgcommon.h"
#include "dprintf.h"
#include "host/ref.h"
#include "platform/platform.h"
#include "tracercore/state.h"

namespace morvik {

namespace {

// Any non-null value of the policy cache means: debug the thread.
void* const kDebugThread = &core;

void cache_policy(long ident, bool debug) {
    // The callback may have emptied the cache, or another thread's answer may have moved it.
    HashEntry* const entry = hash_find(&core.debug_thread_map, &ident);
    if (entry != nullptr) {
        hash_set_value(entry, debug ? kDebugThread : nullptr);
    }
}

void call_idle_cb() {
    const Ref callback = Ref::share(core.callbacks.idle_cb);
    const Ref result = Ref::steal(PyObject_CallObject(callback.get(), nullptr));
    if (!result) {
        discard_callback_error();
    }
}

}  // namespace

long thread_policy(long ident) {
    if (core.debug_thread_cb == nullptr) {
        return 1;
    }
    HashEntry* const known = hash_find(&core.debug_thread_map, &ident);
    if (known != nullptr) {
        return hash_get_value(known) != nullptr ? 1 : 0;
    }
    int is_new = 0;
    if (hash_create(&core.debug_thread_map, &ident, &is_new) == nullptr) {
        dprintf(kLogCore, "failure to cache in debug_thread_map");
        return 1;
    }
    const ErrnoGuard keep_errno;
    const PendingErrorGuard keep_error;  // an import callback may have left one
    const Ref callback = Ref::share(core.debug_thread_cb);
    const Ref number = Ref::steal(PyInt_FromLong(ident));
    const Ref answer = number ? Ref::steal(call_with_1(callback.get(), number.get())) : Ref();
    if (!answer) {
        dprintf(kLogCore, "ignoring failure to call debug_thread_cb");
        cache_policy(ident, true);
        return 1;
    }
    // What is no number is -1, which debugs the thread.
    const long debug = PyInt_AsLong(answer.get());
    cache_policy(ident, debug != 0);
    return debug;
}

void forget_thread_policy(long ident) {
    core.last_debugged = kNoOwner;
    HashEntry* const entry = hash_find(&core.debug_thread_map, &ident);
    if (entry != nullptr) {
        hash_delete_entry(entry);
    }
}

int call_idle() {
    if (core.tracing == 0) {
        return -1;
    }
    if (core.idle_thread != kNoOwner || !(core.idle_period > 0.0F)) {
        return 0;
    }
    core.idle_thread = get_thread_ident();
    ++core.idle_event_count;
    if (core.idle_event_count > core.idle_check_interval) {
        core.idle_event_count = 0;
        const int64_t now = wall_clock_seconds();
        if (now >= core.next_idle_time) {
            core.next_idle_time = now + 1;
            call_idle_cb();
        }
    }
    core.idle_thread = kNoOwner;
    return core.tracing != 0 ? 0 : -1;
}

}  // namespace morvik
