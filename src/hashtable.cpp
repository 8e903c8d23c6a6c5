#include "hashtable.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace morvik {

namespace {

constexpr uint32_t kGrowthFactor = 4;
constexpr uint32_t kFirstRebuildSize = 12;
constexpr uint32_t kFirstDownShift = 28;
constexpr uint32_t kHashMultiplier = 1103515245U;
// The key area is reckoned as a 4-byte tail of the header; the surplus costs nothing.
constexpr size_t kKeyTail = 4;

char* key_of(HashEntry* entry) { return reinterpret_cast<char*>(entry + 1); }
const char* key_of(const HashEntry* entry) { return reinterpret_cast<const char*>(entry + 1); }

// After a growth that found no memory num_buckets is ahead of the array in use; the mask never
// is, so every walk over the heads goes by it.
uint32_t heads_in_use(const HashTable* table) { return table->mask + 1; }

uint32_t string_bucket(const HashTable* table, const char* key) {
    uint32_t hash = 0;
    for (; *key != '\0'; ++key) {
        hash = hash * 9 + static_cast<uint32_t>(static_cast<signed char>(*key));
    }
    return hash & table->mask;
}

uint32_t fixed_bucket(const HashTable* table, const char* key) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i < table->key_width; ++i) {
        sum += static_cast<uint32_t>(static_cast<signed char>(key[i]));
    }
    const auto product = static_cast<int32_t>(sum * kHashMultiplier);
    return static_cast<uint32_t>(product >> table->down_shift) & table->mask;
}

uint32_t bucket_index(const HashTable* table, const char* key) {
    return table->key_width == kStringKeys ? string_bucket(table, key) : fixed_bucket(table, key);
}

HashEntry* find_in_string_chain(HashEntry* entry, const char* key) {
    while (entry != nullptr && strcmp(key_of(entry), key) != 0) {
        entry = entry->next;
    }
    return entry;
}

HashEntry* find_in_fixed_chain(HashEntry* entry, const char* key, uint32_t width) {
    while (entry != nullptr && memcmp(key_of(entry), key, width) != 0) {
        entry = entry->next;
    }
    return entry;
}

void push(HashEntry** head, HashEntry* entry) {
    entry->bucket = head;
    entry->next = *head;
    *head = entry;
}

void grow(HashTable* table) {
    HashEntry** const old_heads = table->buckets;
    const uint32_t old_count = heads_in_use(table);
    if (table->num_buckets <= UINT32_MAX / kGrowthFactor) {
        table->num_buckets *= kGrowthFactor;
    }
    const size_t count = static_cast<size_t>(old_count) * kGrowthFactor;
    if (table->down_shift < 2) {
        return;  // as many buckets as the fixed-width hash can tell apart
    }
    auto** const heads = static_cast<HashEntry**>(malloc(count * sizeof(HashEntry*)));
    if (heads == nullptr) {
        return;  // the old array serves on; the next insertion tries again
    }
    for (size_t i = 0; i < count; ++i) {
        heads[i] = nullptr;
    }
    table->buckets = heads;
    table->rebuild_size *= kGrowthFactor;
    table->down_shift -= 2;
    table->mask = table->mask * kGrowthFactor + (kGrowthFactor - 1);
    for (uint32_t i = 0; i < old_count; ++i) {
        while (HashEntry* const entry = old_heads[i]) {
            old_heads[i] = entry->next;
            push(&heads[bucket_index(table, key_of(entry))], entry);
        }
    }
    if (old_heads != table->static_buckets) {
        free(old_heads);
    }
}

HashEntry* insert(HashTable* table, uint32_t bucket, const char* key, size_t key_size,
                  size_t block_tail) {
    auto* const entry = static_cast<HashEntry*>(malloc(sizeof(HashEntry) + block_tail));
    if (entry == nullptr) {
        return nullptr;
    }
    entry->table = table;
    entry->value = nullptr;
    memcpy(key_of(entry), key, key_size);
    push(&table->buckets[bucket], entry);
    ++table->num_entries;
    if (table->num_entries >= table->rebuild_size) {
        grow(table);
    }
    return entry;
}

HashEntry* find_string(HashTable* table, const void* key) {
    const auto* const text = static_cast<const char*>(key);
    return find_in_string_chain(table->buckets[string_bucket(table, text)], text);
}

HashEntry* find_fixed(HashTable* table, const void* key) {
    const auto* const bytes = static_cast<const char*>(key);
    return find_in_fixed_chain(table->buckets[fixed_bucket(table, bytes)], bytes, table->key_width);
}

HashEntry* create_string(HashTable* table, const void* key, int* is_new) {
    const auto* const text = static_cast<const char*>(key);
    const uint32_t bucket = string_bucket(table, text);
    HashEntry* const found = find_in_string_chain(table->buckets[bucket], text);
    *is_new = found == nullptr;
    if (found != nullptr) {
        return found;
    }
    const size_t size = strlen(text) + 1;
    return insert(table, bucket, text, size, size + kKeyTail);
}

