#include "sorrelmodule/interrupts.h"

#include <atomic>

#include "host/ref.h"
#include "platform/platform.h"
#include "sorrelmodule/own_threads.h"

namespace morvik {

namespace {

PyInterpreterState* interpreter = nullptr;
PyThreadState* main_thread = nullptr;
PyObject* watcher = nullptr;

std::atomic<int> come{0};
std::atomic<bool> was_waiting{false};
int taken = 0;  // guarded by the interpreter lock

// In the signal's handler, in whatever thread.
void note() {
    was_waiting = current_thread_state() != main_thread;
    ++come;
}

PyObject* current_watcher() { return Py_IsInitialized() != 0 ? watcher : nullptr; }

// Without threads nobody else but the main thread could do anything about it.
void tell() {
    if (Py_IsInitialized() != 0 && PyEval_ThreadsInitialized() != 0) {
        call_in_own_thread(interpreter, current_watcher);
    }
}

}  // namespace

bool watch_interrupts_by(PyObject* function) {
    if (function == Py_None) {
        clear_slot(watcher);
        return true;
    }
    main_thread = current_thread_state();
    interpreter = main_thread->interp;
    set_slot(watcher, function);
    taken = come;
    return can_hold_forks() && watch_interrupts(note, tell);
}

void note_interrupt() {
    was_waiting = false;
    ++come;
}

int pending_interrupts() { return come - taken; }

int take_interrupts() {
    const int count = pending_interrupts();
    taken += count;
    return count;
}

bool was_main_thread_waiting() { return was_waiting; }

}  // namespace morvik
