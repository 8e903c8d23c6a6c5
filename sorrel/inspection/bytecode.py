"""The instructions of a code object, and what they do to the value stack."""

from __future__ import absolute_import

import opcode

from sorrel.common.records import record

# next: where the following one stands. target: where it may jump to, or the block that it sets up
# has its handler; None for none.
Instruction = record('Instruction', 'offset name argument next target')

_JUMPS = ('JUMP_FORWARD', 'JUMP_ABSOLUTE', 'CONTINUE_LOOP')
_NO_WAY_ON = _JUMPS + ('RETURN_VALUE', 'RAISE_VARARGS', 'BREAK_LOOP', 'STOP_CODE')

# How many objects an instruction takes from the stack, and how many it leaves there.
_EFFECTS = {
    'NOP': (0, 0), 'POP_TOP': (1, 0), 'ROT_TWO': (2, 2), 'ROT_THREE': (3, 3), 'ROT_FOUR': (4, 4),
    'DUP_TOP': (1, 2), 'SLICE+0': (1, 1), 'SLICE+1': (2, 1), 'SLICE+2': (2, 1), 'SLICE+3': (3, 1),
    'STORE_SLICE+0': (2, 0), 'STORE_SLICE+1': (3, 0), 'STORE_SLICE+2': (3, 0),
    'STORE_SLICE+3': (4, 0), 'DELETE_SLICE+0': (1, 0), 'DELETE_SLICE+1': (2, 0),
    'DELETE_SLICE+2': (2, 0), 'DELETE_SLICE+3': (3, 0), 'STORE_SUBSCR': (3, 0),
    'STORE_MAP': (3, 1), 'DELETE_SUBSCR': (2, 0), 'SET_ADD': (1, 0), 'MAP_ADD': (2, 0),
    'PRINT_EXPR': (1, 0), 'PRINT_ITEM': (1, 0), 'PRINT_NEWLINE': (0, 0), 'PRINT_ITEM_TO': (2, 0),
    'PRINT_NEWLINE_TO': (1, 0), 'LOAD_LOCALS': (0, 1), 'IMPORT_STAR': (1, 0),
    'EXEC_STMT': (3, 0), 'YIELD_VALUE': (1, 1), 'POP_BLOCK': (0, 0), 'BUILD_CLASS': (3, 1),
    'STORE_NAME': (1, 0), 'DELETE_NAME': (0, 0), 'STORE_ATTR': (2, 0), 'DELETE_ATTR': (1, 0),
    'STORE_GLOBAL': (1, 0), 'DELETE_GLOBAL': (0, 0), 'LOAD_CONST': (0, 1), 'LOAD_NAME': (0, 1),
    'LOAD_GLOBAL': (0, 1), 'LOAD_FAST': (0, 1), 'LOAD_CLOSURE': (0, 1), 'LOAD_DEREF': (0, 1),
    'BUILD_MAP': (0, 1), 'LOAD_ATTR': (1, 1), 'COMPARE_OP': (2, 1), 'IMPORT_NAME': (2, 1),
    'IMPORT_FROM': (1, 2), 'STORE_FAST': (1, 0), 'DELETE_FAST': (0, 0), 'STORE_DEREF': (1, 0),
    'GET_ITER': (1, 1), 'FOR_ITER': (1, 2), 'JUMP_FORWARD': (0, 0), 'JUMP_ABSOLUTE': (0, 0),
    'JUMP_IF_FALSE': (1, 1), 'JUMP_IF_TRUE': (1, 1), 'POP_JUMP_IF_FALSE': (1, 0),
    'POP_JUMP_IF_TRUE': (1, 0), 'JUMP_IF_FALSE_OR_POP': (1, 0), 'JUMP_IF_TRUE_OR_POP': (1, 0),
    'SETUP_LOOP': (0, 0), 'SETUP_EXCEPT': (0, 0), 'SETUP_FINALLY': (0, 0), 'SETUP_WITH': (1, 2)}
_COUNTED = {
    'BUILD_TUPLE': lambda n: (n, 1), 'BUILD_LIST': lambda n: (n, 1), 'BUILD_SET': lambda n: (n, 1),
    'UNPACK_SEQUENCE': lambda n: (1, n), 'DUP_TOPX': lambda n: (n, 2 * n),
    'MAKE_FUNCTION': lambda n: (n + 1, 1), 'MAKE_CLOSURE': lambda n: (n + 2, 1),
    'BUILD_SLICE': lambda n: (n, 1), 'RAISE_VARARGS': lambda n: (n, 0),
    # 2.7 says where the list is that it appends to; 2.6 has it right below.
    'LIST_APPEND': lambda n: (1, 0) if n else (2, 0)}
