"""The replacement __import__: where it is put, what it calls, what it counts and logs."""

import __builtin__
import ctypes
import errno
import functools
import os
import sys

import harness
from harness import core
from import_case import ImportTestCase

INSTALLING = "********************* INSTALLING TRACE HOOK ***********************\n"
NOT_INSTALLING = "NOT INSTALLING TRACE HOOK\n"
DONE_INSTALLING = "********************* DONE INSTALLING TRACE HOOK ***********************\n"
NO_FRAME = "Did not install __import__ hook: no PyFrame found\n"
REFUSED = "The default import hook cannot be equal to our import hook"

RETURNING_NULL = "IMPORT HOOK returning NULL\n"


class Equal(object):
    """A default_import that compares as it is told."""

    def __init__(self, answer):
        self.answer = answer

    def __call__(self, *arguments, **keywords):
        return harness.INTERPRETERS_IMPORT(*arguments, **keywords)

    def __cmp__(self, other):
        if isinstance(self.answer, Exception):
            raise self.answer
        return self.answer


class InstallationTest(ImportTestCase):

    def log(self):
        return self.server.stream.among(INSTALLING, NOT_INSTALLING, DONE_INSTALLING, NO_FRAME)

    def assert_not_installed(self):
        self.assert_is(__builtin__.__import__, harness.INTERPRETERS_IMPORT)
        self.assertEqual(self.log(), [INSTALLING])

    def test_init_puts_the_hook_into_the_builtins(self):
        self.assert_is(__builtin__.__import__, harness.INTERPRETERS_IMPORT)
        self.server.init()
        self.assert_is(__builtin__.__import__, core.__import__)
        self.assertEqual(self.log(), [INSTALLING, DONE_INSTALLING])

    def test_hook_passes_for_the_builtin_function(self):
        self.server.init()
        self.assertEqual(__import__.__name__, "__import__")
        self.assertEqual(__import__.__module__, "__builtin__")

    def test_second_init_installs_nothing(self):
        self.server.init()
        self.server.stream.clear()
        self.server.init()
        self.assertEqual(self.log(), [INSTALLING, NOT_INSTALLING])
        self.assert_is(__builtin__.__import__, core.__import__)

    def test_hook_that_the_program_replaced_is_not_put_back(self):
        self.server.init()
        __builtin__.__import__ = harness.INTERPRETERS_IMPORT
        self.server.init()
        self.assert_is(__builtin__.__import__, harness.INTERPRETERS_IMPORT)

    def test_second_init_brings_its_own_default_import(self):
        calls = []

        def second(*arguments):
            calls.append(arguments[0])
            return harness.INTERPRETERS_IMPORT(*arguments)
        self.server.init()
        self.server.init(default_import=second)
        import colorsys
        self.assertEqual(calls[-1], "colorsys")

    def test_second_init_that_names_the_hook_keeps_the_first_default_import(self):
        self.server.init()
        self.server.init(default_import=__import__)
        import colorsys
        self.assert_is(sys.modules["colorsys"], colorsys)
        self.assert_raises(ImportError, "No module named nowhere", __import__, "nowhere")

    def test_reset_and_destroy_leave_the_hook(self):
        self.server.init()
        core.reset()
        core.destroy()
        self.assert_is(__builtin__.__import__, core.__import__)
        import colorsys
        self.assert_is(sys.modules["colorsys"], colorsys)

    def test_hook_as_its_own_default_import_is_refused(self):
        self.assert_raises(AssertionError, REFUSED, self.server.init,
                           default_import=core.__import__)
        self.assert_not_installed()

    def test_default_import_that_compares_equal_is_refused(self):
        self.assert_raises(AssertionError, REFUSED, self.server.init, default_import=Equal(0))
        self.assert_not_installed()

    def test_default_import_that_compares_unequal_is_taken(self):
        for answer in (-1, 1):
            self.server.init(default_import=Equal(answer))
            self.assert_is(__builtin__.__import__, core.__import__)

    def test_failure_to_compare_comes_out_of_init(self):
        self.assert_raises(ValueError, "compared", self.server.init,
                           default_import=Equal(ValueError("compared")))
        self.assert_not_installed()

    def test_init_can_be_called_again_after_a_refusal(self):
        self.assert_raises(AssertionError, REFUSED, self.server.init,
                           default_import=core.__import__)
        self.server.init()
        self.assert_is(__builtin__.__import__, core.__import__)
        import colorsys
        self.assert_is(sys.modules["colorsys"], colorsys)

    def test_code_with_builtins_of_its_own_cannot_install_it(self):
        # Such code is restricted: it must not rename a builtin function.
        builtins = {"__import__": harness.INTERPRETERS_IMPORT}
        environment = {"__builtins__": builtins, "init": core.init,
                       "arguments": self.server.init_arguments()}
        try:
            exec "init(*arguments)" in environment
        except RuntimeError, error:
            self.assertEqual(str(error), "restricted attribute")
        else:
            self.fail("installed")
        self.assert_is(builtins["__import__"], harness.INTERPRETERS_IMPORT)
        self.assert_not_installed()
        self.server.init()
        self.assert_is(__builtin__.__import__, core.__import__)

    def test_without_calling_code_the_hook_counts_as_installed_all_the_same(self):
        arguments = self.server.init_arguments()
        self.assertEqual(harness.run_bare_thread(functools.partial(core.init, *arguments)), True)
        self.assert_is(__builtin__.__import__, harness.INTERPRETERS_IMPORT)
        self.assertEqual(self.log(), [INSTALLING, NO_FRAME, DONE_INSTALLING])
        self.server.stream.clear()
        self.server.init()
        self.assertEqual(self.log(), [INSTALLING, NOT_INSTALLING])

    def test_without_the_modules_own_function_nothing_is_installed(self):
        hook = core.__import__
        del core.__import__
        try:
            self.server.init()
        finally:
            core.__import__ = hook
        self.assert_not_installed()

    def test_function_that_cannot_be_renamed_is_not_installed(self):
        hook = core.__import__
        core.__import__ = 42
        try:
            self.assert_raises(AttributeError, None, self.server.init)
        finally:
            core.__import__ = hook
        self.assert_not_installed()


