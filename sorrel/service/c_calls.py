"""How a frame has been called by the Python code that called it: directly, or by C code between."""

from __future__ import absolute_import

import __builtin__
import collections
import functools
import imp
import itertools
import opcode
import operator
import struct
import types
import weakref

import _sorrel
import tmorvik26_vs2012_x64 as core

from sorrel.inspection import bytecode
from sorrel.service import c_callers, code_paths, with_blocks
from sorrel.service.c_callers import ALL

# Besides the fates of `c_callers`: C code of which nothing is known; a call of something that
# could not be read from the bytecode.
UNKNOWN_C, UNREAD = 'unknown C', 'unread'

_GENERATOR = 0x20
_BOUND = (types.BuiltinMethodType, type(''.__str__))
_IN_C = _BOUND + (type(list.sort), type(object.__str__))
# As no metaclass of the program's can have it.
_mro = type.__dict__['__mro__'].__get__
_flags = type.__dict__['__flags__'].__get__
# Of a type that a class statement has made.
_HEAP_TYPE = 1 << 9
_QUESTIONS = ('__getattr__', '__getattribute__')
_MODULES = (collections, functools, imp, itertools, operator, struct)
# Instructions that call nothing, and only let go of what was there.
_RELEASING = ('POP_TOP', 'POP_BLOCK', 'STORE_FAST', 'STORE_NAME', 'STORE_GLOBAL', 'STORE_DEREF',
              'DELETE_FAST', 'DELETE_NAME', 'DELETE_GLOBAL', 'BREAK_LOOP', 'CONTINUE_LOOP',
              'RETURN_VALUE', 'END_FINALLY', 'RAISE_VARARGS', 'STORE_SUBSCR', 'DELETE_SUBSCR')


def fate(frame, caller, kind):
    """What becomes of an exception that leaves the frame; None where it comes to the caller."""
    call = _Call(frame, caller)
    if call.is_direct():
        return None
    row = row_of(call, kind)
    if row is not None:
        return row.fate
    if not call.is_call or call.c_name in c_callers.PASSING:
        return None
    return UNKNOWN_C if call.is_call_of_c() else UNREAD


def is_of_c(frame, caller):
    """Whether the call that the caller is in the midst of, with the frame in it, is of C code."""
    callee = _Call(frame, caller).callee
    if issubclass(type(callee), type):
        return not _flags(callee) & _HEAP_TYPE
    return code_paths.is_any(type(callee), _IN_C)


def row_of(call, kind):
    """The row of the table that holds for an exception of this class; None for none."""
    for row in _rows_for(call):
        if (not row.called or call.name in row.called) \
                and (not row.attributes or call.attribute() in row.attributes) \
                and (row.raised is ALL or _is_kind_of(kind, row.raised)) \
                and (not row.when or getattr(call, row.when)()):
            return row
    return None


