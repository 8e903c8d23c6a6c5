#include "tracercore/pulse.h"

#include "host/python.h"
#include "platform/platform.h"
#include "tracercore/rest.h"
#include "tracercore/state.h"

namespace morvik {

bool pulse_beats = false;

namespace {

constexpr int kPeriod = 500;  // milliseconds

unsigned beats = 0;

enum class Work { kUnknown, kNone, kSome };

// What the thread has done since the last beat: the interpreter counts that.
Work work_of(const PyThreadState* thread, ThreadData* record) {
    const bool is_known = record->last_beat + 1 == beats;
    const bool is_same = record->last_tick == thread->tick_counter;
    record->last_beat = beats;
    record->last_tick = thread->tick_counter;
    return !is_known ? Work::kUnknown : is_same ? Work::kNone : Work::kSome;
}

// Threads that wait for something have nothing from being awake, and as long as one is the
// interpreter is slower in all others.
void look_at(PyThreadState* thread, bool is_idle_due) {
    ThreadData* const record = thread_table_find(&core.threads, thread);
    if (record == nullptr || !may_rest(thread)) {
        if (is_without_events(thread)) {
            wake_thread(thread);
        }
        return;
    }
    const Work work = work_of(thread, record);
    if (is_resting(thread)) {
        if (is_idle_due && work == Work::kSome) {
            core.idle_event_count = core.idle_check_interval;
            wake_thread(thread);
        }
        return;
    }
    if (work == Work::kNone) {
        let_rest(thread);
    }
    if (!is_resting(thread)) {
        core.some_are_awake = true;
    }
}

// Idle calls keep coming from threads that are awake, or call functions that are.
bool is_idle_due() {
    return core.idle_period > 0.0F &&
           wall_clock_seconds() >= __atomic_load_n(&core.next_idle_time, __ATOMIC_RELAXED);
}

// With the interpreter lock, and perhaps without a thread state.
int look_at_threads(void* /*none*/) {
    if (core.tracing == 0 || !pulse_beats) {
        return 0;
    }
    ++beats;
    core.some_are_awake = false;
    for (PyInterpreterState* interpreter = PyInterpreterState_Head(); interpreter != nullptr;
         interpreter = PyInterpreterState_Next(interpreter)) {
        for (PyThreadState* thread = PyInterpreterState_ThreadHead(interpreter); thread != nullptr;
             thread = PyThreadState_Next(thread)) {
            look_at(thread, is_idle_due());
        }
    }
    return 0;
}

// Without the interpreter lock: what is read here is only a hint.
void beat() {
    if ((!is_idle_due() && !__atomic_load_n(&core.some_are_awake, __ATOMIC_RELAXED)) ||
        Py_IsInitialized() == 0) {
        return;
    }
    if (PyEval_ThreadsInitialized() == 0) {
        // The one thread never gives away a lock that there is not yet.
        Py_AddPendingCall(look_at_threads, nullptr);
        return;
    }
    PyEval_AcquireLock();
    if (Py_IsInitialized() != 0) {
        look_at_threads(nullptr);
    }
    PyEval_ReleaseLock();
}

}  // namespace

bool pulse_start() {
    pulse_beats = begin_beats(beat, kPeriod);
    return pulse_beats;
}

void pulse_end() {
    if (pulse_beats) {
        pulse_beats = false;
        end_beats();
    }
}

void pulse_forget() {
    pulse_beats = false;
    forget_beats();
}

}  // namespace morvik
