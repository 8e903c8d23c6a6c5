"""Commands that look at functions, at the stack and at values, stop after stop."""

import sorrel_session

PROGRAM = '''\
import os

def outer(n):
    """Calls the other one."""
    word = 'w' * n
    total = inner(n, word)
    names = {1:
             'one'}
    # Nothing comes of it.
    return total

def inner(n, word):
    try:
        raise KeyError(word)
    except KeyError:
        n += 1
    seen = [n]
    for i in range(2):
        seen.append(i)
    return seen

class Thing(object):
    """One."""
    size = 1

    def method(self):
        return self.size

outer(2)
'''


class TestCase(sorrel_session.TestCase):

    def answers(self, text, commands):
        """What is seen after each of the commands."""
        out, err, self.status = self.debug(text, commands)
        self.assertEqual(err, '')
        return out.split(sorrel_session.PROMPT)[1:]

    def listed(self, first, last, current=None):
        lines = PROGRAM.splitlines()
        return ''.join([('%3d  %s\t%s' % (
            number, '->' if number == current else '  ', lines[number - 1])).rstrip() + '\n'
            for number in range(first, last + 1)])


class ListingTest(TestCase):

    def test_the_whole_function_or_module(self):
        answers = self.answers(PROGRAM, ['ll', 'tbreak 6', 'c', 'longlist', 'u', 'll', 'c'])
        self.assertEqual(answers[0], self.listed(1, 29, 1))
        self.assertEqual(answers[3], self.listed(3, 10, 6))
        self.assertEqual(answers[5], self.listed(1, 29, 29))

    def test_at_each_stop(self):
        answers = self.answers(PROGRAM, [
            'tbreak 5', 'c', 'sticky', 'n', 'up', 'sticky', 'n', 'c'])
        self.assertEqual(answers[2], self.listed(3, 10, 5))
        self.assertEqual(answers[3], '> prog.py(6)outer()\n-> total = inner(n, word)\n'
                         + self.listed(3, 10, 6))
        self.assertEqual(answers[4:6], ['> prog.py(29)<module>()\n-> outer(2)\n', ''])
        self.assertEqual(answers[6].count('\n'), 3)

    def test_code_without_source(self):
        answers = self.answers("exec 'x = 1'\n", ['s', 'll', 'c'])
        self.assertEqual(answers[1], '*** The source is not there\n')

    def test_the_source_of_an_object(self):
        answers = self.answers(PROGRAM, [
            'tbreak 29', 'c', 'source inner', 'source Thing', 'source Thing().method',
            "source __import__('__main__')", 'source 5', 'source len', 'source nothing',
            'source dict',
            'c'])
        self.assertEqual(answers[2:6], [
            self.listed(12, 20), self.listed(22, 27), self.listed(26, 27), self.listed(1, 29)])
        self.assertEqual(answers[6:-1], [
            '*** No source: it is a int\n', '*** No source: it is a builtin_function_or_method\n',
            "*** NameError: name 'nothing' is not defined\n", '*** No source in Python\n'])


