"""A conversation with a program: requests, whose answers are waited for, and its events."""

from __future__ import absolute_import

import collections
import time

from sorrel.common.decoding import text
from sorrel.protocol.messages import Refused
from sorrel.remote import shapes
from sorrel.remote.connection import Connection, Lost

# How long an answer may take that needs no code of the program; and how long one is still waited
# for that has been cancelled, in seconds.
PATIENCE = 10.0
_CANCEL_PATIENCE = 3.0
# Of what may run code of the program, nobody knows how long it takes.
_RUN_CODE = frozenset(('evaluate', 'variables', 'exceptionInfo', 'completions'))
_now = time.time


class Interrupted(Exception):
    """Ctrl-C, while the program was waited for."""


class Silent(Refused):
    """There is no answer in time."""


class Session(object):
    """Whatever waits raises Lost when the connection has ended, and Interrupted after Ctrl-C."""

    def __init__(self, connected, show_output):
        """connected: a socket. show_output: called with what an output event has to say."""
        self._connection = Connection(connected)
        self._show_output = show_output
        self._last_seq = 0
        # The number of the request whose answer is waited for, and that.
        self._awaited = self._response = None
        self._events = collections.deque()
        self._is_interrupted = False

    def interrupt(self):
        """Ctrl-C; for a signal handler."""
        self._is_interrupted = True
        self._connection.wake()

    def take_interrupt(self):
        """Whether there has been a Ctrl-C that nobody has heard of."""
        was, self._is_interrupted = self._is_interrupted, False
        return was

    def close(self):
        self._connection.close()

    def tell(self, command, **arguments):
        """Sends a request whose answer says nothing that is worth waiting for."""
        self._send(command, arguments)

    def ask(self, command, **arguments):
        """The body of the answer. Raises Refused, with what the program says; Silent."""
        return self._answer(command, self._send(command, arguments),
                            None if command in _RUN_CODE else PATIENCE)

    def evaluate(self, expression, context, frame):
        """The same for an evaluate request. frame: the number of a frame."""
        return self.ask('evaluate', expression=text(expression), context=context, frameId=frame)

    def next_event(self, seconds=None):
        """(name, body) of the next event that is no output; None where none comes in time.

        seconds: None for as long as it takes.
        """
        until = None if seconds is None else _now() + seconds
        while not self._events:
            if not self._take(until) and until is not None and _now() >= until:
                return None
            if self.take_interrupt():
                raise Interrupted
        return self._events.popleft()

    def _send(self, command, arguments):
        self._last_seq += 1
        self._connection.send({'type': 'request', 'seq': self._last_seq, 'command': command,
                               'arguments': arguments})
        return self._last_seq

    def _answer(self, command, seq, patience):
        self._awaited, self._response = seq, None
        until = None if patience is None else _now() + patience
        is_cancelled = False
        while self._response is None:
            if not self._take(until) and until is not None and _now() >= until:
                break
            if self.take_interrupt() and not is_cancelled:
                is_cancelled = True
                until = _now() + _CANCEL_PATIENCE
                self._send('cancel', {'requestId': seq})
        response, self._awaited = self._response, None
        if is_cancelled:
            raise Interrupted
        if response is None:
            raise Silent(u'it has not answered "%s" within %d seconds' % (command, patience))
        if not response['success']:
            raise Refused(response.get('message') or u'it has refused "%s"' % command)
        return shapes.answer_to(command, response)

    def _take(self, until):
        """Takes a message, if one comes by then. Whether one has come."""
        message = self._connection.receive(
            None if until is None else max(0.0, until - _now()))
        if message is None:
            return False
        kind = message['type']
        if kind == 'response':
            shapes.check_response(message)
            if message['request_seq'] == self._awaited:
                self._response = message
        elif kind == 'event':
            self._take_event(*shapes.of_event(message))
        elif kind == 'request':
            self._connection.send({
                'type': 'response', 'seq': 0, 'request_seq': message['seq'], 'success': False,
                'command': message['command'], 'message': 'there is no such request'})
        else:
            raise Lost(u'it has said what is no message of the protocol')
        return True

    def _take_event(self, name, body):
        if name == 'output':
            self._show_output(body['output'].encode('utf-8'))
        else:
            self._events.append((name, body))
