"""Programs that listen for clients because they have said so."""

import os
import socket

import dap_session
import harness
import public_case

# Works until it is told to end, by a line.
WORK = '''
import select, sys, time
def step(total):
    return total + 1  # work
def work():
    print 'works'
    sys.stdout.flush()
    total = 0
    while not select.select([sys.stdin], [], [], 0.01)[0]:
        total = step(total)
    sys.stdin.readline()
    print 'over'
    sys.stdout.flush()
'''
LISTENING = WORK + '''
import sorrel
print sorrel.listen(('127.0.0.1', 0))
work()
'''


class TestCase(public_case.TestCase):

    def go_on(self, program):
        program.process.stdin.write('\n')

    def assert_deaf(self, program):
        def is_refused():
            try:
                self.opened(dap_session.Client(program.port))
            except socket.error:
                return True
        self.assert_(harness.wait_until(is_refused))
        self.assert_(harness.wait_until(lambda: not os.path.exists(program.token_path)))

    def assert_debugged(self, program, count=1):
        """By so many clients, one after the other."""
        for _ in range(count):
            client = self.attach(program, '# work')
            self.assertEqual(client.stopped(), 'breakpoint step:%d' % program.line('# work'))
            client.ask('disconnect')
            client.read_all()


class ListenTest(TestCase):

    def test_clients_come_and_go(self):
        program = self.begin_listening(LISTENING)
        program.wrote("('127.0.0.1', %d)\nworks\n" % program.port)
        self.assert_debugged(program, 3)
        self.go_on(program)
        self.assertEqual(program.ended()[1], 0)
        self.assertEqual(program.errors(), '')
        self.assert_(not os.path.exists(program.token_path))

    def test_the_token_has_to_be_shown(self):
        program = self.begin_listening(LISTENING)
        stranger = self.opened(dap_session.Client(program.port))
        stranger.ask('initialize', adapterID='x')
        self.assert_in('token', stranger.refusal('attach'))

    def test_without_a_token(self):
        program = self.begin(LISTENING.replace(', 0))', ', 0), token=False)'))
        program.port, = program._says(r'sorrel: listening on 127\.0\.0\.1:(\d+)\n$')
        self.assertEqual(program.process.stderr.readline(),
                         'sorrel: whoever can connect can debug: there is no token\n')
        program.port, program.token = int(program.port), None
        self.assert_debugged(program)

    def test_a_file_for_the_token(self):
        path = os.path.join(self.folder, 'token')
        program = self.begin(LISTENING.replace(', 0))', ', 0), token_file=%r)' % path))
        program.port, = program._says(r'sorrel: listening on 127\.0\.0\.1:(\d+)\n$')
        self.assertEqual(program.process.stderr.readline(), 'sorrel: token in %s\n' % path)
        program.port, program.token = int(program.port), open(path).read().strip()
        self.assert_debugged(program)

    def test_a_socket_in_the_file_system(self):
        path = os.path.join(self.folder, 'socket')
        program = self.begin(LISTENING.replace("('127.0.0.1', 0)", repr('unix:' + path)))
        self.assertEqual(program.process.stderr.readline(),
                         'sorrel: listening on unix:%s\n' % path)
        program.wrote('unix:%s\nworks\n' % path)
        program.port, program.token = path, None
        self.assert_debugged(program, 2)
        self.go_on(program)
        self.assertEqual(program.ended()[1], 0)
        self.assert_(not os.path.exists(path))

    def test_in_another_thread_that_is_the_first_to_import(self):
        program = self.begin_listening(WORK + '''
import thread
def begin():
    import sorrel
    sorrel.listen(('localhost', 0))
thread.start_new_thread(begin, ())
work()
import threading
print threading.currentThread().getName()
''')
        client = self.attach(program, '# work')
        client.stopped()
        self.assertEqual([(one['id'], one['name']) for one in client.ask('threads')['threads']],
                         [(1, 'MainThread')])
        client.ask('disconnect')
        self.go_on(program)
        self.assert_in('over\nMainThread\n', program.ended()[0])

    def test_during_an_import_that_lasts(self):
        """The network thread needs no import lock."""
        self.script(LISTENING, 'lasting.py')
        program = self.begin_listening('import lasting\n')
        program.path = os.path.join(self.folder, 'lasting.py')
        self.assert_debugged(program, 2)
        self.go_on(program)
        self.assertEqual(program.ended()[1], 0)

    def test_again_after_the_program_has_closed_all_descriptors(self):
        program = self.begin_listening(WORK + '''
import os, sorrel, time
sorrel.listen(('127.0.0.1', 0))
os.closerange(3, 100)
print sorrel.wait_for_client
time.sleep(0.1)
sorrel.listen(('127.0.0.1', 0))
work()
''')
        program.listens()
        self.assert_debugged(program, 2)

    def test_a_process_that_listens_can_be_attached_to_by_its_id(self):
        program = self.begin_listening(LISTENING)
        adapter = self.opened(dap_session.Adapter())
        adapter.begin({'processId': program.process.pid})
        self.break_at(adapter, program, '# work')
        adapter.ask('configurationDone')
        adapter.stopped()
        client = self.connect(program)
        client.ask('initialize', adapterID='x')
        self.assertEqual(client.refusal('attach'), 'somebody debugs this program already')
        adapter.ask('disconnect')
        adapter.process.stdin.close()
        self.assertEqual(adapter.process.wait(), 0)
        client.close()
        self.assert_debugged(program, 2)

    def test_one_that_was_started_to_listen_can_listen_elsewhere(self):
        program = self.serve(LISTENING)
        other = self.opened(dap_session.Program.__new__(public_case.Program))
        other.process, other.path, other.out = program.process, program.path, ''
        other.listens()
        for one in program, other, program:
            # The other server may still be letting its client go.
            for _ in range(100):
                client = self.connect(one)
                client.ask('initialize', adapterID='x')
                if client.answer(client.request('attach', {}))['success']:
                    break
                client.close()
            client.ask('configurationDone')
            client.ask('disconnect')
            client.read_all()


