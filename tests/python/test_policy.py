"""Which threads are debugged, the idle callback and the quit callback."""

import functools
import sys
import thread
import time
import weakref

import harness
from harness import core

THREE_LINES = """\
x = 1
y = 2
z = 3
"""

STOPPED_AT_ONCE = ["line <module> 1"]


class ThreadPolicyTest(harness.CoreTestCase):

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        self.asked = []

    def stops_with_answer(self, answer):
        """Debugs a program whose thread's policy is this answer."""
        def policy(ident):
            self.asked.append(ident)
            if isinstance(answer, BaseException):
                raise answer
            return answer
        self.server.init()
        core.set_debug_thread_cb(policy)
        self.server.run(self.script(THREE_LINES))
        return self.server.stops

    def test_answer_0_ignores_the_thread(self):
        self.assertEqual(self.stops_with_answer(0), [])
        self.assertEqual(self.server.stream.starting("in dispatch_line"), [])

    def test_event_of_an_ignored_thread_is_logged(self):
        self.server.quiet = False
        self.stops_with_answer(0)
        self.assert_in("ignore thread by policy\n", self.server.stream.messages)

    def test_answer_1_debugs_the_thread(self):
        self.assertEqual(self.stops_with_answer(1), STOPPED_AT_ONCE)

    def test_answer_2_debugs_the_thread_as_1_does(self):
        self.assertEqual(self.stops_with_answer(2), STOPPED_AT_ONCE)

    def test_any_other_number_debugs_the_thread(self):
        for answer in (-1, 100, True, 2 ** 40):
            del self.server.stops[:]
            self.assertEqual(self.stops_with_answer(answer), STOPPED_AT_ONCE)
        del self.server.stops[:]
        self.assertEqual(self.stops_with_answer(False), [])

    def test_failing_callback_debugs_the_thread(self):
        self.assertEqual(self.stops_with_answer(ValueError("policy")), STOPPED_AT_ONCE)
        self.assert_logged("ignoring failure to call debug_thread_cb", 1)

    def test_answer_that_is_no_number_debugs_the_thread(self):
        for answer in (None, "no", [], object()):
            del self.server.stops[:]
            self.assertEqual(self.stops_with_answer(answer), STOPPED_AT_ONCE)
        self.assert_logged("ignoring failure to call debug_thread_cb", 0)

    def test_failure_of_the_callback_is_not_seen_by_the_program(self):
        def policy(ident):
            raise ValueError("policy")
        self.server.init()
        core.set_debug_thread_cb(policy)
        variables = self.server.run(self.script("import sys\nx = sys.exc_info()\n"))
        self.assertEqual(variables["x"], (None, None, None))

    def test_callback_gets_the_thread_ident_as_an_int(self):
        self.stops_with_answer(1)
        self.assertEqual(self.asked, [thread.get_ident()])
        self.assertEqual(type(self.asked[0]), int)

    def test_every_answer_is_remembered(self):
        for answer in (0, 1, 2, ValueError("policy"), "no"):
            del self.asked[:]
            self.stops_with_answer(answer)
            self.assertEqual(len(self.asked), 1)

    def test_setting_the_callback_again_asks_anew(self):
        def policy(ident):
            self.asked.append(ident)
            return len(self.asked) > 1
        self.server.init()
        core.set_debug_thread_cb(policy)
        self.server.run(self.script(THREE_LINES))
        self.assertEqual(self.server.stops, [])
        core.set_debug_thread_cb(policy)
        self.server.run(self.script(THREE_LINES))
        self.assertEqual(self.server.stops, STOPPED_AT_ONCE)
        self.assertEqual(len(self.asked), 2)

    def test_none_debugs_every_thread(self):
        self.server.init()
        core.set_debug_thread_cb(lambda ident: 0)
        core.set_debug_thread_cb(None)
        self.server.run(self.script(THREE_LINES))
        self.assertEqual(self.server.stops, STOPPED_AT_ONCE)
        self.assert_logged("ignoring failure to call debug_thread_cb", 1)

    def test_same_callback_set_twice_stays_alive(self):
        def policy(ident):
            return 0
        reference = weakref.ref(policy)
        self.server.init()
        core.set_debug_thread_cb(policy)
        core.set_debug_thread_cb(policy)
        del policy
        self.assert_is_not(reference(), None)
        self.server.run(self.script(THREE_LINES))
        self.assertEqual(self.server.stops, [])
        core.set_debug_thread_cb(None)
        self.assert_is(reference(), None)

    def test_call_without_a_callback_leaves_the_one_in_force(self):
        self.server.init()
        core.set_debug_thread_cb(lambda ident: 0)
        self.assert_raises(TypeError, None, core.set_debug_thread_cb)
        self.server.run(self.script(THREE_LINES))
        self.assertEqual(self.server.stops, [])

    def test_callback_itself_is_not_traced(self):
        def policy(ident):
            self.asked.append(sys.gettrace() and core.get_tstate_tracing())
            return 1
        self.server.init()
        core.set_debug_thread_cb(policy)
        self.server.run(self.script(THREE_LINES))
        self.assertEqual(self.asked, [1])

    def test_callback_may_set_another_one(self):
        def policy(ident):
            core.set_debug_thread_cb(None)
            return 0
        self.server.init()
        core.set_debug_thread_cb(policy)
        self.server.run(self.script(THREE_LINES))
        self.assertEqual(self.server.stops, STOPPED_AT_ONCE)

    def test_answer_is_forgotten_when_the_bottom_frame_returns(self):
        def policy(ident):
            self.asked.append(ident)
            return 1
        self.server.init()
        core.set_autoquit(0)
        core.set_debug_thread_cb(policy)
        core.start_trace()
        first, second = (lambda: None), (lambda: None)
        finished = harness.run_bare_thread(
            functools.partial(sys.settrace, core.bootstrap_new_thread), first, second, first)
        core.stop_trace()
        self.assertEqual(finished, True)
        others = [ident for ident in self.asked if ident != thread.get_ident()]
        self.assertEqual(len(others), 3)
        self.assertEqual(len(set(others)), 1)


