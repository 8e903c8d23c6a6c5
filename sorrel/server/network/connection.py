"""A socket and what goes through it, for a thread that waits for none."""

from __future__ import absolute_import

import collections
import errno

from sorrel.common.originals import socket, time
from sorrel.protocol import messages
from sorrel.protocol.descriptors import Descriptor

_RECEIVED_AT_ONCE = 65536
# A client that is gone without a word is noticed after a minute and a half, where that can be set.
_KEEP_ALIVE = (('TCP_KEEPIDLE', 60), ('TCP_KEEPINTVL', 10), ('TCP_KEEPCNT', 3))
# Taken now: a program may replace what the interpreter's modules offer.
_now = time.time


class Gone(Exception):
    """The other side has closed the connection."""


class Connection(object):
    """decoder: what makes messages of what is received.

    deaf_since: since when the other side has read nothing of what it is to get; None if it has.
    """

    def __init__(self, connected, limits):
        """connected: a socket. limits: those of the messages that are received."""
        _set_up(connected)
        self.descriptor = Descriptor(connected)
        self.decoder = messages.Decoder(limits)
        self.deaf_since = None
        self._seq = 0
        # What is to be sent: new frames; joined ones, the first from a place on.
        self._new = []
        self._joined = collections.deque()
        self._at = 0
        # In bytes, since the beginning.
        self._said = self._sent = 0
        # Functions, each with what has to be sent before it is called.
        self._when_sent = collections.deque()

    def unsent(self):
        return self._said - self._sent

    def number_said(self):
        """The number of the last message that has been said here."""
        return self._seq

    def go_on_from(self, number):
        """Messages up to this number have been said by somebody else."""
        self._seq = number

    def pass_on(self, data):
        """Says what is no message of its own."""
        if data:
            self._new.append(data)
            self._said += len(data)

    def say(self, message):
        """Returns the number of bytes that are to be sent."""
        self._seq += 1
        message['seq'] = self._seq
        frame = messages.encode(message)
        self._new.append(frame)
        self._said += len(frame)
        return len(frame)

    def when_sent(self, function):
        """Calls the function, in send(), when all that has been said has been sent."""
        self._when_sent.append((self._said, function))

    def send(self):
        """Sends what the other side takes now. Raises Gone."""
        if self._new:
            self._joined.append(''.join(self._new))
            self._new = []
        while self._joined and self._send_some():
            pass
        while self._when_sent and self._when_sent[0][0] <= self._sent:
            self._when_sent.popleft()[1]()

    def _send_some(self):
        """Whether more may be taken."""
        try:
            sent = self.descriptor.socket.send(buffer(self._joined[0], self._at))
        except socket.error as error:
            if not will_pass(error):
                raise Gone
            if self.deaf_since is None:
                self.deaf_since = _now()
            return False
        self.deaf_since = None
        self._sent += sent
        self._at += sent
        if self._at == len(self._joined[0]):
            self._joined.popleft()
            self._at = 0
        return True

    def receive(self):
        """Gives the decoder what has come. Raises Gone."""
        self.decoder.add(self.received())

    def received(self):
        """What has come, for whoever makes something of it. Raises Gone."""
        try:
            data = self.descriptor.socket.recv(_RECEIVED_AT_ONCE)
        except socket.error as error:
            if will_pass(error):
                return ''
            raise Gone
        if not data:
            raise Gone
        return data

    def finish(self):
        """Nothing more will be said."""
        self._shut_down(socket.SHUT_WR)

    def close(self):
        # Processes that the program has forked may hold the connection, too.
        self._shut_down(socket.SHUT_RDWR)
        self.descriptor.close()

    def _shut_down(self, how):
        if self.descriptor.is_there():
            try:
                self.descriptor.socket.shutdown(how)
            except socket.error:
                pass


def _set_up(connected):
    connected.setblocking(False)
    if connected.family == getattr(socket, 'AF_UNIX', None):
        return
    # A stop is told at once.
    connected.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    connected.setsockopt(socket.SOL_SOCKET, socket.SO_KEEPALIVE, 1)
    for name, value in _KEEP_ALIVE:
        if hasattr(socket, name):
            connected.setsockopt(socket.IPPROTO_TCP, getattr(socket, name), value)


def will_pass(error):
    """Whether it is worth trying again when the system says so."""
    return error.args[0] in (errno.EAGAIN, errno.EWOULDBLOCK, errno.EINTR,
                             errno.ECONNABORTED)