class StackTest(TestCase):

    def test_some_of_the_stack(self):
        answers = self.answers(PROGRAM, [
            'tbreak 17', 'c', 'where 2', 'bt 1', 'bt full', 'w full 1', 'where 1 full', 'bt 9',
            'c'])
        inner = '> prog.py(17)inner()\n-> seen = [n]\n'
        outer = '  prog.py(6)outer()\n-> total = inner(n, word)\n'
        inner_locals = "        n = 3\n        word = 'ww'\n"
        self.assertEqual(answers[2:4], [outer + inner, inner])
        self.assert_in('        Thing = ', answers[4])
        self.assert_in(
            outer + "        n = 2\n        word = 'ww'\n" + inner + inner_locals, answers[4])
        self.assertEqual(answers[5:7], [inner + inner_locals] * 2)
        self.assertEqual(answers[7], '  prog.py(29)<module>()\n-> outer(2)\n' + outer + inner)

    def test_frames_by_their_numbers(self):
        answers = self.answers(PROGRAM, [
            'tbreak 17', 'c', 'frame 1', 'p total', 'frame', 'frame 2', 'frame 0', 'frame 3',
            'up', 'c'])
        self.assertEqual(answers[2:-1], [
            '> prog.py(6)outer()\n-> total = inner(n, word)\n',
            "*** NameError: name 'total' is not defined\n",
            '> prog.py(6)outer()\n-> total = inner(n, word)\n',
            '> prog.py(29)<module>()\n-> outer(2)\n', '> prog.py(17)inner()\n-> seen = [n]\n',
            '*** No frame 3\n', '> prog.py(6)outer()\n-> total = inner(n, word)\n'])

    def test_the_value_that_is_being_returned(self):
        answers = self.answers(PROGRAM, [
            'tbreak 20', 'c', 'retval', 'n', 'retval', 'rv', 'u', 'rv', 'c'])
        self.assertEqual(answers[2], '*** This function is not returning\n')
        self.assertEqual(answers[4:6], ['[3, 0, 1]\n'] * 2)
        self.assertEqual(answers[7], '*** This function is not returning\n')

    def test_the_chain_of_exceptions(self):
        out = self.debug('''\
x = 1
try:
    {}['key']
except KeyError:
    int('word')
''', ['exceptions', 'c', 'exceptions'])[0]
        answers = out.split(sorrel_session.PROMPT)[1:]
        self.assertEqual(answers[0], '*** The program has not stopped at an exception\n')
        self.assertEqual(answers[2].splitlines()[:4], [
            "0  ValueError: invalid literal for int() with base 10: 'word'",
            '   raised at prog.py:5', "1  KeyError: 'key'", '   raised at prog.py:3'])

    def test_info(self):
        answers = self.answers(PROGRAM, [
            'break 17', 'c', 'info breakpoints', 'info b', 'info locals', 'info args',
            'info threads',
            'info', 'info nothing', 'c'])
        self.assert_in('1   breakpoint   keep yes   at prog.py:17\n', answers[2])
        self.assertEqual(answers[3], answers[2])
        self.assertEqual(answers[4:6], ["n = 3\nword = 'ww'\n"] * 2)
        self.assertEqual(answers[6], '* 1  MainThread  stopped  prog.py(17)inner()\n')
        self.assertEqual(answers[7:9], [
            '*** Usage: info SUBJECT\n',
            '*** info about what? One of: args, breakpoints, locals, threads, '
            'watchpoints\n'])


class DisplayTest(TestCase):

    def test_what_has_changed_is_shown_at_each_stop_in_the_function(self):
        self.assert_session(PROGRAM, '''
    > prog.py(1)<module>()
    -> import os
    (sorrel) display
    Nothing is displayed in this function.
    (sorrel) tbreak 17
    Breakpoint 1 at prog.py:17
    (sorrel) c
    Deleted breakpoint 1
    > prog.py(17)inner()
    -> seen = [n]
    (sorrel) display seen
    display seen: ** raised NameError: name 'seen' is not defined **
    (sorrel) display n
    display n: 3
    (sorrel) display n +
    *** SyntaxError: unexpected EOF while parsing
    (sorrel) n
    > prog.py(18)inner()
    -> for i in range(2):
    display seen: [3]  [old: ** raised NameError: name 'seen' is not defined **]
    (sorrel) n
    > prog.py(19)inner()
    -> seen.append(i)
    (sorrel) n = 7
    (sorrel) n
    > prog.py(18)inner()
    -> for i in range(2):
    display seen: [3, 0]  [old: [3]]
    display n: 7  [old: 3]
    (sorrel) display
    display seen: [3, 0]
    display n: 7
    (sorrel) undisplay n
    (sorrel) undisplay n
    *** Not displayed in this function: n
    (sorrel) display
    display seen: [3, 0]
    (sorrel) undisplay
    (sorrel) display
    Nothing is displayed in this function.
    (sorrel) r
    --Return--
    > prog.py(20)inner()->[3, 0, 1]
    -> return seen
    (sorrel) c
    The program ended with exit status 0.
    ''')

    def test_elsewhere_it_is_not_shown(self):
        answers = self.answers(PROGRAM, [
            'tbreak 5', 'c', 'display n', 'tbreak 17', 'c', 'display', 'r', 'n', 'c'])
        self.assertEqual(answers[4:6], [
            'Deleted breakpoint 2\n> prog.py(17)inner()\n-> seen = [n]\n',
            'Nothing is displayed in this function.\n'])
        self.assertEqual(answers[7], '> prog.py(7)outer()\n-> names = {1:\n')
