// The breakpoint table, the binding of breakpoints to module files, and matching, with all that
// they log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "allocation.h"
#include "bpops/matching.h"
#include "bpops/resolution.h"
#include "bpops/table.h"
#include "embedding.h"
#include "folder.h"
#include "python_fixture.h"

namespace morvik {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class BreakpointTableTest : public testing::Test {
  protected:
    BreakpointTableTest() {
        registry_init(registry.get(), path_cache_new());
        bp_table_init(table.get(), registry.get());
    }
    ~BreakpointTableTest() override {
        bp_table_reset(table.get(), registry.get());
        clear_slot(table->file_key);
        path_cache_free(registry->path_cache);
        clear_slot(registry->file_key);
    }

    int64_t set(const std::string& file, int line, int temporary = 0,
                const char* condition = nullptr, int ignore_count = 0, int enabled = 1) {
        const Ref cond = condition != nullptr ? Ref::steal(PyString_FromString(condition))
                                              : Ref::steal(new_none());
        return bp_set(table.get(), file.c_str(), line, enabled, temporary, cond.get(),
                      ignore_count);
    }
    std::string get(const char* file, int line) {
        return repr(Ref::steal(bp_get(table.get(), file, line)).get());
    }
    std::string taken() { return repr(Ref::steal(bp_take_changed(table.get())).get()); }
    BreakpointRecord* first(int line) { return bp_first_on_line(table.get(), line); }
    std::string module_of(int line) {
        const BreakpointRecord* const record = first(line);
        return record->module_filename != nullptr ? record->module_filename : "(none)";
    }

    void know(const std::string& module_file) {
        __tracer_resolve_bp_filenames(table.get(), module_file.c_str());
    }
    std::string module_for(const std::string& file) {
        const char* const found = find_module_for_file(table.get(), file.c_str());
        return found != nullptr ? found : "(none)";
    }

