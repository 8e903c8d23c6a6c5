#include "tracercore/sublanguages.h"

#include <cctype>
#include <utility>

#include "bpops/matching.h"
#include "conames.h"
#include "dbgcommon.h"
#include "host/ref.h"
#include "tracercore/asked_lines.h"
#include "tracercore/state.h"

namespace morvik {

namespace {

enum StepKind {
    kRunningFreely = -1,
    kStepInto = 0,
    kStepOver = 1,
    kStepOut = 2,
};

SubLanguages& state() { return core.sub_languages; }

PyObject* code_of(PyFrameObject* frame) { return reinterpret_cast<PyObject*>(frame->f_code); }

// Keys are what hooks gave: comparing them may run their code, which may drop the dictionary.
Ref find(PyObject* dict, PyObject* key) {
    const Ref held_dict = Ref::share(dict);
    return dict != nullptr ? Ref::share(PyDict_GetItem(dict, key)) : Ref();
}

// What a hook method without arguments answers, if that is a list with something in it.
Ref ask_for_list(PyObject* hook, const char* method) {
    Ref answer = call_method(hook, method, nullptr);
    if (!answer || !PyList_Check(answer.get()) || PyList_GET_SIZE(answer.get()) == 0) {
        drop_error("an answer of a sub-language hook");
        return Ref();
    }
    return answer;
}

// Maps each code object of a list to the hook.
bool enter_codes(PyObject* dict, PyObject* codes, PyObject* hook) {
    const Ref held_dict = Ref::share(dict);
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(codes); ++i) {
        const Ref code = Ref::share(PyList_GET_ITEM(codes, i));
        if (PyDict_SetItem(dict, code.get(), hook) != 0) {
            drop_error("code of a sub-language hook");
            return false;
        }
    }
    bp_forget_passed(&core.breakpoints);  // Nobody rests in it for what was known before.
    return true;
}

// Whether a hook can still become active, or is.
bool is_in_use(PyObject* hook) {
    PyObject* other = nullptr;
    Py_ssize_t position = 0;
    while (PyDict_Next(state().marker_codes, &position, nullptr, &other) != 0) {
        if (other == hook) {
            return true;
        }
    }
    HashSearch search;
    for (HashEntry* entry = hash_first(&core.threads.records, &search); entry != nullptr;
         entry = hash_next(&search)) {
        if (static_cast<const ThreadData*>(hash_get_value(entry))->sub_lang_hook == hook) {
            return true;
        }
    }
    return false;
}

// Forgets hooks whose marker code is all another's now: a server that registers its hooks anew for
// every session would leave each of them behind.
void forget_superseded() {
    const Ref module_paths = Ref::share(state().module_paths);
    const Ref key_codes = Ref::share(state().key_codes);
    const Ref hooks = module_paths ? Ref::steal(PyDict_Keys(module_paths.get())) : Ref();
    const Ref codes = hooks && key_codes ? Ref::steal(PyDict_Keys(key_codes.get())) : Ref();
    for (Py_ssize_t i = 0; codes && i < PyList_GET_SIZE(hooks.get()); ++i) {
        PyObject* const hook = PyList_GET_ITEM(hooks.get(), i);
        // What is dropped may run code that calls init().
        if (state().marker_codes == nullptr || is_in_use(hook)) {
            continue;
        }
        for (Py_ssize_t j = 0; j < PyList_GET_SIZE(codes.get()); ++j) {
            PyObject* const code = PyList_GET_ITEM(codes.get(), j);
            if (PyDict_GetItem(key_codes.get(), code) == hook &&
                PyDict_DelItem(key_codes.get(), code) != 0) {
                PyErr_Clear();
            }
        }
        if (PyDict_DelItem(module_paths.get(), hook) != 0) {
            PyErr_Clear();
        }
    }
    drop_error("sub-language hooks that others have replaced are kept");
}

// The dictionaries at hand are those that the hook was registered with: should its methods begin
// anew with init(), what it says goes into those, and nobody looks there any more.
bool set_up(PyObject* hook) {
    const Ref marker_codes = Ref::share(state().marker_codes);
    const Ref module_paths = Ref::share(state().module_paths);
    const Ref markers = ask_for_list(hook, "_GetMarkerFrames");
    if (!markers || !enter_codes(marker_codes.get(), markers.get(), hook)) {
        return false;
    }
    const Ref paths = ask_for_list(hook, "_GetModulePaths");
    if (!paths || PyDict_SetItem(module_paths.get(), hook, paths.get()) != 0) {
        drop_error("paths of a sub-language hook");
        return false;
    }
    return state().module_paths == module_paths.get() && refresh_key_frames(hook) != 0;
}

void set_up_pending() {
    const Ref still_pending = Ref::steal(PyList_New(0));
    if (!still_pending) {
        drop_error("sub-language hooks wait for the next call");
        return;
    }
    const Ref pending = Ref::share(state().pending);
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(pending.get()); ++i) {
        const Ref hook = Ref::share(PyList_GET_ITEM(pending.get(), i));
        const bool is_set_up = set_up(hook.get());
        if (state().pending != pending.get()) {
            return;  // it began anew with init(), where no hook is registered
        }
        if (!is_set_up && PyList_Append(still_pending.get(), hook.get()) != 0) {
            drop_error("sub-language hooks wait for the next call");
            return;
        }
    }
    if (PyList_GET_SIZE(still_pending.get()) < PyList_GET_SIZE(pending.get())) {
        forget_superseded();
    }
    set_slot(state().pending,
             PyList_GET_SIZE(still_pending.get()) > 0 ? still_pending.get() : nullptr);
}

