"""Programs that fork while other threads are inside the debug server: the child is debugged as if
they had never been."""

import os
import signal
import sys
import thread
import threading

import harness
from harness import core

TWO_LINES = """\
x = 1
y = 2
"""

# The clock is read at every eleventh event and asks for a call once a second.
UNTIL_IDLE = """\
import time
end = time.time() + 20
while not calls and time.time() < end:
    pass
"""


class ForkTest(harness.CoreTestCase):

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        self.inside = threading.Event()
        self.over = threading.Event()

    def stay(self):
        """What a callback of another thread does while this one forks."""
        self.inside.set()
        self.over.wait(30)

    def elsewhere(self, function, *arguments):
        """Calls in a new thread, and goes on when that is inside a callback."""
        thread.start_new_thread(function, arguments)
        self.inside.wait(30)
        self.assertEqual(self.inside.isSet(), True)

    def in_child(self, function):
        """Whether the function returned a true value in a child."""
        child = os.fork()
        if child == 0:
            signal.alarm(50)
            try:
                os._exit(0 if function() else 1)
            finally:
                os._exit(2)
        return os.waitpid(child, 0)[1] == 0

    def first_stop(self):
        self.server.run(self.script(TWO_LINES))
        return self.server.stops == ["line <module> 1"]

    def test_steps_stop_though_another_thread_was_told_of_an_import(self):
        self.server.init()
        core.start_trace()
        core.set_import_cb(lambda module: self.stay())
        self.elsewhere(__import__, "os")
        core.set_import_cb(None)
        stopped = self.in_child(self.first_stop)
        self.over.set()
        core.stop_trace()
        self.assertEqual(stopped, True)

    def test_idle_callback_is_called_though_another_thread_was_in_it(self):
        calls = []

        def idle():
            if self.inside.isSet():
                calls.append(1)
            else:
                self.stay()

        def traced():
            while not self.inside.isSet():
                pass

        def bare():
            sys.settrace(core.bootstrap_new_thread)
            traced()

        def idles():
            core.add_to_tstate_tracing(-1)
            self.server.run(self.script(UNTIL_IDLE), calls=calls)
            return calls
        self.server.init(idle_period=1.0, idle_cb=idle)
        core.start_trace()
        core.add_to_tstate_tracing(1)   # an event here would wait for the other thread's
        self.elsewhere(bare)
        called = self.in_child(idles)
        self.over.set()
        core.stop_trace()
        core.add_to_tstate_tracing(-1)
        self.assertEqual(called, True)

    def test_callback_that_forks_goes_on_in_the_child(self):
        results = []

        def no_stop():
            core.add_to_tstate_tracing(-1)
            return not self.first_stop()

        def fork(module):
            core.set_import_cb(None)
            results.append(self.in_child(no_stop))
        self.server.init()
        core.start_trace()
        core.set_import_cb(fork)
        __import__("os")
        core.stop_trace()
        self.assertEqual(results, [True])


class QuietForkTest(ForkTest):
    quiet = True
