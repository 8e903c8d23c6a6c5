"""The connection to a program: what it says is read by a thread of its own, as soon as it comes.

A program lets a client go that does not read; a person at the prompt may think for long.
"""

from __future__ import absolute_import

import collections
import fcntl
import os
import select
import thread

from sorrel.adapter.connection import ToProgram

_DRAINED_AT_ONCE = 4096


class Lost(Exception):
    """The connection has ended; the text says how."""


class Connection(object):

    def __init__(self, connected):
        """connected: a socket."""
        self._program = ToProgram(connected)
        self._received = collections.deque()
        self._is_over = False
        self._ready, self._wake = _pipe()
        self._end, self._ended = _pipe()
        self._is_read = thread.allocate_lock()
        self._is_read.acquire()
        thread.start_new_thread(self._read, ())

    def send(self, message):
        """What nobody gets is found out by who waits for the answer."""
        self._program.send(message)

    def receive(self, seconds):
        """The next message; None where none comes in time, or wake() is called. Raises Lost.

        seconds: None for as long as it takes.
        """
        is_over = self._is_over
        if not self._received and not is_over:
            try:
                if select.select([self._ready], [], [], seconds)[0]:
                    os.read(self._ready, _DRAINED_AT_ONCE)
            except (select.error, OSError):
                pass  # A signal; its handler has called wake().
            is_over = self._is_over
        if self._received:
            return self._received.popleft()
        if is_over:
            raise Lost(u'it has said what is no message of the protocol'
                       if self._program.is_broken else u'it has hung up')
        return None

    def wake(self):
        """Ends a receive(), the next one where there is none; from any thread."""
        try:
            os.write(self._wake, '.')
        except OSError:
            pass  # Full: it is about to end.

    def close(self):
        os.close(self._ended)
        self._is_read.acquire()
        self._program.close()
        for descriptor in self._ready, self._wake, self._end:
            os.close(descriptor)

    def _read(self):
        try:
            while not self._program.is_lost:
                readable = select.select([self._program, self._end], [], [])[0]
                if self._end in readable:
                    break
                self._received.extend(self._program.read())
                self.wake()
        finally:
            self._is_over = True
            self.wake()
            self._is_read.release()


def _pipe():
    ends = os.pipe()
    for descriptor in ends:
        fcntl.fcntl(descriptor, fcntl.F_SETFL, fcntl.fcntl(descriptor, fcntl.F_GETFL)
                    | os.O_NONBLOCK)
        fcntl.fcntl(descriptor, fcntl.F_SETFD, fcntl.FD_CLOEXEC)
    return ends
