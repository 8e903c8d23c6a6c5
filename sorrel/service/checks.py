"""Breakpoints that stop at less than their line: what the core does not tell apart by itself."""

from __future__ import absolute_import

import os

from sorrel.inspection import functions, source
from sorrel.languages import sublanguages
from sorrel.service import conditions


class Checks(object):

    def __init__(self):
        self._by_line = {}
        # Whether the first name is that of the file with this real path.
        self._are_same = {}

    def set(self, breakpoints):
        """From now on it is about these."""
        by_line = {}
        for breakpoint in breakpoints:
            by_line.setdefault(breakpoint.line, []).append(breakpoint)
        self._by_line = by_line
        self._are_same = {}

    def any(self):
        return bool(self._by_line)

    def at(self, path, line):
        there = self._by_line.get(line)
        return there and [breakpoint for breakpoint in there
                          if self._is_same(path, breakpoint.real_path)]

    def is_reached(self, breakpoint, frame):
        """Whether a line event at its line is one for this breakpoint."""
        if not breakpoint.enabled:
            return False
        if breakpoint.entry is not None:
            return functions.is_reached(breakpoint.entry, frame)
        # For the core, code that the program has made of text is its module's file's.
        return not source.is_made_up(frame) or sublanguages.is_key(frame)

    def is_due(self, breakpoint, thread, frame):
        """Whether this one stops the calling thread, whose ident this is; counts that."""
        if not self.is_reached(breakpoint, frame):
            return False
        breakpoint.hits += 1
        holds, error = conditions.judge(breakpoint.meant, thread, frame)
        if error is None and holds and breakpoint.ignore_count:
            breakpoint.ignore_count -= 1
            return False
        return holds

    def _is_same(self, path, real_path):
        key = path, real_path
        if key not in self._are_same:
            self._are_same[key] = os.path.realpath(path) == real_path
        return self._are_same[key]
