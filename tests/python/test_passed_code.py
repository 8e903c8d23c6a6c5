"""Steps that pass code which the debug server has named, as sorrel's do."""

import os
import sys

import harness
from harness import core

ALWAYS = os.environ.get("MORVIK_ALWAYS_TRACE") == "1"
OWN = core._for_sorrel

PROGRAM = """\
def passed(function):
    total = 0
    for turn in range(2):
        total += function(turn)
    note(total)
def wanted(number):
    return number + 1
def inner(number):
    return wanted(number)
start = 1
passed(inner)
end = 1
"""


class PassedCodeTest(harness.CoreTestCase):

    quiet = True

    def stops(self, source, *names, **variables):
        """Those of steps that begin at the first line of `start` and pass these functions."""
        def begin(frame):
            for name in names:
                self.assertEqual(OWN["pass_code"](frame.f_globals[name].func_code), True)
            OWN["step_through"]()
        self.run_to_start(source, begin, *[through] * 100, **variables)
        return self.server.stops[2:]

    def run_to_start(self, source, *requests, **variables):
        def run_on(frame):
            line = source.split("start", 1)[0].count("\n") + 1
            core.set_break(self.server.program, line, 1, 1, None, 0)
            core.continue_run()
        self.server.requests = [run_on] + list(requests)
        self.server.init()
        # In C: nothing in it could be a stop.
        variables.setdefault("note", abs)
        self.server.run(self.script(source), **variables)

    def test_they_end_in_what_it_calls_and_returns_to(self):
        self.assertEqual(self.stops(PROGRAM, "passed", "inner"), [
            "line <module> 11", "line wanted 7", "return wanted 7 -> 1",
            "line wanted 7", "return wanted 7 -> 2", "line <module> 12",
            "return <module> 12 -> None"])

    def test_other_steps_do_not_pass_it(self):
        def begin(frame):
            OWN["pass_code"](frame.f_globals["passed"].func_code)
            core.step_into()
        self.run_to_start(PROGRAM, begin, "step_into", "step_into")
        self.assertEqual(self.server.stops[2:4], ["line <module> 11", "line passed 2"])

    def test_a_thread_rests_there(self):
        notes = []

        source = PROGRAM.replace("note(total)", "note(frame().f_trace is None)")
        self.stops(source, "passed", "inner", "wanted", note=notes.append, frame=sys._getframe)
        self.assertEqual(notes, [not ALWAYS and self.quiet])

    def test_what_is_named_can_be_forgotten(self):
        def begin(frame):
            OWN["pass_code"](frame.f_globals["passed"].func_code)
            OWN["pass_no_code"]()
            OWN["step_through"]()
        self.run_to_start(PROGRAM, begin, through, through)
        self.assertEqual(self.server.stops[3], "line passed 2")

    def test_an_exception_that_comes_out_of_it(self):
        self.assertEqual(self.stops("""\
def passed():
    raise KeyError
def caller():
    try:
        passed()
    except KeyError:
        pass
start = 1
caller()
""", "passed")[1:5], ["line caller 4", "line caller 5", "line caller 6", "line caller 7"])

    def test_code_in_no_file_is_not_passed(self):
        self.server.init()
        code = compile("1", "<string>", "eval")
        self.assertEqual(OWN["pass_code"](code), False)
        self.assertRaises(TypeError, OWN["pass_code"], "text")

    def test_other_code_may_lie_where_such_code_was(self):
        stops = self.stops("""\
text = 'def f(): return 1'
for turn in range(10000):
    exec compile(text, __file__, 'exec')
    f()
    if not note(f.func_code):
        print 'not passed'
start = 1
for turn in range(10):
    exec compile(text, __file__, 'exec')
    f()
""", note=OWN["pass_code"])
        self.assertEqual(stops.count("return f 1 -> 1"), 10)


class WithDiagnosticsTest(PassedCodeTest):

    quiet = False


def through(frame):
    OWN["step_through"]()
