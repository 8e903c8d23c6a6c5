#include "exceptops/handlers.h"

#include <gmock/gmock.h>

#include <climits>

#include "dprintf.h"
#include "embedding.h"
#include "host/opcodes.h"
#include "python_fixture.h"

namespace morvik {
namespace {

using testing::ElementsAre;

// Instructions that the analysis does not know.
constexpr int kRotTwo = 2;
constexpr int kNop = 9;
constexpr int kEndFinally = 88;
constexpr int kJumpForward = 110;
constexpr int kSetupLoop = 120;
constexpr int kSetupFinally = 122;
constexpr int kCallFunction = 131;
constexpr int kLoadDeref = 136;
constexpr int kSetupWith27 = 143;

constexpr HandlerMatch kAny = HandlerMatch::kAny;
constexpr HandlerMatch kTyped = HandlerMatch::kTyped;
constexpr HandlerMatch kExact = HandlerMatch::kExact;

// Bytecode of except clauses, as the compiler of one of the interpreters makes it.
class Assembler {
  public:
    explicit Assembler(const OpcodeTable& opcodes) : opcodes_(opcodes) {}

    Assembler& op(int opcode) {
        bytes_ += static_cast<char>(opcode);
        return *this;
    }
    Assembler& op(int opcode, int argument) {
        return op(opcode).op(argument & 0xff).op(argument >> 8 & 0xff);
    }
    Assembler& extended(int opcode, unsigned argument) {
        return op(opcodes_.extended_arg, static_cast<int>(argument >> 16))
            .op(opcode, static_cast<int>(argument));
    }

    // A clause of the expression whose instructions `load` adds. Its body is one instruction.
    template <typename Load>
    Assembler& typed_clause(const Load& load) {
        op(opcodes_.dup_top);
        load(*this);
        return end_of_test();
    }
    Assembler& end_of_test() {
        constexpr int kBody = 5;
        op(opcodes_.compare_op, kCompareExceptionMatch);
        if (opcodes_.jump_is_absolute) {
            op(opcodes_.jump_if_false, size() + 3 + kBody);
        } else {
            op(opcodes_.jump_if_false, kBody);
        }
        op(opcodes_.pop_top).op(kNop).op(kJumpForward, 0);
        return opcodes_.jump_is_absolute ? *this : op(opcodes_.pop_top);
    }
    Assembler& bare_clause() {
        return op(opcodes_.pop_top).op(opcodes_.pop_top).op(opcodes_.pop_top).op(kNop);
    }
    Assembler& end() { return op(kEndFinally); }

    int size() const { return static_cast<int>(bytes_.size()); }
    const std::string& bytes() const { return bytes_; }

  private:
    const OpcodeTable& opcodes_;
    std::string bytes_;
};

class HandlersTest : public PythonTest, public testing::WithParamInterface<const OpcodeTable*> {
  protected:
    void SetUp() override {
        PythonTest::SetUp();
        run("class Base(Exception): pass\n"
            "class Mine(Base): pass\n"
            "class Other(Exception): pass\n"
            "class Alien: pass\n"
            "class OldBase: pass\n"
            "class Old(OldBase): pass\n");
        exception_ = eval("Mine");
    }

    const OpcodeTable& opcodes() const { return *GetParam(); }
    Assembler assembler() const { return Assembler(opcodes()); }
    // A handler of one typed clause.
    template <typename Load>
    std::string clause(const Load& load) const {
        return assembler().typed_clause(load).end().bytes();
    }
    // A handler of one clause that one instruction loads the class for.
    std::string clause_of(int opcode, int argument) const {
        return clause([=](Assembler& to) { to.op(opcode, argument); });
    }

    // A frame of a function with this code, or of module level with these locals.
    // `names` are an expression of the tuple of all its names; constants and fast locals alike.
    Ref frame_of(const std::string& bytes, const char* names = "()", const char* constants = "()",
                 const char* fast = "()", PyObject* locals = nullptr) {
        const Ref code_bytes = Ref::steal(
            PyString_FromStringAndSize(bytes.data(), static_cast<Py_ssize_t>(bytes.size())));
        return frame_of_object(code_bytes.get(), names, constants, fast, locals);
    }
    Ref frame_of_object(PyObject* code_bytes, const char* names = "()",
                        const char* constants = "()", const char* fast = "()",
                        PyObject* locals = nullptr) {
        const Ref name_tuple = eval(names);
        const Ref constant_tuple = eval(constants);
        const Ref fast_tuple = eval(fast);
        const Ref empty = Ref::steal(PyTuple_New(0));
        const Ref text = Ref::steal(PyString_FromString("made"));
        const int flags = locals == nullptr ? CO_OPTIMIZED | CO_NEWLOCALS : 0;
        const Ref code = Ref::steal(reinterpret_cast<PyObject*>(
            PyCode_New(0, static_cast<int>(PyTuple_GET_SIZE(fast_tuple.get())), 10, flags,
                       code_bytes, constant_tuple.get(), name_tuple.get(), fast_tuple.get(),
                       empty.get(), empty.get(), text.get(), text.get(), 1, text.get())));
        Ref frame = Ref::steal(
            as_object(PyFrame_New(PyThreadState_Get(), reinterpret_cast<PyCodeObject*>(code.get()),
                                  variables_.get(), locals)));
        return frame;
    }

    static PyFrameObject* as(const Ref& frame) { return as_frame(frame.get()); }
    void add_block(const Ref& frame, int type, int handler) {
        PyFrame_BlockSetup(as(frame), type, handler, 0);
    }
    void add_except(const Ref& frame, int handler = 0) {
        add_block(frame, opcodes().setup_except, handler);
    }

    int handled(const Ref& frame, HandlerMatch mode = kTyped, bool this_frame_only = false,
                PyObject* ignored = nullptr) {
        return exception_is_handled(as(frame), ignored, exception_.get(), mode, this_frame_only,
                                    opcodes());
    }
    // The answers of the three modes.
    std::string in_each_mode(const Ref& frame) {
        std::string answers;
        for (const HandlerMatch mode : {kAny, kTyped, kExact}) {
            answers += std::to_string(handled(frame, mode));
        }
        return answers;
    }
    // Whether a frame with one try block whose handler is this code catches.
    std::string caught_by(const std::string& bytes, const char* names = "()",
                          const char* constants = "()") {
        const Ref frame = frame_of(bytes, names, constants);
        add_except(frame);
        return in_each_mode(frame);
    }
    // The same for a clause of one name, or of a name and attributes.
    std::string caught_by_name(const char* expression) {
        const Ref names = Ref::steal(PyString_FromString(expression));
        PyDict_SetItemString(variables_.get(), "expression", names.get());
        const Ref count = eval("len(expression.split('.'))");
        const long parts = PyInt_AsLong(count.get());
        return caught_by(clause([&](Assembler& to) {
                             to.op(opcodes().load_global, 0);
                             for (int i = 1; i < parts; ++i) {
                                 to.op(opcodes().load_attr, i);
                             }
                         }),
                         "tuple(expression.split('.'))");
    }

