#include "tracercore/rest.h"

#include <cstdlib>
#include <cstring>

#include "bpops/matching.h"
#include "conames.h"
#include "dbgcommon.h"
#include "dprintf.h"
#include "exceptops/handlers.h"
#include "host/ref.h"
#include "host/tracing.h"
#include "tracercore/dispatch.h"
#include "tracercore/exceptions.h"
#include "tracercore/policy.h"
#include "tracercore/pulse.h"
#include "tracercore/state.h"
#include "tracercore/stepping.h"
#include "tracercore/sublanguages.h"
#include "tracercore/watching.h"

namespace morvik {

namespace {

// Of the launcher's, where it is the one that this is written for: what it calls for each exception
// that the interpreter is about to make an event of.
constexpr char kRaisedHook[] = "morvik_raised";
using RaisedHook = void (*)(PyFrameObject* frame);

int dispatch_at_rest(PyObject* profile_object, PyFrameObject* frame, int event, PyObject* argument);

bool some_always_stop() {
    const PyObject* const types = core.always_stop_excepts;
    return types != nullptr && !(PyTuple_Check(types) && PyTuple_GET_SIZE(types) == 0);
}

bool exceptions_need_events(const ThreadData* record, PyFrameObject* frame) {
    return !core.raises_are_told && (core.exception_mode != kExcNeverStop || some_always_stop() ||
                                     record->bot_frame == as_object(frame));
}

// A first idle call comes with the thread's first events, and later ones, where no events are, with
// the pulse.
bool idle_needs_events() {
    return core.idle_period > 0.0F && (core.next_idle_time == 0 || !pulse_begin());
}

// Whether an exception that came up in the frame is on its way through the frame's own code.
bool is_unwinding(ThreadData* record, const PyFrameObject* frame) {
    if (record->unwound_frame == frame && frame->f_iblock <= record->unwound_to) {
        record->unwound_frame = nullptr;
    }
    return record->unwound_frame == frame;
}

// The line that a return is at is not always that of its instruction, but that of the last event.
bool step_needs_events(ThreadData* record, PyFrameObject* frame) {
    return record->return_frame == as_object(frame) || is_unwinding(record, frame) ||
           stops_in_any(record, frame) ||
           (record->stop_frame != nullptr && record->stop_frame != Py_None &&
            (record->stop_frame == as_object(frame) || stop_frame_was_left(record, frame)));
}

// What can be told without running Python code: all but whether a breakpoint may stop in the frame.
bool thread_needs_events(const PyThreadState* thread, ThreadData* record, PyFrameObject* frame) {
    if (record == nullptr || core.always_trace || core.tracing == 0 || dprintf_file != nullptr ||
        core.mutex_owner != kNoOwner || core.pending_raise_count != 0 || !record->frames_hooked ||
        !record->trace_installed) {
        return true;
    }
    const Policy policy = known_policy(thread);
    if (policy != Policy::kDebug) {
        return policy == Policy::kUnknown;
    }
    return sub_languages_need_events(record) || is_watched(frame) ||
           step_needs_events(record, frame) || exceptions_need_events(record, frame) ||
           idle_needs_events();
}

// What can be told of all frames of some code.
enum class Kind : uint8_t {
    kUnknown,
    kPassed,    // nothing stops in them
    kMarker,    // the same, but their calls and ends are needed
    kMayStop,   // a breakpoint may
    kProfiles,  // they may have the interpreter call a profile function of the program's
};

// What was found out, as long as the breakpoints are the same and the code is there: their edition
// tells both.
struct KnownCode {
    const PyCodeObject* code;
    uint32_t edition;
    Kind kind;
};

constexpr uint32_t kKnownCodes = 4096;

KnownCode known_codes[kKnownCodes];

KnownCode* known_slot(const PyCodeObject* code) {
    constexpr unsigned kAlignmentBits = 4;
    const auto address = reinterpret_cast<uintptr_t>(code) >> kAlignmentBits;
    return &known_codes[(address ^ (address >> 12)) % kKnownCodes];
}

Kind known_kind(const PyCodeObject* code) {
    const KnownCode* const slot = known_slot(code);
    return slot->code == code && slot->edition == core.breakpoints.edition ? slot->kind
                                                                           : Kind::kUnknown;
}

bool is_passed_code(const PyCodeObject* code) { return known_kind(code) == Kind::kPassed; }

bool rests_in_kind(Kind kind) { return kind == Kind::kPassed || kind == Kind::kMarker; }

// The interpreter tells a profile function that the call of a built-in function has ended if there
// was one when it began. That of the program is not to hear so of the call that sets it: where the
// code says its name there must be none before.
bool names_setprofile(const PyCodeObject* code) {
    constexpr char kName[] = "setprofile";
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(code->co_names); ++i) {
        PyObject* const name = PyTuple_GET_ITEM(code->co_names, i);
        if (PyString_Check(name) && strcmp(PyString_AS_STRING(name), kName) == 0) {
            return true;
        }
    }
    return false;
}

// May run Python code.
Kind kind_of(PyFrameObject* frame) {
    PyCodeObject* const code = frame->f_code;
    Kind kind = known_kind(code);
    if (kind != Kind::kUnknown) {
        return kind;
    }
    const ErrnoGuard keep_errno;
    const PendingErrorGuard keep_error;
    const MayAsk may_ask = may_ask_hook(code);
    if (names_setprofile(code)) {
        kind = Kind::kProfiles;
    } else if (may_ask != MayAsk::kNotConcerned) {
        kind = may_ask == MayAsk::kYes ? Kind::kMayStop : Kind::kPassed;
    } else {
        const MayStop answer = bp_ask_code(&core.breakpoints, frame);
        if (answer == MayStop::kPerhaps) {
            return Kind::kMayStop;
        }
        kind = answer == MayStop::kYes ? Kind::kMayStop : Kind::kPassed;
    }
    if (kind == Kind::kPassed && is_marker_code(code)) {
        kind = Kind::kMarker;
    }
    const uint32_t edition = core.breakpoints.edition;
    // The registry keeps such code, and tells of its end.
    if (registered_pathname(&code_names, code) != nullptr && edition == core.breakpoints.edition) {
        *known_slot(code) = {code, edition, kind};
    }
    return kind;
}

// The frame goes on with its events, for which the interpreter's own notes of where in the frame it
// was are those of its last one.
void note_wake(ThreadData* record, PyFrameObject* frame, bool may_jump) {
    record->woken_frame = frame;
    record->woken_at = frame->f_lasti;
    record->woken_may_jump = may_jump;
}

void give_events(PyThreadState* thread) {
    count_traced_thread(nullptr, c_dispatch);
    thread->c_tracefunc = c_dispatch;
    core.some_are_awake = true;
}

// `may_jump`: whether the frame may go on anywhere, as it does in a handler.
void wake_in(PyThreadState* thread, PyFrameObject* frame, bool may_jump) {
    ThreadData* const record = thread_table_find(&core.threads, thread);
    if (frame != nullptr && frame->f_trace == nullptr) {
        if (record != nullptr && frame->f_lasti >= 0) {
            note_wake(record, frame, may_jump);
        }
        set_frame_trace(frame, core.trace_dispatch);
    }
    give_events(thread);
}

void rest_in(PyThreadState* thread, ThreadData* record, PyFrameObject* frame) {
    if (frame->f_trace != nullptr && frame->f_trace == core.trace_dispatch) {
        clear_slot(frame->f_trace);  // Not its last reference.
    }
    if (record->woken_frame == frame) {
        record->woken_frame = nullptr;
    }
    if (thread->c_tracefunc != nullptr) {
        count_traced_thread(c_dispatch, nullptr);
        thread->c_tracefunc = nullptr;
    }
}

// `is_new`: whether the interpreter begins with the frame, or begins with it again.
void settle_in(PyThreadState* thread, PyFrameObject* frame, bool is_new) {
    ThreadData* record = thread_table_find(&core.threads, thread);
    bool needed = thread_needs_events(thread, record, frame);
    Kind kind = known_kind(frame->f_code);
    if (!needed) {
        kind = kind_of(frame);
        record = thread_table_find(&core.threads, thread);  // Python code may have run.
        needed = !rests_in_kind(kind) || thread_needs_events(thread, record, frame);
    } else if (kind == Kind::kUnknown && names_setprofile(frame->f_code)) {
        kind = Kind::kProfiles;
    }
    if (!is_traced_here(thread)) {
        return;
    }
    if (!needed && record != nullptr) {
        rest_in(thread, record, frame);
        return;
    }
    if (frame->f_trace == nullptr) {
        if (!is_new && record != nullptr) {
            note_wake(record, frame, false);
        }
        set_frame_trace(frame, core.trace_dispatch);
    }
    if (thread->c_tracefunc == nullptr) {
        give_events(thread);
    }
    if (kind == Kind::kProfiles) {
        stop_watching_calls();
    }
}

// Whether this call will have the interpreter call something else for calls and returns, or for
// lines: from then on nobody would wake the thread. Nothing is harmed by a wrong yes.
bool replaces_functions(PyObject* function) {
    if (function == nullptr || !PyCFunction_Check(function)) {
        return false;
    }
    const char* const name = reinterpret_cast<PyCFunctionObject*>(function)->m_ml->ml_name;
    switch (*name) {
        case 'e':
            return strcmp(name, "enable") == 0;  // of cProfile
        case 'r':
            return name[1] == 'u' &&  // Of a stream, "read" is called often.
                   (strcmp(name, "runcall") == 0 || strcmp(name, "runcode") == 0);  // of hotshot
        case 's':
            return strcmp(name, "setprofile") == 0 || strcmp(name, "settrace") == 0 ||
                   strcmp(name, "start") == 0;
        default:
            return false;
    }
}

bool call_passes(const ThreadData* record, const PyFrameObject* frame) {
    return frame->f_locals != frame->f_globals && record->bot_frame != Py_None &&
           record->bot_frame != reinterpret_cast<const PyObject*>(frame) &&
           !sub_languages_need_calls() && frame->f_trace == nullptr && !is_watched(frame) &&
           is_recently_registered(&code_names, frame->f_code) && is_passed_code(frame->f_code);
}

bool return_passes(const ThreadData* record, const PyFrameObject* frame, const PyObject* value) {
    const PyFrameObject* const next = frame->f_back;
    const auto is_at = [frame, next](const PyObject* place) {
        return place == reinterpret_cast<const PyObject*>(frame) ||
               place == reinterpret_cast<const PyObject*>(next);
    };
    return next != nullptr && next->f_trace == nullptr && !is_watched(next) &&
           !is_at(record->return_frame) && !is_at(record->bot_frame) &&
           rests_in_kind(known_kind(next->f_code)) && !leaves_language(record, frame) &&
           (value != nullptr || !is_printed_stop(core.exception_mode)) &&
           record->woken_frame != frame;
}

// Where a step request waits further out, the record's place in the stack goes along.
bool step_passes_call(ThreadData* record, PyFrameObject* frame) {
    if (record->stop_frame == nullptr) {
        return true;
    }
    if (record->stop_frame == Py_None) {
        return !stops_in_any(record, frame);
    }
    const bool passes = record->in_step != nullptr && record->in_step == frame->f_back &&
                        record->stop_frame != as_object(frame);
    if (passes) {
        record->in_step = frame;
    }
    return passes;
}

bool step_passes_return(ThreadData* record, PyFrameObject* frame) {
    if (record->stop_frame == nullptr) {
        return true;
    }
    if (record->stop_frame == Py_None) {
        return !stops_in_any(record, frame->f_back);
    }
    const bool passes = record->in_step == frame && record->stop_frame != as_object(frame) &&
                        record->stop_frame != as_object(frame->f_back);
    if (passes) {
        record->in_step = frame->f_back;
    }
    return passes;
}

// The shortest way, for a thread that rests and goes on resting. It does so since nothing could
// stop it; whatever changes that has woken it, so that the frame alone is left to look at.
bool passes_at_rest(PyThreadState* thread, PyFrameObject* frame, int event,
                    const PyObject* argument) {
    ThreadData* const record = thread_table_find(&core.threads, thread);
    if (thread->c_tracefunc != nullptr || thread->c_traceobj != core.trace_dispatch ||
        core.mutex_owner != kNoOwner || record == nullptr) {
        return false;
    }
    if (event == kEventReturn) {
        if (!return_passes(record, frame, argument) || !step_passes_return(record, frame)) {
            return false;
        }
    } else {
        if (!call_passes(record, frame) || !step_passes_call(record, frame)) {
            return false;
        }
        count_registry_call(&code_names);
    }
    ++core.event_count;
    if (event == kEventReturn && core.catch_info.frame_exc_info != nullptr) {
        const ErrnoGuard keep_errno;
        clear_frame_exc_info(&core.catch_info, frame);
        return is_resting(thread);  // Something may have been released, and have run code.
    }
    return true;
}

// Whether a thread that has its events is about to go on where a breakpoint may stop, as one does
// that is in a loop of such code.
bool stays_awake(const PyThreadState* thread, const PyFrameObject* next) {
    return thread->c_tracefunc == c_dispatch && next != nullptr &&
           next->f_trace == core.trace_dispatch && known_kind(next->f_code) == Kind::kMayStop;
}

// How many calls, returns and calls of built-in functions in a row have found that nothing changes.
unsigned calls_in_vain;

// The calling thread stays awake. One that has done so for long is asked less: its trace function
// sees as well where it leaves such code.
void stay_awake() {
    constexpr unsigned kLong = 256;
    if (++calls_in_vain >= kLong) {
        calls_in_vain = 0;
        stop_watching_calls();
    }
}

// The profile function. Where the thread has its events, the trace function has had this one.
int dispatch_at_rest(PyObject* /*profile_object*/, PyFrameObject* frame, int event,
                     PyObject* argument) {
    PyThreadState* const thread = current_thread_state();
    if (core.always_trace && thread->c_tracefunc == c_dispatch) {
        // Only to bring their events back to frames in which it has rested before.
        PyFrameObject* const next = event == kEventReturn ? frame_back(frame) : nullptr;
        if (next == nullptr || next->f_trace != nullptr) {
            return 0;
        }
    }
    if (event != kEventCall && event != kEventReturn) {
        if (event == kEventBuiltinCall && replaces_functions(argument) && is_resting(thread)) {
            wake_thread(thread);
            // Nobody will see to them as the thread comes back to them.
            hook_frames(thread, core.trace_dispatch);
        } else if (stays_awake(thread, frame)) {
            stay_awake();
        }
        return 0;
    }
    if (passes_at_rest(thread, frame, event, argument)) {
        return 0;
    }
    if (stays_awake(thread, event == kEventCall ? frame : frame->f_back)) {
        stay_awake();
        return 0;
    }
    calls_in_vain = 0;
    int result = 0;
    if (is_resting(thread)) {
        result = c_dispatch(thread->c_traceobj, frame, event, argument);
    }
    if (thread->c_profilefunc != dispatch_at_rest) {
        return result;
    }
    if (!is_traced_here(thread)) {
        stop_watching_calls();
        return result;
    }
    const bool is_new = event == kEventCall && result == 0;
    PyFrameObject* const next = is_new ? frame : frame_back(frame);
    if (next != nullptr) {
        settle_in(thread, next, is_new);
    }
    return result;
}

// Notes that an exception has the frame run code of its own before it is taken, or has left: what
// lines the frame is at meanwhile is not always told by its instructions. `block`: the one whose
// clauses take it.
void note_unwinding(ThreadData* record, PyFrameObject* frame, int block) {
    for (int i = frame->f_iblock - 1; i > block; --i) {
        if (frame->f_blockstack[i].b_type != kHostOpcodes.setup_loop) {
            record->unwound_frame = frame;
            record->unwound_to = static_cast<int16_t>(block);
            return;
        }
    }
}

// For each exception in a frame, right before the interpreter makes an event of it for the trace
// function that is there then. The error is set.
void raised(PyFrameObject* frame) {
    PyThreadState* const thread = current_thread_state();
    if (!is_resting(thread) || thread->tracing != 0 || thread->frame != frame ||
        thread->curexc_type == nullptr) {
        return;
    }
    const Policy policy = known_policy(thread);
    if (policy == Policy::kIgnore) {
        return;
    }
    ThreadData* const record = thread_table_find(&core.threads, thread);
    if (record == nullptr || policy == Policy::kUnknown || core.tracing == 0) {
        wake_in(thread, frame, true);
        return;
    }
    const int block = taking_block(frame, core.ignored_handlers, thread->curexc_type);
    note_unwinding(record, frame, block);
    const bool is_settled = block != kNoBlock && !some_always_stop() &&
                            core.exception_mode != kExcAlwaysStop &&
                            !is_printed_stop(core.exception_mode);
    if (record->unwound_frame == frame || is_stop(decide_step(record, frame)) ||
        (!is_settled && may_stop_at_exception(record, frame, thread->curexc_type))) {
        wake_in(thread, frame, true);
    }
}

}  // namespace

