"""Where step requests stop, in real programs."""

import functools
import random
import sys

import harness
from harness import core

NESTED = """\
def inner(n):
    return n + 1

def outer():
    a = inner(1)
    b = inner(a)
    return b

r = outer()
s = 1
"""

LOOP = """\
def f():
    total = 0
    for i in range(3): total += i
    return total

f()
"""

# The generator is begun while no events come, and stops where it yields the first time.
ENTERED_UNTRACED = """\
def values():
    [(yield core.add_to_tstate_tracing(change)) for change in (-1, 0)]
    done = 1

generator = values()
core.add_to_tstate_tracing(1); core.step_into(); list(generator)
"""

LONG_LINES = """\
def g(n):
    return n

def f():
    total = 0
    for i in range(2):
        total += g(i)
        total += 1
    total += 2
    return total

f()
"""

RECURSION = """\
def down(n):
    if n == 0:
        return 0
    below = down(n - 1)
    return below + 1

down(2)
"""

GENERATOR = """\
def numbers():
    yield 1
    yield 2

def use():
    for x in numbers():
        y = x
    return y

use()
"""

RAISING = """\
def fail():
    x = 1
    raise ValueError(x)

def careful():
    try:
        fail()
    except ValueError:
        caught = 1
    return caught

careful()
"""

OUTERMOST = """\
def helper():
    return 1

def outermost():
    x = helper()
    return x
"""

THREE_LINES = """\
x = 1
y = 2
z = 3
"""

INTO = ["step_into"] * 50
OVER = ["step_over"] * 50
TO_OUTER = ["step_over", "step_over", "step_into"]          # stopped at line outer 5
TO_INNER = TO_OUTER + ["step_into"]                         # stopped at line inner 2

STOPPED = ("Stopping here because stop_frame == None\n",
           "Stopping here because stop_frame == current frame\n",
           "Stopping because bot_frame is found before the stop frame\n")


class StepIntoTest(harness.CoreTestCase):

    def test_step_into_stops_at_every_line_and_return(self):
        self.assertEqual(self.debug(NESTED, *INTO), [
            "line <module> 1", "line <module> 4", "line <module> 9",
            "line outer 5", "line inner 2", "return inner 2 -> 2",
            "line outer 6", "line inner 2", "return inner 2 -> 3",
            "line outer 7", "return outer 7 -> 3",
            "line <module> 10", "return <module> 10 -> None"])

    def test_step_into_follows_a_generator(self):
        self.assertEqual(self.debug(GENERATOR, *INTO), [
            "line <module> 1", "line <module> 5", "line <module> 10",
            "line use 6", "line numbers 2", "return numbers 2 -> 1",
            "line use 7", "line use 6", "line numbers 3", "return numbers 3 -> 2",
            "line use 7", "line use 6", "return numbers 3 -> None",
            "line use 8", "return use 8 -> 2", "return <module> 10 -> None"])

    def test_frame_left_by_an_exception_returns_none(self):
        self.assertEqual(self.debug(RAISING, *INTO)[3:], [
            "line careful 6", "line careful 7",
            "line fail 2", "line fail 3", "return fail 3 -> None",
            "line careful 8", "line careful 9", "line careful 10",
            "return careful 10 -> 1", "return <module> 12 -> None"])

    def test_step_into_creates_the_record_of_its_thread(self):
        self.server.init()
        self.assertEqual(core.get_threads(), [])
        core.step_into()
        self.assertEqual(core.get_threads(), [core.get_current_tstate_id()])

    def test_other_requests_create_the_record_of_their_thread_too(self):
        for request in (core.step_over, core.step_over_line, core.step_out, core.continue_run,
                        core.stop, lambda: core.step_over_line_range(1, 2)):
            self.server.init()
            self.assertEqual(core.get_threads(), [])
            request()
            self.assertEqual(core.get_threads(), [core.get_current_tstate_id()])

    def test_every_request_returns_none(self):
        self.server.init()
        for name in ("step_into", "step_over", "step_over_line", "step_out", "continue_run",
                     "stop"):
            self.assertEqual(getattr(core, name)(), None)
        self.assertEqual(core.step_over_line_range(1, 2), None)


