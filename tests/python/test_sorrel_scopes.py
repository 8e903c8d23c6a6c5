"""What is evaluated at the prompt, and in conditions, means what it would mean in the function."""

import sorrel_session

CLOSURES = '''\
total = 100
def f(n, xs):
    y = 2
    done = True
    return n, xs, y

print f(3, [1, 2, 3, 4, 5])
'''
PRIVATE = '''\
import functools
def wrapped(function):
    @functools.wraps(function)
    def wrapper(*args):
        return function(*args)
    return wrapper

class _Base(object):
    def __init__(self):
        self.__x = 1
    def base(self):
        return self.__x

class Derived(_Base):
    __shared = 'shared'
    def __init__(self):
        _Base.__init__(self)
        self.__x = 2
    @wrapped
    def derived(self, __local=8):
        return [(lambda: self.__x)() for _ in 'a']
    @staticmethod
    def plain(value):
        return value

class Old:
    def __init__(self):
        self.__x = 3

derived = Derived()
derived.base()
derived.derived()
Derived.plain(derived)
Old()
'''


class TestCase(sorrel_session.TestCase):

    def answers(self, text, commands):
        """What is seen after each of the commands."""
        out, err, self.status = self.debug(text, commands)
        self.assertEqual(err, '')
        return out.split(sorrel_session.PROMPT)[1:]


class FunctionsTest(TestCase):

    def test_functions_in_expressions_see_the_variables_of_the_frame(self):
        answers = self.answers(CLOSURES, [
            'tbreak 4', 'c', 'p sum(z for z in xs if z > n)', 'p map(lambda x: x + n, xs)',
            'p [(lambda: z * n)() for z in xs]', 'p (lambda: (lambda: n + total)())()', 'p _',
            'p (lambda: _ + n)()', 'p (lambda: nothing)()', 'p sorted(locals())',
            'p sorted((lambda: n) and locals())', "p eval('n', {}, (lambda: n) and locals())",
            'map(lambda z: z - n, xs)', 'p z', 'whatis lambda: n', 'c'])
        self.assertEqual(answers[2:-2], [
            '9\n', '[4, 5, 6, 7, 8]\n', '[3, 6, 9, 12, 15]\n', '103\n', '103\n', '106\n',
            "*** NameError: global name 'nothing' is not defined\n", "['n', 'xs', 'y']\n",
            "['n', 'xs', 'y']\n", '3\n', '[-2, -1, 0, 1, 2]\n',
            "*** NameError: name 'z' is not defined\n"])

    def test_what_statements_with_functions_assign_arrives(self):
        answers = self.answers(CLOSURES, [
            'tbreak 4', 'c', 'n = max(map(lambda x: x + n, xs)); n',
            'xs = [(lambda: z + n)() for z in xs]',
            'for i in range(2): y = (lambda: y + i)(); y',
            'def fact(k): return k and k * fact(k - 1) or 1',
            'fact(5)', 'def again(): return fact(n)', 'again() > 1', 'total += (lambda: n)()',
            'total',
            "exec 'y = 4'; (lambda: n) and y", 'del total; (lambda: n)()', 'total',
            'new = (lambda: n)(); 1/0', 'new', 'global g; g = (lambda: n)()', "'g' in globals()",
            'try: (lambda: n)(); 1/0', "except ZeroDivisionError: 'caught'", '', 'c'])
        self.assertEqual(answers[2:6], ['8\n', '', '2\n3\n', ''])
        self.assertEqual(answers[6:16], [
            '120\n', '', 'True\n', '', '108\n', '4\n', '8\n', '100\n',
            '*** ZeroDivisionError: integer division or modulo by zero\n', '8\n'])
        self.assertEqual(answers[17:19], ['True\n', "... ... 8\n'caught'\n"])
        self.assert_in("(8, [9, 10, 11, 12, 13], 4)\n", answers[-1])

    def test_conditions_see_them(self):
        self.script('''\
def f(n, xs):
    return n

for i in range(6):
    f(i, [2, 4])
''', 'prog.py')
        answers = self.answers(open(self.folder + '/prog.py').read(), [
            'break 2, sum(z for z in xs if z > n) == 4', 'c', 'p n', 'c', 'p n',
            'condition 1 any(map(lambda x: x + 1 == n, xs))', 'c', 'p n', 'c'])
        self.assertEqual([answers[2], answers[4], answers[7]], ['2\n', '3\n', '5\n'])


    def test_nothing_is_imported_for_that(self):
        answers = self.answers('''\
import imp, sys, threading
def hold():
    imp.acquire_lock()
    held.set()
    done.wait()
    imp.release_lock()

held, done = threading.Event(), threading.Event()
thread = threading.Thread(target=hold)
thread.start()
held.wait()
def f(n):
    done.set()
f(5)
''', ['tbreak 13', 'c', 'p map(lambda x: x + n, [1])', 'm = (lambda: n)(); m',
      "p '_ast' in sys.modules", 'c'])
        self.assertEqual(answers[2:5], ['[6]\n', '5\n', 'False\n'])


