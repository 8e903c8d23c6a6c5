"""Values laid out to be read, where they are too long for a line."""

from __future__ import absolute_import

import pprint

_WIDTH = 80
# What is left for a value where what is said before it is long, too.
_LEAST_WIDTH = 40
_LINES = 20
_LINE_LIMIT = 400
# Of a value as repr has it, in characters: laying out a longer one takes its time.
_LAID_OUT = 32 * 1024
_CUT = '...'


def after(head, value):
    """What is said of a value and, on the same line, the beginning of the value.

    Of a long one, not all is there. Raises whatever its own code raises.
    """
    return arranged(head, repr(value), value)


def arranged(head, text, value):
    """The same of a value that repr has this text for."""
    if len(head) + len(text) <= _WIDTH:
        return head + text
    if len(text) <= _LAID_OUT:
        text = pprint.pformat(value, 1, max(_WIDTH - len(head), _LEAST_WIDTH))
    lines = text.split('\n')
    shown = [cut(line, _LINE_LIMIT) for line in lines[:_LINES]]
    if len(lines) > _LINES:
        shown.append(_CUT)
    return head + ('\n' + ' ' * len(head)).join(shown)


def cut(line, limit=_WIDTH):
    return line if len(line) <= limit else line[:limit] + _CUT
