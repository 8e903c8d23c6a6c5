"""Without diagnostic output most events take a short way: they must stop where they do with it."""

import random

from exception_case import NEVER, UNHANDLED, CatchInfo, ExceptionTestCase
from harness import core

MODES = (0, 1, 2, 3, 4, 5, -1)

HEAD = """\
class Mine(ValueError):
    pass
class Old:
    pass
class Manager(object):
    def __enter__(self):
        pass
    def __exit__(self, *exc_info):
        pass
class Fetch(object):
    def __init__(self, error):
        self.error = error
    def __getitem__(self, index):
        if index > 1:
            raise self.error
        return index
"""

RAISES = ("raise Mine(1)", "raise ValueError(2)", "raise Old()", "{}[3]", "int('x')", "undefined",
          "raise StopIteration", "1 / 0")
CLAUSES = ("Mine", "ValueError", "Old", "(KeyError, NameError)", "LookupError, error", "",
           "StandardError")

REQUESTS = ("step_into", "step_over", "step_out", "continue_run", "step_over_line")


class Programs(object):
    """Makes programs that raise, catch and pass on exceptions at random, and come to an end."""

    FUNCTIONS = 7

    def __init__(self, seed):
        self.random = random.Random(seed)

    def block(self, number, depth):
        """Lines of a function; it calls functions of higher numbers only."""
        lines = []
        for i in range(self.random.randint(1, 2)):
            lines.extend(self.statement(number, depth))
        return lines

    def indented(self, number, depth):
        return ["    " + line for line in self.block(number, depth + 1)]

    def statement(self, number, depth):
        kinds = ["assign", "call", "call", "raise"]
        if depth < 2:
            kinds += ["except", "except", "except", "finally", "with", "for", "fetch"]
        kind = self.random.choice(kinds)
        if kind == "call" and number + 1 < self.FUNCTIONS:
            return ["f%d()" % self.random.randint(number + 1, self.FUNCTIONS - 1)]
        if kind == "raise":
            return ["if count() %% %d == 0:" % self.random.randint(1, 4),
                    "    " + self.random.choice(RAISES)]
        if kind == "except":
            lines = ["try:"] + self.indented(number, depth)
            clauses = self.random.sample(CLAUSES, self.random.randint(1, 3))
            for clause in sorted(clauses, reverse=True):    # a bare one comes last
                lines += ["except %s:" % clause] + self.indented(number, depth)
            return lines
        if kind == "finally":
            return (["try:"] + self.indented(number, depth) +
                    ["finally:"] + self.indented(number, depth))
        if kind == "with":
            return ["with Manager():"] + self.indented(number, depth)
        if kind == "for":
            return ["for i in 1, 2:"] + self.indented(number, depth)
        if kind == "fetch":
            error = self.random.choice(("IndexError()", "Mine(3)"))
            return ["for i in Fetch(%s):" % error] + self.indented(number, depth)
        return ["x = %d" % number]

    def program(self):
        lines = HEAD.splitlines()
        for number in range(self.FUNCTIONS):
            lines += ["def f%d():" % number]
            lines += ["    " + line for line in self.block(number, 0)]
        lines += ["try:", "    f0()", "except:", "    pass", "f1()", ""]
        return "\n".join(lines)


