#include "exceptops/catch_info.h"

#include <gmock/gmock.h>

#include "dprintf.h"
#include "embedding.h"
#include "python_fixture.h"

namespace morvik {
namespace {

using testing::ElementsAre;

class CatchInfoTest : public PythonTest {
  protected:
    void SetUp() override {
        PythonTest::SetUp();
        run("import sys\n"
            "def frame():\n"
            "    return sys._getframe()\n"
            "def raised(depth=1):\n"
            "    # A frame that catches what was raised so many calls deep, and the exception.\n"
            "    def fail(n):\n"
            "        if n > 1: fail(n - 1)\n"
            "        raise ValueError(n)\n"
            "    try:\n"
            "        fail(depth)\n"
            "    except ValueError:\n"
            "        return sys._getframe(), sys.exc_info()\n"
            "class Info(object):\n"
            "    mod_name = containing_class = '*'\n"
            "    def __init__(self, **attributes):\n"
            "        self.__dict__.update(attributes)\n");
    }
    void TearDown() override {
        clear_slot(store_.catch_dict);
        catch_info_store_clear(&store_);
        clear_slot(store_.name);
        clear_slot(store_.containing_class);
        PythonTest::TearDown();
    }

    // A frame that nothing else needs, and that needs no caller.
    Ref new_frame() {
        const Ref code = eval("frame.func_code");
        Ref frame = Ref::steal(
            as_object(PyFrame_New(PyThreadState_Get(), reinterpret_cast<PyCodeObject*>(code.get()),
                                  variables_.get(), nullptr)));
        Py_CLEAR(as(frame)->f_back);
        return frame;
    }
    static PyFrameObject* as(const Ref& frame) { return as_frame(frame.get()); }
    Ref new_exception() { return eval("(ValueError, ValueError(1), None)"); }
    // An exception whose traceback has `length` entries, all of this frame.
    Ref exception_of(const Ref& frame, int length) {
        for (int i = 0; i < length; ++i) {
            if (i == 0) {
                PyErr_SetNone(PyExc_ValueError);
            }
            PyTraceBack_Here(as(frame));
        }
        PyObject *type = nullptr, *value = nullptr, *traceback = nullptr;
        PyErr_Fetch(&type, &value, &traceback);
        const Ref owned_type = Ref::steal(type);
        const Ref owned_value = Ref::steal(value);
        const Ref owned_traceback = Ref::steal(traceback);
        return Ref::steal(PyTuple_Pack(3, type, Py_None, traceback));
    }

    int record(const Ref& frame, const Ref& exception) {
        return set_frame_exc_info(&store_, as(frame), exception.get());
    }
    Py_ssize_t entries() const {
        return store_.frame_exc_info != nullptr ? PyDict_Size(store_.frame_exc_info) : 0;
    }
    // Prunes, and nothing else.
    void forget_another() { clear_frame_exc_info(&store_, as(other_ ? other_ : other_frame())); }
    const Ref& other_frame() {
        other_ = new_frame();
        return other_;
    }

    int set_list(const char* expression) {
        return set_catch_info_list(&store_, eval(expression).get());
    }

