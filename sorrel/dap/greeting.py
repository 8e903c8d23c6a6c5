"""How a program and the adapter that has started it recognise each other.

Both know two words from a file that only their user can read. Who connects to the adapter says
the first, and believes to have found it when it hears the second.
"""

import binascii
import os
import shutil
import socket
import tempfile

_WORD_SIZE = 32
_PATIENCE = 10.0


class Impostor(Exception):
    """Somebody else has answered."""


class Greeting(object):
    """The adapter's side."""

    def __init__(self):
        self._words = [binascii.hexlify(os.urandom(_WORD_SIZE // 2)) for _ in range(2)]
        self._folder = tempfile.mkdtemp()  # For this user alone.
        self.path = os.path.join(self._folder, 'greeting')
        self.listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        self.listener.bind(('127.0.0.1', 0))
        self.listener.listen(5)
        output = open(self.path, 'w')
        output.write(' '.join([str(self.listener.getsockname()[1])] + self._words))
        output.close()

    def accept(self):
        """The connection to the program; None when somebody else has knocked."""
        client = self.listener.accept()[0]
        client.settimeout(_PATIENCE)
        try:
            if _receive(client) == self._words[0]:
                client.sendall(self._words[1])
                client.settimeout(None)
                return client
        except socket.error:
            pass
        client.close()
        return None

    def close(self):
        self.listener.close()
        shutil.rmtree(self._folder, ignore_errors=True)


def connect(path):
    """The program's side. Raises EnvironmentError or Impostor."""
    words = open(path).read().split()
    client = socket.create_connection(('127.0.0.1', int(words[0])), _PATIENCE)
    client.sendall(words[1])
    if _receive(client) != words[2]:
        raise Impostor('who has started this program does not answer')
    return client


def _receive(client):
    received = ''
    while len(received) < _WORD_SIZE:
        more = client.recv(_WORD_SIZE - len(received))
        if not more:
            break
        received += more
    return received
