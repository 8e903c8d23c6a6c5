"""What each word of the command "catch" stops at, down to the corners."""

import os

import sorrel_session

# Calls its action in code of the library.
LIBRARY = '''\
import sched, time

def by_library(action, *arguments):
    scheduler = sched.scheduler(time.time, time.sleep)
    scheduler.enter(0, 1, action, arguments)
    scheduler.run()
'''


def stop(kind, error, place):
    return '--%s--\n%s\n> prog.py(%s)%s()\n' % ((kind, error) + place)


class TestCase(sorrel_session.TestCase):

    def stops(self, text, commands):
        """What is said at each prompt, without the source lines and what the program ends with."""
        out, self.err, _ = self.debug(text, commands + ['c'] * 20)
        answers = out.split(sorrel_session.PROMPT)[1 + len(commands):]
        return [''.join([line for line in answer.splitlines(True)
                         if not line.startswith(('-> ', 'The program ended', 'It is about',
                                                 'About to end', 'No handler in'))])
                for answer in answers if '\n> ' in answer]


class InAnyCase(TestCase):

    TEXT = '''\
class Missing(KeyError):
    pass

def named(kind):
    try:
        raise kind('x')
    except KeyError:
        pass

def probed():
    return hasattr(Probe(), 'x')

class Probe(object):
    def __getattr__(self, name):
        raise AttributeError(name)

class Exit(SystemExit):
    pass

for kind in KeyError, Missing, ValueError:
    try:
        named(kind)
    except ValueError:
        pass
probed()
raise Exit(0)
'''

    def test_also_where_the_same_frame_names_the_type(self):
        self.assertEqual(self.stops(self.TEXT, ['catch always KeyError']), [
            stop('Exception', "KeyError: 'x'", (6, 'named')),
            stop('Exception', "Missing: 'x'", (6, 'named'))])

    def test_also_where_only_a_probe_is_made(self):
        for word in 'unhandled', 'never', 'printed', 'user-unhandled':
            self.assertEqual(self.stops(self.TEXT, [
                'catch ' + word, 'catch always AttributeError']), [
                    stop('Exception', 'AttributeError: x', (15, '__getattr__'))])

    def test_what_is_said_of_the_nearest_base_holds(self):
        text = self.TEXT.replace('in KeyError, Missing, ValueError', 'in KeyError, Missing')
        self.assertEqual(self.stops(text, ['catch always LookupError', 'catch never KeyError']),
                         [])
        self.assertEqual(self.stops(text, ['catch never LookupError', 'catch always KeyError']), [
            stop('Exception', "KeyError: 'x'", (6, 'named')),
            stop('Exception', "Missing: 'x'", (6, 'named'))])
        self.assertEqual(self.stops(text, ['catch never KeyError', 'catch always KeyError']), [
            stop('Exception', "KeyError: 'x'", (6, 'named')),
            stop('Exception', "Missing: 'x'", (6, 'named'))])

    def test_uncaught_ones_stop_besides(self):
        text = self.TEXT.replace('raise Exit(0)', 'named(ValueError)')
        self.assertEqual(self.stops(text, ['catch always KeyError'])[-1:], [
            stop('Unhandled exception', 'ValueError: x', (6, 'named'))])

    def test_the_end_of_the_program_is_only_asked_for(self):
        for text, said in (('import sys\nsys.exit()\n', 'SystemExit'),
                           ('import sys\nsys.exit(3)\n', 'SystemExit: 3'),
                           ('class Exit(SystemExit):\n    pass\nraise Exit(0)\n', 'Exit: 0')):
            self.assertEqual(self.stops(text, []), [])
            self.assertEqual(self.stops(text, ['catch always']), [])
            name = said.partition(':')[0]
            line = len(text.splitlines())
            commands = ['tbreak %d' % line, 'c', 'catch always ' + name]
            self.assertEqual(self.stops(text, commands), [
                stop('Exception', said, (line, '<module>'))])