class StepOverTest(harness.CoreTestCase):

    def test_step_over_runs_through_calls(self):
        self.assertEqual(self.debug(NESTED, *OVER), [
            "line <module> 1", "line <module> 4", "line <module> 9", "line <module> 10",
            "return <module> 10 -> None"])

    def test_step_over_stops_at_the_return_and_then_in_the_caller(self):
        self.assertEqual(self.debug(NESTED, *(TO_OUTER + OVER))[3:], [
            "line outer 5", "line outer 6", "line outer 7", "return outer 7 -> 3",
            "line <module> 10", "return <module> 10 -> None"])

    def test_step_over_stops_in_the_caller_that_handles_an_exception(self):
        requests = ["step_over"] * 2 + ["step_into"] * 3 + OVER
        self.assertEqual(self.debug(RAISING, *requests)[5:], [
            "line fail 2", "line fail 3", "return fail 3 -> None",
            "line careful 8", "line careful 9", "line careful 10",
            "return careful 10 -> 1", "return <module> 12 -> None"])

    def test_step_over_runs_through_an_exception_that_a_call_handles(self):
        self.assertEqual(self.debug(RAISING, *OVER)[2:], [
            "line <module> 12", "return <module> 12 -> None"])

    def test_step_over_does_not_stop_in_a_deeper_call_of_the_same_function(self):
        self.assertEqual(self.debug(RECURSION, "step_over", "step_into", *OVER)[2:], [
            "line down 2", "line down 4", "line down 5", "return down 5 -> 2",
            "return <module> 7 -> None"])

    def test_step_over_the_loop_of_one_line_stops_at_each_turn(self):
        self.assertEqual(self.debug(LOOP, "step_over", "step_into", *OVER)[2:], [
            "line f 2", "line f 3", "line f 3", "line f 3", "line f 3", "line f 4",
            "return f 4 -> 3", "return <module> 6 -> None"])

    def test_step_over_in_a_generator_goes_back_to_its_user(self):
        requests = ["step_over"] * 2 + ["step_into"] * 2 + OVER
        self.assertEqual(self.debug(GENERATOR, *requests)[3:], [
            "line use 6", "line numbers 2", "return numbers 2 -> 1",
            "line use 7", "line use 6", "line use 7", "line use 6", "line use 8",
            "return use 8 -> 2", "return <module> 10 -> None"])

class StepOverLinesTest(harness.CoreTestCase):

    def test_step_over_line_leaves_the_loop_of_one_line(self):
        self.assertEqual(
            self.debug(LOOP, "step_over", "step_into", "step_over", "step_over_line", *OVER)[2:], [
                "line f 2", "line f 3", "line f 4", "return f 4 -> 3",
                "return <module> 6 -> None"])

    def test_step_over_line_passes_the_return_on_the_same_line(self):
        requests = ["step_over", "step_into", "step_over", "step_over_line", "step_over_line"]
        self.assertEqual(self.debug(LOOP + "x = 1\n", *requests)[2:], [
            "line f 2", "line f 3", "line f 4", "line <module> 7"])

    def test_line_of_a_frame_that_was_entered_untraced_is_the_one_that_it_is_at(self):
        stops = self.debug(ENTERED_UNTRACED, "continue_run", "step_over_line", "continue_run")
        self.assertEqual(stops, ["line <module> 1", "return values 2 -> None", "line values 3"])

    def test_step_over_line_range_runs_to_the_first_line_outside(self):
        requests = ["step_over"] * 2 + ["step_into", "step_over", ("step_over_line_range", 6, 8)]
        self.assertEqual(self.debug(LONG_LINES, *requests)[3:], [
            "line f 5", "line f 6", "line f 9"])

    def test_ends_of_the_range_belong_to_it(self):
        requests = ["step_over"] * 2 + ["step_into", ("step_over_line_range", 5, 6)]
        self.assertEqual(self.debug(LONG_LINES, *requests)[3:], ["line f 5", "line f 7"])

    def test_range_that_starts_elsewhere_stops_at_once(self):
        requests = ["step_over"] * 2 + ["step_into", ("step_over_line_range", 7, 8)]
        self.assertEqual(self.debug(LONG_LINES, *requests)[3:], ["line f 5", "line f 6"])

    def test_range_does_not_stop_in_the_calls_it_makes(self):
        requests = ["step_over"] * 2 + ["step_into", ("step_over_line_range", 5, 9)]
        self.assertEqual(self.debug(LONG_LINES, *requests)[3:], ["line f 5", "line f 10"])

    def test_range_over_the_return_stops_in_the_caller(self):
        requests = ["step_over"] * 2 + ["step_into", ("step_over_line_range", 5, 10)]
        self.assertEqual(self.debug(LONG_LINES + "x = 1\n", *requests)[3:],
                         ["line f 5", "line <module> 13"])

    def test_range_whose_start_lies_after_its_end_is_a_step_over(self):
        requests = ["step_over"] * 2 + ["step_into"] + [("step_over_line_range", 5, 3)] * 3
        self.assertEqual(self.debug(LONG_LINES, *requests)[3:], [
            "line f 5", "line f 6", "line f 7", "line f 8"])

    def test_first_line_minus_one_is_no_range(self):
        requests = ["step_over"] * 2 + ["step_into", ("step_over_line_range", -1, 100)]
        self.assertEqual(self.debug(LONG_LINES, *requests)[3:], ["line f 5", "line f 6"])

    def test_refused_range_leaves_the_request_in_force(self):
        def refused(frame):
            core.step_into()
            self.assert_raises(TypeError, "an integer is required",
                               core.step_over_line_range, 1, None)
        self.assertEqual(self.debug(NESTED, "step_over", "step_over", refused),
                         ["line <module> 1", "line <module> 4", "line <module> 9",
                          "line outer 5"])

    def test_next_request_takes_the_range_away(self):
        requests = ["step_over"] * 2 + ["step_into", ("step_over_line_range", 5, 5), "step_over",
                                        "step_over_line", "step_over"]
        self.assertEqual(self.debug(LONG_LINES, *requests)[3:], [
            "line f 5", "line f 6", "line f 7", "line f 8", "line f 6"])