class SameStopsTest(ExceptionTestCase):

    SEEDS = range(25)

    def setUp(self):
        ExceptionTestCase.setUp(self)
        self.events = []
        self.requests = None

    def record(self, event, frame):
        self.events.append("%s %s:%d" % (event, frame.f_code.co_name, frame.f_lineno))
        if frame.f_code.co_filename != self.path:
            core.continue_run()
        elif self.requests is not None:
            getattr(core, self.requests.choice(REQUESTS))()

    def line_cb(self, frame, changed_bps):
        self.record("line", frame)

    def return_cb(self, frame, value, changed_bps):
        self.record("return", frame)

    def exception(self, frame, exc_info, changed_bps):
        self.record(exc_info[0].__name__, frame)

    def quit_cb(self):
        self.events.append("quit")

    def events_of(self, code, mode, settings, stream, seed=None):
        """Everything the server is told while the program runs, and how that ends."""
        self.events = []
        self.requests = None
        self.init(debug_stream=stream, line_cb=self.line_cb, return_cb=self.return_cb,
                  quit_cb=self.quit_cb)
        if seed is not None:
            self.requests = random.Random(seed)
            core.set_break(self.path, code.co_firstlineno + len(HEAD.splitlines()), 1, 0, None, 0)
        settings()
        calls = []

        def count():
            calls.append(1)
            return len(calls)
        self.run_code(code, mode, count=count)
        return self.events + [self.ended_by.split(":")[0], len(calls)]

    def compare(self, settings, seeds, steps=False):
        stopped = 0
        for seed in seeds:
            code = self.compiled(Programs(seed).program())
            self.path = code.co_filename
            for mode in MODES:
                step_seed = None
                if steps:
                    step_seed = seed
                logged = self.events_of(code, mode, settings, self.stream, step_seed)
                self.stream.clear()
                unlogged = self.events_of(code, mode, settings, None, step_seed)
                if logged != unlogged:
                    at = 0
                    while logged[at] == unlogged[at]:
                        at += 1
                    self.fail("program %d in mode %d: %r with output, %r without"
                              % (seed, mode, logged[at:at + 3], unlogged[at:at + 3]))
                stopped += len(logged) > 3
        # Most programs do stop somewhere.
        self.assertEqual(stopped > len(seeds), True)

    def test_by_mode_alone(self):
        self.compare(lambda: None, self.SEEDS)

    def test_with_stop_types(self):
        def settings():
            core.set_always_stop_excepts((LookupError, ValueError))
            core.set_never_stop_excepts((NameError,))
        self.compare(settings, self.SEEDS)

    def test_with_frames_that_print(self):
        def settings():
            core.set_exc_catch_info_list([CatchInfo("f2"), CatchInfo("f4", parent=True),
                                          CatchInfo("f5", prints=False), CatchInfo("f6")])
        self.compare(settings, self.SEEDS)

    def test_with_ignored_locations(self):
        def settings():
            for line in range(20, 200, 3):
                core.ignore_exception_loc(self.path, line, 1)
        self.compare(settings, self.SEEDS)

    def test_without_autoquit(self):
        self.compare(lambda: core.set_autoquit(0), self.SEEDS[:10])

    def test_while_stepping(self):
        self.compare(lambda: None, self.SEEDS, steps=True)

    def test_while_stepping_with_stop_types(self):
        self.compare(lambda: core.set_always_stop_excepts((ValueError,)), self.SEEDS, steps=True)


class DecidingTypesTest(ExceptionTestCase):
    """Classes with code of their own to decide what they match are asked once for each event, by
    the thread that holds the mutex, with the frame of the event at hand."""

    UNCAUGHT = """\
def f():
    raise ValueError(1)
f()
"""

    CAUGHT = """\
def f():
    try:
        raise ValueError(1)
    except Kind:
        pass
f()
"""

    def setUp(self):
        ExceptionTestCase.setUp(self)
        self.init(debug_stream=None)
        self.asked = []     # whether the mutex is held, and the frame at hand

    def deciding(self, answer):
        case = self

        class Deciding(type):
            def __subclasscheck__(cls, other):
                is_held = core.acquire_sorrel_mutex() == 0
                if not is_held:
                    core.release_sorrel_mutex()
                frame = core.get_curr_frame(core.get_current_tstate_id())
                case.asked.append((is_held, frame and frame.f_code.co_name))
                return answer
        return Deciding("Kind", (Exception,), {})

    def test_types_never_to_stop_at(self):
        core.set_never_stop_excepts((self.deciding(True),))
        self.assertEqual(self.run_program(self.UNCAUGHT, UNHANDLED), [])
        self.assertEqual(self.asked, [(True, "f"), (True, "<module>")])

    def test_types_always_to_stop_at(self):
        core.set_always_stop_excepts((KeyError, (self.deciding(True),)))
        stops = self.run_program("try:\n    1 / 0\nexcept:\n    pass\n", NEVER)
        self.assertEqual(stops, ["ZeroDivisionError in <module>:2"])
        self.assertEqual(self.asked, [(True, "<module>")])

    def test_types_of_clauses(self):
        for answer in (False, True):
            del self.asked[:]
            stops = self.run_program(self.CAUGHT, UNHANDLED, Kind=self.deciding(answer))
            self.assertEqual(bool(stops), not answer)
            self.assertEqual(self.asked[0], (True, "f"))
            # Then the interpreter itself asks, which no event is at hand for.
            self.assertEqual(self.asked[1:], [(False, None)])

    def test_class_that_need_not_be_asked_is_not(self):
        core.set_never_stop_excepts((self.deciding(True), ValueError))
        self.assertEqual(self.run_program(self.UNCAUGHT, UNHANDLED), [])
        self.assertEqual(self.asked, [])
