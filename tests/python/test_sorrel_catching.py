"""Exceptions in the terminal: at which of them it stops, and what it shows of them."""

import sorrel_session

DEEP = '''\
import traceback

def inner(n):
    if n == 3:
        raise ValueError('bad %d' % n)
    return n

def outer(n):
    return inner(n) + 1

def careful(n):
    try:
        return outer(n)
    except ValueError:
        return -1

def talkative(n):
    try:
        return outer(n)
    except:
        print traceback.format_exc().splitlines()[-1]

print careful(3)
talkative(3)
outer(3)
'''


class Unhandled(sorrel_session.TestCase):

    def ends(self, text, commands):
        """The answers from the second prompt on, and the last line of what the program says."""
        out, err, status = self.debug(text, commands)
        return out.split(sorrel_session.PROMPT)[1:], err.splitlines()[-1:], status

    def test_it_stops_where_it_is_raised_with_the_frames_still_alive(self):
        answers, error, status = self.ends(
            DEEP, ['c', 'where', 'p n', 'up', 'p n', 'n = 4', 'down', 'list 5,5', 'c'])
        self.assertEqual(answers, ['''\
-1
ValueError: bad 3
--Unhandled exception--
ValueError: bad 3
> prog.py(5)inner()
-> raise ValueError('bad %d' % n)
''', '''\
  prog.py(25)<module>()
-> outer(3)
  prog.py(9)outer()
-> return inner(n) + 1
> prog.py(5)inner()
-> raise ValueError('bad %d' % n)
''', '3\n', '> prog.py(9)outer()\n-> return inner(n) + 1\n', '3\n', '',
            "> prog.py(5)inner()\n-> raise ValueError('bad %d' % n)\n",
            "  5  ->\t        raise ValueError('bad %d' % n)\n", '''\
About to end the program: ValueError: bad 3
The program ended with an uncaught ValueError.
'''])
        self.assertEqual((error, status), (['ValueError: bad 3'], 1))

    def test_one_raised_in_the_outermost_frame_is_about_to_end_the_program(self):
        answers, _, _ = self.ends("x = 1\nraise KeyError('k')\n", ['c', 'c'])
        self.assertEqual(answers, ['''\
--Unhandled exception--
KeyError: 'k'
It is about to end the program.
> prog.py(2)<module>()
-> raise KeyError('k')
''', 'The program ended with an uncaught KeyError.\n'])

    def test_one_raised_again_is_shown_where_it_was_raised_first(self):
        answers, _, _ = self.ends('''\
def inner():
    x = 1
    raise ValueError('again')

def outer():
    try:
        inner()
    except:
        x = 2
        raise

outer()
''', ['c', 'where', 'p x', 'up', 'p x', 'n', 'c'])
        self.assertEqual(answers[:5], ['''\
--Unhandled exception--
ValueError: again
It is about to end the program.
> prog.py(3)inner()
-> raise ValueError('again')
''', '''\
  prog.py(12)<module>()
-> outer()
  prog.py(7)outer()
-> inner()
> prog.py(3)inner()
-> raise ValueError('again')
''', '1\n', '> prog.py(7)outer()\n-> inner()\n', '2\n'])

    def test_one_that_passes_through_a_generator(self):
        answers, _, _ = self.ends('''\
def numbers():
    yield 1
    raise ValueError('in a generator')

def total():
    try:
        return sum(n for n in numbers())
    except:
        raise

total()
''', ['c', 'where', 'c'])
        self.assertEqual(answers[1], '''\
  prog.py(11)<module>()
-> total()
  prog.py(7)total()
-> return sum(n for n in numbers())
  prog.py(7)<genexpr>()
-> return sum(n for n in numbers())
> prog.py(3)numbers()
-> raise ValueError('in a generator')
''')

    def test_a_step_shows_it_without_a_verdict(self):
        self.assert_session('''\
def f():
    raise ValueError('no')
try:
    f()
except ValueError:
    print 'caught'
''', '''
    > prog.py(1)<module>()
    -> def f():
    (sorrel) tbreak f
    Breakpoint 1 at prog.py:2
    (sorrel) c
    Deleted breakpoint 1
    > prog.py(2)f()
    -> raise ValueError('no')
    (sorrel) n
    ValueError: no
    > prog.py(2)f()
    -> raise ValueError('no')
    (sorrel) c
    caught
    The program ended with exit status 0.
    ''')

    def test_on_the_way_to_an_outer_frame_it_stops(self):
        answers, _, _ = self.ends(DEEP, ['tbreak 6', 'b 9, n == 3', 'catch', 'c', 'up', 'n', 'q'])
        self.assertEqual(answers[3:], ['''\
> prog.py(9)outer()
-> return inner(n) + 1
''', '> prog.py(13)careful()\n-> return outer(n)\n', '''\
ValueError: bad 3
> prog.py(13)careful()
-> return outer(n)
''', ''])
        answers, _, _ = self.ends('''\
def f(n):
    g(n)
    return n

def g(n):
    x = 1
    return h(n)

def h(n):
    raise ValueError(n)

f(1)
''', ['tbreak 6', 'c', 'up', 'n', 'q'])
        self.assertEqual(answers[2:4], ['> prog.py(2)f()\n-> g(n)\n', '''\
--Unhandled exception--
ValueError: 1
> prog.py(10)h()
-> raise ValueError(n)
'''])

    def test_what_the_interpreter_takes_itself_does_not_stop(self):
        self.assert_session('''\
import sys

class Numbers(object):
    def __init__(self):
        self.n = 0
    def __iter__(self):
        return self
    def next(self):
        self.n += 1
        if self.n > 3:
            raise StopIteration
        return self.n

class Guess(object):
    def __getattr__(self, name):
        raise AttributeError(name)
    def __getitem__(self, index):
        return [1, 2][index]

def count():
    try:
        yield 1
    finally:
        print 'closed'

one = count()
one.next()
del one
print list(Numbers()), hasattr(Guess(), 'x'), getattr(Guess(), 'y', 0), list(Guess())
for number in Numbers():
    last = number
sys.exit(last)
''', '''
    > prog.py(1)<module>()
    -> import sys
    (sorrel) c
    closed
    [1, 2, 3] False 0 [1, 2]
    The program ended with exit status 3.
    ''')

    def test_a_probe_that_nobody_takes_stops_where_it_was_made(self):
        answers, _, _ = self.ends('''\
class Guess(object):
    def __getattr__(self, name):
        raise AttributeError(name)
def ask():
    getattr(Guess(), 'x')
ask()
''', ['c', 'where', 'q'])
        self.assertEqual(answers[1], '''\
  prog.py(6)<module>()
-> ask()
  prog.py(5)ask()
-> getattr(Guess(), 'x')
> prog.py(3)__getattr__()
-> raise AttributeError(name)
''')

    def test_c_code_that_may_swallow_it_is_told_of(self):
        answers, _, _ = self.ends('''\
import re
def replace(match):
    return 1 / 0
def work():
    substitute('text')
substitute = re.compile('t').sub
substitute = lambda text, call=substitute: call(replace, text)
work()
''', ['c', 'c'])
        self.assertEqual(answers, ['''\
--Unhandled exception--
ZeroDivisionError: integer division or modulo by zero
No handler in Python code; called by C code.
> prog.py(3)replace()
-> return 1 / 0
''', '''\
About to end the program: ZeroDivisionError: integer division or modulo by zero
The program ended with an uncaught ZeroDivisionError.
'''])

    def test_one_that_might_have_been_swallowed_stops_when_it_was_not(self):
        text = '''\
from __future__ import with_statement
class Maybe(object):
    def __enter__(self):
        pass
    def __exit__(self, *error):
        return self.swallows()
    def swallows(self):
        return %s
def f(n):
    with Maybe():
        1 / n
%s
'''
        answers, _, _ = self.ends(text % (0, 'f(0)'), ['c', 'where', 'p n', 'c'])
        self.assertEqual(answers, ['''\
--Unhandled exception--
ZeroDivisionError: integer division or modulo by zero
It is about to end the program.
> prog.py(11)f()
-> 1 / n
''', '''\
  prog.py(12)<module>()
-> f(0)
> prog.py(11)f()
-> 1 / n
''', '0\n', 'The program ended with an uncaught ZeroDivisionError.\n'])
        answers, _, _ = self.ends(text % (0, 'with Maybe():\n    1 / 0'), ['c', 'c'])
        self.assertEqual(answers, ['''\
--Unhandled exception--
ZeroDivisionError: integer division or modulo by zero
It is about to end the program.
> prog.py(13)<module>()
-> 1 / 0
''', 'The program ended with an uncaught ZeroDivisionError.\n'])
        answers, _, _ = self.ends(text % (1, 'f(0)'), ['c'])
        self.assertEqual(answers, ['The program ended with exit status 0.\n'])

    def test_the_recursion_limit(self):
        answers, error, _ = self.ends(
            'def f(n):\n    f(n + 1)\nf(0)\n', ['c', 'p n > 900, type(n)', 'up', 'q'])
        self.assertEqual(answers[0], '''\
--Unhandled exception--
RuntimeError: maximum recursion depth exceeded
> prog.py(2)f()
-> f(n + 1)
''')
        self.assertEqual(answers[1], "(True, <type 'int'>)\n")
        self.assertEqual(error, [])

    def test_in_threads(self):
        answers, _, _ = self.ends('''\
import thread, threading

def work(n):
    return 1 / n

def bare():
    try:
        work(0)
    finally:
        done.release()

done = thread.allocate_lock()
done.acquire()
first = threading.Thread(target=work, args=(0,), name='first')
first.start()
first.join()
thread.start_new_thread(bare, ())
done.acquire()
''', ['c', 'where', 'c', 'c'])
        self.assertEqual(answers[0], '''\
[first]
--Unhandled exception--
ZeroDivisionError: integer division or modulo by zero
> prog.py(4)work()
-> return 1 / n
''')
        self.assert_in('threading.py(', answers[1])
        self.assertEqual(answers[1].splitlines()[-2:], [
            '> prog.py(4)work()', '-> return 1 / n'])
        before, _, after = answers[2].partition('[bare]\n')
        self.assertEqual(before, '''\
About to end thread first: ZeroDivisionError: integer division or modulo by zero
''')
        self.assertEqual(after, '''\
--Unhandled exception--
ZeroDivisionError: integer division or modulo by zero
> prog.py(4)work()
-> return 1 / n
''')
        self.assert_in('About to end thread bare: ZeroDivisionError', answers[3])


