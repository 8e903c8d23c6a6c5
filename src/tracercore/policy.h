// Which threads are debugged, and when the debug server gets its idle call.
#ifndef MORVIK_TRACERCORE_POLICY_H
#define MORVIK_TRACERCORE_POLICY_H

#include "host/python.h"
#include "tracercore/state.h"

namespace morvik {

enum class Policy { kDebug, kIgnore, kUnknown };

// What thread_policy() would answer, as far as that is known.
inline Policy known_policy(const PyThreadState* thread) {
    if (core.debug_thread_cb == nullptr || core.last_debugged == thread->thread_id) {
        return Policy::kDebug;
    }
    const HashEntry* const entry = hash_find(&core.debug_thread_map, &thread->thread_id);
    if (entry == nullptr) {
        return Policy::kUnknown;
    }
    if (hash_get_value(entry) == nullptr) {
        return Policy::kIgnore;
    }
    core.last_debugged = thread->thread_id;
    return Policy::kDebug;
}

// Nonzero when the thread with this ident is debugged: what the server's policy callback said the
// first time it was asked. errno is kept; sets no error. Runs Python code.
long thread_policy(long ident);

// Asks the policy callback anew the next time.
void forget_thread_policy(long ident);

// Counts an event and calls idle_cb when one is due: at most once per second of the wall clock.
// -1 when tracing is off, before or after the call; else 0. Sets no error. Runs Python code.
int call_idle();

}  // namespace morvik

#endif
