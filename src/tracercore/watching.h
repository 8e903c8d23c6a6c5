// Lines and returns that the debug server looks at by itself, in case what it watches has changed.
// While nothing is watched this costs a comparison.
#ifndef MORVIK_TRACERCORE_WATCHING_H
#define MORVIK_TRACERCORE_WATCHING_H

#include "host/python.h"
#include "tracercore/state.h"

namespace morvik {

// Takes what the module's attribute "watch" says from now on: there is none, or it is a tuple of a
// callable and a tuple of frames, None for every frame. Anything else counts as none.
void learn_watch();

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
