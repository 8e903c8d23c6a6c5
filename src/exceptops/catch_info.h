// Where the program catches exceptions at an outer level and prints them itself, as the debug
// server describes it, and the exception last seen in each frame that is still of interest.
//
// A catch-info instance is any object with the attributes co_name, mod_name, containing_class,
// prints and parent. Its attributes may run Python code, which may change the list. Needs the
// interpreter lock.
#ifndef MORVIK_EXCEPTOPS_CATCH_INFO_H
#define MORVIK_EXCEPTOPS_CATCH_INFO_H

#include "host/python.h"
#include "host/ref.h"

namespace morvik {

struct CatchInfoStore {
    PyObject* frame_exc_info;  // frame to its last (type, value, traceback); nullptr when empty
    uintptr_t settled;         // fingerprint of its frames' reference counts when pruning last
                               // found none to drop; 0 for none
    PyObject* catch_dict;      // code name to the list of its instances; nullptr for none
    // Attribute names, each nullptr until first needed.
    PyObject* co_name;
    PyObject* mod_name;
    PyObject* prints;
    PyObject* parent;
    PyObject* name;  // "__name__"
    PyObject* containing_class;
};

// Replaces the list. 0, or -1 with an error set: the instances before the bad one then stand.
int set_catch_info_list(CatchInfoStore* store, PyObject* list);

// The first instance that describes the frame's function, or nothing. Sets no error.
Ref find_catch_info(CatchInfoStore* store, PyFrameObject* frame);

// 0, or -1 with an error set.
int get_prints_and_parent(CatchInfoStore* store, PyObject* instance, int* prints, int* parent);

// Whether an exception that reaches this frame is printed here, or by its caller: 1 or 0. Sets no
// error.
int frame_prints_exc(CatchInfoStore* store, PyFrameObject* frame);
int frame_parent_prints_exc(CatchInfoStore* store, PyFrameObject* frame);

// Remembers the exception seen in a frame. 0, or -1 with an error set.
int set_frame_exc_info(CatchInfoStore* store, PyFrameObject* frame, PyObject* exception);
// Borrowed, or nullptr.
PyObject* get_frame_exc_info(CatchInfoStore* store, PyFrameObject* frame);
// Forgets a frame's exception, and those of frames that nothing else keeps alive. Always 0; the
// pending exception is kept.
int clear_frame_exc_info(CatchInfoStore* store, PyFrameObject* frame);

// Releases the exceptions and the attribute names of the first four kinds. The list stays.
void catch_info_store_clear(CatchInfoStore* store);

// The frame where an exception was raised, from its traceback or whatever has such attributes,
// which may run Python code: new reference, None for None, nullptr with an error set where there is
// none.
PyObject* last_traceback_frame(PyObject* traceback);

}  // namespace morvik

#endif
