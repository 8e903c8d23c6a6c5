"""Functions of the program, by their names, and where their own code begins."""

from __future__ import absolute_import

import re

import _sorrel

from sorrel.common import file_lines
from sorrel.common.records import record
from sorrel.inspection import bytecode, code_lines

_DEFINITION = re.compile(r'\s*def\b')

# How a frame is told that has just begun to run a function: by the name and the first line of its
# code and, of code that no file has, the code itself, where else only the file and the line count.
Entry = record('Entry', 'name first_line code', None)
# The same of code at any line of a text that no file has, by the name that it was compiled under.
InText = record('InText', 'name')


def in_namespace(variables, names):
    """What is found by following names, such as ["Class", "method"]. Raises LookupError."""
    found = variables[names[0]]
    for name in names[1:]:
        found = _sorrel.static_attribute(found, name)
    return found


def entry_line(code):
    """The first line of a function's own code."""
    return code_lines.of_code(code)[0]


def entry(code, path):
    """The Entry of a function in a file where the line alone does not tell it, else None.

    The line may be one of other code, too, or be come to several times in one call.
    """
    line = entry_line(code)
    is_shared = line == code.co_firstlineno \
        or _DEFINITION.match(file_lines.line(path, line)) is not None
    return Entry(code.co_name, code.co_firstlineno) if is_shared or _comes_back(code) else None


def is_reached(wanted, frame):
    """Whether a line event in this frame is one that an Entry or an InText tells from others.

    Of an Entry it is the first one of a call of the function.
    """
    if isinstance(wanted, InText):
        return frame.f_code.co_filename == wanted.name
    return _is_entry(wanted, frame)


def _is_entry(entry, frame):
    code = frame.f_code
    if frame.f_lasti or code.co_name != entry.name \
            or code.co_firstlineno != entry.first_line:
        return False
    return entry.code is None or (
        code == entry.code and code.co_filename == entry.code.co_filename)


def _comes_back(code):
    """Whether a loop in the first line leads back there."""
    end = _end_of_first_line(code)
    return any(one.target < end and one.offset >= one.target
               for one in bytecode.of_code(code).instructions
               if one.name in ('JUMP_ABSOLUTE', 'CONTINUE_LOOP'))


def _end_of_first_line(code):
    offset = 0
    for step, lines in zip(map(ord, code.co_lnotab[::2]), map(ord, code.co_lnotab[1::2])):
        offset += step
        if lines and offset:
            return offset
    return len(code.co_code)
