"""What the trace function does with an event before and after its handler."""

import ctypes
import errno
import functools
import os
import re
import sys
import thread
import weakref

import harness
from harness import core

THREE_LINES = """\
x = 1
y = 2
z = 3
"""

CALL = """\
def f(n):
    m = n + 1
    return m

x = f(1)
y = 2
"""


class EventsTest(harness.CoreTestCase):
    """Events as the diagnostic output shows them."""

    def messages_of(self, source, prefix):
        path = self.script(source)
        self.server.init()
        self.server.run(path)
        return path, self.server.stream.starting(prefix)

    def test_line_events_are_logged_with_file_and_line(self):
        path, messages = self.messages_of(THREE_LINES, "in dispatch_line: file=")
        for line in (1, 2, 3):
            self.assert_in("in dispatch_line: file=%s, lineno=%d\n" % (path, line), messages)

    def test_call_events_are_logged_with_locals_globals_and_thread(self):
        path, messages = self.messages_of(CALL, "in call: ")
        # A function's local variables are in no dictionary yet.
        pattern = (r"in call: locals = 0x(\(nil\)|[0-9a-f]+), globals = 0x[0-9a-f]+, "
                   r"thread = %d\n$" % thread.get_ident())
        self.assertEqual(len(messages) >= 2, True)
        for message in messages:
            self.assert_is_not(re.match(pattern, message), None)

    def test_current_frame_is_known_while_stopped_only(self):
        seen = []
        mine = core.get_current_tstate_id()

        def look(frame):
            seen.append(core.get_curr_frame(mine) is frame)
            core.step_into()
        self.debug(CALL, *[look] * 6)
        self.assertEqual(seen, [True] * 6)
        core.start_trace()
        core.add_to_tstate_tracing(1)
        self.assertEqual(core.get_curr_frame(mine), None)
        core.add_to_tstate_tracing(-1)
        core.stop_trace()

    def test_program_runs_as_without_the_core(self):
        source = """\
import sys
out = []
def gen(n):
    try:
        for i in range(n):
            out.append((yield i))
    finally:
        out.append("closed")
g = gen(5)
out.append(g.next()); out.append(g.send("a"))
try:
    g.throw(KeyError("thrown"))
except KeyError:
    out.append(str(sys.exc_info()[1]))
def reraise():
    try:
        1 / 0
    except ZeroDivisionError:
        try:
            {}["missing"]
        except KeyError:
            out.append(sys.exc_info()[0])
        out.append(sys.exc_info()[0])
        raise
    finally:
        out.append(sys.exc_info()[0])
try:
    reraise()
except Exception:
    out.append(sys.exc_info()[0])
class Context(object):
    def __enter__(self):
        return self
    def __exit__(self, *args):
        out.append(args[0])
        return True
with Context():
    raise IndexError(1)
out.append(list(x for x in (y * 2 for y in range(3))))
out.append(sorted([3, 1, 2], key=lambda n: -n))
def deep(n):
    return n and deep(n - 1) + 1
out.append(deep(100))
exec "out.append(len(out))"
"""
        plain = {}
        exec compile(source, self.script(source), "exec") in plain
        self.server.requests = ["step_into"] * 10000
        self.server.init()
        debugged = self.server.run(self.script(source))
        self.assertEqual(debugged["out"], plain["out"])
        # deep() alone is a line and a return for each of its calls.
        self.assertEqual(len(self.server.stops) > 250, True)


