"""How far what begins on a line goes.

As inspect.getblock() finds it, without that module, which every start would have to wait for.
"""

from __future__ import absolute_import

import itertools
import token
import tokenize


def end(line, first):
    """The last line of what begins on this one.

    line: gives the text of a line, with its end, by its number; '' where there is none.
    """
    lines = itertools.imap(line, itertools.count(first))
    try:
        return first - 1 + _length(tokenize.generate_tokens(lines.next))
    except (tokenize.TokenError, SyntaxError):
        return first


def _length(tokens):
    """In how many lines the first function or class is; a lambda ends with its line."""
    opening, depth, length, is_amid_line = None, 0, 1, True
    try:
        for kind, text, (row, _), _, _ in tokens:
            if opening is None:
                opening = text if text in ('def', 'class', 'lambda') else None
            elif kind == token.NEWLINE:
                length, is_amid_line = row, False
                if opening == 'lambda':
                    break
            elif is_amid_line or kind in (tokenize.COMMENT, tokenize.NL):
                continue
            elif kind == token.INDENT:
                depth, is_amid_line = depth + 1, True
            else:
                depth -= kind == token.DEDENT
                if depth <= 0:
                    break
    except IndentationError:
        pass  # What follows belongs to no block.
    return length