class Choosing(sorrel_session.TestCase):

    def answers(self, text, commands):
        out, _, _ = self.debug(text, commands)
        return out.split(sorrel_session.PROMPT)[1:]

    def test_always_stops_at_each_where_it_is_raised_and_once(self):
        stop = '''\
--Exception--
ValueError: bad 3
> prog.py(5)inner()
-> raise ValueError('bad %d' % n)
'''
        self.assertEqual(self.answers(DEEP, ['catch always', 'c', 'c', 'c', 'c'])[1:], [
            stop, '-1\n' + stop, 'ValueError: bad 3\n' + stop,
            'About to end the program: ValueError: bad 3\n'
            'The program ended with an uncaught ValueError.\n'])

    def test_never_only_says_what_ends_the_program(self):
        self.assertEqual(self.answers(DEEP, ['catch never', 'c'])[1:], ['''\
-1
ValueError: bad 3
About to end the program: ValueError: bad 3
The program ended with an uncaught ValueError.
'''])

    def test_printed_stops_where_the_library_prints_for_the_program(self):
        self.assertEqual(self.answers('''\
import logging, sys, threading
logging.raiseExceptions = 0

def work(n):
    return 1 / n

class Broken(object):
    def write(self, text):
        work(0)
    def flush(self):
        pass

def quiet():
    try:
        work(0)
    except ZeroDivisionError:
        pass

quiet()
logging.getLogger().addHandler(logging.StreamHandler(Broken()))
logging.warning('never seen')
thread = threading.Thread(target=work, args=(0,), name='worker')
thread.start()
thread.join()
work(0)
''', ['catch printed', 'c', 'c', 'c', 'c'])[1:], ['''\
--Exception that is printed--
ZeroDivisionError: integer division or modulo by zero
> prog.py(5)work()
-> return 1 / n
''', '''\
[worker]
--Unhandled exception--
ZeroDivisionError: integer division or modulo by zero
> prog.py(5)work()
-> return 1 / n
''', '''\
About to end thread worker: ZeroDivisionError: integer division or modulo by zero
[MainThread]
--Unhandled exception--
ZeroDivisionError: integer division or modulo by zero
> prog.py(5)work()
-> return 1 / n
''', '''\
About to end the program: ZeroDivisionError: integer division or modulo by zero
The program ended with an uncaught ZeroDivisionError.
'''])

    def test_what_a_destructor_raises_is_printed_unless_the_program_calls_it(self):
        self.assertEqual(self.answers('''\
class Fails(object):
    def __del__(self):
        self.fail()
    def fail(self):
        raise ValueError('gone')
class Derived(Fails):
    def __del__(self):
        try:
            Fails.__del__(self)
        except ValueError:
            pass
one = Derived()
one = Fails()
one = None
''', ['catch printed', 'c', 'c'])[1:], ['''\
--Exception that is printed--
ValueError: gone
> prog.py(5)fail()
-> raise ValueError('gone')
''', 'The program ended with exit status 0.\n'])

    def test_a_failing_unit_test_is_printed(self):
        self.assertEqual(self.answers('''\
import unittest
class Test(unittest.TestCase):
    def test(self):
        raise ValueError('broken')
unittest.main(argv=['prog'])
''', ['catch printed', 'c', 'c'])[1:], ['''\
--Exception that is printed--
ValueError: broken
> prog.py(4)test()
-> raise ValueError('broken')
''', 'The program ended with exit status 1.\n'])

    def test_types_stop_always_or_never(self):
        text = '''\
def attempt(kind):
    try:
        raise kind('x')
    except:
        pass
for kind in KeyError, IndexError, ValueError:
    attempt(kind)
raise IndexError('y')
'''
        stop = "--Exception--\n%s: %s\n> prog.py(3)attempt()\n-> raise kind('x')\n"
        self.assertEqual(self.answers(text, [
            'catch always LookupError, ValueError', 'catch never IndexError', 'catch', 'c', 'c',
            'c'])[2:], ['''\
Stops at exceptions where nothing will catch them (unhandled).
Always at: LookupError, ValueError
Never at: GeneratorExit, StopIteration, SystemExit, IndexError
''', stop % ('KeyError', "'x'"), stop % ('ValueError', 'x'),
            'The program ended with an uncaught IndexError.\n'])
        self.assertEqual(self.answers(text, [
            'catch never', 'catch always KeyError', 'catch forget SystemExit, KeyError',
            'catch always IndexError', 'catch', 'c', 'c', 'c'])[4:], ['''\
Stops at exceptions at none (never).
Always at: IndexError
Never at: GeneratorExit, StopIteration
''', stop % ('IndexError', 'x'), '''\
--Exception--
IndexError: y
It is about to end the program.
> prog.py(8)<module>()
-> raise IndexError('y')
''', 'The program ended with an uncaught IndexError.\n'])

    def test_what_catch_refuses(self):
        self.assertEqual(self.answers('x = 1\n', [
            'catch everything', 'catch never nothing', 'catch always 5', 'catch forget',
            'catch printed ValueError', 'catch ignore', 'ignore clear 1', 'c'])[:-1], [
                '*** catch what? See "help catch"\n',
                "*** NameError: name 'nothing' is not defined\n",
                '*** Not a type: 5\n',
                '*** catch what? See "help catch"\n',
                '*** catch what? See "help catch"\n',
                '*** The program has not stopped at an exception\n',
                '*** No ignored place 1\n'])

    def test_places_are_ignored_and_cleared(self):
        text = '''\
def one():
    raise ValueError(1)
def two():
    try:
        raise ValueError(2)
    finally:
        x = 1
def attempt(function):
    try:
        function()
    except:
        pass
for i in range(3):
    attempt(one)
    attempt(two)
'''
        self.assertEqual(self.answers(text, [
            'ignore', 'catch always', 'c', 'catch ignore', 'c', 'catch ignore', 'catch',
            'ignore clear 1', 'ignore', 'c', 'ignore clear', 'catch', 'c', 'c', 'catch never',
            'c']), [
                'No place is ignored.\n', '',
                '--Exception--\nValueError: 1\n> prog.py(2)one()\n-> raise ValueError(1)\n',
                'Will not stop at exceptions raised at prog.py:2.\n',
                '--Exception--\nValueError: 2\n> prog.py(5)two()\n-> raise ValueError(2)\n',
                'Will not stop at exceptions raised at prog.py:5.\n', '''\
Stops at exceptions at every one (always).
Never at: GeneratorExit, StopIteration, SystemExit
Not at exceptions raised at:
1  prog.py:2
2  prog.py:5
''', '', '''\
Not at exceptions raised at:
1  prog.py:5
''', '--Exception--\nValueError: 1\n> prog.py(2)one()\n-> raise ValueError(1)\n', '', '''\
Stops at exceptions at every one (always).
Never at: GeneratorExit, StopIteration, SystemExit
''', '--Exception--\nValueError: 2\n> prog.py(5)two()\n-> raise ValueError(2)\n',
                '--Exception--\nValueError: 1\n> prog.py(2)one()\n-> raise ValueError(1)\n', '',
                'The program ended with exit status 0.\n'])


