"""What the Python that Chameleon makes of a template says of the template.

Each template has a namespace of its own, whose function `initialize` makes one function of the
template, of each macro and of what fills a slot. Their code has the places of expressions in it:
from 3.0 on it notes where it is in a variable, as a key of `__tokens`; before, each expression has
an except clause that says where it is.
"""

from __future__ import absolute_import

import bisect
import dis
import os
import types

_ARGUMENTS = ('__stream', 'econtext', 'rcontext')
# What is there in each namespace.
_HELPERS = ('__marker', 'g_re_amp', 'g_re_needs_escape')
# How many instructions an except clause needs for the place that it says.
_CLAUSE = 13


def is_namespace(namespace):
    """Whether these are the globals of a template's functions."""
    for name in _HELPERS:
        if name not in namespace:
            return False
    return isinstance(namespace.get('initialize'), types.FunctionType)


def module_path(namespace):
    """The name of the Python file that the module would have."""
    return namespace['initialize'].func_code.co_filename


def functions(namespace):
    """The code of all functions that give some of the template's text.

    Those without any expression only call others, or are but text.
    """
    found = []
    left = [namespace['initialize'].func_code]
    while left:
        code = left.pop()
        left += [inner for inner in code.co_consts if isinstance(inner, types.CodeType)]
        if code.co_varnames[:3] == _ARGUMENTS and _places(code, namespace):
            found.append(code)
    return found


def lines(code, namespace):
    """The Lines of a function of a template's, whose globals these are."""
    return Lines(code, _places(code, namespace))


def line_of_error(frame, path):
    """The template's line where the exception was raised that a frame is raising again; or None.

    It has written that down.
    """
    if not _is_in_clause(frame):
        return None
    errors = (frame.f_locals.get('rcontext') or {}).get('__error__')
    for error in errors or ():
        if _file(error[3]) == path:
            return _first_line(error[0], error[1])
    return None


class Lines(object):
    """The template's lines in one function.

    path: the template's file, "<string>" for one that has none.
    """

    def __init__(self, code, places):
        """places: for each instruction that begins an expression its offset, and where that is."""
        starts = list(dis.findlinestarts(code))
        offsets = [offset for offset, _ in starts]
        self.path = _file(places[0][1])
        # By the Python's lines.
        self._lines = [(starts[bisect.bisect_right(offsets, offset) - 1][1], line)
                       for offset, _, line in places]
        loops = [starts[bisect.bisect_right(offsets, offset) - 1][1]
                 for offset, name, _ in _instructions(code) if name == 'FOR_ITER']
        self._begin = frozenset(self._beginnings(loops))

    def of_template(self, line):
        """The template's line that one of the Python belongs to."""
        after = bisect.bisect_left(self._lines, (line + 1,))
        return self._lines[max(0, after - 1)][1]

    def begins(self, line):
        """Whether what the template says in some line begins there, or another turn of a loop."""
        return line in self._begin

    def _beginnings(self, loops):
        last, last_of_template = 0, None
        for line, of_template in self._lines:
            if of_template != last_of_template \
                    or bisect.bisect(loops, last) != bisect.bisect(loops, line):
                yield line
            last, last_of_template = line, of_template


def _places(code, namespace):
    """(offset, path, line) of each instruction that begins an expression of the template's."""
    tokens, path = namespace.get('__tokens'), namespace.get('__filename')
    instructions = list(_instructions(code))
    found = []
    for number, (offset, _, _) in enumerate(instructions):
        if tokens is not None:
            place = _noted(code, instructions[number:number + 2], tokens, path)
        else:
            place = _said_by_clause(code, instructions, number)
        if place is not None:
            found.append((offset,) + place)
    return found


def _instructions(code):
    """(offset, name, argument) of each instruction; 0 where it has none."""
    offset, text = 0, code.co_code
    while offset < len(text):
        number = ord(text[offset])
        if number >= dis.HAVE_ARGUMENT:
            yield offset, dis.opname[number], ord(text[offset + 1]) | ord(text[offset + 2]) << 8
            offset += 3
        else:
            yield offset, dis.opname[number], 0
            offset += 1


def _is_in_clause(frame):
    """Whether a frame is where it raises an exception again."""
    return ord(frame.f_code.co_code[frame.f_lasti]) == dis.opmap['RAISE_VARARGS']


def _noted(code, instructions, tokens, path):
    """The (path, line) that a statement `__token = KEY` stands for, given its two instructions."""
    names = [name for _, name, _ in instructions]
    if names == ['LOAD_CONST', 'STORE_FAST']:
        stored = code.co_varnames
    elif names == ['LOAD_CONST', 'STORE_DEREF']:
        stored = code.co_cellvars + code.co_freevars
    else:
        return None
    (_, _, constant), (_, _, variable) = instructions
    token = stored[variable] == '__token' and tokens.get(code.co_consts[constant])
    return (path, _first_line(token[0], token[1])) if token else None


def _said_by_clause(code, instructions, number):
    """The (path, line) of an expression whose except clause begins with

        rcontext.setdefault('__error__', []).append((TEXT, LINE, COLUMN, PATH, ...
    """
    offset, name, distance = instructions[number]
    if name != 'SETUP_EXCEPT':
        return None
    # The instruction has an argument.
    clause = offset + 3 + distance
    first = bisect.bisect_left(instructions, (clause,))
    said = [code.co_consts[constant]
            for _, name, constant in instructions[first:first + _CLAUSE] if name == 'LOAD_CONST']
    if len(said) < 5 or said[0] != '__error__' or not isinstance(said[2], int):
        return None
    return said[4], _first_line(said[1], said[2])


def _first_line(text, line):
    """Where a text begins that may have blank lines before it."""
    return line + text[:len(text) - len(text.lstrip())].count('\n')


def _file(name):
    if isinstance(name, unicode):
        name = name.encode('utf-8')
    return name if name is None or name.startswith('<') else os.path.abspath(name)
