// Tests that hold interpreter objects.
#ifndef MORVIK_TESTS_NATIVE_PYTHON_FIXTURE_H
#define MORVIK_TESTS_NATIVE_PYTHON_FIXTURE_H

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <vector>

#include "host/python.h"
#include "host/ref.h"

namespace morvik {

class PythonTest : public testing::Test {
  public:
    // The pending error as "TypeError: message", cleared; "" for none.
    static std::string take_error();

  protected:
    void SetUp() override;
    // No error may be left pending.
    void TearDown() override;

    // Runs statements; what they define stays for later calls.
    void run(const char* source);
    // The value of an expression.
    Ref eval(const char* expression);
    // The same as text: its repr().
    std::string repr(const char* expression);

    // Makes `action` callable from Python code as native().
    void define_native(std::function<void()> action);

    Ref variables_;
};

// A Python object with write() and flush() that keeps what is written to it.
class Stream {
  public:
    Stream();
    PyObject* object() const;
    std::vector<std::string> messages() const;
    int flushes() const;

  private:
    Ref names_;
};

}  // namespace morvik

#endif