    Ref exception_;
};

INSTANTIATE_TEST_SUITE_P(Bytecode, HandlersTest, testing::Values(&kOpcodes26, &kOpcodes27),
                         [](const auto& test) {
                             return test.param == &kOpcodes26 ? "Of26" : "Of27";
                         });

TEST_P(HandlersTest, BareClauseCatchesOnlyInTheModeThatCountsIt) {
    EXPECT_EQ(caught_by(assembler().bare_clause().end().bytes()), "100");
}

TEST_P(HandlersTest, FrameWithoutBlocksCatchesNothing) {
    EXPECT_EQ(in_each_mode(frame_of(assembler().bare_clause().end().bytes())), "000");
}

TEST_P(HandlersTest, ClauseCatchesItsClass) { EXPECT_EQ(caught_by_name("Mine"), "111"); }

TEST_P(HandlersTest, ClauseOfABaseCatchesUnlessTheVeryClassIsAskedFor) {
    EXPECT_EQ(caught_by_name("Base"), "110");
    EXPECT_EQ(caught_by_name("Exception"), "110");
    EXPECT_EQ(caught_by_name("BaseException"), "110");
}

TEST_P(HandlersTest, ClauseOfAnotherClassDoesNotCatch) {
    EXPECT_EQ(caught_by_name("Other"), "000");
    exception_ = eval("Base");
    EXPECT_EQ(caught_by_name("Mine"), "000");
}

TEST_P(HandlersTest, OldStyleClassesAreClasses) {
    exception_ = eval("Old");
    EXPECT_EQ(caught_by_name("Old"), "111");
    EXPECT_EQ(caught_by_name("OldBase"), "110");
    EXPECT_EQ(caught_by_name("Alien"), "000");
    EXPECT_EQ(caught_by_name("Exception"), "000");
}

TEST_P(HandlersTest, InstanceStandsForItsClass) {
    exception_ = eval("Mine()");
    EXPECT_EQ(caught_by_name("Mine"), "111");
    EXPECT_EQ(caught_by_name("Base"), "110");
    EXPECT_EQ(caught_by_name("Other"), "000");
}

TEST_P(HandlersTest, VeryInstanceIsNoClass) {
    run("instance = Mine()");
    exception_ = eval("instance");
    EXPECT_EQ(caught_by_name("instance")[2], '0');
}

TEST_P(HandlersTest, ObjectThatIsNoClassMatchesNothingButItself) {
    run("number = 7\ntext = 'Mine'\nnothing = None\nlisted = [Mine]");
    for (const char* name : {"number", "text", "nothing", "listed"}) {
        EXPECT_EQ(caught_by_name(name), "000") << name;
    }
}

TEST_P(HandlersTest, TupleInAVariableIsSearched) {
    run("some = (Other, Mine)\nbases = (Other, Base)\nnested = (Other, (Alien, Mine))\n"
        "empty = ()\nothers = (Other, 7, 'Mine', None)");
    EXPECT_EQ(caught_by_name("some"), "111");
    EXPECT_EQ(caught_by_name("bases"), "110");
    // The interpreter goes into nested tuples; the question for the very class does not.
    EXPECT_EQ(caught_by_name("nested"), "110");
    EXPECT_EQ(caught_by_name("empty"), "000");
    EXPECT_EQ(caught_by_name("others"), "000");
}

TEST_P(HandlersTest, TupleOfNamesIsTestedNameByName) {
    const auto tuple = [this](const char* names) {
        return caught_by(clause([this](Assembler& to) {
                             to.op(opcodes().load_global, 0)
                                 .op(opcodes().load_global, 1)
                                 .op(opcodes().load_global, 2)
                                 .op(opcodes().build_tuple, 3);
                         }),
                         names);
    };
    EXPECT_EQ(tuple("('Mine', 'Other', 'Alien')"), "111");
    EXPECT_EQ(tuple("('Other', 'Mine', 'Alien')"), "111");
    EXPECT_EQ(tuple("('Other', 'Alien', 'Mine')"), "111");
    EXPECT_EQ(tuple("('Other', 'Base', 'Alien')"), "110");
    EXPECT_EQ(tuple("('Other', 'nowhere', 'Mine')"), "111");
    EXPECT_EQ(tuple("('Other', 'Alien', 'KeyError')"), "000");
}

TEST_P(HandlersTest, AttributesInATupleOfNamesAreTestedToo) {
    run("class Module(object): Error = Mine\n");
    EXPECT_EQ(caught_by(clause([this](Assembler& to) {
                            to.op(opcodes().load_global, 0)
                                .op(opcodes().load_global, 1)
                                .op(opcodes().load_attr, 2)
                                .op(opcodes().build_tuple, 2);
                        }),
                        "('Other', 'Module', 'Error')"),
              "111");
}

TEST_P(HandlersTest, ConstantIsLoaded) {
    EXPECT_EQ(caught_by(clause_of(opcodes().load_const, 1), "()", "(None, Mine)"), "111");
    EXPECT_EQ(caught_by(clause_of(opcodes().load_const, 0), "()", "((Other, Mine),)"), "111");
    EXPECT_EQ(caught_by(clause_of(opcodes().load_const, 0), "()", "(None, Mine)"), "000");
}

TEST_P(HandlersTest, LocalNamesComeBeforeGlobalOnesAndBuiltins) {
    run("Shadowed = Other\nKeyError = Mine\n");
    const Ref locals = eval("{'Shadowed': Mine, 'LocalOnly': Mine}");
    const auto by_name = [&](const char* names, int opcode) {
        const Ref frame = frame_of(clause_of(opcode, 0), names, "()", "()", locals.get());
        add_except(frame);
        return in_each_mode(frame);
    };
    EXPECT_EQ(by_name("('Shadowed',)", opcodes().load_name), "111");
    EXPECT_EQ(by_name("('LocalOnly',)", opcodes().load_name), "111");
    EXPECT_EQ(by_name("('Mine',)", opcodes().load_name), "111");
    EXPECT_EQ(by_name("('KeyError',)", opcodes().load_name), "111");
    EXPECT_EQ(by_name("('Exception',)", opcodes().load_name), "110");
    EXPECT_EQ(by_name("('Shadowed',)", opcodes().load_global), "000");
    EXPECT_EQ(by_name("('LocalOnly',)", opcodes().load_global), "000");
    EXPECT_EQ(by_name("('KeyError',)", opcodes().load_global), "111");
}

TEST_P(HandlersTest, NamesOfAFunctionWithoutLocalsAreGlobal) {
    const Ref frame = frame_of(clause_of(opcodes().load_name, 0), "('Mine',)");
    ASSERT_EQ(as(frame)->f_locals, nullptr);
    add_except(frame);
    EXPECT_EQ(in_each_mode(frame), "111");
}

TEST_P(HandlersTest, LocalsThatAreNoDictionaryAreNotAsked) {
    run("class Locals(object):\n"
        "    def __getitem__(self, name): raise KeyError(name)\n");
    const Ref locals = eval("Locals()");
    const Ref frame =
        frame_of(clause_of(opcodes().load_name, 0), "('Mine',)", "()", "()", locals.get());
    add_except(frame);
    EXPECT_EQ(in_each_mode(frame), "111");
}

TEST_P(HandlersTest, FastLocalIsLoaded) {
    const Ref frame = frame_of(clause_of(opcodes().load_fast, 1), "()", "()", "('unset', 'kind')");
    add_except(frame);
    EXPECT_EQ(in_each_mode(frame), "000");
    as(frame)->f_localsplus[1] = eval("Mine").release();
    EXPECT_EQ(in_each_mode(frame), "111");
}

TEST_P(HandlersTest, FastLocalsOfCodeWithoutTheirNamesAreNotLoaded) {
    const Ref frame = frame_of(clause_of(opcodes().load_fast, 0), "()", "()", "('kind',)");
    add_except(frame);
    as(frame)->f_localsplus[0] = eval("Mine").release();
    PyCodeObject* const code = as(frame)->f_code;
    PyObject* const names = code->co_varnames;
    const Ref list = eval("['kind']");
    code->co_varnames = list.get();
    EXPECT_EQ(in_each_mode(frame), "000");
    code->co_varnames = names;
    EXPECT_EQ(in_each_mode(frame), "111");
}

TEST_P(HandlersTest, UndefinedNameLeavesItToTheNextClause) {
    const std::string bytes =
        assembler()
            .typed_clause([this](Assembler& to) { to.op(opcodes().load_global, 0); })
            .typed_clause([this](Assembler& to) { to.op(opcodes().load_global, 1); })
            .end()
            .bytes();
    EXPECT_EQ(caught_by(bytes, "('nowhere', 'Mine')"), "111");
    EXPECT_EQ(caught_by(bytes, "('nowhere', 'Other')"), "000");
}

TEST_P(HandlersTest, ClausesAreTriedInTurn) {
    Assembler to = assembler();
    for (int i = 0; i < 3; ++i) {
        to.typed_clause([&](Assembler& expression) { expression.op(opcodes().load_global, i); });
    }
    const std::string typed_only = Assembler(to).end().bytes();
    const std::string bare_last = Assembler(to).bare_clause().end().bytes();
    EXPECT_EQ(caught_by(typed_only, "('Mine', 'Other', 'Alien')"), "111");
    EXPECT_EQ(caught_by(typed_only, "('Other', 'Mine', 'Alien')"), "111");
    EXPECT_EQ(caught_by(typed_only, "('Other', 'Alien', 'Mine')"), "111");
    EXPECT_EQ(caught_by(typed_only, "('Other', 'Base', 'Mine')"), "111");
    EXPECT_EQ(caught_by(typed_only, "('Other', 'Alien', 'KeyError')"), "000");
    EXPECT_EQ(caught_by(bare_last, "('Other', 'Alien', 'KeyError')"), "100");
    EXPECT_EQ(caught_by(bare_last, "('Other', 'Alien', 'Base')"), "110");
}

TEST_P(HandlersTest, AttributeOfAModuleIsLoaded) {
    run("import types\nmodule = types.ModuleType('module')\nmodule.Error = Mine\n"
        "module.inner = types.ModuleType('inner')\nmodule.inner.Error = Base\n");
    EXPECT_EQ(caught_by_name("module.Error"), "111");
    EXPECT_EQ(caught_by_name("module.inner.Error"), "110");
    EXPECT_EQ(caught_by_name("module.Missing"), "000");
    EXPECT_EQ(caught_by_name("module.missing.Error"), "000");
    EXPECT_EQ(caught_by_name("nowhere.Error"), "000");
}

TEST_P(HandlersTest, AttributeOfAClassOrAnInstanceIsLoaded) {
    run("class New(object): Error = Mine\n"
        "class NewChild(New): pass\n"
        "class Classic: Error = Mine\n"
        "class ClassicChild(Classic): pass\n"
        "new, child, classic, classic_child = New(), NewChild(), Classic(), ClassicChild()\n"
        "own, classic_own = NewChild(), ClassicChild()\n"
        "own.Error = classic_own.Error = Other\n"
        "own.Own = classic_own.Own = Mine\n");
    for (const char* object : {"New", "NewChild", "Classic", "ClassicChild", "new", "child",
                               "classic", "classic_child"}) {
        EXPECT_EQ(caught_by_name((std::string(object) + ".Error").c_str()), "111") << object;
        EXPECT_EQ(caught_by_name((std::string(object) + ".Missing").c_str()), "000") << object;
    }
    for (const char* object : {"own", "classic_own"}) {
        EXPECT_EQ(caught_by_name((std::string(object) + ".Error").c_str()), "000") << object;
        EXPECT_EQ(caught_by_name((std::string(object) + ".Own").c_str()), "111") << object;
    }
}

TEST_P(HandlersTest, AttributeOfAnObjectWithoutAnyIsNotThere) {
    run("number, text = 7, 'text'\n");
    EXPECT_EQ(caught_by_name("number.Error"), "000");
    EXPECT_EQ(caught_by_name("text.Error"), "000");
}

TEST_P(HandlersTest, AttributesThatCodeWouldHaveToComputeAreNotComputed) {
    run("import types\n"
        "ran = []\n"
        "def compute(self, name=None, owner=None):\n"
        "    ran.append(1)\n"
        "    return Mine\n"
        "class Descriptor(object):\n"
        "    __get__ = compute\n"
        "class Property(object):\n"
        "    Error = property(compute)\n"
        "class Described(object):\n"
        "    Error = Descriptor()\n"
        "class GetAttr(object):\n"
        "    __getattr__ = compute\n"
        "class GetAttribute(object):\n"
        "    __getattribute__ = compute\n"
        "class Classic:\n"
        "    __getattr__ = compute\n"
        "class Meta(type):\n"
        "    Error = property(compute)\n"
        "    __getattr__ = compute\n"
        "class OfMeta(object):\n"
        "    __metaclass__ = Meta\n"
        "class Module(types.ModuleType):\n"
        "    Error = property(compute)\n"
        "    __getattr__ = compute\n"
        "property_, described, get_attr, get_attribute, classic, module = (\n"
        "    Property(), Described(), GetAttr(), GetAttribute(), Classic(), Module('m'))\n");
    for (const char* name : {"property_.Error", "described.Error", "Described.Error",
                             "get_attr.Error", "get_attribute.Error", "classic.Error",
                             "OfMeta.Error", "OfMeta.Missing", "module.Error", "module.Missing"}) {
        EXPECT_EQ(caught_by_name(name), "000") << name;
    }
    EXPECT_EQ(repr("ran"), "[]");
}

TEST_P(HandlersTest, StoredAttributeIsFoundBesideOneThatIsComputed) {
    run("class GetAttr(object):\n"
        "    def __getattr__(self, name): raise RuntimeError(name)\n"
        "get_attr = GetAttr()\n"
        "get_attr.__dict__['Error'] = Mine\n");
    EXPECT_EQ(caught_by_name("get_attr.Error"), "111");
}

TEST_P(HandlersTest, ComparingNamesRunsNoCode) {
    run("ran = []\n"
        "class Name(str):\n"
        "    def __hash__(self): ran.append(1); return str.__hash__(self)\n"
        "    def __eq__(self, other): ran.append(1); return str.__eq__(self, other)\n");
    EXPECT_EQ(caught_by_name("Mine.Error"), "000");
    EXPECT_EQ(repr("ran"), "[]");
}

TEST_P(HandlersTest, AttributeOfNothingIsNothing) {
    EXPECT_EQ(caught_by(clause_of(opcodes().load_attr, 0), "('Mine',)"), "000");
}

TEST_P(HandlersTest, ClassThatAnAttributeIsTakenOfIsNotTestedItself) {
    EXPECT_EQ(caught_by_name("Mine.Missing"), "000");
}

TEST_P(HandlersTest, AttributesOfConstantsAndFastLocalsAreLoaded) {
    run("class Module(object): Error = Mine\n");
    EXPECT_EQ(caught_by(clause([this](Assembler& to) {
                            to.op(opcodes().load_const, 0).op(opcodes().load_attr, 0);
                        }),
                        "('Error',)", "(Module,)"),
              "111");
    const Ref frame = frame_of(
        clause([this](Assembler& to) { to.op(opcodes().load_fast, 0).op(opcodes().load_attr, 0); }),
        "('Error',)", "()", "('module',)");
    add_except(frame);
    EXPECT_EQ(in_each_mode(frame), "000");
    as(frame)->f_localsplus[0] = eval("Module").release();
    EXPECT_EQ(in_each_mode(frame), "111");
}

TEST_P(HandlersTest, ExtendedArgumentIsTheUpperHalf) {
    // 2 ** 16 + 1 names.
    const Ref frame =
        frame_of(clause([this](Assembler& to) { to.extended(opcodes().load_global, 0x10001); }),
                 "('Other',) * 0x10001 + ('Mine',)");
    add_except(frame);
    EXPECT_EQ(in_each_mode(frame), "111");
    const Ref lower = frame_of(clause([this](Assembler& to) { to.op(opcodes().load_global, 1); }),
                               "('Other',) * 0x10001 + ('Mine',)");
    add_except(lower);
    EXPECT_EQ(in_each_mode(lower), "000");
}

TEST_P(HandlersTest, ExtendedArgumentsOfZeroChangeNothing) {
    EXPECT_EQ(caught_by(clause([this](Assembler& to) { to.extended(opcodes().load_global, 0); }),
                        "('Mine',)"),
              "111");
}

TEST_P(HandlersTest, AttributeBehindAnExtendedArgumentIsLookedUpInNothing) {
    run("class Module(object): Error = Mine\n");
    EXPECT_EQ(caught_by(clause([this](Assembler& to) {
                            to.op(opcodes().load_global, 0).extended(opcodes().load_attr, 1);
                        }),
                        "('Module', 'Error')"),
              "000");
}

TEST_P(HandlersTest, ExtensionOfAnExtensionEndsTheScan) {
    EXPECT_EQ(caught_by(assembler()
                            .op(opcodes().dup_top)
                            .op(opcodes().extended_arg, 0)
                            .extended(opcodes().load_global, 0)
                            .end_of_test()
                            .bare_clause()
                            .end()
                            .bytes(),
                        "('Mine',)"),
              "000");
}

TEST_P(HandlersTest, ArgumentsOutOfRangeLoadNothing) {
    const OpcodeTable& table = opcodes();
    for (const int opcode :
         {table.load_const, table.load_name, table.load_global, table.load_fast, table.load_attr}) {
        for (const unsigned argument : {1U, 2U, 0xffffU, 0x10000U, 0x7fffffffU, 0xffffffffU}) {
            const std::string bytes =
                assembler()
                    .typed_clause([&](Assembler& to) { to.extended(opcode, argument); })
                    .bare_clause()
                    .end()
                    .bytes();
            const Ref frame = frame_of(bytes, "('Mine',)", "(Mine,)", "('kind',)");
            as(frame)->f_localsplus[0] = eval("Mine").release();
            add_except(frame);
            EXPECT_EQ(in_each_mode(frame), "100") << opcode << " " << argument;
        }
    }
}

TEST_P(HandlersTest, UnknownInstructionInAClauseEndsTheScan) {
    for (const int opcode : {kRotTwo, kNop, kEndFinally, 255, 0}) {
        Assembler to = assembler();
        to.op(opcodes().dup_top);
        if (opcode < opcodes().have_argument) {
            to.op(opcode);
        } else {
            to.op(opcode, 0);
        }
        to.op(opcodes().load_global, 0).end_of_test().bare_clause().end();
        EXPECT_EQ(caught_by(to.bytes(), "('Mine',)"), "000") << opcode;
    }
    EXPECT_EQ(caught_by(clause([this](Assembler& to) {
                            to.op(opcodes().load_global, 0).op(kCallFunction, 0);
                        }),
                        "('Mine',)"),
              "000");
    EXPECT_EQ(caught_by(clause_of(kLoadDeref, 0)), "000");
}

TEST_P(HandlersTest, ClausesBeforeAnUnknownInstructionCount) {
    const std::string bytes =
        assembler()
            .typed_clause([this](Assembler& to) { to.op(opcodes().load_global, 0); })
            .typed_clause([](Assembler& to) { to.op(kLoadDeref, 0); })
            .bare_clause()
            .end()
            .bytes();
    EXPECT_EQ(caught_by(bytes, "('Mine',)"), "111");
    EXPECT_EQ(caught_by(bytes, "('Other',)"), "000");
}

TEST_P(HandlersTest, HandlerThatBeginsOtherwiseHasNoClauses) {
    for (const int opcode : {kEndFinally, kNop, 0}) {
        EXPECT_EQ(caught_by(assembler().op(opcode).bare_clause().end().bytes()), "000");
    }
}

TEST_P(HandlersTest, ComparisonOfAnotherKindEndsTheScan) {
    for (const int comparison : {0, 2, 8, 9, 11, 0x100 + kCompareExceptionMatch}) {
        EXPECT_EQ(caught_by(assembler()
                                .op(opcodes().dup_top)
                                .op(opcodes().load_global, 0)
                                .op(opcodes().compare_op, comparison)
                                .op(opcodes().jump_if_false, 0)
                                .bare_clause()
                                .end()
                                .bytes(),
                            "('Mine',)"),
                  "000")
            << comparison;
    }
}

TEST_P(HandlersTest, ComparisonWithoutItsJumpEndsTheScan) {
    EXPECT_EQ(caught_by(assembler()
                            .op(opcodes().dup_top)
                            .op(opcodes().load_global, 0)
                            .op(opcodes().compare_op, kCompareExceptionMatch)
                            .op(kJumpForward, 0)
                            .bare_clause()
                            .end()
                            .bytes(),
                        "('Mine',)"),
              "000");
}

TEST_P(HandlersTest, FailedTestThatIsNotDroppedEndsTheScan) {
    if (opcodes().jump_is_absolute) {
        return;  // there the jump drops it
    }
    EXPECT_EQ(caught_by(assembler()
                            .op(opcodes().dup_top)
                            .op(opcodes().load_global, 0)
                            .op(opcodes().compare_op, kCompareExceptionMatch)
                            .op(opcodes().jump_if_false, 0)
                            .op(kNop)
                            .bare_clause()
                            .end()
                            .bytes(),
                        "('Mine',)"),
              "000");
}

TEST_P(HandlersTest, JumpsThatLeadNowhereEndTheScan) {
    const int behind_test = 1 + 3 + 3 + 3;
    for (const int target : {behind_test + 4, behind_test + 5, 1000, 0xffff}) {
        const int argument = opcodes().jump_is_absolute ? target : target - behind_test;
        EXPECT_EQ(caught_by(assembler()
                                .op(opcodes().dup_top)
                                .op(opcodes().load_global, 0)
                                .op(opcodes().compare_op, kCompareExceptionMatch)
                                .op(opcodes().jump_if_false, argument)
                                .bare_clause()
                                .bytes(),
                            "('Mine',)"),
                  "000")
            << target;
    }
}

TEST_P(HandlersTest, JumpBackwardsEndsTheScan) {
    if (!opcodes().jump_is_absolute) {
        return;  // there a jump cannot say so
    }
    for (const int target : {0, 1, 4, 7, 9}) {
        EXPECT_EQ(caught_by(assembler()
                                .op(opcodes().dup_top)
                                .op(opcodes().load_global, 0)
                                .op(opcodes().compare_op, kCompareExceptionMatch)
                                .op(opcodes().jump_if_false, target)
                                .bare_clause()
                                .bytes(),
                            "('Other',)"),
                  "000")
            << target;
    }
}

TEST_P(HandlersTest, JumpMayBeExtended) {
    Assembler to = assembler();
    to.op(opcodes().dup_top).op(opcodes().load_global, 0);
    to.op(opcodes().compare_op, kCompareExceptionMatch);
    constexpr int kBody = 0x12345;
    const int behind_test = to.size() + 6;
    to.extended(opcodes().jump_if_false, opcodes().jump_is_absolute ? behind_test + kBody : kBody);
    for (int i = 0; i < kBody; ++i) {
        to.op(kNop);
    }
    if (!opcodes().jump_is_absolute) {
        to.op(opcodes().pop_top);
    }
    to.bare_clause().end();
    EXPECT_EQ(caught_by(to.bytes(), "('Other',)"), "100");
    EXPECT_EQ(caught_by(to.bytes(), "('Mine',)"), "111");
}

TEST_P(HandlersTest, NothingBehindTheEndOfTheCodeIsRead) {
    const std::string bytes =
        assembler()
            .typed_clause([this](Assembler& to) { to.extended(opcodes().load_global, 0); })
            .typed_clause([this](Assembler& to) {
                to.op(opcodes().load_global, 1).op(opcodes().load_attr, 2);
            })
            .bare_clause()
            .end()
            .bytes();
    const Ref frame = frame_of(bytes, "('Other', 'Alien', 'Missing')");
    const auto* const start =
        reinterpret_cast<const unsigned char*>(PyString_AS_STRING(as(frame)->f_code->co_code));
    // The bare clause is the first instruction of its four.
    const size_t caught_from = bytes.size() - 4;
    for (size_t size = 0; size <= bytes.size(); ++size) {
        const CodeRange range = {start, start + size};
        EXPECT_EQ(handler_catches(as(frame), 0, exception_.get(), range, kAny, opcodes()),
                  size >= caught_from ? 1 : 0)
            << size;
    }
}

TEST_P(HandlersTest, CutOffClauseThatMatchedDoesNotCatch) {
    const std::string bytes = clause_of(opcodes().load_global, 0);
    const Ref frame = frame_of(bytes, "('Mine',)");
    const auto* const start =
        reinterpret_cast<const unsigned char*>(PyString_AS_STRING(as(frame)->f_code->co_code));
    for (size_t size = 0; size + 1 < bytes.size(); ++size) {
        const CodeRange range = {start, start + size};
        EXPECT_EQ(handler_catches(as(frame), 0, exception_.get(), range, kTyped, opcodes()), 0)
            << size;
    }
}

TEST_P(HandlersTest, HandlerOffsetOutsideTheCodeHasNoClauses) {
    const std::string bytes = assembler().bare_clause().end().bytes();
    const int size = static_cast<int>(bytes.size());
    for (const int offset : {-1, INT_MIN, size, size + 1, INT_MAX}) {
        const Ref frame = frame_of(bytes);
        add_except(frame, offset);
        EXPECT_EQ(in_each_mode(frame), "000") << offset;
    }
}

TEST_P(HandlersTest, HandlerMayStandAnywhere) {
    const Ref frame = frame_of(assembler().op(kNop).op(kJumpForward, 7).bare_clause().bytes());
    add_except(frame, 4);
    EXPECT_EQ(in_each_mode(frame), "100");
}

TEST_P(HandlersTest, EmptyCodeHasNoClauses) { EXPECT_EQ(caught_by(""), "000"); }

TEST_P(HandlersTest, CodeThatIsNoExactStringIsNotRead) {
    const Ref bytes = Ref::steal(PyString_FromStringAndSize(
        assembler().bare_clause().bytes().data(), assembler().bare_clause().size()));
    run("class Text(str): pass");
    PyDict_SetItemString(variables_.get(), "bytes_", bytes.get());
    for (const char* expression : {"Text(bytes_)", "buffer(bytes_)"}) {
        const Ref frame = frame_of_object(eval(expression).get());
        add_except(frame);
        EXPECT_EQ(in_each_mode(frame), "000") << expression;
        as(frame)->f_lasti = 0;
        EXPECT_EQ(in_each_mode(frame), "000") << expression;
    }
    const Ref frame = frame_of_object(bytes.get());
    add_except(frame);
    EXPECT_EQ(in_each_mode(frame), "100");
}

TEST_P(HandlersTest, BlocksOfOtherKindsCatchNothing) {
    for (const int type : {kSetupLoop, kSetupFinally, kSetupWith27, 0, -1}) {
        const Ref frame = frame_of(assembler().bare_clause().end().bytes());
        add_block(frame, type, 0);
        EXPECT_EQ(in_each_mode(frame), "000") << type;
    }
}

TEST_P(HandlersTest, EveryBlockIsLookedAtFromTheInnermost) {
    Assembler to = assembler();
    to.typed_clause([this](Assembler& load) { load.op(opcodes().load_global, 0); }).end();
    const int second = to.size();
    to.typed_clause([this](Assembler& load) { load.op(opcodes().load_global, 1); }).end();
    const auto nested = [&](const char* names, bool innermost_last) {
        const Ref frame = frame_of(to.bytes(), names);
        add_except(frame, innermost_last ? 0 : second);
        add_block(frame, kSetupLoop, 0);
        add_block(frame, kSetupFinally, 0);
        add_except(frame, innermost_last ? second : 0);
        return in_each_mode(frame);
    };
    for (const bool order : {false, true}) {
        EXPECT_EQ(nested("('Mine', 'Other')", order), "111");
        EXPECT_EQ(nested("('Other', 'Mine')", order), "111");
        EXPECT_EQ(nested("('Other', 'Base')", order), "110");
        EXPECT_EQ(nested("('Other', 'Other')", order), "000");
    }
}

TEST_P(HandlersTest, InnermostBlockThatCatchesEndsTheSearch) {
    const Ref frame = frame_of(assembler().bare_clause().end().bytes());
    add_except(frame);
    add_except(frame);
    Diagnostics diagnostics(kLogExceptions);
    EXPECT_EQ(handled(frame, kAny), 1);
    EXPECT_THAT(diagnostics.take(), ElementsAre("Returning opcode of 1\n"));
}

TEST_P(HandlersTest, FullBlockStackIsLookedAt) {
    const Ref frame = frame_of(assembler().end().bare_clause().bytes());
    add_except(frame, 1);
    for (int i = 1; i < CO_MAXBLOCKS; ++i) {
        add_except(frame, 0);
    }
    EXPECT_EQ(in_each_mode(frame), "100");
}

TEST_P(HandlersTest, EveryDecodedOpcodeIsLogged) {
    const Ref frame = frame_of(assembler()
                                   .typed_clause([this](Assembler& to) {
                                       to.extended(opcodes().load_global, 0)
                                           .op(opcodes().load_const, 0)
                                           .op(opcodes().build_tuple, 2);
                                   })
                                   .end()
                                   .bytes(),
                               "('Other',)", "(Alien,)");
    add_except(frame);
    Diagnostics diagnostics(kLogExceptions);
    EXPECT_EQ(handled(frame), 0);
    std::vector<std::string> expected;
    std::vector<int> decoded = {opcodes().dup_top,    opcodes().load_global,
                                opcodes().load_const, opcodes().build_tuple,
                                opcodes().compare_op, opcodes().jump_if_false};
    if (!opcodes().jump_is_absolute) {
        decoded.push_back(opcodes().pop_top);
    }
    decoded.push_back(kEndFinally);
    expected.reserve(decoded.size());
    for (const int opcode : decoded) {
        expected.push_back("Returning opcode of " + std::to_string(opcode) + "\n");
    }
    EXPECT_EQ(diagnostics.take(), expected);
}

TEST_P(HandlersTest, WhatFollowsAMatchIsReadButNotTested) {
    run("ran = []\n"
        "class Meta(type):\n"
        "    def __subclasscheck__(cls, other):\n"
        "        ran.append(1)\n"
        "        return False\n"
        "class Asked(Exception):\n"
        "    __metaclass__ = Meta\n");
    EXPECT_EQ(caught_by(clause([this](Assembler& to) {
                            to.op(opcodes().load_global, 0)
                                .op(opcodes().load_global, 1)
                                .op(opcodes().build_tuple, 2);
                        }),
                        "('Mine', 'Asked')"),
              "111");
    EXPECT_EQ(repr("ran"), "[]");
}

TEST_P(HandlersTest, ObjectsAreGivenBack) {
    run("class Module(object): Error = Other\n");
    const Ref module = eval("Module");
    const Ref other = eval("Other");
    const std::string bytes = clause([this](Assembler& to) {
        to.op(opcodes().load_global, 0)
            .op(opcodes().load_attr, 1)
            .op(opcodes().load_global, 2)
            .op(opcodes().build_tuple, 2);
    });
    const Ref frame = frame_of(bytes, "('Module', 'Error', 'Other')");
    add_except(frame);
    const Py_ssize_t before[] = {Py_REFCNT(module.get()), Py_REFCNT(other.get()),
                                 Py_REFCNT(exception_.get())};
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(in_each_mode(frame), "000");
    }
    EXPECT_THAT(before, ElementsAre(Py_REFCNT(module.get()), Py_REFCNT(other.get()),
                                    Py_REFCNT(exception_.get())));
}

// Frames that call each other.
class CallersTest : public HandlersTest {
  protected:
    void SetUp() override {
        HandlersTest::SetUp();
        handler_ = clause_of(opcodes().load_global, 0);
    }

