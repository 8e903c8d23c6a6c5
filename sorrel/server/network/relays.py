"""Clients that have come to one process for another one: what either says is passed on."""

from __future__ import absolute_import

from sorrel.common.originals import socket
from sorrel.protocol import messages
from sorrel.protocol.descriptors import above_streams
from sorrel.server.network.connection import Connection, Gone

# What one side has not read yet of what the other says may not grow without end.
_UNREAD_LIMIT = 1024 * 1024


class Relays(object):

    def __init__(self):
        # Pairs of connections.
        self._pairs = []

    def connections(self):
        return [connection for pair in self._pairs for connection in pair]

    def begin(self, stranger, path):
        """Takes over a Stranger who asks to attach, for who listens there. Raises EnvironmentError.
        """
        other = above_streams(lambda: socket.socket(socket.AF_UNIX, socket.SOCK_STREAM))
        try:
            # It may be stopped, and not take who comes.
            other.setblocking(False)
            other.connect(path)
            other = Connection(other, messages.FROM_CLIENT)
        except BaseException:
            other.close()
            raise
        connection = stranger.connection
        other.say({'type': 'relayed', 'introduction': stranger.introduction,
                   'attach': stranger.attach, 'said': connection.number_said()})
        other.pass_on(connection.decoder.left())
        self._pairs.append((connection, other))

    def reading(self):
        return [here.descriptor.number for here, there in self._ways()
                if there.unsent() < _UNREAD_LIMIT]

    def look(self, readable):
        for pair in list(self._pairs):
            try:
                for here, there in _ways(pair):
                    if here.descriptor.number in readable:
                        there.pass_on(here.received())
                for connection in pair:
                    connection.send()
            except Gone:
                self._end(pair)

    def look_after_descriptors(self):
        for pair in list(self._pairs):
            if not all(connection.descriptor.is_there() for connection in pair):
                self._end(pair)

    def close(self):
        for pair in list(self._pairs):
            self._end(pair)

    def _ways(self):
        return [way for pair in self._pairs for way in _ways(pair)]

    def _end(self, pair):
        self._pairs.remove(pair)
        for connection in pair:
            try:
                # The last that was said to the one that is still there.
                connection.send()
            except Gone:
                pass
            connection.close()


def _ways(pair):
    return pair, pair[::-1]
