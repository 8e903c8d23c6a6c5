"""Commands of the terminal over a program that listens."""

import os
import zipfile

import connect_session
import dap_session

PROMPT = connect_session.PROMPT
CALLS = '''\
class Shop(object):
    """One that sells."""
    def __init__(self, name):
        self.name = name
    def sell(self, *what):
        sold = list(what)
        return sold
def inner(n):
    text = 'x' * n
    return len(text)
def outer(n):
    first = inner(n)
    second = inner(first)
    return second
shop = Shop('a')
for turn in range(3):
    outer(turn)
    shop.sell(turn)
print 'over'
'''


class TestCase(connect_session.TestCase):

    def commands(self, text, *commands):
        """The answers to these commands, given where the program has not begun."""
        self.program = self.wait_for_client(text)
        out, errors, status = self.client(self.place(self.program), *commands)
        self.assertEqual((errors, status), ('', 0))
        return out.split(PROMPT)[1:]


class StepTest(TestCase):

    def test_steps_count_in_the_frame_that_is_shown(self):
        answers = self.commands(CALLS, 'b inner', 'c', 'clear 1', 'up', 'next', 's')
        self.assertEqual(answers[4:6], ['> prog.py(13)outer()\n-> second = inner(first)\n',
                                        "> prog.py(9)inner()\n-> text = 'x' * n\n"])

    def test_next_in_a_callers_frame(self):
        answers = self.commands(CALLS, 'b inner', 'c', 'clear 1', 'up', 'up', 'next')
        self.assertEqual(answers[5], '> prog.py(18)<module>()\n-> shop.sell(turn)\n')

    def test_return_of_a_caller(self):
        answers = self.commands(CALLS, 'b inner', 'c', 'clear 1', 'up', 'return', 'retval')
        self.assertEqual(answers[4:6], ['> prog.py(17)<module>()\n-> outer(turn)\n', '0\n'])

    def test_retval_is_of_the_call_that_came_back_last(self):
        answers = self.commands(CALLS, 'tbreak 13', 'c', 'up', 'next', 'retval', 'next', 'retval')
        self.assertEqual((answers[4], answers[6]), ('0\n', '[0]\n'))

    def test_counts(self):
        answers = self.commands(CALLS, 'next 4', 'step 2')
        self.assertEqual(answers[0], '> prog.py(16)<module>()\n-> for turn in range(3):\n')
        self.assertEqual(answers[1], '> prog.py(12)outer()\n-> first = inner(n)\n')

    def test_a_breakpoint_ends_a_count(self):
        answers = self.commands(CALLS, 'b 18', 'next 20', 'p turn')
        self.assertEqual(answers[1:3], ['> prog.py(18)<module>()\n-> shop.sell(turn)\n', '0\n'])

    def test_until_runs_a_loop_to_its_end(self):
        answers = self.commands(CALLS, 'b 18', 'c', 'clear 1', 'until', 'p turn')
        self.assertEqual(answers[3:5], ["> prog.py(19)<module>()\n-> print 'over'\n", '2\n'])

    def test_until_a_line(self):
        answers = self.commands(CALLS, 'next 3', 'until 18', 'until 3')
        self.assertEqual(answers[1:3], ['> prog.py(18)<module>()\n-> shop.sell(turn)\n',
                                        '*** Not after line 18: 3\n'])

    def test_jumps(self):
        answers = self.commands(
            'x = 1\nx = 2\nx = 3\nprint x\n', 'next', 'jump 4', 'jump 99', 'next', 'up')
        self.assertEqual(answers[1:3], [
            '> prog.py(4)<module>()\n-> print x\n',
            '*** Cannot jump: there is no code from that line on, or no way to it\n'])
        self.assertEqual(self.program.ended()[0], '1\n')

    def test_the_program_runs_to_its_end(self):
        answers = self.commands(CALLS, 'c')
        self.assertEqual(answers, ['The program ended with exit status 0.\n'])


