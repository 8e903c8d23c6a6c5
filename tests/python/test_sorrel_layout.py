"""Long values, as they are shown without having been asked for by `p`."""

import harness
import sorrel_session
from sorrel.terminal import layout

ROWS = ['row number %d' % number for number in range(6)]


class LayoutTest(harness.TestCase):

    def test_what_has_room_stays_on_its_line(self):
        self.assertEqual(layout.after('x = ', [1, 'a', u'\xe9']), "x = [1, 'a', u'\\xe9']")
        self.assertEqual(layout.after('x = ', 'a' * 74), 'x = %r' % ('a' * 74))

    def test_what_has_none_goes_on_below_its_beginning(self):
        self.assertEqual(layout.after('rows = ', ROWS), '''\
rows = ['row number 0',
        'row number 1',
        'row number 2',
        'row number 3',
        'row number 4',
        'row number 5']''')

    def test_many_lines_are_cut(self):
        lines = layout.after('rows = ', ROWS * 100).split('\n')
        self.assertEqual((len(lines), lines[-2:]), (21, [
            "        'row number 1',", '       ...']))

    def test_long_lines_are_cut(self):
        self.assertEqual(layout.after('x = ', 'a' * 1000), "x = '" + 'a' * 399 + '...')
        self.assertEqual(layout.after('x = ', ['a' * 1000, 1]),
                         "x = ['" + 'a' * 398 + '...\n     1]')

    def test_what_is_very_long_is_not_laid_out(self):
        self.assertEqual(len(layout.after('x = ', range(100000))), 4 + 400 + 3)

    def test_a_text_of_several_lines(self):
        class Several(object):
            def __repr__(self):
                return 'first\n' + 'x' * 90
        self.assertEqual(layout.after('a = ', Several()), 'a = first\n    ' + 'x' * 90)


class SessionTest(sorrel_session.TestCase):

    def test_arguments_locals_and_displays(self):
        rows = "[%s]" % ', '.join(map(repr, ROWS))
        laid_out = "['row number 0',\n" + ''.join(
            ['%%s %r,\n' % row for row in ROWS[1:-1]]) + '%%s %r]\n' % ROWS[-1]
        seen = self.transcript('''\
def f(rows):
    n = 1
    rows.pop()
    return n

f(%s)
''' % rows, ['b f', 'c', 'a', 'info locals', 'w full 1', 'display rows', 'display', 'p rows',
             'n', 'n', 'q'])

        def after(head):
            return head + laid_out.replace('%s', ' ' * len(head))
        self.assert_in('(sorrel) a\n' + after('rows = '), seen)
        self.assert_in('(sorrel) info locals\n' + after('rows = '), seen)
        self.assert_in('-> n = 1\n' + after('        rows = '), seen)
        self.assert_in('(sorrel) display rows\n' + after('display rows: '), seen)
        self.assert_in('(sorrel) display\n' + after('display rows: '), seen)
        self.assert_in('(sorrel) p rows\n%s\n' % rows, seen)
        self.assert_in('-> return n\n' + after('display rows: ').replace(
            ",\n               'row number 5'", '') + '  [old: %s...]\n' % rows[:80], seen)
