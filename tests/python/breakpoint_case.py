"""What the tests of breakpoints and of file identity share."""

import os
import sys

import harness
from harness import core


class BreakpointTestCase(harness.TestCase):
    """Programs in the test's folder, run freely: what stops them is breakpoints.

    A stop is recorded as "program.py:3"; `at_stop`, where set, is called with its frame.
    """

    def setUp(self):
        harness.TestCase.setUp(self)
        sys.dont_write_bytecode = True
        sys.path.insert(0, self.folder)
        self.stops = []
        self.changed = []   # what the callback was given at each stop
        self.at_stop = None
        self.server = harness.Server()
        self.server.init(line_cb=self.line, return_cb=self.return_,
                         install_thread_hooks_cb=harness.trace_new_threads)

    def write(self, name, source):
        """The path of a new file; folders on the way to it are made."""
        folder = os.path.dirname(os.path.join(self.folder, name))
        if not os.path.isdir(folder):
            os.makedirs(folder)
        return self.script(source, name)

    def set_break(self, path, line, enabled=1, temporary=0, cond=None, ignore=0):
        return core.set_break(path, line, enabled, temporary, cond, ignore)

    def run_program(self, path, **variables):
        """Runs a file's program under trace, its code named by `path`; returns its variables."""
        source = open(path)
        code = compile(source.read(), path, "exec")
        source.close()
        variables.setdefault("__file__", path)
        return self.run_code(code, **variables)

    def run_code(self, code, **variables):
        variables.setdefault("__name__", "program")
        variables.update({"core": core, "case": self})
        core.start_trace()
        core.continue_run()
        try:
            exec code in variables
        finally:
            core.stop_trace()
        return variables

    def line(self, frame, changed_bps):
        self.record("", frame, changed_bps)

    def return_(self, frame, value, changed_bps):
        self.record("return ", frame, changed_bps)

    def record(self, event, frame, changed_bps):
        name = os.path.basename(frame.f_code.co_filename)
        self.stops.append("%s%s:%d" % (event, name, frame.f_lineno))
        self.changed.append(changed_bps)
        if self.at_stop is not None:
            self.at_stop(frame)

    def hits(self, path, line):
        """The hit counts of the breakpoints at a line, newest first."""
        return [described[5] for described in core.get_breaks(path, line)]
