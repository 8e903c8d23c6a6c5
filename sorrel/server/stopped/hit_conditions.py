"""Hit conditions: what the core does not do at a breakpoint by itself."""

from __future__ import absolute_import

import re

_HIT_CONDITION = re.compile(r'(==|>=|<=|>|<|=|%)?\s*(\d{1,18})$')
# As other debuggers have it, with a word for the number of hits.
_WITH_WORD = re.compile(r'@HIT@\s*(==|>=|<=|>|<|%)\s*(\d{1,18})(?:\s*==\s*0)?$')
_RELATIONS = {
    None: lambda hits, number: hits == number, '>=': lambda hits, number: hits >= number,
    '==': lambda hits, number: hits == number, '=': lambda hits, number: hits == number,
    '>': lambda hits, number: hits > number, '<': lambda hits, number: hits < number,
    '<=': lambda hits, number: hits <= number,
    '%': lambda hits, number: number != 0 and hits % number == 0}


def refusal(text):
    """Why a text is no hit condition; None for one that is."""
    if _HIT_CONDITION.match(text.strip()):
        return None
    with_word = _WITH_WORD.match(text.strip())
    if with_word:
        return 'Not a hit condition: use %s %s.' % with_word.groups()
    return 'Not a hit condition: use a number, or one after ==, >=, >, <=, < or %.'


def is_due(condition, hits):
    """Whether a hit condition, such as "3" or "% 10", holds at this hit."""
    relation, number = _HIT_CONDITION.match(condition.strip()).groups()
    return _RELATIONS[relation](hits, int(number))
