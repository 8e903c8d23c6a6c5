"""Files as the client knows them and as the program does."""

from __future__ import absolute_import

import os
import re
import sys

import tmorvik26_vs2012_x64 as core

from sorrel.common import text_files
from sorrel.common.decoding import text
from sorrel.inspection import frames, given_texts, module_files, modules, source
from sorrel.protocol.messages import Refused

# The library's module for this loads ten others: every new program would wait for them.
_ESCAPE = re.compile(r'%([0-9A-Fa-f]{2})')
_TO_ESCAPE = re.compile(r'[^A-Za-z0-9_.\-/]')


class Sources(object):

    def __init__(self):
        self._mappings = []
        self._uris = False
        # What only the program can read, by the references given to it from 1 on.
        self._references = {}
        self._unreadable = []
        self._on_disk = {}

    def use_uris(self):
        self._uris = True

    def map_paths(self, mappings):
        """mappings: dicts of a "localRoot", which is the client's, and a "remoteRoot"."""
        self._mappings = [(_Root(mapping['localRoot']), _Root(mapping['remoteRoot']))
                          for mapping in mappings]

    def asked(self, source):
        """The path of a Source of the client's, as the program would name it. Raises Refused."""
        if 'path' in source:
            return self.to_program(source['path'])
        described = self._of_reference(source.get('sourceReference', 0))
        if described is None:
            raise Refused('its source is not known')
        return described.path

    def is_mapped(self, path):
        """Whether a path of the program's lies where a mapping leads; True without mappings."""
        return not self._mappings or any(
            remote.rest(path) is not None for _, remote in self._mappings)

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

    def describe(self, path, globals=None, code=None):
        """A Source of the protocol.

        globals: of a module whose loader may know more. To be given in its thread alone: the
        loader is asked now. code: of a frame there.
        """
        if self._is_on_disk(path):
            return self.file(path)
        if path not in self._references:
            self._unreadable.append(_Described(path))
            self._references[path] = len(self._unreadable)
        number = self._references[path]
        if globals is not None:
            self._unreadable[number - 1].learn(globals, code)
        shown = self.file(path) if os.path.isabs(path) else {'name': text(path)}
        return dict(shown, sourceReference=number)

    def known(self, path):
        """The Source of a path that may be of no file, or of one that is not there yet."""
        return self.describe(path) if path in self._references else self.file(path)

    def known_text(self, path):
        """What the program was found to know of a path that is no file's; '' for nothing."""
        number = self._references.get(path)
        return '' if number is None else self._unreadable[number - 1].text

    def files_of(self, path):
        """What the core takes code for that was made of text under this name; () for other code."""
        number = self._references.get(path)
        return () if number is None else sorted(self._unreadable[number - 1].files)

    def file(self, path):
        """A Source that the client can find under its name."""
        return {'name': text(os.path.basename(path)), 'path': self.to_client(path)}

    def content(self, path, reference):
        """The text of a described source. Raises Refused."""
        known = ''
        described = self._of_reference(reference)
        if described is not None:
            path, known = described.path, described.text
        elif path:
            path = self.to_program(path)
        else:
            raise Refused('its source is not known')
        try:
            return text(known or module_files.stored_text(path))
        except text_files.Unreadable as error:
            raise Refused('its source is not known' if error.is_missing
                          else 'its source cannot be read: %s' % error)

    def _of_reference(self, reference):
        return self._unreadable[reference - 1] if 0 < reference <= len(self._unreadable) else None

    def _is_on_disk(self, path):
        if path not in self._on_disk:
            self._on_disk[path] = text_files.is_file(path)
        return self._on_disk[path]


class _Described(object):
    """files: what the core takes code of this name for, where the program has made it of text."""

    def __init__(self, path):
        self.path = path
        self.text = ''
        self.files = set()

    def learn(self, globals, code):
        """From a frame of a module with these variables."""
        if code is not None and code.co_filename == self.path \
                and source.is_made_up_name(self.path, globals):
            file = globals.get('__file__')
            is_of_module = isinstance(file, str) and self.path != _NO_FILE
            self.files.add(full_name(modules.source_name(file)) if is_of_module else self.path)
            self.text = given_texts.text(code) or self.text
        else:
            self.text = self.text or source.of_loader(self.path, globals)


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
    return [(name, full_name(modules.source_name(file))) for name, file in _named_files()]


def loaded_files():
    """The files that those were loaded from, which may be compiled."""
    return [full_name(file) for _, file in _named_files()]


def _named_files():
    found = []
    for name, module in sorted(sys.modules.items()):
        variables = modules.namespace(module)
        file = variables.get('__file__')
        if isinstance(file, str) and module is not core and not frames.is_own_namespace(variables):
            found.append((name, file))
    return found


_START_FOLDER = os.getcwd()
# The core knows code of this name by no other.
_NO_FILE = '<string>'
