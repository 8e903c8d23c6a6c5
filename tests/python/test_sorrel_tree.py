"""A tree of processes at one terminal: what they make of that, their ends, and what is left."""

import os
import shutil
import signal
import time

import dap_session
import harness
import sorrel_session

# Two children stop in line 3; the parent waits for both, then goes on.
PROGRAM = '''\
import os, signal, sys, time
def work(number):
    number += 1  # line 3
    return number
children = []
for number in range(2):
    child = os.fork()
    if not child:
        os._exit(work(number))
    children.append(child)
# Nothing is written while one of them has the terminal.
print [os.waitpid(child, 0)[1] for child in children]
here = 1  # line 13
'''
WORKER = '''\
import time
here = 1
print 'worker runs'
for number in range(6000):
    time.sleep(0.01)
'''
# Says how the first process has ended, and keeps the terminal for those that are left.
SHELL = '"$@"; echo left with $?; while [ ! -e over ]; do sleep 0.1; done'


class TestCase(sorrel_session.ScreenTestCase):

    def left(self):
        return os.listdir(self.temporary)

    def remove_left(self):
        for name in self.left():
            shutil.rmtree(os.path.join(self.temporary, name), True)
        return not self.left()

    def assert_nothing_left(self):
        self.assertTrue(harness.wait_until(lambda: not self.left()), self.left())

    def assert_ends(self, *processes):
        for process in processes:
            self.assertTrue(harness.wait_until(lambda: not dap_session.is_alive(process)))

    def assert_killed(self, *processes):
        """Those that are still there, which are killed."""
        for process in processes:
            self.assertEqual(dap_session.is_alive(process), True)
            os.kill(process, signal.SIGKILL)

    def touch(self, name):
        open(os.path.join(self.folder, name), 'w').close()

    def stops_in_both(self, **how):
        """(the one in front, the one that waits), as process ids."""
        self.begin(PROGRAM, 'b 3', 'b 13', 'c', **how)
        both = self.listed(2)
        return [int(pid) for mark, pid in both if mark == '*'] + [
            int(pid) for mark, pid in both if mark != '*']


class StepsTest(TestCase):

    def test_a_process_is_stepped_while_another_one_waits(self):
        front, waiting = self.stops_in_both()
        self.assert_in('n\n> prog.py(4)work()\n', self.type('n'))
        self.assert_in('n\n--Return--\n> prog.py(4)work()->', self.type('n'))
        self.assertEqual(self.number('os.getpid()'), front)
        self.assert_in('[process %d, prog.py]\n> prog.py(3)work()\n' % waiting, self.type('c'))

    def test_another_one_has_its_turn_where_a_step_takes_long(self):
        self.begin('''\
import os
child = os.fork()
if not child:
    here = 1
    os._exit(0)
os.wait()
there = 1
''', 'b 4', 'tbreak 6')
        seen = self.type('c')
        if '(4)' in seen:
            self.listed(2)
            self.type('process %d' % self.number('os.getppid()'))
        self.listed(2)
        self.assert_in(', prog.py]\n> prog.py(4)<module>()\n', self.type('n'))
        self.assert_in(', prog.py]\n> prog.py(7)<module>()\n', self.type('c'))

    def test_a_step_over_a_fork_is_one_of_both(self):
        self.begin('''\
import os
child = os.fork()
after = 1
if not child:
    os._exit(0)
os.wait()
''', 'n')
        self.assert_in('> prog.py(3)<module>()\n', self.type('n'))
        self.listed(2)
        parent = self.number('os.getpid()')
        self.type('n')
        self.assertEqual(self.number('os.getpid()'), parent)
        self.assert_in('> prog.py(3)<module>()\n', self.type('process %d' % self.number('child')))
        self.assertEqual(self.number('child'), 0)