class StepOutTest(harness.CoreTestCase):

    def test_step_out_stops_at_the_return_of_its_frame(self):
        self.assertEqual(self.debug(NESTED, *(TO_INNER + ["step_out"]))[4:], [
            "line inner 2", "return inner 2 -> 2"])

    def test_step_out_again_stops_in_the_caller(self):
        self.assertEqual(self.debug(NESTED, *(TO_INNER + ["step_out", "step_out"]))[4:], [
            "line inner 2", "return inner 2 -> 2", "line outer 6"])

    def test_request_that_is_not_renewed_at_the_return_stops_in_the_caller(self):
        requests = TO_INNER + ["step_out", lambda frame: None]
        self.assertEqual(self.debug(NESTED, *requests)[4:], [
            "line inner 2", "return inner 2 -> 2", "line outer 6"])

    def test_step_out_runs_through_the_rest_of_its_frame(self):
        self.assertEqual(self.debug(NESTED, *(TO_OUTER + ["step_out"] * 2))[3:], [
            "line outer 5", "return outer 7 -> 3", "line <module> 10"])

    def test_step_out_of_a_recursion_leaves_one_level(self):
        requests = ["step_over"] + ["step_into"] * 4 + ["step_out"] * 4
        self.assertEqual(self.debug(RECURSION, *requests), [
            "line <module> 1", "line <module> 7",
            "line down 2", "line down 4", "line down 2", "line down 4",
            "return down 5 -> 1", "line down 5", "return down 5 -> 2",
            "return <module> 7 -> None"])

    def test_step_out_of_a_generator_stops_where_it_yields(self):
        requests = ["step_over"] * 2 + ["step_into"] * 2 + ["step_out"] * 2
        self.assertEqual(self.debug(GENERATOR, *requests)[4:], [
            "line numbers 2", "return numbers 2 -> 1", "line use 7"])

    def test_step_out_of_a_frame_that_raises_stops_as_it_is_left(self):
        requests = ["step_over"] * 2 + ["step_into"] * 3 + ["step_out"] * 2
        self.assertEqual(self.debug(RAISING, *requests)[5:], [
            "line fail 2", "return fail 3 -> None", "line careful 8"])

    def test_step_out_of_the_outermost_frame_stops_at_the_next_event_anywhere(self):
        def step_out(frame):
            self.outermost = frame.f_back is None
            core.step_out()
        path = self.script(OUTERMOST)
        program = {}
        exec compile(open(path).read(), path, "exec") in program
        self.server.program = path
        self.server.requests = [step_out]
        self.server.init()
        core.start_trace()
        # Tracing of the thread begins with the first call, and forgets requests made before it.
        finished = harness.run_bare_thread(
            functools.partial(sys.settrace, core.bootstrap_new_thread), program["helper"],
            core.step_into, program["outermost"])
        core.stop_trace()
        self.assertEqual(finished, True)
        self.assertEqual(self.outermost, True)
        self.assertEqual(self.server.stops, ["line outermost 5", "line helper 2"])


