"""Ctrl-C gets in wherever the main thread is."""

import os
import re
import signal
import subprocess

import harness
import sorrel_session

# The worker runs no line before the main thread waits: the interpreter goes over to it only then.
JOINED = '''\
import os, sys, thread, time
lock = thread.allocate_lock()
lock.acquire()
main = thread.get_ident()

def work():
    while sys._current_frames()[main].f_lineno != 16:
        time.sleep(0.001)
    sys.setcheckinterval(100)
    print 'works'
    while lock.locked():
        time.sleep(0.001)

sys.setcheckinterval(10 ** 9)
thread.start_new_thread(work, ())
lock.acquire()
print 'goes on'
here = 1
print 'over'
'''

# No thread comes to another line once it has written its name.
STUCK = '''\
import os, thread
lock = thread.allocate_lock()
other = thread.allocate_lock()
lock.acquire()
other.acquire()

def work(mine):
    os.write(1, 'work ') and other.acquire()

def wait():
    text = 'local'
    try:
        os.write(1, 'main ') and lock.acquire()
        print 'goes on'
    except KeyboardInterrupt:
        print 'interrupted'

thread.start_new_thread(work, (1,))
wait()
'''


class CtrlC(sorrel_session.ScreenTestCase):

    def run_to(self, text, *shown, **how):
        """Runs the program until it has shown all of this, in any order, and waits."""
        self.begin(text, **how)
        self.screen.type('c\n')
        self.screen.read_to('c\r\n')
        waited = set(shown)
        seen = ''
        while waited:
            seen += self.screen.read_to(' ') if shown[0].endswith(' ') else \
                self.screen.read_to('\r\n')
            waited = set(one for one in waited if one not in seen)
        self.wait_until_all_sleep()

    def wait_until_all_sleep(self):
        self.assertTrue(harness.wait_until(lambda: _states(self.screen._process) == set('S')))

    def interrupt(self):
        """Until the process has met with it: two at once would be one."""
        self.screen.interrupt()
        self.screen.read_to('^C')
        self.wait_until_met()

    def thread_count(self):
        return len(os.listdir('/proc/%d/task' % self.screen._process))

    def wait_until_met(self):
        self.assertTrue(harness.wait_until(lambda: not _is_pending(self.screen._process)))


class Running(CtrlC):

    def test_another_thread_stops_where_the_main_one_waits(self):
        self.begin(JOINED)
        self.screen.type('c\n')
        self.screen.read_to('works\r\n')
        self.screen.interrupt()
        self.assert_in('[work]\n--Interrupted--\n> prog.py(1', self.prompt())
        self.assertEqual(self.end('q'), ('q\n', 0))

    def test_the_main_thread_does_not_stop_for_it_when_its_wait_is_over(self):
        self.begin(JOINED, 'b 18')
        self.screen.type('c\n')
        self.screen.read_to('works\r\n')
        self.screen.interrupt()
        self.prompt()
        self.type('lock.release()')
        self.assert_in('goes on\n[MainThread]\n> prog.py(18)', self.type('c'))
        self.assert_in('over\nThe program ended', self.end('c')[0])

    def stop_the_worker(self):
        self.begin(JOINED)
        self.screen.type('c\n')
        self.screen.read_to('works\r\n')
        self.screen.interrupt()
        self.prompt()

    def test_one_ends_a_system_call_that_is_evaluated_in_another_thread(self):
        self.stop_the_worker()
        self.screen.type('p os.write(1, "on ") and time.sleep(600)\n')
        self.screen.read_to('\r\non ')
        self.wait_until_all_sleep()
        self.screen.interrupt()
        self.assert_in('--KeyboardInterrupt--\n', self.prompt())
        self.end('q')

    def test_one_at_the_prompt_of_another_thread_is_not_left_over(self):
        self.stop_the_worker()
        self.screen.interrupt_prompt()
        self.wait_until_met()
        self.type('lock.release()')
        self.assert_in('c\ngoes on\nover\nThe program ended with exit status 0.\n',
                       self.end('c')[0])

    def test_once_more(self):
        self.begin(JOINED)
        self.screen.type('c\n')
        self.screen.read_to('works\r\n')
        for _ in range(3):
            self.screen.interrupt()
            self.assert_in('--Interrupted--\n> prog.py(1', self.prompt())
            self.screen.type('c\n')
            self.screen.read_to('c\r\n')
            self.wait_until_it_runs()
        self.screen.interrupt()
        self.prompt()
        self.type('lock.release()')
        self.assert_in('goes on\nover\nThe program ended', self.end('c')[0])

    def wait_until_it_runs(self):
        """Its prompt is over."""
        def has_prompt():
            return [name for name in names if os.path.exists(os.path.join(folder, name))]
        folder = [os.path.join(self.temporary, name) for name in os.listdir(self.temporary)
                  if name.startswith('sorrel-tree-')][0]
        names = ['modes']
        self.assertTrue(harness.wait_until(lambda: not has_prompt()))

    def test_a_forked_process_has_its_own(self):
        self.begin('''\
import os
child = os.fork()
if child:
    os.waitpid(child, 0)
    os._exit(0)
''' + JOINED.replace('!= 16', '!= 21'), 'follow child', 'b 6', 'c')
        self.screen.type('c\n')
        self.screen.read_to('works\r\n')
        self.screen.interrupt()
        self.assert_in('--Interrupted--\n', self.prompt())
        self.type('lock.release()')
        self.assert_in('goes on\n', self.end('c')[0])

    def test_a_wakeup_descriptor_of_the_programs_gets_its_byte(self):
        self.begin('''\
import fcntl, os, signal, time
there, here = os.pipe()
fcntl.fcntl(here, fcntl.F_SETFL, os.O_NONBLOCK)
print signal.set_wakeup_fd(here)
os.write(1, 'sleeps\\n') and time.sleep(600)
os.write(here, '.')
print repr(os.read(there, 10)), signal.set_wakeup_fd(-1) == here
''')
        self.screen.type('c\n')
        self.screen.read_to('-1\r\nsleeps\r\n')
        self.screen.interrupt_prompt()
        self.prompt()
        self.assert_in(r"'\x00.' True", self.end('c')[0])

    def test_system_calls_that_are_to_go_on_do(self):
        self.begin('''\
import os, signal
signal.siginterrupt(signal.SIGINT, False)
there, here = os.pipe()
''' + JOINED.replace('!= 16', '!= 19').replace(
            'lock.acquire()\nprint', 'print repr(os.read(there, 9))\nprint'))
        self.screen.type('c\n')
        self.screen.read_to('works\r\n')
        self.screen.interrupt()
        self.assert_in('[work]\n--Interrupted--\n', self.prompt())
        self.type('lock.release()')
        self.type('os.write(here, "written")')
        self.assert_in("'written'\ngoes on\nover\n", self.end('c')[0])

    def test_the_programs_own_interrupt_of_its_main_thread(self):
        self.begin('import thread\nthread.interrupt_main()\nhere = 1\nhere = 2\n')
        self.assert_in('--Interrupted--\n> prog.py(', self.type('c'))


