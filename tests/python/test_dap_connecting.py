"""Programs that connect to an adapter, which waits for them."""

import os
import re
import socket
import subprocess

import dap_session
import public_case
from sorrel.protocol import secrets, token_proof

WORK = '''\
import os, sys
def double(number):
    return number * 2  # here
print double(21)
sys.stdout.flush()
'''
# Runs until its standard input ends.
WAITING = WORK + 'sys.stdin.read()\nprint "over", double(4)\n'
FORKING = WORK + '''
child = os.fork()
if not child:
    double(5)
    os._exit(0)
os.waitpid(child, 0)
'''
CALLING = 'import sorrel\nsorrel.connect(%s)\nprint sorrel.wait_for_client()\n' + WAITING


class Program(dap_session.Process):

    errors = dap_session.Program.errors.im_func


def was_hung_up_on(stranger):
    """Waits for that; whether nothing was said before."""
    try:
        return stranger.recv(100) == ''
    except socket.error:
        return True  # It had more to say.


class TestCase(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        os.chmod(self.folder, 0700)
        self.adapter = self.opened(dap_session.Adapter())

    def wait(self, listen=0, **arguments):
        """The adapter waits; sets `attach`, the request's number, and `port` and `token`."""
        self.adapter.ask('initialize', adapterID='morvik')
        self.attach = self.adapter.request('attach', dict(arguments, listen=listen))
        self.said = self.adapter.event('output')['output']
        self.port = int(re.search(r'--connect (\d+) PROGRAM\n', self.said).group(1))

    def connect(self, text, *options):
        """A program that connects to the adapter."""
        self.path = self.script(text, 'connecting.py')
        return self.opened(Program(
            ['-m', 'sorrel.main', 'serve', '--connect', str(self.port)] + list(options)
            + ['--', self.path], stderr=subprocess.PIPE))

    def configure(self, line=3, **more):
        """The breakpoint is set, and the program runs."""
        self.adapter.event('initialized')
        self.adapter.ask('setBreakpoints', source={'path': self.path},
                         breakpoints=[dict(more, line=line)])
        self.adapter.ask('configurationDone')

    def assert_debugged(self):
        self.configure()
        self.assertEqual(self.adapter.stopped(), 'breakpoint double:3')

    def stranger(self):
        return socket.create_connection(('127.0.0.1', self.port), dap_session.PATIENCE)


class ConnectTest(TestCase):

    def test_a_program_is_debugged_from_its_first_line_on(self):
        self.wait(stopOnEntry=True)
        program = self.connect(WORK)
        self.configure()
        self.assertEqual(self.adapter.stopped(), 'entry <module>:1')
        self.adapter.go()
        self.assertEqual(self.adapter.stopped(), 'breakpoint double:3')
        self.adapter.go()
        self.assertEqual(self.adapter.event('exited'), {'exitCode': 0})
        self.adapter.event('terminated')
        self.assertEqual(program.ended(), ('42\n', 0))
        self.assertTrue(self.adapter.answer(self.attach)['success'])

    def test_it_runs_on_when_the_client_goes(self):
        self.wait()
        program = self.connect(WAITING)
        self.assert_debugged()
        self.adapter.ask('disconnect')
        program.wrote('42\n')
        program.process.stdin.close()
        program.process.stdin = None
        self.assertEqual(program.ended(), ('42\nover 8\n', 0))

    def test_it_runs_when_the_client_goes_before_it_has_begun(self):
        self.wait()
        program = self.connect(WORK)
        self.adapter.event('initialized')
        self.adapter.close()
        self.assertEqual(program.ended(), ('42\n', 0))

    def test_what_it_forks_is_debugged_too(self):
        self.wait()
        self.connect(FORKING)
        self.configure(condition='number == 5')
        self.assertEqual(self.adapter.stopped(), 'breakpoint double:3')
        self.assertEqual(self.adapter.evaluate('number'), '5')
        self.adapter.go()
        self.adapter.event('terminated')

    def test_what_it_forks_is_left_alone_where_that_is_not_wanted(self):
        self.wait(subProcess=False)
        program = self.connect(FORKING)
        self.configure(condition='number == 5')
        self.adapter.event('terminated')
        self.assertEqual(program.ended(), ('42\n', 0))

    def test_a_host_and_a_port(self):
        self.wait({'host': 'localhost', 'port': 0})
        self.connect(WORK)
        self.assert_debugged()

    def test_the_client_may_go_before_a_program_has_come(self):
        self.wait()
        path = re.search('also in (.*)\n', self.said).group(1)
        self.assertEqual(os.stat(path).st_mode & 0777, 0600)
        self.adapter.ask('disconnect')
        self.assertEqual(self.adapter.answer(self.attach)['message'], 'the client has left')
        self.assertTrue(not os.path.exists(path))
        self.assert_raises(socket.error, None, self.stranger)

    def test_what_cannot_be(self):
        self.adapter.ask('initialize')
        taken = socket.socket()
        taken.bind(('127.0.0.1', 0))
        taken.listen(1)
        port = taken.getsockname()[1]
        for listen, why in (
                (port, 'cannot listen at 127.0.0.1:%d: Address already in use' % port),
                (70000, 'listen is no port'), ('x', 'listen is no whole number from 0 on'),
                ({'host': '127.0.0.1'}, 'listen.port is missing')):
            self.assertEqual(self.adapter.refusal('attach', listen=listen), why)
        self.assertEqual(self.adapter.refusal('attach', listen=0, processId=1),
                         'listen and processId do not go together')


class TokenTest(TestCase):

    def test_a_token_that_the_client_has_is_not_told(self):
        word = 'a' * 20
        self.wait(token=word)
        self.assert_not_in(word, self.said)
        path = os.path.join(self.folder, 'word')
        open(path, 'w').write(word)
        os.chmod(path, 0600)
        self.connect(WORK, '--token-file', path)
        self.assert_debugged()

    def test_a_file_for_the_token_is_made(self):
        path = os.path.join(self.folder, 'word')
        self.wait(tokenFile=path)
        self.assert_in('also in ' + path, self.said)
        self.connect(WORK, '--token-file', path)
        self.assert_debugged()

    def test_the_token_is_not_logged(self):
        log = os.path.join(self.folder, 'log')
        self.adapter.ask('initialize')
        self.adapter.request('attach', {'listen': 0, 'logToFile': log})
        self.adapter.event('output')
        word = re.search(r'token is (\w+)', self.adapter.event('output')['output']).group(1)
        self.adapter.ask('disconnect')
        self.assert_in('the token is ..., also in', open(log).read())
        self.assert_not_in(word, open(log).read())

    def test_strangers_are_told_nothing_and_keep_nobody_out(self):
        self.wait()
        silent = [self.stranger() for _ in range(25)]
        for said in 'Content-Length: 10\r\n\r\n' * 2, 'x' * 32:
            stranger = self.stranger()
            stranger.sendall(said)
            self.assertTrue(was_hung_up_on(stranger))
        guesser = self.stranger()
        guesser.sendall(secrets.new())
        adapters_word = guesser.recv(100)
        self.assertEqual(len(adapters_word), secrets.SIZE)
        guesser.sendall(token_proof.of_program('b' * 32, 'a' * 32, adapters_word))
        self.assertTrue(was_hung_up_on(guesser))
        self.connect(WORK)
        self.assert_debugged()
        del silent

    def test_what_one_has_shown_another_cannot_show_again(self):
        self.wait()
        word = str(re.search(r'token is (\w+)', self.said).group(1))
        for wrong in token_proof.of_adapter, \
                lambda token, own, other: token_proof.of_program(token, other, own):
            replayer = self.stranger()
            own = secrets.new()
            replayer.sendall(own)
            replayer.sendall(wrong(word, own, replayer.recv(100)))
            self.assertTrue(was_hung_up_on(replayer))

    def test_a_program_obeys_nobody_who_does_not_know_the_token(self):
        self.wait()
        path = re.search('also in (.*)\n', self.said).group(1)
        listener = socket.socket()
        listener.bind(('127.0.0.1', 0))
        listener.listen(1)
        self.port = listener.getsockname()[1]
        program = self.connect(WORK, '--token-file', path)
        impostor = listener.accept()[0]
        own = impostor.recv(secrets.SIZE)
        impostor.sendall(secrets.new())
        shown = impostor.recv(token_proof.PROOF_SIZE)
        self.assertEqual((len(own), len(shown)), (secrets.SIZE, token_proof.PROOF_SIZE))
        impostor.sendall('0' * token_proof.PROOF_SIZE)
        self.assertEqual(program.ended(), ('', 2))
        self.assertEqual(program.errors(), (
            'sorrel: cannot connect to 127.0.0.1:%d: who waits there does not know the token\n'
            % self.port))

    def test_nobody_waits(self):
        self.wait()
        path = re.search('also in (.*)\n', self.said).group(1)
        closed = socket.socket()
        closed.bind(('127.0.0.1', 0))
        self.port = closed.getsockname()[1]
        program = self.connect(WORK, '--token-file', path)
        self.assertEqual(program.ended(), ('', 2))
        self.assertEqual(program.errors(), (
            'sorrel: cannot connect to 127.0.0.1:%d: Connection refused\n' % self.port))

    def test_a_program_that_listens_is_no_adapter(self):
        listening = self.serve('import time\ntime.sleep(60)\n')
        self.port = listening.port
        program = self.connect(WORK)
        self.assertEqual(program.ended(), ('', 2))
        self.assert_in('no adapter waits there that knows the token', program.errors())


class CommandTest(TestCase):

    def refused(self, *words):
        process = self.opened(Program(
            ['-m', 'sorrel.__main__', '--connect', '1'] + list(words), stderr=subprocess.PIPE))
        self.assertEqual(process.ended(), ('', 2))
        return process.errors()

    def test_the_shorter_command_line(self):
        self.wait()
        self.path = self.script(WORK, 'prog.py')
        self.opened(Program(
            ['-m', 'sorrel.__main__', '--connect', 'localhost:%d' % self.port, self.path]))
        self.assert_debugged()

    def test_a_module(self):
        self.wait()
        self.path = self.script(WORK, 'prog.py')
        os.environ['PYTHONPATH'] += os.pathsep + self.folder
        self.opened(Program(
            ['-m', 'sorrel.__main__', '--connect', str(self.port), '-m', 'prog']))
        self.assert_debugged()

    def test_what_does_not_go_with_it(self):
        path = self.script(WORK)
        for option in '--wait', '--no-token', '--just-my-code', '--post-mortem':
            self.assertEqual(self.refused(option, path),
                             'sorrel: --connect and %s do not go together\n' % option)
        self.assert_in('--connect and --listen', self.refused('--listen', '1', path))


class CallTest(public_case.TestCase, TestCase):

    def setUp(self):
        public_case.TestCase.setUp(self)
        os.chmod(self.folder, 0700)
        self.adapter = self.opened(dap_session.Adapter())

    def call(self, text, *arguments):
        self.path = self.script(text, 'prog.py')
        return self.opened(public_case.Program(self.path, *arguments))

    def test_a_program_connects_by_itself(self):
        self.wait()
        program = self.call(CALLING % ("('127.0.0.1', %d)" % self.port))
        self.configure(line=6)
        self.assertEqual(self.adapter.stopped(), 'breakpoint double:6')
        self.adapter.ask('disconnect')
        program.wrote('True\n42\n')
        program.process.stdin.close()
        program.process.stdin = None
        self.assertEqual(program.ended(), ('True\n42\nover 8\n', 0))

    def test_stop_lets_the_client_go(self):
        self.wait()
        program = self.call(
            CALLING % ("('', %d), token=%r" % (
                self.port, str(re.search(r'token is (\w+)', self.said).group(1))))
            + 'sorrel.stop()\nprint sorrel.is_client_connected()\n')
        self.configure(line=1)
        program.process.stdin.close()
        program.process.stdin = None
        self.adapter.event('terminated')
        self.assertEqual(program.ended(), ('True\n42\nover 8\nFalse\n', 0))

    def test_what_cannot_be(self):
        closed = socket.socket()
        closed.bind(('127.0.0.1', 0))
        port = closed.getsockname()[1]
        self.assertEqual(self.refusals('''\
refused(sorrel.connect, ('127.0.0.1', %d))
refused(sorrel.connect, 'unix:/tmp/x')
refused(sorrel.connect, 5)
refused(sorrel.connect, ('', 5), token=5)
''' % port), '''\
Error: cannot connect to 127.0.0.1:%d: Connection refused
ValueError: an adapter waits at (host, port), not at 'unix:/tmp/x'
TypeError: an address is a (host, port) or 'unix:PATH', not 5
TypeError: token must be a string
''' % port)