    Folder folder;
    std::unique_ptr<CodeNameRegistry> registry = std::make_unique<CodeNameRegistry>();
    std::unique_ptr<BreakpointTable> table = std::make_unique<BreakpointTable>();
};

TEST_F(BreakpointTableTest, NewTableIsEmptyAndCountsFromOne) {
    EXPECT_EQ(table->next_id, 1U);
    EXPECT_EQ(table->by_line.num_entries, 0U);
    EXPECT_EQ(table->by_line.key_width, 4U);
    EXPECT_EQ(table->module_files.num_entries, 0U);
    EXPECT_EQ(table->module_files.key_width, kStringKeys);
    EXPECT_EQ(table->module_count, 0);
    EXPECT_EQ(table->changed_head, nullptr);
    EXPECT_EQ(repr(table->file_key), "'__file__'");
}

TEST_F(BreakpointTableTest, NewestRecordOfALineComesFirst) {
    set("a.py", 5);
    set("b.py", 5);
    set("a.py", 6);
    EXPECT_EQ(table->by_line.num_entries, 2U);
    EXPECT_EQ(first(5)->id, 2U);
    EXPECT_EQ(first(5)->next->id, 1U);
    EXPECT_EQ(first(5)->next->next, nullptr);
    EXPECT_EQ(first(6)->id, 3U);
    EXPECT_EQ(first(7), nullptr);
}

TEST_F(BreakpointTableTest, LineIsForgottenWithItsLastRecord) {
    set("a.py", 5);
    set("b.py", 5);
    bp_clear(table.get(), "a.py", 5);
    EXPECT_EQ(table->by_line.num_entries, 1U);
    bp_clear(table.get(), "b.py", 5);
    EXPECT_EQ(table->by_line.num_entries, 0U);
    set("a.py", 5);
    set("a.py", 6);
    bp_clear_all(table.get());
    EXPECT_EQ(table->by_line.num_entries, 0U);
    EXPECT_EQ(table->by_line.key_width, 4U);
}

TEST_F(BreakpointTableTest, UnlinkingTakesARecordFromAnyPlaceOfItsLine) {
    for (int place = 0; place < 3; ++place) {
        for (int i = 0; i < 3; ++i) {
            set("a.py", 5);
        }
        BreakpointRecord* record = first(5);
        for (int i = 0; i < place; ++i) {
            record = record->next;
        }
        // It stays alive on the changed list.
        record->deleted = 1;
        bp_mark_changed(table.get(), record);
        bp_unlink(table.get(), record);
        int left = 0;
        for (const BreakpointRecord* other = first(5); other != nullptr; other = other->next) {
            EXPECT_NE(other, record);
            ++left;
        }
        EXPECT_EQ(left, 2);
        bp_clear_all(table.get());
        EXPECT_EQ(taken(), "([" + std::to_string(3 * (place + 1) - place) + "], [])");
    }
}

TEST_F(BreakpointTableTest, SetWithoutRoomForItsLineFailsAndUsesItsIdUp) {
    hash_delete_table(&table->by_line);
    EXPECT_EQ(set("a.py", 5), kNoBreakpoint);
    hash_init(&table->by_line, sizeof(int32_t));
    EXPECT_EQ(set("a.py", 5), 2);
}

TEST_F(BreakpointTableTest, SetFailsWithEachOfItsAllocationsAndLeavesNothingBehind) {
    const std::string path = folder.file("m.py");
    know(path);
    const Ref condition = Ref::steal(PyString_FromString("x > 1"));
    uint32_t failures = 0;
    for (;; ++failures) {
        const long blocks = live_blocks();
        int64_t id = 0;
        bool happened = false;
        {
            const FailingAllocation failing(static_cast<int>(failures));
            id = bp_set(table.get(), path.c_str(), 5, 1, 0, condition.get(), 0);
            happened = FailingAllocation::happened();
        }
        if (!happened) {
            EXPECT_EQ(id, failures + 1);
            break;
        }
        PyErr_Clear();
        EXPECT_EQ(id, kNoBreakpoint);
        EXPECT_EQ(table->next_id, failures + 2);
        EXPECT_EQ(first(5), nullptr);
        EXPECT_EQ(table->by_line.num_entries, 0U);
        EXPECT_EQ(live_blocks(), blocks);
    }
    // The record, its file name, condition, line entry and module file name.
    EXPECT_EQ(failures, 5U);
}

TEST_F(BreakpointTableTest, ModuleFileNameThatCannotBeCopiedIsAnError) {
    know("/no/m.py");
    set("/no/m.py", 5);
    free(first(5)->module_filename);
    first(5)->module_filename = nullptr;
    {
        const FailingAllocation failing;
        EXPECT_EQ(find_bp_filename_synonyms(table.get(), first(5)), 0);
    }
    EXPECT_NE(PyErr_ExceptionMatches(PyExc_MemoryError), 0);
    EXPECT_EQ(PythonTest::take_error(), "MemoryError: Out of memory");
}

TEST_F(BreakpointTableTest, ConditionThatCannotBeCopiedLeavesTheOldOne) {
    set("a.py", 5, 0, "old");
    const Ref condition = Ref::steal(PyString_FromString("new"));
    {
        const FailingAllocation failing;
        bp_set_cond(table.get(), "a.py", 5, condition.get());
    }
    EXPECT_EQ(PythonTest::take_error(), "MemoryError: Out of memory");
    EXPECT_EQ(get("a.py", 5), "[(1, 1, 0, 'old', 0, 0)]");
}

TEST_F(BreakpointTableTest, ChangesThatCannotBeTakenStay) {
    set("a.py", 5);
    bp_mark_changed(table.get(), first(5));
    {
        const FailingAllocation failing;
        EXPECT_EQ(bp_take_changed(table.get()), nullptr);
    }
    EXPECT_EQ(PythonTest::take_error(), "MemoryError: Out of memory");
    EXPECT_EQ(taken(), "([], [('a.py', 5, 1, 1, 0, None, 0, 0)])");
}

TEST_F(BreakpointTableTest, FileThatCannotBeListedIsAnError) {
    set("a.py", 5);
    {
        const FailingAllocation failing;
        EXPECT_EQ(bp_get_file(table.get(), "a.py"), nullptr);
    }
    EXPECT_EQ(PythonTest::take_error(), "MemoryError: Out of memory");
}

TEST_F(BreakpointTableTest, EditsTellWhetherTheyFoundABreakpoint) {
    set("a.py", 5);
    set("a.py", 5);
    EXPECT_EQ(bp_enable(table.get(), "a.py", 5, 1), 1);
    EXPECT_EQ(bp_enable(table.get(), "a.py", 6, 1), 0);
    EXPECT_EQ(bp_enable(table.get(), "b.py", 5, 1), 0);
    EXPECT_EQ(bp_ignore(table.get(), "a.py", 5, 0), 1);
    EXPECT_EQ(bp_ignore(table.get(), "b.py", 5, 3), 0);
    EXPECT_EQ(bp_set_cond(table.get(), "a.py", 5, Py_None), 1);
    EXPECT_EQ(bp_set_cond(table.get(), "b.py", 5, Py_None), 0);
}

TEST_F(BreakpointTableTest, DisablingNeverTellsThatItFoundOne) {
    set("a.py", 5);
    EXPECT_EQ(bp_enable(table.get(), "a.py", 5, 0), 0);
}

TEST_F(BreakpointTableTest, MarkingAgainKeepsAPlaceOnTheChangedList) {
    for (int line = 1; line <= 3; ++line) {
        set("a.py", line);
        bp_mark_changed(table.get(), first(line));
    }
    bp_mark_changed(table.get(), first(1));
    EXPECT_EQ(table->changed_head, first(3));
    EXPECT_EQ(first(3)->next_changed, first(2));
    EXPECT_EQ(first(2)->next_changed, first(1));
    EXPECT_EQ(first(1)->next_changed, nullptr);
}

TEST_F(BreakpointTableTest, UnmarkingTakesFromAnyPlaceOfTheChangedList) {
    for (int line = 1; line <= 4; ++line) {
        set("a.py", line);
        bp_mark_changed(table.get(), first(line));
    }
    bp_unmark_changed(table.get(), first(2));
    bp_unmark_changed(table.get(), first(4));
    bp_unmark_changed(table.get(), first(1));
    bp_unmark_changed(table.get(), first(1));
    EXPECT_EQ(table->changed_head, first(3));
    EXPECT_EQ(first(3)->next_changed, nullptr);
    EXPECT_EQ(first(2)->on_changed_list, 0);
}

TEST_F(BreakpointTableTest, TakingTheChangesMakesRoomForNewOnes) {
    set("a.py", 1, 0, "x", 2);
    bp_mark_changed(table.get(), first(1));
    EXPECT_EQ(taken(), "([], [('a.py', 1, 1, 1, 0, 'x', 2, 0)])");
    EXPECT_EQ(table->changed_head, nullptr);
    EXPECT_EQ(first(1)->on_changed_list, 0);
    bp_mark_changed(table.get(), first(1));
    EXPECT_EQ(taken(), "([], [('a.py', 1, 1, 1, 0, 'x', 2, 0)])");
    EXPECT_EQ(taken(), "([], [])");
}

TEST_F(BreakpointTableTest, RecordThatIsDeletedWhileItStandsOnItsLineIsTakenOffIt) {
    set("a.py", 1);
    set("a.py", 1);
    BreakpointRecord* const record = first(1);
    bp_mark_changed(table.get(), record);
    record->deleted = 1;
    EXPECT_EQ(taken(), "([2], [])");
    EXPECT_EQ(get("a.py", 1), "[(1, 1, 0, None, 0, 0)]");
}

TEST_F(BreakpointTableTest, ClearingAllLeavesWhatFiredToBeReported) {
    set("a.py", 1, 1);
    set("a.py", 2);
    BreakpointRecord* const fired = first(1);
    fired->deleted = 1;
    bp_mark_changed(table.get(), fired);
    bp_mark_changed(table.get(), first(2));
    bp_unlink(table.get(), fired);
    bp_clear(table.get(), "a.py", 1);
    bp_clear_all(table.get());
    EXPECT_EQ(taken(), "([1], [])");
    EXPECT_EQ(taken(), "([], [])");
}

TEST_F(BreakpointTableTest, ResetForgetsWhatFiredAndWhatIsKnownOfModules) {
    set("a.py", 1, 1);
    BreakpointRecord* const fired = first(1);
    fired->deleted = 1;
    bp_mark_changed(table.get(), fired);
    bp_unlink(table.get(), fired);
    know("/m.py");
    bp_table_reset(table.get(), registry.get());
    EXPECT_EQ(taken(), "([], [])");
    EXPECT_EQ(table->module_files.num_entries, 0U);
    EXPECT_EQ(table->module_count, 0);
    EXPECT_EQ(table->next_id, 1U);
    EXPECT_EQ(repr(table->file_key), "'__file__'");
}

TEST_F(BreakpointTableTest, PinnedTableKeepsRemovedRecordsReadable) {
    set("a.py", 1, 0, "x > 1");
    set("a.py", 1);
    BreakpointRecord* const second = first(1);
    BreakpointRecord* const original = second->next;
    {
        const BreakpointPin pin(table.get());
        {
            const BreakpointPin inner(table.get());
            bp_clear_all(table.get());
        }
        EXPECT_STREQ(original->cond, "x > 1");
        EXPECT_EQ(second->next, original);
        EXPECT_EQ(original->removed, 1);
        EXPECT_EQ(get("a.py", 1), "[]");
    }
    EXPECT_EQ(table->removed_head, nullptr);
}

// Files of modules and the names that stand for them.

TEST_F(BreakpointTableTest, ModuleFileIsKnownFromItsFirstMentionOn) {
    Diagnostics diagnostics(kLogBreakpoints);
    know("/no/M.pyc");
    EXPECT_THAT(
        diagnostics.take(),
        ElementsAre("__tracer_resolve_bp_filenames(module_filename = /no/M.pyc)\n",
                    "Finding module for /no/M.py\n", "Nothing found... searching for synonyms\n",
                    "No synonyms found\n", "Done resolving\n"));
    EXPECT_EQ(table->module_count, 1);
    know("/no/M.py");
    EXPECT_THAT(diagnostics.take(),
                ElementsAre("__tracer_resolve_bp_filenames(module_filename = /no/M.py)\n",
                            "Finding module for /no/M.py\n"));
    know("/no/M.pyo");
    EXPECT_EQ(table->module_count, 1);
    EXPECT_EQ(table->module_files.num_entries, 1U);
}

TEST_F(BreakpointTableTest, NoModuleFileIsLoggedAndNothingElse) {
    Diagnostics diagnostics(kLogBreakpoints);
    __tracer_resolve_bp_filenames(table.get(), nullptr);
    EXPECT_THAT(diagnostics.take(),
                ElementsAre("__tracer_resolve_bp_filenames(module_filename = (NULL))\n"));
    EXPECT_EQ(table->module_count, 0);
}

TEST_F(BreakpointTableTest, ModuleFileNameTooLongIsNone) {
    const std::string name = "/" + std::string(kMaxPath, 'x');
    set(name, 1);
    Diagnostics diagnostics(kLogBreakpoints);
    know(name);
    EXPECT_EQ(diagnostics.take().size(), 1U);
    EXPECT_EQ(table->module_files.num_entries, 0U);
    EXPECT_EQ(module_of(1), "(none)");
    know(name.substr(0, kMaxPath));
    EXPECT_EQ(table->module_count, 1);
}

TEST_F(BreakpointTableTest, BreakpointSetBeforeItsModuleWaitsForIt) {
    const std::string path = folder.file("m.py");
    Diagnostics diagnostics(kLogBreakpoints);
    set(path, 3);
    EXPECT_THAT(diagnostics.take(),
                ElementsAre("FINDING BP FILENAME SYNONYMS\n", "Finding module for " + path + "\n",
                            "Nothing found... searching for synonyms\n", "No synonyms found\n",
                            "  modfile = (NULL)\n",
                            "No loaded module for the bp... exiting find_bp_filename_synonyms\n"));
    EXPECT_EQ(module_of(3), "(none)");
    know(path + "c");
    EXPECT_THAT(diagnostics.take(),
                ElementsAre("__tracer_resolve_bp_filenames(module_filename = " + path + "c)\n",
                            "Finding module for " + path + "\n",
                            "Nothing found... searching for synonyms\n", "No synonyms found\n",
                            "lineno = 3, user_filename = " + path + ", module_filename = (NULL)\n",
                            "Found synonym " + path + "\n", "Done resolving\n"));
    EXPECT_EQ(module_of(3), path);
}

TEST_F(BreakpointTableTest, BreakpointSetAfterItsModuleIsBoundAtOnce) {
    const std::string path = folder.file("m.py");
    know(path);
    Diagnostics diagnostics(kLogBreakpoints);
    set(path, 3);
    EXPECT_THAT(diagnostics.take(),
                ElementsAre("FINDING BP FILENAME SYNONYMS\n", "Finding module for " + path + "\n",
                            "  modfile = " + path + "\n", "bp->module_filename = " + path + "\n",
                            std::string(63, '^') + "\n", "Added bp " + path + ", 3\n"));
    EXPECT_EQ(module_of(3), path);
}

TEST_F(BreakpointTableTest, OtherSpellingBecomesASynonym) {
    const std::string path = folder.file("m.py");
    const std::string other = folder.path() + "/./m.py";
    know(folder.file("other.py"));
    know(path);
    Diagnostics diagnostics(kLogBreakpoints);
    EXPECT_EQ(module_for(other), path);
    EXPECT_THAT(diagnostics.take(), ElementsAre("Finding module for " + other + "\n",
                                                "Nothing found... searching for synonyms\n",
                                                "Found synonym " + path + "\n"));
    EXPECT_EQ(module_for(other), path);
    EXPECT_THAT(diagnostics.take(), ElementsAre("Finding module for " + other + "\n"));
    EXPECT_EQ(table->module_files.num_entries, 3U);
    EXPECT_EQ(table->module_count, 2);
}

TEST_F(BreakpointTableTest, ModuleMetUnderASynonymIsKnownAlready) {
    const std::string path = folder.file("m.py");
    know(path);
    know(folder.path() + "/./m.py");
    EXPECT_EQ(table->module_count, 1);
    EXPECT_EQ(module_for(folder.path() + "/./m.py"), path);
}

TEST_F(BreakpointTableTest, AllBreakpointsOfAModuleAreBoundUnderAnySpelling) {
    const std::string path = folder.file("m.py");
    set(path, 1);
    set(folder.path() + "//m.py", 2);
    set(folder.path() + "/./m.py", 3);
    set(folder.path() + "/./m.py", 3);
    set(folder.file("other.py"), 4);
    know(path);
    for (int line = 1; line <= 3; ++line) {
        EXPECT_EQ(module_of(line), path);
    }
    EXPECT_STREQ(first(3)->next->module_filename, path.c_str());
    EXPECT_EQ(module_of(4), "(none)");
}

TEST_F(BreakpointTableTest, BoundBreakpointIsNeverBoundAnew) {
    const std::string path = folder.file("m.py");
    know(path);
    set(path, 1);
    char* const bound = first(1)->module_filename;
    Diagnostics diagnostics(kLogBreakpoints);
    EXPECT_EQ(find_bp_filename_synonyms(table.get(), first(1)), 1);
    EXPECT_THAT(diagnostics.take(), ElementsAre("FINDING BP FILENAME SYNONYMS\n",
                                                "Not adding:  Already added before\n"));
    know(folder.file("other.py"));
    EXPECT_THAT(diagnostics.take(), Contains("lineno = 1, user_filename = " + path +
                                             ", module_filename = " + path + "\n"));
    EXPECT_EQ(first(1)->module_filename, bound);
}

TEST_F(BreakpointTableTest, PseudoFilesAreModuleFilesToo) {
    know("<string>");
    EXPECT_EQ(module_for("<string>"), "<string>");
    EXPECT_EQ(module_for("<other>"), "(none)");
}

TEST_F(BreakpointTableTest, NothingIsKnownWithoutRoomForIt) {
    const std::string path = folder.file("m.py");
    set(path, 1);
    hash_delete_table(&table->module_files);
    know(path);
    EXPECT_EQ(table->module_count, 0);
    EXPECT_EQ(module_of(1), "(none)");
    EXPECT_EQ(add_synonym(table.get(), path.c_str(), path.c_str()), nullptr);
    hash_init(&table->module_files, kStringKeys);
}

TEST_F(BreakpointTableTest, ModuleFileThatCannotBeKeptIsUnknownUntilItIsMetAgain) {
    for (int i = 0; i < 2; ++i) {
        const FailingAllocation failing(i);
        know("/no/m.py");
        EXPECT_TRUE(FailingAllocation::happened());
        EXPECT_EQ(table->module_files.num_entries, 0U);
        EXPECT_EQ(table->module_count, 0);
    }
    know("/no/m.py");
    EXPECT_EQ(module_for("/no/m.py"), "/no/m.py");
}

TEST_F(BreakpointTableTest, SynonymThatCannotBeKeptIsFoundAgain) {
    const std::string path = folder.file("m.py");
    const std::string other = folder.path("./m.py");
    know(path);
    EXPECT_EQ(same_file(registry->path_cache, path.c_str(), other.c_str()), 1);
    for (int i = 0; i < 2; ++i) {
        const FailingAllocation failing(i);
        EXPECT_EQ(add_synonym(table.get(), other.c_str(), path.c_str()), nullptr);
        EXPECT_TRUE(FailingAllocation::happened());
        EXPECT_EQ(table->module_files.num_entries, 1U);
    }
    EXPECT_EQ(module_for(other), path);
}

TEST_F(BreakpointTableTest, SynonymOfAnotherFileIsNone) {
    const std::string path = folder.file("m.py");
    EXPECT_EQ(add_synonym(table.get(), folder.file("other.py").c_str(), path.c_str()), nullptr);
    EXPECT_EQ(table->module_files.num_entries, 0U);
}

TEST_F(BreakpointTableTest, SynonymMayChangeItsModuleFile) {
    const std::string path = folder.file("m.py");
    const std::string other = folder.path() + "/./m.py";
    EXPECT_STREQ(add_synonym(table.get(), path.c_str(), path.c_str()), path.c_str());
    EXPECT_STREQ(add_synonym(table.get(), path.c_str(), other.c_str()), other.c_str());
    EXPECT_EQ(module_for(path), other);
    EXPECT_EQ(table->module_files.num_entries, 1U);
}

class BreakpointModuleTest : public BreakpointTableTest {
  protected:
    // A module with this expression as its "__file__".
    static Ref module_with(const char* file) {
        const Ref names = run("import imp\nmodule = imp.new_module('some.name')\n");
        if (file != nullptr) {
            run(std::string("module.__file__ = ") + file + "\n", names.get());
        }
        return Ref::share(item(names, "module"));
    }
    std::vector<std::string> log_of(PyObject* module) {
        Diagnostics diagnostics(kLogBreakpoints);
        resolve_module(table.get(), module);
        return diagnostics.take();
    }
};

TEST_F(BreakpointModuleTest, FileOfAModuleBecomesKnown) {
    EXPECT_THAT(
        log_of(module_with("'/no/m.pyc'").get()),
        ElementsAre("MODNAME some.name\n", "XFER /no/m.pyc\n",
                    "__tracer_resolve_bp_filenames(module_filename = /no/m.pyc)\n",
                    "Finding module for /no/m.py\n", "Nothing found... searching for synonyms\n",
                    "No synonyms found\n", "Done resolving\n"));
    EXPECT_EQ(module_for("/no/m.py"), "/no/m.py");
}

TEST_F(BreakpointModuleTest, ModuleWithoutFileResolvesNothing) {
    EXPECT_THAT(log_of(module_with(nullptr).get()),
                ElementsAre("MODNAME some.name\n", "XFER (NULL PyObject*)\n",
                            "********** NO FILE NAME ****************\n"));
    for (const char* file : {"None", "5", "u'/no/m.py'"}) {
        EXPECT_THAT(log_of(module_with(file).get()),
                    ElementsAre("MODNAME some.name\n", "XFER (non-PyString PyObject*)\n",
                                "********** NO FILE NAME ****************\n"));
    }
    EXPECT_EQ(table->module_count, 0);
}

TEST_F(BreakpointModuleTest, FileMayBeOfASubclassOfStrings) {
    log_of(module_with("type('Name', (str,), {})('/no/m.py')").get());
    EXPECT_EQ(module_for("/no/m.py"), "/no/m.py");
}

TEST_F(BreakpointModuleTest, OnlyModulesAreLookedAt) {
    const Ref names =
        run("class Fake(object):\n"
            "    __file__ = '/no/m.py'\n"
            "    __name__ = 'fake'\n"
            "fake = Fake()\n");
    EXPECT_THAT(log_of(item(names, "fake")), IsEmpty());
    EXPECT_THAT(log_of(Py_None), IsEmpty());
    EXPECT_EQ(table->module_count, 0);
}

TEST_F(BreakpointModuleTest, InstanceOfASubclassOfModulesIsAModule) {
    const Ref names =
        run("import sys\n"
            "class Module(type(sys)): pass\n"
            "module = Module('sub')\n"
            "module.__file__ = '/no/m.py'\n");
    log_of(item(names, "module"));
    EXPECT_EQ(module_for("/no/m.py"), "/no/m.py");
}

TEST_F(BreakpointModuleTest, ModuleThatLostItsNameStillHasAFile) {
    const Ref module = module_with("'/no/m.py'");
    PyDict_DelItemString(PyModule_GetDict(module.get()), "__name__");
    EXPECT_EQ(log_of(module.get()).front(), "MODNAME (NULL)\n");
    EXPECT_EQ(PyErr_Occurred(), nullptr);
    EXPECT_EQ(module_for("/no/m.py"), "/no/m.py");
}

// Matching.

class BreakpointMatchTest : public BreakpointTableTest {
  protected:
    static constexpr int kLine = 7;
    static constexpr int kEventLine = 1;

