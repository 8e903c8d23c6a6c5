"""The calls that a frame is still to make in its statement, told from the bytecode."""

from __future__ import absolute_import

import dis

from sorrel.common.records import record
from sorrel.inspection import bytecode

# offset: of its instruction. start: of the statement's first one. name: of what is called, as the
# program's text may have it.
LineCall = record('LineCall', 'offset start name')

_MOST = 200
_MAKING = ('MAKE_FUNCTION', 'MAKE_CLOSURE')
_COMPREHENSIONS = ('<genexpr>', '<setcomp>', '<dictcomp>')
_LONGEST_TEXT = 20


def ahead(frame, is_in_call):
    """A LineCall for each of them, in the order in which they come.

    is_in_call: whether the frame is in the midst of one.
    """
    code, at = frame.f_code, max(frame.f_lasti, 0)
    start, end = _statement_around(code, at)
    parsed = bytecode.of_code(code)
    found = []
    for instruction in parsed.instructions:
        if at + is_in_call <= instruction.offset < end and bytecode.is_call(instruction):
            callee = bytecode.what_is_called(parsed, instruction)
            if len(found) < _MOST and not _is_made_by_compiler(code, parsed, instruction, callee):
                found.append(LineCall(instruction.offset, start, _written(code, parsed, callee)))
    return found


def is_ahead(call, frame):
    """Whether the frame is still on its way to it."""
    return call.start <= frame.f_lasti <= call.offset


# Statements, of which one may be on several lines. Only those lines begin one at whose first
# instruction nothing of an expression is on the stack.

def _statement_around(code, offset):
    """The offsets of its first instruction, and of the one behind its last."""
    starts = _statements(code)
    return (max([0] + [start for start in starts if start <= offset]),
            min([len(code.co_code)] + [start for start in starts if start > offset]))


def _statements(code):
    """Where each begins."""
    instructions = bytecode.of_code(code).instructions
    lines = set([offset for offset, _ in dis.findlinestarts(code)])
    handlers = set([one.target for one in instructions if one.name in (
        'SETUP_EXCEPT', 'SETUP_FINALLY', 'SETUP_WITH')])
    starts = []
    # What is on the stack of expressions alone, also at the targets of jumps. None: see there.
    depth, at_targets = 0, {}
    for instruction in instructions:
        if instruction.offset in handlers:
            depth = 0
        elif depth is None:
            depth = at_targets.get(instruction.offset, 0)
        if instruction.offset in lines and depth == 0:
            starts.append(instruction.offset)
        after = _depth_after(instruction, depth)
        if instruction.target is not None:
            at_targets.setdefault(
                instruction.target, _depth_at_target(instruction, depth, after))
        depth = after if bytecode.goes_on(instruction) else None
    return starts


def _depth_after(instruction, depth):
    name = instruction.name
    if name == 'SETUP_WITH' or name == 'FOR_ITER' and depth == 1:
        return 1  # What lies below stays there for all of the block.
    change = bytecode.effect(instruction)
    if change is None or name in ('POP_BLOCK', 'SETUP_FINALLY'):
        return 0  # Where 2.6 begins the block of a with, __exit__ stays below.
    return max(depth - change[0], 0) + change[1]


def _depth_at_target(instruction, before, after):
    if instruction.name == 'FOR_ITER':
        return max(before - 1, 0)  # What was gone through is gone.
    return before if instruction.name.endswith('_OR_POP') else after


# What is called.

def _is_made_by_compiler(code, parsed, call, callee):
    """Whether the program's text has no such call: of a class's body, a comprehension, or by with.
    """
    if callee is None:
        return False
    if callee.name in _MAKING:
        following = parsed.at(call.next)
        return following is not None and following.name == 'BUILD_CLASS' \
            or _function_name(code, parsed, callee) in _COMPREHENSIONS
    # So 2.6 does it; 2.7 has an instruction.
    before = parsed.instructions[max(parsed.places[callee.offset] - 1, 0)]
    return callee.name == 'LOAD_ATTR' and before.name == 'ROT_TWO' \
        and code.co_names[callee.argument] == '__enter__'


def _written(code, parsed, instruction):
    """How that may be written which the instruction has loaded; None for one not known."""
    behind = ''
    while instruction is not None:
        if instruction.name == 'LOAD_ATTR':
            behind = '.%s%s' % (code.co_names[instruction.argument], behind)
            instruction = bytecode.operand(parsed, instruction)
        elif bytecode.is_call(instruction):
            behind = '(...)' + behind
            instruction = bytecode.what_is_called(parsed, instruction)
        elif instruction.name == 'BINARY_SUBSCR':
            behind = '[...]' + behind
            instruction = bytecode.operand(parsed, instruction, 1)
        else:
            return _loaded(code, parsed, instruction) + behind
    return '(...)' + behind


def _loaded(code, parsed, instruction):
    name, argument = instruction.name, instruction.argument
    if name in ('LOAD_GLOBAL', 'LOAD_NAME'):
        return code.co_names[argument]
    if name == 'LOAD_FAST':
        return code.co_varnames[argument]
    if name == 'LOAD_DEREF':
        return (code.co_cellvars + code.co_freevars)[argument]
    if name in _MAKING:
        return _function_name(code, parsed, instruction)
    if name == 'LOAD_CONST' and type(code.co_consts[argument]) is str:
        shown = repr(code.co_consts[argument])
        return shown if len(shown) <= _LONGEST_TEXT else shown[:_LONGEST_TEXT] + "...'"
    return '(...)'


def _function_name(code, parsed, instruction):
    loading = bytecode.operand(parsed, instruction)
    return code.co_consts[loading.argument].co_name \
        if loading is not None and loading.name == 'LOAD_CONST' else '(...)'
