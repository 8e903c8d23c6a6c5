"""What the debug server reads of frames beside their attributes."""

from __future__ import with_statement

import gc
import opcode
import sys

import _sorrel

import harness


class Manager(object):
    def __enter__(self):
        self.frame = sys._getframe(1)

    def __exit__(self, *error):
        pass


class FrameStateTest(harness.TestCase):

    def blocks(self, frame):
        return [(opcode.opname[number], below)
                for number, _, below in _sorrel.active_blocks(frame)]

    def test_blocks_are_told_from_the_innermost_on(self):
        with_name = 'SETUP_WITH' if 'SETUP_WITH' in opcode.opmap else 'SETUP_FINALLY'
        manager = Manager()
        self.assertEqual(self.blocks(sys._getframe()), [])
        for item in [1]:
            try:
                with manager:
                    found = self.blocks(manager.frame)
                    handler = _sorrel.active_blocks(manager.frame)[0][1]
            except ValueError:
                pass
        self.assertEqual([name for name, _ in found], [with_name, 'SETUP_EXCEPT', 'SETUP_LOOP'])
        self.assertEqual(found[0][1], manager.__exit__)
        code = sys._getframe().f_code.co_code
        self.assertEqual(opcode.opname[ord(code[handler])], 'WITH_CLEANUP')

    def test_blocks_of_a_generator_that_waits(self):
        def give():
            with manager:
                yield 1
        manager = Manager()
        generator = give()
        self.assertEqual(self.blocks(generator.gi_frame), [])
        generator.next()
        (_, below), = self.blocks(generator.gi_frame)
        self.assertEqual(below, manager.__exit__)
        frame = generator.gi_frame
        generator.close()
        self.assertEqual(self.blocks(frame), [])

    def test_variables_and_cells(self):
        def function(first, second):
            del second
            inner = lambda: (first, outer)
            frame = sys._getframe()
            code = frame.f_code
            found = {}
            for number, name in enumerate(
                    code.co_varnames + code.co_cellvars + code.co_freevars):
                try:
                    found.setdefault(name, []).append(_sorrel.variable(frame, number))
                except LookupError, error:
                    found[name] = str(error)
            for beyond in -1, number + 1, sys.maxint:
                self.assert_raises(LookupError, 'the variable holds nothing',
                                   _sorrel.variable, frame, beyond)
            return found
        outer = 'outer'
        found = function(1, 2)
        # An argument that is a cell is there twice.
        self.assertEqual([found[name] for name in ('first', 'second', 'outer')],
                         [[1, 1], 'the variable holds nothing', ['outer']])

    def test_attributes_as_they_are_stored(self):
        class Base(object):
            shared = 'shared'

            @property
            def computed(self):
                raise AssertionError('asked')

            def __getattr__(self, name):
                raise AssertionError('asked')
        one = Base()
        one.own = 'own'
        self.assertEqual([_sorrel.static_attribute(one, name) for name in ('own', 'shared')],
                         ['own', 'shared'])
        for name in 'computed', 'nothing':
            self.assert_raises(LookupError, 'it can only be computed, or is not there',
                               _sorrel.static_attribute, one, name)

    def test_wrong_arguments_are_refused(self):
        for arguments in (), (1,), (sys._getframe(), 1, 2):
            self.assert_raises(TypeError, None, _sorrel.active_blocks, *arguments)
            self.assert_raises(TypeError, None, _sorrel.variable, *arguments)
        for arguments in (), (1,), (1, 2), (1, u'name'), (1, 'name', 3):
            self.assert_raises(TypeError, None, _sorrel.static_attribute, *arguments)

    def test_no_reference_is_kept(self):
        if not hasattr(sys, 'gettotalrefcount'):
            self.skip('only a debug host counts references')
        manager = Manager()
        counts = []
        with manager:
            for i in range(200):
                _sorrel.active_blocks(manager.frame)
                _sorrel.variable(manager.frame, 0)
                _sorrel.static_attribute(manager, 'frame')
                try:
                    _sorrel.variable(manager.frame, 1000)
                except LookupError:
                    pass
                if i % 100 == 99:
                    gc.collect()
                    counts.append(sys.gettotalrefcount())
        self.assert_(abs(counts[1] - counts[0]) < 50, counts)
