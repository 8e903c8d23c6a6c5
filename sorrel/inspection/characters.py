"""Unicode strings as a person reads them."""

from __future__ import absolute_import

# The lengths of escapes that stand for a character by its number.
_LENGTHS = {'x': 4, 'u': 6, 'U': 10}
# What cannot be seen, or makes other characters be seen elsewhere; halves of characters; and what
# has no meaning of its own.
_HIDDEN = (
    (0x00, 0x1f), (0x7f, 0xa0), (0xad, 0xad), (0x600, 0x605), (0x61c, 0x61c), (0x6dd, 0x6dd),
    (0x70f, 0x70f), (0x180e, 0x180e), (0x2000, 0x200f), (0x2028, 0x202f), (0x205f, 0x206f),
    (0x3000, 0x3000), (0xd800, 0xf8ff), (0xfeff, 0xfeff), (0xfff0, 0xfffb), (0xfffe, 0xffff),
    (0xe0000, 0x10ffff))


def readable(written):
    """What repr() has written of a unicode string, with the characters that can be seen."""
    head, found, rest = written.partition('\\')
    shown = [unicode(head)]
    while found:
        escape = found + rest[:_LENGTHS.get(rest[:1], 2) - 1]
        shown.append(_character(escape))
        head, found, rest = rest[len(escape) - 1:].partition('\\')
        shown.append(unicode(head))
    return u''.join(shown)


def _character(escape):
    if escape[1] not in _LENGTHS:
        return unicode(escape)
    number = int(escape[2:], 16)
    if [True for first, last in _HIDDEN if first <= number <= last]:
        return unicode(escape)
    return escape.decode('unicode_escape')
