#include "tracercore/dispatch.h"

#include <functional>
#include <string>

#include "morvikmodule/entry_points.h"
#include "python_fixture.h"
#include "tracercore/state.h"

PyMODINIT_FUNC inittmorvik26_vs2012_x64();

namespace morvik {
namespace {

// The core in its process, tracing, with callbacks that note that they were called.
class DispatchTest : public PythonTest {
  protected:
    void SetUp() override {
        PythonTest::SetUp();
        inittmorvik26_vs2012_x64();
        run("import tmorvik26_vs2012_x64 as core\n"
            "called = []\n"
            "def note(name):\n"
            "    return lambda *arguments: called.append(name)\n"
            "def start(idle_period, stream):\n"
            "    core.init(idle_period, 0, note('hooks'), note('idle'), note('line'),\n"
            "              note('return'), note('exception'), note('quit'), None,\n"
            "              real_import, stream, {})\n"
            "    core.start_trace()\n"
            "    core.add_to_tstate_tracing(1)\n"
            "    core.step_into()\n"
            "    del called[:]\n"
            "def finish():\n"
            "    core.add_to_tstate_tracing(-1)\n"
            "    core.stop_trace()\n"
            "real_import = __import__\n");
    }

    // Dispatches an event of the calling Python frame, as the interpreter does.
    int dispatch(int event, PyObject* argument = Py_None) {
        int result = 0;
        define_native(
            [&] { result = c_dispatch(core.trace_dispatch, PyEval_GetFrame(), event, argument); });
        run("native()\n");
        return result;
    }

    void start(const char* idle_period = "0.0") {
        run(("start(" + std::string(idle_period) + ", None)\n").c_str());
        // Starting itself makes a few events.
        core.idle_event_count = 0;
    }
};

TEST_F(DispatchTest, EventsOfBuiltInFunctionsAreCountedAndNoMore) {
    start();
    const unsigned before = core.event_count;
    for (const int event : {4, 5, 6}) {
        EXPECT_EQ(dispatch(event), 0);
    }
    EXPECT_EQ(core.event_count, before + 3);
    EXPECT_EQ(repr("called"), "[]");
    run("finish()\n");
}

TEST_F(DispatchTest, EventsOfBuiltInFunctionsPaceTheIdleCallback) {
    start("1.0");
    for (int i = 0; i < 11; ++i) {
        dispatch(4);
    }
    EXPECT_EQ(repr("called"), "['idle']");
    run("finish()\n");
}

TEST_F(DispatchTest, IdleClockIsReadOnEveryEleventhEvent) {
    start("1.0");
    for (int i = 0; i < 10; ++i) {
        dispatch(4);
    }
    EXPECT_EQ(repr("called"), "[]");
    EXPECT_EQ(core.idle_event_count, 10);
    dispatch(4);
    EXPECT_EQ(core.idle_event_count, 0);
    run("finish()\n");
}

TEST_F(DispatchTest, NoneForAThreadPolicyIsRememberedLikeAnAnswer) {
    start();
    run("core.set_debug_thread_cb(None)\n");
    dispatch(4);
    EXPECT_EQ(core.debug_thread_map.num_entries, 1U);
    run("finish()\n");
}

TEST_F(DispatchTest, QuietEventNotesTheIdentOfAThreadThatWasGivenAnOthersState) {
    start();
    run("core.continue_run()\n");
    PyThreadState* const thread = current_thread_state();
    const long ident = thread->thread_id;
    thread->thread_id = 4711;
    dispatch(kEventLine);
    thread->thread_id = ident;
    EXPECT_EQ(thread_table_find(&core.threads, thread)->thread_ident, 4711);
    EXPECT_EQ(repr("called"), "[]");
    run("finish()\n");
}

TEST_F(DispatchTest, ThreadPolicyIsHeardWhereAnErrorIsPending) {
    start();
    run("core.set_debug_thread_cb(lambda ident: 0)\n");
    std::string error;
    define_native([&] {
        PyErr_SetString(PyExc_KeyError, "an import callback's");
        c_dispatch(core.trace_dispatch, PyEval_GetFrame(), kEventLine, Py_None);
        error = take_error();
    });
    run("native()\n");
    EXPECT_EQ(error, "KeyError: \"an import callback's\"");
    EXPECT_EQ(repr("called"), "[]");
    run("core.set_debug_thread_cb(None)\n"
        "finish()\n");
}

TEST_F(DispatchTest, LineEventStops) {
    start();
    EXPECT_EQ(dispatch(kEventLine), 0);
    EXPECT_EQ(repr("called"), "['line']");
    run("finish()\n");
}

TEST_F(DispatchTest, PendingErrorOfALineEventSurvivesTheStop) {
    start();
    std::string error;
    define_native([&] {
        PyErr_SetString(PyExc_KeyError, "the program's");
        c_dispatch(core.trace_dispatch, PyEval_GetFrame(), kEventLine, Py_None);
        error = take_error();
    });
    run("native()\n");
    EXPECT_EQ(error, "KeyError: \"the program's\"");
    EXPECT_EQ(repr("called"), "['line']");
    run("finish()\n");
}

TEST_F(DispatchTest, ReturnEventWithoutAValueGivesNone) {
    start();
    EXPECT_EQ(dispatch(kEventReturn, nullptr), 0);
    EXPECT_EQ(repr("called"), "['return']");
    run("finish()\n");
}

TEST_F(DispatchTest, MutexIsFreeBetweenEvents) {
    start();
    dispatch(kEventLine);
    EXPECT_EQ(core.mutex_owner, kNoOwner);
    EXPECT_EQ(acquire_sorrel_mutex(), 1);
    EXPECT_EQ(core.mutex_owner, get_thread_ident());
    EXPECT_EQ(acquire_sorrel_mutex(), 0);
    release_sorrel_mutex();
    EXPECT_EQ(core.mutex_owner, kNoOwner);
    run("finish()\n");
}

}  // namespace
}  // namespace morvik