class BeforeTheirModule(TestCase):

    MODULE = '''\
class LateError(Exception):
    class Part(ValueError):
        pass

def attempt(kind=LateError):
    try:
        raise kind('late')
    except (LateError, LateError.Part):
        pass
'''

    def debugged(self, commands):
        os.mkdir(os.path.join(self.folder, 'package'))
        self.script('', 'package/__init__.py')
        self.script(self.MODULE, 'package/late.py')
        return self.answers('''\
import package.late
package.late.attempt()
package.late.attempt(package.late.LateError.Part)
''', commands)

    def answers(self, text, commands):
        out, _, _ = self.debug(text, commands + ['c'] * 5)
        return out.split(sorrel_session.PROMPT)[1:len(commands) + 1]

    def test_a_type_takes_effect_with_its_import(self):
        pending = '%s is not loaded yet: this holds as soon as it is.\n'
        answers = self.debugged(['catch always package.late.LateError, ValueError', 'catch', 'c',
                                 'catch', 'c'])
        self.assertEqual(answers[:2], [pending % 'package.late.LateError', '''\
Stops at exceptions where nothing will catch them (unhandled).
Always at: ValueError, package.late.LateError (not loaded yet)
Never at: GeneratorExit, StopIteration, SystemExit
'''])
        self.assert_in('--Exception--\nLateError: late\n> package/late.py(7)attempt()', answers[2])
        self.assert_in('Always at: ValueError, LateError\n', answers[3])
        self.assert_in('--Exception--\nPart: late\n', answers[4])

    def test_so_does_one_inside_a_class(self):
        answers = self.debugged(['catch always package.late.LateError.Part', 'c'])
        self.assert_in('--Exception--\nPart: late\n', answers[1])

    def test_one_is_not_to_stop_at(self):
        answers = self.debugged([
            'catch always', 'catch never package.late.LateError', 'c'])
        self.assert_in('--Exception--\nPart: late\n', answers[2])

    def test_one_can_be_forgotten(self):
        answers = self.debugged([
            'catch always package.late.LateError', 'catch forget package.late.LateError', 'catch'])
        self.assertEqual(answers[1:], ['', '''\
Stops at exceptions where nothing will catch them (unhandled).
Never at: GeneratorExit, StopIteration, SystemExit
'''])

    def test_what_is_no_name_of_a_module_is_refused(self):
        self.assertEqual(self.debugged([
            'catch always LateError', 'catch always nothing()', 'catch always nothing.x()']), [
                "*** NameError: name 'LateError' is not defined\n"] + [
                    "*** NameError: name 'nothing' is not defined\n"] * 2)


class UserUnhandled(TestCase):

    def test_it_stops_where_an_exception_will_leave_the_own_code_for_a_library(self):
        text = LIBRARY + '''
def fails(kind):
    raise kind('x')

def keeps(kind):
    try:
        fails(kind)
    except KeyError:
        pass

by_library(keeps, KeyError)
try:
    by_library(keeps, ValueError)
except ValueError:
    pass
try:
    fails(ValueError)
except ValueError:
    pass
fails(IndexError)
'''
        self.assertEqual(self.stops(text, ['catch user-unhandled']), [
            stop('Exception that leaves your own code', 'ValueError: x', (9, 'fails')),
            stop('Unhandled exception', 'IndexError: x', (9, 'fails'))])

    def test_also_where_it_is_raised_again(self):
        text = LIBRARY + '''
def again():
    try:
        raise ValueError('x')
    except:
        raise
try:
    by_library(again)
except ValueError:
    pass
'''
        self.assertEqual(self.stops(text, ['catch user-unhandled']), [
            stop('Exception that leaves your own code', 'ValueError: x', (10, 'again'))])

    def test_what_stays_in_libraries_is_none_of_it(self):
        text = '''\
import re, string
re.compile('(a|b)*[c-d]{1,2}(?P<name>x)')
string.Template('$x').safe_substitute()
'''
        self.assertEqual(self.stops(text, ['catch user-unhandled']), [])