    CatchInfoStore store_ = {};
    Ref other_;
};

TEST_F(CatchInfoTest, NothingIsFoundInAnEmptyStore) {
    const Ref frame = new_frame();
    Diagnostics diagnostics(kLogExceptions);
    EXPECT_FALSE(find_catch_info(&store_, as(frame)));
    EXPECT_THAT(diagnostics.take(), ElementsAre("find_catch_info\n", "  null dict or not frame\n"));
    EXPECT_EQ(frame_prints_exc(&store_, as(frame)), 0);
    EXPECT_EQ(frame_parent_prints_exc(&store_, as(frame)), 0);
}

TEST_F(CatchInfoTest, NothingIsFoundForWhatIsNoFrame) {
    ASSERT_EQ(set_list("[Info(co_name='frame', prints=1, parent=0)]"), 0);
    Diagnostics diagnostics(kLogExceptions);
    for (PyObject* const object : {Py_None, static_cast<PyObject*>(nullptr)}) {
        EXPECT_FALSE(find_catch_info(&store_, as_frame(object)));
        EXPECT_THAT(diagnostics.take(),
                    ElementsAre("find_catch_info\n", "  null dict or not frame\n"));
    }
}

TEST_F(CatchInfoTest, FirstMatchIsReturned) {
    run("first, second = [Info(co_name='frame') for i in 1, 2]");
    ASSERT_EQ(set_list("[Info(co_name='frame', mod_name='elsewhere'), first, second]"), 0);
    const Ref found = find_catch_info(&store_, as(new_frame()));
    EXPECT_EQ(found.get(), eval("first").get());
}

TEST_F(CatchInfoTest, ValueThatIsNoListIsAFailure) {
    store_.catch_dict = eval("{'frame': (1,)}").release();
    const Ref frame = new_frame();
    Diagnostics diagnostics(kLogExceptions);
    EXPECT_FALSE(find_catch_info(&store_, as(frame)));
    EXPECT_THAT(diagnostics.take(),
                ElementsAre("find_catch_info\n", "  not list\n", "  failure\n"));
}

TEST_F(CatchInfoTest, QuestionAboutTheFrameIsLogged) {
    const Ref frame = new_frame();
    ASSERT_EQ(set_list("[Info(co_name='frame', prints=1, parent=0)]"), 0);
    Diagnostics diagnostics(kLogExceptions);
    EXPECT_EQ(frame_prints_exc(&store_, as(frame)), 1);
    EXPECT_THAT(diagnostics.take(), ElementsAre("find_catch_info\n", "  match1\n", "  match2\n",
                                                "frame_prints_exc", "prints=1, parent=0\n"));
    EXPECT_EQ(frame_parent_prints_exc(&store_, as(frame)), 0);
    EXPECT_THAT(diagnostics.take(), ElementsAre("find_catch_info\n", "  match1\n", "  match2\n"));
}

TEST_F(CatchInfoTest, AnswersNeedBothAttributes) {
    for (const int prints : {0, 1}) {
        for (const int parent : {0, 1}) {
            run(("info = Info(co_name='frame', prints=" + std::to_string(prints) +
                 ", parent=" + std::to_string(parent) + ")")
                    .c_str());
            ASSERT_EQ(set_list("[info]"), 0);
            const Ref frame = new_frame();
            EXPECT_EQ(frame_prints_exc(&store_, as(frame)), prints != 0 && parent == 0);
            EXPECT_EQ(frame_parent_prints_exc(&store_, as(frame)), prints != 0 && parent != 0);
            int got_prints = -1;
            int got_parent = -1;
            EXPECT_EQ(get_prints_and_parent(&store_, eval("info").get(), &got_prints, &got_parent),
                      0);
            EXPECT_EQ(got_prints, prints);
            EXPECT_EQ(got_parent, parent);
        }
    }
}

TEST_F(CatchInfoTest, MissingAttributesAreAnErrorOfTheReader) {
    int prints = 0;
    int parent = 0;
    EXPECT_EQ(get_prints_and_parent(&store_, eval("Info(parent=1)").get(), &prints, &parent), -1);
    EXPECT_EQ(take_error(), "AttributeError: 'Info' object has no attribute 'prints'");
    EXPECT_EQ(get_prints_and_parent(&store_, eval("Info(prints=1)").get(), &prints, &parent), -1);
    EXPECT_EQ(take_error(), "AttributeError: 'Info' object has no attribute 'parent'");
    ASSERT_EQ(set_list("[Info(co_name='frame', prints=1)]"), 0);
    EXPECT_EQ(frame_prints_exc(&store_, as(new_frame())), 0);
    EXPECT_EQ(frame_parent_prints_exc(&store_, as(new_frame())), 0);
}

TEST_F(CatchInfoTest, ListReplacesTheOneBefore) {
    ASSERT_EQ(set_list("[Info(co_name='a'), Info(co_name='b'), Info(co_name='a')]"), 0);
    ASSERT_NE(store_.catch_dict, nullptr);
    PyDict_SetItemString(variables_.get(), "table", store_.catch_dict);
    EXPECT_EQ(repr("sorted((name, len(infos)) for name, infos in table.items())"),
              "[('a', 2), ('b', 1)]");
    ASSERT_EQ(set_list("[]"), 0);
    EXPECT_EQ(store_.catch_dict, nullptr);
}

TEST_F(CatchInfoTest, InstancesBeforeTheBadOneStand) {
    EXPECT_EQ(set_list("[Info(co_name='a'), Info(), Info(co_name='b')]"), -1);
    EXPECT_EQ(take_error(), "AttributeError: 'Info' object has no attribute 'co_name'");
    ASSERT_NE(store_.catch_dict, nullptr);
    EXPECT_EQ(PyDict_Size(store_.catch_dict), 1);
    EXPECT_NE(PyDict_GetItemString(store_.catch_dict, "a"), nullptr);
}

TEST_F(CatchInfoTest, AttributeNamesAreMadeOnce) {
    EXPECT_EQ(store_.co_name, nullptr);
    ASSERT_EQ(set_list("[Info(co_name='frame', prints=1, parent=0)]"), 0);
    EXPECT_NE(store_.co_name, nullptr);
    EXPECT_EQ(store_.mod_name, nullptr);
    EXPECT_EQ(frame_prints_exc(&store_, as(new_frame())), 1);
    PyObject* const names[] = {store_.co_name, store_.mod_name, store_.prints, store_.parent,
                               store_.containing_class};
    EXPECT_THAT(names, testing::Each(testing::NotNull()));
    EXPECT_EQ(frame_prints_exc(&store_, as(new_frame())), 1);
    EXPECT_THAT(names, ElementsAre(store_.co_name, store_.mod_name, store_.prints, store_.parent,
                                   store_.containing_class));
}

TEST_F(CatchInfoTest, ClearingKeepsTheListAndTwoNames) {
    run("__name__ = 'tests'");
    ASSERT_EQ(set_list("[Info(co_name='frame', mod_name='tests', prints=1, parent=0)]"), 0);
    const Ref frame = new_frame();
    EXPECT_EQ(frame_prints_exc(&store_, as(frame)), 1);
    ASSERT_EQ(record(frame, new_exception()), 0);
    catch_info_store_clear(&store_);
    for (PyObject* const slot :
         {store_.frame_exc_info, store_.co_name, store_.mod_name, store_.prints, store_.parent}) {
        EXPECT_EQ(slot, nullptr);
    }
    for (PyObject* const slot : {store_.catch_dict, store_.name, store_.containing_class}) {
        EXPECT_NE(slot, nullptr);
    }
    EXPECT_EQ(frame_prints_exc(&store_, as(frame)), 1);
    catch_info_store_clear(&store_);
    catch_info_store_clear(&store_);
}

TEST_F(CatchInfoTest, ExceptionOfAFrameIsKept) {
    const Ref frame = new_frame();
    EXPECT_EQ(get_frame_exc_info(&store_, as(frame)), nullptr);
    const Ref first = new_exception();
    const Ref second = new_exception();
    Diagnostics diagnostics(kLogExceptions);
    EXPECT_EQ(record(frame, first), 0);
    EXPECT_EQ(get_frame_exc_info(&store_, as(frame)), first.get());
    EXPECT_EQ(record(frame, second), 0);
    EXPECT_EQ(get_frame_exc_info(&store_, as(frame)), second.get());
    EXPECT_EQ(Py_REFCNT(first.get()), 1);
    EXPECT_EQ(get_frame_exc_info(&store_, as(new_frame())), nullptr);
    EXPECT_THAT(diagnostics.take(), ElementsAre("set_frame_exc_info\n", "set_frame_exc_info\n"));
}

TEST_F(CatchInfoTest, LastEntryTakesTheDictionaryAlong) {
    const Ref frames[] = {new_frame(), new_frame()};
    for (const Ref& frame : frames) {
        ASSERT_EQ(record(frame, new_exception()), 0);
    }
    EXPECT_EQ(clear_frame_exc_info(&store_, as(frames[0])), 0);
    EXPECT_EQ(entries(), 1);
    EXPECT_EQ(clear_frame_exc_info(&store_, as(frames[0])), 0);
    EXPECT_EQ(entries(), 1);
    EXPECT_EQ(clear_frame_exc_info(&store_, as(frames[1])), 0);
    EXPECT_EQ(store_.frame_exc_info, nullptr);
    EXPECT_EQ(clear_frame_exc_info(&store_, as(frames[1])), 0);
}

TEST_F(CatchInfoTest, ForgettingKeepsThePendingError) {
    const Ref frame = new_frame();
    PyErr_SetString(PyExc_KeyError, "pending");
    EXPECT_EQ(clear_frame_exc_info(&store_, as(frame)), 0);
    EXPECT_EQ(take_error(), "KeyError: 'pending'");
    ASSERT_EQ(record(frame, new_exception()), 0);
    ASSERT_EQ(record(other_frame(), new_exception()), 0);
    for (int i = 0; i < 3; ++i) {
        PyErr_SetString(PyExc_KeyError, "pending");
        EXPECT_EQ(clear_frame_exc_info(&store_, as(i == 0 ? other_ : frame)), 0);
        EXPECT_EQ(take_error(), "KeyError: 'pending'");
    }
    EXPECT_EQ(store_.frame_exc_info, nullptr);
}

TEST_F(CatchInfoTest, FrameThatOnlyTheStoreHoldsIsDead) {
    ASSERT_EQ(record(new_frame(), new_exception()), 0);
    EXPECT_EQ(entries(), 1);
    forget_another();
    EXPECT_EQ(store_.frame_exc_info, nullptr);
}

TEST_F(CatchInfoTest, FrameThatSomethingElseHoldsIsAlive) {
    const Ref frame = new_frame();
    ASSERT_EQ(record(frame, new_exception()), 0);
    forget_another();
    EXPECT_EQ(entries(), 1);
}

TEST_F(CatchInfoTest, RecordingPrunesFirst) {
    ASSERT_EQ(record(new_frame(), new_exception()), 0);
    const Ref frame = new_frame();
    ASSERT_EQ(record(frame, new_exception()), 0);
    EXPECT_EQ(entries(), 1);
    EXPECT_NE(get_frame_exc_info(&store_, as(frame)), nullptr);
}

TEST_F(CatchInfoTest, FrameThatOnlyItsTracebackHoldsIsDead) {
    for (const int length : {1, 2, 10, 1000, 1001}) {
        {
            const Ref frame = new_frame();
            ASSERT_EQ(record(frame, exception_of(frame, length)), 0);
            ASSERT_EQ(Py_REFCNT(frame.get()), length + 2);
        }
        EXPECT_EQ(entries(), 1) << length;
        forget_another();
        EXPECT_EQ(entries(), 0) << length;
    }
}

TEST_F(CatchInfoTest, FrameInATracebackThatIsTooLongIsAlive) {
    {
        const Ref frame = new_frame();
        ASSERT_EQ(record(frame, exception_of(frame, 1002)), 0);
    }
    forget_another();
    EXPECT_EQ(entries(), 1);
}

TEST_F(CatchInfoTest, FrameThatIsHeldBesideItsTracebackIsAlive) {
    for (const int length : {1, 2, 1001}) {
        const Ref frame = new_frame();
        ASSERT_EQ(record(frame, exception_of(frame, length)), 0);
        forget_another();
        EXPECT_EQ(entries(), 1) << length;
        clear_frame_exc_info(&store_, as(frame));
    }
}

TEST_F(CatchInfoTest, CallersAreCountedForEachEntryOfTheTraceback) {
    // Each of three nested frames in the traceback has the outermost one among its callers: that
    // makes one occurrence more than there are references, and one more holder goes unnoticed.
    run("kept, exc_info = raised(2)\n");
    const Ref frame = eval("kept");
    ASSERT_EQ(record(frame, eval("exc_info")), 0);
    run("del kept, exc_info");
    ASSERT_EQ(Py_REFCNT(frame.get()), 4);  // here, key, traceback, callee
    forget_another();
    EXPECT_EQ(entries(), 0);
}

TEST_F(CatchInfoTest, OtherTracebacksDoNotCount) {
    run("other, exc_info = raised(3)\n");
    {
        const Ref frame = new_frame();
        ASSERT_EQ(record(frame, eval("exc_info")), 0);
    }
    EXPECT_EQ(entries(), 1);
    forget_another();
    EXPECT_EQ(entries(), 0);
    const Ref frame = new_frame();
    ASSERT_EQ(record(frame, eval("exc_info")), 0);
    forget_another();
    EXPECT_EQ(entries(), 1);
    run("del other, exc_info");
}

TEST_F(CatchInfoTest, ShortTuplesAndOtherObjectsHoldNoFrames) {
    for (const char* exception : {"(1,)", "(1, 2)", "()", "None", "[1, 2, 3]", "(1, 2, 3)",
                                  "(ValueError, None, 'traceback')", "(1, 2, None, 4)"}) {
        const Ref alive = new_frame();
        ASSERT_EQ(record(alive, eval(exception)), 0);
        ASSERT_EQ(record(new_frame(), eval(exception)), 0);
        forget_another();
        EXPECT_EQ(entries(), 1) << exception;
        EXPECT_NE(get_frame_exc_info(&store_, as(alive)), nullptr);
        clear_frame_exc_info(&store_, as(alive));
    }
}

TEST_F(CatchInfoTest, OnePassDropsAHundred) {
    {
        std::vector<Ref> frames;
        for (int i = 0; i < 250; ++i) {
            frames.push_back(new_frame());
            ASSERT_EQ(record(frames.back(), new_exception()), 0);
        }
        forget_another();
        EXPECT_EQ(entries(), 250);
    }
    for (const Py_ssize_t left : {150, 50, 0}) {
        forget_another();
        EXPECT_EQ(entries(), left);
    }
}

TEST_F(CatchInfoTest, LivingFramesDoNotHideDeadOnes) {
    std::vector<Ref> alive;
    {
        std::vector<Ref> dead;
        for (int i = 0; i < 400; ++i) {
            const Ref frame = new_frame();
            ASSERT_EQ(record(frame, new_exception()), 0);
            (i % 4 == 0 ? dead : alive).push_back(Ref::share(frame.get()));
        }
    }
    forget_another();
    EXPECT_EQ(entries(), 300);
    for (const Ref& frame : alive) {
        EXPECT_NE(get_frame_exc_info(&store_, as(frame)), nullptr);
    }
}

TEST_F(CatchInfoTest, DestructorThatEmptiesTheStoreDoesNoHarm) {
    run("class Vengeful(object):\n"
        "    def __del__(self): native()\n");
    int runs = 0;
    define_native([&] {
        ++runs;
        catch_info_store_clear(&store_);
    });
    for (const bool by_recording : {false, true}) {
        runs = 0;
        {
            std::vector<Ref> frames;
            for (int i = 0; i < 5; ++i) {
                frames.push_back(new_frame());
                ASSERT_EQ(record(frames.back(), eval("(ValueError, Vengeful(), None)")), 0);
            }
        }
        if (by_recording) {
            const Ref frame = new_frame();
            record(frame, new_exception());
        } else {
            forget_another();
        }
        EXPECT_EQ(runs, 5);
        catch_info_store_clear(&store_);
    }
}

TEST_F(CatchInfoTest, DestructorThatRecordsAnotherExceptionDoesNoHarm) {
    run("class Vengeful(object):\n"
        "    def __del__(self): native()\n");
    std::vector<Ref> recorded;
    define_native([&] {
        for (int i = 0; i < 20; ++i) {
            recorded.push_back(new_frame());
            record(recorded.back(), new_exception());
        }
    });
    ASSERT_EQ(record(new_frame(), eval("(ValueError, Vengeful(), None)")), 0);
    forget_another();
    EXPECT_EQ(entries(), 20);
}

TEST_F(CatchInfoTest, LastFrameOfATracebackIsWhereItWasRaised) {
    run("kept, exc_info = raised(3)\n");
    const Ref traceback = eval("exc_info[2]");
    const Ref last = Ref::steal(last_traceback_frame(traceback.get()));
    EXPECT_EQ(last.get(), eval("exc_info[2].tb_next.tb_next.tb_next.tb_frame").get());
    const Ref only =
        Ref::steal(last_traceback_frame(eval("exc_info[2].tb_next.tb_next.tb_next").get()));
    EXPECT_EQ(only.get(), last.get());
    run("del kept, exc_info");
}

TEST_F(CatchInfoTest, LastFrameOfNoneIsNone) {
    const Ref last = Ref::steal(last_traceback_frame(Py_None));
    EXPECT_EQ(last.get(), Py_None);
}

TEST_F(CatchInfoTest, LastFrameIsFoundThroughTheAttributesOfAnyObject) {
    run("class Entry(object):\n"
        "    def __init__(self, **attributes):\n"
        "        self.__dict__.update(attributes)\n"
        "last = Entry(tb_frame='frame')\n"
        "first = Entry(tb_frame='outer', tb_next=Entry(tb_next=last))\n"
        "ends_in_none = Entry(tb_frame='only', tb_next=None)\n"
        "kept, exc_info = raised(2)\n"
        "leads_to_real_ones = Entry(tb_next=exc_info[2])\n"
        "ring = Entry()\n"
        "ring.tb_next = ring\n");
    const auto last_frame = [this](const char* traceback) {
        return Ref::steal(last_traceback_frame(eval(traceback).get()));
    };
    EXPECT_EQ(last_frame("first").get(), eval("last.tb_frame").get());
    EXPECT_EQ(last_frame("ends_in_none").get(), eval("ends_in_none.tb_frame").get());
    EXPECT_EQ(last_frame("leads_to_real_ones").get(),
              eval("exc_info[2].tb_next.tb_next.tb_frame").get());
    EXPECT_FALSE(last_frame("ring"));
    EXPECT_EQ(take_error(), "RuntimeError: a traceback has no end");
    run("del kept, exc_info, leads_to_real_ones, ring.tb_next");
}

TEST_F(CatchInfoTest, LastFrameOfAnythingElseIsAnError) {
    EXPECT_EQ(last_traceback_frame(eval("7").get()), nullptr);
    EXPECT_EQ(take_error(), "AttributeError: 'int' object has no attribute 'tb_frame'");
}

}  // namespace
}  // namespace morvik
