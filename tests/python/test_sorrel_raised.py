"""What the terminal tells of an exception that is on its way, and what is evaluated meanwhile."""

import sorrel_session

LOOKING = '''\
import sys
def find(where, name):
    return where[name]
def search():
    try:
        int('old')
    except ValueError:
        before = sys.exc_info()[1]
    return find({}, 'x')
try:
    search()
except KeyError:
    print sys.exc_info()[0].__name__, sys.exc_info()[1]
'''


class TestCase(sorrel_session.TestCase):

    def answers(self, program, *commands):
        """What follows each command, the last of which lets the program run to its end."""
        out, self.err, self.status = self.debug(program, commands)
        return out.split(sorrel_session.PROMPT)[1:]


class Texts(TestCase):

    def shown(self, program):
        return self.answers(program, 'c', 'c')[0]

    def test_values_that_the_interpreter_has_not_made_yet_are_made(self):
        self.assertEqual(self.shown("{}['x']\n"), '''\
--Unhandled exception--
KeyError: 'x'
It is about to end the program.
> prog.py(1)<module>()
-> {}['x']
''')
        self.assert_in("IOError: [Errno 2] No such file or directory: '/nosuch'\n",
                       self.shown("open('/nosuch')\n"))
        self.assert_in("UnicodeDecodeError: 'ascii' codec can't decode byte 0xe4 in position 1: ",
                       self.shown("'a\\xe4'.decode('ascii')\n"))

    def test_a_syntax_error_has_its_line_and_caret(self):
        self.assert_in('''\
--Unhandled exception--
  File "typed", line 2
    x = = 1
        ^
SyntaxError: invalid syntax
''', self.shown("compile('a = 1\\nx = = 1\\n', 'typed', 'exec')\n"))

    def test_values_that_code_of_the_program_makes_are_left_to_it(self):
        answers = self.answers('''\
import tmorvik26_vs2012_x64 as core
made = []
class Mine(Exception):
    def __init__(self):
        made.append(self)
def fail():
    core.raise_exception(0, Mine)
    pass
try:
    fail()
except Mine, error:
    print made == [error]
''', 'catch always', 'c', 'p made', 'p __exception__', 'c')
        self.assert_in('Mine\n> prog.py(8)fail()\n', answers[1])
        self.assertEqual(answers[2], '[]\n')
        self.assert_in("(<class '__main__.Mine'>, None, <traceback", answers[3])
        self.assert_in('True\n', answers[4])

    def test_what_was_being_handled_is_told(self):
        self.assert_in('''\
KeyError: 'k'
Raised while handling IOError: [Errno 2] No such file or directory: '/nosuch'
Raised while handling ValueError: invalid literal for int() with base 10: 'v'
> prog.py(2)''', self.shown('''\
def fail():
    {}['k']
def inner():
    try:
        open('/nosuch')
    except IOError, error:
        for _ in range(3):
            try:
                fail()
            finally:
                pass
try:
    int('v')
except ValueError:
    inner()
'''))

    def test_what_was_handled_before_is_not_told(self):
        self.assert_not_in('handling', self.shown(LOOKING.replace('KeyError', 'TypeError')))