class TwiceTest(TestCase):

    def test_listening_again(self):
        out = self.refusals('''\
first = sorrel.listen(('127.0.0.1', 0))
print sorrel.listen(('127.0.0.1', 0)) == first
print sorrel.listen((None, 0)) == first
print 'at', first[1]
refused(sorrel.listen, first)
refused(sorrel.listen, ('127.0.0.1', 0), token=False)
sorrel.stop()
again = sorrel.listen(first)
print again == first
sorrel.stop()
''')
        port = out.split()[3]
        refusal = 'Error: this program listens already, in another way: at 127.0.0.1:%s\n' % port
        self.assertEqual(out, 'True\nTrue\nat %s\n' % port + refusal * 2 + 'True\n')

    def test_stopping_again_and_too_early(self):
        self.assertEqual(self.refusals('''\
refused(sorrel.stop)
sorrel.listen(('127.0.0.1', 0))
refused(sorrel.stop)
refused(sorrel.stop)
'''), 'done: None\n' * 3)

    def test_waiting_too_early(self):
        refusal = 'Error: no client can come: the program does not listen\n'
        self.assertEqual(self.refusals('''\
print sorrel.is_client_connected()
refused(sorrel.wait_for_client)
print sorrel.is_client_connected()
sorrel.listen(('127.0.0.1', 0))
refused(sorrel.wait_for_client, 0.01)
refused(sorrel.wait_for_client, timeout=0)
sorrel.stop()
refused(sorrel.wait_for_client)
'''), 'False\n' + refusal + 'False\n' + 'done: False\n' * 2 + refusal)

    def test_what_is_no_address(self):
        self.assertEqual(self.refusals('''\
for address in (5679, None, ('127.0.0.1',), ('127.0.0.1', '5679'), (1, 5679),
                ('127.0.0.1', 65536), ('127.0.0.1', -1), ('127.0.0.1', True), '127.0.0.1:5679',
                'unix:', ''):
    refused(sorrel.listen, address)
refused(sorrel.listen, ('127.0.0.1', 0), token_file=3)
refused(sorrel.listen, ('127.0.0.1', 0), token=False, token_file='x')
'''), '''\
TypeError: an address is a (host, port) or 'unix:PATH', not 5679
TypeError: an address is a (host, port) or 'unix:PATH', not None
TypeError: an address is a (host, port) or 'unix:PATH', not ('127.0.0.1',)
TypeError: a port is a number, not '5679'
TypeError: a host is a string, not 1
ValueError: no port has the number 65536
ValueError: no port has the number -1
TypeError: a port is a number, not True
ValueError: not (host, port) nor unix:PATH: '127.0.0.1:5679'
ValueError: not (host, port) nor unix:PATH: 'unix:'
ValueError: not (host, port) nor unix:PATH: ''
TypeError: token_file must be the name of a file
ValueError: a file for a token, and no token
''')

    def test_where_it_cannot_listen(self):
        taken = socket.socket()
        taken.bind(('127.0.0.1', 0))
        taken.listen(1)
        self.script('short', 'token')
        os.chmod(os.path.join(self.folder, 'token'), 0600)
        out = self.refusals('''\
import os
refused(sorrel.listen, ('127.0.0.1', %d))
refused(sorrel.listen, ('no.such.host.invalid', 0))
refused(sorrel.listen, 'unix:' + __file__)
refused(sorrel.listen, ('127.0.0.1', 0), token_file=os.path.dirname(__file__) + '/token')
refused(sorrel.wait_for_client)
sorrel.listen(('127.0.0.1', 0))
print sorrel.wait_for_client(0)
''' % taken.getsockname()[1])
        lines = out.splitlines()
        self.assertEqual(lines[0], 'Error: cannot listen: [Errno 98] Address already in use')
        self.assert_(lines[1].startswith('Error: cannot listen: [Errno -'), lines[1])
        self.assertEqual(lines[2:], [
            'Error: cannot listen: prog.py is there, and no socket',
            'Error: cannot listen: no token in token: not 16 to 1000 letters and digits',
            'Error: no client can come: the program does not listen', 'False'])
        taken.close()

    def test_nothing_grows(self):
        self.assertEqual(self.refusals('''\
import gc, os, atexit, threading
def turn():
    for _ in range(3):
        sorrel.listen(('127.0.0.1', 0))
        sorrel.stop()
    gc.collect()
    return len(os.listdir('/proc/self/fd')), len(atexit._exithandlers), len(gc.get_objects())
turn()
first = turn()
for _ in range(10):
    last = turn()
print first[:2] == last[:2], last[2] - first[2] < 30
'''), 'True True\n')


