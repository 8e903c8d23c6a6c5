"""Where an exception goes on: the frame and the except clause that takes it."""

import sys

import _sorrel

import harness


class Base(Exception):
    pass


class Derived(Base):
    pass


class FindHandler(harness.TestCase):

    def here(self, type, ignored=()):
        return _sorrel.find_handler(sys._getframe(1), type, dict.fromkeys(ignored))

    def test_the_clause_is_told_that_matches(self):
        found = []
        for type in (Derived, KeyError, ValueError):
            try:
                found.append(self.here(type))
            except Derived:
                pass
            except (KeyError, IndexError):
                pass
            except:
                pass
        self.assertEqual([frame for frame, _ in found], [sys._getframe()] * 3)
        offsets = [offset for _, offset in found]
        self.assertEqual(offsets, sorted(set(offsets)))
        code = sys._getframe().f_code.co_code
        self.assertEqual([ord(code[offset]) for offset in offsets], [4, 4, 1])

    def test_the_nearest_frame_is_told(self):
        def inner():
            try:
                return self.here(Derived), self.here(KeyError)
            except KeyError:
                pass
        try:
            outer, nearest = inner()
        except Base:
            pass
        self.assertEqual(outer[0], sys._getframe())
        self.assertEqual(nearest[0].f_code.co_name, 'inner')

    def test_ignored_frames_have_none(self):
        try:
            frame = sys._getframe()
            found = [self.here(Derived, [key]) for key in (frame, frame.f_code, None)]
        except Derived:
            pass
        self.assertEqual([answer is not None and answer[0] is frame for answer in found],
                         [False, False, True])

    def test_a_loop_ends(self):
        found = []

        def items():
            yield None
            found.append(_sorrel.find_handler(sys._getframe(), StopIteration, {}))
        for _ in items():
            pass
        self.assertEqual(found, [(sys._getframe(), -1)])

    def test_nobody_takes_it(self):
        frame, callers = sys._getframe(), {}
        while frame is not None:
            callers[frame] = None
            frame = frame.f_back
        self.assertEqual(_sorrel.find_handler(sys._getframe(), KeyError, callers), None)

    def test_what_it_refuses(self):
        for arguments in ((), (None, KeyError, {}), (sys._getframe(), KeyError, None)):
            self.assert_raises(TypeError, None, _sorrel.find_handler, *arguments)