HashEntry* create_fixed(HashTable* table, const void* key, int* is_new) {
    const auto* const bytes = static_cast<const char*>(key);
    const uint32_t bucket = fixed_bucket(table, bytes);
    HashEntry* const found = find_in_fixed_chain(table->buckets[bucket], bytes, table->key_width);
    *is_new = found == nullptr;
    if (found != nullptr) {
        return found;
    }
    return insert(table, bucket, bytes, table->key_width, table->key_width + kKeyTail);
}

void unlink_entry(HashEntry* entry) {
    HashEntry** link = entry->bucket;
    while (*link != entry) {
        link = &(*link)->next;
    }
    *link = entry->next;
    --entry->table->num_entries;
}

void delete_table(HashTable* table, bool with_values) {
    if (table->buckets != nullptr) {
        for (uint32_t i = 0; i < heads_in_use(table); ++i) {
            HashEntry* entry = table->buckets[i];
            while (entry != nullptr) {
                HashEntry* const next = entry->next;
                if (with_values) {
                    free(entry->value);
                }
                free(entry);
                entry = next;
            }
        }
        if (table->buckets != table->static_buckets) {
            free(table->buckets);
        }
    }
    table->buckets = nullptr;
    table->find_fn = hash_find_nothing;
    table->create_fn = hash_create_nothing;
}

}  // namespace

HashEntry* hash_find_nothing(HashTable* /*table*/, const void* /*key*/) { return nullptr; }

HashEntry* hash_create_nothing(HashTable* /*table*/, const void* /*key*/, int* /*is_new*/) {
    return nullptr;
}

void hash_init(HashTable* table, uint32_t key_width) {
    table->buckets = table->static_buckets;
    for (HashEntry*& head : table->static_buckets) {
        head = nullptr;
    }
    table->num_buckets = kStaticBuckets;
    table->num_entries = 0;
    table->rebuild_size = kFirstRebuildSize;
    table->down_shift = kFirstDownShift;
    table->mask = kStaticBuckets - 1;
    table->key_width = key_width;
    table->find_fn = key_width == kStringKeys ? find_string : find_fixed;
    table->create_fn = key_width == kStringKeys ? create_string : create_fixed;
}

const char* hash_get_key(const HashTable* /*table*/, const HashEntry* entry) {
    return key_of(entry);
}

HashEntry* hash_first(HashTable* table, HashSearch* search) {
    search->table = table;
    search->next_bucket = 0;
    search->next_entry = nullptr;
    return hash_next(search);
}

HashEntry* hash_next(HashSearch* search) {
    const HashTable* const table = search->table;
    if (table->buckets == nullptr) {
        return nullptr;
    }
    HashEntry* entry = search->next_entry;
    while (entry == nullptr) {
        if (search->next_bucket >= heads_in_use(table)) {
            return nullptr;
        }
        entry = table->buckets[search->next_bucket++];
    }
    search->next_entry = entry->next;
    return entry;
}

void hash_delete_entry(HashEntry* entry) {
    unlink_entry(entry);
    free(entry);
}

void hash_delete_entry_and_value(HashEntry* entry) {
    unlink_entry(entry);
    free(entry->value);
    free(entry);
}

void hash_delete_table(HashTable* table) { delete_table(table, false); }

void hash_delete_table_and_values(HashTable* table) { delete_table(table, true); }

char* hash_stats(const HashTable* table) {
    constexpr uint32_t kCounted = 10;
    constexpr size_t kTextSize = 900;
    uint32_t counts[kCounted] = {};
    uint32_t overflow = 0;
    double average = 0.0;
    const auto entries = static_cast<double>(table->num_entries);
    for (uint32_t i = 0; table->buckets != nullptr && i < heads_in_use(table); ++i) {
        uint32_t length = 0;
        for (const HashEntry* entry = table->buckets[i]; entry != nullptr; entry = entry->next) {
            ++length;
        }
        if (length < kCounted) {
            ++counts[length];
        } else {
            ++overflow;
        }
        average += (length + 1) * (length / entries) / 2;
    }
    auto* const text = static_cast<char*>(malloc(kTextSize));
    if (text == nullptr) {
        return nullptr;
    }
    size_t used = static_cast<size_t>(snprintf(text, kTextSize, "%d entries in table, %d buckets\n",
                                               static_cast<int>(table->num_entries),
                                               static_cast<int>(table->num_buckets)));
    for (uint32_t i = 0; i < kCounted; ++i) {
        used += static_cast<size_t>(snprintf(text + used, kTextSize - used,
                                             "number of buckets with %d entries: %d\n",
                                             static_cast<int>(i), static_cast<int>(counts[i])));
    }
    used += static_cast<size_t>(snprintf(text + used, kTextSize - used,
                                         "number of buckets with %d or more entries: %d\n",
                                         static_cast<int>(kCounted), static_cast<int>(overflow)));
    snprintf(text + used, kTextSize - used, "average search distance for entry: %.1f", average);
    return text;
}

}  // namespace morvik
