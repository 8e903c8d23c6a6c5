"""A terminal for a program that runs already: shows what that writes, and sends what is typed.

The front end runs in the program (sorrel.terminal.attached). It sends events: `output` with a
text; `prompt` with one: a line is wanted. It gets: `line` with a text; `end` at the end of input;
`interrupt`.
"""

from __future__ import absolute_import

import errno
import select
import signal
import socket
import sys
import time

from sorrel.common.terminal_encoding import TerminalEncoding
from sorrel.processes import running
from sorrel.protocol import messages
from sorrel.protocol.launch_callers import Handshake

_READ_AT_ONCE = 65536
# How long the program may take to connect when the server has begun in it, in seconds.
_PATIENCE = 10.0
_LOOK = 0.1


class Left(Exception):
    """The program has hung up."""


def attach(pid):
    """Returns when the program has been left, or has ended. Raises running.CannotAttach."""
    handshake = Handshake()
    try:
        running.bring_server(pid, 'sorrel.terminal', handshake.path)
        connection = _connection(pid, handshake)
    finally:
        handshake.close()
    try:
        _Terminal(connection).run()
    except Left:
        pass
    finally:
        connection.close()


def _connection(pid, handshake):
    end = time.time() + _PATIENCE
    while time.time() < end:
        connection = handshake.look(select.select(handshake.sockets(), [], [], _LOOK)[0])
        if connection is not None:
            return connection
        why = running.complaint(pid, handshake.path)
        if why:
            raise running.CannotAttach(why)
    raise running.CannotAttach(running.why_no_answer(pid))


class _Terminal(object):

    def __init__(self, connection):
        self._connection = connection
        self._decoder = messages.Decoder(messages.FROM_PROGRAM)
        self._encoding = TerminalEncoding(sys.stdin, sys.stdout)
        self._is_asking = self._is_interrupted = False
        signal.signal(signal.SIGINT, self._interrupt)
        if sys.stdin.isatty():
            try:
                import readline
                readline.get_history_length()  # Lines are edited from now on.
            except ImportError:
                pass  # A host built without it.

    def run(self):
        """Raises Left."""
        while True:
            if self._is_interrupted:
                self._is_interrupted = False
                self._send('interrupt')
            for message in self._received():
                self._carry_out(message)

    def _interrupt(self, number, frame):
        """Ctrl-C, which is for the program unless it waits for a line."""
        if self._is_asking:
            raise KeyboardInterrupt
        self._is_interrupted = True

    def _received(self):
        try:
            data = self._connection.recv(_READ_AT_ONCE)
            if not data:
                raise Left
            return self._decoder.feed(data)
        except socket.error as error:
            if error.args[0] == errno.EINTR:
                return []
            raise Left
        except messages.Broken:
            raise Left

    def _carry_out(self, message):
        said = message.get('text', u'').encode('utf-8')
        if message.get('event') == 'output':
            sys.stdout.write(self._encoding.shown(said))
            sys.stdout.flush()
        elif message.get('event') == 'prompt':
            self._ask(said)

    def _ask(self, prompt):
        line = None
        while line is None:
            try:
                self._is_asking = True
                line = raw_input(prompt)
                self._is_asking = False
            except KeyboardInterrupt:
                self._is_asking = False
                sys.stdout.write('\n--KeyboardInterrupt--\n')
            except EOFError:
                self._is_asking = False
                self._send('end')
                return
        self._send('line', self._encoding.typed(line))

    def _send(self, event, said=''):
        try:
            self._connection.sendall(messages.encode(
                {'type': 'event', 'event': event, 'text': said.decode('utf-8', 'replace')}))
        except socket.error:
            raise Left
