"""The service behind front ends, driven by one that only records."""

import os
import sys
import thread

import harness
import tmorvik26_vs2012_x64 as core
from sorrel.inspection import frames
from sorrel.service import runner, service, stops
from sorrel.service.stops import Resume


class FrontEnd(object):
    """Answers each stop with the next of the given requests, then lets the program run."""

    def __init__(self, *answers):
        self.answers = list(answers)
        self.stops = []
        self.lines = []
        self.outcomes = []

    def stopped(self, stop):
        self.stops.append(stop)
        self.lines.append((stop.reason, stop.frame.f_lineno))
        answer = self.answers.pop(0) if self.answers else Resume(stops.CONTINUE)
        return answer(stop) if callable(answer) else answer

    def ended(self, outcome):
        self.outcomes.append(outcome)


INTO, OVER, OUT = (Resume(stops.STEP_INTO), Resume(stops.STEP_OVER), Resume(stops.STEP_OUT))


class Services(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        self.seen = []
        self.main = sys.modules['__main__']

    def tearDown(self):
        sys.modules['__main__'] = self.main
        harness.TestCase.tearDown(self)

    def run_program(self, text, *answers):
        self.front_end = FrontEnd(*answers)
        self.service = service.Service(self.front_end)
        try:
            script = runner.find_script(self.script(text))
            runner.prepare(script, ['argument'])
            return runner.run(script, self.service)
        finally:
            self.service.detach()

    def test_requests_are_carried_out_in_the_thread_that_stopped(self):
        status = self.run_program('''\
def f():
    x = 1
    return x

f()
y = 2
''', INTO, INTO, OUT, INTO, OVER)
        self.assertEqual(status, 0)
        self.assertEqual(self.front_end.lines, [
            ('step', 1), ('step', 5), ('step', 2), ('return', 3), ('step', 6), ('return', 6)])
        self.assertEqual(self.front_end.stops[3].argument, 1)
        self.assertEqual(set(stop.thread for stop in self.front_end.stops),
                         set([thread.get_ident()]))

    def test_a_line_is_stepped_over_as_a_whole(self):
        self.run_program('''\
for i in range(3): x = i
y = 2
''', Resume(stops.STEP_OVER_LINE))
        self.assertEqual(self.front_end.lines, [('step', 1), ('step', 2)])

    def test_a_range_of_lines_is_stepped_over(self):
        self.run_program('a = 1\nb = 2\nc = 3\nd = 4\n',
                         Resume(stops.STEP_OVER_RANGE, None, 1, 3))
        self.assertEqual(self.front_end.lines, [('step', 1), ('step', 4)])

    def test_a_stop_knows_the_threads(self):
        def look(stop):
            self.seen.append(self.service.threads())
            return Resume(stops.CONTINUE)
        self.run_program('x = 1\n', look)
        (only,), = self.seen
        self.assertEqual((only.ident, only.name, only.stop),
                         (thread.get_ident(), 'MainThread', self.front_end.stops[0]))
        self.assert_is(only.frame, self.front_end.stops[0].frame)

    def test_frames_end_where_the_program_begins(self):
        def look(stop):
            self.seen.append([frame.f_code.co_name for frame in frames.outward(stop.frame)])
            return INTO
        self.run_program('def f():\n    x = 1\nf()\n', look, look, look, look, look)
        self.assertEqual(self.seen, [['<module>'], ['<module>'], ['f', '<module>'],
                                     ['f', '<module>'], ['<module>']])

    def change_clients(self):
        """As when a client is lost and the next one comes before the stopped thread knows."""
        is_done = thread.allocate_lock()
        is_done.acquire()

        def change():
            self.service.detach()
            self.service.attach()
            is_done.release()
        self.service.start_own_thread(change)
        is_done.acquire()

    def test_a_step_is_not_told_to_the_next_client(self):
        def leave(stop):
            steps = self.service._steps
            request = steps.request

            def late(*arguments):
                del steps.request
                self.change_clients()
                request(*arguments)
            steps.request = late
            return answers.pop()
        for answer in INTO, OVER, OUT:
            answers = [answer]
            self.run_program('def f():\n    x = 1\n    return x\n\nf()\nf()\n', INTO, INTO, leave)
            self.assertEqual(self.front_end.lines, [('step', 1), ('step', 5), ('step', 2)])
            self.assertEqual(answers, [])

    def test_a_call_for_a_stop_is_not_for_the_next_client(self):
        def look(stop):
            self.service.trace_new_threads = self.change_clients
            return Resume(stops.CONTINUE)
        sys.stop_here = lambda: self.service.stop_here()
        self.run_program('import sys\nsys.stop_here()\nx = 1\ny = 2\n', look)
        self.assertEqual(self.front_end.lines, [('step', 1)])

    def run_beside(self, ignore):
        """Runs a program while another thread has asked to stop; returns the threads that did."""
        self.ready, self.go, self.over = [thread.allocate_lock() for _ in range(3)]
        for lock in self.ready, self.go, self.over:
            lock.acquire()
        sys.go, sys.over = self.go, self.over

        def beside():
            self.ready.release()
            self.go.acquire()
            core.step_into()
            sys.settrace(core.trace_dispatch)
            self.step_here()
            sys.settrace(None)
            self.over.release()
        ident = thread.start_new_thread(beside, ())
        self.ready.acquire()
        self.front_end = FrontEnd()
        self.service = service.Service(self.front_end)
        if ignore:
            self.service.ignore_thread(ident)
        script = self.script('import sys\nsys.go.release()\nsys.over.acquire()\n')
        runner.run(runner.find_script(script), self.service)
        self.service.detach()
        main = thread.get_ident()
        return [stop for stop in self.front_end.stops if stop.thread != main]

    def step_here(self):
        self.seen.append('stepped')

    def test_an_ignored_thread_does_not_stop(self):
        self.assertEqual((self.run_beside(True), self.seen), ([], ['stepped']))

    def test_a_thread_that_is_not_ignored_stops(self):
        stops = self.run_beside(False)
        self.assertEqual([stop.frame.f_code.co_name for stop in stops], ['beside'])
        self.assertEqual(self.seen, ['stepped'])

    def test_detaching_ends_the_stops(self):
        status = self.run_program('a = 1\nb = 2\nimport sys\nsys.exit = None\n', OVER,
                                  Resume(stops.DETACH), OVER)
        self.assertEqual((status, self.front_end.lines), (0, [('step', 1), ('step', 2)]))
        self.assertEqual(self.service.attached, False)
        self.service.ended(stops.Outcome(0, None))
        self.assertEqual(self.front_end.outcomes, [])

    def test_a_pause_stops_nobody_when_who_asked_for_it_has_just_left(self):
        def leave_amid(stop):
            stop_anywhere = self.service._steps.stop_anywhere

            def late(id):
                # As the thread gets to it, another one has detached and attached.
                self.service.detach()
                core.start_trace()
                stop_anywhere(id)
            self.service._steps.stop_anywhere = late
            self.service.pause()
            self.service._interrupt_here()
        self.run_program('a = 1\nb = 2\nc = 3\n', leave_amid)
        self.assertEqual([line for _, line in self.front_end.lines], [1])

    def test_a_pause_that_met_a_thread_at_its_end_stops_another_one(self):
        def ask_as_a_thread_ends(stop):
            # All that the thread runs is the server's own.
            thread.start_new_thread(
                map, (apply, [self.service.pause, self.service._interrupt_here]))
            return Resume(stops.CONTINUE)

        def let_end(stop):
            self.seen.append((stop.reason, stop.frame.f_code.co_name))
            stop.frame.f_globals['end'] = 0
            return Resume(stops.CONTINUE)
        self.run_program('''\
import time
end = time.time() + 15
while time.time() < end:
    pass
''', ask_as_a_thread_ends, let_end)
        self.assertEqual(self.seen, [('interrupt', '<module>')])

    def test_a_pause_waits_for_the_next_line(self):
        def ask_at_a_return(stop):
            self.service.pause()
            self.service._interrupt_here()
            # What counts in a frame further out has no event here, either.
            return Resume(stops.STEP_OUT, stop.frame.f_back)
        self.run_program('''\
def f():
    def g():
        return 1
    return g()
f()
x = 1
''', INTO, INTO, INTO, INTO, INTO, ask_at_a_return)
        self.assertEqual(self.front_end.lines[-2:], [('return', 3), ('interrupt', 6)])

    def test_the_end_is_told_to_a_front_end_that_is_attached(self):
        self.front_end = FrontEnd()
        self.service = service.Service(self.front_end)
        runner.run(runner.find_script(self.script('x = 1\n')), self.service)
        self.service.ended(stops.Outcome(0, None))
        self.assertEqual(self.front_end.outcomes, [stops.Outcome(0, None)])
        self.assertEqual(self.service.attached, False)

    def test_a_front_end_that_fails_is_detached_and_the_error_shown(self):
        def fail(stop):
            raise ValueError('a mistake in the front end')
        errors = sys.__stderr__
        written = open(os.path.join(self.folder, 'errors'), 'w')
        sys.__stderr__ = written
        try:
            status = self.run_program('x = 1\ny = 2\n', fail)
        finally:
            sys.__stderr__ = errors
            written.close()
        self.assertEqual((status, self.front_end.lines), (0, [('step', 1)]))
        self.assert_in('ValueError: a mistake in the front end\n', open(written.name).read())

    def test_ctrl_c_in_the_front_end_asks_it_again(self):
        def interrupted(stop):
            raise KeyboardInterrupt
        self.run_program('x = 1\ny = 2\n', interrupted, OVER)
        self.assertEqual(self.front_end.lines, [('step', 1), ('step', 1), ('step', 2)])

    def test_the_recursion_limit_is_the_programs_again_after_a_stop(self):
        def look(stop):
            self.seen.append(sys.getrecursionlimit())
            return OVER

        def change(stop):
            sys.setrecursionlimit(5000)
            return OVER
        limit = sys.getrecursionlimit()
        self.run_program('''\
import sys
limits = [sys.getrecursionlimit()]
limits.append(sys.getrecursionlimit())
sys.setrecursionlimit(limits[0])
''', look, change)
        self.assertTrue(self.seen[0] > limit)
        self.assertEqual(sys.getrecursionlimit(), 5000)

    def test_nothing_of_a_stop_is_kept(self):
        def look(stop):
            return INTO
        self.run_program('''\
class Value(object):
    pass
def f():
    value = Value()
    kept.append(weakref.ref(value))
import weakref
kept = []
f()
alive = kept[0]()
import sys
sys.kept_alive = alive
''', *[lambda stop: INTO] * 6)
        self.front_end.stops[:] = []
        self.assert_is(sys.kept_alive, None)