class TerminalTest(TestCase):

    def test_a_process_group_of_its_own(self):
        harness.need_interpreter_alone(self)
        self.script('here = 1\nthere = 2\n', 'other.py')
        shell = '"$@"; [ "$(cut -d " " -f 8 /proc/$$/stat)" = $$ ] && echo in front'
        self.begin('''\
import os, subprocess, sys
print subprocess.Popen([sys.executable, 'other.py'], preexec_fn=os.setpgrp).wait()
here = 1
''', 'b other.py:1', 'b 3', shell=shell)
        self.assert_in(', other.py]\n> other.py(1)<module>()\n', self.type('c'))
        self.assert_in('> other.py(2)<module>()\n', self.type('n'))
        self.assert_in(', prog.py]\n> prog.py(3)<module>()\n', self.type('c'))
        self.assertEqual(self.end('c'), (
            'c\nThe program ended with exit status 0.\nin front\n', 0))

    def test_quitting_in_a_process_group_of_its_own(self):
        harness.need_interpreter_alone(self)
        self.script('here = 1\n', 'other.py')
        shell = '"$@"; echo $?; [ "$(cut -d " " -f 8 /proc/$$/stat)" = $$ ] && echo in front'
        self.begin('''\
import os, subprocess, sys
subprocess.Popen([sys.executable, 'other.py'], preexec_fn=os.setpgrp).wait()
''', 'b other.py:1', 'c', shell=shell)
        self.assertEqual(self.end('q'), ('q\n0\nin front\n', 0))

    def test_ctrl_c_breaks_into_a_new_program(self):
        harness.need_interpreter_alone(self)
        self.script(WORKER, 'worker.py')
        self.begin('''\
import subprocess, sys
subprocess.call([sys.executable, 'worker.py'])
''', 'b worker.py:2', 'c')
        self.screen.type('c\n')
        self.screen.read_to('worker runs')
        self.screen.interrupt()
        self.assert_in('--Interrupted--\n> worker.py(', self.prompt())

    def test_ctrl_c_ends_a_system_call_in_front(self):
        self.begin('''\
import os, sys
there, here = os.pipe()
sys.stdout.write('reads\\n')
try:
    os.read(there, 1)
except OSError:
    pass
over = 1
''')
        self.screen.type('c\n')
        self.screen.read_to('reads\r\n')
        time.sleep(0.5)
        self.screen.interrupt()
        self.assert_in('--Interrupted--\n> prog.py(5)', self.prompt())

    def test_ctrl_c_at_a_prompt_is_not_for_new_programs(self):
        harness.need_interpreter_alone(self)
        self.script(WORKER.replace("'worker runs'", "''; open('begun', 'w').close()"), 'worker.py')
        self.begin('''\
import os, subprocess, sys, time
worker = subprocess.Popen([sys.executable, 'worker.py'])
while not os.path.exists('begun'):
    time.sleep(0.01)
here = 1
''', 'b 5', 'c')
        self.screen.interrupt_prompt()
        self.assert_in('--KeyboardInterrupt--', self.prompt())
        time.sleep(0.5)
        self.assert_in('None\n', self.type('p worker.poll()'))
        self.assert_in('worker.py  running\n', self.type('processes'))

    def test_ctrl_c_where_the_process_in_front_was_detached(self):
        self.begin('''\
import os, signal, sys, time
child = os.fork()
if not child:
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    here = 1
    sys.stdout.write('alone\\n')
    time.sleep(60)
while True:
    time.sleep(0.01)
''', 'b 5', 'c', shell=SHELL)
        self.screen.type('detach\n')
        self.screen.read_to('alone\r\n')
        self.screen.interrupt()
        self.assert_in('--Interrupted--\n', self.prompt())
        child = self.number('child')
        self.assert_not_in('%d' % child, self.type('processes'))
        self.screen.type('q\n')
        self.screen.read_to('left with 0')
        self.assert_killed(child)  # It was not debugged any more.
        self.assert_nothing_left()


