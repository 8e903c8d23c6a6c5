// Will an exception be caught? Answered before the interpreter unwinds anything, by reading the
// frames' block stacks and the bytecode of their except clauses.
//
// Runs no Python code of the program's but that of classes which decide themselves what they
// match, and sets no error: whatever cannot be told that way does not catch. Needs the interpreter
// lock.
#ifndef MORVIK_EXCEPTOPS_HANDLERS_H
#define MORVIK_EXCEPTOPS_HANDLERS_H

#include "host/opcodes.h"
#include "host/python.h"

namespace morvik {

enum class HandlerMatch {
    kAny = 0,    // a bare "except:" catches
    kTyped = 1,  // only a clause that names a class or a base of it does
    kExact = 2,  // only a clause that names the very class does
};

// What is asked whether a clause's class matches.
enum class ClassTests {
    kAll,
    kWithoutCode,  // a class with code of its own to decide it does not match
};

// 1 if a handler that catches the exception is active in the frame or, unless `this_frame_only`
// is set, in one of its callers. Frames whose code or self is a key of the `ignored` dictionary
// (or nullptr) count as having none.
int exception_is_handled(PyFrameObject* frame, PyObject* ignored, PyObject* exception,
                         HandlerMatch mode, bool this_frame_only,
                         const OpcodeTable& opcodes = kHostOpcodes,
                         ClassTests tests = ClassTests::kAll);

// Where an exception goes on.
struct FoundHandler {
    PyFrameObject* frame;  // borrowed; nullptr: nowhere
    Py_ssize_t
        clause;  // the offset of the except clause in its code; kLoopEnd where it ends a loop
};

inline constexpr Py_ssize_t kLoopEnd = -1;

// The handler that exception_is_handled() would find, with a bare "except:" as good as any.
FoundHandler find_handler(PyFrameObject* frame, PyObject* ignored, PyObject* exception);

inline constexpr int kNoBlock = -1;

// The index of the frame's block whose clauses take the exception, as far as can be told without
// running Python code; that of the innermost block where it ends a loop. kNoBlock for none.
int taking_block(PyFrameObject* frame, PyObject* ignored, PyObject* exception);

// 1 if `ignored` is a dictionary that has the frame or its code object as a key.
int handler_is_ignored(PyFrameObject* frame, PyObject* ignored);

// Where a code object's instructions stand.
struct CodeRange {
    const unsigned char* start;
    const unsigned char* end;
};

// 1 if one of the clauses at a block's handler offset catches the exception.
int handler_catches(PyFrameObject* frame, int handler_offset, PyObject* exception,
                    const CodeRange& range, HandlerMatch mode, const OpcodeTable& opcodes,
                    ClassTests tests = ClassTests::kAll);

// 1 if the frame is about to fetch the next item of a loop that this exception ends.
int loop_ends_on_exception(PyFrameObject* frame, PyObject* exception, const CodeRange& range,
                           const OpcodeTable& opcodes);

// 1 for the place in the standard regular-expression parser that raises and catches an exception
// as part of its normal work.
int is_sre_parse_probe(const char* filename, int lineno);

}  // namespace morvik

#endif
