"""Lines from the terminal without readline, which only one thread can be in, and only once."""

from __future__ import absolute_import

import errno
import os

try:
    import fcntl
    import termios
except ImportError:
    fcntl = termios = None  # Another platform.

from sorrel.common.originals import select, thread
from sorrel.protocol.descriptors import above_streams

_AT_ONCE = 1024
# Places in what the system knows of a terminal's modes.
_INPUT, _LOCAL = 0, 3
# Taken now: a program may replace what the interpreter's modules offer.
_select, _read, _write, _close = select.select, os.read, os.write, os.close
_new_lock = thread.allocate_lock


class PlainInput(object):

    def __init__(self, descriptor):
        """descriptor: of the terminal."""
        self._descriptor = descriptor
        self._typed = ''

    def read_line(self, ask, *others):
        """The next line without its line end; None at the end of input, or where others have some.

        ask: called when the terminal is ready for an answer. others: descriptors.
        """
        modes = _begin_lines(self._descriptor)
        try:
            ask()
            while '\n' not in self._typed:
                ready = self._ready(others)
                if self._descriptor not in ready:
                    return None
                more = _read(self._descriptor, _AT_ONCE)
                if not more:
                    return None
                self._typed += more
        finally:
            if modes is not None:
                termios.tcsetattr(self._descriptor, termios.TCSADRAIN, modes)
        line, _, self._typed = self._typed.partition('\n')
        return line

    def _ready(self, others):
        while True:
            try:
                return _select([self._descriptor] + list(others), [], [])[0]
            except select.error as error:
                if error.args[0] != errno.EINTR:
                    raise


class InterruptibleConsole(object):
    """Stands for a Console in a thread that Ctrl-C does not come to."""

    def __init__(self, console):
        self._console = console
        self.name, self.colours = console.name, console.colours
        self._input = PlainInput(console.descriptor())
        self._interrupted = self._told = None
        # Held by whoever uses the two.
        self._lock = _new_lock()

    def open(self):
        self._interrupted, self._told = above_streams(os.pipe)
        for number in self._interrupted, self._told:
            fcntl.fcntl(number, fcntl.F_SETFD, fcntl.FD_CLOEXEC)

    def close(self):
        self._lock.acquire()
        try:
            _close(self._told)
            _close(self._interrupted)
            self._told = None
        finally:
            self._lock.release()

    def interrupt(self):
        """In any thread: what is being read, or is read next, ends by KeyboardInterrupt."""
        self._lock.acquire()
        try:
            if self._told is not None:
                _write(self._told, '\n')
        finally:
            self._lock.release()

    def write(self, text):
        self._console.write(text)

    def read_line(self, prompt, complete):
        """As a Console has it."""
        line = self._input.read_line(
            lambda: self._console.write_at_once(prompt), self._interrupted)
        if line is None and _select([self._interrupted], [], [], 0)[0]:
            _read(self._interrupted, _AT_ONCE)
            raise KeyboardInterrupt
        return None if line is None else self._console.as_typed(line)


def _begin_lines(descriptor):
    """Has a terminal give whole lines, where readline has it give characters; the modes before.

    None where there is nothing to change.
    """
    if termios is None:
        return None
    try:
        modes = termios.tcgetattr(descriptor)
    except termios.error:
        return None
    wanted = list(modes)
    wanted[_INPUT] |= termios.ICRNL
    wanted[_LOCAL] |= termios.ICANON | termios.ECHO | termios.ISIG
    if wanted == modes:
        return None
    termios.tcsetattr(descriptor, termios.TCSADRAIN, wanted)
    return modes
