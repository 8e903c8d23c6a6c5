#include "conames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "allocation.h"
#include "embedding.h"
#include "folder.h"

namespace morvik {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class CodeNamesTest : public testing::Test {
  protected:
    CodeNamesTest() { registry_init(registry.get(), path_cache_new()); }
    ~CodeNamesTest() override {
        if (registry->names != nullptr) {
            const Ref keys = Ref::steal(PyDict_Keys(registry->names));
            clear_slot(registry->names);
            for (Py_ssize_t i = 0; i < PyList_GET_SIZE(keys.get()); ++i) {
                Ref::steal(
                    static_cast<PyObject*>(PyLong_AsVoidPtr(PyList_GET_ITEM(keys.get(), i))));
            }
        }
        clear_slot(registry->file_key);
        if (registry->path_cache != nullptr) {
            path_cache_free(registry->path_cache);
        }
    }

    // Code of a module with this text.
    Ref compiled(const std::string& text, const std::string& filename = "x.py") {
        Ref code = Ref::steal(Py_CompileString(text.c_str(), filename.c_str(), Py_file_input));
        EXPECT_TRUE(code);
        return code;
    }
    static PyCodeObject* as_code(const Ref& object) {
        return reinterpret_cast<PyCodeObject*>(object.get());
    }

    int enter(const Ref& code, const char* name, int force = 0) {
        return register_pathname(registry.get(), as_code(code), name, force);
    }
    std::string name_of(PyCodeObject* code) {
        return text_or_none(registered_pathname(registry.get(), code));
    }
    std::string name_of(const Ref& code) { return name_of(as_code(code)); }
    std::string name_of(PyObject* function) { return name_of(code_of(function)); }

    static std::string text_or_none(const char* text) { return text != nullptr ? text : "(none)"; }

    // As many look-ups as it takes for the next one to collect.
    void approach_collection() { registry->gc_counter = kCallsPerCollection - 1; }

    Py_ssize_t entries() const {
        return registry->names != nullptr ? PyDict_Size(registry->names) : 0;
    }

    std::string relative(PyObject* globals, PyObject* co_filename) {
        return get_relative_path(registry.get(), globals, co_filename);
    }

    // A namespace whose "__file__" is this.
    static Ref module_of(const std::string& file) {
        Ref globals = Ref::steal(PyDict_New());
        const Ref name = Ref::steal(PyString_FromString(file.c_str()));
        PyDict_SetItemString(globals.get(), "__file__", name.get());
        return globals;
    }
    static Ref text(const std::string& characters) {
        return Ref::steal(PyString_FromStringAndSize(characters.data(),
                                                     static_cast<Py_ssize_t>(characters.size())));
    }

