"""Files as the client knows them and as the program does."""

from __future__ import absolute_import

import itertools
import os
import re
import sys

import tmorvik26_vs2012_x64 as core

from sorrel.common import text_files
from sorrel.common.decoding import text
from sorrel.common.records import record
from sorrel.inspection import (
    disassembly, frames, known_texts, module_files, modules, source, stacks)
from sorrel.protocol.messages import Refused
from sorrel.server.shared.path_mappings import PathMappings
from sorrel.server.shared.source_maps import range_of, SourceMaps

# The library's module for this loads ten others: every new program would wait for them.
_ESCAPE = re.compile(r'%([0-9A-Fa-f]{2})')
_TO_ESCAPE = re.compile(r'[^A-Za-z0-9_.\-/]')


# A text that the client can ask for. is_listing: whether it is made of bytecode.
_Text = record('_Text', 'path text is_listing')


class Sources(object):

    def __init__(self):
        self._mappings = PathMappings()
        self._uris = False
        self._maps = SourceMaps()
        # What the client is to ask for: the _Texts by their references, and these by path and text.
        self._texts = {}
        self._numbers = {}
        self._new_numbers = itertools.count(1)
        # Files that the client has named by their paths: it has them.
        self._of_client = set()
        # By the names of code that the program has made of text, what the core takes that for.
        self._files = {}
        self._on_disk = {}
        # By the ids of code objects, which are kept.
        self._listings = {}

    def use_uris(self):
        self._uris = True

    def map_paths(self, mappings):
        """mappings: dicts of a "localRoot", which is the client's, and a "remoteRoot".

        Raises Refused.
        """
        self._mappings = PathMappings(mappings, _START_FOLDER)

    def is_mapped(self, path):
        """Whether a path of the program's lies where a mapping leads; True without mappings."""
        return not self._mappings.are_any() or self._mappings.to_client(path) is not None

    def to_program(self, path):
        """A path that the client has named, as the program would name it. Raises Refused."""
        path = path.encode('utf-8')
        if self._uris and path.startswith('file://'):
            path = _ESCAPE.sub(lambda found: chr(int(found.group(1), 16)), path[len('file://'):])
        if '\0' in path:
            raise Refused('no file can have this name')
        return os.path.normpath(self._mappings.to_program(path) or path)

    def map_lines(self, source, ranges):
        """Lines of a file of the client's are lines of others in the program.

        ranges: (first, last, path, first line there) of each, as the client names them. Takes the
        place of what was said of the file before. Raises Refused.
        """
        self._maps.set(self.to_program(source), source, [
            range_of(first, last, self.to_program(path), runtime_first)
            for first, last, path, runtime_first in ranges])

    def place(self, path, line):
        """The program's (path, line) of a line of a file that the client has named."""
        return self._maps.to_program(path, line)

    def at(self, path, line):
        """(Source, line) of a place in a file, for the client."""
        mapped = self._maps.to_client(path, line)
        if mapped is None:
            return self.describe(path) if (path, '') in self._numbers else self.file(path), line
        return {'name': os.path.basename(mapped[0]), 'path': mapped[0]}, mapped[1]

    def named(self, source):
        """The program's path of a Source that the client has named. Raises Refused."""
        known = self._find(source)
        if known is None:
            if not source.get('path'):
                raise Refused('its source is not known' if source.get('sourceReference')
                              else 'no file is named')
            path = self.to_program(source['path'])
            self._of_client.add(path)
            return path
        if known.is_listing:
            raise Refused('this is no text of the program')
        return known.path

    def to_client(self, path):
        path = self._mappings.to_client(path) or path
        if self._uris:
            path = 'file://' + _TO_ESCAPE.sub(lambda found: '%%%02X' % ord(found.group()), path)
        return text(path)

    def describe(self, path):
        """A Source of the protocol."""
        return self.file(path) if self._is_on_disk(path) else self._without_file(path)

    def learn(self, path, globals):
        """What only the loader of a module knows, which may be asked here."""
        if not self._is_on_disk(path):
            self._reference(path, source.of_loader(path, globals))

    def of_place(self, path, line):
        """(Source, line) of a line of the program's."""
        return self.at(path, line) if self._is_on_disk(path) else (self.describe(path), line)

    def of_entry(self, entry):
        """(Source, line) of an Entry of a stack. To be called in its thread alone: the loader of
        its module may be asked.
        """
        path, line = entry.path, entry.line
        if self._is_on_disk(path):
            return self.at(path, line)
        self._learn_file(path, entry.frame)
        known = known_texts.of_entry(entry)
        if known or not stacks.is_own_place(entry):
            return self._without_file(path, known), line
        listing = self._listing(entry.frame.f_code)
        return (self._without_file(path, listing.text, True),
                listing.row(entry.frame, line))

    def known_text(self, path):
        """What the program was found to know of a path that is no file's; '' for nothing."""
        number = self._numbers.get((path, ''))
        known = self._texts[number] if number is not None else None
        return '' if known is None or known.is_listing else known.text

    def files_of(self, path):
        """What the core takes code for that was made of text under this name; () for other code."""
        return sorted(self._files.get(path, ()))

    def file(self, path):
        """A Source of a file, which the client can find under its name or else ask for."""
        shown = {'name': text(os.path.basename(path)), 'path': self.to_client(path)}
        if self._mappings.are_any() and path not in self._of_client \
                and self._mappings.to_client(path) is None:
            shown['sourceReference'] = self._reference(path)
        return shown

    def content(self, source, reference):
        """(text, type) of a described source. Raises Refused."""
        path = source.get('path')
        if reference in self._texts:
            path, known, is_listing = self._texts[reference]
        elif path:
            path, known, is_listing = self.to_program(path), '', False
        else:
            raise Refused('its source is not known')
        try:
            return (text(known or module_files.stored_text(path)),
                    'text/plain' if is_listing else 'text/x-python')
        except text_files.Unreadable as error:
            raise Refused('its source is not known' if error.is_missing
                          else 'its source cannot be read: %s' % error)

    def _find(self, source):
        """The _Text that the client means; None where it names a file by its path."""
        known, path = self._texts.get(source.get('sourceReference')), source.get('path')
        # The number may be one of an earlier session, and the file another one.
        return known if known and path in (None, self.to_client(known.path)) else None

    def _listing(self, code):
        known, listing = self._listings.get(id(code), (None, None))
        if known is not code:
            listing = disassembly.Listing(code)
            self._listings[id(code)] = code, listing
        return listing

    def _without_file(self, path, known='', is_listing=False):
        shown = {'name': text(path)}
        if os.path.isabs(path):
            # In an archive, say.
            shown = {'name': text(os.path.basename(path)), 'path': self.to_client(path)}
        return dict(shown, sourceReference=self._reference(path, known, is_listing))

    def _learn_file(self, path, frame):
        if frame.f_code.co_filename == path and source.is_made_up(frame):
            file = dict.get(frame.f_globals, '__file__')
            is_of_module = isinstance(file, str) and path != _NO_FILE
            self._files.setdefault(path, set()).add(
                full_name(modules.source_name(file)) if is_of_module else path)

    def _reference(self, path, known='', is_listing=False):
        """known: the text, where no file has it and it has been found out; else ''."""
        number = self._numbers.get((path, known)) or self._numbers.get((path, ''))
        if number is None or known and self._texts[number].text not in ('', known):
            number = next(self._new_numbers)
        if known or number not in self._texts:
            self._texts[number] = _Text(path, known, is_listing)
        # Without more being known, the last one is meant.
        self._numbers[path, known] = self._numbers[path, ''] = number
        return number

    def _is_on_disk(self, path):
        if path not in self._on_disk:
            self._on_disk[path] = text_files.is_file(path)
        return self._on_disk[path]


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
