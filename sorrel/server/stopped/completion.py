"""What could follow what has been typed."""

from __future__ import absolute_import

import keyword
import types

from sorrel.common.decoding import text
from sorrel.inspection import attributes

_DIGITS = '0123456789'
_IN_NAMES = 'abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_.' + _DIGITS
_ABSENT = object()


def complete(typed, column, scopes, evaluate):
    """The first and last position of what is to be replaced, and what could stand there.

    That is a list of (name, type), with the protocol's words for types. column: how much of the
    text is before the cursor. scopes: dicts of what can be named, the innermost first. evaluate:
    gives the value of what is typed there.
    """
    before = typed[:max(0, column)]
    name = before[len(before.rstrip(_IN_NAMES)):].lstrip(_DIGITS + '.')
    path, dot, begun = name.rpartition('.')
    if dot:
        value = evaluate(path)
        names, type_of = dir(value), lambda name: _type_of_attribute(value, name)
    else:
        names, type_of = set(keyword.kwlist), lambda name: _type_of_name(name, scopes)
        for variables in scopes:
            names.update(variables)
    matching = sorted(name for name in names
                      if isinstance(name, str) and name.startswith(begun.encode('utf-8'))
                      and (begun or not name.startswith('_')))
    return column - len(begun), column, [(text(name), type_of(name)) for name in matching]


def _type_of_name(name, scopes):
    if keyword.iskeyword(name):
        return 'keyword'
    for variables in scopes:
        value = variables.get(name, _ABSENT)
        if value is not _ABSENT:
            return _type_of(value, 'function', 'variable')
    return 'variable'


def _type_of_attribute(value, name):
    """Of what is stored there: nothing is asked of the program."""
    try:
        held = attributes.stored(value, name)
    except LookupError:
        return 'field'
    if type(held) is property:
        return 'property'
    return _type_of(held, 'function' if type(value) is types.ModuleType else 'method', 'field')


def _type_of(value, of_function, of_others):
    if attributes.is_class(value):
        return 'class'
    if type(value) is types.ModuleType:
        return 'module'
    is_function = attributes.is_function(value) or type(value) is types.MethodType
    return of_function if is_function else of_others
