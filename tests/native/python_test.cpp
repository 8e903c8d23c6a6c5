#include "python_test.h"

#include <utility>

namespace morvik {

namespace {

std::function<void()> native_action;

PyObject* call_native(PyObject* /*self*/, PyObject* /*args*/) {
    native_action();
    return PyErr_Occurred() == nullptr ? new_none() : nullptr;
}

PyMethodDef native_method = {"native", call_native, METH_NOARGS, nullptr};

Ref new_variables() {
    Ref variables = Ref::steal(PyDict_New());
    PyDict_SetItemString(variables.get(), "__builtins__", PyEval_GetBuiltins());
    return variables;
}

constexpr char kStream[] = R"(
class Stream(object):
    def __init__(self):
        self.messages = []
        self.flushes = 0
    def write(self, text):
        self.messages.append(text)
    def flush(self):
        self.flushes += 1
)";

}  // namespace

void PythonTest::SetUp() { variables_ = new_variables(); }

void PythonTest::TearDown() {
    native_action = nullptr;
    EXPECT_EQ(take_error(), "");
}

void PythonTest::run(const char* source) {
    const Ref result = Ref::steal(
        PyRun_String(source, Py_file_input, variables_.get(), variables_.get()));
    if (!result) {
        FAIL() << take_error() << " in: " << source;
    }
}

Ref PythonTest::eval(const char* expression) {
    Ref value = Ref::steal(
        PyRun_String(expression, Py_eval_input, variables_.get(), variables_.get()));
    EXPECT_TRUE(value) << take_error() << " in: " << expression;
    return value;
}

std::string PythonTest::repr(const char* expression) {
    const Ref value = eval(expression);
    const Ref text = Ref::steal(value ? PyObject_Repr(value.get()) : nullptr);
    return text ? PyString_AS_STRING(text.get()) : take_error();
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

Stream::Stream() {
    const Ref variables = new_variables();
    const Ref done = Ref::steal(
        PyRun_String(kStream, Py_file_input, variables.get(), variables.get()));
    object_ = Ref::steal(PyObject_CallObject(
        PyDict_GetItemString(variables.get(), "Stream"), nullptr));
}

std::vector<std::string> Stream::messages() const {
    const Ref list = Ref::steal(PyObject_GetAttrString(object_.get(), "messages"));
    std::vector<std::string> texts;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list.get()); ++i) {
        texts.emplace_back(PyString_AsString(PyList_GET_ITEM(list.get(), i)));
    }
    return texts;
}

int Stream::flushes() const {
    const Ref count = Ref::steal(PyObject_GetAttrString(object_.get(), "flushes"));
    return static_cast<int>(PyInt_AsLong(count.get()));
}

}  // namespace morvik
