#include "dbgcommon.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <vector>

#include "allocation.h"
#include "embedding.h"
#include "python_fixture.h"

namespace morvik {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DbgCommonTest : public PythonTest {
  protected:
    Diagnostics log_{kLogErrors | kLogFiles};
};

TEST_F(DbgCommonTest, TextOrNull) {
    EXPECT_STREQ(text_or_null("text"), "text");
    EXPECT_STREQ(text_or_null(""), "");
    EXPECT_STREQ(text_or_null(nullptr), "(NULL)");
}

TEST_F(DbgCommonTest, ModuleFunctionIsFound) {
    const Ref function = Ref::steal(get_module_function("os", "getpid"));
    ASSERT_TRUE(function);
    EXPECT_NE(PyCallable_Check(function.get()), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(DbgCommonTest, FunctionOfAMissingModule) {
    EXPECT_EQ(get_module_function("no_such_module", "f"), nullptr);
    EXPECT_EQ(take_error(), "ImportError: No module named no_such_module");
    EXPECT_THAT(log_.take(), ElementsAre("module no_such_module not found\n"));
}

TEST_F(DbgCommonTest, MissingFunctionOfAModule) {
    EXPECT_EQ(get_module_function("os", "no_such_function"), nullptr);
    EXPECT_NE(take_error(), "");
    EXPECT_THAT(log_.take(), ElementsAre("os.no_such_function function not found\n"));
}

TEST_F(DbgCommonTest, AttributeThatIsNotCallable) {
    EXPECT_EQ(get_module_function("os", "sep"), nullptr);
    EXPECT_THAT(log_.take(), ElementsAre("os.sep is not callable\n"));
}

TEST_F(DbgCommonTest, CallsPassTheirArgumentsInOrder) {
    const Ref function = eval("lambda *arguments: arguments");
    const Ref a = eval("'a'");
    const Ref b = eval("'b'");
    const Ref c = eval("'c'");
    auto text = [](PyObject* result) {
        const Ref owned = Ref::steal(result);
        const Ref shown = Ref::steal(PyObject_Repr(owned.get()));
        return std::string(PyString_AsString(shown.get()));
    };
    EXPECT_EQ(text(call_with_1(function.get(), a.get())), "('a',)");
    EXPECT_EQ(text(call_with_2(function.get(), a.get(), b.get())), "('a', 'b')");
    EXPECT_EQ(text(call_with_3(function.get(), a.get(), b.get(), c.get())), "('a', 'b', 'c')");
}

TEST_F(DbgCommonTest, CallKeepsNoReferences) {
    const Ref function = eval("lambda *arguments: None");
    const Ref argument = eval("object()");
    for (int i = 0; i < 3; ++i) {
        Py_XDECREF(call_with_1(function.get(), argument.get()));
        Py_XDECREF(call_with_2(function.get(), argument.get(), argument.get()));
        Py_XDECREF(call_with_3(function.get(), argument.get(), argument.get(), argument.get()));
    }
    EXPECT_EQ(Py_REFCNT(argument.get()), 1);
    EXPECT_EQ(Py_REFCNT(function.get()), 1);
}

TEST_F(DbgCommonTest, FailedCallLeavesTheError) {
    const Ref function = eval("int");
    const Ref argument = eval("'no number'");
    EXPECT_EQ(call_with_1(function.get(), argument.get()), nullptr);
    EXPECT_EQ(take_error(), "ValueError: invalid literal for int() with base 10: 'no number'");
    EXPECT_EQ(call_with_2(argument.get(), argument.get(), argument.get()), nullptr);
    EXPECT_EQ(take_error(), "TypeError: 'str' object is not callable");
}

TEST_F(DbgCommonTest, FrameBackWalksToTheOutermostFrame) {
    std::vector<std::string> names;
    define_native([&] {
        PyObject* frame = as_object(PyEval_GetFrame());
        while (frame != nullptr) {
            names.emplace_back(PyString_AsString(as_frame(frame)->f_code->co_name));
            frame = as_object(frame_back(frame));
        }
    });
    run("def f():\n    native()\ndef g():\n    f()\ng()\n");
    EXPECT_THAT(names, ElementsAre("f", "g", "<module>"));
}

TEST_F(DbgCommonTest, FrameBackOfAnythingElseIsNothing) {
    EXPECT_EQ(frame_back(static_cast<PyObject*>(nullptr)), nullptr);
    EXPECT_EQ(frame_back(eval("None").get()), nullptr);
    EXPECT_EQ(frame_back(eval("(lambda: None).func_code").get()), nullptr);
    EXPECT_EQ(frame_back(eval("type(__import__('sys')._getframe())").get()), nullptr);
}

TEST_F(DbgCommonTest, StackDepthCountsTheFrames) {
    std::vector<int> depths;
    define_native([&] {
        depths.push_back(stack_depth(nullptr));
        depths.push_back(stack_depth(PyThreadState_Get()));
    });
    EXPECT_EQ(stack_depth(nullptr), 0);
    EXPECT_EQ(stack_depth(PyThreadState_Get()), 0);
    run("def f(n):\n    native() if n == 0 else f(n - 1)\nnative()\nf(0)\nf(10)\n");
    EXPECT_THAT(depths, ElementsAre(1, 1, 2, 2, 12, 12));
}

TEST_F(DbgCommonTest, StringChars) {
    EXPECT_STREQ(string_chars(eval("'text'").get()), "text");
    EXPECT_EQ(string_chars(eval("1").get()), nullptr);
    EXPECT_EQ(take_error(), "TypeError: expected string or Unicode object, int found");
}

TEST_F(DbgCommonTest, StringDupIsACopy) {
    Ref object = eval("'te' + 'xt'");
    const OwnedText copy = string_dup(object.get());
    object = Ref();
    EXPECT_STREQ(copy.get(), "text");
}

TEST_F(DbgCommonTest, StringDupOfAnythingElseRaises) {
    EXPECT_FALSE(string_dup(Py_None));
    EXPECT_EQ(take_error(), "TypeError: expected string or Unicode object, NoneType found");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(DbgCommonTest, StringDupWithoutMemorySaysSoAndRaisesNothing) {
    const Ref object = eval("'some name'");
    {
        const FailingAllocation failing;
        EXPECT_FALSE(string_dup(object.get()));
    }
    EXPECT_EQ(take_error(), "");
    EXPECT_THAT(log_.take(), ElementsAre("FAILURE: Out of memory copying string: some name"));
}

TEST_F(DbgCommonTest, ObjectText) {
    EXPECT_STREQ(object_text(nullptr), "(NULL PyObject*)");
    EXPECT_STREQ(object_text(eval("'text'").get()), "text");
    EXPECT_STREQ(object_text(eval("''").get()), "");
    EXPECT_STREQ(object_text(eval("1").get()), "(non-PyString PyObject*)");
    EXPECT_STREQ(object_text(eval("u'text'").get()), "(non-PyString PyObject*)");
    EXPECT_STREQ(object_text(Py_None), "(non-PyString PyObject*)");
}

TEST_F(DbgCommonTest, ObjectTextOfASubclassOfString) {
    run("class Name(str):\n    pass\nname = Name('text')\n");
    const Ref name = eval("name");
    EXPECT_STREQ(object_text(name.get()), "text");
}

TEST_F(DbgCommonTest, SymbolOfTheInterpreterIsFound) {
    EXPECT_EQ(python_library_symbol("PyThread_get_thread_ident"),
              reinterpret_cast<void*>(&PyThread_get_thread_ident));
    EXPECT_EQ(python_library_symbol("PyObject_GetAttr"),
              reinterpret_cast<void*>(&PyObject_GetAttr));
}

TEST_F(DbgCommonTest, MissingSymbolIsNoError) {
    EXPECT_EQ(python_library_symbol("PyNoSuchFunction"), nullptr);
    EXPECT_EQ(python_library_symbol(""), nullptr);
    EXPECT_EQ(take_error(), "");
}

TEST_F(DbgCommonTest, FileStat) {
    struct stat status = {};
    EXPECT_EQ(file_stat("/", &status), 0);
    EXPECT_TRUE(S_ISDIR(status.st_mode));
    EXPECT_EQ(file_stat("/no such file", &status), -1);
    EXPECT_EQ(errno, ENOENT);
}

}  // namespace
}  // namespace morvik
