"""The instructions of a code object as a person reads them, where there is no source to read."""

from __future__ import absolute_import

import bisect
import opcode
import types

from sorrel.inspection import bytecode, values

# So many instructions are listed, and so many characters shown of a constant.
_INSTRUCTIONS = 100000
_CONSTANT_LIMIT = 60
_PLAIN_TYPES = (int, float, complex, bool, type(None), type(Ellipsis))


class Listing(object):
    """A text, the lines of which are instructions."""

    def __init__(self, code):
        # Where the listed instructions are, and the lines of the text that these are on.
        self._offsets, self._rows = [], []
        self._starts = dict(_line_starts(code))
        lines = _head(code)
        for instruction in bytecode.of_code(code).instructions[:_INSTRUCTIONS]:
            if instruction.offset in self._starts and self._offsets:
                lines.append('')
            lines.append(_line(code, instruction, self._starts))
            self._offsets.append(instruction.offset)
            self._rows.append(len(lines))
        self.text = '\n'.join(lines) + '\n'

    def row(self, frame, line):
        """The line of the text that a frame of the code is at; in its source it is at this one."""
        offset = max(frame.f_lasti, 0)
        if self._source_line(offset) != line:
            # It has gone on since: to what handles the exception that has come from there.
            offset = min([start for start, known in self._starts.items() if known == line]
                         or [offset])
        place = bisect.bisect_right(self._offsets, offset)
        return self._rows[place - 1] if place else len(_head(frame.f_code))

    def _source_line(self, offset):
        before = [start for start in self._starts if start <= offset]
        return self._starts[max(before)] if before else None


def _head(code):
    return ['# Bytecode of %s, since its source is not found: %s, line %d' % (
        code.co_name, code.co_filename, code.co_firstlineno), '']


def _line_starts(code):
    """(offset, line) of each instruction that begins a line."""
    offset, line = 0, code.co_firstlineno
    last = None
    for step, lines in zip(map(ord, code.co_lnotab[::2]), map(ord, code.co_lnotab[1::2])):
        if step:
            if line != last:
                yield offset, line
                last = line
            offset += step
        line += lines
    if line != last:
        yield offset, line


def _line(code, instruction, starts):
    line = starts.get(instruction.offset, '')
    shown = '%5s %6d %-20s' % (line, instruction.offset, instruction.name)
    number = opcode.opmap.get(instruction.name, 0)
    if number >= opcode.HAVE_ARGUMENT:
        shown += ' %5d' % instruction.argument
        meaning = _meaning(code, number, instruction)
        if meaning is not None:
            shown += ' (%s)' % meaning
    return shown.rstrip()


def _meaning(code, number, instruction):
    """What the argument stands for; None where it stands for itself."""
    if instruction.target is not None:
        return 'to %d' % instruction.target
    names = None
    if number in opcode.hasname:
        names = code.co_names
    elif number in opcode.haslocal:
        names = code.co_varnames
    elif number in opcode.hasfree:
        names = code.co_cellvars + code.co_freevars
    elif number in opcode.hascompare:
        names = opcode.cmp_op
    elif number in opcode.hasconst and instruction.argument < len(code.co_consts):
        return _constant(code.co_consts[instruction.argument])
    if names is not None and instruction.argument < len(names):
        return names[instruction.argument]
    return None


def _constant(value):
    """A text of a constant; none of the program's code runs, whatever it has put there."""
    kind = type(value)
    if kind is types.CodeType:
        return '<code of %s, line %d>' % (value.co_name, value.co_firstlineno)
    if kind is tuple:
        shown = ', '.join([_constant(item) for item in value[:_CONSTANT_LIMIT]])
        shown = '(%s%s)' % (shown, ',' * (len(value) == 1))
    elif kind is str or kind is unicode:
        shown = repr(value[:_CONSTANT_LIMIT + 1])
    elif kind is long:
        shown = repr(value) if abs(value) < 1 << 4096 else '<long>'
    elif kind in _PLAIN_TYPES:
        shown = repr(value)
    else:
        shown = '<%s object>' % values.class_name(kind)
    return shown if len(shown) <= _CONSTANT_LIMIT else shown[:_CONSTANT_LIMIT] + '...'