class EndsTest(TestCase):

    def test_quitting_ends_the_tree(self):
        front, waiting = self.stops_in_both()
        parent = self.number('os.getppid()')
        self.assertEqual(self.end('q'), ('q\n', 0))
        self.assert_ends(front, waiting, parent)
        self.assert_nothing_left()

    def test_quitting_ends_processes_that_have_not_said_a_word(self):
        self.begin('''\
import os, signal, time
child = os.fork()
if not child:
    signal.pause()
here = 1
''', 'b 5', 'c')
        child = self.number('child')
        self.assertEqual(self.end('q'), ('q\n', 0))
        self.assert_ends(child)
        self.assert_nothing_left()

    def test_quitting_ends_the_first_one_that_handles_ctrl_c(self):
        self.begin('''\
import os, signal, time
def handle(number, frame):
    pass
signal.signal(signal.SIGINT, handle)
child = os.fork()
if not child:
    here = 1
while True:
    time.sleep(0.01)
''', 'b 7', 'c')
        parent = self.number('os.getppid()')
        self.end('q')
        self.assert_ends(parent)
        self.assert_nothing_left()

    def test_other_programs_are_left_alone(self):
        self.begin('''\
import os, subprocess
other = subprocess.Popen(['sleep', '60'])
changed = os.fork()
if not changed:
    here = 1
    os.execvp('sleep', ['sleep', '60'])
while not 'sleep' in open('/proc/%d/cmdline' % changed).read():
    pass
here = 2
''', 'b 5', 'b 9', 'c', shell=SHELL)
        self.assert_in('(9)<module>()\n', self.type('c'))
        others = self.number('other.pid'), self.number('changed')
        self.assert_not_in('%d' % others[1], self.type('processes'))
        self.screen.type('q\n')
        self.screen.read_to('left with 0')
        self.assert_killed(*others)
        self.assert_nothing_left()

    def test_nothing_is_left_of_a_program_that_runs_on(self):
        self.begin('print 1\n')
        self.assertEqual(self.end('detach')[1], 0)
        self.assert_nothing_left()

    def test_nothing_is_left_where_the_last_one_ends_at_once(self):
        self.begin('''\
import os, time
def wait_for(path):
    while not os.path.exists(path):
        time.sleep(0.01)
if not os.fork():
    here = 1
    wait_for('over')
    os._exit(0)
wait_for('go')
os._exit(3)
''', 'b 6', 'c', shell=SHELL)
        self.screen.type('c\n')
        self.touch('go')
        self.screen.read_to('left with 3')
        self.assertEqual(len(self.left()), 1)
        self.touch('over')
        self.assert_nothing_left()

    def test_a_program_that_starts_itself_again(self):
        harness.need_interpreter_alone(self)
        self.begin('''\
import os, sys
if len(sys.argv) == 1:
    os.execv(sys.executable, [sys.executable, 'prog.py', 'again'])
sys.exit(3)
''', 'b 4')
        self.assert_in('> prog.py(4)<module>()\n', self.type('c'))
        self.assertEqual(self.end('c'), ('c\nThe program ended with exit status 3.\n', 3))
        self.assert_nothing_left()

    def test_a_child_without_a_word_does_not_tell_of_the_end(self):
        for is_terminal in (True, False):
            text = 'import os\nif os.fork():\n    os.wait()\nx = 1\n'
            if is_terminal:
                self.begin(text)
                out = self.end('c')[0]
            else:
                out = self.debug(text, ['c'])[0]
            self.assertEqual(out.count('The program ended'), 1)


