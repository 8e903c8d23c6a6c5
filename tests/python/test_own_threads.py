"""Threads of the server's, which start in programs that fork."""

import os
import signal
import sys
import thread
import time

import harness

import _sorrel


class StartThread(harness.TestCase):

    def test_a_function_is_called_in_another_thread(self):
        called = []
        _sorrel.start_thread(lambda: called.append(thread.get_ident()))
        self.assertTrue(harness.wait_until(lambda: called))
        self.assertNotEqual(called, [thread.get_ident()])

    def test_what_cannot_be_called_is_refused(self):
        self.assert_raises(TypeError, 'function must be callable', _sorrel.start_thread, 1)
        self.assert_raises(TypeError, None, _sorrel.start_thread)

    def test_errors_are_told_but_for_the_wish_to_end(self):
        said = []

        class Stream(object):
            def write(self, text):
                said.append(text)

        class Failing(object):
            def __init__(self, error):
                self.error = error

            def __call__(self):
                raise self.error
        errors, sys.stderr = sys.stderr, Stream()
        try:
            _sorrel.start_thread(Failing(SystemExit(3)))
            time.sleep(0.1)
            self.assertEqual(said, [])
            _sorrel.start_thread(Failing(KeyError('x')))
            self.assertTrue(harness.wait_until(lambda: ''.join(said).endswith("KeyError: 'x'\n")))
        finally:
            sys.stderr = errors
        self.assertEqual(''.join(said).split('\n')[0],
                         'Unhandled exception in a thread of the debug server: Failing')

    def test_one_that_hardly_begins_is_not_taken_for_the_one_that_has_started_it(self):
        class Meant(Exception):
            pass
        begun = []
        for _ in range(200):
            _sorrel.start_thread(lambda: begun.append(1))
            try:
                _sorrel.raise_in_thread(thread.get_ident(), Meant)
                for _ in range(1000):
                    pass
                self.fail('it was raised elsewhere')
            except Meant:
                pass
        self.assertTrue(harness.wait_until(lambda: len(begun) == 200))

    def test_references_are_level(self):
        function = lambda: None
        before = sys.getrefcount(function)
        for _ in range(20):
            _sorrel.start_thread(function)
        self.assertTrue(harness.wait_until(lambda: sys.getrefcount(function) == before))

    def test_too_many_threads(self):
        try:
            import resource
            # Of the address space: no room for a stack.
            limits = resource.getrlimit(resource.RLIMIT_AS)
        except ImportError:
            self.skip('no limits here')
        size = int(open('/proc/self/statm').read().split()[0]) * resource.getpagesize()
        resource.setrlimit(resource.RLIMIT_AS, (size + (1 << 20), limits[1]))
        try:
            function = lambda: None
            before = sys.getrefcount(function)
            self.assert_raises(thread.error, "can't start new thread", _sorrel.start_thread,
                               function)
            self.assertEqual(sys.getrefcount(function), before)
        finally:
            resource.setrlimit(resource.RLIMIT_AS, limits)

    def test_a_process_forked_meanwhile_can_start_threads(self):
        harness.need_forks_beside_threads(self)
        running = [None]

        def start_threads():
            while running:
                _sorrel.start_thread(lambda: None)
                time.sleep(0.0002)
        _sorrel.start_thread(start_threads)
        statuses = []
        for _ in range(200):
            child = os.fork()
            if not child:
                self.live()
            statuses.append(os.waitpid(child, 0)[1])
        running.pop()
        self.assertEqual(statuses, [0] * 200)

    def live(self):
        """In a forked process: starts a thread of its own, and ends when that has run."""
        signal.alarm(20)
        has_run = thread.allocate_lock()
        has_run.acquire()
        thread.start_new_thread(has_run.release, ())
        has_run.acquire()
        os._exit(0)