void rest_init() {
    const char* const always = getenv("MORVIK_ALWAYS_TRACE");
    core.always_trace = always != nullptr && strcmp(always, "1") == 0;
    core.stacks_switch = false;
    auto* const hook = static_cast<RaisedHook*>(python_library_symbol(kRaisedHook));
    core.raises_are_told = hook != nullptr;
    if (hook != nullptr) {
        *hook = raised;
    }
}

void rest_no_more() {
    core.always_trace = true;
    wake_all_threads();
}

bool is_without_events(const PyThreadState* thread) {
    return thread->c_tracefunc == nullptr && thread->c_traceobj != nullptr &&
           thread->c_traceobj == core.trace_dispatch;
}

bool is_resting(const PyThreadState* thread) {
    return is_without_events(thread) && thread->c_profilefunc == dispatch_at_rest;
}

bool is_traced_here(const PyThreadState* thread) {
    return thread->c_tracefunc == c_dispatch || is_resting(thread);
}

void settle(PyFrameObject* frame) {
    PyThreadState* const thread = current_thread_state();
    if (may_rest(thread) && !stays_awake(thread, frame)) {
        settle_in(thread, frame, false);
    }
}

void note_exception(ThreadData* record, PyFrameObject* frame, PyObject* type) {
    // Also while the thread is not watched, since its breakpoints may go before it leaves the
    // frame.
    if (!core.always_trace && dprintf_file == nullptr && is_traced_here(current_thread_state())) {
        note_unwinding(record, frame, taking_block(frame, core.ignored_handlers, type));
    }
}

