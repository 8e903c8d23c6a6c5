"""Programs that run already, and know nothing of a debugger, are attached to by their process."""

import os
import signal
import subprocess
import time

import dap_session
import harness
from dap_session import is_alive

# Works until its file is gone, and finds out whether one turn was like the other.
WORK = '''
import os, sys
def step(total, turn):
    return (total * 31 + turn) % 1000003  # work
def work():
    total = 0
    for turn in range(1000):
        total = step(total, turn)
    return total
results = [work()]
print 'ready'
sys.stdout.flush()
while os.path.exists(sys.argv[1]):
    results.append(work())
print 'over', len(set(results))
'''

class Unaware(dap_session.Process):
    """A program that was started without a debugger."""

    def __init__(self, path, arguments=(), **streams):
        self.path = path
        own = os.environ.pop('PYTHONPATH', None)
        try:
            dap_session.Process.__init__(self, [path] + list(arguments), **streams)
        finally:
            if own is not None:
                os.environ['PYTHONPATH'] = own

    line = dap_session.Program.line.im_func

    @property
    def pid(self):
        return self.process.pid


class TestCase(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.flag = self.script('', 'flag')

    def run_unaware(self, text, *arguments, **streams):
        program = self.opened(Unaware(self.script(text, 'prog.py'), arguments, **streams))
        program.wrote('ready')
        return program

    def adapter(self):
        return self.opened(dap_session.Adapter(stderr=subprocess.PIPE))

    def attach_to(self, program, *marks, **arguments):
        """A client whose breakpoints are on the lines with these marks; the program runs."""
        adapter = self.adapter()
        adapter.begin(dict(arguments, processId=program.pid))
        self.break_at(adapter, program, *marks)
        adapter.ask('configurationDone')
        return adapter

    def leave(self, adapter):
        adapter.ask('disconnect')
        adapter.process.stdin.close()
        self.assertEqual(adapter.process.wait(), 0)


class WhereverItIsTest(TestCase):

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

    def test_waits_of_all_kinds_go_on(self):
        """What the program waits for comes only when it has been attached to."""
        for wait in (
                'sys.stdin.readline()', 'os.read(0, 1)', 'select.select([0], [], [])',
                'select.poll().poll(None) if 0 else poll.poll()', 'epoll.poll()',
                'lock.acquire()', 'thread.join()', 'os.waitpid(child.pid, 0)',
                'listener.accept()'):
            program = self.run_unaware('''
import os, select, socket, subprocess, sys, thread, threading
def read():
    os.read(0, 1)
    lock.release()
lock = thread.allocate_lock()
lock.acquire()
poll, epoll = select.poll(), select.epoll()
poll.register(0, select.POLLIN)
epoll.register(0, select.EPOLLIN)
thread_ = threading.Thread(target=read)
listener = socket.socket()
listener.bind(('127.0.0.1', 0))
listener.listen(1)
def connect():
    os.read(0, 1)
    socket.create_connection(listener.getsockname())
wait = sys.argv[1]
if 'lock' in wait or 'thread' in wait:
    thread_.start()
elif 'accept' in wait:
    threading.Thread(target=connect).start()
elif 'child' in wait:
    child = subprocess.Popen(['head', '-c', '1'])
thread = thread_
print 'ready'
eval(wait)
print 'over'  # over
''', wait)
            time.sleep(0.2)
            adapter = self.attach_to(program, '# over')
            program.process.stdin.write('x\n')
            self.assertEqual(adapter.stopped(), 'breakpoint <module>:%d' % program.line('# over'))
            self.leave(adapter)
            out, status = program.ended()
            self.assertEqual((out[-5:], status), ('over\n', 0))

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
        first = self.attach_to(program)
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

    def test_what_the_program_has_stays_as_it_is(self):
        program = self.run_unaware('''
import os, signal, sys, threading, time
def state():
    return (sorted(globals()), sys.path[:], os.environ.copy(), sys.getcheckinterval(),
            [signal.getsignal(number) for number in range(1, 32)], os.getcwd(), sys.argv[:],
            sorted(os.listdir('/proc/self/fd')), threading.enumerate(), sys.stdout,
            [open('/proc/self/status').read().count(what) for what in (
                'SigBlk:\t0000000000000000', 'Threads:\t1', 'TracerPid:\t0')])
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
        adapter = self.attach_to(program)
        second = self.adapter()
        second.ask('initialize', adapterID='morvik')
        self.assertEqual(second.refusal('attach', processId=program.pid),
                         'Taken: somebody debugs this program already')
        self.leave(adapter)
        self.leave(self.attach_to(program))