class TraceDispatchTest(harness.CoreTestCase):
    """The trace function as Python code calls it."""

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        self.server.init()
        core.start_trace()
        # Only the calls below are events.
        core.add_to_tstate_tracing(1)
        self.server.stream.clear()

    def tearDown(self):
        core.add_to_tstate_tracing(-1)
        core.stop_trace()
        harness.CoreTestCase.tearDown(self)

    def dispatch(self, name, frame=None):
        self.assert_is(core.trace_dispatch(frame or sys._getframe(1), name, None),
                       core.trace_dispatch)

    def test_event_is_told_by_the_first_letter_of_its_name(self):
        for name, log in (("line", "in dispatch_line"), ("l", "in dispatch_line"),
                          ("lollipop", "in dispatch_line"), ("call", "in call"),
                          ("cat", "in call"), ("return", "Not stopping here because"),
                          ("rubbish", "Not stopping here because")):
            self.server.stream.clear()
            self.dispatch(name)
            self.assertEqual(len(self.server.stream.starting(log)), 1)

    def test_other_names_are_no_events(self):
        for name in ("", "x", "LINE", "Call", "opcode", " line"):
            self.dispatch(name)
        self.assertEqual(self.server.stream.messages, [])

    def test_exception_event_is_taken(self):
        exc_info = (ValueError, ValueError(1), None)
        self.assert_is(core.trace_dispatch(sys._getframe(), "exception", exc_info),
                       core.trace_dispatch)

    def test_what_is_no_frame_is_passed_by(self):
        core.step_into()
        for name in ("call", "line", "return"):
            for frame in (1, "frame", sys._getframe().f_code):
                self.dispatch(name, frame)
        self.assertEqual(self.server.stream.starting("in "), [])

    def test_stop_that_fails_still_answers_the_trace_function(self):
        def fail(frame):
            raise ValueError()
        self.server.program = sys._getframe().f_code.co_filename
        self.server.requests = [fail]
        core.step_into()
        self.dispatch("line")
        self.assert_logged("TRACER LINE STOPPED TRACER\n", 1)

    def test_planted_exception_comes_out_as_an_error(self):
        core.raise_exception(0, ValueError("planted"))
        self.assert_raises(ValueError, "planted", core.trace_dispatch, sys._getframe(), "line",
                           None)
        self.dispatch("line")

    def test_call_while_not_tracing_says_so(self):
        core.stop_trace()
        self.server.stream.clear()
        self.dispatch("line")
        self.assertEqual(self.server.stream.messages[0],
                         "trace_dispatch called while not tracing; thread = %d\n"
                         % thread.get_ident())
        self.assert_in("TRACER STOPPED WHILE WAITING FOR MUTEX\n", self.server.stream.messages)


class RecursionTest(harness.CoreTestCase):

    def test_event_inside_a_callback_is_dropped(self):
        answers = []

        def reenter(frame):
            answers.append(core.trace_dispatch(frame, "line", None))
            core.step_into()
        self.assertEqual(self.debug(THREE_LINES, reenter), ["line <module> 1", "line <module> 2"])
        self.assert_is(answers[0], core.trace_dispatch)
        self.assert_logged("recursive c_dispatch\n", 1)

    def test_program_code_that_a_callback_runs_is_not_stopped_in(self):
        def evaluate(frame):
            # As a debug server does that wants the trace function to see what it evaluates.
            core.step_into()
            core.add_to_tstate_tracing(-1)
            core.set_tstate_use_tracing(1)
            values.append(eval("f(10)", frame.f_globals, frame.f_locals))
            core.set_tstate_use_tracing(0)
            core.add_to_tstate_tracing(1)
            core.continue_run()
        values = []
        stops = self.debug(CALL, "step_over", "step_over", evaluate)
        self.assertEqual(stops, ["line <module> 1", "line <module> 5", "line <module> 6"])
        self.assertEqual(values, [11])
        # At least the call, its two lines and its return.
        if not self.quiet:
            self.assertEqual(self.server.stream.count("recursive c_dispatch\n") >= 4, True)

    def test_current_frame_survives_a_dropped_event(self):
        frames = []
        mine = core.get_current_tstate_id()

        def reenter(frame):
            core.trace_dispatch(sys._getframe(), "line", None)
            frames.append(core.get_curr_frame(mine) is frame)
        self.debug(THREE_LINES, reenter)
        self.assertEqual(frames, [True])