void watch_calls(const PyFrameObject* next) {
    const PyThreadState* const thread = current_thread_state();
    if (thread->c_profilefunc != nullptr || core.always_trace ||
        thread->c_tracefunc != c_dispatch || dprintf_file != nullptr) {
        return;
    }
    if (next == nullptr ||
        (known_kind(next->f_code) != Kind::kMayStop && !names_setprofile(next->f_code))) {
        PyEval_SetProfile(dispatch_at_rest, nullptr);
    }
}

void stop_watching_calls() {
    if (current_thread_state()->c_profilefunc == dispatch_at_rest) {
        PyEval_SetProfile(nullptr, nullptr);
    }
}

void wake_thread(PyThreadState* thread) {
    if (is_without_events(thread)) {
        wake_in(thread, thread->frame, false);
    }
}

void let_rest(PyThreadState* thread) {
    PyFrameObject* const frame = thread->frame;
    ThreadData* const record = thread_table_find(&core.threads, thread);
    if (thread->tracing == 0 && frame != nullptr && is_passed_code(frame->f_code) &&
        !thread_needs_events(thread, record, frame)) {
        rest_in(thread, record, frame);
    }
}

bool may_rest(const PyThreadState* thread) {
    return thread->c_profilefunc == dispatch_at_rest && is_traced_here(thread);
}

