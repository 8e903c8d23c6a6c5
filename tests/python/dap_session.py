"""Programs that editors debug, and a plain client that says what it likes to them."""

import json
import os
import re
import resource
import select
import signal
import socket
import subprocess
import time

import harness
from sorrel.protocol import capabilities

PATIENCE = 60

# Starts the server as the command does, with other patience than it has for real clients.
_HASTY = '''
import sys
from sorrel import main
from sorrel.server.network import network_thread
network_thread.PATIENCE, network_thread.BEGIN_PATIENCE = %r, %r
sys.exit(main.main(sys.argv[1:]))
'''
# The same for the adapter.
_HASTY_ADAPTER = '''
import sys
from sorrel import main
from sorrel.adapter import children
children.ANSWER_PATIENCE = %r
sys.exit(main.main(['dap']))
'''


def is_alive(pid):
    """Whether the process runs; one that nobody has waited for yet has ended, too."""
    try:
        state = open('/proc/%d/stat' % pid).read().rpartition(')')[2].split()[0]
    except IOError:
        return False
    return state != 'Z'


def hostile_bodies():
    """Of messages that take very long, or much memory, to find out about when they are read."""
    yield '[%s]' % ('9' * 3000000)
    yield '[0.%s]' % ('9' * 3000000)
    yield '[' + '[],' * 34000 + '"'
    yield '[' + '[],' * 5000000 + '[]]'
    yield '[' + '{},' * 5000000 + '{}]'
    yield '[' + '0,' * 5000000 + '0]'
    yield '{"type": "event", "x": "' + '\\' * 16000000
    yield '{"type": "event", "x": "' + '\\"' * 8000000
    yield '{"type": "event", "x": "' + '\\u0041' * 2000000 + '"}'
    yield '"' * 16000000
    yield '[' * 16000000
    yield '{"":' * 4000000
    yield ']' * 16000000


def announced():
    """What a program tells everybody, as it arrives."""
    return json.loads(json.dumps(capabilities.announced()))


class Ended(object):
    """A process that does not outlive the test."""

    def __init__(self, process):
        self._process = process

    def close(self):
        if self._process.poll() is None:
            self._process.kill()
            self._process.wait()


class Killed(object):
    """A process that does not outlive the test."""

    def __init__(self, pid):
        self._pid = pid

    def close(self):
        try:
            os.kill(self._pid, signal.SIGKILL)
        except OSError:
            pass


