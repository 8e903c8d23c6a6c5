"""What the Python that Jinja2 makes of a template says of the template.

Each template has a namespace of its own, which is what its functions find their globals in. The
template's lines are there in `debug_info`, as "TEMPLATE_LINE=LINE&...": each says where in the
Python the line begins, if it has more to it than text.
"""

from __future__ import absolute_import

import bisect
import dis
import os
import re
import types

_FOR_ITER, _LOAD_FAST, _SETUP_LOOP, _STORE_FAST, _YIELD_VALUE = [
    dis.opmap[name]
    for name in 'FOR_ITER', 'LOAD_FAST', 'SETUP_LOOP', 'STORE_FAST', 'YIELD_VALUE']
# How the functions spell a variable of the template: up to 2.8 without the level of its scope.
_VARIABLE = re.compile(r'l_(?:(\d+)_)?(\w+)$')
# What they go through the text of another function with.
_EVENT = 'event'
_PARENT = 'parent_template'


def is_namespace(namespace):
    """Whether these are the globals of a template's functions, with lines of a template's."""
    return isinstance(dict.get(namespace, 'debug_info'), str) \
        and 'blocks' in namespace and 'environment' in namespace


def functions(namespace):
    """The code of all of a template's functions."""
    found = []
    made = [namespace.get('root')] + dict.values(namespace.get('blocks') or {})
    left = [function.func_code for function in made if isinstance(function, types.FunctionType)]
    while left:
        code = left.pop()
        found.append(code)
        left.extend([constant for constant in code.co_consts
                     if isinstance(constant, types.CodeType)])
    return found


def path(code):
    """The template's file, "<template>" for one that has none."""
    name = code.co_filename
    return name if name.startswith('<') else os.path.abspath(name)


class Lines(object):
    """The template's lines in one function."""

    def __init__(self, code, debug_info):
        pairs = [pair.split('=') for pair in debug_info.split('&') if '=' in pair]
        # Those of the functions in it are theirs.
        own = frozenset([line for _, line in dis.findlinestarts(code)])
        by_line = sorted([(int(line), int(of_template)) for of_template, line in pairs])
        self._by_line = dict([pair for pair in by_line if pair[0] in own])
        self._begin = sorted(self._by_line)
        # A line of the template goes on behind a function that is made in its midst.
        for before, line in zip(self._begin, self._begin[1:]):
            if self._by_line[before] == self._by_line[line]:
                self._begin.remove(line)
        self._parents_text, self._extends = self._find_parent(code)

    def of_template(self, line):
        """The template's line that a line of the function belongs to."""
        if self._parents_text is not None and line >= self._parents_text:
            line = self._extends
        after = bisect.bisect_right(self._begin, line)
        return self._by_line[self._begin[after - 1]] if after else 1

    def begins(self, line):
        """Whether what the template says in some line begins with this line of the function."""
        at = bisect.bisect_left(self._begin, line)
        return self._begin[at:at + 1] == [line]

    def _find_parent(self, code):
        """From which line on the function gives its parent's text, and where that is looked for.

        Of the former the template's lines say nothing.
        """
        loops = []
        for start, line in dis.findlinestarts(code):
            if ord(code.co_code[start]) == _SETUP_LOOP \
                    and _loaded(code, start + 3) == _PARENT:
                loops.append(line)
        return (loops[-1], loops[0]) if len(loops) > 1 else (None, None)


def _loaded(code, at):
    """The local variable that the instruction there loads; None for another instruction."""
    return _variable(code, at) if ord(code.co_code[at]) == _LOAD_FAST else None


def _variable(code, at):
    return code.co_varnames[ord(code.co_code[at + 1]) | ord(code.co_code[at + 2]) << 8]


def is_passing_text_on(frame):
    """Whether the frame is at a line only to take the next piece of another function's text."""
    code, at = frame.f_code.co_code, frame.f_lasti
    if ord(code[at]) != _FOR_ITER or ord(code[at + 3]) != _STORE_FAST:
        return False
    return _variable(frame.f_code, at + 3) == _EVENT


def is_suspended(frame):
    """Whether a return of the frame's is none: it goes on when more of its text is asked for."""
    return ord(frame.f_code.co_code[frame.f_lasti]) == _YIELD_VALUE


def is_of_template(spelling):
    """Whether a variable spelt like this may be one of the template as a whole, no loop's."""
    return (_VARIABLE.match(spelling).group(1) or '0') == '0'


def spelt(variables):
    """For each of the template's variables among those of a frame, how it is spelt there."""
    found = {}
    for spelling in variables:
        match = _VARIABLE.match(spelling)
        if match:
            level, name = int(match.group(1) or 0), match.group(2)
            found.setdefault(name, []).append((level, spelling))
    return dict((name, [spelling for _, spelling in sorted(spellings, reverse=True)])
                for name, spellings in found.items())
