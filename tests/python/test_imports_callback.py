"""import_cb: when it is told of a module, and what it may do."""

import functools
import imp
import os
import sys
import thread
import threading
import weakref

import harness
from harness import core
from import_case import ImportTestCase

CALLBACK_ACTIVE = "Not stopping here because import callback is active\n"


class ToldTest(ImportTestCase):

    def test_told_of_the_module_that_the_import_returned(self):
        seen = []
        self.module("one")
        self.start(seen.append)
        import one
        self.assertEqual(len(seen), 1)
        self.assert_is(seen[0], one)

    def test_told_of_the_package_when_a_submodule_is_imported(self):
        os.mkdir(os.path.join(self.folder, "pack"))
        self.module("pack/__init__")
        self.module("pack/one")
        self.start()
        import pack.one
        from pack import one
        from pack.one import x
        # What has a list of names to fetch gets the submodule.
        self.assertEqual(self.told, ["pack", "pack", "pack.one"])

    def test_told_of_every_import_of_the_same_module(self):
        self.module("one")
        self.start()
        import one
        import one
        __import__("one")
        self.assertEqual(self.told, ["one"] * 3)

    def test_told_of_the_inner_module_first(self):
        self.module("outer", "import inner\n")
        self.module("inner")
        self.start()
        import outer
        self.assertEqual(self.told, ["inner", "outer"])

    def test_told_once_the_module_has_run(self):
        self.module("one", "x = 1\ny = 2\n")
        seen = []
        self.start(lambda module: seen.append(module.y))
        import one
        self.assertEqual(seen, [2])

    def test_told_of_whatever_default_import_returned(self):
        results = [1, None, "text", object()]
        told = []
        self.start(told.append, default_import=lambda name, *rest: results[int(name)])
        for name in "0123":
            core.__import__(name)
        self.assertEqual(told, results)

    def test_not_told_without_tracing(self):
        self.module("one")
        self.server.init(import_cb=self.tell)
        import one
        self.assertEqual(self.told, [])

    def test_not_told_when_the_module_turned_tracing_off(self):
        self.module("one", "import tmorvik26_vs2012_x64 as core\ncore.stop_trace()\n")
        self.start()
        import one
        self.assertEqual(self.told, ["tmorvik26_vs2012_x64"])

    def test_not_told_when_the_module_turned_tracing_on(self):
        self.module("one", "import tmorvik26_vs2012_x64 as core\ncore.start_trace()\n"
                           "core.set_import_cb(tell)\n")
        import __builtin__
        __builtin__.tell = self.tell
        self.server.init()
        import one
        self.assertEqual(self.told, [])

    def test_not_told_of_a_failed_import(self):
        self.start()
        self.assert_raises(ImportError, None, __import__, "nowhere")
        self.assertEqual(self.told, [])

    def test_none_is_not_told(self):
        self.start()
        core.set_import_cb(None)
        import colorsys
        self.assert_is(sys.modules["colorsys"], colorsys)

    def test_callback_of_init_is_told(self):
        self.server.init(import_cb=self.tell)
        core.start_trace()
        del self.told[:]
        import colorsys
        self.assertEqual(self.told, ["colorsys"])

    def test_callback_can_be_replaced(self):
        second = []
        self.start()
        import colorsys
        core.set_import_cb(second.append)
        import colorsys
        self.assertEqual((self.told, second), (["colorsys"], [colorsys]))

    def test_replaced_callback_is_released(self):
        def callback(module):
            pass
        reference = weakref.ref(callback)
        self.server.init()
        core.set_import_cb(callback)
        del callback
        self.assert_is_not(reference(), None)
        core.set_import_cb(None)
        self.assert_is(reference(), None)

    def test_setting_it_returns_none_and_checks_nothing(self):
        self.server.init()
        self.assert_is(core.set_import_cb(42), None)
        self.assert_is(core.set_import_cb(None, "ignored"), None)

    def test_result_is_ignored(self):
        for result in (None, 0, 1, -1, "text", object()):
            self.start(lambda module: result)
            import colorsys
            self.assert_is(sys.modules["colorsys"], colorsys)


