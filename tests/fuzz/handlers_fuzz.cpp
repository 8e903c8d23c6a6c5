// The handler analysis over frames that no compiler made: code at random and real code with parts
// changed, block stacks and instructions likewise. None of the code is ever run.
//
// usage: handlers_fuzz [--seed N [--last M]] [--seconds S]
//
// Each analysis ends, answers yes or no, leaves no error pending and no reference behind, and under
// the sanitizers reads nothing outside the code and the block stack. What is wrong ends the
// program, which then says the seed of its round.
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "dprintf.h"
#include "exceptops/handlers.h"
#include "host/python.h"
#include "host/ref.h"

// The sanitizers ask for these: what they find ends in SIGABRT, as all else.
extern "C" const char* __asan_default_options() { return "abort_on_error=1:detect_leaks=0"; }
extern "C" const char* __ubsan_default_options() { return "abort_on_error=1:print_stacktrace=1"; }

namespace morvik {
namespace {

constexpr HandlerMatch kModes[] = {HandlerMatch::kAny, HandlerMatch::kTyped, HandlerMatch::kExact};
constexpr int kFirstSeed = 1;
constexpr int kShortRounds = 60000;
constexpr int kLongSeconds = 560;
constexpr unsigned kPatience = 30;

// Gives the code objects of some of the library's files, and what code may refer to.
constexpr char kPool[] = R"(
import os, sys

def codes_of(code):
    yield code
    for constant in code.co_consts:
        if isinstance(constant, type(code)):
            for each in codes_of(constant):
                yield each

NAMES = ['os', 're', 'pdb', 'threading', 'socket', 'subprocess', 'tarfile', 'optparse', 'logging',
         'pickle', 'urllib2', 'httplib', 'doctest', 'inspect', 'shutil', 'tempfile']
folder = os.path.dirname(os.__file__)
codes = []
for name in NAMES:
    path = os.path.join(folder, name + '.py')
    if os.path.isfile(path):
        codes.extend(codes_of(compile(open(path, 'U').read(), path, 'exec')))

class Base(Exception): pass
class Mine(Base): pass
class Other(Exception): pass
class Old: pass
class OldMine(Old): pass
class Text(str): pass
class Holder(object):
    error = Mine
    __slots__ = ('slot',)
class Computed(object):
    @property
    def error(self): raise SystemExit('code of the program was run')
    def __getattr__(self, name): raise SystemExit('code of the program was run')
class Dict(dict):
    def __getitem__(self, name): raise SystemExit('code of the program was run')
    def __missing__(self, name): raise SystemExit('code of the program was run')
nested = (Other, (Mine, (Base, ())))
deep = ()
for each in range(50):
    deep = (deep, each)
cyclic = [Mine]
cyclic.append(cyclic)
values = [None, 0, 1.5, 'Mine', u'Mine', '', 'x' * 300, (), [], {}, Base, Mine, Other, Old, OldMine,
          Exception, BaseException, IndexError, StopIteration, KeyError, object, type, int, Mine(),
          Old(), OldMine(), OldMine, (Mine, Other), (Other, 5, None), nested, deep, cyclic, (cyclic,),
          Holder, Holder(), Computed, Computed(), sys, os, len, codes[0], Ellipsis, Dict(), 10 ** 30]
names = ['Mine', 'Other', 'Base', 'Holder', 'computed', 'error', 'slot', '__class__', '__dict__',
         'missing', 'nested', '', 'x' * 300, 'Exception', 'os', 'cyclic', Text('Mine'), 'a\0b']
computed = Computed()
locals_like = [None, globals(), {'Mine': Other}, {}, Dict(Mine=Mine)]
exceptions = [Mine, Base, Other, Mine(), Old, OldMine, OldMine(), IndexError, StopIteration,
              StopIteration(), KeyError('x'), SystemExit, KeyboardInterrupt]
strange = [None, 5, 'Mine', (), (Mine, Other), [], object, Holder()]
)";

[[noreturn]] void fail(const char* what) {
    fprintf(stderr, "FAULT: %s\n", what);
    if (PyErr_Occurred() != nullptr) {
        PyErr_Print();
    }
    abort();
}

class Dice {
  public:
    explicit Dice(unsigned seed) : engine_(seed) {}
    // From 0 up to `bound` without it.
    int below(int bound) {
        return static_cast<int>(engine_() % static_cast<unsigned>(std::max(bound, 1)));
    }
    bool chance(int percent) { return below(100) < percent; }
    int byte() { return below(256); }
    // Of a list or a tuple, borrowed.
    PyObject* item(PyObject* sequence) {
        const auto size = static_cast<int>(PySequence_Fast_GET_SIZE(sequence));
        return PySequence_Fast_GET_ITEM(sequence, below(size));
    }
    // Near the limits more often than not.
    int number(int size) {
        const int some[] = {-1,   0,       1,         size - 1,  size,     size + 1,
                            -100, 0x10000, INT32_MAX, INT32_MIN, size - 2, below(size)};
        return chance(50) ? below(size) : some[below(static_cast<int>(std::size(some)))];
    }

