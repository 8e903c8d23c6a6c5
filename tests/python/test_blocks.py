"""How far a definition goes, found without the standard library's inspect."""

import inspect

import sorrel_session
from sorrel.inspection import blocks

DEFINITIONS = '''\
@decorated
def f(one,
      other=(1,
             2)):
    """Over
two lines."""
    if one:
        return [
            other]
    # Its own.

# Not its own.
class A(object):
    def g(self): pass
    h = lambda self: (
        self)
  # Less.

    last = 1
x = lambda: 0
y = (
    1)
def short(): return 1; x
def wrong():
    if x:
        y
      z
'''


class BlocksTest(sorrel_session.TestCase):

    def assert_as_inspect_has_it(self, text):
        lines = text.splitlines(True)

        def line(number):
            return lines[number - 1] if number <= len(lines) else ''
        for first in range(1, len(lines) + 1):
            try:
                expected = first + len(inspect.getblock(lines[first - 1:])) - 1
            except Exception:
                expected = first
            self.assertEqual((first, blocks.end(line, first)), (first, expected))

    def test_each_line(self):
        self.assert_as_inspect_has_it(DEFINITIONS)

    def test_brackets_and_strings_that_are_not_closed(self):
        self.assert_as_inspect_has_it('def f(:\n    return (1\n')
        self.assert_as_inspect_has_it('class A:\n    """Text\n')

    def test_a_start_does_not_wait_for_inspect(self):
        out, err, status = self.debug("import sys\nprint 'inspect' in sys.modules\n", ['c'])
        self.assertEqual(out.splitlines()[-2:-1], [sorrel_session.PROMPT + 'False'])
