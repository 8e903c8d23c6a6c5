"""Source of Python in colours, by Pygments, where the interpreter has it.

The program may have a Pygments of its own, of another version, or modules that are called like some
that Pygments needs. So it is loaded as if the program had not begun, and nothing of it is left in
sys.modules: the program finds there what it would find without it.
"""

from __future__ import absolute_import

import __builtin__
import sys
import warnings

from sorrel.common import file_lines, import_lock, source_encoding, text_files
from sorrel.inspection.time_limit import Overtime

_PYGMENTS = 'pygments'
# Of a text in which each line is coloured as part of the whole, which takes up to a quarter of a
# second; in a longer one each is by itself. In bytes.
_WHOLE_LIMIT = 256 * 1024
# Files of which the coloured lines are kept.
_KEPT = 32


class Highlighter(object):

    def __init__(self):
        """Before the program begins."""
        self._apart = _Apart()
        # What colours a unicode text; None while that is not known, or there is nothing.
        self._colour = None
        self._has_looked = False
        # By paths, what tells whether a file has changed, its lines and these coloured.
        self._known = {}

    def line(self, line):
        """A line in UTF-8, as Colours have it."""
        return line if self._is_useless() else self._coloured([line])[0]

    def listed(self, line, number, path):
        """The same of a line of a file."""
        if self._is_useless():
            return line
        lines, coloured = self._whole(path)
        # What the loader of a module has told is not what is in a file, and long lines are cut.
        if 0 < number <= len(lines) and lines[number - 1] == line:
            return coloured[number - 1]
        return self.line(line)

    def _is_useless(self):
        return self._has_looked and self._colour is None

    def _whole(self, path):
        """The lines of a file, without their ends, and these coloured; none of a long one."""
        try:
            version = text_files.version(path)
            if version[1] > _WHOLE_LIMIT:
                return [], []
            known = self._known.get(path)
            if known is None or known[0] != version:
                if len(self._known) == _KEPT:
                    self._known.clear()
                lines = _lines(text_files.text(path))
                known = version, lines, self._coloured(lines)
                if known[2] is not lines:
                    self._known[path] = known
            return known[1:]
        except text_files.Unreadable:
            return [], []

    def _coloured(self, lines):
        """Lines without their ends, coloured; the very same ones where that cannot be."""
        try:
            return import_lock.call(self._apart.call, self._try, lines)
        except import_lock.Locked:
            return lines  # It may be free at another stop.

    def _try(self, lines):
        try:
            if not self._has_looked:
                self._colour = _colouring()
                self._has_looked = True
            text = '\n'.join(lines).decode('utf-8', 'replace') + u'\n'
            found = self._colour(text).encode('utf-8').split('\n')
        except Overtime:
            raise
        except Exception:
            # There is no Pygments, or whatever may be wrong with it.
            self._has_looked, self._colour = True, None
            return lines
        return found[:len(lines)] if len(found) - 1 == len(lines) else lines


class _Apart(object):
    """What modules there are and where they are found, as if the program had not begun."""

    def __init__(self):
        self._modules = dict([(name, module) for name, module in sys.modules.items()
                              if name.partition('.')[0] != _PYGMENTS])
        # The first folder is that of the program, or is to be.
        self._path = sys.path[1:]
        self._meta_path = sys.meta_path[:]

    def call(self, function, *arguments):
        """Calls it there. For a thread that has the import lock."""
        modules = dict(sys.modules)
        places = sys.path, sys.meta_path, __builtin__.__import__
        try:
            _exchange(self._modules)
            sys.path, sys.meta_path = self._path[:], self._meta_path[:]
            __builtin__.__import__ = import_lock.default_import
            try:
                with warnings.catch_warnings():
                    # The program's options may make errors of them.
                    warnings.simplefilter('ignore')
                    return function(*arguments)
            finally:
                # The interpreter empties a module that nothing refers to.
                self._modules = dict(sys.modules)
        finally:
            sys.path, sys.meta_path, __builtin__.__import__ = places
            _exchange(modules)


def _exchange(modules):
    """Has these in sys.modules, and no others."""
    for name in sys.modules.keys():
        if name not in modules:
            del sys.modules[name]
    sys.modules.update(modules)


def _colouring():
    from pygments import highlight, lexers
    from pygments.formatters import TerminalFormatter
    # The other one is for another language of late.
    kind = getattr(lexers, 'Python2Lexer', None) or lexers.PythonLexer
    lexer, formatter = kind(stripnl=False), TerminalFormatter(bg='dark')
    return lambda text: highlight(text, lexer, formatter)


def _lines(text):
    written = text.splitlines(True)
    return [source_encoding.line(lambda wanted: file_lines.pick(written, wanted), number)
            .rstrip() for number in range(1, len(written) + 1)]
