"""Tracing that one thread starts in all others, and takes away again."""

import sys
import thread
import threading
import time

import _sorrel
import tmorvik26_vs2012_x64 as core

import harness


LOOP = '''
def loop():
    seen.append('come')
    while len(seen) == 1:
        pass
    seen.append(gettrace())
'''


class Runner(threading.Thread):
    """A thread that runs what it is told, at a depth of some frames."""

    def __init__(self):
        threading.Thread.__init__(self)
        self.is_at_work, self.may_go = threading.Event(), threading.Event()
        self.seen = None
        self.start()
        self.is_at_work.wait()

    def run(self):
        self.outer()
        self.seen = sys.gettrace()

    def outer(self):
        self.inner()
        self.line = 'outer'

    def inner(self):
        # One line: whoever waits for it to be at work may find it on its way to the wait.
        self.is_at_work.set() or self.may_go.wait()
        self.line = 'inner'

    def end(self):
        self.may_go.set()
        self.join()


class AllThreadsTest(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        self.lines = []
        self.ended = []

    def tearDown(self):
        sys.settrace(None)
        harness.TestCase.tearDown(self)

    def trace(self, frame, event, argument):
        if event == 'line' and frame.f_code.co_name in ('inner', 'outer', 'run'):
            self.lines.append(frame.f_code.co_name)
        return self._trace

    def trace_all(self, on_end=None, *left_out):
        """Returns the trace object."""
        self._trace = self.trace
        sys.settrace(self._trace)
        _sorrel.trace_all_threads(on_end or self.on_end, self._trace, *left_out)
        sys.settrace(None)
        return self._trace

    def on_end(self):
        self.ended.append(thread.get_ident())

    def test_a_thread_that_waits_is_traced_when_it_goes_on(self):
        runner = Runner()
        self.trace_all()
        runner.end()
        self.assertEqual(self.lines, ['inner', 'outer', 'run'])
        self.assertEqual(runner.seen, self._trace)

    def test_a_thread_that_is_untraced_meanwhile_is_not(self):
        runner = Runner()
        frame = sys._current_frames()[runner.ident]
        _sorrel.untrace_all_threads(self.trace_all())
        while frame is not None:
            self.assertEqual(frame.f_trace, None)
            frame = frame.f_back
        runner.end()
        self.assertEqual((self.lines, runner.seen, self.ended), ([], None, []))

    def test_where_no_thread_is_traced_none_comes_to_be(self):
        runner = Runner()
        _sorrel.trace_all_threads(self.on_end, self.trace)
        runner.end()
        self.assertEqual((self.lines, runner.seen, self.ended), ([], None, []))

    def test_a_thread_that_begins_in_a_namespace_left_out_is_not_traced(self):
        runner = Runner()
        self.trace_all(None, set([id(threading.__dict__)]))
        runner.end()
        self.assertEqual((self.lines, runner.seen, self.ended), ([], None, []))

    def test_a_thread_that_begins_in_another_namespace_is(self):
        runner = Runner()
        self.trace_all(None, set([id(Runner.run.im_func.func_globals)]))
        runner.end()
        self.assertEqual(self.lines, ['inner', 'outer', 'run'])

    def test_a_thread_that_brings_the_server_is_not_traced(self):
        for names, is_traced in ({}, False), ({'__name__': 'module'}, True):
            seen = []
            namespace = dict(names, modules=sys.modules, seen=seen, gettrace=sys.gettrace)
            exec LOOP in namespace
            thread.start_new_thread(namespace['loop'], ())
            self.wait_for(lambda: seen)
            trace = self.trace_all()
            seen.append('go')
            self.wait_for(lambda: len(seen) == 3)
            self.assertEqual(seen[2], trace if is_traced else None)

    def test_the_calling_thread_is_untraced_too(self):
        self._trace = self.trace
        sys.settrace(self._trace)
        _sorrel.untrace_all_threads(self._trace)
        self.assertEqual(sys.gettrace(), None)

    def test_a_thread_with_a_trace_function_of_its_own_keeps_it(self):
        own = []

        def trace_own(frame, event, argument):
            own.append(event)
            return trace_own

        class Own(Runner):
            def outer(self):
                sys.settrace(trace_own)
                self.inner()
        runner = Own()
        _sorrel.untrace_all_threads(self.trace_all())
        runner.end()
        self.assertEqual((self.lines, runner.seen), ([], trace_own))
        self.assert_in('line', own)

    def test_the_end_of_each_thread_is_told_once(self):
        runners = [Runner() for _ in range(5)]
        idents = [runner.ident for runner in runners]
        for _ in range(3):
            trace = self.trace_all()
            _sorrel.untrace_all_threads(trace)
        self.trace_all()
        for runner in runners:
            runner.end()
        self.wait_for(lambda: len(self.ended) == 5)
        self.assertEqual(sorted(self.ended), sorted(idents))

    def test_an_error_in_what_is_told_stays_there(self):
        def fail():
            raise ValueError('of the listener')
        standard_error, sys.stderr = sys.stderr, harness.Stream()
        try:
            runner = Runner()
            self.trace_all(fail)
            runner.end()
            self.wait_for(lambda: 'of the listener' in ''.join(sys.stderr.messages))
            self.assert_in('of the listener', ''.join(sys.stderr.messages))
        finally:
            sys.stderr = standard_error

    def test_an_error_is_told_whole_though_its_stream_goes_meanwhile(self):
        written = []

        class Fleeting(object):
            def write(self, text):
                sys.stderr = standard_error
                written.append(text)
        standard_error = sys.stderr
        runner = Runner()
        sys.stderr = Fleeting()
        self.trace_all(lambda: 1 / 0)
        runner.end()
        self.wait_for(lambda: ' ignored' in ''.join(written))
        self.assert_in('ZeroDivisionError', ''.join(written))
        self.assert_in(' ignored', ''.join(written))

    def test_line_events_are_made_however_often_threads_were_traced(self):
        """The interpreter counts the threads that are; were it wrong, there would be none."""
        for _ in range(20):
            runners = [Runner() for _ in range(3)]
            trace = self.trace_all()
            runners.pop().end()
            _sorrel.untrace_all_threads(trace)
            _sorrel.untrace_all_threads(trace)
            for runner in runners:
                runner.end()
        del self.lines[:]
        runner = Runner()
        self.trace_all()
        runner.end()
        self.assertEqual(self.lines, ['inner', 'outer', 'run'])

    def test_arguments(self):
        self.assert_raises(TypeError, 'on_end must be callable',
                           _sorrel.trace_all_threads, None, None)
        self.assertRaises(TypeError, _sorrel.trace_all_threads, self.on_end, None, [])
        self.assert_raises(TypeError, 'exception must be None or an exception class',
                           _sorrel.raise_in_thread, 1, 1)
        self.assertEqual(_sorrel.raise_in_thread(1, ValueError), 0)
        for function in (_sorrel.trace_all_threads, _sorrel.untrace_all_threads,
                         _sorrel.raise_in_thread):
            self.assertRaises(TypeError, function)

    def test_nothing_grows(self):
        if not hasattr(sys, 'gettotalrefcount'):
            self.skip('counts references, which takes a debug host')
        counts = []
        for _ in range(8):
            runners = [Runner() for _ in range(10)]
            trace = self.trace_all()
            for runner in runners[:5]:
                runner.end()
            _sorrel.untrace_all_threads(trace)
            for runner in runners[5:]:
                runner.end()
            del runners, runner, trace, self.lines[:], self.ended[:]
            # A thread that has been joined has not yet let go of all that it held.
            self.wait_for(lambda: len(sys._current_frames()) == 1)
            counts.append(sys.gettotalrefcount())
        self.assertTrue(min(counts[4:]) - max(counts[2:4]) < 10, counts)

    def test_threads_come_and_go_meanwhile(self):
        over = []

        def start_others():
            while not over:
                for _ in range(5):
                    thread.start_new_thread(lambda: self.on_end, ())
                time.sleep(0)
        for _ in range(10):
            thread.start_new_thread(start_others, ())
        end = time.time() + 3
        while time.time() < end:
            _sorrel.untrace_all_threads(self.trace_all())
        over.append(True)

    def wait_for(self, holds):
        end = time.time() + 20
        while not holds() and time.time() < end:
            time.sleep(0.001)

    def assert_raises(self, type, text, function, *arguments):
        try:
            function(*arguments)
        except type, error:
            self.assertEqual(str(error), text)
        else:
            self.fail('nothing raised')


class RaiseInThreadTest(harness.TestCase):

    def test_it_is_raised_there(self):
        caught = []
        waits = threading.Event()

        def wait():
            try:
                waits.set()
                while True:
                    time.sleep(0.001)
            except KeyError:
                caught.append(KeyError)
        waiting = threading.Thread(target=wait)
        waiting.start()
        waits.wait()
        self.assertEqual(_sorrel.raise_in_thread(waiting.ident, KeyError), 1)
        waiting.join()
        self.assertEqual(caught, [KeyError])

    def test_it_can_be_taken_back(self):
        self.assertEqual(_sorrel.raise_in_thread(thread.get_ident(), None), 1)


class ThreadIdentsTest(harness.TestCase):

    def test_they_come_in_the_order_of_their_start(self):
        before = _sorrel.thread_idents()
        self.assertEqual(before[0], thread.get_ident())
        may_end = threading.Event()
        started = []

        def begin():
            is_there = threading.Event()

            def run():
                is_there.set()
                may_end.wait()
            started.append(threading.Thread(target=run))
            started[-1].start()
            is_there.wait()
        for _ in range(9):
            begin()
        idents = [one.ident for one in started]
        self.assertEqual(_sorrel.thread_idents(), before + idents)
        may_end.set()
        for one in started:
            one.join()
