"""Exception types by their names."""

from __future__ import absolute_import

import __builtin__
import re
import sys

import _sorrel

_QUALIFIED = re.compile(r'[^\W\d]\w*(\.[^\W\d]\w*)+$')


class _OldStyle:
    """Exceptions of the program may be such classes, too."""


def names_a_module(name):
    """Whether this is a name with that of a module before it, which may be loaded later."""
    return _QUALIFIED.match(name) is not None


def find(name):
    """A class by its name, with that of its module before it if it is not everywhere; or None.

    Nothing of the program's is run or imported.
    """
    parts = name.split('.')
    places = [__builtin__] if len(parts) == 1 else []
    for count in range(len(parts) - 1, 0, -1):
        place = sys.modules.get('.'.join(parts[:count]))
        if place is not None:
            places.append(_part(place, parts[count:-1]))
    for place in places + [_part(sys.modules['__main__'], parts[:-1])]:
        found = _part(place, parts[-1:])
        if is_type(found):
            return found
    return None


def is_type(value):
    """Whether this is a class that exceptions can be of."""
    return isinstance(value, type) and issubclass(value, BaseException) \
        or type(value) is type(_OldStyle)


def _part(place, names):
    try:
        for name in names:
            place = _sorrel.static_attribute(place, name)
    except LookupError:
        return None
    return place