class ContinueAndStopTest(harness.CoreTestCase):

    def test_continue_run_stops_nowhere(self):
        self.assertEqual(self.debug(NESTED, "continue_run"), ["line <module> 1"])

    def test_stop_stops_at_the_next_line_in_any_frame(self):
        self.assertEqual(self.debug(NESTED, "step_over", "step_over", "stop", "stop"), [
            "line <module> 1", "line <module> 4", "line <module> 9", "line outer 5",
            "line inner 2"])

    def test_stop_stops_at_the_next_return(self):
        self.assertEqual(self.debug(NESTED, *(TO_INNER + ["stop"]))[-1], "return inner 2 -> 2")

    def test_callback_that_requests_nothing_repeats_the_last_request(self):
        nothing = lambda frame: None
        self.assertEqual(self.debug(THREE_LINES, "step_over", nothing, nothing, nothing), [
            "line <module> 1", "line <module> 2", "line <module> 3",
            "return <module> 3 -> None"])

    def test_last_request_of_a_callback_counts(self):
        def many(frame):
            core.step_into()
            core.step_out()
            core.step_over_line_range(1, 9)
            core.continue_run()
        self.assertEqual(self.debug(THREE_LINES, many), ["line <module> 1"])


class StopDecisionTest(harness.CoreTestCase):

    def test_each_stop_brings_two_empty_lists_of_changed_breakpoints(self):
        self.debug(NESTED, *INTO)
        self.assertEqual(len(self.server.changed_bps) >= 13, True)
        for changed in self.server.changed_bps:
            self.assertEqual(changed, ([], []))
            self.assertEqual(type(changed), tuple)

    def test_step_over_logs_why_it_stops(self):
        self.debug(NESTED, *(TO_OUTER + ["step_over"] * 4))
        self.assertEqual(self.server.stops[-1], "line <module> 10")
        self.assertEqual(self.server.stream.among(*STOPPED)[-4:], [
            "Stopping here because stop_frame == current frame\n"] * 3 + [
            "Stopping because bot_frame is found before the stop frame\n"])

    def test_continue_run_logs_that_it_does_not_stop(self):
        self.debug(THREE_LINES, "continue_run")
        self.assert_in("Not stopping here because stop_frame == NULL\n",
                       self.server.stream.messages)

    def test_stop_at_the_return_frame_does_not_ask_the_stop_decision(self):
        self.assertEqual(self.reasons_at_the_return_of_inner(core.step_out), [])

    def test_stop_leaves_the_return_frame_of_an_earlier_step_out(self):
        self.assertEqual(self.reasons_at_the_return_of_inner(core.step_out, core.stop), [])

    def test_step_into_forgets_the_return_frame_of_an_earlier_step_out(self):
        self.assertEqual(self.reasons_at_the_return_of_inner(core.step_out, core.step_into),
                         ["Stopping here because stop_frame == None\n"])

    def reasons_at_the_return_of_inner(self, *requests):
        """What the stop decision logs between the line of inner() and its return."""
        def request_all(frame):
            for request in requests:
                request()
            self.server.stream.clear()

        def remember(frame):
            reasons.extend(self.server.stream.among(*STOPPED))
            core.continue_run()
        reasons = []
        self.debug(NESTED, *(TO_INNER + [request_all, remember]))
        self.assertEqual(self.server.stops[4:], ["line inner 2", "return inner 2 -> 2"])
        return reasons

    def test_stop_at_the_next_event_anywhere_is_logged(self):
        self.debug(THREE_LINES, "step_into")
        self.assert_in("Stopping here because stop_frame == None\n", self.server.stream.messages)

    def test_leaving_the_stop_frame_is_logged(self):
        self.debug(NESTED, *(TO_INNER + ["step_over", "step_over"]))
        self.assertEqual(self.server.stops[-1], "line outer 6")
        self.assertEqual(self.server.stream.among(*STOPPED)[-1],
                         "Stopping because bot_frame is found before the stop frame\n")

    def test_calls_from_the_stop_frame_are_passed_without_a_word(self):
        marks = []

        def mark(frame):
            marks.append(len(self.server.stream.messages))
            core.step_over()
        self.debug(NESTED, *(TO_OUTER + [mark, mark]))
        between = self.server.stream.messages[marks[0]:marks[1]]
        # The call, its line, its return, then the line that stops.
        self.assertEqual(
            [text.split(":")[0] for text in between],
            ["in call", "in dispatch_line", "in dispatch_line",
             "Stopping here because stop_frame == current frame\n"])

    def test_tracing_that_ends_during_an_event_does_not_stop(self):
        server = self.server

        class Ending(harness.Stream):
            def write(self, text):
                harness.Stream.write(self, text)
                if text.startswith("in dispatch_line") and server.stops:
                    core.stop_trace()
        self.server.stream = Ending()
        self.assertEqual(self.debug(THREE_LINES, "step_into"), ["line <module> 1"])
        self.assert_in("Not stopping here because no longer tracing\n",
                       self.server.stream.messages)

    def test_thread_that_lost_its_record_during_an_event_does_not_stop(self):
        server = self.server

        class Forgetting(harness.Stream):
            def write(self, text):
                harness.Stream.write(self, text)
                if text.startswith("in dispatch_line") and len(server.stops) == 1:
                    core.thread_exiting()
        self.server.stream = Forgetting()
        self.assertEqual(self.debug(THREE_LINES, "step_into"), ["line <module> 1"])
        self.assert_in("ERROR: UNEXPECTED thread_data == NULL (while still tracing)!\n",
                       self.server.stream.messages)