class LookTest(TestCase):

    def test_stacks_and_sources(self):
        answers = self.commands(
            CALLS, 'b 9', 'c', 'where 1', 'up', 'list', 'list', 'list 1,2', 'longlist', 'frame 2',
            'frame 3', 'down 9', 'where full 2', 'source Shop.sell', 'source Shop')
        self.assertEqual(answers[2], "> prog.py(9)inner()\n-> text = 'x' * n\n")
        self.assertEqual(answers[4].splitlines()[5], ' 12  ->\t    first = inner(n)')
        self.assertEqual(answers[5].splitlines()[0], ' 18    \t    shop.sell(turn)')
        self.assertEqual(answers[5].splitlines()[-1], '[EOF]')
        self.assertEqual(answers[6], '  1    \tclass Shop(object):\n'
                                     '  2    \t    """One that sells."""\n')
        self.assertEqual(answers[7], ' 11    \tdef outer(n):\n 12  ->\t    first = inner(n)\n'
                                     ' 13    \t    second = inner(first)\n'
                                     ' 14    \t    return second\n')
        self.assertEqual(answers[8], '> prog.py(17)<module>()\n-> outer(turn)\n')
        self.assertEqual(answers[9], '*** No frame 3\n')
        self.assertEqual(answers[10], "> prog.py(9)inner()\n-> text = 'x' * n\n")
        self.assertEqual(answers[11], '''\
  prog.py(12)outer()
-> first = inner(n)
        n = 0
> prog.py(9)inner()
-> text = 'x' * n
        n = 0
''')
        self.assertEqual(answers[12].splitlines()[0], '  5    \t    def sell(self, *what):')
        self.assertEqual(answers[13].splitlines()[0], '  1    \tclass Shop(object):')

    def test_sources_that_are_not_here(self):
        archive = zipfile.ZipFile(os.path.join(self.folder, 'prog.zip'), 'w')
        archive.writestr('__main__.py', 'value = 1\nprint value\n')
        archive.close()
        program = self.opened(dap_session.Program(archive.filename, ['--wait']))
        out = self.client(self.place(program), 'next', 'list', 'b 2')[0]
        self.assert_in('> prog.zip/__main__.py(2)<module>()\n-> print value\n', out)
        self.assert_in('  1    \tvalue = 1\n  2  ->\tprint value\n', out)
        self.assert_in('Breakpoint 1 at prog.zip/__main__.py:2\n', out)

    def test_values(self):
        answers = self.commands(
            CALLS, 'b 6', 'c', 'args', 'p range(30)', 'range(30)', "'x' * 2000",
            'pp [range(30)] * 2', 'whatis self.sell', 'whatis inner', 'whatis 1', 'p 1 +', 'p nosuch', 'pp nosuch',
            'what = 5', 'what', 'info locals', 'p next(iter([1, 2]))', 'whatis',
            '!range(2)')
        self.assertEqual(answers[2][-12:], 'what = (0,)\n')
        self.assertEqual(answers[3], repr(range(30)) + '\n')
        self.assertEqual(answers[4], repr(range(30)) + '\n')
        self.assertEqual(answers[5], repr('x' * 2000) + '\n')
        self.assert_in('],\n [0,', answers[6])
        self.assertEqual(answers[7:10], ['Method sell\n', 'Function inner\n', "<type 'int'>\n"])
        self.assertEqual(answers[10][:15], '*** SyntaxError')
        self.assertEqual(answers[11:13], ["*** NameError: name 'nosuch' is not defined\n"] * 2)
        self.assertEqual(answers[14], '5\n')
        self.assert_in('what = 5\n', answers[15])
        self.assertEqual(answers[16], '1\n')
        self.assertEqual(answers[17][:15], '*** SyntaxError')
        self.assertEqual(answers[18], '[0, 1]\n')

    def test_arguments_that_are_there_no_more(self):
        answers = self.commands(
            'def f(a, (b, c), *d, **e):\n    del b\n    return a\nf(1, (2, 3), 4, g=5)\n',
            'b 3', 'c', 'args', 'up', 'args')
        self.assertEqual(answers[2], "a = 1\nb: deleted\nc = 3\nd = (4,)\ne = {'g': 5}\n")
        self.assertEqual(answers[4], '*** The source of this function is not there\n')

    def test_statements_of_several_lines_and_names_of_commands(self):
        answers = self.commands(
            'c = n = 1\nprint c, n\n', 'next', 'for i in range(3):', '    n += i', '', 'n += 1',
            'p n', 'c + 1', '!c', 'zzz', 'nxt')
        self.assertEqual(answers[3], '5\n')
        self.assertEqual(answers[4:6], ['2\n', '1\n'])
        self.assertEqual(answers[6], '*** No such command: zzz\n')
        self.assertEqual(answers[7], '*** No such command: nxt. Did you mean next?\n')

    def test_displays(self):
        answers = self.commands(
            'def f():\n    x = 1\n    x = 2\n    return x\nf()\n', 'b 2', 'c', 'display x', 'n',
            'n', 'display', 'undisplay x', 'undisplay y', 'display 1 +')
        self.assertEqual(answers[2], "display x: ** raised NameError: name 'x' is not defined **\n")
        self.assert_in('display x: 1  [old: ** raised', answers[3])
        self.assert_in('display x: 2  [old: 1]\n', answers[4])
        self.assertEqual(answers[5:8], ['display x: 2\n', '', '*** Not displayed in this function: '
                                        'y\n'])
        self.assertEqual(answers[8][:15], '*** SyntaxError')

    def test_threads(self):
        answers = self.commands('''\
import threading
begun, over = threading.Event(), threading.Event()
def work():
    begun.set()
    over.wait()
threading.Thread(target=work, name='worker').start()
begun.wait()
x = 1  # here
over.set()
''', 'b 8', 'c', 'threads', 'thread 2', 'p begun.isSet()', 'thread', 'thread 9')
        self.assert_in('* 1  MainThread  stopped  prog.py(8)<module>()\n', answers[2])
        self.assert_in('  2  worker  running  ', answers[2])
        self.assertEqual(answers[5], '> prog.py(8)<module>()\n-> x = 1  # here\n')
        self.assertEqual(answers[6], '*** No thread 9\n')

    def test_modules(self):
        self.script('x = 1\n', 'beside.py')
        answers = self.commands('import beside\ny = 1\n', 'modules', 'next', 'modules')
        self.assert_in('new       beside.py\n', answers[2])

    def test_what_cannot_be_had_says_so(self):
        names = ['interact', 'processes', 'process 1', 'follow child', 'run', 'raise KeyError',
                 'watch x', 'skip x.py']
        answers = self.commands('x = 1\n', *names)
        for name, answer in zip(names, answers):
            self.assertEqual(
                answer, '*** "%s" cannot be had over a connection\n' % name.split()[0])

        self.assertEqual(self.commands('x = 1\n', 'info watch')[0],
                         '*** "watch" cannot be had over a connection\n')

    def test_help(self):
        answers = self.commands('x = 1\n', 'help', 'help step', 'help nothing')
        self.assert_in('step, s [COUNT]: run to the next line', answers[0])
        self.assert_in('interact: cannot be had over a connection.\n', answers[0])
        self.assert_in('step, s [COUNT]: run to the next line', answers[1])
        self.assertEqual(answers[2], '*** No command nothing\n')


