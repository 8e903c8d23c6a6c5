"""What the bytecode of a function says about its try statements."""

from __future__ import absolute_import

import opcode

from sorrel.inspection import bytecode

_SET_UP = ('SETUP_EXCEPT', 'SETUP_FINALLY', 'SETUP_WITH')
_EXCEPTION_MATCH = opcode.cmp_op.index('exception match')


def is_bare_clause(code, offset):
    """Whether an except clause that begins at this offset names no types."""
    return ord(code.co_code[offset]) == opcode.opmap['POP_TOP']


def clause_body(code, offset):
    """The instructions of an except clause that begins at this offset, after its test."""
    found = _from(code, offset)
    end = len(code.co_code)
    if not is_bare_clause(code, offset):
        test = [one[1:3] for one in found].index(('COMPARE_OP', _EXCEPTION_MATCH))
        end = found[test + 1].target
        found = found[test + 2:]
    return [one for one in found if one.offset < min(end, _end_of_handler(code, found[0].offset))]


def is_being_left(code, left, now):
    """Whether a frame that an exception has come to at the offset `left` may still be on its way
    out where it is at `now`: in a finally clause, or in the end of a with statement.

    If not it has gone on, whatever became of the exception.
    """
    for one in _from(code, 0):
        if one.name in _SET_UP and one.offset < left < one.target <= now \
                and now <= _end_of_handler(code, one.target):
            return True
    return False


def has_try_around(code, offset):
    """Whether what is at an offset is inside of a try or with statement."""
    return any(one.name in _SET_UP and one.offset < offset < one.target
               for one in _from(code, 0))


def _end_of_handler(code, offset):
    depth = 0
    for one in _from(code, offset):
        if one.name == 'END_FINALLY':
            if not depth:
                return one.offset
            depth -= 1
        elif one.name in _SET_UP:
            depth += 1
    return len(code.co_code)


def _from(code, offset):
    known = bytecode.of_code(code)
    return known.instructions[known.places[offset]:]
