"""The folder in which the processes of a tree find each other, and who of them leads.

It is for this user alone. The one that leads holds a lock on it, which the system gives back when
that process ends, however it does.
"""

from __future__ import absolute_import

import errno
import os
import stat
import tempfile

try:
    import fcntl
except ImportError:
    fcntl = None  # Another platform, where no process is forked either.

from sorrel.common.alive import is_alive
from sorrel.protocol.descriptors import above_streams, Descriptor

_PREFIX, _HUB = 'tree-', 'hub'
# Taken now: a program may replace what the interpreter's modules offer.
_close = os.close


class _Opened(object):
    """A folder's descriptor, as a Descriptor wants it."""

    def __init__(self, number):
        self._number = number

    def fileno(self):
        return self._number

    def close(self):
        _close(self._number)


class SharedFolder(object):
    """path: where it is. Every process may make it again: the last one that leaves removes it."""

    def __init__(self, path):
        self.path = path
        self.hub = os.path.join(self.path, _HUB)
        # The Descriptor that the lock is held with.
        self.held = None

    @classmethod
    def new(cls, parent):
        """One in this folder, which is for this user alone. Raises EnvironmentError.

        What trees have left there of which all processes were killed is removed.
        """
        if fcntl is None:
            raise OSError(errno.ENOSYS, 'not on this platform')
        for name in os.listdir(parent):
            if name.startswith(_PREFIX):
                cls(os.path.join(parent, name))._remove_left()
        return cls(tempfile.mkdtemp(prefix=_PREFIX, dir=parent))

    def socket_of(self, pid):
        """The path for the one of a process."""
        return os.path.join(self.path, str(pid))

    def make(self):
        """Sees to it that it is there. Raises EnvironmentError."""
        try:
            os.mkdir(self.path, 0700)
        except OSError as error:
            if error.errno != errno.EEXIST:
                raise
        status = os.lstat(self.path)
        if not stat.S_ISDIR(status.st_mode) or status.st_uid != os.getuid() \
                or status.st_mode & 077:
            raise OSError(errno.EPERM, 'not for this user alone', self.path)

    def lock(self):
        """Whether the calling process leads now. Raises EnvironmentError."""
        opened = Descriptor(_Opened(above_streams(lambda: os.open(self.path, os.O_RDONLY))))
        try:
            fcntl.flock(opened.number, fcntl.LOCK_EX | fcntl.LOCK_NB)
            # Somebody may have removed it, and another one have made it again.
            if not _is_same(os.fstat(opened.number), os.lstat(self.path)):
                raise IOError(errno.EAGAIN, 'another one by now')
        except EnvironmentError as error:
            opened.close()
            if error.errno not in (errno.EACCES, errno.EAGAIN):
                raise
            return False
        self.held = opened
        return True

    def unlock(self):
        held, self.held = self.held, None
        if held is not None:
            held.close()

    def leave(self):
        """The calling process has removed what it had there."""
        try:
            os.rmdir(self.path)
        except OSError:
            pass  # Others are there, or somebody was faster.

    def remove_all(self):
        """For the process that leads, and is the last one."""
        self.remove(_HUB)
        self.leave()

    def remove(self, name):
        """What a process that is gone may have left there."""
        try:
            os.unlink(os.path.join(self.path, name))
        except OSError:
            pass

    def _remove_left(self):
        try:
            names = os.listdir(self.path)
            if not [name for name in names if name.isdigit() and is_alive(int(name))] \
                    and self.lock():
                for name in names:
                    self.remove(name)
                self.leave()
        except EnvironmentError:
            pass  # Somebody else is at it.
        finally:
            self.unlock()


def _is_same(one, other):
    return (one.st_dev, one.st_ino) == (other.st_dev, other.st_ino)
