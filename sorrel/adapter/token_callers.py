"""How a program that connects to the adapter, and that, prove to each other that they know the same
token: the adapter's side."""

from __future__ import absolute_import

import re
import socket

from sorrel.protocol import secrets, token_proof
from sorrel.protocol.callers import Caller, Callers

_WORD = re.compile('[0-9a-f]{%d}$' % secrets.SIZE)


class _Caller(Caller):

    # Its word and the adapter's, when that has said its own.
    words = None

    def hear(self):
        """What it shows for a proof."""
        said = Caller.hear(self)
        if said is None or self.words:
            return said
        if _WORD.match(said):
            self.words = said, secrets.new()
            self.expected = token_proof.PROOF_SIZE
            self.say(self.words[1])
        else:
            self.be_wrong()
        return None

    def say(self, said):
        try:
            self.socket.sendall(said)
        except socket.error:
            self.be_wrong()


class TokenCallers(object):

    def __init__(self, listener, token, path):
        """listener: a bound socket. path: what is told to who knows the token."""
        self._token = token
        self._path = path
        self._callers = Callers(listener, _Caller)
        self.sockets, self.close = self._callers.sockets, self._callers.close

    def look(self, readable):
        """A connection to who has proven that it knows the token, else None. To be called often.

        readable: those of the sockets that can be read. Nobody is waited for.
        """
        caller = self._callers.look(readable, self._has_proven)
        if caller is None:
            return None
        caller.say(token_proof.of_adapter(self._token, *caller.words)
                   + '%0*x' % (token_proof.LENGTH_SIZE, len(self._path)) + self._path)
        if caller.is_wrong:
            caller.socket.close()
            return None
        return caller.socket

    def _has_proven(self, caller, shown):
        return secrets.is_same(shown, token_proof.of_program(self._token, *caller.words))
