// Finds the known module files that a name may be another spelling of, so that a name need not be
// compared with all of them. Needs the interpreter lock; sets no Python error.
#ifndef MORVIK_BPOPS_MODULE_INDEX_H
#define MORVIK_BPOPS_MODULE_INDEX_H

#include <cstdint>

#include "hashtable.h"
#include "pathops.h"

namespace morvik {

struct IndexedModule;

// Two names can only be one file's when they share a key: the name without regard to case, and for
// files that exist the resolved name and the identity.
struct ModuleIndex {
    HashTable by_key;        // key to the chain of modules under it
    IndexedModule* modules;  // all, newest first
    IndexedModule* untried;  // not looked up on disk yet
    struct {
        int32_t time;
        IndexedModule* first;
    } missing[kFailureSeconds + 1];  // not on disk, by the time at which that was found out
    uint32_t identity_changes;       // the path cache's, when the keys were made
    bool incomplete;                 // there was no memory for a module
};

void module_index_init(ModuleIndex* index);
void module_index_clear(ModuleIndex* index);

// Enters a module file.
void module_index_add(ModuleIndex* index, const char* name);

// False where the index cannot tell. Otherwise `found` is the one module file in it that names the
// same file, nullptr for none; valid until the index is cleared.
bool module_index_find(ModuleIndex* index, PathCache* cache, const char* name, const char** found);

}  // namespace morvik

#endif
