// The registry from code objects to the full path names of their files: the one way any part of
// the core gets the file name of a frame. A code object's own co_filename is whatever its module
// was compiled under: relative, stale, or no file at all.
//
// Needs the interpreter lock. Sets no Python error. A path that is handed out stays valid until
// the process ends, except the relative names in rel_buf, which the next call overwrites.
#ifndef MORVIK_CONAMES_H
#define MORVIK_CONAMES_H

#include "host/python.h"
#include "pathops.h"

namespace morvik {

constexpr uint32_t kRecentNames = 256;

struct CodeNameRegistry {
    // Code object's address, as a long, to (path name, None); nullptr until the first
    // registration. Every code object in it is kept alive by one reference of the registry's.
    PyObject* names;
    int32_t gc_counter;          // look-ups and registrations since the last collection
    PathCache* path_cache;       // nullptr when it could not be made: then there are no full names
    PyObject* file_key;          // "__file__"
    char rel_buf[kMaxPath + 1];  // the relative name computed last
    // Told of every code object that is let go of, and of every one whose name was replaced; may be
    // nullptr.
    void (*let_go)(PyCodeObject* code);
    void (*renamed)(PyCodeObject* code);
    // Answers that `names` gave lately, by address: what a call event costs.
    struct {
        const PyCodeObject* code;
        const char* name;
    } recent[kRecentNames];
};

// The module's one registry.
extern CodeNameRegistry code_names;

// 0, or -1 when out of memory. The cache becomes the registry's.
int registry_init(CodeNameRegistry* registry, PathCache* path_cache);

inline constexpr int32_t kCallsPerCollection = 5000;

// The slot of `recent` that a code object's answer goes to.
inline uint32_t recent_slot(const PyCodeObject* code) {
    constexpr unsigned kAlignmentBits = 4;
    const auto address = reinterpret_cast<uintptr_t>(code) >> kAlignmentBits;
    return static_cast<uint32_t>(address ^ (address >> 8)) % kRecentNames;
}

// Whether registered_pathname() would answer from `recent` and collect nothing. Follow a yes with
// count_registry_call().
inline bool is_recently_registered(const CodeNameRegistry* registry, const PyCodeObject* code) {
    return registry->recent[recent_slot(code)].code == code &&
           registry->gc_counter + 1 < kCallsPerCollection;
}
inline void count_registry_call(CodeNameRegistry* registry) { ++registry->gc_counter; }

// Makes what registry_init() had no memory for. 0, or -1 with an error set.
int registry_complete(CodeNameRegistry* registry);

// The full path of a frame's file, its relative name when it has no full one, "<cframe>" for
// anything but a frame; nullptr when the look-up failed.
const char* LookupCOPathname(CodeNameRegistry* registry, PyFrameObject* frame);

// The name that a code object is registered under, or nullptr.
const char* registered_pathname(CodeNameRegistry* registry, PyCodeObject* code);

// Finds the full path of a module's file and registers it: for `code` where there is one, else
// for the functions and classes in `globals` that the module defined. nullptr for code that is
// in no file.
const char* resolve_and_register(CodeNameRegistry* registry, PyObject* globals,
                                 PyObject* co_filename, PyCodeObject* code);

// Registers a code object and those nested in it. Unless `force` is set, a name that is known is
// kept. 0, or -1.
int register_pathname(CodeNameRegistry* registry, PyCodeObject* code, const char* pathname,
                      int force);

// Registers the functions, methods and classes of a module's dictionary. Always 0.
int RegisterMatchingCodeValues(CodeNameRegistry* registry, const char* pathname, PyObject* globals,
                               int force);

// The file name to go by, as it was given, in rel_buf.
const char* get_relative_path(CodeNameRegistry* registry, PyObject* globals, PyObject* co_filename);

// Drops code objects that only the registry keeps alive, once in so many calls.
void CollectGarbage(CodeNameRegistry* registry);

// The class in a dictionary that defines a function with this code: new reference to it, to None
// when there is none, nullptr when out of memory (no error set).
PyObject* find_defining_class(PyObject* dict, PyCodeObject* code);

}  // namespace morvik

#endif