    // A frame that names this class in a clause, called by `caller`.
    Ref frame(const char* names, const Ref& caller) {
        Ref made = frame_of(handler_, names);
        add_except(made);
        Py_XINCREF(caller.get());
        as(made)->f_back = as(caller);
        return made;
    }

    std::string handler_;
};

INSTANTIATE_TEST_SUITE_P(Bytecode, CallersTest, testing::Values(&kOpcodes26, &kOpcodes27),
                         [](const auto& test) {
                             return test.param == &kOpcodes26 ? "Of26" : "Of27";
                         });

TEST_P(CallersTest, CallersCatchUnlessOnlyThisFrameIsAsked) {
    const Ref outer = frame("('Mine',)", Ref());
    const Ref middle = frame("('Other',)", outer);
    const Ref inner = frame("('Other',)", middle);
    EXPECT_EQ(handled(inner), 1);
    EXPECT_EQ(handled(inner, kTyped, true), 0);
    EXPECT_EQ(handled(middle, kTyped, true), 0);
    EXPECT_EQ(handled(outer, kTyped, true), 1);
}

TEST_P(CallersTest, NobodyCatches) {
    EXPECT_EQ(handled(frame("('Other',)", frame("('Alien',)", Ref()))), 0);
}

TEST_P(CallersTest, CallerWhoseCodeCannotBeReadIsPassedOver) {
    const Ref outer = frame("('Mine',)", Ref());
    const Ref inner = frame("('Mine',)", outer);
    run("class Text(str): pass");
    PyCodeObject* const code = as(inner)->f_code;
    PyObject* const bytes = code->co_code;
    PyDict_SetItemString(variables_.get(), "bytes_", bytes);
    const Ref text = eval("Text(bytes_)");
    code->co_code = text.get();
    EXPECT_EQ(handled(inner), 1);
    EXPECT_EQ(handled(inner, kTyped, true), 0);
    code->co_code = bytes;
    EXPECT_EQ(handled(inner, kTyped, true), 1);
}

TEST_P(CallersTest, ChainEndsAtWhatIsNoFrame) {
    const Ref inner = frame("('Other',)", Ref());
    const Ref stranger = eval("Mine");
    as(inner)->f_back = reinterpret_cast<PyFrameObject*>(stranger.get());
    EXPECT_EQ(handled(inner), 0);
    as(inner)->f_back = nullptr;
    EXPECT_EQ(handled(Ref()), 0);
    EXPECT_EQ(handled(eval("Mine")), 0);
    EXPECT_EQ(handled(eval("None")), 0);
}

TEST_P(CallersTest, HandlersOfIgnoredCodeDoNotCount) {
    const Ref outer = frame("('Base',)", Ref());
    const Ref inner = frame("('Mine',)", outer);
    const Ref ignored = Ref::steal(PyDict_New());
    EXPECT_EQ(handled(inner, kTyped, true, ignored.get()), 1);
    PyDict_SetItem(ignored.get(), reinterpret_cast<PyObject*>(as(inner)->f_code), Py_None);
    EXPECT_EQ(handler_is_ignored(as(inner), ignored.get()), 1);
    EXPECT_EQ(handler_is_ignored(as(outer), ignored.get()), 0);
    EXPECT_EQ(handled(inner, kTyped, true, ignored.get()), 0);
    EXPECT_EQ(handled(inner, kTyped, false, ignored.get()), 1);
    PyDict_SetItem(ignored.get(), reinterpret_cast<PyObject*>(as(outer)->f_code), Py_None);
    EXPECT_EQ(handled(inner, kTyped, false, ignored.get()), 0);
}

TEST_P(CallersTest, HandlersOfEqualCodeDoNotCount) {
    const Ref named = frame("('Mine',)", Ref());
    const Ref equal = frame("('Mine',)", Ref());
    const Ref other = frame("('Base',)", Ref());
    ASSERT_NE(as(named)->f_code, as(equal)->f_code);
    const Ref ignored = Ref::steal(PyDict_New());
    PyDict_SetItem(ignored.get(), reinterpret_cast<PyObject*>(as(named)->f_code), Py_None);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(handler_is_ignored(as(equal), ignored.get()), 1) << i;
        ASSERT_EQ(handler_is_ignored(as(other), ignored.get()), 0) << i;
        const Ref number = Ref::steal(PyInt_FromLong(i));
        PyDict_SetItem(ignored.get(), number.get(), Py_None);
    }
}