// The prefix test of module paths; an empty path is every file's.
bool begins_with(const char* file, const char* path) {
    for (; *path != '\0'; ++path, ++file) {
        if (tolower(static_cast<unsigned char>(*path)) !=
            tolower(static_cast<unsigned char>(*file))) {
            return false;
        }
    }
    return true;
}

// The category of the first (path, category) pair that a file lies under; 0 for none, -1 with an
// error set for a pair that is none.
long category_of_file(PyObject* paths, const char* file) {
    for (Py_ssize_t i = 0; PyList_Check(paths) && i < PyList_GET_SIZE(paths); ++i) {
        const Ref pair = Ref::share(PyList_GET_ITEM(paths, i));
        const char* path = nullptr;
        int category = 0;
        if (!PyTuple_Check(pair.get())) {
            PyErr_SetString(PyExc_TypeError, "a module path is a (prefix, category) tuple");
            return -1;
        }
        if (PyArg_ParseTuple(pair.get(), "si", &path, &category) == 0) {
            return -1;
        }
        if (begins_with(file, path)) {
            return category;
        }
    }
    return 0;
}

PyObject* active_hook(const ThreadData* record) {
    return record != nullptr ? record->sub_lang_hook : nullptr;
}

// Nonzero when the frame's file is one of the implementation's. -1 with an error set.
long implementation_category(PyObject* hook, PyFrameObject* frame) {
    PyCodeObject* const code = frame->f_code;
    HashEntry* const known = hash_find(&state().categories, &code);
    if (known != nullptr) {
        return static_cast<long>(reinterpret_cast<intptr_t>(hash_get_value(known)));
    }
    const Ref paths = find(state().module_paths, hook);
    if (!paths) {
        return 0;
    }
    const char* const file = registered_pathname(&code_names, code);
    if (file == nullptr) {
        // Of code in no file nothing is kept.
        return PyErr_Occurred() != nullptr ? -1
               : PyString_Check(code->co_filename)
                   ? category_of_file(paths.get(), PyString_AS_STRING(code->co_filename))
                   : 0;
    }
    const long category = category_of_file(paths.get(), file);
    if (category == -1 && PyErr_Occurred() != nullptr) {
        return -1;
    }
    // The registry keeps the code object alive, and says when it lets go of it.
    int is_new = 0;
    HashEntry* const entry = hash_create(&state().categories, &code, &is_new);
    if (entry != nullptr) {
        hash_set_value(entry, reinterpret_cast<void*>(static_cast<intptr_t>(category)));
    }
    return category;
}

// What the calling thread was asked to do.
StepKind step_kind() {
    const ThreadData* const record = thread_table_current(&core.threads);
    if (record == nullptr || record->stop_frame == nullptr) {
        return kRunningFreely;
    }
    if (record->return_frame != Py_None) {
        return kStepOut;
    }
    if (record->stop_frame == Py_None) {
        return kStepInto;
    }
    const Ref stop_frame = Ref::share(record->stop_frame);
    const bool in_key_frame =
        is_frame(stop_frame.get()) && find(state().key_codes, code_of(as_frame(stop_frame.get())));
    return in_key_frame ? kStepOver : kRunningFreely;
}

