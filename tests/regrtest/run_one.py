"""Runs one of the host's own regression tests, alone or under the core.

usage: morvik-python tests/regrtest/run_one.py alone|traced NAME REPORT

Writes to the file REPORT the repr of a dictionary: the outcome of each test method, that of the
whole file under "", and under "seen" what the core was seen to do.
"""

import os
import re
import sys
import threading
import types
import unittest

MODE_UNHANDLED = 2
# In each file.
BREAKPOINTS = 5


class Recorder(unittest.TestResult):
    """Remembers the outcome of every method."""

    def __init__(self, outcomes):
        unittest.TestResult.__init__(self)
        self.outcomes = outcomes

    def note(self, test, outcome, error=None):
        # A method may run several times, and its first failure counts.
        if self.outcomes.setdefault(test.id(), "passed") == "passed":
            self.outcomes[test.id()] = outcome
        if error is not None:
            sys.__stdout__.write("%s: %s" % (test.id(), self._exc_info_to_string(error, test)))

    def addSuccess(self, test):
        unittest.TestResult.addSuccess(self, test)
        self.note(test, "passed")

    def addFailure(self, test, error):
        unittest.TestResult.addFailure(self, test, error)
        self.note(test, "failed", error)

    def addError(self, test, error):
        unittest.TestResult.addError(self, test, error)
        self.note(test, "failed", error)

    def addSkip(self, test, reason):
        self.skipped.append((test, reason))
        self.note(test, "skipped")

    def addExpectedFailure(self, test, error):
        self.note(test, "failed as expected")

    def addUnexpectedSuccess(self, test):
        self.note(test, "passed unexpectedly")


class Server(object):
    """Stops at breakpoints and unhandled exceptions, and goes on."""

    def __init__(self, name):
        self.test = "test." + name
        self.seen = {"stops": 0, "stops in the test": 0, "exceptions": 0, "imports": 0}
        # How many names each file's module had, and where its breakpoints are.
        self.sizes = {}
        self.lines = set()

    def init(self, core):
        self.core = core
        core.init(0.1, MODE_UNHANDLED, self.install_thread_hooks, self.idle, self.line,
                  self.return_, self.exception, self.quit, self.imported, __import__, None, {})
        core.set_autoquit(0)

    def install_thread_hooks(self, on):
        threading.settrace(on and self.core.bootstrap_new_thread or None)

    def idle(self):
        pass

    quit = idle

    def line(self, frame, changed_bps):
        self.seen["stops"] += 1
        self.seen["stops in the test"] += frame.f_globals.get("__name__") == self.test
        frame.f_locals
        self.core.continue_run()

    def return_(self, frame, value, changed_bps):
        self.core.continue_run()

    def exception(self, frame, exc_info, changed_bps):
        self.seen["exceptions"] += 1
        self.core.continue_run()

    def imported(self, module):
        """Sets breakpoints in every file that is loaded."""
        self.seen["imports"] += 1
        for module in sys.modules.values():
            # What tests put there may be anything.
            path = type(module) is types.ModuleType and module.__dict__.get("__file__")
            # One that is being loaded still grows.
            if type(path) is str and self.sizes.get(path) != len(vars(module)):
                self.sizes[path] = len(vars(module))
                source = re.sub("[co]$", "", path)
                for line in first_lines(module)[:BREAKPOINTS]:
                    if (source, line) not in self.lines:
                        self.lines.add((source, line))
                        self.core.set_break(source, line, 1, 0, None, 0)


def first_lines(module):
    """The lines with which the module's own functions and methods begin, test_main()'s first."""
    functions = own_functions(module, vars(module))
    for each in vars(module).values():
        if type(each) in (type, types.ClassType):
            functions += own_functions(module, vars(each))
    functions.sort(key=lambda function: (function.__name__ != "test_main",
                                         function.func_code.co_firstlineno))
    lines = []
    for function in functions:
        increments = [ord(each) for each in function.func_code.co_lnotab[1::2]]
        lines.append(function.func_code.co_firstlineno + ([n for n in increments if n] or [0])[0])
    return lines


def own_functions(module, names):
    return [value for value in names.values() if type(value) is types.FunctionType
            and value.func_globals is vars(module)]


def run_test(name, outcomes):
    """Runs a test file as the host's own runner does, in a folder of its own; its outcome."""
    from test import test_support
    test_support.verbose = 0

    class Runner(object):
        def run(self, test):
            recorder = Recorder(outcomes)
            test(recorder)
            return recorder
    test_support.BasicTestRunner = Runner
    skipped = getattr(unittest, "SkipTest", None) or test_support.TestSkipped
    try:
        module = getattr(__import__("test." + name), name)
        if hasattr(module, "test_main"):
            module.test_main()
    except skipped:
        return "skipped"
    except KeyboardInterrupt:
        raise
    except:
        error = sys.exc_info()[1]
        sys.__stdout__.write("%s: %s: %s\n" % (name, type(error).__name__, error))
        return "failed"
    return "passed"


def main(how, name, report):
    outcomes = {}
    if how == "traced":
        import tmorvik26_vs2012_x64 as core
        server = Server(name)
        server.init(core)
        core.start_trace()
        core.continue_run()
        try:
            outcomes[""] = run_test(name, outcomes)
            server.seen["traced at the end"] = sys.gettrace() is core.trace_dispatch
        finally:
            core.stop_trace()
        outcomes["seen"] = server.seen
    else:
        outcomes[""] = run_test(name, outcomes)
    output = open(report, "w")
    output.write(repr(outcomes))
    output.close()


if __name__ == "__main__":
    how, name, report = sys.argv[1:]
    # Some tests look at it.
    del sys.argv[1:]
    main(how, name, os.path.abspath(report))