class Printed(TestCase):

    def printed(self, *handlers):
        """The stops where one function after the other has these handlers."""
        text = '''\
import logging, sys, traceback
from traceback import print_exc
logging.basicConfig(stream=sys.stdout)
log = logging.getLogger('prog')

def fail():
    raise ValueError('x')

def report():
    traceback.print_exc(file=sys.stdout)

def deep():
    report()

class App(object):
    log = log
    def report(self):
        print traceback.format_exc()
    @staticmethod
    def to(kind):
        logging.exception(kind)

app = App()
'''
        for number, handler in enumerate(handlers):
            text += '''
def f%d():
    try:
        fail()
    %s
f%d()
print 'after %d'
''' % (number, handler, number, number)
        return self.stops(text, ['catch printed'])

    def test_it_stops_where_the_clause_prints(self):
        handlers = [
            'except: traceback.print_exc(file=sys.stdout)',
            'except: print_exc(None, sys.stdout)',
            'except ValueError: print traceback.format_exc()',
            'except ValueError: logging.exception("x")',
            'except ValueError: log.exception("x")',
            'except ValueError: app.log.exception("x")',
            'except ValueError: logging.getLogger("y").exception("x")',
            'except ValueError: log.error("x", exc_info=True)',
            'except ValueError: log.error("x", exc_info=sys.exc_info())',
            'except ValueError: report()',
            'except ValueError: app.report()',
            'except ValueError: app.to("x")',
            'except (KeyError, ValueError), error:\n        if error.args: report()',
            'except KeyError: pass\n    except ValueError: report()']
        expected = stop('Exception that is printed', 'ValueError: x', (7, 'fail'))
        found = self.printed(*handlers)
        self.assertEqual(len(found), len(handlers))
        for number, answer in enumerate(found):
            # Before anything of it is printed, as the next one shows.
            self.assert_true(answer.endswith(expected), answer)
            self.assertEqual(answer.count('after'), min(number, 1))

    def assert_true(self, holds, shown):
        if not holds:
            self.fail(shown)

    def test_others_do_not(self):
        self.assertEqual(self.printed(
            'except: pass', 'except ValueError: pass\n    except: report()',
            'except ValueError: f = traceback.print_exc',
            'except ValueError: log.error("x")',
            'except ValueError: log.error("x", exc_info=False)',
            'except ValueError: pass\n    traceback.format_stack()',
            'except ValueError: app.exception = 5'), [])

    def test_where_the_clause_does_not_say_so_the_print_stops_with_the_frames_of_the_raise(self):
        out, _, _ = self.debug('''\
import logging, sys, traceback

def fail(x):
    raise ValueError(x)

def deep():
    report()

def report():
    traceback.print_exc(file=sys.stdout)

def log_it():
    hidden('x')

def hidden(text):
    logging.getLogger().exception(text)

def f(then):
    try:
        fail(then)
    except ValueError:
        then()
f(deep)
f(log_it)
''', ['catch printed', 'c', 'where', 'p x', 'up', 'c', 'p x', 'c', 'c'])
        answers = out.split(sorrel_session.PROMPT)[2:]
        self.assert_in('--Exception that is printed--\nValueError: <function deep', answers[0])
        self.assertEqual(answers[1], '''\
  prog.py(23)<module>()
-> f(deep)
  prog.py(20)f()
-> fail(then)
> prog.py(4)fail()
-> raise ValueError(x)
''')
        self.assert_in('<function deep', answers[2])
        # Now it has been printed, and only once.
        self.assertEqual(answers[4].count('Traceback (most recent'), 1)
        self.assert_in('--Exception that is printed--\nValueError: <function log_it', answers[4])
        self.assertEqual(answers[6], 'The program ended with exit status 0.\n')

    def test_breakpoints_at_the_print_hold_all_the_same(self):
        out, _, _ = self.debug('''\
import sys, traceback
def report(text):
    inner()
def inner():
    traceback.print_exc(file=sys.stdout)
def attempt(kind):
    try:
        raise kind
    except Exception:
        report(kind)
attempt(ValueError)
traceback.print_exception(None, None, None, file=sys.stdout)
attempt(KeyError)
''', ['catch printed', 'b traceback.print_exception', 'c', 'c', 'b', 'catch never', 'c', 'c'])
        answers = out.split(sorrel_session.PROMPT)[2:]
        self.assert_in('--Exception that is printed--\nValueError\n', answers[1])
        # Nothing to be told of, but the user's own breakpoint is there.
        self.assert_in('print_exception()\n', answers[2])
        self.assertEqual(answers[3].count('traceback.py'), 1)
        self.assert_in('print_exception()\n', answers[5])
        self.assert_in('ended with exit status 0', answers[6])


