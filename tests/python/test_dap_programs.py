"""Programs that do what is hard on a server in their process, and how they end."""

import os
import signal
import socket
import time

import dap_session

ENDED = ['exited', 'terminated']


def events(messages, *names):
    """The names of the events among messages, where they are among these."""
    found = [message['event'] for message in messages if message['type'] == 'event']
    return [name for name in found if name in names]


class ProgramTest(dap_session.TestCase):

    def waiting(self, text, *marks, **how):
        """A program that a client with breakpoints on these lines has let run."""
        self.program = self.serve(text, '--wait', **how)
        return self.attach(self.program, *marks)

    def assert_ends(self, client, out, status=0, errors=''):
        """The program ends so, by itself, and the client is told."""
        self.assertEqual(events(client.read_all(), 'stopped', *ENDED), ENDED)
        self.assertEqual(self.program.ended(), (out, status))
        self.assertEqual(self.program.errors(), errors)

    # Ends.

    def test_ends_at_its_last_line(self):
        self.assert_ends(self.waiting('print 1\n'), '1\n')

    def test_ends_by_sys_exit(self):
        for code, status, errors in (
                ('3', 3, ''), ('300', 44, ''), ('', 0, ''), ('"why"', 1, 'why\n')):
            self.assert_ends(self.waiting('import sys\nsys.exit(%s)\n' % code), '', status, errors)

    def test_ends_by_an_exception(self):
        client = self.waiting('def f():\n    raise ValueError(1)\nf()\n')
        self.assert_ends(client, '', 1, '''\
Traceback (most recent call last):
  File "%(path)s", line 3, in <module>
    f()
  File "%(path)s", line 2, in f
    raise ValueError(1)
ValueError: 1
''' % {'path': self.program.path})

    def test_stops_at_the_exception_that_ends_it(self):
        self.program = self.serve('x = 1\nx.y\n', '--wait')
        client = self.connect(self.program)
        client.begin({})
        client.ask('setExceptionBreakpoints', filters=['uncaught'])
        client.ask('configurationDone')
        self.assertEqual(client.stopped(), 'exception <module>:2')
        client.go()
        self.assertEqual(client.event('exited'), {'exitCode': 1})

    def assert_gone(self, text, status, mark='# here'):
        """The program is there no more, without a word; as at its end the connection is closed."""
        client = self.waiting(text, mark)
        client.stopped()
        client.request('continue', {'threadId': client.thread})
        self.assertEqual(events(client.read_all(), 'stopped'), [])
        self.assertEqual(self.program.ended(), ('', status))

    def test_ends_as_soon_as_it_may_begin(self):
        # The network thread's turn comes late when it has woken the main one up.
        self.script('''\
import sys, time
from sorrel.server.network.wakeup import Wakeup
wake = Wakeup.wake
def wake_slowly(self):
    try:
        return wake(self)
    finally:
        if sys._getframe(1).f_code.co_name == '_go_on':
            time.sleep(0.5)
Wakeup.wake = wake_slowly
''', 'sitecustomize.py')
        path = os.environ.get('PYTHONPATH')
        os.environ['PYTHONPATH'] = self.folder + (path and os.pathsep + path or '')
        self.program = self.serve('import os\nos._exit(5)\n', '--wait')
        client = self.connect(self.program)
        client.begin({})
        client.ask('configurationDone')
        self.assertEqual(self.program.ended(), ('', 5))

    def test_ends_by_exit(self):
        self.assert_gone('import os\nos._exit(5)  # here\n', 5)

    def test_ends_by_a_signal(self):
        self.assert_gone('import os, signal\nos.kill(os.getpid(), signal.SIGKILL)  # here\n',
                         -signal.SIGKILL)

    def test_ends_by_becoming_another_program(self):
        self.assert_gone('import os\nos.execv("/bin/sh", ["sh", "-c", "exit 6"])  # here\n', 6)

    def test_exit_functions_are_debugged(self):
        client = self.waiting('''
import atexit
def bye():
    print 'bye'  # bye
atexit.register(bye)
''', '# bye')
        self.assertEqual(client.stopped(), 'breakpoint bye:4')
        client.go()
        self.assert_ends(client, 'bye\n')

    def test_threads_that_outlive_the_main_one_are_debugged(self):
        client = self.waiting('''
import threading, time
def late():
    time.sleep(0.2)
    print 'late'  # late
threading.Thread(target=late).start()
''', '# late')
        self.assertEqual(client.stopped(), 'breakpoint late:5')
        client.go()
        self.assert_ends(client, 'late\n')

    def test_ends_with_living_daemon_threads(self):
        # What happens as an interpreter ends is a matter of chance.
        for _ in range(10):
            client = self.waiting('''
import threading, time, thread
def for_ever():
    n = 0
    while True:
        n += 1  # busy
def sleeper():
    while True:
        time.sleep(0.0005)
for target in for_ever, sleeper, sleeper:
    thread_ = threading.Thread(target=target)
    thread_.setDaemon(True)
    thread_.start()
thread.start_new_thread(sleeper, ())
time.sleep(0.01)
print 'over'  # over
''', '# over')
            client.stopped()
            client.go()
            self.assertEqual(events(client.read_all(), 'stopped', *ENDED), ENDED)
            self.assertEqual(self.program.ended(), ('over\n', 0))

    def test_threads_that_end_all_the_time_do_not_end_the_session(self):
        self.program = self.serve('''
import sys, thread, time
sys.setcheckinterval(0)
running = True
print 'ready'
def short():
    pass
while running:
    thread.start_new_thread(short, ())
    thread.start_new_thread(short, ())
    time.sleep(0.0005)  # loop
''')
        self.program.wrote('ready')
        client = self.attach(self.program, '# loop')
        for _ in range(100):
            self.assertEqual(client.stopped(), 'breakpoint <module>:%d'
                             % self.program.line('# loop'))
            client.ask('threads')
            client.go()
        client.stopped()
        client.evaluate('globals().update(running=False)', 'repl')
        self.break_at(client, self.program)
        client.go()
        self.assert_ends(client, 'ready\n')

    def test_a_thread_is_stopped_while_the_main_one_ends(self):
        program = self.serve('''
import threading, time
def work():
    time.sleep(0.05)  # work
worker = threading.Thread(target=work)
worker.setDaemon(True)
worker.start()
time.sleep(0.5)
print 'over'
''', '--wait')
        client = self.attach(program, '# work', stopAllThreads=False)
        self.assertEqual(client.stopped(), 'breakpoint work:4')
        self.assertEqual(program.ended(), ('over\n', 0))

    # What the program does to the process.

    def test_closes_all_descriptors_while_it_runs(self):
        client = self.waiting('''
import os, time
print 'closing'
os.closerange(3, 64)
files = [open(__file__) for _ in range(20)]  # opened
time.sleep(0.2)
for number in range(3):
    pass  # never reached by a client
print 'read', set(len(one.read()) for one in files) == set([os.path.getsize(__file__)])
''', '# never reached')
        self.assertEqual(self.program.ended(), ('closing\nread True\n', 0))
        client.read_all()

    def test_closes_all_descriptors_while_a_client_asks(self):
        client = self.waiting('''
import os, time
out = open(__file__ + '.out', 'w')
os.closerange(3, out.fileno())
os.closerange(out.fileno() + 1, 64)
files = [os.dup(out.fileno()) for _ in range(20)]
print 'begun'
time.sleep(0.5)
out.close()
print repr(open(__file__ + '.out').read())
''')
        self.program.wrote('begun')
        try:
            for _ in range(50):
                client.request('threads')
                client.request('pause', {'threadId': 1})
                time.sleep(0.005)
        except socket.error:
            pass
        # Nothing of what the server has to say goes into files that now have its numbers.
        self.assertEqual(self.program.ended(), ("begun\n''\n", 0))

    def test_closes_the_connection_of_its_client_alone(self):
        self.program = self.serve('''
import os, socket, sys, time
def kind(descriptor):
    try:
        return os.readlink('/proc/self/fd/%d' % descriptor)
    except OSError:
        return ''
before = set(number for number in range(64) if kind(number))
print 'ready'
while not set(number for number in range(64) if kind(number)) - before:
    time.sleep(0.001)
go_on = True
time.sleep(0.3)
for number in set(number for number in range(64) if kind(number)) - before:
    os.close(number)
while go_on:
    time.sleep(0.001)  # loop
print 'over'
''')
        self.program.wrote('ready')
        client = self.attach(self.program)
        time.sleep(0.5)
        try:
            client.request('threads')
        except socket.error:
            pass
        client.read_all()
        client = self.attach(self.program, '# loop')
        client.stopped()
        client.evaluate('globals().update(go_on=False)', 'repl')
        self.break_at(client, self.program)
        client.go()
        self.assertEqual(client.event('exited'), {'exitCode': 0})

    def test_has_more_files_open_than_select_knows(self):
        self.program = self.serve('''
import resource, time
try:
    resource.setrlimit(resource.RLIMIT_NOFILE, (2000, 2000))
    files = [open(__file__) for _ in range(1500)]
except (ValueError, IOError):
    print 'cannot'
running = True
print 'ready'
while running:
    time.sleep(0.001)  # loop
''')
        self.program.wrote('ready')
        if 'cannot' in self.program.out:
            self.skip('so many files are not allowed here')
        client = self.attach(self.program, '# loop')
        client.stopped()
        client.evaluate('globals().update(running=False)', 'repl')
        self.break_at(client, self.program)
        client.go()
        self.assert_ends(client, 'ready\n')

    def test_replaces_its_streams(self):
        client = self.waiting('''
import sys, StringIO
sys.stdout = sys.stderr = sys.__stdout__ = sys.__stderr__ = StringIO.StringIO()
print 'nowhere'  # print
sys.stdout = None
x = 1  # x
del sys.stderr, sys.stdin
y = 1  # y
''', '# print', '# x', '# y')
        for line in 4, 6, 8:
            self.assertEqual(client.stopped(), 'breakpoint <module>:%d' % line)
            self.assertEqual(client.evaluate('1 + 1', 'repl'), '2')
            client.go()
        self.assert_ends(client, '')

    def test_replaces_what_modules_of_the_library_offer(self):
        client = self.waiting('''
import json, os, select, socket, sys, thread, threading, time
def broken(*arguments, **keywords):
    raise RuntimeError('broken')
keep = os._exit
for module, names in (
        (json, 'dumps loads'), (os, 'fstat read write close'), (select, 'select poll epoll'),
        (socket, 'socket create_connection'), (thread, 'allocate_lock start_new_thread'),
        (threading, 'currentThread current_thread Lock'), (time, 'time sleep'),
        (sys, '_getframe _current_frames')):
    for name in names.split():
        if module is not sys:
            setattr(module, name, broken)
x = 1  # here
y = 2
''', '# here')
        self.assertEqual(client.stopped(), 'breakpoint <module>:14')
        self.assertEqual(client.evaluate('module.__name__'), "'sys'")
        self.assertEqual(client.step(), 'step <module>:15')
        client.ask('threads')
        client.go()
        self.assertEqual(events(client.read_all(), *ENDED), ENDED)
        self.assertEqual(self.program.ended()[1], 0)

    def test_changes_its_folder_and_its_search_path(self):
        folder = self.folder
        self.script('def f():\n    return 1  # f\n', 'beside.py')
        client = self.waiting('''
import os, sys
os.chdir('/')
sys.path[:] = [os.path.dirname(os.path.abspath(__file__))] + sys.path
import beside
beside.f()  # call
''', '# call')
        self.assertEqual(client.stopped(), 'breakpoint <module>:6')
        self.assertEqual(client.step('stepIn'), 'step f:2')
        self.assertEqual(client.top()['source']['path'], os.path.join(folder, 'beside.py'))
        self.break_at(client, self.program)
        client.go()
        self.assert_ends(client, '')

    def test_stops_while_it_imports(self):
        self.script('''
import collections
value = 1  # inner
''', 'inner.py')
        client = self.waiting('import inner\nprint inner.value\n')
        client.read_all()
        program = self.serve('import inner\nprint inner.value\n', '--wait')
        client = self.connect(program)
        client.begin({})
        client.ask('setBreakpoints', source={'path': os.path.join(self.folder, 'inner.py')},
                   breakpoints=[{'line': 3}])
        client.ask('configurationDone')
        self.assertEqual(client.stopped(), 'breakpoint <module>:3')
        # The stopped thread holds the interpreter's import lock.
        for command in 'threads', 'modules', 'loadedSources':
            client.ask(command)
        self.assertEqual(client.evaluate('[1, u"x", {}]'), "[1, u'x', {}]")
        client.ask('source', sourceReference=0, source={'path': program.path})
        self.assertEqual(len(client.ask('completions', text='coll', column=5,
                                        frameId=client.top()['id'])['targets']), 1)
        client.go()
        self.assertEqual(client.event('exited'), {'exitCode': 0})

    def test_stops_where_the_stack_is_nearly_used_up(self):
        client = self.waiting('''
import sys
def deep(number):
    if number:
        return deep(number - 1)
    return 1  # deep
def room(number):
    try:
        return room(number + 1)
    except RuntimeError:
        return number
sys.setrecursionlimit(600)
deep(room(0) - 8)
''', '# deep')
        self.assertEqual(client.stopped(), 'breakpoint deep:6')
        stack = client.ask('stackTrace', threadId=1, startFrame=0, levels=3)
        self.assertTrue(stack['totalFrames'] > 500, stack['totalFrames'])
        self.assertEqual(client.evaluate('[number] * 2'), '[0, 0]')
        self.assertEqual(client.variable('number')['value'], '0')
        self.break_at(client, self.program)
        client.go()
        self.assertEqual(self.program.ended(), ('', 0))

    # Other processes.

    def test_processes_that_it_forks_run_undebugged(self):
        client = self.waiting('''
import os, sys
for number in range(3):
    child = os.fork()
    if not child:
        number += 1  # child
        sys.exit(number)
    print os.waitpid(child, 0)[1] >> 8
print 'over'  # over
''', '# child', '# over')
        self.assertEqual(client.stopped(), 'breakpoint <module>:9')
        client.go()
        self.assert_ends(client, '1\n2\n3\nover\n')

    def test_a_forked_process_holds_neither_the_port_nor_the_connection(self):
        program = self.serve('''
import os, sys, time
print 'ready'
while not os.path.exists(__file__ + '.fork'):
    time.sleep(0.001)
if os.fork():
    os._exit(0)
print os.getpid()
time.sleep(60)
''')
        program.wrote('ready')
        client = self.attach(program)
        open(program.path + '.fork', 'w').close()
        self.assertEqual(events(client.read_all(), 'stopped'), [])
        self.assertEqual(program.process.wait(), 0)
        self.assertRaises(socket.error, socket.create_connection, ('127.0.0.1', program.port),
                          dap_session.PATIENCE)

    def test_children_do_not_inherit_the_connection(self):
        program = self.serve('''
import os, subprocess
child = subprocess.Popen(['sleep', '60'])
print 'started'
os._exit(0)
''', '--wait')
        client = self.attach(program)
        program.wrote('started')
        self.assertEqual(events(client.read_all(), 'stopped'), [])

    def test_a_program_started_by_it_does_not_find_the_server(self):
        client = self.waiting('''
import os, subprocess, sys
print os.environ.get('PYTHONPATH')
look = 'import imp, sys; sys.modules.pop("sorrel", 0); imp.find_module("sorrel")'
print subprocess.call([sys.executable, '-c', look], cwd='/', stderr=open(os.devnull, 'w'))
''')
        self.assert_ends(client, 'None\n1\n')


