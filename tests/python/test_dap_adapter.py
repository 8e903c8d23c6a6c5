"""The adapter that an editor starts: programs it launches, and what becomes of them."""

import os
import select
import signal
import socket
import subprocess
import thread
import time

import dap_session
from dap_session import is_alive, Killed
from sorrel.protocol import launch_callers, launch_handshake

PROGRAM = '''
import os, sys, time
running = True
print 'pid', os.getpid()
while running:
    time.sleep(0.001)  # loop
print 'over'
'''


class AdapterTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.adapter = self.opened(dap_session.Adapter(stderr=subprocess.PIPE))
        self.path = self.script(PROGRAM)

    def launched(self, *marks, **arguments):
        """Returns the program's process id; breakpoints are on the lines with these marks."""
        self.adapter.launch(program=self.path, **arguments)
        lines = open(self.path).read().splitlines()
        self.adapter.ask('setBreakpoints', source={'path': self.path}, breakpoints=[
            {'line': number} for number, line in enumerate(lines, 1)
            for mark in marks if mark in line])
        self.adapter.ask('configurationDone')
        pid = self.adapter.event('process')['systemProcessId']
        self._opened.append(Killed(pid))
        return pid

    def assert_ends(self, pid):
        self.assertTrue(dap_session.harness.wait_until(lambda: not is_alive(pid)))

    def assert_runs_on(self, pid):
        """The program runs, though nobody reads what it writes, and ends when it has to."""
        time.sleep(0.5)
        self.assertTrue(is_alive(pid))
        self.assertEqual(self.leave_adapter(), 0)
        self.assertTrue(is_alive(pid))

    def leave_adapter(self):
        """The exit status of the adapter when its client has left."""
        self.adapter.process.stdin.close()
        return self.adapter.process.wait()

    # Wrong words.

    def test_rubbish_ends_it(self):
        self.adapter._send('X' * 5000)
        self.assertEqual(self.adapter.read_all(), [])
        self.assertEqual(self.adapter.process.wait(), 0)

    def test_wrong_arguments_are_refused(self):
        adapter = self.adapter
        self.assertEqual(adapter.refusal('initialize', linesStartAt1=1),
                         'linesStartAt1 is neither true nor false')
        adapter.ask('initialize')
        self.assertEqual(adapter.refusal('initialize'), 'initialize comes once')
        for arguments, why in (
                ({}, 'name either a program, a module or code'),
                ({'program': 5}, 'program is no string'),
                ({'program': self.path, 'args': 'x y'}, 'args is no array'),
                ({'program': self.path, 'args': ['x', 1]}, 'args[1] is no string'),
                ({'program': self.path, 'env': {'A': 1}}, 'env.A is no string'),
                ({'program': self.path, 'cwd': []}, 'cwd is no string'),
                ({'program': self.path, 'hooks': [None]}, 'hooks[0] is no string'),
                ({'program': self.path, 'pythonArgs': ['-O', 'x']},
                 'pythonArgs: no options of the interpreter: -O x'),
                ({'program': self.path, 'pythonArgs': ['-m', 'x']},
                 'pythonArgs: no options of the interpreter: -m x'),
                ({'program': self.path, 'console': 'none'},
                 'console is none of externalTerminal, integratedTerminal, internalConsole'),
                ({'program': self.path, 'pathMappings': [{'localRoot': '/a'}]},
                 'pathMappings[0].remoteRoot is missing')):
            self.assertEqual(adapter.refusal('launch', **arguments), why)
        adapter.refusal('launch', program=self.path, args=['a\0b'])
        adapter.refusal('launch', program=self.path, env={'A': 'a\0b'})
        for place in {}, {'port': 1, 'socket': 'x'}:
            self.assertEqual(adapter.refusal('attach', **place),
                             'attach needs either a port, a socket, a processId or listen')
        self.assertEqual(adapter.refusal('attach', port='x'), 'port is no whole number from 0 on')
        for port in 1, 65536, 2000000000:
            self.assert_in('cannot connect to', adapter.refusal('attach', port=port))
        self.assert_in('cannot connect to', adapter.refusal('attach', port=1, host=u'\xe4'))
        for request in [], 5, 'x', None:
            adapter.answer(adapter.request('launch', request))
        for command in 'threads', 'configurationDone', 'nonsense':
            self.assertEqual(adapter.refusal(command), 'there is no program')
        # After all that a program can still be launched.
        self.script('print 1\n')
        adapter.ask('launch', program=self.path)
        adapter.ask('configurationDone')
        self.assertEqual(adapter.event('exited'), {'exitCode': 0})

    def test_a_program_that_cannot_be_read_is_refused_with_the_reason(self):
        self.adapter.ask('initialize')
        path = os.path.join(self.folder, 'none.py')
        self.assertEqual(
            self.adapter.refusal('launch', program=path),
            "can't open program '%s': No such file or directory" % path)
        self.assertEqual(
            self.adapter.refusal('launch', program='none.py', cwd=self.folder),
            "can't open program 'none.py' in %s: No such file or directory" % self.folder)
        self.assertEqual(
            self.adapter.refusal('launch', module='none_such', cwd=self.folder),
            'the program could not be started: No module named none_such')
        self.adapter.event('terminated')

    def test_a_folder_that_is_not_there_is_refused_by_its_attribute(self):
        self.adapter.ask('initialize')
        folder = os.path.join(self.folder, 'none')
        for console in 'internalConsole', 'integratedTerminal':
            self.assertEqual(
                self.adapter.refusal('launch', program=self.path, cwd=folder, console=console),
                'cwd does not exist: ' + folder)
        self.assertEqual(self.adapter.refusal('launch', program=self.path, cwd=self.path),
                         'cwd is not a folder: ' + self.path)
        # The adapter is there for the next one.
        self.adapter.ask('launch', program=self.path, cwd=self.folder)

    def test_who_connects_to_nobody_is_told_how_a_program_listens(self):
        self.adapter.ask('initialize')
        listener = socket.socket()
        listener.bind(('127.0.0.1', 0))
        port = listener.getsockname()[1]
        self.assertEqual(
            self.adapter.refusal('attach', port=port),
            'cannot connect to 127.0.0.1:%d: Connection refused. No program listens there; '
            'one does that is started with: ./morvik run --listen %d PROGRAM' % (port, port))
        listener.close()
        path = os.path.join(self.folder, 'none')
        self.assertEqual(
            self.adapter.refusal('attach', socket=path),
            'cannot connect to %s: No such file or directory. No program listens there; '
            'one does that is started with: ./morvik run --listen unix:%s PROGRAM' % (path, path))

    def test_options_that_the_interpreter_does_not_take_here_are_refused_with_the_reason(self):
        self.adapter.ask('initialize')
        self.assertEqual(
            self.adapter.refusal('launch', program=self.path, pythonArgs=['-i']),
            'the program could not be started: no such option: -i')
        self.adapter.event('terminated')

    # Ends.

    def test_exit_status_and_all_output_are_told(self):
        for text, status in (
                ('import sys\nsys.exit(3)', 3), ('import os\nos._exit(4)', 4), ('1/0', 1),
                ('import os\nos.kill(os.getpid(), 9)', 137), ('import os\nos.abort()', 134),
                ('import os\nos.execv("/bin/sh", ["sh", "-c", "exit 6"])', 6)):
            adapter = self.opened(dap_session.Adapter())
            path = self.script('print "x" * 100000\n' + text + '\n')
            adapter.launch(program=path)
            adapter.ask('configurationDone')
            self.assertEqual(adapter.event('exited'), {'exitCode': status}, text)
            adapter.event('terminated')
            written = ''.join(message['body']['output'] for message in adapter.messages
                              if message.get('event') == 'output'
                              and message['body']['category'] == 'stdout')
            self.assertEqual(written, 'x' * 100000 + '\n')
            adapter.close()

    def test_what_a_child_process_goes_on_writing_does_not_hold_up_the_end(self):
        path = self.script('import subprocess\nsubprocess.Popen(["sleep", "30"])\nprint 1\n')
        self.adapter.launch(program=path)
        self.adapter.ask('configurationDone')
        begun = time.time()
        self.adapter.event('terminated')
        self.assertTrue(time.time() - begun < 15)

    def test_disconnecting_ends_the_program(self):
        for marks in (), ('# loop',):
            self.adapter = self.opened(dap_session.Adapter())
            pid = self.launched(*marks)
            if marks:
                self.adapter.stopped()
            self.adapter.ask('disconnect')
            self.assert_ends(pid)
            self.adapter.event('terminated')
            self.assertEqual(self.leave_adapter(), 0)

    def test_disconnecting_can_leave_the_program_running(self):
        for marks in (), ('# loop',):
            self.adapter = self.opened(dap_session.Adapter())
            pid = self.launched(*marks)
            if marks:
                self.adapter.stopped()
            self.adapter.ask('disconnect', terminateDebuggee=False)
            self.assert_runs_on(pid)

    def test_disconnecting_from_a_program_deep_in_c(self):
        self.script('''
import ctypes
print 'sleeping'
ctypes.PyDLL(None).sleep(60)  # Holds the interpreter.
''')
        pid = self.launched()
        self.adapter.output('sleeping')
        self.adapter.ask('disconnect')
        self.assert_ends(pid)


    def test_an_editor_that_is_gone_before_the_start_leaves_no_process(self):
        self.adapter.launch(program=self.path)
        pid = self.adapter.event('process')['systemProcessId']
        self.assertEqual(self.leave_adapter(), 0)
        self.assert_ends(pid)

    def test_an_editor_that_does_not_read_does_not_stop_the_adapter_for_ever(self):
        self.script('''
while True:
    print 'x' * 100
''')
        # It counts as gone.
        pid = self.launched()
        self.assertTrue(dap_session.harness.wait_until(lambda: not is_alive(pid), 40))
        self.assertEqual(self.adapter.process.wait(), 0)

    # Who else is there.

    def test_others_that_connect_in_place_of_the_program_are_turned_away(self):
        adapter = self.adapter
        adapter.ask('initialize')
        number = adapter.request('launch', {'program': self.path})
        ports = []
        while not ports:
            ports = listening_ports(adapter.process.pid)
        strangers = []
        for said in ('', 'x', 'x' * 32, 'GET / HTTP/1.0\r\n\r\n'):
            stranger = socket.create_connection(('127.0.0.1', ports[0]), dap_session.PATIENCE)
            strangers.append(stranger)
            stranger.sendall(said)
        self.assertTrue(adapter.answer(number)['success'])
        adapter.ask('configurationDone')
        self.adapter.output('pid')
        for stranger in strangers:
            try:
                self.assertEqual(stranger.recv(100), '')
            except socket.error:
                pass  # Hung up on with something unread.
        adapter.ask('disconnect')

    def test_words_are_for_the_user_alone(self):
        made = launch_callers.Handshake()
        try:
            self.assertEqual(os.stat(os.path.dirname(made.path)).st_mode & 0777, 0700)
            words = open(made.path).read().split()
            self.assertEqual([len(word) for word in words[1:]], [32, 32])
            self.assertNotEqual(words[1], words[2])
        finally:
            made.close()
        self.assert_(not os.path.exists(os.path.dirname(made.path)))

    def test_wrong_words_are_hung_up_on_alike_and_late(self):
        made = launch_callers.Handshake()
        port, word, _ = open(made.path).read().split()
        other = word[:-1] + ('0' if word[-1] != '0' else '1')
        callers = []
        for said in 'x', 'x' * 32, other, other[::-1], 'x' * 100, word[:31]:
            caller = socket.create_connection(('127.0.0.1', int(port)), dap_session.PATIENCE)
            caller.sendall(said)
            callers.append(caller)
        begun = time.time()
        ends = {}
        while time.time() < begun + 5:
            self.assertEqual(made.look(select.select(made.sockets(), [], [], 0.05)[0]), None)
            for caller in select.select(callers, [], [], 0)[0]:
                ends.setdefault(caller, time.time() - begun)
        # Those that may still say the right word have not been told yet that they will not.
        self.assertEqual([caller in ends for caller in callers],
                         [False, True, True, True, True, False])
        self.assertTrue(0.9 < min(ends.values()) <= max(ends.values()) < 3, ends)
        made.close()

    def test_wrong_callers_do_not_keep_the_program_out(self):
        made = launch_callers.Handshake()
        port = open(made.path).read().split()[0]
        callers, program = [], []

        def connect():
            for number in range(50):
                callers.append(socket.create_connection(('127.0.0.1', int(port)),
                                                        dap_session.PATIENCE))
                callers[-1].sendall('x' * (number % 33))
            program.append(launch_handshake.connect(made.path))
        thread.start_new_thread(connect, ())
        end = time.time() + dap_session.PATIENCE
        found = None
        while found is None and time.time() < end:
            found = made.look(select.select(made.sockets(), [], [], 0.05)[0])
        self.assertTrue(found is not None)
        self.assertTrue(dap_session.harness.wait_until(lambda: program))
        program[0].sendall('hello')
        self.assertEqual(found.recv(5), 'hello')
        made.close()

    def test_a_program_does_not_trust_who_does_not_know_the_word(self):
        listener = socket.socket()
        listener.bind(('127.0.0.1', 0))
        listener.listen(1)
        path = self.script('%d %s %s' % (listener.getsockname()[1], 'a' * 32, 'b' * 32), 'words')
        process = subprocess.Popen(
            [dap_session.harness.launcher(), '-m', 'sorrel.main', 'serve', '--handshake', path,
             '--', self.path], stderr=subprocess.PIPE)
        connection = listener.accept()[0]
        self.assertEqual(connection.recv(100), 'a' * 32)
        connection.sendall('c' * 32)
        self.assert_in('who has started this program does not answer',
                       process.stderr.read())
        self.assertEqual(process.wait(), 2)


def listening_ports(pid):
    """The TCP ports that a process listens at."""
    own = set()
    for name in os.listdir('/proc/%d/fd' % pid):
        try:
            own.add(os.readlink('/proc/%d/fd/%s' % (pid, name)))
        except OSError:
            pass
    found = []
    for line in open('/proc/net/tcp').readlines()[1:]:
        fields = line.split()
        if fields[3] == '0A' and 'socket:[%s]' % fields[9] in own:
            found.append(int(fields[1].partition(':')[2], 16))
    return found
