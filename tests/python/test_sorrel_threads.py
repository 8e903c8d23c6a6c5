"""Programs of several threads in the terminal front end."""

import re
import subprocess

import harness
import sorrel_session

# A thread stops by itself: nothing else would make one stop at a known place.
WORKER = '''\
import threading
import tmorvik26_vs2012_x64 as core

def work(n):
    core.step_into()
    n += 1
    return n

worker = threading.Thread(target=work, args=(1,), name='worker')
worker.start()
worker.join()
print 'done'
'''

# The interpreter does not wait for such a thread before it ends.
BARE_WORKER = '''\
import sys, thread, time
import tmorvik26_vs2012_x64 as core
begun = []

def work():
    begun.append(thread.get_ident())
    core.step_into()
    begun.append(thread)

thread.start_new_thread(work, ())
while len(begun) < 2 or begun[0] in sys._current_frames():
    time.sleep(0.001)
'''


class Threads(sorrel_session.TestCase):

    def stops(self, text, commands):
        """The answers to the commands, without the first stop."""
        out, err, status = self.debug(text, commands)
        self.assertEqual((err, status), ('', 0))
        return out.split(sorrel_session.PROMPT)[1:]

    def test_a_stop_in_another_thread_names_it(self):
        self.assertEqual(self.stops(WORKER, ['c', 'n', 'c']), [
            '[worker]\n> prog.py(6)work()\n-> n += 1\n',
            '> prog.py(7)work()\n-> return n\n',
            'done\nThe program ended with exit status 0.\n'])

    def test_where_shows_nothing_of_what_started_the_thread(self):
        answer = self.stops(WORKER, ['c', 'w', 'u', 'u', 'c'])[1:4]
        self.assertEqual(re.sub(r'\S+threading\.py\(\d+\)', 'threading.py', answer[0]), '''\
  threading.py run()
-> self.__target(*self.__args, **self.__kwargs)
> prog.py(6)work()
-> n += 1
'''.replace('.py run', '.pyrun'))
        self.assertEqual(answer[2], '*** Oldest frame\n')

    def test_stepping_off_the_end_of_a_thread_lets_it_end(self):
        answers = self.stops(WORKER, ['c', 'n', 'r', 'n', 'n', 'c', 'c', 'c'])
        self.assertEqual(answers[2], '--Return--\n> prog.py(7)work()->2\n-> return n\n')
        self.assert_in('run()\n', answers[3])
        rest = ''.join(answers[4:])
        self.assert_in('done\nThe program ended with exit status 0.\n', rest)
        self.assert_not_in('__bootstrap', rest)
        self.assert_not_in('__stop', rest)
        self.assert_not_in('sorrel', rest)

    def test_stepping_off_the_end_of_a_bare_thread_lets_it_end(self):
        answers = self.stops(BARE_WORKER + "print 'done'\n", ['c', 's', 's', 's', 's'])
        self.assertEqual(answers[0], '[work]\n> prog.py(8)work()\n-> begun.append(thread)\n')
        self.assertEqual(answers[1:], [
            '--Return--\n> prog.py(8)work()->None\n-> begun.append(thread)\n',
            'done\nThe program ended with exit status 0.\n'])

    def test_stepping_misses_no_line_while_another_thread_imports(self):
        lines = 40
        answers = self.stops('''\
import thread, time

def imports():
    try:
        while not over:
            import os
    finally:
        lock.release()

def work(x):
''' + '    x += 1\n' * lines + '''\
    over.append(x)

over = []
lock = thread.allocate_lock()
lock.acquire()
thread.start_new_thread(imports, ())
work(0)
lock.acquire()
time.sleep(0.1)
''', ['break work', 'c'] + ['n'] * lines + ['c'])
        self.assertEqual(answers[1:-1], [
            '> prog.py(%d)work()\n-> %s\n' % (
                11 + line, 'x += 1' if line < lines else 'over.append(x)')
            for line in range(lines + 1)])

    def test_the_list_of_threads(self):
        answers = self.stops(WORKER, ['threads', 'c', 'threads', 'c'])
        one = re.match(r'\* (-?\d+)  MainThread  stopped  prog\.py\(1\)<module>\(\)\n$',
                       answers[0])
        self.assertTrue(one, answers[0])
        lines = answers[2].splitlines()
        self.assertEqual(len(lines), 2, lines)
        main = [line for line in lines if 'MainThread' in line][0]
        other = [line for line in lines if 'worker' in line][0]
        self.assertTrue(main.startswith('  %s  MainThread  running  ' % one.group(1)), main)
        self.assertTrue(re.match(r'\* -?\d+  worker  stopped  prog\.py\(6\)work\(\)$', other),
                        other)

    def test_a_bare_thread_is_listed_by_its_function(self):
        answers = self.stops(BARE_WORKER, ['c', 'threads', 'c'])
        self.assert_in('  work  stopped  prog.py(8)work()\n', answers[1])

    def test_a_thread_that_has_ended_is_listed_no_more(self):
        answers = self.stops(WORKER.replace("print 'done'\n", '''\
while len(core.get_threads()) > 1:  # join() waits for its function only
    pass
core.step_into()
x = 1
'''), ['c', 'c', 'threads', 'c'])
        self.assertEqual(answers[1], '[MainThread]\n> prog.py(15)<module>()\n-> x = 1\n')
        self.assert_in('MainThread', answers[2])
        self.assertEqual(answers[2].count('\n'), 1, answers[2])

    def test_a_thread_with_the_ident_of_one_that_has_ended_is_another(self):
        answers = self.stops('''\
import thread, time
import tmorvik26_vs2012_x64 as core
idents = []

def work():
    idents.append(thread.get_ident())
    core.step_into()
    x = 1

for n in range(20):
    thread.start_new_thread(work, ())
    while len(idents) == n or len(core.get_threads()) > 1:
        time.sleep(0.001)
print len(set(idents)) < len(idents)
''', ['c'] * 21)
        self.assertEqual(answers[:20], ['[work]\n> prog.py(8)work()\n-> x = 1\n'] * 20)
        self.assertEqual(answers[20], 'True\nThe program ended with exit status 0.\n')

    def test_bare_threads_that_have_ended_are_listed_no_more(self):
        answers = self.stops('''\
import thread, time
import tmorvik26_vs2012_x64 as core
ran = []
for i in range(20):
    thread.start_new_thread(ran.append, (i,))
    thread.start_new_thread(lambda i: ran.append(i), (i,))
deadline = time.time() + 20
while (len(ran) < 40 or len(core.get_threads()) > 1) and time.time() < deadline:
    time.sleep(0.01)
core.step_into()
x = 1
''', ['c', 'p len(ran)', 'threads', 'c'])
        self.assertEqual(answers[1], '40\n')
        self.assertEqual(answers[2].count('\n'), 1, answers[2])

    def test_while_one_thread_is_stopped_the_others_wait(self):
        answers = self.stops('''\
import threading, time
import tmorvik26_vs2012_x64 as core
count = 0
going = True

def tick():
    global count
    while going:
        count += 1

def stop():
    core.step_into()
    return count

ticker = threading.Thread(target=tick)
ticker.start()
stopper = threading.Thread(target=stop)
stopper.start()
stopper.join()
going = False
ticker.join()
''', ['c', 'p -(count - (__import__("time").sleep(0.1) or count))', 'c'])
        self.assert_in('return count\n', answers[0])
        # The line that the other thread was in when this one stopped may still be counted.
        self.assert_in(answers[1], ['0\n', '1\n'])

    def test_an_exception_that_ends_a_thread_is_shown_without_the_server(self):
        out, err, status = self.debug('''\
import thread, threading, sys
over = threading.Event()

def fail():
    try:
        raise ValueError('no')
    finally:
        over.set()

worker = threading.Thread(target=fail, name='worker')
worker.start()
worker.join()
thread.start_new_thread(fail, ())
__import__('time').sleep(0.3)
thread.start_new_thread(sys.exit, (3,))
__import__('time').sleep(0.3)
''', ['c'])
        self.assertEqual(status, 0)
        self.assertEqual(err.count('ValueError: no'), 2, err)
        self.assert_in('Exception in thread worker:\n', err)
        err = re.sub('0x[0-9a-f]+', '0x', err)
        self.assertEqual(err[err.index('Unhandled'):], '''\
Unhandled exception in thread started by <function fail at 0x>
Traceback (most recent call last):
  File "prog.py", line 6, in fail
    raise ValueError('no')
ValueError: no
''')
        self.assert_not_in('sorrel', err)

    def test_a_thread_that_is_wrongly_started_fails_as_alone(self):
        out, err, status = self.debug('''\
import thread
for args in (1, ()), (len, 1), (len, (), 1), (len,):
    try:
        thread.start_new_thread(*args)
    except TypeError as error:
        print error
''', ['c'])
        self.assertEqual((err, status), ('', 0))
        lines = out.split(sorrel_session.PROMPT)[1].splitlines()
        self.assertEqual(lines[:3], ['first arg must be callable', '2nd arg must be a tuple',
                                     'optional 3rd arg must be a dictionary'])
        self.assert_in('start_new_thread', lines[3])

    def test_threads_that_outlive_the_main_thread_are_debugged_to_their_end(self):
        self.assertEqual(self.stops('''\
import threading, time
import tmorvik26_vs2012_x64 as core

def work():
    time.sleep(0.3)
    core.step_into()
    print 'last'

threading.Thread(target=work, name='worker').start()
print 'main has ended'
''', ['c', 'c']), ['''\
main has ended
[worker]
> prog.py(7)work()
-> print 'last'
''', 'last\nThe program ended with exit status 0.\n'])

    def test_daemon_threads_do_not_disturb_the_end(self):
        self.assertEqual(self.stops('''\
import threading

def work():
    while True:
        pass

worker = threading.Thread(target=work)
worker.setDaemon(True)
worker.start()
print 'done'
''', ['c']), ['done\nThe program ended with exit status 0.\n'])

    def test_a_thread_that_ends_while_the_interpreter_does_says_nothing(self):
        path = self.script('''
import sys, thread, time
from sorrel.service import thread_hooks
def end():
    time.sleep(0.3)
    time.sleep(0)  # The module is empty by now.
class Slow(object):
    def __del__(self, sleep=time.sleep):
        sleep(1)
# Is of the last that the interpreter deletes.
sys.slow = Slow()
thread.start_new_thread(thread_hooks.ThreadMain(lambda: None, None, end), ())
time.sleep(0.1)
''')
        process = subprocess.Popen([harness.launcher(), path], stderr=subprocess.PIPE)
        errors = process.communicate()[1]
        self.assertEqual(re.sub(r'\[\d+ refs\]\n', '', errors), '')
        self.assertEqual(process.returncode, 0)

    def test_detaching_in_another_thread_lets_all_run_on(self):
        answers = self.stops(WORKER, ['c'])
        self.assertEqual(answers[1], '\nDetached: the program runs on.\ndone\n')

    def test_quitting_in_another_thread_ends_the_program(self):
        self.assertEqual(self.stops(WORKER, ['c', 'q'])[1:], [''])
