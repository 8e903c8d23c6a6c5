"""Programs that run already, and know nothing of a debugger, are attached to by their process."""

import os
import pwd
import signal
import subprocess
import time

import attach_session
import dap_session
import harness
from attach_session import state, WORK
from dap_session import is_alive
from sorrel.processes import running

class WhereverItIsTest(attach_session.TestCase):

    def test_one_that_works_is_attached_to_again_and_again(self):
        program = self.run_unaware(WORK, self.flag)
        for turn in range(3):
            adapter = self.attach_to(program, '# work')
            self.assertEqual(adapter.stopped(), 'breakpoint step:%d' % program.line('# work'))
            self.assertEqual(adapter.evaluate('type(total)'), "<type 'int'>")
            self.assertEqual(adapter.step('stepOut'), 'step work:%d' % program.line('= step('))
            self.leave(adapter)
        os.unlink(self.flag)
        self.assertEqual(program.ended(), ('ready\nover 1\n', 0))

    def test_one_that_sleeps_sleeps_on(self):
        program = self.run_unaware('''
import time
print 'ready'
began = time.time()
time.sleep(8)
print 7.5 < time.time() - began
after = 1  # awake
''')
        adapter = self.attach_to(program, '# awake')
        self.assertEqual(adapter.stopped(), 'breakpoint <module>:%d' % program.line('# awake'))
        self.leave(adapter)
        self.assertEqual(program.ended(), ('ready\nTrue\n', 0))

    def test_all_threads_are_debugged(self):
        program = self.run_unaware('''
import os, sys, threading, time
def work(number):
    while os.path.exists(sys.argv[1]):
        time.sleep(0.01)  # turn
for number in range(3):
    threading.Thread(target=work, args=(number,), name='worker %d' % number).start()
print 'ready'
for thread in threading.enumerate():
    if thread is not threading.currentThread():
        thread.join()
print 'over', len(threading.enumerate())
''', self.flag)
        adapter = self.attach_to(program, '# turn')
        seen = set()
        while len(seen) < 3:
            adapter.stopped()
            seen.add(adapter.evaluate('number'))
            adapter.go()
        names = [thread['name'] for thread in adapter.ask('threads')['threads']]
        self.assertEqual(sorted(names), ['MainThread', 'worker 0', 'worker 1', 'worker 2'])
        self.leave(adapter)
        os.unlink(self.flag)
        self.assertEqual(program.ended(), ('ready\nover 1\n', 0))

    def test_one_that_begins_threads_later_knows_its_main_thread(self):
        """`threading` takes for the main thread whoever imports it first."""
        program = self.run_unaware('''
import os, sys, time
print 'ready'
while os.path.exists(sys.argv[1]):
    time.sleep(0.01)
import threading
print threading.currentThread().getName(), len(threading.enumerate())
''', self.flag, stderr=subprocess.PIPE)
        self.leave(self.attach_to(program))
        os.unlink(self.flag)
        self.assertEqual(program.ended(), ('ready\nMainThread 1\n', 0))
        self.assertEqual(dap_session.Program.errors.im_func(program), '')

    def test_one_in_the_middle_of_an_import_when_that_ends_soon(self):
        self.script(WORK, 'work.py')
        program = self.run_unaware("""
import work
import sys
sys.stdin.read(1)
after = 1  # after
""", self.flag)
        adapter = self.adapter()
        adapter.ask('initialize', adapterID='morvik')
        attached = adapter.request('attach', {'processId': program.pid})
        self.assertTrue(harness.wait_until(
            lambda: len(os.listdir('/proc/%d/task' % program.pid)) > 1))
        os.unlink(self.flag)
        self.assertTrue(adapter.answer(attached)['success'])
        adapter.event('initialized')
        self.break_at(adapter, program, '# after')
        adapter.ask('configurationDone')
        program.process.stdin.write('x')
        program.process.stdin.flush()
        self.assertEqual(adapter.stopped(), 'breakpoint <module>:%d' % program.line('# after'))
        self.leave(adapter)
        self.assertEqual(program.ended(), ('ready\nover 1\n', 0))

    def test_parent_and_children_each(self):
        program = self.run_unaware('''
import os, sys, time
def work(who):
    while os.path.exists(sys.argv[1]):
        time.sleep(0.01)  # turn
child = os.fork()
if not child:
    work('child')
    os._exit(3)
print 'child', child, 'ready'
work('parent')
print 'over', os.waitpid(child, 0)[1] >> 8
''', self.flag)
        child = int(program.out.split()[1])
        for pid, who in [(program.pid, 'parent'), (child, 'child'), (program.pid, 'parent')]:
            adapter = self.adapter()
            adapter.begin({'processId': str(pid)})  # As editors' variables have it.
            self.break_at(adapter, program, '# turn')
            adapter.ask('configurationDone')
            adapter.stopped()
            self.assertEqual(adapter.evaluate('who, os.getpid()'), repr((who, pid)))
            self.leave(adapter)
        os.unlink(self.flag)
        self.assertEqual(program.ended()[0].splitlines()[1:], ['over 3'])

    def test_a_child_of_one_that_is_debugged(self):
        harness.need_forks_beside_threads(self)
        program = self.run_unaware('''
import os, sys, time
def work(who):
    while os.path.exists(sys.argv[1]):
        time.sleep(0.01)  # turn
print 'ready'
while not os.path.exists(sys.argv[1] + '.fork'):
    time.sleep(0.01)
child = os.fork()
if not child:
    work('child')
    os._exit(3)
print 'child', child, 'ready'
work('parent')
print 'over', os.waitpid(child, 0)[1] >> 8
''', self.flag)
        first = self.attach_to(program, subProcess=False)
        self.script('', 'flag.fork')
        program.wrote('ready\nchild')
        program.wrote(' ready\n')
        child = int(program.out.split()[2])
        second = self.adapter()
        second.begin({'processId': child})
        for adapter, who in (first, 'parent'), (second, 'child'):
            self.break_at(adapter, program, '# turn')
            if adapter is second:
                adapter.ask('configurationDone')
            adapter.stopped()
            self.assertEqual(adapter.evaluate('who'), repr(who))
            self.leave(adapter)
        os.unlink(self.flag)
        self.assertEqual(program.ended()[0].splitlines()[2:], ['over 3'])

    def test_what_it_starts_is_debugged_in_its_session(self):
        program = self.run_unaware('''
import os, subprocess, sys, time
def work(who):
    return who, os.getpid()  # work
print 'ready'
while os.path.exists(sys.argv[1]):
    child = os.fork()
    if not child:
        work('forked')
        os._exit(3)
    os.waitpid(child, 0)
    work('first')
    subprocess.call([sys.executable, '-c', 'result = 5'])
''', self.flag)
        adapter = self.attach_to(program, '# work')
        expected = ['forked', 'first'] * 2
        while expected:
            self.assertEqual(adapter.stopped(), 'breakpoint work:4')
            who = eval(adapter.evaluate('who'))
            # At first it may be at work after a process that ended before anybody came.
            if who == 'forked' or len(expected) < 4:
                self.assertEqual(who, expected.pop(0))
            pid = int(adapter.evaluate('os.getpid()'))
            self.assertEqual(pid == program.pid, who == 'first')
            adapter.go()
        self.leave(adapter)
        os.unlink(self.flag)
        self.assertEqual(program.ended()[1], 0)

    def test_what_the_program_has_stays_as_it_is(self):
        program = self.run_unaware('''
import os, signal, sys, threading, time
def state():
    return (sorted(globals()), sys.path[:], os.environ.copy(), sys.getcheckinterval(),
            [signal.getsignal(number) for number in range(1, 32)], os.getcwd(), sys.argv[:],
            sorted(fds()), threading.enumerate(), sys.stdout,
            [open('/proc/self/status').read().count(what) for what in (
                'SigBlk:\t0000000000000000', 'Threads:\t1', 'TracerPid:\t0')])
def fds():
    for number in os.listdir('/proc/self/fd'):
        try:
            path = os.readlink('/proc/self/fd/' + number)
        except OSError:
            continue  # That of the listing.
        # The interpreter opens it once, for the first random number that somebody wants.
        if path != '/dev/urandom':
            yield number, path
before = after = None
before = state()
print 'ready'
while os.path.exists(sys.argv[1]):
    time.sleep(0.01)
time.sleep(1)  # Threads take a moment to end.
after = state()
print before == after or [pair for pair in zip(before, after) if pair[0] != pair[1]]
''', self.flag)
        for turn in range(2):
            self.leave(self.attach_to(program))
        os.unlink(self.flag)
        self.assertEqual(program.ended(), ('ready\nTrue\n', 0))

    def test_the_client_hears_of_the_end(self):
        program = self.run_unaware(WORK, self.flag)
        adapter = self.attach_to(program)
        os.unlink(self.flag)
        adapter.event('terminated')
        self.assertEqual(program.ended(), ('ready\nover 1\n', 0))

    def test_two_at_a_time_are_not_served(self):
        program = self.run_unaware(WORK, self.flag)
        adapter = self.attach_to(program, '# work')
        for place in 'where it runs', 'at its breakpoint':
            second = self.adapter()
            second.ask('initialize', adapterID='morvik')
            self.assertEqual(second.refusal('attach', processId=program.pid),
                             'somebody debugs this program already')
            if place == 'where it runs':
                adapter.stopped()
        self.leave(adapter)
        self.leave(self.attach_to(program))

    def test_one_that_has_another_debugger_of_this_kind(self):
        program = self.serve(WORK.replace('sys.argv[1]', repr(self.flag)))
        program.wrote('ready')
        adapter = self.adapter()
        adapter.ask('initialize', adapterID='morvik')
        self.assertEqual(adapter.refusal('attach', processId=program.process.pid),
                         'this program is run by a debugger already')
        os.unlink(self.flag)
        self.assertEqual(program.ended(), ('ready\nover 1\n', 0))