_CALLS = {'CALL_FUNCTION': 0, 'CALL_FUNCTION_VAR': 1, 'CALL_FUNCTION_KW': 1,
          'CALL_FUNCTION_VAR_KW': 2}

# By the ids of code objects, which are kept: equal ones of several functions are one for a dict.
_known = {}
_KNOWN_LIMIT = 500


class Code(object):
    """The instructions in their order, and the place there of the one at each offset.

    One that EXTENDED_ARG makes longer has the offset of this: there a frame says that it is.
    """

    def __init__(self, code):
        self.instructions = []
        self.places = {}
        text = code.co_code
        offset = 0
        begin, high = 0, 0
        while offset < len(text):
            number = ord(text[offset])
            argument = 0
            offset += 1
            if number >= opcode.HAVE_ARGUMENT:
                if offset + 2 > len(text):
                    break
                argument = ord(text[offset]) | ord(text[offset + 1]) << 8 | high
                offset += 2
            if number == opcode.EXTENDED_ARG:
                high = argument << 16
                continue
            target = None
            if number in opcode.hasjrel:
                target = offset + argument
            elif number in opcode.hasjabs:
                target = argument
            self.places[begin] = len(self.instructions)
            self.instructions.append(
                Instruction(begin, opcode.opname[number], argument, offset, target))
            begin, high = offset, 0
        # Where several ways meet.
        self.joints = set([one.target for one in self.instructions if 'JUMP' in one.name])

    def at(self, offset):
        """The instruction there, None where there is none."""
        place = self.places.get(offset)
        return None if place is None else self.instructions[place]


def of_code(code):
    known = _known.get(id(code))
    if known is None:
        if len(_known) >= _KNOWN_LIMIT:
            _known.clear()
        known = _known[id(code)] = Code(code), code
    return known[0]


def effect(instruction):
    """(objects taken from the stack, objects put there) where it goes on to the next one.

    None where that depends on more than the instruction.
    """
    name, argument = instruction.name, instruction.argument
    if name in _EFFECTS:
        return _EFFECTS[name]
    if name in _COUNTED:
        return _COUNTED[name](argument)
    if name in _CALLS:
        return arguments_on_stack(instruction) + 1, 1
    if name.startswith('UNARY_'):
        return 1, 1
    if name.startswith('BINARY_') or name.startswith('INPLACE_'):
        return 2, 1
    return None


def is_call(instruction):
    return instruction.name in _CALLS


def arguments_on_stack(call):
    """How many objects lie above the one that is called."""
    return (call.argument & 0xff) + 2 * (call.argument >> 8) + _CALLS[call.name]


def goes_on(instruction):
    """Whether the next instruction may follow."""
    return instruction.name not in _NO_WAY_ON


def what_is_called(code, call):
    """The instruction that has loaded what a call in the Code calls; None if it is not plain."""
    return operand(code, call, arguments_on_stack(call))


def operand(code, instruction, depth=0):
    """The instruction that has loaded what lies so deep in the stack; None if it is not plain."""
    return _loaded(code, code.places[instruction.offset], depth)


def _loaded(code, place, depth):
    """What has put the object there that lies so deep in the stack before an instruction.

    Goes back over the expressions that were put on top of it.
    """
    while place > 0:
        place -= 1
        instruction = code.instructions[place]
        if instruction.name == 'JUMP_FORWARD':
            # Between the two sides of "a if c else b": the other way to here leads by the test.
            place = _test_before(code, place, instruction.next)
            if place is None:
                return None
            instruction = code.instructions[place]
        change = effect(instruction)
        if change is None or not goes_on(instruction):
            return None
        taken, put = change
        if depth < put:
            # What follows "a or b" may have come from either.
            return instruction if instruction.next not in code.joints else None
        depth += taken - put
    return None


def _test_before(code, place, target):
    while place > 0:
        place -= 1
        instruction = code.instructions[place]
        if instruction.target == target and 'JUMP_IF' in instruction.name:
            return place
    return None
