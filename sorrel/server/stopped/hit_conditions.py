"""Hit conditions and log messages: what the core does not do at a breakpoint by itself."""

from __future__ import absolute_import

import re
import sys

from sorrel.common import errors
from sorrel.common.decoding import text
from sorrel.inspection import evaluation

_HIT_CONDITION = re.compile(r'(==|>=|<=|>|<|=|%)?\s*(\d{1,18})$')
_EXPRESSION = re.compile(r'\{([^{}]+)\}')
_RELATIONS = {
    None: lambda hits, number: hits >= number, '>=': lambda hits, number: hits >= number,
    '==': lambda hits, number: hits == number, '=': lambda hits, number: hits == number,
    '>': lambda hits, number: hits > number, '<': lambda hits, number: hits < number,
    '<=': lambda hits, number: hits <= number,
    '%': lambda hits, number: number != 0 and hits % number == 0}


def is_condition(text):
    return _HIT_CONDITION.match(text.strip()) is not None


def is_due(condition, hits):
    """Whether a hit condition, such as "3" or "% 10", holds at this hit."""
    relation, number = _HIT_CONDITION.match(condition.strip()).groups()
    return _RELATIONS[relation](hits, int(number))


def logged(message, frame):
    """A log message with the values of the expressions in its braces."""
    def value(found):
        try:
            shown = evaluation.expression(found.group(1), frame)
            return text(shown if isinstance(shown, basestring) else repr(shown))
        except:
            return '<%s>' % text(errors.error_text(*sys.exc_info()[:2]))
    return _EXPRESSION.sub(value, message)