class TestCase(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        # Programs that are killed leave their tokens there.
        os.environ['XDG_RUNTIME_DIR'] = self.folder
        self._opened = []

    def tearDown(self):
        for opened in reversed(self._opened):
            opened.close()
        harness.TestCase.tearDown(self)

    def serve(self, text, *options, **how):
        """Runs the text of a program that listens. patience: the server's with its clients."""
        return self.opened(Program(self.script(text, 'prog.py'), options, **how))

    def connect(self, program):
        """A client that has said nothing yet, and knows the token."""
        return self.opened(Client(program.port, program.token))

    def attach(self, program, *marks, **arguments):
        """A client whose breakpoints are on the lines with these marks; the program runs."""
        client = self.connect(program)
        client.begin(arguments)
        self.break_at(client, program, *marks)
        client.ask('configurationDone')
        return client

    def break_at(self, client, program, *marks):
        return client.ask('setBreakpoints', source={'path': program.path}, breakpoints=[
            {'line': program.line(mark)} for mark in marks])['breakpoints']

    def opened(self, thing):
        """Is closed when the test is over."""
        self._opened.append(thing)
        return thing


class Process(object):
    """A process that ends with the test at the latest."""

    def __init__(self, arguments, limit=None, **streams):
        """limit: a limit of the system's for it, and what that is."""
        def prepare():
            os.setsid()
            if limit is not None:
                resource.setrlimit(*limit)
        environment = dict(os.environ, PYTHONUNBUFFERED='1')
        self.process = subprocess.Popen(
            [harness.launcher()] + arguments, env=environment, stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, preexec_fn=prepare, close_fds=True, **streams)
        self.out = ''

    def wrote(self, text):
        """Waits until the process has written this."""
        end = time.time() + PATIENCE
        while text not in self.out:
            more = ''
            if select.select([self.process.stdout], [], [], max(0, end - time.time()))[0]:
                more = os.read(self.process.stdout.fileno(), 65536)
            if not more:
                raise AssertionError('no %r in %r' % (text, self.out))
            self.out += more

    def ended(self):
        """Waits for the end; returns (all that was written to stdout, the exit status)."""
        end = time.time() + PATIENCE
        while select.select([self.process.stdout], [], [], max(0, end - time.time()))[0]:
            more = os.read(self.process.stdout.fileno(), 65536)
            if not more:
                return self.out, self.process.wait()
            self.out += more
        raise AssertionError('it has not ended: %r' % self.out)

    def close(self):
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except OSError:
            pass
        self.process.wait()
        for stream in (self.process.stdin, self.process.stdout, self.process.stderr):
            if stream is not None:
                stream.close()


class Program(Process):
    """One that listens for clients."""

    # How it is started where there is no patience to be given.
    start = ['-m', 'sorrel.main', 'serve']

    def __init__(self, path, options=(), args=(), patience=None, begin_patience=60.0, limit=None):
        self.path = path
        start = self.start if patience is None else [
            '-c', _HASTY % (patience, begin_patience), 'serve']
        Process.__init__(self, start + ['--listen', '0'] + list(options) + ['--', path]
                         + list(args), limit, stderr=subprocess.PIPE)
        said = self.process.stderr.readline()
        self.port = int(re.match(r'sorrel: listening on 127\.0\.0\.1:(\d+)\n$', said).group(1))
        said = self.process.stderr.readline()
        self.token, self.token_path = re.match(
            r'sorrel: token (\w+), also in (.*)\n$', said).groups()

    def line(self, mark):
        """The number of the line with this mark."""
        for number, text in enumerate(open(self.path), 1):
            if mark in text:
                return number
        raise AssertionError('no line with %r' % mark)

    def errors(self):
        """What else it has written to stderr, when it has ended."""
        errors = self.process.stderr.read()
        # A debug build says one thing more as it ends.
        return re.sub(r'\[\d+ refs\]\n', '', errors)


class Refusal(Exception):
    """The message of an answer that tells of no success."""


class Peer(object):
    """Whoever speaks the protocol: with `_send(data)` and `_receive(seconds)`, '' for the end."""

    def __init__(self):
        self._held = ''
        self._seq = 0
        self.messages = []

    # Messages.

    def send(self, message):
        body = json.dumps(message)
        self._send('Content-Length: %d\r\n\r\n%s' % (len(body), body))

    def request(self, command, arguments=None):
        """Sends a request without waiting for its answer; returns its number."""
        self._seq += 1
        message = {'seq': self._seq, 'type': 'request', 'command': command}
        if arguments is not None:
            message['arguments'] = arguments
        self.send(message)
        return self._seq

    def answer(self, number):
        """The whole answer to a request."""
        return self._next(lambda message: message['type'] == 'response'
                          and message['request_seq'] == number, 'answer to %d' % number)

    def ask(self, command, **arguments):
        """The body of the answer. Raises Refusal."""
        answer = self.answer(self.request(command, arguments))
        if not answer['success']:
            raise Refusal(answer['message'])
        return answer.get('body')

    def refusal(self, command, **arguments):
        """Why a request is refused."""
        try:
            body = self.ask(command, **arguments)
        except Refusal as refusal:
            return refusal.args[0]
        raise AssertionError('%s was answered: %r' % (command, body))

    def event(self, name):
        """The body of the next event of this name."""
        return self._next(lambda message: message.get('event') == name,
                          'event %s' % name).get('body')

    def has(self, name):
        """Whether there is an event of this name; waits for a moment."""
        is_there = lambda: [one for one in self.messages if one.get('event') == name]
        if not is_there() and select.select([self.socket], [], [], 0.05)[0]:
            self._read(time.time() + PATIENCE)
        return bool(is_there())

    def output(self, text):
        """Waits until the program has written this to its standard output; it may come in pieces."""
        seen = ''
        while text not in seen:
            event = self.event('output')
            if event['category'] == 'stdout':
                seen += event['output']
        return seen

    def read_all(self):
        """Everything until the connection ends."""
        end = time.time() + PATIENCE
        while self._read(end):
            pass
        messages, self.messages = self.messages, []
        return messages

    def _next(self, is_wanted, what):
        end = time.time() + PATIENCE
        while True:
            for message in self.messages:
                if is_wanted(message):
                    self.messages.remove(message)
                    return message
            if not self._read(end):
                raise AssertionError('the connection has ended, no %s: %r' % (what, self.messages))

    def _read(self, end):
        data = self._receive(max(0, end - time.time()))
        self._held += data
        while True:
            header, found, rest = self._held.partition('\r\n\r\n')
            if not found:
                break
            length = int(re.match(r'Content-Length: (\d+)$', header).group(1))
            if len(rest) < length:
                break
            self.messages.append(json.loads(rest[:length]))
            self._held = rest[length:]
        return data != ''

    # Sessions.

    def begin(self, arguments, command='attach'):
        """Up to where breakpoints are set."""
        self.ask('initialize', adapterID='morvik')
        self.ask(command, **arguments)
        self.event('initialized')

    def stopped(self):
        """Waits for the next stop; where it is, such as "breakpoint work:12"."""
        stop = self.event('stopped')
        while stop.get('preserveFocusHint'):
            stop = self.event('stopped')  # Others wait again for the one that had stopped.
        self.thread = stop['threadId']
        frame = self.top()
        return '%s %s:%d' % (stop['reason'], frame['name'], frame['line'])

    def top(self):
        """The innermost frame of the thread that has stopped last."""
        return self.ask('stackTrace', threadId=self.thread, levels=1)['stackFrames'][0]

    def go(self, command='continue'):
        return self.ask(command, threadId=self.thread)

    def step(self, command='next'):
        self.go(command)
        return self.stopped()

    def evaluate(self, expression, context='watch'):
        return self.ask('evaluate', expression=expression, context=context,
                        frameId=self.top()['id'])['result']

    def variables(self, reference, **more):
        return self.ask('variables', variablesReference=reference, **more)['variables']

    def scope(self, name='Locals'):
        scopes = self.ask('scopes', frameId=self.top()['id'])['scopes']
        return [scope for scope in scopes if scope['name'] == name][0]['variablesReference']

    def variable(self, name, scope='Locals'):
        for variable in self.variables(self.scope(scope)):
            if variable['name'] == name:
                return variable
        raise AssertionError('no variable %s' % name)


class Client(Peer):
    """A client over a socket."""

    def __init__(self, port, token=None):
        """port: or the path of a socket. token: shown with every request to attach."""
        Peer.__init__(self)
        self._token = token
        if isinstance(port, str):
            self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
            self.socket.connect(port)
        else:
            self.socket = socket.create_connection(('127.0.0.1', port), PATIENCE)
            self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._send = self.socket.sendall

    def request(self, command, arguments=None):
        if command == 'attach' and self._token is not None and isinstance(arguments, dict):
            arguments = dict(arguments, token=self._token)
        return Peer.request(self, command, arguments)

    def _receive(self, seconds):
        self.socket.settimeout(seconds or 0.001)
        try:
            return self.socket.recv(65536)
        except socket.timeout:
            raise AssertionError('nothing more comes: %r' % self.messages)
        except socket.error:
            return ''

    def is_hung_up(self):
        """Waits until the other side has; whether it had nothing to say."""
        return self.read_all() == []

    def close(self):
        self.socket.close()


class Adapter(Peer, Process):
    """The adapter, as an editor starts it."""

    def __init__(self, answer_patience=None, **streams):
        """answer_patience: its own with its client."""
        Peer.__init__(self)
        Process.__init__(self, ['-m', 'sorrel.main', 'dap'] if answer_patience is None
                         else ['-c', _HASTY_ADAPTER % answer_patience], **streams)

    def _send(self, data):
        self.process.stdin.write(data)
        self.process.stdin.flush()

    def _receive(self, seconds):
        out = self.process.stdout
        if not select.select([out], [], [], seconds)[0]:
            raise AssertionError('nothing more comes: %r' % self.messages)
        return os.read(out.fileno(), 65536)

    def launch(self, **arguments):
        """Up to where breakpoints are set."""
        self.begin(arguments, 'launch')
