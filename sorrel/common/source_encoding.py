"""Lines of source, which says at its beginning what encoding it is in, as UTF-8."""

from __future__ import absolute_import

import codecs
import re

from sorrel.common import import_lock

_HIGH = re.compile(r'[\x80-\xff]')
# As the interpreter finds it, in one of the first two lines.
_NAMED = re.compile(r'[ \t\f]*#.*?coding[:=][ \t]*([-\w.]+)')


def line(written, number):
    """A line in UTF-8, as everything is that the server shows.

    written: a function for a line as it is written, '' where there is none. What is not in the
    encoding that is named is replaced; of an encoding that is not known, nothing is changed.
    """
    found = written(number)
    if number == 1 and found.startswith(codecs.BOM_UTF8):
        found = found[len(codecs.BOM_UTF8):]
    if not _HIGH.search(found):
        return found
    named = _NAMED.match(written(1)) or _NAMED.match(written(2))
    if named is None or written(1).startswith(codecs.BOM_UTF8):
        return found
    try:
        decoded, _ = import_lock.call(codecs.lookup, named.group(1)).decode(found, 'replace')
        return decoded.encode('utf-8')
    except Exception:
        return found  # Whatever a codec raises that is for other things than texts.
