"""Sockets in a program that may close their descriptors, and use the numbers again for itself."""

from __future__ import absolute_import

import os

try:
    import fcntl
except ImportError:
    fcntl = None  # Another platform: nothing is inherited there.

# Taken now: a program may replace what the interpreter's modules offer.
_fstat = os.fstat if os.name == 'posix' else None  # Elsewhere sockets are no files.
_open, _close = os.open, os.close
_control = fcntl and fcntl.fcntl
# Sockets that must never be closed: their numbers are the program's.
_lost = []


def above_streams(make):
    """The socket that is made by the call, with a number that is none of 0, 1 and 2.

    A program may have been started without standard streams, and still write to them.
    """
    # What the program does with these meanwhile fails, as it does when they are closed.
    taken = []
    try:
        for number in _free_streams():
            opened = _open(os.devnull, os.O_WRONLY if number == 0 else os.O_RDONLY)
            if opened > 2:
                _close(opened)  # The program has been faster.
                break
            taken.append((opened, _flags(opened)))
        return make()
    finally:
        for opened, flags in taken:
            if _flags(opened) == flags:
                _close(opened)


def _free_streams():
    if fcntl is None:
        return []
    return [number for number in range(3) if _flags(number) is None]


def _flags(number):
    """How it has been opened, and what; None for a closed one."""
    try:
        return _control(number, fcntl.F_GETFL), _fstat(number)[:3]
    except EnvironmentError:
        return None


class Descriptor(object):
    """A socket's, kept from processes that the program starts."""

    def __init__(self, socket):
        self.socket = socket
        self.number = socket.fileno()
        self._identity = self._find_identity()
        if fcntl is not None:
            flags = _control(self.number, fcntl.F_GETFD)
            _control(self.number, fcntl.F_SETFD, flags | fcntl.FD_CLOEXEC)

    def is_there(self):
        """Whether it is still this socket's."""
        try:
            return self._find_identity() == self._identity
        except OSError:
            return False

    def close(self):
        if self.is_there():
            self.socket.close()
        else:
            _lost.append(self.socket)

    def leave_to_parent(self):
        """In a forked process: the socket is the other process's alone."""
        if self.is_there():
            # Not closed: then its number could come to stand for something else.
            nothing = os.open(os.devnull, os.O_RDONLY)
            os.dup2(nothing, self.number)
            os.close(nothing)

    def _find_identity(self):
        if _fstat is None:
            return None
        status = _fstat(self.number)
        return status.st_dev, status.st_ino
