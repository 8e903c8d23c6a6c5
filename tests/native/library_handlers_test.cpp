// The analysis over every function of the interpreter's own library.
#include "exceptops/handlers.h"
#include "python_fixture.h"

namespace morvik {
namespace {

// Compiles the library's files one after the other. Gives for each its name, its code, and for
// the line of each try statement that ends in a bare "except:" the names in the clauses before.
constexpr char kLibrary[] = R"(
import ast, os, re

BARE = re.compile(r"\bexcept\s*:")

def bare_clauses(tree):
    lines = {}
    for node in ast.walk(tree):
        if isinstance(node, ast.TryExcept) and node.handlers[-1].type is None:
            lines[node.lineno] = [
                name.id for handler in node.handlers[:-1] for name in ast.walk(handler.type)
                if isinstance(name, ast.Name)]
    return lines

def library():
    for folder, folders, names in os.walk(os.path.dirname(os.__file__)):
        for path in [os.path.join(folder, name) for name in sorted(names)]:
            if not path.endswith(".py") or not os.path.isfile(path):
                continue
            source = open(path, "U")
            text = source.read()
            source.close()
            try:
                code = compile(text, path, "exec")
            except SyntaxError:
                continue    # what the library's own tests are fed
            lines = {}
            if BARE.search(text):
                lines = bare_clauses(ast.parse(text))
            yield path, code, lines

class Alien:
    pass
)";

class LibraryHandlersTest : public PythonTest {
  protected:
    // Analyses each try block of a code object as if it were the one that is active.
    void analyse(PyCodeObject* code);
    void analyse_block(PyCodeObject* code, int line, int handler);
    // Whether an exception that no class matches is caught by the try statement on a line.
    bool has_bare_clause(const PyCodeObject* code, int line) const;

    Ref alien_;
    Ref globals_;
    const char* file_ = nullptr;
    PyObject* bare_clauses_ = nullptr;
    int blocks_ = 0;
};

bool LibraryHandlersTest::has_bare_clause(const PyCodeObject* code, int line) const {
    const Ref key = Ref::steal(PyInt_FromLong(line));
    PyObject* const names = PyDict_GetItem(bare_clauses_, key.get());
    if (names == nullptr) {
        return false;
    }
    // A clause that names a variable of an enclosing function cannot be read.
    for (PyObject* const shared : {code->co_cellvars, code->co_freevars}) {
        for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(shared); ++i) {
            if (PySequence_Contains(names, PyTuple_GET_ITEM(shared, i)) != 0) {
                return false;
            }
        }
    }
    return true;
}

void LibraryHandlersTest::analyse_block(PyCodeObject* code, int line, int handler) {
    const Ref frame = Ref::steal(
        as_object(PyFrame_New(PyThreadState_Get(), code, globals_.get(), globals_.get())));
    ASSERT_TRUE(frame);
    PyFrame_BlockSetup(as_frame(frame.get()), kHostOpcodes.setup_except, handler, 0);
    ++blocks_;
    const auto handled = [&](PyObject* exception, HandlerMatch mode) {
        return exception_is_handled(as_frame(frame.get()), nullptr, exception, mode, true);
    };
    EXPECT_EQ(handled(alien_.get(), HandlerMatch::kAny), has_bare_clause(code, line) ? 1 : 0)
        << file_ << ":" << line;
    EXPECT_EQ(handled(alien_.get(), HandlerMatch::kTyped), 0);
    EXPECT_EQ(handled(alien_.get(), HandlerMatch::kExact), 0);
    const int any = handled(PyExc_ImportError, HandlerMatch::kAny);
    const int typed = handled(PyExc_ImportError, HandlerMatch::kTyped);
    const int exact = handled(PyExc_ImportError, HandlerMatch::kExact);
    EXPECT_LE(exact, typed);
    EXPECT_LE(typed, any);
    ASSERT_EQ(PyErr_Occurred(), nullptr);
}

void LibraryHandlersTest::analyse(PyCodeObject* code) {
    constexpr int kArgumentSize = 2;
    const auto* const bytes =
        reinterpret_cast<const unsigned char*>(PyString_AS_STRING(code->co_code));
    const auto size = static_cast<int>(PyString_GET_SIZE(code->co_code));
    int step = 0;
    for (int i = 0; i < size; i += step) {
        step = bytes[i] >= kHostOpcodes.have_argument ? 1 + kArgumentSize : 1;
        if (bytes[i] == kHostOpcodes.setup_except) {
            analyse_block(code, PyCode_Addr2Line(code, i),
                          i + step + (bytes[i + 1] | bytes[i + 2] << 8));
        }
    }
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(code->co_consts); ++i) {
        PyObject* const constant = PyTuple_GET_ITEM(code->co_consts, i);
        if (PyCode_Check(constant)) {
            analyse(reinterpret_cast<PyCodeObject*>(constant));
        }
    }
}

TEST_F(LibraryHandlersTest, EveryTryStatementIsReadToItsBareClauseOrItsEnd) {
    run(kLibrary);
    alien_ = eval("Alien");
    globals_ = eval("{}");
    PyDict_SetItemString(globals_.get(), "__builtins__", PyEval_GetBuiltins());
    const Ref library = eval("library()");
    int files = 0;
    while (const Ref file = Ref::steal(PyIter_Next(library.get()))) {
        PyCodeObject* code = nullptr;
        ASSERT_NE(PyArg_ParseTuple(file.get(), "sO!O!", &file_, &PyCode_Type, &code, &PyDict_Type,
                                   &bare_clauses_),
                  0);
        analyse(code);
        ++files;
    }
    RecordProperty("files", files);
    RecordProperty("blocks", blocks_);
    EXPECT_GT(files, 100);
    EXPECT_GT(blocks_, 500);
}

}  // namespace
}  // namespace morvik
