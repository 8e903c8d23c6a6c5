"""Sockets in a program that may close their descriptors, and use the numbers again for itself."""

import os

try:
    import fcntl
except ImportError:
    fcntl = None  # Another platform: nothing is inherited there.

# Taken now: a program may replace what the interpreter's modules offer.
_fstat = os.fstat if os.name == 'posix' else None  # Elsewhere sockets are no files.
# Sockets that must never be closed: their numbers are the program's.
_lost = []


class Descriptor(object):
    """A socket's, kept from processes that the program starts."""

    def __init__(self, socket):
        self.socket = socket
        self.number = socket.fileno()
        self._identity = self._find_identity()
        if fcntl is not None:
            flags = fcntl.fcntl(self.number, fcntl.F_GETFD)
            fcntl.fcntl(self.number, fcntl.F_SETFD, flags | fcntl.FD_CLOEXEC)

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
