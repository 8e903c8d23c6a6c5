// A small chained hash table from a string or a fixed-width byte key to one pointer-sized value.
// Keys are copied into the entries; values are the caller's and never freed here unless asked.
// Nothing here knows the interpreter, locks, or reports: exhausted memory answers nullptr.
#ifndef MORVIK_HASHTABLE_H
#define MORVIK_HASHTABLE_H

#include <cstdint>

namespace morvik {

struct HashTable;

// One heap block: this header, then the key's bytes.
struct HashEntry {
    HashEntry* next;     // next entry in the same bucket
    HashTable* table;    // owning table
    HashEntry** bucket;  // the head slot of the bucket that holds this entry
    void* value;         // the caller's; nullptr when created
};

// Key widths in use: 0 for NUL-terminated strings, else the key's length in bytes.
constexpr uint32_t kStringKeys = 0;

constexpr uint32_t kStaticBuckets = 4;

// Finds and creates nothing in a table that is not initialised or was deleted.
HashEntry* hash_find_nothing(HashTable* table, const void* key);
HashEntry* hash_create_nothing(HashTable* table, const void* key, int* is_new);

struct HashTable {
    HashEntry** buckets = nullptr;  // the heads in use: static_buckets until the first growth
    HashEntry* static_buckets[kStaticBuckets] = {};
    uint32_t num_buckets = 0;   // a power of 4; see hashtable.cpp for a growth that failed
    uint32_t num_entries = 0;   // entries stored
    uint32_t rebuild_size = 0;  // grow when num_entries reaches this
    uint32_t down_shift = 0;    // right shift of the fixed-width hash
    uint32_t mask = 0;          // heads in use, less 1
    uint32_t key_width = kStringKeys;
    HashEntry* (*find_fn)(HashTable* table, const void* key) = hash_find_nothing;
    HashEntry* (*create_fn)(HashTable* table, const void* key, int* is_new) = hash_create_nothing;

    constexpr HashTable() = default;
    // Entries and `buckets` point into the table.
    HashTable(const HashTable&) = delete;
    HashTable& operator=(const HashTable&) = delete;
};

// The state of a walk; the caller's. Only the entry just returned may be deleted during one.
struct HashSearch {
    HashTable* table;
    uint32_t next_bucket;
    HashEntry* next_entry;
};

// Makes the table empty, with 4 buckets. Entries it may hold are forgotten, not freed.
void hash_init(HashTable* table, uint32_t key_width);

// The entry of a key, or nullptr.
inline HashEntry* hash_find(HashTable* table, const void* key) {
    return table->find_fn(table, key);
}

// The existing or a new entry of a key; nullptr when out of memory.
inline HashEntry* hash_create(HashTable* table, const void* key, int* is_new) {
    return table->create_fn(table, key, is_new);
}

inline void* hash_get_value(const HashEntry* entry) { return entry->value; }
inline void hash_set_value(HashEntry* entry, void* value) { entry->value = value; }

// The key's bytes inside the entry, NUL-terminated for a string key.
const char* hash_get_key(const HashTable* table, const HashEntry* entry);

// By bucket index, and inside a bucket from the most recently inserted.
HashEntry* hash_first(HashTable* table, HashSearch* search);
HashEntry* hash_next(HashSearch* search);

// Unlink and free an entry; the second form also free()s its value.
void hash_delete_entry(HashEntry* entry);
void hash_delete_entry_and_value(HashEntry* entry);

// Free all entries and a grown bucket array; the second form also free()s the values. The table
// then finds and creates nothing until hash_init(); its counts stay readable.
void hash_delete_table(HashTable* table);
void hash_delete_table_and_values(HashTable* table);

// A readable account of the chain lengths; the caller free()s it. nullptr when out of memory.
char* hash_stats(const HashTable* table);

}  // namespace morvik

#endif
