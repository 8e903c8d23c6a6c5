// What the debugger knows of each thread of the program, the ids by which Python code names
// threads, and the lock functions. All need the interpreter lock, which is their only lock.
#ifndef MORVIK_THREADOPS_H
#define MORVIK_THREADOPS_H

#include <cstddef>
#include <cstdint>

#include "hashtable.h"
#include "host/python.h"
#include "returned_calls.h"

namespace morvik {

// One thread's record, owned by the thread table. Every object field holds a reference of its
// own; where nullptr is not mentioned a field is never nullptr.
struct ThreadData {
    bool frames_hooked;        // every frame on the stack carries the trace function, but for those
                               // in which the thread rests
    bool trace_installed;      // the thread is traced by the core
    bool exiting_on_exc;       // an exception was seen leaving bot_frame
    int32_t tstate_id;         // the id handed to Python: low 32 bits of the thread state's address
    long thread_ident;         // the interpreter's ident of the thread
    PyObject* thread_name;     // name of the thread's main function, None if unknown; nullptr
                               // only while the thread is being hooked
    PyObject* bot_frame;       // the bottom traced frame; None if unknown
    PyObject* stop_frame;      // nullptr: run freely; None: stop at the next event; a frame: stop
                               // in it, or once it has been left
    PyObject* return_frame;    // the frame whose return stops, or None
    PyObject* curr_frame;      // the frame of the event at hand, None between events
    int line_first;            // inclusive range of lines of stop_frame that are stepped over;
    int line_last;             // -1, -1 for none
    PyObject* sub_lang_frame;  // the frame that activated the hook, or nullptr
    PyObject* sub_lang_hook;   // the active sub-language hook, or nullptr
    PyObject* pending_exc;     // exception to raise at the next event, or nullptr
    ReturnedCalls* returned;   // owned; nullptr before the first step that they are wanted of

    // Frames that are borrowed: they go from here with their return events. nullptr for none.
    PyFrameObject* in_step;    // one on the stack that stop_frame was found to have called, if not
                               // directly
    PyFrameObject* step_base;  // the outermost one of the stack, of those that the thread switches
                               // between, that the step request is for; nullptr for any
    PyFrameObject* woken_frame;  // the one in whose midst the thread got its events back, until its
                                 // next line event
    PyFrameObject* unwound_frame;  // one that runs its handlers for an exception which they may not
                                   // take, up to the block whose handlers do

    int16_t unwound_to;   // the index of that block; -1 for none
    bool woken_may_jump;  // whether woken_frame may have gone on anywhere
    bool passes_code;     // stop_frame is None, but not in code that steps pass
    int woken_at;         // the offset at which it was then
    int last_tick;        // how much the interpreter had done in the thread at the last beat
    unsigned last_beat;   // the number of that beat; 0 for none
    size_t event_number;  // how many events were handled that may have needed a hook's answer
};

// The blocks that records are in. 2.6 writes into the freed state of a thread that has ended when a
// generator that was made there is traced in another one: no record is to be in a block of that
// size.
constexpr size_t kRecordBytes = 2 * sizeof(PyThreadState);
static_assert(sizeof(ThreadData) <= kRecordBytes, "a record does not fit in its block");

struct ThreadTable {
    HashTable records;             // thread-state address to ThreadData
    PyThreadState* last_key = {};  // the record found last: nearly every look-up is by the thread
    ThreadData* last_record = {};  // that is running anyway
};

// An empty, initialised table; records it may hold are forgotten, not freed.
void thread_table_init(ThreadTable* table);
// Frees every record and initialises the table again.
void thread_table_clear(ThreadTable* table);

// The record of a thread state, or nullptr. Sets no error. The key need not be a live thread
// state: it is not read.
ThreadData* thread_table_look_up(ThreadTable* table, PyThreadState* thread);
inline ThreadData* thread_table_find(ThreadTable* table, PyThreadState* thread) {
    return thread == table->last_key && thread != nullptr ? table->last_record
                                                          : thread_table_look_up(table, thread);
}

// The calling thread's record, its ident brought up to date, or nullptr. Sets no error.
ThreadData* thread_table_current(ThreadTable* table);

// The existing or a new record; nullptr with MemoryError set.
ThreadData* thread_table_get_or_add(ThreadTable* table, PyThreadState* thread);

// Frees a thread state's record, if it has one. May run Python code (destructors).
void thread_table_remove(ThreadTable* table, PyThreadState* thread);

// A record with its initial values, or nullptr when out of memory (no error set).
ThreadData* thread_data_new(PyThreadState* thread);
// Releases what the record holds and frees it. May run Python code (destructors).
void thread_data_free(ThreadData* record);

// New reference to the int that names a thread to Python.
PyObject* tstate_id_from_tstate(const PyThreadState* thread);
// The table key for such an int, sign-extended from 32 bits: a thread state that lies higher is
// not found again. Anything but an int gives a key that finds nothing, with TypeError set.
PyThreadState* tstate_from_tstate_id(PyObject* tstate_id);

// Finds the interpreter's thread-identity function; called once, when the module is imported.
void thread_ident_init();
// The calling thread's ident, as thread.get_ident() gives it; 1 when the interpreter has no such
// function.
long get_thread_ident();

// Locks of the interpreter. A nullptr lock is always free. errno is kept.
PyThread_type_lock dbg_lock_new();
// 1 if acquired, 0 if not. Waiting releases the interpreter lock, so that the holder can run.
int dbg_lock_acquire(PyThread_type_lock lock, int wait);
void dbg_lock_release(PyThread_type_lock lock);

}  // namespace morvik

#endif