class WaitTest(TestCase):

    def test_a_breakpoint_right_after_waiting_is_met(self):
        program = self.begin_listening('''
import sorrel
sorrel.listen(('127.0.0.1', 0))
print sorrel.is_client_connected()
print sorrel.wait_for_client(), sorrel.is_client_connected()
print 'here'  # here
print sorrel.wait_for_client()
''')
        client = self.attach(program, '# here')
        self.assertEqual(client.stopped(), 'breakpoint <module>:%d' % program.line('# here'))
        client.go()
        self.assertEqual(program.ended(), ('False\nTrue True\nhere\nTrue\n', 0))

    def test_ctrl_c_ends_it(self):
        program = self.begin_listening('''
import sorrel
sorrel.listen(('127.0.0.1', 0))
try:
    print 'waits'
    sorrel.wait_for_client()
except KeyboardInterrupt:
    print 'goes on'
''')
        program.wrote('waits\n')
        program.process.send_signal(2)
        self.assertEqual(program.ended(), ('waits\ngoes on\n', 0))

    def test_another_thread_that_ends_listening_ends_it(self):
        out = self.refusals('''\
import threading
sorrel.listen(('127.0.0.1', 0))
threading.Timer(0.1, sorrel.stop).start()
refused(sorrel.wait_for_client)
''')
        self.assertEqual(out, 'Error: no client can come: the program does not listen\n')

    def test_a_program_that_a_client_has_launched(self):
        adapter = self.opened(dap_session.Adapter())
        adapter.launch(program=self.script('''
import sorrel
print sorrel.is_client_connected(), sorrel.wait_for_client()
'''))
        adapter.ask('configurationDone')
        self.assertEqual(adapter.output('True True\n'), 'True True\n')


