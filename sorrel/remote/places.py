"""Places of the program as a person names them, found with what the program tells of itself."""

from __future__ import absolute_import

import ast
import os
import re

from sorrel.common import text_files
from sorrel.protocol.messages import Refused as RefusedByProgram
from sorrel.remote.sources import Entry
from sorrel.service.breakpoints import Place, Refused

_FUNCTION = re.compile(r'[^\W\d]\w*(\.[^\W\d]\w*)*$')
_PYTHON = '.py'
# Where a function is, evaluated in the program: the path of its file and the first line in it.
_FIRST_LINE = '''(lambda code: (
    __import__('os').path.abspath(code.co_filename),
    [line for _, line in __import__('dis').findlinestarts(code)][0]))(%s.func_code)'''


class Places(object):

    def __init__(self, session, sources, value_text):
        """value_text: gives the repr of an expression where the program is."""
        self._session = session
        self._sources = sources
        self._value_text = value_text

    def find(self, named, entry):
        """The Place that is meant at an Entry. Raises Refused."""
        file_name, colon, where = [part.strip() for part in named.rpartition(':')]
        if colon:
            path = self._file(file_name)
            if path != entry.path:
                entry = Entry(None, None, path, 1, 0)
        if where.isdigit():
            if entry.reference and not os.path.isabs(entry.path):
                raise Refused('no breakpoints in lines of what is in no file')
            return Place(entry.path, int(where))
        if not _FUNCTION.match(where):
            raise Refused('%s is no name of a function' % where)
        line = self._sources.first_line(entry, where)
        if line is not None and not entry.reference:
            return Place(entry.path, line)
        if colon:
            raise Refused('no function %s in %s' % (where, entry.path))
        return self._live(where) or Place(None, None, name=where)

    def _file(self, name):
        path = os.path.expanduser(name)
        if os.path.isabs(path):
            return os.path.normpath(path)
        found = self._loaded(os.path.normpath(path))
        if len(found) > 1:
            raise Refused('%s is one of several files: %s' % (name, ', '.join(found)))
        if found:
            return found[0]
        for here in path, path + _PYTHON:
            if text_files.is_file(here):
                return os.path.abspath(here)
        raise Refused('no file %s' % name)

    def _loaded(self, name):
        sources = self._session.ask('loadedSources')['sources']
        paths = [source['path'].encode('utf-8') for source in sources if 'path' in source]
        ends = [os.sep + name, os.sep + name + _PYTHON]
        return sorted(set(path for path in paths if path.endswith(tuple(ends))))

    def _live(self, name):
        """That of a function that is known where the program is; None where it is not."""
        try:
            path, line = ast.literal_eval(self._value_text(_FIRST_LINE % name))
        except (RefusedByProgram, SyntaxError, TypeError, ValueError):
            return None
        return Place(path, line)
