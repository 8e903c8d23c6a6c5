"""Marks the place of a message in what a launched program writes."""

from __future__ import absolute_import

import itertools
import os
import stat

from sorrel.protocol import output_marks
from sorrel.server.network.polling import wait

_STREAMS = ((1, 'stdout'), (2, 'stderr'))
# Taken now: a program may replace what the interpreter's modules offer.
_write, _fstat, _getpid = os.write, os.fstat, os.getpid


class OutputMarks(object):

    def __init__(self, word):
        """word: by which the adapter knows the marks."""
        self._word = word
        self._process = _getpid()
        self._numbers = itertools.count(1)
        # What the descriptors were when the program was started.
        self._pipes = [(number, name, _pipe(number)) for number, name in _STREAMS]

    def write(self):
        """The number of the marks written, and to which streams; None for none.

        To be called by the thread whose message it is, before that is sent.
        """
        if _getpid() != self._process:
            return None  # The message of a forked process comes in another way.
        number = self._numbers.next()
        mark = output_marks.mark(self._word, number)
        marked = [name for descriptor, name, pipe in self._pipes
                  if pipe is not None and _pipe(descriptor) == pipe and _written(descriptor, mark)]
        return [number, marked] if marked else None


def _pipe(descriptor):
    """What tells the pipe from others; None where it is none."""
    try:
        found = _fstat(descriptor)
    except OSError:
        return None  # Closed.
    return (found.st_dev, found.st_ino) if stat.S_ISFIFO(found.st_mode) else None


def _written(descriptor, mark):
    """Whether it is: a message does not wait until somebody reads what is in the pipe."""
    try:
        return bool(wait([], [descriptor], 0)[1]) and _write(descriptor, mark) == len(mark)
    except OSError:
        return False  # Nobody reads there any more, or another thread has filled it.
