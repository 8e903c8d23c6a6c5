#include "bpops/table.h"

#include <cstdlib>
#include <cstring>

#include "bpops/resolution.h"
#include "dbgcommon.h"
#include "host/ref.h"

namespace morvik {

namespace {

void free_record(BreakpointRecord* record) {
    free(record->user_filename);
    free(record->module_filename);
    free(record->cond);
    Py_XDECREF(record->cond_code);
    free(record);
}

// A record that is on no list any more.
void retire_record(BreakpointTable* table, BreakpointRecord* record) {
    if (table->pins == 0) {
        free_record(record);
        return;
    }
    record->removed = 1;
    record->next_removed = table->removed_head;
    table->removed_head = record;
}

void set_condition(BreakpointRecord* record, char* cond) {
    free(record->cond);
    record->cond = cond;
    clear_slot(record->cond_code);
}

// nullptr when out of memory or for a condition that is no string (error set).
BreakpointRecord* new_record(BreakpointTable* table, const char* filename, int lineno, int enabled,
                             int temporary, PyObject* cond, int ignore_count) {
    const uint32_t id = table->next_id++;
    auto* const record = static_cast<BreakpointRecord*>(calloc(1, sizeof(BreakpointRecord)));
    if (record == nullptr) {
        return nullptr;
    }
    record->id = id;
    record->lineno = lineno;
    record->enabled = enabled != 0 ? 1 : 0;
    record->temporary = temporary != 0 ? 1 : 0;
    record->ignore_count = ignore_count;
    record->user_filename = strdup(filename);
    if (cond != Py_None) {
        record->cond = string_dup(cond).release();
    }
    if (record->user_filename == nullptr || (cond != Py_None && record->cond == nullptr)) {
        free_record(record);
        return nullptr;
    }
    return record;
}

bool link_to_line(BreakpointTable* table, BreakpointRecord* record) {
    int is_new = 0;
    HashEntry* const entry = hash_create(&table->by_line, &record->lineno, &is_new);
    if (entry == nullptr) {
        return false;
    }
    bp_widen(table);
    record->next = static_cast<BreakpointRecord*>(hash_get_value(entry));
    record->on_line_list = 1;
    hash_set_value(entry, record);
    return true;
}

BreakpointRecord* next_of_file(BreakpointRecord* record, const char* filename) {
    while (record != nullptr && strcmp(record->user_filename, filename) != 0) {
        record = record->next;
    }
    return record;
}

// The first of a file's breakpoints on a line; next_of_file(record->next, ...) gives the others.
BreakpointRecord* first_of_file(BreakpointTable* table, const char* filename, int lineno) {
    return next_of_file(bp_first_on_line(table, lineno), filename);
}

// A description of a breakpoint under construction. Making the tuple may run Python code; filling
// it does not, so that it shows the record at one moment.
class Description {
  public:
    explicit Description(Py_ssize_t size) : tuple_(Ref::steal(PyTuple_New(size))) {}
    explicit operator bool() const { return static_cast<bool>(tuple_); }

    void add(PyObject* item) {
        if (item == nullptr) {
            complete_ = false;
        }
        PyTuple_SET_ITEM(tuple_.get(), next_++, item);
    }
    void add_int(long value) { add(PyInt_FromLong(value)); }
    void add_state(const BreakpointRecord* record) {
        add_int(record->enabled);
        add_int(record->temporary);
        add(record->cond != nullptr ? PyString_FromString(record->cond) : new_none());
        add_int(record->ignore_count);
        add_int(record->hit_count);
    }
    bool append_to(PyObject* list) const {
        return complete_ && PyList_Append(list, tuple_.get()) == 0;
    }