class IdleTest(harness.CoreTestCase):

    def events(self, count, prologue=""):
        """Runs a program of this many line events."""
        source = prologue + "core.start_trace()\n" + "x = 1\n" * (count - 1) + "core.stop_trace()\n"
        exec compile(source, self.script(source), "exec") in {"core": core}

    def init(self, **changes):
        # A hooks callback in Python would have events of its own.
        changes.setdefault("install_thread_hooks_cb", [].append)
        self.server.init(**changes)

    def test_period_of_0_or_less_never_calls(self):
        for period in (0.0, -1.0):
            self.init(idle_period=period)
            self.events(100)
        self.assertEqual(self.server.idle_calls, 0)

    def test_more_than_ten_events_are_needed(self):
        # The interpreter itself may add an event as tracing starts.
        self.init(idle_period=0.001)
        self.events(9)
        self.assertEqual(self.server.idle_calls, 0)
        self.init(idle_period=0.001)
        self.events(11)
        self.assertEqual(self.server.idle_calls, 1)

    def test_count_of_events_goes_on_over_stop_and_start(self):
        self.init(idle_period=0.001)
        for _ in range(6):
            self.events(2)
        self.assertEqual(self.server.idle_calls, 1)

    def test_called_once_in_a_second_however_small_the_period(self):
        start = end = 0
        while end != start + 1:
            # Again, should the machine have been so slow that a second ended meanwhile.
            self.server.idle_calls = 0
            self.init(idle_period=1e-6)
            start = int(time.time())
            while int(time.time()) == start:
                pass
            self.events(500)
            end = int(time.time())
        self.assertEqual(self.server.idle_calls, 1)

    def test_called_every_second_however_long_the_period(self):
        self.init(idle_period=3600.0)
        source = """\
import time
start = time.time()
core.start_trace()
while time.time() < start + 2.5:
    x = 1
core.stop_trace()
end = time.time()
"""
        program = {"core": core}
        exec compile(source, self.script(source), "exec") in program
        seconds_begun = int(program["end"]) - int(program["start"]) + 1
        self.assertEqual(seconds_begun >= 3, True)
        # The last one may have begun after the last event that looked at the clock.
        self.assert_in(self.server.idle_calls, (seconds_begun, seconds_begun - 1))

    def test_set_idle_period_turns_it_on_and_off(self):
        self.init(idle_period=0.0)
        self.assertEqual(core.set_idle_period(0.5), None)
        self.events(20)
        self.assertEqual(self.server.idle_calls, 1)
        self.init(idle_period=0.5)
        core.set_idle_period(0)
        self.events(20)
        self.assertEqual(self.server.idle_calls, 1)

    def test_called_without_arguments_and_its_result_ignored(self):
        calls = []

        def idle(*arguments):
            calls.append(arguments)
            return -1
        self.init(idle_period=1.0, idle_cb=idle)
        self.events(20)
        self.assertEqual(calls, [()])
        self.assert_logged("IDLE STOPPED TRACER\n", 0)

    def test_failing_idle_callback_is_ignored(self):
        calls = []

        def idle():
            calls.append(1)
            raise ValueError("idle")
        self.server.requests = ["step_over"] * 100
        self.init(idle_period=1.0, idle_cb=idle)
        self.server.run(self.script("x = 1\n" * 12))
        self.assertEqual(len(self.server.stops), 13)
        self.assertEqual(calls, [1])

    def test_idle_callback_that_stops_tracing_ends_the_event(self):
        self.init(idle_period=1.0, idle_cb=core.stop_trace)
        self.server.requests = ["step_over"] * 100
        variables = self.server.run(self.script("x = 1\n" * 12 + "import sys\n"
                                                "after = sys.gettrace()\n"))
        self.assert_logged("IDLE STOPPED TRACER\n", 1)
        # The event that called it stopped nowhere.
        self.assertEqual(1 <= len(self.server.stops) <= 10, True)
        self.assertEqual(variables["after"], None)

    def test_idle_callback_that_requests_a_stop_is_heard_at_the_same_event(self):
        self.init(idle_period=1.0, idle_cb=core.stop)
        self.server.requests = ["continue_run"] * 2
        self.server.run(self.script("x = 1\n" * 12))
        self.assertEqual(len(self.server.stops), 2)
        self.assertEqual(self.server.stops[0], "line <module> 1")

    def test_events_inside_the_idle_callback_are_dropped(self):
        calls = []

        def idle():
            calls.append(1)
            for _ in range(50):
                core.trace_dispatch(sys._getframe(), "line", None)
        self.init(idle_period=1.0, idle_cb=idle)
        self.events(20)
        self.assertEqual(calls, [1])
        self.assert_logged("recursive c_dispatch\n", 50)


