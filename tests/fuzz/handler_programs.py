"""Runs programs at random that raise and catch; each exception is caught as the core foretold.

usage: ./morvik python -- tests/fuzz/handler_programs.py [--seed N [--last M]] [--verbose]

The core is asked to stop where nothing will catch an exception. Every exception of a program has a
number: those that the core stops at must be those that no except clause of the program receives.
What the core cannot know is left out: clauses that it cannot read, finally clauses that let go of
an exception, and C code that catches.
"""

import os
import sys

import fuzzing
import harness
from harness import core

PRELUDE = """\
import sys

class E0(Exception): pass
class E1(E0): pass
class E2(E1): pass
class E3(E0, KeyError): pass
class E4(LookupError): pass
class Old: pass

class errors(object):
    E1 = E1
    E4 = E4
    class inner(object):
        E2 = E2

some = (E1, E3)
nested = (E4, (E2, E3))
nothing = ()
wrong = (5, 'E1', None)

class Within(object):
    def __enter__(self):
        return self
    def __exit__(self, *info):
        return None

class Checked(object):
    def __enter__(self):
        return self
    def __exit__(self, *info):
        try:
            raise E4(new())
        except LookupError, error:
            caught(error)
        return False
"""
CLASSES = ["E0", "E1", "E2", "E3", "E4"]
CLAUSES = ["E0", "E1", "E2", "E3", "E4", "(E1, E4)", "(E2, E3, ValueError)", "errors.E1",
           "errors.inner.E2", "some", "nested", "nothing", "wrong", "Exception", "KeyError",
           "BaseException", "LookupError", "Old", "(nested, E2)", "(errors.E4, some)", "()", "local",
           "ValueError"]


class Writer(object):
    """Writes a program by the dice."""

    def __init__(self, rng):
        self.rng = rng
        self.lines = []
        self.functions = rng.randint(2, 6)

    def program(self):
        for number in range(self.functions):
            self.function(number)
        self.block(0, -1, 3, False)
        return PRELUDE + "\n".join(self.lines) + "\n"

    def put(self, depth, text):
        self.lines.append("    " * depth + text)

    def function(self, number):
        self.put(0, "def f%d():" % number)
        self.put(1, "local = (E0, E4)" if self.rng.random() < 0.5 else "local = E1")
        self.block(1, number, 3, False)
        self.put(0, "def g%d():" % number)
        self.put(1, "local = E3")
        self.put(1, "yield 1")
        self.block(1, number, 3, False, True)
        self.put(1, "yield 2")

    def block(self, depth, number, room, in_loop, generates=False):
        """Statements of function `number`, which calls those with greater numbers only."""
        for _ in range(self.rng.randint(1, 3)):
            self.statement(depth, number, room, in_loop, generates)

    def statement(self, depth, number, room, in_loop, generates):
        kinds = [self.raising, self.raising, self.calling, self.calling]
        if room > 0:
            kinds += [self.trying] * 4 + [self.finishing, self.finishing, self.looping,
                                          self.generating, self.within, self.defining,
                                          self.throwing]
        choice = self.rng.random()
        if in_loop and choice < 0.1:
            self.put(depth, "if flip(): %s" % self.rng.choice(["break", "continue"]))
        elif generates and choice < 0.3:
            self.put(depth, "yield %d" % depth)
        else:
            self.rng.choice(kinds)(depth, number, room - 1, in_loop, generates)

    def raising(self, depth, number, room, *more):
        kind = self.rng.choice(CLASSES)
        self.put(depth, "if flip(): " + self.rng.choice([
            "raise %s(new())" % kind, "raise %s, new()" % kind, "{}[new()]", "fail(%s)" % kind]))

    def calling(self, depth, number, room, *more):
        if number + 1 < self.functions:
            self.put(depth, "f%d()" % self.rng.randint(number + 1, self.functions - 1))
        else:
            self.put(depth, "flip()")

    def trying(self, depth, number, room, in_loop, generates):
        self.put(depth, "try:")
        self.block(depth + 1, number, room, in_loop, generates)
        for _ in range(self.rng.randint(0, 2)):
            clause = self.rng.choice(CLAUSES)
            if clause == "local" and number < 0:
                clause = "some"
            self.put(depth, "except %s, error:" % clause)
            self.handler(depth + 1, number, room, in_loop, generates)
        if self.lines[-1].strip() == "try:" or self.rng.random() < 0.3 or \
                not self.has_clause(depth):
            self.put(depth, "except:")
            self.handler(depth + 1, number, room, in_loop, generates)
        if self.rng.random() < 0.2:
            self.put(depth, "else:")
            self.block(depth + 1, number, room, in_loop, generates)
        if self.rng.random() < 0.2:
            self.put(depth, "finally:")
            self.quiet(depth + 1)

    def has_clause(self, depth):
        for line in reversed(self.lines):
            text = line.strip()
            if len(line) - len(text) == 4 * depth:
                return text.startswith("except")
        return False

    def handler(self, depth, number, room, in_loop, generates):
        self.put(depth, "caught(sys.exc_info()[1])")
        if self.rng.random() < 0.4:
            self.block(depth, number, room - 1, in_loop, generates)

    def finishing(self, depth, number, room, in_loop, generates):
        self.put(depth, "try:")
        self.block(depth + 1, number, room, False, generates)
        self.put(depth, "finally:")
        self.quiet(depth + 1)

    def quiet(self, depth):
        """What lets go of no exception that is on its way."""
        if self.rng.random() < 0.5:
            self.put(depth, "flip()")
            return
        self.put(depth, "try:")
        self.put(depth + 1, "raise %s(new())" % self.rng.choice(CLASSES))
        self.put(depth, "except Exception, error:")
        self.put(depth + 1, "caught(error)")

    def looping(self, depth, number, room, in_loop, generates):
        self.put(depth, "for each in range(2):")
        self.block(depth + 1, number, room, True, generates)

    def generating(self, depth, number, room, in_loop, generates):
        if number + 1 >= self.functions:
            self.calling(depth, number, room)
            return
        self.put(depth, "for each in keep(g%d()):"
                 % self.rng.randint(number + 1, self.functions - 1))
        self.block(depth + 1, number, room, True, generates)

    def throwing(self, depth, number, room, in_loop, generates):
        if number + 1 >= self.functions:
            self.calling(depth, number, room)
            return
        self.put(depth, "suspended = keep(g%d())"
                 % self.rng.randint(number + 1, self.functions - 1))
        self.put(depth, "suspended.next()")
        self.put(depth, "suspended.throw(%s(new()))" % self.rng.choice(CLASSES))

    def within(self, depth, number, room, in_loop, generates):
        self.put(depth, "with %s() as manager:" % self.rng.choice(["Within", "Checked"]))
        self.block(depth + 1, number, room, in_loop, generates)

    def defining(self, depth, number, room, in_loop, generates):
        name = "inner%d" % depth
        self.put(depth, "def %s():" % name)
        self.put(depth + 1, "local = E1")
        self.block(depth + 1, number, room, False)
        self.put(depth, "%s()" % name)


