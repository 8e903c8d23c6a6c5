"""What a value of the program consists of, taken apart without running the program's code.

A whole has the method `named()`, a list of Child, and the attribute `items`: its Items or None.
"""

from __future__ import absolute_import

import collections
import itertools
import types

from sorrel.common.records import record
from sorrel.inspection import values

# One part of a whole. name: how it is called; None when it is called by its key, which is a value
# itself. expression: how it is written where {0} is the whole; None when it cannot be written.
# assign: gives it another value; None when it cannot have one. read: its value is still to be
# asked for, which this does and which may run code of the program; else None.
Child = record('Child', 'name key value expression assign read')

_SEQUENCES = (list, tuple, collections.deque)
_SETS = (set, frozenset)
_CHILDLESS = frozenset((
    types.NoneType, bool, int, long, float, complex, str, unicode, types.BuiltinFunctionType,
    types.CodeType, xrange, file, object))
_KEYS_AS_WRITTEN = (str, unicode, int, long, bool, types.NoneType)
_WRITTEN_KEY_LIMIT = 200
_type_variables = type.__dict__['__dict__'].__get__
_type_mro = type.__dict__['__mro__'].__get__


def _named(name, value, expression=None, assign=None, read=None):
    return Child(name, None, value, expression, assign, read)


def _is_name(text):
    return text.replace('_', 'a').isalnum() and not text[0].isdigit()


class Variables(object):
    """The variables of a frame or a module."""

    items = None

    def __init__(self, variables, first_names, assign, extra=()):
        """first_names: those that come first, in their order.

        extra: (name, value) pairs that cannot be changed, to stand before all.
        """
        self._variables = variables
        self._first_names = first_names
        self._assign = assign
        self._extra = extra

    def named(self):
        found = [_named(name, value, name if _is_name(name) else None)
                 for name, value in self._extra]
        known = set(self._first_names)
        names = list(self._first_names) + sorted(
            name for name in self._variables.keys() if type(name) is str and name not in known)
        for name in names:
            if name in self._variables and name != '__builtins__':
                try:
                    found.append(self._variable(name, self._variables[name]))
                except KeyError:
                    pass  # Another thread has removed it.
        return found

    def _variable(self, name, value):
        def assign(value):
            self._assign(name, value)
        expression = name if _is_name(name) else None
        return _named(name, value, expression, assign)


class Items(object):
    """A container's items from one of them on; as a whole, only these."""

    def __init__(self, value, first=0):
        self._value = value
        self._base = values.container_base(value)
        self._first = first

    @property
    def items(self):
        return self

    def named(self):
        return []

    def count(self):
        return max(0, self._base.__len__(self._value) - self._first)

    def rest(self, start):
        return Items(self._value, self._first + start)

    def name(self):
        """Such as "[100 to 199]"."""
        return '[%d to %d]' % (self._first, self._first + self.count() - 1)

    def get(self, start, count):
        count = min(count, self.count() - start)
        start += self._first
        if count <= 0:
            return []
        if self._base is dict:
            return [self._entry(key, value) for key, value in values.first_entries(
                self._value, start, count)]
        if self._base in _SETS:
            members = values.first_items(
                lambda: self._base.__iter__(self._value), start, count)
            return [_named('[%d]' % (start + number), value)
                    for number, value in enumerate(members)]
        return [self._item(number) for number in range(start, start + count)]

    def at(self, number):
        """The item of this number, counted in the whole container; None if that has no numbers."""
        if self._base in _SEQUENCES and 0 <= number < self._base.__len__(self._value):
            return self._item(number)
        return None

    def _item(self, number):
        def assign(value):
            self._value[number] = value
        return _named('[%d]' % number, self._base.__getitem__(self._value, number),
                      '{0}[%d]' % number, assign if self._base is not tuple else None)

    def _entry(self, key, value):
        def assign(new):
            self._value[key] = new
        written = repr(key) if type(key) in _KEYS_AS_WRITTEN else ''
        expression = None
        if written and len(written) <= _WRITTEN_KEY_LIMIT:
            expression = '{0}[%s]' % written.replace('{', '{{').replace('}', '}}')
        return Child(None, key, value, expression, assign, None)


class Object(object):
    """A value with its attributes, and its items if it is a container."""

    def __init__(self, value):
        self._value = value
        self.items = Items(value) if values.container_base(value) is not None else None

    def named(self):
        return list(_attributes(self._value))


class Property(object):
    """A property, whose one part is its value."""

    items = None

    def __init__(self, child, call):
        """call: what is to call the code of the property."""
        self._child = child
        self._call = call

    def named(self):
        return [self._child._replace(value=self._call(self._child.read), read=None)]


def has_children(value):
    if type(value) in _CHILDLESS:
        return False
    base = values.container_base(value)
    if base is not None and base.__len__(value):
        return True
    for _ in _attributes(value):
        return True
    return False


def item_count(value):
    base = values.container_base(value)
    return base.__len__(value) if base is not None else 0


def _attributes(value):
    """What the value itself holds, then what its class computes."""
    known = set()
    for child in itertools.chain(_own(value), _slots(value), _properties(value)):
        if child.name not in known:
            known.add(child.name)
            yield child


def _own(value):
    if issubclass(type(value), BaseException):
        yield _named('args', BaseException.args.__get__(value), '{0}.args')
    if type(value) is types.MethodType:
        yield _named('im_self', value.im_self, '{0}.im_self')
        yield _named('im_func', value.im_func, '{0}.im_func')
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
    expression = '{0}.' + name if _is_name(name) else None
    return _named(name, held, expression, assign)
