"""Files as the client knows them and as the program does."""

from __future__ import absolute_import

import os
import re
import sys

import tmorvik26_vs2012_x64 as core

from sorrel.common import text_files
from sorrel.common.decoding import text
from sorrel.inspection import frames, modules, source
from sorrel.protocol.messages import Refused

# The library's module for this loads ten others: every new program would wait for them.
_ESCAPE = re.compile(r'%([0-9A-Fa-f]{2})')
_TO_ESCAPE = re.compile(r'[^A-Za-z0-9_.\-/]')


class Sources(object):

    def __init__(self):
        self._mappings = []
        self._uris = False
        # Files that only the program can read, by the references given to them from 1 on; and
        # what it knows of each.
        self._references = {}
        self._unreadable = []
        self._on_disk = {}

    def use_uris(self):
        self._uris = True

    def map_paths(self, mappings):
        """mappings: dicts of a "localRoot", which is the client's, and a "remoteRoot"."""
        self._mappings = [(_Root(mapping['localRoot']), _Root(mapping['remoteRoot']))
                          for mapping in mappings]

    def to_program(self, path):
        """A path that the client has named, as the program would name it. Raises Refused."""
        path = path.encode('utf-8')
        if self._uris and path.startswith('file://'):
            path = _ESCAPE.sub(lambda found: chr(int(found.group(1), 16)), path[len('file://'):])
        if '\0' in path:
            raise Refused('no file can have this name')
        for local, remote in self._mappings:
            rest = local.rest(path)
            if rest is not None:
                path = remote.join(rest)
                break
        return os.path.normpath(path)

    def to_client(self, path):
        for local, remote in self._mappings:
            rest = remote.rest(path)
            if rest is not None:
                path = local.join(rest)
                break
        if self._uris:
            path = 'file://' + _TO_ESCAPE.sub(lambda found: '%%%02X' % ord(found.group()), path)
        return text(path)

    def describe(self, path, globals=None):
        """A Source of the protocol.

        globals: of a module whose loader may know more. To be given in its thread alone: the
        loader is asked now.
        """
        if self._is_on_disk(path):
            return self.file(path)
        if path not in self._references:
            self._unreadable.append((path, ''))
            self._references[path] = len(self._unreadable)
        number = self._references[path]
        if globals is not None and not self._unreadable[number - 1][1]:
            self._unreadable[number - 1] = path, source.of_loader(path, globals)
        return {'name': text(path), 'sourceReference': number}

    def file(self, path):
        """A Source that the client can find under its name."""
        return {'name': text(os.path.basename(path)), 'path': self.to_client(path)}

    def content(self, path, reference):
        """The text of a described source. Raises Refused."""
        known = ''
        if 0 < reference <= len(self._unreadable):
            path, known = self._unreadable[reference - 1]
        elif path:
            path = self.to_program(path)
        else:
            raise Refused('its source is not known')
        try:
            return text(known or text_files.text(path))
        except text_files.Unreadable as error:
            raise Refused('its source is not known' if error.is_missing
                          else 'its source cannot be read: %s' % error)

    def _is_on_disk(self, path):
        if path not in self._on_disk:
            self._on_disk[path] = text_files.is_file(path)
        return self._on_disk[path]


class _Root(object):
    """A folder, of this system or of Windows."""

    def __init__(self, path):
        path = path.encode('utf-8')
        self._is_windows = '\\' in path or path[1:2] == ':'
        self._separator = '\\' if self._is_windows else '/'
        self._path = path.rstrip('/' + self._separator) + self._separator

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


def full_name(path):
    """The full name of a file, as the program has named it from the folder it was started in."""
    return os.path.normpath(os.path.join(_START_FOLDER, path))


def main_path():
    """Of the program that runs in this process, as far as that is known."""
    path = getattr(sys.modules.get('__main__'), '__file__', None)
    return full_name(path or ''.join(getattr(sys, 'argv', [])[:1]))


def loaded_modules():
    """(name, path) of each module of the program's that was loaded from a file."""
    found = []
    for name, module in sorted(sys.modules.items()):
        variables = modules.namespace(module)
        path = variables.get('__file__')
        if isinstance(path, str) and module is not core and not frames.is_own_namespace(variables):
            found.append((name, full_name(modules.source_name(path))))
    return found


_START_FOLDER = os.getcwd()
