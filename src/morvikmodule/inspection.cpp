// Entry points that look at threads and frames and adjust a thread's state.
#include "conames.h"
#include "dbgcommon.h"
#include "host/ref.h"
#include "morvikmodule/entry_points.h"
#include "tracercore/install.h"
#include "tracercore/rest.h"
#include "tracercore/state.h"

namespace morvik {

namespace {

// The record of the thread that argument 0 names; nullptr where there is none, with an error set
// when the argument is no thread's id at all.
ThreadData* named_record(PyObject* args) {
    PyObject* const id = argument(args, 0);
    return id != nullptr ? thread_table_find(&core.threads, tstate_from_tstate_id(id)) : nullptr;
}

PyObject* new_reference(PyObject* object) {
    Py_INCREF(object);
    return object;
}

PyFrameObject* parse_frame(PyObject* args, const char* format) {
    PyObject* frame = nullptr;
    return PyArg_ParseTuple(args, format, &PyFrame_Type, &frame) != 0 ? as_frame(frame) : nullptr;
}

}  // namespace

PyObject* entry_get_threads(PyObject* /*self*/, PyObject* /*args*/) {
    Ref ids = Ref::steal(PyList_New(0));
    if (!ids) {
        return out_of_memory();
    }
    HashSearch search;
    for (HashEntry* entry = hash_first(&core.threads.records, &search); entry != nullptr;
         entry = hash_next(&search)) {
        const auto* const record = static_cast<const ThreadData*>(hash_get_value(entry));
        const Ref id = Ref::steal(PyInt_FromLong(record->tstate_id));
        if (!id || PyList_Append(ids.get(), id.get()) != 0) {
            return out_of_memory();
        }
    }
    return ids.release();
}

PyObject* entry_get_curr_frame(PyObject* /*self*/, PyObject* args) {
    const ThreadData* const record = named_record(args);
    if (record == nullptr) {
        PyErr_SetString(PyExc_IndexError, "get_curr_frame called for unknown or terminated thread");
        return nullptr;
    }
    return new_reference(record->curr_frame);
}

PyObject* entry_get_thread_name(PyObject* /*self*/, PyObject* args) {
    const ThreadData* const record = named_record(args);
    if (record == nullptr || record->thread_name == nullptr) {
        return none_unless_error();
    }
    return new_reference(record->thread_name);
}

PyObject* entry_sub_language_get_active_hook(PyObject* /*self*/, PyObject* args) {
    const ThreadData* const record = named_record(args);
    if (core.sub_languages.registered == 0 || record == nullptr ||
        record->sub_lang_hook == nullptr) {
        return none_unless_error();
    }
    return new_reference(record->sub_lang_hook);
}

PyObject* entry_sub_language_get_frame_category(PyObject* /*self*/, PyObject* args) {
    PyObject* const frame = argument(args, 1);
    // What stands for the id may run code, which is not to run with an error pending.
    const ThreadData* const record = frame != nullptr ? named_record(args) : nullptr;
    if (PyErr_Occurred() != nullptr) {
        return nullptr;
    }
    return PyInt_FromLong(sub_language_category(record, as_frame(frame)));
}

PyObject* entry_is_botframe(PyObject* /*self*/, PyObject* args) {
    PyObject* const frame = argument(args, 0);
    if (frame == nullptr) {
        return nullptr;
    }
    const ThreadData* const record = thread_table_current(&core.threads);
    return PyInt_FromLong(record != nullptr && record->bot_frame == frame);
}

PyObject* entry_get_tracing(PyObject* /*self*/, PyObject* args) {
    if (PyArg_ParseTuple(args, ":get_tracing") == 0) {
        return nullptr;
    }
    return PyInt_FromLong(core.threads.records.num_entries > 0);
}

PyObject* entry_add_to_tstate_tracing(PyObject* /*self*/, PyObject* args) {
    int value = 0;
    if (PyArg_ParseTuple(args, "i:add_to_tstate_tracing", &value) == 0) {
        return nullptr;
    }
    add_to_tracing(current_thread_state(), value);
    ThreadData* const record = thread_table_find(&core.threads, current_thread_state());
    if (record != nullptr) {
        record->in_step = nullptr;  // frames may end unseen
    }
    return new_none();
}

PyObject* entry_get_tstate_tracing(PyObject* /*self*/, PyObject* args) {
    if (PyArg_ParseTuple(args, ":get_tstate_tracing") == 0) {
        return nullptr;
    }
    return PyInt_FromLong(current_thread_state()->tracing);
}

PyObject* entry_set_tstate_use_tracing(PyObject* /*self*/, PyObject* args) {
    int value = 0;
    if (PyArg_ParseTuple(args, "i:set_tstate_use_tracing", &value) == 0) {
        return nullptr;
    }
    current_thread_state()->use_tracing = value;
    return new_none();
}

PyObject* entry_get_tstate_use_tracing(PyObject* /*self*/, PyObject* args) {
    if (PyArg_ParseTuple(args, ":get_tstate_use_tracing") == 0) {
        return nullptr;
    }
    return PyInt_FromLong(current_thread_state()->use_tracing);
}

PyObject* entry_acquire_sorrel_mutex(PyObject* /*self*/, PyObject* args) {
    if (PyArg_ParseTuple(args, ":acquire_sorrel_mutex") == 0) {
        return nullptr;
    }
    const int acquired = acquire_sorrel_mutex();
    wake_all_threads();  // to wait for it at their next events
    return PyInt_FromLong(acquired);
}

PyObject* entry_release_sorrel_mutex(PyObject* /*self*/, PyObject* args) {
    if (PyArg_ParseTuple(args, ":release_sorrel_mutex") == 0) {
        return nullptr;
    }
    release_sorrel_mutex();
    return new_none();
}

PyObject* entry_raise_exception(PyObject* /*self*/, PyObject* args) {
    ThreadData* record = own_record();
    if (record == nullptr) {
        return nullptr;
    }
    // The exception is always the calling thread's, whatever thread is named: the debug server
    // calls from the thread that is stopped.
    long thread_id = 0;
    PyObject* exception = nullptr;
    if (PyArg_ParseTuple(args, "lO:raise_exception", &thread_id, &exception) == 0) {
        return nullptr;
    }
    if (exception != Py_None && !PyExceptionInstance_Check(exception) &&
        !PyExceptionClass_Check(exception)) {
        return PyErr_Format(PyExc_TypeError,
                            "exceptions must be old-style classes or derived from BaseException, "
                            "not %s",
                            Py_TYPE(exception)->tp_name);
    }
    // What stands for the id may have run code that dropped the record.
    record = own_record();
    if (record == nullptr) {
        return nullptr;
    }
    const Ref old = Ref::steal(record->pending_exc);
    record->pending_exc = nullptr;
    if (old) {
        --core.pending_raise_count;
    }
    if (exception != Py_None) {
        record->pending_exc = new_reference(exception);
        ++core.pending_raise_count;
        wake_thread(current_thread_state());
    }
    return new_none();
}

PyObject* entry_locals_to_fast(PyObject* /*self*/, PyObject* args) {
    PyFrameObject* const frame = parse_frame(args, "O!:locals_to_fast");
    if (frame == nullptr) {
        return nullptr;
    }
    PyFrame_LocalsToFast(frame, 0);
    return new_none();
}

PyObject* entry_get_frame_file(PyObject* /*self*/, PyObject* args) {
    PyFrameObject* const frame = parse_frame(args, "O!:get_frame_file");
    if (frame == nullptr) {
        return nullptr;
    }
    const unsigned shortages = out_of_memory_count();
    const char* const file = LookupCOPathname(&code_names, frame);
    if (out_of_memory_count() != shortages) {
        return out_of_memory();  // what was found may be a poorer name
    }
    return file != nullptr ? PyString_FromString(file) : new_none();
}

PyObject* entry_get_current_tstate_id(PyObject* /*self*/, PyObject* args) {
    if (PyArg_ParseTuple(args, ":get_current_tstate_id") == 0) {
        return nullptr;
    }
    return tstate_id_from_tstate(current_thread_state());
}

PyObject* entry_get_thread_ident_for_tstate_id(PyObject* /*self*/, PyObject* args) {
    PyObject* id = nullptr;
    if (PyArg_ParseTuple(args, "O:get_thread_ident_for_tstate_id", &id) == 0) {
        return nullptr;
    }
    const ThreadData* const record = thread_table_find(&core.threads, tstate_from_tstate_id(id));
    return record != nullptr ? PyInt_FromLong(record->thread_ident) : none_unless_error();
}

PyObject* entry_is_internal_frame(PyObject* /*self*/, PyObject* args) {
    PyFrameObject* const frame = parse_frame(args, "O!:is_internal_frame");
    if (frame == nullptr) {
        return nullptr;
    }
    const int internal = is_internal_frame(frame);
    return internal >= 0 ? PyInt_FromLong(internal) : nullptr;
}

}  // namespace morvik
