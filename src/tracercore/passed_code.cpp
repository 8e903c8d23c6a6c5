#include "tracercore/passed_code.h"

#include "conames.h"
#include "hashtable.h"

namespace morvik {

namespace {

// By address. Finds nothing before the first code object is in it.
HashTable passed;

}  // namespace

bool is_code_to_pass(const PyCodeObject* code) { return hash_find(&passed, &code) != nullptr; }

bool pass_code(PyCodeObject* code) {
    // The registry keeps such code, and tells of its end.
    if (registered_pathname(&code_names, code) == nullptr) {
        return false;
    }
    if (passed.num_buckets == 0) {
        hash_init(&passed, sizeof(code));
    }
    int is_new = 0;
    return hash_create(&passed, &code, &is_new) != nullptr;
}

void pass_code_no_more(const PyCodeObject* code) {
    HashEntry* const entry = hash_find(&passed, &code);
    if (entry != nullptr) {
        hash_delete_entry(entry);
    }
}

void pass_no_code() {
    if (passed.num_buckets != 0) {
        hash_delete_table(&passed);
        hash_init(&passed, sizeof(const PyCodeObject*));
    }
}

}  // namespace morvik
