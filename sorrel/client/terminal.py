"""A terminal for a program that runs already: shows what that writes, and sends what is typed.

The front end runs in the program (sorrel.terminal.attached). It sends events: `output` with a
text; `prompt` with one: a line is wanted, whose words can be completed or not; `completions`, what
a word may become. It gets: a `command` for each line of the person's start-up files, and `begin`;
then `line` with a text; `end` at the end of input; `complete` with a word and the line that it is
in; `interrupt`.
"""

from __future__ import absolute_import

import errno
import select
import signal
import socket
import sys
import time

from sorrel.common import start_files
from sorrel.common.decoding import text
from sorrel.common.line_editing import LineEditor
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


def attach(pid, just_my_code):
    """Returns when the program has been left, or has ended. Raises running.CannotAttach."""
    handshake = Handshake()
    try:
        running.bring_server(pid, 'sorrel.terminal', handshake.path)
        connection = _connection(pid, handshake)
    finally:
        handshake.close()
    try:
        _Terminal(connection).run(just_my_code)
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
        # What has come while completions were waited for, of which each has a number.
        self._received_before = []
        self._last_number = 0
        self._editor = None
        signal.signal(signal.SIGINT, self._interrupt)
        if sys.stdin.isatty():
            try:
                import readline
                self._editor = LineEditor(readline)
            except ImportError:
                pass  # A host built without it.

    def run(self, just_my_code):
        """Raises Left."""
        self._begin(just_my_code)
        while True:
            if self._is_interrupted:
                self._is_interrupted = False
                self._send('interrupt')
            received, self._received_before = self._received_before, []
            for message in received or self._received():
                self._carry_out(message)

    def _begin(self, just_my_code):
        lines, complaints = start_files.read()
        for line, name, number in lines:
            self._send('command', line, file=name, number=number)
        self._send('begin', complaints=map(text, complaints), justMyCode=just_my_code)

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
            self._ask(said, message.get('completes'))

    def _ask(self, prompt, completes):
        line = None
        while line is None:
            try:
                self._is_asking = True
                line = self._line(prompt, completes)
                self._is_asking = False
                if line is None:
                    self._send('end')
                    return
            except KeyboardInterrupt:
                self._is_asking = False
                sys.stdout.write('\n--KeyboardInterrupt--\n')
        self._send('line', self._encoding.typed(line))

    def _line(self, prompt, completes):
        """None at the end of input."""
        if self._editor is not None:
            return self._editor.edit(
                prompt, self._complete if completes else None, sys.stdin, sys.stdout)
        try:
            return raw_input(prompt)
        except EOFError:
            return None

    def _complete(self, word, line, begin, end):
        self._last_number += 1
        try:
            self._send('complete', word, line=text(line), begin=begin, end=end,
                       number=self._last_number)
            while True:
                for message in self._received():
                    if message.get('event') != 'completions':
                        self._received_before.append(message)
                    elif message['number'] == self._last_number:
                        return [found.encode('utf-8') for found in message['words']]
        except KeyboardInterrupt:
            self._send('interrupt')
            return []

    def _send(self, event, said='', **more):
        try:
            self._connection.sendall(messages.encode(
                dict(more, type='event', event=event, text=text(said))))
        except socket.error:
            raise Left
