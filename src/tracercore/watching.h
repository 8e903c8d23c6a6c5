// Lines and returns that the debug server looks at by itself, in case what it watches has changed.
// While nothing is watched this costs a comparison.
#ifndef MORVIK_TRACERCORE_WATCHING_H
#define MORVIK_TRACERCORE_WATCHING_H

#include "host/python.h"
#include "tracercore/state.h"

namespace morvik {

// From now on the callback looks, at the frames in a tuple or, without one, at every frame. It is
// called with the frame, and with whether that is left for good; what it raises is dropped. Keeps a
// reference to each. May run Python code (destructors of what was replaced).
void set_watch(PyObject* callback, PyObject* frames);

// Nobody looks at anything.
void forget_watch();

bool is_among_watched(const PyFrameObject* frame);

// Whether the server looks at the frame's lines and its return.
inline bool is_watched(const PyFrameObject* frame) {
    return core.watch_cb != nullptr && (core.watched_frames == nullptr || is_among_watched(frame));
}

// At a line, or at a return, has the server look, which may ask for a stop at this very event. May
// run any Python code; the pending error is kept.
void look_at_watched(PyFrameObject* frame, bool is_return);

}  // namespace morvik

#endif
