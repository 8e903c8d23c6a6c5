#include "tracercore/imports.h"

#include <cstring>

#include "bpops/resolution.h"
#include "conames.h"
#include "dbgcommon.h"
#include "dprintf.h"
#include "host/ref.h"
#include "tracercore/dispatch.h"
#include "tracercore/install.h"
#include "tracercore/rest.h"
#include "tracercore/state.h"
#include "tracercore/sublanguages.h"

namespace morvik {

namespace {

// An import is often the first thing that a new thread does.
void trace_importing_thread() {
    PyThreadState* const thread = current_thread_state();
    if (thread->c_tracefunc != nullptr || is_without_events(thread)) {
        return;
    }
    ThreadData* const record = thread_table_find(&core.threads, thread);
    if (record != nullptr) {
        record->trace_installed = false;  // the program took the trace function away
    }
    insert_into_thread(thread);
    set_trace_for_current_thread(1);
}

void count_imported_file(PyObject* module) {
    PyObject* const dict = PyModule_Check(module) ? PyModule_GetDict(module) : nullptr;
    PyObject* const file = dict != nullptr && code_names.file_key != nullptr
                               ? PyDict_GetItem(dict, code_names.file_key)
                               : nullptr;
    if (file != nullptr && PyString_Check(file)) {
        int is_new = 0;
        if (hash_create(&core.imported_files, PyString_AS_STRING(file), &is_new) == nullptr) {
            report_out_of_memory("a module file was not counted");
        }
    }
}

// An error that it leaves is set. False with an error set where it could not be called.
bool call_import_cb(PyObject* module) {
    if (core.import_cb_thread != kNoOwner || core.callbacks.import_cb == Py_None) {
        return true;
    }
    const Ref args = Ref::steal(PyTuple_Pack(1, module));
    if (!args) {
        return false;
    }
    const Ref callback = Ref::share(core.callbacks.import_cb);
    core.import_cb_thread = get_thread_ident();
    const Ref result = Ref::steal(PyObject_Call(callback.get(), args.get(), nullptr));
    const ThreadData* const record = thread_table_current(&core.threads);
    if (record != nullptr && record->sub_lang_hook != nullptr) {
        const PendingErrorGuard keep_callback_error;
        // What was imported may have brought new key code.
        refresh_key_frames(record->sub_lang_hook);
    }
    core.import_cb_thread = kNoOwner;
    return true;
}

// Those that switch stacks are known by a function of theirs.
bool switches_stacks(PyObject* module) {
    return module != nullptr && PyModule_Check(module) &&
           PyDict_GetItemString(PyModule_GetDict(module), "getcurrent") != nullptr;
}

// What the hook does after the import proper, with this thread's events held back.
void follow_import(PyObject* module) {
    PyThreadState* const thread = current_thread_state();
    add_to_tracing(thread, 1);
    if (module != nullptr) {
        notice_stack_switches();
        resolve_module(&core.breakpoints, module);
        if (!call_import_cb(module)) {
            drop_error("import_cb was not called");
        }
    } else {
        dprintf(kLogCore, "IMPORT HOOK returning NULL\n");
        dprintf_exception();
        dprintf(kLogCore, "\n");
    }
    add_to_tracing(thread, -1);
}

void register_loaded_modules(FirstError* errors) {
    const Ref modules = Ref::steal(PyObject_GetAttrString(core.sys_module, "modules"));
    const Ref values = modules ? call_method(modules.get(), "values", nullptr) : Ref();
    const Ref list = values ? Ref::steal(PySequence_List(values.get())) : Ref();
    if (!list) {
        if (PyErr_Occurred() == PyExc_MemoryError) {
            errors->collect();
        }
        PyErr_Clear();
        return;
    }
    dprintf(kLogCore, "INITIAL MODULE SCAN: %i PREVIOUSLY LOADED MODULES",
            static_cast<int>(PyList_GET_SIZE(list.get())));
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list.get()); ++i) {
        PyObject* const module = PyList_GET_ITEM(list.get(), i);
        if (PyModule_Check(module)) {
            register_module(module);
            errors->collect();
        }
    }
}

void register_main_script() {
    const Ref argv = Ref::steal(PyObject_GetAttrString(core.sys_module, "argv"));
    const Ref script = argv && PySequence_Size(argv.get()) > 0
                           ? Ref::steal(PySequence_GetItem(argv.get(), 0))
                           : Ref();
    if (script) {
        resolve_and_register(&code_names, nullptr, script.get(), nullptr);
        const char* const name = string_chars(script.get());
        __tracer_resolve_bp_filenames(&core.breakpoints, name);
    }
    drop_error("the main script's name was not registered");
}

}  // namespace