class BreakpointTest(TestCase):

    def test_places(self):
        self.script('def far():\n    return 1\n', 'beside.py')
        answers = self.commands(
            'import beside\n' + CALLS, 'b 3', 'b Shop.sell', 'b prog:10', 'b prog.py:inner',
            'next', 'b beside.far', 'b beside.py:far', 'b nosuch', 'b nofile:3', 'b 99', 'b 1+',
            'b no.such', 'clear prog.py:10', 'info breakpoints')
        self.assertEqual(answers[0], 'Breakpoint 1 at prog.py:3\n')
        self.assertEqual(answers[1], 'Breakpoint 2 at prog.py:7\n')
        self.assertEqual(answers[2:4], ['Breakpoint 3 at prog.py:10\n',
                                        'Breakpoint 4 at prog.py:10\n'])
        self.assertEqual(answers[5:7], ['Breakpoint 5 at beside.py:2\n',
                                        'Breakpoint 6 at beside.py:2\n'])
        self.assertEqual(answers[7], '*** no function nosuch is loaded\n')
        self.assertEqual(answers[8], '*** no file nofile\n')
        self.assertEqual(answers[9], '*** no code from line 99 of prog.py on\n')
        self.assertEqual(answers[11], 'Breakpoint 7 is pending: no module no yet\n')
        self.assertEqual(answers[12], 'Deleted breakpoint 3\nDeleted breakpoint 4\n')
        self.assert_in('pending no.such\n', answers[13])

    def test_pending_ones_tell_where_they_are_found(self):
        path = self.script('def far():\n    return 1\n', 'beside.py')
        answers = self.commands('import sys\nimport beside\nbeside.far()\n',
                                'b %s:2' % path, 'c', 'info breakpoints')
        self.assertEqual(answers[0], 'Breakpoint 1 is pending: its module is not loaded yet\n')
        self.assertEqual(answers[1], 'Breakpoint 1 is at beside.py:2 now\n'
                                     '> beside.py(2)far()\n-> return 1\n')
        self.assert_in('at beside.py:2\n\tbreakpoint already hit 1 time\n', answers[2])

    def test_conditions_and_counts(self):
        answers = self.commands(
            CALLS, 'b 17, turn == 1', 'c', 'p turn', 'condition 1 1 +', 'condition 1', 'c',
            'p turn', 'info breakpoints')
        self.assertEqual(answers[2], '1\n')
        self.assertEqual(answers[3][:40], '*** the condition is no expression: unex')
        self.assertEqual(answers[4], 'Breakpoint 1 is now unconditional.\n')
        self.assertEqual(answers[6], '2\n')
        answers = self.commands(CALLS, 'b 17', 'ignore 1 2', 'c', 'p turn')
        self.assertEqual(answers[1], 'Will ignore next 2 crossings of breakpoint 1.\n')
        self.assertEqual(answers[3], '2\n')

    def test_temporary_and_disabled_ones(self):
        answers = self.commands(CALLS, 'tbreak 17', 'b 18', 'disable 2', 'c', 'info breakpoints',
                                'enable 2', 'c', 'delete 2', 'c')
        self.assertEqual(answers[3], 'Deleted breakpoint 1\n> prog.py(17)<module>()\n'
                                     '-> outer(turn)\n')
        self.assert_in('2   breakpoint   keep no    at prog.py:18\n', answers[4])
        self.assertEqual(answers[6], '> prog.py(18)<module>()\n-> shop.sell(turn)\n')
        self.assertEqual(answers[8], 'The program ended with exit status 0.\n')

    def test_a_condition_that_is_none_keeps_a_disabled_one_disabled(self):
        answers = self.commands(CALLS, 'b 17', 'disable 1', 'condition 1 1 +', 'enable 1', 'b',
                                'condition 1 turn', 'enable', 'c', 'p turn')
        self.assertEqual(answers[3][:40], '*** the condition is no expression: unex')
        self.assert_in('no    at prog.py:17\n\tstop only if 1 +\n', answers[4])
        self.assertEqual(answers[8], '1\n')

    def test_commands_and_logpoints(self):
        answers = self.commands(
            CALLS, 'logpoint 17, turn is {turn}', 'b 18', 'commands', 'silent', 'p turn * 10',
            'end', 'c', 'save breakpoints ' + os.path.join(self.folder, 'saved'), 'clear 1', 'c')
        self.assertEqual(answers[3], 'turn is 0\n0\n')
        self.assertEqual(answers[6], '10\n')
        self.assertEqual(open(os.path.join(self.folder, 'saved')).read().replace(
            self.folder + '/', ''), 'logpoint prog.py:17, turn is {turn}\nbreak prog.py:18\n'
            'commands $bpnum\nsilent\np turn * 10\nend\n')

    def test_aliases_and_command_files(self):
        self.script('alias both p turn;; p shop.name\nb 18\n', '.sorrelrc')
        self.script('# Looks around.\nboth\nzzz\n', 'look')
        answers = self.commands(CALLS, 'c', 'both', 'source look', 'next;; p 7')
        self.assertEqual(answers[0], '> prog.py(18)<module>()\n-> shop.sell(turn)\n')
        self.assertEqual(answers[1], "0\n'a'\n")
        self.assertEqual(answers[2], "0\n'a'\n*** look:3: No such command: zzz\n")
        self.assertEqual(answers[3][-2:], '7\n')