  private:
    std::mt19937 engine_;
};

// The names of the script above.
class Pool {
  public:
    Pool() : names_(Ref::steal(PyDict_New())) {
        PyDict_SetItemString(names_.get(), "__builtins__", PyEval_GetBuiltins());
        PyDict_SetItemString(names_.get(), "__name__", Ref::steal(PyString_FromString("p")).get());
        const Ref ran = Ref::steal(PyRun_String(kPool, Py_file_input, names_.get(), names_.get()));
        if (!ran) {
            fail("the script");
        }
    }
    PyObject* operator[](const char* name) const {
        return PyDict_GetItemString(names_.get(), name);
    }
    PyObject* all() const { return names_.get(); }

  private:
    Ref names_;
};

// One frame's code, before it becomes an object.
struct Draft {
    std::string bytes;
    Ref constants;
    Ref names;
    Ref fast;
    std::vector<int> handlers;  // where except clauses were put
};

class Round {
  public:
    Round(const Pool& pool, unsigned seed)
        : pool_(pool), dice_(seed), opcodes_(dice_.chance(50) ? kOpcodes26 : kOpcodes27) {}

    void run();
    long analyses() const { return analyses_; }
    long caught() const { return caught_; }

  private:
    int opcode() {
        const int known[] = {opcodes_.pop_top,     opcodes_.dup_top,      opcodes_.for_iter,
                             opcodes_.load_const,  opcodes_.load_name,    opcodes_.build_tuple,
                             opcodes_.load_attr,   opcodes_.compare_op,   opcodes_.jump_if_false,
                             opcodes_.load_global, opcodes_.setup_except, opcodes_.load_fast,
                             opcodes_.extended_arg};
        return dice_.chance(80) ? known[dice_.below(static_cast<int>(std::size(known)))]
                                : dice_.byte();
    }
    void put(Draft* draft, int code, int argument) {
        draft->bytes += static_cast<char>(code);
        if (code >= opcodes_.have_argument) {
            draft->bytes += static_cast<char>(argument);
            draft->bytes += static_cast<char>(argument >> 8);
        }
    }
    void put_noise(Draft* draft) {
        for (int i = dice_.below(40); i > 0; --i) {
            put(draft, opcode(), dice_.number(12));
        }
    }
    // A clause as the compiler makes it, but for a byte here and there.
    void put_clause(Draft* draft) {
        const int loads[] = {opcodes_.load_const, opcodes_.load_name, opcodes_.load_global,
                             opcodes_.load_fast};
        put(draft, opcodes_.dup_top, 0);
        for (int i = dice_.below(3); i >= 0; --i) {
            if (dice_.chance(10)) {
                put(draft, opcodes_.extended_arg, dice_.chance(70) ? 0 : dice_.byte());
            }
            put(draft, loads[dice_.below(4)], dice_.chance(90) ? dice_.below(6) : dice_.number(6));
            while (dice_.chance(30)) {
                put(draft, opcodes_.load_attr, dice_.below(6));
            }
        }
        if (dice_.chance(30)) {
            put(draft, opcodes_.build_tuple, dice_.below(4));
        }
        put(draft, opcodes_.compare_op, dice_.chance(95) ? kCompareExceptionMatch : dice_.byte());
        const auto behind = static_cast<int>(draft->bytes.size()) + 3;
        const int body = dice_.chance(90) ? dice_.below(4) : dice_.below(0x10000);
        put(draft, opcodes_.jump_if_false, opcodes_.jump_is_absolute ? behind + body : body);
        for (int i = 0; i < std::min(body, 300); ++i) {
            put(draft, opcodes_.pop_top, 0);
        }
        if (!opcodes_.jump_is_absolute && dice_.chance(95)) {
            put(draft, opcodes_.pop_top, 0);
        }
    }
    void put_handler(Draft* draft) {
        draft->handlers.push_back(static_cast<int>(draft->bytes.size()));
        for (int i = dice_.below(4); i > 0; --i) {
            put_clause(draft);
        }
        if (dice_.chance(50)) {
            put(draft, opcodes_.pop_top, 0);
        }
    }
    void damage(std::string* bytes) {
        for (int i = dice_.chance(60) ? dice_.below(4) : 0; i > 0 && !bytes->empty(); --i) {
            const auto size = static_cast<int>(bytes->size());
            const auto at = static_cast<size_t>(dice_.below(size));
            switch (dice_.below(4)) {
                case 0:
                    (*bytes)[at] = static_cast<char>(dice_.chance(50) ? dice_.byte() : opcode());
                    break;
                case 1:
                    bytes->erase(at, static_cast<size_t>(dice_.below(8)));
                    break;
                case 2:
                    bytes->insert(at, 1, static_cast<char>(opcode()));
                    break;
                default:
                    bytes->resize(at);
            }
        }
    }
    Ref tuple_of(PyObject* sequence, int most) {
        const int size = dice_.below(most);
        Ref tuple = Ref::steal(PyTuple_New(size));
        for (int i = 0; i < size; ++i) {
            PyTuple_SET_ITEM(tuple.get(), i, Ref::share(dice_.item(sequence)).release());
        }
        return tuple;
    }
    Ref names_tuple() {
        // The interpreter interns every name, which takes strings of the very type.
        Ref tuple = tuple_of(pool_["names"], 8);
        for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(tuple.get()); ++i) {
            if (!PyString_CheckExact(PyTuple_GET_ITEM(tuple.get(), i))) {
                return Ref::steal(PyTuple_New(0));
            }
        }
        return tuple;
    }
    Draft draft();
    Ref code_object(Draft* draft);
    Ref frame();
    void fill_blocks(PyFrameObject* frame, const std::vector<int>& handlers);
    void analyse(PyFrameObject* frame, PyObject* exception, PyObject* ignored, bool plain);
    void analyse_copy(PyFrameObject* frame, PyObject* exception);
    void expect_clean(int answer) {
        ++analyses_;
        caught_ += answer;
        if (answer != 0 && answer != 1) {
            fail("an answer is neither yes nor no");
        }
        if (PyErr_Occurred() != nullptr) {
            fail("an error is pending");
        }
    }