class Run(object):
    """One program under trace: what was raised, caught and foretold."""

    def __init__(self, rng):
        self.rng = rng
        self.numbers = 0
        self.received = set()
        self.escaped = set()
        self.reported = set()
        self.kept = []

    def new(self):
        self.numbers += 1
        return self.numbers

    def flip(self):
        # A program comes to an end.
        return self.numbers < 200 and self.rng.random() < 0.4

    def fail(self, kind):
        raise kind(self.new())

    def caught(self, error):
        self.received.add(number_of(error))

    def keep(self, generator):
        """Nothing is thrown into it when it is let go of."""
        self.kept.append(generator)
        return generator

    def go(self, source, path):
        names = {"__name__": "program"}
        for name in ("new", "flip", "fail", "caught", "keep"):
            names[name] = getattr(self, name)
        code = compile(source, path, "exec")
        core.start_trace()
        core.continue_run()
        try:
            exec code in names
        except Exception, error:
            self.escaped.add(number_of(error))
        finally:
            core.stop_trace()
        for each in (self.received, self.escaped, self.reported):
            each.discard(None)


def number_of(error):
    """Of an exception or of what will be its arguments; None for one that is not the program's."""
    if isinstance(error, BaseException):
        error = error.args
    if isinstance(error, tuple):
        error = error and error[0]
    return error if type(error) is int else None


class Foretelling(object):
    """The debug server."""

    def __init__(self):
        self.run = None
        self.server = harness.Server()
        self.server.init(exception_mode=2, exception_cb=self.exception, debug_stream=None)
        # Who called the fuzzer catches everything.
        ignored = {Run.go.im_func.func_code: 1}
        frame = sys._getframe()
        while frame is not None:
            ignored[frame.f_code] = 1
            frame = frame.f_back
        core.set_ignored_exception_handlers(ignored)

    def exception(self, frame, info, changed):
        self.run.reported.add(number_of(info[1]))


def run_rounds(first, last, limit, notes):
    foretelling = Foretelling()
    for seed in range(first, last + 1):
        foretelling.run = check(foretelling, seed, notes)


def check(foretelling, seed, notes):
    source = Writer(fuzzing.dice(seed)).program()
    run = foretelling.run = Run(fuzzing.dice(seed, 1))
    run.go(source, "program_%d" % seed)
    os.write(notes, "program %d: %d raised, %d caught, %d not\n" % (
        seed, run.numbers, len(run.received), len(run.escaped)))
    if run.reported != run.escaped:
        os.write(2, "%s\nFAULT seed %d: caught %r, not caught %r, foretold %r\n" % (
            source, seed, sorted(run.received), sorted(run.escaped), sorted(run.reported)))
        os._exit(1)
    return run


class Fuzzer(fuzzing.Fuzzer):

    batch = 200
    short_rounds = 1000


if __name__ == "__main__":
    sys.exit(Fuzzer("tests/fuzz/handler_programs.py", run_rounds).main(
        fuzzing.options(__doc__.splitlines()[0])))
