"""Texts of programs that are in no file: of the command line, of the standard input, or made.

Programs that make their code leave its text to the standard library's module for lines.
"""

from __future__ import absolute_import

import sys
import types

from sorrel.common import file_lines, text_files
from sorrel.inspection import modules

# (code, lines) by the id() of the code: two may be equal that are not of one text.
_texts = {}


def keep(code, text):
    """The code, and all that is in it, has been made of this text."""
    _keep(code, text.splitlines(True))


def line(code, number):
    """A line of what the code was made of, '' where that is not known."""
    return file_lines.pick(_texts.get(id(code), (code, []))[1], number)


def text(code):
    """What the code was made of, '' where that is not known."""
    known = _texts.get(id(code))
    lines = known[1] if known is not None else _left(code.co_filename)
    return ''.join(lines)


def _left(name):
    cache = modules.namespace(sys.modules.get('linecache')).get('cache')
    found = cache.get(name) if type(cache) is dict else None
    lines = found[2] if type(found) is tuple and len(found) == 4 else None
    if type(lines) is not list or sum([len(line) for line in lines if type(line) is str]) \
            > text_files.LIMIT:
        return []
    return [line.encode('utf-8') if type(line) is unicode else line for line in lines
            if type(line) in (str, unicode)]


def _keep(code, lines):
    _texts[id(code)] = code, lines
    for constant in code.co_consts:
        if isinstance(constant, types.CodeType):
            _keep(constant, lines)
