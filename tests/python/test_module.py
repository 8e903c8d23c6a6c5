"""The module as it is imported: its functions, their order, docstrings and argument errors."""

import ctypes
import sys

import harness
from harness import core
from method_table import FUNCTIONS


class ModuleTest(harness.TestCase):

    def test_importing_twice_gives_the_first_module_object(self):
        again = __import__("tmorvik26_vs2012_x64")
        self.assert_is(again, core)
        self.assert_is(sys.modules["tmorvik26_vs2012_x64"], core)

    def test_module_is_named_by_its_import_name_and_has_no_docstring(self):
        self.assertEqual(core.__name__, "tmorvik26_vs2012_x64")
        self.assertEqual(core.__doc__, None)

    def test_module_holds_exactly_the_71_functions(self):
        names = [name for name in vars(core) if callable(getattr(core, name))]
        self.assertEqual(len(FUNCTIONS), 71)
        self.assertEqual(sorted(names), sorted([name for name, doc in FUNCTIONS]))

    def test_functions_stand_in_the_order_of_the_table(self):
        # A built-in function object begins with the address of its row.
        def row(name):
            function = getattr(core, name)
            return ctypes.c_void_p.from_address(id(function) + object.__basicsize__).value
        names = [name for name, doc in FUNCTIONS]
        self.assertEqual(sorted(names, key=row), names)

    def test_docstrings(self):
        for name, doc in FUNCTIONS:
            function = getattr(core, name)
            self.assertEqual(function.__name__, name)
            self.assertEqual(function.__doc__, doc)

    def test_is_internal_frame_carries_the_docstring_of_another_function(self):
        self.assertEqual(core.is_internal_frame.__doc__,
                         core.get_thread_ident_for_tstate_id.__doc__)

    def test_only_the_import_function_accepts_keyword_arguments(self):
        for name, doc in FUNCTIONS:
            if name == "__import__":
                continue
            self.assert_raises(TypeError, "%s() takes no keyword arguments" % name,
                               getattr(core, name), no_such_argument=1)
        try:
            getattr(core, "__import__")("sys", level=-1)
        except TypeError as error:
            self.fail(error)
        except Exception:
            pass

    def test_functions_belong_to_no_object(self):
        for name, doc in FUNCTIONS:
            self.assertEqual(getattr(core, name).__self__, None)


class ArgumentErrorsTest(harness.CoreTestCase):
    """The interpreter's argument errors carry the names users know."""

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        self.server.init()

    def refuses(self, message, name, *arguments):
        self.assert_raises(TypeError, message, getattr(core, name), *arguments)

    def test_functions_without_arguments_refuse_one(self):
        for name, shown in (("stop_trace", "tracer_stop_trace"),
                            ("get_tracing", "get_tracing"),
                            ("get_tstate_tracing", "get_tstate_tracing"),
                            ("get_tstate_use_tracing", "get_tstate_use_tracing"),
                            ("acquire_sorrel_mutex", "acquire_sorrel_mutex"),
                            ("release_sorrel_mutex", "release_sorrel_mutex"),
                            ("get_current_tstate_id", "get_current_tstate_id")):
            self.refuses("%s() takes exactly 0 arguments (1 given)" % shown, name, 1)

    def test_functions_that_do_not_look_ignore_any_arguments(self):
        for name in ("reset", "destroy", "start_trace", "step_into", "step_over",
                     "step_over_line", "step_out", "continue_run", "stop", "thread_exiting"):
            self.assertEqual(getattr(core, name)(1, "two", None), None)
        core.stop_trace()
        self.assertEqual(core.get_threads(1), [core.get_current_tstate_id()])

    def test_missing_argument_names_the_function(self):
        for name, shown in (("set_autoquit", "set_autoquit"),
                            ("set_idle_period", "tracer_set_idle_period"),
                            ("set_debug_all_threads", "set_debug_all_threads"),
                            ("set_debug_thread_cb", "set_debug_thread_cb"),
                            ("add_to_tstate_tracing", "add_to_tstate_tracing"),
                            ("set_tstate_use_tracing", "set_tstate_use_tracing"),
                            ("locals_to_fast", "locals_to_fast"),
                            ("get_frame_file", "get_frame_file"),
                            ("get_thread_ident_for_tstate_id", "get_thread_ident_for_tstate_id"),
                            ("is_internal_frame", "is_internal_frame")):
            self.refuses("%s() takes exactly 1 argument (0 given)" % shown, name)
        self.refuses("raise_exception() takes exactly 2 arguments (1 given)",
                     "raise_exception", 1)
        self.refuses("trace_dispatch() takes exactly 3 arguments (0 given)", "trace_dispatch")

    def test_step_over_line_range_errors_name_no_function(self):
        self.refuses("function takes exactly 2 arguments (1 given)", "step_over_line_range", 1)
        self.refuses("an integer is required", "step_over_line_range", 1, "2")

    def test_init_names_itself_tracer_init(self):
        self.refuses("tracer_init() takes exactly 12 arguments (0 given)", "init")
        self.refuses("tracer_init() takes exactly 12 arguments (13 given)", "init",
                     *(self.server.init_arguments() + [1]))

    def test_numbers_must_be_numbers(self):
        self.refuses("a float is required", "set_idle_period", "1")
        for name in ("set_autoquit", "set_debug_all_threads", "add_to_tstate_tracing",
                     "set_tstate_use_tracing"):
            self.refuses("an integer is required", name, "1")
        self.refuses("an integer is required", "raise_exception", "1", None)

    def test_frames_must_be_frames(self):
        for name in ("locals_to_fast", "get_frame_file", "is_internal_frame"):
            self.refuses("%s() argument 1 must be frame, not int" % name, name, 1)

    def test_functions_that_take_items_straight_miss_them_by_index(self):
        for name in ("get_curr_frame", "get_thread_name", "is_botframe"):
            self.assert_raises(IndexError, None, getattr(core, name))


class BeforeInitTest(harness.TestCase):
    """What needs the core says so until it is there."""

    def test_functions_that_need_the_core_refuse(self):
        for name in ("reset", "destroy", "start_trace", "stop_trace", "step_into", "step_over",
                     "step_over_line", "step_out", "continue_run", "stop",
                     "bootstrap_new_thread", "trace_dispatch"):
            self.assert_raises(RuntimeError, "init must be called first", getattr(core, name))
        self.assert_raises(RuntimeError, "init must be called first",
                           core.step_over_line_range, 1, 2)
        self.assert_raises(RuntimeError, "init must be called first",
                           core.raise_exception, 1, ValueError())

    def test_no_thread_is_known(self):
        self.assertEqual(core.get_threads(), [])
        self.assertEqual(core.get_tracing(), 0)
        identity = core.get_current_tstate_id()
        self.assertEqual(core.get_thread_ident_for_tstate_id(identity), None)
        self.assertEqual(core.get_thread_name(identity), None)
        self.assertEqual(core.is_botframe(sys._getframe()), 0)
        self.assert_raises(IndexError, "get_curr_frame called for unknown or terminated thread",
                           core.get_curr_frame, identity)

    def test_thread_exiting_does_nothing(self):
        self.assertEqual(core.thread_exiting(), None)

    def test_tracing_is_untouched(self):
        self.assertEqual(sys.gettrace(), None)
