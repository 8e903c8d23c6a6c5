"""Threads have line events only where something may stop them; nobody sees a difference.

That what stops is the same is for tests/fuzz/stops.py, too.
"""

import cProfile
import os
import sys
import thread
import time

import _sorrel
import harness
from harness import core

ALWAYS = os.environ.get("MORVIK_ALWAYS_TRACE") == "1"


def is_at_rest(depth=0):
    """Whether the calling thread has no line events in its frame, so far out."""
    return sys._getframe(depth + 1).f_trace is None


def threads_of_process():
    return len(os.listdir("/proc/self/task"))


class TestCase(harness.CoreTestCase):

    quiet = True

    def debug(self, source, *requests, **how):
        """What the program notes by note(), besides its stops."""
        notes = []
        breaks = how.pop("breaks", ())
        variables = dict(how.pop("variables", {}), note=notes.append, is_at_rest=is_at_rest)
        self.server.requests = list(requests) or ["continue_run"]
        self.server.init(**how)
        path = self.script(source)
        for line in breaks:
            core.set_break(path, line, 1, 0, None, 0)
        self.server.run(path, **variables)
        return notes

    def late(self, seconds):
        """A list with something in it after so many seconds."""
        found = []

        def wait():
            time.sleep(seconds)
            found.append(1)
        thread.start_new_thread(wait, ())
        return found


class RestTest(TestCase):

    def test_nothing_of_it_is_to_be_seen(self):
        seen = self.debug("""\
import sys
def f():
    note((is_at_rest(), sys.gettrace() is core.trace_dispatch, sys.getprofile(),
          sys._getframe().f_lineno, sys._getframe(1).f_lineno))
f()
""")
        self.assertEqual(seen, [(not ALWAYS, True, None, 4, 5)])
        self.assertEqual((sys.gettrace(), sys.getprofile()), (None, None))

    def test_frames_with_a_breakpoint_have_their_events(self):
        notes = self.debug("""\
def hot(number):
    note(is_at_rest())
    if number < 0:
        return 0  # never
    return clean(number)
def clean(number):
    note(is_at_rest())
    return number
def elsewhere():
    hot(1)
    note(is_at_rest())
elsewhere()
""", breaks=[4])
        self.assertEqual(notes, [False, not ALWAYS, not ALWAYS])

    def test_who_leaves_such_a_frame_after_long_rests(self):
        seen = self.debug("""\
def hot(number):
    if number < 0:
        return 0  # never
    return abs(number)
def clean():
    note(is_at_rest())
for turn in range(2):
    for number in range(1000):
        hot(number)
    clean()
note(is_at_rest())
""", breaks=[3])
        self.assertEqual(seen, [not ALWAYS] * 3)

    def test_a_breakpoint_that_is_set_wakes_a_loop_without_calls(self):
        def set_break():
            time.sleep(0.2)
            core.set_break(self.server.program, 3, 1, 0, None, 0)
        thread.start_new_thread(set_break, ())
        self.debug("""\
x = 0
while not over:
    x += 1
""", "continue_run", lambda frame: (core.clear_all_breaks(), frame.f_globals['over'].append(1),
                                    core.continue_run()), variables={"over": []})
        self.assertEqual(self.server.stops, ["line <module> 1", "line <module> 3"])

    def test_others_wait_while_one_is_stopped(self):
        """Also those in loops without calls."""
        seen = []

        def look(frame):
            count = frame.f_globals["count"]
            # It may come to its next line first.
            time.sleep(0.1)
            seen.append(count[0])
            time.sleep(0.3)
            seen.append(count[0])
            frame.f_globals["over"].append(1)
            core.clear_all_breaks()
            core.continue_run()
        self.debug("""\
import threading, time
count, over = [0], []
def work():
    while not over:
        count[0] += 1
worker = threading.Thread(target=work)
worker.start()
time.sleep(0.2)
here = 1  # line 9
worker.join()
""", "continue_run", look, breaks=[9], install_thread_hooks_cb=harness.trace_new_threads)
        self.assertEqual(len(self.server.stops), 2)
        self.assertEqual(seen[0], seen[1])

    def test_idle_calls_in_a_loop_without_calls(self):
        calls = []
        self.debug("""\
while len(calls) < 3 and not late:
    pass
""", idle_period=1.0, idle_cb=lambda: calls.append(time.time()),
                   variables={"calls": calls, "late": self.late(10)})
        self.assertEqual(len(calls), 3)
        self.assertTrue(1.0 < calls[2] - calls[0] < 6.0, calls)

    def test_idle_calls_where_no_thread_was_ever_started(self):
        """The interpreter has no lock there that anybody could take."""
        status, errors = harness.run_host("-c", """\
import time
import harness
calls = []
server = harness.Server()
server.quiet = True
server.init(idle_period=1.0, idle_cb=lambda: calls.append(1))
core = harness.core
core.start_trace()
end = time.time() + 10
def work():
    while len(calls) < 3 and time.time() < end:
        for number in xrange(1000):
            pass
work()
core.stop_trace()
raise SystemExit(len(calls))
""")
        self.assertEqual((status, errors), (3, ""))

    def test_no_thread_is_left_behind(self):
        before = threads_of_process()
        for _ in range(3):
            self.debug("""\
import time
def f():
    note(1)
    f and time.sleep(0.01)
for _ in range(20):
    f()
""", idle_period=1.0)
            self.assertTrue(harness.wait_until(lambda: threads_of_process() == before))

    def test_a_forked_process_has_idle_calls(self):
        calls = []

        def fork():
            child = os.fork()
            if child:
                self.assertEqual(os.waitpid(child, 0)[1], 0)
            del calls[:]
            return not child
        end = time.time() + 10
        self.debug("""\
def wait():
    while len(calls) < 2 and clock() < end:
        for number in xrange(1000):
            pass
if fork():
    wait()
    leave(0 if len(calls) == 2 else 1)
""", idle_period=1.0, idle_cb=lambda: calls.append(1),
                   variables={"calls": calls, "fork": fork, "clock": time.time, "end": end,
                              "leave": os._exit})

    def test_switched_off_by_the_environment(self):
        saved = os.environ.get("MORVIK_ALWAYS_TRACE")
        os.environ["MORVIK_ALWAYS_TRACE"] = "1"
        try:
            self.assertEqual(self.debug("def f(): note(is_at_rest())\nf()\n"), [False])
        finally:
            del os.environ["MORVIK_ALWAYS_TRACE"]
            if saved is not None:
                os.environ["MORVIK_ALWAYS_TRACE"] = saved

    def test_tracing_that_begins_in_all_threads_while_all_rest(self):
        traced = []
        go_on = []

        def work():
            while not go_on:
                traced.append(sys.gettrace())
                del traced[:-1]
                time.sleep(0.001)
        thread.start_new_thread(work, ())

        def trace_all():
            # A call, so that the thread rests.
            _sorrel.trace_all_threads(lambda: None, core.trace_dispatch)
        self.debug("""\
def f():
    note(is_at_rest())
    trace_all()
f()
while traced[-1:] != [core.trace_dispatch]:
    pass
""", variables={"trace_all": trace_all, "traced": traced})
        go_on.append(1)
        self.assertEqual(sys.gettrace(), None)