# What waits for its standard input, itself or by what another thread or process does.
WAITING = '''
import os, select, socket, subprocess, sys, thread, threading
def read():
    os.read(0, 1)
    %(then)s
lock = thread.allocate_lock()
lock.acquire()
poll, epoll = select.poll(), select.epoll()
poll.register(0, select.POLLIN)
epoll.register(0, select.EPOLLIN)
listener = socket.socket()
listener.bind(('127.0.0.1', 0))
listener.listen(1)
reader = threading.Thread(target=read)
%(before)s
print 'ready'
%(wait)s
print 'over'  # over
'''


class WaitingTest(attach_session.TestCase):
    """The program's main thread waits, and goes on with that when it has been attached to."""

    def check(self, wait, before='', then=''):
        program = self.run_unaware(WAITING % {'wait': wait, 'before': before, 'then': then})
        time.sleep(0.2)
        adapter = self.attach_to(program, '# over')
        program.process.stdin.write('x\n')
        self.assertEqual(adapter.stopped(), 'breakpoint <module>:%d' % program.line('# over'))
        self.leave(adapter)
        self.assertEqual(program.ended(), ('ready\nover\n', 0))

    def test_for_a_line(self):
        self.check('sys.stdin.readline()')

    def test_for_a_byte(self):
        self.check('os.read(0, 1)')

    def test_in_select(self):
        self.check('select.select([0], [], [])')

    def test_in_poll(self):
        self.check('poll.poll()')

    def test_in_epoll(self):
        self.check('epoll.poll()')

    def test_for_a_lock(self):
        self.check('lock.acquire()', 'reader.start()', 'lock.release()')

    def test_for_a_thread(self):
        self.check('reader.join()', 'reader.start()')

    def test_for_a_process(self):
        self.check('os.waitpid(child.pid, 0)',
                   'child = subprocess.Popen(["head", "-c", "1"], stdout=open(os.devnull, "w"))')

    def test_for_a_connection(self):
        self.check('listener.accept()', 'reader.start()',
                   'socket.create_connection(listener.getsockname())')


