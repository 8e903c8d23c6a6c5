"""The recorded sessions."""

import time

import sorrel_session

ALTERED = '''
import sys
from sorrel.terminal import demo, recordings
recording = recordings.RECORDINGS['ledger']
%s
sys.exit(demo.play(recording))
'''


class Demo(sorrel_session.TestCase):

    def play(self, name):
        start = time.time()
        result = self.call('-m', 'sorrel.main', 'demo', name)
        self.assertTrue(time.time() - start < 10)
        return result

    def altered(self, change):
        return self.call('-c', ALTERED % change)

    def test_the_ledger_is_played_to_its_end(self):
        out, err, status = self.play('ledger')
        self.assertEqual((err, status), ('', 0))
        self.assertTrue(out.startswith('A session with the debugger over '), out)
        self.assert_in("(sorrel) print bob\n<Bob: 1050>\n", out)
        self.assertTrue(out.endswith('The program ended with exit status 0.\n'), out)

    def test_the_bills_are_played_to_their_end(self):
        out, err, status = self.play('bills')
        self.assertEqual(status, 0)
        self.assertTrue(err.startswith('Traceback (most recent call last):\n'), err)
        self.assertTrue(err.endswith("AttributeError: 'Gift' object has no attribute 'total'\n"),
                        err)
        self.assert_in('templates/bill.weft(10)render()\n-> {% set sum', out)
        self.assert_in('templates/item.weft(5)render()\n-> {{ order.total() | money }}\n', out)
        self.assert_in('(sorrel) print sum\n3490\n', out)
        self.assertTrue(out.endswith('The program ended with an uncaught AttributeError.\n'), out)

    def test_they_are_the_same_each_time(self):
        for name in 'ledger', 'bills':
            self.assertEqual(self.play(name), self.play(name))

    def test_an_unexpected_answer_is_noticed(self):
        out, err, status = self.altered("recording.typed[3] = ('next', 'nonsense')")
        self.assertEqual(status, 1)
        self.assertTrue(err.startswith("sorrel: the demo went wrong at 'next': "), err)

    def test_an_early_end_is_noticed(self):
        out, err, status = self.altered("recording.typed[2] = ('continue', '')")
        self.assertEqual((err, status), ('sorrel: the demo did not end where it should\n', 1))

    def test_a_session_that_should_go_on_is_noticed(self):
        out, err, status = self.altered('del recording.typed[-1]')
        self.assertEqual((err, status), ('sorrel: the demo did not end where it should\n', 1))