class InTheMidstOfALine(CtrlC):

    def test_a_sleep(self):
        self.begin('''\
import os, time
def f():
    a = 1
    os.write(1, 'sleeps\\n') and time.sleep(600)
    return a
print f()
''')
        self.screen.type('c\n')
        self.screen.read_to('sleeps\r\n')
        self.screen.interrupt_prompt()
        self.assert_in('--Interrupted--\n> prog.py(4)f()\n', self.prompt())
        self.type('a = 2')
        self.assert_in('*** Can only jump from a line', self.type('j 3'))
        self.assert_in('> prog.py(5)f()\n', self.type('n'))
        self.assert_in('2\nThe program ended', self.end('c')[0])

    def test_stepping_on_in_it(self):
        self.begin('''\
import os, time
def f(nothing):
    return 3
os.write(1, 'sleeps\\n') and f(time.sleep(600))
over = 1
''')
        self.screen.type('c\n')
        self.screen.read_to('sleeps\r\n')
        self.screen.interrupt_prompt()
        self.prompt()
        self.assert_in('> prog.py(3)f()\n', self.type('s'))
        self.end('q')

    def test_what_the_program_waits_for_to_read(self):
        try:
            import readline
        except ImportError:
            self.skip('goes on reading, as the interpreter does with readline')
        self.begin('''\
def f():
    return raw_input('name? ')
print 'hello ' + f()
''')
        self.screen.type('c\n')
        self.screen.read_to('name? ')
        self.screen.interrupt_prompt()
        self.assert_in('--Interrupted--\n> prog.py(2)f()\n', self.prompt())
        self.assert_in('42\n', self.type('p 6 * 7'))
        self.screen.type('c\n')
        self.screen.read_to('c\r\n')
        self.screen.type('Bob\n')
        self.assert_in('hello Bob\n', self.screen.read_all()[0])

    def test_a_breakpoint_of_the_line_is_left_alone(self):
        self.begin('''\
import os, time
if True:
    os.write(1, 'sleeps\\n') and time.sleep(600)
over = 1
''', 'b 3', 'c')
        self.screen.type('c\n')
        self.screen.read_to('sleeps\r\n')
        self.screen.interrupt_prompt()
        self.prompt()
        self.assert_in('already hit 1 time', self.type('b'))
        self.end('q')


