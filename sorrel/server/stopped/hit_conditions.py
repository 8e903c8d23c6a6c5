"""Hit conditions: what the core does not do at a breakpoint by itself."""

from __future__ import absolute_import

import re

_HIT_CONDITION = re.compile(r'(==|>=|<=|>|<|=|%)?\s*(\d{1,18})$')
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
