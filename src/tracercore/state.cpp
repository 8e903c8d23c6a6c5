#include "tracercore/state.h"

#include "bpops/matching.h"
#include "dbgcommon.h"
#include "dprintf.h"
#include "host/ref.h"
#include "platform/platform.h"
#include "tracercore/asked_lines.h"
#include "tracercore/imports.h"
#include "tracercore/install.h"
#include "tracercore/passed_code.h"
#include "tracercore/pulse.h"
#include "tracercore/rest.h"
#include "tracercore/sublanguages.h"
#include "tracercore/watching.h"

namespace morvik {

CoreState core;

namespace {

constexpr int kIdleCheckInterval = 10;

// Keeps an object that the debug server gave. A different one that was kept before is left
// referenced: one of the program's threads may be running in it. The same one is kept once,
// however often it is given.
void keep(PyObject*& slot, PyObject* object) {
    if (slot != object) {
        Py_INCREF(object);
        slot = object;
    }
}

void keep_callbacks(const Callbacks& given) {
    Callbacks& kept = core.callbacks;
    keep(kept.install_thread_hooks_cb, given.install_thread_hooks_cb);
    keep(kept.idle_cb, given.idle_cb);
    keep(kept.line_cb, given.line_cb);
    keep(kept.return_cb, given.return_cb);
    keep(kept.exception_cb, given.exception_cb);
    keep(kept.quit_cb, given.quit_cb);
    keep(kept.import_cb, given.import_cb);
    // A server that runs init() again finds the hook where it found the interpreter's own import
    // function the first time; calling on itself, the hook would import nothing ever again.
    if (core.import_hook == nullptr || given.default_import != core.import_hook) {
        keep(kept.default_import, given.default_import);
    }
    keep(kept.internal_modules_map, given.internal_modules_map);
}

// A mutex that a thread holds already stays its own: it gives it back when its event is over.
bool make_mutex() {
    if (core.mutex == nullptr) {
        core.mutex = dbg_lock_new();
        core.mutex_owner = kNoOwner;
    }
    if (core.mutex == nullptr) {
        out_of_memory();
    }
    return core.mutex != nullptr;
}

// What another thread holds, or is about to hold, or runs would never be given back or end here,
// where that thread is not.
void forget_other_threads_in_child() {
    const long ident = get_thread_ident();
    if (core.mutex_owner != ident) {
        core.mutex = dbg_lock_new();
        core.mutex_owner = kNoOwner;
    }
    if (core.idle_thread != ident) {
        core.idle_thread = kNoOwner;
    }
    if (core.import_cb_thread != ident) {
        core.import_cb_thread = kNoOwner;
    }
    pulse_forget();
    PyThreadState* const thread = current_thread_state();
    if (thread != nullptr && thread->thread_id == ident) {
        wake_thread(thread);  // to begin anew with all of that
    }
}

// Fetches an attribute into an owning slot. False with an error set.
bool fetch_attribute(PyObject*& slot, PyObject* object, const char* name) {
    const Ref value = Ref::steal(PyObject_GetAttrString(object, name));
    if (value) {
        set_slot(slot, value.get());
    }
    return static_cast<bool>(value);
}

// The same for one that a program may have taken away; the slot is empty then.
bool fetch_if_there(PyObject*& slot, PyObject* object, const char* name) {
    if (!fetch_attribute(slot, object, name)) {
        if (PyErr_Occurred() != PyExc_AttributeError) {
            return false;
        }
        PyErr_Clear();
        clear_slot(slot);
    }
    return true;
}

bool fetch_objects(PyObject* module, PyObject* trace_dispatch) {
    set_slot(core.module, module);
    set_slot(core.trace_dispatch, trace_dispatch);
    const Ref sys_module = Ref::steal(PyImport_ImportModule("sys"));
    if (!sys_module) {
        return false;
    }
    set_slot(core.sys_module, sys_module.get());
    return fetch_if_there(core.sys_settrace, sys_module.get(), "settrace") &&
           fetch_if_there(core.sys_exc_info, sys_module.get(), "exc_info");
}

// What could not be made when the module was imported.
bool complete_module() {
    if (out_of_memory_init() != 0) {
        return false;
    }
    if (code_names.path_cache == nullptr) {
        code_names.path_cache = path_cache_new();
    }
    if (code_names.path_cache == nullptr) {
        out_of_memory();
        return false;
    }
    return registry_complete(&code_names) == 0;
}

// Another code object may get its address.
void forget_code(PyCodeObject* code) {
    forget_category(code);
    pass_code_no_more(code);
    ask_at_all_lines(code);
    bp_forget_passed(&core.breakpoints);
}

// A category, once found out, stays the code object's.
void forget_name(PyCodeObject* /*code*/) { bp_widen(&core.breakpoints); }

bool init_breakpoints() {
    code_names.let_go = forget_code;
    code_names.renamed = forget_name;
    core.breakpoints.widened = wake_all_threads;
    if (core.initialised) {
        bp_table_reset(&core.breakpoints, &code_names);
    } else {
        bp_table_init(&core.breakpoints, &code_names);
    }
    if (core.breakpoints.file_key == nullptr) {
        out_of_memory();
    }
    return core.breakpoints.file_key != nullptr;
}

void clear_exception_policy() {
    clear_slot(core.always_stop_excepts);
    clear_slot(core.never_stop_excepts);
    clear_slot(core.ignored_handlers);
}

void reset_policies() {
    core.autoquit = 1;
    core.debug_all_threads = 1;
    clear_slot(core.debug_thread_cb);
    forget_watch();
    core.notes_returns = false;
    clear_thread_policies();
}

}  // namespace

int core_init(const CoreSettings& settings) {
    const Ref trace_dispatch =
        Ref::steal(PyObject_GetAttrString(settings.module, "trace_dispatch"));
    if (!trace_dispatch) {
        return 0;
    }
    wake_all_threads();
    dprintf_set_file(settings.debug_stream);
    dprintf(kLogCore, "INIT CORE\n");
    core.tracing = 0;
    core.idle_period = settings.idle_period;
    core.idle_thread = kNoOwner;
    core.exception_mode = settings.exception_mode;
    keep_callbacks(settings.callbacks);
    if (core.initialised) {
        thread_table_clear(&core.threads);
    } else {
        thread_table_init(&core.threads);
    }
    if (!make_mutex() || !complete_module() ||
        !fetch_objects(settings.module, trace_dispatch.get())) {
        return 0;
    }
    rest_init();
    reset_policies();
    core.idle_event_count = 0;
    core.idle_check_interval = kIdleCheckInterval;
    core.next_idle_time = 0;
    clear_exception_policy();
    if (!init_breakpoints()) {
        return 0;
    }
    exception_locs_clear(&core.ignored_locations);
    catch_info_store_clear(&core.catch_info);
    clear_slot(core.catch_info.catch_dict);
    clear_slot(core.new_imports);
    core.import_cb_thread = kNoOwner;
    core.import_hook_depth = 0;
    hash_delete_table(&core.imported_files);
    hash_init(&core.imported_files, kStringKeys);
    sub_languages_init();
    core.event_count = 0;
    core.import_hook_calls = 0;
    core.pending_raise_count = 0;
    if (!core.initialised) {
        call_in_forked_child(forget_other_threads_in_child);
    }
    core.initialised = true;
    install_import_hook();
    return 1;
}

void core_reset() {
    __tracer_stop_trace();
    const PendingErrorGuard keep_hooks_error;
    dprintf(kLogCore, "RESET THREAD TABLE\n");
    thread_table_clear(&core.threads);
    core.pending_raise_count = 0;
    exception_locs_clear(&core.ignored_locations);
    bp_table_reset(&core.breakpoints, &code_names);
    pass_no_code();
    clear_slot(core.new_imports);
    reset_policies();
    clear_exception_policy();
    catch_info_store_clear(&core.catch_info);
    sub_languages_reset();
}

void core_destroy() {
    dprintf(kLogCore, "DESTROY REACHED\n");
    core_reset();
}

int acquire_sorrel_mutex() {
    const long ident = get_thread_ident();
    if (core.mutex_owner == ident) {
        return 0;
    }
    const int acquired = dbg_lock_acquire(core.mutex, WAIT_LOCK);
    if (acquired != 0) {
        core.mutex_owner = ident;
    }
    return acquired;
}

void release_sorrel_mutex() {
    if (core.mutex_owner == get_thread_ident()) {
        // Once the lock is free another thread may own it at any moment.
        core.mutex_owner = kNoOwner;
        dbg_lock_release(core.mutex);
    }
}

void discard_callback_error() {
    dprintf_exception();
    PyErr_Clear();
}

int check_breakpoints(PyFrameObject* frame, int event) {
    const ThreadData* const record = thread_table_current(&core.threads);
    const Ref hook = key_frame_hook(record, frame);
    if (hook && !is_hook_asked(record, frame, event)) {
        return 0;
    }
    return bp_check(&core.breakpoints, event, hook.get(), frame, 1);
}

void clear_thread_policies() {
    core.last_debugged = kNoOwner;
    hash_delete_table(&core.debug_thread_map);
    hash_init(&core.debug_thread_map, sizeof(long));
    wake_all_threads();
}

void forget_thread(PyThreadState* thread) {
    const ThreadData* const record = thread_table_find(&core.threads, thread);
    if (record != nullptr && record->pending_exc != nullptr) {
        --core.pending_raise_count;
    }
    thread_table_remove(&core.threads, thread);
}

}  // namespace morvik
