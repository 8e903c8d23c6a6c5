// The idle call of a program whose threads rest and call nothing: a thread of the process's own has
// a look now and then whether one is due, and wakes the threads that are at work.
#ifndef MORVIK_TRACERCORE_PULSE_H
#define MORVIK_TRACERCORE_PULSE_H

namespace morvik {

extern bool pulse_beats;

// Whether it beats from now on, or does already. No Python code runs.
bool pulse_start();
inline bool pulse_begin() { return pulse_beats || pulse_start(); }

// It ends soon, and has no more to do with the interpreter.
void pulse_end();

// In a forked child, where its thread is not.
void pulse_forget();

}  // namespace morvik

#endif