    Folder folder;
    std::unique_ptr<CodeNameRegistry> registry = std::make_unique<CodeNameRegistry>();
};

TEST_F(CodeNamesTest, NothingIsKnownAtFirst) {
    const Ref code = compiled("x = 1\n");
    EXPECT_EQ(registry->names, nullptr);
    EXPECT_EQ(name_of(code), "(none)");
    EXPECT_EQ(name_of(static_cast<PyCodeObject*>(nullptr)), "(none)");
    EXPECT_EQ(registry->names, nullptr);
}

TEST_F(CodeNamesTest, RegisteredCodeHasItsName) {
    const Ref code = compiled("x = 1\n");
    EXPECT_EQ(enter(code, "/a.py"), 0);
    EXPECT_EQ(name_of(code), "/a.py");
    EXPECT_EQ(name_of(code), "/a.py");
    EXPECT_EQ(name_of(compiled("y = 2\n")), "(none)");
}

TEST_F(CodeNamesTest, EntryIsThePairOfNameAndNoneUnderTheAddress) {
    const Ref code = compiled("x = 1\n");
    enter(code, "/a.py");
    const Ref key = Ref::steal(PyLong_FromVoidPtr(code.get()));
    EXPECT_EQ(repr(PyDict_GetItem(registry->names, key.get())), "('/a.py', None)");
    EXPECT_EQ(entries(), 1);
}

TEST_F(CodeNamesTest, RegistryHoldsOneReferenceToCode) {
    const Ref code = compiled("x = 1\n");
    const Py_ssize_t before = Py_REFCNT(code.get());
    enter(code, "/a.py");
    EXPECT_EQ(Py_REFCNT(code.get()), before + 1);
    enter(code, "/b.py", 1);
    enter(code, "/b.py", 0);
    EXPECT_EQ(Py_REFCNT(code.get()), before + 1);
}

TEST_F(CodeNamesTest, KnownNameIsKeptUnlessForced) {
    const Ref code = compiled("x = 1\n");
    enter(code, "/first.py");
    EXPECT_EQ(enter(code, "/second.py", 0), 0);
    EXPECT_EQ(name_of(code), "/first.py");
    EXPECT_EQ(enter(code, "/second.py", 1), 0);
    EXPECT_EQ(name_of(code), "/second.py");
}

TEST_F(CodeNamesTest, NestedCodeIsRegisteredToAnyDepth) {
    const Ref names =
        run("def outer():\n"
            "    def middle():\n"
            "        return lambda: [x for x in (y for y in ())]\n"
            "    class Inner(object):\n"
            "        def method(self): pass\n"
            "    return middle, Inner.method.im_func\n"
            "middle, method = outer()\n"
            "inner = middle()\n");
    EXPECT_EQ(register_pathname(registry.get(), code_of(item(names, "outer")), "/a.py", 0), 0);
    for (const char* function : {"outer", "middle", "inner", "method"}) {
        EXPECT_EQ(name_of(item(names, function)), "/a.py") << function;
    }
    // outer, middle, the lambda, its generator, the class body and the method.
    EXPECT_EQ(entries(), 6);
}

TEST_F(CodeNamesTest, NestedCodeIsForcedLikeItsOuterCode) {
    const Ref names =
        run("def outer():\n"
            "    def inner(): pass\n"
            "    return inner\n"
            "inner = outer()\n");
    const auto register_code = [&](const char* function, const char* name, int force) {
        register_pathname(registry.get(), code_of(item(names, function)), name, force);
    };
    register_code("inner", "/inner.py", 0);
    register_code("outer", "/outer.py", 0);
    EXPECT_EQ(name_of(item(names, "outer")), "/outer.py");
    EXPECT_EQ(name_of(item(names, "inner")), "/inner.py");
    register_code("outer", "/other.py", 0);
    EXPECT_EQ(name_of(item(names, "outer")), "/outer.py");
    register_code("outer", "/other.py", 1);
    EXPECT_EQ(name_of(item(names, "outer")), "/other.py");
    EXPECT_EQ(name_of(item(names, "inner")), "/other.py");
}

TEST_F(CodeNamesTest, KnownOuterCodeKeepsItsNestedCodeFromBeingRegistered) {
    const Ref names =
        run("def outer():\n"
            "    def inner(): pass\n"
            "    return inner\n"
            "inner = outer()\n");
    register_pathname(registry.get(), code_of(item(names, "outer")), "/a.py", 0);
    register_pathname(registry.get(), code_of(item(names, "inner")), "/b.py", 1);
    register_pathname(registry.get(), code_of(item(names, "outer")), "/c.py", 0);
    EXPECT_EQ(name_of(item(names, "inner")), "/b.py");
}

TEST_F(CodeNamesTest, NoCodeIsAnErrorWithoutAPythonError) {
    EXPECT_EQ(register_pathname(registry.get(), nullptr, "/a.py", 0), -1);
    EXPECT_EQ(PyErr_Occurred(), nullptr);
    EXPECT_EQ(registry->names, nullptr);
}

TEST_F(CodeNamesTest, RegistrationIsLogged) {
    const Ref code = compiled("x = 1\n");
    Diagnostics diagnostics(kLogFiles);
    enter(code, "/a.py");
    EXPECT_THAT(diagnostics.take(), ElementsAre("Registering /a.py as pathname for code object " +
                                                address(code.get()) + " (<module>)\n"));
}

TEST_F(CodeNamesTest, NameHandedOutOutlivesItsEntry) {
    Ref code = compiled("x = 1\n");
    enter(code, "/the/first/name.py");
    const char* const name = registered_pathname(registry.get(), as_code(code));
    enter(code, "/the/second/name.py", 1);
    EXPECT_STREQ(name, "/the/first/name.py");
    const char* const second = registered_pathname(registry.get(), as_code(code));
    code = Ref();
    approach_collection();
    CollectGarbage(registry.get());
    EXPECT_EQ(entries(), 0);
    EXPECT_STREQ(second, "/the/second/name.py");
}

TEST_F(CodeNamesTest, PendingErrorSurvivesRegistrationAndCollection) {
    const Ref code = compiled("x = 1\n");
    PyErr_SetString(PyExc_ValueError, "mine");
    approach_collection();
    EXPECT_EQ(enter(code, "/a.py"), 0);
    EXPECT_NE(PyErr_ExceptionMatches(PyExc_ValueError), 0);
    PyErr_Clear();
}

TEST_F(CodeNamesTest, CollectionRunsAtEveryFiveThousandthCall) {
    enter(compiled("x = 1\n"), "/a.py");  // dead at once; this was call 1
    const Ref other = compiled("y = 2\n");
    for (int call = 2; call < kCallsPerCollection; ++call) {
        name_of(other);
    }
    EXPECT_EQ(registry->gc_counter, kCallsPerCollection - 1);
    EXPECT_EQ(entries(), 1);
    name_of(other);
    EXPECT_EQ(registry->gc_counter, 0);
    EXPECT_EQ(entries(), 0);
}

TEST_F(CodeNamesTest, RegistrationsCountTowardsTheCollectionToo) {
    const Ref code = compiled("x = 1\n");
    enter(code, "/a.py");
    EXPECT_EQ(registry->gc_counter, 1);
    enter(code, "/a.py");
    EXPECT_EQ(registry->gc_counter, 2);
    approach_collection();
    enter(code, "/a.py");
    EXPECT_EQ(registry->gc_counter, 0);
}

TEST_F(CodeNamesTest, CollectionDropsWhatOnlyTheRegistryHolds) {
    const Ref alive = compiled("x = 1\n");
    enter(alive, "/alive.py");
    enter(compiled("y = 2\n"), "/dead.py");
    EXPECT_EQ(entries(), 2);
    approach_collection();
    EXPECT_EQ(name_of(alive), "/alive.py");
    EXPECT_EQ(entries(), 1);
}

TEST_F(CodeNamesTest, CollectionTakesAsManyBatchesAsThereIsGarbage) {
    for (const int count : {1, 99, 100, 101, 250, 1000}) {
        std::vector<Ref> codes;
        for (int i = 0; i < count; ++i) {
            codes.push_back(compiled("x = 1\n"));
            enter(codes.back(), "/a.py");
        }
        codes.resize(1);
        EXPECT_EQ(entries(), count);
        approach_collection();
        EXPECT_EQ(name_of(codes[0]), "/a.py");
        EXPECT_EQ(entries(), 1);
        codes.clear();
        approach_collection();
        CollectGarbage(registry.get());
    }
}

TEST_F(CodeNamesTest, CodeHeldByDeadCodeGoesWithALaterCollection) {
    enter(compiled("def f(): pass\n"), "/a.py");
    EXPECT_EQ(entries(), 2);
    for (int i = 0; i < 2; ++i) {
        approach_collection();
        CollectGarbage(registry.get());
    }
    EXPECT_EQ(entries(), 0);
}

TEST_F(CodeNamesTest, CollectionBeforeAnythingIsRegisteredStartsTheCountAnew) {
    approach_collection();
    CollectGarbage(registry.get());
    EXPECT_EQ(registry->gc_counter, 0);
    EXPECT_EQ(registry->names, nullptr);
}

TEST_F(CodeNamesTest, NameOfDeadCodeIsNotThatOfCodeAtTheSameAddress) {
    int reused = 0;
    for (int i = 0; i < 200; ++i) {
        Ref code = compiled("x = 1\n");
        const PyObject* const address = code.get();
        enter(code, "/dead.py");
        EXPECT_EQ(name_of(code), "/dead.py");
        code = Ref();
        approach_collection();
        CollectGarbage(registry.get());
        const Ref other = compiled("x = 1\n");
        EXPECT_EQ(name_of(other), "(none)");
        reused += static_cast<int>(other.get() == address);
    }
    EXPECT_EQ(entries(), 0);
    // Under a sanitizer freed memory is not used again for a while.
#if !defined(__SANITIZE_ADDRESS__)
    EXPECT_GT(reused, 0);
#endif
}

TEST_F(CodeNamesTest, ManyCodeObjectsKeepTheirNames) {
    std::vector<Ref> codes;
    for (int i = 0; i < 3000; ++i) {
        codes.push_back(compiled("x = 1\n"));
        enter(codes.back(), ("/f" + std::to_string(i % 700) + ".py").c_str());
    }
    for (int round = 0; round < 2; ++round) {
        for (size_t i = 0; i < codes.size(); ++i) {
            EXPECT_EQ(name_of(codes[i]), "/f" + std::to_string(i % 700) + ".py");
        }
    }
}

TEST_F(CodeNamesTest, RelativePathIsTheCodesOwnNameWithoutModuleFile) {
    const Ref name = text("some/x.py");
    EXPECT_EQ(relative(nullptr, name.get()), "some/x.py");
    EXPECT_EQ(relative(Py_None, name.get()), "some/x.py");
    const Ref empty = Ref::steal(PyDict_New());
    EXPECT_EQ(relative(empty.get(), name.get()), "some/x.py");
}

TEST_F(CodeNamesTest, OnlyThatOfAStringIsPreferredToTheModulesFile) {
    EXPECT_EQ(relative(module_of("/m.py").get(), text("<string>").get()), "<string>");
    for (const char* name : {"<stdin>", "<anything>", "<>", "<String>", "<no/such.py"}) {
        EXPECT_EQ(relative(module_of("/m.py").get(), text(name).get()), "/m.py");
        EXPECT_EQ(relative(nullptr, text(name).get()), name);
    }
}

TEST_F(CodeNamesTest, ModuleFileThatCannotBeCopiedIsNotPreferred) {
    std::filesystem::create_directory(folder.path("copy"));
    std::filesystem::copy(folder.file("x.py"), folder.path("copy/x.py"));
    std::filesystem::last_write_time(folder.path("copy/x.py"),
                                     std::filesystem::last_write_time(folder.path("x.py")));
    const Ref globals = module_of(folder.path("copy/x.pyc"));
    const Ref name = text(folder.path("x.py"));
    EXPECT_EQ(relative(globals.get(), name.get()), folder.path("copy/x.py"));
    const FailingAllocation failing;
    EXPECT_EQ(relative(globals.get(), name.get()), folder.path("x.py"));
}

TEST_F(CodeNamesTest, RelativePathWithoutAnyNameIsThatOfAString) {
    const Ref empty = Ref::steal(PyDict_New());
    EXPECT_EQ(relative(empty.get(), nullptr), "<string>");
    EXPECT_EQ(relative(nullptr, Py_None), "<string>");
    EXPECT_EQ(relative(module_of("/m.py").get(), Py_None), "/m.py");
}

TEST_F(CodeNamesTest, RelativePathLosesItsCompiledSuffix) {
    const Ref name = text("x.pyo");
    EXPECT_EQ(relative(nullptr, name.get()), "x.py");
    EXPECT_EQ(relative(module_of("/m.pyc").get(), nullptr), "/m.py");
}

TEST_F(CodeNamesTest, RelativePathIsOverwrittenByTheNext) {
    const Ref first = text("first.py");
    const Ref second = text("second.py");
    const char* const name = get_relative_path(registry.get(), nullptr, first.get());
    EXPECT_EQ(name, registry->rel_buf);
    EXPECT_EQ(get_relative_path(registry.get(), nullptr, second.get()), name);
    EXPECT_STREQ(name, "second.py");
}

TEST_F(CodeNamesTest, RelativePathIsLogged) {
    const Ref name = text("x.py");
    Diagnostics diagnostics(kLogFiles);
    relative(Py_None, name.get());
    EXPECT_THAT(diagnostics.take(), ElementsAre("get_relative_path(globals = " + address(Py_None) +
                                                ", co_filename = x.py)\n"));
}

TEST_F(CodeNamesTest, LongestRelativePathHas32000Characters) {
    const std::string longest(kMaxPath, 'x');
    EXPECT_EQ(relative(nullptr, text(longest).get()), longest);
    const std::string with_suffix = std::string(kMaxPath - 4, 'x') + ".pyc";
    EXPECT_EQ(relative(nullptr, text(with_suffix).get()), std::string(kMaxPath - 4, 'x') + ".py");
}

TEST_F(CodeNamesTest, LongerRelativePathIsReplacedAndLoggedByItsReplacement) {
    const Ref name = text(std::string(kMaxPath + 1, 'x'));
    Diagnostics diagnostics(kLogFiles);
    EXPECT_EQ(relative(nullptr, name.get()), "<filename too long>");
    EXPECT_THAT(diagnostics.take(), Contains("FAILURE: File name too long: <filename too long>\n"));
    // Also where only the suffix would be too much: the name is measured as given.
    const Ref with_suffix = text(std::string(kMaxPath - 3, 'x') + ".pyc");
    EXPECT_EQ(relative(nullptr, with_suffix.get()), "<filename too long>");
}

TEST_F(CodeNamesTest, FrameThatIsNoneIsANativeOne) {
    EXPECT_STREQ(LookupCOPathname(registry.get(), nullptr), "<cframe>");
    EXPECT_STREQ(LookupCOPathname(registry.get(), as_frame(Py_None)), "<cframe>");
}

class CodeNamesFrameTest : public CodeNamesTest {
  protected:
    // A frame of a function work() compiled under a name.
    Ref frame_in(const std::string& filename) {
        Ref names = Ref::steal(PyDict_New());
        PyDict_SetItemString(names.get(), "__builtins__", PyEval_GetBuiltins());
        const Ref code =
            compiled("import sys\ndef work(): return sys._getframe()\nframe = work()\n", filename);
        const Ref result = Ref::steal(PyEval_EvalCode(as_code(code), names.get(), names.get()));
        EXPECT_TRUE(result);
        Ref frame = Ref::share(PyDict_GetItemString(names.get(), "frame"));
        PyDict_DelItemString(names.get(), "frame");
        return frame;
    }

