"""What a value of the program consists of, taken apart without running the program's code.

A whole has the method `named()`, a list of Child, and the attributes `items`, its Items or None,
and `defines`: whether functions among its parts are those that the program has defined there, None
where there are no kinds of parts.
"""

from __future__ import absolute_import

import collections
import types

from sorrel.inspection import attributes, parts, values

_SEQUENCES = (list, tuple, collections.deque)
_SETS = (set, frozenset)
_CHILDLESS = frozenset((
    types.NoneType, bool, int, long, float, complex, str, unicode, types.BuiltinFunctionType,
    types.CodeType, xrange, file, object))
_KEYS_AS_WRITTEN = (str, unicode, int, long, bool, types.NoneType)
_WRITTEN_KEY_LIMIT = 200


class Variables(object):
    """The variables of a frame or a module."""

    items = None

    def __init__(self, variables, first_names, assign, lent=(), defines=True):
        """first_names: those that come first, in their order. assign: None where none can change.

        lent: (name, value) pairs that cannot be changed, to stand before all.
        """
        self.defines = defines
        self._variables = variables
        self._first_names = first_names
        self._assign = assign
        self._lent = lent

    def named(self):
        found = [parts.named(name, value, name if parts.is_name(name) else None,
                             origin=parts.LENT) for name, value in self._lent]
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
        expression = name if parts.is_name(name) else None
        return parts.named(name, value, expression, self._assign and assign)


class Items(object):
    """A container's items from one of them on; as a whole, only these."""

    defines = False

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
            return [self._member(start + number, value) for number, value in enumerate(members)]
        return [self._item(number) for number in range(start, start + count)]

    def at(self, number):
        """The item of this number, counted in the whole container; None if that has no numbers."""
        if self._base in _SEQUENCES and 0 <= number < self._base.__len__(self._value):
            return self._item(number)
        return None

    def _item(self, number):
        def assign(value):
            self._value[number] = value
        is_fixed = self._base is tuple
        return parts.named(
            '[%d]' % number, self._base.__getitem__(self._value, number), '{0}[%d]' % number,
            None if is_fixed else assign, fixed_by=tuple if is_fixed else None)

    def _member(self, number, value):
        def assign(new):
            self._value.remove(value)
            try:
                self._value.add(new)
            except:
                self._value.add(value)
                raise
        is_fixed = self._base is frozenset
        return parts.named('[%d]' % number, value, None, None if is_fixed else assign,
                           fixed_by=frozenset if is_fixed else None)

    def _entry(self, key, value):
        def assign(new):
            self._value[key] = new
        written = repr(key) if type(key) in _KEYS_AS_WRITTEN else ''
        expression = None
        if written and len(written) <= _WRITTEN_KEY_LIMIT:
            expression = '{0}[%s]' % written.replace('{', '{{').replace('}', '}}')
        return parts.Child(None, key, value, expression, assign)


class Object(object):
    """A value with its attributes, and its items if it is a container."""

    def __init__(self, value):
        self._value = value
        self.defines = attributes.is_class(value) or type(value) is types.ModuleType
        self.items = Items(value) if item_count(value) is not None else None

    def named(self):
        return list(attributes.of(self._value))


class Property(object):
    """A property, whose one part is its value."""

    items = defines = None

    def __init__(self, child, call):
        """call: what is to call the code of the property."""
        self._child = child
        self._call = call

    def named(self):
        return [self._child._replace(value=self._call(self._child.read), read=None)]


def has_children(value):
    if type(value) in _CHILDLESS:
        return False
    if item_count(value):
        return True
    for _ in attributes.of(value):
        return True
    return False


def item_count(value):
    """None for what has no items, or has them by name."""
    base = values.container_base(value)
    return None if base is None or attributes.field_names(value) else base.__len__(value)
