"""The token that a listening program asks its clients for, and the file that they find it in.

Whoever runs code as this user can read the file, and could do whatever the program's client can.
Others can connect to a port, and so can a web page that this user opens.
"""

from __future__ import absolute_import

import errno
import os
import stat
import tempfile

from sorrel.protocol import secrets

_SHORTEST = 16
_LONGEST = 1000


class NoToken(Exception):
    """There is none in the file, or no safe place for one; the text says why."""


class Token(object):
    """word: the token. path: of the file that it is in."""

    def __init__(self, path):
        """path: of a file that holds the token, or is to hold a new one. Raises NoToken."""
        self.path = os.path.abspath(path)
        self._process = os.getpid()
        self._is_new = False
        try:
            self.word = _read(self.path)
            if self.word is None:
                self.word = secrets.new()
                _write(self.path, self.word)
                self._is_new = True
        except EnvironmentError as error:
            raise NoToken('cannot keep the token in %s: %s' % (self.path, error.strerror))

    def keep(self):
        """The calling process has it from now on, and removes the file if somebody has to.

        It is forked from the one that had it, which may have removed the file. Raises NoToken.
        """
        self._process = os.getpid()
        try:
            if self._is_new and _read(self.path) is None:
                _write(self.path, self.word)
        except EnvironmentError as error:
            raise NoToken('cannot keep the token in %s: %s' % (self.path, error.strerror))

    def described(self):
        """What of_description() makes one of in another process."""
        return [self.path, self.word, self._is_new]

    @classmethod
    def of_description(cls, described):
        token = cls.__new__(cls)
        path, word, token._is_new = described
        token.path, token.word = path.encode('utf-8'), str(word)
        token._process = None
        return token

    def is_shown_by(self, arguments):
        """Whether these arguments of an attach request have it."""
        said = arguments.get('token') if isinstance(arguments, dict) else None
        return secrets.is_same(said.encode('utf-8') if isinstance(said, unicode) else '', self.word)

    def remove(self):
        """Removes the file, if it is this process's own."""
        try:
            if self._is_new and os.getpid() == self._process and _read(self.path) == self.word:
                os.unlink(self.path)
        except (EnvironmentError, NoToken):
            pass  # Somebody has changed it, or the folder.


def own_folder():
    """The folder in which this user's listening programs are found, for this user alone.

    Raises NoToken.
    """
    folder = _folders()[0]
    try:
        os.mkdir(folder, 0700)
    except OSError as error:
        if error.errno != errno.EEXIST:
            raise NoToken('cannot keep the token in %s: %s' % (folder, error.strerror))
    if not _is_own_folder(folder):
        raise NoToken('cannot keep the token in %s, which is not for this user alone' % folder)
    return folder


def new_token(address):
    """A Token for whoever listens there (as getsockname() has it), where clients look for it.

    Raises NoToken.
    """
    path = os.path.join(own_folder(), _file_name(address))
    try:
        # What a program that was killed has left.
        if os.path.lexists(path):
            os.unlink(path)
    except OSError as error:
        raise NoToken('cannot keep the token in %s: %s' % (path, error.strerror))
    return Token(path)


def find_token(connection):
    """The token for whom this socket is connected to, when that is a program of this user's here.

    None where there is none.
    """
    address, own = connection.getpeername()[:2], connection.getsockname()[:2]
    host, port = address
    # Elsewhere the same port is somebody else's, who is not to learn what the token is here.
    if not (host.startswith('127.') or host == '::1' or host == own[0]):
        return None
    names = [_file_name((name, port)) for name in (host, '::', '0.0.0.0')
             if not (':' in host and name == '0.0.0.0')]
    found = []
    for path in [os.path.join(folder, name) for folder in _folders() for name in names
                 if _is_own_folder(folder)]:
        try:
            # Programs that were killed have left theirs.
            found.append((os.stat(path).st_mtime, _read(path)))
        except (EnvironmentError, NoToken):
            pass
    return max(found)[1] if found else None


def read_token(path):
    """The token in a file that its user has named. Raises NoToken."""
    try:
        word = _read(path)
    except EnvironmentError as error:
        raise NoToken('cannot read the token in %s: %s' % (path, error.strerror))
    if word is None:
        raise NoToken('there is no token in %s: no such file' % path)
    return word


def _folders():
    """Where tokens are kept, best first; a program and its client may know different ones."""
    user = os.getuid() if hasattr(os, 'getuid') else os.environ.get('USERNAME', '')
    found = []
    for folder in os.environ.get('XDG_RUNTIME_DIR', ''), '/run/user/%s' % user:
        if os.path.isabs(folder) and _is_own_folder(folder):
            found.append(os.path.join(folder, 'sorrel'))
    try:
        temporary = [tempfile.gettempdir()]
    except IOError:
        temporary = []  # All devices are full.
    for folder in temporary + ['/tmp']:
        found.append(os.path.join(folder, 'sorrel-%s' % user))
    return found


def _is_own_folder(path):
    """Whether it is one, no link, that nobody but this user can change or look into."""
    try:
        status = os.lstat(path)
    except OSError:
        return False
    return stat.S_ISDIR(status.st_mode) and _is_own(status)


def _is_own(status):
    return os.name != 'posix' or status.st_uid == os.getuid() and not status.st_mode & 077


def _file_name(address):
    return '%s-%d' % (address[0].partition('%')[0].replace(':', '.'), address[1])


def _read(path):
    """The token in a file; None where there is no such file. Raises EnvironmentError."""
    try:
        descriptor = os.open(path, os.O_RDONLY | getattr(os, 'O_NONBLOCK', 0)
                             | getattr(os, 'O_NOFOLLOW', 0))
    except OSError as error:
        if error.errno == errno.ENOENT:
            return None
        raise
    try:
        status = os.fstat(descriptor)
        if not stat.S_ISREG(status.st_mode) or not _is_own(status):
            raise NoToken('%s is not a file for this user alone' % path)
        word = os.read(descriptor, _LONGEST + 1).strip()
    finally:
        os.close(descriptor)
    if not _SHORTEST <= len(word) <= _LONGEST or not word.isalnum():
        raise NoToken('no token in %s: not %d to %d letters and digits' % (
            path, _SHORTEST, _LONGEST))
    return word


def _write(path, word):
    """Makes a file that nobody else can read. Raises EnvironmentError."""
    descriptor = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL | getattr(os, 'O_NOFOLLOW', 0),
                         0600)
    try:
        os.write(descriptor, word + '\n')
    except EnvironmentError:
        os.unlink(path)
        raise
    finally:
        os.close(descriptor)
