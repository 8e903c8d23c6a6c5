"""Temporary files and folders, for their user alone, where the standard library has them.

Its own module for that brings others along, for which every start would have to wait.
"""

from __future__ import absolute_import

import binascii
import errno
import os

_VARIABLES = 'TMPDIR', 'TEMP', 'TMP'
_FOLDERS = ['/tmp', '/var/tmp', '/usr/tmp', os.curdir]
_PREFIX = 'tmp'


def place():
    """The folder for them. Raises IOError."""
    for folder in [os.environ.get(name) for name in _VARIABLES] + _FOLDERS:
        if folder and os.path.isdir(folder) and os.access(folder, os.W_OK | os.X_OK):
            return os.path.abspath(folder)
    raise IOError(errno.ENOENT, 'there is no folder for temporary files')


def new_folder(prefix, where):
    """The path of one in the folder `where`. Raises OSError."""
    return _new(os.mkdir, 0700, prefix, where)[0]


def new_file():
    """The path of one, and its descriptor, open for reading and writing. Raises IOError, OSError."""
    flags = os.O_RDWR | os.O_CREAT | os.O_EXCL | os.O_NOFOLLOW
    return _new(lambda path, mode: os.open(path, flags, mode), 0600, _PREFIX, place())


def _new(make, mode, prefix, where):
    while True:
        path = os.path.join(where, prefix + binascii.hexlify(os.urandom(8)))
        try:
            return path, make(path, mode)
        except OSError as error:
            if error.errno != errno.EEXIST:
                raise
