#include "threadops.h"

#include <cstdlib>

#include "dbgcommon.h"
#include "dprintf.h"
#include "host/ref.h"

namespace morvik {

namespace {

using ThreadIdentFunction = long (*)();
ThreadIdentFunction thread_ident_function = nullptr;

void forget_last(ThreadTable* table) {
    table->last_key = nullptr;
    table->last_record = nullptr;
}

}  // namespace

void thread_table_init(ThreadTable* table) {
    hash_init(&table->records, sizeof(PyThreadState*));
    forget_last(table);
}

void thread_table_clear(ThreadTable* table) {
    forget_last(table);
    HashSearch search;
    // Freeing a record can run Python code, which may add or remove others: always start over
    // from what is in the table now.
    while (HashEntry* const entry = hash_first(&table->records, &search)) {
        auto* const record = static_cast<ThreadData*>(hash_get_value(entry));
        hash_delete_entry(entry);
        forget_last(table);
        thread_data_free(record);
    }
    hash_delete_table(&table->records);
    thread_table_init(table);
}

ThreadData* thread_table_look_up(ThreadTable* table, PyThreadState* thread) {
    HashEntry* const entry = hash_find(&table->records, &thread);
    if (entry == nullptr) {
        return nullptr;
    }
    table->last_key = thread;
    table->last_record = static_cast<ThreadData*>(hash_get_value(entry));
    return table->last_record;
}

ThreadData* thread_table_current(ThreadTable* table) {
    PyThreadState* const thread = current_thread_state();
    ThreadData* const record = thread_table_find(table, thread);
    if (record != nullptr) {
        record->thread_ident = thread->thread_id;
    }
    return record;
}

ThreadData* thread_table_get_or_add(ThreadTable* table, PyThreadState* thread) {
    ThreadData* record = thread_table_find(table, thread);
    if (record != nullptr) {
        return record;
    }
    record = thread_data_new(thread);
    int is_new = 0;
    HashEntry* const entry =
        record != nullptr ? hash_create(&table->records, &thread, &is_new) : nullptr;
    if (entry == nullptr) {
        out_of_memory();
        if (record != nullptr) {
            thread_data_free(record);
        }
        return nullptr;
    }
    hash_set_value(entry, record);
    return record;
}

void thread_table_remove(ThreadTable* table, PyThreadState* thread) {
    HashEntry* const entry = hash_find(&table->records, &thread);
    if (entry == nullptr) {
        return;
    }
    auto* const record = static_cast<ThreadData*>(hash_get_value(entry));
    hash_delete_entry(entry);
    forget_last(table);
    thread_data_free(record);
}

ThreadData* thread_data_new(PyThreadState* thread) {
    auto* const record = static_cast<ThreadData*>(calloc(1, kRecordBytes));
    if (record == nullptr) {
        return nullptr;
    }
    record->tstate_id = static_cast<int32_t>(reinterpret_cast<intptr_t>(thread));
    record->thread_ident = thread->thread_id;
    record->thread_name = new_none();
    record->bot_frame = new_none();
    record->return_frame = new_none();
    record->curr_frame = new_none();
    record->line_first = -1;
    record->line_last = -1;
    return record;
}

void thread_data_free(ThreadData* record) {
    clear_slot(record->bot_frame);
    clear_slot(record->stop_frame);
    clear_slot(record->return_frame);
    clear_slot(record->curr_frame);
    clear_slot(record->thread_name);
    clear_slot(record->sub_lang_frame);
    clear_slot(record->sub_lang_hook);
    clear_slot(record->pending_exc);
    returned_calls_free(record->returned);
    free(record);
}

PyObject* tstate_id_from_tstate(const PyThreadState* thread) {
    return PyInt_FromLong(static_cast<int32_t>(reinterpret_cast<intptr_t>(thread)));
}

PyThreadState* tstate_from_tstate_id(PyObject* tstate_id) {
    const auto key = static_cast<intptr_t>(static_cast<int32_t>(PyInt_AsLong(tstate_id)));
    return reinterpret_cast<PyThreadState*>(key);
}

void thread_ident_init() {
    void* const function = python_library_symbol("PyThread_get_thread_ident");
    thread_ident_function = reinterpret_cast<ThreadIdentFunction>(function);
    dprintf(kLogCore, "Thread ident function is %p\n", function);
    if (function == nullptr) {
        PyErr_Clear();
    }
}

long get_thread_ident() { return thread_ident_function != nullptr ? thread_ident_function() : 1; }

PyThread_type_lock dbg_lock_new() { return PyThread_allocate_lock(); }

int dbg_lock_acquire(PyThread_type_lock lock, int wait) {
    if (lock == nullptr) {
        return 1;
    }
    const ErrnoGuard keep_errno;
    int acquired = PyThread_acquire_lock(lock, NOWAIT_LOCK);
    if (acquired == 0 && wait != 0) {
        PyThreadState* const thread = PyEval_SaveThread();
        acquired = PyThread_acquire_lock(lock, WAIT_LOCK);
        PyEval_RestoreThread(thread);
    }
    return acquired;
}

void dbg_lock_release(PyThread_type_lock lock) {
    if (lock != nullptr) {
        const ErrnoGuard keep_errno;
        PyThread_release_lock(lock);
    }
}

}  // namespace morvik
