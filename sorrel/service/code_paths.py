"""Where an exception leads inside one frame, told from its code without running any of it.

The frame's instructions are followed on every way that they can take, with what is known of their
values: constants, variables, attributes as they are stored, and the exception. Calls are taken to
come back with something unknown. What a way ends in is one of the words below.
"""

from __future__ import absolute_import

import __builtin__
import opcode
import sys
import types

import _sorrel

from sorrel.common.records import record
from sorrel.inspection import bytecode

# The exception goes on to the caller; another one does; the function returns something that counts
# as true, as false, as either; the generator waits once more; a clause has caught the exception,
# where no more is asked; it is not known.
RAISES, RAISES_OTHER, RETURNS_TRUE, RETURNS_FALSE, RETURNS, YIELDS, CAUGHT, UNCLEAR = (
    'raises', 'raises other', 'returns true', 'returns false', 'returns', 'yields', 'caught',
    'unclear')

# Instructions to follow before it is given up.
_LIMIT = 1000

_BLOCKS = dict((opcode.opmap[name], name)
               for name in ('SETUP_LOOP', 'SETUP_EXCEPT', 'SETUP_FINALLY', 'SETUP_WITH')
               if name in opcode.opmap)
_PLAIN = (type(None), bool, int, long, float, str, unicode, tuple)
_CLASSES = (type, types.ClassType)
_METHODS = (types.FunctionType, type(str.join), type(list.__init__))
_WRAPPED = (staticmethod, classmethod)
_BOUND = (types.MethodType, types.BuiltinMethodType)
_EXCEPTION_MATCH = opcode.cmp_op.index('exception match')


class _Mark(object):
    """Stands for a value that is not known, or is known by where it has come from."""

    def __init__(self, name):
        self._name = name

    def __repr__(self):
        return self._name


UNKNOWN = _Mark('unknown')
# The exception itself, and another one; what a with statement calls at its end; what "finally" is
# to go on with where that is no exception.
THE_EXCEPTION, _OTHER, _EXIT, _LEAVING = map(_Mark, ('value', 'other', 'exit', 'leaving'))

# level: how much of the stack is below it. exit: for a with statement that was there from the
# beginning, its __exit__.
_Block = record('_Block', 'name handler level exit')
_Way = record('_Way', 'offset stack blocks variables handled')


