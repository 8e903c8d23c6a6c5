#include "python_fixture.h"

#include <utility>

#include "embedding.h"

namespace morvik {

namespace {

std::function<void()> native_action;

PyObject* call_native(PyObject* /*self*/, PyObject* /*args*/) {
    native_action();
    return PyErr_Occurred() == nullptr ? new_none() : nullptr;
}

PyMethodDef native_method = {"native", call_native, METH_NOARGS, nullptr};

}  // namespace

void PythonTest::SetUp() { variables_ = morvik::run(""); }

void PythonTest::TearDown() {
    native_action = nullptr;
    EXPECT_EQ(take_error(), "");
}

void PythonTest::run(const char* source) { morvik::run(source, variables_.get()); }

Ref PythonTest::eval(const char* expression) {
    Ref value =
        Ref::steal(PyRun_String(expression, Py_eval_input, variables_.get(), variables_.get()));
    EXPECT_TRUE(value) << take_error() << " in: " << expression;
    return value;
}

std::string PythonTest::repr(const char* expression) {
    return morvik::repr(eval(expression).get());
}

void PythonTest::define_native(std::function<void()> action) {
    native_action = std::move(action);
    const Ref function = Ref::steal(PyCFunction_New(&native_method, nullptr));
    PyDict_SetItemString(variables_.get(), "native", function.get());
}

std::string PythonTest::take_error() {
    if (PyErr_Occurred() == nullptr) {
        return "";
    }
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* traceback = nullptr;
    PyErr_Fetch(&type, &value, &traceback);
    PyErr_NormalizeException(&type, &value, &traceback);
    const Ref owned_type = Ref::steal(type);
    const Ref owned_value = Ref::steal(value);
    const Ref owned_traceback = Ref::steal(traceback);
    const Ref name = Ref::steal(PyObject_GetAttrString(type, "__name__"));
    const Ref text = Ref::steal(PyObject_Str(value));
    return std::string(PyString_AsString(name.get())) + ": " + PyString_AsString(text.get());
}

Stream::Stream()
    : names_(run("class Stream(object):\n"
                 "    def __init__(self):\n"
                 "        self.messages = []\n"
                 "        self.flushes = 0\n"
                 "    def write(self, text):\n"
                 "        self.messages.append(text)\n"
                 "    def flush(self):\n"
                 "        self.flushes += 1\n"
                 "stream = Stream()\n")) {}

PyObject* Stream::object() const { return item(names_, "stream"); }

std::vector<std::string> Stream::messages() const {
    const Ref list = Ref::steal(PyObject_GetAttrString(object(), "messages"));
    std::vector<std::string> texts;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list.get()); ++i) {
        texts.emplace_back(PyString_AsString(PyList_GET_ITEM(list.get(), i)));
    }
    return texts;
}

int Stream::flushes() const {
    const Ref count = Ref::steal(PyObject_GetAttrString(object(), "flushes"));
    return static_cast<int>(PyInt_AsLong(count.get()));
}

}  // namespace morvik