class HandlerTest(dap_session.TestCase):

    def test_what_a_handler_raises_at_a_stop_is_raised_when_the_thread_goes_on(self):
        program = self.serve('''
import signal, time
def late(number, frame):
    raise ValueError('late')
signal.signal(signal.SIGALRM, late)
while True:
    try:
        time.sleep(0.01)  # loop
        y = 2  # next
    except ValueError, error:
        print error
        break
print 'over'  # over
''')
        client = self.attach(program, '# loop', '# over')
        client.stopped()
        os.kill(program.process.pid, signal.SIGALRM)
        for _ in range(3):
            self.assertEqual(client.evaluate('1 + 1'), '2')
        client.go()
        self.assertEqual(client.stopped(), 'breakpoint <module>:13')
        client.go()
        self.assertEqual(program.ended(), ('late\nover\n', 0))


class TerminatedTest(dap_session.TestCase):

    PROGRAM = '''
import signal, sys, time
def tidy_up(number, frame):
    print 'tidy'  # tidy
    sys.exit(9)
%s
print 'ready'
while True:
    time.sleep(0.001)  # loop
'''

    def terminated(self, handler, *marks):
        program = self.serve(self.PROGRAM % handler)
        program.wrote('ready')
        client = self.attach(program, *marks)
        if marks:
            client.stopped()
        client.ask('terminate')
        return program.ended()

    def test_running(self):
        self.assertEqual(self.terminated(''), ('ready\n', -signal.SIGTERM))

    def test_stopped(self):
        self.assertEqual(self.terminated('', '# loop'), ('ready\n', -signal.SIGTERM))

    def test_running_and_tidying_up(self):
        handler = 'signal.signal(signal.SIGTERM, tidy_up)'
        self.assertEqual(self.terminated(handler), ('ready\ntidy\n', 9))

    def test_stopped_and_tidying_up(self):
        handler = 'signal.signal(signal.SIGTERM, tidy_up)'
        for _ in range(5):
            self.assertEqual(self.terminated(handler, '# loop'), ('ready\ntidy\n', 9))
