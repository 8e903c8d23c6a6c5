#include "dprintf.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "allocation.h"
#include "python_fixture.h"

namespace morvik {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DprintfTest : public PythonTest {
  protected:
    void SetUp() override {
        PythonTest::SetUp();
        dprintf_set_file(stream_.object());
    }
    void TearDown() override {
        dprintf_set_file(nullptr);
        PythonTest::TearDown();
    }

    Stream stream_;
};

// Raises the calling thread's tracing counter for a scope.
class Tracing {
  public:
    explicit Tracing(int by) : by_(by) { PyThreadState_Get()->tracing += by_; }
    ~Tracing() { PyThreadState_Get()->tracing -= by_; }
    Tracing(const Tracing&) = delete;
    Tracing& operator=(const Tracing&) = delete;

  private:
    int by_;
};

TEST_F(DprintfTest, MaskAsShippedIs20) { EXPECT_EQ(dprintf_mask, 20U); }

TEST_F(DprintfTest, OnlyCategoriesOfTheMaskAreWritten) {
    for (const unsigned category : {1U, 2U, 4U, 8U, 16U, 32U}) {
        dprintf(category, "%d\n", category);
    }
    EXPECT_THAT(stream_.messages(), ElementsAre("4\n", "16\n"));
}

TEST_F(DprintfTest, ConversionsAreTheInterpreters) {
    dprintf(kLogCore, "%d %i %ld %s %%", -1, 2, 1L << 40, "text");
    EXPECT_THAT(stream_.messages(), ElementsAre("-1 2 1099511627776 text %"));
    int anything = 0;
    dprintf(kLogCore, "%p", static_cast<void*>(&anything));
    EXPECT_EQ(stream_.messages()[1].substr(0, 2), "0x");
}

TEST_F(DprintfTest, EachMessageIsFlushed) {
    dprintf(kLogCore, "one");
    dprintf(kLogCore, "two\n");
    EXPECT_THAT(stream_.messages(), ElementsAre("one", "two\n"));
    EXPECT_EQ(stream_.flushes(), 2);
}

TEST_F(DprintfTest, NothingAndNoneTurnOutputOff) {
    const Py_ssize_t kept = Py_REFCNT(stream_.object());
    dprintf_set_file(nullptr);
    EXPECT_EQ(Py_REFCNT(stream_.object()), kept - 1);
    EXPECT_EQ(dprintf_file, nullptr);
    dprintf_set_file(stream_.object());
    EXPECT_EQ(Py_REFCNT(stream_.object()), kept);
    dprintf_set_file(Py_None);
    EXPECT_EQ(Py_REFCNT(stream_.object()), kept - 1);
    EXPECT_EQ(dprintf_file, nullptr);
    dprintf(kLogCore, "lost");
    EXPECT_THAT(stream_.messages(), IsEmpty());
}

TEST_F(DprintfTest, SameFileGivenAgainIsKeptOnce) {
    const Py_ssize_t kept = Py_REFCNT(stream_.object());
    dprintf_set_file(stream_.object());
    dprintf_set_file(stream_.object());
    EXPECT_EQ(Py_REFCNT(stream_.object()), kept);
}

TEST_F(DprintfTest, WrittenWhileTracingIs1AndDroppedAt2) {
    {
        const Tracing tracing(1);
        dprintf(kLogCore, "at 1");
    }
    {
        const Tracing tracing(2);
        dprintf(kLogCore, "at 2");
    }
    {
        const Tracing tracing(3);
        dprintf(kLogCore, "at 3");
    }
    EXPECT_THAT(stream_.messages(), ElementsAre("at 1"));
}

TEST_F(DprintfTest, TracingIsRaisedDuringTheWriteOnly) {
    std::vector<int> seen;
    define_native([&] { seen.push_back(PyThreadState_Get()->tracing); });
    run("class Looking(object):\n"
        "    def write(self, text):\n        native()\n"
        "    def flush(self):\n        native()\n"
        "looking = Looking()\n");
    dprintf_set_file(eval("looking").get());
    dprintf(kLogCore, "text");
    EXPECT_THAT(seen, ElementsAre(1, 1));
    EXPECT_EQ(PyThreadState_Get()->tracing, 0);
}

TEST_F(DprintfTest, PendingErrorSurvives) {
    PyErr_SetString(PyExc_KeyError, "pending");
    dprintf(kLogCore, "text");
    EXPECT_EQ(take_error(), "KeyError: 'pending'");
    EXPECT_THAT(stream_.messages(), ElementsAre("text"));
}

TEST_F(DprintfTest, PendingErrorSurvivesAFailingStream) {
    run("class Failing(object):\n"
        "    def write(self, text):\n        raise IOError('write')\n"
        "    def flush(self):\n        raise IOError('flush')\n"
        "failing = Failing()\n");
    dprintf_set_file(eval("failing").get());
    PyErr_SetString(PyExc_KeyError, "pending");
    dprintf(kLogCore, "text");
    EXPECT_EQ(take_error(), "KeyError: 'pending'");
    dprintf(kLogCore, "text");
    EXPECT_EQ(take_error(), "");
}

TEST_F(DprintfTest, FailingWriteIsStillFlushed) {
    run("class Failing(object):\n"
        "    flushed = 0\n"
        "    def write(self, text):\n        raise IOError('write')\n"
        "    def flush(self):\n        self.flushed += 1\n"
        "failing = Failing()\n");
    dprintf_set_file(eval("failing").get());
    dprintf(kLogCore, "text");
    EXPECT_EQ(repr("failing.flushed"), "1");
}

TEST_F(DprintfTest, MessageThatCannotBeMadeIsReplaced) {
    const std::string text(5000, 'x');
    {
        const FailingAllocation failing;
        dprintf(kLogCore, "%s", text.c_str());
        EXPECT_TRUE(FailingAllocation::happened());
    }
    EXPECT_THAT(stream_.messages(), ElementsAre("DPRINTF error: unable to create output string\n"));
    EXPECT_EQ(take_error(), "");
}

TEST_F(DprintfTest, ThreadThatTheInterpreterDoesNotKnowWritesNothing) {
    PyThreadState* const thread = PyEval_SaveThread();
    dprintf(kLogCore, "text");
    PyEval_RestoreThread(thread);
    EXPECT_THAT(stream_.messages(), IsEmpty());
}

TEST_F(DprintfTest, ExceptionIsAnnouncedAndStaysPending) {
    run("import sys\nold = sys.stderr\n"
        "class Errors(object):\n    text = ''\n"
        "    def write(self, text):\n        self.text += text\n"
        "sys.stderr = errors = Errors()\n");
    PyErr_SetString(PyExc_KeyError, "pending");
    dprintf_exception();
    EXPECT_EQ(take_error(), "KeyError: 'pending'");
    EXPECT_THAT(stream_.messages(), ElementsAre("EXCEPTION IN DEBUG TRACER:\n"));
    EXPECT_EQ(repr("sys.stderr is errors, errors.text"), "(True, '')");
    EXPECT_EQ(PyThreadState_Get()->tracing, 0);
    run("sys.stderr = old\n");
}

TEST_F(DprintfTest, ExceptionIsAnnouncedWithoutStandardError) {
    run("import sys\nold = sys.stderr\nsys.stderr = None\n");
    PyErr_SetString(PyExc_KeyError, "pending");
    dprintf_exception();
    EXPECT_EQ(take_error(), "KeyError: 'pending'");
    EXPECT_EQ(repr("sys.stderr"), "None");
    run("del sys.stderr\n");
    PyErr_SetString(PyExc_KeyError, "pending");
    dprintf_exception();
    EXPECT_EQ(take_error(), "KeyError: 'pending'");
    EXPECT_EQ(repr("hasattr(sys, 'stderr')"), "False");
    run("sys.stderr = old\n");
    EXPECT_THAT(stream_.messages(),
                ElementsAre("EXCEPTION IN DEBUG TRACER:\n", "EXCEPTION IN DEBUG TRACER:\n"));
}

TEST_F(DprintfTest, NoExceptionIsNotAnnounced) {
    dprintf_exception();
    EXPECT_THAT(stream_.messages(), IsEmpty());
}

TEST_F(DprintfTest, ExceptionWithoutAFileStaysPending) {
    dprintf_set_file(nullptr);
    PyErr_SetString(PyExc_KeyError, "pending");
    dprintf_exception();
    EXPECT_EQ(take_error(), "KeyError: 'pending'");
}

TEST_F(DprintfTest, ExceptionIsNotAnnouncedDuringAnEvent) {
    // Raised once by the event and once for the announcement: the header finds no room.
    for (const int raised : {1, 2}) {
        const Tracing tracing(raised);
        PyErr_SetString(PyExc_KeyError, "pending");
        dprintf_exception();
        EXPECT_EQ(take_error(), "KeyError: 'pending'");
    }
    EXPECT_THAT(stream_.messages(), IsEmpty());
}

}  // namespace
}  // namespace morvik