class Learning(TestCase):

    TEXT = '''\
import cProfile

def timer():
    raise ValueError('swallowed')

def tick(n):
    profiler = cProfile.Profile(timer)
    profiler.enable()
    n += 1
    profiler.disable()
    return n
'''

    def test_a_place_is_learned_when_the_thread_has_gone_on(self):
        text = self.TEXT + 'for n in range(3):\n    tick(n)\n'
        once = stop('Unhandled exception', 'ValueError: swallowed', (4, 'timer'))
        self.assertEqual(self.stops(text, [])[:3], [once] * 3)
        self.assertEqual(self.stops(text, ['catch learn']), [once])
        out, _, _ = self.debug(text, ['c', 'c', 'catch learn', 'c', 'catch'])
        self.assertEqual(out.split(sorrel_session.PROMPT)[-1],
                         'The program ended with exit status 0.\n')

    def test_what_ends_the_program_there_stops_at_its_end(self):
        text = self.TEXT + 'tick(1)\ntick(1)\ntimer()\n'
        self.assertEqual(self.stops(text, ['catch learn']), [
            stop('Unhandled exception', 'ValueError: swallowed', (4, 'timer'))] * 2)

    def test_it_can_be_asked_for_at_the_stop_and_taken_back(self):
        text = self.TEXT + 'for n in range(3):\n    tick(n)\n    n = 0\n'
        out, _, _ = self.debug(text, [
            'c', 'catch learn', 'catch', 'tbreak 14', 'c', 'catch', 'catch learn off', 'catch',
            'c'])
        answers = out.split(sorrel_session.PROMPT)[1:]
        self.assert_in('were swallowed after a stop: none yet\n', answers[2])
        self.assert_in('were swallowed after a stop: prog.py:4\n', answers[5])
        self.assert_not_in('swallowed', answers[7])
        self.assert_in('--Unhandled exception--', answers[8])

    def test_an_exception_still_on_its_way_is_not_taken_for_swallowed(self):
        text = '''\
def fail(n):
    if n:
        try:
            raise ValueError(n)
        finally:
            fail(n - 1)
fail(3)
'''
        self.assertEqual(len(self.stops(text, ['catch learn'])), 3)

    def test_threads_that_have_ended_by_it_have_not_swallowed_it(self):
        text = '''\
import threading
def fail(n):
    raise ValueError('x')
for n in range(3):
    thread = threading.Thread(target=fail, args=(n,))
    thread.start()
    thread.join()
'''
        self.assertEqual(len(self.stops(text, ['catch learn'])), 3)

    def test_another_thread_shows_that_the_first_has_gone_on(self):
        text = self.TEXT + '''\
import threading
go, done = threading.Event(), threading.Event()
def first():
    tick(1)
    go.set()
    done.wait()
threading.Thread(target=first).start()
go.wait()
tick(2)
done.set()
'''
        self.assertEqual(len(self.stops(text, ['catch learn'])), 1)
