"""Waking a thread that waits in select(), on every platform."""

import socket


class Wakeup(object):
    """A datagram socket that only receives what it has sent to itself."""

    def __init__(self):
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind(('127.0.0.1', 0))
        self._socket.connect(self._socket.getsockname())
        self._socket.setblocking(False)

    def fileno(self):
        return self._socket.fileno()

    def wake(self):
        try:
            self._socket.send('.')
        except socket.error:
            pass  # Full: it is about to wake up.

    def clear(self):
        try:
            while True:
                self._socket.recv(1)
        except socket.error:
            pass

    def close(self):
        self._socket.close()