class CallTest(ImportTestCase):
    """The hook does what default_import does."""

    def setUp(self):
        ImportTestCase.setUp(self)
        self.calls = []
        self.result = object()

    def default_import(self, *arguments, **keywords):
        self.calls.append((arguments, keywords))
        if isinstance(self.result, Exception):
            raise self.result
        return self.result

    def in_both_states(self, test):
        """Runs a test with tracing off and on."""
        self.server.init(default_import=self.default_import)
        test()
        core.start_trace()
        core.continue_run()
        core.set_import_cb(lambda module: None)
        del self.calls[:]
        test()

    def test_arguments_go_through_unchanged(self):
        def test():
            variables, names = {}, ("a", "b")
            core.__import__("name")
            core.__import__("name", variables, None, names, 2)
            core.__import__(name="other", level=0)
            core.__import__("name", fromlist=names)
            core.__import__()
            core.__import__(1, 2, 3, 4, 5, 6, nonsense=7)
            self.assertEqual(self.calls, [
                (("name",), {}),
                (("name", variables, None, names, 2), {}),
                ((), {"name": "other", "level": 0}),
                (("name",), {"fromlist": names}),
                ((), {}),
                ((1, 2, 3, 4, 5, 6), {"nonsense": 7})])
            self.assert_is(self.calls[1][0][1], variables)
            self.assert_is(self.calls[1][0][3], names)
        self.in_both_states(test)

    def test_import_statement_passes_what_the_interpreter_gives(self):
        def test():
            exec "from ..name import a, b" in {"__name__": "program", "a": 1}
            arguments, keywords = self.calls.pop()
            self.assertEqual((arguments[0], arguments[3:], keywords),
                             ("name", (("a", "b"), 2), {}))
            self.assertEqual(arguments[1]["__name__"], "program")
        self.result = type("M", (object,), {"a": 1, "b": 2})
        self.in_both_states(test)

    def test_result_is_default_imports_whatever_it_is(self):
        def test():
            for result in (self.result, None, 0, "text", sys, [1]):
                self.result = result
                self.assert_is(core.__import__("name"), result)
        self.in_both_states(test)

    def test_exception_is_default_imports_unchanged(self):
        def test():
            for error in (ImportError("no such thing"), ValueError(1, 2), KeyError("x")):
                self.result = error
                try:
                    core.__import__("name")
                except Exception:
                    kind, value, traceback = sys.exc_info()
                    self.assert_is(value, error)
                    self.assert_is(kind, type(error))
                    while traceback.tb_next is not None:
                        traceback = traceback.tb_next
                    self.assertEqual(traceback.tb_frame.f_code.co_name, "default_import")
                else:
                    self.fail("nothing raised")
        self.in_both_states(test)

    def test_interpreters_own_errors_come_through(self):
        self.start()
        for arguments, keywords in (((), {}), ((1,), {}), (("",), {}), (("sys",), {"x": 1}),
                                    (("sys", 1, 2, 3, "level"), {})):
            for function in (harness.INTERPRETERS_IMPORT, core.__import__):
                try:
                    function(*arguments, **keywords)
                except (TypeError, ValueError):
                    self.calls.append((type(sys.exc_info()[1]), str(sys.exc_info()[1])))
                else:
                    self.fail("nothing raised")
            self.assertEqual(self.calls[-1], self.calls[-2])

    def test_default_import_that_is_replaced_while_it_runs_is_not_lost(self):
        case = self

        class Once(object):
            def __call__(self, *arguments):
                case.server.init()
                return harness.INTERPRETERS_IMPORT(*arguments)
        self.server.init(default_import=Once())
        import colorsys
        self.assert_is(sys.modules["colorsys"], colorsys)

    def test_errno_is_kept(self):
        location = getattr(ctypes.CDLL(None), "__errno_location")
        location.restype = ctypes.POINTER(ctypes.c_int)
        here = location()

        def spoil(*arguments):
            try:
                os.stat("/no such file")
            except OSError:
                self.calls.append(here[0])
            if arguments[:1] == ("fails",):
                raise ImportError
        self.server.init(default_import=spoil)
        core.start_trace()
        core.set_import_cb(spoil)
        # Calls that the interpreter makes by itself: nothing between them touches errno.
        core.add_to_tstate_tracing(1)
        set_errno = functools.partial(here.__setitem__, 0, 77)
        read = functools.partial(here.__getitem__, 0)
        steps = [set_errno, functools.partial(core.__import__, "colorsys"), read]
        kept = [step() for step in steps][-1]
        core.add_to_tstate_tracing(-1)
        self.assertEqual(kept, 77)
        self.assertEqual(len(self.calls), 2)
        self.assertEqual(set(self.calls), set([errno.ENOENT]))


