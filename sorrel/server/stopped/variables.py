"""What the client is shown of values while a thread is stopped."""

from __future__ import absolute_import

import sys

from sorrel.common import errors
from sorrel.common.decoding import text
from sorrel.common.records import record
from sorrel.inspection import child_values, values
from sorrel.inspection.time_limit import Overtime
from sorrel.protocol.messages import Refused
from sorrel.server.stopped import listing

# A client that asks for all of a long container gets as many, and the rest to open.
_AT_ONCE = 500
# What is said of code of the program that has been ended.
TOO_LONG = 'ended, since it took too long'
# In place of the value of a property that has raised an exception.
_Failure = record('_Failure', 'text')


class References(object):
    """Numbers for what a client may want to look into, forgotten when the program goes on.

    numbers: where they come from. None is given twice: a client may ask late.
    """

    def __init__(self, numbers):
        self._numbers = numbers
        self._known = {}

    def add(self, thing):
        number = next(self._numbers)
        self._known[number] = thing
        return number

    def find(self, number):
        """None for what is not known any more."""
        return self._known.get(number)

    def clear(self):
        self._known.clear()


class Presenter(object):

    def __init__(self, shower, numbers):
        self.shower = shower
        # Of a whole, the frame it was found from, and how it is written there (None when it
        # cannot be).
        self.references = References(numbers)

    def whole(self, whole, frame, expression=None):
        """A reference to all parts of a scope or a value."""
        return self.references.add((whole, frame, expression))

    def value(self, value, frame, expression=None, in_hex=False):
        """What responses say of a value that stands alone."""
        shown = {'value': self.shower.show(value, in_hex), 'type': values.type_name(value),
                 'variablesReference': 0}
        if child_values.has_children(value):
            shown['variablesReference'] = self.whole(child_values.Object(value), frame, expression)
            count = child_values.item_count(value)
            if count:
                shown['indexedVariables'] = count
        return shown

    def parts(self, reference, kind, start, count, in_hex=False):
        """The variables of a whole. kind: 'named', 'indexed' or None; count: 0 for all."""
        whole, frame, expression = self._known(reference)
        items = whole.items
        found = []
        if kind != 'indexed':
            found = listing.arranged(whole, self._named(whole))
            if kind == 'named' or items is None:
                found = found[start:start + count] if count else found[start:]

        def part(child):
            if isinstance(child, listing.Group):
                return self._group(child, frame, expression)
            return self._part(child, frame, expression, in_hex)
        shown = [part(child) for child in found]
        if kind != 'named' and items is not None:
            wanted = count or min(items.count() - start, _AT_ONCE)
            shown += [part(child) for child in items.get(start, wanted)]
            if not count and items.count() - start > _AT_ONCE:
                shown.append(self._rest(items.rest(start + _AT_ONCE), frame, expression))
        return shown

    def find(self, reference, name):
        """The part of this name, the frame it was found from, and how it is written."""
        whole, frame, expression = self._known(reference)
        child = self._find(whole, name)
        return child, frame, _written(child, expression)

    def _known(self, reference):
        known = self.references.find(reference)
        if known is None:
            raise Refused('the program has gone on since then')
        return known

    def _named(self, whole):
        try:
            return whole.named()
        except:
            raise Refused(text(errors.error_text(*sys.exc_info()[:2])))

    def _group(self, group, frame, expression):
        return {'name': group.name, 'value': '', 'presentationHint': {'kind': 'virtual'},
                'variablesReference': self.whole(group, frame, expression)}

    def _rest(self, rest, frame, expression):
        return {'name': rest.name(), 'value': '...', 'indexedVariables': rest.count(),
                'variablesReference': self.whole(rest, frame, expression),
                'presentationHint': {'kind': 'virtual'}}

    def _part(self, child, frame, whole_expression, in_hex):
        expression = _written(child, whole_expression)
        if child.read is not None:
            shown = {'value': '', 'presentationHint': {'kind': 'property', 'lazy': True},
                     'variablesReference': self.whole(
                         child_values.Property(child, self._ask), frame, whole_expression)}
        elif type(child.value) is _Failure:
            shown = {'value': child.value.text, 'variablesReference': 0,
                     'presentationHint': {'kind': 'property', 'attributes': ['readOnly']}}
        else:
            shown = self.value(child.value, frame, expression, in_hex)
            shown['presentationHint'] = listing.hint(child)
        shown['name'] = self._name(child)
        if expression is not None:
            shown['evaluateName'] = text(expression)
        return shown

    def _ask(self, read):
        """The value of a property; a _Failure where it has none."""
        try:
            return self.shower.call_limited(read)
        except Overtime:
            return _Failure(TOO_LONG)
        except:
            return _Failure(text(errors.error_text(*sys.exc_info()[:2])))

    def _name(self, child):
        return text(child.name) if child.name is not None else self.shower.show(child.key)

    def _find(self, whole, name):
        for child in whole.named():
            if self._name(child) == name:
                return child
        if whole.items is not None:
            # A container is not searched for what its name already tells.
            number = name[1:-1]
            if number.isdigit() and name == '[%s]' % number:
                child = whole.items.at(int(number))
                if child is not None:
                    return child
            for child in whole.items.get(0, whole.items.count()):
                if self._name(child) == name:
                    return child
        raise Refused('there is no variable %s' % name)


def _written(child, whole_expression):
    if child.expression is None or '{0}' not in child.expression:
        return child.expression
    return child.expression.format(whole_expression) if whole_expression is not None else None
