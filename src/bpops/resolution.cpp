#include "bpops/resolution.h"

#include <cstdlib>
#include <cstring>

#include "dbgcommon.h"
#include "dprintf.h"
#include "host/ref.h"

namespace morvik {

namespace {

// Keeps a copy of `text` under `key`; the copy, or nullptr when out of memory, with no entry then.
const char* store_copy(BreakpointTable* owner, const char* key, const char* text) {
    HashTable* const table = &owner->module_files;
    bp_widen(owner);
    int is_new = 0;
    OwnedText copy(strdup(text));
    HashEntry* const entry = hash_create(table, key, &is_new);
    if (entry == nullptr || !copy) {
        report_out_of_memory("the name of a module's file");
    }
    if (entry == nullptr) {
        return nullptr;
    }
    if (!copy) {
        hash_delete_entry_and_value(entry);
        return nullptr;
    }
    const OwnedText old(static_cast<char*>(hash_get_value(entry)));
    hash_set_value(entry, copy.release());
    if (strcmp(key, text) == 0 && (!old || strcmp(old.get(), text) != 0)) {
        module_index_add(&owner->module_index, text);
    }
    return static_cast<const char*>(hash_get_value(entry));
}

// The module file that a name which is not known yet stands for, by comparing it with each; kept
// as a synonym.
const char* compare_with_each(BreakpointTable* table, const char* filename) {
    HashSearch search;
    for (HashEntry* entry = hash_first(&table->module_files, &search); entry != nullptr;
         entry = hash_next(&search)) {
        const char* const module_file =
            add_synonym(table, filename, static_cast<const char*>(hash_get_value(entry)));
        if (module_file != nullptr) {
            return module_file;
        }
    }
    return nullptr;
}

// The same by comparing it with few. Each comparison would leave its log lines: the index serves
// where nobody listens for those, and leaves to the table's order which of several files counts.
const char* find_synonym(BreakpointTable* table, const char* filename) {
    PathCache* const cache = table->registry->path_cache;
    const char* found = nullptr;
    if (cache == nullptr || dprintf_enabled(kLogFiles) || dprintf_enabled(kLogBreakpoints) ||
        !module_index_find(&table->module_index, cache, filename, &found)) {
        return compare_with_each(table, filename);
    }
    return found != nullptr ? add_synonym(table, filename, found) : nullptr;
}

void resolve_waiting_breakpoints(BreakpointTable* table) {
    HashSearch search;
    for (HashEntry* entry = hash_first(&table->by_line, &search); entry != nullptr;
         entry = hash_next(&search)) {
        for (auto* record = static_cast<BreakpointRecord*>(hash_get_value(entry));
             record != nullptr; record = record->next) {
            dprintf(kLogBreakpoints, "lineno = %d, user_filename = %s, module_filename = %s\n",
                    record->lineno, record->user_filename, text_or_null(record->module_filename));
            const char* const module_file =
                record->module_filename == nullptr
                    ? add_synonym(table, record->user_filename, table->name_buf)
                    : nullptr;
            if (module_file != nullptr) {
                bp_widen(table);
                record->module_filename = strdup(module_file);
                if (record->module_filename == nullptr) {
                    report_out_of_memory("the file of a breakpoint");
                }
            }
        }
    }
}

}  // namespace

void resolve_module(BreakpointTable* table, PyObject* module) {
    if (!PyModule_Check(module)) {
        return;
    }
    PyObject* const dict = PyModule_GetDict(module);
    if (dprintf_enabled(kLogBreakpoints)) {
        const char* const name = PyModule_GetName(module);
        dprintf(kLogBreakpoints, "MODNAME %s\n", text_or_null(name));
        if (dict == nullptr) {
            dprintf(kLogBreakpoints, "MDICT IS NULL for %s\n", text_or_null(name));
        }
        PyErr_Clear();
    }
    if (dict == nullptr || table->file_key == nullptr) {
        return;
    }
    const Ref file = Ref::share(PyDict_GetItem(dict, table->file_key));
    dprintf(kLogBreakpoints, "XFER %s\n", object_text(file.get()));
    if (file && PyString_Check(file.get())) {
        __tracer_resolve_bp_filenames(table, PyString_AS_STRING(file.get()));
    } else {
        dprintf(kLogBreakpoints, "********** NO FILE NAME ****************\n");
    }
}

void __tracer_resolve_bp_filenames(BreakpointTable* table, const char* module_filename) {
    dprintf(kLogBreakpoints, "__tracer_resolve_bp_filenames(module_filename = %s)\n",
            text_or_null(module_filename));
    if (module_filename == nullptr || strlen(module_filename) > kMaxPath) {
        return;
    }
    strcpy(table->name_buf, module_filename);
    strip_compiled_suffix(table->name_buf);
    fold_file_name(table->name_buf);
    if (find_module_for_file(table, table->name_buf) != nullptr) {
        return;
    }
    if (store_copy(table, table->name_buf, table->name_buf) == nullptr) {
        return;
    }
    ++table->module_count;
    const unsigned shortages = out_of_memory_count();
    resolve_waiting_breakpoints(table);
    HashEntry* const entry = hash_find(&table->module_files, table->name_buf);
    if (out_of_memory_count() != shortages && entry != nullptr) {
        // Met again, it is new again: some breakpoint may still wait for it.
        hash_delete_entry_and_value(entry);
        --table->module_count;
    }
    dprintf(kLogBreakpoints, "Done resolving\n");
}

int find_bp_filename_synonyms(BreakpointTable* table, BreakpointRecord* record) {
    dprintf(kLogBreakpoints, "FINDING BP FILENAME SYNONYMS\n");
    if (record->module_filename != nullptr) {
        dprintf(kLogBreakpoints, "Not adding:  Already added before\n");
        return 1;
    }
    const unsigned shortages = out_of_memory_count();
    const char* const modfile = find_module_for_file(table, record->user_filename);
    dprintf(kLogBreakpoints, "  modfile = %s\n", text_or_null(modfile));
    if (modfile == nullptr && out_of_memory_count() != shortages) {
        out_of_memory();
        return 0;
    }
    if (modfile == nullptr) {
        dprintf(kLogBreakpoints,
                "No loaded module for the bp... exiting find_bp_filename_synonyms\n");
        return 1;
    }
    bp_widen(table);
    record->module_filename = strdup(modfile);
    dprintf(kLogBreakpoints, "bp->module_filename = %s\n", text_or_null(record->module_filename));
    if (record->module_filename == nullptr) {
        out_of_memory();
        return 0;
    }
    dprintf(kLogBreakpoints, "^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^\n");
    dprintf(kLogBreakpoints, "Added bp %s, %i\n", record->module_filename, record->lineno);
    return 1;
}

const char* find_module_for_file(BreakpointTable* table, const char* filename) {
    HashEntry* const known = hash_find(&table->module_files, filename);
    dprintf(kLogBreakpoints, "Finding module for %s\n", filename);
    if (known != nullptr) {
        return static_cast<const char*>(hash_get_value(known));
    }
    dprintf(kLogBreakpoints, "Nothing found... searching for synonyms\n");
    const char* const module_file = find_synonym(table, filename);
    if (module_file == nullptr) {
        dprintf(kLogBreakpoints, "No synonyms found\n");
    }
    return module_file;
}

const char* add_synonym(BreakpointTable* table, const char* filename, const char* module_file) {
    PathCache* const cache = table->registry->path_cache;
    if (cache == nullptr || same_file(cache, filename, module_file) == 0) {
        return nullptr;
    }
    const char* const stored = store_copy(table, filename, module_file);
    if (stored != nullptr) {
        dprintf(kLogBreakpoints, "Found synonym %s\n", stored);
    }
    return stored;
}

}  // namespace morvik
