#include "sorrelmodule/all_threads.h"

#include "host/tracing.h"

#include "python_fixture.h"

namespace morvik {

namespace {

int line_events = 0;

int count_lines(PyObject* /*object*/, PyFrameObject* /*frame*/, int event, PyObject* /*argument*/) {
    line_events += event == PyTrace_LINE ? 1 : 0;
    return 0;
}

class AllThreadsTest : public PythonTest {
  protected:
    void SetUp() override {
        PythonTest::SetUp();
        run("import thread, threading, time\n"
            "ended = []\n"
            "class Runner(threading.Thread):\n"
            "    def __init__(self):\n"
            "        threading.Thread.__init__(self)\n"
            "        self.may_go = threading.Event()\n"
            "        self.start()\n"
            "    def run(self):\n"
            "        self.may_go.wait()\n"
            "    def end(self):\n"
            "        self.may_go.set()\n"
            "        self.join()\n"
            "def wait_for_ends(count):\n"
            "    end = time.time() + 20\n"
            "    while len(ended) < count and time.time() < end:\n"
            "        time.sleep(0.001)\n"
            "def on_end():\n"
            "    ended.append(thread.get_ident())\n"
            "def lines():\n"
            "    x = 1\n"
            "    return x\n"
            "runners = [Runner() for _ in range(6)]\n");
    }

    void TearDown() override {
        run("for runner in runners: runner.end()\n");
        PythonTest::TearDown();
    }

    void trace_all() {
        PyEval_SetTrace(count_lines, Py_None);
        const Ref on_end = eval("on_end");
        EXPECT_EQ(trace_all_threads(on_end.get(), Py_None, nullptr), 0);
        PyEval_SetTrace(nullptr, nullptr);
    }

    // How many threads the interpreter takes for traced ones, the calling one left out: so often
    // can they be counted off before it makes no line events in the calling one.
    int counted_threads() {
        constexpr int kMost = 100;
        PyEval_SetTrace(count_lines, Py_None);
        int counted = 0;
        do {
            line_events = 0;
            ++counted;
            count_traced_thread(count_lines, nullptr);
            run("lines()");
        } while (line_events > 0 && counted < kMost);
        for (int i = 0; i < counted; ++i) {
            count_traced_thread(nullptr, count_lines);
        }
        PyEval_SetTrace(nullptr, nullptr);
        return counted - 1;
    }
};

TEST_F(AllThreadsTest, ThreadsAreCountedByTheInterpreter) {
    EXPECT_EQ(counted_threads(), 0);
    trace_all();
    EXPECT_EQ(counted_threads(), 6);
    untrace_all_threads(Py_None);
    EXPECT_EQ(counted_threads(), 0);
}

TEST_F(AllThreadsTest, ThreadsThatEndAreCountedOff) {
    trace_all();
    run("for runner in runners[:4]: runner.end()\n"
        "wait_for_ends(4)\n");
    EXPECT_EQ(counted_threads(), 2);
    untrace_all_threads(Py_None);
    EXPECT_EQ(counted_threads(), 0);
    EXPECT_EQ(repr("len(ended)"), "4");
}

TEST_F(AllThreadsTest, ThreadsThatAreTracedAgainAreCountedOnce) {
    for (int i = 0; i < 3; ++i) {
        trace_all();
        trace_all();
        EXPECT_EQ(counted_threads(), 6);
        untrace_all_threads(Py_None);
        untrace_all_threads(Py_None);
        EXPECT_EQ(counted_threads(), 0);
    }
}

}  // namespace

}  // namespace morvik