class StopTest(TestCase):

    def test_the_client_is_let_go(self):
        program = self.begin_listening('''
import sorrel, sys, threading
sorrel.listen(('127.0.0.1', 0))
def traces():
    return sys.gettrace() is not None
while True:
    sorrel.wait_for_client()
    print traces()  # here
    port = sorrel.stop()
    print traces(), sorrel.is_client_connected(), threading.activeCount()
    if sys.stdin.readline() == 'end\\n':
        break
    sorrel.listen(('127.0.0.1', 0))
''')
        for answer in 'again\n', 'end\n':
            client = self.attach(program, '# here')
            client.stopped()
            client.go()
            client.read_all()
            self.assert_deaf(program)
            program.process.stdin.write(answer)
            if answer == 'again\n':
                program.listens()
        self.assertEqual(program.ended(), ('True\nFalse False 1\n' * 2, 0))
        self.assertEqual(program.errors(), '')

    def test_it_is_typed_into_the_console(self):
        program = self.begin_listening(LISTENING)
        client = self.attach(program, '# work')
        client.stopped()
        client.request('evaluate', {'expression': 'sorrel.stop()', 'context': 'repl',
                                    'frameId': client.top()['id']})
        client.read_all()
        self.assert_deaf(program)
        self.go_on(program)
        self.assertEqual(program.ended()[1], 0)


class ImportTest(TestCase):

    def test_it_costs_nothing(self):
        out = self.refusals('''\
print sorted(name for name, module in sys.modules.items()
             if module is not None and name.partition('.')[0] in (
                 'sorrel', '_sorrel', 'tmorvik26_vs2012_x64', 'threading', 'socket', 'json'))
''')
        self.assertEqual(out, "['sorrel', 'sorrel.api']\n")

    def test_names_are_described(self):
        out = self.refusals('''\
print [name for name in sorrel.__all__ if not getattr(sorrel, name).__doc__]
''')
        self.assertEqual(out, '[]\n')

    def test_a_core_that_is_not_there(self):
        self.script('raise ImportError("not built")\n', '_sorrel.py')
        self.assertEqual(self.refusals('''\
refused(sorrel.listen, ('127.0.0.1', 0))
refused(sorrel.set_trace)
refused(sorrel.stop)
refused(sorrel.is_client_connected)
'''), 'Error: cannot load the debugger: not built\n' * 2 + 'done: None\ndone: False\n')


class ForkTest(TestCase):

    PROGRAM = WORK + '''
import os, sorrel
sorrel.listen(('127.0.0.1', 0))
%s
child = os.fork()
if not child:
    print sorrel.is_client_connected()
    sys.stdout.flush()
    sorrel.stop()
    sorrel.listen(('127.0.0.1', 0))
    work()
    os._exit(3)
print 'child %%d' %% (os.waitpid(child, 0)[1] >> 8)
work()
'''

    def test_a_child_listens_for_itself(self):
        program = self.begin_listening(self.PROGRAM % '')
        port, token, token_path = program.port, program.token, program.token_path
        program.listens()
        self.assertNotEqual(program.port, port)
        program.wrote('False\nworks\n')
        self.assert_debugged(program, 2)
        # The parent is in C code, and its own.
        parent = self.opened(dap_session.Client(port, token))
        parent.begin({})
        parent.ask('configurationDone')
        self.go_on(program)
        program.wrote('child 3\n')
        self.assert_(os.path.exists(token_path))
        parent.ask('disconnect')
        program.port, program.token = port, token
        self.assert_debugged(program)
        self.go_on(program)
        self.assertEqual(program.ended()[1], 0)
        self.assertEqual(program.errors(), '')

    def test_a_child_of_one_that_is_being_debugged(self):
        program = self.begin_listening(self.PROGRAM % 'sorrel.wait_for_client()')
        parent = self.attach(program, '# work')
        program.listens()
        self.assert_debugged(program, 2)
        self.go_on(program)
        program.wrote('child 3\n')
        self.assertEqual(parent.stopped(), 'breakpoint step:%d' % program.line('# work'))
        parent.ask('disconnect')
        self.go_on(program)
        self.assertEqual(program.ended()[1], 0)
        self.assertEqual(program.errors(), '')
