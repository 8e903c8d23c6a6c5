"""What breakpoints write instead of stopping."""

from __future__ import absolute_import

import re
import sys

from sorrel.common import errors
from sorrel.common.decoding import text
from sorrel.common.originals import thread
from sorrel.inspection import evaluation, views

_EXPRESSION = re.compile(r'\{([^{}]+)\}')


def logged(message, frame, tell_failure=None):
    """A log message, as unicode, with the values of the expressions in its braces.

    frame: of the calling thread.
    tell_failure: called with the (type, value) that evaluating one has raised, which stands there.
    """
    in_its_language = views.evaluator(thread.get_ident(), frame)

    def value(found):
        try:
            shown = in_its_language(found.group(1)) if in_its_language is not None \
                else evaluation.expression(found.group(1), frame)
            return text(shown if isinstance(shown, basestring) else repr(shown))
        except:
            if tell_failure is not None:
                tell_failure(sys.exc_info()[:2])
            return '<%s>' % text(errors.error_text(*sys.exc_info()[:2]))
    return _EXPRESSION.sub(value, text(message))