void install_import_hook() {
    dprintf(kLogCore, "********************* INSTALLING TRACE HOOK ***********************\n");
    if (core.import_hook != nullptr) {
        dprintf(kLogCore, "NOT INSTALLING TRACE HOOK\n");
        return;
    }
    const Ref hook = Ref::steal(PyObject_GetAttrString(core.module, "__import__"));
    if (!hook) {
        if (PyErr_Occurred() == PyExc_AttributeError) {
            PyErr_Clear();
        }
        return;
    }
    const Ref module_name = Ref::steal(PyString_FromString("__builtin__"));
    if (!module_name || PyObject_SetAttrString(hook.get(), "__module__", module_name.get()) != 0) {
        return;
    }
    const int order = PyObject_Compare(hook.get(), core.callbacks.default_import);
    if (PyErr_Occurred() != nullptr) {
        return;
    }
    if (order == 0) {
        PyErr_SetString(PyExc_AssertionError,
                        "The default import hook cannot be equal to our import hook");
        return;
    }
    const PyFrameObject* const frame = current_thread_state()->frame;
    if (frame != nullptr &&
        PyDict_SetItemString(frame->f_builtins, "__import__", hook.get()) != 0) {
        return;
    }
    set_slot(core.import_hook, hook.get());
    if (frame == nullptr) {
        dprintf(kLogCore, "Did not install __import__ hook: no PyFrame found\n");
    }
    dprintf(kLogCore, "********************* DONE INSTALLING TRACE HOOK ***********************\n");
}

PyObject* import_through_hook(PyObject* args, PyObject* keywords) {
    const ErrnoGuard keep_errno;
    ++core.import_hook_calls;
    const bool was_tracing = core.tracing != 0;
    if (was_tracing) {
        trace_importing_thread();
    }
    const Ref import = Ref::share(core.callbacks.default_import);
    ++core.import_hook_depth;
    Ref module = Ref::steal(PyObject_Call(import.get(), args, keywords));
    --core.import_hook_depth;
    if (module) {
        count_imported_file(module.get());
    }
    if (was_tracing && core.tracing != 0) {
        follow_import(module.get());
    }
    return module.release();
}

const char* register_module(PyObject* module) {
    call_import_cb(module);
    if (!PyModule_Check(module)) {
        return nullptr;
    }
    const PendingErrorGuard keep_callback_error;
    const char* const file =
        resolve_and_register(&code_names, PyModule_GetDict(module), nullptr, nullptr);
    resolve_module(&core.breakpoints, module);
    return file;
}

void scan_loaded_modules() {
    FirstError errors;
    register_loaded_modules(&errors);
    register_main_script();
}

void notice_stack_switches() {
    if (!core.stacks_switch &&
        switches_stacks(PyDict_GetItemString(PyImport_GetModuleDict(), "greenlet"))) {
        core.stacks_switch = true;
        rest_no_more();
    }
    drop_error("whether greenlet is loaded was not found out");
}

int register_module_code(PyFrameObject* frame) {
    if (!is_frame(frame)) {
        return 0;
    }
    PyCodeObject* const code = frame->f_code;
    if (registered_pathname(&code_names, code) == nullptr) {
        if (PyErr_Occurred() != nullptr) {
            return -1;
        }
        resolve_and_register(&code_names, frame->f_globals, code->co_filename, code);
    }
    return __tracer_detect_module_reloads(code);
}

int __tracer_detect_module_reloads(PyCodeObject* code) {
    const char* const file = registered_pathname(&code_names, code);
    dprintf(kLogCore, "MODULE RELOAD DETECTION: %s\n", text_or_null(file));
    if (file == nullptr && PyErr_Occurred() != nullptr) {
        dprintf(kLogCore, "Exception occurred in __tracer_detect_module_reloads\n");
        return -1;
    }
    const char* const name = object_text(code->co_name);
    if (strcmp(name, "<module>") != 0 && strcmp(name, "?") != 0) {
        dprintf(kLogCore, "NON-BLANK/UNKNOWN CODE NAME: %s\n", name);
        return 0;
    }
    if (file == nullptr) {
        dprintf(kLogCore, "NULL FILE NAME\n");
        return 0;
    }
    if (is_pseudo_name(file)) {
        dprintf(kLogCore, "PSEUDO FILE NAME\n");
        return 0;
    }
    const Ref path = Ref::steal(PyString_FromString(file));
    if (!path) {
        return -1;
    }
    // Making the list may run code that makes it, too.
    const Ref fresh = core.new_imports == nullptr ? Ref::steal(PyList_New(0)) : Ref();
    if (core.new_imports == nullptr) {
        set_slot(core.new_imports, fresh.get());
    }
    if (core.new_imports == nullptr || PyList_Append(core.new_imports, path.get()) != 0) {
        return -1;
    }
    dprintf(kLogCore, "ADDED TO MODULE LIST\n");
    return 0;
}

PyObject* take_new_imports() {
    if (core.new_imports == nullptr) {
        return PyList_New(0);
    }
    PyObject* const taken = core.new_imports;
    core.new_imports = nullptr;
    return taken;
}

}  // namespace morvik