// Makes the hook of a marker frame the calling thread's, unless it has one.
void enter(PyFrameObject* frame, PyObject* hook) {
    ThreadData* const record = thread_table_current(&core.threads);
    if (hook != nullptr && record != nullptr && record->sub_lang_frame == nullptr) {
        const Ref old_hook = Ref::steal(record->sub_lang_hook);
        record->sub_lang_hook = Ref::share(hook).release();
        record->sub_lang_frame = Ref::share(as_object(frame)).release();
    }
}

// Goes by the calling thread's outermost marker frame.
void enter_where_stack_is() {
    PyFrameObject* marker = nullptr;
    Ref hook;
    for (PyFrameObject* frame = current_thread_state()->frame; frame != nullptr;
         frame = frame->f_back) {
        Ref found = find(state().marker_codes, code_of(frame));
        if (found) {
            marker = frame;
            hook = std::move(found);
        }
    }
    enter(marker, hook.get());
}

ThreadData* any_in_language() {
    HashSearch search;
    for (HashEntry* entry = hash_first(&core.threads.records, &search); entry != nullptr;
         entry = hash_next(&search)) {
        auto* const record = static_cast<ThreadData*>(hash_get_value(entry));
        if (record->sub_lang_hook != nullptr) {
            return record;
        }
    }
    return nullptr;
}

void leave(ThreadData* record) {
    const Ref marker = Ref::steal(record->sub_lang_frame);
    const Ref hook = Ref::steal(record->sub_lang_hook);
    record->sub_lang_frame = nullptr;
    record->sub_lang_hook = nullptr;
}

bool make_container(PyObject** slot, PyObject* (*create)()) {
    if (*slot == nullptr) {
        *slot = create();
    }
    return *slot != nullptr;
}

PyObject* new_list() { return PyList_New(0); }

// All of them are gone before any is released: that may run code which registers a hook.
void release_containers() {
    SubLanguages& current = state();
    const Ref pending = Ref::steal(std::exchange(current.pending, nullptr));
    const Ref marker_codes = Ref::steal(std::exchange(current.marker_codes, nullptr));
    const Ref module_paths = Ref::steal(std::exchange(current.module_paths, nullptr));
    const Ref key_codes = Ref::steal(std::exchange(current.key_codes, nullptr));
}

}  // namespace

void sub_languages_init() {
    state().registered = 0;
    hash_delete_table(&state().categories);
    hash_init(&state().categories, sizeof(PyCodeObject*));
    ask_everywhere();
    release_containers();
}

void sub_languages_reset() {
    const Ref pending = Ref::share(state().pending);
    for (Py_ssize_t i = 0; pending && i < PyList_GET_SIZE(pending.get()); ++i) {
        PyObject* const hook = PyList_GET_ITEM(pending.get(), i);
        for (Py_ssize_t j = PyList_GET_SIZE(pending.get()) - 1; j > i; --j) {
            // A reference is left at i: nothing is destroyed.
            if (PyList_GET_ITEM(pending.get(), j) == hook &&
                PyList_SetSlice(pending.get(), j, j + 1, nullptr) != 0) {
                drop_error("sub-language hooks that are registered twice");
                return;
            }
        }
    }
}

void forget_category(PyCodeObject* code) {
    HashEntry* const entry = hash_find(&state().categories, &code);
    if (entry != nullptr) {
        hash_delete_entry(entry);
    }
}

int register_sub_language_hook(PyObject* hook) {
    if (!make_container(&state().pending, new_list) ||
        !make_container(&state().marker_codes, PyDict_New) ||
        !make_container(&state().module_paths, PyDict_New) ||
        !make_container(&state().key_codes, PyDict_New)) {
        if (state().registered == 0) {
            const PendingErrorGuard keep_error;
            release_containers();
        }
        return -1;
    }
    if (PyList_Append(state().pending, hook) != 0) {
        return -1;
    }
    state().registered = 1;
    return 0;
}

void use_sub_language_hooks(bool on) {
    bp_forget_passed(&core.breakpoints);
    if (on && state().marker_codes != nullptr) {
        state().registered = 1;
        if (state().pending != nullptr) {
            set_up_pending();
        }
        enter_where_stack_is();
    }
    if (!on) {
        state().registered = 0;
        // What is released may run code, and change which threads there are.
        for (ThreadData* record = any_in_language(); record != nullptr;
             record = any_in_language()) {
            leave(record);
        }
    }
}

