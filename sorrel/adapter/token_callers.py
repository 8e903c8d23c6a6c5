"""How a program that connects to the adapter, and that, prove to each other that they know the same
token: the adapter's side."""

from __future__ import absolute_import

import re
import socket
import time

from sorrel.protocol import secrets, token_proof

_PATIENCE = 10.0
# As with those who come by a handshake: who is wrong is hung up on after so many seconds, and who
# says nothing when so many others have come, but not before it had some time.
_WRONG_PAUSE = 1.0
_MOST_CALLERS = 20
_CALLER_TIME = 0.5
_WORD = re.compile('[0-9a-f]{%d}$' % secrets.SIZE)


class _Caller(object):

    def __init__(self, connected):
        connected.setblocking(False)
        self.socket = connected
        self.since = time.time()
        # When it is hung up on.
        self.until = self.since + _PATIENCE
        self.is_wrong = False
        self._said = ''
        # Both, when the adapter has said its own.
        self.words = None

    def hear(self):
        """What it shows for a proof, once it has said all of that, else None."""
        expected = token_proof.PROOF_SIZE if self.words else secrets.SIZE
        try:
            more = self.socket.recv(expected - len(self._said))
        except socket.error:
            more = ''
        self._said += more
        if not more:
            self.be_wrong()
        elif len(self._said) == expected:
            said, self._said = self._said, ''
            if self.words:
                return said
            self._answer(said)
        return None

    def be_wrong(self):
        self.is_wrong = True
        self.until = time.time() + _WRONG_PAUSE

    def _answer(self, word):
        if not _WORD.match(word):
            self.be_wrong()
            return
        self.words = word, secrets.new()
        self.say(self.words[1])

    def say(self, said):
        try:
            self.socket.sendall(said)
        except socket.error:
            self.be_wrong()


class TokenCallers(object):

    def __init__(self, listener, token, path):
        """listener: a bound socket. path: what is told to who knows the token."""
        self._listener = listener
        self._token = token
        self._path = path
        self._listener.listen(_MOST_CALLERS)
        self._listener.setblocking(False)
        # The oldest comes first.
        self._callers = []

    def sockets(self):
        """Those to wait for."""
        listeners = [self._listener] if self._may_come() else []
        return listeners + [caller.socket for caller in self._callers if not caller.is_wrong]

    def look(self, readable):
        """A connection to who has proven that it knows the token, else None. To be called often.

        readable: those of the sockets that can be read. Nobody is waited for.
        """
        if self._listener in readable:
            self._let_in()
        for caller in list(self._callers):
            shown = caller.hear() if caller.socket in readable and not caller.is_wrong else None
            if shown is not None:
                if secrets.is_same(shown, token_proof.of_program(self._token, *caller.words)):
                    self._callers.remove(caller)
                    return self._welcome(caller)
                caller.be_wrong()
            if time.time() >= caller.until:
                self._hang_up(caller)
        return None

    def close(self):
        for caller in list(self._callers):
            self._hang_up(caller)
        self._listener.close()

    def _welcome(self, caller):
        """The connection; None where it has just gone."""
        caller.socket.setblocking(True)
        caller.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        caller.say(token_proof.of_adapter(self._token, *caller.words)
                   + '%0*x' % (token_proof.LENGTH_SIZE, len(self._path)) + self._path)
        if caller.is_wrong:
            caller.socket.close()
            return None
        return caller.socket

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