    const Pool& pool_;
    Dice dice_;
    const OpcodeTable& opcodes_;
    std::vector<Ref> frames_;
    long analyses_ = 0;
    long caught_ = 0;
};

Draft Round::draft() {
    Draft made;
    if (dice_.chance(40)) {
        const auto* const real = reinterpret_cast<const PyCodeObject*>(dice_.item(pool_["codes"]));
        made.bytes.assign(PyString_AS_STRING(real->co_code),
                          static_cast<size_t>(PyString_GET_SIZE(real->co_code)));
        made.names = dice_.chance(80) ? Ref::share(real->co_names) : names_tuple();
        made.constants =
            dice_.chance(80) ? Ref::share(real->co_consts) : tuple_of(pool_["values"], 8);
        made.fast = Ref::share(real->co_varnames);
        for (size_t i = 0; i + 2 < made.bytes.size(); ++i) {
            const auto* const at = reinterpret_cast<const unsigned char*>(made.bytes.data()) + i;
            if (at[0] == opcodes_.setup_except) {
                made.handlers.push_back(static_cast<int>(i) + 3 + (at[1] | at[2] << 8));
            }
        }
    } else {
        made.names = names_tuple();
        made.constants = tuple_of(pool_["values"], 8);
        made.fast = names_tuple();
        put_noise(&made);
    }
    for (int i = dice_.below(3); i > 0; --i) {
        put_handler(&made);
        if (dice_.chance(50)) {
            put_noise(&made);
        }
    }
    damage(&made.bytes);
    return made;
}

