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
# Who knocks and says nothing is shown out when so many others have come.
_MOST_CALLERS = 20


class Impostor(Exception):
    """Somebody else has answered."""


class Greeting(object):
    """The adapter's side."""

    def __init__(self):
        self._words = [binascii.hexlify(os.urandom(_WORD_SIZE // 2)) for _ in range(2)]
        self._folder = tempfile.mkdtemp()  # For this user alone.
        self.path = os.path.join(self._folder, 'greeting')
        self._listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        self._listener.bind(('127.0.0.1', 0))
        self._listener.listen(5)
        self._listener.setblocking(False)
        # Who has come, and what it has said; the last one last.
        self._callers = []
        output = open(self.path, 'w')
        output.write(' '.join([str(self._listener.getsockname()[1])] + self._words))
        output.close()

    def sockets(self):
        """Those to wait for."""
        return [self._listener] + [caller for caller, _ in self._callers]

    def look(self, readable):
        """The connection to the program when it is there, else None.

        readable: those of the sockets that can be read. Nobody is waited for.
        """
        if self._listener in readable:
            self._let_in()
        for caller, said in list(self._callers):
            if caller in readable:
                self._callers.remove((caller, said))
                said += _receive_some(caller, _WORD_SIZE - len(said))
                if said == self._words[0]:
                    return self._answer(caller)
                # Nobody has to be told how much of the word was right.
                if said and len(said) < _WORD_SIZE and self._words[0].startswith(said):
                    self._callers.append((caller, said))
                else:
                    caller.close()
        return None

    def close(self):
        for left in self.sockets():
            left.close()
        shutil.rmtree(self._folder, ignore_errors=True)

    def _let_in(self):
        try:
            caller = self._listener.accept()[0]
        except socket.error:
            return
        caller.setblocking(False)
        self._callers.append((caller, ''))
        if len(self._callers) > _MOST_CALLERS:
            self._callers.pop(0)[0].close()

    def _answer(self, caller):
        caller.setblocking(True)
        try:
            caller.sendall(self._words[1])
        except socket.error:
            caller.close()
            return None
        return caller


def connect(path):
    """The program's side. Raises EnvironmentError or Impostor."""
    words = open(path).read().split()
    client = socket.create_connection(('127.0.0.1', int(words[0])), _PATIENCE)
    client.sendall(words[1])
    answer = ''
    while len(answer) < _WORD_SIZE:
        more = client.recv(_WORD_SIZE - len(answer))
        if not more:
            break
        answer += more
    if answer != words[2]:
        raise Impostor('who has started this program does not answer')
    return client


def _receive_some(caller, size):
    """'' for the end."""
    try:
        return caller.recv(size)
    except socket.error:
        return ''