TEST_P(CallersTest, HandlersOfAnIgnoredFrameDoNotCount) {
    const Ref outer = frame("('Mine',)", Ref());
    const Ref inner = frame("('Mine',)", outer);
    const Ref ignored = Ref::steal(PyDict_New());
    PyDict_SetItem(ignored.get(), inner.get(), Py_False);
    EXPECT_EQ(handler_is_ignored(as(inner), ignored.get()), 1);
    EXPECT_EQ(handled(inner, kTyped, true, ignored.get()), 0);
    EXPECT_EQ(handled(inner, kTyped, false, ignored.get()), 1);
    EXPECT_EQ(handled(outer, kTyped, true, ignored.get()), 1);
    PyDict_Clear(ignored.get());
}

TEST_P(CallersTest, LoopsOfAnIgnoredFrameDoNotCount) {
    exception_ = eval("StopIteration");
    const Ref inner = frame_of(assembler().op(opcodes().for_iter, 0).bytes());
    as(inner)->f_lasti = 0;
    const Ref ignored = Ref::steal(PyDict_New());
    EXPECT_EQ(handled(inner, kTyped, false, ignored.get()), 1);
    PyDict_SetItem(ignored.get(), reinterpret_cast<PyObject*>(as(inner)->f_code), Py_None);
    EXPECT_EQ(handled(inner, kTyped, false, ignored.get()), 0);
}

