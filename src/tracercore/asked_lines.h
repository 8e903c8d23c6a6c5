// Key code of sub-languages whose hook needs to be asked at few of its lines while a thread runs
// on: at those where a breakpoint of the language may be. Where there is none of them, such a
// thread rests. A call is at the first line of the code.
#ifndef MORVIK_TRACERCORE_ASKED_LINES_H
#define MORVIK_TRACERCORE_ASKED_LINES_H

#include "host/python.h"

namespace morvik {

// Whether the hook is to be asked at a line of the code; at any line of it; at all of them, and at
// other events. True for code of which nothing was said.
bool is_asked_at(const PyCodeObject* code, int line);
bool is_asked_anywhere(const PyCodeObject* code);
bool is_asked_everywhere(const PyCodeObject* code);

// From now on, a hook is asked about the code at the lines of a tuple of ints alone. 1; 0 where
// that cannot be, as nothing tells of the end of such code; -1 with an error set. May run Python
// code.
int ask_at_lines(PyCodeObject* code, PyObject* lines);

// Hooks are asked at all lines again, be it since another code object may get the address.
void ask_at_all_lines(const PyCodeObject* code);
void ask_everywhere();

}  // namespace morvik

#endif