class Ways(object):
    """code, variables and namespaces are those of a function, or of a frame.

    load: see `known_value`. to_clause: whether a way ends in the clause that catches the exception.
    exit_swallows: called with the __exit__ of a with statement and the type of the exception, for
    whether this swallows it: True, False or None.
    """

    def __init__(self, code, load, globals, type, exit_swallows, to_clause=False):
        self._code = bytecode.of_code(code)
        self._raw_code = code
        self._load = load
        self._globals = globals
        self._type = type
        self._exit_swallows = exit_swallows
        self._to_clause = to_clause
        self._todo = []
        # The keys of ways that were followed; these are kept, so that no id comes again.
        self._seen = {}
        self._ends = set()

    def from_raise(self, blocks, offset):
        """The set of ends where the exception comes up at the offset, inside these blocks."""
        known = [_Block(_BLOCKS[number], handler, 0, below)
                 for number, handler, below in reversed(blocks) if number in _BLOCKS]
        if len(known) != len(blocks):
            return set([UNCLEAR])
        self._unwind(THE_EXCEPTION, _Way(offset, (), tuple(known), (), None))
        return self._follow()

    def from_start(self, arguments):
        """The set of ends of a call; arguments: what its first variables hold."""
        self._todo.append(_Way(0, (), (), tuple(enumerate(arguments)), None))
        return self._follow()

    def _follow(self):
        left = _LIMIT
        while self._todo:
            way = self._todo.pop()
            # By their ids: objects of the program have their own ideas of what is equal.
            key = (way.offset, way.handled, tuple(map(id, way.stack)),
                   tuple([block[:3] + (id(block.exit),) for block in way.blocks]),
                   tuple([(index, id(value)) for index, value in way.variables]))
            if key in self._seen:
                continue
            self._seen[key] = way
            left -= 1
            if left < 0:
                self._ends.add(UNCLEAR)
                break
            instruction = self._code.at(way.offset)
            if instruction is None:
                self._ends.add(UNCLEAR)
            else:
                step = getattr(self, '_at_' + instruction.name.replace('+', '_'), None)
                (step or self._at_other)(instruction, way)
        return self._ends

    # What an instruction does. Each of these puts the ways on from there among those to follow.

    def _go(self, way, offset, taken=0, put=(), **changes):
        stack = way.stack[:len(way.stack) - taken] if taken < len(way.stack) else ()
        self._todo.append(way._replace(offset=offset, stack=stack + tuple(put), **changes))

    def _at_other(self, instruction, way):
        change = bytecode.effect(instruction)
        if change is None or not bytecode.goes_on(instruction):
            self._ends.add(UNCLEAR)
        else:
            self._go(way, instruction.next, change[0], (UNKNOWN,) * change[1])

    def _at_POP_TOP(self, instruction, way):
        if self._to_clause and _top(way) is self._type:
            self._ends.add(CAUGHT)
        else:
            self._go(way, instruction.next, 1)

    def _at_LOAD_CONST(self, instruction, way):
        self._go(way, instruction.next, 0, [self._raw_code.co_consts[instruction.argument]])

    def _at_LOAD_FAST(self, instruction, way):
        value = dict(way.variables).get(instruction.argument, self)
        if value is self:
            value = self._known(instruction)
        self._go(way, instruction.next, 0, [value])

    def _at_LOAD_DEREF(self, instruction, way):
        value = UNKNOWN
        # Where the function has changed it since, it is not what it was.
        if -1 - instruction.argument not in dict(way.variables):
            value = self._known(instruction)
        self._go(way, instruction.next, 0, [value])

    def _at_LOAD_GLOBAL(self, instruction, way):
        self._go(way, instruction.next, 0, [self._known(instruction)])

    _at_LOAD_NAME = _at_LOAD_GLOBAL

    def _at_LOAD_ATTR(self, instruction, way):
        name = self._raw_code.co_names[instruction.argument]
        value = attribute(_top(way), name)
        if name == '__exit__' and is_any(type(value), _METHODS):
            value = value.__get__(_top(way))
        self._go(way, instruction.next, 1, [value])

    def _at_STORE_FAST(self, instruction, way):
        variables = dict(way.variables)
        variables[instruction.argument] = _top(way)
        self._go(way, instruction.next, 1, variables=tuple(sorted(variables.items())))

    def _at_STORE_DEREF(self, instruction, way):
        variables = dict(way.variables)
        variables[-1 - instruction.argument] = UNKNOWN
        self._go(way, instruction.next, 1, variables=tuple(sorted(variables.items())))

    def _at_DUP_TOP(self, instruction, way):
        self._go(way, instruction.next, 0, [_top(way)])

    def _at_DUP_TOPX(self, instruction, way):
        count = instruction.argument
        self._go(way, instruction.next, 0, [_top(way, count - 1 - i) for i in range(count)])

    def _at_ROT_TWO(self, instruction, way):
        self._go(way, instruction.next, 2, [_top(way), _top(way, 1)])

    def _at_ROT_THREE(self, instruction, way):
        self._go(way, instruction.next, 3, [_top(way), _top(way, 2), _top(way, 1)])

    def _at_BUILD_TUPLE(self, instruction, way):
        count = instruction.argument
        items = tuple([_top(way, count - 1 - i) for i in range(count)])
        self._go(way, instruction.next, count, [items])

    def _at_UNPACK_SEQUENCE(self, instruction, way):
        items = _top(way)
        if type(items) is not tuple or len(items) != instruction.argument:
            items = (UNKNOWN,) * instruction.argument
        self._go(way, instruction.next, 1, items[::-1])

    def _at_BINARY_SUBSCR(self, instruction, way):
        index, items = _top(way), _top(way, 1)
        value = UNKNOWN
        if type(items) is tuple and type(index) is int and 0 <= index < len(items):
            value = items[index]
        self._go(way, instruction.next, 2, [value])

    def _at_COMPARE_OP(self, instruction, way):
        right, left = _top(way), _top(way, 1)
        self._go(way, instruction.next, 2, [_compared(instruction.argument, left, right)])

    def _at_UNARY_NOT(self, instruction, way):
        true = _truth(_top(way))
        self._go(way, instruction.next, 1, [UNKNOWN if true is None else not true])

    def _at_CALL_FUNCTION(self, instruction, way):
        count = bytecode.arguments_on_stack(instruction)
        arguments = [_top(way, count - 1 - i) for i in range(count)]
        result = UNKNOWN
        if instruction.argument < 256:
            result = self._called(_top(way, count), arguments, way)
        if 'SETUP_EXCEPT' in [block.name for block in way.blocks]:
            self._unwind(_OTHER, way)  # What it raises itself, a clause may be waiting for.
        self._go(way, instruction.next, count + 1, [result])

    _at_CALL_FUNCTION_VAR = _at_CALL_FUNCTION

    def _jump_if(self, instruction, way, wanted, taken=0, taken_on=0):
        true = _truth(_top(way))
        if true is not (not wanted):
            self._go(way, instruction.target, taken)
        if true is not wanted:
            self._go(way, instruction.next, taken_on)

    def _at_JUMP_IF_FALSE(self, instruction, way):
        self._jump_if(instruction, way, False)

    def _at_JUMP_IF_TRUE(self, instruction, way):
        self._jump_if(instruction, way, True)

    def _at_POP_JUMP_IF_FALSE(self, instruction, way):
        self._jump_if(instruction, way, False, 1, 1)

    def _at_POP_JUMP_IF_TRUE(self, instruction, way):
        self._jump_if(instruction, way, True, 1, 1)

    def _at_JUMP_IF_FALSE_OR_POP(self, instruction, way):
        self._jump_if(instruction, way, False, 0, 1)

    def _at_JUMP_IF_TRUE_OR_POP(self, instruction, way):
        self._jump_if(instruction, way, True, 0, 1)

    def _at_JUMP_ABSOLUTE(self, instruction, way):
        self._go(way, instruction.target)

    _at_JUMP_FORWARD = _at_JUMP_ABSOLUTE

    def _at_FOR_ITER(self, instruction, way):
        self._go(way, instruction.next, 0, [UNKNOWN])
        self._go(way, instruction.target, 1)

    def _set_up(self, instruction, way):
        stack = way.stack
        if instruction.name == 'SETUP_WITH':
            stack = stack[:-1] + (UNKNOWN,)
        block = _Block(instruction.name, instruction.target, len(stack), UNKNOWN)
        if instruction.name == 'SETUP_WITH':
            stack += (UNKNOWN,)
        self._todo.append(way._replace(offset=instruction.next, stack=stack,
                                       blocks=way.blocks + (block,)))

    _at_SETUP_LOOP = _at_SETUP_EXCEPT = _at_SETUP_FINALLY = _at_SETUP_WITH = _set_up

    def _at_POP_BLOCK(self, instruction, way):
        self._go(way, instruction.next, blocks=way.blocks[:-1])

    def _at_BREAK_LOOP(self, instruction, way):
        self._leave(way, instruction, 'SETUP_LOOP')

    def _at_CONTINUE_LOOP(self, instruction, way):
        self._leave(way, instruction, 'SETUP_LOOP', instruction.target)

    def _at_RETURN_VALUE(self, instruction, way):
        self._leave(way, instruction, None)

    def _at_YIELD_VALUE(self, instruction, way):
        self._ends.add(YIELDS)

    def _at_RAISE_VARARGS(self, instruction, way):
        count = instruction.argument
        raised = _OTHER
        if not count:
            raised = way.handled or UNKNOWN
        elif count == 1:
            raised = _top(way)
        elif is_any(_top(way, count - 2), (THE_EXCEPTION, UNKNOWN)):
            raised = _top(way, count - 2)
        elif _top(way, count - 1) is UNKNOWN:
            raised = UNKNOWN
        if raised is UNKNOWN:
            # It may be the same: one way for either.
            self._unwind(THE_EXCEPTION, way)
        self._unwind(THE_EXCEPTION if raised is THE_EXCEPTION else _OTHER, way)

    def _at_WITH_CLEANUP(self, instruction, way):
        # The __exit__ was found when the exception came here.
        top = _top(way)
        kept = 3 if top is THE_EXCEPTION or top is _OTHER or top is self._type else \
            2 if top is _LEAVING else 1
        above = [_top(way, kept - 1 - i) for i in range(kept)]
        self._go(way, instruction.next, kept + 1, above)

    def _at_END_FINALLY(self, instruction, way):
        top = _top(way)
        if top is self._type or top is _OTHER:
            self._unwind(_top(way, 1), way)
        elif top is None:
            self._go(way, instruction.next, 1)
        elif top is _LEAVING:
            leaving, name, target = _top(way, 1)
            self._leave(way._replace(stack=way.stack[:-2] + (leaving,)), None, name, target)
        else:
            self._ends.add(UNCLEAR)

    def _leave(self, way, instruction, name, target=None):
        """Out of the blocks up to the one of this name, or out of the function."""
        blocks = way.blocks
        value = _top(way)
        while blocks:
            block, blocks = blocks[-1], blocks[:-1]
            if block.name == name:
                if target is not None:
                    blocks += (block,)  # On with the loop.
                self._todo.append(way._replace(
                    offset=block.handler if target is None else target, blocks=blocks,
                    stack=way.stack[:block.level + (target is not None)]))
                return
            if block.name in ('SETUP_FINALLY', 'SETUP_WITH'):
                self._todo.append(way._replace(
                    offset=block.handler, blocks=blocks, handled=way.handled,
                    stack=way.stack[:block.level] + ((value, name, target), _LEAVING)))
                return
        if name is not None:
            self._ends.add(UNCLEAR)
        else:
            true = _truth(value)
            self._ends.add({True: RETURNS_TRUE, False: RETURNS_FALSE}.get(true, RETURNS))

    def _unwind(self, raised, way):
        """The exception, or another one, comes up: on to the innermost handler."""
        blocks = way.blocks
        kind = self._type if raised is THE_EXCEPTION else _OTHER
        while blocks:
            block, blocks = blocks[-1], blocks[:-1]
            if block.name == 'SETUP_LOOP':
                continue
            stack = way.stack[:block.level]
            if block.name == 'SETUP_WITH' or self._is_with(block):
                swallows = self._exit_swallows(block.exit, self._type) \
                    if raised is THE_EXCEPTION and block.exit is not UNKNOWN else None
                if not block.level:
                    stack = (_EXIT,)
                if swallows is not False and self._to_clause:
                    self._ends.add(CAUGHT)
                elif swallows is not False:
                    self._todo.append(way._replace(
                        offset=block.handler, blocks=blocks, stack=stack + (None,)))
                if swallows:
                    return
                continue
            self._todo.append(way._replace(
                offset=block.handler, blocks=blocks, handled=raised,
                stack=stack + (UNKNOWN, raised, kind)))
            return
        self._ends.add(RAISES if raised is THE_EXCEPTION else RAISES_OTHER)

    def _is_with(self, block):
        handler = self._code.at(block.handler)
        return handler is not None and handler.name == 'WITH_CLEANUP'

    # Values.

    def _known(self, instruction):
        return known_value(self._raw_code, instruction, self._load, self._globals)

    def _called(self, function, arguments, way):
        if function is sys.exc_info and not arguments and way.handled is THE_EXCEPTION:
            return self._type, THE_EXCEPTION, UNKNOWN
        if function is isinstance and len(arguments) == 2 and arguments[0] is THE_EXCEPTION:
            return _matches(self._type, arguments[1])
        if function is issubclass and len(arguments) == 2:
            return _matches(*arguments)
        if is_any(type(function), _BOUND) and function.__name__ == '__exit__':
            swallows = self._exit_swallows(function, self._type)
            return UNKNOWN if swallows is None else swallows
        return UNKNOWN