  private:
    Ref tuple_;
    Py_ssize_t next_ = 0;
    bool complete_ = true;
};

// Appends what bp_get_file() tells of a record, or bp_get() without the line.
bool append_listed(PyObject* list, const BreakpointRecord* record, bool with_line) {
    Description description(with_line ? 7 : 6);
    if (!description) {
        return false;
    }
    if (with_line) {
        description.add_int(record->lineno);
    }
    description.add_int(record->id);
    description.add_state(record);
    return description.append_to(list);
}

bool append_line_of_file(PyObject* list, BreakpointRecord* record, const char* filename,
                         bool with_line) {
    for (record = next_of_file(record, filename); record != nullptr;
         record = next_of_file(record->next, filename)) {
        if (record->removed == 0 && !append_listed(list, record, with_line)) {
            return false;
        }
    }
    return true;
}

bool append_changed(PyObject* removed, PyObject* changed, const BreakpointRecord* record) {
    if (record->deleted != 0) {
        const Ref id = Ref::steal(PyInt_FromLong(record->id));
        return id && PyList_Append(removed, id.get()) == 0;
    }
    Description description(8);
    if (!description) {
        return false;
    }
    description.add(PyString_FromString(record->user_filename));
    description.add_int(record->lineno);
    description.add_int(record->id);
    description.add_state(record);
    return description.append_to(changed);
}

// The records on the changed list at one moment, in order.
struct ChangedRecords {
    std::unique_ptr<BreakpointRecord*, FreeDeleter> items;
    size_t count;
};

bool snapshot_changed(const BreakpointTable* table, ChangedRecords* records) {
    records->count = 0;
    for (const BreakpointRecord* record = table->changed_head; record != nullptr;
         record = record->next_changed) {
        ++records->count;
    }
    if (records->count == 0) {
        return true;
    }
    records->items.reset(
        static_cast<BreakpointRecord**>(malloc(records->count * sizeof(BreakpointRecord*))));
    if (!records->items) {
        return false;
    }
    size_t i = 0;
    for (BreakpointRecord* record = table->changed_head; record != nullptr;
         record = record->next_changed) {
        records->items.get()[i++] = record;
    }
    return true;
}

}  // namespace

BreakpointPin::~BreakpointPin() {
    if (--table_->pins != 0) {
        return;
    }
    while (BreakpointRecord* const record = table_->removed_head) {
        table_->removed_head = record->next_removed;
        free_record(record);
    }
}

void bp_table_init(BreakpointTable* table, CodeNameRegistry* registry) {
    hash_init(&table->by_line, sizeof(int32_t));
    table->changed_head = nullptr;
    table->next_id = 1;
    bp_forget_passed(table);
    hash_init(&table->module_files, kStringKeys);
    module_index_init(&table->module_index);
    table->registry = registry;
    table->module_count = 0;
    if (table->file_key == nullptr) {
        table->file_key = PyString_FromString("__file__");
        PyErr_Clear();
    }
}

void bp_table_reset(BreakpointTable* table, CodeNameRegistry* registry) {
    bp_clear_all(table);
    // What is left on the changed list fired and is in no other list.
    while (BreakpointRecord* const record = table->changed_head) {
        bp_unmark_changed(table, record);
        retire_record(table, record);
    }
    hash_delete_table_and_values(&table->module_files);
    module_index_clear(&table->module_index);
    bp_table_init(table, registry);
}

int64_t bp_set(BreakpointTable* table, const char* filename, int lineno, int enabled, int temporary,
               PyObject* cond, int ignore_count) {
    BreakpointRecord* const record =
        new_record(table, filename, lineno, enabled, temporary, cond, ignore_count);
    if (record == nullptr) {
        return kNoBreakpoint;
    }
    if (!link_to_line(table, record)) {
        free_record(record);
        return kNoBreakpoint;
    }
    if (find_bp_filename_synonyms(table, record) == 0) {
        bp_unlink(table, record);
        retire_record(table, record);
        return kNoBreakpoint;
    }
    return record->id;
}

void bp_clear(BreakpointTable* table, const char* filename, int lineno) {
    while (BreakpointRecord* const record = first_of_file(table, filename, lineno)) {
        bp_unlink(table, record);
        bp_unmark_changed(table, record);
        retire_record(table, record);
    }
}

int bp_enable(BreakpointTable* table, const char* filename, int lineno, int enabled) {
    int any_enabled = 0;
    for (BreakpointRecord* record = first_of_file(table, filename, lineno); record != nullptr;
         record = next_of_file(record->next, filename)) {
        record->enabled = enabled != 0 ? 1 : 0;
        bp_widen(table);
        any_enabled |= record->enabled;
    }
    return any_enabled;
}

int bp_ignore(BreakpointTable* table, const char* filename, int lineno, int count) {
    int found = 0;
    for (BreakpointRecord* record = first_of_file(table, filename, lineno); record != nullptr;
         record = next_of_file(record->next, filename)) {
        record->ignore_count = count;
        found = 1;
    }
    return found;
}

int bp_set_cond(BreakpointTable* table, const char* filename, int lineno, PyObject* cond) {
    const BreakpointPin pin(table);  // releasing a compiled condition may run Python code
    int found = 0;
    for (BreakpointRecord* record = first_of_file(table, filename, lineno); record != nullptr;
         record = next_of_file(record->next, filename)) {
        OwnedText copy;
        if (cond != Py_None) {
            copy = string_dup(cond);
            if (!copy) {
                if (PyErr_Occurred() == nullptr) {
                    out_of_memory();
                }
                return found;
            }
        }
        set_condition(record, copy.release());
        found = 1;
    }
    return found;
}

void bp_clear_all(BreakpointTable* table) {
    const BreakpointPin pin(table);
    HashSearch search;
    for (HashEntry* entry = hash_first(&table->by_line, &search); entry != nullptr;
         entry = hash_next(&search)) {
        auto* record = static_cast<BreakpointRecord*>(hash_get_value(entry));
        while (record != nullptr) {
            BreakpointRecord* const next = record->next;
            record->on_line_list = 0;
            bp_unmark_changed(table, record);
            retire_record(table, record);
            record = next;
        }
    }
    hash_delete_table(&table->by_line);
    hash_init(&table->by_line, sizeof(int32_t));
}

PyObject* bp_get(BreakpointTable* table, const char* filename, int lineno) {
    Ref list = Ref::steal(PyList_New(0));
    const BreakpointPin pin(table);
    if (!list ||
        !append_line_of_file(list.get(), bp_first_on_line(table, lineno), filename, false)) {
        return out_of_memory();
    }
    return list.release();
}

PyObject* bp_get_file(BreakpointTable* table, const char* filename) {
    Ref list = Ref::steal(PyList_New(0));
    if (!list) {
        return out_of_memory();
    }
    // The heads first: describing a record may run Python code that edits the table.
    const BreakpointPin pin(table);
    const size_t lines = table->by_line.num_entries;
    const std::unique_ptr<BreakpointRecord*, FreeDeleter> heads(
        static_cast<BreakpointRecord**>(malloc((lines + 1) * sizeof(BreakpointRecord*))));
    if (!heads) {
        return out_of_memory();
    }
    size_t count = 0;
    HashSearch search;
    for (HashEntry* entry = hash_first(&table->by_line, &search); entry != nullptr;
         entry = hash_next(&search)) {
        heads.get()[count++] = static_cast<BreakpointRecord*>(hash_get_value(entry));
    }
    for (size_t i = 0; i < count; ++i) {
        if (!append_line_of_file(list.get(), heads.get()[i], filename, true)) {
            return out_of_memory();
        }
    }
    return list.release();
}

PyObject* bp_take_changed(BreakpointTable* table) {
    const Ref removed = Ref::steal(PyList_New(0));
    const Ref changed = removed ? Ref::steal(PyList_New(0)) : Ref();
    Ref pair =
        removed && changed ? Ref::steal(PyTuple_Pack(2, removed.get(), changed.get())) : Ref();
    const BreakpointPin pin(table);
    ChangedRecords records = {};
    if (!pair || !snapshot_changed(table, &records)) {
        return out_of_memory();
    }
    for (size_t i = 0; i < records.count; ++i) {
        const BreakpointRecord* const record = records.items.get()[i];
        if (record->on_changed_list != 0 && !append_changed(removed.get(), changed.get(), record)) {
            return out_of_memory();
        }
    }
    for (size_t i = 0; i < records.count; ++i) {
        BreakpointRecord* const record = records.items.get()[i];
        if (record->on_changed_list == 0) {
            continue;
        }
        bp_unmark_changed(table, record);
        if (record->deleted != 0) {
            bp_unlink(table, record);
            retire_record(table, record);
        }
    }
    return pair.release();
}

void bp_mark_changed(BreakpointTable* table, BreakpointRecord* record) {
    if (record->on_changed_list == 0) {
        record->on_changed_list = 1;
        record->next_changed = table->changed_head;
        table->changed_head = record;
    }
}

void bp_unmark_changed(BreakpointTable* table, BreakpointRecord* record) {
    if (record->on_changed_list == 0) {
        return;
    }
    BreakpointRecord** link = &table->changed_head;
    while (*link != record) {
        link = &(*link)->next_changed;
    }
    *link = record->next_changed;
    record->next_changed = nullptr;
    record->on_changed_list = 0;
}

BreakpointRecord* bp_first_on_line(BreakpointTable* table, int lineno) {
    const int32_t key = lineno;
    HashEntry* const entry = hash_find(&table->by_line, &key);
    return entry != nullptr ? static_cast<BreakpointRecord*>(hash_get_value(entry)) : nullptr;
}

void bp_unlink(BreakpointTable* table, BreakpointRecord* record) {
    if (record->on_line_list == 0) {
        return;
    }
    record->on_line_list = 0;
    HashEntry* const entry = hash_find(&table->by_line, &record->lineno);
    auto* const head = static_cast<BreakpointRecord*>(hash_get_value(entry));
    if (head == record) {
        if (record->next == nullptr) {
            hash_delete_entry(entry);
        } else {
            hash_set_value(entry, record->next);
        }
        return;
    }
    BreakpointRecord* before = head;
    while (before->next != record) {
        before = before->next;
    }
    before->next = record->next;
}

}  // namespace morvik
