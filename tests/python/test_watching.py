"""What the core has a server look at: lines and returns of all frames, or of some."""

import sys

import harness
from harness import core

set_watch = core._for_sorrel["watch"]

PROGRAM = '''\
def inner(n):
    n += 1
    return n

def outer():
    watch(sys._getframe())
    total = inner(1)
    for n in values():
        total += n
    return total

def values():
    yield 1

outer()
done = 1
'''


class WatchingTest(harness.CoreTestCase):

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        self.seen = []

    def look(self, frame, is_end):
        if frame.f_code.co_filename == self.server.program:
            self.seen.append((frame.f_code.co_name, frame.f_lineno, is_end))

    def run_watched(self, watch):
        """The places that were looked at, and those of the stops after the first."""
        self.server.requests = ['continue_run']
        self.server.init()
        self.server.run(self.script(PROGRAM), watch=lambda frame: set_watch(*watch(frame)), sys=sys)
        return self.seen, self.server.stops[1:]

    def test_every_line_and_return_of_all_frames(self):
        seen, stops = self.run_watched(lambda frame: (self.look, None))
        self.assertEqual(seen, [
            ('outer', 7, False), ('inner', 2, False), ('inner', 3, False), ('inner', 3, True),
            ('outer', 8, False), ('values', 13, False), ('values', 13, False),
            ('outer', 9, False), ('outer', 8, False), ('values', 13, True),
            ('outer', 10, False), ('outer', 10, True),
            ('<module>', 16, False), ('<module>', 16, True)])
        self.assertEqual(stops, [])

    def test_those_of_one_frame(self):
        seen, stops = self.run_watched(lambda frame: (self.look, (frame,)))
        self.assertEqual(seen, [
            ('outer', 7, False), ('outer', 8, False), ('outer', 9, False), ('outer', 8, False),
            ('outer', 10, False), ('outer', 10, True)])

    def test_caller_that_is_come_back_to(self):
        seen, stops = self.run_watched(lambda frame: (self.look, (frame.f_back,)))
        self.assertEqual(seen, [('<module>', 16, False), ('<module>', 16, True)])

    def test_look_stops_at_the_event_that_it_is_at(self):
        def look(frame, is_end):
            if frame.f_code.co_name == 'inner' and (frame.f_lineno == 2 or is_end):
                core.stop()
        self.server.requests = ['continue_run'] * 3
        self.server.init()
        self.server.run(self.script(PROGRAM), sys=sys,
                        watch=lambda frame: set_watch(look, None))
        self.assertEqual(self.server.stops[1:], ['line inner 2', 'return inner 3 -> 2'])

    def test_frame_left_by_an_exception_keeps_the_exception(self):
        self.server.requests = ['continue_run']
        self.server.init()
        variables = self.server.run(self.script('''\
def f():
    watch(sys._getframe())
    [][1]
try:
    f()
except IndexError:
    caught = True
'''), watch=lambda frame: set_watch(self.look, (frame,)), sys=sys)
        self.assertEqual(self.seen, [('f', 3, False), ('f', 3, True)])
        self.assertTrue(variables['caught'])

    def test_nothing_after_it_is_taken_away(self):
        def look(frame, is_end):
            self.look(frame, is_end)
            if self.seen:
                set_watch(None, None)
        seen, stops = self.run_watched(lambda frame: (look, None))
        self.assertEqual(seen, [('outer', 7, False)])

    def test_nothing_after_a_reset(self):
        self.server.init()
        set_watch(self.look, None)
        core.reset()
        self.server.run(self.script('done = 1'))
        self.assertEqual(self.seen, [])

    def test_look_that_fails_is_passed_over(self):
        for look in 'no', lambda: 1, lambda frame, is_end: [][1]:
            seen, stops = self.run_watched(lambda frame: (look, None))
            self.assertEqual((seen, stops), ([], []))
            self.server.stops = []

    def test_frames_that_are_in_no_tuple_are_refused(self):
        self.assertRaises(TypeError, set_watch, self.look, [sys._getframe()])
        self.assertRaises(TypeError, set_watch, self.look)


class QuietWatchingTest(WatchingTest):

    quiet = True