Ref Round::code_object(Draft* draft) {
    const Ref bytes = Ref::steal(PyString_FromStringAndSize(
        draft->bytes.data(), static_cast<Py_ssize_t>(draft->bytes.size())));
    std::string table;
    for (int i = dice_.below(60); i > 0; --i) {
        table += static_cast<char>(dice_.byte());
    }
    const Ref lines =
        Ref::steal(PyString_FromStringAndSize(table.data(), static_cast<Py_ssize_t>(table.size())));
    const Ref none = Ref::steal(PyTuple_New(0));
    const Ref text = Ref::steal(PyString_FromString(dice_.chance(50) ? "sre_parse.py" : ""));
    const auto fast = static_cast<int>(PyTuple_GET_SIZE(draft->fast.get()));
    return Ref::steal(reinterpret_cast<PyObject*>(PyCode_New(
        0, dice_.chance(80) ? fast : dice_.below(20), dice_.below(100),
        dice_.chance(50) ? CO_OPTIMIZED | CO_NEWLOCALS : 0,
        dice_.chance(95) ? bytes.get() : Ref::steal(PyBuffer_FromObject(bytes.get(), 0, -1)).get(),
        draft->constants.get(), draft->names.get(), draft->fast.get(), none.get(), none.get(),
        text.get(), text.get(), dice_.number(1000), lines.get())));
}

void Round::fill_blocks(PyFrameObject* frame, const std::vector<int>& handlers) {
    const int size = PyString_CheckExact(frame->f_code->co_code)
                         ? static_cast<int>(PyString_GET_SIZE(frame->f_code->co_code))
                         : 0;
    frame->f_iblock = dice_.chance(10) ? CO_MAXBLOCKS : dice_.below(6);
    for (int i = 0; i < frame->f_iblock; ++i) {
        PyTryBlock& block = frame->f_blockstack[i];
        block.b_type = dice_.chance(80) ? opcodes_.setup_except : dice_.number(256);
        block.b_handler =
            !handlers.empty() && dice_.chance(80)
                ? handlers[static_cast<size_t>(dice_.below(static_cast<int>(handlers.size())))]
                : dice_.number(size);
        block.b_level = dice_.number(50);
    }
    frame->f_lasti = dice_.number(size);
}

Ref Round::frame() {
    Draft made = draft();
    const Ref code = code_object(&made);
    if (!code) {
        fail("no code object");
    }
    PyObject* locals = dice_.item(pool_["locals_like"]);
    Ref frame = Ref::steal(
        as_object(PyFrame_New(PyThreadState_Get(), reinterpret_cast<PyCodeObject*>(code.get()),
                              pool_.all(), locals != Py_None ? locals : nullptr)));
    if (!frame) {
        fail("no frame");
    }
    PyFrameObject* const made_frame = as_frame(frame.get());
    for (int i = 0; i < made_frame->f_code->co_nlocals; ++i) {
        if (dice_.chance(70)) {
            set_slot(made_frame->f_localsplus[i], dice_.item(pool_["values"]));
        }
    }
    fill_blocks(made_frame, made.handlers);
    return frame;
}

void Round::analyse(PyFrameObject* frame, PyObject* exception, PyObject* ignored, bool plain) {
    for (const bool this_frame_only : {false, true}) {
        int answers[std::size(kModes)] = {};
        for (size_t i = 0; i < std::size(kModes); ++i) {
            answers[i] = exception_is_handled(frame, ignored, exception, kModes[i], this_frame_only,
                                              opcodes_);
            expect_clean(answers[i]);
        }
        // What is caught by its name is caught.
        if (plain && answers[1] > answers[0]) {
            fail("a stricter question is answered yes");
        }
    }
    expect_clean(handler_is_ignored(frame, ignored));
}

// Over bytes in a block of just their size, which the sanitizers watch the ends of.
void Round::analyse_copy(PyFrameObject* frame, PyObject* exception) {
    PyObject* const code = frame->f_code->co_code;
    if (!PyString_CheckExact(code)) {
        return;
    }
    const auto size =
        static_cast<size_t>(dice_.below(static_cast<int>(PyString_GET_SIZE(code)) + 1));
    const std::unique_ptr<unsigned char[]> copy(new unsigned char[size]);
    std::copy_n(PyString_AS_STRING(code), size, copy.get());
    const CodeRange range = {copy.get(), copy.get() + size};
    for (const HandlerMatch mode : kModes) {
        for (int i = 0; i < 3; ++i) {
            const int offset = i == 0 && frame->f_iblock > 0 ? frame->f_blockstack[0].b_handler
                                                             : dice_.number(static_cast<int>(size));
            expect_clean(handler_catches(frame, offset, exception, range, mode, opcodes_));
        }
    }
    expect_clean(loop_ends_on_exception(frame, exception, range, opcodes_));
}

#ifdef Py_REF_DEBUG
Py_ssize_t references() { return _Py_RefTotal; }
#else
Py_ssize_t references() { return 0; }
#endif

