#include "pathops.h"

#include <strings.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "dbgcommon.h"
#include "dprintf.h"

namespace morvik {

namespace {

// -1 until it is known.
int NTOrGreater = -1;

// A cached short name: this header, then the text.
struct ShortName {
    FileIdentity identity;
};

char* text_of(ShortName* name) { return reinterpret_cast<char*>(name + 1); }

PathLog path_log() { return dprintf_enabled(kLogFiles) ? dprintf_write : nullptr; }

OwnedText new_path_buffer() { return OwnedText(static_cast<char*>(malloc(kMaxPath + 1))); }

int32_t now() { return static_cast<int32_t>(wall_clock_seconds()); }

int32_t failure_time_of(const HashEntry* entry) {
    return static_cast<int32_t>(reinterpret_cast<intptr_t>(hash_get_value(entry)));
}

bool failed_lately(PathCache* cache, const char* path) {
    HashEntry* const entry = hash_find(&cache->failed, path);
    if (entry == nullptr) {
        return false;
    }
    if (is_recent_failure(failure_time_of(entry))) {
        return true;
    }
    hash_delete_entry(entry);
    return false;
}

void record_failure(PathCache* cache, const char* path) {
    int is_new = 0;
    HashEntry* const entry = hash_create(&cache->failed, path, &is_new);
    if (entry != nullptr) {
        hash_set_value(entry, reinterpret_cast<void*>(static_cast<intptr_t>(now())));
    }
}

// Whether a call just made failed for want of memory, which is reported then.
bool ran_out_of_memory() {
    if (errno != ENOMEM) {
        return false;
    }
    report_out_of_memory("a file name");
    return true;
}

// Keeps a malloc()ed value under a path. Without memory for that the value is freed.
void* store(HashTable* table, const char* path, void* value) {
    int is_new = 0;
    HashEntry* const entry = value != nullptr ? hash_create(table, path, &is_new) : nullptr;
    if (entry == nullptr) {
        report_out_of_memory("a file name");
        free(value);
        return nullptr;
    }
    free(hash_get_value(entry));
    hash_set_value(entry, value);
    return value;
}

// The short name of an existing file, owned by the cache; nullptr for none.
ShortName* cached_short_name(PathCache* cache, const char* path) {
    HashEntry* const known = hash_find(&cache->short_names, path);
    if (known != nullptr) {
        return static_cast<ShortName*>(hash_get_value(known));
    }
    if (failed_lately(cache, path)) {
        return nullptr;
    }
    errno = 0;
    const OwnedText full(absolute_path(path));
    if (!full && ran_out_of_memory()) {
        return nullptr;
    }
    if (!full || failed_lately(cache, full.get())) {
        record_failure(cache, path);
        return nullptr;
    }
    FileIdentity identity = {};
    errno = 0;
    const OwnedText buffer = new_path_buffer();
    if (!buffer || !short_path_name(full.get(), buffer.get(), &identity, path_log())) {
        if (!ran_out_of_memory()) {
            record_failure(cache, path);
            record_failure(cache, full.get());
        }
        return nullptr;
    }
    const size_t size = strlen(buffer.get()) + 1;
    auto* const name = static_cast<ShortName*>(malloc(sizeof(ShortName) + size));
    if (name != nullptr) {
        name->identity = identity;
        memcpy(text_of(name), buffer.get(), size);
    }
    return static_cast<ShortName*>(store(&cache->short_names, path, name));
}

// Finds out again what the file system knows a file by. A cached identity may be another file's
// by now: what is left of a file that was replaced is given to the next new one.
bool refresh_identity(PathCache* cache, ShortName* name) {
    errno = 0;
    const OwnedText buffer = new_path_buffer();
    const FileIdentity before = name->identity;
    if (!buffer || !short_path_name(text_of(name), buffer.get(), &name->identity, path_log())) {
        ran_out_of_memory();
        return false;
    }
    if (!same_identity(before, name->identity)) {
        ++cache->identity_changes;
    }
    return true;
}

bool is_one_file(PathCache* cache, ShortName* a, ShortName* b) {
    return same_identity(a->identity, b->identity) && refresh_identity(cache, a) &&
           refresh_identity(cache, b) && same_identity(a->identity, b->identity);
}

// Whether two short names are equal, the last letter of ".pyc" left out. (Names of optimised code
// stand for themselves here.)
bool same_source_name(const char* a, const char* b) {
    constexpr char kCompiled[] = ".pyc";
    constexpr size_t kSuffixLength = sizeof(kCompiled) - 1;
    if (same_short_name(a, b)) {
        return true;
    }
    const char* const names[2] = {a, b};
    OwnedText cut[2];
    for (int i = 0; i < 2; ++i) {
        const size_t length = strlen(names[i]);
        cut[i].reset(strdup(names[i]));
        if (!cut[i]) {
            report_out_of_memory("a file name");
            return false;
        }
        if (length > kSuffixLength &&
            strcasecmp(names[i] + length - kSuffixLength, kCompiled) == 0) {
            cut[i].get()[length - 1] = '\0';
        }
    }
    return same_short_name(cut[0].get(), cut[1].get());
}

}  // namespace

PathCache* path_cache_new() {
    if (NTOrGreater == -1) {
        NTOrGreater = wide_file_queries();
        dprintf(kLogFiles, "NTOrGreater=%i\n", NTOrGreater);
    }
    auto* const cache = new (std::nothrow) PathCache;
    if (cache != nullptr) {
        hash_init(&cache->full_names, kStringKeys);
        hash_init(&cache->failed, kStringKeys);
        hash_init(&cache->short_names, kStringKeys);
    }
    return cache;
}

void path_cache_free(PathCache* cache) {
    hash_delete_table_and_values(&cache->full_names);
    hash_delete_table(&cache->failed);
    hash_delete_table_and_values(&cache->short_names);
    delete cache;
}

const char* full_path(PathCache* cache, const char* path) {
    dprintf(kLogFiles, "_win32_fullpath(path = %s)\n", path);
    HashEntry* const known = hash_find(&cache->full_names, path);
    if (known != nullptr) {
        const char* const name = static_cast<const char*>(hash_get_value(known));
        dprintf(kLogFiles, "Found hash for %s -> %s\n", path, name);
        return name;
    }
    errno = 0;
    const OwnedText full(is_pseudo_name(path) ? strdup(path) : absolute_path(path));
    if (!full) {
        ran_out_of_memory();
        return nullptr;
    }
    dprintf(kLogFiles, "full_path = %s\n", full.get());
    const OwnedText buffer = new_path_buffer();
    if (!buffer) {
        report_out_of_memory("a file name");
        return nullptr;
    }
    const bool spelled =
        !is_pseudo_name(path) && long_path_name(full.get(), buffer.get(), path_log());
    return static_cast<const char*>(
        store(&cache->full_names, path, strdup(spelled ? buffer.get() : full.get())));
}

bool is_recent_failure(int32_t failure_time) {
    return std::abs(now() - failure_time) < kFailureSeconds;
}

bool known_file(PathCache* cache, const char* path, KnownFile* file, int32_t* failure_time) {
    ShortName* const name = cached_short_name(cache, path);
    if (name != nullptr) {
        *file = {text_of(name), name->identity};
        return true;
    }
    const HashEntry* const failure = hash_find(&cache->failed, path);
    *failure_time = failure != nullptr ? failure_time_of(failure) : now();
    return false;
}

int same_file(PathCache* cache, const char* a, const char* b) {
    dprintf(kLogFiles, "**** SAMEFILE %s %s\n", a, b);
    if (same_spelling(a, b)) {
        dprintf(kLogFiles, "%%%%%%%%%%%%%%%%%%%%%% RETURNING TRUE!!!!!!!!!!!!!!!!!!!!!\n");
        return 1;
    }
    ShortName* const first = cached_short_name(cache, a);
    ShortName* const second = first != nullptr ? cached_short_name(cache, b) : nullptr;
    if (second == nullptr) {
        return 0;
    }
    dprintf(kLogFiles, "Full names %s %s\n", text_of(first), text_of(second));
    const int same =
        same_source_name(text_of(first), text_of(second)) || is_one_file(cache, first, second) ? 1
                                                                                               : 0;
    dprintf(kLogFiles, "  returning %d\n", same);
    return same;
}

void strip_compiled_suffix(char* path) {
    const size_t length = strlen(path);
    if (length >= 4 && (strcasecmp(path + length - 4, ".pyc") == 0 ||
                        strcasecmp(path + length - 4, ".pyo") == 0)) {
        path[length - 1] = '\0';
    }
}

int same_but_compiled_suffix(const char* a, const char* b) {
    constexpr size_t kShortest = 3;
    if (a == nullptr || b == nullptr) {
        return 0;
    }
    const size_t length_a = strlen(a);
    const size_t length_b = strlen(b);
    const size_t shorter = length_a < length_b ? length_a : length_b;
    if (shorter < kShortest || strncasecmp(a, b, shorter) != 0) {
        return 0;
    }
    if (length_a == length_b) {
        return 1;
    }
    const char extra = length_a > length_b ? a[shorter] : b[shorter];
    return strchr("cCoO", extra) != nullptr ? 1 : 0;
}

bool is_pseudo_name(const char* path) {
    const size_t length = strlen(path);
    return length > 0 && path[0] == '<' && path[length - 1] == '>';
}

}  // namespace morvik
