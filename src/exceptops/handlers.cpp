#include "exceptops/handlers.h"

#include <cstring>

#include "dbgcommon.h"
#include "dprintf.h"
#include "exceptops/static_lookup.h"
#include "host/ref.h"

namespace morvik {

namespace {

struct Instruction {
    int opcode;
    Py_ssize_t argument;
};

// Where a scan of a frame's code stands and what it looks for.
struct Scan {
    PyFrameObject* frame;
    PyObject* exception;
    CodeRange range;
    HandlerMatch mode;
    const OpcodeTable& opcodes;
    ClassTests tests;
    const unsigned char* position;
};

bool at_end(const Scan& scan) { return scan.position >= scan.range.end; }

// Reads one instruction without looking behind an EXTENDED_ARG. False where the code is cut off.
bool decode_plain(Scan* scan, Instruction* instruction) {
    constexpr int kArgumentSize = 2;
    constexpr int kByteBits = 8;
    if (at_end(*scan)) {
        return false;
    }
    instruction->opcode = *scan->position++;
    instruction->argument = 0;
    if (instruction->opcode >= scan->opcodes.have_argument) {
        if (scan->range.end - scan->position < kArgumentSize) {
            return false;
        }
        instruction->argument = scan->position[0] | scan->position[1] << kByteBits;
        scan->position += kArgumentSize;
    }
    return true;
}

[[gnu::always_inline]] inline bool decode(Scan* scan, Instruction* instruction) {
    constexpr int kExtensionBits = 16;
    if (!decode_plain(scan, instruction)) {
        return false;
    }
    if (instruction->opcode == scan->opcodes.extended_arg) {
        const Py_ssize_t high = instruction->argument << kExtensionBits;
        if (!decode_plain(scan, instruction)) {
            return false;
        }
        instruction->argument += high;
    }
    dprintf(kLogExceptions, "Returning opcode of %d\n", instruction->opcode);
    return true;
}

// Item of a tuple (borrowed), or nullptr.
PyObject* tuple_item(PyObject* tuple, Py_ssize_t index) {
    return tuple != nullptr && PyTuple_Check(tuple) && index < PyTuple_GET_SIZE(tuple)
               ? PyTuple_GET_ITEM(tuple, index)
               : nullptr;
}

// The value of a name in a dictionary (borrowed), or nullptr. Other mappings would run code.
PyObject* dict_item(PyObject* dict, PyObject* name) {
    return dict != nullptr && PyDict_Check(dict) ? PyDict_GetItem(dict, name) : nullptr;
}

PyObject* find_name(const PyFrameObject* frame, PyObject* name, bool with_locals) {
    PyObject* value = nullptr;
    if (name != nullptr) {
        value = with_locals ? dict_item(frame->f_locals, name) : nullptr;
        value = value != nullptr ? value : dict_item(frame->f_globals, name);
        value = value != nullptr ? value : dict_item(frame->f_builtins, name);
    }
    return value;
}

PyObject* fast_local(const PyFrameObject* frame, Py_ssize_t index) {
    const PyCodeObject* const code = frame->f_code;
    return tuple_item(code->co_varnames, index) != nullptr && index < code->co_nlocals
               ? frame->f_localsplus[index]
               : nullptr;
}

bool is_exactly(PyObject* exception, PyObject* candidate) {
    if (!PyType_Check(candidate) && !PyClass_Check(candidate)) {
        return false;
    }
    return candidate == exception || candidate == reinterpret_cast<PyObject*>(Py_TYPE(exception));
}

bool matches(const Scan& scan, PyObject* candidate) {
    if (scan.mode != HandlerMatch::kExact) {
        return scan.tests == ClassTests::kAll
                   ? exception_matches(scan.exception, candidate) != 0
                   : match_without_code(scan.exception, candidate) == Match::kYes;
    }
    if (!PyTuple_Check(candidate)) {
        return is_exactly(scan.exception, candidate);
    }
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(candidate); ++i) {
        if (is_exactly(scan.exception, PyTuple_GET_ITEM(candidate, i))) {
            return true;
        }
    }
    return false;
}

// What a load puts on the stack; `held` is what an attribute is looked up in. Empty where the
// instruction loads nothing that can be told.
Ref load(const Scan& scan, const Instruction& instruction, const Ref& held) {
    const OpcodeTable& opcodes = scan.opcodes;
    const PyCodeObject* const code = scan.frame->f_code;
    const Py_ssize_t argument = instruction.argument;
    if (instruction.opcode == opcodes.load_const) {
        return Ref::share(tuple_item(code->co_consts, argument));
    }
    if (instruction.opcode == opcodes.load_fast) {
        return Ref::share(fast_local(scan.frame, argument));
    }
    PyObject* const name = tuple_item(code->co_names, argument);
    if (instruction.opcode == opcodes.load_attr) {
        return name != nullptr && held ? static_attribute(held.get(), name) : Ref();
    }
    return Ref::share(find_name(scan.frame, name, instruction.opcode == opcodes.load_name));
}

bool is_load(const OpcodeTable& opcodes, int opcode) {
    return opcode == opcodes.load_const || opcode == opcodes.load_name ||
           opcode == opcodes.load_global || opcode == opcodes.load_fast ||
           opcode == opcodes.load_attr;
}

// After the comparison of a clause: goes to the next clause. False for anything but the sequence
// that the compiler makes.
bool skip_to_next_clause(Scan* scan) {
    Instruction instruction = {};
    if (!decode(scan, &instruction) || instruction.opcode != scan->opcodes.jump_if_false) {
        return false;
    }
    const Py_ssize_t offset = scan->position - scan->range.start;
    const Py_ssize_t target =
        scan->opcodes.jump_is_absolute ? instruction.argument : offset + instruction.argument;
    if (target < offset || target >= scan->range.end - scan->range.start) {
        return false;  // clauses follow each other: the scan ends, whatever the code says
    }
    scan->position = scan->range.start + target;
    return scan->opcodes.jump_is_absolute ||
           (decode(scan, &instruction) && instruction.opcode == scan->opcodes.pop_top);
}

// Whether the typed clause that starts at the position catches the exception. Leaves the position
// at the next clause, or at the code's end where the clause could not be read.
bool clause_matches(Scan* scan) {
    Ref held;
    bool matched = false;
    Instruction instruction = {};
    while (decode(scan, &instruction)) {
        if (instruction.opcode == scan->opcodes.compare_op) {
            if (instruction.argument == kCompareExceptionMatch && skip_to_next_clause(scan)) {
                return matched;
            }
            break;
        }
        if (instruction.opcode == scan->opcodes.build_tuple) {
            continue;  // its items were tested one by one
        }
        if (!is_load(scan->opcodes, instruction.opcode)) {
            break;
        }
        if (matched) {
            continue;
        }
        Ref loaded = load(*scan, instruction, held);
        held = Ref();
        if (!at_end(*scan) && *scan->position == scan->opcodes.load_attr) {
            held = std::move(loaded);
        } else if (loaded) {
            matched = matches(*scan, loaded.get());
        }
    }
    scan->position = scan->range.end;
    return false;
}

bool code_range(const PyFrameObject* frame, CodeRange* range) {
    PyObject* const code = frame->f_code->co_code;
    if (!PyString_CheckExact(code)) {
        return false;
    }
    range->start = reinterpret_cast<const unsigned char*>(PyString_AS_STRING(code));
    range->end = range->start + PyString_GET_SIZE(code);
    return true;
}

constexpr Py_ssize_t kNoClause = -2;

// The offset of the clause at a block's handler offset that catches the exception, or kNoClause.
Py_ssize_t find_clause(PyFrameObject* frame, int handler_offset, PyObject* exception,
                       const CodeRange& range, HandlerMatch mode, const OpcodeTable& opcodes,
                       ClassTests tests) {
    if (handler_offset < 0 || handler_offset >= range.end - range.start) {
        return kNoClause;
    }
    Scan scan = {frame, exception, range, mode, opcodes, tests, range.start + handler_offset};
    Instruction instruction = {};
    const unsigned char* clause = scan.position;
    while (decode(&scan, &instruction)) {
        if (instruction.opcode == opcodes.pop_top) {
            return mode == HandlerMatch::kAny ? clause - range.start : kNoClause;
        }
        if (instruction.opcode != opcodes.dup_top) {
            return kNoClause;
        }
        if (clause_matches(&scan)) {
            return clause - range.start;
        }
        clause = scan.position;
    }
    return kNoClause;
}

// Whether it is plain that a key is neither the frame nor its code.
bool is_other(PyObject* key, PyFrameObject* frame) {
    if (!PyCode_Check(key)) {
        return PyFrame_Check(key) && key != as_object(frame);
    }
    const auto* const one = reinterpret_cast<PyCodeObject*>(key);
    const PyCodeObject* const other = frame->f_code;
    return one->co_firstlineno != other->co_firstlineno || one->co_argcount != other->co_argcount ||
           one->co_nlocals != other->co_nlocals || one->co_flags != other->co_flags;
}

// Whether the frame or its code may be a key of the dictionary. Looking code up in one takes the
// hash of all its constants and names, at every exception that a frame may handle.
bool may_be_key(PyFrameObject* frame, PyObject* dict) {
    constexpr Py_ssize_t kLargeMask = 63;
    const auto* const table = reinterpret_cast<PyDictObject*>(dict);
    if (table->ma_mask > kLargeMask) {
        return true;
    }
    for (Py_ssize_t i = 0; i <= table->ma_mask; ++i) {
        const PyDictEntry& entry = table->ma_table[i];
        if (entry.me_value != nullptr && !is_other(entry.me_key, frame)) {
            return true;
        }
    }
    return false;
}

// Where in a frame an exception goes on.
struct Place {
    Py_ssize_t clause;  // kLoopEnd or kNoClause for none
    int block;          // the one that it is a clause of; the innermost one's for kLoopEnd
};

constexpr Place kNowhere = {kNoClause, kNoBlock};

Place find_in_frame(PyFrameObject* frame, PyObject* ignored, PyObject* exception, HandlerMatch mode,
                    const OpcodeTable& opcodes, ClassTests tests) {
    CodeRange range = {};
    if (!code_range(frame, &range)) {
        return kNowhere;
    }
    bool is_heeded = false;
    for (int i = frame->f_iblock - 1; i >= 0; --i) {
        const PyTryBlock& block = frame->f_blockstack[i];
        if (block.b_type != opcodes.setup_except) {
            continue;
        }
        is_heeded = is_heeded || handler_is_ignored(frame, ignored) == 0;
        if (!is_heeded) {
            return kNowhere;
        }
        const Py_ssize_t clause =
            find_clause(frame, block.b_handler, exception, range, mode, opcodes, tests);
        if (clause != kNoClause) {
            return {clause, i};
        }
    }
    return loop_ends_on_exception(frame, exception, range, opcodes) != 0 &&
                   (is_heeded || handler_is_ignored(frame, ignored) == 0)
               ? Place{kLoopEnd, frame->f_iblock - 1}
               : kNowhere;
}

}  // namespace

