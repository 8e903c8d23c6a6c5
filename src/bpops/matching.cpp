#include "bpops/matching.h"

#include <cstring>
#include <utility>

#include "bpops/resolution.h"
#include "dbgcommon.h"
#include "dprintf.h"
#include "host/ref.h"

namespace morvik {

namespace {

enum class Condition { kHolds, kFails, kCannotBeEvaluated };

// The condition's code, compiled once; nullptr with an error set. New reference: the condition
// may be changed while it runs.
Ref condition_code(BreakpointRecord* record) {
    if (record->cond_code == nullptr) {
        // Compiling allocates, so that a collection may run and change the condition.
        const OwnedText text(strdup(record->cond));
        if (!text) {
            out_of_memory();
            return Ref();
        }
        const Ref code = Ref::steal(Py_CompileString(text.get(), "<string>", Py_eval_input));
        if (!code || record->cond == nullptr || strcmp(text.get(), record->cond) != 0) {
            return Ref::share(code.get());
        }
        set_slot(record->cond_code, code.get());
    }
    return Ref::share(record->cond_code);
}

// Where a thread is, as breakpoints name it.
struct Location {
    PyFrameObject* frame;
    PyObject* hook;    // the sub-language hook that translated the frame, or nullptr
    Ref translation;   // keeps `file` alive where the hook gave it
    OwnedText copy;    // likewise, where another look-up would overwrite it
    const char* file;  // nullptr when unknown
    int line;
};

bool has_functions(const PyCodeObject* code) {
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(code->co_consts); ++i) {
        if (PyCode_Check(PyTuple_GET_ITEM(code->co_consts, i))) {
            return true;
        }
    }
    return false;
}

// What is global for functions in a condition: they are to see the local variables, too.
Ref globals_and_locals(PyObject* globals, PyObject* locals) {
    Ref both = Ref::steal(PyDict_Copy(globals));
    return both && PyDict_Update(both.get(), locals) == 0 ? std::move(both) : Ref();
}

// New reference, or nullptr with an error set. Changes that the condition makes to locals are not
// written back to the frame.
Ref evaluate_in_python(BreakpointRecord* record, PyFrameObject* frame) {
    const Ref code = condition_code(record);
    Ref globals = Ref::share(frame->f_globals);
    const Ref locals = Ref::share(frame->f_locals);
    if (!code || !locals) {
        return Ref();
    }
    auto* const compiled = reinterpret_cast<PyCodeObject*>(code.get());
    if (has_functions(compiled) && locals.get() != globals.get()) {
        globals = globals_and_locals(globals.get(), locals.get());
    }
    return globals ? Ref::steal(PyEval_EvalCode(compiled, globals.get(), locals.get())) : Ref();
}

Ref evaluate_in_sub_language(const BreakpointRecord* record, const Location& location) {
    const Ref text = Ref::steal(PyString_FromString(record->cond));
    return text ? call_method(location.hook, "_Eval", "OO", text.get(), as_object(location.frame))
                : Ref();
}

Condition evaluate_condition(BreakpointRecord* record, const Location& location) {
    const PendingErrorGuard keep_error;
    PyFrame_FastToLocals(location.frame);
    // The destructor of an old local may have taken away either.
    if (record->removed != 0) {
        return Condition::kFails;
    }
    if (record->cond == nullptr) {
        return Condition::kHolds;
    }
    const Ref result = location.hook == nullptr ? evaluate_in_python(record, location.frame)
                                                : evaluate_in_sub_language(record, location);
    if (!result || PyErr_Occurred() != nullptr) {
        if (PyErr_Occurred() == nullptr) {
            out_of_memory();  // not every part of the compiler says so
        }
        drop_error("the value of a condition");
        return Condition::kCannotBeEvaluated;
    }
    const int truth = PyObject_IsTrue(result.get());
    if (truth < 0) {
        drop_error("the value of a condition");
        return Condition::kCannotBeEvaluated;
    }
    return truth != 0 ? Condition::kHolds : Condition::kFails;
}

bool files_match(BreakpointTable* table, const BreakpointRecord* record, const Location& location) {
    bool match = false;
    if (location.hook != nullptr) {
        match = strcmp(location.file, record->user_filename) == 0;
        dprintf(kLogBreakpoints, "sub_language bp codefile = %s, bp->user_filename = %s\n",
                location.file, record->user_filename);
    } else if (record->module_filename != nullptr) {
        const char* const modfile = find_module_for_file(table, location.file);
        match = modfile != nullptr && strcmp(modfile, record->module_filename) == 0;
        dprintf(kLogBreakpoints, "modfile = %s, bp->module_filename = %s\n", text_or_null(modfile),
                record->module_filename);
    }
    dprintf(kLogBreakpoints, "files_match = %d\n", match ? 1 : 0);
    return match;
}

// One breakpoint whose place was reached: whether it stops the thread.
bool check_hit(BreakpointTable* table, BreakpointRecord* record, const Location& location,
               bool count) {
    if (count) {
        ++record->hit_count;
        bp_mark_changed(table, record);
    }
    if (record->cond != nullptr) {
        const Condition condition = evaluate_condition(record, location);
        if (condition == Condition::kCannotBeEvaluated) {
            // The user is to see it; the hit is not used up.
            return true;
        }
        if (record->removed != 0 || condition == Condition::kFails) {
            return false;
        }
    }
    if (record->ignore_count > 0 && count) {
        --record->ignore_count;
        bp_mark_changed(table, record);
        return false;
    }
    if (record->temporary != 0 && count) {
        record->deleted = 1;
        bp_mark_changed(table, record);
        // Off its line at once, so that it does not fire again before it is reported.
        bp_unlink(table, record);
    }
    return true;
}

// Asks the hook whether it would stop here at all, and where that is. False when it says no or
// gives no proper answer.
bool translate(Location* location, int event) {
    constexpr int kStepOver = 1;
    const PendingErrorGuard drop_errors;
    PyObject* const frame = as_object(location->frame);
    const Ref wanted = call_method(location->hook, "_StopHere", "Oii", frame, event, kStepOver);
    if (!wanted || PyObject_IsTrue(wanted.get()) != 1) {
        drop_error("a place in a sub-language");
        return false;
    }
    location->translation = call_method(location->hook, "_TranslateFrame", "Oi", frame, 0);
    // There may be more to it than file and line.
    const Ref place = location->translation
                          ? Ref::steal(PyTuple_GetSlice(location->translation.get(), 0, 2))
                          : Ref();
    if (!place || PyArg_ParseTuple(place.get(), "si", &location->file, &location->line) == 0) {
        drop_error("a place in a sub-language");
        return false;
    }
    return true;
}

// The file of a frame of plain Python; a module that is seen for the first time resolves its
// breakpoints now.
void find_code_file(BreakpointTable* table, Location* location) {
    const PendingErrorGuard keep_error;
    location->file = LookupCOPathname(table->registry, location->frame);
    if (location->file == table->registry->rel_buf) {
        // The next look-up, in a condition say, overwrites it.
        location->copy.reset(strdup(location->file));
        location->file = location->copy.get();
        if (location->file == nullptr) {
            report_out_of_memory("the name of a breakpoint's file");
        }
    }
    dprintf(kLogBreakpoints, "CODE FILE %s\n", text_or_null(location->file));
    __tracer_resolve_bp_filenames(table, location->file);
}

// No enabled breakpoint belongs here.
void note_passed(BreakpointTable* table, const Location& location) {
    PyCodeObject* const code = location.frame->f_code;
    if (location.hook == nullptr && registered_pathname(table->registry, code) != nullptr) {
        bp_note_passed(table, code, location.line);
    }
}

// Whether any line of the code passes the test.
template <typename Test>
bool any_line(const PyCodeObject* code, Test test) {
    int line = code->co_firstlineno;
    if (!PyString_Check(code->co_lnotab)) {
        return true;
    }
    const auto* const steps =
        reinterpret_cast<const unsigned char*>(PyString_AS_STRING(code->co_lnotab));
    const Py_ssize_t size = PyString_GET_SIZE(code->co_lnotab);
    for (Py_ssize_t i = 0; i + 1 < size; i += 2) {
        if (steps[i] != 0 && test(line)) {
            return true;
        }
        line += steps[i + 1];
    }
    return test(line);
}

bool any_belongs(BreakpointTable* table, const BreakpointRecord* breakpoint,
                 const Location& location) {
    for (; breakpoint != nullptr; breakpoint = breakpoint->next) {
        if (breakpoint->removed == 0 && breakpoint->deleted == 0 && breakpoint->enabled != 0 &&
            files_match(table, breakpoint, location)) {
            return true;
        }
    }
    return false;
}

}  // namespace