TEST_P(CallersTest, OnlyADictionaryNamesIgnoredHandlers) {
    const Ref inner = frame("('Mine',)", Ref());
    run("class Handlers(dict): pass\nhandlers = Handlers()");
    for (const char* expression : {"None", "[]", "7", "{}", "{1: 2}", "handlers"}) {
        EXPECT_EQ(handler_is_ignored(as(inner), eval(expression).get()), 0) << expression;
        EXPECT_EQ(handled(inner, kTyped, true, eval(expression).get()), 1) << expression;
    }
    EXPECT_EQ(handler_is_ignored(as(inner), nullptr), 0);
    const Ref list = Ref::steal(PyList_New(0));
    PyList_Append(list.get(), inner.get());
    EXPECT_EQ(handler_is_ignored(as(inner), list.get()), 0);
    const Ref handlers = eval("handlers");
    PyDict_SetItem(handlers.get(), inner.get(), Py_None);
    EXPECT_EQ(handler_is_ignored(as(inner), handlers.get()), 1);
    PyDict_Clear(handlers.get());
}

TEST_P(CallersTest, WhatIsNoFrameIsNotIgnored) {
    const Ref ignored = eval("{None: 1, 7: 1}");
    EXPECT_EQ(handler_is_ignored(nullptr, ignored.get()), 0);
    EXPECT_EQ(handler_is_ignored(as_frame(Py_None), ignored.get()), 0);
}

