"""What the tests of exceptions share."""

import cStringIO
import functools
import operator
import sys
import thread
import weakref

import harness
from harness import core

NEVER, ALWAYS, UNHANDLED, PRINTED, PRINTED_TOO = 0, 1, 2, 4, 5

ASKED = "stop_at_exception_no_filters\n"
# What the policy logs when it comes to a decision.
DECISIONS = ("  never stop\n", "  leaving bottom frame\n", "  always stop\n", "  unhandled\n",
             "  frame prints\n")


class CatchInfo(object):
    """Says of a function how it treats the exceptions that reach it."""

    def __init__(self, co_name, prints=True, parent=False, mod_name="*", containing_class="*"):
        self.co_name = co_name
        self.mod_name = mod_name
        self.containing_class = containing_class
        self.prints = prints
        self.parent = parent


class ExceptionTestCase(harness.TestCase):
    """Programs that run freely: what stops them is exceptions.

    Each runs in a new thread with no Python code below it: its module is the bottom frame and
    what it does not catch is caught nowhere.  A stop is recorded as "ValueError in f:3" (the
    frame of the event, not the one that raised); `at_stop`, where set, is called with its frame.
    """

    def setUp(self):
        harness.TestCase.setUp(self)
        self.stops = []
        self.reports = []       # what exception_cb was given at each stop
        self.at_stop = None
        self.ended_by = ""      # the last line that the last program printed as it died
        self.server = harness.Server()
        self.stream = self.server.stream
        self.init()

    def init(self, **changes):
        settings = {
            "exception_cb": self.exception, "line_cb": self.run_on, "return_cb": self.run_on,
            # Written in C: no frame of it is the thread's first.
            "install_thread_hooks_cb": self.server.hooks.append}
        settings.update(changes)
        self.server.init(**settings)

    def run_on(self, *arguments):
        core.continue_run()

    def exception(self, frame, exc_info, changed_bps):
        self.stops.append(
            "%s in %s:%d" % (exc_info[0].__name__, frame.f_code.co_name, frame.f_lineno))
        self.reports.append((frame, exc_info, changed_bps))
        if self.at_stop is not None:
            self.at_stop(frame)

    def compiled(self, source, name="program.py"):
        return compile(source, self.script(source, name), "exec")

    def run_program(self, source, mode=None, **variables):
        """The stops of a program that runs freely."""
        return self.run_code(self.compiled(source), mode, **variables)

    def run_code(self, code, mode=None, **variables):
        del self.stops[:]
        del self.reports[:]
        if mode is not None:
            core.set_exception_mode(mode)
        variables.setdefault("__name__", "program")
        variables.setdefault("__file__", code.co_filename)
        variables.update({"core": core, "case": self})
        program = functools.partial(eval, code, variables)
        # Forgets an earlier thread of the same address, which had no chance to say good-bye.
        calls = [core.thread_exiting, core.start_trace, core.continue_run, program,
                 core.stop_trace]
        running = weakref.ref(program)
        errors = sys.stderr
        sys.stderr = cStringIO.StringIO()
        try:
            thread.start_new_thread(map, (operator.methodcaller("__call__"), calls))
            del program, calls
            self.assertEqual(harness.wait_until(lambda: running() is None), True)
            self.ended_by = (sys.stderr.getvalue().splitlines() or [""])[-1]
        finally:
            sys.stderr = errors
            core.stop_trace()
        return self.stops[:]

    def decisions(self):
        """What the policy decided, event by event, as logged."""
        decided = []
        for message in self.stream.among(ASKED, *DECISIONS):
            if message == ASKED:
                decided.append("")
            else:
                decided[-1] = message.strip()
        return decided
