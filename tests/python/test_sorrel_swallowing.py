"""Exceptions that C code or a with statement swallows do not stop, those that it does not do."""

import os
import sys

import harness
from sorrel.inspection import frames
from sorrel.service import c_callers, c_calls, exceptions, runner, service, stops
from sorrel.service.stops import RAISED, Resume

# 2.6 does not ask for an index there.
OF_2_7 = ('an index that is packed',)

FOLDER = os.path.dirname(os.path.abspath(__file__))


class FrontEnd(object):
    """Stops at unhandled exceptions, and remembers at which."""

    def __init__(self):
        self.service = None
        self.raised = []

    def stopped(self, stop):
        self.service.exceptions.set_mode(exceptions.UNHANDLED)
        self.service.exceptions.set_types((), (SystemExit,))
        if stop.reason == RAISED:
            self.raised.append(self.describe(stop))
        return Resume(stops.CONTINUE)

    def describe(self, stop):
        """The name of the thread, and whether the frame that raised is left already."""
        thread = [one for one in self.service.threads() if one.ident == stop.thread][0]
        running = sys._current_frames()[thread.ident]
        return thread.name, stop.frame not in frames.callers(running)

    def ended(self, outcome):
        pass


class Programs(harness.TestCase):

    front_end = FrontEnd

    def setUp(self):
        harness.TestCase.setUp(self)
        self.main = sys.modules['__main__']

    def tearDown(self):
        sys.modules['__main__'] = self.main
        harness.TestCase.tearDown(self)

    def run_program(self, path):
        """The stops at exceptions, and the program's namespace."""
        front_end = self.front_end()
        front_end.service = service.Service(front_end)
        errors, sys.stderr = sys.stderr, open(os.path.join(self.folder, 'errors'), 'w+')
        try:
            script = runner.find_script(path)
            runner.prepare(script, [])
            runner.run(script, front_end.service)
        finally:
            front_end.service.detach()
            sys.stderr.seek(0)
            self.errors = sys.stderr.read()
            sys.stderr = errors
        return front_end.raised, sys.modules['__main__'].__dict__

    def check(self, name):
        """The program really goes on, or does not; what ends a thread of it has stopped once."""
        stopped, program = self.run_program(os.path.join(FOLDER, name))
        swallowed, stopping, late, came_back = [
            [function.__name__ for function in program.get(kind, ())]
            for kind in ('swallowed', 'stopping', 'late', 'came_back')]
        self.assertEqual(came_back, swallowed,
                         self.tracebacks(set(came_back) ^ set(swallowed)))
        wrong = set(stopped) ^ set([(name, False) for name in stopping]
                                   + [(name, True) for name in late])
        self.assertEqual(wrong, set(), '%s\n%s' % (
            sorted(wrong), self.tracebacks([name for name, _ in wrong])))
        self.assertEqual(sorted([name for name, _ in stopped]),
                         sorted(stopping + late + program.get('twice', [])))

    def tracebacks(self, names):
        return '\n'.join([text for text in self.errors.split('\n\n') if
                          text.strip() and text.split()[3].strip(':') in names])


class CCallers(Programs):

    def setUp(self):
        Programs.setUp(self)
        self.rows = {}
        self.row_of = c_calls.row_of
        c_calls.row_of = self.remember

    def tearDown(self):
        c_calls.row_of = self.row_of
        Programs.tearDown(self)

    def remember(self, call, kind):
        row = self.row_of(call, kind)
        if row is not None:
            frame = call._caller
            while frame.f_code.co_name != 'run':
                function, frame = frame.f_code.co_name, frame.f_back
            self.rows.setdefault(function, set()).add(row.name)
        return row

    def test_the_interpreter_and_the_table_agree(self):
        self.check('swallowed.py')

    def test_each_row_is_asked(self):
        _, program = self.run_program(os.path.join(FOLDER, 'swallowed.py'))
        wrong = [(function.__name__, sorted(self.rows.get(function.__name__, ())))
                 for function in program['swallowed']
                 if function.__doc__ not in self.rows.get(function.__name__, ())
                 # The core sees where 2.7 is in a loop.
                 and not (function.__doc__.endswith(' at once') and sys.version_info >= (2, 7))
                 and not (function.__doc__ in OF_2_7 and sys.version_info < (2, 7))]
        self.assertEqual(wrong, [])
        named = set(function.__doc__ for function in program['swallowed'])
        self.assertEqual([row.name for row in c_callers.ROWS if row.name not in named], [])


class WithStatements(Programs):

    def test_they_do_what_was_expected(self):
        self.check('with_statements.py')
