"""init(), reset() and destroy(): checks, order, defaults, what is kept and what is not."""

import os
import sys
import weakref

import harness
from harness import Server, Stream, core

PROGRAM = """\
x = 1
y = 2
"""

FLUSHING = """\
import os, sys
import harness
from harness import core

arguments = harness.Server().init_arguments()
if sys.argv[1:] == ["badly"]:
    arguments = []
sys.stdout.write("out")
before = os.fstat(1).st_size
try:
    core.init(*arguments)
except TypeError:
    pass
sys.stderr.write("%d %d\\n" % (before, os.fstat(1).st_size))
"""


# A module that is dropped is gone where nothing else holds it.
IMPORTED_AGAIN = """\
import gc, sys
saved = dict(sys.modules)
import tmorvik26_vs2012_x64
sys.modules.clear()
sys.modules.update(saved)
del tmorvik26_vs2012_x64
gc.collect()
others = [type(sys)("takes its place") for number in range(1000)]
import tmorvik26_vs2012_x64 as core
def nothing(*arguments):
    pass
def line(frame, changed_bps):
    stops.append((frame.f_code.co_name, frame.f_lineno))
    core.step_into()
stops = []
core.init(0.0, 0, nothing, nothing, line, nothing, nothing, nothing, None, __import__, None, {})
core.start_trace()
core.step_into()
nothing()
core.stop_trace()
assert ("nothing", 11) in stops, stops
"""


class Callable(object):
    """A callback whose end can be watched."""

    def __call__(self, *arguments):
        return None


class ImportedAgainTest(harness.TestCase):

    def test_init_works_through_a_module_that_was_dropped_and_imported_again(self):
        path = self.script(IMPORTED_AGAIN)
        self.assertEqual(harness.run_host(path), (0, ""))


class InitChecksTest(harness.CoreTestCase):

    def test_init_returns_none(self):
        self.assertEqual(core.init(*self.server.init_arguments()), None)

    def test_each_check_has_its_message(self):
        for name, message in (
                ("install_thread_hooks_cb", "install_thread_hooks_cb must be callable"),
                ("idle_cb", "idle_cb must be callable"),
                ("line_cb", "line_cb must be callable"),
                ("return_cb", "return_cb must be callable"),
                ("exception_cb", "exception_cb must be callable"),
                ("quit_cb", "quit_cb must be callable"),
                ("import_cb", "import_cb must be None or callable"),
                ("default_import", "default_import must be callable"),
                ("internal_modules_map", "internal_modules_map must be a dict")):
            self.assert_raises(TypeError, message, self.server.init, **{name: 0})

    def test_only_import_cb_may_be_none(self):
        self.server.init(import_cb=None)
        for name in ("install_thread_hooks_cb", "idle_cb", "line_cb", "return_cb", "exception_cb",
                     "quit_cb", "default_import", "internal_modules_map"):
            self.assert_raises(TypeError, None, self.server.init, **{name: None})

    def test_checks_run_in_the_order_of_the_arguments(self):
        order = ["install_thread_hooks_cb", "idle_cb", "line_cb", "return_cb", "exception_cb",
                 "quit_cb", "import_cb", "default_import", "internal_modules_map"]
        wrong = dict([(name, 0) for name in order])
        while order:
            name = order.pop(0)
            error = self.assert_raises(TypeError, None, self.server.init, **wrong)
            self.assertEqual(str(error).split()[0], name)
            del wrong[name]

    def test_first_failing_check_wins(self):
        self.assert_raises(TypeError, "idle_cb must be callable", self.server.init,
                           idle_cb=1, internal_modules_map=[])

    def test_subclass_of_dict_is_a_modules_map(self):
        class Map(dict):
            pass
        self.server.init(internal_modules_map=Map())

    def test_debug_stream_is_not_checked(self):
        for stream in (None, 1, object()):
            self.server.init(debug_stream=stream)

    def test_numbers_are_parsed_before_the_callbacks_are_checked(self):
        self.assert_raises(TypeError, "a float is required", self.server.init,
                           idle_period="often", idle_cb=1)
        self.assert_raises(TypeError, "an integer is required", self.server.init,
                           exception_mode="never", idle_cb=1)

    def test_module_without_trace_dispatch_is_refused(self):
        self.server.init()
        kept = core.trace_dispatch
        del core.trace_dispatch
        try:
            self.assert_raises(AttributeError,
                               "'module' object has no attribute 'trace_dispatch'",
                               harness.Server().init)
        finally:
            core.trace_dispatch = kept
        self.server.run(self.script(PROGRAM))
        self.assertEqual(self.server.stops, ["line <module> 1"])

    def test_refused_init_keeps_everything_as_it_was(self):
        self.server.init()
        other = Server()
        self.assert_raises(TypeError, None, other.init, internal_modules_map=0)
        self.server.requests = ["continue_run"]
        self.server.run(self.script(PROGRAM))
        self.assertEqual(self.server.stops, ["line <module> 1"])
        self.assertEqual(other.stops, [])
        self.assertEqual(other.stream.messages, [])
        self.assertEqual(other.hooks, [])

    def test_refused_first_init_leaves_the_core_uninitialised(self):
        self.assert_raises(TypeError, None, self.server.init, internal_modules_map=0)
        self.assert_raises(RuntimeError, "init must be called first", core.start_trace)
        self.assertEqual(self.server.stream.messages, [])


