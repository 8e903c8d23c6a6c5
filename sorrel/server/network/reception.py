"""Where strangers come to, and how many of them may be there at a time."""

from __future__ import absolute_import

from sorrel.common.errors import print_error
from sorrel.common.originals import time
from sorrel.server.network.authentication import Stranger
from sorrel.server.network.connection import Gone
from sorrel.server.network.door import Door

# So many have a conversation at a time. When more come the first ones go, but not before they had
# some time, in seconds: whoever has nothing to say does not keep others out.
_MOST_STRANGERS = 8
_STRANGER_TIME = 0.5
# Taken now: a program may replace what the interpreter's modules offer.
_now = time.time


def _nothing_to_show(arguments):
    return True


class Reception(object):
    """descriptor: the listener's."""

    def __init__(self, listener, patience, is_token_shown=None, is_kin=False):
        """listener: a socket. patience: how long a stranger may take to introduce itself and to
        attach, in seconds. is_token_shown: called with the arguments of a request to attach:
        whether to carry it out. is_kin: whether other processes of this one's tree come there, and
        speak for clients.
        """
        self._door = Door(listener)
        self.descriptor = self._door.descriptor
        self._patience = patience
        self._is_token_shown = is_token_shown or _nothing_to_show
        self._is_kin = is_kin
        # The oldest comes first.
        self._strangers = []

    def connections(self):
        return [stranger.connection for stranger in self._strangers]

    def reading(self):
        """The descriptors that are to be read when there is anything."""
        return [self.descriptor.number] * self._listens() + [
            stranger.connection.descriptor.number for stranger in self._strangers
            if stranger.is_heard()]

    def deadline(self):
        """When look() is to be called though nothing comes; None for never."""
        moments = [stranger.deadline() for stranger in self._strangers]
        if not self._listens():
            moments.append(self._listens_again())
        return min(moments) if moments else None

    def look_after_descriptors(self):
        """What the program has closed, and may use for itself, is not touched."""
        for stranger in list(self._strangers):
            if not stranger.connection.descriptor.is_there():
                self._send_away(stranger)

    def look(self, readable, let_in):
        """let_in: called with a stranger who asks to attach: whether it is no stranger any more."""
        for stranger in list(self._strangers):
            self._talk_to(
                stranger, stranger.connection.descriptor.number in readable, let_in)
        if self.descriptor.number in readable:
            self._accept()

    def close(self):
        for stranger in self._strangers:
            stranger.connection.close()
        self.descriptor.close()

    def _listens(self):
        return _now() >= self._listens_again()

    def _listens_again(self):
        if len(self._strangers) < _MOST_STRANGERS:
            return self._door.closed_until
        return max(self._door.closed_until, self._strangers[0].since + _STRANGER_TIME)

    def _accept(self):
        connected = self._door.let_in()
        if connected is None:
            return
        if len(self._strangers) >= _MOST_STRANGERS:
            self._send_away(self._strangers[0])
        try:
            self._strangers.append(Stranger(
                connected, self._patience, self._is_token_shown, self._is_kin))
        except EnvironmentError:
            connected.close()  # It has gone by now.

    def _talk_to(self, stranger, has_said_something, let_in):
        try:
            if has_said_something:
                stranger.hear()
            if stranger.attach is not None and let_in(stranger):
                self._strangers.remove(stranger)
                return
            if stranger.connection.unsent():
                stranger.connection.send()
            stranger.look_at_clock()
        except Gone:
            self._send_away(stranger)
        except Exception:
            print_error()
            self._send_away(stranger)

    def _send_away(self, stranger):
        if stranger in self._strangers:
            self._strangers.remove(stranger)
        stranger.connection.close()
