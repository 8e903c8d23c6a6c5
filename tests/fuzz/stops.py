"""Runs programs at random with breakpoints, steps and exceptions; each stops where it would anyway.

usage: ./morvik python -- tests/fuzz/stops.py [--seed N [--last M]] [--verbose]

Each program runs three times: alone, under the core with a diagnostic stream, where every event
goes the long way, and under the core without one. The two under the core must stop at the same
places with the same frames, lines, values and counts, and all three must come to the same results,
among which are the line numbers that the program sees of itself. The interpreter tells some of
these differently to a program that is traced, whoever does that: then the results are those of a
program that is alone but for a trace function which does nothing.
"""

import functools
import gc
import operator
import os
import sys
import thread

import fuzzing
import harness
from harness import core

PRELUDE = """\
import sys

class Failure(Exception): pass
class Other(LookupError): pass
class Old: pass

class Within(object):
    def __enter__(self):
        return self
    def __exit__(self, *info):
        note('exit', info[0] is not None)
        return info[0] is Other

class Thing(object):
    def __init__(self, number):
        self.number = number
    def __eq__(self, other):
        return note('eq', self.number) and self.number == other.number
    @property
    def twice(self):
        return self.number * 2

def where():
    frame = sys._getframe(1)
    lines = []
    while frame is not None and frame.f_globals is globals():
        lines.append(frame.f_lineno)
        frame = frame.f_back
    note('where', lines)

def lines_of(traceback):
    lines = []
    while traceback is not None:
        lines.append(traceback.tb_lineno)
        traceback = traceback.tb_next
    note('traceback', lines)
"""
CLAUSES = ["Failure", "Other", "(Failure, KeyError)", "LookupError", "Exception", "Old", ""]
RAISES = ["raise Failure(n)", "raise Other, n", "raise Old()", "{}[n]", "raise StopIteration",
          "undefined", "int('x')"]
REQUESTS = ["continue_run"] * 4 + ["step_into"] * 2 + [
    "step_over", "step_over", "step_out", "step_over_line", "stop", "range"]
CONDITIONS = [None, None, None, "n % 2", "n > 3", "0", "1", "nowhere", "asked(n)"]
# What takes longer finds nothing more.
MOST_STOPS, MOST_TURNS = 400, 300