void wake_all_threads() {
    for (PyInterpreterState* interpreter = PyInterpreterState_Head(); interpreter != nullptr;
         interpreter = PyInterpreterState_Next(interpreter)) {
        for (PyThreadState* thread = PyInterpreterState_ThreadHead(interpreter); thread != nullptr;
             thread = PyThreadState_Next(thread)) {
            wake_thread(thread);
        }
    }
}

CompleteFrames::CompleteFrames() {
    const auto is_bare = [](const PyFrameObject* frame) { return frame->f_trace == nullptr; };
    PyFrameObject* const innermost = current_thread_state()->frame;
    size_t bare = 0;
    for (PyFrameObject* frame = innermost; frame != nullptr; frame = frame_back(frame)) {
        bare += is_bare(frame) ? 1 : 0;
    }
    if (bare != 0) {
        frames_ = static_cast<PyFrameObject**>(malloc(bare * sizeof(PyFrameObject*)));
    }
    for (PyFrameObject* frame = innermost; frames_ != nullptr && frame != nullptr;
         frame = frame_back(frame)) {
        if (is_bare(frame)) {
            frames_[count_++] = frame;
        }
    }
    hook_frames(current_thread_state(), core.trace_dispatch);
}

CompleteFrames::~CompleteFrames() {
    for (size_t i = 0; i < count_; ++i) {
        if (frames_[i]->f_trace == core.trace_dispatch) {
            clear_slot(frames_[i]->f_trace);  // Not its last reference.
        }
    }
    free(frames_);
}

bool is_left_over(ThreadData* record, PyFrameObject* frame, int event) {
    if (record->woken_frame != frame) {
        return false;
    }
    if (event == kEventException) {
        record->woken_may_jump = true;
    }
    if (event != kEventLine) {
        return false;
    }
    record->woken_frame = nullptr;
    const int offset = frame->f_lasti;
    const bool is_none =
        offset > record->woken_at &&
        (record->woken_may_jump || offset <= next_offset(frame->f_code, record->woken_at)) &&
        !begins_line(frame->f_code, offset);
    frame->f_lineno = PyCode_Addr2Line(frame->f_code, is_none ? record->woken_at : offset);
    return is_none;
}

}  // namespace morvik
