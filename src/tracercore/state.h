// The trace core's one state: settings, callbacks, the mutex in front of the debug server, and
// counters. Changed only with the interpreter lock held; lives until the process ends.
#ifndef MORVIK_TRACERCORE_STATE_H
#define MORVIK_TRACERCORE_STATE_H

#include <cstdint>

#include "bpops/table.h"
#include "exceptops/catch_info.h"
#include "exceptops/ignored_locations.h"
#include "hashtable.h"
#include "host/python.h"
#include "threadops.h"
#include "tracercore/sublanguages.h"

namespace morvik {

// Event codes of the interpreter, as the native trace function receives them.
enum TraceEvent {
    kEventCall = 0,
    kEventException = 1,
    kEventLine = 2,
    kEventReturn = 3,
    kEventBuiltinCall = 4,  // for profile functions alone, and so are 5 and 6
};

// Event codes that stop tests, sub-language hooks and the breakpoint matcher receive.
enum StopEvent {
    kStopAtException = -1,
    kStopAtCall = 0,
    kStopAtLine = 1,
    kStopAtReturn = 2,
};

// What an event handler answers. Only a call event can ask for propagation.
enum HandlerResult {
    kHandled = 0,
    kEndTracing = -1,      // this thread is traced no longer
    kPropagateError = -2,  // the pending error goes to the traced code
};

// The callables and objects that init() is given; each holds a reference of the core's.
struct Callbacks {
    PyObject* install_thread_hooks_cb;
    PyObject* idle_cb;
    PyObject* line_cb;
    PyObject* return_cb;
    PyObject* exception_cb;
    PyObject* quit_cb;
    PyObject* import_cb;  // or None
    PyObject* default_import;
    PyObject* internal_modules_map;
};

struct CoreState {
    bool initialised;  // init() has run; everything below is blank before

    bool always_trace;     // no thread ever rests
    bool stacks_switch;    // a thread may go on in another stack of frames, by no event
    bool raises_are_told;  // of each exception, by the launcher
    int tracing;           // 1 between start and stop of tracing
    float idle_period;     // seconds; only tested to be above 0
    long idle_thread;      // ident of the thread that runs idle_cb, kNoOwner for none
    int exception_mode;
    int autoquit;                // quit_cb is called when a thread's bottom frame returns
    int debug_all_threads;       // 0: while one thread is stopped the others are ignored
    PyObject* debug_thread_cb;   // thread policy, or nullptr
    PyObject* watch_cb;          // looks at lines and returns, or nullptr
    PyObject* watched_frames;    // at those of these in a tuple; nullptr for every frame
    bool notes_returns;          // of calls that a step goes over
    HashTable debug_thread_map;  // thread ident to the policy's answer, 0 or 1
    long last_debugged;          // an ident in it whose answer is 1, kNoOwner for none

    bool some_are_awake;   // set by every thread that gets its events back
    int idle_event_count;  // events since the clock was last read
    int idle_check_interval;
    int64_t next_idle_time;  // wall-clock seconds; no idle_cb before

    PyThread_type_lock mutex;  // held by a thread for the whole of an event
    long mutex_owner;          // its holder's thread ident, kNoOwner for none

    unsigned event_count;  // events that passed the mutex since tracing started
    int import_hook_calls;
    int pending_raise_count;   // records with a pending exception
    HashTable imported_files;  // distinct files of modules imported through the hook

    PyObject* module;          // this module
    PyObject* trace_dispatch;  // its trace_dispatch function
    PyObject* sys_module;
    PyObject* sys_settrace;
    PyObject* sys_exc_info;
    Callbacks callbacks;

    PyObject* import_hook;  // the module's own __import__ once it is installed
    PyObject* new_imports;  // paths of modules loaded or reloaded; nullptr for none
    long import_cb_thread;  // ident of the thread that runs import_cb, kNoOwner for none: no step
                            // stops meanwhile
    int import_hook_depth;

    ThreadTable threads;
    BreakpointTable breakpoints;
    IgnoredLocations ignored_locations;
    CatchInfoStore catch_info;
    PyObject* always_stop_excepts;  // a tuple of types, or nullptr
    PyObject* never_stop_excepts;   // likewise
    PyObject* ignored_handlers;     // a dictionary of frames or code objects, or nullptr
    SubLanguages sub_languages;
};

constexpr long kNoOwner = -1;

extern CoreState core;

// What init() is given, borrowed.
struct CoreSettings {
    PyObject* module;
    float idle_period;
    int exception_mode;
    Callbacks callbacks;
    PyObject* debug_stream;
};

// Sets the core up with tracing off and installs the import hook. 1, or 0 with an error set when
// something that it needs cannot be made or found: it can be called again then. What an earlier
// call was given stays referenced unless given again: a thread may still be inside it. With 1 an
// error may be set: the import hook was refused.
int core_init(const CoreSettings& settings);

// Tracing off, tables and policy settings back to their defaults; callbacks, idle period,
// exception mode and counters stay. An error that the server's hooks callback left is set.
void core_reset();

// Logs and resets.
void core_destroy();

// Nonzero on success, waiting as long as it takes. 0 when the calling thread holds the mutex
// already: waiting for oneself would never end.
int acquire_sorrel_mutex();
// Does nothing unless the calling thread holds the mutex.
void release_sorrel_mutex();

// Writes the header of a pending error to the diagnostic output and clears it: the traced program
// never sees what the debug server's code raised.
void discard_callback_error();

// Asks the breakpoints at a frame's place, where the thread's sub-language hook translates it if
// it is a key frame's: 1 to stop, else 0. Counts the hit.
int check_breakpoints(PyFrameObject* frame, int event);

// Empties the cache of the thread policy's answers.
void clear_thread_policies();

// Frees a thread's record.
void forget_thread(PyThreadState* thread);

}  // namespace morvik

#endif
