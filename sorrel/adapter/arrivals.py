"""The processes of a launched program that tell the adapter of themselves.

They come by the handshake that the program has come by. Then each says in one message who it is,
and where it listens.
"""

from __future__ import absolute_import

import collections
import socket
import time

from sorrel.protocol import messages

_PATIENCE = 10.0
# How long a process that has been forked, and has closed what it has inherited, may take to tell of
# itself, in seconds.
_SILENCE = 2.0
_MOST_PID = (1 << 31) - 1

# name: of what it runs. socket: the path at which it waits for whoever debugs it.
Arrival = collections.namedtuple('Arrival', 'pid parent name socket')


class _Speaker(object):

    def __init__(self, connected):
        connected.setblocking(False)
        self.socket = connected
        self.until = time.time() + _PATIENCE
        self._decoder = messages.Decoder(messages.FROM_STRANGER)

    def hear(self):
        """The message if it has been said, else None. Raises Broken where there will be none."""
        try:
            data = self.socket.recv(messages.FROM_STRANGER.size)
        except socket.error:
            data = ''
        if not data:
            raise messages.Broken('it has hung up')
        self._decoder.add(data)
        return self._decoder.take()


class Arrivals(object):

    def __init__(self, handshake):
        """handshake: the launch's, by which the program has come already."""
        self.folder = handshake.folder
        self._handshake = handshake
        self._speakers = []
        # Connections that processes have inherited, and when one has last done so.
        self._held = []
        self._forked = 0.0

    def sockets(self):
        """Those to wait for."""
        return self._handshake.sockets() + [
            speaker.socket for speaker in self._speakers] + self._held

    def are_any_to_come(self):
        """Whether there are processes that may still tell of themselves."""
        return bool(self._held) or time.time() < self._forked + _SILENCE

    def is_amid_any(self):
        """Whether look() is to be called though nothing comes."""
        return bool(self._speakers) or self._handshake.has_callers()

    def look(self, readable):
        """Returns an Arrival of each process that has come. Nobody is waited for."""
        found = []
        for held in [held for held in self._held if held in readable]:
            self._hear_of_forks(held)
        for speaker in list(self._speakers):
            try:
                message = speaker.hear() if speaker.socket in readable else None
            except messages.Broken:
                self._leave(speaker)
                continue
            if message is not None and message['type'] == 'processes':
                self._speakers.remove(speaker)
                self._held.append(speaker.socket)
            elif message is not None:
                self._leave(speaker)
                found += arrivals(message) if message['type'] == 'child' else []
            elif time.time() > speaker.until:
                self._leave(speaker)
        connection = self._handshake.look(readable)
        if connection is not None:
            self._speakers.append(_Speaker(connection))
        return found

    def _hear_of_forks(self, held):
        try:
            data = held.recv(4096)
        except socket.error:
            data = ''
        if data:
            self._forked = time.time()
        else:
            self._held.remove(held)
            held.close()

    def close(self):
        for held in self._held:
            held.close()
        del self._held[:]
        for speaker in list(self._speakers):
            self._leave(speaker)
        self._handshake.close()

    def _leave(self, speaker):
        self._speakers.remove(speaker)
        speaker.socket.close()


def arrivals(message):
    """A list of the one that the message tells of; of none where it does not say who that is."""
    numbers = [message.get(name) for name in ('processId', 'parentProcessId')]
    texts = [message.get(name) for name in ('name', 'socket')]
    if all(isinstance(said, unicode) for said in texts) \
            and all(type(said) in (int, long) and 0 < said <= _MOST_PID for said in numbers):
        return [Arrival(*(numbers + texts))]
    return []
