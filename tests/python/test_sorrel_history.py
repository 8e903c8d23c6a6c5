"""Lines that were typed at the prompt come back, and words are completed."""

import os
import stat

import sorrel_session

UP = '\x10'


class TestCase(sorrel_session.ScreenTestCase):

    def setUp(self):
        sorrel_session.ScreenTestCase.setUp(self)
        self.path = os.path.join(self.folder, '.sorrel_history')
        try:
            import readline
        except ImportError:
            self.skip('edits lines, which takes a host with readline')

    def end_with(self, command):
        self.assertEqual(self.end(command)[1], 0)
        self.screen.close()
        self.screen = None


class HistoryTest(TestCase):

    def test_lines_come_back_in_a_later_session(self):
        self.begin('x = 1\n', 'p 6 * 7', 'p 6 * 7', '')
        self.end_with('c')
        self.assertEqual(open(self.path).read(), 'p 6 * 7\nc\n')
        self.assertEqual(stat.S_IMODE(os.stat(self.path).st_mode), 0600)
        self.begin('x = 1\n')
        self.assert_in('\n42\n', self.type(UP + UP))
        self.end_with('c')

    def test_answers_are_not_remembered(self):
        self.begin('x = 1\n')
        self.screen.type('clear\n')
        self.screen.read_to('? ')
        self.screen.type('no\n')
        self.prompt()
        self.end_with('c')
        self.assertEqual(open(self.path).read(), 'clear\nc\n')

    def test_the_programs_own_is_kept_apart(self):
        self.begin('''\
import readline
readline.add_history('of the program')
x = 1
print map(readline.get_history_item, range(1, readline.get_current_history_length() + 1))
print raw_input('? ')
x = 2
''', 'n', 'n')
        self.assert_in("['of the program']\n", self.type('n 2'))
        self.screen.type('n\n')
        self.screen.read_to('? ')
        self.screen.type(UP + '\n')
        self.assert_in('of the program\n', self.prompt())
        self.assert_in('n\n--Return--\n', self.type(UP))
        self.end_with('c')
        self.assert_not_in('of the program', open(self.path).read())

    def test_a_long_one_is_cut(self):
        self.script(''.join(['p %d\n' % number for number in range(2500)]), '.sorrel_history')
        self.begin('x = 1\n')
        self.end_with('c')
        lines = open(self.path).read().splitlines()
        self.assertEqual((len(lines), lines[0], lines[-1]), (1001, 'p 1500', 'c'))

    def test_without_a_place_for_it(self):
        os.mkdir(self.path)
        self.begin('x = 1\n', 'p 6 * 7')
        self.assert_in('\n42\n', self.type(UP))
        self.end_with('c')


class CompletionTest(TestCase):

    def test_files_and_breakpoints(self):
        self.script('x = 1\n', 'a-module.py')
        self.script('p 5 + 5\n', 'a-commands')
        self.begin('x = 1\ny = 2\n', 'n')
        self.assert_in('Breakpoint 1 at prog.py:2\n', self.type('b prog\t2'))
        self.assert_in('Breakpoint 2 at a-module.py:1\n', self.type('break ./a-m\t1'))
        self.assert_in('\n10\n', self.type('source a-c\t'))
        self.type('clear 1')
        self.type('disable \t')
        self.assert_in('no    at a-module.py:1\n', self.type('b'))
        self.type('condition \t x.rea\t')
        self.assert_in('stop only if x.real\n', self.type('b'))
        self.screen.type('commands \t\n')
        self.screen.read_to('(com) ')
        self.screen.type('whati\t 8\n')
        self.type('end')
        self.assert_in('\twhatis 8\n', self.type('b'))
        self.assert_in('Logpoint 3 at a-module.py:1\n', self.type('logpoint a-m\t1, here'))
        self.assert_in('Saved to a-commands\n', self.type('save b\t a-c\t'))
        self.end_with('c')


class ProgramThatStopsTest(TestCase):
    """One that was not started in the terminal."""

    def test_it_has_both(self):
        self.begin('''\
import sorrel
longest_name = 6
sorrel.set_trace()
x = 1
''', shell='exec "$1" prog.py')
        self.assert_in('\n36\n', self.type('p longes\t ** 2'))
        self.assert_in('\n36\n', self.type(UP))
        self.end_with('c')
        self.assertEqual(open(self.path).read(), 'p longest_name ** 2\nc\n')
