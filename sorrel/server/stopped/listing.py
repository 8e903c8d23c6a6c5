"""In which order the parts of a whole are listed, and what is listed of them at once.

First comes what it has of its own, private names last; then what a client unfolds: what its class
holds, functions, and names of the interpreter's.
"""

from __future__ import absolute_import

import types

from sorrel.inspection import attributes, parts

_CLASS_ATTRIBUTES, _FUNCTIONS, _SPECIAL = '(class attributes)', '(functions)', '(special names)'
_PUBLIC, _PRIVATE, _LAST = range(3)


class Group(object):
    """Parts that are listed by themselves, as those of a whole."""

    items = defines = None

    def __init__(self, name, children):
        self.name = name
        self._children = children

    def named(self):
        return self._children


def arranged(whole, children):
    """The parts of a whole that are listed at once, in their order, and its Groups."""
    if whole.defines is None:
        return sorted(children, key=_rank)
    at_once, grouped = [], {}
    for child in children:
        group = _group_of(child, whole.defines)
        (at_once if group is None else grouped.setdefault(group, [])).append(child)
    at_once.sort(key=_rank)
    return at_once + [Group(name, grouped[name])
                      for name in (_CLASS_ATTRIBUTES, _FUNCTIONS, _SPECIAL) if name in grouped]


def hint(child):
    """What a client is told of the kind of a part, for the way in which it shows that."""
    attributes_ = []
    if type(child.value) in (str, unicode):
        attributes_.append('rawString')
    if child.assign is None:
        attributes_.append('readOnly')
    shown = {'kind': _kind(child)}
    if attributes_:
        shown['attributes'] = attributes_
    if _rank(child) == _PRIVATE:
        shown['visibility'] = 'private'
    return shown


def _group_of(child, defines):
    if child.origin is parts.LENT or child.name is None:
        return None
    if _is_special(child.name):
        return _SPECIAL
    is_of_class = child.origin is parts.OF_CLASS
    if attributes.is_function(child.value) and (defines or is_of_class):
        return _FUNCTIONS
    return _CLASS_ATTRIBUTES if is_of_class else None


def _is_special(name):
    return len(name) > 4 and name.startswith('__') and name.endswith('__')


def _rank(child):
    if child.name is None or child.origin is parts.LENT or not child.name.startswith('_'):
        return _PUBLIC
    return _LAST if _is_special(child.name) else _PRIVATE


def _kind(child):
    if attributes.is_class(child.value):
        return 'class'
    if attributes.is_function(child.value) or type(child.value) is types.MethodType:
        return 'method'
    return 'data'