class RefusalTest(attach_session.TestCase):
    """What is not attached to runs on as it was."""

    def setUp(self):
        attach_session.TestCase.setUp(self)
        running._PATIENCE = 1.0

    def why(self, pid):
        try:
            running.bring_server(pid, 'sorrel.server', self.flag)
        except running.CannotAttach, error:
            return str(error)
        self.fail('process %d was attached to' % pid)

    def start(self, *command, **how):
        process = subprocess.Popen(command, **how)
        self.opened(dap_session.Ended(process))
        return process

    def test_no_process(self):
        process = self.start('true')
        process.wait()
        self.assertEqual(self.why(process.pid), 'there is no process %d' % process.pid)

    def test_one_that_has_ended(self):
        process = self.start('true')
        self.assertTrue(harness.wait_until(lambda: not is_alive(process.pid)))
        self.assertEqual(self.why(process.pid), 'process %d has ended' % process.pid)

    def test_itself(self):
        self.assertEqual(self.why(os.getpid()),
                         'process %d cannot attach to itself' % os.getpid())

    def test_a_thread(self):
        program = self.run_unaware('''
import threading, time
thread = threading.Thread(target=time.sleep, args=(60,))
thread.setDaemon(True)
thread.start()
print 'ready'
time.sleep(60)
''')
        found = set(int(name) for name in os.listdir('/proc/%d/task' % program.pid))
        (thread,) = found - set([program.pid])
        self.assertEqual(self.why(thread), '%d is a thread of process %d' % (thread, program.pid))

    def test_no_python(self):
        process = self.start('sleep', '60')
        self.assertEqual(
            self.why(process.pid),
            "process %d runs no Python, or it does not export the interpreter's symbols"
            % process.pid)
        self.assertEqual(process.poll(), None)

    def test_one_of_another_user(self):
        if os.getuid():
            pid, user = 1, 'root'
        else:
            user = pwd.getpwnam('nobody').pw_name
            pid = self.start('sleep', '60', preexec_fn=lambda: os.setuid(
                pwd.getpwnam('nobody').pw_uid)).pid
        self.assertEqual(self.why(pid),
                         'process %d is not of this user alone, but of %s' % (pid, user))

    def test_one_that_is_stopped_stays_so(self):
        program = self.run_unaware(WORK, self.flag)
        os.kill(program.pid, signal.SIGSTOP)
        self.assertTrue(harness.wait_until(lambda: state(program.pid) == 'T'))
        self.assertEqual(self.why(program.pid),
                         'process %d is stopped; "kill -CONT %d" lets it go on' % (
                             program.pid, program.pid))
        self.assertEqual(state(program.pid), 'T')
        os.kill(program.pid, signal.SIGCONT)
        os.unlink(self.flag)
        self.assertEqual(program.ended(), ('ready\nover 1\n', 0))

    def test_one_under_another_debugger(self):
        try:
            import ctypes
        except ImportError:
            self.skip('this host has no ctypes')
        program = self.run_unaware(WORK, self.flag)
        seize = 0x4206
        trace = ctypes.CDLL(None).ptrace
        trace.argtypes = [ctypes.c_long] * 4
        self.assertEqual(trace(seize, program.pid, 0, 0), 0)
        name = open('/proc/self/status').readline().split()[1]
        self.assertEqual(self.why(program.pid),
                         'process %d is under another debugger: %s, process %d' % (
                             program.pid, name, os.getpid()))

    def test_one_with_a_root_of_its_own(self):
        if os.getuid():
            self.skip('only root may change the root')
        program = self.run_unaware('''
import os, sys, time
os.chroot(os.path.dirname(sys.argv[1]))
print 'ready'
while os.path.exists('/flag'):
    time.sleep(0.01)
print 'over'
''', self.flag)
        self.assert_in('it may be in a container, or have a root of its own',
                       self.why(program.pid))
        os.unlink(self.flag)
        self.assertEqual(program.ended(), ('ready\nover\n', 0))

    def test_another_interpreter(self):
        process = self.start('python3', '-c', 'import time; time.sleep(60)')
        self.assertTrue(harness.wait_until(
            lambda: 'python3' in open('/proc/%d/maps' % process.pid).read()))
        time.sleep(1)
        self.assert_in('process %d runs Python 3, and this is built for CPython 2.'
                       % process.pid, self.why(process.pid))

    def test_one_deep_in_c_code_with_the_interpreter_lock(self):
        """It never knows of it, not even when it comes back."""
        program = self.run_unaware('''
import os, re, sys, time
def match(size):
    began = time.time()
    re.match('(a+)+$', 'a' * size + 'b')
    return time.time() - began
def code():
    """How many pieces of code there are that are no file's."""
    return open('/proc/self/maps').read().count('r-xp 00000000 00:00')
size, before = 10, code()
while match(size) < 0.8:  # Each letter more doubles the time.
    size += 1
print 'ready'
match(size + 3)
print 'back', code() - before
while os.path.exists(sys.argv[1]):
    time.sleep(0.01)
print 'over', code() - before
''', self.flag)
        self.assertEqual(
            self.why(program.pid), 'process %d does not come to a place where this can be done: it '
            'is in C code, or does not run Python code' % program.pid)
        self.assertEqual(program.out.strip(), 'ready')
        program.wrote('back 0\n')
        self.leave(self.attach_to(program))
        time.sleep(0.5)
        os.unlink(self.flag)
        self.assertEqual(program.ended(), ('ready\nback 0\nover 0\n', 0))

    def test_one_in_the_middle_of_an_import(self):
        """What was begun comes to nothing when the import has ended."""
        self.script(WORK, 'work.py')
        program = self.run_unaware('import work', self.flag, stderr=subprocess.PIPE)
        adapter = self.adapter()
        adapter.ask('initialize', adapterID='morvik')
        self.assertEqual(
            adapter.refusal('attach', processId=program.pid),
            'the server has been brought into process %d, which does not answer: it may be in the '
            'middle of an import, or in C code that holds the interpreter lock' % program.pid)
        os.unlink(self.flag)
        self.assertEqual(program.ended(), ('ready\nover 1\n', 0))
        self.assertEqual(dap_session.Program.errors.im_func(program), '')

    def test_one_that_ends_with_its_import(self):
        """Nobody meets with what is left of it, whenever it ends."""
        self.script(WORK, 'work.py')
        for turn in range(4):
            self.script('', 'flag')
            program = self.run_unaware('import work', self.flag, stderr=subprocess.PIPE)
            adapter = self.adapter()
            adapter.ask('initialize', adapterID='morvik')
            adapter.request('attach', {'processId': program.pid})
            self.assertTrue(harness.wait_until(
                lambda: len(os.listdir('/proc/%d/task' % program.pid)) > 1))
            time.sleep(0.02 * turn)
            os.unlink(self.flag)
            self.assertEqual(program.ended(), ('ready\nover 1\n', 0))
            self.assertEqual(dap_session.Program.errors.im_func(program), '')
