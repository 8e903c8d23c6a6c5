#include "ioops.h"

#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "allocation.h"
#include "dprintf.h"
#include "python_fixture.h"

namespace morvik {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Pipe {
    Pipe() { EXPECT_EQ(pipe(ends), 0); }
    ~Pipe() {
        close(ends[0]);
        close(ends[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    int reader() const { return ends[0]; }
    void feed(const char* text) const {
        const auto size = static_cast<ssize_t>(strlen(text));
        EXPECT_EQ(write(ends[1], text, static_cast<size_t>(size)), size);
    }

    int ends[2] = {-1, -1};
};

// A stream that reads from a pipe.
struct PipeStream {
    PipeStream() : stream(fdopen(dup(pipe.reader()), "r")) {}
    ~PipeStream() { fclose(stream); }
    PipeStream(const PipeStream&) = delete;
    PipeStream& operator=(const PipeStream&) = delete;

    Pipe pipe;
    FILE* stream;
};

// Others have the interpreter lock while one lives.
class ReleasedLock {
  public:
    ReleasedLock() : thread_(PyEval_SaveThread()) {}
    ~ReleasedLock() { PyEval_RestoreThread(thread_); }
    ReleasedLock(const ReleasedLock&) = delete;
    ReleasedLock& operator=(const ReleasedLock&) = delete;

  private:
    PyThreadState* thread_;
};

std::string adding(int fd) { return "Adding fd " + std::to_string(fd) + " to array\n"; }

class IoopsTest : public PythonTest {
  protected:
    void SetUp() override {
        PythonTest::SetUp();
        dprintf_mask = kLogInput;
        dprintf_set_file(stream_.object());
    }
    void TearDown() override {
        dprintf_set_file(nullptr);
        dprintf_mask = kLogCore | kLogExceptions;
        PythonTest::TearDown();
    }

    static WaitResult available(const std::vector<int>& fds) {
        const ReleasedLock released;
        return IsSocketInputAvailable(fds.data(), static_cast<int>(fds.size()));
    }

    static WaitResult wait(FILE* stream, const std::vector<int>& fds) {
        const ReleasedLock released;
        return WaitOnStdin(stream, fds.data(), static_cast<int>(fds.size()));
    }

    Stream stream_;
};

TEST_F(IoopsTest, ResultsHaveTheirValues) {
    EXPECT_EQ(kNothingYet, 0);
    EXPECT_EQ(kWaitFailed, 1);
    EXPECT_EQ(kFileInput, 2);
    EXPECT_EQ(kSocketInput, 3);
}

TEST_F(IoopsTest, DescriptorsAreWhatTheItemsAnswer) {
    run("class Item(object):\n"
        "    def __init__(self, fd): self.fd = fd\n"
        "    def fileno(self): return self.fd\n");
    const Ref list = eval("[Item(5), Item(-3), Item(5), Item(7L)]");
    int count = 0;
    const OwnedInts fds = socket_fds_from_list(list.get(), &count);
    ASSERT_TRUE(fds);
    EXPECT_THAT(std::vector<int>(fds.get(), fds.get() + count), ElementsAre(5, -3, 5, 7));
}

TEST_F(IoopsTest, EmptyListHasOneElementThatIsNoDescriptor) {
    int count = -1;
    const OwnedInts fds = socket_fds_from_list(eval("[]").get(), &count);
    ASSERT_TRUE(fds);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(fds[0], -1);
}

TEST_F(IoopsTest, AnythingButAListIsAnInternalError) {
    int count = 0;
    EXPECT_FALSE(socket_fds_from_list(eval("()").get(), &count));
    EXPECT_EQ(take_error().substr(0, 12), "SystemError:");
}

TEST_F(IoopsTest, DescriptorsWithoutMemory) {
    const Ref list = eval("[]");
    int count = 0;
    {
        const FailingAllocation failing;
        EXPECT_FALSE(socket_fds_from_list(list.get(), &count));
        EXPECT_TRUE(FailingAllocation::happened());
    }
    EXPECT_EQ(take_error(), "MemoryError: Out of memory");
}

TEST_F(IoopsTest, AfterAnErrorNothingIsKept) {
    const Ref list = eval("[open('/dev/null'), 5]");
    const long blocks = live_blocks();
    int count = 0;
    EXPECT_FALSE(socket_fds_from_list(list.get(), &count));
    EXPECT_EQ(live_blocks(), blocks);
    EXPECT_EQ(take_error().substr(0, 15), "AttributeError:");
}

TEST_F(IoopsTest, NoInputIsTold) {
    const Pipe one;
    const Pipe two;
    EXPECT_EQ(available({one.reader(), two.reader()}), kNothingYet);
    EXPECT_THAT(stream_.messages(), ElementsAre(adding(one.reader()), adding(two.reader()),
                                                "Select ended: no fd's in read set\n"));
}

TEST_F(IoopsTest, TheFirstInTheListIsTheOneReported) {
    const Pipe one;
    const Pipe two;
    const Pipe three;
    two.feed("x");
    three.feed("x");
    EXPECT_EQ(available({one.reader(), three.reader(), two.reader()}), kSocketInput);
    EXPECT_EQ(stream_.messages().back(),
              "Select ended: fd " + std::to_string(three.reader()) + " is in read set\n");
    EXPECT_EQ(available({one.reader(), two.reader(), three.reader()}), kSocketInput);
    EXPECT_EQ(stream_.messages().back(),
              "Select ended: fd " + std::to_string(two.reader()) + " is in read set\n");
}

TEST_F(IoopsTest, NegativeDescriptorsAreNotTold) {
    EXPECT_EQ(available({-1, -2}), kNothingYet);
    EXPECT_THAT(stream_.messages(), ElementsAre("Select ended: no fd's in read set\n"));
}

TEST_F(IoopsTest, EveryMentionOfADescriptorIsTold) {
    const Pipe one;
    EXPECT_EQ(available({one.reader(), one.reader()}), kNothingYet);
    EXPECT_THAT(stream_.messages(), ElementsAre(adding(one.reader()), adding(one.reader()),
                                                "Select ended: no fd's in read set\n"));
}

TEST_F(IoopsTest, TheFirst64DifferentOnesAreLookedAt) {
    const std::vector<Pipe> pipes(65);
    std::vector<int> fds = {pipes[0].reader()};
    for (const Pipe& pipe : pipes) {
        fds.push_back(pipe.reader());
    }
    pipes[64].feed("x");
    EXPECT_EQ(available(fds), kNothingYet);
    EXPECT_EQ(stream_.messages().size(), fds.size() + 1);
    pipes[63].feed("x");
    EXPECT_EQ(available(fds), kSocketInput);
}

TEST_F(IoopsTest, FailureIsTold) {
    int closed = -1;
    {
        const Pipe pipe;
        closed = pipe.reader();
    }
    EXPECT_EQ(available({closed}), kWaitFailed);
    EXPECT_THAT(stream_.messages(),
                ElementsAre(adding(closed), "Select ended: returned SOCKET_ERROR\n"));
}

TEST_F(IoopsTest, NothingIsToldInTheMaskAsShipped) {
    dprintf_mask = kLogCore | kLogExceptions;
    const Pipe one;
    EXPECT_EQ(available({one.reader()}), kNothingYet);
    EXPECT_THAT(stream_.messages(), IsEmpty());
}

TEST_F(IoopsTest, InputOfTheFileEndsTheWaitWithoutALookAtTheSockets) {
    const PipeStream file;
    const Pipe socket;
    file.pipe.feed("hello");
    socket.feed("x");
    EXPECT_EQ(file_buffer_count(file.stream), 0);
    EXPECT_EQ(wait(file.stream, {socket.reader()}), kFileInput);
    EXPECT_EQ(file_buffer_count(file.stream), 5);
    EXPECT_EQ(getc(file.stream), 'h');
    EXPECT_EQ(file_buffer_count(file.stream), 4);
    EXPECT_THAT(stream_.messages(), IsEmpty());
}

TEST_F(IoopsTest, InputOfASocketEndsTheWait) {
    const PipeStream file;
    const Pipe socket;
    socket.feed("x");
    EXPECT_EQ(wait(file.stream, {socket.reader()}), kSocketInput);
    EXPECT_EQ(stream_.messages().size(), 2U);
}

TEST_F(IoopsTest, FailureOfTheSocketsEndsTheWait) {
    const PipeStream file;
    EXPECT_EQ(wait(file.stream, {100000}), kWaitFailed);
}

TEST_F(IoopsTest, TheSocketsAreLookedAtOnceInATick) {
    const PipeStream file;
    const Pipe socket;
    // The third look finds something.
    run("looks = []\n");
    define_native([&] { socket.feed("x"); });
    run("class Stream(object):\n"
        "    def write(self, text):\n"
        "        if text.startswith('Select'):\n"
        "            looks.append(time.time())\n"
        "            if len(looks) == 2: native()\n"
        "    def flush(self): pass\n"
        "import time\n"
        "stream = Stream()\n");
    dprintf_set_file(eval("stream").get());
    EXPECT_EQ(wait(file.stream, {socket.reader()}), kSocketInput);
    EXPECT_EQ(repr("len(looks)"), "3");
    EXPECT_EQ(repr("looks[1] - looks[0] > 0.095 and looks[2] - looks[1] > 0.095"), "True");
}

TEST_F(IoopsTest, StreamWithoutDescriptorHasInputAtOnce) {
    char text[] = "text";
    FILE* const memory = fmemopen(text, strlen(text), "r");
    EXPECT_EQ(wait(memory, {}), kFileInput);
    EXPECT_EQ(file_buffer_count(memory), 4);
    fclose(memory);
}

}  // namespace
}  // namespace morvik