class KilledTest(TestCase):

    def test_the_one_in_front(self):
        front, waiting = self.stops_in_both()
        os.kill(front, signal.SIGKILL)
        self.assert_in('[process %d, prog.py]\n> prog.py(3)work()\n' % waiting, self.prompt())
        self.assert_not_in(str(front), self.type('processes'))
        self.assert_in(', prog.py]\n> prog.py(13)<module>()\n', self.type('c'))
        self.end('c')
        self.assert_nothing_left()

    def test_the_terminal_has_its_modes_again(self):
        front, waiting = self.stops_in_both(shell='stty -a > before; "$@"; stty -a > after')
        os.kill(front, signal.SIGKILL)
        self.prompt()
        os.kill(waiting, signal.SIGKILL)
        self.assert_in('> prog.py(13)<module>()\n', self.prompt())
        self.end('c')
        before, after = [open(os.path.join(self.folder, name)).read() for name in (
            'before', 'after')]
        self.assertEqual(before, after)

    def test_one_that_waits(self):
        front, waiting = self.stops_in_both()
        os.kill(waiting, signal.SIGKILL)
        self.assertTrue(harness.wait_until(
            lambda: str(waiting) not in self.type('processes')))
        self.assert_in('*** No process %d has stopped' % waiting, self.type(
            'process %d' % waiting))
        self.assert_in(', prog.py]\n> prog.py(13)<module>()\n', self.type('c'))
        self.end('c')
        self.assert_nothing_left()

    def test_the_first_one(self):
        # A shell without jobs leaves the terminal to those that are left.
        front, waiting = self.stops_in_both(shell='set +m; ' + SHELL)
        parent = self.number('os.getppid()')
        os.kill(parent, signal.SIGKILL)
        self.screen.read_to('left with 137')
        self.assert_not_in('%d' % parent, self.type('processes'))
        self.assert_in('[process %d, prog.py]\n> prog.py(3)work()\n' % waiting, self.type('c'))
        self.screen.type('c\n')
        self.assert_ends(front, waiting)
        self.assert_nothing_left()

    def test_the_first_one_of_a_job(self):
        """The shell has the terminal again: those that are left can read no more, and run on."""
        front, waiting = self.stops_in_both(shell=SHELL)
        os.kill(self.number('os.getppid()'), signal.SIGKILL)
        self.screen.read_to('left with 137')
        self.screen.type('for the shell\n')
        self.assert_ends(front, waiting)
        self.assert_nothing_left()

    def test_somebody_has_removed_the_folder(self):
        front, waiting = self.stops_in_both()
        # They may be writing something there.
        self.assertTrue(harness.wait_until(self.remove_left))
        self.assert_in('> prog.py(3)work()\n', self.type('c'))
        self.assert_in('> prog.py(13)<module>()\n', self.type('c'))
        self.assertEqual(self.end('c')[1], 0)
        self.assert_nothing_left()

    def test_all_of_them(self):
        front, waiting = self.stops_in_both()
        for process in (self.number('os.getppid()'), front, waiting):
            os.kill(process, signal.SIGKILL)
        self.screen.read_all()
        self.assert_ends(front, waiting)
        self.assertEqual(len(self.left()), 1)
        left = os.path.join(self.temporary, self.left()[0])
        self.screen.close()
        self.begin('pass\n')
        # That one may be in the middle of its beginning.
        self.assertEqual(os.path.isdir(left), True)
        self.end('q')
        os.utime(left, (time.time() - 120,) * 2)
        self.screen.close()
        self.begin('pass\n')
        self.assertEqual(os.path.isdir(left), False)
        self.end('q')
        self.assert_nothing_left()