class FailingCallbacksTest(harness.CoreTestCase):
    """A callback that fails ends tracing of its thread; the program never sees the error.

    The programs import nothing: an import begins to trace its thread anew.
    """

    STATE = """\
def f():
    return sys.gettrace(), sys._getframe().f_trace, sys.exc_info()
before = sys.exc_info()
x = 1
after = f()
"""

    def fails(self, error, *requests):
        def fail(frame):
            raise error
        self.server.requests = list(requests) + [fail]
        self.server.init()
        variables = self.server.run(self.script(self.STATE), sys=sys)
        self.assertEqual(variables["after"], (None, None, (None, None, None)))
        return self.server.stops

    def test_failing_line_callback_ends_tracing_of_the_thread(self):
        stops = self.fails(ValueError("server's own"), "step_over", "step_over")
        self.assertEqual(stops[-1], "line <module> 4")
        self.assert_logged("TRACER LINE STOPPED TRACER\n", 1)

    def test_failing_return_callback_ends_tracing_of_the_thread(self):
        source = CALL + "after = sys.gettrace()\n"
        self.server.requests = ["step_over", "step_into", "step_out", self.raising]
        self.server.init()
        variables = self.server.run(self.script(source), sys=sys)
        self.assertEqual(self.server.stops[2:], ["line f 2", "return f 3 -> 2"])
        self.assertEqual((variables["x"], variables["y"], variables["after"]), (2, 2, None))
        self.assert_logged("TRACER RETURN STOPPED TRACER\n", 1)

    def raising(self, frame):
        raise ValueError("server's own")

    def test_exit_and_interrupt_are_failures_like_any_other(self):
        self.fails(SystemExit(3), "step_over")
        self.assert_logged("TRACER LINE STOPPED TRACER\n", 1)
        del self.server.stops[:]
        self.fails(KeyboardInterrupt(), "step_over")
        self.assert_logged("TRACER LINE STOPPED TRACER\n", 2)

    def test_callback_that_takes_other_arguments_fails(self):
        self.server.init(line_cb=lambda: None)
        variables = self.server.run(self.script(self.STATE), sys=sys)
        self.assertEqual(variables["after"][0], None)
        self.assert_logged("TRACER LINE STOPPED TRACER\n", 1)

    def test_failing_callback_lets_an_exception_of_the_program_go_on(self):
        source = """\
def f():
    raise KeyError("the program's")
try:
    f()
except KeyError as error:
    caught = str(error)
"""
        # Stopped at the return that the exception causes.
        requests = ["step_over", "step_over", "step_into", "step_into", self.raising]
        self.server.requests = requests
        self.server.init()
        variables = self.server.run(self.script(source))
        self.assertEqual(self.server.stops[-1], "return f 2 -> None")
        self.assertEqual(variables["caught"], "\"the program's\"")
        self.assert_logged("TRACER RETURN STOPPED TRACER\n", 1)

    def test_error_of_a_callback_is_written_nowhere(self):
        # The header that announces an error is for errors outside of events.
        self.fails(ValueError("server's own"), "step_over")
        self.assert_logged("EXCEPTION IN DEBUG TRACER:\n", 0)

    def test_result_of_a_callback_is_ignored(self):
        def line_cb(frame, changed_bps):
            self.server.line(frame, changed_bps)
            return -1
        self.server.requests = ["step_over"] * 3
        self.server.init(line_cb=line_cb)
        self.server.run(self.script(THREE_LINES))
        self.assertEqual(self.server.stops, ["line <module> 1", "line <module> 2",
                                             "line <module> 3", "return <module> 3 -> None"])


