"""Names such as "__x", which in the methods of a class mean others than elsewhere."""

from __future__ import absolute_import

import re
import types

from sorrel.inspection import decorated, trees

_PRIVATE = re.compile(r'\b__(?!\w*__\b)\w')
# The flag of a code object that the body of a class lacks.
_OPTIMIZED = 1
_mro_of = type.__dict__['__mro__'].__get__
_variables_of = type.__dict__['__dict__'].__get__
_STRING_OR_PRIVATE = re.compile(
    r'("(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])*\')|\b__(?!\w*__\b)\w+')
# Where nodes of a tree have names.
_NAMING = 'id', 'attr', 'name', 'vararg', 'kwarg'


def are_in(text):
    return _PRIVATE.search(text) is not None


def of_class(tree, class_name):
    """Gives the names in the tree of a text the meaning that they have in a class of this name."""
    prefix = '_' + class_name.lstrip('_')
    if prefix != '_':
        _mangle(tree, prefix)


def in_text_of_class(text, class_name):
    """The text of an expression with the names that of_class() gives its tree."""
    prefix = '_' + class_name.lstrip('_')
    if prefix == '_':
        return text
    return _STRING_OR_PRIVATE.sub(
        lambda found: found.group() if found.group(1) else prefix + found.group(), text)


def _mangle(node, prefix):
    if isinstance(node, list):
        for part in node:
            _mangle(part, prefix)
        return
    kind = trees.name_of(node)
    if not trees.is_node(node) or kind == 'alias':
        return
    if kind == 'Global':
        node.names = [_mangled(name, prefix) for name in node.names]
    for field in node._fields or ():
        part = getattr(node, field, None)
        if isinstance(part, str) and field in _NAMING:
            setattr(node, field, _mangled(part, prefix))
        elif not (kind == 'ClassDef' and field == 'body'):
            _mangle(part, prefix)  # A class within has its own.


def _mangled(name, prefix):
    return prefix + name if name.startswith('__') and not name.endswith('__') else name


def class_of(frame):
    """The name of the class whose body the frame's code stands in; None where that is unknown."""
    code = frame.f_code
    if is_class_body(code):
        return code.co_name
    for kind in _candidates(frame):
        for base in _bases(kind):
            for member in _members(base):
                if any(_has(function.func_code, code)
                       for function in decorated.functions_in(member)):
                    return base.__name__
    return None


def is_class_body(code):
    return code.co_names[:2] == ('__name__', '__module__') and not code.co_flags & _OPTIMIZED


def _candidates(frame):
    variables = frame.f_locals
    for name in frame.f_code.co_varnames[:1] + ('self', 'cls'):
        if name in variables:
            value = variables[name]
            if _is_class(value):
                yield value
            yield value.__class__ if type(value) is types.InstanceType else type(value)
    for value in frame.f_globals.values():
        if _is_class(value):
            yield value


def _is_class(value):
    return issubclass(type(value), type) or type(value) is types.ClassType


def _bases(kind):
    if type(kind) is not types.ClassType:
        return _mro_of(kind)
    found = [kind]
    for base in kind.__bases__:
        found += _bases(base)
    return found


def _members(kind):
    variables = kind.__dict__ if type(kind) is types.ClassType else _variables_of(kind)
    return variables.values()


def _has(outer, code):
    return outer is code or bool([inner for inner in outer.co_consts
                                  if isinstance(inner, types.CodeType) and _has(inner, code)])