class Stuck(CtrlC):

    def begin_stuck(self):
        self.run_to(STUCK, 'work ', 'main ')
        self.interrupt()
        self.interrupt()
        return self.prompt()

    def test_the_second_says_where_the_threads_wait(self):
        seen = self.begin_stuck()
        self.assert_in('''\
Thread MainThread waits at prog.py(13)wait()
Thread work waits at prog.py(8)work()
> prog.py(13)wait()
''', seen)
        self.assert_in("'local'\n", self.type('p text'))
        self.assert_in('> prog.py(19)<module>()\n', self.type('up'))
        self.assert_in('* 1  MainThread  running', self.type('threads'))
        self.assert_in('> prog.py(8)work()\n', self.type('thread 2'))
        self.assert_in('mine = 1\n', self.type('args'))
        self.assert_in('> prog.py(13)wait()\n', self.type('thread'))
        for command in 'next', 's', 'text = 1', '!text':
            self.assert_in('*** The thread has to stop first', self.type(command))
        self.assert_in('*** No such command: hm', self.type('hm'))
        self.assertEqual(self.end('q'), ('q\n', 0))

    def test_going_on_from_there(self):
        self.begin_stuck()
        self.assert_in('None\n', self.type('p lock.release()'))
        self.assertEqual(self.end('c'), (
            'c\ngoes on\nThe program ended with exit status 0.\n', 0))

    def test_the_third_is_a_keyboard_interrupt(self):
        self.begin_stuck()
        self.type('p lock.release()')
        self.interrupt()
        self.assertEqual(self.screen.read_all(), (
            '\nKeyboardInterrupt is raised in the main thread as soon as that goes on.\n'
            'interrupted\nThe program ended with exit status 0.\n', 0))

    def test_one_during_what_is_evaluated_there_ends_that(self):
        self.begin_stuck()
        self.screen.type('p os.write(1, "on ") and __import__("time").sleep(600)\n')
        self.screen.read_to('\r\non ')
        self.wait_until_all_sleep()
        self.screen.interrupt()
        self.assert_in('--KeyboardInterrupt--\n', self.prompt())
        self.assert_in("'local'\n", self.type('p text'))
        self.end('q')

    def test_letting_it_run_on_alone(self):
        self.begin_stuck()
        self.type('p lock.release()')
        self.assertEqual(self.end('detach'), (
            'detach\nDetached: the program runs on.\ngoes on\n', 0))

    def test_another_look(self):
        self.begin_stuck()
        with_who_asks = self.thread_count()
        self.screen.type('c\n')
        self.screen.read_to('c\r\n')
        self.assertTrue(harness.wait_until(lambda: self.thread_count() < with_who_asks))
        self.wait_until_all_sleep()
        self.interrupt()
        self.interrupt()
        self.assert_in('waits at prog.py(13)wait()', self.prompt())
        self.end('q')


class WithoutTerminal(sorrel_session.TestCase):

    def test_the_second_is_a_keyboard_interrupt(self):
        self.script(STUCK, 'prog.py')
        process = self.start('prog.py', stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE)
        process.stdin.write('c\n')
        process.stdin.flush()
        seen = ''
        while 'main ' not in seen or 'work ' not in seen:
            seen += os.read(process.stdout.fileno(), 1)
        self.assertTrue(harness.wait_until(lambda: _states(process.pid) == set('S')))
        for _ in range(2):
            process.send_signal(signal.SIGINT)
            self.assertTrue(harness.wait_until(lambda: not _is_pending(process.pid)))
        seen = ''
        while not seen.endswith('goes on.\n'):
            seen += os.read(process.stdout.fileno(), 1)
        process.kill()
        process.communicate()
        self.assertEqual(self.clean(seen), '''\
Thread MainThread waits at prog.py(13)wait()
Thread work waits at prog.py(8)work()
KeyboardInterrupt is raised in the main thread as soon as that goes on.
''')


def _states(pid):
    return set(said.rpartition(')')[2].split()[0] for said in _said_of_threads(pid, 'stat'))


def _is_pending(pid):
    """Whether Ctrl-C has come that no thread has met with yet."""
    masks = [mask for said in _said_of_threads(pid, 'status')
             for mask in re.findall(r'(?:ShdPnd|SigPnd):\s*(\w+)', said)]
    return bool([mask for mask in masks if int(mask, 16) >> (signal.SIGINT - 1) & 1])


def _said_of_threads(pid, name):
    folder = '/proc/%d/task' % pid
    return [_said(os.path.join(folder, one, name)) for one in os.listdir(folder)]


def _said(path):
    try:
        return open(path).read()
    except IOError:
        return ') S'  # A thread that has ended meanwhile.