class LoopsTest : public HandlersTest {
  protected:
    // The answer in a frame whose last instruction is the one at this offset.
    int ends(const char* exception, int last, const std::string& bytes) {
        exception_ = eval(exception);
        const Ref frame = frame_of(bytes);
        as(frame)->f_lasti = last;
        return handled(frame, kTyped, true);
    }
};

INSTANTIATE_TEST_SUITE_P(Bytecode, LoopsTest, testing::Values(&kOpcodes26, &kOpcodes27),
                         [](const auto& test) {
                             return test.param == &kOpcodes26 ? "Of26" : "Of27";
                         });

TEST_P(LoopsTest, StopIterationAndIndexErrorEndALoopThatFetches) {
    run("class Stop(StopIteration): pass\nclass Index(IndexError): pass\n");
    const std::string bytes = assembler().op(kNop).op(opcodes().for_iter, 9).op(kNop).bytes();
    for (const char* exception :
         {"StopIteration", "IndexError", "Stop", "Index", "Stop()", "IndexError('x')"}) {
        EXPECT_EQ(ends(exception, 1, bytes), 1) << exception;
        EXPECT_EQ(ends(exception, 0, bytes), 0) << exception;
        EXPECT_EQ(ends(exception, 4, bytes), 0) << exception;
    }
    for (const char* exception :
         {"LookupError", "KeyError", "Exception", "GeneratorExit", "Mine"}) {
        EXPECT_EQ(ends(exception, 1, bytes), 0) << exception;
    }
}

