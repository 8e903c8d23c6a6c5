"""What the bytecode of a function says about its try statements."""

import opcode

from collections import namedtuple

# One instruction. offset: where it begins; end: where the next one does. argument: None for those
# that have none.
Instruction = namedtuple('Instruction', 'offset end name argument')

_SET_UP = ('SETUP_EXCEPT', 'SETUP_FINALLY', 'SETUP_WITH')
_EXCEPTION_MATCH = opcode.cmp_op.index('exception match')


def instructions(code, offset=0):
    """Those of a code object from this offset on."""
    text = code.co_code
    high = 0
    while offset < len(text):
        number = ord(text[offset])
        end, argument = offset + 1, None
        if number >= opcode.HAVE_ARGUMENT:
            end = offset + 3
            argument = ord(text[offset + 1]) + (ord(text[offset + 2]) << 8) + high
        high = argument << 16 if number == opcode.EXTENDED_ARG else 0
        if not high:
            yield Instruction(offset, end, opcode.opname[number], argument)
        offset = end


def is_bare_clause(code, offset):
    """Whether an except clause that begins at this offset names no types."""
    return ord(code.co_code[offset]) == opcode.opmap['POP_TOP']


def clause_body(code, offset):
    """The instructions of an except clause that begins at this offset, after its test."""
    end = len(code.co_code)
    depth = 0
    is_test = not is_bare_clause(code, offset)
    previous = None
    for instruction in instructions(code, offset):
        if is_test:
            if previous is not None and previous[2:] == ('COMPARE_OP', _EXCEPTION_MATCH):
                is_test = False
                end = _jump_target(instruction)
            previous = instruction
            continue
        if instruction.offset >= end or instruction.name == 'END_FINALLY' and not depth:
            break
        depth += (instruction.name in _SET_UP) - (instruction.name == 'END_FINALLY')
        yield instruction


def is_being_left(code, left, now):
    """Whether a frame that an exception has come to at the offset `left` may still be on its way
    out where it is at `now`: in a finally clause, or in the end of a with statement.

    If not it has gone on, whatever became of the exception.
    """
    for instruction in instructions(code):
        if instruction.name in _SET_UP and instruction.offset < left:
            handler = instruction.end + instruction.argument
            if left < handler <= now <= _end_of_handler(code, handler):
                return True
    return False


def has_try_around(code, offset):
    """Whether what is at an offset is inside of a try or with statement."""
    return any(instruction.name in _SET_UP
               and instruction.offset < offset < instruction.end + instruction.argument
               for instruction in instructions(code))


def _end_of_handler(code, offset):
    depth = 0
    for instruction in instructions(code, offset):
        if instruction.name == 'END_FINALLY':
            if not depth:
                return instruction.offset
            depth -= 1
        elif instruction.name in _SET_UP:
            depth += 1
    return len(code.co_code)


def _jump_target(instruction):
    if opcode.opmap.get(instruction.name) in opcode.hasjrel:
        return instruction.end + instruction.argument
    return instruction.argument