class EventsTest(ImportTestCase):
    """No step stops in what import_cb does."""

    def test_events_are_held_back_and_let_in_again(self):
        levels = []
        self.start(lambda module: levels.append(core.get_tstate_tracing()))
        before = core.get_tstate_tracing()
        import colorsys
        self.assertEqual(levels, [before + 1])
        self.assertEqual(core.get_tstate_tracing(), before)

    def test_events_are_let_in_again_after_a_failed_import(self):
        self.start()
        before = core.get_tstate_tracing()
        self.assert_raises(ImportError, None, __import__, "nowhere")
        self.assertEqual(core.get_tstate_tracing(), before)

    def test_stepping_goes_over_the_callback(self):
        path = self.script("x = 1\nimport colorsys\ny = 2\n")

        def callback(module):
            self.told.append(module.__name__)
            self.told.append("done")
        self.server.requests = ["step_into"] * 10
        self.server.init()
        self.server.program = path
        core.start_trace()
        core.set_import_cb(callback)
        core.step_into()
        exec compile(open(path).read(), path, "exec") in {}
        core.stop_trace()
        self.assertEqual(self.server.stops, [
            "line <module> 1", "line <module> 2", "line <module> 3", "return <module> 3 -> None"])
        self.assertEqual(self.told, ["colorsys", "done"])

    LET_IN = """\
def code(module):
    x = 1
    y = 2

def callback(module):
    core.add_to_tstate_tracing(-1)
    try:
        code(module)
    finally:
        core.add_to_tstate_tracing(1)

core.set_import_cb(callback)
import colorsys
x = 1
"""

    def test_callback_that_lets_events_in_is_not_stepped_into(self):
        stops = self.debug(self.LET_IN, *["step_into"] * 6)
        self.assertEqual(stops, ["line <module> 1", "line <module> 5", "line <module> 12",
                                 "line <module> 13", "line <module> 14",
                                 "return <module> 14 -> None"])
        self.assertEqual(self.server.stream.count(CALLBACK_ACTIVE) >= 4, True)

    def test_breakpoints_stop_in_a_callback_that_lets_events_in(self):
        path = self.script(self.LET_IN)
        self.server.init()
        core.set_break(path, 3, 1, 0, None, 0)
        self.server.requests = ["continue_run"] * 2
        self.server.run(path)
        self.assertEqual(self.server.stops, ["line <module> 1", "line code 3"])

    def test_breakpoints_set_in_the_callback_stop_in_the_module(self):
        path = self.module("one", "def f():\n    x = 1\n    return x\n")
        self.server.program = path
        self.server.requests = ["continue_run"]
        self.start(lambda module: core.set_break(path, 2, 1, 0, None, 0))
        import one
        one.f()
        self.assertEqual(self.server.stops, ["line f 2"])

    def test_step_requests_of_the_callback_hold_after_it(self):
        path = self.script("import colorsys\nx = 1\n")
        self.server.program = path
        self.server.requests = ["continue_run"]
        self.start(lambda module: core.stop())
        exec compile(open(path).read(), path, "exec") in {}
        core.stop_trace()
        self.assertEqual(self.server.stops, ["line <module> 2"])