TEST_P(LoopsTest, InstructionOutsideTheCodeFetchesNothing) {
    const std::string bytes = assembler().op(opcodes().for_iter, 0).bytes();
    EXPECT_EQ(ends("StopIteration", 0, bytes), 1);
    for (const int last : {-1, INT_MIN, 3, 4, INT_MAX}) {
        EXPECT_EQ(ends("StopIteration", last, bytes), 0) << last;
    }
    EXPECT_EQ(ends("StopIteration", 0, ""), 0);
}

TEST_P(LoopsTest, EveryModeCountsLoops) {
    exception_ = eval("StopIteration");
    const Ref frame = frame_of(assembler().op(opcodes().for_iter, 0).bytes());
    as(frame)->f_lasti = 0;
    EXPECT_EQ(in_each_mode(frame), "111");
}

TEST_P(LoopsTest, LoopOfACallerCounts) {
    exception_ = eval("IndexError");
    const Ref outer = frame_of(assembler().op(opcodes().for_iter, 0).bytes());
    as(outer)->f_lasti = 0;
    const Ref inner = frame_of(assembler().op(kNop).bytes());
    Py_INCREF(outer.get());
    as(inner)->f_back = as(outer);
    EXPECT_EQ(handled(inner, kTyped, false), 1);
    EXPECT_EQ(handled(inner, kTyped, true), 0);
}

