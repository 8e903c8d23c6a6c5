#include "bpops/matching.h"

#include <cstring>

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
        const Ref code = Ref::steal(
            text ? Py_CompileString(text.get(), "<string>", Py_eval_input) : nullptr);
        if (!code || record->cond == nullptr || strcmp(text.get(), record->cond) != 0) {
            return Ref::share(code.get());
        }
        set_slot(record->cond_code, code.get());
    }
    return Ref::share(record->cond_code);
}

Condition evaluate_condition(BreakpointRecord* record, PyFrameObject* frame) {
    const PendingErrorGuard keep_error;
    PyFrame_FastToLocals(frame);
    const Ref code = condition_code(record);
    const Ref globals = Ref::share(frame->f_globals);
    const Ref locals = Ref::share(frame->f_locals);
    const Ref result =
        code && locals ? Ref::steal(PyEval_EvalCode(reinterpret_cast<PyCodeObject*>(code.get()),
                                                    globals.get(), locals.get()))
                       : Ref();
    if (!result || PyErr_Occurred() != nullptr) {
        return Condition::kCannotBeEvaluated;
    }
    const int truth = PyObject_IsTrue(result.get());
    if (truth < 0) {
        return Condition::kCannotBeEvaluated;
    }
    return truth != 0 ? Condition::kHolds : Condition::kFails;
}

bool files_match(BreakpointTable* table, const BreakpointRecord* record, const char* code_file) {
    bool match = false;
    if (record->module_filename != nullptr) {
        const char* const modfile = find_module_for_file(table, code_file);
        match = modfile != nullptr && strcmp(modfile, record->module_filename) == 0;
        dprintf(kLogBreakpoints, "modfile = %s, bp->module_filename = %s\n",
                text_or_null(modfile), record->module_filename);
    }
    dprintf(kLogBreakpoints, "files_match = %d\n", match ? 1 : 0);
    return match;
}

// One breakpoint whose place was reached: whether it stops the thread.
bool check_hit(BreakpointTable* table, BreakpointRecord* record, PyFrameObject* frame, bool count) {
    if (count) {
        ++record->hit_count;
        bp_mark_changed(table, record);
    }
    if (record->cond != nullptr) {
        const Condition condition = evaluate_condition(record, frame);
        if (record->removed != 0 || condition == Condition::kFails) {
            return false;
        }
        if (condition == Condition::kCannotBeEvaluated) {
            // The user is to see it; the hit is not used up.
            return true;
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

}  // namespace

int bp_check(BreakpointTable* table, PyFrameObject* frame, int record) {
    if (table->by_line.num_entries == 0 || !is_frame(frame)) {
        return 0;
    }
    BreakpointRecord* breakpoint = bp_first_on_line(table, frame->f_lineno);
    if (breakpoint == nullptr) {
        return 0;
    }
    dprintf(kLogBreakpoints, "Found bp table entry for lineno %d\n", frame->f_lineno);
    const BreakpointPin pin(table);
    OwnedText copied_file;
    const char* code_file = nullptr;
    {
        const PendingErrorGuard keep_error;
        code_file = LookupCOPathname(table->registry, frame);
        if (code_file == table->registry->rel_buf) {
            // The next look-up, in a condition say, overwrites it.
            copied_file.reset(strdup(code_file));
            code_file = copied_file.get();
        }
        dprintf(kLogBreakpoints, "CODE FILE %s\n", text_or_null(code_file));
        __tracer_resolve_bp_filenames(table, code_file);
    }
    int stop = 0;
    for (; breakpoint != nullptr && code_file != nullptr; breakpoint = breakpoint->next) {
        if (breakpoint->removed == 0 && breakpoint->deleted == 0 &&
            files_match(table, breakpoint, code_file) && breakpoint->enabled != 0 &&
            check_hit(table, breakpoint, frame, record != 0)) {
            stop = 1;
        }
    }
    return stop;
}

}  // namespace morvik