class FreedomTest(ImportTestCase):
    """What import_cb may do, the program's import succeeds."""

    def import_with(self, callback, name="colorsys"):
        def told(module):
            self.told.append(module.__name__)
            callback(module)
        self.start(told)
        self.assert_is(__import__(name), sys.modules[name])

    def test_import_in_the_callback_is_not_told_of(self):
        self.module("inner", "import colorsys\n")

        def callback(module):
            __import__("inner")
        self.import_with(callback, "colorsys")
        self.assertEqual(self.told, ["colorsys"])
        self.assert_in("inner", sys.modules)

    def test_failed_import_in_the_callback_can_be_handled_there(self):
        def callback(module):
            self.assert_raises(ImportError, None, __import__, "nowhere")
        self.import_with(callback)
        self.assertEqual(self.told, ["colorsys"])

    def test_reload_in_the_callback(self):
        self.import_with(reload)
        self.assertEqual(self.told, ["colorsys"])

    def test_module_can_be_registered_in_the_callback_without_telling(self):
        files = []
        self.import_with(lambda module: files.append(core.register_module(module)))
        self.assertEqual(self.told, ["colorsys"])
        self.assertEqual([os.path.basename(name) for name in files], ["colorsys.py"])

    def test_tracing_can_be_stopped_in_the_callback(self):
        self.import_with(lambda module: core.stop_trace())
        import colorsys
        self.assertEqual(self.told, ["colorsys"])
        self.assert_is(sys.gettrace(), None)

    def test_tracing_can_be_started_anew_in_the_callback(self):
        def callback(module):
            core.stop_trace()
            core.start_trace()
        self.import_with(callback)
        self.assert_is(sys.gettrace(), core.trace_dispatch)

    def test_core_can_be_reset_in_the_callback(self):
        for operation in (core.reset, core.destroy):
            del self.told[:]
            self.import_with(lambda module: operation())
            self.assertEqual(self.told, ["colorsys"])
            self.assertEqual(core.get_threads(), [])

    def test_init_can_be_called_in_the_callback(self):
        self.import_with(lambda module: self.server.init())
        self.assertEqual(self.told, ["colorsys"])

    def test_new_imports_can_be_taken_in_the_callback(self):
        path, taken = self.module("one"), []
        self.import_with(lambda module: taken.append(core.get_new_imports()), "one")
        self.assertEqual(taken[0][-1:], [path])

    def test_callback_can_be_replaced_in_the_callback(self):
        self.import_with(lambda module: core.set_import_cb(None))
        import colorsys
        self.assertEqual(self.told, ["colorsys"])

    def test_callback_that_drops_its_own_last_reference_runs_to_its_end(self):
        class Callback(object):
            def __call__(callback, module):
                core.set_import_cb(None)
                self.told.append(module.__name__)
        callback = Callback()
        reference = weakref.ref(callback)
        self.start()
        core.set_import_cb(callback)
        del callback
        import colorsys
        self.assertEqual(self.told, ["colorsys"])
        self.assert_is(reference(), None)

    def test_module_can_be_forgotten_in_the_callback(self):
        self.start(lambda module: sys.modules.pop("colorsys", None))
        import colorsys
        self.assertEqual(colorsys.__name__, "colorsys")
        self.assert_not_in("colorsys", sys.modules)

    def test_threads_that_import_meanwhile_are_not_told_of(self):
        done = []

        def other():
            __import__("colorsys")
            done.append(1)

        def callback(module):
            # The import lock is free again by now.
            thread.start_new_thread(other, ())
            self.assertEqual(harness.wait_until(lambda: done), True)
        self.import_with(callback, "sndhdr")
        self.assertEqual(self.told, ["sndhdr"])
        core.set_import_cb(self.tell)
        import colorsys
        self.assertEqual(self.told, ["sndhdr", "colorsys"])


