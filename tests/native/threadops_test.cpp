#include "threadops.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>

#include "allocation.h"
#include "embedding.h"
#include "python_fixture.h"

namespace morvik {
namespace {

// Some thread state that is not the calling one; the tables do not look at it.
PyThreadState* other_thread(PyThreadState* storage, intptr_t ident = 7) {
    storage->thread_id = ident;
    return storage;
}

class ThreadTableTest : public PythonTest {
  protected:
    void SetUp() override {
        PythonTest::SetUp();
        thread_table_init(&table_);
    }
    void TearDown() override {
        thread_table_clear(&table_);
        PythonTest::TearDown();
    }

    PyThreadState* current() { return PyThreadState_Get(); }

    ThreadTable table_;
    PyThreadState storage_ = {};
};

TEST_F(ThreadTableTest, IsKeyedByTheAddress) {
    EXPECT_EQ(table_.records.key_width, 8U);
    EXPECT_EQ(table_.records.num_entries, 0U);
}

TEST_F(ThreadTableTest, NewRecordHasItsInitialValues) {
    PyThreadState* const thread = other_thread(&storage_, 42);
    const ThreadData* const record = thread_table_get_or_add(&table_, thread);
    ASSERT_NE(record, nullptr);
    EXPECT_FALSE(record->frames_hooked);
    EXPECT_FALSE(record->trace_installed);
    EXPECT_EQ(record->tstate_id, static_cast<int32_t>(reinterpret_cast<intptr_t>(thread)));
    EXPECT_EQ(record->thread_ident, 42);
    EXPECT_EQ(record->thread_name, Py_None);
    EXPECT_EQ(record->bot_frame, Py_None);
    EXPECT_EQ(record->stop_frame, nullptr);
    EXPECT_EQ(record->return_frame, Py_None);
    EXPECT_EQ(record->curr_frame, Py_None);
    EXPECT_EQ(record->line_first, -1);
    EXPECT_EQ(record->line_last, -1);
    EXPECT_EQ(record->sub_lang_frame, nullptr);
    EXPECT_EQ(record->sub_lang_hook, nullptr);
    EXPECT_FALSE(record->exiting_on_exc);
    EXPECT_EQ(record->pending_exc, nullptr);
    EXPECT_EQ(record->returned, nullptr);
}

TEST_F(ThreadTableTest, ExistingRecordIsReturnedUnchanged) {
    ThreadData* const record = thread_table_get_or_add(&table_, current());
    record->line_first = 17;
    EXPECT_EQ(thread_table_get_or_add(&table_, current()), record);
    EXPECT_EQ(record->line_first, 17);
    EXPECT_EQ(table_.records.num_entries, 1U);
}

TEST_F(ThreadTableTest, FindsWhatIsThere) {
    EXPECT_EQ(thread_table_find(&table_, current()), nullptr);
    ThreadData* const record = thread_table_get_or_add(&table_, current());
    EXPECT_EQ(thread_table_find(&table_, current()), record);
    EXPECT_EQ(thread_table_find(&table_, other_thread(&storage_)), nullptr);
    EXPECT_EQ(thread_table_find(&table_, nullptr), nullptr);
    EXPECT_EQ(thread_table_find(&table_, reinterpret_cast<PyThreadState*>(-1)), nullptr);
}

TEST_F(ThreadTableTest, FindsEachOfSeveralInTurn) {
    ThreadData* const mine = thread_table_get_or_add(&table_, current());
    ThreadData* const other = thread_table_get_or_add(&table_, other_thread(&storage_));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(thread_table_find(&table_, current()), mine);
        EXPECT_EQ(thread_table_find(&table_, &storage_), other);
    }
    thread_table_remove(&table_, &storage_);
    EXPECT_EQ(thread_table_find(&table_, current()), mine);
    EXPECT_EQ(thread_table_find(&table_, &storage_), nullptr);
}

TEST_F(ThreadTableTest, CurrentRecordHasItsIdentRefreshed) {
    EXPECT_EQ(thread_table_current(&table_), nullptr);
    ThreadData* const record = thread_table_get_or_add(&table_, current());
    for (int i = 0; i < 2; ++i) {
        record->thread_ident = 0;
        EXPECT_EQ(thread_table_current(&table_), record);
        EXPECT_EQ(record->thread_ident, current()->thread_id);
    }
}

TEST_F(ThreadTableTest, FindDoesNotRefreshTheIdent) {
    ThreadData* const record = thread_table_get_or_add(&table_, current());
    record->thread_ident = 0;
    thread_table_find(&table_, current());
    EXPECT_EQ(record->thread_ident, 0);
}

TEST_F(ThreadTableTest, RemovingWhatIsNotThereDoesNothing) {
    ThreadData* const record = thread_table_get_or_add(&table_, current());
    thread_table_remove(&table_, other_thread(&storage_));
    EXPECT_EQ(thread_table_find(&table_, current()), record);
    thread_table_remove(&table_, current());
    thread_table_remove(&table_, current());
    EXPECT_EQ(thread_table_find(&table_, current()), nullptr);
}

TEST_F(ThreadTableTest, ClearedTableIsEmptyAndUsable) {
    PyThreadState storage[20] = {};
    for (PyThreadState& thread : storage) {
        thread_table_get_or_add(&table_, &thread);
    }
    const long blocks = live_blocks();
    thread_table_clear(&table_);
    // The records, their entries and the grown array of buckets.
    EXPECT_EQ(live_blocks(), blocks - 41);
    EXPECT_EQ(table_.records.num_entries, 0U);
    EXPECT_EQ(thread_table_find(&table_, &storage[19]), nullptr);
    EXPECT_NE(thread_table_get_or_add(&table_, &storage[19]), nullptr);
}

TEST_F(ThreadTableTest, FreedRecordReleasesWhatItHolds) {
    const Ref object = eval("object()");
    ThreadData* const record = thread_table_get_or_add(&table_, current());
    PyObject** const slots[] = {&record->thread_name,   &record->bot_frame,
                                &record->stop_frame,    &record->return_frame,
                                &record->curr_frame,    &record->sub_lang_frame,
                                &record->sub_lang_hook, &record->pending_exc};
    for (PyObject** const slot : slots) {
        set_slot(*slot, object.get());
    }
    EXPECT_EQ(Py_REFCNT(object.get()), 9);
    thread_table_remove(&table_, current());
    EXPECT_EQ(Py_REFCNT(object.get()), 1);
}

TEST_F(ThreadTableTest, RecordWithoutANameIsFreed) {
    ThreadData* const record = thread_table_get_or_add(&table_, current());
    clear_slot(record->thread_name);
    thread_table_remove(&table_, current());
    EXPECT_EQ(table_.records.num_entries, 0U);
}

TEST_F(ThreadTableTest, DestructorsMayUseTheTable) {
    define_native([&] { thread_table_get_or_add(&table_, &storage_); });
    run("class Last(object):\n    def __del__(self):\n        native()\n");
    ThreadData* const record = thread_table_get_or_add(&table_, current());
    record->pending_exc = eval("Last()").release();
    thread_table_remove(&table_, current());
    EXPECT_NE(thread_table_find(&table_, &storage_), nullptr);
    EXPECT_EQ(thread_table_find(&table_, current()), nullptr);
}

TEST_F(ThreadTableTest, RecordThatFindsNoMemoryRaises) {
    // First the record itself, then its entry in the table.
    for (const int successes : {0, 1}) {
        const long blocks = live_blocks();
        {
            const FailingAllocation failing(successes);
            EXPECT_EQ(thread_table_get_or_add(&table_, current()), nullptr);
        }
        EXPECT_EQ(take_error(), "MemoryError: Out of memory");
        EXPECT_EQ(thread_table_find(&table_, current()), nullptr);
        EXPECT_EQ(table_.records.num_entries, 0U);
        EXPECT_EQ(live_blocks(), blocks);
    }
    EXPECT_NE(thread_table_get_or_add(&table_, current()), nullptr);
}

TEST_F(ThreadTableTest, RecordWithoutMemoryIsNoneAndRaisesNothing) {
    const FailingAllocation failing;
    EXPECT_EQ(thread_data_new(current()), nullptr);
}

class ThreadIdTest : public PythonTest {};

Ref id_of(intptr_t address) {
    return Ref::steal(tstate_id_from_tstate(reinterpret_cast<PyThreadState*>(address)));
}

intptr_t key_of(PyObject* id) { return reinterpret_cast<intptr_t>(tstate_from_tstate_id(id)); }

TEST_F(ThreadIdTest, LowAddressComesBack) {
    for (const intptr_t address : {intptr_t{0}, intptr_t{8}, intptr_t{0x7ffffff8}}) {
        const Ref id = id_of(address);
        EXPECT_EQ(PyInt_AsLong(id.get()), address);
        EXPECT_EQ(key_of(id.get()), address);
    }
}

TEST_F(ThreadIdTest, IdIsTheSignedLowHalf) {
    EXPECT_EQ(PyInt_AsLong(id_of(0x80000000).get()), -0x80000000L);
    EXPECT_EQ(PyInt_AsLong(id_of(0xfffffff8).get()), -8);
    EXPECT_EQ(PyInt_AsLong(id_of(0x7f1200000010).get()), 0x10);
    EXPECT_NE(PyInt_Check(id_of(0x80000000).get()), 0);
}

TEST_F(ThreadIdTest, HighAddressDoesNotComeBack) {
    EXPECT_EQ(key_of(id_of(0x80000000).get()), -0x80000000L);
    EXPECT_EQ(key_of(id_of(0x7f1200000010).get()), 0x10);
}

TEST_F(ThreadIdTest, NegativeIdIsSignExtended) {
    EXPECT_EQ(key_of(eval("-8").get()), -8);
    EXPECT_EQ(key_of(eval("2 ** 32 + 16").get()), 16);
}

TEST_F(ThreadIdTest, AnythingElseIsNoId) {
    EXPECT_EQ(key_of(eval("'8'").get()), -1);
    EXPECT_EQ(take_error(), "TypeError: an integer is required");
    EXPECT_EQ(key_of(Py_None), -1);
    EXPECT_EQ(take_error(), "TypeError: an integer is required");
}

TEST_F(ThreadIdTest, ThreadStatesOfThisProgramAreFound) {
    EXPECT_EQ(tstate_from_tstate_id(id_of(reinterpret_cast<intptr_t>(PyThreadState_Get())).get()),
              PyThreadState_Get());
}

using ThreadIdentDeathTest = PythonTest;

TEST_F(ThreadIdentDeathTest, IsOneUntilItsFunctionIsFound) {
    // In a process of its own, where no other test has looked for the function.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const long before = get_thread_ident();
            thread_ident_init();
            _exit(before == 1 && get_thread_ident() == PyThread_get_thread_ident() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(ThreadIdentDeathTest, LogsTheFunction) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Diagnostics log(kLogCore);
            thread_ident_init();
            const std::string message = log.take().at(0);
            _exit(message.compare(0, 28, "Thread ident function is 0x") > 0 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

class LockTest : public PythonTest {};

TEST_F(LockTest, MissingLockIsAlwaysFree) {
    errno = 77;
    EXPECT_EQ(dbg_lock_acquire(nullptr, WAIT_LOCK), 1);
    EXPECT_EQ(dbg_lock_acquire(nullptr, NOWAIT_LOCK), 1);
    dbg_lock_release(nullptr);
    EXPECT_EQ(errno, 77);
}

TEST_F(LockTest, LockThatIsHeldIsNotAcquiredWithoutWaiting) {
    PyThread_type_lock const lock = dbg_lock_new();
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(dbg_lock_acquire(lock, NOWAIT_LOCK), 1);
    EXPECT_EQ(dbg_lock_acquire(lock, NOWAIT_LOCK), 0);
    dbg_lock_release(lock);
    EXPECT_EQ(dbg_lock_acquire(lock, WAIT_LOCK), 1);
    dbg_lock_release(lock);
    PyThread_free_lock(lock);
}

TEST_F(LockTest, ErrnoIsKept) {
    PyThread_type_lock const lock = dbg_lock_new();
    errno = 77;
    dbg_lock_acquire(lock, WAIT_LOCK);
    EXPECT_EQ(errno, 77);
    dbg_lock_acquire(lock, NOWAIT_LOCK);
    EXPECT_EQ(errno, 77);
    dbg_lock_release(lock);
    EXPECT_EQ(errno, 77);
    PyThread_free_lock(lock);
}

TEST_F(LockTest, WaitingGivesTheInterpreterLockAwayAndKeepsErrno) {
    PyThread_type_lock const lock = dbg_lock_new();
    dbg_lock_acquire(lock, WAIT_LOCK);
    std::atomic<bool> released{false};
    std::thread holder([&] {
        // Comes here only when the waiting thread has let go of the interpreter.
        const PyGILState_STATE state = PyGILState_Ensure();
        PyRun_SimpleString("x = 1\n");
        released = true;
        dbg_lock_release(lock);
        PyGILState_Release(state);
    });
    errno = 77;
    EXPECT_EQ(dbg_lock_acquire(lock, WAIT_LOCK), 1);
    EXPECT_EQ(errno, 77);
    EXPECT_TRUE(released);
    PyThreadState* const thread = PyEval_SaveThread();
    holder.join();
    PyEval_RestoreThread(thread);
    dbg_lock_release(lock);
    PyThread_free_lock(lock);
}

}  // namespace
}  // namespace morvik
