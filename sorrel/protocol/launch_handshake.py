"""How a program and the adapter that has started it recognise each other: the program's side.

Both know two words from a file that only their user can read. Who connects to the adapter says
the first, and believes to have found it when it hears the second. So do the processes that the
program starts, which listen in the folder of that file.
"""

from __future__ import absolute_import

import os

from sorrel.common.originals import socket
from sorrel.protocol import messages, secrets
from sorrel.protocol.descriptors import above_streams

# Beside the handshake's file, where the program cannot be run: why.
REFUSAL = 'refused'
_PATIENCE = 10.0


class Impostor(Exception):
    """Somebody else has answered."""


class Handshaker(object):
    """The program's side."""

    def __init__(self, said, folder):
        """said: what is in the handshake's file. folder: what that is in."""
        self.said = said
        self.folder = folder
        port, self._first, self._second = said.split()
        self._address = '127.0.0.1', int(port)

    @classmethod
    def of_file(cls, path):
        """Raises EnvironmentError."""
        return cls(open(path).read(), os.path.dirname(os.path.abspath(path)))

    def connect(self):
        """The connection for the program's messages. Raises EnvironmentError or Impostor."""
        return self._connect('')

    def announce(self, message):
        """Tells of a process that the program has started. Raises EnvironmentError or Impostor."""
        self._connect(messages.encode(message)).close()

    def hold(self):
        """A connection that tells by its end that of all processes that have inherited it.

        Each of them sends a byte. No answer is waited for. Raises EnvironmentError.
        """
        return self._call(messages.encode({'type': 'processes'}))

    def _connect(self, more):
        client = self._call(more)
        try:
            _check(client, self._second)
        except BaseException:
            client.close()
            raise
        return client

    def _call(self, more):
        client = above_streams(lambda: socket.socket(socket.AF_INET, socket.SOCK_STREAM))
        try:
            client.settimeout(_PATIENCE)
            client.connect(self._address)
            client.sendall(self._first + more)
        except BaseException:
            client.close()
            raise
        return client


def connect(path):
    """The same for a program that has no others. Raises EnvironmentError or Impostor."""
    return Handshaker.of_file(path).connect()


def refuse(path, why):
    """Says why there will be no program, to an adapter that cannot read what is written here."""
    if not os.path.isfile(path):
        return  # Nobody waits for it there.
    try:
        refusal = open(os.path.join(os.path.dirname(path), REFUSAL), 'w')
        try:
            refusal.write(why)
        finally:
            refusal.close()
    except EnvironmentError:
        pass  # The adapter is gone.


def remove(path):
    """Removes the file, for an adapter that is gone before there has been anything else."""
    try:
        os.unlink(path)
        os.rmdir(os.path.dirname(path))
    except OSError:
        pass  # It was not gone.


def _check(client, second):
    answer = ''
    while len(answer) < secrets.SIZE:
        more = client.recv(secrets.SIZE - len(answer))
        if not more:
            break
        answer += more
    if not secrets.is_same(answer, second):
        raise Impostor('who has started this program does not answer')
