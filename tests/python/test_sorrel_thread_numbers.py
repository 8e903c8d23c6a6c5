"""Numbers of threads that begin and end while they are asked for."""

import sys

import harness
from sorrel.service import exceptions, passing, steps, stops, thread_numbers


class Service(object):
    """One that knows the threads with these idents."""

    main_thread = 100

    def __init__(self):
        self.idents = [100]

    def threads(self):
        return [stops.Thread(ident, '', 'frame', None) for ident in self.idents]


class Interrupted(object):
    """Calls a function at one of the moments at which another thread may get its turn."""

    def __init__(self, function, moment):
        self._function = function
        self._left = moment
        self.has_called = False

    def call(self, function, *arguments):
        sys.settrace(self._trace)
        try:
            return function(*arguments)
        finally:
            sys.settrace(None)

    def _trace(self, frame, event, argument):
        if not self.has_called:
            self._left -= 1
            if self._left < 0:
                self.has_called = True
                self._function()
        return self._trace


def at_each_moment(prepare):
    """Calls what prepare() returns again and again, with another thread's turn always later.

    prepare: returns the function to call, and the other thread's.
    """
    results = []
    moment = 0
    while True:
        function, others = prepare()
        interrupted = Interrupted(others, moment)
        results.append(interrupted.call(function))
        moment += 1
        if not interrupted.has_called:
            return results


class NumbersTest(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        self.service = Service()
        self.threads = thread_numbers.Threads(self.service)

    def test_the_main_thread_keeps_its_number_while_it_runs_no_python_code(self):
        service = Service()
        threads = thread_numbers.Threads(service)
        service.idents = [200]
        self.assertEqual(threads.take_changes(), [(2, True)])
        service.idents = [100, 200]
        self.assertEqual(threads.take_changes(), [])
        self.assertEqual(threads.find(1).ident, 100)

    def test_threads_are_numbered_as_they_come(self):
        self.service.idents += [7, 5]
        self.assertEqual(self.threads.take_changes(), [(2, True), (3, True)])
        self.assertEqual([(number, thread.ident) for number, thread in self.threads.all()],
                         [(1, 100), (2, 7), (3, 5)])
        self.service.idents.remove(5)
        self.assertEqual(self.threads.take_changes(), [(3, False)])
        self.threads.forget(7)
        self.assertEqual(self.threads.take_changes(), [(2, False), (4, True)])
        self.assertEqual(self.threads.take_changes(), [])

    def test_a_thread_may_end_at_any_moment(self):
        for ident_is_listed in False, True:
            def prepare():
                self.setUp()
                self.service.idents.append(5)
                number = self.threads.number(5)
                self.service.idents[:] = [100] + [5] * ident_is_listed

                def take():
                    changes = self.threads.take_changes()
                    self.threads.forget(5)
                    return number, changes + self.threads.take_changes()
                return take, (lambda: self.threads.forget(5))
            for number, changes in at_each_moment(prepare):
                # That it ended is told once.
                self.assertEqual(changes.count((number, False)), 1, changes)

    def test_a_thread_may_end_at_any_moment_while_it_is_numbered(self):
        def prepare():
            self.setUp()
            self.threads.number(5)
            return (lambda: self.threads.number(5)), (lambda: self.threads.forget(5))
        for number in at_each_moment(prepare):
            self.assert_in(number, (2, 3))

    def test_a_thread_may_be_asked_for_at_any_moment_while_changes_are_taken(self):
        def prepare():
            self.setUp()

            def begin():
                self.service.idents.append(5)
                self.threads.number(5)
            return self.threads.take_changes, begin
        for changes in at_each_moment(prepare):
            self.assert_in(changes, ([], [(2, True)]))
            # It is there, whoever saw it first.
            self.assertEqual(self.threads.take_changes(), [])


class KeptTest(harness.CoreTestCase):
    """What else is kept for threads and goes with them."""

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        self.server.init()

    def test_steps_of_a_thread_that_ends_at_any_moment(self):
        def prepare():
            kept = steps.Steps(passing.Passing())
            kept.expect_stop(5)
            return kept.keep_living, (lambda: kept.forget(5))
        at_each_moment(prepare)

    def test_a_step_that_a_thread_loses_at_any_moment(self):
        def prepare():
            kept = steps.Steps(passing.Passing())
            kept.expect_stop(5)
            return (lambda: kept.stops_at(5, sys._getframe())), (lambda: kept.forget(5))
        self.assertEqual(set(at_each_moment(prepare)), set([True, False]))

    def test_exceptions_of_a_thread_that_ends_at_any_moment(self):
        try:
            raise ValueError
        except ValueError:
            error = sys.exc_info()
        for name, arguments in (('keep_living', ()), ('told', (5, error))):
            def prepare():
                kept = exceptions.Exceptions(None, None)
                kept.is_of_concern(5, sys._getframe(), error)
                return (lambda: getattr(kept, name)(*arguments)), \
                    (lambda: kept.forget_thread(5))
            at_each_moment(prepare)
