"""What a stop tells of breakpoints: those that are due, and those that have found their place."""

from __future__ import absolute_import

import os

from sorrel.common import errors
from sorrel.inspection import functions, source
from sorrel.languages import sublanguages
from sorrel.service import conditions
from sorrel.service.breakpoints import Refused
from sorrel.service.places import NotLoaded, Places
from sorrel.service.stops import is_at_line
from sorrel.terminal.breakpoints import shown_place


class BreakpointStops(object):
    """Commands find here: `_due`, the Breakpoints that the program has stopped at."""

    def __init__(self):
        self._due = []
        # Of pending ones that have found their place: not told yet.
        self._settled = []
        # Why others have not, by their numbers; told.
        self._unsettled = {}

    def set_as(self, described, commands, path):
        """Sets breakpoints as in another process, before a program in this file runs."""
        breakpoints = self.service.breakpoints
        for breakpoint, lines in zip(
                breakpoints.add_described(described, Places(breakpoints).in_file), commands):
            if breakpoint is not None and lines:
                self._command_lists[breakpoint.number] = [line.encode('utf-8') for line in lines]
        for breakpoint in breakpoints.pending():
            self._settle(breakpoint, path)

    # For the service.

    def imported(self):
        """Pending breakpoints may find their places now."""
        super(BreakpointStops, self).imported()
        for breakpoint in self.service.breakpoints.pending():
            self._settle(breakpoint)

    # At a stop.

    def _look_at_breakpoints(self):
        for breakpoint in self.service.breakpoints.pending():
            refusal = self._settle(breakpoint)
            if refusal is not None and self._unsettled.get(breakpoint.number) != refusal:
                self._unsettled[breakpoint.number] = refusal
                self._say('*** Breakpoint %d stays pending: %s' % (breakpoint.number, refusal))
        settled, self._settled = self._settled, []
        for breakpoint in settled:
            self._say('Breakpoint %d is at %s now' % (breakpoint.number, shown_place(breakpoint)))
        fired = self.service.breakpoints.take_fired()
        for breakpoint in fired:
            self._say('Deleted breakpoint %d' % breakpoint.number)
        self._due = self._find_due(fired) if is_at_line(self._stop) else []

    def _settle(self, breakpoint, *paths):
        """Why a pending one has found no place in what is loaded, if there is more to say.

        paths: of files that are about to be loaded.
        """
        places = Places(self.service.breakpoints)
        try:
            self.service.breakpoints.settle(
                breakpoint, places.find_loaded(breakpoint.waits_for, *paths))
        except NotLoaded:
            return None
        except Refused, refusal:
            return str(refusal)
        self._settled.append(breakpoint)
        return None

    def _find_due(self, fired):
        """fired: those that have stopped a thread, and are gone."""
        frame = self._stop.frame
        path, line = sublanguages.location(sublanguages.at_work(self._stop.thread), frame) \
            or (source.file_name(frame), frame.f_lineno)
        fired_here = [breakpoint for breakpoint in fired if breakpoint.line == line
                      and os.path.realpath(breakpoint.path) == os.path.realpath(path)]
        there = [breakpoint for breakpoint in self.service.breakpoints.at(path, line)
                 if breakpoint.enabled and not breakpoint.ignore_count]
        return [breakpoint for breakpoint in fired_here + there if self._is_due(breakpoint)]

    def _is_due(self, breakpoint):
        frame = self._stop.frame
        if breakpoint.message is not None or breakpoint.entry is not None \
                and not functions.is_entry(breakpoint.entry, frame):
            return False
        holds, error = conditions.judge(breakpoint.condition, self._stop.thread, frame)
        if error is not None:
            self._say('Condition of breakpoint %d: %s' % (
                breakpoint.number, errors.error_text(*error)))
        return holds
