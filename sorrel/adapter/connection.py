"""The two ends that the adapter stands between: its client, and the programs'."""

from __future__ import absolute_import

import os
import select
import socket

from sorrel.protocol import messages

_READ_AT_ONCE = 65536
# What a pipe that can be written to takes without waiting.
_WRITTEN_AT_ONCE = getattr(select, 'PIPE_BUF', 512)
# How long the client may take to read, and so may a program.
_DEAF_PATIENCE = 10.0


class ToClient(object):
    """is_lost: whether the client has left, or does not read, or says what is no message.

    log: the MessageLog, or None.
    """

    def __init__(self, client_in, client_out):
        self.is_lost = False
        self.log = None
        self._in = client_in
        self._out = client_out
        self._decoder = messages.Decoder()
        self._seq = 0

    def fileno(self):
        return self._in

    def read(self):
        """The messages that have come; to be called when there is something to read."""
        data = os.read(self._in, _READ_AT_ONCE)
        try:
            if data:
                return self._noted(self._decoder.feed(data))
        except messages.Broken:
            pass
        self.is_lost = True
        return []

    def _noted(self, said):
        for message in said if self.log is not None else ():
            self.log.note('client', message)
        return said

    def send(self, message):
        """Returns the message's number."""
        self._seq += 1
        message['seq'] = self._seq
        if self.log is not None:
            self.log.note('adapter', message)
        data = messages.encode(message)
        try:
            while data and not self.is_lost:
                if not select.select([], [self._out], [], _DEAF_PATIENCE)[1]:
                    self.is_lost = True
                    break
                data = data[os.write(self._out, data[:_WRITTEN_AT_ONCE]):]
        except (OSError, select.error):
            self.is_lost = True
        return self._seq


class ToProgram(object):
    """is_lost: whether the program has hung up, or does not read, or says what is no message; that
    last is `is_broken`.
    """

    def __init__(self, connected):
        connected.settimeout(_DEAF_PATIENCE)
        self.is_lost = self.is_broken = False
        self._socket = connected
        self._decoder = messages.Decoder(messages.FROM_PROGRAM)

    def fileno(self):
        return self._socket.fileno()

    def read(self):
        """The messages that have come; to be called when there is something to read."""
        try:
            data = self._socket.recv(_READ_AT_ONCE)
            if data:
                return self._decoder.feed(data)
        except messages.Broken:
            self.is_broken = True
        except socket.error:
            pass
        self.is_lost = True
        return []

    def send(self, message):
        if not self.is_lost:
            try:
                self._socket.sendall(messages.encode_as_received(message))
            except socket.error:
                self.is_lost = True

    def close(self):
        self._socket.close()
