"""Where a program listens, the token that it asks for, and how its clients come by that."""

import os
import socket
import stat
import subprocess
import time

import dap_session
import harness
from sorrel.protocol import tokens
from sorrel.server.network import listening

PROGRAM = '''
import os, sys, time
print 'ready'
sys.stdout.flush()
while not os.path.exists(__file__ + '.end'):
    time.sleep(0.001)  # loop
'''
WRONG = 'the token is missing, or it is not the one that this program has told its user'


def mode(path):
    return stat.S_IMODE(os.lstat(path).st_mode)


class Connected(object):
    """What find_token() wants to know of a socket."""

    def __init__(self, host, port, own='10.1.2.3'):
        self.getpeername = lambda: (host, port)
        self.getsockname = lambda: (own, 40000)


class TokenTest(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        os.chmod(self.folder, 0700)
        self.path = os.path.join(self.folder, 'token')
        os.environ['XDG_RUNTIME_DIR'] = self.folder

    def assert_refused(self, reason, function, *arguments):
        error = self.assert_raises(tokens.NoToken, None, function, *arguments)
        self.assert_in(reason, str(error))

    def test_a_new_one_is_for_its_user_alone(self):
        token = tokens.new_token(('127.0.0.1', 5679))
        self.assertEqual(token.path, os.path.join(self.folder, 'sorrel', '127.0.0.1-5679'))
        self.assertEqual((mode(token.path), mode(os.path.dirname(token.path))), (0600, 0700))
        self.assertEqual(open(token.path).read(), token.word + '\n')
        self.assertEqual(len(token.word), 32)
        int(token.word, 16)
        # What was left by a program that was killed is not used again.
        self.assertNotEqual(tokens.new_token(('127.0.0.1', 5679)).word, token.word)

    def test_it_is_removed_if_it_is_still_the_same(self):
        first = tokens.new_token(('127.0.0.1', 5679))
        second = tokens.new_token(('127.0.0.1', 5679))
        first.remove()
        self.assertTrue(os.path.exists(second.path))
        second.remove()
        self.assertTrue(not os.path.exists(second.path))
        second.remove()

    def test_a_file_that_was_there_is_read_and_stays(self):
        output = open(self.path, 'w')
        output.write('Secret0123456789\n')
        output.close()
        self.assert_refused('is not a file for this user alone', tokens.Token, self.path)
        os.chmod(self.path, 0600)
        token = tokens.Token(self.path)
        self.assertEqual(token.word, 'Secret0123456789')
        token.remove()
        self.assertTrue(os.path.exists(self.path))

    def test_files_that_hold_no_token(self):
        for content in '', 'short', 'x' * 2000, 'two words in a line', '\0' * 32:
            output = open(self.path, 'w')
            output.write(content)
            output.close()
            os.chmod(self.path, 0600)
            self.assert_refused('no token in', tokens.Token, self.path)
        for path in self.folder, '/dev/null':
            self.assert_refused('is not a file for this user alone', tokens.Token, path)
        self.assert_refused('cannot keep the token', tokens.Token, '/nowhere/token')
        self.assert_refused('no such file', tokens.read_token, '/nowhere/token')
        os.symlink(self.path, self.path + '2')
        self.assert_refused('cannot keep the token', tokens.Token, self.path + '2')

    def test_folders_that_others_have_prepared(self):
        folder = os.path.join(self.folder, 'sorrel')
        other = os.path.join(self.folder, 'other')
        os.mkdir(other, 0700)
        os.symlink(other, folder)
        self.assert_refused('is not for this user alone', tokens.new_token, ('127.0.0.1', 1))
        os.unlink(folder)
        os.mkdir(folder)
        os.chmod(folder, 0770)
        self.assert_refused('is not for this user alone', tokens.new_token, ('127.0.0.1', 1))
        self.assertEqual(os.listdir(folder), [])
        os.chmod(folder, 0700)
        if os.getuid() == 0:
            os.chown(folder, 12345, -1)
            self.assert_refused('is not for this user alone', tokens.new_token, ('127.0.0.1', 1))
            os.chown(folder, 0, -1)
        os.rmdir(folder)
        self.script('', 'sorrel')
        self.assert_refused('is not for this user alone', tokens.new_token, ('127.0.0.1', 1))

    def test_a_runtime_folder_that_is_open_to_others_is_not_used(self):
        os.chmod(self.folder, 0755)
        token = tokens.new_token(('127.0.0.1', 1))
        self.assertTrue(not token.path.startswith(self.folder))
        token.remove()

    def find(self, *address):
        return tokens.find_token(Connected(*address))

    def test_it_is_found_by_where_the_program_listens(self):
        token = tokens.new_token(('127.0.0.1', 5679))
        self.assertEqual(self.find('127.0.0.1', 5679), token.word)
        for address in (('127.0.0.1', 5678), ('127.0.0.2', 5679), ('::1', 5679),
                        ('10.9.9.9', 5679)):
            self.assertEqual(self.find(*address), None)
        os.chmod(token.path, 0644)
        self.assertEqual(self.find('127.0.0.1', 5679), None)
        os.chmod(token.path, 0600)
        os.chmod(os.path.dirname(token.path), 0755)
        self.assertEqual(self.find('127.0.0.1', 5679), None)

    def test_it_is_not_told_to_another_machine(self):
        token = tokens.new_token(('0.0.0.0', 5679))
        self.assertEqual(self.find('127.0.0.1', 5679), token.word)
        self.assertEqual(self.find('10.1.2.3', 5679, '10.1.2.3'), token.word)
        self.assertEqual(self.find('10.9.9.9', 5679), None)
        self.assertEqual(self.find('::1', 5679), None)
        token.remove()
        token = tokens.new_token(('::', 5679))
        self.assertEqual(self.find('127.0.0.1', 5679), token.word)
        self.assertEqual(self.find('::1', 5679), token.word)

    def test_the_newest_counts(self):
        old = tokens.new_token(('127.0.0.1', 5679))
        new = tokens.new_token(('0.0.0.0', 5679))
        os.utime(old.path, (1, 1))
        self.assertEqual(self.find('127.0.0.1', 5679), new.word)

    def test_what_arguments_show_it(self):
        token = tokens.Token(self.path)
        self.assertTrue(token.is_shown_by({'token': unicode(token.word)}))
        for arguments in (None, [], 'x', {}, {'token': None}, {'token': 5}, {'token': [token.word]},
                          {'token': u'\xe9' * 32}, {'token': token.word[:-1] + u'\xe9'}):
            self.assertTrue(not token.is_shown_by(arguments), arguments)


class ServedTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.path = self.script(PROGRAM, 'prog.py')
        self.token_path = os.path.join(self.folder, 'token')
        self.socket_path = os.path.join(self.folder, 'socket')

    def start(self, *options, **streams):
        process = dap_session.Process(
            ['-m', 'sorrel.main', 'serve'] + list(options) + ['--', self.path],
            **dict({'stderr': subprocess.PIPE}, **streams))
        return self.opened(process)

    def end(self, process):
        open(self.path + '.end', 'w').close()
        self.assertEqual(process.process.wait(), 0)

    def lines(self, process, count):
        return [process.process.stderr.readline() for _ in range(count)]

    def port(self, line):
        return int(line.rpartition(':')[2])

    def refusal(self, *options):
        """What it says instead of running the program."""
        process = self.start(*options)
        said = process.process.stderr.readline()
        self.assertEqual(process.ended(), ('', 2))
        return said

    def debug(self, client, **arguments):
        client.begin(arguments)
        client.ask('setBreakpoints', source={'path': self.path}, breakpoints=[{'line': 6}])
        client.ask('configurationDone')
        client.stopped()
        client.ask('disconnect')

    def adapter(self):
        return self.opened(dap_session.Adapter(stderr=subprocess.PIPE))

    # Tokens.

    def test_a_token_by_default(self):
        program = self.serve(PROGRAM)
        program.wrote('ready')
        self.assertEqual(open(program.token_path).read(), program.token + '\n')
        self.assertEqual(mode(program.token_path), 0600)
        self.assertEqual(mode(os.path.dirname(program.token_path)), 0700)
        stranger = self.opened(dap_session.Client(program.port))
        stranger.ask('initialize')
        self.assertEqual(stranger.refusal('attach'), WRONG)
        self.debug(self.connect(program))
        self.end(program)
        self.assertTrue(not os.path.exists(program.token_path))

    def test_a_token_in_a_file_that_is_named(self):
        process = self.start('--listen', '0', '--token-file', self.token_path)
        process.wrote('ready')
        said = self.lines(process, 2)
        # What it writes may be for others to read, too.
        self.assertEqual(said[1], 'sorrel: token in %s\n' % self.token_path)
        self.assertEqual(mode(self.token_path), 0600)
        token = open(self.token_path).read().strip()
        self.debug(self.opened(dap_session.Client(self.port(said[0]), token)))
        self.end(process)
        self.assertTrue(not os.path.exists(self.token_path))

    def test_a_token_that_is_given(self):
        output = os.fdopen(os.open(self.token_path, os.O_CREAT | os.O_WRONLY, 0600), 'w')
        output.write('GivenByMyself1234')
        output.close()
        process = self.start('--listen', '0', '--token-file', self.token_path)
        port = self.port(self.lines(process, 2)[0])
        self.debug(self.opened(dap_session.Client(port, 'GivenByMyself1234')))
        self.end(process)
        self.assertTrue(os.path.exists(self.token_path))

    def test_a_token_file_that_others_can_read_is_refused(self):
        self.script('GivenByMyself1234', 'token')
        os.chmod(self.token_path, 0644)
        self.assertEqual(self.refusal('--listen', '0', '--token-file', self.token_path),
                         'sorrel: %s is not a file for this user alone\n'
                         % self.token_path)

    def test_no_token(self):
        process = self.start('--listen', '0', '--no-token')
        said = self.lines(process, 2)
        self.assertEqual(said[1], 'sorrel: whoever can connect can debug: there is no token\n')
        self.debug(self.opened(dap_session.Client(self.port(said[0]))))
        self.end(process)

    def test_options_that_make_no_sense(self):
        for options, said in (
                (['--listen', '0', '--no-token', '--token-file', 'x'],
                 'needs at most one of --token-file and --no-token'),
                (['--handshake', 'x', '--no-token'],
                 '--token-file and --no-token go with --listen'),
                (['--listen', 'unix:'], 'not [HOST:]PORT nor unix:PATH: unix:')):
            self.assertEqual(self.refusal(*options), 'sorrel: %s\n' % said)

    def test_a_client_that_ends_the_program_leaves_no_token(self):
        program = self.serve(PROGRAM)
        client = self.connect(program)
        client.begin({})
        client.ask('disconnect', terminateDebuggee=True)
        program.process.wait()
        self.assertTrue(not os.path.exists(program.token_path))

    def test_processes_that_the_program_forks_leave_the_token_there(self):
        program = self.serve('''
import os, sys, time
if os.fork() == 0:
    sys.exit()
os.wait()
print 'ready'
time.sleep(60)
''')
        program.wrote('ready')
        self.assertTrue(os.path.exists(program.token_path))

    # The adapter.

    def test_the_adapter_finds_the_token(self):
        program = self.serve(PROGRAM)
        for arguments in ({'port': program.port}, {'connect': {'port': program.port}},
                          {'port': program.port, 'host': 'localhost'}):
            self.debug(self.adapter(), **arguments)

    def test_the_adapter_is_told_the_token(self):
        process = self.start('--listen', '0', '--token-file', self.token_path)
        port = self.port(self.lines(process, 2)[0])
        token = open(self.token_path).read().strip()
        for shown in {'token': token}, {'tokenFile': self.token_path}:
            self.debug(self.adapter(), port=port, **shown)
        for shown, why in (({}, WRONG), ({'token': 'x'}, WRONG), (
                {'tokenFile': self.path}, '%s is not a file for this user alone' % self.path), (
                {'tokenFile': '/nowhere'}, 'there is no token in /nowhere: no such file')):
            adapter = self.adapter()
            adapter.ask('initialize')
            os.chmod(self.path, 0644)
            self.assertEqual(adapter.refusal('attach', port=port, **shown), why)

    def test_attributes_that_only_the_editor_knows_are_not_passed_on(self):
        program = self.serve(PROGRAM)
        self.debug(self.adapter(), port=program.port, __editors=['x' * 100] * 1000)

    def test_the_adapter_answers_when_the_program_hangs_up(self):
        listener = socket.socket()
        listener.bind(('127.0.0.1', 0))
        listener.listen(1)
        adapter = self.adapter()
        adapter.ask('initialize')
        number = adapter.request('attach', {'port': listener.getsockname()[1]})
        listener.accept()[0].close()
        answer = adapter.answer(number)
        self.assertEqual((answer['success'], answer['message']),
                         (False, 'the program has hung up'))
        adapter.event('terminated')

    # Sockets in the file system.

    def connect_to_path(self):
        return self.opened(dap_session.Client(self.socket_path))

    def test_a_socket_that_only_its_user_can_connect_to(self):
        os.umask(0)
        process = self.start('--listen', 'unix:' + self.socket_path)
        self.assertEqual(self.lines(process, 1), ['sorrel: listening on unix:%s\n'
                                                  % self.socket_path])
        self.assertEqual(mode(self.socket_path), 0600)
        self.debug(self.connect_to_path())
        self.debug(self.adapter(), socket=self.socket_path)
        # It needs no token, but takes one.
        self.debug(self.adapter(), socket=self.socket_path, token='x')
        self.end(process)
        self.assertTrue(not os.path.exists(self.socket_path))

    def test_a_socket_with_a_token(self):
        process = self.start('--listen', 'unix:' + self.socket_path, '--token-file',
                             self.token_path)
        self.assertEqual(len(self.lines(process, 2)), 2)
        client = self.connect_to_path()
        client.ask('initialize')
        self.assertEqual(client.refusal('attach'), WRONG)
        self.debug(self.adapter(), socket=self.socket_path, tokenFile=self.token_path)

    def test_a_socket_that_is_left_is_replaced_and_others_are_not(self):
        process = self.start('--listen', 'unix:' + self.socket_path)
        self.lines(process, 1)
        self.assertEqual(self.refusal('--listen', 'unix:' + self.socket_path),
                         'sorrel: another program listens at %s\n' % self.socket_path)
        process.close()
        self.assertTrue(os.path.exists(self.socket_path))
        process = self.start('--listen', 'unix:' + self.socket_path)
        self.lines(process, 1)
        self.debug(self.connect_to_path())
        # It is no more the one that is there.
        os.unlink(self.socket_path)
        self.script('mine', 'socket')
        self.end(process)
        self.assertEqual(open(self.socket_path).read(), 'mine')
        self.assertEqual(self.refusal('--listen', 'unix:' + self.socket_path),
                         'sorrel: %s is there, and no socket\n' % self.socket_path)

    def test_paths_that_cannot_be(self):
        for path in '/nowhere/socket', self.socket_path + 'x' * 200:
            self.assert_in('sorrel: ', self.refusal('--listen', 'unix:' + path))
        adapter = self.adapter()
        adapter.ask('initialize')
        for path in '/nowhere/socket', self.socket_path, self.path, 'x' * 200, 'a\0b':
            self.assert_in('cannot connect to', adapter.refusal('attach', socket=path))

    def test_a_socket_of_a_busy_program_is_not_replaced(self):
        # Its backlog is full, and nobody takes who comes.
        listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        listener.bind(self.socket_path)
        listener.listen(0)
        callers = [socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) for _ in range(3)]
        for caller in callers:
            caller.setblocking(False)
            caller.connect_ex(self.socket_path)
        self.assert_in('%s is there' % self.socket_path,
                       self.refusal('--listen', 'unix:' + self.socket_path))

    # Standard streams.

    def free_port(self):
        probe = socket.socket()
        probe.bind(('127.0.0.1', 0))
        port = probe.getsockname()[1]
        probe.close()
        return port

    def attach_when_there(self, port):
        end = time.time() + dap_session.PATIENCE
        while True:
            try:
                socket.create_connection(('127.0.0.1', port)).close()
                break
            except socket.error:
                self.assertTrue(time.time() < end)
                time.sleep(0.05)
        return self.adapter()

    def assert_debugged(self, prepare):
        """With streams as prepare() leaves them; what the program wrote has met no client."""
        self.script('''
import os, sys, time
def write():
    for number in 0, 1, 2:
        try:
            os.write(number, 'stray')
        except OSError:
            pass
    try:
        print 'stray'
    except (IOError, ValueError):
        pass
def kind(number):
    try:
        return os.fstat(number).st_mode >> 12
    except OSError:
        return None
while not os.path.exists(__file__ + '.end'):
    write()
    kinds = map(kind, (0, 1, 2))
    time.sleep(0.001)  # loop
os._exit(0)
''', 'prog.py')
        port = self.free_port()

        def prepare_all():
            os.setsid()
            prepare()
        process = subprocess.Popen(
            [harness.launcher(), '-m', 'sorrel.main', 'serve', '--listen', str(port), '--',
             self.path], preexec_fn=prepare_all)
        self.opened(dap_session.Ended(process))
        for _ in range(3):
            adapter = self.attach_when_there(port)
            adapter.begin({'port': port})
            adapter.ask('setBreakpoints', source={'path': self.path}, breakpoints=[{'line': 21}])
            adapter.ask('configurationDone')
            adapter.stopped()
            # Where a stream is closed, something else is there while a client is let in.
            adapter.go()
            adapter.stopped()
            adapter.step()
            kinds = adapter.variable('kinds', 'Locals')['value']
            adapter.ask('disconnect')
            adapter.close()
        open(self.path + '.end', 'w').close()
        self.assertEqual(process.wait(), 0)
        return kinds

    def test_without_standard_streams(self):
        def prepare():
            for number in 0, 1, 2:
                os.close(number)
        # None for closed: that is what the program sees, too.
        self.assertEqual(self.assert_debugged(prepare), '[None, None, None]')

    def test_with_standard_output_closed(self):
        def prepare():
            os.close(1)
        self.assert_debugged(prepare)

    def test_with_standard_streams_on_a_full_device(self):
        def prepare():
            full = os.open('/dev/full', os.O_RDWR)
            for number in 0, 1, 2:
                os.dup2(full, number)
        self.assertEqual(self.assert_debugged(prepare), '[2, 2, 2]')

    def test_listening_on_a_path_named_from_a_folder_that_changes(self):
        made = listening.Listening(listening.Path(self.socket_path))
        os.chdir('/')
        made.remove()
        self.assertTrue(not os.path.exists(self.socket_path))