class FailureTest(ImportTestCase):
    """An error that import_cb leaves stays set beside the import's result."""

    def setUp(self):
        ImportTestCase.setUp(self)
        self.module("one")
        self.error = ValueError("import_cb")

    def fails(self, module):
        self.told.append(module.__name__)
        raise self.error

    def raised_by_map(self):
        """map() is one that looks for an error after it has called something."""
        return self.assert_raises(type(self.error), None, map, __import__, ["one"])

    def test_error_is_raised_where_the_interpreter_next_looks_for_one(self):
        self.start(self.fails)
        self.assert_is(self.raised_by_map(), self.error)
        self.assert_in("one", sys.modules)

    def test_program_goes_on_with_the_module_until_the_error_is_raised(self):
        self.start(self.fails)
        variables = self.run_code("""\
seen = []
try:
    import one
    seen.append("after the import")
    for i in range(3):
        pass
    seen.append("after the loop")
except ValueError, error:
    seen.append(str(error))
""")
        self.assertEqual(self.told, ["one"])
        # A loop looks when it ends.
        self.assertEqual(variables["seen"], ["after the import", "import_cb"])
        self.assertEqual(variables["i"], 2)
        self.assert_is(variables["one"], sys.modules["one"])

    def test_exception_of_the_programs_own_takes_the_place_of_the_error(self):
        self.start(self.fails)
        variables = self.run_code("""\
import one
try:
    raise KeyError("own")
except KeyError:
    pass
for i in range(3):
    pass
seen = "the end"
""")
        self.assertEqual(self.told, ["one"])
        self.assertEqual(variables["seen"], "the end")

    def test_look_up_that_finds_nothing_loses_the_error(self):
        self.start(self.fails)
        variables = self.run_code("""\
import one
seen = hasattr(one, "nothing"), getattr(one, "nothing", 3)
for i in range(3):
    pass
seen += ("the end",)
""")
        self.assertEqual(self.told, ["one"])
        self.assertEqual(variables["seen"], (False, 3, "the end"))

    def test_only_debug_hosts_look_after_a_print(self):
        self.start(self.fails)
        variables = self.run_code("""\
seen = []
try:
    import one
    print "goes on"
    seen.append("after the print")
except ValueError, error:
    seen.append(str(error))
""")
        is_debug = hasattr(sys, "gettotalrefcount")
        self.assertEqual(variables["seen"], [is_debug and "import_cb" or "after the print"])
        if not is_debug:
            self.raised_by_map()

    def test_exit_is_an_error_like_any_other(self):
        self.error = SystemExit(3)
        self.start(self.fails)
        try:
            map(__import__, ["one"])
        except SystemExit, error:
            self.assert_is(error, self.error)
        else:
            self.assertEqual("nothing", "raised")

    def test_callback_that_cannot_be_called_is_an_error(self):
        self.start(42)
        self.assert_raises(TypeError, "'int' object is not callable", map, __import__, ["one"])

    def test_callback_that_takes_other_arguments_is_an_error(self):
        self.start(lambda: None)
        self.assert_raises(TypeError, None, map, __import__, ["one"])

    def test_callback_is_told_again_after_it_failed(self):
        self.start(self.fails)
        for _ in range(3):
            self.raised_by_map()
        self.assertEqual(self.told, ["one"] * 3)

    def test_events_are_let_in_again_after_it_failed(self):
        self.start(self.fails)
        before = core.get_tstate_tracing()
        self.raised_by_map()
        self.assertEqual(core.get_tstate_tracing(), before)
        self.assert_is(sys.gettrace(), core.trace_dispatch)

    def test_breakpoints_of_the_module_hold_all_the_same(self):
        path = self.module("two", "def f():\n    return 1\n")
        self.server.program = path
        self.start(self.fails)
        core.set_break(path, 2, 1, 0, None, 0)
        self.assert_raises(ValueError, None, map, __import__, ["two"])
        sys.modules["two"].f()
        self.assertEqual(self.server.stops, ["line f 2"])


