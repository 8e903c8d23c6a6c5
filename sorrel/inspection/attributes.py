"""The attributes of a value, found without running the program's code."""

from __future__ import absolute_import

import itertools
import types

import _sorrel

from sorrel.inspection.parts import is_name, named, OF_CLASS

# Methods as they stand in classes are among them.
_FUNCTION_TYPES = (types.FunctionType, types.BuiltinFunctionType, staticmethod, classmethod,
                   type(list.append), type(object.__init__))
# What classes have for the interpreter's sake.
_OF_INTERPRETER = frozenset(('__module__', '__dict__', '__weakref__', '__slots__'))
_type_variables = type.__dict__['__dict__'].__get__
_type_mro = type.__dict__['__mro__'].__get__


def of(value):
    """What the value itself holds, then what its class computes, then what its class holds."""
    known = set()
    for child in itertools.chain(
            _own(value), _fields(value), _slots(value), _properties(value), _of_class(value)):
        if child.name not in known:
            known.add(child.name)
            yield child


def _own(value):
    if issubclass(type(value), BaseException):
        yield named('args', BaseException.args.__get__(value), '{0}.args')
    if type(value) is types.MethodType:
        yield named('im_self', value.im_self, '{0}.im_self')
        yield named('im_func', value.im_func, '{0}.im_func')
    variables = _namespace(value)
    if variables:
        for name in sorted(name for name in variables.keys() if type(name) is str):
            if name in variables and name not in ('__builtins__', '__dict__', '__weakref__'):
                yield _attribute(value, name, variables[name])


def _namespace(value):
    """The dictionary of an object, a class or a module; None where there is none."""
    kind = type(value)
    if kind in (types.InstanceType, types.ClassType, types.ModuleType):
        return value.__dict__
    if issubclass(kind, type):
        return _type_variables(value)
    for base in _bases(kind):
        descriptor = _type_variables(base).get('__dict__')
        # The interpreter's own, not what a class of the program has put in its place.
        if type(descriptor) is types.GetSetDescriptorType:
            try:
                return descriptor.__get__(value)
            except Exception:
                return None
    return None


def _bases(kind):
    # Some of C's types are not ready before they are asked for an attribute.
    return _type_mro(kind) or ()


def field_names(value):
    """Those of a tuple whose places have names, as collections.namedtuple() makes them; else ()."""
    if issubclass(type(value), tuple):
        for base in _bases(type(value)):
            names = _type_variables(base).get('_fields')
            if type(names) is tuple and len(names) == tuple.__len__(value) \
                    and not [name for name in names if type(name) is not str]:
                return names
    return ()


def _fields(value):
    for place, name in enumerate(field_names(value)):
        yield named(name, tuple.__getitem__(value, place), '{0}.' + name,
                    fixed_by=type(value))


def _slots(value):
    if type(value) is not types.InstanceType:
        for descriptor, name in _class_entries(value, types.MemberDescriptorType):
            try:
                held = descriptor.__get__(value)
            except Exception:
                continue  # Empty.
            yield _attribute(value, name, held)


def _properties(value):
    if type(value) is not types.InstanceType:
        for descriptor, name in _class_entries(value, property):
            if name not in _OF_INTERPRETER:
                yield _property(value, descriptor, name)


def _property(value, descriptor, name):
    return _attribute(value, name, None)._replace(read=lambda: descriptor.__get__(value))


def _class_entries(value, kind):
    """What classes of the program hold of this kind, with its name."""
    for base in _bases(type(value)):
        entries = _type_variables(base)
        if '__module__' in entries and not issubclass(base, type):
            for name in sorted(name for name in entries.keys() if type(name) is str):
                if type(entries.get(name)) is kind:
                    yield entries[name], name


def _attribute(value, name, held):
    def assign(new):
        setattr(value, name, new)
    expression = '{0}.' + name if is_name(name) else None
    return named(name, held, expression, assign)


def _of_class(value):
    if not is_class(value):
        for variables in _class_namespaces(value):
            for name in sorted(name for name in variables.keys() if type(name) is str):
                held = variables.get(name)
                if name not in _OF_INTERPRETER and not (name == '__doc__' and held is None) \
                        and type(held) not in (types.MemberDescriptorType,
                                               types.GetSetDescriptorType):
                    yield _class_attribute(value, name, held)


def _class_attribute(value, name, held):
    child = _attribute(value, name, _function_of(held))._replace(origin=OF_CLASS)
    for base in _bases(type(held)):
        variables = _type_variables(base)
        if '__get__' in variables and '__module__' in variables:
            return child._replace(read=_computed_by(variables['__get__'], held, value))
    return child


def _computed_by(get, descriptor, value):
    """What asks for a value that a class of the program computes."""
    return lambda: get(descriptor, value, _class_of(value))


def _function_of(held):
    """What stands in a class, as the function that it is made of if it is one."""
    if type(held) is staticmethod:
        return held.__get__(None, object)
    if type(held) is classmethod:
        return held.__get__(None, object).im_func
    return held


def _class_namespaces(value):
    """The dictionaries of the classes of the program that a value is of."""
    if type(value) is types.InstanceType:
        return [kind.__dict__ for kind in _old_bases(value.__class__)]
    found = [_type_variables(base) for base in _bases(type(value))]
    return [variables for variables in found if '__module__' in variables]


def _old_bases(kind):
    """A class and its bases, in the order in which attributes are looked up."""
    if type(kind) is not types.ClassType:
        return []
    found = [kind]
    for base in kind.__bases__:
        found += _old_bases(base)
    return found


def stored(value, name):
    """What stands in a value or its class by this name. Raises LookupError where none is known."""
    try:
        return _sorrel.static_attribute(value, name)
    except LookupError:
        # Functions and properties of a class are other things for its instances.
        return _sorrel.static_attribute(_class_of(value), name)


def _class_of(value):
    # Only of these it is no answer of the program's.
    return value.__class__ if type(value) is types.InstanceType else type(value)


def is_class(value):
    return issubclass(type(value), type) or type(value) is types.ClassType


def is_function(value):
    return type(value) in _FUNCTION_TYPES
