"""Waking a thread that waits for sockets, on every platform."""

import socket

from sorrel.dap.descriptors import Descriptor


class Wakeup(object):
    """A datagram socket that only receives what it has sent to itself.

    descriptor: its Descriptor, which can be read once somebody has called wake().
    """

    def __init__(self):
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind(('127.0.0.1', 0))
        self._socket.connect(self._socket.getsockname())
        self._socket.setblocking(False)
        self.descriptor = Descriptor(self._socket)

    def wake(self):
        """Whether the thread will wake up: not when the program has closed the socket."""
        if not self.descriptor.is_there():
            return False
        try:
            self._socket.send('.')
        except socket.error:
            pass  # Full: it is about to wake up.
        return True

    def clear(self):
        try:
            while self.descriptor.is_there():
                self._socket.recv(1)
        except socket.error:
            pass