class InitTest(harness.CoreTestCase):

    def test_first_init_logs_from_the_moment_the_stream_is_set(self):
        self.server.init()
        messages = self.server.stream.messages
        self.assertEqual(messages[0], "INIT CORE\n")
        self.assertEqual(messages[-1], "DONE WITH INIT MORVIK\n")
        self.assertEqual(self.server.stream.count("STARTING MORVIK INIT\n"), 0)

    def test_second_init_announces_itself_on_the_earlier_stream(self):
        self.server.init()
        self.server.stream.clear()
        second = Stream()
        self.server.init(debug_stream=second)
        self.assertEqual(self.server.stream.messages, ["STARTING MORVIK INIT\n"])
        self.assertEqual(second.messages[0], "INIT CORE\n")

    def test_refused_init_still_announces_itself(self):
        self.server.init()
        self.server.stream.clear()
        self.assert_raises(TypeError, None, core.init)
        self.assertEqual(self.server.stream.messages, ["STARTING MORVIK INIT\n"])

    def test_no_stream_means_no_output(self):
        self.server.init()
        self.server.init(debug_stream=None)
        self.server.stream.clear()
        self.server.run(self.script(PROGRAM))
        self.assertEqual(self.server.stream.messages, [])

    def test_stream_is_flushed_after_each_message(self):
        self.server.init()
        self.assertEqual(self.server.stream.flushes, len(self.server.stream.messages))

    def test_buffered_standard_output_is_flushed(self):
        self.assertEqual(self.sizes_of_output(), "0 3\n")

    def test_buffered_standard_output_is_flushed_before_the_arguments_are_parsed(self):
        self.assertEqual(self.sizes_of_output("badly"), "0 3\n")

    def sizes_of_output(self, *arguments):
        """Sizes of standard output, a file and so buffered, before and after init()."""
        output = open(os.path.join(self.folder, "output"), "w")
        status, text = harness.run_host(self.script(FLUSHING), *arguments, stdout=output)
        self.assertEqual(status, 0)
        return text

    def test_tracing_is_off_after_init(self):
        self.server.init()
        self.assertEqual(sys.gettrace(), None)
        self.assertEqual(core.get_tracing(), 0)
        self.assertEqual(core.get_threads(), [])

    def test_init_while_tracing_turns_tracing_off(self):
        self.server.init()
        core.start_trace()
        self.server.init()
        # This thread's next event, that of the next line, removes the trace.
        self.assertEqual(sys.gettrace(), None)
        self.assertEqual(sys._getframe().f_trace, None)
        self.assertEqual(self.server.stream.count("TRACER STOPPED WHILE WAITING FOR MUTEX\n"), 1)

    def test_init_starts_the_counters_anew(self):
        self.server.init()
        self.server.run(self.script(PROGRAM))
        self.server.init()
        core.stop_trace()
        self.assert_in("STOP TRACE AFTER 0 INSTRUCTIONS\n", self.server.stream.messages)

    def test_later_init_brings_other_callbacks_into_force(self):
        self.server.init()
        other = Server(["step_over"])
        other.init()
        other.run(self.script(PROGRAM))
        self.assertEqual(other.stops, ["line <module> 1", "line <module> 2"])
        self.assertEqual(other.hooks, [1, 0])
        self.assertEqual(self.server.stops, [])
        self.assertEqual(self.server.hooks, [])

    def test_callbacks_of_an_earlier_init_stay_referenced(self):
        earlier = {}
        for name in ("install_thread_hooks_cb", "idle_cb", "line_cb", "return_cb", "exception_cb",
                     "quit_cb", "import_cb", "default_import"):
            earlier[name] = Callable()
        watched = [weakref.ref(callback) for callback in earlier.values()]
        self.server.init(**earlier)
        earlier.clear()
        self.server.init()
        for reference in watched:
            self.assert_is_not(reference(), None)

    def test_same_callbacks_given_again_are_referenced_once(self):
        arguments = self.server.init_arguments(import_cb=Callable())
        core.init(*arguments)
        before = [sys.getrefcount(argument) for argument in arguments[2:]]
        for _ in range(10):
            core.init(*arguments)
        after = [sys.getrefcount(argument) for argument in arguments[2:]]
        self.assertEqual(after, before)

    def test_earlier_stream_is_released(self):
        self.server.init()
        stream = Stream()
        watched = weakref.ref(stream)
        self.server.init(debug_stream=stream)
        del stream
        self.assert_is_not(watched(), None)
        self.server.init()
        self.assert_is(watched(), None)


