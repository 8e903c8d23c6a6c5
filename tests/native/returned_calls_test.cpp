#include "returned_calls.h"

#include "allocation.h"
#include "host/ref.h"
#include "python_fixture.h"

namespace morvik {
namespace {

using ReturnedCallsTest = PythonTest;

TEST_F(ReturnedCallsTest, AFailingAllocationLeavesNone) {
    const FailingAllocation failing;
    EXPECT_EQ(returned_calls_new(), nullptr);
    EXPECT_TRUE(FailingAllocation::happened());
    EXPECT_EQ(PyErr_Occurred(), nullptr);
}

TEST_F(ReturnedCallsTest, NothingIsLeftBehind) {
    const Ref value = Ref::steal(PyList_New(0));
    define_native([&] {
        PyFrameObject* const frame = PyEval_GetFrame();
        const long blocks = live_blocks();
        ReturnedCalls* const calls = returned_calls_new();
        ASSERT_NE(calls, nullptr);
        for (unsigned i = 0; i < kMostReturnedCalls + 1; ++i) {
            returned_calls_add(calls, frame, value.get());
        }
        EXPECT_EQ(Py_REFCNT(value.get()), 1 + static_cast<Py_ssize_t>(kMostReturnedCalls));
        returned_calls_begin_with(calls, frame, frame, value.get());
        EXPECT_EQ(calls->count, 1U);
        EXPECT_EQ(Py_REFCNT(value.get()), 2);
        returned_calls_free(calls);
        EXPECT_EQ(live_blocks(), blocks);
    });
    run("native()\n");
    EXPECT_EQ(Py_REFCNT(value.get()), 1);
}

}  // namespace
}  // namespace morvik