    // A frame at line 7 of a function with the locals x = 5 and y = [], in a file that exists.
    BreakpointMatchTest() : file(folder.file("program.py")) {
        names = Ref::steal(PyDict_New());
        PyDict_SetItemString(names.get(), "__builtins__", PyEval_GetBuiltins());
        const Ref code =
            Ref::steal(Py_CompileString("import sys\n"
                                        "def work(x):\n"
                                        "    y = []\n"
                                        "    return sys._getframe()\n"
                                        "frame = work(5)\n",
                                        file.c_str(), Py_file_input));
        const Ref done = Ref::steal(
            PyEval_EvalCode(reinterpret_cast<PyCodeObject*>(code.get()), names.get(), names.get()));
        EXPECT_TRUE(done);
        frame = as_frame(item(names, "frame"));
        set_frame_trace(frame, Py_None);  // where one is, the frame knows its line
        frame->f_lineno = kLine;
    }

    int check(int record = 1) { return bp_check(table.get(), kEventLine, nullptr, frame, record); }

    std::string file;
    Ref names;
    PyFrameObject* frame = nullptr;
};

TEST_F(BreakpointMatchTest, NothingStopsWhatIsNoFrame) {
    set("<cframe>", kLine);
    EXPECT_EQ(bp_check(table.get(), kEventLine, nullptr, nullptr, 1), 0);
    EXPECT_EQ(bp_check(table.get(), kEventLine, nullptr, as_frame(Py_None), 1), 0);
}

TEST_F(BreakpointMatchTest, LineWithoutBreakpointsIsNotLogged) {
    set(file, kLine + 1);
    Diagnostics diagnostics(kLogBreakpoints);
    EXPECT_EQ(check(), 0);
    EXPECT_THAT(diagnostics.take(), IsEmpty());
}

TEST_F(BreakpointMatchTest, MatchIsLogged) {
    set(file, kLine);
    check();
    Diagnostics diagnostics(kLogBreakpoints);
    EXPECT_EQ(check(), 1);
    EXPECT_THAT(
        diagnostics.take(),
        ElementsAre("Found bp table entry for lineno 7\n", "CODE FILE " + file + "\n",
                    "__tracer_resolve_bp_filenames(module_filename = " + file + ")\n",
                    "Finding module for " + file + "\n", "Finding module for " + file + "\n",
                    "modfile = " + file + ", bp->module_filename = " + file + "\n",
                    "files_match = 1\n"));
}

TEST_F(BreakpointMatchTest, BreakpointOfAnotherFileIsLoggedAsNoMatch) {
    const std::string bound = folder.file("bound.py");
    set(folder.file("waiting.py"), kLine);
    set(bound, kLine);
    know(bound);
    know(file);
    Diagnostics diagnostics(kLogBreakpoints);
    EXPECT_EQ(check(), 0);
    const std::vector<std::string> messages = diagnostics.take();
    // The newest first; the one that waits for its module has no names to compare.
    const std::vector<std::string> last(messages.end() - 3, messages.end());
    EXPECT_THAT(last, ElementsAre("modfile = " + file + ", bp->module_filename = " + bound + "\n",
                                  "files_match = 0\n", "files_match = 0\n"));
    EXPECT_EQ(first(kLine)->hit_count, 0);
}

TEST_F(BreakpointMatchTest, FirstMeetingOfACodeFileBindsItsBreakpoints) {
    set(folder.path() + "/./program.py", kLine);
    EXPECT_EQ(module_of(kLine), "(none)");
    EXPECT_EQ(check(), 1);
    EXPECT_EQ(module_of(kLine), file);
}

TEST_F(BreakpointMatchTest, UnresolvedBreakpointNeverStops) {
    set(file, kLine);
    know(file);
    free(first(kLine)->module_filename);
    first(kLine)->module_filename = nullptr;
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(first(kLine)->hit_count, 0);
}

TEST_F(BreakpointMatchTest, TestWithoutRecordingChangesNothing) {
    set(file, kLine, 1, nullptr, 0);
    set(file, kLine, 0, nullptr, 2);
    set(file, kLine, 0, "x == 6");
    EXPECT_EQ(check(0), 1);
    EXPECT_EQ(get(file.c_str(), kLine),
              "[(3, 1, 0, 'x == 6', 0, 0), (2, 1, 0, None, 2, 0), (1, 1, 1, None, 0, 0)]");
    EXPECT_EQ(taken(), "([], [])");
}

TEST_F(BreakpointMatchTest, TestWithoutRecordingStopsWhereAHitWouldBeIgnored) {
    set(file, kLine, 0, nullptr, 2);
    EXPECT_EQ(check(0), 1);
    EXPECT_EQ(check(1), 0);
}

TEST_F(BreakpointMatchTest, TemporaryBreakpointThatFiredWaitsToBeReportedOffItsLine) {
    set(file, kLine, 1);
    EXPECT_EQ(check(), 1);
    EXPECT_EQ(first(kLine), nullptr);
    EXPECT_EQ(table->by_line.num_entries, 0U);
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(taken(), "([1], [])");
    EXPECT_EQ(taken(), "([], [])");
}

TEST_F(BreakpointMatchTest, TemporaryBreakpointThatIsOnTheChangedListLeavesItsLineToo) {
    set(file, kLine, 1, nullptr, 1);
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(first(kLine)->on_changed_list, 1);
    EXPECT_EQ(check(), 1);
    EXPECT_EQ(first(kLine), nullptr);
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(taken(), "([1], [])");
}

TEST_F(BreakpointMatchTest, ConditionSeesTheFrameAndChangesNoLocals) {
    set(file, kLine, 0, "x == 5 and y == [] and [x for x in (1, 2)]");
    EXPECT_EQ(check(), 1);
    PyFrame_FastToLocals(frame);
    EXPECT_EQ(repr(PyDict_GetItemString(frame->f_locals, "x")), "5");
}

TEST_F(BreakpointMatchTest, PendingExceptionIsTheSameAfterwards) {
    for (const char* condition : {"x == 5", "x == 6", "no_such_name", "", "1 / 0"}) {
        set(file, kLine, 0, condition);
    }
    PyErr_SetString(PyExc_ValueError, "the program's");
    EXPECT_EQ(check(), 1);
    EXPECT_NE(PyErr_ExceptionMatches(PyExc_ValueError), 0);
    PyErr_Clear();
    EXPECT_EQ(check(), 1);
    EXPECT_EQ(PyErr_Occurred(), nullptr);
}

TEST_F(BreakpointMatchTest, CodeFileThatIsTooLongMatchesItsReplacement) {
    set("<filename too long>", kLine);
    const std::string name(kMaxPath + 1, 'x');
    Py_DECREF(frame->f_code->co_filename);
    frame->f_code->co_filename = PyString_FromString(name.c_str());
    EXPECT_EQ(check(), 1);
}

TEST_F(BreakpointMatchTest, ConditionThatCannotBeCopiedStops) {
    set(file, kLine, 0, "False");
    EXPECT_EQ(check(), 0);
    // The new text is yet to be compiled.
    const Ref condition = Ref::steal(PyString_FromString("0"));
    bp_set_cond(table.get(), file.c_str(), kLine, condition.get());
    const FailingAllocation failing;
    EXPECT_EQ(check(), 1);
    EXPECT_TRUE(FailingAllocation::happened());
    EXPECT_EQ(PyErr_Occurred(), nullptr);
}

class BreakpointHookTest : public BreakpointMatchTest {
  protected:
    // A hook that says what its methods say, and notes what they are given.
    BreakpointHookTest() {
        hook_names =
            run("calls = []\n"
                "stop = True\n"
                "location = ('page.tpl', 7)\n"
                "value = True\n"
                "class Hook(object):\n"
                "    def answer(self, result):\n"
                "        if isinstance(result, Exception): raise result\n"
                "        return result\n"
                "    def _StopHere(self, *args):\n"
                "        calls.append(('stop',) + args[1:])\n"
                "        frames.append(args[0])\n"
                "        return self.answer(stop)\n"
                "    def _TranslateFrame(self, *args):\n"
                "        calls.append(('translate',) + args[1:])\n"
                "        frames.append(args[0])\n"
                "        return self.answer(location)\n"
                "    def _Eval(self, cond, frame):\n"
                "        calls.append(('eval', cond))\n"
                "        frames.append(frame)\n"
                "        return self.answer(value)\n"
                "frames = []\n"
                "hook = Hook()\n");
    }