class ExceptionTest(TestCase):

    FAILS = '''\
def fail(key):
    raise KeyError(key)
try:
    fail('a')
except KeyError:
    pass
try:
    fail('b')
except KeyError:
    {}.missing
'''

    def test_what_nothing_catches(self):
        answers = self.commands(self.FAILS, 'c', 'exceptions', 'up', 'p __exception__[0]', 'c')
        self.assertEqual(answers[0], '''\
--Unhandled exception--
AttributeError: 'dict' object has no attribute 'missing'
Raised while handling KeyError: 'b'
> prog.py(10)<module>()
-> {}.missing
''')
        self.assertEqual(answers[1], '''\
0  AttributeError: 'dict' object has no attribute 'missing'
   raised at prog.py:10
1  KeyError: 'b'
   raised at prog.py:2
''')
        self.assertEqual(answers[4], 'The program ended with exit status 1.\n')

    def test_choosing_types_and_places(self):
        answers = self.commands(
            self.FAILS, 'catch', 'catch always KeyError', 'catch always Nosuch, no.Such', 'catch',
            'c', 'catch ignore', 'ignore', 'catch never', 'c', 'exceptions')
        self.assertEqual(answers[0], 'Stops at exceptions where nothing will catch them '
                                     '(unhandled).\n')
        self.assertEqual(answers[2], '*** Not a known exception: Nosuch\n'
                                     'no.Such is not loaded yet: this holds as soon as it is.\n')
        self.assert_in('Always at: KeyError, no.Such\n', answers[3])
        self.assertEqual(answers[4], "--Exception--\nKeyError: 'a'\n> prog.py(2)fail()\n"
                                     "-> raise KeyError(key)\n")
        self.assertEqual(answers[5], 'Will not stop at exceptions raised at prog.py:2.\n')
        self.assertEqual(answers[6], 'Not at exceptions raised at:\n1  prog.py:2\n')
        self.assertEqual(answers[8], 'The program ended with exit status 1.\n')


class CompletionTest(connect_session.TestCase):

    def test_tab_completes_what_the_program_knows(self):
        try:
            import readline
        except ImportError:
            self.skip('completes nothing, which takes a host with readline')
        program = self.wait_for_client(CALLS)
        screen = self.open_screen(program)
        screen.read_to(PROMPT)
        screen.type('b 16\n')
        screen.read_to(PROMPT)
        screen.type('c\n')
        screen.read_to(PROMPT)
        screen.type('p shop.na\t\n')
        screen.read_to("'a'\r\n" + PROMPT)
        screen.type('q\n')
        self.assertEqual(screen.read_all()[1], 0)
