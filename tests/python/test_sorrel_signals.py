"""What signal handlers of the program raise while its main thread is in the server."""

import signal

import harness
import sorrel_session
from sorrel.service import runner, service, stops
from sorrel.service.stops import Resume

ROUNDS = 150
# One signal at a time, at a moment that nothing tells of. What it raises is waited for.
PROGRAM = '''\
import random, signal, sys
class Late(%s):
    pass
def late(number, frame):
    raise Late(sent)
signal.signal(signal.SIGALRM, late)
caught = []
for sent in range(%d):
    try:
        signal.setitimer(signal.ITIMER_REAL, random.uniform(1e-5, 3e-3))
        while True:
            x = 1  # stop
    except Late, error:
        caught += error.args
signal.signal(signal.SIGALRM, signal.SIG_DFL)
assert caught == range(%d), caught
end = 1
'''


class FrontEnd(object):
    """Lets the program run on; `what` is looked at by each stop."""

    def __init__(self):
        self.lines = set()

    def stopped(self, stop):
        self.lines.add(stop.frame.f_lineno)
        return Resume(stops.CONTINUE)

    def ended(self, outcome):
        self.outcome = outcome


class Raised(harness.TestCase):

    def run_program(self, base):
        text = PROGRAM % (base, ROUNDS, ROUNDS)
        line = text[:text.index('# stop')].count('\n') + 1
        front_end = FrontEnd()
        one = service.Service(front_end)
        try:
            path = self.script(text)
            script = runner.find_script(path)
            runner.prepare(script, [])
            for number in line, text.count('\n'):
                one.breakpoints.add(path, number)
            self.assertEqual(runner.run(script, one), 0)
            # It has been traced to its end.
            self.assertEqual(sorted(front_end.lines), [1, line, text.count('\n')])
            self.assertEqual(one._gate._holds, [])
            self.assertEqual(one._stops, {})
        finally:
            one.detach()

    def test_an_error(self):
        self.run_program('Exception')

    def test_what_ends_a_program(self):
        self.run_program('SystemExit')


class AtThePrompt(sorrel_session.TestCase):

    def test_it_is_raised_when_the_thread_goes_on(self):
        self.script('''\
import signal
class Late(Exception):
    pass
def late(number, frame):
    raise Late('late')
signal.signal(signal.SIGALRM, late)
try:
    x = 1
    y = 2
except Late, error:
    print error
''', 'prog.py')
        screen = sorrel_session.Screen(self, 'prog.py')
        try:
            screen.read_to(sorrel_session.PROMPT)
            for command in 'b 8', 'c':
                screen.type(command + '\n')
                screen.read_to(sorrel_session.PROMPT)
            screen.send(signal.SIGALRM)
            # A host without line editing notices when a line has been typed.
            for _ in range(2):
                screen.type("'y' in vars()\n")
            screen.read_to('False\r\n')
            screen.type('c\n')
            self.assert_in('late\nThe program ended with exit status 0.\n', screen.read_all()[0])
        finally:
            screen.close()
