"""Variables of a language whose hook fails to tell of them."""

import os
import subprocess

import sorrel_session
from test_sublanguages_templates import BILL, EXAMPLE

PROGRAM = '''\
import sys
sys.path.insert(0, %r)
import bills
bills.main()
''' % EXAMPLE
FAILING = '''\
import sys
sys.path.insert(0, %r)
from weft import debugging
class Hook(debugging.Hook):
    def _Variables(self, frame):
        raise ValueError('none today')
''' % EXAMPLE


class FailingVariablesTest(sorrel_session.TestCase):

    def start(self, program, args=(), **files):
        return self.popen(['-m', 'sorrel.main', 'terminal', '--hook', 'failing:Hook', '--',
                           program], **files)

    def test_it_is_said_and_the_session_goes_on(self):
        self.script(FAILING, 'failing.py')
        out, err, _ = self.debug(PROGRAM, [
            'break %s:9' % BILL, 'continue', 'info locals', 'sum = 1', 'p sum', 'where', 'quit'])
        answers = out.split(sorrel_session.PROMPT)
        self.assertEqual((err, answers[3:5]), ('', ['*** ValueError: none today\n'] * 2))
        self.assertTrue('bill.weft(9)' in answers[6])