class NewProgramsTest(TestCase):
    """What new programs are told of what was said before they were started."""

    START = 'import subprocess, sys\nsubprocess.call([sys.executable] + sys.argv[1:])\nlast = 1\n'

    def setUp(self):
        TestCase.setUp(self)
        harness.need_interpreter_alone(self)

    def starts(self, text, *commands, **how):
        self.script(text, 'other.py')
        return self.begin(self.START, *commands, **dict(how, args=['other.py']))

    def test_following_new_programs(self):
        self.starts('here = 1\n', 'follow child', 'b other.py:1', 'b 3')
        self.assert_in(', other.py]\n> other.py(1)<module>()\n', self.type('c'))
        self.assert_not_in('prog.py', self.type('processes'))
        self.assertEqual(self.end('c'), ('c\n', 0))
        self.assert_nothing_left()

    def test_breakpoints_of_every_kind(self):
        self.script('def g(): return 3\n', 'beside.py')
        os.mkdir(os.path.join(self.folder, 'later'))
        self.script('def h():\n    return 4\n', 'later/deep.py')
        self.starts('''\
import sys
import beside
beside.g()
sys.path.append('later')
import deep
deep.h()
last = 1
''', 'b beside.g', 'b deep.h', 'logpoint other.py:7, at {beside.g()}', 'b other.py:6')
        self.type('alias six p 6 + 0')
        for line in 'commands 4', 'silent', 'six', 'c':
            self.screen.type(line + '\n')
        self.type('end')
        self.assert_in('> beside.py(1)g()\n', self.type('c'))
        seen = self.type('c')
        self.assert_in(
            'c\nBreakpoint 2 is at later/deep.py:2 now\n6\n> later/deep.py(2)h()\n', seen)
        self.assert_in('c\nat 3\n', self.end('c')[0])

    def test_following_what_a_shell_starts(self):
        self.script('here = 1\n', 'other.py')
        self.begin('''\
import os, sys
os.system(sys.executable + ' other.py')
last = 1
''', 'follow child', 'b other.py:1', 'b 3')
        self.assert_in(', other.py]\n> other.py(1)<module>()\n', self.type('c'))
        self.assertEqual(self.end('c'), ('c\n', 0))
        self.assert_nothing_left()

    def test_following_a_program_in_the_place_of_another(self):
        self.script('here = 1\n', 'other.py')
        self.begin('''\
import os, sys
os.execv(sys.executable, [sys.executable, 'other.py'])
''', 'follow child', 'b other.py:1')
        self.assert_in('> other.py(1)<module>()\n', self.type('c'))
        self.assertEqual(self.end('c')[1], 0)
        self.assert_nothing_left()

    def test_what_is_skipped(self):
        self.script('def call(function): return function()\n', 'between.py')
        self.starts('''\
import between
between.call(lambda: 3)
''', 'skip between', 'sticky', 'b other.py:2', options=['--just-my-code'])
        self.assert_in('  2  ->', self.type('c'))
        self.assert_in('> other.py(2)<lambda>()\n', self.type('s'))
        self.assert_in('Code of libraries is passed by (--just-my-code).\n'
                       'Skip 1: modules between\n', self.type('skip list'))
        self.assertEqual(self.end('clear 1;; c')[1], 0)

    def test_types_of_exceptions(self):
        self.script('class NoStock(Exception):\n    pass\n', 'shop.py')
        self.starts('''\
try:
    1 / 0
except ZeroDivisionError:
    pass
import shop
try:
    raise shop.NoStock()
except shop.NoStock:
    pass
raise ValueError
''', 'catch always ZeroDivisionError, shop.NoStock', 'catch never ValueError')
        self.assert_in('--Exception--\nZeroDivisionError: ', self.type('c'))
        self.assert_in('--Exception--\nNoStock\n> other.py(7)', self.type('c'))
        self.assert_in('Never at: ', self.type('catch'))
        self.assert_in('ValueError\nThe program ended with exit status 0.\n', self.end('c')[0])

    def test_what_ends_programs_stops_none_of_them(self):
        self.starts('import sys\nsys.exit(3)\n')
        self.assertEqual(self.end('c'), ('c\nThe program ended with exit status 0.\n', 0))

    def test_post_mortem(self):
        self.starts('def f():\n    raise ValueError(1)\nf()\n', 'catch never',
                    options=['--post-mortem'])
        self.assert_in('--Post-mortem: the program has ended--\nValueError: 1\n> other.py(2)f()\n',
                       self.type('c'))
        self.assertEqual(self.end('c')[1], 0)

    def test_what_is_skipped_in_a_forked_process(self):
        self.script('def call(function): return function()\n', 'between.py')
        self.begin('''\
import os, between
child = os.fork()
if child:
    os.waitpid(child, 0)
else:
    between.call(lambda: 3)
    os._exit(0)
''', 'skip between', 'b 6')
        self.assert_in('> prog.py(6)<module>()\n', self.type('c'))
        self.assert_in('> prog.py(6)<lambda>()\n', self.type('s'))
        self.assertEqual(self.end('c')[1], 0)

    def test_post_mortem_of_a_forked_process(self):
        self.begin('''\
import os
if os.fork():
    os.wait()
else:
    {}['a']
''', 'catch never', options=['--post-mortem'])
        self.assert_in('--Post-mortem: the program has ended--\n', self.type('c'))
        self.assertEqual(self.number('os.getpid()') != self.number('os.getppid()'), True)
        self.assertEqual(self.end('c')[1], 0)

    def test_hooks(self):
        self.script('''\
class Hook(object):
    def __init__(self):
        open('begun', 'a').write('x')
    def _GetMarkerFrames(self):
        return None
    _GetModulePaths = _GetSubLanguageFrames = _GetMarkerFrames
''', 'weft.py')
        self.starts('here = 1\n', options=['--hook', 'weft:Hook'])
        self.end('c')
        self.assertEqual(open(os.path.join(self.folder, 'begun')).read(), 'xx')
