"""How a program and the adapter that has started it recognise each other: the adapter's side."""

from __future__ import absolute_import

import os
import shutil
import socket
import tempfile
import time

from sorrel.protocol import secrets
from sorrel.protocol.launch_handshake import REFUSAL

_PATIENCE = 10.0
# Whoever says a wrong word is hung up on, whatever is wrong with it, after so many seconds; so is
# who says nothing, when so many others have come, but not before it had some time.
_WRONG_PAUSE = 1.0
_MOST_CALLERS = 20
_CALLER_TIME = 0.5


class _Caller(object):

    def __init__(self, connected):
        connected.setblocking(False)
        self.socket = connected
        self.since = time.time()
        self.said = ''
        # When it is hung up on.
        self.until = self.since + _PATIENCE
        self.is_wrong = False

    def hear(self):
        try:
            more = self.socket.recv(secrets.SIZE - len(self.said))
        except socket.error:
            more = ''
        self.said += more
        if not more:
            self.is_wrong = True

    def has_said_all(self):
        return len(self.said) == secrets.SIZE


class Handshake(object):
    """path: of the file; folder: what it is in, with whatever else."""

    def __init__(self):
        self._words = [secrets.new(), secrets.new()]
        self.folder = os.path.abspath(tempfile.mkdtemp())  # For this user alone.
        self.path = os.path.join(self.folder, 'handshake')
        self._listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        self._listener.bind(('127.0.0.1', 0))
        self._listener.listen(_MOST_CALLERS)
        self._listener.setblocking(False)
        # The oldest comes first.
        self._callers = []
        output = open(self.path, 'w')
        output.write(' '.join([str(self._listener.getsockname()[1])] + self._words))
        output.close()

    def sockets(self):
        """Those to wait for."""
        listeners = [self._listener] if self._may_come() else []
        return listeners + [caller.socket for caller in self._callers if not caller.is_wrong]

    def has_callers(self):
        """Whether look() is to be called though nothing comes."""
        return bool(self._callers)

    def look(self, readable):
        """A connection to whoever has said the first word, else None. To be called often.

        The first is the program's, those after it are of the processes that it has started.
        readable: those of the sockets that can be read. Nobody is waited for.
        """
        if self._listener in readable:
            self._let_in()
        for caller in list(self._callers):
            if caller.socket in readable and not caller.is_wrong:
                caller.hear()
                if caller.has_said_all() and secrets.is_same(caller.said, self._words[0]):
                    self._callers.remove(caller)
                    return self._answer(caller.socket)
                if caller.has_said_all() or caller.is_wrong:
                    caller.is_wrong = True
                    caller.until = time.time() + _WRONG_PAUSE
            if time.time() >= caller.until:
                self._hang_up(caller)
        return None

    def refusal(self):
        """Why there will be no program, as what was to start it says; '' where it does not."""
        try:
            refusal = open(os.path.join(self.folder, REFUSAL))
        except EnvironmentError:
            return ''
        try:
            return refusal.read()
        finally:
            refusal.close()

    def close(self):
        for caller in self._callers:
            caller.socket.close()
        self._listener.close()
        shutil.rmtree(self.folder, ignore_errors=True)

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
        self._callers.append(_Caller(connected))

    def _hang_up(self, caller):
        self._callers.remove(caller)
        caller.socket.close()

    def _answer(self, connected):
        connected.setblocking(True)
        connected.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        try:
            connected.sendall(self._words[1])
        except socket.error:
            connected.close()
            return None
        return connected
