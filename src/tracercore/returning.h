// What the calls have returned that a step goes over: those that are made by the frame that it
// counts in, or comes back to. While no step is under way that this is wanted of, it costs each
// return that is dispatched two comparisons, and one at rest nothing.
#ifndef MORVIK_TRACERCORE_RETURNING_H
#define MORVIK_TRACERCORE_RETURNING_H

#include "host/python.h"
#include "threadops.h"

namespace morvik {

// The calling thread has a new step request, or none. May run Python code (destructors of what an
// earlier one has noted), which may free the record.
void begin_noting_returns(ThreadData* record);

// What note_return() does where there is something to note.
void note_return_in_step(ThreadData* record, PyFrameObject* frame, PyObject* value);

// To be called when a frame's return event is over. value: nullptr where an exception leaves it.
// May run Python code, in the same way.
inline void note_return(ThreadData* record, PyFrameObject* frame, PyObject* value) {
    if (record->returned != nullptr && record->returned->caller != nullptr) {
        note_return_in_step(record, frame, value);
    }
}

}  // namespace morvik

#endif
