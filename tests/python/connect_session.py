"""The terminal over programs that listen for editors."""

import re
import socket
import subprocess

import dap_session
import harness
import sorrel_session

PROMPT = sorrel_session.PROMPT
WELCOME = ('Connected to process N, prog.py. It stops at the next line of Python code that it '
           'runs, Ctrl-D leaves it.\n')
# Has the client wait for other times than a person would.
_HASTY = '''
import sys
from sorrel import main
from sorrel.remote import frontend, session
session.PATIENCE = frontend.PATIENCE = %r
sys.exit(main.main(['connect'] + sys.argv[1:]))
'''


class Screen(sorrel_session.Screen):
    """The terminal of a person who connects to `program`, a place."""

    def command(self, program, args, options):
        return [harness.launcher(), '-m', 'sorrel.main', 'connect', program]


class TestCase(sorrel_session.TestCase, dap_session.TestCase):

    def wait_for_client(self, text, *options):
        """A program that runs when its client has come."""
        return self.serve(text, '--wait', *options)

    def start_client(self, place, patience=None, **files):
        start = ['-m', 'sorrel.main', 'connect'] if patience is None else ['-c', _HASTY % patience]
        process = self.popen(start + [place], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, **files)
        self.opened(dap_session.Ended(process))
        return process

    def client(self, place, *commands, **how):
        """(what a person sees at this place, the errors, the exit status)."""
        process = self.start_client(place, **how)
        out, errors, status = self.finish(
            process, ''.join([command + '\n' for command in commands]))
        return re.sub(r'process \d+', 'process N', out), errors, status

    def place(self, program):
        return '127.0.0.1:%d' % program.port

    def assert_connected(self, program, session, status=0):
        """Types what follows each prompt in the session, and sees just what is written there.

        The session is indented by four blanks, and begins after the welcome.
        """
        session = ''.join([line[4:] + '\n' for line in session.splitlines()[1:-1]])
        commands = re.findall(r'^\(sorrel\) ?(.*)$', session, re.M)
        out, errors, ended = self.client(
            self.place(program), *[command for command in commands if command != '^D'])
        self.assertEqual(out[:len(WELCOME)], WELCOME)
        answers = out[len(WELCOME):].split(PROMPT)
        seen = answers[0]
        for command, answer in zip(commands + ['^D'] * len(answers), answers[1:]):
            seen += PROMPT + command + '\n' + answer
        if seen != session:
            self.fail('expected:\n%s\nseen:\n%s' % (session, seen))
        self.assertEqual((errors, ended), ('', status))

    def open_screen(self, program):
        screen = Screen(self, self.place(program))
        self.opened(screen)
        return screen


class Impostor(object):
    """Whoever listens where a program is expected, and has clients that say what they like."""

    def __init__(self):
        self._listener = socket.socket()
        self._listener.bind(('127.0.0.1', 0))
        self._listener.listen(1)
        self.place = '127.0.0.1:%d' % self._listener.getsockname()[1]
        self.accepted = None

    def accept(self):
        self._listener.settimeout(dap_session.PATIENCE)
        self.accepted = _Accepted(self._listener.accept()[0])
        return self.accepted

    def close(self):
        self._listener.close()
        if self.accepted is not None:
            self.accepted.socket.close()


class _Accepted(dap_session.Peer):

    def __init__(self, connected):
        dap_session.Peer.__init__(self)
        self.socket = connected
        self.say = self._send = connected.sendall

    _receive = dap_session.Client._receive.im_func

    def requested(self, command):
        """Waits for a request; returns its number."""
        return self._next(lambda message: message.get('command') == command,
                          'request ' + command)['seq']

    def answer_to(self, command, **body):
        self.send({'type': 'response', 'seq': 1, 'request_seq': self.requested(command),
                   'command': command, 'success': True, 'body': body})

    def tell(self, name, **body):
        self.send({'type': 'event', 'seq': 1, 'event': name, 'body': body})

    def let_in(self):
        """Up to where the client waits for a stop."""
        self.answer_to('initialize')
        self.answer_to('attach')
        self.tell('initialized')
        self.answer_to('setExceptionBreakpoints')
        self.answer_to('configurationDone')