class StepTest(TestCase):

    def test_what_is_stepped_over_rests(self):
        notes = self.debug("""\
def inner():
    note(is_at_rest())
def outer():
    inner()
    note(is_at_rest())
outer()
note(is_at_rest())
x = 1
""", *["step_over"] * 10)
        self.assertEqual(notes, [not ALWAYS, not ALWAYS, False])
        self.assertEqual(self.server.stops, [
            "line <module> 1", "line <module> 3", "line <module> 6", "line <module> 7",
            "line <module> 8", "return <module> 8 -> None"])

    def test_stepping_out_of_recursion(self):
        self.debug("""\
def f(n):
    if n:
        f(n - 1)
        return n
    here = 1
f(3)
""", "continue_run", *["step_out", "step_over"] * 4, **{"breaks": [5]})
        self.assertEqual(self.server.stops, [
            "line <module> 1", "line f 5", "return f 5 -> None", "line f 4", "return f 4 -> 1",
            "line f 4", "return f 4 -> 2", "line f 4", "return f 4 -> 3",
            "return <module> 6 -> None"])

    def test_a_request_from_within_the_program(self):
        self.debug("""\
def f():
    core.step_into()
    x = 1
    return x
f()
y = 1
""", "continue_run", "step_over", "continue_run")
        self.assertEqual(self.server.stops, ["line <module> 1", "line f 3", "line f 4"])

    def test_frames_know_their_lines_at_a_stop(self):
        lines = []

        def look(frame):
            while frame is not None and frame.f_code.co_filename == self.server.program:
                lines.append((frame.f_lineno, frame.f_trace is core.trace_dispatch))
                frame = frame.f_back
            core.continue_run()
        self.debug("""\
def f():
    here = 1
def g():
    yield f()
def h():
    for each in g():
        pass
h()
""", "continue_run", look, breaks=[2])
        self.assertEqual(lines, [(2, True), (4, True), (6, True), (8, True)])


