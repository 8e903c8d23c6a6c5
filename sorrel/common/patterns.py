"""Patterns of the names of files and modules, as fnmatch has them, and what lies in what they name.

Each function returns one that takes a name and says whether it is such a one. Both raise ValueError
for what is no pattern.
"""

from __future__ import absolute_import

import fnmatch
import re

# At the beginning of a name in a path: any folders, or none.
_ANY_FOLDERS = re.compile(r'(?:(?<=/)|^)(?:\*\*/)+')
_END = re.compile(r'\\Z(\(\?ms\))?$')


def of_files(pattern):
    """One that does not begin at the root may be of names in any folder."""
    if not pattern.startswith(('/', '*')):
        pattern = '**/' + pattern
    parts = _ANY_FOLDERS.split(pattern.rstrip('/') or pattern)
    return _matcher('(?:.*/)?'.join(map(_translated, parts)) + '(?:/.*)?')


def of_modules(pattern):
    return _matcher(_translated(pattern) + r'(?:\..*)?')


def _translated(pattern):
    return _END.sub('', fnmatch.translate(pattern))


def _matcher(expression):
    try:
        return re.compile(expression + r'\Z', re.S).match
    except re.error:
        raise ValueError('no pattern of names')
