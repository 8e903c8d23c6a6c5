"""Waking a thread that waits for sockets, on every platform."""

from __future__ import absolute_import

from sorrel.common.originals import socket
from sorrel.protocol.descriptors import above_streams, Descriptor

_CLEARED_AT_ONCE = 50


class Wakeup(object):
    """A datagram socket that only receives what it has sent to itself: it is connected to itself.

    descriptor: its Descriptor, which can be read once somebody has called wake().
    """

    def __init__(self):
        self._socket = above_streams(lambda: socket.socket(socket.AF_INET, socket.SOCK_DGRAM))
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
        """To be called by the thread, before it looks at what it may have been woken for."""
        try:
            # Others may wake it all the time. What is left wakes it once more.
            for _ in range(_CLEARED_AT_ONCE):
                if not self.descriptor.is_there():
                    break
                self._socket.recv(1)
        except socket.error:
            pass
