"""Which exceptions signal handlers have raised."""

import functools
import signal
import sys

import harness
from sorrel.service import signal_handlers


def function(number, frame):
    return {}[number]


class New(object):
    def __call__(self, number, frame):
        return {}[number]

    method = __call__


class Old:
    def __call__(self, number, frame):
        return {}[number]


class Derived(New):
    pass


class OldDerived(Old):
    pass


def partly(more, number, frame):
    return {}[number]


def calls_another(number, frame):
    function(number, frame)


asked_for = []


class Dynamic(object):
    def __getattribute__(self, name):
        asked_for.append(name)
        return object.__getattribute__(self, name)

    def __call__(self, number, frame):
        pass


class SignalHandlersTest(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        self.before = signal.getsignal(signal.SIGUSR1)

    def tearDown(self):
        signal.signal(signal.SIGUSR1, self.before)
        harness.TestCase.tearDown(self)

    def have_raised(self, handler):
        try:
            handler(signal.SIGUSR1, None)
        except KeyError:
            return signal_handlers.have_raised(sys.exc_info()[2])
        raise AssertionError('nothing was raised')

    def test_whatever_is_called(self):
        for handler in (function, New(), New().method, Old(), Derived(), OldDerived(),
                        functools.partial(partly, 1), lambda number, frame: {}[number],
                        calls_another):
            self.assertEqual(self.have_raised(handler), False)
            signal.signal(signal.SIGUSR1, handler)
            self.assertEqual(self.have_raised(handler), True)
            signal.signal(signal.SIGUSR1, self.before)

    def test_others(self):
        for other in signal.default_int_handler, signal.SIG_IGN, signal.SIG_DFL, Dynamic():
            signal.signal(signal.SIGUSR1, other)
            self.assertEqual(self.have_raised(function), False)
        self.assertEqual(asked_for, [])
