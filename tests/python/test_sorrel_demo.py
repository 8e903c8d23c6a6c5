"""The recorded session."""

import time

import sorrel_session

ALTERED = '''
import sys
from sorrel import demo
%s
sys.exit(demo.play())
'''


class Demo(sorrel_session.TestCase):

    def altered(self, change):
        return self.call('-c', ALTERED % change)

    def test_it_is_played_to_its_end(self):
        start = time.time()
        out, err, status = self.call('-m', 'sorrel.main', 'demo')
        self.assertEqual((err, status), ('', 0))
        self.assertTrue(time.time() - start < 10)
        self.assertTrue(out.startswith('A session with the debugger over '), out)
        self.assert_in("(sorrel) print bob\n<Bob: 1050>\n", out)
        self.assertTrue(out.endswith('The program ended with exit status 0.\n'), out)

    def test_it_is_the_same_each_time(self):
        first = self.call('-m', 'sorrel.main', 'demo')
        self.assertEqual(first, self.call('-m', 'sorrel.main', 'demo'))

    def test_an_unexpected_answer_is_noticed(self):
        out, err, status = self.altered("demo._SESSION[3] = ('next', 'nonsense')")
        self.assertEqual(status, 1)
        self.assertTrue(err.startswith("sorrel: the demo went wrong at 'next': "), err)

    def test_an_early_end_is_noticed(self):
        out, err, status = self.altered("demo._SESSION[2] = ('continue', '')")
        self.assertEqual((err, status), ('sorrel: the demo did not end where it should\n', 1))

    def test_a_session_that_should_go_on_is_noticed(self):
        out, err, status = self.altered('del demo._SESSION[-1]')
        self.assertEqual((err, status), ('sorrel: the demo did not end where it should\n', 1))