class PrivateNamesTest(TestCase):

    def test_they_are_those_of_the_class_of_the_method(self):
        answers = self.answers(PRIVATE, [
            'tbreak 12', 'c', 'p self.__x', 'self.__x = 10',
            'p self.__x, self._Base__x, self._Derived__x',
            'p (lambda: self.__x)()', 'c'])
        self.assertEqual(answers[2:-1], ['1\n', '', '(10, 10, 2)\n', '10\n'])

    def test_in_a_wrapped_method_and_functions_inside(self):
        answers = self.answers(PRIVATE, [
            'tbreak 21', 'c', 'p self.__x, __local, self.__shared', '__local = 9; __local', 'u 2',
            'p derived.__x', 'd 2', 's', 'p self.__x', 'c'])
        self.assertEqual([answers[2], answers[3]], ["(2, 8, 'shared')\n", '9\n'])
        self.assert_in("*** AttributeError: ", answers[5])
        self.assertEqual(answers[8], '2\n')

    def test_in_a_static_method_a_class_body_and_a_class_of_the_old_kind(self):
        answers = self.answers(PRIVATE, [
            'tbreak 16', 'c', 'p __shared', 'tbreak 24', 'c', 'p value.__x', 'tbreak 28', 'c', 'n',
            'p self.__x', 'c'])
        self.assertEqual([answers[2], answers[5], answers[9]], ["'shared'\n", '2\n', '3\n'])

    def test_in_conditions(self):
        answers = self.answers(PRIVATE, [
            "break 12, self.__x == 1 and '__x' == '_' + '_x'", 'c', 'b',
            'condition 1 self.__x == 2',
            'tbreak 21, self.__x == 2 and __local == 8', 'c', 'c'])
        self.assertEqual(answers[1], '> prog.py(12)base()\n-> return self.__x\n')
        self.assert_in("stop only if self.__x == 1 and '__x' == '_' + '_x'\n", answers[2])
        self.assertEqual(
            answers[5], "Deleted breakpoint 2\n> prog.py(21)derived()\n"
            "-> return [(lambda: self.__x)() for _ in 'a']\n")
        self.assertEqual(answers[6], 'The program ended with exit status 0.\n')

    def test_in_conditions_of_breakpoints_for_less_than_a_line(self):
        text = PRIVATE.replace('):\n        return self.__x', '): return self.__x')
        answers = self.answers(text, [
            'logpoint _Base.base, {self.__x}',
            "break _Base.base, self.__x == 1 and all(self.__x == n for n in [1])",
            'break 20, self.__x == 2 and [1 for n in [2] if (lambda: self.__x == n)()]',
            'logpoint 20, {(lambda: self.__x)()}', 'c', 'c', 'condition 2 self.__x == 1', 'run',
            'c', 'c', 'c'])
        for seen in answers[4:6], answers[8:10]:
            self.assertEqual(seen, [
                '1\n> prog.py(11)base()\n-> def base(self): return self.__x\n',
                "2\n> prog.py(20)derived()\n-> return [(lambda: self.__x)() for _ in 'a']\n"])

    def test_in_conditions_of_what_is_loaded_later(self):
        self.script(PRIVATE, 'later.py')
        answers = self.answers('import sys\nimport later\n', [
            'break later.py:12, self.__x == 1', 'break later.Old.__init__, hasattr(self, "x")',
            'condition 2 self.__x == 3', 'c', 'c'])
        self.assert_in('> later.py(12)base()\n', answers[3])
        self.assert_in('Condition of breakpoint 2: AttributeError: ', answers[4])
        self.assert_in("no attribute '_Old__x'\n> later.py(28)__init__()\n", answers[4])

    def test_other_names_with_underscores_stay(self):
        answers = self.answers(PRIVATE, [
            'tbreak 12', 'c', 'p self.__class__.__name__', "p '__x'", 'p __name__',
            'p self._Base__x',
            'c'])
        self.assertEqual(answers[2:-1], ["'Derived'\n", "'__x'\n", "'__main__'\n", '1\n'])
