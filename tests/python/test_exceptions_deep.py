"""Exceptions of deep recursions: the room that the callback gets, and what they cost."""

import cStringIO
import sys
import time

from exception_case import (ALWAYS, NEVER, PRINTED, UNHANDLED, CatchInfo, ExceptionTestCase)
from harness import core

MESSAGE = "maximum recursion depth exceeded"

ENDLESS = """\
def f():
    f()
try:
    f()
except RuntimeError:
    pass
"""


class RecursionLimitTest(ExceptionTestCase):

    def setUp(self):
        ExceptionTestCase.setUp(self)
        self.limits = []
        # Written in C: it needs no level of its own.
        self.output = cStringIO.StringIO()
        self.restart()
        self.limit = 300
        sys.setrecursionlimit(self.limit)

    def restart(self, **changes):
        self.init(exception_cb=self.callback, debug_stream=self.output, **changes)

    def callback(self, frame, exc_info, changed_bps):
        self.limits.append(sys.getrecursionlimit())
        self.at_report(exc_info)

    def at_report(self, exc_info):
        pass

    def limits_inside(self, kind, value):
        """The limits that the callback sees for an exception like this."""
        del self.limits[:]
        core.set_exception_mode(ALWAYS)
        core.start_trace()
        core.continue_run()
        core.add_to_tstate_tracing(1)
        core.trace_dispatch(sys._getframe(), "exception", (kind, value, None))
        core.add_to_tstate_tracing(-1)
        core.stop_trace()
        return self.limits

    def test_callback_has_50_levels_more_when_the_limit_was_hit(self):
        self.run_program(ENDLESS, ALWAYS)
        self.assertEqual(self.limits[0], self.limit + 50)
        self.assertEqual(sys.getrecursionlimit(), self.limit)
        self.assertEqual(self.ended_by, "")

    def test_callback_can_use_them(self):
        def deep(n):
            return n and 1 + deep(n - 1)
        reached = []
        self.at_report = lambda exc_info: reached.append(deep(40))
        self.run_program(ENDLESS, ALWAYS)
        self.assertEqual(reached[0], 40)

    def test_every_frame_of_the_recursion_is_reported(self):
        self.run_program(ENDLESS, ALWAYS)
        self.assertEqual(len(self.limits) > self.limit - 20, True)
        self.assertEqual(set(self.limits), set([self.limit + 50]))

    def test_every_message_that_begins_so_counts(self):
        for message in (MESSAGE, MESSAGE + " in cmp", MESSAGE + "!"):
            self.assertEqual(self.limits_inside(RuntimeError, message), [self.limit + 50])
            self.assertEqual(sys.getrecursionlimit(), self.limit)

    def test_other_messages_do_not(self):
        for message in ("", "maximum recursion depth", "Maximum recursion depth exceeded",
                        " " + MESSAGE, unicode(MESSAGE), RuntimeError(MESSAGE), None, 7):
            self.assertEqual(self.limits_inside(RuntimeError, message), [self.limit])

    def test_subclasses_of_the_type_count_and_other_types_do_not(self):
        class Mine(RuntimeError):
            pass
        self.assertEqual(self.limits_inside(Mine, MESSAGE), [self.limit + 50])
        for kind in (ValueError, Exception, StandardError):
            self.assertEqual(self.limits_inside(kind, MESSAGE), [self.limit])

    def test_limit_is_back_when_the_callback_fails(self):
        def fail(exc_info):
            raise ValueError("of the server")
        self.at_report = fail
        self.run_program(ENDLESS, ALWAYS)
        self.assertEqual(self.limits, [self.limit + 50])
        self.assertEqual(sys.getrecursionlimit(), self.limit)

    def test_limit_is_back_when_the_callback_changed_it(self):
        self.at_report = lambda exc_info: sys.setrecursionlimit(1000)
        self.assertEqual(self.limits_inside(RuntimeError, MESSAGE), [self.limit + 50])
        self.assertEqual(sys.getrecursionlimit(), self.limit)

    def test_limit_is_back_when_the_callback_resets_the_core(self):
        self.at_report = lambda exc_info: core.reset()
        self.assertEqual(self.limits_inside(RuntimeError, MESSAGE), [self.limit + 50])
        self.assertEqual(sys.getrecursionlimit(), self.limit)

    def test_limit_is_as_it_was_where_nothing_is_reported(self):
        core.set_never_stop_excepts((RuntimeError,))
        self.run_program(ENDLESS, UNHANDLED)
        self.assertEqual(self.limits, [])
        self.assertEqual(sys.getrecursionlimit(), self.limit)

    def test_report_as_a_frame_is_left_has_the_room_too(self):
        core.set_exc_catch_info_list([CatchInfo("f", parent=True)])
        self.run_program(ENDLESS, PRINTED)
        self.assertEqual(len(self.limits) > self.limit - 20, True)
        self.assertEqual(self.limits[0], self.limit + 50)
        self.assertEqual(sys.getrecursionlimit(), self.limit)

    def test_program_handles_its_recursion_as_without_the_core(self):
        source = """\
out = []
def f(n):
    try:
        return f(n + 1)
    except RuntimeError, error:
        out.append(str(error)[:32])
        raise
try:
    f(0)
except RuntimeError:
    out.append("caught")
result.extend(out)
"""
        plain = []
        self.run_program(source, NEVER, result=plain)
        core.stop_trace()
        for mode in (ALWAYS, UNHANDLED, PRINTED):
            out = []
            self.run_program(source, mode, result=out)
            self.assertEqual(out, plain)
        self.assertEqual(plain[0], MESSAGE)
        self.assertEqual(plain[-1], "caught")


