"""What could follow what has been typed."""

from __future__ import absolute_import

import keyword
import __builtin__

from sorrel.common.decoding import text

_DIGITS = '0123456789'
_IN_NAMES = 'abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_.' + _DIGITS


def complete(typed, column, frame, evaluator):
    """The first and last position of what is to be replaced, and the names that could stand there.

    column: how much of the text is before the cursor. evaluator: for what is typed there.
    """
    before = typed[:max(0, column)]
    name = before[len(before.rstrip(_IN_NAMES)):].lstrip(_DIGITS + '.')
    path, dot, begun = name.rpartition('.')
    if dot:
        names = dir(evaluator.expression(path, frame))
    else:
        names = set(keyword.kwlist)
        for variables in (__builtin__.__dict__, evaluator.names, frame.f_globals, frame.f_locals):
            names.update(variables)
    matching = sorted(text(name) for name in names
                      if isinstance(name, str) and name.startswith(begun.encode('utf-8'))
                      and (begun or not name.startswith('_')))
    return column - len(begun), column, matching
