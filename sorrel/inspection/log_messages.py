"""What breakpoints write instead of stopping."""

from __future__ import absolute_import

import re
import sys

from sorrel.common import errors
from sorrel.common.decoding import text
from sorrel.inspection import evaluation

_EXPRESSION = re.compile(r'\{([^{}]+)\}')


def logged(message, frame, tell_failure=None):
    """A log message, as unicode, with the values of the expressions in its braces.

    tell_failure: called with the (type, value) that evaluating one has raised, which stands there.
    """
    def value(found):
        try:
            shown = evaluation.expression(found.group(1), frame)
            return text(shown if isinstance(shown, basestring) else repr(shown))
        except:
            if tell_failure is not None:
                tell_failure(sys.exc_info()[:2])
            return '<%s>' % text(errors.error_text(*sys.exc_info()[:2]))
    return _EXPRESSION.sub(value, text(message))
