"""How values of the program are shown, whatever their own code does."""

import collections
import itertools
import sys
import types

from sorrel import evaluate
from sorrel.dap import protocol

_TEXT_LIMIT = 1000
_NESTED_TEXT_LIMIT = 80
_ITEMS_SHOWN = 20
_NESTED_ITEMS_SHOWN = 5
_DEPTH = 3

_PLAIN_TYPES = (types.NoneType, bool, int, float, complex)
# Brackets, and for types whose name is shown, what stands around them.
_BRACKETS = {
    list: ('[', ']'), tuple: ('(', ')'), set: ('set([', '])'), frozenset: ('frozenset([', '])'),
    collections.deque: ('deque([', '])')}
# Their own repr is the interpreter's, runs nothing of the program and is short.
_SHORT_TYPES = (types.FunctionType, types.BuiltinFunctionType, types.ModuleType, types.CodeType,
                types.FrameType, types.GeneratorType, xrange, file, object)


_name_of = type.__dict__['__name__'].__get__


class Overtime(Exception):
    """Code of the program was ended because it took too long."""


class Shower(object):
    """Makes texts of values.

    call_limited: calls a function within a limit of time; raises Overtime when it had to be ended.
    """

    def __init__(self, call_limited):
        self.call_limited = call_limited
        # Types whose own repr did not end once.
        self._endless = set()

    def show(self, value):
        return _shortened(self._show(value, _DEPTH, _ITEMS_SHOWN, _TEXT_LIMIT), _TEXT_LIMIT)

    def show_all(self, value):
        """The full text, as long as it may be."""
        return protocol.text(self._own_repr(value))

    def _show(self, value, depth, items_shown, text_limit):
        kind = type(value)
        if kind in _PLAIN_TYPES or kind in _SHORT_TYPES:
            return repr(value)
        if kind is long:
            return repr(value) if abs(value) < 1 << 4096 else '<long of %d bits>' % _bits(value)
        if kind is str or kind is unicode:
            # The longest that can still be needed.
            return _shortened(repr(value[:text_limit + 1]), text_limit)
        if kind in _BRACKETS or kind is dict:
            if not depth:
                return '...'
            return self._show_container(value, depth - 1, items_shown)
        return _shortened(self._own_repr(value), text_limit)

    def _show_container(self, value, depth, items_shown):
        def show(item):
            return self._show(item, depth, _NESTED_ITEMS_SHOWN, _NESTED_TEXT_LIMIT)
        if type(value) is dict:
            begin, end = '{', '}'
            shown = [show(key) + ': ' + show(item)
                     for key, item in first_items(value.iteritems, 0, items_shown)]
        else:
            begin, end = _BRACKETS[type(value)]
            shown = [show(item) for item in first_items(value.__iter__, 0, items_shown)]
        if len(value) > items_shown:
            shown.append('...')
        elif type(value) is tuple and len(value) == 1:
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
                    type_name(value), evaluate.error_text(*sys.exc_info()[:2]))
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


def type_name(value):
    return class_name(value.__class__ if type(value) is types.InstanceType else type(value))


def class_name(kind):
    """Of a class of either kind; its metaclass is not asked."""
    return protocol.text(kind.__name__ if type(kind) is types.ClassType else _name_of(kind))


def _bits(number):
    return len(hex(abs(number))) * 4


def _shortened(text, limit):
    text = protocol.text(text)
    return text if len(text) <= limit else text[:limit] + u'...'