    void answer(const char* name, const char* expression) {
        run(std::string(name) + " = " + expression + "\n", hook_names.get());
    }
    int check_hook(int event = kEventLine, int record = 1) {
        return bp_check(table.get(), event, item(hook_names, "hook"), frame, record);
    }
    std::string calls() { return repr(item(hook_names, "calls")); }

    Ref hook_names;
};

TEST_F(BreakpointHookTest, LocationIsTheHooks) {
    set("page.tpl", kLine);
    set(file, kLine);
    Diagnostics diagnostics(kLogBreakpoints);
    EXPECT_EQ(check_hook(), 1);
    EXPECT_THAT(
        diagnostics.take(),
        ElementsAre("Found bp table entry for lineno 7\n",
                    "sub_language bp codefile = page.tpl, bp->user_filename = " + file + "\n",
                    "files_match = 0\n",
                    "sub_language bp codefile = page.tpl, bp->user_filename = page.tpl\n",
                    "files_match = 1\n"));
    EXPECT_EQ(get("page.tpl", kLine), "[(1, 1, 0, None, 0, 1)]");
    EXPECT_EQ(get(file.c_str(), kLine), "[(2, 1, 0, None, 0, 0)]");
    EXPECT_EQ(table->module_count, 0);
}

TEST_F(BreakpointHookTest, LineIsTheHooksNotTheFrames) {
    answer("location", "('page.tpl', 30)");
    set("page.tpl", kLine);
    EXPECT_EQ(check_hook(), 0);
    set("page.tpl", 30);
    EXPECT_EQ(check_hook(), 1);
}

TEST_F(BreakpointHookTest, MethodsAreGivenFrameAndEvent) {
    set("page.tpl", kLine, 0, "a condition");
    for (const int event : {1, 2, 0, -1}) {
        run("del calls[:], frames[:]\n", hook_names.get());
        EXPECT_EQ(check_hook(event), 1);
        EXPECT_EQ(calls(), "[('stop', " + std::to_string(event) +
                               ", 1), ('translate', 0), ('eval', 'a condition')]");
        PyObject* const frames = item(hook_names, "frames");
        for (Py_ssize_t i = 0; i < 3; ++i) {
            EXPECT_EQ(PyList_GetItem(frames, i), as_object(frame));
        }
    }
}

TEST_F(BreakpointHookTest, NothingStopsWhereTheHookWouldNot) {
    set("page.tpl", kLine);
    for (const char* value : {"False", "0", "None", "''", "ValueError()"}) {
        answer("stop", value);
        EXPECT_EQ(check_hook(), 0) << value;
        EXPECT_EQ(PyErr_Occurred(), nullptr);
    }
    EXPECT_THAT(calls(), Not(testing::HasSubstr("translate")));
    EXPECT_EQ(get("page.tpl", kLine), "[(1, 1, 0, None, 0, 0)]");
}

TEST_F(BreakpointHookTest, NothingStopsWithoutAProperTranslation) {
    set("page.tpl", kLine);
    for (const char* value : {"ValueError()", "None", "5", "()", "('page.tpl',)", "(7, 'page.tpl')",
                              "('page.tpl', None)", "['page.tpl', 7]"}) {
        answer("location", value);
        EXPECT_EQ(check_hook(), 0) << value;
        EXPECT_EQ(PyErr_Occurred(), nullptr);
    }
    EXPECT_EQ(get("page.tpl", kLine), "[(1, 1, 0, None, 0, 0)]");
}

TEST_F(BreakpointHookTest, MoreInATranslationThanFileAndLineIsLeftAlone) {
    answer("location", "('page.tpl', 7, 'more', None)");
    set("page.tpl", kLine);
    EXPECT_EQ(check_hook(), 1);
}

TEST_F(BreakpointHookTest, HookIsAskedEvenWhereThereAreNoBreakpoints) {
    EXPECT_EQ(check_hook(), 0);
    EXPECT_EQ(calls(), "[('stop', 1, 1), ('translate', 0)]");
}

TEST_F(BreakpointHookTest, ObjectWithoutTheMethodsStopsNothing) {
    set("page.tpl", kLine);
    EXPECT_EQ(bp_check(table.get(), kEventLine, Py_None, frame, 1), 0);
    EXPECT_EQ(PyErr_Occurred(), nullptr);
}

TEST_F(BreakpointHookTest, FileIsComparedExactly) {
    set("PAGE.TPL", kLine);
    set("./page.tpl", kLine);
    EXPECT_EQ(check_hook(), 0);
}

TEST_F(BreakpointHookTest, TranslationThatNothingElseHoldsIsKeptWhileItIsUsed) {
    answer("location", "None");
    run("class Hook(Hook):\n"
        "    def _TranslateFrame(self, *args):\n"
        "        return ''.join(['page', '.tpl']), 7\n"
        "    def _Eval(self, cond, frame):\n"
        "        return ['x' * 8 for i in range(100)] and False\n"
        "hook = Hook()\n",
        hook_names.get());
    for (int i = 0; i < 3; ++i) {
        set("page.tpl", kLine, 0, "some");
    }
    EXPECT_EQ(check_hook(), 0);
    EXPECT_EQ(get("page.tpl", kLine),
              "[(3, 1, 0, 'some', 0, 1), (2, 1, 0, 'some', 0, 1), (1, 1, 0, 'some', 0, 1)]");
}

TEST_F(BreakpointHookTest, ConditionIsTheHooksToEvaluate) {
    set("page.tpl", kLine, 1, "not Python at all", 1);
    answer("value", "0");
    EXPECT_EQ(check_hook(), 0);
    EXPECT_EQ(get("page.tpl", kLine), "[(1, 1, 1, 'not Python at all', 1, 1)]");
    answer("value", "ValueError()");
    EXPECT_EQ(check_hook(), 1);
    EXPECT_EQ(PyErr_Occurred(), nullptr);
    EXPECT_EQ(get("page.tpl", kLine), "[(1, 1, 1, 'not Python at all', 1, 2)]");
    answer("value", "'yes'");
    EXPECT_EQ(check_hook(), 0);
    EXPECT_EQ(get("page.tpl", kLine), "[(1, 1, 1, 'not Python at all', 0, 3)]");
    EXPECT_EQ(check_hook(), 1);
    EXPECT_EQ(get("page.tpl", kLine), "[]");
    EXPECT_EQ(taken(), "([1], [])");
}

TEST_F(BreakpointHookTest, PendingExceptionIsTheSameAfterwards) {
    set("page.tpl", kLine, 0, "some");
    for (const char* name : {"stop", "location", "value"}) {
        run("stop, location, value = True, ('page.tpl', 7), True\n", hook_names.get());
        answer(name, "KeyError()");
        PyErr_SetString(PyExc_ValueError, "the program's");
        check_hook();
        EXPECT_NE(PyErr_ExceptionMatches(PyExc_ValueError), 0);
        PyErr_Clear();
    }
}

TEST_F(BreakpointHookTest, HookThatClearsAllWhileItIsAskedStopsNothing) {
    // By way of the frame's function, since the table is not the module's here.
    static BreakpointTable* cleared = nullptr;
    static PyMethodDef method = {"clear_all",
                                 [](PyObject*, PyObject*) {
                                     bp_clear_all(cleared);
                                     return new_none();
                                 },
                                 METH_NOARGS, nullptr};
    cleared = table.get();
    const Ref clear_all = Ref::steal(PyCFunction_New(&method, nullptr));
    PyDict_SetItemString(hook_names.get(), "clear_all", clear_all.get());
    run("class Hook(Hook):\n"
        "    def _Eval(self, cond, frame):\n"
        "        clear_all()\n"
        "        return True\n"
        "hook = Hook()\n",
        hook_names.get());
    for (int i = 0; i < 3; ++i) {
        set("page.tpl", kLine, i % 2, "some");
    }
    EXPECT_EQ(check_hook(), 0);
    EXPECT_EQ(first(kLine), nullptr);
    EXPECT_EQ(table->removed_head, nullptr);
    EXPECT_EQ(taken(), "([], [])");
}

}  // namespace
}  // namespace morvik