class AnalysisAtTheLimitTest(ExceptionTestCase):
    """The policy's own questions need no level that is not there."""

    def stops_at_the_limit(self, mode, clause="RuntimeError"):
        # cStringIO's file is written in C: logging works at the limit.
        output = cStringIO.StringIO()
        self.init(debug_stream=output)
        sys.setrecursionlimit(300)
        return self.run_program(ENDLESS.replace("RuntimeError", clause), mode), output.getvalue()

    def test_recursion_error_that_is_caught_is_told_so(self):
        stops, log = self.stops_at_the_limit(UNHANDLED)
        self.assertEqual(stops, [])
        self.assert_not_in("  unhandled\n", log)

    def test_recursion_error_that_is_not_caught_is_reported_at_the_limit(self):
        stops, log = self.stops_at_the_limit(UNHANDLED, "ValueError")
        self.assertEqual(stops[0], "RuntimeError in f:2")
        self.assertEqual(len(stops) > 280, True)
        self.assertEqual(self.ended_by.startswith("RuntimeError: " + MESSAGE), True)

    def test_never_stop_types_match_at_the_limit(self):
        output = cStringIO.StringIO()
        self.init(debug_stream=output)
        core.set_never_stop_excepts((ValueError, StandardError))
        sys.setrecursionlimit(300)
        self.assertEqual(self.run_program(ENDLESS, UNHANDLED), [])
        log = output.getvalue()
        self.assertEqual(log.count("  never stop\n"), log.count("---EXCEPTION---\n"))


class CostTest(ExceptionTestCase):
    """What an event costs may grow with the frames that are there, but not with their square.

    Each time is the least of a few and the limits are wide, so that a busy machine does not
    matter.
    """

    def setUp(self):
        ExceptionTestCase.setUp(self)
        self.init(debug_stream=None, exception_cb=lambda *arguments: None)
        sys.setrecursionlimit(3000)

    def seconds(self, source, mode, **variables):
        """The processor time between two calls of mark() in a program."""
        least = None
        for i in range(3):
            marks = []
            self.run_program(source, mode, mark=lambda: marks.append(time.clock()), **variables)
            self.assertEqual((self.ended_by, len(marks)), ("", 2))
            taken = marks[1] - marks[0]
            if least is None or taken < least:
                least = taken
        return least

    def grows(self, source, mode, small, large):
        """How much longer the program takes for each of its frames when it has more of them."""
        times = [self.seconds(source, mode, n=n) / n for n in (small, large)]
        sys.stdout.write("%.1f and %.1f us for each of %d and %d frames\n"
                         % (times[0] * 1e6, times[1] * 1e6, small, large))
        return times[1] / times[0]

    PROPAGATE = """\
def f(n):
    if n:
        f(n - 1)
    raise ValueError(n)
def run():
    try:
        f(n)
    except ValueError:
        pass
mark()
for i in range(20):
    run()
mark()
"""

    def test_exception_that_passes_many_frames(self):
        for mode in (NEVER, PRINTED):
            self.assertEqual(self.grows(self.PROPAGATE, mode, 90, 900) < 30, True)

    def test_exception_that_passes_many_frames_and_is_asked_about_in_each(self):
        # Each event asks all callers.
        self.assertEqual(self.grows(self.PROPAGATE, UNHANDLED, 90, 900) < 60, True)

    CATCH_AT_EACH_LEVEL = """\
def f(n):
    try:
        raise ValueError(n)
    except ValueError:
        if n:
            f(n - 1)
mark()
f(n)
mark()
"""

    def test_recursion_that_catches_at_each_level(self):
        for mode in (NEVER, UNHANDLED):
            self.assertEqual(self.grows(self.CATCH_AT_EACH_LEVEL, mode, 90, 900) < 60, True)

    RETURNS_BELOW = """\
def g():
    return 1
def f(n):
    try:
        raise ValueError(n)
    except ValueError:
        for i in xrange(n):
            g()
mark()
f(n)
mark()
"""

    def test_returns_while_a_caller_has_a_recorded_exception(self):
        for mode in (NEVER, UNHANDLED):
            self.assertEqual(self.grows(self.RETURNS_BELOW, mode, 500, 10000) < 12, True)