class ThreadsTest(ImportTestCase):
    """An import is often the first thing that a new thread does."""

    def setUp(self):
        ImportTestCase.setUp(self)
        self.done = []

    def import_in_a_bare_thread(self, name):
        self.assertEqual(harness.run_bare_thread(functools.partial(__import__, name)), True)

    def test_thread_that_imports_is_traced_from_then_on(self):
        path = self.module("one", "x = 1\ny = 2\n")
        self.server.program = path
        self.server.requests = ["continue_run"]
        self.start()
        core.set_break(path, 2, 1, 0, None, 0)
        self.import_in_a_bare_thread("one")
        self.assertEqual(self.server.stops, ["line <module> 2"])

    def test_frames_below_the_import_are_hooked(self):
        self.module("one")
        self.start()
        seen = []

        def look():
            seen.append(sys._getframe().f_trace)
            __import__("one")
            seen.append(sys._getframe().f_trace)
            seen.append(sys.gettrace())
        self.assertEqual(harness.run_bare_thread(look), True)
        self.assertEqual(seen, [None, core.trace_dispatch, core.trace_dispatch])

    def test_nothing_is_hooked_without_tracing(self):
        self.module("one")
        self.server.init()
        seen = []

        def look():
            __import__("one")
            seen.append(sys.gettrace())
        self.assertEqual(harness.run_bare_thread(look), True)
        self.assertEqual(seen, [None])
        self.assertEqual(core.get_threads(), [])

    def test_trace_that_the_program_took_away_is_set_again(self):
        path = self.script("""\
import sys
sys.settrace(None)
x = 1
import colorsys
y = 2
core.stop()
z = 3
""")
        self.server.requests = ["continue_run", "continue_run"]
        self.server.init()
        self.server.run(path)
        self.assertEqual(self.server.stops, ["line <module> 1", "line <module> 7"])

    def test_trace_that_the_program_took_away_is_set_again_each_time(self):
        seen = []
        self.start()
        for _ in range(3):
            sys.settrace(None)
            seen.append(sys.gettrace())
            import colorsys
            seen.append(sys.gettrace())
        self.assertEqual(seen, [None, core.trace_dispatch] * 3)

    def test_trace_function_of_the_programs_own_is_left_alone(self):
        def trace(frame, event, argument):
            pass
        self.start()
        sys.settrace(trace)
        import colorsys
        self.assert_is(sys.gettrace(), trace)
        sys.settrace(None)

    def test_import_while_another_thread_is_stopped_waits_for_it(self):
        path = self.module("one", "x = 1\ny = 2\n")
        program = self.script("x = 1\ny = 2\n")
        self.server.program = program
        order = []

        def importer():
            __import__("one")
            order.append("imported")
            self.done.append(1)

        def at_stop(frame):
            thread.start_new_thread(importer, ())
            # Time enough for the other thread to come to its first event, and to pass it if it could.
            harness.wait_until(lambda: "imported" in order, 0.3)
            order.append("resumed")
            core.continue_run()
        self.server.requests = [at_stop]
        self.start()
        core.stop()
        exec compile(open(program).read(), program, "exec") in {}
        self.assertEqual(harness.wait_until(lambda: self.done), True)
        self.assertEqual(order, ["resumed", "imported"])
        self.assert_in(path, core.get_new_imports())

    def test_import_passes_by_a_stopped_thread_when_one_at_a_time_is_debugged(self):
        self.module("one", "x = 1\ny = 2\n")
        program = self.script("x = 1\ny = 2\n")
        self.server.program = program

        def importer():
            __import__("one")
            self.done.append(1)

        def at_stop(frame):
            thread.start_new_thread(importer, ())
            self.told.append(harness.wait_until(lambda: self.done))
            core.continue_run()
        self.server.requests = [at_stop]
        self.start()
        core.set_debug_all_threads(0)
        core.stop()
        exec compile(open(program).read(), program, "exec") in {}
        self.assertEqual(self.told, ["one", True])

    def test_many_threads_import_at_once(self):
        names = ["module_%d" % i for i in range(20)]
        for name in names:
            self.module(name, "import colorsys, sndhdr\nx = 1\n")
        self.start()
        lines = [threading.Thread(target=__import__, args=(name,)) for name in names]
        for line in lines:
            line.start()
        for line in lines:
            line.join()
        self.assertEqual([name for name in names if name not in sys.modules], [])
        # While it is told in one thread it is told in no other.
        self.assertEqual(set(names).isdisjoint(self.told), False)


class SourceOfModulesTest(ImportTestCase):

    def test_module_that_is_no_file_is_told_of(self):
        class Finder(object):
            def find_module(self, name, path=None):
                return self if name == "made" else None

            def load_module(self, name):
                module = sys.modules.setdefault(name, imp.new_module(name))
                exec "x = 1" in module.__dict__
                return module
        sys.meta_path.append(Finder())
        self.start()
        import made
        self.assertEqual((made.x, self.told), (1, ["made"]))
