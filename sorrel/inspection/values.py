"""How values of the program are shown, whatever their own code does."""

from __future__ import absolute_import

import collections
import itertools
import sys
import types

from sorrel.common import errors
from sorrel.common.decoding import text
from sorrel.inspection import characters
from sorrel.inspection.time_limit import Overtime

_TEXT_LIMIT = 1000
_NESTED_TEXT_LIMIT = 80
_ITEMS_SHOWN = 20
_NESTED_ITEMS_SHOWN = 5
_DEPTH = 3

_PLAIN_TYPES = (types.NoneType, bool, float, complex)
# Brackets, and for types whose name is shown, what stands around them.
_BRACKETS = {
    list: ('[', ']'), tuple: ('(', ')'), set: ('set([', '])'), frozenset: ('frozenset([', '])'),
    collections.deque: ('deque([', '])')}
# Their own repr is the interpreter's, runs nothing of the program and is short.
_SHORT_TYPES = (types.FunctionType, types.BuiltinFunctionType, types.ModuleType, types.CodeType,
                types.FrameType, types.GeneratorType, xrange, file, object)


_CONTAINERS = (list, tuple, dict, set, frozenset, collections.deque)
# The own text of a longer container is not asked for.
_LONG = 1000
_OrderedDict = getattr(collections, 'OrderedDict', None)
_name_of = type.__dict__['__name__'].__get__
_mro_of = type.__dict__['__mro__'].__get__
_variables_of = type.__dict__['__dict__'].__get__


class Shower(object):
    """Makes texts of values.

    call_limited: calls a function within a limit of time; raises Overtime when it had to be ended.
    """

    def __init__(self, call_limited):
        self.call_limited = call_limited
        # Types whose own repr did not end once.
        self._endless = set()

    def show(self, value, in_hex=False):
        return _shortened(self._show(
            value, hex if in_hex else repr, _DEPTH, _ITEMS_SHOWN, _TEXT_LIMIT), _TEXT_LIMIT)

    def show_all(self, value):
        """The full text, as long as it may be."""
        return text(self._own_repr(value))

    def _show(self, value, number_text, depth, items_shown, text_limit):
        kind = type(value)
        if kind is int or kind is long:
            return number_text(value) if abs(value) < 1 << 4096 \
                else '<long of %d bits>' % _bits(value)
        if kind in _PLAIN_TYPES or kind in _SHORT_TYPES:
            return text(repr(value))
        if kind is str or kind is unicode:
            # The longest that can still be needed.
            shown = repr(value[:text_limit + 1])
            return _shortened(shown if kind is str else characters.readable(shown), text_limit)
        base = container_base(value)
        if base is not None and (_has_repr_of(kind, base) or base.__len__(value) > _LONG):
            if not depth:
                return '...'
            shown = self._show_container(value, base, number_text, depth - 1, items_shown)
            return shown if _has_repr_of(kind, base) else '%s(%s)' % (type_name(value), shown)
        return _shortened(self._own_repr(value), text_limit)

    def _show_container(self, value, base, number_text, depth, items_shown):
        def show(item):
            return self._show(item, number_text, depth, _NESTED_ITEMS_SHOWN, _NESTED_TEXT_LIMIT)
        length = base.__len__(value)
        if base is dict:
            begin, end = '{', '}'
            shown = [show(key) + ': ' + show(item)
                     for key, item in first_entries(value, 0, items_shown)]
        else:
            begin, end = _BRACKETS[base]
            shown = [show(item) for item in first_items(
                lambda: base.__iter__(value), 0, items_shown)]
        if length > items_shown:
            shown.append('...')
        elif base is tuple and length == 1:
            end = ',)'
        return begin + ', '.join(shown) + end

    def _own_repr(self, value):
        kind = type(value) if type(value) is not types.InstanceType else value.__class__
        if kind not in self._endless:
            try:
                return self.call_limited(_repr, value)
            except Overtime:
                self._endless.add(kind)
            except:
                return '<%s object; its repr() raised %s>' % (
                    type_name(value), errors.error_text(*sys.exc_info()[:2]))
        return '<%s object; its repr() does not end>' % type_name(value)


def _repr(value):
    # Measured here, where the time is limited, too: a str may be of a class of the program.
    return str.__str__(repr(value))


def first_items(iterate, start, count):
    """Some items of a container that another thread may be changing."""
    for _ in range(3):
        try:
            return list(itertools.islice(iterate(), start, start + count))
        except RuntimeError:
            pass
    return []


def first_entries(value, start, count):
    """Some (key, item) pairs of a dict, in its own order if it has one."""
    if _OrderedDict is not None and issubclass(type(value), _OrderedDict):
        try:
            return [(key, dict.__getitem__(value, key)) for key in itertools.islice(
                _OrderedDict.__iter__(value), start, start + count)]
        except Exception:
            pass  # It is not as it should be.
    return first_items(lambda: dict.iteritems(value), start, count)


def container_base(value):
    """Which of the interpreter's own containers a value is; None for none."""
    # isinstance() would ask the value itself for its class.
    for base in _CONTAINERS:
        if issubclass(type(value), base):
            return base
    return None


def _has_repr_of(kind, base):
    """Whether values of this class are shown as those of its base."""
    for ancestor in _mro_of(kind):
        if '__repr__' in _variables_of(ancestor):
            return ancestor is base
    return False


def type_name(value):
    return class_name(value.__class__ if type(value) is types.InstanceType else type(value))


def class_name(kind):
    """Of a class of either kind; its metaclass is not asked."""
    return text(kind.__name__ if type(kind) is types.ClassType else _name_of(kind))


def _bits(number):
    digits = '%x' % abs(number)
    return (len(digits) - 1) * 4 + len(bin(int(digits[0], 16))) - 2


def _shortened(shown, limit):
    shown = text(shown)
    return shown if len(shown) <= limit else shown[:limit] + u'...'
