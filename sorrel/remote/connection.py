"""The connection to a program: what it says is read by a thread of its own, as soon as it comes.

A program lets a client go that does not read; a person at the prompt may think for long.
"""

from __future__ import absolute_import

import collections
import select
import thread

from sorrel.adapter.connection import ToProgram
from sorrel.server.network.wakeup import Wakeup


class Lost(Exception):
    """The connection has ended; the text says how."""


class Connection(object):

    def __init__(self, connected):
        """connected: a socket."""
        self._program = ToProgram(connected)
        self._received = collections.deque()
        self._is_over = False
        self._ready, self._end = Wakeup(), Wakeup()
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
                if select.select([self._ready.descriptor.number], [], [], seconds)[0]:
                    self._ready.clear()
            except select.error:
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
        self._ready.wake()

    def close(self):
        self._end.wake()
        self._is_read.acquire()
        self._program.close()
        for wakeup in self._ready, self._end:
            wakeup.descriptor.close()

    def _read(self):
        end = self._end.descriptor.number
        try:
            while not self._program.is_lost:
                if end in select.select([self._program, end], [], [])[0]:
                    break
                self._received.extend(self._program.read())
                self.wake()
        finally:
            self._is_over = True
            self.wake()
            self._is_read.release()
