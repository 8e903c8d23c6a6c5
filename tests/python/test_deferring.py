"""Callbacks in which exceptions turn up that are not the server's."""

import signal
import sys

import harness

import _sorrel


class Deferring(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        self.deferred = []
        self.answers = []

    def call(self, function, *arguments):
        return _sorrel.deferring(function, self.defer)(*arguments)

    def defer(self, type, error, traceback):
        self.deferred.append((type, error.args, traceback.tb_frame.f_code.co_name))
        answer = self.answers.pop(0)
        if isinstance(answer, Exception):
            raise answer
        return answer

    def fail_with(self, *arguments):
        raise KeyError(*arguments)

    def test_what_is_returned_passes(self):
        self.assertEqual(self.call(lambda *arguments: arguments, 1, 2), (1, 2))
        self.assertEqual(self.deferred, [])

    def test_what_is_deferred_is_over(self):
        self.answers = [1]
        self.assert_is(self.call(self.fail_with, 'x'), True)
        self.assertEqual(self.deferred, [(KeyError, ('x',), 'fail_with')])
        self.assertEqual(sys.exc_info(), (None, None, None))

    def test_what_is_not_deferred_passes(self):
        self.answers = [0]
        try:
            self.call(self.fail_with, 'x')
        except KeyError, error:
            self.assertEqual(error.args, ('x',))
        self.assertEqual(self.answers, [])

    def test_what_comes_between_is_deferred(self):
        self.answers = [ValueError('between'), 1]
        self.assert_is(self.call(self.fail_with, 'x'), True)
        self.assertEqual([one[:2] for one in self.deferred], [
            (KeyError, ('x',)), (ValueError, ('between',))])

    def test_what_fails_for_good_is_raised(self):
        self.answers = [ValueError('first'), ValueError('second')]
        try:
            self.call(self.fail_with, 'x')
        except ValueError, error:
            self.assertEqual(error.args, ('second',))

    def test_a_negative_number_is_a_signal_that_is_sent_outside(self):
        seen = []
        previous = signal.signal(signal.SIGALRM, lambda number, frame: seen.append(
            (number, frame.f_code.co_name)))
        try:
            result = self.call(lambda: -signal.SIGALRM)
            self.assertEqual((result, seen), (0, [(signal.SIGALRM, 'call')]))
        finally:
            signal.signal(signal.SIGALRM, previous)
        self.assertEqual(self.call(lambda: 5), 5)

    def test_wrong_arguments(self):
        self.assertRaises(TypeError, _sorrel.deferring, len)
        self.assertRaises(TypeError, _sorrel.deferring(len, self.defer), object='x')
        self.assertRaises(TypeError, _sorrel.deferring(7, lambda *error: 0))

    def test_nothing_is_leaked(self):
        if not hasattr(sys, 'gettotalrefcount'):
            self.skip('only a debug build counts references')
        counts = [0] * 6
        for turn in range(6):
            self.answers = [1, 0, ValueError(), 1]
            for _ in range(3):
                try:
                    self.call(self.fail_with, object())
                except KeyError:
                    sys.exc_clear()
            del self.deferred[:]
            counts[turn] = sys.gettotalrefcount()
        self.assertEqual(counts[3:], counts[3:4] * 3)