class _Call(object):
    """Of a frame by its caller. Its methods without arguments are the conditions of the table."""

    def __init__(self, frame, caller):
        self._frame = frame
        self._caller = caller
        self._code = bytecode.of_code(caller.f_code)
        self.name = frame.f_code.co_name
        self.instruction = self._code.at(caller.f_lasti)
        self.by = self.instruction.name if self.instruction is not None else ''
        self.is_call = self.instruction is not None and bytecode.is_call(self.instruction)
        self.callee = self._callee() if self.is_call else code_paths.UNKNOWN
        self.c_name = c_name(self.callee)

    def _callee(self):
        return self._value(bytecode.what_is_called(self._code, self.instruction))

    def _value(self, instruction):
        if instruction is None:
            return code_paths.UNKNOWN
        if instruction.name == 'LOAD_ATTR':
            return code_paths.attribute(
                self._value(bytecode.operand(self._code, instruction)),
                self._caller.f_code.co_names[instruction.argument])
        return code_paths.known_value(
            self._caller.f_code, instruction, with_blocks.variables_of(self._caller),
            with_blocks.namespaces_of(self._caller))

    def _is_by_name(self):
        """Whether a method is called of something that is not known, and this is its name."""
        loading = bytecode.what_is_called(self._code, self.instruction)
        return loading is not None and loading.name == 'LOAD_ATTR' and \
            self._caller.f_code.co_names[loading.argument] == self.name

    def _argument(self, number):
        """What the called function was given; a mark where it has not so many."""
        if number >= self._frame.f_code.co_argcount:
            return code_paths.UNKNOWN
        return code_paths.value_or_unknown(_sorrel.variable, self._frame, number)

    def attribute(self):
        """The attribute that the function may have been asked for."""
        if self.name not in _QUESTIONS:
            return self.name
        name = self._argument(1)
        return name if type(name) is str else None

    def is_direct(self):
        """Whether Python code is called by Python code, maybe by way of a class."""
        if not self.is_call:
            return False
        function = self.callee
        if not code_paths.is_known(function):
            return self._is_by_name()
        if type(function) is types.MethodType:
            function = function.im_func
        if type(function) is types.FunctionType:
            return function.func_code is self._frame.f_code
        if self.c_name is not None:
            return False
        if code_paths.is_class(function):
            return self.name in ('__init__', '__new__', '__call__')
        return self.name == '__call__'

    # Conditions.

    def is_classic(self):
        return type(self._argument(0)) is types.InstanceType

    def is_classic_question(self):
        return self.is_classic() and self.by != 'LOAD_ATTR' and not (
            self.is_call and (not code_paths.is_known(self.callee)
                              or self.c_name in ('getattr', 'operator.attrgetter')))

    def is_property(self):
        """Whether it may be one that stands for something special."""
        return self._frame.f_code.co_argcount == 1 and not self.name.startswith('__')

    def is_property_of_classic(self):
        return self.is_property() and self.is_classic() \
            and self.by != 'LOAD_ATTR' and not self.is_call

    def is_releasing(self):
        return self.by in _RELEASING

    def is_generator(self):
        return bool(self._frame.f_code.co_flags & _GENERATOR)

    def is_loop(self):
        """2.6 goes on from GET_ITER to FOR_ITER without saying so."""
        following = self._code.at(self.instruction.next)
        return following is not None and following.name == 'FOR_ITER'

    def is_generator_in_loop(self):
        return self.is_generator() and self.is_loop()

    def is_generator_to_its_end(self):
        return self.is_generator() and self.has_not_1_argument_of_next()

    def is_generator_in_unknown_c(self):
        return self.is_generator() and self.is_call_of_unknown_c()

    def has_2_arguments(self):
        return self.by == 'CALL_FUNCTION' and self.instruction.argument == 2

    def has_3_arguments(self):
        return self.by == 'CALL_FUNCTION' and self.instruction.argument == 3

    def has_not_1_argument_of_next(self):
        return self.c_name != 'next' or self.has_2_arguments()

    def is_release(self):
        """Nothing but that an object has gone can have called the function."""
        return not self.is_call or code_paths.is_any(
            type(self.callee), (types.FunctionType, types.MethodType))

    def is_call_of_c(self):
        return self.is_call and code_paths.is_known(self.callee) and not self.is_release()

    def may_be_release(self):
        return self.is_call and not self.is_release()

    def is_call_of_unknown_c(self):
        """Of something that is in C, or could not be read."""
        return self.is_call and self.c_name not in c_callers.PASSING

    def _has_dead_reference(self):
        if self.name.startswith('__') and self.name.endswith('__'):
            return False
        for number in range(min(2, self._frame.f_code.co_argcount)):
            argument = self._argument(number)
            if issubclass(type(argument), weakref.ref) and weakref.ref.__call__(argument) is None:
                return True
        return False

    def is_release_of_referent(self):
        return (self.by in _RELEASING or self.is_call and self.is_release()) \
            and self._has_dead_reference()

    def may_be_release_of_referent(self):
        return self._has_dead_reference()

    def is_release_of_generator(self):
        return self.is_generator() and (
            self.by in _RELEASING or self.is_call and self.is_release())

    def is_except_clause(self):
        return opcode.cmp_op[self.instruction.argument] == 'exception match'

    def is_before_getattr(self):
        if self.name == '__getattr__' or not (
                self.by == 'LOAD_ATTR' or self.c_name in ('getattr', 'hasattr')):
            return False
        owner = self._argument(1 if self.name == '__get__' else 0)
        if not code_paths.is_known(owner):
            return False
        kind = owner.__class__ if type(owner) is types.InstanceType else type(owner)
        return code_paths.value_or_unknown(
            _sorrel.static_attribute, kind, '__getattr__') is not code_paths.UNKNOWN

    def sets_softspace(self):
        name = self._argument(1)
        return type(name) is str and name == 'softspace'

    def is_set(self):
        return issubclass(type(self._argument(0)), set)

    def compares_dictionaries(self):
        operands = [self._value(bytecode.operand(self._code, self.instruction, depth))
                    for depth in (0, 1)]
        return True in [issubclass(type(value), dict) for value in operands]


def c_name(value):
    """How the table names something in C; None for what it does not name."""
    if not code_paths.is_known(value):
        return None
    if code_paths.is_any(type(value), _BOUND) and value.__self__ is not None:
        value = code_paths.value_or_unknown(
            _sorrel.static_attribute, type(value.__self__), value.__name__)
    name = _names.get(id(value))
    if name is None and issubclass(type(value), type):
        for base in _mro(value)[1:-1]:
            name = name or _names.get(id(base))
    return name


def _rows_for(call):
    key = call.by, call.c_name
    rows = _rows.get(key)
    if rows is None:
        rows = _rows[key] = [row for row in c_callers.ROWS
                             if not row.by or call.by in row.by or call.c_name in row.by]
    return rows


def _is_kind_of(kind, types):
    try:
        return issubclass(kind, types)
    except TypeError:
        return False


def _found(name):
    """What a name of the table's stands for; None where this interpreter does not have it."""
    first, _, rest = name.partition('.')
    value = {'generator': types.GeneratorType}.get(first) or getattr(__builtin__, first, None)
    for module in _MODULES:
        if module.__name__ == first:
            value = module
    for part in rest.split('.') if rest else ():
        value = getattr(value, part, None)
    return value


# What is in C, by its id, and the rows that may hold for an instruction and such a name.
_names = {}
_rows = {}
for _row in (c_callers.PASSING,) + tuple([row.by for row in c_callers.ROWS]):
    for _name in _row:
        _object = _found(_name)
        if _object is not None:
            _names[id(_object)] = _name
_names[id(core.__import__)] = '__import__'
