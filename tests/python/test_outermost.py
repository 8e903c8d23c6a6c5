"""_sorrel.run_outermost() and run_file_outermost(): code that nothing seems to have called."""

import __builtin__
import os
import sys

import _sorrel
import harness

CODE = '''\
import sys
frame = sys._getframe()
caller = frame.f_back
def deeper(depth):
    try:
        return deeper(depth + 1)
    except RuntimeError:
        return depth
depth = deeper(0)
'''


class OutermostTest(harness.TestCase):

    def assert_outermost(self, variables):
        self.assert_is(variables['caller'], None)
        # As far down as the frames here, which are not to be seen.
        self.assertTrue(variables['depth'] > sys.getrecursionlimit() - 5)

    def test_code(self):
        variables = {'__builtins__': __builtin__}
        self.assert_is(_sorrel.run_outermost(compile(CODE, 'x', 'exec'), variables), None)
        self.assert_outermost(variables)

    def test_a_file(self):
        variables = {'__builtins__': __builtin__}
        self.assert_is(_sorrel.run_file_outermost(self.script(CODE), variables), None)
        self.assert_outermost(variables)

    def test_the_stack_is_as_before_afterwards(self):
        before = sys._getframe(), sys._getframe().f_back
        for text in 'x = 1\n', '1 / 0\n', 'def f():\n    f()\nf()\n':
            try:
                _sorrel.run_outermost(compile(text, 'x', 'exec'), {'__builtins__': __builtin__})
            except (ZeroDivisionError, RuntimeError):
                self.assert_is(sys.exc_info()[2].tb_frame, before[0])
                self.assertEqual(sys.exc_info()[2].tb_next.tb_frame.f_code.co_filename, 'x')
            self.assertEqual((sys._getframe(), sys._getframe().f_back), before)

    def test_one_in_the_other(self):
        variables = {'__builtins__': __builtin__, '_sorrel': _sorrel}
        _sorrel.run_outermost(compile(
            "_sorrel.run_outermost(compile('import sys; inner = sys._getframe().f_back', 'x', "
            "'exec'), globals())\nimport sys\nouter = sys._getframe(0).f_back\n", 'y', 'exec'),
            variables)
        self.assertEqual((variables['inner'], variables['outer']), (None, None))

    def test_wrong_arguments(self):
        path = os.path.join(self.folder, 'none.py')
        error = self.assert_raises(IOError, None, _sorrel.run_file_outermost, path, {})
        self.assertEqual(error.filename, path)
        self.assert_raises(TypeError, None, _sorrel.run_outermost, 'x = 1', {})
        self.assert_raises(TypeError, None, _sorrel.run_outermost, compile('1', 'x', 'eval'), None)
        self.assert_raises(TypeError, None, _sorrel.run_file_outermost, path)
        self.assert_raises(TypeError, None, _sorrel.run_file_outermost, 'a\0b', {})