int exception_is_handled(PyFrameObject* frame, PyObject* ignored, PyObject* exception,
                         HandlerMatch mode, bool this_frame_only, const OpcodeTable& opcodes,
                         ClassTests tests) {
    for (; is_frame(frame); frame = frame_back(frame)) {
        if (find_in_frame(frame, ignored, exception, mode, opcodes, tests).clause != kNoClause) {
            return 1;
        }
        if (this_frame_only) {
            break;
        }
    }
    return 0;
}

FoundHandler find_handler(PyFrameObject* frame, PyObject* ignored, PyObject* exception) {
    for (; is_frame(frame); frame = frame_back(frame)) {
        const Py_ssize_t clause = find_in_frame(frame, ignored, exception, HandlerMatch::kAny,
                                                kHostOpcodes, ClassTests::kAll)
                                      .clause;
        if (clause != kNoClause) {
            return {frame, clause};
        }
    }
    return {nullptr, kNoClause};
}

int taking_block(PyFrameObject* frame, PyObject* ignored, PyObject* exception) {
    return find_in_frame(frame, ignored, exception, HandlerMatch::kAny, kHostOpcodes,
                         ClassTests::kWithoutCode)
        .block;
}

int handler_is_ignored(PyFrameObject* frame, PyObject* ignored) {
    if (ignored == nullptr || !PyDict_Check(ignored) || !is_frame(frame) ||
        !may_be_key(frame, ignored)) {
        return 0;
    }
    return PyDict_GetItem(ignored, reinterpret_cast<PyObject*>(frame->f_code)) != nullptr ||
                   PyDict_GetItem(ignored, as_object(frame)) != nullptr
               ? 1
               : 0;
}

int handler_catches(PyFrameObject* frame, int handler_offset, PyObject* exception,
                    const CodeRange& range, HandlerMatch mode, const OpcodeTable& opcodes,
                    ClassTests tests) {
    return find_clause(frame, handler_offset, exception, range, mode, opcodes, tests) != kNoClause
               ? 1
               : 0;
}

int loop_ends_on_exception(PyFrameObject* frame, PyObject* exception, const CodeRange& range,
                           const OpcodeTable& opcodes) {
    const long last = frame->f_lasti;
    if (last < 0 || last >= range.end - range.start || range.start[last] != opcodes.for_iter) {
        return 0;
    }
    return exception_matches(exception, PyExc_IndexError) != 0 ||
                   exception_matches(exception, PyExc_StopIteration) != 0
               ? 1
               : 0;
}

int is_sre_parse_probe(const char* filename, int lineno) {
    constexpr char kFile[] = "sre_parse.py";
    constexpr size_t kFileLength = sizeof(kFile) - 1;
    constexpr int kProbeLine = 139;
    const size_t length = strlen(filename);
    return lineno == kProbeLine && length >= kFileLength &&
                   strcmp(filename + length - kFileLength, kFile) == 0
               ? 1
               : 0;
}

}  // namespace morvik