class ExceptionTest(TestCase):

    def test_of_a_type_that_always_stops(self):
        stops = []

        def stop(frame, error, changed):
            stops.append((frame.f_code.co_name, frame.f_lineno, error[0].__name__))
            core.continue_run()
        source = """\
def handled():
    try:
        raise KeyError(1)
    except LookupError:
        pass
def unhandled():
    raise ValueError(1)
for _ in range(3):
    handled()
note(is_at_rest())
unhandled()
"""
        try:
            self.debug("core.set_always_stop_excepts((ValueError, KeyError))\n" + source,
                       exception_cb=stop)
        except ValueError:
            pass
        core.set_always_stop_excepts(())
        self.assertEqual(stops[:2], [("unhandled", 8, "ValueError"), ("<module>", 12, "ValueError")])

    def test_lines_that_the_program_sees(self):
        """Where exceptions have threads woken in the midst of a frame."""
        notes = self.debug("""\
import sys
def f(n):
    try:
        try:
            g(n)
        except KeyError:
            pass
        finally:
            note(sys._getframe().f_lineno)
    except ValueError:
        note((sys._getframe().f_lineno, sys.exc_info()[2].tb_lineno))
    note(sys._getframe().f_lineno)
def g(n):
    raise ValueError(n)
f(1)
f(2)
""", exception_mode=2)
        self.assertEqual(notes, [9, (11, 5), 12] * 2)


    def test_lines_past_a_clause_that_takes_something_else(self):
        """An instruction that no line is made of ends the clauses."""
        lines = []

        def look(frame):
            lines.append((frame.f_lineno, frame.f_back.f_lineno))
            core.continue_run()
        self.debug("""\
def g():
    try:
        yield 1
    finally:
        note('dropped')
def f():
    try:
        for each in g():
            try:
                raise KeyError
            except IndexError:
                note('taken')
    except KeyError:
        note(is_at_rest())
f()
""", "continue_run", look, breaks=[5], exception_mode=2)
        self.assertEqual(lines, [(5, 11)])


class ProfilerTest(TestCase):
    """Others' trace and profile functions."""

    def test_a_profile_function_of_the_program(self):
        events = []

        def profile(frame, event, argument):
            events.append((frame.f_code.co_name, event))

        def alone():
            sys.setprofile(profile)
            sys.setprofile(None)
        alone()
        expected = [event for name, event in events]
        del events[:]
        notes = self.debug("""\
import sys
def f():
    x = 1  # line 3
    return x
def g():
    sys.setprofile(profile)
    note(sys.getprofile() is profile)
    f()
    sys.setprofile(None)
    f()
g()
""", "continue_run", "step_over", "continue_run", breaks=[3], variables={"profile": profile})
        self.assertEqual(notes, [True])
        self.assertEqual(self.server.stops[1:], ["line f 3", "line f 4", "line f 3"])
        self.assert_in(("f", "call"), events)
        self.assert_in(("f", "return"), events)
        del events[:]
        self.debug("""\
import sys
def g():
    sys.setprofile(profile)
    sys.setprofile(None)
for _ in range(3):
    g()
""", variables={"profile": profile})
        self.assertEqual([event for name, event in events], expected * 3)

    def test_a_profiler_in_c(self):
        profiler = cProfile.Profile()
        self.debug("""\
def f():
    x = 1  # line 2
    return x
def g():
    profiler.enable()
    f()
    profiler.disable()
    f()
g()
""", breaks=[2], variables={"profiler": profiler})
        self.assertEqual(self.server.stops[1:], ["line f 2"] * 2)
        counts = dict((entry.code.co_name, entry.callcount) for entry in profiler.getstats()
                      if not isinstance(entry.code, str))
        self.assertEqual(counts.get("f"), 1)

    def test_one_that_nobody_has_seen_come(self):
        """Threads that rest have their events again, if not at once."""
        def profile(frame, event, argument):
            pass
        self.debug("""\
import sys, time
def f():
    x = 1  # line 3
def g():
    apply(sys.setprofile, (profile,))
    f()
    while not late and len(server.stops) < 2:
        f()
    sys.setprofile(None)
g()
""", breaks=[3], variables={"profile": profile, "late": self.late(10)}, idle_period=1.0)
        self.assertEqual(self.server.stops[1:2], ["line f 3"])

    def test_a_trace_function_of_the_program(self):
        lines = []

        def trace(frame, event, argument):
            if frame.f_code.co_filename == self.server.program:
                lines.append((event, frame.f_lineno))
            return trace
        notes = self.debug("""\
import sys
def f():
    return 1
def g():
    sys.settrace(trace)
    f()
    sys.settrace(None)
    note(sys.gettrace())
g()
""", variables={"trace": trace})
        self.assertEqual(notes, [None])
        self.assertEqual(lines, [("call", 2), ("line", 3), ("return", 3)])


class ReferencesTest(TestCase):

    def test_going_to_rest_and_back_keeps_none(self):
        source = """\
def clean(n):
    return n
def hot(n):
    if n < 0:
        return 0
    return clean(n)
def fails(n):
    try:
        raise KeyError(n)
    except KeyError:
        pass
def generate():
    yield 1
    yield 2
for n in range(200):
    hot(n)
    fails(n)
    list(generate())
"""
        counts = []
        for _ in range(6):
            self.debug(source, breaks=[5], exception_mode=2, idle_period=1.0)
            core.reset()
            counts.append(sys.getrefcount(core.trace_dispatch))
        self.assertEqual(counts, counts[:1] * 6)
