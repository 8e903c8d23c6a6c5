"""What the console says of an exception that was raised by what was typed there."""

from __future__ import absolute_import

import traceback

from sorrel.common import errors
from sorrel.common.decoding import text
from sorrel.inspection import frames, scopes

# Of a recursion without end nobody reads all.
_SHOWN_AT_EACH_END = 20


def formatted(type, value, tb):
    """As the interpreter prints it, without frames of the server's."""
    entries = [(path, line, '<module>' if name == scopes.FUNCTION else name, source)
               for path, line, name, source in errors.entries(tb, frames.is_own)]
    shown = traceback.format_list(entries[:_SHOWN_AT_EACH_END])
    rest = entries[_SHOWN_AT_EACH_END:]
    if len(rest) > _SHOWN_AT_EACH_END:
        shown.append('  ... %d more ...\n' % (len(rest) - _SHOWN_AT_EACH_END))
    shown += traceback.format_list(rest[-_SHOWN_AT_EACH_END:])
    return text(errors.below(shown, type, value)).rstrip()
