"""How far what begins on a line goes."""

from __future__ import absolute_import

import inspect
import tokenize


def end(line, first):
    """The last line of what begins on this one.

    line: gives the text of a line, with its end, by its number; '' where there is none.
    """
    block = []
    text = line(first)
    while text:
        block.append(text)
        text = line(first + len(block))
    try:
        return first + len(inspect.getblock(block)) - 1
    except (tokenize.TokenError, SyntaxError):
        return first
