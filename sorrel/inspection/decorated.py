"""Functions of the program behind what decorators have made of them. Nothing of its code is run."""

from __future__ import absolute_import

import types

import _sorrel

# Of what a decorator's result leads to, so much is looked at.
_LOOKED_AT = 200


def in_python(value):
    """The function that a value is or a method's, None for anything else."""
    function = getattr(value, 'im_func', None) if isinstance(value, types.MethodType) else value
    return function if isinstance(function, types.FunctionType) else None


def behind(value, name):
    """The function of this name that a value is, or that a decorator has made it of.

    Where none is, what the value itself is, which may be None.
    """
    for function in functions_in(value):
        if function.func_code.co_name == name:
            return function
    return in_python(value)


def functions_in(value):
    """The functions that a value is or leads to, the nearest ones first."""
    waiting, seen = [value], set()
    while waiting and len(seen) < _LOOKED_AT:
        found = waiting.pop(0)
        if id(found) not in seen:
            seen.add(id(found))
            function = in_python(found)
            if function is not None:
                yield function
            waiting += _held(found if function is None else function)


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
        return [value.fget, value.fset, value.fdel]
    if type(value) in (classmethod, staticmethod):
        return [value.__get__(None, object)]
    return _in_instance(value)


def _in_instance(value):
    # To ask by isinstance() could run code of the program's.
    if issubclass(type(value), (type, types.ClassType, types.ModuleType)):
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
    if not issubclass(type(variables), dict):
        return found
    return found + [held for held in dict.values(variables)
                    if isinstance(held, (types.FunctionType, types.MethodType))]