class Writer(object):
    """Writes a program by the dice."""

    def __init__(self, rng):
        self.rng = rng
        self.lines = []
        self.functions = rng.randint(3, 7)

    def program(self):
        for number in range(self.functions):
            self.function(number)
        self.put(0, "n = 1")
        for _ in range(self.rng.randint(1, 3)):
            self.put(0, "try:")
            self.block(1, -1, 2)
            self.put(0, "except:")
            self.put(1, "lines_of(sys.exc_info()[2])")
        return PRELUDE + "\n".join(self.lines) + "\n"

    def put(self, depth, text):
        self.lines.append("    " * depth + text)

    def function(self, number):
        self.put(0, "def f%d(n=2):" % number)
        self.put(1, "if spent(): return n")
        self.block(1, number, 3)
        self.put(1, "return n")
        self.put(0, "def g%d(n=3):" % number)
        self.put(1, "yield n")
        self.put(1, "if spent(): return")
        self.block(1, number, 2, True)
        self.put(1, "n += yield_back(n)")
        self.put(1, "yield n")

    def block(self, depth, number, room, generates=False):
        for _ in range(self.rng.randint(1, 4)):
            self.statement(depth, number, room, generates)

    def statement(self, depth, number, room, generates):
        kinds = [self.simple] * 4 + [self.calling] * 3 + [self.raising]
        if room > 0:
            kinds += [self.branch, self.loop, self.loop, self.trying, self.trying, self.finishing,
                      self.within, self.defining, self.generating, self.generating]
        if generates and self.rng.random() < 0.25:
            self.put(depth, "yield n + %d" % depth)
        else:
            self.rng.choice(kinds)(depth, number, room - 1, generates)

    def called(self, number, kind="f"):
        """A function of a greater number, so that programs end; with luck the same one."""
        if number + 1 >= self.functions:
            return "min"
        return "%s%d" % (kind, self.rng.randint(number + 1, self.functions - 1))

    def simple(self, depth, *more):
        self.put(depth, self.rng.choice([
            "n = n * 3 % 17", "n += 1; n %= 11", "note('n', n)", "where()", "thing = Thing(n)",
            "n = (n +\n" + "    " * depth + "     1) % 13", "note('twice', Thing(n).twice)",
            "note('equal', Thing(n) == Thing(3))", "pass",
            "n = len([each for each in range(n)])", "note('x', [x for x in 'ab'])"]))

    def calling(self, depth, number, room, *more):
        name = self.called(number)
        if name == "min":
            self.simple(depth)
            return
        self.put(depth, self.rng.choice([
            "n = %s(n) % 9", "%s()", "note('map', map(%s, [1, 2]))",
            "n = sorted([3, 1, 2], key=%s)[0]", "note('call', (lambda m: %s(m) + 1)(n))",
            "exec 'n = %s(n)\\nn += 1' in globals(), {'n': n}", "n = eval('%s(n)') % 7",
            "note('list', [%s(each) for each in range(2)])", "n = again(%s, n)",
            "in_thread(%s)", "n = reduce(lambda a, b: a + %s(b), [1, 2], 0) % 10"]).replace(
                "%s", name))

    def raising(self, depth, *more):
        self.put(depth, "if flip(): " + self.rng.choice(RAISES))

    def branch(self, depth, number, room, generates):
        self.put(depth, "if n % 2 and flip():")
        self.block(depth + 1, number, room, generates)
        self.put(depth, "else:")
        self.block(depth + 1, number, room, generates)

    def loop(self, depth, number, room, generates):
        self.put(depth, self.rng.choice(["for each in range(3):", "while flip():",
                                         "for n in xrange(1, 4):"]))
        self.block(depth + 1, number, room, generates)
        if self.rng.random() < 0.3:
            self.put(depth + 1, "if flip(): " + self.rng.choice(["break", "continue"]))

    def trying(self, depth, number, room, generates):
        self.put(depth, "try:")
        self.block(depth + 1, number, room, generates)
        # A bare one comes last.
        for clause in sorted(self.rng.sample(CLAUSES, self.rng.randint(1, 2)), reverse=True):
            self.put(depth, "except %s:" % clause)
            self.put(depth + 1, "lines_of(sys.exc_info()[2])")
            if self.rng.random() < 0.4:
                self.block(depth + 1, number, room, generates)

    def finishing(self, depth, number, room, generates):
        self.put(depth, "try:")
        self.block(depth + 1, number, room, generates)
        self.put(depth, "finally:")
        self.simple(depth + 1)

    def within(self, depth, number, room, generates):
        self.put(depth, "with Within():")
        self.block(depth + 1, number, room, generates)

    def defining(self, depth, number, room, generates):
        name = "inner%d" % depth
        self.put(depth, "def %s(m):" % name)
        self.put(depth + 1, "n = m")
        self.block(depth + 1, number, room)
        self.put(depth + 1, "return n")
        self.put(depth, "note('inner', %s(n))" % name)

    def generating(self, depth, number, room, generates):
        name = self.called(number, "g")
        if name == "min":
            self.simple(depth)
            return
        how = self.rng.randint(0, 2)
        if how == 0:
            self.put(depth, "for each in %s(n):" % name)
            self.block(depth + 1, number, room, generates)
        elif how == 1:
            self.put(depth, "kept.append(%s(n))" % name)
            self.put(depth, "note('next', kept[n % len(kept)].next())")
        else:
            self.put(depth, "held = %s(n)" % name)
            self.put(depth, "note('sent', held.send(None))")
            self.put(depth, self.rng.choice(["held.throw(Failure(n))", "held.close()",
                                             "n = sum(held) % 10"]))


class Run(object):
    """A program under one of the three, and all that it came to."""

    # The same for all three: what the program draws follows from its own seed alone.
    def __init__(self, seed):
        self.rng = fuzzing.dice(seed, 1)
        self.notes = []
        # What conditions were evaluated for: the program alone has none.
        self.conditions = []
        self.depth = self.turns = 0
        self.kept = []

    def note(self, kind, value):
        self.notes.append((kind, value))
        return True

    def asked(self, number):
        self.conditions.append(number)
        return True

    def flip(self):
        return self.note('flip', 0) and not self.spent() and self.rng.random() < 0.4

    def spent(self):
        """Whether the program is to come to an end."""
        self.turns += 1
        return self.turns > MOST_TURNS

    def again(self, function, number):
        """Recursion, a little."""
        if self.depth > 3:
            return number
        self.depth += 1
        try:
            return function(number)
        finally:
            self.depth -= 1

    def in_thread(self, function):
        """Nothing of the calling thread runs meanwhile, not even a line."""
        gate = thread.allocate_lock()
        gate.acquire()
        caught = functools.partial(self.caught, function)
        tracer = sys.gettrace()
        calls = [functools.partial(sys.settrace, tracer if tracer in (None, pass_by)
                                   else core.bootstrap_new_thread),
                 caught, functools.partial(sys.settrace, None), core.thread_exiting, gate.release]
        thread.start_new_thread(map, (operator.methodcaller("__call__"), calls)), gate.acquire()

    def caught(self, function):
        try:
            function()
        except:
            self.note('thread', sys.exc_info()[0].__name__)

    def go(self, code):
        names = {"__name__": "program", "kept": self.kept, "yield_back": abs}
        for name in ("note", "asked", "flip", "spent", "again", "in_thread"):
            names[name] = getattr(self, name)
        try:
            exec code in names
        except:
            self.note('ended', sys.exc_info()[0].__name__)
        self.note('kept', len(self.kept))


