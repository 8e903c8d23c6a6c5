// Line events cost a program more than all else, whoever listens to them. A thread therefore has
// them only while it executes a frame in which it may have to stop. Elsewhere it rests: its trace
// function is out, and a profile function of the core's has calls and returns dispatched as if the
// trace function were there, and after each finds out about the frame that goes on. For exceptions,
// the launcher tells of each that is raised; where it does not, a thread does not rest as long as
// one could stop it.
//
// A thread that rests keeps its trace object: to Python code, it is traced. The frame that it
// executes has no f_trace, so that its line is taken from its offset.
#ifndef MORVIK_TRACERCORE_REST_H
#define MORVIK_TRACERCORE_REST_H

#include <cstddef>

#include "host/python.h"
#include "host/ref.h"
#include "threadops.h"
#include "tracercore/state.h"

namespace morvik {

// What the environment says, and whether the launcher tells of exceptions. Called by init().
void rest_init();

// A module has been loaded by which threads go on in the midst of other frames, of which there is
// no event: nobody could wake one that rests. From now on none does.
void rest_no_more();

bool is_resting(const PyThreadState* thread);

// The same, and also where somebody else's profile function has come in the place of the core's
// unseen, so that nobody looks after the thread.
bool is_without_events(const PyThreadState* thread);

// Whether the thread's events come to the core, at once or when it does not rest any more.
bool is_traced_here(const PyThreadState* thread);

// A thread, which has come to an event of this frame that is over, goes on: it rests from now on,
// or does not, as is right for the frame. Does nothing where the thread is not traced by the core,
// or something else profiles it. May run Python code, errno and the pending exception are kept.
void settle(PyFrameObject* frame);

// At an exception event: whether the frame is to keep its events until it is left, or another of
// its handlers takes the exception.
void note_exception(ThreadData* record, PyFrameObject* frame, PyObject* type);

// The calling thread, which has its events, goes on in this frame; nullptr for none. From now on
// its calls and returns are seen where it rests, unless a breakpoint may stop in the frame: then
// there is time for that when it goes on elsewhere.
void watch_calls(const PyFrameObject* next);

// Takes the core's profile function from the calling thread.
void stop_watching_calls();

// Threads that rest have their events again, from where they are. Run no Python code.
void wake_thread(PyThreadState* thread);
void wake_all_threads();

// Whether the thread rests where it can.
bool may_rest(const PyThreadState* thread);

// Has one rest that may, and does not, if it can be told without running Python code that this is
// right.
void let_rest(PyThreadState* thread);

// For a scope, every frame on the calling thread's stack carries the trace function and knows its
// line, as the debug server finds them when it is called. Afterwards those in which the thread
// rests are without it again: by that they are told from the others when the thread comes back to
// them.
class CompleteFrames {
  public:
    CompleteFrames();
    ~CompleteFrames();
    CompleteFrames(const CompleteFrames&) = delete;
    CompleteFrames& operator=(const CompleteFrames&) = delete;

  private:
    PyFrameObject** frames_ = nullptr;  // the thread is in their midst: they stay
    size_t count_ = 0;
};

// At a call event of a thread that has its events: the frame, which is new, is to have the trace
// function, too.
inline void hook_called_frame(const PyThreadState* thread, PyFrameObject* frame) {
    if (thread->c_tracefunc != nullptr && thread->c_traceobj == core.trace_dispatch &&
        is_frame(frame) && frame->f_trace == nullptr) {
        set_frame_trace(frame, core.trace_dispatch);
    }
}

// Whether an event of a frame in whose midst the thread has been woken is none: the interpreter
// goes by where the frame was when it had its last one. Brings the frame's line up to date for its
// next.
bool is_left_over(ThreadData* record, PyFrameObject* frame, int event);

}  // namespace morvik

#endif