class Looking(TestCase):

    def test_exc_info_is_the_exception_that_the_program_has_stopped_at(self):
        answers = self.answers(
            LOOKING, 'catch always KeyError', 'catch always', 'catch never ValueError', 'c',
            'p sys.exc_info()[1]', 'import traceback', 'traceback.extract_tb(sys.exc_info()[2])',
            'up', 'sys.exc_info() == __exception__', '1 / 0', 'sys.exc_info()[1]', 'p before', 'c')
        self.assert_in("KeyError: 'x'\n> prog.py(3)find()", answers[3])
        self.assertEqual(answers[4], "KeyError('x',)\n")
        self.assertEqual(answers[6], "[('prog.py', 3, 'find', 'return where[name]')]\n")
        self.assertEqual(answers[8], 'True\n')
        self.assert_in('ZeroDivisionError', answers[9])
        self.assertEqual(answers[10], "KeyError('x',)\n")
        self.assert_in('ValueError', answers[11])
        self.assert_in("KeyError 'x'\n", answers[12])
        self.assertEqual(self.err, '')

    def test_the_programs_own_is_as_before_when_it_goes_on(self):
        answers = self.answers('''\
import sys
def fail():
    int('new')
try:
    int('old')
except ValueError:
    try:
        fail()
    finally:
        print sys.exc_info()[1]
''', 'catch always', 'catch never', 'catch unhandled', 'c', 'p sys.exc_info()[1]',
                               'p sys.exc_info()[1]', 'c')
        self.assert_in("'new'", answers[4])
        self.assert_in("'new'", answers[5])
        self.assert_in("invalid literal for int() with base 10: 'old'\n", answers[6])

    def test_where_no_exception_is_on_its_way_exc_info_is_the_frames(self):
        answers = self.answers('''\
import sys
try:
    int('old')
except ValueError:
    print 'handling'
''', 'p __import__("sys").exc_info()', 'b 5', 'c', 'p sys.exc_info()[0]', '1 / 0',
                               'p sys.exc_info()[0]', 'p __exception__', 'c')
        self.assertEqual(answers[0], '(None, None, None)\n')
        self.assertEqual(answers[3], "<type 'exceptions.ValueError'>\n")
        self.assertEqual(answers[5], "<type 'exceptions.ValueError'>\n")
        self.assert_in('NameError', answers[6])


class Names(TestCase):

    def test_the_exception_has_a_name(self):
        answers = self.answers("def f():\n    {}['x']\nf()\n", 'c', '__exception__[1]',
                               'p __exception__[2].tb_lineno', 'whatis __exception__[0]',
                               '__exception__ = 5', 'p __exception__', 'c')
        self.assertEqual(answers[1], "KeyError('x',)\n")
        self.assertEqual(answers[2], '2\n')
        self.assertEqual(answers[3], "<type 'type'>\n")
        self.assertEqual(answers[5], '5\n')

    def test_the_value_that_is_returned_has_a_name(self):
        answers = self.answers('''\
def f():
    return 21
def g():
    pass
f()
g()
f
''', 'b 2', 'c', 'r', '__return__ * 2', 'b 4', 'c', 'r', 'p __return__', 'n', 'p __return__', 'c')
        self.assertEqual(answers[3], '42\n')
        self.assertEqual(answers[7], 'None\n')
        self.assert_in('NameError', answers[9])

    def test_what_was_shown_last_has_a_name(self):
        answers = self.answers('x = 1\nx = 2\n', '_', 'range(3)', 'sum(_)', 'None', 'p _ + 4', '_',
                               '_ += 1', '_', 'n', '_', 'c')
        self.assert_in('NameError', answers[0])
        self.assertEqual(answers[2], '3\n')
        self.assertEqual(answers[4], '7\n')
        self.assertEqual(answers[5], '7\n')
        # From here on it is the program's.
        self.assertEqual(answers[7], '8\n')
        self.assertEqual(answers[9], '8\n')

    def test_names_of_the_program_come_first(self):
        answers = self.answers('''\
import gettext
gettext.install('none')
__return__ = 'mine'
def f(__exception__):
    {}['x']
f('its')
''', 'tbreak 5', 'c', '1', '_("text")', '_', 'r', '__return__', '__exception__', 'c')
        self.assertEqual(answers[3], "'text'\n")
        self.assert_in('gettext', answers[4])
        self.assertEqual(answers[6], "'mine'\n")
        self.assertEqual(answers[7], "'its'\n")

    def test_the_program_is_given_nothing(self):
        answers = self.answers('''\
def f():
    1
    {}['x']
try:
    f()
except KeyError:
    print sorted(globals()), '_' in dir(__builtins__)
''', 'catch always', 'c', '1', 'p __exception__ is _', 'p sorted(locals())', 'up',
                               '__exception__[0]', 'c')
        self.assertEqual(answers[4], '[]\n')
        self.assert_in("['__builtins__', '__doc__', '__file__', '__name__', '__package__', 'f'] "
                       "False\n", answers[7])
