"""What tells in a launched program's output where a message of its server belongs.

The server writes a mark to the pipes of the program's streams and sends its number with the
message. The adapter, which has chosen the word in all of them, takes them out.
"""

from __future__ import absolute_import

import re

from sorrel.protocol import secrets

# By which no other mark, and hardly anything else, begins.
_FIRST = '\0'
_DIGITS = 16
SIZE = len(_FIRST) + secrets.SIZE + _DIGITS


def mark(word, number):
    """Short enough for a pipe to take it in one piece."""
    return '%s%s%0*x' % (_FIRST, word, _DIGITS, number)


def pattern(word):
    """Finds a mark, whose number is the group, in hex."""
    return re.compile('%s%s([0-9a-f]{%d})' % (_FIRST, word, _DIGITS))


def unfinished(data, word):
    """How many bytes at the end of the data may be the first ones of a mark."""
    begin = data.rfind(_FIRST, -SIZE + 1)
    if begin < 0:
        return 0
    size = len(data) - begin
    return size if data[begin:].startswith((_FIRST + word)[:size]) else 0
