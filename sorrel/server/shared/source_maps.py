"""Parts of files of the client's that the program runs as other files: a notebook's cells."""

from __future__ import absolute_import

import os

from sorrel.common.decoding import text
from sorrel.common.records import record
from sorrel.protocol.messages import Refused

# Lines from the first to the last one of a file, which are lines of another one from this one on.
Range = record('Range', 'first last path real_path runtime_first')


def range_of(first, last, path, runtime_first):
    return Range(first, last, path, os.path.realpath(path), runtime_first)


class SourceMaps(object):

    def __init__(self):
        # By the paths of the client's files: the name that the client has for each, and its Ranges.
        self._known = {}

    def set(self, path, name, ranges):
        """Takes the place of what was known of a file. Raises Refused."""
        for place, one in enumerate(ranges):
            if one.first < 1 or one.runtime_first < 1:
                raise Refused('lines are counted from 1')
            if one.last < one.first:
                raise Refused('line %d is after endLine %d' % (one.first, one.last))
            for other in ranges[:place]:
                if other.first <= one.last and one.first <= other.last:
                    raise Refused('lines %d to %d and %d to %d are of both' % (
                        other.first, other.last, one.first, one.last))
                _check_apart(one, other)
            for known, (_, others) in self._known.items():
                for other in others if known != path else ():
                    _check_apart(one, other)
        if ranges:
            self._known[path] = name, ranges
        else:
            self._known.pop(path, None)

    def to_program(self, path, line):
        """Where the program has a line of a file: a (path, line)."""
        for one in self._known.get(path, (None, ()))[1]:
            if one.first <= line <= one.last:
                return one.path, line - one.first + one.runtime_first
        return path, line

    def to_client(self, path, line):
        """The (name, line) that a line of the program's is to the client; None where it is none."""
        real_path = os.path.realpath(path) if self._known else None
        for name, ranges in self._known.values():
            for one in ranges:
                if one.real_path == real_path and 0 <= line - one.runtime_first <= one.last - one.first:
                    return name, line - one.runtime_first + one.first
        return None


def _check_apart(one, other):
    """Raises Refused where two Ranges are the same lines of the program's."""
    distance = one.runtime_first - other.runtime_first
    if one.real_path == other.real_path and other.first - other.last + distance <= 0 \
            and one.first - one.last - distance <= 0:
        raise Refused('lines of %s are mapped twice, from line %d and from line %d on' % (
            text(one.path), other.runtime_first, one.runtime_first))