class FailureTest(ImportTestCase):

    # The header of the printed exception is not written: the hook holds events back, the printing
    # does so once more, and at that depth nothing is written.
    FAILURE_LOG = [RETURNING_NULL, "\n"]

    def failure_log(self):
        return self.server.stream.among("EXCEPTION IN DEBUG TRACER:\n", *self.FAILURE_LOG)

    def test_failed_import_is_logged_while_tracing(self):
        self.start()
        self.assert_raises(ImportError, "No module named nowhere", __import__, "nowhere")
        self.assertEqual(self.failure_log(), self.FAILURE_LOG)
        self.assertEqual(self.told, [])

    def test_failed_import_is_not_logged_without_tracing(self):
        self.server.init()
        self.assert_raises(ImportError, "No module named nowhere", __import__, "nowhere")
        self.assertEqual(self.failure_log(), [])

    def test_failure_is_logged_once_for_each_import_that_it_passes(self):
        self.module("outer", "import inner\n")
        self.module("inner", "import nowhere\n")
        self.start()
        self.assert_raises(ImportError, "No module named nowhere", __import__, "outer")
        self.assertEqual(self.failure_log(), self.FAILURE_LOG * 3)

    def test_program_sees_the_same_traceback_as_without_the_hook(self):
        self.module("fails", "def f():\n    raise KeyError('in the module')\nf()\n")
        seen = []
        self.server.init()
        for tracing in (False, True):
            if tracing:
                core.start_trace()
                core.continue_run()
                core.set_import_cb(self.tell)
            try:
                import fails
            except KeyError, error:
                traceback, lines = sys.exc_info()[2], []
                while traceback is not None:
                    lines.append((traceback.tb_frame.f_code.co_name, traceback.tb_lineno))
                    traceback = traceback.tb_next
                seen.append((str(error), lines))
        self.assertEqual(len(seen), 2)
        self.assertEqual(seen[0], seen[1])
        self.assertEqual(seen[0][1][1:], [("<module>", 3), ("f", 2)])

    def test_failure_to_log_leaves_the_exception_alone(self):
        class Broken(harness.Stream):
            def write(self, text):
                raise IOError("full")
        self.start()
        self.server.stream = Broken()
        self.server.init()
        core.start_trace()
        self.assert_raises(ImportError, "No module named nowhere", __import__, "nowhere")

    def test_stderr_is_the_programs_again_after_the_log(self):
        before = sys.stderr
        self.start()
        self.assert_raises(ImportError, None, __import__, "nowhere")
        self.assert_is(sys.stderr, before)

    def test_import_that_is_optional_goes_on_with_its_other_way(self):
        self.start()
        variables = self.run_code("""\
try:
    import nowhere as found
except ImportError:
    import colorsys as found
""")
        self.assert_is(variables["found"], sys.modules["colorsys"])
        self.assertEqual(self.told, ["colorsys"])