class Model(object):
    """Where requests should stop, told by a trace function in Python."""

    def __init__(self, requests):
        self.requests = list(requests)
        self.stops = []
        self.anywhere, self.stop_frame, self.return_frame = True, None, None
        self.lines = ()

    def run(self, path):
        code = compile(open(path).read(), path, "exec")
        sys.settrace(self.trace)
        try:
            exec code in {}
        finally:
            sys.settrace(None)

    def trace(self, frame, event, argument):
        if event in ("line", "return") and self.is_due(frame, event):
            result = ""
            if event == "return":
                result = " -> %r" % (argument,)
            self.stops.append("%s %s %d%s" % (event, frame.f_code.co_name, frame.f_lineno,
                                              result))
            self.take_request(frame)
        return self.trace

    def is_due(self, frame, event):
        if self.anywhere or (event == "return" and frame is self.return_frame):
            return True
        if self.stop_frame is None:
            return False
        if self.stop_frame is frame:
            return frame.f_lineno not in self.lines
        while frame is not None and frame is not self.stop_frame:
            frame = frame.f_back
        return frame is None

    def take_request(self, frame):
        request, arguments = "continue_run", ()
        if self.requests:
            request = self.requests.pop(0)
        if isinstance(request, tuple):
            request, arguments = request[0], request[1:]
        self.anywhere = request in ("step_into", "stop")
        if request != "stop":
            self.return_frame = None
        self.stop_frame = None
        self.lines = ()
        if request.startswith("step_over"):
            self.stop_frame = frame
        if request == "step_over_line":
            self.lines = (frame.f_lineno,)
        if request == "step_over_line_range":
            self.lines = range(arguments[0], arguments[1] + 1)
        if request == "step_out":
            self.stop_frame, self.return_frame = frame.f_back, frame


class AnyRequestsTest(harness.CoreTestCase):

    PROGRAM = "\n".join([NESTED, LONG_LINES, RECURSION, GENERATOR, RAISING])

    def random_requests(self, chance):
        requests = []
        for _ in range(chance.randrange(5, 120)):
            name = chance.choice(["step_into"] * 3 + ["step_over", "step_over_line", "step_out",
                                                      "stop", "step_over_line_range"])
            if name == "step_over_line_range":
                first = chance.randrange(1, 60)
                name = (name, first, first + chance.randrange(-2, 8))
            requests.append(name)
        return requests

    def test_any_requests_stop_where_a_model_says(self):
        chance = random.Random(2012)
        path = self.script(self.PROGRAM)
        for _ in range(60):
            requests = self.random_requests(chance)
            model = Model(requests)
            model.run(path)
            self.server.requests = list(requests)
            del self.server.stops[:]
            self.server.init()
            self.server.run(path)
            self.assertEqual((requests, self.server.stops), (requests, model.stops))


class QuietAnyRequestsTest(AnyRequestsTest):
    quiet = True


class QuietStepIntoTest(StepIntoTest):
    quiet = True


class QuietStepOverTest(StepOverTest):
    quiet = True


class QuietStepOverLinesTest(StepOverLinesTest):
    quiet = True


class QuietStepOutTest(StepOutTest):
    quiet = True


class QuietContinueAndStopTest(ContinueAndStopTest):
    quiet = True