class ProgramStateTest(harness.CoreTestCase):
    """The program's own errno and exceptions are as if nobody had looked."""

    ERRNO = """\
set_errno(77)
x = 1
def f():
    return 1
y = f()
z = errno_now()
"""

    def debug_errno(self, *requests, **init_changes):
        location = getattr(ctypes.CDLL(None), "__errno_location")
        location.restype = ctypes.POINTER(ctypes.c_int)
        here = location()
        seen = []

        def spoil(*arguments):
            try:
                os.stat("/no such file")
            except OSError as error:
                self.assertEqual(error.errno, errno.ENOENT)
            seen.append(here[0])
        self.spoil = spoil
        self.seen = seen
        self.server.init(idle_cb=spoil, **init_changes)
        # Setting and reading are calls of built-in functions: no events of their own.
        variables = self.server.run(
            self.script(self.ERRNO), set_errno=functools.partial(here.__setitem__, 0),
            errno_now=functools.partial(here.__getitem__, 0))
        return variables["z"]

    def test_errno_is_kept_over_stops(self):
        def spoil(frame):
            self.spoil()
            core.step_into()
        self.server.requests = [spoil] * 20
        self.assertEqual(self.debug_errno(), 77)
        self.assertEqual(len(self.server.stops), 8)
        self.assertEqual(set(self.seen), set([errno.ENOENT]))

    def test_errno_is_kept_over_diagnostic_output(self):
        case = self

        class Spoiling(harness.Stream):
            def write(self, text):
                case.spoil()
        self.server.stream = Spoiling()
        self.assertEqual(self.debug_errno(), 77)
        self.assertEqual(len(self.seen) > 10, True)

    def test_errno_is_kept_over_the_idle_callback(self):
        self.ERRNO = self.ERRNO.replace("x = 1\n", "x = 1\n" * 20)
        self.assertEqual(self.debug_errno(idle_period=0.01), 77)
        self.assertEqual(len(self.seen) >= 1, True)

    def test_errno_is_kept_over_the_thread_policy_callback(self):
        def policy(ident):
            self.spoil()
            return 1

        def forget(frame):
            core.set_debug_thread_cb(policy)
            core.step_over()
        self.server.requests = ["step_over", forget]
        self.assertEqual(self.debug_errno(), 77)
        self.assertEqual(len(self.seen), 1)

    def test_errno_is_kept_over_classes_that_say_what_their_subclasses_are(self):
        class Asked(type):
            def __subclasscheck__(cls, subclass):
                self.spoil()
                return False
        self.ERRNO = """\
def f():
    set_errno(77)
    raise ValueError
try:
    f()
except:
    z = errno_now()
"""
        self.server.requests = ["continue_run"]

        def set_types(on):
            core.set_always_stop_excepts((Asked("Always", (Exception,), {}),))
        self.assertEqual(self.debug_errno(install_thread_hooks_cb=set_types), 77)
        self.assertEqual(set(self.seen), set([errno.ENOENT]))

    def test_exception_that_is_being_handled_is_the_same_after_a_stop(self):
        source = """\
import sys
try:
    1 / 0
except ZeroDivisionError:
    first = sys.exc_info()
    second = sys.exc_info()
third = sys.exc_info()
"""
        def raise_and_catch(frame):
            try:
                raise KeyError("server's own")
            except KeyError:
                pass
            core.step_into()
        self.server.requests = [raise_and_catch] * 20
        self.server.init()
        variables = self.server.run(self.script(source))
        self.assertEqual(variables["first"], variables["second"])
        self.assert_is(variables["first"][0], ZeroDivisionError)
        self.assert_is(variables["third"][2], variables["first"][2])

    def test_exception_that_passes_a_finally_block_is_the_same_after_its_stops(self):
        source = """\
ran = []
def f():
    try:
        raise ValueError("passing")
    finally:
        ran.append(1)
        ran.append(2)
try:
    f()
except ValueError as error:
    text = str(error)
"""
        self.server.requests = ["step_into"] * 30
        self.server.init()
        variables = self.server.run(self.script(source))
        self.assertEqual((variables["ran"], variables["text"]), ([1, 2], "passing"))
        self.assert_in("line f 7", self.server.stops)

    def test_end_of_a_generator_ends_its_loop_after_stops(self):
        source = """\
def numbers():
    yield 1
    yield 2
got = []
for n in numbers():
    got.append(n)
try:
    numbers().throw(StopIteration)
except StopIteration:
    got.append("stopped")
"""
        self.server.requests = ["step_into"] * 30
        self.server.init()
        self.assertEqual(self.server.run(self.script(source))["got"], [1, 2, "stopped"])

    def test_local_variables_that_a_callback_looks_at_stay(self):
        seen = []

        def look(frame):
            seen.append(sorted(frame.f_locals.items()))
            core.step_into()
        self.server.requests = ["step_over", "step_into", look, look]
        self.server.init()
        self.assertEqual(self.server.run(self.script(CALL))["x"], 2)
        self.assertEqual(seen, [[("n", 1)], [("m", 2), ("n", 1)]])


