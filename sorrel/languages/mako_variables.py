"""The variables of one of Mako's templates at one of its lines, and expressions over them."""

from __future__ import absolute_import

import re
import types

import tmorvik26_vs2012_x64 as core

# What the functions have beside the template's variables.
_OWN = frozenset(('context', 'pageargs', 'self', 'local', 'parent', 'next', 'caller', 'capture'))
_FILTERED = re.compile(r'(.*[^|])\|\s*([\w.]+(?:\s*,\s*[\w.]+)*)\s*$', re.S)


def of_frame(frame):
    """The variables' values, by names."""
    found = dict(_given(frame))
    for name, value in frame.f_locals.items():
        if _is_variable(name, value, frame):
            found[name] = value
    return found


def assign(frame, name, value):
    """Gives a variable another value for what the template does from here on. Raises LookupError
    for one that it has not got.
    """
    variables = frame.f_locals
    is_local = name in variables and _is_variable(name, None, frame)
    context = variables.get('context')
    is_given = context is not None and name in context._kwargs
    if not is_local and not is_given:
        raise LookupError('there is no variable %s here' % name)
    if is_local:
        variables[name] = value
        core.locals_to_fast(frame)
    kept = variables.get('__M_locals')
    if kept is not None and name in kept:
        kept[name] = value
    if is_given:
        context._kwargs[name] = context._data[name] = value


def evaluate(text, frame, filters):
    """The value of an expression, with filters behind it. Raises what evaluating it does.

    filters: the engine's, texts of Python by names.
    """
    names = _names(frame)
    filtered = _FILTERED.match(text)
    used = [name.strip() for name in filtered.group(2).split(',')] if filtered is not None else []
    if not used or [name for name in used if name not in filters and name not in names]:
        return _value(text, names)
    value = _value(filtered.group(1), names)
    for name in used:
        made = _value(filters.get(name, name), names)
        value = made(value)
    return value


def _value(text, names):
    return eval(compile(text.strip(), '<string>', 'eval'), names)


def _names(frame):
    """All that can be named: the module's and the engine's as well."""
    names = dict(frame.f_globals)
    context = frame.f_locals.get('context')
    if context is not None:
        names.update(context._data)
    names.update(of_frame(frame))
    for name, value in frame.f_locals.items():
        if not name.startswith('__M_'):
            names.setdefault(name, value)
    return names


def _given(frame):
    context = frame.f_locals.get('context')
    return dict(context._kwargs) if context is not None else {}


def _is_variable(name, value, frame):
    if name.startswith('__M_') or name in _OWN or value is frame.f_globals.get('UNDEFINED', frame):
        return False
    # Not the functions of the template's own, which it calls by these names.
    return not isinstance(value, types.FunctionType) or '_template_uri' not in value.func_globals
