"""Who has connected to a socket that listens, and has still to show that it may. Nobody is waited
for."""

from __future__ import absolute_import

import socket
import time

from sorrel.protocol import secrets

_PATIENCE = 10.0
# Whoever says a wrong word is hung up on, whatever is wrong with it, after so many seconds; so is
# who says nothing, when so many others have come, but not before it had some time.
_WRONG_PAUSE = 1.0
_MOST_CALLERS = 20
_CALLER_TIME = 0.5


class Caller(object):
    """expected: how many letters it is to say."""

    def __init__(self, connected):
        connected.setblocking(False)
        self.socket = connected
        self.since = time.time()
        # When it is hung up on.
        self.until = self.since + _PATIENCE
        self.is_wrong = False
        self.expected = secrets.SIZE
        self._said = ''

    def hear(self):
        """What was expected, once it has said all of that, else None."""
        try:
            more = self.socket.recv(self.expected - len(self._said))
        except socket.error:
            more = ''
        self._said += more
        if not more:
            self.be_wrong()
        if not more or len(self._said) < self.expected:
            return None
        said, self._said = self._said, ''
        return said

    def be_wrong(self):
        self.is_wrong = True
        self.until = time.time() + _WRONG_PAUSE


class Callers(object):

    def __init__(self, listener, caller=Caller):
        """listener: a bound socket, which is closed with this. caller: their class."""
        self._listener = listener
        self._class = caller
        self._listener.listen(_MOST_CALLERS)
        self._listener.setblocking(False)
        # The oldest comes first.
        self._callers = []

    def sockets(self):
        """Those to wait for."""
        listeners = [self._listener] if self._may_come() else []
        return listeners + [caller.socket for caller in self._callers if not caller.is_wrong]

    def are_any(self):
        """Whether look() is to be called though nothing comes."""
        return bool(self._callers)

    def look(self, readable, is_right):
        """A caller that has said the right thing, else None. To be called often.

        readable: those of the sockets that can be read. is_right: is given a caller and all that it
        has said.
        """
        if self._listener in readable:
            self._let_in()
        for caller in list(self._callers):
            said = caller.hear() if caller.socket in readable and not caller.is_wrong else None
            if said is not None:
                if is_right(caller, said):
                    self._callers.remove(caller)
                    caller.socket.setblocking(True)
                    caller.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                    return caller
                caller.be_wrong()
            if time.time() >= caller.until:
                self._hang_up(caller)
        return None

    def close(self):
        for caller in list(self._callers):
            self._hang_up(caller)
        self._listener.close()

    def _may_come(self):
        return len(self._callers) < _MOST_CALLERS \
            or time.time() >= self._callers[0].since + _CALLER_TIME

    def _let_in(self):
        try:
            connected = self._listener.accept()[0]
        except socket.error:
            return
        if len(self._callers) >= _MOST_CALLERS:
            self._hang_up(self._callers[0])
        self._callers.append(self._class(connected))

    def _hang_up(self, caller):
        self._callers.remove(caller)
        caller.socket.close()
