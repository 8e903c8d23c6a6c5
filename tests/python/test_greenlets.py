"""Where the core stops programs that switch between greenlets."""

import gc
import os
import sys

import greenlet_case
import harness
from harness import core

TWO = """\
from greenlet import getcurrent, greenlet
def work():
    first = 1
    given = main.switch(first)
    last = given
    return last
def turns():
    got = one.switch()
    between = 1
    got = one.switch(2)
    return got
main = getcurrent()
one = greenlet(work)
turns()
done = 1
"""

NESTED = """\
from greenlet import getcurrent, greenlet
def inner():
    return main.switch(1)
def work():
    got = inner()
    got = 2
main = getcurrent()
one = greenlet(work)
one.switch()
between = 1
one.switch()
done = 1
"""

# No call and no return tells of the way back into the loop.
LOOP = """\
from greenlet import getcurrent, greenlet
def loop():
    number = 0
    while number < 3:
        number += main.switch(number)
        if number == 2:
            found = 1
def turns():
    for _ in range(5):
        one.switch(1)
main = getcurrent()
one = greenlet(loop)
one.switch()
begun()
turns()
"""

RAISING = """\
from greenlet import getcurrent, greenlet
def work():
    main.switch()
    raise KeyError('from work')
def turns():
    try:
        one.switch()
    except KeyError:
        seen = 1
main = getcurrent()
one = greenlet(work)
one.switch()
turns()
"""


class GreenletsTest(harness.CoreTestCase):

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        greenlet_case.need(self)
        sys.path.insert(0, greenlet_case.FOLDER)

    def stops(self, source, line, *requests, **variables):
        """Those from the breakpoint on this line on."""
        self.server.requests = ["continue_run"] + list(requests)
        self.server.init()
        path = self.script(source)
        core.set_break(path, line, 1, 0, None, 0)
        self.server.run(path, **variables)
        return self.server.stops[1:]

    def test_step_over_ends_where_its_greenlet_comes_back(self):
        self.assertEqual(self.stops(TWO, 4, "step_over", "step_over"), [
            "line work 4", "line work 5", "line work 6"])

    def test_step_into_does_not_follow_a_switch(self):
        self.assertEqual(self.stops(TWO, 8, "step_into", "step_into"), [
            "line turns 8", "line turns 9", "line turns 10"])

    def test_step_into_ends_where_its_greenlet_comes_back(self):
        self.assertEqual(self.stops(TWO, 4, "step_into"), ["line work 4", "line work 5"])

    def test_step_over_lines_ends_where_its_greenlet_comes_back(self):
        self.assertEqual(self.stops(TWO, 4, ("step_over_line_range", 3, 5)), [
            "line work 4", "line work 6"])

    def test_step_over_a_greenlet_that_ends_leads_to_its_parent(self):
        self.assertEqual(self.stops(TWO, 6, "step_over", "step_over"), [
            "line work 6", "return work 6 -> 2", "line turns 11"])

    def test_step_over_lines_up_to_the_end_of_a_greenlet_leads_to_its_parent(self):
        self.assertEqual(self.stops(TWO, 5, ("step_over_line_range", 5, 6)), [
            "line work 5", "line turns 11"])

    def test_step_out_of_a_greenlet_leads_to_its_parent(self):
        self.assertEqual(self.stops(TWO, 5, "step_out", "step_out"), [
            "line work 5", "return work 6 -> 2", "line turns 11"])

    def test_step_out_ends_in_the_caller_in_its_greenlet(self):
        self.assertEqual(self.stops(NESTED, 3, "step_out", "step_over", "step_over"), [
            "line inner 3", "return inner 3 -> ()", "line work 6", "return work 6 -> None"])

    def test_lines_of_a_frame_that_was_left_are_stepped_over_within_its_greenlet(self):
        self.assertEqual(self.stops(NESTED, 3, ("step_over_line_range", 3, 3)), [
            "line inner 3", "line work 6"])

    def test_stop_stops_in_whatever_greenlet_comes_next(self):
        self.assertEqual(self.stops(TWO, 4, "stop"), ["line work 4", "line turns 9"])

    def test_breakpoint_stops_where_a_switch_leads_into_the_midst_of_a_frame(self):
        self.assertEqual(self.stops(LOOP, 7, begun=lambda: None), ["line loop 7"])

    def test_breakpoint_that_is_set_while_its_frame_is_suspended_stops(self):
        def begun():
            core.set_break(self.server.program, 7, 1, 0, None, 0)
        self.assertEqual(self.stops(LOOP, 100, begun=begun), ["line loop 7"])

    def test_exception_in_another_greenlet_does_not_end_a_step(self):
        self.assertEqual(self.stops(RAISING, 7, "step_over"), ["line turns 7", "line turns 8"])

    def test_all_references_are_given_back(self):
        if not hasattr(sys, "gettotalrefcount"):
            self.skip("the interpreter does not count references")
        self.server.init()
        self.assertEqual(self.growth(TWO), self.growth("def work():\n    pass\nwork()\n"))

    def growth(self, source):
        """Of the number of references, each time that the program has been stepped over."""
        namespace = {"__name__": "program"}
        code = compile(source, self.script(source), "exec")
        counts = range(100000, 100010)
        for turn in range(len(counts)):
            core.start_trace()
            core.step_over()
            exec code in namespace
            core.stop_trace()
            self.server.stream.clear()
            del self.server.stops[:], self.server.changed_bps[:], self.server.hooks[:]
            gc.collect()
            counts[turn] = sys.gettotalrefcount()
        return counts[-1] - counts[-2]


class QuietGreenletsTest(GreenletsTest):

    quiet = True

    def test_threads_rest_until_greenlet_is_loaded(self):
        notes = []
        self.server.requests = ["continue_run"]
        self.server.init()
        self.server.run(self.script("""\
import sys
def events():
    return sys._getframe(1).f_trace is not None
def use():
    import greenlet
    note(events())
    for _ in range(3):
        note(events())
note(events())
use()
note(events())
"""), note=notes.append)
        self.assertEqual(notes, [os.environ.get("MORVIK_ALWAYS_TRACE") == "1"] + [True] * 5)