class QuitTest(harness.CoreTestCase):

    def run_bottom(self, *functions, **init_changes):
        """Runs each in turn as the bottom frame of a traced thread."""
        self.server.init(**init_changes)
        self.prepare()
        core.start_trace()
        finished = harness.run_bare_thread(
            functools.partial(sys.settrace, core.bootstrap_new_thread), *functions)
        core.stop_trace()
        self.assertEqual(finished, True)

    def prepare(self):
        pass

    def test_quit_callback_is_called_when_a_bottom_frame_returns(self):
        self.run_bottom(lambda: None)
        self.assertEqual(self.server.quit_calls, 1)

    def test_next_call_is_a_bottom_frame_again(self):
        self.run_bottom(lambda: None, lambda: (lambda: None)(), lambda: None)
        self.assertEqual(self.server.quit_calls, 3)

    def test_frames_above_the_bottom_do_not_quit(self):
        quits = []

        def inner():
            quits.append(self.server.quit_calls)

        def bottom():
            inner()
            inner()
            quits.append(self.server.quit_calls)
        self.run_bottom(bottom)
        self.assertEqual(quits, [0, 0, 0])
        self.assertEqual(self.server.quit_calls, 1)

    def test_bottom_frame_is_unknown_once_it_has_returned(self):
        seen = []
        frames = []

        def bottom():
            frames.append(sys._getframe())
            seen.append(core.is_botframe(frames[0]))

        def report():
            core.add_to_tstate_tracing(1)
            seen.append(core.is_botframe(frames[0]))
            core.add_to_tstate_tracing(-1)
        self.run_bottom(bottom, functools.partial(core.add_to_tstate_tracing, 1), report,
                        functools.partial(core.add_to_tstate_tracing, -1))
        self.assertEqual(seen, [1, 0])

    def test_autoquit_off_does_not_quit(self):
        self.prepare = lambda: self.assertEqual(core.set_autoquit(0), None)
        self.run_bottom(lambda: None)
        self.assertEqual(self.server.quit_calls, 0)

    def test_autoquit_is_on_again_after_reset(self):
        def prepare():
            core.set_autoquit(0)
            core.reset()
        self.prepare = prepare
        self.run_bottom(lambda: None)
        self.assertEqual(self.server.quit_calls, 1)

    def test_autoquit_is_on_again_after_init(self):
        self.server.init()
        core.set_autoquit(0)
        self.run_bottom(lambda: None)
        self.assertEqual(self.server.quit_calls, 1)

    def test_failing_quit_callback_is_ignored(self):
        after = []

        def fail():
            after.append("failed")
            raise ValueError("quit")
        self.run_bottom(lambda: None, lambda: after.append(sys.gettrace()), quit_cb=fail)
        self.assertEqual(after, ["failed", core.trace_dispatch, "failed"])

    def test_bottom_frame_that_stops_at_its_return_does_not_quit(self):
        path = self.script("def bottom():\n    return 1\n")
        program = {}
        exec compile(open(path).read(), path, "exec") in program
        self.server.program = path
        self.server.requests = ["step_over", "continue_run"]
        self.run_bottom(lambda: None, core.step_into, program["bottom"])
        self.assertEqual(self.server.stops, ["line bottom 2", "return bottom 2 -> 1"])
        # Only the first function did.
        self.assertEqual(self.server.quit_calls, 1)


class QuietThreadPolicyTest(ThreadPolicyTest):
    quiet = True


class QuietIdleTest(IdleTest):
    quiet = True


class QuietQuitTest(QuitTest):
    quiet = True
