// Ctrl-C, which comes to the main thread but need not be met there: whoever takes it first has it.
#ifndef MORVIK_SORRELMODULE_INTERRUPTS_H
#define MORVIK_SORRELMODULE_INTERRUPTS_H

#include "host/python.h"

namespace morvik {

// Has the function called, without arguments, after each Ctrl-C that gets through the guard: in a
// thread of its own, if the program has threads. None ends that. For the main thread. False where
// there can be no such thread.
bool watch_interrupts_by(PyObject* function);

// One that is no signal has come, too.
void note_interrupt();

// How many have come and were not taken; the second takes them.
int pending_interrupts();
int take_interrupts();

// Whether the main thread was without the interpreter lock when the last one came: it waited for
// something.
bool was_main_thread_waiting();

}  // namespace morvik

#endif
