// Languages implemented on top of Python. A hook object names the code whose frames mark the
// language at work, the folders of its implementation (frames there are hidden) and its key code,
// whose frames stand for the language's own lines; in those it decides about stops and locations.
//
// Hook methods run Python code and may do anything, drop their own last reference included. What
// they raise is never seen by the program: it means no stop, or nothing known.
#ifndef MORVIK_TRACERCORE_SUBLANGUAGES_H
#define MORVIK_TRACERCORE_SUBLANGUAGES_H

#include "hashtable.h"
#include "host/ref.h"
#include "threadops.h"

namespace morvik {

struct SubLanguages {
    int registered;          // 1 once a hook was registered, as long as hooks are in use
    PyObject* pending;       // hooks that are not set up yet; nullptr for none
    PyObject* marker_codes;  // marker code object to hook
    PyObject* module_paths;  // hook to its list of (path prefix, category)
    PyObject* key_codes;     // key code object to hook
    HashTable categories;    // registered code object to implementation category
};

enum FrameCategory {
    kUnknownFrame = -1,
    kHiddenFrame = 0,  // the implementation's, but not a key frame
    kKeyFrame = 1,
};

enum class MayAsk {
    kNotConcerned,  // it is no hook's code
    kNo,
    kYes,
};

// Blank state.
void sub_languages_init();

// Keeps the hooks, those that still wait to be set up once each, however often they were
// registered.
void sub_languages_reset();

// Forgets the implementation category of a code object that is let go of.
void forget_category(PyCodeObject* code);

// 0, or -1 with an error set.
int register_sub_language_hook(PyObject* hook);

// While no hook is in use, none is asked and no thread is in a language, as if none were
// registered. From when they are in use again, or one is registered, the calling thread is where it
// is.
void use_sub_language_hooks(bool on);

// At a call event: sets up hooks that are pending, and makes a marker frame's hook the thread's.
void track_sub_language(PyFrameObject* frame);

// The end of a frame: if it activated the thread's hook, the thread has none any more.
void leave_sub_language_frame(PyFrameObject* frame);

// Enters a hook's key code. 1, or 0 when that failed. Sets no error.
int refresh_key_frames(PyObject* hook);

// `record` may be nullptr.
FrameCategory sub_language_category(const ThreadData* record, PyFrameObject* frame);

// Whether a frame belongs to the implementation of the thread's hook, or may do so.
bool is_implementation_frame(const ThreadData* record, PyFrameObject* frame);

// The hook that answers for this frame in this thread, or nothing.
Ref key_frame_hook(const ThreadData* record, PyFrameObject* frame);

// Whether the hook of the frame's key code has to be asked about an event there.
bool is_hook_asked(const ThreadData* record, const PyFrameObject* frame, int event);

// Whether the thread, which is where hooks are in use, needs the events of frames that are neither
// of marker nor of key code: those of its calls, and all of them.
bool sub_languages_need_calls();
bool sub_languages_need_events(const ThreadData* record);

// Whether a thread that runs on needs the events of frames of this code for a hook's sake, beside
// those of their calls and ends. May run Python code.
MayAsk may_ask_hook(PyCodeObject* code);

// Whether the calls and ends of its frames may begin and end a language. May run Python code.
bool is_marker_code(PyCodeObject* code);

// Whether the thread leaves its language with this frame.
bool leaves_language(const ThreadData* record, const PyFrameObject* frame);

// Whether the hook of the frame's key code, or a breakpoint at its place, stops the calling
// thread here.
bool sub_language_stop_test(PyFrameObject* frame, int event);

}  // namespace morvik

#endif
