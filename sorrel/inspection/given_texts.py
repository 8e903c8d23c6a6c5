"""Lines of programs that are in no file: of a text on the command line, of the standard input."""

from __future__ import absolute_import

import types

from sorrel.common import file_lines

# (code, lines) by the id() of the code: two may be equal that are not of one text.
_texts = {}


def keep(code, text):
    """The code, and all that is in it, has been made of this text."""
    _keep(code, text.splitlines(True))


def line(code, number):
    """A line of what the code was made of, '' where that is not known."""
    return file_lines.pick(_lines(code), number)


def text(code):
    """All of what the code was made of, '' where that is not known."""
    return ''.join(_lines(code))


def _lines(code):
    return _texts.get(id(code), (code, []))[1]


def _keep(code, lines):
    _texts[id(code)] = code, lines
    for constant in code.co_consts:
        if isinstance(constant, types.CodeType):
            _keep(constant, lines)