class ResetTest(harness.CoreTestCase):

    def test_reset_logs_its_steps(self):
        self.server.init()
        core.start_trace()
        self.server.stream.clear()
        self.assertEqual(core.reset(), None)
        self.assertEqual(
            self.server.stream.among("RESET REACHED\n", "in __tracer_stop_trace()\n",
                                     "RESET THREAD TABLE\n", "DESTROY REACHED\n"),
            ["RESET REACHED\n", "in __tracer_stop_trace()\n", "RESET THREAD TABLE\n"])

    def test_destroy_logs_twice_and_resets(self):
        self.server.init()
        core.start_trace()
        self.server.stream.clear()
        self.assertEqual(core.destroy(), None)
        self.assertEqual(
            self.server.stream.among("DESTROY REACHED\n", "RESET REACHED\n",
                                     "in __tracer_stop_trace()\n", "RESET THREAD TABLE\n"),
            ["DESTROY REACHED\n", "DESTROY REACHED\n", "in __tracer_stop_trace()\n",
             "RESET THREAD TABLE\n"])
        self.assertEqual(core.get_threads(), [])
        self.assertEqual(sys.gettrace(), None)

    def test_reset_ends_tracing_and_forgets_the_threads(self):
        self.server.init()
        core.start_trace()
        self.assertEqual(core.get_tracing(), 1)
        core.reset()
        self.assertEqual(core.get_tracing(), 0)
        self.assertEqual(core.get_threads(), [])
        self.assertEqual(sys.gettrace(), None)
        self.assertEqual(sys._getframe().f_trace, None)

    def test_reset_calls_the_hooks_callback_with_0(self):
        self.server.init()
        core.reset()
        self.assertEqual(self.server.hooks, [0])

    def test_tracing_works_after_reset_without_another_init(self):
        self.server.init()
        self.server.run(self.script(PROGRAM))
        core.reset()
        del self.server.stops[:]
        self.server.requests = ["step_over", "step_over"]
        self.server.run(self.script(PROGRAM))
        self.assertEqual(self.server.stops, ["line <module> 1", "line <module> 2",
                                             "return <module> 2 -> None"])

    def test_tracing_works_after_destroy_without_another_init(self):
        self.server.init()
        core.destroy()
        self.server.run(self.script(PROGRAM))
        self.assertEqual(self.server.stops, ["line <module> 1"])

    def test_reset_while_stopped_ends_tracing_with_the_event(self):
        self.assertEqual(self.debug(PROGRAM, lambda frame: core.reset()), ["line <module> 1"])
        self.assertEqual(self.server.stream.count("RESET THREAD TABLE\n"), 1)
        # The stop itself was taken as handled.
        self.assertEqual(self.server.stream.count("TRACER LINE STOPPED TRACER\n"), 0)

    def test_reset_while_stopped_leaves_the_core_usable(self):
        self.debug(PROGRAM, lambda frame: core.reset())
        del self.server.stops[:]
        self.server.requests = ["step_over"]
        self.server.run(self.script(PROGRAM))
        self.assertEqual(self.server.stops, ["line <module> 1", "line <module> 2"])

    def test_reset_keeps_the_event_count(self):
        self.server.init()
        self.server.run(self.script(PROGRAM))
        core.reset()
        self.server.stream.clear()
        core.stop_trace()
        self.assert_not_in("STOP TRACE AFTER 0 INSTRUCTIONS\n", self.server.stream.messages)

    def test_reset_releases_the_thread_policy_callback(self):
        callback = Callable()
        watched = weakref.ref(callback)
        self.server.init()
        core.set_debug_thread_cb(callback)
        del callback
        self.assert_is_not(watched(), None)
        core.reset()
        self.assert_is(watched(), None)

    def test_reset_debugs_all_threads_again(self):
        self.server.init()
        core.set_debug_thread_cb(lambda ident: 0)
        core.reset()
        self.server.run(self.script(PROGRAM))
        self.assertEqual(self.server.stops, ["line <module> 1"])

    def test_reset_drops_a_planted_exception(self):
        self.server.init()
        core.raise_exception(0, ValueError("planted"))
        core.reset()
        self.server.run(self.script(PROGRAM))
        self.assertEqual(self.server.stops, ["line <module> 1"])

    def test_error_of_the_hooks_callback_comes_out_of_reset_and_destroy(self):
        def fail(on):
            raise ValueError("hooks %d" % on)
        self.server.init(install_thread_hooks_cb=fail)
        self.assert_raises(ValueError, "hooks 0", core.reset)
        self.assert_raises(ValueError, "hooks 0", core.destroy)
        # Everything was done all the same.
        self.assertEqual(self.server.stream.count("RESET THREAD TABLE\n"), 2)
        self.assertEqual(core.get_threads(), [])