def value_or_unknown(load, *arguments):
    try:
        return load(*arguments)
    except LookupError:
        return UNKNOWN


def is_known(value):
    return type(value) is not _Mark


# Neither "in" nor isinstance, which may ask classes of the program.

def is_any(value, others):
    for other in others:
        if value is other:
            return True
    return False


def is_class(value):
    return issubclass(type(value), type) or type(value) is types.ClassType


def known_value(code, instruction, load, globals):
    """What an instruction loads that takes nothing from the stack; a mark where it is not known.

    load: called with the number of a fast variable or cell, raises LookupError.
    """
    name, argument = instruction.name, instruction.argument
    if name == 'LOAD_CONST':
        return code.co_consts[argument]
    if name == 'LOAD_FAST':
        return value_or_unknown(load, argument)
    if name == 'LOAD_DEREF':
        return value_or_unknown(load, code.co_nlocals + argument)
    if name in ('LOAD_GLOBAL', 'LOAD_NAME'):
        for namespace in globals:
            if type(namespace) is dict and code.co_names[argument] in namespace:
                return namespace[code.co_names[argument]]
    return UNKNOWN


def attribute(value, name):
    """An attribute as it is stored; a function for a method."""
    if not is_known(value):
        return UNKNOWN
    found = value_or_unknown(_sorrel.static_attribute, value, name)
    if found is UNKNOWN:
        kind = type(value) if type(value) is not types.InstanceType else value.__class__
        found = value_or_unknown(_sorrel.static_attribute, kind, name)
        if not is_any(type(found), _METHODS + _WRAPPED):
            found = UNKNOWN
    if is_any(type(found), _WRAPPED):
        found = found.__get__(None, object)
    return found


