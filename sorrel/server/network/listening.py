"""Where clients come to: a port, or a socket in the file system."""

from __future__ import absolute_import

import errno
import os
import stat

from sorrel.common.originals import socket
from sorrel.common.records import record
from sorrel.protocol.descriptors import above_streams

# Clients that come while the server is busy with others.
_BACKLOG = 16
Port = record('Port', 'host number')
Path = record('Path', 'path')


class InUse(Exception):
    """The path is not free; the text says why."""


def place(text):
    """The Port or Path that is written [HOST:]PORT or unix:PATH. Raises ValueError.

    Only programs of this machine may connect where no host is named.
    """
    if text.startswith('unix:') and text != 'unix:':
        return Path(text[len('unix:'):])
    host, colon, port = text.rpartition(':')
    if not port.isdigit() or int(port) > 65535 or (colon and not host):
        raise ValueError('not [HOST:]PORT nor unix:PATH: %s' % text)
    return Port(host.strip('[]') or '127.0.0.1', int(port))


class Listening(object):
    """A listener. socket: the socket; address: what getsockname() says of it; name: for people."""

    def __init__(self, place):
        """place: a Port or a Path. Raises socket.error or InUse."""
        self._process = os.getpid()
        # The path of its file, and the identity of that.
        self._path = self._made = None
        if isinstance(place, Path):
            self._path = os.path.abspath(place.path)
            self.socket = _at_path(self._path)
            self._made = _identity(self._path)
            self.name = 'unix:' + self._path
        else:
            self.socket = _at_port(*place)
            host, port = self.socket.getsockname()[:2]
            self.name = '%s:%d' % ('[%s]' % host if ':' in host else host, port)
        self.socket.listen(_BACKLOG)
        self.socket.setblocking(False)
        self.address = self.socket.getsockname()

    def is_for_own_user(self):
        """Whether the system lets nobody else connect."""
        return self._made is not None

    def remove(self):
        """Removes what is in the file system, if that is still this process's own."""
        if self._made is not None and os.getpid() == self._process:
            _remove_if_same(self._path, self._made)


def _at_port(host, port):
    family, kind, protocol_number, _, address = socket.getaddrinfo(
        host, port, 0, socket.SOCK_STREAM, 0, socket.AI_PASSIVE)[0]
    listener = above_streams(lambda: socket.socket(family, kind, protocol_number))
    if os.name == 'posix':  # Elsewhere it would let others take the port.
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    if family == getattr(socket, 'AF_INET6', None) and hasattr(socket, 'IPV6_V6ONLY'):
        # Nobody else is to answer at this port of the same machine.
        listener.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, 0)
    listener.bind(address)
    return listener


def _at_path(path):
    if not hasattr(socket, 'AF_UNIX'):
        raise InUse('there are no such sockets on this platform: unix:%s' % path)
    _make_room(path)
    listener = above_streams(lambda: socket.socket(socket.AF_UNIX, socket.SOCK_STREAM))
    # Nobody else can connect, not even for a moment.
    before = os.umask(0177)
    try:
        listener.bind(path)
    finally:
        os.umask(before)
    return listener


def _make_room(path):
    """Removes the socket of a program that has ended. Raises InUse."""
    found = _identity(path)
    try:
        status = os.lstat(path)
    except OSError:
        return
    if not stat.S_ISSOCK(status.st_mode):
        raise InUse('%s is there, and no socket' % path)
    caller = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    # A program that is stopped does not take who comes.
    caller.setblocking(False)
    try:
        caller.connect(path)
    except socket.error as error:
        if error.args[0] != errno.ECONNREFUSED or status.st_uid != os.getuid():
            raise InUse('%s is there, and may be in use: %s' % (path, error.args[-1]))
    else:
        raise InUse('another program listens at %s' % path)
    finally:
        caller.close()
    _remove_if_same(path, found)


def _identity(path):
    """What tells a file from others that come to have its path; None where there is none."""
    try:
        status = os.lstat(path)
    except OSError:
        return None
    return status.st_dev, status.st_ino, status.st_mtime


def _remove_if_same(path, wanted):
    try:
        if _identity(path) == wanted:
            os.unlink(path)
    except OSError:
        pass  # Somebody was faster, or has locked the folder.