void track_sub_language(PyFrameObject* frame) {
    if (state().registered == 0) {
        return;
    }
    if (state().pending != nullptr) {
        set_up_pending();
    }
    const ThreadData* const record = thread_table_current(&core.threads);
    if (record == nullptr || record->sub_lang_frame != nullptr) {
        return;
    }
    const Ref hook = find(state().marker_codes, code_of(frame));
    enter(frame, hook.get());
}

void leave_sub_language_frame(PyFrameObject* frame) {
    ThreadData* const record = thread_table_current(&core.threads);
    if (record != nullptr && leaves_language(record, frame)) {
        leave(record);
    }
}

int refresh_key_frames(PyObject* hook) {
    if (state().key_codes == nullptr) {
        return 0;
    }
    const Ref held_hook = Ref::share(hook);
    const Ref key_codes = Ref::share(state().key_codes);
    const Ref codes = ask_for_list(hook, "_GetSubLanguageFrames");
    return codes && enter_codes(key_codes.get(), codes.get(), hook) ? 1 : 0;
}

FrameCategory sub_language_category(const ThreadData* record, PyFrameObject* frame) {
    const Ref hook = Ref::share(active_hook(record));
    if (!hook || !is_frame(frame)) {
        return kUnknownFrame;
    }
    if (find(state().key_codes, code_of(frame))) {
        return kKeyFrame;
    }
    const long category = implementation_category(hook.get(), frame);
    if (PyErr_Occurred() != nullptr) {
        drop_error("the category of a frame");
        return kUnknownFrame;
    }
    return category != 0 ? kHiddenFrame : kUnknownFrame;
}

bool is_implementation_frame(const ThreadData* record, PyFrameObject* frame) {
    const Ref hook = Ref::share(active_hook(record));
    const long category = hook ? implementation_category(hook.get(), frame) : 0;
    drop_error("the category of a frame");
    return category != 0;
}

Ref key_frame_hook(const ThreadData* record, PyFrameObject* frame) {
    Ref hook = Ref::share(active_hook(record));
    return hook && sub_language_category(record, frame) == kKeyFrame ? std::move(hook) : Ref();
}

bool is_hook_asked(const ThreadData* record, const PyFrameObject* frame, int event) {
    if (record == nullptr || record->stop_frame != nullptr || event == kStopAtException) {
        return true;
    }
    const PyCodeObject* const code = frame->f_code;
    switch (event) {
        case kStopAtCall:
            return is_asked_at(code, code->co_firstlineno);
        case kStopAtLine:
            return is_asked_at(code, frame->f_lineno);
        default:
            return is_asked_everywhere(code);
    }
}

bool sub_languages_need_calls() { return state().registered != 0 && state().pending != nullptr; }

bool sub_languages_need_events(const ThreadData* record) {
    return active_hook(record) != nullptr &&
           (record->stop_frame != nullptr || state().pending != nullptr);
}

MayAsk may_ask_hook(PyCodeObject* code) {
    if (state().registered == 0) {
        return MayAsk::kNotConcerned;
    }
    if (!find(state().key_codes, reinterpret_cast<PyObject*>(code))) {
        return MayAsk::kNotConcerned;
    }
    return is_asked_anywhere(code) ? MayAsk::kYes : MayAsk::kNo;
}

bool is_marker_code(PyCodeObject* code) {
    return state().registered != 0 && find(state().marker_codes, reinterpret_cast<PyObject*>(code));
}

bool leaves_language(const ThreadData* record, const PyFrameObject* frame) {
    return record->sub_lang_frame == reinterpret_cast<const PyObject*>(frame);
}

bool sub_language_stop_test(PyFrameObject* frame, int event) {
    const ThreadData* const record = thread_table_current(&core.threads);
    if (core.tracing == 0 || active_hook(record) == nullptr ||
        !is_hook_asked(record, frame, event)) {
        return false;
    }
    const Ref hook = find(state().key_codes, code_of(frame));
    if (!hook) {
        return false;
    }
    const int kind = step_kind();
    const Ref answer = call_method(hook.get(), "_StopHere", "Oii", as_object(frame), event, kind);
    const int stop = answer ? PyObject_IsTrue(answer.get()) : -1;
    drop_error("a stop of a sub-language");
    if (stop < 0) {
        return false;
    }
    return stop != 0 || check_breakpoints(frame, event) != 0;
}

}  // namespace morvik