TEST(ProbeTest, PlaceInTheExpressionParser) {
    EXPECT_EQ(is_sre_parse_probe("sre_parse.py", 139), 1);
    EXPECT_EQ(is_sre_parse_probe("/usr/lib/python2.6/sre_parse.py", 139), 1);
    EXPECT_EQ(is_sre_parse_probe("C:\\Python26\\Lib\\sre_parse.py", 139), 1);
    EXPECT_EQ(is_sre_parse_probe("my_sre_parse.py", 139), 1);
    for (const int line : {0, -1, 138, 140, 139 + 256, 139 + 65536}) {
        EXPECT_EQ(is_sre_parse_probe("/lib/sre_parse.py", line), 0) << line;
    }
    for (const char* file : {"", "py", "re_parse.py", "sre_parse.pyc", "sre_parse.py/",
                             "SRE_PARSE.PY", "sre_parse_py", "sre_parse.p"}) {
        EXPECT_EQ(is_sre_parse_probe(file, 139), 0) << file;
    }
}

class OpcodesTest : public PythonTest {};

TEST_F(OpcodesTest, HostsTableHasTheNumbersOfItsInterpreter) {
    run("import opcode");
    const auto number = [this](const char* name) {
        PyDict_SetItemString(variables_.get(), "name", Ref::steal(PyString_FromString(name)).get());
        return PyInt_AsLong(eval("opcode.opmap[name]").get());
    };
    const OpcodeTable& table = kHostOpcodes;
    EXPECT_EQ(table.have_argument, PyInt_AsLong(eval("opcode.HAVE_ARGUMENT").get()));
    EXPECT_EQ(table.pop_top, number("POP_TOP"));
    EXPECT_EQ(table.dup_top, number("DUP_TOP"));
    EXPECT_EQ(table.for_iter, number("FOR_ITER"));
    EXPECT_EQ(table.load_const, number("LOAD_CONST"));
    EXPECT_EQ(table.load_name, number("LOAD_NAME"));
    EXPECT_EQ(table.build_tuple, number("BUILD_TUPLE"));
    EXPECT_EQ(table.load_attr, number("LOAD_ATTR"));
    EXPECT_EQ(table.compare_op, number("COMPARE_OP"));
    EXPECT_EQ(table.jump_if_false,
              number(table.jump_is_absolute ? "POP_JUMP_IF_FALSE" : "JUMP_IF_FALSE"));
    EXPECT_EQ(table.load_global, number("LOAD_GLOBAL"));
    EXPECT_EQ(table.setup_except, number("SETUP_EXCEPT"));
    EXPECT_EQ(table.load_fast, number("LOAD_FAST"));
    EXPECT_EQ(table.extended_arg, PyInt_AsLong(eval("opcode.EXTENDED_ARG").get()));
    EXPECT_EQ(repr("opcode.cmp_op[10]"), "'exception match'");
}

TEST_F(OpcodesTest, NumbersOf26) {
    const OpcodeTable& table = kOpcodes26;
    const int numbers[] = {table.have_argument, table.pop_top,     table.dup_top,
                           table.for_iter,      table.load_const,  table.load_name,
                           table.build_tuple,   table.load_attr,   table.compare_op,
                           table.jump_if_false, table.load_global, table.setup_except,
                           table.load_fast,     table.extended_arg};
    EXPECT_THAT(numbers,
                ElementsAre(90, 1, 4, 93, 100, 101, 102, 105, 106, 111, 116, 121, 124, 143));
    EXPECT_FALSE(table.jump_is_absolute);
}

}  // namespace
}  // namespace morvik