    std::string look_up(const Ref& frame) {
        return text_or_none(LookupCOPathname(registry.get(), as_frame(frame.get())));
    }
    PyObject* globals_of(const Ref& frame) { return as_frame(frame.get())->f_globals; }
    PyCodeObject* code_of_frame(const Ref& frame) { return as_frame(frame.get())->f_code; }
};

TEST_F(CodeNamesFrameTest, FileIsTheRegisteredOneAndIsLogged) {
    const Ref frame = frame_in("x.py");
    register_pathname(registry.get(), code_of_frame(frame), "/registered.py", 0);
    Diagnostics diagnostics(kLogFiles);
    EXPECT_EQ(look_up(frame), "/registered.py");
    EXPECT_THAT(diagnostics.take(), ElementsAre("LookupCOPathname(work) => /registered.py\n"));
}

TEST_F(CodeNamesFrameTest, FileOfOtherCodeIsFoundAndNothingIsRegistered) {
    const std::string path = folder.file("x.py");
    const Ref frame = frame_in(path);
    Diagnostics diagnostics(kLogFiles);
    EXPECT_EQ(look_up(frame), path);
    const std::vector<std::string> messages = diagnostics.take();
    EXPECT_EQ(messages.at(0), "LookupCOPathname(work) => (NULL)\n");
    EXPECT_EQ(messages.at(2), "_win32_fullpath(path = " + path + ")\n");
    EXPECT_EQ(registry->names, nullptr);
}

TEST_F(CodeNamesFrameTest, FileIsTheRelativeNameWhereThereIsNoFullOne) {
    std::filesystem::create_directory(folder.path("gone"));
    std::filesystem::current_path(folder.path("gone"));
    std::filesystem::remove(folder.path("gone"));
    const Ref frame = frame_in("x.py");
    Diagnostics diagnostics(kLogFiles);
    EXPECT_EQ(look_up(frame), "x.py");
    EXPECT_THAT(diagnostics.take(), Contains("No full name found for relative name x.py\n"));
}

TEST_F(CodeNamesFrameTest, FileIsTheRelativeNameWithoutAPathCache) {
    path_cache_free(registry->path_cache);
    registry->path_cache = nullptr;
    const Ref frame = frame_in("x.py");
    EXPECT_EQ(look_up(frame), "x.py");
    EXPECT_EQ(resolve_and_register(registry.get(), globals_of(frame),
                                   code_of_frame(frame)->co_filename, code_of_frame(frame)),
              nullptr);
}

TEST_F(CodeNamesFrameTest, PendingErrorIsClearedAndLeavesNoFile) {
    const Ref frame = frame_in("x.py");
    PyErr_SetString(PyExc_ValueError, "someone else's");
    EXPECT_EQ(look_up(frame), "(none)");
    EXPECT_EQ(PyErr_Occurred(), nullptr);
    EXPECT_NE(look_up(frame), "(none)");
}

TEST_F(CodeNamesFrameTest, ResolvingRegistersTheCodeByForce) {
    std::filesystem::current_path(folder.path());
    const Ref frame = frame_in("x.py");
    PyCodeObject* const code = code_of_frame(frame);
    register_pathname(registry.get(), code, "/old.py", 1);
    Diagnostics diagnostics(kLogFiles);
    EXPECT_EQ(text_or_none(
                  resolve_and_register(registry.get(), globals_of(frame), code->co_filename, code)),
              folder.path("x.py"));
    const std::vector<std::string> messages = diagnostics.take();
    EXPECT_EQ(messages.at(1), "resolving x.py\n");
    EXPECT_THAT(messages, Contains("fullname = " + folder.path("x.py") + "\n"));
    EXPECT_EQ(name_of(code), folder.path("x.py"));
}

TEST_F(CodeNamesFrameTest, ResolvingAPseudoFileRegistersNothing) {
    for (const char* filename : {"<string>", "<anything>", "<>"}) {
        const Ref frame = frame_in(filename);
        PyCodeObject* const code = code_of_frame(frame);
        Diagnostics diagnostics(kLogFiles);
        EXPECT_EQ(resolve_and_register(registry.get(), globals_of(frame), code->co_filename, code),
                  nullptr);
        EXPECT_EQ(diagnostics.take().back(), std::string("resolving ") + filename + "\n");
        EXPECT_EQ(name_of(code), "(none)");
    }
    const Ref frame = frame_in(std::string(kMaxPath + 1, 'x'));
    EXPECT_EQ(resolve_and_register(registry.get(), nullptr, code_of_frame(frame)->co_filename,
                                   code_of_frame(frame)),
              nullptr);
    EXPECT_EQ(registry->names, nullptr);
}

TEST_F(CodeNamesFrameTest, ResolvingAFileWithoutFullNameRegistersNothing) {
    const Ref frame = frame_in(std::string(kMaxPath, 'x'));
    Diagnostics diagnostics(kLogFiles);
    EXPECT_EQ(resolve_and_register(registry.get(), nullptr, code_of_frame(frame)->co_filename,
                                   code_of_frame(frame)),
              nullptr);
    EXPECT_EQ(diagnostics.take().back(), "fullname = (NULL)\n");
    EXPECT_EQ(registry->names, nullptr);
}

TEST_F(CodeNamesFrameTest, ResolvingWithoutCodeRegistersTheModulesFunctionsUnlessKnown) {
    const std::string path = folder.file("m.py");
    const Ref globals = module_of(path);
    run("def known(): pass\ndef unknown(): pass\n", globals.get());
    PyObject* const known = item(globals, "known");
    register_pathname(registry.get(), code_of(known), "/known.py", 0);
    EXPECT_EQ(text_or_none(resolve_and_register(registry.get(), globals.get(), nullptr, nullptr)),
              path);
    EXPECT_EQ(name_of(known), "/known.py");
    EXPECT_EQ(name_of(item(globals, "unknown")), path);
}

class CodeNamesModuleTest : public CodeNamesTest {
  protected:
    // Registers what a namespace defines as being in "/m.py".
    int match(const Ref& globals, int force = 0) {
        return RegisterMatchingCodeValues(registry.get(), "/m.py", globals.get(), force);
    }
    // Whether the function that an expression over the namespace gives is registered.
    bool is_registered(const Ref& globals, const char* expression) {
        const Ref function =
            Ref::steal(PyRun_String(expression, Py_eval_input, globals.get(), globals.get()));
        EXPECT_TRUE(function) << expression;
        return name_of(function.get()) == "/m.py";
    }
};

TEST_F(CodeNamesModuleTest, FunctionsMethodsAndClassesOfBothKindsAreRegistered) {
    const Ref globals =
        run("def function(): pass\n"
            "class New(object):\n"
            "    def method(self): pass\n"
            "    class Inner(object):\n"
            "        def method(self): pass\n"
            "class Old:\n"
            "    def method(self): pass\n"
            "    class Inner:\n"
            "        def method(self): pass\n"
            "def free(self): pass\n"
            "def taken(self): pass\n"
            "unbound = type(New.method)(free, None, New)\n"
            "bound = type(New.method)(taken, New(), New)\n"
            "methods = [free, taken]\n"
            "del free, taken\n");
    EXPECT_EQ(match(globals), 0);
    for (const char* expression :
         {"function", "New.method.im_func", "New.Inner.method.im_func", "Old.method.im_func",
          "Old.Inner.method.im_func", "methods[0]", "methods[1]"}) {
        EXPECT_TRUE(is_registered(globals, expression)) << expression;
    }
}

TEST_F(CodeNamesModuleTest, FunctionsOfOtherModulesAreNotRegistered) {
    const Ref other =
        run("def foreign(): pass\n"
            "class Foreign(object):\n"
            "    def method(self): pass\n");
    const Ref globals =
        run("class Own(object):\n"
            "    pass\n");
    PyDict_SetItemString(globals.get(), "foreign", item(other, "foreign"));
    PyDict_SetItemString(globals.get(), "Foreign", item(other, "Foreign"));
    run("class Mixed(Foreign):\n"
        "    stolen = foreign\n"
        "    def own(self): pass\n",
        globals.get());
    match(globals);
    EXPECT_FALSE(is_registered(globals, "foreign"));
    EXPECT_FALSE(is_registered(globals, "Foreign.method.im_func"));
    EXPECT_FALSE(is_registered(globals, "Mixed.stolen.im_func"));
    EXPECT_TRUE(is_registered(globals, "Mixed.own.im_func"));
}

TEST_F(CodeNamesModuleTest, OtherKindsOfValuesAreNotLookedInto) {
    const Ref globals =
        run("def in_list(): pass\n"
            "def in_dict(): pass\n"
            "def getter(self): pass\n"
            "def fixed(): pass\n"
            "class Holder(object):\n"
            "    value = property(getter)\n"
            "    fixed = staticmethod(fixed)\n"
            "values = [in_list], {'x': in_dict}, 1, None, len, Holder()\n"
            "held = {'in_list': in_list, 'in_dict': in_dict, 'fixed': fixed,\n"
            "        'getter': getter}\n"
            "del in_list, in_dict, getter, fixed\n");
    EXPECT_EQ(match(globals), 0);
    for (const char* expression :
         {"held['in_list']", "held['in_dict']", "held['getter']", "held['fixed']"}) {
        EXPECT_FALSE(is_registered(globals, expression)) << expression;
    }
}

TEST_F(CodeNamesModuleTest, NamespaceThatIsNoneIsPassedBy) {
    Diagnostics diagnostics(kLogFiles);
    EXPECT_EQ(RegisterMatchingCodeValues(registry.get(), "/m.py", Py_None, 0), 0);
    EXPECT_THAT(diagnostics.take(),
                ElementsAre("RegisterMatchingCodeValues: globals = " + address(Py_None) + "\n"));
    EXPECT_EQ(RegisterMatchingCodeValues(registry.get(), "/m.py", nullptr, 0), 0);
}

TEST_F(CodeNamesModuleTest, KnownNamesAreReplacedByForceOnly) {
    const Ref globals = run("def function(): pass\n");
    register_pathname(registry.get(), code_of(item(globals, "function")), "/old.py", 0);
    match(globals, 0);
    EXPECT_EQ(name_of(item(globals, "function")), "/old.py");
    match(globals, 1);
    EXPECT_EQ(name_of(item(globals, "function")), "/m.py");
}

TEST_F(CodeNamesModuleTest, WalkIsLogged) {
    const Ref globals = Ref::steal(PyDict_New());
    const Ref made = run("def work(): pass\nclass Old: pass\n");
    const Ref function =
        Ref::steal(PyFunction_New(PyFunction_GET_CODE(item(made, "work")), globals.get()));
    PyDict_SetItemString(globals.get(), "f", function.get());
    const std::string start =
        "RegisterMatchingCodeValues: globals = " + address(globals.get()) + "\n";
    const auto entering = [&](PyObject* dict, const char* depth) {
        return "RegisterMatchingDictValues: obj = " + address(dict) +
               "; pathname = /m.py; globals = " + address(globals.get()) + "; depth = " + depth +
               "\n";
    };
    Diagnostics diagnostics(kLogFiles);
    match(globals);
    EXPECT_THAT(diagnostics.take(),
                ElementsAre(start, entering(globals.get(), "0"), "Starting iteration; dict len = 1",
                            "Examining f: type is function\n",
                            "RegisterMatchingFunction called on work; depth = 1\n",
                            "Registering /m.py as pathname for code object " +
                                address(PyFunction_GET_CODE(function.get())) + " (work)\n"));
    PyDict_Clear(globals.get());
    PyDict_SetItemString(globals.get(), "Old", item(made, "Old"));
    PyObject* const class_dict = reinterpret_cast<PyClassObject*>(item(made, "Old"))->cl_dict;
    PyDict_Clear(class_dict);
    match(globals);
    EXPECT_THAT(diagnostics.take(),
                ElementsAre(start, entering(globals.get(), "0"), "Starting iteration; dict len = 1",
                            "Examining Old: type is classobj\n", entering(class_dict, "1"),
                            "Starting iteration; dict len = 0"));
}

TEST_F(CodeNamesModuleTest, MethodOfSomethingElseIsLoggedAndTheWalkGoesOn) {
    const Ref globals =
        run("class Plain:\n"
            "    def method(self): pass\n"
            "strange = type(Plain.method)(len, [])\n"
            "def zz_function(): pass\n"
            "def aa_function(): pass\n");
    Diagnostics diagnostics(kLogFiles);
    EXPECT_EQ(match(globals), 0);
    const std::vector<std::string> messages = diagnostics.take();
    EXPECT_THAT(messages, Contains("Examining strange: type is instancemethod\n"));
    EXPECT_THAT(messages, Contains("Non-function object passed to RegisterMatchingFunction\n"));
    EXPECT_THAT(messages, Contains("Returning -1 from RegisterMatchingDictValues()\n"));
    for (const char* expression : {"zz_function", "aa_function", "Plain.method.im_func"}) {
        EXPECT_TRUE(is_registered(globals, expression));
    }
}

TEST_F(CodeNamesModuleTest, KeyThatIsNoStringIsLoggedAsSuch) {
    const Ref globals = run("globals()[5] = 6\n");
    Diagnostics diagnostics(kLogFiles);
    match(globals);
    EXPECT_THAT(diagnostics.take(), Contains("Examining (non-PyString PyObject*): type is int\n"));
}

TEST_F(CodeNamesModuleTest, ClassesAreSearchedDownToTheNinthLevel) {
    // deep[n] is the function in the class at level n.
    const Ref globals =
        run("deep = {}\n"
            "def nest(level, kind):\n"
            "    def method(self): pass\n"
            "    deep[level] = method\n"
            "    members = {'method': method}\n"
            "    if level < 12:\n"
            "        members['Inner'] = nest(level + 1, kind)\n"
            "    return kind('C%d' % level, (), members)\n"
            "class Meta: pass\n");
    for (const char* kind : {"type", "type(Meta)"}) {
        run("# Each method's code is its own.\n"
            "import types\n"
            "Top = nest(1, " +
                std::string(kind) +
                ")\n"
                "def own(f):\n"
                "    c = f.func_code\n"
                "    f.func_code = types.CodeType(c.co_argcount, c.co_nlocals, c.co_stacksize,\n"
                "        c.co_flags, c.co_code, c.co_consts, c.co_names, c.co_varnames,\n"
                "        c.co_filename, c.co_name, c.co_firstlineno, c.co_lnotab)\n"
                "for f in deep.values(): own(f)\n"
                "del f\n",
            globals.get());
        Diagnostics diagnostics(kLogFiles);
        match(globals);
        // A function at level n is at depth n + 1, which must be below 10.
        for (int level = 1; level <= 12; ++level) {
            const std::string expression = "deep[" + std::to_string(level) + "]";
            EXPECT_EQ(is_registered(globals, expression.c_str()), level <= 8) << level;
        }
        const std::vector<std::string> messages = diagnostics.take();
        EXPECT_THAT(messages, Contains(testing::EndsWith("; depth = 10\n")));
        EXPECT_THAT(messages, Not(Contains(testing::EndsWith("; depth = 11\n"))));
    }
}

TEST_F(CodeNamesModuleTest, ClassesThatReferToEachOtherAreWalkedInTime) {
    // Each of these sees all others: every path between them would be too many to walk.
    const Ref globals =
        run("class Base(object):\n"
            "    def method(self): pass\n"
            "classes = [type('C%d' % i, (Base,), {}) for i in range(40)]\n"
            "for c in classes:\n"
            "    for i, other in enumerate(classes):\n"
            "        setattr(c, 'c%d' % i, other)\n"
            "class Old: pass\n"
            "Old.self = Old\n"
            "first = classes[0]\n"
            "del c, other\n");
    Diagnostics diagnostics(kLogFiles);
    match(globals);
    EXPECT_LT(diagnostics.take().size(), 40U * 40U * 12U * 2U);
    EXPECT_TRUE(is_registered(globals, "Base.method.im_func"));
}

TEST_F(CodeNamesModuleTest, ClassMetAgainNearerToTheTopIsWalkedDeeper) {
    // By way of the chain alone, the function would be too deep.
    const Ref globals =
        run("class Target(object):\n"
            "    class Inner(object):\n"
            "        def method(self): pass\n"
            "chain = Target\n"
            "for i in range(7):\n"
            "    chain = type('C%d' % i, (), {'Next': chain})\n"
            "del i\n");
    match(globals);
    EXPECT_TRUE(is_registered(globals, "Target.Inner.method.im_func"));
}

TEST_F(CodeNamesModuleTest, DefiningClassIsTheOneWhoseDictionaryHoldsTheFunction) {
    const Ref globals =
        run("class New(object):\n"
            "    def method(self): pass\n"
            "    def other(self): pass\n"
            "class Old:\n"
            "    def method(self): pass\n"
            "class Heir(New): pass\n"
            "def function(): pass\n"
            "class Outer(object):\n"
            "    class Inner(object):\n"
            "        def method(self): pass\n"
            "New.fixed = staticmethod(function)\n");
    const auto defining = [&](const char* expression) {
        const Ref function =
            Ref::steal(PyRun_String(expression, Py_eval_input, globals.get(), globals.get()));
        const Ref found = Ref::steal(find_defining_class(globals.get(), code_of(function.get())));
        return found.get();
    };
    EXPECT_EQ(defining("New.method.im_func"), item(globals, "New"));
    EXPECT_EQ(defining("New.other.im_func"), item(globals, "New"));
    EXPECT_EQ(defining("Old.method.im_func"), item(globals, "Old"));
    EXPECT_EQ(defining("Heir.method.im_func"), item(globals, "New"));
    EXPECT_EQ(defining("function"), Py_None);
    EXPECT_EQ(defining("Outer.Inner.method.im_func"), Py_None);
    const Ref empty = Ref::steal(PyDict_New());
    const Ref none =
        Ref::steal(find_defining_class(empty.get(), code_of(item(globals, "function"))));
    EXPECT_EQ(none.get(), Py_None);
}

TEST_F(CodeNamesModuleTest, DefiningClassIsANewReference) {
    const Ref globals =
        run("class New(object):\n"
            "    def method(self): pass\n"
            "code = New.method.im_func.func_code\n");
    PyObject* const New = item(globals, "New");
    const Py_ssize_t before = Py_REFCNT(New);
    {
        const Ref found = Ref::steal(find_defining_class(
            globals.get(), reinterpret_cast<PyCodeObject*>(item(globals, "code"))));
        EXPECT_EQ(Py_REFCNT(New), before + 1);
    }
    EXPECT_EQ(Py_REFCNT(New), before);
}

}  // namespace
}  // namespace morvik
