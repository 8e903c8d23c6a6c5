"""What a listening program starts is reached where that listens, also when it is gone."""

import os
import select
import signal
import socket
import threading
import time

import dap_session
import harness
from dap_session import PATIENCE

WORKERS = '''\
import os, signal, sys, time
def work(number):
    number += 1  # work
    return number
def run():
    number = 0
    while True:
        number = work(number)
        time.sleep(0.002)
signal.alarm(100)
workers = []
for _ in range(2):
    pid = os.fork()
    if not pid:
        run()
    workers.append(pid)
print ' '.join(map(str, workers))
print 'forked'
while not os.path.exists(sys.argv[0] + '.over'):
    time.sleep(0.01)  # parent
'''
# Comes to its line when it is told to.
CHILD = '''\
child = os.fork()
if not child:
    while not os.path.exists(sys.argv[0] + '.go'):
        pass
    print 'here'  # here
    os._exit(3)
'''


class TestCase(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.workers = []

    def tearDown(self):
        for pid in self.workers:
            try:
                os.kill(pid, signal.SIGKILL)
            except OSError:
                pass
        dap_session.TestCase.tearDown(self)

    def attach(self, program, *marks, **arguments):
        arguments.setdefault('subProcess', True)
        return dap_session.TestCase.attach(self, program, *marks, **arguments)

    def serve_workers(self, text=WORKERS, *options):
        self.program = self.serve(text, *options)
        self.program.wrote('forked\n')
        self.workers = map(int, self.program.out.split('\n')[0].split())
        return self.program

    def told(self, client, number):
        """What the client is told of so many processes, by their ids."""
        found = {}
        while len(found) < number:
            said = client.event('childProcess')
            found[said['processId']] = said
        return found

    def open_worker(self, pid, *marks):
        """A client of that process, by the one address."""
        client = self.opened(dap_session.Client(self.program.port, self.program.token))
        client.begin({'subProcessId': pid})
        self.break_at(client, self.program, *marks)
        client.ask('configurationDone')
        return client

    def eventually(self, function):
        """What it returns once that is true."""
        end = time.time() + PATIENCE
        while True:
            found = function()
            if found or time.time() > end:
                self.assertTrue(found)
                return found
            time.sleep(0.02)

    def attach_again(self):
        """A client of whoever leads by now."""
        def attached():
            try:
                client = self.connect(self.program)
                client.begin({'subProcess': True})
                return client
            except (socket.error, AssertionError):
                return None  # The last one is just ending.
        client = self.eventually(attached)
        client.ask('configurationDone')
        return client

    def left(self):
        """What the tree has left where its processes find each other."""
        folder = os.path.join(self.folder, 'sorrel')
        return sorted(os.path.relpath(os.path.join(path, name), folder)
                      for path, folders, files in os.walk(folder) for name in folders + files)

    def end_workers(self):
        for pid in self.workers:
            os.kill(pid, signal.SIGKILL)


class OneAddressTest(TestCase):

    def test_a_client_is_told_of_the_processes_that_are_there(self):
        program = self.serve_workers()
        client = self.attach(program)
        told = self.told(client, 2)
        self.assertEqual(sorted(told), sorted(self.workers))
        for pid, said in told.items():
            self.assertEqual((said['parentProcessId'], said['name']),
                             (program.process.pid, 'prog.py'))
            worker = self.opened(dap_session.Client(str(said['socket'])))
            worker.begin({})
            self.break_at(worker, program, '# work')
            worker.ask('configurationDone')
            self.assertEqual(worker.stopped(), 'breakpoint work:3')
            self.assertEqual(worker.evaluate('os.getpid()'), str(pid))
            worker.ask('disconnect')
        self.break_at(client, program, '# parent')
        self.assertEqual(client.stopped(), 'breakpoint <module>:20')

    def test_a_client_comes_to_each_by_the_one_address(self):
        self.serve_workers()
        self.told(self.attach(self.program), 2)
        clients = [self.open_worker(pid, '# work') for pid in self.workers]
        for pid, client in zip(self.workers, clients):
            self.assertEqual(client.stopped(), 'breakpoint work:3')
            self.assertEqual(client.evaluate('os.getpid()'), str(pid))
            self.assertEqual(len(client.ask(
                'evaluate', expression="'%s' * 1000000" % 'x', context='clipboard')['result']),
                1000002)
            self.assertEqual(client.step(), 'step work:4')
        for client in clients:
            client.ask('disconnect')
            client.read_all()

    def test_one_place_in_each(self):
        self.serve_workers()
        self.told(self.attach(self.program), 2)
        first = self.open_worker(self.workers[0])
        second = self.connect(self.program)
        second.ask('initialize', adapterID='x')
        self.assertEqual(second.refusal('attach', subProcessId=self.workers[0]),
                         'another client is debugging this program')
        first.close()
        self.eventually(lambda: self.attaches(self.workers[0]))

    def attaches(self, pid):
        client = self.connect(self.program)
        client.ask('initialize', adapterID='x')
        try:
            client.ask('attach', subProcessId=pid)
        except dap_session.Refusal:
            return False
        return True

    def test_strangers_come_to_none(self):
        self.serve_workers()
        self.told(self.attach(self.program), 2)
        stranger = self.opened(dap_session.Client(self.program.port, 'wrong'))
        stranger.ask('initialize', adapterID='x')
        self.assertTrue('token' in stranger.refusal('attach', subProcessId=self.workers[0]))
        client = self.connect(self.program)
        client.ask('initialize', adapterID='x')
        for pid in 1, 0, -1, os.getpid(), '1', [], {}, True, 1.5:
            self.assertEqual(client.refusal('attach', subProcessId=pid),
                             'there is no such process here')

    def test_a_process_that_is_forked_while_a_client_is_there_has_its_breakpoints(self):
        program = self.serve("""
import os, sys
def work():
    return os.getpid()  # work
while not os.path.exists(sys.argv[0] + '.over'):
    child = os.fork()
    if not child:
        work()
        os._exit(3)
    print os.waitpid(child, 0)[1] >> 8
print 'over'
""")
        client = self.attach(program, '# work')
        for _ in range(3):
            pid, said = self.told(client, 1).popitem()
            worker = self.opened(dap_session.Client(str(said['socket'])))
            worker.begin({})
            self.break_at(worker, program, '# work')
            worker.ask('configurationDone')
            self.assertEqual(worker.stopped(), 'breakpoint work:4')
            self.assertEqual(worker.evaluate('os.getpid()'), str(pid))
            worker.go()
        client.ask('disconnect')
        open(program.path + '.over', 'w').close()
        out, status = program.ended()
        self.assertEqual((set(out.split()), status), (set(['3', 'over']), 0))
        self.assertEqual(self.left(), [])

    def test_who_waits_for_a_client_that_has_left_runs_on(self):
        program = self.serve("""
import os, sys
%sprint 'forked'
print os.waitpid(child, 0)[1] >> 8
""" % CHILD, '--wait')
        client = self.attach(program, '# here')
        program.wrote('forked')
        self.told(client, 1)
        open(program.path + '.go', 'w').close()
        time.sleep(0.5)
        client.ask('disconnect')
        self.assertEqual(program.ended(), ('forked\nhere\n3\n', 0))
        self.assertEqual(program.errors(), '')

    def test_a_stop_in_the_moment_in_which_a_process_begins_to_be_reached(self):
        program = self.serve("""
import os, sys, time
from sorrel.server.network.network_thread import Server
start = Server.start
def start_slowly(*arguments):
    start(*arguments)
    time.sleep(1)
Server.start = start_slowly
%sprint os.waitpid(child, 0)[1] >> 8
""" % CHILD, '--wait')
        client = self.attach(program, '# here')
        said, = self.told(client, 1).values()
        open(program.path + '.go', 'w').close()
        time.sleep(0.2)
        worker = self.opened(dap_session.Client(str(said['socket'])))
        worker.begin({})
        self.break_at(worker, program, '# here')
        worker.ask('configurationDone')
        self.assertEqual(worker.stopped(), 'breakpoint <module>:13')
        worker.go()
        self.assertEqual(program.ended(), ('here\n3\n', 0))
        self.assertEqual(program.errors(), '')

    def test_who_does_not_want_others_is_told_of_none(self):
        self.serve_workers()
        client = self.attach(self.program, subProcess=False)
        time.sleep(0.6)
        client.ask('threads')
        self.assertEqual(client.has('childProcess'), False)

    def test_the_last_one_leaves_nothing(self):
        self.serve_workers()
        self.told(self.attach(self.program), 2)
        self.assertEqual(len(self.left()), 5)  # The folder, three sockets, and the token.
        self.end_workers()
        self.eventually(lambda: len(self.left()) == 3)
        open(self.program.path + '.over', 'w').close()
        self.assertEqual(self.program.ended()[1], 0)
        self.assertEqual(self.left(), [])


class HeirsTest(TestCase):

    def check_taken_over(self):
        """Everything is found where it was. The processes that are left end."""
        client = self.attach_again()
        said = self.told(client, len(self.workers) - 1)
        leader, = set(self.workers).difference(said)
        self.break_at(client, self.program, '# work')
        self.assertEqual(client.stopped(), 'breakpoint work:3')
        self.assertEqual(client.evaluate('os.getpid()'), str(leader))
        for pid in said:
            worker = self.open_worker(pid, '# work')
            self.assertEqual(worker.stopped(), 'breakpoint work:3')
            self.assertEqual(worker.evaluate('os.getpid()'), str(pid))
            worker.ask('disconnect')
        client.ask('disconnect')

    def test_the_first_one_is_killed(self):
        self.serve_workers()
        self.told(self.attach(self.program), 2)
        self.program.process.kill()
        self.check_taken_over()

    def test_the_first_one_ends(self):
        self.serve_workers()
        open(self.program.path + '.over', 'w').close()
        self.assertEqual(self.program.process.wait(), 0)
        self.check_taken_over()

    def test_one_after_the_other(self):
        self.serve_workers(WORKERS.replace('range(2)', 'range(4)'))
        self.program.process.kill()
        while len(self.workers) > 1:
            client = self.attach_again()
            leader, = set(self.workers).difference(
                self.told(client, len(self.workers) - 1))
            os.kill(leader, signal.SIGKILL)
            self.workers.remove(leader)
        self.check_taken_over()

    def test_a_daemon(self):
        program = self.serve("""
import os, signal, sys, time
def work():
    time.sleep(0.01)  # work
if not os.fork():
    os.setsid()
    pid = os.fork()
    if pid:
        print pid
        print 'forked'
        sys.stdout.flush()
        os._exit(0)
    signal.alarm(100)
    os.chdir('/')
    for number in range(1024):
        try:
            os.close(number)
        except OSError:
            pass
    os.open(os.devnull, os.O_RDWR)
    os.dup(0)
    os.dup(0)
    while not os.path.exists(sys.argv[0] + '.over'):
        work()
    sys.exit()
""")
        program.wrote('forked\n')
        self.assertEqual(program.ended()[1], 0)
        self.program, self.workers = program, [int(program.out.split()[0])]
        client = self.attach_again()
        self.break_at(client, program, '# work')
        self.assertEqual(client.stopped(), 'breakpoint work:4')
        self.assertEqual(client.evaluate('os.getpid()'), str(self.workers[0]))
        client.ask('disconnect')
        open(program.path + '.over', 'w').close()
        self.eventually(lambda: not self.left())

    def test_the_heir_leaves_nothing(self):
        self.serve_workers(WORKERS.replace('while True', 'while os.path.exists(sys.argv[0])')
                           .replace('run()\n    workers', 'run()\n        sys.exit()\n    workers'))
        self.told(self.attach(self.program), 2)
        self.program.process.kill()
        self.attach_again().ask('disconnect')
        os.rename(self.program.path, self.program.path + '.away')
        self.eventually(lambda: not self.left())

    def test_what_killed_trees_have_left_is_removed(self):
        self.serve_workers()
        self.told(self.attach(self.program), 2)
        self.end_workers()
        self.program.process.kill()
        self.assertNotEqual([name for name in self.left() if 'tree' in name], [])
        program = self.serve(WORKERS)
        program.wrote('forked\n')
        self.workers = map(int, program.out.split('\n')[0].split())
        self.assertEqual(len([name for name in self.left() if name.endswith('hub')]), 1)


class NewProgramsTest(TestCase):

    def setUp(self):
        TestCase.setUp(self)
        harness.need_interpreter_alone(self)

    def test_a_new_program_is_reached(self):
        self.script(WORKERS, 'other.py')
        self.serve_workers("""
import subprocess, sys
other = subprocess.Popen([sys.executable, '-u', sys.argv[0].replace('prog.py', 'other.py')],
                         stdout=subprocess.PIPE)
sys.stdout.write(other.stdout.readline())
print 'forked'
other.wait()
""")
        client = self.attach(self.program)
        told = self.told(client, 3)
        self.assertEqual(set(said['name'] for said in told.values()), set(['other.py']))
        other, = set(told).difference(self.workers)
        self.workers.append(other)
        worker = self.opened(dap_session.Client(self.program.port, self.program.token))
        worker.begin({'subProcessId': self.workers[0]})
        path = self.program.path.replace('prog.py', 'other.py')
        worker.ask('setBreakpoints', source={'path': path}, breakpoints=[{'line': 3}])
        worker.ask('configurationDone')
        self.assertEqual(worker.stopped(), 'breakpoint work:3')

    def test_a_program_that_starts_itself_again(self):
        program = self.serve("""
import os, sys, time
number = int(os.environ.get('NUMBER', 0))
def work():
    time.sleep(0.01)  # work
if number < 2:
    os.environ['NUMBER'] = str(number + 1)
    os.execv(sys.executable, [sys.executable] + sys.argv)
print 'again'
while not os.path.exists(sys.argv[0] + '.over'):
    work()
""")
        program.wrote('again\n')
        self.program = program
        client = self.attach_again()
        self.break_at(client, program, '# work')
        self.assertEqual(client.stopped(), 'breakpoint work:5')
        self.assertEqual(client.evaluate('number, os.getpid()'), repr((2, program.process.pid)))
        client.ask('disconnect')
        open(program.path + '.over', 'w').close()
        self.assertEqual(program.ended(), ('again\n', 0))
        self.assertEqual(self.left(), [])


class Elsewhere(object):
    """A way to a program on another machine: the names of its files mean nothing here."""

    def __init__(self, port):
        self._to = port
        self._listener = socket.socket()
        self._listener.bind(('127.0.0.1', 0))
        self._listener.listen(5)
        self.port = self._listener.getsockname()[1]
        self.came = 0
        thread = threading.Thread(target=self._run)
        thread.setDaemon(True)
        thread.start()

    def close(self):
        self._listener.close()

    def _run(self):
        ways = {}
        while True:
            for readable in select.select([self._listener] + ways.keys(), [], [])[0]:
                if readable is self._listener:
                    here = readable.accept()[0]
                    there = socket.create_connection(('127.0.0.1', self._to))
                    ways[here], ways[there] = there, here
                    self.came += 1
                    continue
                data = readable.recv(65536)
                if data:
                    ways[readable].sendall(data.replace('/sorrel/tree-', '/sorrel/eert-'))
                else:
                    ways[readable].shutdown(socket.SHUT_WR)
                    del ways[readable]


class AdapterTest(TestCase):

    def attach_by_adapter(self, port, initialize=(), **arguments):
        self.serve_workers()
        if arguments.get('tokenFile'):
            arguments['tokenFile'] = self.program.token_path
        self.adapter = self.opened(dap_session.Adapter())
        self.adapter.ask('initialize', adapterID='morvik', **dict(initialize))
        self.adapter.ask('attach', port=port(), **arguments)
        self.adapter.event('initialized')
        self.break_at(self.adapter, self.program, '# work')
        self.adapter.ask('configurationDone')
        return self.adapter

    def check_workers(self):
        """Each worker stops in the one session."""
        found = set()
        while len(found) < 2:
            stop = self.adapter.event('stopped')
            self.assertEqual(stop['reason'], 'breakpoint')
            self.adapter.thread = stop['threadId']
            found.add(int(self.adapter.evaluate('os.getpid()')))
            self.adapter.go()
        self.assertEqual(sorted(found), sorted(self.workers))

    def test_workers_are_debugged_in_the_session_of_the_first_process(self):
        adapter = self.attach_by_adapter(lambda: self.program.port)
        self.check_workers()
        os.kill(self.program.process.pid, signal.SIGKILL)
        self.check_workers()
        self.break_at(adapter, self.program)
        self.end_workers()
        adapter.event('terminated')

    def test_workers_elsewhere_are_reached_at_the_one_address(self):
        ways = []

        def port():
            ways.append(self.opened(Elsewhere(self.program.port)))
            return ways[0].port
        adapter = self.attach_by_adapter(port, tokenFile=True)
        self.check_workers()
        self.assertEqual(ways[0].came, 3)
        adapter.ask('disconnect')
        adapter.read_all()
        # All are free again.
        self.told(self.attach(self.program), 2)

    def test_a_client_that_can_begins_sessions_of_its_own(self):
        adapter = self.attach_by_adapter(
            lambda: self.program.port, {'supportsStartDebuggingRequest': True})
        asked = set()
        while len(asked) < 2:
            request = adapter._next(lambda message: message['type'] == 'request', 'request')
            self.assertEqual(request['command'], 'startDebugging')
            configuration = request['arguments']['configuration']
            other = self.opened(dap_session.Adapter())
            adapter.send({'type': 'response', 'seq': 1000, 'request_seq': request['seq'],
                          'command': 'startDebugging', 'success': True})
            other.begin(configuration)
            self.break_at(other, self.program, '# work')
            other.ask('configurationDone')
            self.assertEqual(other.stopped(), 'breakpoint work:3')
            asked.add(int(other.evaluate('os.getpid()')))
            other.ask('disconnect')
        self.assertEqual(sorted(asked), sorted(self.workers))
