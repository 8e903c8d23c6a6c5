// One full path name per file, and whether two names denote the same file. Answers are cached
// without expiry, failures for a few seconds. Needs the interpreter lock; sets no Python error.
#ifndef MORVIK_PATHOPS_H
#define MORVIK_PATHOPS_H

#include "hashtable.h"
#include "platform/platform.h"

namespace morvik {

// A name that led to no file is not looked up again for so long.
constexpr int32_t kFailureSeconds = 3;

struct PathCache {
    HashTable full_names;           // path as given to its full name (owned text)
    HashTable failed;               // path to the time, in seconds, at which looking it up failed
    HashTable short_names;          // path as given to its short name and identity (owned)
    uint32_t identity_changes = 0;  // identities that were found to be another file's by now
};

// nullptr when out of memory.
PathCache* path_cache_new();
void path_cache_free(PathCache* cache);

// The full name of a file, owned by the cache and valid as long as it; nullptr when there is none.
// A name in angle brackets is no file's and is its own full name.
const char* full_path(PathCache* cache, const char* path);

// What same_file() goes by for names that are spelled differently. Owned by the cache.
struct KnownFile {
    const char* short_name;
    FileIdentity identity;
};

// Whether a name leads to a file. Where not, `failure_time` is when that was found out.
bool known_file(PathCache* cache, const char* path, KnownFile* file, int32_t* failure_time);

// Whether names that led to no file at that time are not looked up again yet.
bool is_recent_failure(int32_t failure_time);

// 1 or 0. Compiled and source file of one folder are the same file when both exist.
int same_file(PathCache* cache, const char* a, const char* b);

// "x.pyc" and "x.pyo" become "x.py", in place.
void strip_compiled_suffix(char* path);

// Whether two names differ at most by one letter more, 'c' or 'o', after the shorter: 1 or 0. What
// follows that letter is not looked at. 0 for nullptr.
int same_but_compiled_suffix(const char* a, const char* b);

// Whether a name is one like "<string>", which no file has.
bool is_pseudo_name(const char* path);

}  // namespace morvik

#endif