def pass_by(frame, event, argument):
    return pass_by


class Server(object):
    """Answers each stop by what follows from the seed and how many there were before."""

    def __init__(self, seed, path, stream):
        self.rng = fuzzing.dice(seed, 2)
        self.path = path
        self.stops = []
        harness.Server().init(line_cb=self.line, return_cb=self.return_, exception_cb=self.exception,
                 debug_stream=stream)
        core.reset()

    def prepare(self, number_of_lines):
        rng = self.rng
        self.number_of_lines = number_of_lines
        core.set_exception_mode(rng.choice([0, 0, 1, 2, 2, 4]))
        if rng.random() < 0.2:
            core.set_always_stop_excepts((KeyError, LookupError))
        for _ in range(rng.randint(2, 16)):
            self.edit()

    def line_number(self):
        return self.rng.randint(PRELUDE.count("\n") - 20, self.number_of_lines)

    def edit(self):
        rng = self.rng
        place = self.path, self.line_number()
        choice = rng.randint(0, 8)
        if choice < 4:
            core.set_break(*(place + (rng.random() < 0.9, rng.random() < 0.2,
                                      rng.choice(CONDITIONS), rng.choice([0, 0, 0, 1, 2]))))
        elif choice == 4:
            core.clear_breaks(*place)
        elif choice == 5:
            core.enable_breaks(*(place + (rng.randint(0, 1),)))
        elif choice == 6:
            core.ignore_breaks(*(place + (rng.randint(0, 2),)))
        elif choice == 7:
            core.set_breaks_cond(*(place + (rng.choice(CONDITIONS),)))
        else:
            core.set_exception_mode(rng.choice([0, 1, 2]))

    def stop(self, kind, frame, *more):
        lines = []
        each = frame
        while each is not None and each.f_code.co_filename in (self.path, "<string>"):
            lines.append((each.f_code.co_name, each.f_lineno))
            each = each.f_back
        self.stops.append((kind, lines, repr(frame.f_locals.get('n'))) + more)
        if len(self.stops) > MOST_STOPS:
            core.clear_all_breaks()
            core.set_exception_mode(0)
            core.continue_run()
            return
        while self.rng.random() < 0.3:
            self.edit()
        request = self.rng.choice(REQUESTS)
        if frame.f_code.co_filename != self.path:
            request = "step_out"
        if request == "range":
            core.step_over_line_range(frame.f_lineno, frame.f_lineno + self.rng.randint(0, 3))
        else:
            getattr(core, request)()

    def line(self, frame, changed):
        self.stop('line', frame, repr(changed))

    def return_(self, frame, value, changed):
        self.stop('return', frame, repr(changed))

    def exception(self, frame, error, changed):
        self.stop(error[0].__name__, frame, repr(changed))


def traced(seed, path, code, source, stream):
    """The Run and the stops."""
    server, run = Server(seed, path, stream), Run(seed)
    server.prepare(source.count("\n"))
    core.start_trace()
    if server.rng.random() < 0.5:
        core.continue_run()
    else:
        core.step_into()
    try:
        run.go(code)
    finally:
        core.stop_trace()
    return run, server.stops


def check(seed, notes):
    gc.collect()
    source = Writer(fuzzing.dice(seed)).program()
    path = "/program_%d.py" % seed
    code = compile(source, path, "exec")
    alone = Run(seed)
    alone.go(code)
    stream = open(os.devnull, "w")
    logged, logged_stops = traced(seed, path, code, source, stream)
    unlogged, unlogged_stops = traced(seed, path, code, source, None)
    os.write(notes, "program %d: %d stops\n" % (seed, len(logged_stops)))
    if logged.notes != alone.notes:
        alone = Run(seed)
        sys.settrace(pass_by)
        try:
            alone.go(code)
        finally:
            sys.settrace(None)
    for what, first, second in (
            ("stops with a stream and without", logged_stops, unlogged_stops),
            ("conditions with a stream and without", logged.conditions, unlogged.conditions),
            ("results alone and with a stream", alone.notes, logged.notes),
            ("results alone and without a stream", alone.notes, unlogged.notes)):
        if first != second:
            at = [one == other for one, other in zip(first, second)] + [False]
            at = at.index(False)
            os.write(2, "%s\nFAULT seed %d: %s differ, at %d: %r and %r\n" % (
                source, seed, what, at, first[max(0, at - 2):at + 2],
                second[max(0, at - 2):at + 2]))
            os._exit(1)


def run_rounds(first, last, limit, notes):
    # Generators that it finds are closed by code of theirs, whatever runs just then.
    gc.disable()
    for seed in range(first, last + 1):
        check(seed, notes)


class Fuzzer(fuzzing.Fuzzer):

    batch = 20
    short_rounds = 200


if __name__ == "__main__":
    sys.exit(Fuzzer("tests/fuzz/stops.py", run_rounds).main(
        fuzzing.options(__doc__.splitlines()[0])))
