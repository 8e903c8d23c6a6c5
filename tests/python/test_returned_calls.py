"""What the calls of a step have returned, as sorrel asks for it."""

import gc
import sys
import weakref

import harness
from harness import core

OWN = core._for_sorrel


class ReturnedCallsTest(harness.CoreTestCase):

    quiet = False

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        self.seen = []

    def run_with(self, source, *requests):
        """What has been returned at each stop, after which the thread goes on by these requests."""
        def request(name):
            def go_on(frame):
                self.seen.append([(called, value)
                                  for called, _, value in OWN["returned"](frame)])
                getattr(core, name)()
            return go_on
        self.server.init()
        OWN["note_returns"](True)
        self.server.requests = [request(name) for name in requests]
        self.server.run(self.script(source), OWN=OWN)
        return self.seen

    def test_calls_that_a_step_goes_over(self):
        self.assertEqual(self.run_with("""\
def double(number): return number * 2
def add(one, other): return double(one) // 2 + other
add(double(1), add(3, 4)); map(double, (5, 6))
end = 1
""", *["step_over"] * 4), [
            [], [], [], [("double", 2), ("add", 7), ("add", 9), ("double", 10), ("double", 12)]])

    def test_each_step_begins_anew(self):
        self.assertEqual(self.run_with("""\
def one(): return 1
one()
two = 2
end = 1
""", *["step_over"] * 4), [[], [], [("one", 1)], []])

    def test_running_freely_notes_nothing(self):
        self.assertEqual(self.run_with("""\
def one(): return 1
core.set_break(__file__, 4, 1, 0, None, 0)
one()
end = 1
""", "step_over", "step_over", "continue_run", "continue_run"), [[], [], [], []])

    def test_nothing_is_noted_unless_it_is_wanted(self):
        self.assertEqual(self.run_with("""\
def one(): return 1
OWN['note_returns'](False)
one()
end = 1
""", *["step_over"] * 4), [[], [], [], []])

    def test_a_reset_turns_it_off(self):
        self.assertEqual(self.run_with("""\
def one(): return 1
core.reset()
core.start_trace()
core.step_into()
one()
end = 1
""", *["step_over"] * 7)[2:], [[], [], []])

    def test_step_out_comes_back_to_the_call(self):
        self.assertEqual(self.run_with("""\
def inner(): return 1
def outer():
    inner()
    return 2
outer(), inner()
end = 1
""", "step_over", "step_over", "step_into", "step_over", "step_out", "step_out", "continue_run"), [
            [], [], [], [], [("inner", 1)], [], [("outer", 2), ("inner", 1)]])

    def test_a_step_over_the_end_of_a_function(self):
        self.assertEqual(self.run_with("""\
def inner():
    return 1
inner()
end = 1
""", "step_over", "step_into", "step_into", "step_over", "step_over")[3:], [
            [], [("inner", 1)]])

    def test_a_step_into_what_returns_at_once(self):
        self.assertEqual(self.run_with("""\
def inner():
    return 1
inner()
end = 1
""", "step_over", "step_into", "step_into", "step_into", "step_into")[3:], [
            [], [("inner", 1)]])

    def test_what_ends_by_an_exception_has_not_returned(self):
        self.assertEqual(self.run_with("""\
def one(): return 1
def fail(): raise ValueError(one())
try:
    one(); fail()
except ValueError:
    end = 1
""", *["step_over"] * 5)[4:], [[("one", 1)]])

    def test_generators_classes_and_modules_are_no_calls(self):
        self.assertEqual(self.run_with("""\
def many():
    yield 1
def own(): return locals()
list(many()), sum(n for n in many())
class A(object): pass
exec 'own()'
own(); import this
end = 1
""", *["step_over"] * 7)[3:], [[], [], [], [("own", {})]])

    def test_the_last_ones_of_many(self):
        self.assertEqual(self.run_with("""\
def same(number): return number
map(same, range(1000))
end = 1
""", *["step_over"] * 3)[2], [("same", number) for number in range(980, 1000)])

    def test_a_caller_of_the_frame_is_told_nothing(self):
        def deep(frame):
            self.seen.append([OWN["returned"](frame.f_back), OWN["returned"](None),
                              len(OWN["returned"](frame))])
            core.continue_run()
        self.server.init()
        OWN["note_returns"](True)
        self.server.requests = ["step_over"] * 3 + ["step_into", "step_over", deep]
        self.server.run(self.script("""\
def one(): return 1
one()
def outer():
    one()
    end = 1
outer()
"""))
        self.assertEqual(self.seen, [[[], [], 1]])

    def test_nothing_is_kept_when_the_thread_goes_on(self):
        def go_on(frame):
            self.seen.append((len(OWN["returned"](frame)), frame.f_globals["made"]() is not None))
            core.continue_run()
        self.server.init()
        OWN["note_returns"](True)
        self.server.requests = ["step_over"] * 3 + [go_on]
        variables = self.server.run(self.script("""\
class Thing(object): pass
def make(): return Thing()
made = weakref.ref(make())
gone = made() is None
"""), weakref=weakref)
        self.assertEqual((self.seen, variables["gone"]), ([(1, True)], True))

    def test_what_is_released_may_run_anything(self):
        # The destructors reset the core, of the first of many in the midst of the line, of a few at
        # the next step.
        for many in (30, 3):
            ended = []
            self.server.init()
            OWN["note_returns"](True)
            self.server.requests = ["step_over"] * 10
            self.server.run(self.script("""\
class Thing(object):
    def __del__(self):
        ended.append(core.reset())
filter(lambda number: Thing(), range(%d))
end = len(ended)
""" % many), ended=ended)
            self.assertEqual(len(ended), many)

    def test_references_are_given_back(self):
        if not hasattr(sys, "gettotalrefcount"):
            self.skip("counts of references need a debug build")
        code = compile("""\
def make(n): return [n + 1000]
def cycle():
    begin()
    map(make, range(30))
    make(1)
""", self.script(""), "exec")
        self.server.program = code.co_filename
        self.server.stream = None
        variables = {"begin": core.step_into}
        exec code in variables
        arguments = self.server.init_arguments()
        counts = []
        for turn in range(8):
            for number in range(20):
                core.init(*arguments)
                OWN["note_returns"](True)
                self.server.requests = ["step_over"] * (turn % 4 + 1) + ["step_into"] * 5
                core.start_trace()
                variables["cycle"]()
                core.stop_trace()
                core.reset()
            del self.server.stops[:], self.server.changed_bps[:], self.server.hooks[:]
            gc.collect()
            counts.append(sys.gettotalrefcount())
        self.assertEqual(max(counts[4:]) - min(counts[4:]) < 20, True, counts)


class QuietReturnedCallsTest(ReturnedCallsTest):

    quiet = True
