#include "bpops/module_index.h"

#include <strings.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dbgcommon.h"

namespace morvik {

struct IndexedModule {
    IndexedModule* next;          // of all
    IndexedModule* next_waiting;  // of those not found on disk
    char name[1];                 // as long as it is
};

namespace {

struct Link {
    IndexedModule* module;
    Link* next;
};

enum KeyKind : char { kByName = 'n', kByResolvedName = 'r', kByIdentity = 'i' };

// Coarser than any comparison of names: what is equal without regard to case in some locale
// shares it.
char folded(char c) {
    constexpr char kAnyOther = '\x01';
    if (c >= 'A' && c <= 'Z') {
        return static_cast<char>(c - 'A' + 'a');
    }
    return static_cast<signed char>(c) < 0 ? kAnyOther : c;
}

OwnedText name_key(KeyKind kind, const char* name) {
    const size_t length = strlen(name);
    OwnedText key(static_cast<char*>(malloc(length + 2)));
    if (key) {
        key.get()[0] = kind;
        for (size_t i = 0; i <= length; ++i) {
            key.get()[i + 1] = folded(name[i]);
        }
    }
    return key;
}

// Compiled and source file share it.
OwnedText resolved_key(const char* name) {
    constexpr size_t kSuffixLength = 4;
    OwnedText key = name_key(kByResolvedName, name);
    const size_t length = strlen(name);
    if (key && length >= kSuffixLength && strcasecmp(name + length - kSuffixLength, ".pyc") == 0) {
        key.get()[length] = '\0';
    }
    return key;
}

bool is_known(const FileIdentity& identity) { return same_identity(identity, identity); }

OwnedText identity_key(const FileIdentity& identity) {
    constexpr size_t kLongest = 40;
    OwnedText key(static_cast<char*>(malloc(kLongest)));
    if (key) {
        snprintf(key.get(), kLongest, "%c%" PRIx64 ":%" PRIx64, kByIdentity, identity.device,
                 identity.file);
    }
    return key;
}

void enter(ModuleIndex* index, const OwnedText& key, IndexedModule* module) {
    int is_new = 0;
    HashEntry* const entry = key ? hash_create(&index->by_key, key.get(), &is_new) : nullptr;
    auto* const link = entry != nullptr ? static_cast<Link*>(malloc(sizeof(Link))) : nullptr;
    if (link == nullptr) {
        index->incomplete = true;
        return;
    }
    *link = {module, static_cast<Link*>(hash_get_value(entry))};
    hash_set_value(entry, link);
}

void forget_keys(ModuleIndex* index) {
    HashSearch search;
    for (HashEntry* entry = hash_first(&index->by_key, &search); entry != nullptr;
         entry = hash_next(&search)) {
        auto* link = static_cast<Link*>(hash_get_value(entry));
        while (link != nullptr) {
            Link* const next = link->next;
            free(link);
            link = next;
        }
    }
    hash_delete_table(&index->by_key);
    hash_init(&index->by_key, kStringKeys);
    index->untried = nullptr;
    for (auto& missing : index->missing) {
        missing.first = nullptr;
    }
}

void enter_by_name(ModuleIndex* index, IndexedModule* module) {
    enter(index, name_key(kByName, module->name), module);
    module->next_waiting = index->untried;
    index->untried = module;
}

void wait_for(ModuleIndex* index, IndexedModule* module, int32_t failure_time) {
    auto& missing = index->missing[static_cast<uint32_t>(failure_time) % (kFailureSeconds + 1)];
    // Another time's are looked for too early rather than too late.
    if (missing.first == nullptr) {
        missing.time = failure_time;
    }
    module->next_waiting = missing.first;
    missing.first = module;
}

void look_up_on_disk(ModuleIndex* index, PathCache* cache, IndexedModule* waiting) {
    while (waiting != nullptr) {
        IndexedModule* const module = waiting;
        waiting = module->next_waiting;
        KnownFile file = {};
        int32_t failure_time = 0;
        if (!known_file(cache, module->name, &file, &failure_time)) {
            wait_for(index, module, failure_time);
            continue;
        }
        enter(index, resolved_key(file.short_name), module);
        if (is_known(file.identity)) {
            enter(index, identity_key(file.identity), module);
        }
    }
}

// Enters the modules by what they are on disk, as far as that was not found out yet.
void complete_keys(ModuleIndex* index, PathCache* cache) {
    if (index->identity_changes != cache->identity_changes) {
        index->identity_changes = cache->identity_changes;
        forget_keys(index);
        for (IndexedModule* module = index->modules; module != nullptr; module = module->next) {
            enter_by_name(index, module);
        }
    }
    for (auto& missing : index->missing) {
        if (missing.first != nullptr && !is_recent_failure(missing.time)) {
            IndexedModule* const waiting = missing.first;
            missing.first = nullptr;
            look_up_on_disk(index, cache, waiting);
        }
    }
    IndexedModule* const untried = index->untried;
    index->untried = nullptr;
    look_up_on_disk(index, cache, untried);
}

// Compares a name with the modules under a key. False where more than one is the same file, or
// there was no memory for the key.
bool compare(ModuleIndex* index, PathCache* cache, const char* name, const OwnedText& key,
             const char** found) {
    if (!key) {
        return false;
    }
    HashEntry* const entry = hash_find(&index->by_key, key.get());
    for (const Link* link = entry != nullptr ? static_cast<Link*>(hash_get_value(entry)) : nullptr;
         link != nullptr; link = link->next) {
        const char* const module_file = link->module->name;
        if (module_file == *found || same_file(cache, name, module_file) == 0) {
            continue;
        }
        if (*found != nullptr) {
            return false;
        }
        *found = module_file;
    }
    return true;
}

}  // namespace

void module_index_init(ModuleIndex* index) {
    hash_init(&index->by_key, kStringKeys);
    index->modules = nullptr;
    index->incomplete = false;
    index->identity_changes = 0;
    forget_keys(index);
}

void module_index_clear(ModuleIndex* index) {
    forget_keys(index);
    while (IndexedModule* const module = index->modules) {
        index->modules = module->next;
        free(module);
    }
    module_index_init(index);
}

void module_index_add(ModuleIndex* index, const char* name) {
    const size_t length = strlen(name);
    auto* const module = static_cast<IndexedModule*>(malloc(sizeof(IndexedModule) + length));
    if (module == nullptr) {
        index->incomplete = true;
        return;
    }
    memcpy(module->name, name, length + 1);
    module->next = index->modules;
    index->modules = module;
    enter_by_name(index, module);
}

bool module_index_find(ModuleIndex* index, PathCache* cache, const char* name, const char** found) {
    *found = nullptr;
    if (index->modules == nullptr) {
        return !index->incomplete;
    }
    KnownFile file = {};
    int32_t failure_time = 0;
    const bool exists = known_file(cache, name, &file, &failure_time);
    if (exists) {
        complete_keys(index, cache);
    }
    if (index->incomplete || !compare(index, cache, name, name_key(kByName, name), found)) {
        return false;
    }
    if (!exists) {
        return true;
    }
    return compare(index, cache, name, resolved_key(file.short_name), found) &&
           (!is_known(file.identity) ||
            compare(index, cache, name, identity_key(file.identity), found)) &&
           index->identity_changes == cache->identity_changes;
}

}  // namespace morvik
