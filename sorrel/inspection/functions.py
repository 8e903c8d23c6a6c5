"""Functions of the program: those behind decorators, and where their own code begins."""

from __future__ import absolute_import

import re
import types

import _sorrel

from sorrel.common import file_lines
from sorrel.common.records import record
from sorrel.inspection import bytecode, code_lines

# Of what a decorator's result leads to, so much is looked at.
_LOOKED_AT = 200
_DEFINITION = re.compile(r'\s*def\b')

# How a frame is told that has just begun to run a function: by the name and the first line of its
# code and, of code that no file has, the code itself, where else only the file and the line count.
Entry = record('Entry', 'name first_line code', None)


def in_python(value):
    """The function that a value is or a method's, None for anything else."""
    function = getattr(value, 'im_func', None) if isinstance(value, types.MethodType) else value
    return function if isinstance(function, types.FunctionType) else None


def behind(value, name):
    """The function of this name that a value is, or that a decorator has made it of.

    Where none is, what the value itself is, which may be None. Nothing of the program's is run.
    """
    waiting, seen = [value], set()
    while waiting and len(seen) < _LOOKED_AT:
        found = waiting.pop(0)
        if id(found) in seen:
            continue
        seen.add(id(found))
        function = in_python(found)
        if function is not None and function.func_code.co_name == name:
            return function
        waiting += _held(found if function is None else function)
    return in_python(value)


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


def is_entry(entry, frame):
    """Whether a line event in this frame is the first one of a call of the function."""
    code = frame.f_code
    if frame.f_lasti or code.co_name != entry.name \
            or code.co_firstlineno != entry.first_line:
        return False
    return entry.code is None or (
        code == entry.code and code.co_filename == entry.code.co_filename)


def _held(value):
    """What decorators leave in their results."""
    if isinstance(value, types.FunctionType):
        found = [value.func_dict['__wrapped__']] if '__wrapped__' in value.func_dict else []
        for cell in value.func_closure or ():
            try:
                found.append(cell.cell_contents)
            except ValueError:
                pass  # It is empty yet.
        return found
    if type(value) is property:
        return [value.fget]
    if type(value) in (classmethod, staticmethod):
        return [value.__get__(None, object)]
    return _in_instance(value)


def _in_instance(value):
    if isinstance(value, (type, types.ClassType, types.ModuleType)):
        return []
    found = []
    for name in 'func', '__wrapped__':
        try:
            found.append(_sorrel.static_attribute(value, name))
        except LookupError:
            pass
    try:
        variables = value.__dict__ if type(value) is types.InstanceType \
            else object.__getattribute__(value, '__dict__')
    except AttributeError:
        return found
    return found + [held for held in dict.values(variables)
                    if isinstance(held, (types.FunctionType, types.MethodType))]


def _comes_back(code):
    """Whether a loop in the first line leads back there."""
    end = _end_of_first_line(code)
    return [1 for one in bytecode.Code(code).instructions
            if one.name in ('JUMP_ABSOLUTE', 'CONTINUE_LOOP') and one.target < end
            and one.offset >= one.target] != []


def _end_of_first_line(code):
    offset = 0
    for step, lines in zip(map(ord, code.co_lnotab[::2]), map(ord, code.co_lnotab[1::2])):
        offset += step
        if lines and offset:
            return offset
    return len(code.co_code)
