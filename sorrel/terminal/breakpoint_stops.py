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
    """Commands find here: `_due`, the Breakpoints that the program has stopped at; `_fired`, the
    temporary ones that are gone with that; `_news`, lines of what is still to be told; `_refusals`,
    why pending ones have found no place, by their numbers, as far as that was told.
    """

    _due = _fired = ()

    def set_as(self, described, commands, *paths):
        """Sets breakpoints as in another process; the places of those that cannot be set.

        paths: of files that are about to be loaded.
        """
        breakpoints = self.service.breakpoints
        lost = []
        for values, lines, breakpoint in zip(described, commands, breakpoints.add_described(
                described, Places(breakpoints).in_file)):
            if breakpoint is None:
                lost.append('%s:%s' % tuple(values[:2]))
            else:
                self._last_breakpoint = breakpoint.number
                if lines:
                    self._command_lists[breakpoint.number] = [
                        line.encode('utf-8') for line in lines]
        for breakpoint in breakpoints.pending():
            self._settle(breakpoint, *paths)
        return lost

    # For the service.

    def imported(self):
        """Pending breakpoints may find their places now."""
        super(BreakpointStops, self).imported()
        for breakpoint in self.service.breakpoints.pending():
            self._settle(breakpoint)

    def template_begun(self, path):
        """Those in lines at which nothing of the template begins go on to the next one."""
        places = Places(self.service.breakpoints)
        for breakpoint in self.service.breakpoints.all():
            if breakpoint.real_path != path or breakpoint.is_in_no_file():
                continue
            try:
                place = places.in_file(breakpoint.path, breakpoint.line)
            except Refused as refusal:
                self._news.append('*** Breakpoint %d: %s' % (breakpoint.number, refusal))
                continue
            if place.line != breakpoint.line:
                self.service.breakpoints.move(breakpoint, place)
                self._news.append(_moved(breakpoint))

    # At a stop.

    def _look_at_breakpoints(self, stop):
        for breakpoint in self.service.breakpoints.pending():
            refusal = self._settle(breakpoint)
            if refusal is not None and self._refusals.get(breakpoint.number) != refusal:
                self._refusals[breakpoint.number] = refusal
                self._news.append('*** Breakpoint %d stays pending: %s' % (
                    breakpoint.number, refusal))
        self._fired = self.service.breakpoints.take_fired()
        self._news += ['Deleted breakpoint %d' % breakpoint.number for breakpoint in self._fired]
        there = self._there(stop) if is_at_line(stop) else []
        self._due = there and self._evaluation.call(stop, self._those_due, there, stop)

    def _tell_of_breakpoints(self):
        while self._news:
            self._say(self._news.pop(0))

    def _settle(self, breakpoint, *paths):
        """Why a pending one has found no place in what is loaded, if there is more to say."""
        places = Places(self.service.breakpoints)
        try:
            self.service.breakpoints.settle(
                breakpoint, places.find_loaded(breakpoint.waits_for, *paths))
        except NotLoaded:
            return None
        except Refused as refusal:
            return str(refusal)
        self._news.append(_moved(breakpoint))
        return None

    def _there(self, stop):
        """Those that are where the thread has stopped."""
        path, line = sublanguages.location(sublanguages.at_work(stop.thread), stop.frame) \
            or (source.file_name(stop.frame), stop.frame.f_lineno)
        fired_here = [breakpoint for breakpoint in self._fired if breakpoint.line == line
                      and os.path.realpath(breakpoint.path) == os.path.realpath(path)]
        return fired_here + [breakpoint for breakpoint in self.service.breakpoints.at(path, line)
                             if breakpoint.enabled and not breakpoint.ignore_count]

    def _those_due(self, there, stop):
        return [breakpoint for breakpoint in there if self._is_due(breakpoint, stop)]

    def _is_due(self, breakpoint, stop):
        if breakpoint.message is not None or breakpoint.entry is not None \
                and not functions.is_reached(breakpoint.entry, stop.frame):
            return False
        holds, error = conditions.judge(breakpoint.meant, stop.thread, stop.frame)
        if error is not None:
            self._news.append('Condition of breakpoint %d: %s' % (
                breakpoint.number, errors.error_text(*error)))
        return holds


def _moved(breakpoint):
    return 'Breakpoint %d is at %s now' % (breakpoint.number, shown_place(breakpoint))
