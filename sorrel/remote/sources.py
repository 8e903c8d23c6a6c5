"""The lines of the program's files: those that are here, else as the program sends them."""

from __future__ import absolute_import

import ast

from sorrel.common import file_lines, text_files
from sorrel.common.records import record
from sorrel.inspection import blocks
from sorrel.protocol.messages import Refused


class Entry(record('Entry', 'id name path line reference')):
    """A frame of the program. id: its number. reference: of a source that has no file, else 0."""

    # What commands look into, as they do in the program itself.
    frame = property(lambda self: self)


def entry_of(shown):
    """The Entry of a stackTrace's frame."""
    source = shown.get('source', {})
    path = source.get('path') or source.get('name') or u'<unknown>'
    return Entry(shown['id'], shown['name'].encode('utf-8'), path.encode('utf-8'), shown['line'],
                 source.get('sourceReference', 0))


class Sources(object):

    def __init__(self, session):
        self._session = session
        self._sent = {}

    def line(self, entry, number):
        """A line with its line end, '' where there is none."""
        if self._is_here(entry):
            return file_lines.line(entry.path, number)
        return file_lines.pick(self._text(entry).splitlines(True), number)

    def function(self, entry):
        """The syntax tree of the innermost function of the entry's name at its line, or None."""
        around = [node for node in ast.walk(self._tree(entry))
                  if isinstance(node, ast.FunctionDef) and node.name == entry.name
                  and node.lineno <= entry.line <= _last_line(node)]
        return around and max((node.lineno, node) for node in around)[1] or None

    def end(self, entry, first):
        """The last line of what begins on this one."""
        return blocks.end(lambda number: self.line(entry, number), first)

    def first_line(self, entry, name):
        """Of the body of a function of the entry's file, by a name such as "Class.method"; or None.
        """
        node = self._tree(entry)
        for word in name.split('.'):
            inner = [one for one in getattr(node, 'body', ())
                     if isinstance(one, (ast.FunctionDef, ast.ClassDef)) and one.name == word]
            if not inner:
                return None
            node = inner[-1]
        return _body_line(node) if isinstance(node, ast.FunctionDef) else None

    def _tree(self, entry):
        try:
            text = text_files.text(entry.path) if self._is_here(entry) else self._text(entry)
            return ast.parse(text)
        except (text_files.Unreadable, SyntaxError, TypeError, MemoryError):
            return ast.Module([])  # It may be for another version of the interpreter.

    def _is_here(self, entry):
        return not entry.reference and text_files.is_file(entry.path)

    def _text(self, entry):
        key = entry.path, entry.reference
        if key not in self._sent:
            try:
                self._sent[key] = self._session.ask(
                    'source', source={'path': entry.path.decode('utf-8', 'replace'),
                                      'sourceReference': entry.reference},
                    sourceReference=entry.reference)['content'].encode('utf-8')
            except Refused:
                self._sent[key] = ''
        return self._sent[key]


def parameters(function):
    """The names of the parameters of a function's syntax tree."""
    arguments = function.args
    names = [node.id for argument in arguments.args for node in ast.walk(argument)
             if isinstance(node, ast.Name)]
    return names + [name for name in (arguments.vararg, arguments.kwarg) if name]


def _body_line(function):
    first = function.body[0]
    has_text = isinstance(first, ast.Expr) and isinstance(first.value, ast.Str)
    return function.body[1].lineno if has_text and len(function.body) > 1 else first.lineno


def _last_line(node):
    return max([inner.lineno for inner in ast.walk(node) if hasattr(inner, 'lineno')])
