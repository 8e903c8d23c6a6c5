"""How a program and the adapter that has started it recognise each other: the adapter's side."""

from __future__ import absolute_import

import os
import shutil
import socket
import tempfile

from sorrel.protocol import secrets
from sorrel.protocol.callers import Callers
from sorrel.protocol.launch_handshake import REFUSAL


class Handshake(object):
    """path: of the file; folder: what it is in, with whatever else."""

    def __init__(self):
        self._words = [secrets.new(), secrets.new()]
        self.folder = os.path.abspath(tempfile.mkdtemp())  # For this user alone.
        self.path = os.path.join(self.folder, 'handshake')
        listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        listener.bind(('127.0.0.1', 0))
        self._callers = Callers(listener)
        self.sockets, self.has_callers = self._callers.sockets, self._callers.are_any
        output = open(self.path, 'w')
        output.write(' '.join([str(listener.getsockname()[1])] + self._words))
        output.close()

    def look(self, readable):
        """A connection to whoever has said the first word, else None. To be called often.

        The first is the program's, those after it are of the processes that it has started.
        readable: those of the sockets that can be read. Nobody is waited for.
        """
        caller = self._callers.look(
            readable, lambda caller, said: secrets.is_same(said, self._words[0]))
        return None if caller is None else self._answer(caller.socket)

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
        self._callers.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def _answer(self, connected):
        try:
            connected.sendall(self._words[1])
        except socket.error:
            connected.close()
            return None
        return connected
