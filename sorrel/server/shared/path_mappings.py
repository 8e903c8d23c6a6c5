"""Folders that have one name to the client and another one to the program."""

from __future__ import absolute_import

import os

from sorrel.common.decoding import text
from sorrel.protocol import folders
from sorrel.protocol.messages import Refused


class PathMappings(object):

    def __init__(self, mappings=(), folder='/'):
        """mappings: dicts of a "localRoot", which is the client's, and a "remoteRoot".

        folder: the program's, that its relative roots begin at. Raises Refused.
        """
        self._roots = [
            (Root(_full(mapping['localRoot'], u'pathMappings[%d].localRoot' % number)),
             Root(_in_program(mapping['remoteRoot'], folder)))
            for number, mapping in enumerate(mappings)]

    def are_any(self):
        return bool(self._roots)

    def to_program(self, path):
        """The program's name of a file by the client's; None where no folder reaches it."""
        return _mapped(path, self._roots)

    def to_client(self, path):
        """The other way."""
        return _mapped(path, [(remote, local) for local, remote in self._roots])


class Root(object):
    """A folder, of this system or of Windows."""

    def __init__(self, path):
        """path: a full one."""
        self._is_windows = folders.is_of_windows(path)
        self._separator = '\\' if self._is_windows else '/'
        if path.startswith('/'):
            path = os.path.normpath(path)
        self._path = path.rstrip('/' + self._separator) + self._separator

    def __len__(self):
        return len(self._path)

    def rest(self, path):
        """What follows this folder in a path, with slashes; None where it lies elsewhere."""
        known = self._path
        if self._is_windows:
            # Upper and lower case are the same there, and so are both slashes.
            path, known = path.replace('/', '\\'), known.replace('/', '\\')
        begun = path[:len(known)]
        if begun != known and not (self._is_windows and begun.lower() == known.lower()):
            return None
        return path[len(known):].replace(self._separator, '/')

    def join(self, rest):
        return self._path + rest.replace('/', self._separator)


def _full(path, name):
    path = path.encode('utf-8')
    if not folders.is_full(path):
        raise Refused('%s is not a full path: %s' % (name, text(path)))
    return path


def _in_program(path, folder):
    path = folders.in_home(path.encode('utf-8'))
    return path if folders.is_full(path) else os.path.join(folder, path)


def _mapped(path, roots):
    """By the innermost of the folders (from, to) that it lies in; None for none."""
    found = None
    for known, other in roots:
        rest = known.rest(path)
        if rest is not None and (found is None or len(known) > len(found[0])):
            found = known, other.join(rest)
    return found and found[1]
