// The one store of breakpoints. A breakpoint lies under its line number and is compared by file
// name: exactly as the debug server gave it (user_filename) for every operation here, and by the
// file of the module that was loaded for it (module_filename) where code is matched.
//
// Needs the interpreter lock. Python code may run inside whatever makes Python objects (garbage
// collections) or evaluates conditions, and may edit the table meanwhile: whoever walks records
// across such a call pins the table, so that removed records stay readable until it is done.
#ifndef MORVIK_BPOPS_TABLE_H
#define MORVIK_BPOPS_TABLE_H

#include <cstdint>

#include "bpops/module_index.h"
#include "conames.h"
#include "hashtable.h"
#include "host/python.h"

namespace morvik {

// Owned by the table.
struct BreakpointRecord {
    uint32_t id;
    char* user_filename;    // owned; as given
    char* module_filename;  // owned; nullptr until its module is known
    int32_t lineno;
    uint8_t enabled;
    uint8_t temporary;     // goes with its first stop
    char* cond;            // owned condition; nullptr for none
    PyObject* cond_code;   // owned; the condition compiled, nullptr until first needed
    int32_t ignore_count;  // qualifying hits still to be passed over
    int32_t hit_count;
    int deleted;  // a temporary breakpoint that fired: reported and freed with the
                  // changed list
    int on_changed_list;
    int on_line_list;
    int removed;                     // freed once the table is not pinned any more
    BreakpointRecord* next;          // on the same line; still readable after removal
    BreakpointRecord* next_changed;  // on the changed list
    BreakpointRecord* next_removed;
};

// Code and line that no breakpoint stopped at, as long as `edition` is the table's.
struct PassedLine {
    const PyCodeObject* code;
    int line;
    uint32_t edition;
};

constexpr uint32_t kPassedLines = 4096;

struct BreakpointTable {
    HashTable by_line;               // line number to the head of its records, newest first
    BreakpointRecord* changed_head;  // most recently added first
    uint32_t next_id;
    HashTable module_files;    // known module files and their synonyms to module files (owned text)
    ModuleIndex module_index;  // the module files among them
    CodeNameRegistry* registry;
    int32_t module_count;  // module files entered in module_files
    char name_buf[kMaxPath + 1];
    PyObject* file_key;  // "__file__"
    int pins;
    BreakpointRecord* removed_head;
    // Counts whatever may change which code a breakpoint stops at.
    uint32_t edition;
    PassedLine passed[kPassedLines];
    // Told when breakpoints may stop where they did not before; may be nullptr.
    void (*widened)();
};

constexpr int64_t kNoBreakpoint = -1;

// What was learnt about lines that no breakpoint stops at holds no more.
inline void bp_forget_passed(BreakpointTable* table) { ++table->edition; }

// The same where a breakpoint may stop at more than before.
inline void bp_widen(BreakpointTable* table) {
    bp_forget_passed(table);
    if (table->widened != nullptr) {
        table->widened();
    }
}

inline PassedLine* passed_slot(BreakpointTable* table, const PyCodeObject* code, int line) {
    constexpr unsigned kAlignmentBits = 4;
    const auto address = reinterpret_cast<uintptr_t>(code) >> kAlignmentBits;
    return &table->passed[(address + static_cast<uintptr_t>(line) * 31) % kPassedLines];
}

// Whether it is known that no enabled breakpoint belongs to this line of this code.
inline bool bp_is_passed(BreakpointTable* table, const PyCodeObject* code, int line) {
    const PassedLine* const slot = passed_slot(table, code, line);
    return slot->code == code && slot->line == line && slot->edition == table->edition;
}

// To be called for registered code only: the registry keeps the code object, so that its address
// stays its own, and its file does not depend on the frame.
inline void bp_note_passed(BreakpointTable* table, const PyCodeObject* code, int line) {
    *passed_slot(table, code, line) = {code, line, table->edition};
}

// Keeps removed records readable for a scope.
class BreakpointPin {
  public:
    explicit BreakpointPin(BreakpointTable* table) : table_(table) { ++table_->pins; }
    ~BreakpointPin();
    BreakpointPin(const BreakpointPin&) = delete;
    BreakpointPin& operator=(const BreakpointPin&) = delete;

  private:
    BreakpointTable* table_;
};

void bp_table_init(BreakpointTable* table, CodeNameRegistry* registry);
// Drops everything; ids start at 1 again.
void bp_table_reset(BreakpointTable* table, CodeNameRegistry* registry);

// Adds one more breakpoint. Its id, or kNoBreakpoint when out of memory or when `cond` is neither
// None nor a string (that error is set); the id is used up all the same.
int64_t bp_set(BreakpointTable* table, const char* filename, int lineno, int enabled, int temporary,
               PyObject* cond, int ignore_count);

// Each of these acts on all breakpoints at a file and line. 1 when at least one was enabled or
// found, else 0.
void bp_clear(BreakpointTable* table, const char* filename, int lineno);
int bp_enable(BreakpointTable* table, const char* filename, int lineno, int enabled);
int bp_ignore(BreakpointTable* table, const char* filename, int lineno, int count);
// An error is set when `cond` is neither None nor a string; the old condition then stays.
int bp_set_cond(BreakpointTable* table, const char* filename, int lineno, PyObject* cond);

void bp_clear_all(BreakpointTable* table);

// New lists, or nullptr with MemoryError set.
// (id, enabled, temporary, cond or None, ignore_count, hit_count), newest first.
PyObject* bp_get(BreakpointTable* table, const char* filename, int lineno);
// (lineno, id, enabled, temporary, cond or None, ignore_count, hit_count).
PyObject* bp_get_file(BreakpointTable* table, const char* filename);

// What changed since the last call: ([ids of temporary breakpoints that fired], [(user_filename,
// lineno, id, enabled, temporary, cond or None, ignore_count, hit_count)]). New reference; nullptr
// with MemoryError set and nothing taken.
PyObject* bp_take_changed(BreakpointTable* table);

void bp_mark_changed(BreakpointTable* table, BreakpointRecord* record);
void bp_unmark_changed(BreakpointTable* table, BreakpointRecord* record);

// The first breakpoint on a line, or nullptr.
BreakpointRecord* bp_first_on_line(BreakpointTable* table, int lineno);

// Takes a record off its line.
void bp_unlink(BreakpointTable* table, BreakpointRecord* record);

}  // namespace morvik

#endif