void Round::run() {
    for (int i = dice_.below(4); i >= 0; --i) {
        Ref made = frame();
        PyFrameObject* const inner = as_frame(made.get());
        if (!frames_.empty()) {
            PyObject* back = as_object(inner->f_back);
            set_slot(back, frames_.back().get());
            inner->f_back = as_frame(back);
        }
        frames_.push_back(std::move(made));
    }
    PyFrameObject* const innermost = as_frame(frames_.back().get());
    const bool plain = dice_.chance(80);
    PyObject* const exception = dice_.item(pool_[plain ? "exceptions" : "strange"]);
    const Ref ignored = Ref::steal(PyDict_New());
    if (dice_.chance(30)) {
        PyDict_SetItem(ignored.get(), dice_.item(pool_["codes"]), Py_None);
        PyDict_SetItem(ignored.get(), frames_[0].get(), Py_None);
    }
    dprintf_mask = dice_.chance(10) ? ~0U : 0;
    PyObject* const handlers = dice_.chance(10) ? dice_.item(pool_["values"]) : ignored.get();
    // The interpreter remembers names that it looked up in classes, each once.
    constexpr int kTimes = 4;
    int times = 0;
    Py_ssize_t before = 0;
    do {
        before = references();
        analyse(innermost, exception, handlers, plain);
        analyse_copy(innermost, exception);
    } while (references() != before && ++times < kTimes);
    if (times == kTimes) {
        fail("references are left behind");
    }
    expect_clean(is_sre_parse_probe(PyString_AS_STRING(innermost->f_code->co_filename),
                                    frame_line(innermost)));
    while (!frames_.empty()) {
        frames_.pop_back();
    }
}

struct Options {
    long first = -1;
    long last = -1;
    long seconds = -1;
};

Options parse(int argc, char** argv) {
    Options chosen;
    const char* const is_long = getenv("MORVIK_TEST_LONG");
    if (is_long != nullptr && strcmp(is_long, "1") == 0) {
        chosen.seconds = kLongSeconds;
    }
    for (int i = 1; i + 1 < argc; i += 2) {
        const long value = strtol(argv[i + 1], nullptr, 10);
        if (strcmp(argv[i], "--seed") == 0) {
            chosen.first = value;
        } else if (strcmp(argv[i], "--last") == 0) {
            chosen.last = value;
        } else if (strcmp(argv[i], "--seconds") == 0) {
            chosen.seconds = value;
        }
    }
    return chosen;
}

// The seed of the round that runs, for whoever ends the process.
char current[64];

void show_seed_and_end(int number) {
    const char again[] = "again: handlers_fuzz --seed ";
    (void)!write(STDERR_FILENO, again, sizeof again - 1);
    (void)!write(STDERR_FILENO, current, strlen(current));
    signal(number, SIG_DFL);
    raise(number);
}

void show_seed_at_the_end() {
    for (const int number : {SIGABRT, SIGALRM}) {
        signal(number, show_seed_and_end);
    }
#ifndef __SANITIZE_ADDRESS__
    signal(SIGSEGV, show_seed_and_end);
#endif
}

void run_rounds(const Options& chosen) {
    const Pool pool;
    long analyses = 0;
    long caught = 0;
    long rounds = 0;
    const time_t end = chosen.seconds >= 0 ? time(nullptr) + chosen.seconds : 0;
    long seed = chosen.first;
    long last = std::max(chosen.first, chosen.last);
    if (chosen.first < 0) {
        seed = chosen.seconds >= 0 ? time(nullptr) % 1000000 * 1000 : kFirstSeed;
        last = kFirstSeed + kShortRounds - 1;
    }
    printf("seeds from %ld\n", seed);
    for (; end != 0 ? time(nullptr) < end : seed <= last; ++seed, ++rounds) {
        snprintf(current, sizeof current, "%ld\n", seed);
        alarm(kPatience);
        Round round(pool, static_cast<unsigned>(seed));
        round.run();
        analyses += round.analyses();
        caught += round.caught();
    }
    alarm(0);
    printf("%ld rounds, %ld answers, %ld of them yes, 0 faults\n", rounds, analyses, caught);
}

}  // namespace
}  // namespace morvik

int main(int argc, char** argv) {
    static char executable[] = MORVIK_HOST_EXECUTABLE;
    Py_SetProgramName(executable);
    Py_Initialize();
    PyEval_InitThreads();
    morvik::show_seed_at_the_end();
    morvik::run_rounds(morvik::parse(argc, argv));
    Py_Finalize();
    return 0;
}