class CountsTest(ImportTestCase):

    def counts(self):
        """The numbers that the end of tracing reports: imports, distinct files."""
        core.stop_trace()
        numbers = []
        for text in " IMPORT HOOK CALLS WERE MADE\n", " UNIQUE IMPORTS WERE MADE\n":
            last = [message for message in self.server.stream.messages[:]
                    if message.endswith(text)][-1]
            numbers.append(int(last[:-len(text)]))
        return tuple(numbers)

    def test_no_import_counts_nothing(self):
        self.server.init()
        self.assertEqual(self.counts(), (0, 0))

    def test_every_call_and_every_file_counts(self):
        self.module("one")
        self.module("two")
        self.server.init()
        import one
        import one, two
        __import__("two")
        self.assertEqual(self.counts(), (4, 2))

    def test_imports_count_while_tracing_too(self):
        self.module("one")
        self.module("two")
        self.server.init()
        import one
        core.start_trace()
        import one, two
        self.assertEqual(self.counts(), (3, 2))

    def test_failed_imports_count_as_calls(self):
        self.server.init()
        self.assert_raises(ImportError, None, __import__, "nowhere")
        self.assertEqual(self.counts(), (1, 0))

    def test_imports_that_a_module_makes_count(self):
        self.module("one", "import two\nimport two\n")
        self.module("two")
        self.server.init()
        import one
        self.assertEqual(self.counts(), (3, 2))

    def test_modules_without_a_file_count_as_calls(self):
        self.server.init()
        import __builtin__
        import sys
        self.assertEqual(self.counts(), (2, 0))

    def test_file_of_a_submodules_package_counts_as_it_is_what_was_returned(self):
        os.mkdir(os.path.join(self.folder, "pack"))
        self.module("pack/__init__")
        self.module("pack/one")
        self.module("pack/two")
        self.server.init()
        import pack.one
        import pack.two
        self.assertEqual(self.counts(), (2, 1))

    def test_two_modules_of_one_file_are_one(self):
        import imp
        modules = {}
        for name in ("first", "second"):
            modules[name] = imp.new_module(name)
            modules[name].__file__ = "/where/ever.py"
        self.server.init(default_import=lambda name, *rest: modules[name])
        core.__import__("first")
        core.__import__("second")
        self.assertEqual(self.counts(), (2, 1))

    def test_file_that_is_no_string_and_what_is_no_module_count_as_calls(self):
        import imp
        odd = imp.new_module("odd")
        odd.__file__ = 42
        results = [odd, 42, None, type("M", (object,), {"__file__": "/where/ever.py"})]
        self.server.init(default_import=lambda name, *rest: results[int(name)])
        for name in "0123":
            core.__import__(name)
        self.assertEqual(self.counts(), (4, 0))

    def test_init_counts_anew_and_reset_does_not(self):
        self.module("one")
        self.server.init()
        import one
        core.reset()
        self.assertEqual(self.counts(), (1, 1))
        self.server.init()
        self.assertEqual(self.counts(), (0, 0))


class LeakTest(ImportTestCase):

    def growth(self, work):
        """References that are there after many repetitions and were not before."""
        if not hasattr(sys, "gettotalrefcount"):
            self.skip("a release build does not count references")
        core.add_to_tstate_tracing(1)
        for _ in range(50):
            work()
        before = sys.gettotalrefcount()
        for _ in range(500):
            work()
        grown = sys.gettotalrefcount() - before
        core.add_to_tstate_tracing(-1)
        return grown

    def test_imports_leak_nothing(self):
        self.module("one")
        self.start(lambda module: None, debug_stream=None)
        self.assertEqual(self.growth(functools.partial(__import__, "one")) < 50, True)

    def test_failed_imports_leak_nothing(self):
        def fail():
            try:
                __import__("nowhere")
            except ImportError:
                pass
        self.start(lambda module: None, debug_stream=None)
        self.assertEqual(self.growth(fail) < 50, True)

    def test_failing_callbacks_leak_nothing(self):
        self.module("one")

        def raises(module):
            raise ValueError

        def fail():
            try:
                map(__import__, ["one"])
            except ValueError:
                pass
        self.start(raises, debug_stream=None)
        self.assertEqual(self.growth(fail) < 50, True)

    def test_registration_leaks_nothing(self):
        self.module("one", "def f(): pass\nclass C:\n    def m(self): pass\n")
        self.start(lambda module: None, debug_stream=None)
        import one
        self.assertEqual(self.growth(functools.partial(core.register_module, one)) < 50, True)