class PlantedExceptionTest(harness.CoreTestCase):
    """raise_exception() raises at the thread's next event, whatever it is."""

    def plant(self, *exceptions):
        def request(frame):
            for exception in exceptions:
                core.raise_exception(0, exception)
            core.continue_run()
        return request

    def run_with(self, source, *requests):
        self.server.requests = list(requests)
        self.server.init()
        return self.server.run(self.script(source))

    LINES = """\
reached = []
try:
    reached.append(3)
    reached.append(4)
except ValueError as error:
    reached.append(str(error))
"""

    def test_raised_at_a_line_event_before_the_line_runs(self):
        variables = self.run_with(self.LINES, "step_over", "step_over",
                                  self.plant(ValueError("planted")))
        self.assertEqual(self.server.stops[-1], "line <module> 3")
        self.assertEqual(variables["reached"], [3, "planted"])

    def test_raised_at_a_call_event_before_the_body_runs(self):
        source = """\
reached = []
def f():
    reached.append("body")
try:
    f()
except ValueError as error:
    reached.append(str(error))
"""
        variables = self.run_with(source, "step_over", "step_over", "step_over",
                                  self.plant(ValueError("planted")))
        self.assertEqual(self.server.stops[-1], "line <module> 5")
        self.assertEqual(variables["reached"], ["planted"])

    def test_raised_at_a_return_event_in_place_of_the_result(self):
        source = """\
reached = []
def f():
    return "result"
try:
    reached.append(f())
except ValueError as error:
    reached.append(str(error))
"""
        variables = self.run_with(source, *(["step_into"] * 4 + [
            self.plant(ValueError("planted"))]))
        self.assertEqual(self.server.stops[-1], "line f 3")
        self.assertEqual(variables["reached"], ["planted"])

    def test_raised_at_an_exception_event_in_place_of_the_exception(self):
        source = """\
reached = []
try:
    1 / 0
except ZeroDivisionError:
    reached.append("the program's")
except ValueError as error:
    reached.append(str(error))
"""
        variables = self.run_with(source, "step_over", "step_over",
                                  self.plant(ValueError("planted")))
        self.assertEqual(self.server.stops[-1], "line <module> 3")
        self.assertEqual(variables["reached"], ["planted"])

    def test_none_takes_it_back(self):
        variables = self.run_with(self.LINES, "step_over", "step_over",
                                  self.plant(ValueError("planted"), None))
        self.assertEqual(variables["reached"], [3, 4])

    def test_taking_back_nothing_does_nothing(self):
        variables = self.run_with(self.LINES, "step_over", "step_over", self.plant(None, None))
        self.assertEqual(variables["reached"], [3, 4])

    def test_second_one_replaces_the_first(self):
        variables = self.run_with(self.LINES, "step_over", "step_over",
                                  self.plant(ValueError("first"), ValueError("second")))
        self.assertEqual(variables["reached"], [3, "second"])

    def test_raised_once(self):
        variables = self.run_with(self.LINES + "after = 1\n", "step_over", "step_over",
                                  self.plant(ValueError("first"), ValueError("second")))
        self.assertEqual(variables["after"], 1)

    def test_old_style_instances_and_classes_are_raised_as_the_raise_statement_does(self):
        class Old:
            pass
        old = Old()
        for exception, caught in ((old, Old), (Old, Old), (ValueError, ValueError),
                                  (KeyboardInterrupt(), KeyboardInterrupt)):
            self.server.init()
            core.raise_exception(0, exception)
            error = self.raise_planted(caught)
            self.assertEqual(error.__class__, caught)
            if exception is old:
                self.assert_is(error, old)

    def test_what_is_no_exception_is_refused_and_the_one_before_stays(self):
        self.server.init()
        core.raise_exception(0, ValueError("planted"))
        for refused in (5, "text", u"text", (ValueError,), object(), int, sys):
            self.assert_raises(
                TypeError, "exceptions must be old-style classes or derived from BaseException, "
                "not %s" % type(refused).__name__, core.raise_exception, 0, refused)
        self.assertEqual(str(self.raise_planted(ValueError)), "planted")

    def test_thread_id_is_not_used(self):
        def plant(frame):
            core.raise_exception(123456789, ValueError("planted"))
            core.continue_run()
        variables = self.run_with(self.LINES, "step_over", "step_over", plant)
        self.assertEqual(variables["reached"], [3, "planted"])

    def test_thread_id_that_drops_the_record_as_it_is_read(self):
        class Id(object):
            def __int__(self):
                core.thread_exiting()
                return 0

        def plant(frame):
            core.raise_exception(Id(), ValueError("planted"))
        variables = self.run_with(self.LINES, "step_over", "step_over", plant)
        self.assertEqual(variables["reached"], [3, "planted"])

    def test_stepping_goes_on_after_it(self):
        def plant(frame):
            core.raise_exception(0, ValueError("planted"))
            core.step_over()
        self.run_with(self.LINES, "step_over", "step_over", plant, "step_over")
        self.assertEqual(self.server.stops[3:], ["line <module> 5", "line <module> 6"])

    def test_raised_in_a_thread_that_the_policy_ignores(self):
        self.server.init()
        core.set_debug_thread_cb(lambda ident: 0)
        core.start_trace()
        caught = []
        try:
            core.raise_exception(0, ValueError("planted"))
            caught.append("not raised")
        except ValueError:
            caught.append("raised")
        core.stop_trace()
        self.assertEqual(caught, ["raised"])

    def test_raised_in_a_callback_that_lets_events_in(self):
        caught = []

        def evaluate(frame):
            core.raise_exception(0, ValueError("planted"))
            try:
                core.add_to_tstate_tracing(-1)
                caught.append("not raised")
            except ValueError:
                caught.append("raised")
            core.add_to_tstate_tracing(1)
            core.continue_run()
        variables = self.run_with(THREE_LINES, evaluate)
        self.assertEqual(caught, ["raised"])
        self.assertEqual(variables["z"], 3)

    def test_it_is_released_when_raised_and_when_taken_back(self):
        class Watched(ValueError):
            pass
        for take_back in (False, True):
            exception = Watched()
            reference = weakref.ref(exception)
            self.server.init()
            core.raise_exception(0, exception)
            del exception
            self.assert_is_not(reference(), None)
            if take_back:
                core.raise_exception(0, None)
            else:
                self.raise_planted(Watched)
            self.assert_is(reference(), None)

    def raise_planted(self, exception_class):
        try:
            core.trace_dispatch(sys._getframe(), "line", None)
        except exception_class as error:
            sys.exc_clear()
            return error
        self.fail("not raised")


class QuietRecursionTest(RecursionTest):
    quiet = True


class QuietFailingCallbacksTest(FailingCallbacksTest):
    quiet = True


class QuietPlantedExceptionTest(PlantedExceptionTest):
    quiet = True


class QuietProgramStateTest(ProgramStateTest):
    quiet = True

    def test_errno_is_kept_over_diagnostic_output(self):
        self.server.quiet = False
        ProgramStateTest.test_errno_is_kept_over_diagnostic_output(self)
