"""Processes that a launched program starts: in sessions of their own, or merged into its."""

import os
import re
import select
import signal
import socket
import subprocess
import time

import dap_session
from dap_session import is_alive, Killed
from sorrel.protocol import launch_handshake, messages

# Takes the place of what a program starts: it listens, and is told of by whoever has started it.
CHILD = '''
import time
running = True
def work():
    count = 0
    while running:
        count += 1  # work
        time.sleep(0.01)
work()
'''
PROGRAM = '''
import os, time
print 'pid', os.getpid()
running = True
while running:
    time.sleep(0.01)  # loop
'''
# Ends when it is told so, and then has a child write, and end, when that is told so.
LEAVING = '''
import fcntl, os, sys, time
def wait(word):
    while not os.path.exists(sys.argv[0] + word):
        time.sleep(0.01)
if os.fork():
    wait('.leave')
    os._exit(0)
print 'pid', os.getpid()
wait('.over')
fcntl.fcntl(1, 1031, 1 << 20)  # Makes room for all of it.
os.write(1, 'x' * 100000 + 'over')
os._exit(0)
'''


class ChildrenTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.adapter = self.opened(dap_session.Adapter(stderr=subprocess.PIPE))
        self.path = self.script(PROGRAM)
        self.child_path = self.script(CHILD, 'worker.py')

    def launch(self, initialize=(), *marks, **arguments):
        adapter = self.adapter
        adapter.ask('initialize', adapterID='morvik', **dict(initialize))
        adapter.ask('launch', program=self.path, **arguments)
        adapter.event('initialized')
        adapter.ask('configurationDone')
        self.pid = adapter.event('process')['systemProcessId']
        self.opened(Killed(self.pid))

    def handshake_file(self):
        """The program was started with it."""
        words = open('/proc/%d/cmdline' % self.pid).read().split('\0')
        return words[words.index('--handshake') + 1]

    def start_child(self):
        """One that listens; returns (its process, its socket)."""
        place = os.path.join(self.folder, 'child.sock')
        child = self.opened(dap_session.Process(
            ['-m', 'sorrel.main', 'serve', '--listen', 'unix:' + place, '--wait', '--',
             self.child_path], stderr=subprocess.PIPE))
        child.process.stderr.readline()
        return child, place

    def announce(self, child, place, **other):
        connection = launch_handshake.connect(self.handshake_file())
        connection.sendall(messages.encode(dict({
            'type': 'child', 'processId': child.process.pid, 'parentProcessId': self.pid,
            'name': 'worker.py', 'socket': place}, **other)))
        connection.settimeout(dap_session.PATIENCE)
        self.assertEqual(connection.recv(1), '')
        connection.close()

    def break_in_child(self, client=None):
        line = 1 + CHILD.splitlines().index('        count += 1  # work')
        return (client or self.adapter).ask(
            'setBreakpoints', source={'path': self.child_path},
            breakpoints=[{'line': line}])['breakpoints'][0]

    def asked_to_debug(self):
        """The adapter's request."""
        return self.adapter._next(lambda message: message['type'] == 'request'
                                  and message['command'] == 'startDebugging', 'startDebugging')

    def answer_asked(self, request, success):
        self.adapter.send({'type': 'response', 'seq': 1000, 'request_seq': request['seq'],
                           'command': 'startDebugging', 'success': success})

    def launch_unanswered(self):
        """A client that can begin sessions, but does not answer; returns a child and its socket."""
        self.adapter = self.opened(dap_session.Adapter(0.5, stderr=subprocess.PIPE))
        self.launch({'supportsStartDebuggingRequest': True})
        child, place = self.start_child()
        return child, place

    def test_a_child_is_merged_stops_and_outlives_the_program(self):
        adapter = self.adapter
        self.launch(evaluationTimeout=7)
        breakpoint = self.break_in_child()
        self.assertEqual(breakpoint['verified'], False)
        child, place = self.start_child()
        self.announce(child, place)
        stop = adapter.event('stopped')
        self.assertEqual((stop['reason'], stop['allThreadsStopped'], stop['hitBreakpointIds']),
                         ('breakpoint', False, [breakpoint['id']]))
        self.assert_(stop['threadId'] >= 1 << 30)
        self.assertEqual(adapter.event('breakpoint')['breakpoint']['verified'], True)
        adapter.thread = stop['threadId']
        self.assertEqual(adapter.top()['name'], 'work')
        self.assertEqual(adapter.variable('count')['value'], '0')
        self.assert_in({'id': stop['threadId'], 'name': 'MainThread [%d]' % child.process.pid},
                       adapter.ask('threads')['threads'])
        # The program runs meanwhile, and its end is not the child's.
        self.assert_(is_alive(self.pid))
        os.kill(self.pid, 9)
        self.assertEqual(adapter.event('exited'), {'exitCode': 137})
        self.assert_(adapter.refusal('stackTrace', threadId=1))
        adapter.ask('setBreakpoints', source={'path': self.child_path}, breakpoints=[])
        adapter.evaluate('globals().update(running=False)', 'repl')
        self.assertEqual([message for message in adapter.messages
                          if message.get('event') == 'terminated'], [])
        self.assertEqual(adapter.go(), {'allThreadsContinued': True})
        adapter.event('terminated')
        self.assertEqual(child.process.wait(), 0)

    def test_a_client_that_can_is_asked_to_begin_a_session(self):
        adapter = self.adapter
        mappings = [{'localRoot': '/a', 'remoteRoot': '/b'}]
        self.launch({'supportsStartDebuggingRequest': True}, justMyCode=False,
                    pathMappings=mappings, stopOnEntry=False, subProcess=True, cwd=self.folder)
        child, place = self.start_child()
        self.announce(child, place)
        request = self.asked_to_debug()
        self.assertEqual((request['command'], request['arguments']), ('startDebugging', {
            'request': 'attach', 'configuration': {
                'type': 'sorrel', 'name': 'worker.py [%d]' % child.process.pid, 'socket': place,
                'justMyCode': False, 'pathMappings': mappings, 'subProcess': True}}))
        # It is merged where the client refuses.
        self.answer_asked(request, False)
        while adapter.event('thread')['threadId'] < 1 << 30:
            pass
        adapter.ask('disconnect')
        self.assertTrue(dap_session.harness.wait_until(
            lambda: not is_alive(self.pid) and not is_alive(child.process.pid),
            dap_session.PATIENCE))

    def test_a_child_is_merged_when_the_client_does_not_answer(self):
        child, place = self.launch_unanswered()
        adapter = self.adapter
        self.break_in_child()
        self.announce(child, place)
        request = self.asked_to_debug()
        self.assertEqual(adapter.stopped(), 'breakpoint work:7')
        # What the client says now comes too late, whether it has begun a session or not.
        self.answer_asked(request, True)
        late = self.opened(dap_session.Client(place))
        late.ask('initialize', adapterID='morvik')
        self.assertEqual(late.refusal('attach'), 'another client is debugging this program')
        self.assertEqual(adapter.step('continue'), 'breakpoint work:7')
        self.assertEqual(adapter.variable('count')['value'], '1')
        adapter.ask('disconnect')

    def test_a_session_that_the_client_has_begun_is_left_alone_though_it_does_not_answer(self):
        child, place = self.launch_unanswered()
        adapter = self.adapter
        session = self.opened(dap_session.Client(place))
        session.begin({})
        self.break_in_child(session)
        self.announce(child, place)
        self.asked_to_debug()
        session.ask('configurationDone')
        self.assertEqual(session.stopped(), 'breakpoint work:7')
        os.kill(self.pid, 9)
        adapter.event('exited')
        time.sleep(2)
        # Nothing is told: the child has stayed where it was.
        self.assertEqual(select.select([adapter.process.stdout], [], [], 0)[0], [])
        self.assertEqual([message['event'] for message in adapter.messages
                          if message.get('event') in ('terminated', 'thread')], [])
        self.assertEqual(session.step('continue'), 'breakpoint work:7')
        # Nobody has waited for it when it is known to have ended.
        child.process.kill()
        adapter.event('terminated')

    def test_rubbish_is_no_child_and_harms_nobody(self):
        adapter = self.adapter
        self.launch()
        child, place = self.start_child()
        self.announce(child, place, type='other')
        self.announce(child, place, processId='x')
        connection = launch_handshake.connect(self.handshake_file())
        connection.sendall('GET / HTTP/1.0\r\n\r\n')
        self.assertEqual(connection.recv(1), '')
        stranger = socket.create_connection(
            ('127.0.0.1', int(open(self.handshake_file()).read().split()[0])))
        stranger.sendall('x' * 32)
        self.announce(child, os.path.join(self.folder, 'none'))
        while 'is not debugged: cannot connect to' not in adapter.event('output')['output']:
            pass
        adapter.ask('threads')
        folder = os.path.dirname(self.handshake_file())
        adapter.ask('disconnect')
        self.assertTrue(dap_session.harness.wait_until(lambda: not os.path.exists(folder),
                                                       dap_session.PATIENCE))

    def test_all_that_a_child_has_written_is_told_when_it_ends_last(self):
        self.script(LEAVING)
        adapter = self.adapter
        self.launch({'supportsStartDebuggingRequest': True})
        child = int(re.search(r'pid (\d+)', adapter.output('\n')).group(1))
        self.opened(Killed(child))
        self.answer_asked(self.asked_to_debug(), True)
        open(self.path + '.leave', 'w').close()
        adapter.event('exited')
        adapter.process.send_signal(signal.SIGSTOP)
        try:
            open(self.path + '.over', 'w').close()
            self.assertTrue(dap_session.harness.wait_until(
                lambda: not os.path.exists('/proc/%d' % child), dap_session.PATIENCE))
        finally:
            adapter.process.send_signal(signal.SIGCONT)
        self.assert_(adapter.output('over').endswith('over'))
        adapter.event('terminated')

    def test_children_can_be_left_alone(self):
        self.launch(subProcess=False)
        self.assert_(not os.path.exists(self.handshake_file()))
        self.adapter.ask('disconnect')