class Raising(sorrel_session.TestCase):

    def test_an_exception_is_raised_in_the_program(self):
        self.assert_session('''\
def f():
    x = 1
    x = 2
    return x
try:
    f()
except KeyError, error:
    print 'caught', error
''', '''
    > prog.py(1)<module>()
    -> def f():
    (sorrel) tbreak 2
    Breakpoint 1 at prog.py:2
    (sorrel) c
    Deleted breakpoint 1
    > prog.py(2)f()
    -> x = 1
    (sorrel) raise KeyError('planted')
    KeyError: 'planted'
    > prog.py(3)f()
    -> x = 2
    (sorrel) p x
    1
    (sorrel) c
    caught 'planted'
    The program ended with exit status 0.
    ''')

    def test_what_can_be_raised(self):
        self.assert_session('''\
for i in range(3):
    try:
        i
        i
    except Exception, error:
        print type(error).__name__, error
''', '''
    > prog.py(1)<module>()
    -> for i in range(3):
    (sorrel) b 3
    Breakpoint 1 at prog.py:3
    (sorrel) c
    > prog.py(3)<module>()
    -> i
    (sorrel) raise 5
    *** Not an exception: 5
    (sorrel) raise int
    *** Not an exception: <type 'int'>
    (sorrel) raise nothing
    *** NameError: name 'nothing' is not defined
    (sorrel) raise UnicodeError
    UnicodeError
    > prog.py(4)<module>()
    -> i
    (sorrel) c
    UnicodeError 
    > prog.py(3)<module>()
    -> i
    (sorrel) raise IOError, 'text'
    IOError: text
    > prog.py(4)<module>()
    -> i
    (sorrel) clear 1
    Deleted breakpoint 1
    (sorrel) c
    IOError text
    The program ended with exit status 0.
    ''')