def namespaces(globals):
    """Where a function that has these finds its global names."""
    return globals, __builtin__.__dict__


def _top(way, depth=0):
    return way.stack[-1 - depth] if depth < len(way.stack) else UNKNOWN


def _truth(value):
    """Whether it counts as true, None where that is not known."""
    if is_any(type(value), _PLAIN):
        return bool(value)
    # A class may have a metaclass that says otherwise.
    return True if is_any(value, (THE_EXCEPTION, _OTHER)) or is_any(
        type(value), _CLASSES + (types.FunctionType,)) else None


def _compared(operator, left, right):
    """The result as it would be, or unknown."""
    name = opcode.cmp_op[operator]
    if operator == _EXCEPTION_MATCH:
        return UNKNOWN if left is _OTHER else _matches(left, right)
    if name in ('in', 'not in'):
        if type(right) is not tuple or not is_class(left):
            return UNKNOWN
        answers = [_compared(opcode.cmp_op.index('=='), left, item) for item in right]
        if True in answers:
            return name == 'in'
        return UNKNOWN if UNKNOWN in answers else name == 'not in'
    if name in ('is', 'is not', '==', '!='):
        for value in left, right:
            if not is_known(value) and value is not THE_EXCEPTION:
                return UNKNOWN
        if name in ('is', 'is not'):
            return (left is right) == (name == 'is')
        if all([is_any(type(value), _CLASSES + (type(None),)) for value in (left, right)]):
            return (left is right) == (name == '==')
    return UNKNOWN


def _matches(kind, wanted):
    """Whether a class is one of those, as an except clause would have it."""
    if type(wanted) is tuple:
        answers = [_matches(kind, item) for item in wanted]
        if True in answers:
            return True
        return UNKNOWN if UNKNOWN in answers else False
    if is_any(type(wanted), _CLASSES) and is_class(kind):
        return issubclass(kind, wanted)
    return UNKNOWN
