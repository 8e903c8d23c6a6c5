"""Texts of files: the one place where the server opens what a user or the program names.

A name may be that of a device without an end, of a pipe that nobody writes to, or of a file that
grows while it is read. Only regular files are opened, which never waits, and no more is read of
one than the limit. The interpreter lock is free meanwhile, so that other threads run on: nothing is
read while a lock of the server's own is held.
"""

from __future__ import absolute_import

import errno
import os
import stat

# In bytes.
LIMIT = 10 * 1024 * 1024
_AT_ONCE = 1024 * 1024
# Should the file be another one by now, opening it is not to wait for anybody.
_FLAGS = getattr(os, 'O_NONBLOCK', 0) | getattr(os, 'O_NOCTTY', 0) | getattr(os, 'O_BINARY', 0)


class Unreadable(Exception):
    """The text says why, in a few words. is_missing: whether there is nothing of this name."""

    def __init__(self, why, is_missing=False):
        Exception.__init__(self, why)
        self.is_missing = is_missing


def is_file(path):
    try:
        version(path)
    except Unreadable:
        return False
    return True


def version(path):
    """What tells a regular file from what it was before. Raises Unreadable."""
    return _version(_asked(os.stat, path))


def text(path):
    """The text of a regular file, whose lines end with a newline alone. Raises Unreadable."""
    return content(path).replace('\r\n', '\n').replace('\r', '\n')


def content(path):
    """What is in a regular file. Raises Unreadable."""
    version(path)  # Opening alone can have effects, on a device.
    file = _asked(os.open, path, os.O_RDONLY | _FLAGS)
    try:
        _version(_asked(os.fstat, file))
        pieces = []
        left = LIMIT + 1
        while left:
            piece = _asked(os.read, file, min(left, _AT_ONCE))
            if not piece:
                break
            pieces.append(piece)
            left -= len(piece)
    finally:
        try:
            os.close(file)
        except OSError:
            pass  # The program has closed it, with all others.
    # Some files of the system tell of no size.
    if not left:
        raise Unreadable(_TOO_LARGE)
    return ''.join(pieces)


def write(path, text):
    """Makes this the text of a regular file. Raises Unreadable."""
    file = _asked(os.open, path, os.O_WRONLY | os.O_CREAT | _FLAGS, 0666)
    try:
        _version(_asked(os.fstat, file))
        _asked(os.ftruncate, file, 0)
        while text:
            text = text[_asked(os.write, file, text):]
    finally:
        os.close(file)


def _version(status):
    if stat.S_ISDIR(status.st_mode):
        raise Unreadable(os.strerror(errno.EISDIR))
    if not stat.S_ISREG(status.st_mode):
        raise Unreadable('not a regular file')
    if status.st_size > LIMIT:
        raise Unreadable(_TOO_LARGE)
    return status.st_mtime, status.st_size, status.st_ino


def _asked(function, *arguments):
    while True:
        try:
            return function(*arguments)
        except EnvironmentError as error:
            if error.errno != errno.EINTR:
                raise Unreadable(error.strerror, error.errno in (errno.ENOENT, errno.ENOTDIR))
        except TypeError:
            raise Unreadable('no file can have this name')  # A NUL is in it.


_TOO_LARGE = 'larger than %d MB' % (LIMIT >> 20)