MayStop bp_ask_code(BreakpointTable* table, PyFrameObject* frame) {
    const ErrnoGuard keep_errno;
    const PendingErrorGuard keep_error;
    const BreakpointPin pin(table);
    const PyCodeObject* const code = frame->f_code;
    const unsigned shortages = out_of_memory_count();
    if (!any_line(code, [table](int line) { return bp_first_on_line(table, line) != nullptr; })) {
        return MayStop::kNo;
    }
    Location location = {frame, nullptr, Ref(), nullptr, nullptr, 0};
    find_code_file(table, &location);
    const uint32_t edition = table->edition;
    const bool may_stop = location.file == nullptr || any_line(code, [table, &location](int line) {
                              return any_belongs(table, bp_first_on_line(table, line), location);
                          });
    if (edition != table->edition || out_of_memory_count() != shortages) {
        return MayStop::kPerhaps;
    }
    return may_stop ? MayStop::kYes : MayStop::kNo;
}

int bp_check(BreakpointTable* table, int event, PyObject* hook, PyFrameObject* frame, int record) {
    // A hook is asked even where no breakpoint is set: it may count on being asked.
    if (!is_frame(frame) || (hook == nullptr && table->by_line.num_entries == 0)) {
        return 0;
    }
    const Ref held_hook = Ref::share(hook);
    Location location = {frame, hook, Ref(), nullptr, nullptr, frame_line(frame)};
    if (hook != nullptr && !translate(&location, event)) {
        return 0;
    }
    BreakpointRecord* breakpoint = bp_first_on_line(table, location.line);
    if (breakpoint == nullptr) {
        note_passed(table, location);
        return 0;
    }
    dprintf(kLogBreakpoints, "Found bp table entry for lineno %d\n", location.line);
    const BreakpointPin pin(table);
    const unsigned shortages = out_of_memory_count();
    if (hook == nullptr) {
        find_code_file(table, &location);
    }
    int stop = 0;
    bool belongs = false;
    for (; breakpoint != nullptr && location.file != nullptr; breakpoint = breakpoint->next) {
        if (breakpoint->removed != 0 || breakpoint->deleted != 0 ||
            !files_match(table, breakpoint, location) || breakpoint->enabled == 0) {
            continue;
        }
        belongs = true;
        if (check_hit(table, breakpoint, location, record != 0)) {
            stop = 1;
        }
    }
    if (!belongs && out_of_memory_count() == shortages) {
        note_passed(table, location);
    }
    return stop;
}

}  // namespace morvik
